// kestrinectl: lists, releases and watches drives from the command line, with
// the logic of the Kestrine window on this system's backend, or on a
// simulated machine (--machine FILE.json).
#include <csignal>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "ctl/ctl.h"

#if defined(KESTRINE_CTL_MACHINE)
#include <nlohmann/json.hpp>

#include "platform/fake/machine.h"
#include "platform/fake/processes.h"
#endif

#if defined(KESTRINE_CTL_LINUX)
#include "platform/linux/processes.h"
#include "platform/linux/system.h"
#endif
#if defined(KESTRINE_CTL_WIN32)
#include "platform/win32/backend.h"
#include "win32_processes.h"
#endif

namespace {

#if defined(KESTRINE_CTL_LINUX)
volatile std::sig_atomic_t gStop = 0;
extern "C" void OnSignal(int) { gStop = 1; }
#endif

#if defined(KESTRINE_CTL_MACHINE)
int RunOnMachine(const ctl::Options& options, const std::string& file) {
    std::ifstream in(file);
    if (!in) {
        std::cerr << "kestrinectl: The machine description " << file << " cannot be read.\n";
        return ctl::kBadArguments;
    }
    std::stringstream text;
    text << in.rdbuf();
    fake::Machine machine;
    fake::FakeProcesses processes;
    try {
        fake::Machine::LoadJson(machine, text.str());
        processes.LoadJson(nlohmann::json::parse(text.str()));
    } catch (const std::exception& e) {
        std::cerr << "kestrinectl: " << e.what() << '\n';
        return ctl::kBadArguments;
    }
    platform::Services services = machine.services();
    ctl::Tool tool({services, processes, {}});
    return tool.Run(options, std::cout, std::cerr);
}
#endif

#if defined(KESTRINE_CTL_LINUX)
int RunOnLinux(const ctl::Options& options) {
    linuxbk::System::Options o;
    o.events = options.command == "watch";
    linuxbk::System system(o);
    platform::Services services = system.Services();
    linuxbk::LinuxProcesses processes(system.Map());
    auto place = [&](const std::string& root) -> std::optional<ctl::DrivePlace> {
        const linuxbk::DriveRecord* d = system.Map().Find(root.empty() ? '?' : root[0]);
        if (d == nullptr) return std::nullopt;
        return ctl::DrivePlace{d->mountPoint, d->devNode};
    };
    auto watch = [&](const std::function<void(const ctl::WatchEvent&)>& sink) {
        linuxbk::EventSources* events = system.Events();
        if (events == nullptr || events->MonitorSource().empty()) return false;
        std::signal(SIGINT, OnSignal);
        std::signal(SIGTERM, OnSignal);
        using Kind = linuxbk::SystemEvent::Kind;
        while (gStop == 0) {
            for (const auto& e : events->Wait(250)) {
                ctl::WatchEvent w;
                w.kind = e.kind == Kind::DeviceArrived   ? "arrival"
                         : e.kind == Kind::DeviceRemoved ? "removal"
                                                         : "change";
                w.root = e.path1.size() >= 3 && e.path1[1] == ':' ? e.path1.substr(0, 3) : "";
                for (int bit = 0; bit < 26 && w.root.empty(); ++bit)
                    if ((e.driveMask >> bit & 1u) != 0) w.root = std::string(1, static_cast<char>('A' + bit)) + ":\\";
                w.detail = w.kind == "change" ? std::string(linuxbk::KindName(e.kind)) + " " + e.path1 +
                                                    (e.path2.empty() ? "" : " -> " + e.path2)
                                              : e.device;
                sink(w);
            }
        }
        return true;
    };
    ctl::Tool tool({services, processes, place});
    return tool.Run(options, std::cout, std::cerr, watch);
}
#endif

#if defined(KESTRINE_CTL_WIN32)
int RunOnWindows(const ctl::Options& options) {
    win32::Backend backend;
    platform::Services services = backend.services();
    ctlwin::RestartManagerProcesses processes;
    ctl::Tool tool({services, processes, {}});
    return tool.Run(options, std::cout, std::cerr);
}
#endif

} // namespace

int main(int argc, char** argv) {
    const ctl::Parsed parsed = ctl::ParseArgs(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.error.empty()) {
        std::cerr << "kestrinectl: " << parsed.error << " See kestrinectl --help.\n";
        return ctl::kBadArguments;
    }
    const ctl::Options& options = parsed.options;
    if (options.help) {
        std::cout << ctl::Usage(options.command);
        return ctl::kOk;
    }
    try {
        if (!options.machine.empty()) {
#if defined(KESTRINE_CTL_MACHINE)
            return RunOnMachine(options, options.machine);
#else
            std::cerr << "kestrinectl: This build cannot run a simulated machine.\n";
            return ctl::kBadArguments;
#endif
        }
#if defined(KESTRINE_CTL_LINUX)
        return RunOnLinux(options);
#elif defined(KESTRINE_CTL_WIN32)
        return RunOnWindows(options);
#else
        std::cerr << "kestrinectl: This build has no backend for this system; use --machine FILE.json.\n";
        return ctl::kSystemError;
#endif
    } catch (const std::exception& e) {
        std::cerr << "kestrinectl: " << e.what() << '\n';
        return ctl::kSystemError;
    }
}
