#pragma once
// Shared by the Linux backend's tests that need a real system: commands,
// loop devices with ext4 file systems in a temporary folder, cleaned up on
// every path, and a child process that holds a drive.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
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
    std::string fileSystem = "ext4";
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
            // Only while it is still ours: a test may have detached it, and
            // another test process may have attached the same number since.
            if (!it->device.empty() && Attached(*it)) Run("losetup -d " + it->device);
        }
        std::error_code ec;
        if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
    }
    LoopDrives(const LoopDrives&) = delete;
    LoopDrives& operator=(const LoopDrives&) = delete;

    // Makes, attaches and (when asked) mounts one; nullptr when it cannot.
    // fileSystem "ext4" or "vfat".
    LoopDrive* Add(const std::string& label, bool mount = true, int megabytes = 16,
                   const std::string& fileSystem = "ext4") {
        if (dir_.empty()) return nullptr;
        LoopDrive d;
        d.index = drives_.size();
        d.fileSystem = fileSystem;
        const std::string n = std::to_string(drives_.size());
        d.image = dir_ + "/disk" + n + ".img";
        const std::string make = fileSystem == "vfat" ? "mkfs.vfat -n " : "mkfs.ext4 -q -F -L ";
        if (!Run("truncate -s " + std::to_string(megabytes) + "M " + d.image) ||
            !Run(make + Quote(label) + " " + d.image + " >/dev/null"))
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
        d.mounted = ::mount(d.device.c_str(), d.mountPoint.c_str(), d.fileSystem.c_str(), 0, nullptr) == 0;
        return d.mounted;
    }
    const std::string& Dir() const { return dir_; }
    // Whether the loop device still has this drive's image behind it.
    static bool Attached(const LoopDrive& d) {
        if (d.device.size() <= 5) return false;
        std::ifstream in("/sys/block/" + d.device.substr(5) + "/loop/backing_file");
        std::string backing;
        std::getline(in, backing);
        std::error_code ec;
        return !backing.empty() && backing == std::filesystem::weakly_canonical(d.image, ec).string();
    }

private:
    std::string dir_;
    std::deque<LoopDrive> drives_;
};

// A child that opens a file on a drive, moves into a folder of it, says so
// through a pipe and waits to be killed.
class Holder {
public:
    Holder(const std::string& file, const std::string& folder) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(fds[0]);
            const int fd = ::open(file.c_str(), O_CREAT | O_RDWR, 0644);
            const bool ok = fd >= 0 && ::chdir(folder.c_str()) == 0;
            const char answer = ok ? 'y' : 'n';
            if (::write(fds[1], &answer, 1) != 1) ::_exit(1);
            for (;;) ::pause();
        }
        ::close(fds[1]);
        char answer = 'n';
        ready_ = pid_ > 0 && ::read(fds[0], &answer, 1) == 1 && answer == 'y';
        ::close(fds[0]);
    }
    ~Holder() { Stop(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    void Stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    bool Ready() const { return ready_; }
    std::uint32_t Pid() const { return static_cast<std::uint32_t>(pid_); }

private:
    pid_t pid_ = -1;
    bool ready_ = false;
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
