#pragma once
// modRemoveUsbDrive: asks the device manager to eject the device that holds a
// drive letter. The volume's storage device number leads to the disk, CD-ROM
// or floppy interface with the same number; its parent (for a USB stick, the
// USB mass-storage device) is asked to eject, a few times if it refuses.
#include "core/fwd.h"
#include <cstdint>
#include <string>

namespace release {

inline constexpr int kEjectAttempts = 4;
inline constexpr std::uint32_t kEjectPauseMs = 300;

// VolumePath is "\\.\" followed by the drive letter and colon. SystemNotice
// True (-1) uses the request form that lets the system tell the user the
// outcome; False (0) the form with a veto-name buffer. True (-1) when the
// device manager accepted the request, False (0) otherwise.
std::int16_t EjectUsbDrive(platform::Services& sys, const std::string& VolumePath, std::int16_t SystemNotice);

// The device instance of the interface whose storage device number is
// DeviceNumber, searched among the interfaces of the class the drive type
// calls for; 0 when none matches.
std::uint32_t FindDeviceInstance(platform::Services& sys, std::uint32_t DeviceNumber, std::uint32_t DriveType,
                                 const std::string& DosDeviceName);

} // namespace release
