#pragma once
// The simulated machine's processes and what they hold, read from the
// "processes" array of a machine description.
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "platform/processes.h"

namespace fake {

class FakeProcesses : public platform::Processes {
public:
    // Reads "processes": [{"pid", "name", "holds": [{"what", "path"}]}] from a
    // machine description; a description without it holds nothing. Throws
    // std::runtime_error on a malformed entry.
    void LoadJson(const nlohmann::json& description);
    void Add(platform::ProcessHold hold) { holds_.push_back(std::move(hold)); }

    std::vector<platform::ProcessHold> WhoHolds(const std::string& root) override;

private:
    std::vector<platform::ProcessHold> holds_;
};

} // namespace fake
