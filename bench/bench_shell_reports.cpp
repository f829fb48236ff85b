// A burst of shell change reports on a machine with ten drives: each report is
// decoded into the event log and refreshes the USB drive list and caption.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "app/frmMain.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

constexpr int kReports = 10000;

void BM_ShellReportBurst(benchmark::State& state) {
    double firstUs = 0, lastUs = 0, totalMs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        fake::Machine m;
        for (int i = 0; i < 10; ++i) {
            fake::Drive d;
            d.root = std::string(1, static_cast<char>('C' + i)) + ":\\";
            d.type = i == 0 ? platform::kDriveFixed : platform::kDriveRemovable;
            d.label = i == 0 ? "System" : "STICK" + std::to_string(i);
            d.totalBytes = 16ull << 30;
            d.freeBytes = 4ull << 30;
            m.AddDrive(d);
        }
        m.AddFolder("C:\\Program Files\\Kestrine");
        auto services = m.services();
        fake::HeadlessView view;
        app::frmMain form(services, view);
        form.Form_Load();
        form.Activate();
        const platform::Pidl item = m.ShellItem("report.txt", "E:\\report.txt");
        state.ResumeTiming();

        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < kReports; ++i) {
            const auto t0 = std::chrono::steady_clock::now();
            m.ShellReport(0x2, item, 0); // a file created
            const auto t1 = std::chrono::steady_clock::now();
            const double us = std::chrono::duration<double, std::micro>(t1 - t0).count();
            if (i == 0) firstUs = us;
            if (i == kReports - 1) lastUs = us;
            if (i % 1000 == 999) m.ClearJournal(); // the simulated machine's own record, not the program's
        }
        totalMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
        benchmark::DoNotOptimize(view.TextLength(app::Ctl::Text1));
    }
    state.counters["total_ms"] = totalMs;
    state.counters["first_report_us"] = firstUs;
    state.counters["last_report_us"] = lastUs;
}
BENCHMARK(BM_ShellReportBurst)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
