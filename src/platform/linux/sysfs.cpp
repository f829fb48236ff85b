#include "platform/linux/sysfs.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "platform/linux/util.h"

namespace linuxbk {

namespace {

namespace fs = std::filesystem;

std::uint32_t ToNumber(std::string_view text) {
    std::uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::string UeventOf(const std::string& folder, std::string_view key) {
    const auto text = ReadFile(folder + "/uevent");
    return text ? UeventValue(*text, key) : std::string();
}

std::string Underscores(std::string text) {
    for (char& c : text)
        if (c == ' ') c = '_';
    return text;
}

} // namespace

bool ParseDev(std::string_view text, std::uint32_t& major, std::uint32_t& minor) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    const auto end = text.find_last_not_of(" \n");
    const std::string_view minorText = text.substr(colon + 1, end == std::string_view::npos ? 0 : end - colon);
    const auto a = std::from_chars(text.data(), text.data() + colon, major);
    const auto b = std::from_chars(minorText.data(), minorText.data() + minorText.size(), minor);
    return a.ec == std::errc() && b.ec == std::errc();
}

std::string UeventValue(std::string_view text, std::string_view key) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto nl = text.find('\n', at);
        const std::string_view line = text.substr(at, nl == std::string_view::npos ? std::string_view::npos : nl - at);
        if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=')
            return std::string(line.substr(key.size() + 1));
        if (nl == std::string_view::npos) break;
        at = nl + 1;
    }
    return {};
}

bool NaturalLess(const std::string& a, const std::string& b) {
    // Names with numbers sort by the number: sdb2 < sdb10, loop2 < loop10.
    // Runs of digits are compared as numbers of any length, leading zeros
    // aside, then by their spelling.
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (digit(a[i]) && digit(b[j])) {
            std::size_t ie = i, je = j;
            while (ie < a.size() && digit(a[ie])) ++ie;
            while (je < b.size() && digit(b[je])) ++je;
            std::size_t ia = i, jb = j;
            while (ia + 1 < ie && a[ia] == '0') ++ia;
            while (jb + 1 < je && b[jb] == '0') ++jb;
            const std::string_view na(a.data() + ia, ie - ia), nb(b.data() + jb, je - jb);
            if (na.size() != nb.size()) return na.size() < nb.size();
            if (na != nb) return na < nb;
            const std::string_view ra(a.data() + i, ie - i), rb(b.data() + j, je - j);
            if (ra != rb) return ra < rb;
            i = ie;
            j = je;
        } else {
            if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
            ++i;
            ++j;
        }
    }
    return a.size() - i < b.size() - j;
}

std::optional<BlockDevice> Sysfs::fromPath(const std::string& path) const {
    if (path.empty() || !Exists(path + "/dev")) return std::nullopt;
    BlockDevice b;
    b.path = path;
    b.name = Base(path);
    if (!ParseDev(ReadAttr(path + "/dev"), b.major, b.minor)) return std::nullopt;
    const std::string devName = UeventOf(path, "DEVNAME");
    b.devNode = "/dev/" + (devName.empty() ? b.name : devName);
    if (Exists(path + "/partition")) {
        b.partition = ToNumber(ReadAttr(path + "/partition"));
        b.diskPath = Parent(path);
        b.diskName = Base(b.diskPath);
    } else {
        b.diskPath = path;
        b.diskName = b.name;
    }
    return b;
}

std::optional<BlockDevice> Sysfs::ByNumber(std::uint32_t major, std::uint32_t minor) const {
    return fromPath(RealPath(root_ + "/dev/block/" + std::to_string(major) + ":" + std::to_string(minor)));
}

std::optional<BlockDevice> Sysfs::ByName(const std::string& name) const {
    if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
    return fromPath(RealPath(root_ + "/class/block/" + name));
}

std::vector<BlockDevice> Sysfs::All(std::string_view prefix) const {
    std::vector<BlockDevice> out;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(root_ + "/class/block", ec)) {
        if (!entry.path().filename().string().starts_with(prefix)) continue;
        if (auto b = fromPath(RealPath(entry.path().string()))) out.push_back(std::move(*b));
    }
    std::sort(out.begin(), out.end(),
              [](const BlockDevice& a, const BlockDevice& b) { return NaturalLess(a.name, b.name); });
    return out;
}

std::vector<DiskInfo> Sysfs::Disks() const {
    std::vector<DiskInfo> out;
    for (const auto& b : All()) {
        if (b.partition != 0) continue;
        if (auto d = Disk(b.name)) out.push_back(std::move(*d));
    }
    return out;
}

std::vector<BlockDevice> Sysfs::Partitions(const std::string& diskName) const {
    std::vector<BlockDevice> out;
    for (auto& b : All())
        if (b.partition != 0 && b.diskName == diskName) out.push_back(std::move(b));
    std::sort(out.begin(), out.end(),
              [](const BlockDevice& a, const BlockDevice& b) { return a.partition < b.partition; });
    return out;
}

namespace {

// The names in a folder of links (holders/, slaves/), sorted.
std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> out;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec)) out.push_back(entry.path().filename().string());
    std::sort(out.begin(), out.end(), NaturalLess);
    return out;
}

} // namespace

std::vector<std::string> Sysfs::Holders(const std::string& name) const {
    const auto b = ByName(name);
    return b ? Names(b->path + "/holders") : std::vector<std::string>{};
}

std::vector<std::string> Sysfs::Slaves(const std::string& name) const {
    const auto b = ByName(name);
    return b ? Names(b->path + "/slaves") : std::vector<std::string>{};
}

std::vector<std::string> Sysfs::Leaves(const std::string& name) const {
    std::vector<std::string> leaves, todo = Slaves(name);
    for (std::size_t guard = 0; !todo.empty() && guard < 256; ++guard) {
        const std::string next = todo.back();
        todo.pop_back();
        const auto b = ByName(next);
        if (!b) continue;
        const auto below = Slaves(b->diskName);
        if (below.empty()) {
            if (std::find(leaves.begin(), leaves.end(), b->diskName) == leaves.end()) leaves.push_back(b->diskName);
        } else {
            todo.insert(todo.end(), below.begin(), below.end());
        }
    }
    std::sort(leaves.begin(), leaves.end(), NaturalLess);
    return leaves;
}

namespace {

// What the device folder below a disk tells (a SCSI device "H:C:T:L", an
// NVMe controller, an MMC card): its kind, LUN, vendor, model, revision and serial.
void ReadDeviceFolder(DiskInfo& d, const std::string& device, Sysfs::Detail detail) {
    const std::string scsiType = device.empty() ? std::string() : ReadAttr(device + "/type");
    if (d.name.starts_with("sr") || (Base(device).find(':') != std::string::npos && scsiType == "5"))
        d.kind = DiskKind::CdRom;
    else if (d.name.starts_with("fd"))
        d.kind = DiskKind::Floppy;
    if (!device.empty()) {
        const std::string hctl = Base(device);
        if (std::count(hctl.begin(), hctl.end(), ':') == 3) d.lun = ToNumber(hctl.substr(hctl.rfind(':') + 1));
    }
    if (detail != Sysfs::Detail::Identity) return;
    if (!device.empty()) {
        d.vendor = ReadAttr(device + "/vendor");
        d.model = ReadAttr(device + "/model");
        d.revision = ReadAttr(device + "/rev");
        if (d.revision.empty()) d.revision = ReadAttr(device + "/firmware_rev");
        d.serial = ReadAttr(device + "/serial");
        if (d.model.empty()) d.model = ReadAttr(device + "/name"); // MMC cards
    }
    if (d.serial.empty()) d.serial = ReadAttr(d.path + "/serial"); // virtio
}

// The nearest folder above a disk's that is a USB device (it has idVendor),
// not above stop; "" when there is none.
std::string UsbDeviceAbove(const std::string& path, const std::string& stop) {
    for (std::string up = Parent(path); up.size() > 1 && (stop.empty() || StartsWithPath(up, stop)) && up != stop;
         up = Parent(up))
        if (Exists(up + "/idVendor") && Exists(up + "/idProduct")) return up;
    return {};
}

// The bus a disk sits on, from its USB device or the components of its path.
void SetBus(DiskInfo& d, const std::string& device, Sysfs::Detail detail) {
    const std::string& p = d.path;
    auto has = [&](const char* component) { return p.find(component) != std::string::npos; };
    if (!d.usbDevice.empty()) {
        d.busType = bus::kUsb;
        d.hotplug = true;
        if (detail == Sysfs::Detail::Identity) {
            const std::string serial = ReadAttr(d.usbDevice + "/serial");
            if (!serial.empty()) d.serial = serial;
            if (d.vendor.empty()) d.vendor = ReadAttr(d.usbDevice + "/manufacturer");
            if (d.model.empty()) d.model = ReadAttr(d.usbDevice + "/product");
        }
    } else if (has("/ata")) {
        d.busType = bus::kSata;
    } else if (has("/nvme")) {
        d.busType = bus::kNvme;
    } else if (has("/mmc")) {
        const std::string type = device.empty() ? std::string() : ReadAttr(device + "/type");
        d.busType = type == "MMC" ? bus::kMmc : bus::kSd;
        d.hotplug = type != "MMC";
    } else if (has("/firewire") || has("/fw")) {
        d.busType = bus::k1394;
        d.hotplug = true;
    } else if (d.name.starts_with("loop")) {
        d.busType = bus::kFileBackedVirtual;
        d.loop = true;
        d.backingFile = ReadAttr(d.path + "/loop/backing_file");
    } else if (d.name.starts_with("md")) {
        d.busType = bus::kRaid;
    } else if (has("/virtio") || has("/virtual/")) {
        d.busType = bus::kVirtual;
    } else if (has("/host") || has("/target")) {
        d.busType = bus::kScsi;
    }
}

} // namespace

std::optional<DiskInfo> Sysfs::Disk(const std::string& diskName, Detail detail) const {
    const auto b = ByName(diskName);
    if (!b || b->partition != 0) return std::nullopt;
    DiskInfo d;
    d.name = b->name;
    d.path = b->path;
    d.devNode = b->devNode;
    d.major = b->major;
    d.minor = b->minor;
    d.removable = ReadAttr(d.path + "/removable") == "1";
    const std::string size = ReadAttr(d.path + "/size");
    std::uint64_t sectors = 0;
    std::from_chars(size.data(), size.data() + size.size(), sectors);
    d.sizeBytes = sectors * 512;

    const std::string device = RealPath(d.path + "/device");
    ReadDeviceFolder(d, device, detail);
    d.usbDevice = UsbDeviceAbove(d.path, RealPath(root_ + "/devices"));
    if (d.usbDevice.empty()) InheritStackedUsb(d, detail);
    SetBus(d, device, detail);
    return d;
}

void Sysfs::InheritStackedUsb(DiskInfo& d, Detail detail) const {
    // A device stacked on USB disks only (dm-crypt or LVM on a stick) is on
    // the USB bus too, below the USB device of the first of them.
    std::vector<DiskInfo> below;
    for (const auto& leaf : Leaves(d.name))
        if (leaf != d.name)
            if (auto l = Disk(leaf, detail)) below.push_back(std::move(*l));
    const bool usb = !below.empty() &&
                     std::all_of(below.begin(), below.end(), [](const DiskInfo& l) { return !l.usbDevice.empty(); });
    if (!usb) return;
    const DiskInfo& first = below.front();
    d.usbDevice = first.usbDevice;
    d.removable = d.removable || first.removable;
    d.vendor = first.vendor;
    d.model = first.model;
    d.revision = first.revision;
    d.serial = first.serial;
    d.lun = first.lun;
}

std::string Sysfs::PnpDeviceId(const DiskInfo& d) {
    const bool usb = d.busType == bus::kUsb;
    std::string vendor = vb::TrimBlanks(d.vendor), model = vb::TrimBlanks(d.model), rev = vb::TrimBlanks(d.revision);
    if (model.empty() && d.loop) model = "Loop device";
    if (model.empty()) model = d.name;
    std::string id = usb ? "USBSTOR\\" : "SCSI\\";
    id += d.kind == DiskKind::CdRom ? "CDROM" : "DISK";
    id += "&VEN_" + Underscores(vendor.substr(0, 8)) + "&PROD_" + Underscores(model.substr(0, 16)) + "&REV_" +
          Underscores(rev.substr(0, 4));
    std::string serial = vb::TrimBlanks(d.serial);
    if (serial.empty()) serial = d.name;
    for (char& c : serial)
        if (c == '\\' || c == ' ' || c == '&') c = '_';
    return id + "\\" + serial + "&" + std::to_string(d.lun);
}

std::string Sysfs::Caption(const DiskInfo& d) {
    std::string text = vb::TrimBlanks(vb::TrimBlanks(d.vendor) + " " + vb::TrimBlanks(d.model));
    if (text.empty()) text = d.loop ? "Loop device" : d.name;
    if (d.busType == bus::kUsb) text += " USB Device";
    return text;
}

} // namespace linuxbk
