// Closing the program's handles on a drive, at 10,000 to 1,000,000 open
// handles in the system: one read of the table (its buffer doubling from 1
// byte), the search for the file type, and a walk over 100 candidate file
// handles of the program whose type query answers at once.
//
// The handle table and the handle calls are answered by a table kept ready
// in memory (a copy per read, as the system hands it out), and the storage
// calls by a few fixed answers, so the time is the program's own work and
// not the simulated machine's bookkeeping. The reported complexity shows
// whether the walk stays linear in the table's size.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/machine.h"
#include "platform/native.h"
#include "platform/storage.h"
#include "release/modLockFileInfo.h"

namespace {

constexpr std::uint32_t kOwn = 4464;
constexpr std::uint16_t kCandidates = 100;
constexpr platform::Handle kNul = 0x7FF0;
constexpr std::uint8_t kFileType = 37;

void Put16(std::vector<std::uint8_t>& b, std::size_t at, std::uint16_t v) {
    b[at] = static_cast<std::uint8_t>(v);
    b[at + 1] = static_cast<std::uint8_t>(v >> 8);
}

// The system's handle table and the handle calls of the program's walk.
class TableNative : public platform::Native {
public:
    explicit TableNative(std::size_t handles) : table_(platform::handle_table::Size(handles), 0) {
        namespace ht = platform::handle_table;
        const auto count = static_cast<std::uint32_t>(handles);
        std::memcpy(table_.data() + ht::kCount, &count, sizeof count);
        auto entry = [&](std::size_t i, std::uint16_t pid, std::uint8_t type, std::uint16_t handle) {
            const std::size_t at = ht::kEntries + i * ht::kEntrySize;
            Put16(table_, at + ht::kUniqueProcessId, pid);
            table_[at + ht::kObjectTypeIndex] = type;
            Put16(table_, at + ht::kHandleValue, handle);
        };
        // The "NUL" device the program opened, its own files on E:, then
        // everything else the system holds open, in 500 other processes.
        entry(0, kOwn & 0xFFFF, kFileType, static_cast<std::uint16_t>(kNul));
        for (std::uint16_t i = 1; i <= kCandidates; ++i) {
            entry(i, kOwn & 0xFFFF, kFileType, static_cast<std::uint16_t>(i * 4));
            names_[i * 4] = "\\Device\\HarddiskVolume3\\data\\file" + std::to_string(i) + ".bin";
        }
        for (std::size_t i = kCandidates + 1; i < handles; ++i)
            entry(i, static_cast<std::uint16_t>(8 + 4 * (i % 500)), i % 3 ? kFileType : 7,
                  static_cast<std::uint16_t>(4 + 4 * (i / 500)));
    }
    std::size_t Closed() const { return closed_; }

    std::uint32_t GetCurrentProcessId() override { return kOwn; }
    platform::Handle GetCurrentProcess() override { return static_cast<platform::Handle>(-1); }
    std::uint32_t GetFileTypeOnThread(platform::Handle, std::uint32_t, std::uint32_t& fileType) override {
        fileType = platform::kFileTypeDisk;
        return platform::kWaitObject0;
    }
    platform::NtStatus NtQuerySystemInformation(std::uint32_t, std::span<std::uint8_t> buffer,
                                                std::uint32_t& returnLength) override {
        returnLength = static_cast<std::uint32_t>(table_.size());
        if (buffer.size() < table_.size()) return platform::kStatusInfoLengthMismatch;
        std::memcpy(buffer.data(), table_.data(), table_.size());
        return platform::kStatusSuccess;
    }
    platform::NtStatus NtOpenProcess(platform::Handle& process, std::uint32_t, const platform::ClientId&) override {
        process = 0x10000;
        return platform::kStatusSuccess;
    }
    platform::NtStatus NtDuplicateObject(platform::Handle, platform::Handle source, platform::Handle,
                                         platform::Handle& target, std::uint32_t, std::uint32_t,
                                         std::uint32_t options) override {
        if (options & platform::kDuplicateCloseSource) ++closed_;
        target = 0x20000 + source; // a copy in the own process names its source
        return platform::kStatusSuccess;
    }
    platform::NtStatus NtQueryObject(platform::Handle handle, std::uint32_t, std::span<std::uint8_t> buffer,
                                     std::uint32_t& returnLength) override {
        const auto it = names_.find(static_cast<std::uint16_t>(handle - 0x20000));
        const std::string name = it == names_.end() ? std::string("\\Device\\HarddiskVolume1\\x.dll") : it->second;
        returnLength = static_cast<std::uint32_t>(platform::kObjectNameText + 2 * (name.size() + 1));
        if (buffer.size() < returnLength) return platform::kStatusInfoLengthMismatch;
        for (std::size_t i = 0; i < name.size(); ++i) {
            buffer[platform::kObjectNameText + 2 * i] = static_cast<std::uint8_t>(name[i]);
            buffer[platform::kObjectNameText + 2 * i + 1] = 0;
        }
        return platform::kStatusSuccess;
    }
    platform::NtStatus NtClose(platform::Handle) override { return platform::kStatusSuccess; }

private:
    std::vector<std::uint8_t> table_;
    std::map<std::uint16_t, std::string> names_;
    std::size_t closed_ = 0;
};

// The "NUL" device and the device names of C: and E:.
class FixedStorage : public platform::Storage {
public:
    platform::Handle CreateFileA(const std::string& name, std::uint32_t, std::uint32_t, std::uint32_t,
                                 std::uint32_t) override {
        return name == "NUL" ? kNul : platform::kInvalidHandleValue;
    }
    bool DeviceIoControl(platform::Handle, std::uint32_t, std::span<const std::uint8_t>, std::span<std::uint8_t>,
                         std::uint32_t&) override {
        return false;
    }
    bool CloseHandle(platform::Handle) override { return true; }
    std::uint32_t QueryDosDeviceA(const std::string& device, std::span<char> target) override {
        const std::string name = device == "E:" ? "\\Device\\HarddiskVolume3" : "\\Device\\HarddiskVolume1";
        if (target.size() < name.size() + 2) return 0;
        std::memcpy(target.data(), name.c_str(), name.size() + 1);
        target[name.size() + 1] = '\0';
        return static_cast<std::uint32_t>(name.size() + 2);
    }
};

void BM_CloseDriveHandles(benchmark::State& state) {
    const auto handles = static_cast<std::size_t>(state.range(0));
    fake::Machine machine; // the drive letters C: and E:
    for (const char* root : {"C:\\", "E:\\"}) machine.AddDrive(fake::Drive{.root = root, .label = {}});
    FixedStorage storage;
    const platform::Services all = machine.services();
    for (auto _ : state) {
        state.PauseTiming();
        auto native = std::make_unique<TableNative>(handles);
        platform::Services sys{all.app, all.volumes, all.profile, all.windows,    all.shell,
                               all.fso, storage,     all.devices, all.management, *native};
        state.ResumeTiming();

        const bool ok = release::CloseDriveHandles(sys, "E:", kOwn);

        state.PauseTiming();
        if (!ok || native->Closed() != kCandidates) state.SkipWithError("the walk did not close every candidate");
        native.reset();
        machine.ClearJournal();
        state.ResumeTiming();
    }
    state.SetComplexityN(state.range(0));
    state.counters["table_bytes"] = static_cast<double>(platform::handle_table::Size(handles));
    state.counters["candidates"] = kCandidates;
}
BENCHMARK(BM_CloseDriveHandles)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);

} // namespace
