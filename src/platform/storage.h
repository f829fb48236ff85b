#pragma once
// Storage I/O controls on a volume or a device interface: opening it, asking
// its storage driver through DeviceIoControl, closing it, and the DOS device
// name behind a drive letter. Buffers carry the Windows byte layouts
// (little-endian, the offsets below).
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

// CreateFileA access, share and disposition values.
inline constexpr std::uint32_t kGenericRead = 0x80000000u;
inline constexpr std::uint32_t kFileShareRead = 0x1;
inline constexpr std::uint32_t kFileShareWrite = 0x2;
inline constexpr std::uint32_t kOpenExisting = 3;

// The I/O control codes a backend answers (the logic computes them itself).
inline constexpr std::uint32_t kIoctlStorageQueryProperty = 0x2D1400;
inline constexpr std::uint32_t kIoctlStorageGetDeviceNumber = 0x2D1080;

// STORAGE_PROPERTY_QUERY: PropertyId (4), QueryType (4), AdditionalParameters (1, padded to 4).
inline constexpr std::size_t kStoragePropertyQuerySize = 12;
inline constexpr std::uint32_t kStorageDeviceProperty = 0;
inline constexpr std::uint32_t kPropertyStandardQuery = 0;

// STORAGE_DEVICE_DESCRIPTOR as far as the program reserves it: Version (0),
// Size (4), DeviceType (8), DeviceTypeModifier (9), RemovableMedia (10),
// CommandQueueing (11), VendorIdOffset (12), ProductIdOffset (16),
// ProductRevisionOffset (20), SerialNumberOffset (24), BusType (28),
// RawPropertiesLength (32), RawDeviceProperties (36).
inline constexpr std::size_t kStorageDeviceDescriptorSize = 40;
inline constexpr std::size_t kDescriptorVersionOffset = 0;
inline constexpr std::size_t kDescriptorSizeOffset = 4;
inline constexpr std::size_t kDescriptorRemovableMediaOffset = 10;
inline constexpr std::size_t kDescriptorBusTypeOffset = 28;

// STORAGE_BUS_TYPE values.
inline constexpr std::uint32_t kBusTypeUnknown = 0;
inline constexpr std::uint32_t kBusTypeScsi = 1;
inline constexpr std::uint32_t kBusTypeAta = 3;
inline constexpr std::uint32_t kBusType1394 = 4;
inline constexpr std::uint32_t kBusTypeUsb = 7;
inline constexpr std::uint32_t kBusTypeRaid = 8;
inline constexpr std::uint32_t kBusTypeSata = 0xB;
inline constexpr std::uint32_t kBusTypeSd = 0xC;
inline constexpr std::uint32_t kBusTypeMmc = 0xD;
inline constexpr std::uint32_t kBusTypeVirtual = 0xE;
inline constexpr std::uint32_t kBusTypeFileBackedVirtual = 0xF;
inline constexpr std::uint32_t kBusTypeNvme = 0x11;
inline constexpr std::uint32_t kBusTypeMaxReserved = 0x7F;

// STORAGE_DEVICE_NUMBER: DeviceType (0), DeviceNumber (4), PartitionNumber (8).
inline constexpr std::size_t kStorageDeviceNumberSize = 12;
inline constexpr std::uint32_t kFileDeviceCdRom = 0x2;
inline constexpr std::uint32_t kFileDeviceDisk = 0x7;

class Storage {
public:
    virtual ~Storage() = default;

    // Opens a volume ("\\.\E:") or a device interface path without security
    // attributes or template; kInvalidHandleValue when it cannot be opened.
    virtual Handle CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                               std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) = 0;
    // Sends a control code to an open device, synchronously. Writes at most
    // outBuffer.size() bytes and reports them in bytesReturned; false when the
    // driver does not answer the code or a buffer is too small for it.
    virtual bool DeviceIoControl(Handle device, std::uint32_t ioControlCode, std::span<const std::uint8_t> inBuffer,
                                 std::span<std::uint8_t> outBuffer, std::uint32_t& bytesReturned) = 0;
    virtual bool CloseHandle(Handle handle) = 0;
    // The device names a DOS device name ("E:") maps to, each NUL-terminated,
    // then one more NUL; returns the characters stored, 0 on failure (no such
    // name, or a buffer too small).
    virtual std::uint32_t QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) = 0;
};

} // namespace platform
