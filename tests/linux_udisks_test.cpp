// The Linux backend with udisks2: labels, label changes and the eject
// request through the storage daemon on the system bus. The test setup
// starts dbus-daemon, systemd-udevd and udisksd itself (as root) unless
// udisks2 already answers, and stops what it started by process id. Where
// root, the daemons or loop devices are missing, the tests are skipped with
// the reason.
#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <unistd.h>

#include "linux_daemons.h"
#include "linux_test_support.h"
#include "platform/linux/system.h"
#include "platform/linux/udisks.h"
#include "platform/linux/volume_id.h"

namespace {

using linuxbk::UDisks;
using linuxtest::WaitFor;

class LinuxUdisks : public ::testing::Test {
protected:
    static void TearDownTestSuite() { linuxtest::Daemons::Shutdown(); }
    void SetUp() override {
        KESTRINE_REQUIRE_LOOP_DEVICES();
        KESTRINE_REQUIRE_UDISKS();
    }
    // A mounted loop drive udisks2 knows; its letter in sys, or 0.
    char Prepare(linuxtest::LoopDrives& loops, linuxbk::System& sys, const std::string& label,
                 linuxtest::LoopDrive*& drive) {
        drive = loops.Add(label);
        if (drive == nullptr || !linuxtest::UdisksKnows(drive->device.substr(5), label)) return 0;
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
    // udev's database answers first; udisks2 knows the same.
    const linuxbk::VolumeId id = linuxbk::IdentifyVolume(*record);
    EXPECT_EQ(id.from, "udev");
    EXPECT_EQ(id.label, "UD LABEL");
    EXPECT_EQ(id.type, "ext4");
    ASSERT_TRUE(record->block);
    const auto byUdisks = linuxbk::UDisks::IdOf(record->block->name);
    ASSERT_TRUE(byUdisks);
    EXPECT_EQ(byUdisks->label, "UD LABEL");
    EXPECT_EQ(byUdisks->uuid, id.uuid);

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
    // By mount point, not by letter: another test's drive mounted meanwhile may take the free letter.
    for (const auto& d : sys.Map().Drives()) EXPECT_NE(d.mountPoint, drive->mountPoint) << "still mounted";
    EXPECT_TRUE(WaitFor([&] { return linuxbk::ReadAttr("/sys/block/" + disk + "/loop/backing_file").empty(); }, 3000))
        << "Loop.Delete detaches the loop device";
    drive->mountPoint.clear();
}

} // namespace
