// The release of one USB drive whose eject is accepted at once, timed on the
// simulated machine's clock: everything beyond the half-second wait and the
// one-second released notice is the yields themselves (one clock tick each);
// the logic spends no time of its own. Also the real time the logic takes.
#include <benchmark/benchmark.h>

#include <string>

#include "app/frmMain.h"
#include "app/release_command.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

constexpr double kTick = 0.001; // seconds per yield

struct OneStick {
    fake::Machine m;
    platform::Services services{m.services()};
    fake::HeadlessView view;
    app::frmMain form{services, view};

    OneStick() {
        m.SetYieldTick(kTick);
        fake::Drive c;
        c.root = "C:\\";
        c.bus = 3;
        c.deviceNumber = 0;
        m.AddDrive(c);
        fake::Drive e;
        e.root = "E:\\";
        e.type = platform::kDriveRemovable;
        e.label = "STICK";
        e.bus = platform::kBusTypeUsb;
        e.deviceNumber = 1;
        m.AddDrive(e);
        fake::Device usb;
        usb.instanceId = "USB\\VID_0781&PID_5567\\0123456789AB";
        m.hardware().AddDevice(usb);
        fake::Device disk;
        disk.instanceId = "USBSTOR\\DISK&VEN_ACME\\0123456789AB&0";
        disk.parent = usb.instanceId;
        disk.interfaceClass = platform::kGuidDevinterfaceDisk;
        disk.deviceNumber = 1;
        m.hardware().AddDevice(disk);
        view.AddItem(app::Ctl::ListView1, "C:\\");
        view.AddItem(app::Ctl::ListView1, "E:\\");
        view.SetItemSelected(app::Ctl::ListView1, 2, true);
    }
};

void BM_ReleaseOneStick(benchmark::State& state) {
    double fakeSeconds = 0, sleptSeconds = 0, yields = 0;
    for (auto _ : state) {
        state.PauseTiming();
        OneStick s;
        const double before = s.m.Now();
        const auto yieldsBefore = s.m.Yields();
        state.ResumeTiming();

        release::cmdRemoveUSB_Click(s.form);

        state.PauseTiming();
        fakeSeconds = s.m.Now() - before;
        yields = static_cast<double>(s.m.Yields() - yieldsBefore);
        sleptSeconds = 0;
        for (const auto& call : s.m.Calls("Sleep")) sleptSeconds += std::stod(call.args[0]) / 1000.0;
        if (s.m.FindDrive("E:") != nullptr) state.SkipWithError("the stick was not released");
        state.ResumeTiming();
    }
    // Fake-clock seconds from click to buttons enabled again; of them, the
    // seconds not spent yielding (pauses between eject attempts and anything
    // else that costs time): zero when the eject is accepted at once.
    state.counters["fake_s"] = fakeSeconds;
    state.counters["beyond_waits_s"] = fakeSeconds - 1.5;
    state.counters["not_yielding_s"] = fakeSeconds - yields * kTick;
    state.counters["slept_s"] = sleptSeconds;
    state.counters["yields"] = yields;
}
BENCHMARK(BM_ReleaseOneStick)->Unit(benchmark::kMicrosecond);

} // namespace
