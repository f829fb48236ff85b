#include "drives/modGetDriveType.h"

#include <cmath>
#include <limits>

#include "core/program.h"
#include "core/vb.h"
#include "platform/bytes.h"

namespace drives {

namespace {

// A product formed in double precision and converted to a 32-bit integer.
std::optional<std::int32_t> Product(double a, double b) {
    const double p = std::nearbyint(a * b);
    if (p < std::numeric_limits<std::int32_t>::min() || p > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(p);
}

} // namespace

std::optional<std::int32_t> MakeCtlCode(std::int32_t DeviceType, std::int32_t Function, std::int32_t Method,
                                        std::int32_t Access) {
    const auto type = Product(DeviceType, 65536.0);
    const auto access = Product(Access, 16384.0);
    const auto function = Product(Function, 4.0);
    if (!type || !access || !function) return std::nullopt;
    return *type | *access | *function | Method;
}

std::uint32_t IOCTL_STORAGE_QUERY_PROPERTY() {
    return static_cast<std::uint32_t>(MakeCtlCode(0x2D, 0x500, 0, 0).value_or(0));
}

std::uint32_t IOCTL_STORAGE_GET_DEVICE_NUMBER() {
    return static_cast<std::uint32_t>(MakeCtlCode(0x2D, 0x420, 0, 0).value_or(0));
}

std::string BusTypeName(std::uint32_t busType) {
    static constexpr const char* kNames[] = {"", "Scsi", "Atapi", "Ata", "1394", "Ssa", "Fibre", "Usb", "RAID"};
    return busType < std::size(kNames) ? kNames[busType] : "";
}

bool QueryStorageDescriptor(platform::Services& sys, platform::Handle hDevice, StorageDescriptor& descriptor) {
    std::array<std::uint8_t, platform::kStoragePropertyQuerySize> query{}; // device property, standard query
    std::uint32_t bytesReturned = 0;
    return sys.storage.DeviceIoControl(hDevice, IOCTL_STORAGE_QUERY_PROPERTY(), query, descriptor, bytesReturned);
}

std::string GetBusType(platform::Services& sys, const std::string& sDrive) {
    auto& storage = sys.storage;
    const platform::Handle h =
        storage.CreateFileA("\\\\.\\" + sDrive, platform::kGenericRead,
                            platform::kFileShareRead | platform::kFileShareWrite, platform::kOpenExisting, 0);
    if (h == platform::kInvalidHandleValue) return {};
    StorageDescriptor descriptor{};
    descriptor[platform::kDescriptorSizeOffset] = static_cast<std::uint8_t>(descriptor.size());
    // When the driver does not answer, BusType stays 0 and the name is empty.
    QueryStorageDescriptor(sys, h, descriptor);
    const std::string name = BusTypeName(platform::ReadLe32(descriptor, platform::kDescriptorBusTypeOffset));
    storage.CloseHandle(h);
    return name;
}

bool ListDrives(app::Program& prog, app::Ctl list) {
    const auto all = prog.sys.fso.Drives();
    prog.view.ClearList(list);
    bool anyUsb = false;
    for (const auto& drive : all) {
        std::string label;
        const std::string root = drive.DriveLetter + ":\\";
        if (drive.DriveType == platform::kFsoNetwork) {
            label = drive.ShareName;
        } else if (drive.IsReady) {
            if (!drive.VolumeName) return false; // the property cannot be read: the list ends here
            label = *drive.VolumeName;
        }
        // Asked anew for every line: a letter may stand for another device now.
        const bool usb = GetBusType(prog.sys, vb::Left(root, 2)) == "Usb";
        if (usb) anyUsb = true;
        prog.view.AddListItem(list, root + label + (usb ? " (USB)" : ""));
    }
    return anyUsb;
}

} // namespace drives
