#pragma once
// A volume's label, file-system name and UUID, asked of the sources in this
// order: udisks2 (IdLabel, IdType), the udev database (ID_FS_LABEL_ENC,
// ID_FS_TYPE), the file system itself (FS_IOC_GETFSLABEL on the mounted
// folder), libblkid on the device node. The mount's own type is the last
// resort for the name, never "fuseblk".
#include <string>

#include "platform/linux/letter_map.h"

namespace linuxbk {

struct VolumeId {
    std::string label;
    std::string type;
    std::string uuid;
    std::string from; // which source answered: "udisks2", "udev", "ioctl", "blkid", "mount"
};

VolumeId IdentifyVolume(const DriveRecord& drive);

// The 32-bit volume serial number from a UUID: FAT's "ABCD-1234" is exactly
// one; of longer UUIDs the first eight hex digits.
std::uint32_t SerialFromUuid(const std::string& uuid);

} // namespace linuxbk
