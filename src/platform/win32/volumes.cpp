// Volumes, files and profile files: the kernel32 "A" functions, unchanged.
#include "platform/win32/raii.h"

#include <algorithm>
#include <cstring>

#include "platform/bytes.h"
#include "platform/win32/backend.h"

namespace win32 {

namespace {

void ToFindData(const WIN32_FIND_DATAA& in, platform::FindData& out) {
    out.dwFileAttributes = in.dwFileAttributes;
    out.nFileSize = (static_cast<std::uint64_t>(in.nFileSizeHigh) << 32) | in.nFileSizeLow;
    static_assert(sizeof in.cFileName == std::tuple_size_v<decltype(out.cFileName)>);
    std::memcpy(out.cFileName.data(), in.cFileName, sizeof in.cFileName);
    out.cFileName.back() = '\0';
}

DWORD Size(std::span<char> buffer) { return static_cast<DWORD>(std::min<std::size_t>(buffer.size(), MAXDWORD)); }

} // namespace

std::uint32_t Volumes::GetLogicalDriveStringsA(std::span<char> buffer) {
    return ::GetLogicalDriveStringsA(Size(buffer), buffer.data());
}

std::uint32_t Volumes::GetDriveTypeA(const std::string& root) { return ::GetDriveTypeA(root.c_str()); }

bool Volumes::GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                                  std::span<std::uint8_t, 8> totalBytes, std::span<std::uint8_t, 8> totalFreeBytes) {
    ULARGE_INTEGER available{}, total{}, free{};
    if (!::GetDiskFreeSpaceExA(directory.c_str(), &available, &total, &free)) return false;
    platform::WriteLe<std::uint64_t>(freeBytesAvailable, 0, available.QuadPart);
    platform::WriteLe<std::uint64_t>(totalBytes, 0, total.QuadPart);
    platform::WriteLe<std::uint64_t>(totalFreeBytes, 0, free.QuadPart);
    return true;
}

bool Volumes::GetVolumeInformationA(const std::string& root, std::span<char> volumeName, std::uint32_t& serialNumber,
                                    std::uint32_t& maxComponentLength, std::uint32_t& fileSystemFlags,
                                    std::span<char> fileSystemName) {
    DWORD serial = 0, maxLength = 0, flags = 0;
    const BOOL ok = ::GetVolumeInformationA(root.c_str(), volumeName.data(), Size(volumeName), &serial, &maxLength,
                                            &flags, fileSystemName.data(), Size(fileSystemName));
    if (!ok) return false;
    serialNumber = serial;
    maxComponentLength = maxLength;
    fileSystemFlags = flags;
    return true;
}

bool Volumes::SetVolumeLabelA(const std::string& root, const std::string& label) {
    return ::SetVolumeLabelA(root.c_str(), label.c_str()) != FALSE;
}

std::uint32_t Volumes::GetFileAttributesA(const std::string& path) { return ::GetFileAttributesA(path.c_str()); }

platform::Handle Volumes::FindFirstFileA(const std::string& pattern, platform::FindData& data) {
    WIN32_FIND_DATAA found{};
    HANDLE h = ::FindFirstFileA(pattern.c_str(), &found);
    if (h == INVALID_HANDLE_VALUE) return platform::kInvalidHandleValue;
    ToFindData(found, data);
    return FromHandle(h);
}

bool Volumes::FindNextFileA(platform::Handle search, platform::FindData& data) {
    WIN32_FIND_DATAA found{};
    if (!::FindNextFileA(ToHandle(search), &found)) return false;
    ToFindData(found, data);
    return true;
}

bool Volumes::FindClose(platform::Handle search) { return ::FindClose(ToHandle(search)) != FALSE; }

bool Volumes::DeleteFileA(const std::string& path) { return ::DeleteFileA(path.c_str()) != FALSE; }

bool Volumes::MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) {
    return ::MoveFileExA(existing.c_str(), replacement.c_str(), flags) != FALSE;
}

// The runtime's directory query: with the volume attribute the drive's label;
// otherwise the first entry whose attributes the given ones admit (read-only,
// archive and normal entries always qualify). A drive without its medium
// answers nothing at once: searches over every drive letter (the sibling
// tools) must never stop at the system's "no disk" dialog.
std::string Volumes::Dir(const std::string& pathname, std::uint32_t attributes) {
    const QuietCriticalErrors quiet;
    if ((attributes & platform::kAttrVolume) != 0) {
        if (pathname.size() < 2 || pathname[1] != ':') return {};
        const std::string root = pathname.substr(0, 2) + "\\";
        char label[MAX_PATH + 1]{};
        if (!::GetVolumeInformationA(root.c_str(), label, sizeof label, nullptr, nullptr, nullptr, nullptr, 0))
            return {};
        return label;
    }
    std::string pattern = pathname;
    if (!pattern.empty() && (pattern.back() == '\\' || pattern.back() == '/')) pattern += "*.*";
    WIN32_FIND_DATAA found{};
    HANDLE h = ::FindFirstFileA(pattern.c_str(), &found);
    if (h == INVALID_HANDLE_VALUE) return {};
    constexpr DWORD kAlways = platform::kAttrReadOnly | platform::kAttrArchive | platform::kAttrNormal;
    std::string result;
    do {
        if ((found.dwFileAttributes & ~(attributes | kAlways)) == 0) {
            result = found.cFileName;
            break;
        }
    } while (::FindNextFileA(h, &found));
    ::FindClose(h);
    return result;
}

std::int32_t Profile::WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                                 const std::string& value, const std::string& file) {
    return ::WritePrivateProfileStringA(section.c_str(), key.c_str(), value.c_str(), file.c_str());
}

std::uint32_t Profile::GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                                 const std::string& file) {
    return ::GetPrivateProfileSectionA(section.c_str(), buffer.data(), Size(buffer), file.c_str());
}

std::uint32_t Profile::GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) {
    return ::GetPrivateProfileSectionNamesA(buffer.data(), Size(buffer), file.c_str());
}

} // namespace win32
