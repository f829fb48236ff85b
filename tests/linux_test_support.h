#pragma once
// Shared by the Linux backend's tests that need a real system: commands,
// loop devices with ext4 file systems in a temporary folder, cleaned up on
// every path.
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/mount.h>
#include <unistd.h>

namespace linuxtest {

// Runs a shell command; its standard output, and whether it exited with 0.
inline bool Run(const std::string& command, std::string* output = nullptr) {
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) return false;
    std::string text;
    char chunk[512];
    while (std::size_t n = std::fread(chunk, 1, sizeof chunk, pipe)) text.append(chunk, n);
    const int status = ::pclose(pipe);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    if (output != nullptr) *output = text;
    return status == 0;
}

inline std::string Quote(const std::string& s) { return "'" + s + "'"; }

// One loop device with an ext4 file system, mounted in a temporary folder.
struct LoopDrive {
    std::string image, device, mountPoint;
    std::size_t index = 0;
    bool mounted = false;
};

class LoopDrives {
public:
    LoopDrives() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestrine-loop-XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) dir_ = pattern;
    }
    ~LoopDrives() {
        for (auto it = drives_.rbegin(); it != drives_.rend(); ++it) {
            if (!it->mountPoint.empty()) ::umount2(it->mountPoint.c_str(), MNT_DETACH);
            if (!it->device.empty()) Run("losetup -d " + it->device);
        }
        if (!dir_.empty()) std::filesystem::remove_all(dir_);
    }
    LoopDrives(const LoopDrives&) = delete;
    LoopDrives& operator=(const LoopDrives&) = delete;

    // Makes, attaches and (when asked) mounts one; nullptr when it cannot.
    LoopDrive* Add(const std::string& label, bool mount = true, int megabytes = 16) {
        if (dir_.empty()) return nullptr;
        LoopDrive d;
        d.index = drives_.size();
        const std::string n = std::to_string(drives_.size());
        d.image = dir_ + "/disk" + n + ".img";
        if (!Run("truncate -s " + std::to_string(megabytes) + "M " + d.image) ||
            !Run("mkfs.ext4 -q -F -L " + Quote(label) + " " + d.image))
            return nullptr;
        if (!Run("losetup --find --show " + d.image, &d.device) || d.device.empty()) return nullptr;
        drives_.push_back(d);
        LoopDrive& kept = drives_.back();
        if (mount && !Mount(kept)) return nullptr;
        return &kept;
    }
    bool Mount(LoopDrive& d) {
        d.mountPoint = dir_ + "/mnt " + std::to_string(d.index); // a space in the path, on purpose
        std::filesystem::create_directories(d.mountPoint);
        d.mounted = ::mount(d.device.c_str(), d.mountPoint.c_str(), "ext4", 0, nullptr) == 0;
        return d.mounted;
    }
    const std::string& Dir() const { return dir_; }

private:
    std::string dir_;
    std::deque<LoopDrive> drives_;
};

// Skips the test, visibly, unless it runs as root on a system with loop devices.
#define KESTRINE_REQUIRE_LOOP_DEVICES()                                                                                \
    do {                                                                                                               \
        if (::geteuid() != 0) GTEST_SKIP() << "needs root: loop devices and mounts";                                   \
        if (!linuxtest::Run("command -v losetup && command -v mkfs.ext4"))                                             \
            GTEST_SKIP() << "needs losetup and mkfs.ext4 (util-linux, e2fsprogs)";                                     \
        if (!std::filesystem::exists("/dev/loop-control")) GTEST_SKIP() << "needs loop device support";                \
    } while (0)

} // namespace linuxtest
