#pragma once
// Text helpers every backend needs to give Windows-shaped answers: wildcard
// names, NUL-terminated buffers and UTF-16 names.
#include <span>
#include <string>
#include <string_view>

namespace portable {

// Windows-style wildcard match ("*", "?") without regard to ASCII case;
// "*.*" matches every name, dotted or not.
bool WildcardMatch(std::string_view pattern, std::string_view name);
// Copies text into a buffer, cut to fit, always NUL-terminated (nothing is
// written to an empty buffer).
void CopyCut(std::span<char> out, std::string_view text);
// UTF-8 to UTF-16 code units.
std::u16string Utf8ToUtf16(std::string_view text);
// UTF-16 code units to UTF-8, up to the first NUL (a buffer the system
// filled); surrogate pairs become one character, a lone surrogate U+FFFD.
std::string Utf16ToUtf8(std::u16string_view text);

} // namespace portable
