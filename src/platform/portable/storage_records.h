#pragma once
// The storage driver's records on backends that answer the I/O controls
// themselves: the property query they accept, the storage device descriptor
// and the storage device number.
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/storage.h"

namespace portable {

// True for a STORAGE_PROPERTY_QUERY asking the standard device property.
bool IsDevicePropertyQuery(std::span<const std::uint8_t> query);

// Writes a STORAGE_DEVICE_DESCRIPTOR with the fields the program reads, cut
// to the buffer (at most the descriptor's size, the rest zero); returns the
// bytes written. deviceType is the SCSI peripheral type (5 for optical).
std::size_t WriteDeviceDescriptor(std::span<std::uint8_t> out, bool removable, std::uint32_t busType,
                                  std::uint8_t deviceType = 0);

// Writes a STORAGE_DEVICE_NUMBER; false (nothing written) when it does not fit.
bool WriteDeviceNumber(std::span<std::uint8_t> out, std::uint32_t deviceType, std::uint32_t number,
                       std::uint32_t partition);

} // namespace portable
