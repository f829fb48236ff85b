#pragma once
// watch on Windows: a hidden top-level window receives the system's device
// broadcasts (WM_DEVICECHANGE) and, once the tool has registered it, the
// shell's change reports; a message loop runs until Stop().
#include <atomic>

#include "ctl/ctl.h"
#include "platform/win32/backend.h"

namespace ctlwin {

class WatchWindow : public ctl::WatchLoop {
public:
    explicit WatchWindow(win32::WindowSystem& windows);
    ~WatchWindow() override;
    WatchWindow(const WatchWindow&) = delete;
    WatchWindow& operator=(const WatchWindow&) = delete;

    platform::WindowHandle Window() override { return window_; }
    void Run(const Seen& seen) override;
    // Ends Run once the messages posted before are delivered; callable from
    // any thread (the console's Ctrl+C handler).
    void Stop();
    // Run's loop is receiving messages; callable from any thread.
    bool Running() const { return running_; }

    // What reached the window's procedure.
    void Reached(std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam);

private:
    win32::WindowSystem& windows_;
    platform::WindowHandle window_ = 0;
    const Seen* seen_ = nullptr;
    std::atomic<bool> running_{false};
};

} // namespace ctlwin
