#pragma once
// Profile (INI) files: the kernel32 private-profile functions.
#include <cstdint>
#include <span>
#include <string>

namespace platform {

class Profile {
public:
    virtual ~Profile() = default;

    // Creates file and section when missing, replaces the key's value or adds
    // the key at the end of its section. Non-zero on success.
    virtual std::int32_t WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                                    const std::string& value, const std::string& file) = 0;
    // Fills the buffer with the section's "key=value" lines, each ended by NUL,
    // then one more NUL. Returns the characters copied without the final NUL,
    // 0 when file or section is missing, size - 2 when the buffer is too small.
    virtual std::uint32_t GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                                    const std::string& file) = 0;
    // Fills the buffer with the section names, each ended by NUL, then one
    // more NUL. Returns as GetPrivateProfileSectionA does.
    virtual std::uint32_t GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) = 0;
};

} // namespace platform
