#pragma once
// watch on Linux: the backend's event sources (udev, the mount table, inotify
// on removable drives) delivered to a window of the console window system,
// through the procedure chain the tool hooks the program's handling into.
#include <functional>

#include "ctl/ctl.h"
#include "platform/linux/system.h"

namespace ctllinux {

class LinuxWatchLoop : public ctl::WatchLoop {
public:
    // keepGoing is asked after every wake-up: false ends Run. The loop
    // sleeps until an event comes, wakeFd becomes readable (a signal's
    // self-pipe) or, when waitMs is not -1, that many milliseconds passed.
    LinuxWatchLoop(linuxbk::System& system, std::function<bool()> keepGoing, int waitMs = -1, int wakeFd = -1)
        : system_(system), keepGoing_(std::move(keepGoing)), waitMs_(waitMs), wakeFd_(wakeFd) {}

    // The window events are delivered to.
    static constexpr platform::WindowHandle kWatchWindow = 0x3000;

    platform::WindowHandle Window() override;
    void Run(const Seen& seen) override;

private:
    linuxbk::System& system_;
    std::function<bool()> keepGoing_;
    int waitMs_;
    int wakeFd_;
};

} // namespace ctllinux
