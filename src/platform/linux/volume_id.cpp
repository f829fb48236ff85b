#include "platform/linux/volume_id.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <tuple>

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libudev.h>
#include <linux/fs.h>
#include <linux/msdos_fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/linux/udisks.h"
#include "platform/linux/util.h"

namespace linuxbk {

namespace {

struct Found {
    bool answered = false;
    std::string label, type, uuid;
};

Found FromUdev(std::uint32_t major, std::uint32_t minor) {
    Found f;
    // What udev learnt of a device it keeps in a file of its own; without
    // one (no udev running, or the device not looked at yet) there is
    // nothing to ask libudev, which would read the device's sysfs folder first.
    const std::string record = "/run/udev/data/b" + std::to_string(major) + ":" + std::to_string(minor);
    if (::access(record.c_str(), F_OK) != 0) return f;
    udev* u = udev_new();
    if (u == nullptr) return f;
    if (udev_device* d = udev_device_new_from_devnum(u, 'b', makedev(major, minor))) {
        const char* type = udev_device_get_property_value(d, "ID_FS_TYPE");
        const char* labelEnc = udev_device_get_property_value(d, "ID_FS_LABEL_ENC");
        const char* label = udev_device_get_property_value(d, "ID_FS_LABEL");
        const char* uuid = udev_device_get_property_value(d, "ID_FS_UUID");
        if (type != nullptr && *type != '\0') {
            f.answered = true;
            f.type = type;
            f.label = labelEnc != nullptr ? UnescapeHex(labelEnc) : (label != nullptr ? label : "");
            f.uuid = uuid != nullptr ? uuid : "";
        }
        udev_device_unref(d);
    }
    udev_unref(u);
    return f;
}

// The file system's UUID as the kernel keeps it (Linux 6.8 and later; every
// file system that has one), written as libblkid writes it.
#ifndef FS_IOC_GETFSUUID
struct fsuuid2 {
    std::uint8_t len;
    std::uint8_t uuid[16];
};
#define FS_IOC_GETFSUUID _IOR(0x15, 0, struct fsuuid2)
#endif

std::string UuidText(const std::uint8_t* bytes, std::size_t length) {
    static const char* const kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        if (length == 16 && (i == 4 || i == 6 || i == 8 || i == 10)) text += '-';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

// A FAT volume's serial number, written as libblkid writes it: "1A2B-3C4D".
std::string FatSerialText(std::uint32_t id) {
    char text[10];
    std::snprintf(text, sizeof text, "%04X-%04X", id >> 16, id & 0xFFFF);
    return text;
}

// What the mounted file system says of itself: its label, and its UUID or
// serial number where the kernel tells them.
Found FromIoctl(const std::string& folder) {
    Found f;
    UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) return f;
    char label[FSLABEL_MAX] = {};
    if (::ioctl(fd.get(), FS_IOC_GETFSLABEL, label) == 0) {
        f.answered = true;
        f.label = std::string(label, strnlen(label, sizeof label));
    }
    fsuuid2 uuid{};
    std::uint32_t fatId = 0;
    if (::ioctl(fd.get(), FS_IOC_GETFSUUID, &uuid) == 0 && uuid.len == sizeof uuid.uuid)
        f.uuid = UuidText(uuid.uuid, uuid.len);
    else if (::ioctl(fd.get(), FAT_IOCTL_GET_VOLUME_ID, &fatId) == 0)
        f.uuid = FatSerialText(fatId);
    return f;
}

Found FromBlkid(const std::string& devNode) {
    Found f;
    blkid_probe probe = blkid_new_probe_from_filename(devNode.c_str());
    if (probe == nullptr) return f;
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe, BLKID_SUBLKS_LABEL | BLKID_SUBLKS_TYPE | BLKID_SUBLKS_UUID);
    if (blkid_do_safeprobe(probe) == 0) {
        const char* value = nullptr;
        if (blkid_probe_lookup_value(probe, "TYPE", &value, nullptr) == 0 && value != nullptr) {
            f.answered = true;
            f.type = value;
        }
        if (blkid_probe_lookup_value(probe, "LABEL", &value, nullptr) == 0 && value != nullptr) f.label = value;
        if (blkid_probe_lookup_value(probe, "UUID", &value, nullptr) == 0 && value != nullptr) f.uuid = value;
    }
    blkid_free_probe(probe);
    return f;
}

} // namespace

namespace {

VolumeId Identify(const DriveRecord& drive) {
    const std::string mountType = drive.fsType == "fuseblk" ? std::string() : drive.fsType;
    if (drive.major != 0) {
        const Found f = FromUdev(drive.major, drive.minor);
        if (f.answered) return {f.label, f.type, f.uuid, "udev"};
    }
    if (drive.block) {
        if (const auto u = UDisks::IdOf(drive.block->name); u && !u->type.empty()) {
            return {u->label, u->type, u->uuid, "udisks2"};
        }
    }
    const Found byIoctl = FromIoctl(drive.mountPoint);
    // The kernel told all: no need to read the superblock again.
    if (byIoctl.answered && !byIoctl.uuid.empty() && !mountType.empty())
        return {byIoctl.label, mountType, byIoctl.uuid, "ioctl"};
    Found probe;
    if (!drive.devNode.empty()) probe = FromBlkid(drive.devNode); // the UUID, and the type behind fuseblk
    if (byIoctl.answered) return {byIoctl.label, mountType.empty() ? probe.type : mountType, probe.uuid, "ioctl"};
    if (probe.answered) return {probe.label, probe.type, probe.uuid, "blkid"};
    return {"", mountType, "", "mount"};
}

struct Kept {
    std::mutex mutex;
    std::map<std::tuple<std::uint32_t, std::uint32_t, std::uint64_t>, VolumeId> ids; // major, minor, mount serial
    std::uint64_t identified = 0;
};

Kept& Cache() {
    static Kept kept;
    return kept;
}

} // namespace

VolumeId IdentifyVolume(const DriveRecord& drive) {
    if (drive.kind == DriveKind::Network || !drive.Ready()) return {"", drive.fsType, "", "mount"};
    Kept& kept = Cache();
    const auto key = std::make_tuple(drive.major, drive.minor, drive.mountSerial);
    const bool keep = drive.mountSerial != 0 && (drive.major != 0 || drive.minor != 0);
    if (keep) {
        const std::lock_guard lock(kept.mutex);
        if (const auto it = kept.ids.find(key); it != kept.ids.end()) return it->second;
    }
    VolumeId id = Identify(drive);
    const std::lock_guard lock(kept.mutex);
    ++kept.identified;
    if (keep) {
        // What was kept for an earlier mount of the device is stale now.
        std::erase_if(kept.ids, [&](const auto& entry) {
            return std::get<0>(entry.first) == drive.major && std::get<1>(entry.first) == drive.minor;
        });
        kept.ids.emplace(key, id);
    }
    return id;
}

void ForgetVolume(std::uint32_t major, std::uint32_t minor) {
    Kept& kept = Cache();
    const std::lock_guard lock(kept.mutex);
    std::erase_if(kept.ids, [&](const auto& entry) {
        return (major == 0 && minor == 0) || (std::get<0>(entry.first) == major && std::get<1>(entry.first) == minor);
    });
}

std::uint64_t VolumeIdentifications() {
    const std::lock_guard lock(Cache().mutex);
    return Cache().identified;
}

std::uint32_t SerialFromUuid(const std::string& uuid) {
    std::string hex;
    for (char c : uuid) {
        if (std::isxdigit(static_cast<unsigned char>(c))) hex += c;
        if (hex.size() == 8) break;
    }
    if (hex.empty()) return 0;
    return static_cast<std::uint32_t>(std::stoul(hex, nullptr, 16));
}

} // namespace linuxbk
