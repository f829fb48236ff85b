// The Win32 backend's storage I/O controls, native handle table and file-type
// thread, on the machine the tests run on.
//
// Device ejection is not tested here: Wine enumerates no disk device
// interfaces, has no device tree above a volume and answers every eject
// request with success, so what the release logic does with those answers is
// covered on the simulated machine (tests/test_release*.cpp) instead.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/win32/backend.h"

namespace {

namespace t = platform::handle_table;

std::uint32_t U32(const std::vector<std::uint8_t>& b, std::size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}
std::uint16_t U16(const std::vector<std::uint8_t>& b, std::size_t at) {
    return static_cast<std::uint16_t>(b[at] | b[at + 1] << 8);
}

// The whole handle table, asked as the logic asks: from 1 byte, doubling.
std::vector<std::uint8_t> HandleTable(win32::Native& native) {
    std::vector<std::uint8_t> buffer(1);
    for (int i = 0; i < 40; ++i) {
        std::uint32_t needed = 0;
        const platform::NtStatus status =
            native.NtQuerySystemInformation(platform::kSystemHandleInformation, buffer, needed);
        if (status == platform::kStatusSuccess) return buffer;
        if (status != platform::kStatusInfoLengthMismatch) return {};
        buffer.resize(buffer.size() * 2);
    }
    return {};
}

// The own process's entry for a handle value; -1 when the table has none.
int FindEntry(const std::vector<std::uint8_t>& table, std::uint32_t pid, platform::Handle handle) {
    const std::uint32_t count = U32(table, t::kCount);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t at = t::kEntries + i * t::kEntrySize;
        if (U16(table, at + t::kUniqueProcessId) == (pid & 0xFFFF) &&
            U16(table, at + t::kHandleValue) == static_cast<std::uint16_t>(handle))
            return static_cast<int>(i);
    }
    return -1;
}

std::string ObjectName(win32::Native& native, platform::Handle handle) {
    std::vector<std::uint8_t> buffer(2048);
    std::uint32_t length = 0;
    if (native.NtQueryObject(handle, platform::kObjectNameInformation, buffer, length) < 0) return {};
    const std::uint16_t bytes = U16(buffer, 0);
    std::string name;
    for (std::size_t i = 0; i < bytes / 2u; ++i) name += static_cast<char>(buffer[platform::kObjectNameText + 2 * i]);
    return name;
}

TEST(Win32Storage, VolumeControlsAndDosDeviceNames) {
    win32::Storage storage;
    const platform::Handle volume = storage.CreateFileA(
        "\\\\.\\C:", 0, platform::kFileShareRead | platform::kFileShareWrite, platform::kOpenExisting, 0);
    ASSERT_NE(volume, platform::kInvalidHandleValue);

    // The system drive's storage driver answers the bus-type query.
    std::array<std::uint8_t, platform::kStoragePropertyQuerySize> query{}; // StorageDeviceProperty, standard query
    std::array<std::uint8_t, platform::kStorageDeviceDescriptorSize> descriptor{};
    descriptor[4] = platform::kStorageDeviceDescriptorSize; // Size, as the program sets it
    std::uint32_t returned = 0;
    ASSERT_TRUE(storage.DeviceIoControl(volume, platform::kIoctlStorageQueryProperty, query, descriptor, returned));
    EXPECT_GE(returned, platform::kDescriptorBusTypeOffset + 4);
    const std::uint32_t bus = descriptor[platform::kDescriptorBusTypeOffset] |
                              descriptor[platform::kDescriptorBusTypeOffset + 1] << 8 |
                              descriptor[platform::kDescriptorBusTypeOffset + 2] << 16 |
                              static_cast<std::uint32_t>(descriptor[platform::kDescriptorBusTypeOffset + 3]) << 24;
    EXPECT_GT(bus, 0u) << "a system disk sits on a known bus";
    EXPECT_LE(bus, platform::kBusTypeMaxReserved);
    std::array<std::uint8_t, platform::kStorageDeviceNumberSize> number{};
    ASSERT_TRUE(storage.DeviceIoControl(volume, platform::kIoctlStorageGetDeviceNumber, {}, number, returned));
    EXPECT_EQ(returned, platform::kStorageDeviceNumberSize);
    EXPECT_TRUE(storage.CloseHandle(volume));
    EXPECT_EQ(storage.CreateFileA("\\\\.\\NoSuchVolume:", 0, 0, platform::kOpenExisting, 0),
              platform::kInvalidHandleValue);

    std::array<char, 260> target{};
    ASSERT_GT(storage.QueryDosDeviceA("C:", target), 0u);
    EXPECT_EQ(std::string(target.data()).rfind("\\Device\\", 0), 0u) << target.data();
    std::array<char, 3> small{};
    EXPECT_EQ(storage.QueryDosDeviceA("C:", small), 0u);
}

TEST(Win32Native, HandleTableHoldsTheOwnNulHandleAndNamesAFile) {
    win32::Storage storage;
    win32::Native native;
    const std::uint32_t pid = native.GetCurrentProcessId();
    EXPECT_EQ(native.GetCurrentProcess(), -1);

    const platform::Handle nul = storage.CreateFileA("NUL", platform::kGenericRead, 0, platform::kOpenExisting, 0);
    ASSERT_NE(nul, platform::kInvalidHandleValue);
    const auto path = std::filesystem::temp_directory_path() / "kestrine-handle-test.txt";
    std::ofstream(path) << "held";
    const platform::Handle file = storage.CreateFileA(path.string(), platform::kGenericRead, platform::kFileShareRead,
                                                      platform::kOpenExisting, 0);
    ASSERT_NE(file, platform::kInvalidHandleValue);

    // A one-byte buffer is too small and says what is needed.
    std::array<std::uint8_t, 1> one{};
    std::uint32_t needed = 0;
    EXPECT_EQ(native.NtQuerySystemInformation(platform::kSystemHandleInformation, one, needed),
              platform::kStatusInfoLengthMismatch);

    const auto table = HandleTable(native);
    ASSERT_FALSE(table.empty());
    const int nulEntry = FindEntry(table, pid, nul);
    const int fileEntry = FindEntry(table, pid, file);
    ASSERT_GE(nulEntry, 0) << "the own NUL handle is in the table";
    ASSERT_GE(fileEntry, 0);
    // Both are files: the same object type number.
    EXPECT_EQ(table[t::kEntries + static_cast<std::size_t>(nulEntry) * t::kEntrySize + t::kObjectTypeIndex],
              table[t::kEntries + static_cast<std::size_t>(fileEntry) * t::kEntrySize + t::kObjectTypeIndex]);

    const std::string name = ObjectName(native, file);
    EXPECT_NE(name.find("kestrine-handle-test.txt"), std::string::npos) << name;

    // The file-type query on its own thread, well within its time limit.
    std::uint32_t type = 99;
    EXPECT_EQ(native.GetFileTypeOnThread(file, 100, type), platform::kWaitObject0);
    EXPECT_EQ(type, platform::kFileTypeDisk);
    EXPECT_EQ(native.GetFileTypeOnThread(nul, 100, type), platform::kWaitObject0);
    EXPECT_EQ(type, platform::kFileTypeChar);

    // Copying a handle out of the own process (opened by id) and closing it
    // there with the close-source option leaves the copy working.
    platform::Handle process = 0;
    ASSERT_EQ(native.NtOpenProcess(process, platform::kProcessDupHandle, platform::ClientId{pid, 0}),
              platform::kStatusSuccess);
    ASSERT_NE(process, 0);
    platform::Handle copy = 0;
    EXPECT_EQ(native.NtDuplicateObject(process, file, native.GetCurrentProcess(), copy, 0, 0,
                                       platform::kDuplicateCloseSource | platform::kDuplicateSameAccess),
              platform::kStatusSuccess);
    EXPECT_NE(copy, 0);
    EXPECT_EQ(ObjectName(native, copy), name);
    // The source is gone from the table (the copy may reuse its value).
    const auto after = HandleTable(native);
    if (copy != file) {
        EXPECT_LT(FindEntry(after, pid, file), 0);
    }
    EXPECT_GE(FindEntry(after, pid, copy), 0);
    EXPECT_EQ(native.NtClose(copy), platform::kStatusSuccess);
    EXPECT_EQ(native.NtClose(process), platform::kStatusSuccess);
    EXPECT_TRUE(storage.CloseHandle(nul));
    std::filesystem::remove(path);
}

TEST(Win32Devices, DiskInterfaceSetsOpenAndClose) {
    win32::Devices devices;
    const platform::DevInfoSet set = devices.SetupDiGetClassDevsA(
        platform::kGuidDevinterfaceDisk, platform::kDigcfPresent | platform::kDigcfDeviceInterface);
    ASSERT_NE(set, platform::kInvalidHandleValue);
    // Whatever the machine has, the enumeration ends, and every member names its path.
    std::uint32_t index = 0;
    platform::SpDeviceInterfaceData data;
    data.cbSize = 32;
    while (index < 64 && devices.SetupDiEnumDeviceInterfaces(set, platform::kGuidDevinterfaceDisk, index, data)) {
        std::uint32_t required = 0;
        EXPECT_FALSE(devices.SetupDiGetDeviceInterfaceDetailA(set, data, {}, &required, nullptr));
        ASSERT_GT(required, platform::kDetailDevicePathOffset);
        std::vector<std::uint8_t> detail(required);
        platform::SpDevinfoData info;
        EXPECT_TRUE(devices.SetupDiGetDeviceInterfaceDetailA(set, data, detail, nullptr, &info));
        EXPECT_NE(detail[platform::kDetailDevicePathOffset], 0);
        ++index;
    }
    EXPECT_LT(index, 64u);
    EXPECT_TRUE(devices.SetupDiDestroyDeviceInfoList(set));
}

} // namespace
