// The Linux backend on real drives: loop devices with ext4 file systems,
// mounted in a temporary folder. These tests need root (they attach loop
// devices and mount); elsewhere they are skipped with the reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <span>
#include <sys/mount.h>
#include <unistd.h>

#include "core/program.h"
#include "drives/modGetDriveSerialNumber.h"
#include "drives/modGetDriveType.h"
#include "linux_test_support.h"
#include "platform/fake/headless_view.h"
#include "platform/linux/flush.h"
#include "platform/linux/system.h"
#include "platform/linux/volume_id.h"
#include "release/modLockFileInfo.h"

namespace {

using linuxbk::DriveRecord;
using linuxbk::System;
using linuxtest::LoopDrives;

System::Options Quiet() {
    System::Options o;
    o.events = false;
    return o;
}

// Events from the mount table and the drives' folders, without udev; loop
// drives are fixed, so they are watched like removable ones.
linuxbk::EventSources::Options MountTableOnly() {
    linuxbk::EventSources::Options options;
    options.udev = false;
    options.allDrives = true;
    return options;
}

const DriveRecord* DriveAt(System& sys, const std::string& mountPoint) {
    for (const auto& d : sys.Map().Drives())
        if (d.mountPoint == mountPoint) return &d;
    return nullptr;
}

std::uint64_t Le64(const std::array<std::uint8_t, 8>& b) {
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = v << 8 | b[static_cast<std::size_t>(i)];
    return v;
}

TEST(LinuxLoopDrives, ListsLettersLabelsSizesAndIdentity) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("KESTRINE A", true, 32);
    auto* b = loops.Add("KSTB", true, 16);
    ASSERT_TRUE(a && b) << "could not make the loop drives";

    System sys(Quiet());
    const DriveRecord* da = DriveAt(sys, a->mountPoint); // the mount point has a space: "\040" in the table
    const DriveRecord* db = DriveAt(sys, b->mountPoint);
    ASSERT_NE(da, nullptr);
    ASSERT_NE(db, nullptr);
    const char la = da->letter, lb = db->letter;
    EXPECT_GE(la, 'D');
    EXPECT_NE(la, lb);
    auto services = sys.Services();

    // Both roots are in the drive strings, C:\ first.
    std::array<char, 128> strings{};
    const auto n = services.volumes.GetLogicalDriveStringsA(strings);
    ASSERT_GT(n, 0u);
    ASSERT_LT(n, strings.size());
    const std::string all(strings.data(), n);
    EXPECT_EQ(all.substr(0, 4), std::string("C:\\\0", 4));
    EXPECT_NE(all.find(std::string(1, la) + ":\\"), std::string::npos);
    EXPECT_NE(all.find(std::string(1, lb) + ":\\"), std::string::npos);

    const std::string ra = std::string(1, la) + ":\\";
    EXPECT_EQ(services.volumes.GetDriveTypeA(ra), platform::kDriveFixed); // loop devices are not removable

    std::array<char, 32> label{}, fileSystem{};
    std::uint32_t serial = 0, maxName = 0, flags = 0;
    ASSERT_TRUE(services.volumes.GetVolumeInformationA(ra, label, serial, maxName, flags, fileSystem));
    EXPECT_STREQ(label.data(), "KESTRINE A");
    EXPECT_STREQ(fileSystem.data(), "ext4");
    EXPECT_EQ(maxName, 255u);
    EXPECT_NE(serial, 0u); // from the file system's UUID
    EXPECT_EQ(services.volumes.Dir(ra, platform::kAttrVolume), "KESTRINE A");
    const auto drive = services.fso.GetDrive(std::string(1, la));
    ASSERT_TRUE(drive.has_value());
    EXPECT_TRUE(drive->IsReady);
    EXPECT_EQ(drive->VolumeName.value_or("?"), "KESTRINE A");
    EXPECT_EQ(drive->DriveType, platform::kFsoFixed);

    std::array<std::uint8_t, 8> avail{}, total{}, totalFree{};
    ASSERT_TRUE(services.volumes.GetDiskFreeSpaceExA(ra, avail, total, totalFree));
    EXPECT_GT(Le64(total), 20ull << 20); // a 32 MB image, less what ext4 keeps for itself
    EXPECT_LE(Le64(total), 32ull << 20);
    EXPECT_LE(Le64(avail), Le64(totalFree));
    EXPECT_LE(Le64(totalFree), Le64(total));

    // The DOS device is the device node; the storage driver says "file-backed virtual".
    std::array<char, 64> dos{};
    ASSERT_GT(services.storage.QueryDosDeviceA(std::string(1, la) + ":", dos), 0u);
    EXPECT_EQ(std::string(dos.data()), a->device);
    const platform::Handle h = services.storage.CreateFileA("\\\\.\\" + std::string(1, la) + ":",
                                                            platform::kGenericRead, 3, platform::kOpenExisting, 0);
    ASSERT_NE(h, platform::kInvalidHandleValue);
    drives::StorageDescriptor descriptor{};
    std::array<std::uint8_t, platform::kStoragePropertyQuerySize> query{};
    std::uint32_t bytes = 0;
    ASSERT_TRUE(services.storage.DeviceIoControl(h, platform::kIoctlStorageQueryProperty, query, descriptor, bytes));
    EXPECT_EQ(descriptor[platform::kDescriptorBusTypeOffset], linuxbk::bus::kFileBackedVirtual);
    EXPECT_TRUE(services.storage.CloseHandle(h));

    // A file written through the Windows-form path lands in the mount, and a search finds it.
    const std::string file = a->mountPoint + "/Notes.TXT";
    {
        std::FILE* f = std::fopen(file.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("x", f);
        std::fclose(f);
    }
    EXPECT_EQ(services.volumes.GetFileAttributesA(ra + "notes.txt"),
              platform::kInvalidFileAttributes); // names keep their case
    EXPECT_EQ(services.volumes.GetFileAttributesA(ra + "Notes.TXT"), platform::kAttrArchive);
    platform::FindData found;
    const platform::Handle search = services.volumes.FindFirstFileA(ra + "*.txt", found);
    ASSERT_NE(search, platform::kInvalidHandleValue);
    EXPECT_STREQ(found.cFileName.data(), "Notes.TXT");
    EXPECT_EQ(found.nFileSize, 1u);
    services.volumes.FindClose(search);

    // The management service names the loop disk and the letter on it.
    fake::HeadlessView view;
    app::Program prog(services, view);
    const std::string pnp = drives::GetPNPDeviceID(prog, app::Ctl::lblMessage1, std::string(1, la) + ":");
    EXPECT_TRUE(pnp.starts_with("SCSI\\DISK&VEN_&PROD_Loop_device")) << pnp;
    EXPECT_NE(pnp.find(a->device.substr(5)), std::string::npos) << pnp;
}

TEST(LinuxLoopDrives, ClosingTheOwnHandlesLetsTheUnmountSucceed) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("HELD OPEN");
    ASSERT_TRUE(a);
    System sys(Quiet());
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::string drive = std::string(1, d->letter) + ":";
    auto services = sys.Services();

    const int held = ::open((a->mountPoint + "/held.txt").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
    const int outside = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    ASSERT_GE(outside, 0);
    EXPECT_EQ(sys.Handles().DeviceFormName(held), a->device + "\\held.txt");

    ASSERT_NE(::umount2(a->mountPoint.c_str(), 0), 0);
    EXPECT_EQ(errno, EBUSY);

    fake::HeadlessView view;
    app::Program prog(services, view);
    EXPECT_TRUE(release::CloseDriveHandles(prog.sys, drive, services.native.GetCurrentProcessId()));
    const bool closed = ::fcntl(held, F_GETFD) == -1;
    EXPECT_TRUE(closed) << "the handle on the drive is closed";
    EXPECT_NE(::fcntl(outside, F_GETFD), -1) << "a handle elsewhere stays open";
    ::close(outside);
    // Whatever happened, the drive must come down when the test ends.
    if (!closed) ::close(held);

    EXPECT_EQ(::umount2(a->mountPoint.c_str(), 0), 0) << std::strerror(errno);
    a->mountPoint.clear();
}

TEST(LinuxLoopDrives, HandleTableAndTimedFileType) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    System sys(Quiet());
    auto services = sys.Services();
    const platform::Handle nul =
        services.storage.CreateFileA("NUL", platform::kGenericRead, 0, platform::kOpenExisting, 0);
    ASSERT_NE(nul, platform::kInvalidHandleValue);

    // The table grows from one byte: the first answer is "too small" with the size needed.
    std::vector<std::uint8_t> one(1);
    std::uint32_t needed = 0;
    EXPECT_EQ(services.native.NtQuerySystemInformation(platform::kSystemHandleInformation, one, needed),
              platform::kStatusInfoLengthMismatch);
    ASSERT_GT(needed, platform::handle_table::kEntries);
    // The answer to the larger buffer is the table read for the small one,
    // not a second listing of every process: a descriptor opened in between
    // is not in it, and is in the next query's.
    const int late = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(late, 0);
    namespace t = platform::handle_table;
    const auto own = static_cast<std::uint16_t>(::getpid() & 0xFFFF);
    auto query = [&](std::uint8_t& nulType) {
        std::vector<std::uint8_t> table(needed * 2 + 4096);
        std::set<std::uint16_t> handles;
        if (services.native.NtQuerySystemInformation(platform::kSystemHandleInformation, table, needed) !=
            platform::kStatusSuccess)
            return handles;
        const std::uint32_t count = table[0] | table[1] << 8 | table[2] << 16 | table[3] << 24;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint8_t* e = table.data() + t::kEntries + i * t::kEntrySize;
            const std::uint16_t pid = static_cast<std::uint16_t>(e[0] | e[1] << 8);
            const std::uint16_t handle = static_cast<std::uint16_t>(e[6] | e[7] << 8);
            if (pid != own) continue;
            handles.insert(handle);
            if (handle == nul) nulType = e[t::kObjectTypeIndex];
        }
        return handles;
    };
    std::uint8_t nulType = 0;
    const auto first = query(nulType);
    EXPECT_EQ(first.count(static_cast<std::uint16_t>(nul)), 1u) << "the own NUL handle is in the table";
    EXPECT_EQ(nulType, linuxbk::LinuxHandles::kFileTypeIndex);
    EXPECT_EQ(first.count(static_cast<std::uint16_t>(late)), 0u);
    EXPECT_EQ(query(nulType).count(static_cast<std::uint16_t>(late)), 1u);
    ::close(late);

    std::uint32_t type = 0;
    EXPECT_EQ(services.native.GetFileTypeOnThread(nul, 100, type), platform::kWaitObject0);
    EXPECT_EQ(type, platform::kFileTypeChar);
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    EXPECT_EQ(services.native.GetFileTypeOnThread(pipe[0], 100, type), platform::kWaitObject0);
    EXPECT_EQ(type, platform::kFileTypePipe);
    ::close(pipe[0]);
    ::close(pipe[1]);

    // A copy in the own process; closing the source with the copy.
    platform::Handle process = 0;
    ASSERT_EQ(services.native.NtOpenProcess(process, platform::kProcessDupHandle,
                                            {static_cast<std::uintptr_t>(::getpid()), 0}),
              platform::kStatusSuccess);
    platform::Handle copy = 0;
    ASSERT_EQ(services.native.NtDuplicateObject(process, nul, services.native.GetCurrentProcess(), copy, 0, 0,
                                                platform::kDuplicateCloseSource),
              platform::kStatusSuccess);
    EXPECT_EQ(::fcntl(static_cast<int>(nul), F_GETFD), -1);
    EXPECT_EQ(services.native.NtClose(copy), platform::kStatusSuccess);
    EXPECT_EQ(services.native.NtClose(process), platform::kStatusSuccess);
    EXPECT_EQ(services.native.NtClose(copy), platform::kStatusInvalidHandle);
}

TEST(LinuxLoopDrives, ArrivalAndRemovalThroughTheMountTable) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("ARRIVING", false);
    ASSERT_TRUE(a);
    System sys(Quiet());
    linuxbk::EventSources events(sys.Map(), MountTableOnly());

    ASSERT_TRUE(loops.Mount(*a));
    auto got = events.Wait(2000);
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::string root = d->Root();
    // Other tests may mount their drives meanwhile: drive and file events are matched by this drive's root.
    const auto find = [&](linuxbk::SystemEvent::Kind k) {
        return std::find_if(got.begin(), got.end(), [&](const linuxbk::SystemEvent& e) {
            return e.kind == k && (e.path1.empty() || e.path1.starts_with(root));
        });
    };
    ASSERT_NE(find(linuxbk::SystemEvent::Kind::DriveAdded), got.end());
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::DriveAdded)->path1, root);
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::DriveAdded)->driveMask, 1u << (d->letter - 'A'));
    EXPECT_NE(find(linuxbk::SystemEvent::Kind::DeviceArrived), got.end());

    // Files on the drive: created, renamed, a folder made.
    {
        std::FILE* f = std::fopen((a->mountPoint + "/a.txt").c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fclose(f);
    }
    ASSERT_EQ(std::rename((a->mountPoint + "/a.txt").c_str(), (a->mountPoint + "/b.txt").c_str()), 0);
    std::filesystem::create_directory(a->mountPoint + "/docs");
    got = events.Wait(1000);
    ASSERT_NE(find(linuxbk::SystemEvent::Kind::Created), got.end());
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::Created)->path1, root + "a.txt");
    ASSERT_NE(find(linuxbk::SystemEvent::Kind::Renamed), got.end());
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::Renamed)->path2, root + "b.txt");
    ASSERT_NE(find(linuxbk::SystemEvent::Kind::FolderCreated), got.end());
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::FolderCreated)->path1, root + "docs");

    ASSERT_EQ(::umount2(a->mountPoint.c_str(), 0), 0);
    a->mountPoint.clear();
    got = events.Wait(2000);
    ASSERT_NE(find(linuxbk::SystemEvent::Kind::DriveRemoved), got.end());
    EXPECT_EQ(find(linuxbk::SystemEvent::Kind::DriveRemoved)->path1, root);
    EXPECT_NE(find(linuxbk::SystemEvent::Kind::DeviceRemoved), got.end());
}

// The shell stand-in's reports as a registered window receives them: the
// event code, and the display names of the two items.
struct ShellReports {
    struct Report {
        std::intptr_t code;
        std::string name1, name2;
    };
    System& sys;
    std::vector<Report> got;
    static constexpr platform::WindowHandle kWindow = 0x10010;

    explicit ShellReports(System& s) : sys(s) {
        sys.Console().SetOwnProcedure(
            [this](platform::WindowHandle, std::uint32_t m, std::uintptr_t wp, std::intptr_t lp) {
                if (m == platform::kWmShNotify) got.push_back({lp, nameAt(wp, 0), nameAt(wp, 1)});
                return std::intptr_t{0};
            });
        platform::Pidl desktop = 0;
        sys.Shell().SHGetSpecialFolderLocation(kWindow, platform::kCsidlDesktop, desktop);
        sys.Shell().SHChangeNotifyRegister(kWindow, 0xFF, 0x7FFFFFFF, platform::kWmShNotify, desktop, true);
    }
    std::string nameAt(std::uintptr_t record, int index) {
        std::uintptr_t items[2] = {};
        std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(items), sizeof items);
        if (!sys.Shell().CopyMemory(bytes, record) || items[index] == 0) return "-";
        std::array<std::uint8_t, 352> info{};
        if (sys.Shell().SHGetFileInfoA(items[index], 0, info, platform::kShgfiPidl | platform::kShgfiDisplayName) == 0)
            return "";
        return reinterpret_cast<const char*>(info.data() + 12);
    }
};

TEST(LinuxLoopDrives, ShellReportsNameDriveRootsAndFolderRenamesAsTheShellDoes) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("REPORTS", false);
    ASSERT_TRUE(a);
    System sys(Quiet());
    linuxbk::EventSources events(sys.Map(), MountTableOnly());
    ShellReports reports(sys);
    using Kind = linuxbk::SystemEvent::Kind;

    ASSERT_TRUE(loops.Mount(*a));
    auto got = events.Wait(2000);
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::string root = d->Root();
    const std::string letter = root.substr(0, 2);
    const auto mine = [&](Kind k) {
        return std::find_if(got.begin(), got.end(),
                            [&](const linuxbk::SystemEvent& e) { return e.kind == k && e.path1.starts_with(root); });
    };
    ASSERT_NE(mine(Kind::DriveAdded), got.end());
    sys.Deliver(ShellReports::kWindow, *mine(Kind::DriveAdded));
    ASSERT_EQ(reports.got.size(), 1u);
    EXPECT_EQ(reports.got[0].code, platform::kShcneDriveAdd);
    EXPECT_EQ(reports.got[0].name1, "REPORTS (" + letter + ")");

    // A folder renamed is reported as a folder's rename, a file's as an item's.
    std::filesystem::create_directory(a->mountPoint + "/docs");
    { std::ofstream(a->mountPoint + "/a.txt") << "x"; }
    events.Wait(1000);
    std::filesystem::rename(a->mountPoint + "/docs", a->mountPoint + "/papers");
    std::filesystem::rename(a->mountPoint + "/a.txt", a->mountPoint + "/b.txt");
    got = events.Wait(1000);
    ASSERT_NE(mine(Kind::FolderRenamed), got.end());
    EXPECT_EQ(mine(Kind::FolderRenamed)->path2, root + "papers");
    ASSERT_NE(mine(Kind::Renamed), got.end());
    EXPECT_EQ(mine(Kind::Renamed)->path2, root + "b.txt");
    reports.got.clear();
    sys.Deliver(ShellReports::kWindow, *mine(Kind::FolderRenamed));
    sys.Deliver(ShellReports::kWindow, *mine(Kind::Renamed));
    ASSERT_EQ(reports.got.size(), 2u);
    EXPECT_EQ(reports.got[0].code, platform::kShcneRenameFolder);
    EXPECT_EQ(reports.got[0].name1, "docs");
    EXPECT_EQ(reports.got[0].name2, "papers");
    EXPECT_EQ(reports.got[1].code, platform::kShcneRenameItem);
    EXPECT_EQ(reports.got[1].name2, "b.txt");
}

// The eject request without udisks2: unmount and detach directly, refused while busy.
TEST(LinuxLoopDrives, EjectWithoutUdisksIsRefusedWhileBusyAndDetachesWhenFree) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("EJECT ME");
    ASSERT_TRUE(a);
    System::Options o = Quiet();
    o.useUdisks = false;
    System sys(o);
    auto services = sys.Services();
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::string disk = d->block->diskName;
    const platform::DevInst device = sys.Devices().InstanceOf(d->block->diskPath);
    platform::DevInst parent = 0;
    ASSERT_EQ(services.devices.CM_Get_Parent(parent, device, 0), platform::kCrSuccess);

    const int held = ::open((a->mountPoint + "/busy").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
    ASSERT_GE(held, 0);
    std::int32_t vetoType = 0;
    EXPECT_EQ(services.devices.CM_Request_Device_EjectW(parent, &vetoType, {}, 0), platform::kCrRemoveVetoed);
    EXPECT_EQ(vetoType, linuxbk::kPnpVetoOutstandingOpen);
    EXPECT_EQ(sys.Devices().LastEject().veto, linuxbk::Veto::Busy);
    EXPECT_EQ(sys.Devices().LastEject().method, "direct");
    EXPECT_NE(DriveAt(sys, a->mountPoint), nullptr) << "a refused eject leaves the drive";
    ::close(held);

    std::array<char16_t, 260> veto{};
    EXPECT_EQ(services.devices.CM_Request_Device_EjectW(parent, nullptr, veto, 0), platform::kCrSuccess)
        << sys.Devices().LastEject().text;
    EXPECT_EQ(DriveAt(sys, a->mountPoint), nullptr);
    // A loop device someone else still has open (udev probing it) is detached at its last close.
    bool detached = false;
    for (int i = 0; i < 40 && !detached; ++i) {
        detached = linuxbk::ReadAttr("/sys/block/" + disk + "/loop/backing_file").empty();
        if (!detached) ::usleep(50000);
    }
    EXPECT_TRUE(detached) << "the loop device is detached";
    a->mountPoint.clear();
}

// Before a release, what the system still keeps in memory for the drive is
// written out, with progress from the system's own counters: the data
// written to a fresh file reaches the device, and the last report says so.
TEST(LinuxLoopDrives, CachedDataIsWrittenOutWithItsProgress) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("FLUSH ME", true, 64);
    ASSERT_TRUE(a);
    System sys(Quiet());
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::string root = d->Root();

    // Eight megabytes that nothing has written out yet.
    std::vector<char> block(1 << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 7919 % 251);
    const int fd = ::open((a->mountPoint + "/data").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    for (int i = 0; i < 8; ++i) ASSERT_EQ(::write(fd, block.data(), block.size()), static_cast<ssize_t>(block.size()));
    ::close(fd);

    std::vector<linuxbk::FlushProgress> seen;
    EXPECT_TRUE(linuxbk::FlushDevice(sys.Map(), root, [&](const linuxbk::FlushProgress& p) { seen.push_back(p); }));
    ASSERT_FALSE(seen.empty());
    EXPECT_TRUE(seen.back().done);
    EXPECT_EQ(std::count_if(seen.begin(), seen.end(), [](const auto& p) { return p.done; }), 1);
    EXPECT_GE(seen.back().bytesWritten, 8u << 20) << "the device's own count of what it wrote";
    if (!seen.back().systemWide) {
        EXPECT_EQ(seen.back().bytesLeft, 0u);
    }

    // A drive with no device to write to.
    EXPECT_FALSE(linuxbk::FlushDevice(sys.Map(), "Q:\\", {}));
}

// A mounted volume is identified once: asking again (the window's refills,
// kestrinectl's three looks at each drive) costs nothing, until the device
// is mounted anew or its change is reported; then the new label is seen.
TEST(LinuxLoopDrives, EachVolumeIsIdentifiedOncePerMount) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    auto* a = loops.Add("ONCE");
    ASSERT_TRUE(a);
    System sys(Quiet());
    auto services = sys.Services();
    const DriveRecord* d = DriveAt(sys, a->mountPoint);
    ASSERT_NE(d, nullptr);
    const std::uint32_t major = d->major, minor = d->minor;
    // Found by its mount point each time: mounted anew, it may get another letter.
    auto label = [&] {
        const DriveRecord* now = DriveAt(sys, a->mountPoint);
        if (now == nullptr) return std::string("no drive");
        const std::string root = now->Root();
        std::array<char, 32> name{}, fileSystem{};
        std::uint32_t serial = 0, maxName = 0, flags = 0;
        if (!services.volumes.GetVolumeInformationA(root, name, serial, maxName, flags, fileSystem))
            return std::string("?");
        return std::string(name.data());
    };

    EXPECT_EQ(label(), "ONCE");
    const auto identified = linuxbk::VolumeIdentifications();
    for (int i = 0; i < 5; ++i) EXPECT_EQ(label(), "ONCE");
    EXPECT_EQ(linuxbk::VolumeIdentifications(), identified) << "asked again, not identified again";

    // Renamed while mounted: seen once the device's change is told.
    ASSERT_TRUE(linuxtest::Run("e2label " + a->device + " TWICE"));
    linuxbk::ForgetVolume(major, minor);
    EXPECT_EQ(label(), "TWICE");
    EXPECT_EQ(linuxbk::VolumeIdentifications(), identified + 1);

    // Unmounted and mounted anew (as the mount table's changes show it):
    // identified anew without being told, though the kernel may give the
    // new mount the old one's ID.
    ASSERT_EQ(::umount2(a->mountPoint.c_str(), 0), 0);
    sys.Map().Refresh();
    ASSERT_TRUE(linuxtest::Run("e2label " + a->device + " THRICE"));
    a->mountPoint.clear();
    ASSERT_TRUE(loops.Mount(*a));
    sys.Map().Refresh();
    EXPECT_EQ(label(), "THRICE");
}

TEST(LinuxLoopDrives, WhatTheKernelSaysOfAVolumeIsWhatItsSuperblockSays) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    LoopDrives loops;
    std::vector<const linuxtest::LoopDrive*> drives{loops.Add("KERNEL EXT", true, 16, "ext4")};
    // FAT where this kernel has it (a FAT volume's serial is no UUID).
    std::string kernelHas;
    linuxtest::Run("grep -w vfat /proc/filesystems", &kernelHas);
    if (!kernelHas.empty()) drives.push_back(loops.Add("KERNEL FAT", true, 16, "vfat"));
    ASSERT_TRUE(std::all_of(drives.begin(), drives.end(), [](const auto* d) { return d != nullptr; }));
    System sys(Quiet());
    for (const linuxtest::LoopDrive* drive : drives) {
        const DriveRecord* d = DriveAt(sys, drive->mountPoint);
        ASSERT_NE(d, nullptr) << drive->fileSystem;
        const linuxbk::VolumeId id = linuxbk::IdentifyVolume(*d);
        std::string uuid, label;
        ASSERT_TRUE(linuxtest::Run("blkid -p -s UUID -o value " + drive->device, &uuid));
        ASSERT_TRUE(linuxtest::Run("blkid -p -s LABEL -o value " + drive->device, &label));
        // Whoever answered (udev's database, or the kernel without reading
        // the device), the answer is the superblock's.
        EXPECT_EQ(id.uuid, uuid) << drive->fileSystem << " from " << id.from;
        EXPECT_EQ(id.label, label) << drive->fileSystem << " from " << id.from;
        EXPECT_EQ(id.type, drive->fileSystem);
        EXPECT_EQ(linuxbk::SerialFromUuid(id.uuid), linuxbk::SerialFromUuid(uuid));
    }
}

TEST(LinuxLoopDrives, TheSystemDriveIsNeverEjected) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    System::Options o = Quiet();
    o.useUdisks = false;
    System sys(o);
    const DriveRecord* c = sys.Map().Find('C');
    ASSERT_NE(c, nullptr);
    if (!c->block) GTEST_SKIP() << "the root file system has no block device here (" << c->source << ")";
    auto services = sys.Services();
    platform::DevInst parent = 0;
    ASSERT_EQ(services.devices.CM_Get_Parent(parent, sys.Devices().InstanceOf(c->block->diskPath), 0),
              platform::kCrSuccess);
    std::int32_t vetoType = 0;
    EXPECT_EQ(services.devices.CM_Request_Device_EjectW(parent, &vetoType, {}, 0), platform::kCrRemoveVetoed);
    EXPECT_EQ(sys.Devices().LastEject().veto, linuxbk::Veto::SystemDrive);
    EXPECT_EQ(vetoType, linuxbk::kPnpVetoNonDisableable);
    EXPECT_NE(sys.Map().Find('C'), nullptr);
}

} // namespace
