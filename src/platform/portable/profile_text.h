#pragma once
// The profile (INI) file format, read and written as the text of one file.
// This is the program's own stand-in for the Windows private-profile
// functions wherever they are not available: the same format, the same
// matching rules and the same buffer answers.
//
// Format: a line whose first non-blank character is "[" and which holds a "]"
// opens the section named by the text between the "[" and the last "]",
// without the blanks around it ("[ Kestrine ]" is the section "Kestrine").
// Every other line belongs to the section above it (lines before the first
// section line belong to none). Section and key names match without regard to
// ASCII case; the names asked for are trimmed of blanks. Reading accepts LF and
// CRLF line ends and a last line without one; writing gives CRLF line ends
// throughout. docs/profile-files.md compares these rules with the Windows
// profile functions.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace portable {

// The file text after setting key to value in section. The first line of the
// section whose key matches gets the new value (keeping its key as spelled in
// the file; blank lines match no key); when there is none, "key=value" is
// added after the section's last entry, before any blank lines that close it; a missing section is added at
// the end of the file, behind a blank line when the file has content. Other
// lines keep their text. The value is written as given. An empty section name
// has no section to write to: the content comes back unchanged.
std::string WriteString(std::string_view content, std::string_view section, std::string_view key,
                        std::string_view value);

// The section's entries in file order, as GetPrivateProfileSectionA gives
// them: "key=value" with blanks around key and value removed (so "=value"
// for an entry without a key), a line without "=" as its trimmed text, a key
// repeated as often as the file repeats it. Blank lines and comment lines
// (";") are left out. Nothing when the section is missing; when the file
// repeats a section, its first occurrence.
std::optional<std::vector<std::string>> SectionLines(std::string_view content, std::string_view section);

// The names of the file's sections in file order.
std::vector<std::string> SectionNames(std::string_view content);

// A file's text read once, its sections found once: asking for one section
// costs that section's lines, so reading every section of a file (as a
// USB.ini with thousands of sections is read) stays linear in its size.
class ParsedProfile {
public:
    explicit ParsedProfile(std::string content);
    // As the free functions above.
    std::optional<std::vector<std::string>> SectionLines(std::string_view section) const;
    const std::vector<std::string>& SectionNames() const { return names_; }

private:
    std::string content_;
    std::vector<std::string_view> lines_;
    std::vector<std::string> names_;
    // Lower-cased trimmed name -> (header line, end line) of its first occurrence.
    std::unordered_map<std::string, std::pair<std::size_t, std::size_t>> sections_;
};

// The last few files read, each kept while its version stays the same (the
// caller's notion of an unchanged file: its identity and time of change).
class ProfileCache {
public:
    const ParsedProfile& Get(const std::string& file, const std::string& version,
                             const std::function<std::string()>& read);
    // How many times a file was read and parsed.
    std::size_t Reads() const { return reads_; }

private:
    std::size_t reads_ = 0;
    struct Entry {
        std::string file, version;
        std::shared_ptr<const ParsedProfile> parsed;
    };
    std::vector<Entry> entries_; // the most recent last
};

// Puts strings into buffer as Windows' profile functions return string lists:
// each string followed by NUL, then one more NUL. Returns the characters
// copied without the final NUL. When the list does not fit, the buffer holds
// as much of it as fits before two closing NULs and the result is size - 2
// (0 for buffers of fewer than 2 characters; nothing is written to an empty one).
std::uint32_t FillStringList(const std::vector<std::string>& strings, std::span<char> buffer);

} // namespace portable
