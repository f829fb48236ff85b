#pragma once
// The window system: other top-level windows, message boxes, yielding to the
// message loop and the timer of seconds since midnight.
#include <cstdint>
#include <string>

#include "platform/types.h"
#include "platform/win_numbers.h"

namespace platform {

// A rectangle in twips.
struct TwipsRect {
    double left = 0, top = 0, width = 0, height = 0;
};

inline constexpr WindowHandle kHwndTopmost = static_cast<WindowHandle>(-1);
inline constexpr std::uint32_t kSwpNoSize = 0x1;
inline constexpr std::uint32_t kSwpNoMove = 0x2;
inline constexpr std::uint32_t kSwpNoZOrder = 0x4;
inline constexpr std::uint32_t kSwpShowWindow = 0x40;
inline constexpr std::int32_t kGwlStyle = -16;
inline constexpr std::uint32_t kLvmGetHeader = 0x101F;
inline constexpr std::uint32_t kHdsButtons = 0x2;
inline constexpr std::int32_t kGwlWndProc = -4;

// A window procedure. Procedures installed with SetWindowLongA(kGwlWndProc)
// are passed as this function pointer converted to std::intptr_t.
using WndProc = std::intptr_t (*)(WindowHandle hWnd, std::uint32_t uMsg, std::uintptr_t wParam, std::intptr_t lParam);

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
    // Sleeps until a message comes or the seconds have passed, whichever is
    // first. What came is dispatched by the next DoEvents.
    virtual void WaitForMessages(float seconds) = 0;
    // The time of day in seconds since midnight, with fractions; restarts at 0.
    virtual float Timer() = 0;

    virtual std::intptr_t SendMessageA(WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                       std::intptr_t lParam) = 0;
    virtual std::intptr_t GetWindowLongA(WindowHandle window, std::int32_t index) = 0;
    // Returns the previous value, 0 on failure. With kGwlWndProc the value is
    // a window procedure and the previous procedure is returned.
    virtual std::intptr_t SetWindowLongA(WindowHandle window, std::int32_t index, std::intptr_t value) = 0;
    // Passes a message to a procedure that SetWindowLongA returned.
    virtual std::intptr_t CallWindowProcA(std::intptr_t previous, WindowHandle window, std::uint32_t message,
                                          std::uintptr_t wParam, std::intptr_t lParam) = 0;
    virtual bool SetPropA(WindowHandle window, const std::string& name, std::intptr_t value) = 0;
    // 0 when the window has no such property.
    virtual std::intptr_t GetPropA(WindowHandle window, const std::string& name) = 0;
    virtual std::intptr_t RemovePropA(WindowHandle window, const std::string& name) = 0;
    // The default system beep.
    virtual bool MessageBeep(std::uint32_t type) = 0;
    // Inverts the window's active look once.
    virtual bool FlashWindow(WindowHandle window, bool invert) = 0;
    virtual bool SetWindowPos(WindowHandle window, WindowHandle insertAfter, std::int32_t x, std::int32_t y,
                              std::int32_t cx, std::int32_t cy, std::uint32_t flags) = 0;
    // The screen minus the task bar, in twips (the system-information control's work area).
    virtual TwipsRect WorkArea() = 0;
    // Loads a picture file (an icon); its handle, or 0 when it cannot be loaded.
    virtual std::uintptr_t LoadPicture(const std::string& file) = 0;
    // Gives back a picture that LoadPicture returned; 0 and unknown handles are ignored.
    virtual void ReleasePicture(std::uintptr_t /*picture*/) {}

    // The system's error number of the last call on this thread that failed
    // (0 when the system keeps none), and the system's text for a number.
    virtual std::uint32_t LastError() { return 0; }
    virtual std::string ErrorText(std::uint32_t /*number*/) { return {}; }
};

} // namespace platform
