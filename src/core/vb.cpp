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

std::string TrimBlanks(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return std::string(text);
}

std::string UCase(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = UpperChar(c);
    return out;
}

std::string LCase(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = LowerChar(c);
    return out;
}

bool SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (UpperChar(a[i]) != UpperChar(b[i])) return false;
    return true;
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
