#include "linux_watch.h"

#include <poll.h>

namespace ctllinux {

platform::WindowHandle LinuxWatchLoop::Window() { return system_.Events() != nullptr ? kWatchWindow : 0; }

void LinuxWatchLoop::Run(const Seen& seen) {
    linuxbk::EventSources* events = system_.Events();
    if (events == nullptr) return;
    linuxbk::ConsoleWindows& console = system_.Console();
    console.SetOwnProcedure([&seen](platform::WindowHandle, std::uint32_t message, std::uintptr_t wParam,
                                    std::intptr_t lParam) -> std::intptr_t {
        seen(message, wParam, lParam);
        return 0;
    });
    while (keepGoing_()) {
        std::vector<pollfd> fds = events->PollFds();
        if (wakeFd_ >= 0) fds.push_back({wakeFd_, POLLIN, 0});
        ::poll(fds.data(), fds.size(), waitMs_); // an interruption ends the wait as an event does
        for (const auto& event : events->Read()) system_.Deliver(kWatchWindow, event);
    }
    console.SetOwnProcedure({});
}

} // namespace ctllinux
