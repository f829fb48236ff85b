// Releasing real USB sticks with the build's kestrinectl, in the guest: a
// stick with two partitions, one USB device with two units, a stick under
// dm-crypt, one under LVM (also carrying the root of a system), and a stick
// an ordinary user asks to release. Each refusal must leave every file
// system mounted; each release must unmount everything the device carries,
// take down what is stacked on it and power it off once.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include <sys/resource.h>

#include "../linux_test_support.h"
#include "core/program.h"
#include "ctl/ctl.h"
#include "platform/fake/headless_view.h"
#include "platform/linux/processes.h"
#include "platform/linux/system.h"
#include "release/modLockFileInfo.h"
#include "usbvm_support.h"

namespace {

using namespace std::chrono_literals;
using usbvm::Ctl;
using usbvm::Json;
using usbvm::Sh;

// Whether a holder is named with its process id, its name, what it holds and where.
bool Holds(const nlohmann::json& holders, std::uint32_t pid, const std::string& what, const std::string& path) {
    std::string name = Sh("cat /proc/" + std::to_string(pid) + "/comm").out;
    if (!name.empty()) name.pop_back();
    for (const auto& h : holders)
        if (h.at("pid") == pid && h.at("name") == name && h.at("what") == what && h.at("path") == path) return true;
    return false;
}

// The one result of "kestrinectl release WHAT --json". Drives are named by
// their mount points: each run of the tool gives letters anew, in the order
// of the mount table.
nlohmann::json ReleaseJson(const std::string& what, usbvm::Result& r, const std::string& user = "") {
    r = Ctl({"release", what, "--json"}, user);
    const auto doc = Json(r);
    if (doc.is_null() || doc.at("results").size() != 1) return nullptr;
    return doc.at("results")[0];
}

std::string VetoName(const nlohmann::json& result) {
    return result.contains("veto") && result.at("veto").is_object() ? result.at("veto").value("name", "") : "";
}
std::string VetoType(const nlohmann::json& result) {
    return result.contains("veto") && result.at("veto").is_object() ? result.at("veto").value("typeName", "") : "";
}

// A stick's file systems by label, mounted through udisks2.
struct Mounted {
    std::string device, mountPoint, root;
};

Mounted MountLabel(const std::string& label) {
    Mounted m;
    m.device = usbvm::DeviceOfLabel(label);
    if (m.device.empty()) return m;
    m.mountPoint = usbvm::Mount(m.device);
    if (!m.mountPoint.empty()) m.root = usbvm::RootOf(m.mountPoint);
    return m;
}

// --- listing ---

TEST(UsbListing, AMountedStickIsAUsbRemovableDriveWithItsLabelFileSystemAndSizes) {
    const Mounted part2 = MountLabel("PART2");
    ASSERT_FALSE(part2.root.empty()) << "PART2 is not mounted and listed";
    const auto row = usbvm::Row(part2.root);
    ASSERT_FALSE(row.is_null());
    EXPECT_EQ(row.at("bus"), "Usb");
    EXPECT_EQ(row.at("usb"), true);
    EXPECT_EQ(row.at("kind"), "Removable");
    EXPECT_EQ(row.at("label"), "PART2");
    EXPECT_EQ(row.at("fileSystem"), "vfat");
    EXPECT_EQ(row.at("mountPoint"), part2.mountPoint);
    EXPECT_EQ(row.at("deviceNode"), part2.device);
    // The sizes are the file system's own, as statfs gives them to df.
    std::istringstream fs(Sh("stat -f -c '%b %f %S' " + part2.mountPoint).out);
    std::uint64_t blocks = 0, freeBlocks = 0, size = 0;
    fs >> blocks >> freeBlocks >> size;
    EXPECT_EQ(row.at("totalBytes"), blocks * size);
    EXPECT_EQ(row.at("freeBytes"), freeBlocks * size);
    EXPECT_EQ(row.at("usedBytes"), (blocks - freeBlocks) * size);

    // Only USB drives with --usb: the guest's root is not one.
    const auto usb = Json(Ctl({"list", "--usb", "--json"}));
    ASSERT_FALSE(usb.is_null());
    bool listed = false;
    for (const auto& d : usb.at("drives")) {
        EXPECT_EQ(d.at("bus"), "Usb") << d.dump();
        listed = listed || d.at("root") == part2.root;
    }
    EXPECT_TRUE(listed);
}

// --- a stick with two partitions ---

TEST(UsbPartitions, AnEfiMountOnTheStickRefusesTheReleaseAndIsLeftAlone) {
    const Mounted part1 = MountLabel("PART1");
    ASSERT_FALSE(part1.root.empty());
    const std::string part2 = usbvm::DeviceOfLabel("PART2");
    Sh("udisksctl unmount --no-user-interaction -b " + part2);
    ASSERT_EQ(Sh("mkdir -p /efi && mount " + part2 + " /efi").code, 0);
    struct Unmount {
        ~Unmount() { Sh("umount /efi"); }
    } unmount;

    usbvm::Result r;
    const auto result = ReleaseJson(part1.mountPoint, r);
    ASSERT_FALSE(result.is_null()) << r.out << r.err;
    EXPECT_EQ(r.code, ctl::kRefused) << r.err;
    EXPECT_EQ(result.value("outcome", ""), "refused");
    EXPECT_EQ(VetoType(result), "NonDisableable");
    EXPECT_NE(VetoName(result).find("mounted at /efi"), std::string::npos) << result.dump();
    EXPECT_EQ(usbvm::MountPoints(part2), std::vector<std::string>{"/efi"}) << "never unmounted silently";
    EXPECT_EQ(usbvm::MountPoints(part1.device), std::vector<std::string>{part1.mountPoint});
}

TEST(UsbPartitions, AHolderOnTheOtherPartitionRefusesAndNothingIsUnmounted) {
    const Mounted part1 = MountLabel("PART1"), part2 = MountLabel("PART2");
    ASSERT_FALSE(part1.root.empty());
    ASSERT_FALSE(part2.root.empty());
    linuxtest::Holder holder(part2.mountPoint + "/held.txt", part2.mountPoint);
    ASSERT_TRUE(holder.Ready());

    usbvm::Result r;
    const auto result = ReleaseJson(part1.mountPoint, r);
    ASSERT_FALSE(result.is_null()) << r.out << r.err;
    EXPECT_EQ(r.code, ctl::kRefused) << r.err;
    EXPECT_EQ(result.value("outcome", ""), "refused");
    EXPECT_EQ(VetoType(result), "OutstandingOpen");
    EXPECT_TRUE(Holds(result.at("holders"), holder.Pid(), "cwd", part2.mountPoint)) << result.dump();
    EXPECT_TRUE(Holds(result.at("holders"), holder.Pid(), "file", part2.mountPoint + "/held.txt")) << result.dump();
    EXPECT_NE(r.err.find(result.value("root", "?") + " could not be released"), std::string::npos) << r.err;
    EXPECT_EQ(usbvm::MountPoints(part1.device), std::vector<std::string>{part1.mountPoint});
    EXPECT_EQ(usbvm::MountPoints(part2.device), std::vector<std::string>{part2.mountPoint});
    EXPECT_TRUE(usbvm::UsbPresent("PARTS0001"));

    // The text form names the holder too.
    const auto text = Ctl({"release", part1.mountPoint});
    EXPECT_EQ(text.code, ctl::kRefused);
    EXPECT_NE(text.out.find(std::to_string(holder.Pid()) + " "), std::string::npos) << text.out;
}

TEST(UsbPartitions, OneReleaseUnmountsBothAndPowersTheStickOffOnce) {
    const Mounted part1 = MountLabel("PART1"), part2 = MountLabel("PART2");
    ASSERT_FALSE(part1.root.empty());
    ASSERT_FALSE(part2.root.empty());
    const int disconnects = usbvm::UsbDisconnects();

    const auto r = Ctl({"release", part1.mountPoint});
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_EQ(r.out, "Drive " + part1.root + " has been released; it is safe to unplug it now.\n");
    EXPECT_TRUE(usbvm::MountPoints(part1.device).empty());
    EXPECT_TRUE(usbvm::MountPoints(part2.device).empty());
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("PARTS0001"); }, 10s)) << "powered off";
    EXPECT_TRUE(usbvm::WaitFor([&] { return usbvm::UsbDisconnects() == disconnects + 1; }, 5s));
    EXPECT_EQ(usbvm::UsbDisconnects(), disconnects + 1);
    EXPECT_TRUE(usbvm::RootOf(part1.mountPoint).empty());
    EXPECT_TRUE(usbvm::RootOf(part2.mountPoint).empty());
}

// --- one USB device with two units ---

TEST(UsbUnits, AHolderOnTheOtherUnitRefuses) {
    const Mounted unit0 = MountLabel("UNIT0"), unit1 = MountLabel("UNIT1");
    ASSERT_FALSE(unit0.root.empty());
    ASSERT_FALSE(unit1.root.empty());
    EXPECT_NE(usbvm::DiskNameOf(unit0.device), usbvm::DiskNameOf(unit1.device));
    linuxtest::Holder holder(unit1.mountPoint + "/held.txt", unit1.mountPoint);
    ASSERT_TRUE(holder.Ready());

    usbvm::Result r;
    const auto result = ReleaseJson(unit0.mountPoint, r);
    ASSERT_FALSE(result.is_null()) << r.out << r.err;
    EXPECT_EQ(r.code, ctl::kRefused);
    EXPECT_TRUE(Holds(result.at("holders"), holder.Pid(), "cwd", unit1.mountPoint)) << result.dump();
    EXPECT_EQ(usbvm::MountPoints(unit0.device), std::vector<std::string>{unit0.mountPoint});
    EXPECT_EQ(usbvm::MountPoints(unit1.device), std::vector<std::string>{unit1.mountPoint});
}

TEST(UsbUnits, OneReleasePowersTheDeviceOffOnce) {
    const Mounted unit0 = MountLabel("UNIT0"), unit1 = MountLabel("UNIT1");
    ASSERT_FALSE(unit0.root.empty());
    const int disconnects = usbvm::UsbDisconnects();

    // In this process, to see what the eject request did.
    linuxbk::System::Options options;
    options.events = false;
    linuxbk::System sys(options);
    platform::Services services = sys.Services();
    linuxbk::LinuxProcesses processes(sys.Map());
    ctl::Tool tool({services, processes, {}});
    const ctl::ReleaseResult released = tool.Release(unit0.root);
    EXPECT_EQ(released.code, ctl::kOk) << released.message << " / " << sys.Devices().LastEject().text;
    const linuxbk::EjectReport& report = sys.Devices().LastEject();
    EXPECT_EQ(report.disks.size(), 2u) << "both units";
    EXPECT_EQ(report.powerOffs, 1);
    EXPECT_EQ(report.method, "udisks2");
    EXPECT_TRUE(usbvm::MountPoints(unit0.device).empty());
    EXPECT_TRUE(usbvm::MountPoints(unit1.device).empty());
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("UNITS0001"); }, 10s));
    EXPECT_TRUE(usbvm::WaitFor([&] { return usbvm::UsbDisconnects() == disconnects + 1; }, 5s));
}

// --- a stick under dm-crypt ---

class UsbEncrypted : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (Sh("test -e /dev/mapper/ksecret").code == 0) return;
        const std::string disk = usbvm::DiskOfSerial("SECRET0001");
        if (disk.empty()) return;
        const std::string part = disk + "1";
        Sh("printf kestrine >/run/usbvm/secret.key");
        Sh("cryptsetup luksFormat --batch-mode --type luks2 --pbkdf pbkdf2 --pbkdf-force-iterations 1000 "
           "--key-file /run/usbvm/secret.key " +
           part + " && cryptsetup open --key-file /run/usbvm/secret.key " + part +
           " ksecret && mkfs.ext4 -q -L SECRET /dev/mapper/ksecret");
    }
    void SetUp() override {
        secret_ = MountLabel("SECRET");
        ASSERT_FALSE(secret_.root.empty()) << "the encrypted stick could not be made and mounted";
    }
    Mounted secret_;
};

TEST_F(UsbEncrypted, ItsVolumeIsAUsbDrive) {
    const auto row = usbvm::Row(secret_.root);
    ASSERT_FALSE(row.is_null());
    EXPECT_EQ(row.at("bus"), "Usb");
    EXPECT_EQ(row.at("kind"), "Removable");
    EXPECT_EQ(row.at("label"), "SECRET");
    EXPECT_EQ(row.at("fileSystem"), "ext4");
}

TEST_F(UsbEncrypted, AHolderKeepsItUnlockedAndMounted) {
    linuxtest::Holder holder(secret_.mountPoint + "/held.txt", secret_.mountPoint);
    ASSERT_TRUE(holder.Ready());
    usbvm::Result r;
    const auto result = ReleaseJson(secret_.mountPoint, r);
    ASSERT_FALSE(result.is_null()) << r.out << r.err;
    EXPECT_EQ(r.code, ctl::kRefused);
    EXPECT_TRUE(Holds(result.at("holders"), holder.Pid(), "file", secret_.mountPoint + "/held.txt"));
    EXPECT_EQ(usbvm::MountPoints(secret_.device), std::vector<std::string>{secret_.mountPoint});
    EXPECT_EQ(Sh("test -e /dev/mapper/ksecret").code, 0) << "still unlocked";
}

TEST_F(UsbEncrypted, ReleaseUnmountsLocksAndPowersOff) {
    const auto r = Ctl({"release", secret_.mountPoint});
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_TRUE(usbvm::MountPoints(secret_.device).empty());
    EXPECT_NE(Sh("test -e /dev/mapper/ksecret").code, 0) << "locked";
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("SECRET0001"); }, 10s));
}

// --- a stick under LVM ---

class UsbLvm : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (Sh("test -e /dev/kvg/klv").code == 0) return;
        const std::string disk = usbvm::DiskOfSerial("LVM0001");
        if (disk.empty()) return;
        Sh("timeout 120 pvcreate -q -y " + disk + "2 && timeout 120 vgcreate -q kvg " + disk +
           "2 && timeout 120 lvcreate -q -y -l 100%FREE -n klv kvg && mkfs.ext4 -q -L LVMVOL /dev/kvg/klv");
    }
    void SetUp() override {
        volume_ = MountLabel("LVMVOL");
        boot_ = MountLabel("BOOTPART");
        ASSERT_FALSE(volume_.root.empty()) << "the logical volume could not be made and mounted";
        ASSERT_FALSE(boot_.root.empty());
    }
    Mounted volume_, boot_;
};

TEST_F(UsbLvm, ALogicalVolumeOnAStickIsAUsbDrive) {
    const auto row = usbvm::Row(volume_.root);
    ASSERT_FALSE(row.is_null());
    EXPECT_EQ(row.at("bus"), "Usb");
    EXPECT_EQ(row.at("kind"), "Removable");
    EXPECT_EQ(row.at("label"), "LVMVOL");
}

// A system whose root is the logical volume (as one started from the stick
// is): in a mount namespace of its own, the volume is / and the stick's
// first partition /boot (the build's own folder is bound in wherever the
// checkout lives). Releasing /boot must be refused, since powering
// the stick off would take the root away, and nothing may be unmounted.
TEST_F(UsbLvm, ItIsTheSystemDriveWhereItHoldsTheRoot) {
    const std::string script = R"sh(
r=/mnt/usbvm-sysroot
mkdir -p $r
mount /dev/kvg/klv $r
for d in bin sbin lib lib64; do
    if [ -L /$d ]; then ln -sfn "$(readlink /$d)" $r/$d; elif [ -d /$d ]; then mkdir -p $r/$d && mount --rbind /$d $r/$d; fi
done
top=$(echo "$CTL" | cut -d/ -f2)
for d in usr etc proc sys dev run tmp root $top; do
    [ -d $r/$d ] && mountpoint -q $r/$d && continue
    mkdir -p $r/$d && mount --rbind /$d $r/$d
done
mkdir -p $r/boot
mount "$BOOT" $r/boot
chroot $r "$CTL" release /boot --json >/tmp/usbvm-release.json
echo "exit $?"
chroot $r findmnt -rn -o TARGET --source "$BOOT"
chroot $r findmnt -rn -o TARGET /
cat /tmp/usbvm-release.json
)sh";
    const auto r = Sh("BOOT=" + boot_.device + " CTL=" + std::string(KESTRINECTL_PATH) +
                      " unshare --mount --propagation private sh -c '" + script + "'");
    EXPECT_NE(r.out.find("exit 5\n/boot\n/\n"), std::string::npos) << r.out << r.err;
    EXPECT_NE(r.out.find("\"typeName\": \"NonDisableable\""), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("holds the root file system"), std::string::npos) << r.out;
    // Outside, the volume and the partition are as they were.
    EXPECT_EQ(usbvm::MountPoints(boot_.device), std::vector<std::string>{boot_.mountPoint});
    EXPECT_EQ(usbvm::MountPoints(volume_.device), std::vector<std::string>{volume_.mountPoint});
}

TEST_F(UsbLvm, ReleaseDeactivatesTheVolumeAndPowersOff) {
    const auto r = Ctl({"release", volume_.mountPoint});
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_TRUE(usbvm::MountPoints(boot_.device).empty());
    EXPECT_NE(Sh("test -e /dev/mapper/kvg-klv").code, 0) << "deactivated";
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("LVM0001"); }, 10s));
}

// --- an ordinary user ---

TEST(UsbUnprivileged, ListingWorksAndAReleaseSaysAuthorisationIsNeeded) {
    const Mounted stick = MountLabel("USERSTICK");
    ASSERT_FALSE(stick.root.empty());
    const auto list = Json(Ctl({"list", "--json"}, "4242"));
    ASSERT_FALSE(list.is_null());
    bool seen = false;
    for (const auto& d : list.at("drives"))
        if (d.at("root") == stick.root) {
            seen = true;
            EXPECT_EQ(d.at("bus"), "Usb");
            EXPECT_EQ(d.at("label"), "USERSTICK");
        }
    EXPECT_TRUE(seen) << list.dump();

    const auto r = Ctl({"release", stick.mountPoint}, "4242");
    EXPECT_EQ(r.code, ctl::kRefused);
    // One sentence that says what is needed and how to go on.
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find("authorisation is needed"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("as root"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("Unable"), std::string::npos) << r.err;
    EXPECT_EQ(usbvm::MountPoints(stick.device), std::vector<std::string>{stick.mountPoint});
}

TEST(UsbUnprivileged, AUserPolkitAllowsReleasesTheStick) {
    const Mounted stick = MountLabel("USERSTICK");
    ASSERT_FALSE(stick.root.empty());
    const auto r = Ctl({"release", stick.mountPoint}, "4243");
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_TRUE(usbvm::MountPoints(stick.device).empty());
    EXPECT_TRUE(usbvm::WaitFor([] { return !usbvm::UsbPresent("USER0001"); }, 10s));
}

// --- the handle table with many descriptors open ---

// A child with thousands of descriptors open: the walk over this program's
// own handles reads the system's table once, not once per doubling of its buffer.
TEST(UsbHandles, TheHandleWalkReadsTheTableOnceWithSixteenThousandDescriptorsOpen) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        rlimit limit{20000, 20000};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        const int null = ::open("/dev/null", O_RDONLY);
        int opened = 0;
        while (opened < 16000 && ::dup(null) >= 0) ++opened;
        const char answer = opened == 16000 ? 'y' : 'n';
        if (::write(ready[1], &answer, 1) != 1) ::_exit(1);
        for (;;) ::pause();
    }
    char answer = 'n';
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y') << "the child could not open 16,000 descriptors";

    linuxbk::System::Options options;
    options.events = false;
    linuxbk::System sys(options);
    platform::Services services = sys.Services();
    fake::HeadlessView view;
    app::Program prog(services, view);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(release::CloseDriveHandles(prog.sys, "C:", services.native.GetCurrentProcessId()));
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::printf("usbvm: the handle walk took %lld ms with 16,000 descriptors open in another process\n",
                static_cast<long long>(took.count()));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_LT(took, 5s);
}

} // namespace
