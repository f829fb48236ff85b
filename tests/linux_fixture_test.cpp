// The Linux backend on fixture trees: mount tables with escapes, network
// mounts and bind mounts, and a sysfs tree with a SATA disk, an optical
// drive, a USB stick and a USB card reader with two slots. The contract
// tests ask the same questions of the simulated machine and of the Linux
// backend on the fixture, and expect the same answers.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include <unistd.h>

#include "core/program.h"
#include "drives/modGetDriveSerialNumber.h"
#include "drives/modGetDriveType.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "platform/linux/system.h"
#include "release/modRemoveUsbDrive.h"

namespace {

const std::string kFixtures = std::string(KESTRINE_SOURCE_DIR) + "/tests/fixtures/linux";
const std::string kStickId = "USBSTOR\\DISK&VEN_SanDisk&PROD_Cruzer_Blade&REV_1.00\\4C530001230516104323&0";
const std::string kReaderId = "USBSTOR\\DISK&VEN_Generic-&PROD_SD/MMC&REV_1.00\\20060413092100000&0";

linuxbk::System::Options FixtureOptions(const std::string& mountinfo) {
    linuxbk::System::Options o;
    o.sysRoot = kFixtures + "/sys";
    o.mountInfo = kFixtures + "/" + mountinfo;
    o.events = false;
    o.useUdisks = false;
    return o;
}

TEST(LinuxMountInfo, ParsesEscapesOptionalFieldsAndSkipsBrokenLines) {
    const auto text = linuxbk::ReadFile(kFixtures + "/mountinfo-escapes");
    ASSERT_TRUE(text.has_value());
    const auto mounts = linuxbk::ParseMountInfo(*text);
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[1].mountPoint, "/media/back\\slash\nline");
    EXPECT_EQ(mounts[1].root, "/a\\b");
    EXPECT_EQ(mounts[1].major, 8u);
    EXPECT_EQ(mounts[1].minor, 17u);
    EXPECT_EQ(mounts[2].fsType, "exfat"); // three optional fields before the separator
    EXPECT_EQ(mounts[2].source, "/dev/sdc1");
    EXPECT_EQ(linuxbk::UnescapeMount("a\\040b\\011c\\999"), "a b\tc\\999");
}

TEST(LinuxMountInfo, NetworkSharesGetWindowsNames) {
    EXPECT_EQ(linuxbk::ShareNameOf("nfs4", "fileserver:/export/home"), "\\\\fileserver\\export\\home");
    EXPECT_EQ(linuxbk::ShareNameOf("cifs", "//nas/public"), "\\\\nas\\public");
    EXPECT_EQ(linuxbk::ShareNameOf("fuse.sshfs", "me@host:/srv"), "\\\\host\\srv");
    EXPECT_EQ(linuxbk::ShareNameOf("ext4", "/dev/sda1"), "");
    EXPECT_TRUE(linuxbk::IsNetworkFileSystem("9p"));
    EXPECT_TRUE(linuxbk::IsNetworkFileSystem("smb3"));
    EXPECT_FALSE(linuxbk::IsNetworkFileSystem("fuseblk"));
}

TEST(LinuxSysfs, DisksBusesAndUsbIdentity) {
    linuxbk::Sysfs sys(kFixtures + "/sys");
    const auto part = sys.ByNumber(8, 17);
    ASSERT_TRUE(part.has_value());
    EXPECT_EQ(part->name, "sdb1");
    EXPECT_EQ(part->diskName, "sdb");
    EXPECT_EQ(part->partition, 1u);
    EXPECT_EQ(part->devNode, "/dev/sdb1");

    const auto stick = sys.Disk("sdb");
    ASSERT_TRUE(stick.has_value());
    EXPECT_EQ(stick->busType, linuxbk::bus::kUsb);
    EXPECT_TRUE(stick->removable);
    EXPECT_TRUE(stick->usbDevice.ends_with("/usb1/1-5")) << stick->usbDevice;
    EXPECT_EQ(stick->vendor, "SanDisk");
    EXPECT_EQ(stick->model, "Cruzer Blade");
    EXPECT_EQ(stick->serial, "4C530001230516104323"); // the USB device's, not the SCSI one's
    EXPECT_EQ(linuxbk::Sysfs::PnpDeviceId(*stick), kStickId);
    EXPECT_EQ(linuxbk::Sysfs::Caption(*stick), "SanDisk Cruzer Blade USB Device");

    const auto sata = sys.Disk("sda");
    ASSERT_TRUE(sata.has_value());
    EXPECT_EQ(sata->busType, linuxbk::bus::kSata);
    EXPECT_TRUE(sata->usbDevice.empty());
    EXPECT_EQ(sata->sizeBytes, 1953525168ull * 512);
    EXPECT_EQ(linuxbk::DriveTypeOfDisk(*sata), platform::kDriveFixed);
    EXPECT_EQ(sys.Partitions("sda").size(), 2u);

    const auto dvd = sys.Disk("sr0");
    ASSERT_TRUE(dvd.has_value());
    EXPECT_EQ(dvd->kind, linuxbk::DiskKind::CdRom);
    EXPECT_EQ(linuxbk::DriveTypeOfDisk(*dvd), platform::kDriveCdrom);

    // Both slots of the card reader hang below the same USB device, LUN 0 and 1.
    const auto slot0 = sys.Disk("sdc"), slot1 = sys.Disk("sdd");
    ASSERT_TRUE(slot0 && slot1);
    EXPECT_EQ(slot0->usbDevice, slot1->usbDevice);
    EXPECT_EQ(slot1->lun, 1u);
    EXPECT_EQ(linuxbk::Sysfs::PnpDeviceId(*slot1),
              "USBSTOR\\DISK&VEN_Generic-&PROD_MS/MS-Pro&REV_1.00\\20060413092100000&1");
    EXPECT_FALSE(sys.Disk("sdb1").has_value()) << "a partition is no whole disk";
}

TEST(LinuxLetterMap, LettersTypesAndPaths) {
    linuxbk::System sys(FixtureOptions("mountinfo-plugged"));
    auto& map = sys.Map();
    std::string letters;
    for (const auto& d : map.Drives()) letters += d.letter;
    EXPECT_EQ(letters, "CDEFGHI"); // EFI partition, tmpfs, squashfs and the bind mount get none

    EXPECT_EQ(map.Find('c')->devNode, "/dev/sda2");
    EXPECT_EQ(map.Find('D')->mountPoint, "/media/me/Cruzer Blade");
    EXPECT_EQ(map.Find('E')->mountPoint, "/media/me/SD card\ttab");
    EXPECT_EQ(map.Find('F')->fsType, "nfs4");
    EXPECT_EQ(map.Find('H')->shareName, "\\\\host\\srv");
    EXPECT_FALSE(map.Find('I')->Ready()) << "an empty optical drive is listed, not ready";
    EXPECT_EQ(map.Find('J'), nullptr);

    EXPECT_EQ(map.ToNative("d:\\docs\\a.txt").value_or(""), "/media/me/Cruzer Blade/docs/a.txt");
    EXPECT_EQ(map.ToNative("D:\\").value_or(""), "/media/me/Cruzer Blade");
    EXPECT_EQ(map.ToNative("C:\\etc\\fstab").value_or(""), "/etc/fstab");
    EXPECT_EQ(map.ToNative("C:\\").value_or(""), "/");
    EXPECT_FALSE(map.ToNative("I:\\x").has_value());
    EXPECT_EQ(map.ToWindows("/media/me/Cruzer Blade/docs/a.txt").value_or(""), "D:\\docs\\a.txt");
    EXPECT_EQ(map.ToWindows("/media/me/Cruzer BladeX").value_or(""), "C:\\media\\me\\Cruzer BladeX");
    EXPECT_EQ(map.ToWindows("/home/me/remote").value_or(""), "H:\\");
}

TEST(LinuxLetterMap, LettersAreKeptWhileDrivesStayAndFreedLetterIsReused) {
    linuxbk::LetterMap map(linuxbk::Sysfs(kFixtures + "/sys"), kFixtures + "/mountinfo-plugged");
    const auto read = [](const std::string& name) {
        return linuxbk::ParseMountInfo(linuxbk::ReadFile(kFixtures + "/" + name).value_or(""));
    };
    ASSERT_EQ(map.Find('D')->key, "/dev/sdb1");
    map.Build(read("mountinfo-unplugged"));
    EXPECT_EQ(map.Find('D'), nullptr) << "the stick's letter is free";
    EXPECT_EQ(map.Find('E')->key, "/dev/sdc1") << "the card keeps its letter";
    EXPECT_EQ(map.Find('I')->key, "/dev/sr0");
    map.Build(read("mountinfo-plugged"));
    EXPECT_EQ(map.Find('D')->key, "/dev/sdb1") << "the lowest free letter";
}

TEST(LinuxLetterMap, WhatSysfsSaysOfADeviceIsKeptOnlyUntilItsEventWhenEventsAreWatched) {
    // A copy of the fixture whose system disk turns removable between two builds.
    const auto root = std::filesystem::temp_directory_path() / ("kestrine-sysfs-" + std::to_string(::getpid()));
    std::filesystem::remove_all(root);
    std::filesystem::copy(kFixtures + "/sys", root,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
    const auto flag = root / "devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda/removable";
    const auto mounts = linuxbk::ParseMountInfo(linuxbk::ReadFile(kFixtures + "/mountinfo-plugged").value_or(""));
    const auto turnRemovable = [&] { std::ofstream(flag) << "1\n"; };
    {
        linuxbk::LetterMap map(linuxbk::Sysfs(root.string()), kFixtures + "/mountinfo-plugged");
        ASSERT_EQ(map.Find('C')->driveType, platform::kDriveFixed);
        turnRemovable();
        map.Build(mounts);
        EXPECT_EQ(map.Find('C')->driveType, platform::kDriveRemovable) << "nobody watches: every build reads sysfs";
    }
    std::ofstream(flag) << "0\n";
    {
        linuxbk::LetterMap map(linuxbk::Sysfs(root.string()), kFixtures + "/mountinfo-plugged");
        map.KeepDevices(true);
        map.Build(mounts);
        ASSERT_FALSE(map.BusDisk("sda")->removable);
        turnRemovable();
        map.Build(mounts);
        EXPECT_EQ(map.Find('C')->driveType, platform::kDriveFixed) << "kept: no event said the disk changed";
        EXPECT_FALSE(map.BusDisk("sda")->removable) << "what the storage driver answers is kept too";
        map.ForgetDevice(8, 16, "sdb"); // another disk's event
        map.Build(mounts);
        EXPECT_EQ(map.Find('C')->driveType, platform::kDriveFixed);
        EXPECT_FALSE(map.BusDisk("sda")->removable);
        map.ForgetDevice(8, 0, "sda"); // the disk's own event reaches its partitions
        map.Build(mounts);
        EXPECT_EQ(map.Find('C')->driveType, platform::kDriveRemovable);
        EXPECT_TRUE(map.BusDisk("sda")->removable);
        std::ofstream(flag) << "0\n";
        map.KeepDevices(false);
        map.Build(mounts);
        EXPECT_EQ(map.Find('C')->driveType, platform::kDriveFixed) << "no longer kept once nobody watches";
    }
    std::filesystem::remove_all(root);
}

// --- the contract: the same questions to both backends ---

struct Backend {
    std::string name;
    platform::Services* services = nullptr;
    std::function<bool(platform::DevInst)> isStickDevice; // the parent of the stick's disk
    std::function<bool(platform::DevInst)> isReaderDevice;
};

class FakeBackend {
public:
    FakeBackend() {
        using platform::kDriveCdrom, platform::kDriveFixed, platform::kDriveRemovable, platform::kDriveRemote;
        auto drive = [](std::string root, std::uint32_t type, std::optional<std::uint32_t> bus,
                        std::optional<std::uint32_t> number) {
            fake::Drive d;
            d.root = std::move(root);
            d.type = type;
            d.bus = bus;
            d.deviceNumber = number;
            return d;
        };
        machine.AddDrive(drive("C:\\", kDriveFixed, 0xB, 0));
        machine.AddDrive(drive("D:\\", kDriveRemovable, 7, 1));
        machine.AddDrive(drive("E:\\", kDriveRemovable, 7, 2));
        for (const char* r : {"F:\\", "G:\\", "H:\\"})
            machine.AddDrive(drive(r, kDriveRemote, std::nullopt, std::nullopt));
        machine.FindDrive("F")->shareName = "\\\\fileserver\\export\\home";
        auto dvd = drive("I:\\", kDriveCdrom, 0xB, 0);
        dvd.ready = false;
        machine.AddDrive(dvd);
        auto& hw = machine.hardware();
        const std::string stick = "USB\\VID_0781&PID_5567\\4C530001230516104323";
        const std::string reader = "USB\\VID_0BDA&PID_0158\\20060413092100000";
        hw.AddDevice({stick, "", std::nullopt, "", std::nullopt, true, {}});
        hw.AddDevice({reader, "", std::nullopt, "", std::nullopt, true, {}});
        hw.AddDevice({"SCSI\\DISK&VEN_ATA&PROD_SAMSUNG\\4&0&0", "", platform::kGuidDevinterfaceDisk, "", 0, true, {}});
        hw.AddDevice({kStickId, stick, platform::kGuidDevinterfaceDisk, "", 1, true, {}});
        hw.AddDevice({kReaderId, reader, platform::kGuidDevinterfaceDisk, "", 2, true, {}});
        hw.AddDisk({"SanDisk Cruzer Blade USB Device",
                    "\\\\.\\PHYSICALDRIVE1",
                    kStickId,
                    {{"Disk #1, Partition #0", {"D:"}}}});
        hw.AddDisk(
            {"Generic- SD/MMC USB Device", "\\\\.\\PHYSICALDRIVE2", kReaderId, {{"Disk #2, Partition #0", {"E:"}}}});
        services = std::make_unique<platform::Services>(machine.services());
        stickDevice = hw.InstanceOf(stick);
        readerDevice = hw.InstanceOf(reader);
    }
    fake::Machine machine;
    std::unique_ptr<platform::Services> services;
    platform::DevInst stickDevice = 0, readerDevice = 0;
};

class LinuxContractTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (GetParam() == "fake") {
            fakeBackend = std::make_unique<FakeBackend>();
            backend = {"fake", fakeBackend->services.get(),
                       [this](platform::DevInst d) { return d == fakeBackend->stickDevice; },
                       [this](platform::DevInst d) { return d == fakeBackend->readerDevice; }};
        } else {
            linuxBackend = std::make_unique<linuxbk::System>(FixtureOptions("mountinfo-plugged"));
            linuxServices = std::make_unique<platform::Services>(linuxBackend->Services());
            auto pathIs = [this](platform::DevInst d, const char* end) {
                return linuxBackend->Devices().PathOf(d).ends_with(end);
            };
            backend = {"linux", linuxServices.get(), [=](platform::DevInst d) { return pathIs(d, "/usb1/1-5"); },
                       [=](platform::DevInst d) { return pathIs(d, "/usb1/1-6"); }};
        }
        program = std::make_unique<app::Program>(*backend.services, view);
    }
    platform::Services& sys() { return *backend.services; }

    Backend backend;
    std::unique_ptr<FakeBackend> fakeBackend;
    std::unique_ptr<linuxbk::System> linuxBackend;
    std::unique_ptr<platform::Services> linuxServices;
    fake::HeadlessView view;
    std::unique_ptr<app::Program> program;
};

TEST_P(LinuxContractTest, DriveStringsWithTheirBufferRules) {
    const std::string expected("C:\\\0D:\\\0E:\\\0F:\\\0G:\\\0H:\\\0I:\\\0\0", 29);
    std::array<char, 64> big{};
    EXPECT_EQ(sys().volumes.GetLogicalDriveStringsA(big), 28u);
    EXPECT_EQ(std::string(big.data(), 29), expected);
    std::array<char, 28> small{};
    small.fill('x');
    EXPECT_EQ(sys().volumes.GetLogicalDriveStringsA(small), 29u) << "too small: the size needed";
    EXPECT_EQ(small[0], 'x') << "and the buffer untouched";
}

TEST_P(LinuxContractTest, DriveTypesAndScriptingDrives) {
    auto& v = sys().volumes;
    EXPECT_EQ(v.GetDriveTypeA("C:\\"), platform::kDriveFixed);
    EXPECT_EQ(v.GetDriveTypeA("D:\\"), platform::kDriveRemovable);
    EXPECT_EQ(v.GetDriveTypeA("e:"), platform::kDriveRemovable);
    EXPECT_EQ(v.GetDriveTypeA("G:\\"), platform::kDriveRemote);
    EXPECT_EQ(v.GetDriveTypeA("I:\\"), platform::kDriveCdrom);
    EXPECT_EQ(v.GetDriveTypeA("Q:\\"), platform::kDriveNoRootDir);
    const auto f = sys().fso.GetDrive("F:\\");
    ASSERT_TRUE(f.has_value());
    EXPECT_EQ(f->DriveType, platform::kFsoNetwork);
    EXPECT_EQ(f->ShareName, "\\\\fileserver\\export\\home");
    const auto dvd = sys().fso.GetDrive("I");
    ASSERT_TRUE(dvd.has_value());
    EXPECT_FALSE(dvd->IsReady);
    EXPECT_FALSE(dvd->VolumeName.has_value());
    EXPECT_FALSE(sys().fso.GetDrive("Q:").has_value());
    EXPECT_EQ(sys().fso.Drives().size(), 7u);
}

TEST_P(LinuxContractTest, BusProbeAndDiskIdentity) {
    EXPECT_EQ(drives::GetBusType(program->sys, "D:"), "Usb");
    EXPECT_EQ(drives::GetBusType(program->sys, "E:"), "Usb");
    EXPECT_EQ(drives::GetBusType(program->sys, "C:"), "") << "SATA has no name in the program's table";
    EXPECT_EQ(drives::GetBusType(program->sys, "F:"), "") << "a network drive has no storage driver";
    EXPECT_EQ(drives::GetPNPDeviceID(*program, app::Ctl::lblMessage1, "D:"), kStickId);
    EXPECT_EQ(drives::GetPNPDeviceID(*program, app::Ctl::lblMessage1, "E:"), kReaderId);
    EXPECT_EQ(drives::GetPNPDeviceID(*program, app::Ctl::lblMessage1, "F:"), "");
}

TEST_P(LinuxContractTest, TheStickDiskAndItsUsbParent) {
    auto& storage = sys().storage;
    const platform::Handle h = storage.CreateFileA("\\\\.\\D:", 0, 3, platform::kOpenExisting, 0);
    ASSERT_NE(h, platform::kInvalidHandleValue);
    std::array<std::uint8_t, platform::kStorageDeviceNumberSize> number{};
    std::uint32_t bytes = 0;
    ASSERT_TRUE(storage.DeviceIoControl(h, platform::kIoctlStorageGetDeviceNumber, {}, number, bytes));
    storage.CloseHandle(h);
    const std::uint32_t deviceNumber = number[4] | number[5] << 8 | number[6] << 16 | number[7] << 24;
    EXPECT_EQ(number[0], platform::kFileDeviceDisk);

    std::array<char, 260> dos{};
    ASSERT_GT(storage.QueryDosDeviceA("D:", dos), 0u);
    const platform::DevInst disk =
        release::FindDeviceInstance(program->sys, deviceNumber, platform::kDriveRemovable, dos.data());
    ASSERT_NE(disk, 0u);
    platform::DevInst parent = 0;
    ASSERT_EQ(sys().devices.CM_Get_Parent(parent, disk, 0), platform::kCrSuccess);
    EXPECT_TRUE(backend.isStickDevice(parent));
    EXPECT_FALSE(backend.isReaderDevice(parent));
    EXPECT_EQ(release::FindDeviceInstance(program->sys, deviceNumber, platform::kDriveRemote, dos.data()), 0u);
    EXPECT_EQ(storage.CreateFileA("\\\\.\\Q:", 0, 3, platform::kOpenExisting, 0), platform::kInvalidHandleValue);
}

INSTANTIATE_TEST_SUITE_P(FakeAndLinux, LinuxContractTest, ::testing::Values("fake", "linux"),
                         [](const auto& info) { return info.param; });

} // namespace
