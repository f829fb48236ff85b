#include "core/vb.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace vb {

double RoundHalfEven(double value) {
    const double lower = std::floor(value);
    const double diff = value - lower;
    if (diff < 0.5) return lower;
    if (diff > 0.5) return lower + 1.0;
    return std::fmod(lower, 2.0) == 0.0 ? lower : lower + 1.0;
}

std::optional<double> ParseNumber(std::string_view text, char decimalSeparator) {
    std::size_t i = 0;
    const std::size_t n = text.size();
    auto skipSpaces = [&] {
        while (i < n && (text[i] == ' ' || text[i] == '\t')) ++i;
    };
    skipSpaces();
    std::string normal;
    if (i < n && (text[i] == '+' || text[i] == '-')) normal += text[i++];
    bool digits = false;
    while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) {
        normal += text[i++];
        digits = true;
    }
    if (i < n && (text[i] == '.' || text[i] == decimalSeparator)) {
        normal += '.';
        ++i;
        while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) {
            normal += text[i++];
            digits = true;
        }
    }
    if (!digits) return std::nullopt;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        std::string exp = "e";
        std::size_t j = i + 1;
        if (j < n && (text[j] == '+' || text[j] == '-')) exp += text[j++];
        bool expDigits = false;
        while (j < n && std::isdigit(static_cast<unsigned char>(text[j]))) {
            exp += text[j++];
            expDigits = true;
        }
        if (!expDigits) return std::nullopt;
        normal += exp;
        i = j;
    }
    skipSpaces();
    if (i != n) return std::nullopt;
    char* end = nullptr;
    const double value = std::strtod(normal.c_str(), &end);
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

namespace {
template <typename T> std::optional<T> ToInteger(std::string_view text, char sep) {
    auto value = ParseNumber(text, sep);
    if (!value) return std::nullopt;
    const double rounded = RoundHalfEven(*value);
    if (rounded < static_cast<double>(std::numeric_limits<T>::min()) ||
        rounded > static_cast<double>(std::numeric_limits<T>::max()))
        return std::nullopt;
    return static_cast<T>(rounded);
}
} // namespace

std::optional<std::int16_t> CInt(std::string_view text, char sep) { return ToInteger<std::int16_t>(text, sep); }
std::optional<std::int32_t> CLng(std::string_view text, char sep) { return ToInteger<std::int32_t>(text, sep); }

std::string Trim(std::string_view text) {
    std::size_t b = 0, e = text.size();
    while (b < e && text[b] == ' ') ++b;
    while (e > b && text[e - 1] == ' ') --e;
    return std::string(text.substr(b, e - b));
}

std::string UCase(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string Left(std::string_view text, std::size_t n) { return std::string(text.substr(0, std::min(n, text.size()))); }

std::string FormatSize(double value, char decimalSeparator) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.2f", value);
    std::string out = buf;
    if (out == "-0.00") out = "0.00";
    for (char& c : out)
        if (c == '.') c = decimalSeparator;
    return out;
}

} // namespace vb
