#pragma once
// Reading the fields of a machine description, with one kind of error for
// every part of it: "machine description: ..." as std::runtime_error.
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace fake {

[[noreturn]] inline void Fail(const std::string& what) { throw std::runtime_error("machine description: " + what); }

// A string field, or the fallback when it is missing.
inline std::string Str(const nlohmann::json& j, const char* key, const std::string& fallback = {}) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_string()) Fail(std::string("\"") + key + "\" must be a string");
    return j[key].get<std::string>();
}

} // namespace fake
