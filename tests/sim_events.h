#pragma once
// A scenario run by kestrine-sim's runner, its transcript read back as one
// JSON object per event.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kestrine-sim/scenario.h"

namespace simtest {

inline std::vector<nlohmann::json> RunSim(const std::string& text) {
    std::vector<nlohmann::json> events;
    for (const auto& line : sim::RunScenario(text)) events.push_back(nlohmann::json::parse(line));
    return events;
}

} // namespace simtest
