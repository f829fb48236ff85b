// What the Linux and simulated backends share in src/platform/portable: the
// window procedures and properties, the open file searches, the tray icons,
// the native records and the management queries. The backends' own tests
// show the pieces at work; these pin down the edges both rely on.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/bytes.h"
#include "platform/portable/dir_search.h"
#include "platform/portable/management_query.h"
#include "platform/portable/native_records.h"
#include "platform/portable/shell_items.h"
#include "platform/portable/window_procedures.h"

namespace {

using portable::WindowProcedures;

std::vector<std::uint32_t> g_seen;

std::intptr_t Installed(platform::WindowHandle, std::uint32_t message, std::uintptr_t, std::intptr_t) {
    g_seen.push_back(message);
    return 7;
}

} // namespace

TEST(WindowProcedures, ChainStartsAtTheOwnProcedureAndInstallingReturnsThePrevious) {
    WindowProcedures w;
    std::vector<std::uint32_t> own;
    const WindowProcedures::OwnProcedure ownProc = [&](platform::WindowHandle, std::uint32_t m, std::uintptr_t,
                                                       std::intptr_t) {
        own.push_back(m);
        return std::intptr_t{3};
    };
    EXPECT_EQ(w.Procedure(0x10), WindowProcedures::kOwnProcedure);
    EXPECT_EQ(w.Deliver(0x10, 0x219, 0x8000, 0, ownProc), 3);
    EXPECT_EQ(own, std::vector<std::uint32_t>{0x219});

    const auto installed = reinterpret_cast<std::intptr_t>(&Installed);
    EXPECT_EQ(w.SetProcedure(0x10, installed), WindowProcedures::kOwnProcedure);
    EXPECT_EQ(w.SetProcedure(0x10, 0), 0); // refused: the chain keeps its head
    EXPECT_EQ(w.SetProcedure(0, installed), 0);
    EXPECT_EQ(w.Procedure(0x10), installed);
    EXPECT_EQ(w.Procedure(0), WindowProcedures::kOwnProcedure);

    g_seen.clear();
    EXPECT_EQ(w.Deliver(0x10, 0x401, 0, 0, ownProc), 7);
    EXPECT_EQ(g_seen, std::vector<std::uint32_t>{0x401});
    EXPECT_EQ(own.size(), 1u); // the installed procedure did not hand it on
    EXPECT_EQ(WindowProcedures::Call(0, 0x10, 1, 0, 0, ownProc), 0);
    EXPECT_EQ(WindowProcedures::Call(WindowProcedures::kOwnProcedure, 0x10, 1, 0, 0, {}), 0);
    // Putting the own procedure back makes it the head again.
    EXPECT_EQ(w.SetProcedure(0x10, WindowProcedures::kOwnProcedure), installed);
    EXPECT_EQ(w.Deliver(0x10, 0x2, 0, 0, ownProc), 3);
}

TEST(WindowProcedures, StylesAndPropertiesPerWindow) {
    WindowProcedures w;
    EXPECT_FALSE(w.HasStyle(0x20));
    EXPECT_EQ(w.SetStyle(0x20, 0x50000002), 0);
    EXPECT_EQ(w.SetStyle(0x20, 0x50000000), 0x50000002);
    EXPECT_EQ(w.Style(0x20), 0x50000000);
    EXPECT_EQ(w.SetStyle(0, 1), 0);
    EXPECT_FALSE(w.HasStyle(0));
    EXPECT_EQ(WindowProcedures::HeaderOf(0x20), 0x20u + 0x1F00u);

    EXPECT_FALSE(w.SetProp(0, "OldProc", 5));
    EXPECT_TRUE(w.SetProp(0x20, "OldProc", 5));
    EXPECT_TRUE(w.SetProp(0x21, "OldProc", 6));
    EXPECT_EQ(w.Prop(0x20, "OldProc"), 5);
    EXPECT_EQ(w.Prop(0x20, "oldproc"), 0); // names are exact
    EXPECT_EQ(w.RemoveProp(0x20, "OldProc"), 5);
    EXPECT_EQ(w.RemoveProp(0x20, "OldProc"), 0);
    EXPECT_EQ(w.Prop(0x21, "OldProc"), 6);
}

TEST(FileSearches, EntriesComeOneByOneUnderTheirOwnHandle) {
    portable::FileSearches searches;
    platform::FindData data = portable::FindEntry("untouched", 0, 0);
    EXPECT_EQ(searches.Open({}, data), platform::kInvalidHandleValue);
    EXPECT_STREQ(data.cFileName.data(), "untouched");

    const platform::Handle a = searches.Open({portable::FindEntry("a.txt", platform::kAttrArchive, 3),
                                              portable::FindEntry("b", platform::kAttrDirectory, 0)},
                                             data);
    EXPECT_STREQ(data.cFileName.data(), "a.txt");
    EXPECT_EQ(data.nFileSize, 3u);
    const platform::Handle b = searches.Open({portable::FindEntry("c", 0, 0)}, data);
    EXPECT_NE(a, b);
    EXPECT_NE(a, platform::kInvalidHandleValue);
    EXPECT_EQ(searches.OpenCount(), 2u);
    ASSERT_TRUE(searches.Next(a, data));
    EXPECT_STREQ(data.cFileName.data(), "b");
    EXPECT_EQ(data.dwFileAttributes, platform::kAttrDirectory);
    EXPECT_FALSE(searches.Next(a, data));
    EXPECT_FALSE(searches.Next(b, data)); // its only entry came with Open
    EXPECT_TRUE(searches.Close(a));
    EXPECT_FALSE(searches.Close(a));
    EXPECT_FALSE(searches.Next(a, data));
    EXPECT_EQ(searches.OpenCount(), 1u);
    // A name longer than the record holds is cut, still NUL-terminated.
    const auto longName = portable::FindEntry(std::string(300, 'x'), 0, 0);
    EXPECT_EQ(std::string(longName.cFileName.data()).size(), 259u);
}

namespace {

std::array<std::uint8_t, 88> TrayRecord(std::uint32_t size, std::uint32_t window, std::uint32_t id, std::uint32_t icon,
                                        const std::string& tip) {
    std::array<std::uint8_t, 88> r{};
    platform::WriteLe32(r, 0, size);
    platform::WriteLe32(r, 4, window);
    platform::WriteLe32(r, 8, id);
    platform::WriteLe32(r, 20, icon);
    for (std::size_t i = 0; i < tip.size() && i < 64; ++i) r[24 + i] = static_cast<std::uint8_t>(tip[i]);
    return r;
}

} // namespace

TEST(TrayIcons, AddModifyDeleteByWindowAndId) {
    portable::TrayIcons icons;
    const auto add = portable::TrayIcons::Read(TrayRecord(88, 0x1000, 1, 0x77, "Kestrine"));
    EXPECT_EQ(add.window, 0x1000u);
    EXPECT_EQ(add.id, 1u);
    EXPECT_EQ(add.icon, 0x77u);
    EXPECT_EQ(add.tip, "Kestrine");
    EXPECT_EQ(portable::TrayIcons::Read(TrayRecord(88, 1, 1, 1, std::string(64, 'y'))).tip.size(), 64u);

    EXPECT_FALSE(icons.Apply(platform::kNimModify, add)); // not there yet
    EXPECT_TRUE(icons.Apply(platform::kNimAdd, add));
    EXPECT_FALSE(icons.Apply(platform::kNimAdd, add)); // there already
    EXPECT_TRUE(icons.Apply(platform::kNimAdd, portable::TrayIcons::Read(TrayRecord(88, 0x1000, 2, 0x78, ""))));
    EXPECT_FALSE(icons.Apply(platform::kNimAdd, portable::TrayIcons::Read(TrayRecord(88, 0, 3, 0x78, ""))));
    EXPECT_FALSE(icons.Apply(platform::kNimAdd, portable::TrayIcons::Read(TrayRecord(76, 0x1000, 4, 0x78, ""))));
    EXPECT_EQ(icons.Count(), 2u);
    EXPECT_TRUE(icons.Apply(platform::kNimModify, portable::TrayIcons::Read(TrayRecord(88, 0x1000, 1, 0x99, "x"))));
    EXPECT_FALSE(icons.Apply(7, add));
    EXPECT_TRUE(icons.Apply(platform::kNimDelete, add));
    EXPECT_FALSE(icons.Apply(platform::kNimDelete, add));
    EXPECT_EQ(icons.Count(), 1u);
}

TEST(NativeRecords, ObjectNameIsACountedUtf16StringAfterItsRecord) {
    std::vector<std::uint8_t> buffer(64, 0xCC);
    std::uint32_t length = 0;
    // "\Device\ä": 9 UTF-16 units, 18 bytes, then a NUL.
    ASSERT_EQ(portable::WriteObjectName(buffer, "\\Device\\\xC3\xA4", length), platform::kStatusSuccess);
    EXPECT_EQ(length, platform::kObjectNameText + 18 + 2);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(buffer, 0), 18);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(buffer, 2), 20);
    EXPECT_EQ(platform::ReadLe<std::uint64_t>(buffer, 8),
              static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(buffer.data() + platform::kObjectNameText)));
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(buffer, platform::kObjectNameText), u'\\');
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(buffer, platform::kObjectNameText + 16), 0xE4);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(buffer, platform::kObjectNameText + 18), 0);
    EXPECT_EQ(buffer[platform::kObjectNameText + 20], 0xCC); // nothing written past the NUL

    std::vector<std::uint8_t> small(platform::kObjectNameText + 19, 0xCC);
    EXPECT_EQ(portable::WriteObjectName(small, "\\Device\\\xC3\xA4", length), platform::kStatusInfoLengthMismatch);
    EXPECT_EQ(length, platform::kObjectNameText + 20);
    EXPECT_EQ(small[0], 0xCC);
    // A name too long for a 16-bit byte count is refused whatever the buffer.
    std::vector<std::uint8_t> huge(200000);
    EXPECT_EQ(portable::WriteObjectName(huge, std::string(40000, 'a'), length), platform::kStatusInfoLengthMismatch);
}

TEST(NativeRecords, HandleTableHoldsTheCountThenOneEntryPerRow) {
    namespace t = platform::handle_table;
    const std::vector<portable::HandleRow> rows{{0x12345, 37, 0x44, 0}, {8, 7, 0x1004, 0xFFFF800000000040ull}};
    auto forEach = [&](auto emit) {
        for (const auto& r : rows) emit(r);
    };
    std::uint32_t length = 0;
    std::vector<std::uint8_t> small(t::Size(2) - 1, 0xCC);
    EXPECT_EQ(portable::WriteHandleTable(small, rows.size(), forEach, length), platform::kStatusInfoLengthMismatch);
    EXPECT_EQ(length, t::Size(2));
    EXPECT_EQ(small[0], 0xCC);

    std::vector<std::uint8_t> buffer(t::Size(2), 0xCC);
    ASSERT_EQ(portable::WriteHandleTable(buffer, rows.size(), forEach, length), platform::kStatusSuccess);
    EXPECT_EQ(platform::ReadLe32(buffer, t::kCount), 2u);
    const auto first = std::span(buffer).subspan(t::kEntries, t::kEntrySize);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(first, t::kUniqueProcessId), 0x2345); // the low 16 bits
    EXPECT_EQ(first[t::kObjectTypeIndex], 37);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(first, t::kHandleValue), 0x44);
    EXPECT_EQ(platform::ReadLe<std::uint64_t>(first, t::kObject), 0u);
    EXPECT_EQ(platform::ReadLe32(first, t::kGrantedAccess), 0u); // the entry is cleared first
    const auto second = std::span(buffer).subspan(t::kEntries + t::kEntrySize, t::kEntrySize);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(second, t::kHandleValue), 0x1004);
    EXPECT_EQ(platform::ReadLe<std::uint64_t>(second, t::kObject), 0xFFFF800000000040ull);

    // More rows than counted: the table holds the counted ones and no byte past them.
    std::vector<std::uint8_t> one(t::Size(1) + 4, 0xCC);
    ASSERT_EQ(portable::WriteHandleTable(one, 1, forEach, length), platform::kStatusSuccess);
    EXPECT_EQ(platform::ReadLe32(one, t::kCount), 1u);
    EXPECT_EQ(one[t::Size(1)], 0xCC);
}

TEST(ManagementQuery, TheThreeQueriesByKindWithTheirKey) {
    using Kind = portable::ManagementQuery::Kind;
    const auto drives =
        portable::ParseManagementQuery("winmgmts:\\\\.\\root\\cimv2", "select PNPDeviceID from Win32_DiskDrive");
    ASSERT_TRUE(drives);
    EXPECT_EQ(drives->kind, Kind::DiskDrives);
    const auto partitions = portable::ParseManagementQuery(
        "WINMGMTS:", "ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\.\\PHYSICALDRIVE1'} WHERE AssocClass = "
                     "Win32_DiskDriveToDiskPartition");
    ASSERT_TRUE(partitions);
    EXPECT_EQ(partitions->kind, Kind::PartitionsOfDisk);
    EXPECT_EQ(partitions->key, "\\\\.\\PHYSICALDRIVE1"); // as written, not upper-cased
    const auto logical = portable::ParseManagementQuery(
        "winmgmts:", "Associators of {Win32_DiskPartition.DeviceID='Disk #1, Partition #0'} where "
                     "AssocClass = Win32_LogicalDiskToPartition");
    ASSERT_TRUE(logical);
    EXPECT_EQ(logical->kind, Kind::LogicalDisksOfPartition);
    EXPECT_EQ(logical->key, "Disk #1, Partition #0");

    EXPECT_FALSE(portable::ParseManagementQuery("ldap:", "SELECT * FROM Win32_DiskDrive"));
    EXPECT_FALSE(portable::ParseManagementQuery("winmgmts:", "SELECT * FROM Win32_Process"));
    EXPECT_FALSE(portable::ParseManagementQuery(
        "winmgmts:", "ASSOCIATORS OF {Win32_DiskDrive.DeviceID='x'} WHERE AssocClass = Win32_Other"));
}
