// The half-second close wait on the Linux program's window systems (the
// console one of kestrinectl, the Qt window's), with nothing to do meanwhile:
// the CPU time it uses is what matters, as the wait should sleep, not spin.
// Google Benchmark's CPU column is the figure (bench/compare.py reads it).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <cstdlib>
#include <filesystem>

#include "core/program.h"
#include "platform/fake/headless_view.h"
#include "platform/linux/system.h"
#include "platform/qt/qt_window.h"
#include "platform/qt/qt_window_system.h"

namespace {

linuxbk::System::Options Quiet() {
    linuxbk::System::Options o;
    o.events = false;
    return o;
}

void Wait(app::Program& program, benchmark::State& state) {
    for (auto _ : state) program.WaitSince(program.sys.windows.Timer(), 0.5f);
}

void BM_CloseWaitConsole(benchmark::State& state) {
    linuxbk::System system(Quiet());
    platform::Services services = system.Services();
    fake::HeadlessView view;
    app::Program program(services, view);
    Wait(program, state);
}
BENCHMARK(BM_CloseWaitConsole)->Iterations(4)->Unit(benchmark::kMillisecond);

void BM_CloseWaitQt(benchmark::State& state) {
    linuxbk::System system(Quiet());
    qtui::QtWindow window;
    qtui::QtWindowSystem windows(system.Console(), window);
    platform::Services services = system.Services(&windows);
    app::Program program(services, window);
    Wait(program, state);
}
BENCHMARK(BM_CloseWaitQt)->Iterations(4)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    if (std::getenv("QT_QPA_PLATFORM") == nullptr) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) {
        const auto runtime = std::filesystem::temp_directory_path() / ("kestrine-bench-" + std::to_string(getuid()));
        std::filesystem::create_directories(runtime);
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    }
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
