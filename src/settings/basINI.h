#pragma once
// basINI: the program's INI-file operations over the platform's profile
// functions: write one key, read a whole section into the two program-wide
// lists IniKeys and IniValues, read the list of sections.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "drives/keyed_list.h"
#include "platform/profile.h"

namespace settings {

class basINI {
public:
    explicit basINI(platform::Profile& profile) : profile_(profile) {}

    // Writes Key=Value into Section of File; an empty value is written as a
    // single space so the key is never deleted. True when the platform wrote it.
    bool IniValueSet(const std::string& file, const std::string& section, const std::string& key,
                     const std::string& value);
    // IniKeys and IniValues become new, empty lists.
    void IniListsReset();
    // Appends the section's entries to IniKeys and IniValues (in step, under
    // their counts). Reads at most 32,767 characters. Returns false, as the
    // error its caller sees, when the lists were never made or when a line has
    // no "=": that line's key is then added but not its value, and the lines
    // after it are not read.
    bool IniSectionRead(const std::string& file, const std::string& section);
    // The entry under Index, or "" when there is none.
    std::string IniKeyGet(const std::string& index) const;
    std::string IniValueGet(const std::string& index) const;
    // Count of IniKeys; 0 when the list was never made.
    std::int32_t IniKeyCount() const;
    // Every section name of the file in file order, then one empty string.
    std::vector<std::string> IniSectionNames(const std::string& file);

    static constexpr std::uint32_t kSectionBufferSize = 32767;

private:
    platform::Profile& profile_;
    std::optional<drives::KeyedList> IniKeys_;
    std::optional<drives::KeyedList> IniValues_;
};

} // namespace settings
