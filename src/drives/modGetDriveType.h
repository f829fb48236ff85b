#pragma once
// modGetDriveType: asks a volume's storage driver which bus the drive sits on,
// and fills the USB drive list.
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "core/form_table.h"
#include "core/fwd.h"
#include "platform/types.h"

namespace drives {

// The Windows rule for I/O control codes: DeviceType × 2^16 OR Access × 2^14
// OR Function × 2^2 OR Method. Nothing when a product does not fit in 32 bits
// (an overflow).
std::optional<std::int32_t> MakeCtlCode(std::int32_t DeviceType, std::int32_t Function, std::int32_t Method,
                                        std::int32_t Access);
// 0x2D1400 and 0x2D1080.
std::uint32_t IOCTL_STORAGE_QUERY_PROPERTY();
std::uint32_t IOCTL_STORAGE_GET_DEVICE_NUMBER();

// The first 40 bytes of a STORAGE_DEVICE_DESCRIPTOR.
using StorageDescriptor = std::array<std::uint8_t, 40>;

// The name of a bus-type number: "Scsi", "Atapi", "Ata", "1394", "Ssa",
// "Fibre", "Usb", "RAID" for 1 to 8, "" for 0 and anything above 8.
std::string BusTypeName(std::uint32_t busType);

// The bus name of a drive given as letter and colon ("E:"); "" when the
// volume cannot be opened or its driver does not answer.
std::string GetBusType(platform::Services& sys, const std::string& sDrive);

// Asks the storage driver of an open volume for its device descriptor; true
// when it answered.
bool QueryStorageDescriptor(platform::Services& sys, platform::Handle hDevice, StorageDescriptor& descriptor);

// Fills the list box with one line per drive ("E:\STICK (USB)", "C:\System",
// "D:\") and returns true when at least one drive sits on a USB bus. A drive
// whose properties cannot be read ends the list there, with false.
bool ListDrives(app::Program& prog, app::Ctl list);

} // namespace drives
