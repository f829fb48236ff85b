#pragma once
// The mount table as /proc/self/mountinfo gives it.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace linuxbk {

struct MountEntry {
    int id = 0;
    int parent = 0;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::string root;       // the folder of the file system mounted here
    std::string mountPoint; // unescaped
    std::string options;
    std::string fsType; // "ext4", "nfs4", "fuse.sshfs"
    std::string source; // "/dev/sdb1", "server:/export", "//server/share"
};

// Parses mountinfo text; lines that do not have the form are skipped.
std::vector<MountEntry> ParseMountInfo(std::string_view text);
// Undoes the kernel's octal escapes (\040 space, \011 tab, \012 newline, \134 backslash).
std::string UnescapeMount(std::string_view text);

// Network file systems: nfs, cifs, smb3, 9p, sshfs and their kin.
bool IsNetworkFileSystem(std::string_view fsType);
// RAM-backed file systems without a device.
bool IsRamFileSystem(std::string_view fsType);
// "\\server\share" for a network mount's source; "" when it is no network source.
std::string ShareNameOf(std::string_view fsType, std::string_view source);

} // namespace linuxbk
