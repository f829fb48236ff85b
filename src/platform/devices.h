#pragma once
// The device manager: device-interface enumeration (setupapi), the device
// tree and the eject request (cfgmgr32), and Sleep. Device-information sets
// are opaque handles; the records keep their Windows field names.
#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "platform/types.h"

namespace platform {

struct Guid {
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::array<std::uint8_t, 8> Data4{};
    friend constexpr bool operator==(const Guid&, const Guid&) = default;
};

// The three device-interface classes a drive's device can belong to; they
// share the tail -B6BF-11D0-94F2-00A0C91EFB8B.
inline constexpr Guid kGuidDevinterfaceDisk{
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
inline constexpr Guid kGuidDevinterfaceCdrom{
    0x53F56308, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
inline constexpr Guid kGuidDevinterfaceFloppy{
    0x53F56311, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

using DevInfoSet = std::intptr_t; // HDEVINFO; kInvalidHandleValue when none
using DevInst = std::uint32_t;    // DEVINST; 0 is no device

inline constexpr std::uint32_t kDigcfPresent = 0x02;
inline constexpr std::uint32_t kDigcfDeviceInterface = 0x10;

// CONFIGRET results.
inline constexpr std::uint32_t kCrSuccess = 0x00;
inline constexpr std::uint32_t kCrNoSuchDevnode = 0x0D;
inline constexpr std::uint32_t kCrRemoveVetoed = 0x17;

// PNP_VETO_TYPE values a refusal may name.
inline constexpr std::int32_t kPnpVetoTypeUnknown = 0;
inline constexpr std::int32_t kPnpVetoOutstandingOpen = 5;

// SP_DEVICE_INTERFACE_DATA. cbSize is what the caller declares; a backend
// passes the platform's own record size to the system.
struct SpDeviceInterfaceData {
    std::uint32_t cbSize = 0;
    Guid InterfaceClassGuid;
    std::uint32_t Flags = 0;
    std::uintptr_t Reserved = 0;
};

// SP_DEVINFO_DATA.
struct SpDevinfoData {
    std::uint32_t cbSize = 0;
    Guid ClassGuid;
    std::uint32_t DevInst = 0; // a DevInst
    std::uintptr_t Reserved = 0;
};

// SP_DEVICE_INTERFACE_DETAIL_DATA_A in a caller's buffer: cbSize (4 bytes),
// then DevicePath, NUL-terminated.
inline constexpr std::size_t kDetailDevicePathOffset = 4;

class Devices {
public:
    virtual ~Devices() = default;

    // The present device interfaces of one class; kInvalidHandleValue on failure.
    virtual DevInfoSet SetupDiGetClassDevsA(const Guid& classGuid, std::uint32_t flags) = 0;
    // The interface at memberIndex of the set (no device-info filter); false
    // when there is none (the end of the set).
    virtual bool SetupDiEnumDeviceInterfaces(DevInfoSet set, const Guid& classGuid, std::uint32_t memberIndex,
                                             SpDeviceInterfaceData& data) = 0;
    // With an empty detail buffer: sets requiredSize to the bytes the detail
    // record needs and returns false (the "buffer too small" answer). With a
    // buffer: writes DevicePath after the caller's cbSize, fills devInfo when
    // given and returns true; false when the buffer is too small.
    virtual bool SetupDiGetDeviceInterfaceDetailA(DevInfoSet set, const SpDeviceInterfaceData& data,
                                                  std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                                  SpDevinfoData* devInfo) = 0;
    virtual bool SetupDiDestroyDeviceInfoList(DevInfoSet set) = 0;

    // The parent of a device in the device tree.
    virtual std::uint32_t CM_Get_Parent(DevInst& parent, DevInst device, std::uint32_t flags) = 0;
    // Asks for a device to be ejected. Two forms: with a veto-type variable
    // and no name buffer (the system tells the user the outcome itself), or
    // with a veto-name buffer (its size is the name length) and no veto type.
    // kCrSuccess when the request was accepted.
    virtual std::uint32_t CM_Request_Device_EjectW(DevInst device, std::int32_t* vetoType, std::span<char16_t> vetoName,
                                                   std::uint32_t flags) = 0;

    // Blocks the calling thread without dispatching messages.
    virtual void Sleep(std::uint32_t milliseconds) = 0;
};

} // namespace platform
