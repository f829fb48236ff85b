#pragma once
// Profile (INI) files on Linux: the private-profile functions over real files,
// in the format of platform/portable/profile_text.h.
#include <functional>
#include <string>

#include "platform/portable/profile_text.h"
#include "platform/profile.h"

namespace linuxbk {

class ProfileFiles : public platform::Profile {
public:
    // Turns the Windows-form path the logic passes into a path of this system.
    using PathMapper = std::function<std::string(const std::string&)>;

    explicit ProfileFiles(PathMapper toNativePath = DefaultNativePath);

    // "C:\home\me\Kestrine.ini" -> "/home/me/Kestrine.ini": a leading drive C:
    // is dropped and backslashes become slashes.
    static std::string DefaultNativePath(const std::string& windowsPath);

    // Writes the whole new text to a temporary file in the same folder, then
    // renames it over the old file, so the file is always either the old or
    // the new one. 0 on any failure (empty section name, unreadable file,
    // missing folder, write or rename failing).
    std::int32_t WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                            const std::string& value, const std::string& file) override;
    // A missing or unreadable file reads as empty: 0.
    std::uint32_t GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                            const std::string& file) override;
    std::uint32_t GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) override;

private:
    // The parsed file, read again only when it changed; nothing when it
    // cannot be read.
    const portable::ParsedProfile* parsed(const std::string& path);

    PathMapper toNativePath_;
    portable::ProfileCache cache_;
};

} // namespace linuxbk
