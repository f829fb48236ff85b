// What sysfs and udev hand over as text: uevent properties, device numbers,
// kernel names sorted as numbers, udev's \xNN escapes, and the identity
// strings a device ID is built from.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/sysfs.h"
#include "platform/linux/util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    linuxbk::UeventValue(text, "DEVNAME");
    std::uint32_t major = 0, minor = 0;
    linuxbk::ParseDev(text, major, minor);
    linuxbk::UnescapeHex(text);
    // Split in two names: sorting by number must be a strict order.
    const std::size_t half = text.size() / 2;
    const std::string a = text.substr(0, half), b = text.substr(half);
    if (linuxbk::NaturalLess(a, b) && linuxbk::NaturalLess(b, a)) std::abort();
    if (linuxbk::NaturalLess(a, a)) std::abort();
    linuxbk::DiskInfo disk;
    disk.vendor = a;
    disk.model = b;
    disk.serial = text;
    disk.busType = size % 2 == 0 ? linuxbk::bus::kUsb : linuxbk::bus::kSata;
    linuxbk::Sysfs::PnpDeviceId(disk);
    linuxbk::Sysfs::Caption(disk);
    return 0;
}
