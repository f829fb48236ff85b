// Start-up work of the inventory and the settings store on a simulated machine.
#include <benchmark/benchmark.h>

#include <string>

#include "app/frmMain.h"
#include "drives/cDrive.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

void AddDrives(fake::Machine& m, int count) {
    for (int i = 0; i < count; ++i) {
        fake::Drive d;
        d.root = std::string(1, static_cast<char>('C' + i)) + ":\\";
        d.type = i % 2 ? platform::kDriveRemovable : platform::kDriveFixed;
        d.label = "DRIVE" + std::to_string(i);
        d.totalBytes = 64ull << 30;
        d.freeBytes = 16ull << 30;
        m.AddDrive(d);
    }
}

void BM_ScanFifteenDrives(benchmark::State& state) {
    fake::Machine m;
    AddDrives(m, 15);
    auto services = m.services();
    fake::HeadlessView view;
    app::Program program(services, view);
    drives::cDrive drive(program);
    for (auto _ : state) {
        drive.mp_GetDriveTyps();
        benchmark::DoNotOptimize(drive.p_GetDL_Count());
        m.ClearJournal();
    }
}
BENCHMARK(BM_ScanFifteenDrives);

// A full section read: 32,767 characters of settings lines.
void BM_ReadFullSection(benchmark::State& state) {
    fake::Machine m;
    AddDrives(m, 1);
    std::string content = "[Big]\r\n";
    for (int i = 0; content.size() < 40000; ++i)
        content += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\r\n";
    m.AddFile("C:\\big.ini", content);
    auto services = m.services();
    settings::basINI ini(services.profile);
    for (auto _ : state) {
        ini.IniListsReset();
        ini.IniSectionRead("C:\\big.ini", "Big");
        benchmark::DoNotOptimize(ini.IniKeyCount());
        m.ClearJournal();
    }
}
BENCHMARK(BM_ReadFullSection);

// Start-up and close of the whole window on a machine with 15 drives.
void BM_StartAndClose(benchmark::State& state) {
    for (auto _ : state) {
        fake::Machine m;
        AddDrives(m, 15);
        m.AddFolder("C:\\Program Files\\Kestrine");
        auto services = m.services();
        fake::HeadlessView view;
        app::frmMain form(services, view);
        form.Form_Load();
        form.Activate();
        form.Unload();
        benchmark::DoNotOptimize(m.Ended());
    }
}
BENCHMARK(BM_StartAndClose);

} // namespace
