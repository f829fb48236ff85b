// Closing the program's handles on a drive when the system holds one hundred
// thousand open handles: one read of the table (its buffer doubling from 1
// byte) and a walk over 1,000 candidate file handles whose type query
// answers at once.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "core/program.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "release/modLockFileInfo.h"

namespace {

constexpr std::uint32_t kOwn = 4464;
constexpr std::size_t kTableHandles = 100000; // as the table is read, the "NUL" device's handle included
constexpr std::uint16_t kCandidates = 1000;

struct World {
    fake::Machine machine;
    platform::Services services{machine.services()};
    fake::HeadlessView view;
    app::Program program{services, view};

    World() {
        for (const char* root : {"C:\\", "D:\\", "E:\\"}) {
            fake::Drive d;
            d.root = root;
            d.type = root[0] == 'E' ? platform::kDriveRemovable : platform::kDriveFixed;
            d.dosDevice = "\\Device\\HarddiskVolume" + std::to_string(root[0] - 'C' + 1);
            machine.AddDrive(d);
        }
        auto& table = machine.handles();
        table.SetOwnProcessId(kOwn);
        table.Reserve(kTableHandles + 4 * kCandidates);
        // The program's own files on the USB drive E: ("\Device\HarddiskVolume3").
        for (std::uint16_t i = 1; i <= kCandidates; ++i)
            table.Add({.processId = kOwn,
                       .handle = static_cast<std::uint16_t>(i * 4),
                       .name = "\\Device\\HarddiskVolume3\\data\\file" + std::to_string(i) + ".bin"});
        // Everything else the system holds open, in 500 other processes.
        const std::size_t others = kTableHandles - kCandidates - 1;
        for (std::size_t i = 0; i < others; ++i)
            table.Add({.processId = static_cast<std::uint32_t>(8 + 4 * (i % 500)),
                       .typeIndex = static_cast<std::uint8_t>(i % 3 ? 37 : 7),
                       .handle = static_cast<std::uint16_t>(4 + 4 * (i / 500)),
                       .name = "\\Device\\HarddiskVolume1\\Windows\\System32\\x.dll"});
    }
};

void BM_CloseDriveHandlesHundredThousand(benchmark::State& state) {
    double queries = 0, lastBuffer = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto world = std::make_unique<World>();
        state.ResumeTiming();

        const auto start = std::chrono::steady_clock::now();
        const bool ok = release::CloseDriveHandles(world->program.sys, "E:", kOwn);
        const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);

        state.PauseTiming();
        const auto calls = world->machine.Calls("NtQuerySystemInformation");
        queries = static_cast<double>(calls.size());
        lastBuffer = std::stod(calls.back().args[1]);
        if (!ok || world->machine.Calls("NtDuplicateObject").size() != 2u * kCandidates + 1)
            state.SkipWithError("the walk did not close every candidate");
        world.reset();
        state.ResumeTiming();
    }
    state.counters["table_bytes"] = static_cast<double>(platform::handle_table::Size(kTableHandles));
    state.counters["query_calls"] = queries;
    state.counters["last_buffer"] = lastBuffer;
    state.counters["candidates"] = kCandidates;
}
BENCHMARK(BM_CloseDriveHandlesHundredThousand)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
