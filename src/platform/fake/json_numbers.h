#pragma once
// Numbers read from descriptions and scenarios: only values that fit the
// type they are read into, so a hostile or careless file gets an error,
// never a conversion that does not fit.
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <type_traits>

namespace fake {

// A whole number that fits T; nothing for anything else (a fraction, a string, too large).
template <typename T> std::optional<T> WholeNumber(const nlohmann::json& v) {
    static_assert(std::is_integral_v<T>);
    if (v.is_number_unsigned()) {
        const auto n = v.get<std::uint64_t>();
        if (n > static_cast<std::uint64_t>(std::numeric_limits<T>::max())) return std::nullopt;
        return static_cast<T>(n);
    }
    if (v.is_number_integer()) {
        const auto n = v.get<std::int64_t>();
        if (n < 0 && !std::is_signed_v<T>) return std::nullopt;
        if (n < static_cast<std::int64_t>(std::numeric_limits<T>::min())) return std::nullopt;
        if (n > 0 && static_cast<std::uint64_t>(n) > static_cast<std::uint64_t>(std::numeric_limits<T>::max()))
            return std::nullopt;
        return static_cast<T>(n);
    }
    return std::nullopt;
}

// A finite number within [low, high]; nothing for anything else.
inline std::optional<double> FiniteNumber(const nlohmann::json& v, double low, double high) {
    if (!v.is_number()) return std::nullopt;
    const double n = v.get<double>();
    if (!std::isfinite(n) || n < low || n > high) return std::nullopt;
    return n;
}

} // namespace fake
