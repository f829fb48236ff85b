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
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux_watch.h"
#include "platform/linux/flush.h"
#include "platform/linux/processes.h"
#include "platform/linux/system.h"
#include "platform/linux/volume_id.h"
#endif
#if defined(KESTRINE_CTL_WIN32)
#include <windows.h>

#include "platform/win32/backend.h"
#include "win32_processes.h"
#include "win32_watch.h"
#endif

#if defined(KESTRINE_CTL_LINUX)
extern char** environ;
#endif

namespace {

#if defined(KESTRINE_CTL_LINUX)
volatile std::sig_atomic_t gStop = 0;
int gWake[2] = {-1, -1}; // written by the signal handler to end watch's sleep
extern "C" void OnSignal(int) {
    gStop = 1;
    const char one = 1;
    [[maybe_unused]] const ssize_t put = ::write(gWake[1], &one, 1);
}
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
// polkit's agent for this terminal (pkttyagent), for as long as it lives:
// when an action needs authorisation, the user is asked here.
class TerminalAgent {
public:
    TerminalAgent() {
        int ready[2];
        if (::isatty(STDIN_FILENO) == 0 || ::pipe2(ready, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
        const std::string pid = std::to_string(::getpid());
        const char* argv[] = {"pkttyagent", "--process", pid.c_str(), "--notify-fd", "3", "--fallback", nullptr};
        if (posix_spawnp(&pid_, "pkttyagent", &actions, nullptr, const_cast<char**>(argv), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(ready[1]);
        // The agent closes its end once it is registered.
        char c;
        while (pid_ > 0 && ::read(ready[0], &c, 1) > 0) {
        }
        ::close(ready[0]);
    }
    ~TerminalAgent() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    TerminalAgent(const TerminalAgent&) = delete;
    TerminalAgent& operator=(const TerminalAgent&) = delete;
    bool Running() const { return pid_ > 0; }

private:
    pid_t pid_ = -1;
};

int RunOnLinux(const ctl::Options& options) {
    linuxbk::System::Options o;
    o.events = options.command == "watch";
    std::unique_ptr<TerminalAgent> agent;
    if (options.interactive) {
        agent = std::make_unique<TerminalAgent>();
        o.interactiveAuthorisation = agent->Running();
        if (!agent->Running())
            std::cerr << "kestrinectl: No terminal or no polkit agent (pkttyagent) to ask for authorisation on.\n";
    }
    linuxbk::System system(o);
    platform::Services services = system.Services();
    linuxbk::LinuxProcesses processes(system.Map());
    auto place = [&](const std::string& root) -> std::optional<ctl::DrivePlace> {
        const linuxbk::DriveRecord* d = system.Map().Find(root.empty() ? '?' : root[0]);
        if (d == nullptr) return std::nullopt;
        return ctl::DrivePlace{d->mountPoint, d->devNode};
    };
    auto uuid = [&](const std::string& root) -> std::string {
        const linuxbk::DriveRecord* d = system.Map().Find(root.empty() ? '?' : root[0]);
        return d != nullptr && d->Ready() && d->kind != linuxbk::DriveKind::Network
                   ? linuxbk::IdentifyVolume(linuxbk::DriveRecord(*d)).uuid
                   : std::string();
    };
    if (::pipe2(gWake, O_CLOEXEC | O_NONBLOCK) != 0) gWake[0] = gWake[1] = -1;
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    ctllinux::LinuxWatchLoop watch(
        system, [] { return gStop == 0; }, -1, gWake[0]);
    auto flush = [&](const std::string& root, const std::function<void(const ctl::FlushProgress&)>& progress) {
        return linuxbk::FlushDevice(system.Map(), root, [&](const linuxbk::FlushProgress& p) {
            progress({p.bytesLeft, p.systemWide, p.bytesWritten, p.done});
        });
    };
    ctl::Tool tool({services, processes, place, uuid, flush, ::isatty(STDERR_FILENO) != 0});
    return tool.Run(options, std::cout, std::cerr, &watch);
}
#endif

#if defined(KESTRINE_CTL_WIN32)
ctlwin::WatchWindow* gWatch = nullptr;

BOOL WINAPI OnConsoleControl(DWORD) {
    if (gWatch == nullptr) return FALSE;
    gWatch->Stop();
    return TRUE;
}

int RunOnWindows(const ctl::Options& options) {
    win32::Backend backend;
    platform::Services services = backend.services();
    ctlwin::RestartManagerProcesses processes;
    ctl::Tool tool({services, processes, {}});
    if (options.command != "watch" || options.help) return tool.Run(options, std::cout, std::cerr);
    ctlwin::WatchWindow watch(backend.windows);
    gWatch = &watch;
    ::SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
    const int code = tool.Run(options, std::cout, std::cerr, &watch);
    ::SetConsoleCtrlHandler(&OnConsoleControl, FALSE);
    gWatch = nullptr;
    return code;
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
    if (options.version) {
        std::cout << "kestrinectl " << KESTRINE_VERSION << '\n';
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
