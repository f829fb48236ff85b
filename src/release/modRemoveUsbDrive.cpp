#include "release/modRemoveUsbDrive.h"
#include "platform/bytes.h"

#include <array>
#include <optional>

#include "core/program.h"
#include "drives/modGetDriveType.h"

namespace release {

namespace {

constexpr std::uint32_t kShareReadWrite = platform::kFileShareRead | platform::kFileShareWrite;
constexpr std::size_t kDosDeviceChars = 280;
constexpr std::size_t kDetailBufferSize = 1024;
constexpr std::uint32_t kInterfaceDataSize = 28;
constexpr std::uint32_t kDevinfoDataSize = 28;
constexpr std::uint32_t kDetailDataSize = 5;
constexpr std::size_t kVetoNameChars = 260;
// The device number that stands for none: -1 as a 32-bit field.
constexpr std::uint32_t kNoDeviceNumber = 0xFFFFFFFF;

// The DeviceNumber field of the STORAGE_DEVICE_NUMBER an open device reports.
std::optional<std::uint32_t> DeviceNumberOf(platform::Storage& storage, platform::Handle h) {
    std::array<std::uint8_t, platform::kStorageDeviceNumberSize> number{};
    std::uint32_t bytes = 0;
    if (!storage.DeviceIoControl(h, drives::IOCTL_STORAGE_GET_DEVICE_NUMBER(), {}, number, bytes)) return std::nullopt;
    return platform::ReadLe32(number, 4);
}

std::optional<platform::Guid> InterfaceClassFor(std::uint32_t driveType, const std::string& dosDeviceName) {
    switch (driveType) {
    case platform::kDriveRemovable:
        return dosDeviceName.find("\\Floppy") != std::string::npos ? platform::kGuidDevinterfaceFloppy
                                                                   : platform::kGuidDevinterfaceDisk;
    case platform::kDriveFixed:
        return platform::kGuidDevinterfaceDisk;
    case platform::kDriveCdrom:
        return platform::kGuidDevinterfaceCdrom;
    default:
        return std::nullopt;
    }
}

} // namespace

std::uint32_t FindDeviceInstance(platform::Services& sys, std::uint32_t DeviceNumber, std::uint32_t DriveType,
                                 const std::string& DosDeviceName) {
    auto& devices = sys.devices;
    auto& storage = sys.storage;
    const auto guid = InterfaceClassFor(DriveType, DosDeviceName);
    if (!guid) return 0; // network drives, RAM disks and unknown types have no interface class

    const platform::DevInfoSet set =
        devices.SetupDiGetClassDevsA(*guid, platform::kDigcfPresent | platform::kDigcfDeviceInterface);
    if (set == platform::kInvalidHandleValue) return 0;

    for (std::uint32_t index = 0;; ++index) {
        platform::SpDeviceInterfaceData data;
        data.cbSize = kInterfaceDataSize;
        if (!devices.SetupDiEnumDeviceInterfaces(set, *guid, index, data)) break;

        std::uint32_t required = 0;
        devices.SetupDiGetDeviceInterfaceDetailA(set, data, {}, &required, nullptr);
        if (required == 0 || required > kDetailBufferSize) continue;

        std::array<std::uint8_t, kDetailBufferSize> detail{};
        detail[0] = kDetailDataSize;
        platform::SpDevinfoData info;
        info.cbSize = kDevinfoDataSize;
        std::uint32_t written = 0;
        if (!devices.SetupDiGetDeviceInterfaceDetailA(set, data, std::span(detail).first(required), &written, &info))
            continue;

        const auto* path = reinterpret_cast<const char*>(detail.data() + platform::kDetailDevicePathOffset);
        const platform::Handle h = storage.CreateFileA(path, 0, kShareReadWrite, platform::kOpenExisting, 0);
        if (h == platform::kInvalidHandleValue) continue;
        const auto number = DeviceNumberOf(storage, h);
        storage.CloseHandle(h);
        // Only the number counts; the device type and partition are not compared.
        if (number == DeviceNumber) {
            devices.SetupDiDestroyDeviceInfoList(set);
            return info.DevInst;
        }
    }
    devices.SetupDiDestroyDeviceInfoList(set);
    return 0;
}

std::int16_t EjectUsbDrive(platform::Services& sys, const std::string& VolumePath, std::int16_t SystemNotice) {
    auto& storage = sys.storage;
    auto& devices = sys.devices;
    const std::string DriveName = VolumePath.size() >= 2 ? VolumePath.substr(VolumePath.size() - 2) : VolumePath;

    const platform::Handle h = storage.CreateFileA(VolumePath, 0, kShareReadWrite, platform::kOpenExisting, 0);
    if (h == platform::kInvalidHandleValue) return app::kFalse;
    const auto DeviceNumber = DeviceNumberOf(storage, h);
    storage.CloseHandle(h);
    // No answer and an answer of -1 (0xFFFFFFFF) both leave no device to look for.
    if (!DeviceNumber || *DeviceNumber == kNoDeviceNumber) return app::kFalse;

    const std::uint32_t DriveType = sys.volumes.GetDriveTypeA(DriveName);

    std::array<char, kDosDeviceChars> dos{};
    if (storage.QueryDosDeviceA(DriveName, dos) == 0) return app::kFalse;
    const std::string DosDeviceName(dos.data()); // cut at the first NUL

    const std::uint32_t DevInst = FindDeviceInstance(sys, *DeviceNumber, DriveType, DosDeviceName);
    if (DevInst == 0) return app::kFalse;

    // The request goes to the parent: for a USB stick, the mass-storage device.
    platform::DevInst Parent = 0;
    devices.CM_Get_Parent(Parent, DevInst, 0);

    for (int attempt = 0; attempt < kEjectAttempts; ++attempt) {
        std::uint32_t result;
        if (SystemNotice != app::kFalse) {
            std::int32_t vetoType = platform::kPnpVetoTypeUnknown;
            result = devices.CM_Request_Device_EjectW(Parent, &vetoType, {}, 0);
        } else {
            std::array<char16_t, kVetoNameChars> vetoName{};
            result = devices.CM_Request_Device_EjectW(Parent, nullptr, vetoName, 0);
        }
        if (result == platform::kCrSuccess) return app::kTrue;
        devices.Sleep(kEjectPauseMs);
    }
    return app::kFalse;
}

} // namespace release
