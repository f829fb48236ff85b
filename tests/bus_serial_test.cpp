// The storage bus probe and the USB drive list, the disk serial number, and
// the ejection through the device manager, on the simulated machine.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/program.h"
#include "drives/modGetDriveSerialNumber.h"
#include "drives/modGetDriveType.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "release/modRemoveUsbDrive.h"

namespace {

using app::Ctl;

using builders::MakeDrive;

struct Probe : ::testing::Test {
    fake::Machine m;
    platform::Services services{m.services()};
    fake::HeadlessView view;
    app::Program prog{services, view};

    std::vector<std::string> Lines(Ctl list) {
        std::vector<std::string> out;
        for (int i = 0; i < view.ListCount(list); ++i) out.push_back(view.List(list, i));
        return out;
    }
};

TEST(CtlCode, StorageCodesAndOverflow) {
    EXPECT_EQ(drives::IOCTL_STORAGE_QUERY_PROPERTY(), 0x2D1400u);
    EXPECT_EQ(drives::IOCTL_STORAGE_GET_DEVICE_NUMBER(), 0x2D1080u);
    EXPECT_EQ(drives::MakeCtlCode(0x22, 1, 3, 2), 0x22 << 16 | 2 << 14 | 1 << 2 | 3);
    // A device type of 0x8000 makes a product of 2^31: it does not fit.
    EXPECT_FALSE(drives::MakeCtlCode(0x8000, 0, 0, 0).has_value());
    EXPECT_EQ(drives::MakeCtlCode(0x7FFF, 0, 0, 0), 0x7FFF0000);
}

TEST(BusTypeNames, ZeroToNine) {
    const std::vector<std::string> expected{"", "Scsi", "Atapi", "Ata", "1394", "Ssa", "Fibre", "Usb", "RAID", ""};
    for (std::uint32_t i = 0; i < expected.size(); ++i) EXPECT_EQ(drives::BusTypeName(i), expected[i]) << i;
    EXPECT_EQ(drives::BusTypeName(17), ""); // NVMe and later
}

TEST_F(Probe, BusTypeOfVolumes) {
    m.AddDrive(MakeDrive("C:\\", platform::kDriveFixed, "System", 3, 0));
    m.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK", 7, 1));
    m.AddDrive(MakeDrive("F:\\", platform::kDriveFixed, "NVME", 17, 2));
    auto locked = MakeDrive("G:\\", platform::kDriveRemovable, "LOCKED", 7, 3);
    locked.openable = false;
    m.AddDrive(locked);
    m.AddDrive(MakeDrive("Z:\\", platform::kDriveRemote, "", std::nullopt, std::nullopt));

    EXPECT_EQ(drives::GetBusType(prog.sys, "E:"), "Usb");
    EXPECT_EQ(drives::GetBusType(prog.sys, "C:"), "Ata");
    EXPECT_EQ(drives::GetBusType(prog.sys, "F:"), "");
    EXPECT_EQ(drives::GetBusType(prog.sys, "Z:"), ""); // the driver does not answer
    EXPECT_EQ(drives::GetBusType(prog.sys, "Q:"), ""); // not mapped
    m.ClearJournal();
    EXPECT_EQ(drives::GetBusType(prog.sys, "G:"), ""); // cannot be opened: nothing is asked of it
    EXPECT_TRUE(m.Calls("DeviceIoControl").empty());
    // Every opened volume was closed again.
    EXPECT_EQ(m.hardware().OpenHandles(), 0u);

    const auto opens = m.Calls("CreateFileA");
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].args[0], "\"\\\\.\\G:\"");
    EXPECT_EQ(opens[0].args[1], "0x80000000");
}

TEST_F(Probe, UsbDriveList) {
    m.AddDrive(MakeDrive("C:\\", platform::kDriveFixed, "System", 3, 0));
    auto cd = MakeDrive("D:\\", platform::kDriveCdrom, "DISC", 2, 0);
    cd.ready = false;
    m.AddDrive(cd);
    m.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK", 7, 1));
    auto net = MakeDrive("Z:\\", platform::kDriveRemote, "", std::nullopt, std::nullopt);
    net.shareName = "\\\\server\\share";
    m.AddDrive(net);
    view.AddListItem(Ctl::lstDrives, "stale line");

    EXPECT_TRUE(drives::ListDrives(prog, Ctl::lstDrives));
    EXPECT_EQ(Lines(Ctl::lstDrives),
              (std::vector<std::string>{"C:\\System", "D:\\", "E:\\STICK (USB)", "Z:\\\\\\server\\share"}));

    m.RemoveDrive("E:");
    EXPECT_FALSE(drives::ListDrives(prog, Ctl::lstDrives));
    EXPECT_EQ(Lines(Ctl::lstDrives).size(), 3u);

    // Every build asks every line's bus anew: a letter that now stands for a
    // USB stick is marked at once, without a device event in between.
    m.AddDrive(MakeDrive("E:\\", platform::kDriveFixed, "DISK", 3, 4));
    EXPECT_FALSE(drives::ListDrives(prog, Ctl::lstDrives));
    m.RemoveDrive("E:");
    m.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK2", 7, 5));
    m.ClearJournal();
    EXPECT_TRUE(drives::ListDrives(prog, Ctl::lstDrives));
    EXPECT_EQ(Lines(Ctl::lstDrives)[2], "E:\\STICK2 (USB)");
    EXPECT_EQ(m.Calls("CreateFileA").size(), 4u) << "one probe per line";
}

// --- disk serial number ---

TEST(SerialText, ExtractSerial) {
    EXPECT_EQ(drives::ExtractSerial(Ctl::lblWMIDeviceID, "USBSTOR\\DISK&VEN_ACME&PROD_STICK&REV_1.00\\0123456789AB&0"),
              "0123456789AB 0");
    EXPECT_EQ(drives::ExtractSerial(Ctl::lblWMIDeviceID, "SCSI\\DISK&VEN_X\\5&2A2D7E0&0&0.0.0"), "5 2A2D7E0 0 0.0.0");
    EXPECT_EQ(drives::ExtractSerial(Ctl::lblWMIDeviceID, "X\\Y\\A&&B"), "A B");
    // Without "&" the whole last piece, untouched.
    EXPECT_EQ(drives::ExtractSerial(Ctl::lblWMIDeviceID, "USB\\VID_1\\ SERIAL42 "), " SERIAL42 ");
    EXPECT_EQ(drives::ExtractSerial(Ctl::lblWMIDeviceID, "X\\Y\\ A & &B "), "A  B");
}

struct Serial : Probe {
    void SetUp() override {
        m.AddDrive(MakeDrive("C:\\", platform::kDriveFixed, "System", 3, 0));
        m.AddDrive(MakeDrive("D:\\", platform::kDriveCdrom, "DISC", 2, 0));
        m.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK", 7, 1));
        m.AddDrive(MakeDrive("F:\\", platform::kDriveFixed, "DATA", 3, 0));
        m.hardware().AddDisk(
            {"System disk",
             "\\\\.\\PHYSICALDRIVE0",
             "SCSI\\DISK&VEN_NVME&PROD_SYS\\5&2A2D7E0&0&0.0.0",
             {{"Disk #0, Partition #0", {}}, {"Disk #0, Partition #1", {"C:"}}, {"Disk #0, Partition #2", {"F:"}}}});
        m.hardware().AddDisk({"Stick",
                              "\\\\.\\PHYSICALDRIVE1",
                              "USBSTOR\\DISK&VEN_ACME&PROD_STICK&REV_1.00\\0123456789AB&0",
                              {{"Disk #1, Partition #0", {"E:"}}}});
    }
};

TEST_F(Serial, FoundOnSecondDisk) {
    EXPECT_EQ(drives::GetSerialNumber(prog, Ctl::lblWMIDeviceID, "E:"), "0123456789AB 0");
    EXPECT_EQ(view.Text(Ctl::lblWMIDeviceID), "USBSTOR\\DISK&&VEN_ACME&&PROD_STICK&&REV_1.00\\0123456789AB&&0");
    // The walk passed every partition of the first disk before the second disk.
    const auto queries = m.Calls("ExecQuery");
    ASSERT_EQ(queries.size(), 1u + 2u + 3u + 1u);
    EXPECT_EQ(queries[0].args[0], "\"SELECT Caption, DeviceID, PNPDeviceID FROM Win32_DiskDrive\"");
    EXPECT_EQ(queries[5].args[0], "\"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\.\\PHYSICALDRIVE1'} WHERE "
                                  "AssocClass = Win32_DiskDriveToDiskPartition\"");
}

TEST_F(Serial, FoundThroughItsPartitionAndWalkStops) {
    EXPECT_EQ(drives::GetSerialNumber(prog, Ctl::lblWMIDeviceID, "F:"), "5 2A2D7E0 0 0.0.0");
    // Found on the first disk: the second disk's partitions are never asked for.
    for (const auto& q : m.Calls("ExecQuery")) EXPECT_EQ(q.args[0].find("PHYSICALDRIVE1"), std::string::npos);
}

TEST_F(Serial, NotFound) {
    for (const std::string drive : {"D:", "e:", "Q:"}) {
        view.SetText(Ctl::lblWMIDeviceID, "old");
        EXPECT_EQ(drives::GetPNPDeviceID(prog, Ctl::lblWMIDeviceID, drive), "") << drive;
        EXPECT_EQ(view.Text(Ctl::lblWMIDeviceID), "old") << "the label stays as it was";
        EXPECT_EQ(drives::GetSerialNumber(prog, Ctl::lblWMIDeviceID, drive), "none") << drive;
        EXPECT_EQ(view.Text(Ctl::lblWMIDeviceID), "None (not hard-disk or USB device)");
    }
    m.hardware().SetManagementReachable(false);
    EXPECT_EQ(drives::GetSerialNumber(prog, Ctl::lblWMIDeviceID, "E:"), "none");
}

// --- ejection ---

struct Eject : Probe {
    void AddStick(const std::string& root, std::uint32_t number, std::vector<std::uint32_t> answers = {},
                  std::uint32_t type = platform::kDriveRemovable) {
        builders::AddStick(m, {.root = root, .number = number, .answers = std::move(answers), .type = type});
    }
    void ExpectClean() {
        EXPECT_EQ(m.hardware().OpenHandles(), 0u);
        EXPECT_EQ(m.hardware().OpenSets(), 0u);
    }
};

TEST_F(Eject, AcceptedOnThirdAttemptEjectsTheParent) {
    fake::Device hub;
    hub.instanceId = "USB\\ROOT_HUB30\\4&1";
    m.hardware().AddDevice(hub);
    AddStick("E:\\", 1, {platform::kCrRemoveVetoed, platform::kCrRemoveVetoed, platform::kCrSuccess});
    const double before = m.Now();

    EXPECT_EQ(release::EjectUsbDrive(prog.sys, "\\\\.\\E:", app::kTrue), app::kTrue);

    EXPECT_NEAR(m.Now() - before, 0.6, 1e-9); // two pauses, nothing else costs time
    const auto requests = m.Calls("CM_Request_Device_EjectW");
    ASSERT_EQ(requests.size(), 3u);
    for (const auto& r : requests) {
        EXPECT_EQ(r.args[0], "USB\\VID_0781&PID_5567\\SN1"); // the parent, not the disk
        EXPECT_EQ(r.args[1], "veto type");
    }
    EXPECT_EQ(requests[2].result, "CR_SUCCESS");
    EXPECT_EQ(m.Calls("Sleep").size(), 2u);
    EXPECT_FALSE(m.hardware().Present("USB\\VID_0781&PID_5567\\SN1"));
    EXPECT_TRUE(m.hardware().Present("USB\\ROOT_HUB30\\4&1"));
    EXPECT_EQ(m.FindDrive("E:"), nullptr); // the volume went with the device
    ExpectClean();
}

TEST_F(Eject, FourRefusalsWithVetoNameForm) {
    AddStick("E:\\", 1, {platform::kCrRemoveVetoed});
    const double before = m.Now();
    EXPECT_EQ(release::EjectUsbDrive(prog.sys, "\\\\.\\E:", app::kFalse), app::kFalse);
    EXPECT_NEAR(m.Now() - before, 1.2, 1e-9);
    const auto requests = m.Calls("CM_Request_Device_EjectW");
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].args[1], "veto name 260");
    EXPECT_EQ(m.Calls("Sleep").size(), 4u);
    EXPECT_NE(m.FindDrive("E:"), nullptr);
    ExpectClean();
}

TEST_F(Eject, NoRequestWithoutDeviceOrClass) {
    AddStick("E:\\", 1);
    m.FindDrive("E:")->deviceNumber.reset(); // a substituted drive: no device number
    AddStick("G:\\", 3);
    m.FindDrive("G:")->openable = false;
    AddStick("R:\\", 4, {}, platform::kDriveRamdisk);
    AddStick("N:\\", 5, {}, platform::kDriveRemote);
    AddStick("K:\\", 6);
    m.FindDrive("K:")->deviceNumber = 42; // no interface reports 42
    AddStick("M:\\", 0xFFFFFFFF);         // -1 is no device number, even where a disk reports it too

    for (const char* volume :
         {"\\\\.\\E:", "\\\\.\\G:", "\\\\.\\R:", "\\\\.\\N:", "\\\\.\\K:", "\\\\.\\M:", "\\\\.\\Q:"})
        EXPECT_EQ(release::EjectUsbDrive(prog.sys, volume, app::kTrue), app::kFalse) << volume;
    EXPECT_TRUE(m.Calls("CM_Request_Device_EjectW").empty());
    // Only K: got as far as the interface search: the others have no device
    // number, no volume, or a drive type without an interface class.
    EXPECT_EQ(m.Calls("SetupDiGetClassDevsA").size(), 1u);
    ExpectClean();
}

TEST_F(Eject, ClassFollowsDriveTypeAndFloppyName) {
    auto floppy = MakeDrive("A:\\", platform::kDriveRemovable, "", std::nullopt, 0);
    floppy.dosDevice = "\\Device\\Floppy0";
    m.AddDrive(floppy);
    auto lsFloppy = MakeDrive("B:\\", platform::kDriveRemovable, "", std::nullopt, 0);
    lsFloppy.dosDevice = "\\Device\\floppy1"; // the search is case-sensitive
    m.AddDrive(lsFloppy);
    m.AddDrive(MakeDrive("C:\\", platform::kDriveFixed, "", 3, 0));
    m.AddDrive(MakeDrive("D:\\", platform::kDriveCdrom, "", 2, 0));
    for (const std::string volume : {"A:", "B:", "C:", "D:"}) {
        m.ClearJournal();
        release::EjectUsbDrive(prog.sys, "\\\\.\\" + volume, app::kTrue);
        const auto sets = m.Calls("SetupDiGetClassDevsA");
        ASSERT_EQ(sets.size(), 1u) << volume;
        const std::string expected = volume == "A:"   ? "GUID_DEVINTERFACE_FLOPPY"
                                     : volume == "D:" ? "GUID_DEVINTERFACE_CDROM"
                                                      : "GUID_DEVINTERFACE_DISK";
        EXPECT_EQ(sets[0].args[0], expected) << volume;
        EXPECT_EQ(sets[0].args[1], "18");
    }
    ExpectClean();
}

TEST_F(Eject, FirstOfTwoInterfacesWithOneNumberWins) {
    m.AddDrive(MakeDrive("E:\\", platform::kDriveRemovable, "STICK", 7, 2));
    // A card reader with a disk of number 1 (its partition differs), then two
    // disks that both report number 2, one whose interface will not open.
    for (const auto& [id, number, openable] : std::vector<std::tuple<std::string, std::uint32_t, bool>>{
             {"READER", 1, true}, {"GHOST", 2, false}, {"FIRST", 2, true}, {"SECOND", 2, true}}) {
        fake::Device parent;
        parent.instanceId = "USB\\" + id;
        m.hardware().AddDevice(parent);
        fake::Device disk;
        disk.instanceId = "USBSTOR\\" + id;
        disk.parent = parent.instanceId;
        disk.interfaceClass = platform::kGuidDevinterfaceDisk;
        disk.deviceNumber = number;
        disk.openable = openable;
        m.hardware().AddDevice(disk);
    }
    EXPECT_EQ(release::FindDeviceInstance(prog.sys, 2, platform::kDriveRemovable, "\\Device\\HarddiskVolume3"),
              m.hardware().InstanceOf("USBSTOR\\FIRST"));
    EXPECT_EQ(release::EjectUsbDrive(prog.sys, "\\\\.\\E:", app::kTrue), app::kTrue);
    EXPECT_FALSE(m.hardware().Present("USB\\FIRST"));
    EXPECT_TRUE(m.hardware().Present("USB\\SECOND"));
    ExpectClean();
}

} // namespace
