#include "core/vb.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

int CharCount(std::string_view text) {
    int count = 0;
    for (const char c : text)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++count;
    return count;
}

std::string FormatSize(double value, char decimalSeparator) {
    if (!std::isfinite(value)) return std::string{'0', decimalSeparator, '0', '0'};
    // The value as the decimal number the platform's formatting sees: its 15
    // significant digits. Rounding works on those digits, so 1536.125 gives
    // 1536.13 and 1.005 gives 1.01 (not the binary neighbours' 1536.12 and 1.00).
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.14e", std::fabs(value)); // d.dddddddddddddde+XX
    std::string digits(1, buf[0]);
    digits.append(buf + 2, 14);
    int whole = std::atoi(std::strchr(buf, 'e') + 1) + 1; // digits before the decimal point
    if (whole < 1) {
        digits.insert(0, static_cast<std::size_t>(1 - whole), '0');
        whole = 1;
    }
    const auto kept = static_cast<std::size_t>(whole) + 2;
    if (digits.size() < kept + 1) digits.append(kept + 1 - digits.size(), '0');
    const bool up = digits[kept] >= '5'; // halves away from zero
    digits.resize(kept);
    if (up) {
        std::size_t i = kept;
        while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
        if (i == 0) {
            digits.insert(digits.begin(), '1');
            ++whole;
        } else {
            ++digits[i - 1];
        }
    }
    std::string integer = digits.substr(0, static_cast<std::size_t>(whole));
    integer.erase(0, std::min(integer.find_first_not_of('0'), integer.size() - 1));
    const std::string fraction = digits.substr(static_cast<std::size_t>(whole));
    const bool zero = digits.find_first_not_of('0') == std::string::npos;
    std::string out(value < 0 && !zero ? "-" : "");
    out += integer;
    out += decimalSeparator;
    out += fraction;
    return out;
}

} // namespace vb
