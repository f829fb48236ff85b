#pragma once
// Small conversions the logic shares: the number conversions that accept what
// a user may have typed into a settings file, rounding halves to even, and the
// text helpers the window code relies on.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vb {

// Rounds to the nearest whole number, halves to the even neighbour.
double RoundHalfEven(double value);

// A number in text: optional spaces, sign, digits with an optional fraction
// (point or the locale's separator) and exponent. Nothing for anything else.
std::optional<double> ParseNumber(std::string_view text, char decimalSeparator = '.');
// The 16-bit and 32-bit integer conversions (rounding halves to even);
// nothing when the text is not a number or the value does not fit.
std::optional<std::int16_t> CInt(std::string_view text, char decimalSeparator = '.');
std::optional<std::int32_t> CLng(std::string_view text, char decimalSeparator = '.');

// Removes leading and trailing spaces (spaces only).
std::string Trim(std::string_view text);
// Removes leading and trailing blanks: spaces, tabs, line ends and NULs (what
// the system's own text, such as a file's first line, may carry).
std::string TrimBlanks(std::string_view text);

// Case in ASCII: the letters A-Z and a-z change, every other byte stays as it
// is (whatever the C locale says), so the answers are the same everywhere.
constexpr char UpperChar(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
constexpr char LowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
std::string UCase(std::string_view text);
std::string LCase(std::string_view text);
// Equal but for ASCII case.
bool SameText(std::string_view a, std::string_view b);
// The first n characters (all of them when shorter).
std::string Left(std::string_view text, std::size_t n);
// The number of characters of a UTF-8 text (not its bytes): every byte that
// does not continue a character starts one.
int CharCount(std::string_view text);

// Formats with the number pattern "##0.#0": no grouping, at least one integer
// digit, two decimals and the given decimal separator. The value is rounded as
// the decimal number of its 15 significant digits, halves away from zero
// (1536.125 gives "1536.13"), as the platform's number formatting does.
std::string FormatSize(double value, char decimalSeparator);

} // namespace vb
