// What an ejection takes down, worked out on the fixture tree: a USB stick
// (sdb) with a FAT partition and a second partition holding a dm-crypt
// volume (dm-0). The volume is on the stick's USB bus; the plan finds it and
// its mounts, and refuses before anything is touched when the device carries
// the system's root or its EFI partition, when another file system is
// mounted inside one of its own, or when what is stacked on it cannot be
// taken down.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/linux/release_plan.h"
#include "platform/types.h"

namespace {

using linuxbk::Veto;
const std::string kSys = std::string(KESTRINE_SOURCE_DIR) + "/tests/fixtures/linux/sys";

TEST(LinuxStackedDevices, AVolumeOnAStickIsOnItsUsbBus) {
    const linuxbk::Sysfs sys(kSys);
    EXPECT_EQ(sys.Holders("sdb2"), std::vector<std::string>{"dm-0"});
    EXPECT_EQ(sys.Slaves("dm-0"), std::vector<std::string>{"sdb2"});
    EXPECT_EQ(sys.Leaves("dm-0"), std::vector<std::string>{"sdb"});
    EXPECT_TRUE(sys.Leaves("sdb").empty());

    const auto volume = sys.Disk("dm-0");
    ASSERT_TRUE(volume.has_value());
    EXPECT_EQ(volume->busType, linuxbk::bus::kUsb);
    EXPECT_TRUE(volume->usbDevice.ends_with("/usb1/1-5")) << volume->usbDevice;
    EXPECT_EQ(volume->serial, "4C530001230516104323");
    EXPECT_EQ(linuxbk::DriveTypeOfDisk(*volume), platform::kDriveRemovable);
    // An ejection of the volume's device takes the stick, not the card reader beside it.
    const auto disks = linuxbk::DisksOfDevice(sys, *sys.Disk("sdb"));
    ASSERT_EQ(disks.size(), 1u);
    EXPECT_EQ(disks[0].name, "sdb");
    EXPECT_EQ(linuxbk::DisksOfDevice(sys, *sys.Disk("sdc")).size(), 2u) << "both slots of the reader";
}

class LinuxReleasePlan : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = std::filesystem::temp_directory_path() / ("kestrine-plan-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // The plan for ejecting the stick, with this mount table and no process holding anything.
    linuxbk::ReleasePlan Plan(const std::string& mounts, bool udisks = true) {
        const std::string table = (folder_ / "mountinfo").string();
        std::ofstream(table) << "26 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n" << mounts;
        linuxbk::LetterMap map(linuxbk::Sysfs(kSys), table);
        linuxbk::PlanOptions options;
        options.procRoot = (folder_ / "no-proc").string();
        options.swaps = (folder_ / "no-swaps").string();
        options.udisks = udisks;
        return linuxbk::PlanRelease(map, {*map.sys().Disk("sdb")}, options);
    }

    std::filesystem::path folder_;
};

TEST_F(LinuxReleasePlan, FindsPartitionsTheEncryptedVolumeAndEveryMountDeepestFirst) {
    const auto plan = Plan("40 26 8:17 / /media/me/STICK rw - vfat /dev/sdb1 rw\n"
                           "41 26 254:0 / /media/me/secret rw - ext4 /dev/mapper/luks-stick rw\n"
                           "42 41 8:17 /photos /media/me/secret/photos rw - vfat /dev/sdb1 rw\n"
                           "43 26 8:33 / /media/me/SD rw - exfat /dev/sdc1 rw\n");
    EXPECT_TRUE(plan.ok()) << plan.text;
    std::vector<std::string> members;
    for (const auto& b : plan.members) members.push_back(b.name);
    EXPECT_EQ(members, (std::vector<std::string>{"sdb", "sdb1", "sdb2"}));
    ASSERT_EQ(plan.stacked.size(), 1u);
    EXPECT_EQ(plan.stacked[0].block.name, "dm-0");
    EXPECT_EQ(plan.stacked[0].kind, linuxbk::StackKind::Crypt);
    EXPECT_EQ(plan.stacked[0].dmName, "luks-stick");
    // A second mount of the stick's partition inside the volume goes first; the card reader's is not touched.
    std::vector<std::string> mounts;
    for (const auto& m : plan.mounts) mounts.push_back(m.mountPoint);
    EXPECT_EQ(mounts, (std::vector<std::string>{"/media/me/secret/photos", "/media/me/secret", "/media/me/STICK"}));
    ASSERT_NE(plan.BlockOf(plan.mounts[1]), nullptr);
    EXPECT_EQ(plan.BlockOf(plan.mounts[1])->name, "dm-0");
}

TEST_F(LinuxReleasePlan, RefusesBeforeTouchingAnythingWhatCannotGo) {
    // The root of the running system lies in the stick's encrypted volume.
    auto plan = Plan("40 26 8:17 / /media/me/STICK rw - vfat /dev/sdb1 rw\n"
                     "41 1 254:0 / / rw - ext4 /dev/mapper/luks-stick rw\n");
    EXPECT_EQ(plan.veto, Veto::SystemDrive);
    EXPECT_EQ(plan.text, "system drive: /dev/dm-0 holds the root file system");

    // The system's EFI partition is on the stick: the drive list hides it, so it is never unmounted unasked.
    plan = Plan("40 26 8:17 / /boot/efi rw - vfat /dev/sdb1 rw\n");
    EXPECT_EQ(plan.veto, Veto::SystemDrive);
    EXPECT_NE(plan.text.find("mounted at /boot/efi"), std::string::npos) << plan.text;

    // Another file system mounted inside the stick's.
    plan = Plan("40 26 8:17 / /media/me/STICK rw - vfat /dev/sdb1 rw\n"
                "44 40 0:61 / /media/me/STICK/tmp rw - tmpfs tmpfs rw\n");
    EXPECT_EQ(plan.veto, Veto::Busy);
    EXPECT_EQ(plan.text, "busy: /media/me/STICK/tmp (tmpfs) is mounted inside /media/me/STICK");

    // Without udisks2 and without root, nobody could lock the encrypted volume.
    plan = Plan("41 26 254:0 / /media/me/secret rw - ext4 /dev/mapper/luks-stick rw\n", false);
    EXPECT_EQ(plan.veto, Veto::NotAuthorised);
    EXPECT_EQ(plan.text, "not authorised: luks-stick (/dev/dm-0) can only be taken down by root");
}

} // namespace
