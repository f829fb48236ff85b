#pragma once
// The window system: other top-level windows, message boxes, yielding to the
// message loop and the timer of seconds since midnight.
#include <cstdint>
#include <string>

#include "platform/types.h"

namespace platform {

class WindowSystem {
public:
    virtual ~WindowSystem() = default;

    virtual WindowHandle FindWindowA(const std::string& className, const std::string& windowName) = 0;
    virtual WindowHandle GetWindow(WindowHandle window, std::uint32_t command) = 0;
    virtual bool OpenIcon(WindowHandle window) = 0;
    virtual bool SetForegroundWindow(WindowHandle window) = 0;
    // Modal message box; returns the button pressed (kIdOk, kIdYes, ...).
    virtual std::int32_t MessageBoxA(WindowHandle owner, const std::string& text, const std::string& caption,
                                     std::uint32_t type) = 0;
    // Dispatches the pending window messages and returns.
    virtual void DoEvents() = 0;
    // The time of day in seconds since midnight, with fractions; restarts at 0.
    virtual float Timer() = 0;
};

} // namespace platform
