#pragma once
// The windows of a backend that has no real window manager under the
// program: the handles that stand for the own and another instance's hidden
// windows, each window's chain of procedures (the window's own procedure at
// its end), its style and its named properties. Messages pass along the
// chain as on Windows: an installed procedure gets them first and hands them
// on with CallWindowProcA.
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "platform/window_system.h"

namespace portable {

class WindowProcedures {
public:
    // The hidden application window of this instance, that of an earlier
    // instance, and the earlier instance's main window behind it.
    static constexpr platform::WindowHandle kOwnHiddenWindow = 0x1000;
    static constexpr platform::WindowHandle kOtherHiddenWindow = 0x2000;
    static constexpr platform::WindowHandle kOtherMainWindow = 0x2001;
    // The value standing for a window's own procedure.
    static constexpr std::intptr_t kOwnProcedure = 0x0BA5E;
    // The header control a list view has.
    static constexpr platform::WindowHandle HeaderOf(platform::WindowHandle listView) { return listView + 0x1F00; }

    // What a window's own procedure does with a message.
    using OwnProcedure =
        std::function<std::intptr_t(platform::WindowHandle, std::uint32_t, std::uintptr_t, std::intptr_t)>;

    // The procedure at the head of the window's chain (its own one unless
    // another was installed).
    std::intptr_t Procedure(platform::WindowHandle window) const;
    // Installs a procedure at the head of the chain and returns the one it
    // replaces; 0 (nothing changes) for window 0 or procedure 0.
    std::intptr_t SetProcedure(platform::WindowHandle window, std::intptr_t procedure);
    // Passes a message to a procedure of a chain: the own one goes to own
    // (0 without it), 0 answers 0, any other is a platform::WndProc.
    static std::intptr_t Call(std::intptr_t procedure, platform::WindowHandle window, std::uint32_t message,
                              std::uintptr_t wParam, std::intptr_t lParam, const OwnProcedure& own);
    // Sends a message through the window's chain from its head.
    std::intptr_t Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                          std::intptr_t lParam, const OwnProcedure& own) const {
        return Call(Procedure(window), window, message, wParam, lParam, own);
    }

    // The window's style; 0 when none was set.
    std::intptr_t Style(platform::WindowHandle window) const;
    bool HasStyle(platform::WindowHandle window) const { return styles_.count(window) != 0; }
    // Sets the style and returns the previous one; 0 (nothing changes) for window 0.
    std::intptr_t SetStyle(platform::WindowHandle window, std::intptr_t style);

    // Named properties: setting fails for window 0, a missing one reads 0,
    // removing returns the value it had (0 when there was none).
    bool SetProp(platform::WindowHandle window, const std::string& name, std::intptr_t value);
    std::intptr_t Prop(platform::WindowHandle window, const std::string& name) const;
    std::intptr_t RemoveProp(platform::WindowHandle window, const std::string& name);

private:
    std::map<platform::WindowHandle, std::intptr_t> procedures_;
    std::map<platform::WindowHandle, std::intptr_t> styles_;
    std::map<std::pair<platform::WindowHandle, std::string>, std::intptr_t> props_;
};

} // namespace portable
