#pragma once
// A volume's label, file-system name and UUID, asked of the sources in this
// order: the udev database (ID_FS_LABEL_ENC, ID_FS_TYPE), udisks2 (IdLabel,
// IdType), the file system itself (FS_IOC_GETFSLABEL on the mounted folder,
// with libblkid on the device node for the UUID), libblkid alone. The
// mount's own type is the last resort for the name, never "fuseblk".
//
// A mounted volume is identified once per mount: the answer is kept for its
// device number and mount serial (see DriveRecord) until the device is
// mounted anew or forgotten (its udev event, a label the program set).
#include <cstdint>
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
// Drops what is kept for a device; 0:0 drops everything.
void ForgetVolume(std::uint32_t major, std::uint32_t minor);
// How many volumes were identified from their sources (not from what was
// kept) since the process started.
std::uint64_t VolumeIdentifications();

// The 32-bit volume serial number from a UUID: FAT's "ABCD-1234" is exactly
// one; of longer UUIDs the first eight hex digits.
std::uint32_t SerialFromUuid(const std::string& uuid);

} // namespace linuxbk
