// The Linux backend with udisks2: labels, label changes and the eject
// request through the storage daemon on the system bus. The test setup
// starts dbus-daemon, systemd-udevd and udisksd itself (as root) unless
// udisks2 already answers, and stops what it started by process id. Where
// root, the daemons or loop devices are missing, the tests are skipped with
// the reason.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "linux_test_support.h"
#include "platform/linux/system.h"
#include "platform/linux/udisks.h"
#include "platform/linux/volume_id.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using linuxbk::UDisks;

template <typename F> bool WaitFor(F ready, int milliseconds) {
    for (int waited = 0; waited < milliseconds; waited += 50) {
        if (ready()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return ready();
}

pid_t Start(const std::vector<std::string>& args) {
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

void Stop(pid_t pid, bool child) {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    if (child) {
        int status = 0;
        for (int i = 0; i < 60 && ::waitpid(pid, &status, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, WNOHANG);
    }
}

// The daemons, started once for the suite.
class Daemons {
public:
    static Daemons& Get() {
        static Daemons d;
        return d;
    }
    const std::string& Reason() const { return reason_; }
    ~Daemons() { StopAll(); }
    void StopAll() {
        Stop(udisks_, true);
        Stop(udevd_, true);
        Stop(dbus_, false);
        udisks_ = udevd_ = dbus_ = 0;
        if (madeUdev_) fs::remove_all("/run/udev");
        if (startedDbus_) {
            fs::remove("/run/dbus/pid");
            fs::remove("/run/dbus/system_bus_socket");
        }
        if (madeDbus_) fs::remove_all("/run/dbus");
        startedDbus_ = false;
        madeUdev_ = madeDbus_ = false;
    }

private:
    Daemons() {
        // Test processes run in parallel: one at a time owns the daemons.
        lock_.reset(::open("/tmp/kestrine-udisks-test.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        if (lock_) ::flock(lock_.get(), LOCK_EX);
        if (::geteuid() != 0) {
            reason_ = "needs root to start the system bus, udev and udisks2";
            return;
        }
        if (UDisks::Available()) return; // a running system's udisks2
        const std::string udevd = "/lib/systemd/systemd-udevd", udisksd = "/usr/libexec/udisks2/udisksd";
        if (!fs::exists(udevd) || !fs::exists(udisksd) || !linuxtest::Run("command -v dbus-daemon")) {
            reason_ = "needs dbus-daemon, systemd-udevd and udisksd (packages dbus, udev, udisks2)";
            return;
        }
        if (!fs::exists("/run/dbus/system_bus_socket") || !linuxtest::Run("dbus-send --system --print-reply "
                                                                          "--dest=org.freedesktop.DBus / "
                                                                          "org.freedesktop.DBus.GetId")) {
            madeDbus_ = !fs::exists("/run/dbus");
            fs::create_directories("/run/dbus");
            fs::remove("/run/dbus/pid");
            fs::remove("/run/dbus/system_bus_socket");
            std::string pid;
            if (!linuxtest::Run("dbus-daemon --system --fork --print-pid", &pid) || pid.empty()) {
                reason_ = "dbus-daemon --system would not start";
                return;
            }
            dbus_ = static_cast<pid_t>(std::stol(pid));
            startedDbus_ = true;
        }
        if (!fs::exists("/run/udev/control")) {
            madeUdev_ = !fs::exists("/run/udev");
            udevd_ = Start({udevd});
            if (udevd_ == 0 || !WaitFor([] { return fs::exists("/run/udev/control"); }, 3000)) {
                reason_ = "systemd-udevd would not start";
                return;
            }
            // Not "--settle": a loop device another test detaches meanwhile would make it wait for ever.
            linuxtest::Run("udevadm trigger --action=add --subsystem-match=block");
            linuxtest::Run("udevadm settle --timeout=5");
        }
        udisks_ = Start({udisksd});
        if (udisks_ == 0 || !WaitFor([] { return UDisks::Available(); }, 8000)) reason_ = "udisksd would not start";
    }
    linuxbk::UniqueFd lock_;
    std::string reason_;
    pid_t dbus_ = 0, udevd_ = 0, udisks_ = 0;
    bool madeUdev_ = false, madeDbus_ = false, startedDbus_ = false;
};

class LinuxUdisks : public ::testing::Test {
protected:
    static void TearDownTestSuite() { Daemons::Get().StopAll(); }
    void SetUp() override {
        KESTRINE_REQUIRE_LOOP_DEVICES();
        if (!Daemons::Get().Reason().empty()) GTEST_SKIP() << Daemons::Get().Reason();
    }
    // A mounted loop drive udisks2 knows; its letter in sys, or 0.
    char Prepare(linuxtest::LoopDrives& loops, linuxbk::System& sys, const std::string& label,
                 linuxtest::LoopDrive*& drive) {
        drive = loops.Add(label);
        if (drive == nullptr) return 0;
        linuxtest::Run("udevadm settle --timeout=5");
        const std::string name = drive->device.substr(5);
        if (!WaitFor([&] { return UDisks::IdOf(name).value_or(UDisks::Identity{}).label == label; }, 5000)) return 0;
        for (const auto& d : sys.Map().Drives())
            if (d.mountPoint == drive->mountPoint) return d.letter;
        return 0;
    }
};

TEST_F(LinuxUdisks, LabelsAreReadAndSetThroughUdisks) {
    linuxtest::LoopDrives loops;
    linuxbk::System::Options o;
    o.events = false;
    linuxbk::System sys(o);
    linuxtest::LoopDrive* drive = nullptr;
    const char letter = Prepare(loops, sys, "UD LABEL", drive);
    ASSERT_NE(letter, 0) << "udisks2 did not learn of the loop drive";
    const std::string root = std::string(1, letter) + ":\\";
    const auto* record = sys.Map().Find(letter);
    ASSERT_NE(record, nullptr);
    const linuxbk::VolumeId id = linuxbk::IdentifyVolume(*record);
    EXPECT_EQ(id.from, "udisks2");
    EXPECT_EQ(id.label, "UD LABEL");
    EXPECT_EQ(id.type, "ext4");

    auto services = sys.Services();
    EXPECT_TRUE(services.volumes.SetVolumeLabelA(root, "RENAMED")) << sys.Volumes().LastLabelError();
    EXPECT_TRUE(WaitFor([&] { return services.volumes.Dir(root, platform::kAttrVolume) == "RENAMED"; }, 3000));
}

TEST_F(LinuxUdisks, EjectIsRefusedWhileBusyAndDeletesTheLoopDeviceWhenFree) {
    linuxtest::LoopDrives loops;
    linuxbk::System::Options o;
    o.events = false;
    linuxbk::System sys(o);
    linuxtest::LoopDrive* drive = nullptr;
    const char letter = Prepare(loops, sys, "UD EJECT", drive);
    ASSERT_NE(letter, 0) << "udisks2 did not learn of the loop drive";
    const auto* record = sys.Map().Find(letter);
    ASSERT_TRUE(record && record->block);
    const std::string disk = record->block->diskName;
    auto services = sys.Services();
    platform::DevInst parent = 0;
    ASSERT_EQ(services.devices.CM_Get_Parent(parent, sys.Devices().InstanceOf(record->block->diskPath), 0),
              platform::kCrSuccess);

    const int held = ::open((drive->mountPoint + "/busy").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
    ASSERT_GE(held, 0);
    std::array<char16_t, 260> veto{};
    EXPECT_EQ(services.devices.CM_Request_Device_EjectW(parent, nullptr, veto, 0), platform::kCrRemoveVetoed);
    EXPECT_EQ(sys.Devices().LastEject().method, "udisks2");
    EXPECT_EQ(sys.Devices().LastEject().veto, linuxbk::Veto::Busy) << sys.Devices().LastEject().text;
    EXPECT_EQ(std::u16string(veto.data()).substr(0, 4), u"busy");
    ::close(held);

    EXPECT_EQ(services.devices.CM_Request_Device_EjectW(parent, nullptr, veto, 0), platform::kCrSuccess)
        << sys.Devices().LastEject().text;
    EXPECT_EQ(sys.Map().Find(letter), nullptr);
    EXPECT_TRUE(WaitFor([&] { return linuxbk::ReadAttr("/sys/block/" + disk + "/loop/backing_file").empty(); }, 3000))
        << "Loop.Delete detaches the loop device";
    drive->mountPoint.clear();
}

} // namespace
