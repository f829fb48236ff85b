// Closing a process's open handles on a drive, against the simulated
// machine's handle table: which handles qualify, how names map to drives,
// the time limit of the type query, the table buffer and failures as values.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/program.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "release/modLockFileInfo.h"

namespace {

using release::CloseDriveHandles;

constexpr std::uint32_t kOwn = 1200;
const std::string kVolumeC = "\\Device\\HarddiskVolume3";
const std::string kVolumeE = "\\Device\\HarddiskVolume5";

struct Rig : builders::ProgramRig {
    fake::NativeHandles& table{machine.handles()};

    explicit Rig(std::uint32_t ownProcessId = kOwn) {
        AddDrive("C:\\", platform::kDriveFixed, kVolumeC);
        AddDrive("E:\\", platform::kDriveRemovable, kVolumeE);
        AddDrive("Z:\\", platform::kDriveRemote, "\\Device\\LanmanRedirector\\;Z:0000000000012345\\server\\share");
        table.SetOwnProcessId(ownProcessId);
    }
    void AddDrive(std::string root, std::uint32_t type, std::string dosDevice) {
        fake::Drive d;
        d.root = std::move(root);
        d.type = type;
        d.dosDevice = std::move(dosDevice);
        machine.AddDrive(std::move(d));
    }
    void File(std::uint32_t processId, std::uint16_t handle, std::string name) {
        table.Add({.processId = processId, .handle = handle, .name = std::move(name)});
    }
    std::vector<std::string> ClosedInOwner() const {
        std::vector<std::string> out;
        for (const auto& c : machine.Calls("NtDuplicateObject"))
            if (c.args[5] == "3") out.push_back(c.args[1]);
        return out;
    }
    std::vector<std::uint16_t> OwnOpen() const {
        std::vector<std::uint16_t> out;
        for (const auto& e : table.OpenHandles(table.OwnProcessId())) out.push_back(e.handle);
        return out;
    }
};

TEST(CloseDriveHandles, ClosesOnlyTheProcessFilesOnTheDriveInAnyCase) {
    for (const std::string drive : {"E:", "e:"}) {
        SCOPED_TRACE(drive);
        Rig rig;
        rig.File(kOwn, 0x40, kVolumeE + "\\docs\\a.txt");
        rig.File(kOwn, 0x44, kVolumeE);                      // the root folder itself
        rig.File(kOwn, 0x48, kVolumeC + "\\Windows\\e.dll"); // on C:
        rig.table.Add({.processId = kOwn,
                       .typeIndex = fake::NativeHandles::kProcessTypeIndex,
                       .handle = 0x4C,
                       .name = kVolumeE + "\\not-a-file"}); // not a file object
        rig.File(2000, 0x40, kVolumeE + "\\docs\\b.txt");   // another process
        rig.table.Add({.processId = kOwn, .handle = 0x50, .name = kVolumeE + "\\c", .fileType = 0}); // type unknown

        EXPECT_TRUE(CloseDriveHandles(rig.program.sys, drive, kOwn));

        EXPECT_EQ(rig.ClosedInOwner(), (std::vector<std::string>{"64", "68"}));
        EXPECT_TRUE(rig.table.IsOpen(2000, 0x40));
        // Nothing the walk opened for itself (the "NUL" device, process
        // handles, copies) is left open.
        EXPECT_EQ(rig.OwnOpen(), (std::vector<std::uint16_t>{0x48, 0x4C, 0x50}));
    }
}

TEST(CloseDriveHandles, NulDeviceThatDoesNotOpenClosesNothing) {
    Rig rig;
    rig.File(kOwn, 0x40, kVolumeE + "\\a.txt");
    rig.table.SetNulOpens(false);
    EXPECT_FALSE(CloseDriveHandles(rig.program.sys, "E:", kOwn));
    EXPECT_TRUE(rig.table.IsOpen(kOwn, 0x40));
    EXPECT_TRUE(rig.machine.Calls("NtQuerySystemInformation").empty());
}

TEST(CloseDriveHandles, HangingTypeQueryCostsTheLimitAndIsSkipped) {
    Rig rig;
    rig.table.Add({.processId = kOwn, .handle = 0x40, .name = kVolumeE + "\\pipe-like", .typeQueryHangs = true});
    rig.File(kOwn, 0x44, kVolumeE + "\\b.txt");
    const double before = rig.machine.Now();

    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "E:", kOwn));

    EXPECT_NEAR(rig.machine.Now() - before, 0.1, 1e-9);
    EXPECT_TRUE(rig.table.IsOpen(kOwn, 0x40));
    EXPECT_FALSE(rig.table.IsOpen(kOwn, 0x44));
    EXPECT_EQ(rig.machine.Calls("NtQueryObject").size(), 1u); // only the answering handle is named
}

TEST(CloseDriveHandles, NamesOnNoLocalDriveAreNeverClosed) {
    Rig rig;
    rig.File(kOwn, 0x40, "\\Device\\Mup\\server\\share\\e:\\notes.txt"); // contains "e:" but lies on no drive
    rig.File(kOwn, 0x44, "\\Device\\Mup\\server\\share\\docs\\z.txt");   // the share mapped as Z:
    rig.File(kOwn, 0x48, "\\Device\\NamedPipe\\e:pipe");
    rig.File(kOwn, 0x4C, kVolumeE + "\\local.txt");

    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "E:", kOwn));
    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "Z:", kOwn));

    EXPECT_EQ(rig.ClosedInOwner(), (std::vector<std::string>{"76"}));
    EXPECT_EQ(rig.OwnOpen(), (std::vector<std::uint16_t>{0x40, 0x44, 0x48}));
}

TEST(CloseDriveHandles, FailingCloseOfACopyMakesTheResultFalseAndTheWalkGoesOn) {
    Rig rig;
    rig.table.Add({.processId = 3000, .handle = 0x40, .name = kVolumeE + "\\a.txt", .closeFails = true});
    rig.File(3000, 0x44, kVolumeE + "\\b.txt");
    rig.table.DenyProcess(3100);
    rig.File(3100, 0x48, kVolumeE + "\\c.txt");

    EXPECT_FALSE(CloseDriveHandles(rig.program.sys, "E:", 3000));
    // Closed in the owner all the same; only the program's copy stays.
    EXPECT_FALSE(rig.table.IsOpen(3000, 0x40));
    EXPECT_FALSE(rig.table.IsOpen(3000, 0x44));

    // A process that cannot be opened is skipped and does not fail the walk.
    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "E:", 3100));
    EXPECT_TRUE(rig.table.IsOpen(3100, 0x48));
}

TEST(CloseDriveHandles, ProcessIdsCompareOnTheirLow16Bits) {
    // The program's own id is above 65535 too: its "NUL" entry shows 1200.
    Rig rig(65536 + kOwn);
    rig.File(70000, 0x40, kVolumeE + "\\a.txt");
    rig.File(4464, 0x44, kVolumeE + "\\b.txt"); // 70000 % 65536: also a candidate, but not 70000's handle

    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "E:", 70000));

    EXPECT_FALSE(rig.table.IsOpen(70000, 0x40));
    EXPECT_TRUE(rig.table.IsOpen(4464, 0x44));
    for (const auto& c : rig.machine.Calls("NtOpenProcess")) EXPECT_EQ(c.args[0], "70000");
    const auto copies = rig.machine.Calls("NtDuplicateObject");
    ASSERT_EQ(copies.size(), 3u); // look at 0x40, close 0x40, look at 0x44 (which 70000 does not hold)
    EXPECT_EQ(copies[2].args[1], "68");
    EXPECT_EQ(copies[2].result, "0xC0000008");
}

TEST(CloseDriveHandles, TableBufferDoublesFromOneByteUntilItFits) {
    Rig rig;
    for (std::uint16_t i = 1; i <= 1000; ++i) rig.File(5000, static_cast<std::uint16_t>(i * 4), kVolumeC + "\\x");
    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "E:", kOwn));

    // 1000 handles and the "NUL" device: 8 + 1001 * 24 = 24,032 bytes.
    const auto calls = rig.machine.Calls("NtQuerySystemInformation");
    ASSERT_EQ(calls.size(), 16u);
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].args[1], std::to_string(1u << i));
        EXPECT_EQ(calls[i].result, i + 1 < calls.size() ? "0xC0000004" : "0x00000000");
    }

    // Any other answer means the table cannot be read.
    Rig broken;
    broken.File(kOwn, 0x40, kVolumeE + "\\a.txt");
    broken.table.SetTableStatus(platform::kStatusAccessDenied);
    EXPECT_FALSE(CloseDriveHandles(broken.program.sys, "E:", kOwn));
    EXPECT_EQ(broken.machine.Calls("NtQuerySystemInformation").size(), 1u);
    EXPECT_EQ(broken.OwnOpen(), (std::vector<std::uint16_t>{0x40}));
}

TEST(CloseHandleInProcess, OnlyAFailingCloseOfTheCopyIsAFailure) {
    Rig rig;
    rig.File(3000, 0x40, kVolumeE + "\\a.txt");
    rig.table.Add({.processId = 3000, .handle = 0x44, .name = kVolumeE + "\\b.txt", .copyDenied = true});
    rig.table.Add({.processId = 3000, .handle = 0x48, .name = kVolumeE + "\\c.txt", .closeFails = true});
    rig.table.DenyProcess(3100);
    rig.File(3100, 0x40, kVolumeE + "\\d.txt");

    EXPECT_TRUE(release::CloseHandleInProcess(rig.program.sys, 3000, 0x40));
    EXPECT_FALSE(rig.table.IsOpen(3000, 0x40));
    EXPECT_TRUE(release::CloseHandleInProcess(rig.program.sys, 3000, 0x40)); // already gone: nothing to copy
    EXPECT_TRUE(release::CloseHandleInProcess(rig.program.sys, 3000, 0x44));
    EXPECT_FALSE(rig.table.IsOpen(3000, 0x44)); // closed in the owner though no copy came back
    EXPECT_FALSE(release::CloseHandleInProcess(rig.program.sys, 3000, 0x48));
    EXPECT_TRUE(release::CloseHandleInProcess(rig.program.sys, 3100, 0x40));
    EXPECT_TRUE(rig.table.IsOpen(3100, 0x40));
}

TEST(GetHandlePath, MapsDeviceNamesToDriveLettersByAPlainPrefix) {
    Rig rig;
    rig.File(kOwn, 0x40, "\\DEVICE\\HARDDISKVOLUME5\\Docs\\Ä.txt");
    rig.File(kOwn, 0x44, kVolumeC + "\\Windows");
    rig.File(kOwn, 0x48, kVolumeC + "0\\other"); // HarddiskVolume30: the prefix of C: still matches
    rig.table.Add({.processId = kOwn, .handle = 0x4C});

    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x40), "E:\\Docs\\\xC4.txt");
    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x44), "C:\\Windows");
    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x48), "C:0\\other");
    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x4C), "");
    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x400), ""); // no such handle
}

TEST(GetHandlePath, ALetterWithoutADeviceNameIsAPrefixOfEveryName) {
    Rig rig;
    // D:'s device name does not fit the buffer, so its query leaves it empty.
    rig.AddDrive("D:\\", platform::kDriveRemovable, "\\Device\\" + std::string(300, 'x'));
    rig.File(kOwn, 0x40, "\\Device\\Mup\\server\\share\\a.txt");
    rig.table.Add({.processId = kOwn, .handle = 0x44});

    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x40), "D:\\Device\\Mup\\server\\share\\a.txt");
    EXPECT_EQ(release::GetHandlePath(rig.program.sys, 0x44), "D:");
    // So both count as on drive D and are closed with it.
    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "d:", kOwn));
    EXPECT_EQ(rig.ClosedInOwner(), (std::vector<std::string>{"64", "68"}));
}

TEST(CloseDriveHandles, AnEmptyDriveNameIsContainedInEveryPath) {
    Rig rig;
    rig.File(kOwn, 0x40, kVolumeE + "\\a.txt");
    rig.File(kOwn, 0x44, "\\Device\\NamedPipe\\p"); // on no drive: its path is ""
    EXPECT_TRUE(CloseDriveHandles(rig.program.sys, "", kOwn));
    EXPECT_EQ(rig.ClosedInOwner(), (std::vector<std::string>{"64", "68"}));
}

TEST(GetFileTypeTimed, AnswersTheTypeOrZeroAfterTheLimit) {
    Rig rig;
    rig.table.Add({.processId = kOwn, .handle = 0x40, .name = "\\Device\\NamedPipe\\p", .fileType = 3});
    rig.table.Add({.processId = kOwn, .handle = 0x44, .name = "\\Device\\NamedPipe\\q", .typeQueryHangs = true});
    const double before = rig.machine.Now();
    EXPECT_EQ(release::GetFileTypeTimed(rig.program.sys, 0x40), 3u);
    EXPECT_EQ(rig.machine.Now(), before);
    EXPECT_EQ(release::GetFileTypeTimed(rig.program.sys, 0x44), 0u);
    EXPECT_NEAR(rig.machine.Now() - before, release::kFileTypeTimeLimitMs / 1000.0, 1e-9);
}

TEST(HandleTableDescription, LoadsFromTheMachineJson) {
    fake::Machine m;
    fake::Machine::LoadJson(m, R"({
        "drives": [{"root": "E:\\", "type": 2, "dosDevice": "\\Device\\HarddiskVolume9"}],
        "handles": {"ownProcessId": 4464, "fileTypeIndex": 17, "deniedProcesses": [9],
                    "entries": [{"processId": 4464, "handle": 64, "name": "\\Device\\HarddiskVolume9\\a"},
                                {"processId": 4464, "handle": 68, "name": "\\Device\\HarddiskVolume9\\b",
                                 "typeQueryHangs": true},
                                {"processId": 9, "handle": 64, "name": "\\Device\\HarddiskVolume9\\c"}]}
    })");
    auto services = m.services();
    fake::HeadlessView view;
    app::Program program(services, view);
    EXPECT_TRUE(CloseDriveHandles(program.sys, "E:", 4464));
    EXPECT_FALSE(m.handles().IsOpen(4464, 64));
    EXPECT_TRUE(m.handles().IsOpen(4464, 68));
    EXPECT_TRUE(CloseDriveHandles(program.sys, "E:", 9));
    EXPECT_TRUE(m.handles().IsOpen(9, 64));

    fake::Machine bad;
    EXPECT_THROW(fake::Machine::LoadJson(bad, R"({"handles": {"entries": [{"processId": 1, "handle": 70000}]}})"),
                 std::runtime_error);
    EXPECT_THROW(fake::Machine::LoadJson(bad, R"({"handles": {"entries": [{"processId": 1, "handle": 4},
                                                                          {"processId": 1, "handle": 4}]}})"),
                 std::runtime_error);
}

} // namespace
