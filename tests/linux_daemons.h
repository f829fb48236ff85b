#pragma once
// The system bus, the udev daemon and udisks2 for the Linux backend's tests
// that talk to the storage daemon. As root the setup starts dbus-daemon,
// systemd-udevd and udisksd itself unless udisks2 already answers, and stops
// what it started by process id; a later suite in the same process may
// start them again. Test processes running in parallel take turns through a
// lock file while they own the daemons.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux_test_support.h"
#include "platform/linux/udisks.h"
#include "platform/linux/util.h"

extern char** environ;

namespace linuxtest {

// Polls ready() every 50 ms until it holds or the time is up.
template <typename F> bool WaitFor(F ready, int milliseconds) {
    for (int waited = 0; waited < milliseconds; waited += 50) {
        if (ready()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return ready();
}

// Starts a program with its output thrown away; its process id, or 0.
inline pid_t Spawn(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int r = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return r == 0 ? pid : 0;
}

// Whether a process that is no child of ours has ended (or is a zombie
// nobody has reaped yet).
inline bool Ended(pid_t pid) {
    if (::kill(pid, 0) != 0) return true;
    const std::string stat = linuxbk::ReadFile("/proc/" + std::to_string(pid) + "/stat").value_or("");
    const auto paren = stat.rfind(')');
    return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] == 'Z';
}

// Ends a process: SIGTERM, up to 3 s to go, then SIGKILL. A child of ours is
// reaped; a forked daemon is not ours to reap, so it is watched until it has
// ended.
inline void Terminate(pid_t pid, bool child) {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    int status = 0;
    auto gone = [&] { return child ? ::waitpid(pid, &status, WNOHANG) != 0 : Ended(pid); };
    if (WaitFor(gone, 3000)) return;
    ::kill(pid, SIGKILL);
    if (child)
        ::waitpid(pid, &status, 0);
    else
        WaitFor([&] { return Ended(pid); }, 1000);
}

class Daemons {
public:
    // The daemons, started on first use and again after a Shutdown().
    static Daemons& Get() {
        Daemons& d = instance();
        if (!d.started_) d.start();
        return d;
    }
    // Stops what was started, if anything was; nothing is started for it.
    static void Shutdown() { instance().stopAll(); }
    // Why the daemons are not there ("" when udisks2 answers).
    const std::string& Reason() const { return reason_; }
    ~Daemons() { stopAll(); }
    Daemons(const Daemons&) = delete;
    Daemons& operator=(const Daemons&) = delete;

private:
    // Stops what start() started, removes what it made, and lets the next
    // test process have its turn.
    void stopAll() {
        std::error_code ec;
        Terminate(udisks_, true);
        Terminate(udevd_, true);
        if (udevd_ != 0) std::filesystem::remove("/run/udev/control", ec);
        Terminate(dbus_, false);
        udisks_ = udevd_ = dbus_ = 0;
        if (madeUdev_) std::filesystem::remove_all("/run/udev", ec);
        if (startedDbus_) {
            std::filesystem::remove("/run/dbus/pid", ec);
            std::filesystem::remove("/run/dbus/system_bus_socket", ec);
        }
        if (madeDbus_) std::filesystem::remove_all("/run/dbus", ec);
        startedDbus_ = madeUdev_ = madeDbus_ = false;
        lock_.reset();
        started_ = false;
        reason_.clear();
    }

    Daemons() = default;
    static Daemons& instance() {
        static Daemons d;
        return d;
    }

    void start() {
        namespace fs = std::filesystem;
        started_ = true;
        reason_.clear();
        if (::geteuid() != 0) {
            reason_ = "needs root to start the system bus, udev and udisks2";
            return;
        }
        lock_.reset(::open("/tmp/kestrine-udisks-test.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        if (lock_) ::flock(lock_.get(), LOCK_EX);
        if (linuxbk::UDisks::Available()) return; // a running system's udisks2
        const std::string udevd = "/lib/systemd/systemd-udevd", udisksd = "/usr/libexec/udisks2/udisksd";
        if (!fs::exists(udevd) || !fs::exists(udisksd) || !Run("command -v dbus-daemon")) {
            reason_ = "needs dbus-daemon, systemd-udevd and udisksd (packages dbus, udev, udisks2)";
            return;
        }
        if (!fs::exists("/run/dbus/system_bus_socket") ||
            !Run("dbus-send --system --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.GetId")) {
            std::error_code ec;
            madeDbus_ = !fs::exists("/run/dbus");
            fs::create_directories("/run/dbus", ec);
            fs::remove("/run/dbus/pid", ec);
            fs::remove("/run/dbus/system_bus_socket", ec);
            std::string pid;
            if (!Run("dbus-daemon --system --fork --print-pid", &pid) || pid.empty()) {
                reason_ = "dbus-daemon --system would not start";
                return;
            }
            dbus_ = static_cast<pid_t>(std::stol(pid));
            startedDbus_ = true;
        }
        if (!fs::exists("/run/udev/control")) {
            madeUdev_ = !fs::exists("/run/udev");
            udevd_ = Spawn({udevd});
            if (udevd_ == 0 || !WaitFor([] { return fs::exists("/run/udev/control"); }, 3000)) {
                reason_ = "systemd-udevd would not start";
                return;
            }
            // Not "--settle": a loop device another test detaches meanwhile would make it wait for ever.
            Run("udevadm trigger --action=add --subsystem-match=block");
            Run("udevadm settle --timeout=5");
        }
        udisks_ = Spawn({udisksd});
        if (udisks_ == 0 || !WaitFor([] { return linuxbk::UDisks::Available(); }, 8000))
            reason_ = "udisksd would not start";
    }

    linuxbk::UniqueFd lock_;
    std::string reason_;
    pid_t dbus_ = 0, udevd_ = 0, udisks_ = 0;
    bool started_ = false, madeUdev_ = false, madeDbus_ = false, startedDbus_ = false;
};

// Waits until udisks2 has probed a block device and reads the label its file
// system carries.
inline bool UdisksKnows(const std::string& kernelName, const std::string& label, int milliseconds = 5000) {
    Run("udevadm settle --timeout=5");
    return WaitFor(
        [&] {
            const auto id = linuxbk::UDisks::IdOf(kernelName);
            return id && id->label == label;
        },
        milliseconds);
}

// Skips the test, visibly, unless udisks2 answers on the system bus (started
// here when needed).
#define KESTRINE_REQUIRE_UDISKS()                                                                                      \
    do {                                                                                                               \
        if (!linuxtest::Daemons::Get().Reason().empty()) GTEST_SKIP() << linuxtest::Daemons::Get().Reason();           \
    } while (0)

} // namespace linuxtest
