// kestrinectl's release through udisks2 on a real drive. A loop device with an
// ext4 file system is presented as a USB stick by a sysfs tree of the test's
// own (the real device's kernel name and numbers below a USB device folder),
// so the release passes the bus check and its eject request goes to the USB
// device; the unmount is then udisks2's to grant or refuse. A child process
// of the test holds the drive. Needs root, loop devices and the udisks2
// daemons (started here when missing); elsewhere skipped with the reason.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>

#include "ctl/ctl.h"
#include "linux_daemons.h"
#include "linux_test_support.h"
#include "platform/linux/processes.h"
#include "platform/linux/system.h"
#include "platform/pass_through.h"
#include "release/modRemoveUsbDrive.h"

namespace {

namespace fs = std::filesystem;
using linuxbk::System;

// A sysfs tree in a temporary folder in which one real block device sits
// below a USB mass-storage device, as a USB stick does:
//   devices/pci0000:00/0000:00:14.0/usb1/1-7            idVendor, idProduct, serial, manufacturer, product, remove
//   .../1-7/1-7:1.0/host30/target30:0:0/30:0:0:0         vendor, model, rev, type
//   .../30:0:0:0/block/<name>                            dev, size, removable, uevent; device -> the SCSI folder
// with class/block/<name> and dev/block/<major>:<minor> linking to the disk.
// The kernel name, device numbers and size are the real device's.
class UsbStickTree {
public:
    explicit UsbStickTree(const std::string& kernelName) {
        std::string pattern = (fs::temp_directory_path() / "kestrine-sys-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            error_ = "no temporary folder";
            return;
        }
        root_ = pattern;
        const std::string real = "/sys/block/" + kernelName;
        const std::string dev = linuxbk::ReadAttr(real + "/dev"), size = linuxbk::ReadAttr(real + "/size");
        if (dev.empty() || size.empty()) {
            error_ = real + " has no dev or size";
            return;
        }
        const std::string usb = "devices/pci0000:00/0000:00:14.0/usb1/1-7";
        const std::string scsi = usb + "/1-7:1.0/host30/target30:0:0/30:0:0:0";
        const std::string disk = scsi + "/block/" + kernelName;
        usbDevice_ = root_ + "/" + usb;
        bool ok = write(usb + "/idVendor", "0781") && write(usb + "/idProduct", "5567") &&
                  write(usb + "/serial", "KST0000000001") && write(usb + "/manufacturer", "Kestrine") &&
                  write(usb + "/product", "Test Stick") && write(usb + "/remove", "");
        ok = ok && write(scsi + "/vendor", "Kestrine") && write(scsi + "/model", "Test Stick      ") &&
             write(scsi + "/rev", "1.00") && write(scsi + "/type", "0");
        ok = ok && write(disk + "/dev", dev) && write(disk + "/size", size) && write(disk + "/removable", "1") &&
             write(disk + "/uevent", "MAJOR=" + dev.substr(0, dev.find(':')) + "\nMINOR=" +
                                         dev.substr(dev.find(':') + 1) + "\nDEVNAME=" + kernelName + "\nDEVTYPE=disk");
        ok = ok && link("../../../30:0:0:0", disk + "/device") && link("../../" + disk, "class/block/" + kernelName) &&
             link("../../" + disk, "dev/block/" + dev);
        if (!ok) error_ = "could not build the sysfs tree in " + root_;
    }
    ~UsbStickTree() {
        std::error_code ec;
        if (!root_.empty()) fs::remove_all(root_, ec);
    }
    UsbStickTree(const UsbStickTree&) = delete;
    UsbStickTree& operator=(const UsbStickTree&) = delete;

    const std::string& Error() const { return error_; }
    const std::string& Root() const { return root_; }
    const std::string& UsbDevice() const { return usbDevice_; }
    // What was written to the USB device's "remove" (the direct way's power-off).
    std::string Removed() const { return linuxbk::ReadFile(usbDevice_ + "/remove").value_or("?"); }

private:
    bool write(const std::string& relative, const std::string& text) {
        const fs::path path = fs::path(root_) / relative;
        std::error_code ec;
        fs::create_directories(path.parent_path(), ec);
        std::ofstream out(path);
        out << text << (text.empty() ? "" : "\n");
        return static_cast<bool>(out);
    }
    bool link(const std::string& target, const std::string& relative) {
        const fs::path path = fs::path(root_) / relative;
        std::error_code ec;
        fs::create_directories(path.parent_path(), ec);
        fs::create_symlink(target, path, ec);
        return !ec && fs::exists(path);
    }
    std::string root_, usbDevice_, error_;
};

// Passes the device manager through and notes the device each eject request went to.
class EjectRequests : public platform::DevicesPassThrough {
public:
    explicit EjectRequests(linuxbk::LinuxDevices& devices) : DevicesPassThrough(devices), devices_(devices) {}
    std::uint32_t CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                           std::span<char16_t> vetoName, std::uint32_t flags) override {
        targets.push_back(devices_.PathOf(device));
        return inner_.CM_Request_Device_EjectW(device, vetoType, vetoName, flags);
    }

    std::vector<std::string> targets;

private:
    linuxbk::LinuxDevices& devices_;
};

std::optional<std::string> RootAt(System& sys, const std::string& mountPoint) {
    for (const auto& d : sys.Map().Drives())
        if (d.mountPoint == mountPoint) return d.Root();
    return std::nullopt;
}

bool Holds(const std::vector<platform::ProcessHold>& holders, std::uint32_t pid, const std::string& what,
           const std::string& path) {
    for (const auto& h : holders)
        if (h.pid == pid && h.what == what && h.path == path) return true;
    return false;
}

// A descriptor of this process on a file; closed at the end unless something
// else closed it first (then its number may belong to another file by now).
class OwnDescriptor {
public:
    explicit OwnDescriptor(std::string path)
        : path_(std::move(path)), fd_(::open(path_.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644)) {}
    ~OwnDescriptor() {
        if (Open()) ::close(fd_);
    }
    OwnDescriptor(const OwnDescriptor&) = delete;
    OwnDescriptor& operator=(const OwnDescriptor&) = delete;
    bool Open() const { return fd_ >= 0 && linuxbk::ReadLink("/proc/self/fd/" + std::to_string(fd_)) == path_; }

private:
    std::string path_;
    int fd_;
};

class CtlLinuxUdisks : public ::testing::Test {
protected:
    static void TearDownTestSuite() { linuxtest::Daemons::Shutdown(); }
    void SetUp() override {
        KESTRINE_REQUIRE_LOOP_DEVICES();
        KESTRINE_REQUIRE_UDISKS();
    }
};

TEST_F(CtlLinuxUdisks, ReleasingAHeldUsbDriveIsRefusedByUdisksAndNamesTheHolder) {
    linuxtest::LoopDrives loops;
    linuxtest::LoopDrive* drive = loops.Add("KST STICK");
    ASSERT_TRUE(drive && drive->mounted);
    const std::string kernelName = drive->device.substr(5), mountPoint = drive->mountPoint;
    ASSERT_TRUE(linuxtest::UdisksKnows(kernelName, "KST STICK")) << "udisks2 did not learn of " << drive->device;
    UsbStickTree tree(kernelName);
    ASSERT_EQ(tree.Error(), "");

    System::Options o;
    o.sysRoot = tree.Root();
    o.events = false;
    o.useUdisks = true;
    System sys(o);
    platform::Services services = sys.Services();
    EjectRequests requests(sys.Devices());
    platform::Services routed{services.app, services.volumes, services.profile, services.windows,    services.shell,
                              services.fso, services.storage, requests,         services.management, services.native};
    linuxbk::LinuxProcesses processes(sys.Map());
    auto place = [&](const std::string& root) -> std::optional<ctl::DrivePlace> {
        const auto* d = sys.Map().Find(root[0]);
        return d ? std::optional<ctl::DrivePlace>(ctl::DrivePlace{d->mountPoint, d->devNode}) : std::nullopt;
    };
    ctl::Tool tool({routed, processes, place});
    const auto root = RootAt(sys, mountPoint);
    ASSERT_TRUE(root) << mountPoint << " is not among the drives";

    // The tree makes the loop drive a USB drive, and the only one: the
    // system's other drives have no block device in it.
    std::ostringstream listed, listErr;
    const auto list = ctl::ParseArgs({"list", "--usb", "--json"});
    ASSERT_EQ(list.error, "");
    ASSERT_EQ(tool.Run(list.options, listed, listErr), ctl::kOk) << listErr.str();
    const auto drives = nlohmann::json::parse(listed.str()).at("drives");
    ASSERT_EQ(drives.size(), 1u) << listed.str();
    EXPECT_EQ(drives[0].at("root"), *root);
    EXPECT_EQ(drives[0].at("bus"), "Usb");
    EXPECT_EQ(drives[0].at("label"), "KST STICK");
    EXPECT_EQ(drives[0].at("fileSystem"), "ext4");
    EXPECT_EQ(drives[0].at("mountPoint"), mountPoint);
    EXPECT_EQ(drives[0].at("deviceNode"), drive->device);

    // A child holds the drive: every one of the attempts, each sent to the
    // USB device, is refused before anything is unmounted, naming the child.
    ASSERT_EQ(::mkdir((mountPoint + "/work").c_str(), 0755), 0);
    linuxtest::Holder child(mountPoint + "/work/open.txt", mountPoint + "/work");
    ASSERT_TRUE(child.Ready());
    const ctl::ReleaseResult refused = tool.Release(*root);
    EXPECT_EQ(refused.code, ctl::kRefused) << refused.message;
    EXPECT_EQ(requests.targets, std::vector<std::string>(release::kEjectAttempts, tree.UsbDevice()));
    EXPECT_EQ(sys.Devices().LastEject().method, "udisks2");
    EXPECT_EQ(sys.Devices().LastEject().veto, linuxbk::Veto::Busy) << sys.Devices().LastEject().text;
    EXPECT_EQ(sys.Devices().LastEject().disks, std::vector<std::string>{kernelName});
    ASSERT_TRUE(refused.veto);
    EXPECT_EQ(ctl::VetoTypeName(refused.veto->type), "OutstandingOpen");
    // "busy: <mount point> is in use by kestrine_tests [<pid>]"
    const std::string childTag = "[" + std::to_string(child.Pid()) + "]";
    EXPECT_TRUE(refused.veto->name.starts_with("busy: " + mountPoint + " is in use by ")) << refused.veto->name;
    EXPECT_NE(refused.veto->name.find(childTag), std::string::npos) << refused.veto->name;
    EXPECT_TRUE(Holds(sys.Devices().LastEject().holders, child.Pid(), "cwd", mountPoint + "/work"));
    EXPECT_TRUE(Holds(refused.holders, child.Pid(), "file", mountPoint + "/work/open.txt"));
    EXPECT_TRUE(Holds(refused.holders, child.Pid(), "cwd", mountPoint + "/work"));
    EXPECT_NE(refused.message.find("Drive " + *root + " could not be released"), std::string::npos) << refused.message;
    EXPECT_NE(refused.message.find("is in use by"), std::string::npos) << refused.message;
    EXPECT_NE(refused.message.find(childTag), std::string::npos) << refused.message;
    EXPECT_EQ(RootAt(sys, mountPoint), root) << "a refused release leaves the drive mounted";
    EXPECT_EQ(tree.Removed(), "") << "refused: nothing was powered off";

    // The same through the command line, by mount point, in JSON.
    std::ostringstream out, err;
    const auto parsed = ctl::ParseArgs({"release", mountPoint, "--json"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(tool.Run(parsed.options, out, err), ctl::kRefused);
    const auto answer = nlohmann::json::parse(out.str());
    EXPECT_EQ(answer.at("exitCode"), static_cast<int>(ctl::kRefused));
    ASSERT_EQ(answer.at("results").size(), 1u) << out.str();
    const auto& result = answer.at("results")[0];
    EXPECT_EQ(result.at("root"), *root);
    EXPECT_EQ(result.at("outcome"), "refused");
    EXPECT_EQ(result.at("veto").at("typeName"), "OutstandingOpen");
    EXPECT_NE(result.at("veto").at("name").get<std::string>().find(childTag), std::string::npos);
    bool file = false, cwd = false;
    for (const auto& h : result.at("holders")) {
        if (h.at("pid") != child.Pid()) continue;
        file = file || (h.at("what") == "file" && h.at("path") == mountPoint + "/work/open.txt");
        cwd = cwd || (h.at("what") == "cwd" && h.at("path") == mountPoint + "/work");
    }
    EXPECT_TRUE(file && cwd) << out.str();
    EXPECT_NE(err.str().find(refused.message), std::string::npos) << err.str();
    EXPECT_EQ(RootAt(sys, mountPoint), root);

    // Once the child is gone the release goes through udisks2. A file this
    // process has open on the drive is closed by the release itself.
    child.Stop();
    const std::string ownFile = mountPoint + "/work/own.txt";
    OwnDescriptor own(ownFile);
    ASSERT_TRUE(own.Open());
    requests.targets.clear();
    const ctl::ReleaseResult released = tool.Release(*root);
    EXPECT_FALSE(own.Open()) << "the release closes this program's own descriptors on the drive";
    EXPECT_EQ(released.code, ctl::kOk) << released.message << " / " << sys.Devices().LastEject().text;
    EXPECT_EQ(released.message, "Drive " + *root + " has been released; it is safe to unplug it now.");
    // On a busy machine the child's last hold may still be let go of at the
    // first request: the retries are there for that.
    EXPECT_FALSE(requests.targets.empty());
    EXPECT_LE(requests.targets.size(), static_cast<std::size_t>(release::kEjectAttempts));
    EXPECT_EQ(requests.targets, std::vector<std::string>(requests.targets.size(), tree.UsbDevice()));
    EXPECT_EQ(sys.Devices().LastEject().method, "udisks2");
    EXPECT_FALSE(RootAt(sys, mountPoint)) << "released, the drive is no longer mounted";
    EXPECT_TRUE(linuxtest::WaitFor([&] { return !linuxtest::LoopDrives::Attached(*drive); }, 3000))
        << "udisks2 deletes the loop device in place of powering a drive off";
    EXPECT_EQ(tree.Removed(), "");
}

} // namespace
