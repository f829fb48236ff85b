// The window system: other windows, message boxes, yielding, the timer, window
// longs, the procedure chain, properties, the work area and icons from files.
#include "platform/win32/raii.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <utility>

#include "platform/win32/backend.h"

namespace win32 {

namespace {

// --- logic procedures behind real WNDPROCs ---

// Slot i holds the logic procedure that trampoline i calls. Slots are taken on
// first use and kept, so a procedure value means the same trampoline for the
// life of the process, on every window.
std::array<platform::WndProc, WindowSystem::kProcedureSlots> gSlots{};
std::mutex gSlotsMutex;

template <std::size_t I> LRESULT CALLBACK Trampoline(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    const platform::WndProc proc = gSlots[I];
    if (proc == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    return proc(FromHwnd(hWnd), message, wParam, lParam);
}

template <std::size_t... I> constexpr std::array<WNDPROC, sizeof...(I)> MakeTrampolines(std::index_sequence<I...>) {
    return {&Trampoline<I>...};
}
constexpr auto kTrampolines = MakeTrampolines(std::make_index_sequence<WindowSystem::kProcedureSlots>{});

std::intptr_t ProcValue(WNDPROC proc) { return reinterpret_cast<std::intptr_t>(proc); }

// The trampoline of a logic procedure, taking a free slot the first time; -1
// when every slot is taken.
int SlotOf(platform::WndProc proc, bool take) {
    std::lock_guard lock(gSlotsMutex);
    for (std::size_t i = 0; i < gSlots.size(); ++i)
        if (gSlots[i] == proc) return static_cast<int>(i);
    if (!take) return -1;
    for (std::size_t i = 0; i < gSlots.size(); ++i)
        if (gSlots[i] == nullptr) {
            gSlots[i] = proc;
            return static_cast<int>(i);
        }
    return -1;
}

// The trampoline's slot, or -1 for a procedure that is not one of them.
int TrampolineSlot(std::intptr_t value) {
    for (std::size_t i = 0; i < kTrampolines.size(); ++i)
        if (ProcValue(kTrampolines[i]) == value) return static_cast<int>(i);
    return -1;
}

// What the logic sees of a procedure in a window: its own function for a
// trampoline, the system's value for anything else.
std::intptr_t ToLogic(std::intptr_t native) {
    const int slot = TrampolineSlot(native);
    if (slot < 0) return native;
    std::lock_guard lock(gSlotsMutex);
    return reinterpret_cast<std::intptr_t>(gSlots[static_cast<std::size_t>(slot)]);
}

// What goes into the window for a value the logic passes: a logic procedure
// becomes its trampoline; a value the system gave out stays as it is. A value
// is a logic procedure unless the system knows it as a window procedure value
// already (it was returned from a window) — the backend remembers those.
std::mutex gNativeMutex;
std::vector<std::intptr_t> gNativeValues;

void RememberNative(std::intptr_t value) {
    if (value == 0 || TrampolineSlot(value) >= 0) return;
    std::lock_guard lock(gNativeMutex);
    for (auto v : gNativeValues)
        if (v == value) return;
    gNativeValues.push_back(value);
}

bool IsNative(std::intptr_t value) {
    std::lock_guard lock(gNativeMutex);
    for (auto v : gNativeValues)
        if (v == value) return true;
    return false;
}

std::intptr_t ToNative(std::intptr_t value) {
    if (value == 0 || IsNative(value) || TrampolineSlot(value) >= 0) return value;
    const int slot = SlotOf(reinterpret_cast<platform::WndProc>(value), true);
    return slot < 0 ? 0 : ProcValue(kTrampolines[static_cast<std::size_t>(slot)]);
}

// Pixels per logical inch of the screen.
int ScreenDpi() {
    HDC dc = ::GetDC(nullptr);
    const int dpi = dc != nullptr ? ::GetDeviceCaps(dc, LOGPIXELSX) : 96;
    if (dc != nullptr) ::ReleaseDC(nullptr, dc);
    return dpi > 0 ? dpi : 96;
}

} // namespace

WindowSystem::WindowSystem() = default;

WindowSystem::~WindowSystem() {
    for (auto icon : pictures_) ::DestroyIcon(reinterpret_cast<HICON>(icon));
}

platform::WindowHandle WindowSystem::FindWindowA(const std::string& className, const std::string& windowName) {
    return FromHwnd(::FindWindowA(className.c_str(), windowName.c_str()));
}

platform::WindowHandle WindowSystem::GetWindow(platform::WindowHandle window, std::uint32_t command) {
    return FromHwnd(::GetWindow(ToHwnd(window), command));
}

bool WindowSystem::OpenIcon(platform::WindowHandle window) { return ::OpenIcon(ToHwnd(window)) != FALSE; }

bool WindowSystem::SetForegroundWindow(platform::WindowHandle window) {
    return ::SetForegroundWindow(ToHwnd(window)) != FALSE;
}

std::int32_t WindowSystem::MessageBoxA(platform::WindowHandle owner, const std::string& text,
                                       const std::string& caption, std::uint32_t type) {
    return ::MessageBoxA(ToHwnd(owner), text.c_str(), caption.c_str(), type);
}

void WindowSystem::Dispatch(void* message) {
    auto* msg = static_cast<MSG*>(message);
    if (filter_ && filter_(msg)) return;
    ::TranslateMessage(msg);
    ::DispatchMessageA(msg);
}

void WindowSystem::DoEvents() {
    MSG msg;
    while (::PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        if (msg.message == WM_QUIT) {
            // Leave the end of the loop to the program's own message loop.
            ::PostQuitMessage(static_cast<int>(msg.wParam));
            return;
        }
        Dispatch(&msg);
    }
}

void WindowSystem::WaitForMessages(float seconds) {
    const auto ms = static_cast<DWORD>(std::ceil(std::max(seconds, 0.0f) * 1000.0f));
    ::MsgWaitForMultipleObjectsEx(0, nullptr, ms, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
}

float WindowSystem::Timer() {
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    return static_cast<float>(now.wHour * 3600 + now.wMinute * 60 + now.wSecond) +
           static_cast<float>(now.wMilliseconds) / 1000.0f;
}

std::intptr_t WindowSystem::SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                         std::intptr_t lParam) {
    return ::SendMessageA(ToHwnd(window), message, wParam, lParam);
}

std::intptr_t WindowSystem::GetWindowLongA(platform::WindowHandle window, std::int32_t index) {
    const LONG_PTR value = ::GetWindowLongPtrA(ToHwnd(window), index);
    if (index == platform::kGwlWndProc) {
        RememberNative(value);
        return ToLogic(value);
    }
    return value;
}

std::intptr_t WindowSystem::SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) {
    if (index != platform::kGwlWndProc) return ::SetWindowLongPtrA(ToHwnd(window), index, value);
    const std::intptr_t native = ToNative(value);
    if (native == 0) return 0;
    ::SetLastError(0);
    const LONG_PTR previous = ::SetWindowLongPtrA(ToHwnd(window), GWLP_WNDPROC, native);
    if (previous == 0) return 0;
    RememberNative(previous);
    return ToLogic(previous);
}

std::intptr_t WindowSystem::CallWindowProcA(std::intptr_t previous, platform::WindowHandle window,
                                            std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    const std::intptr_t native = IsNative(previous) ? previous : ToNative(previous);
    if (native == 0) return 0;
    return ::CallWindowProcA(reinterpret_cast<WNDPROC>(native), ToHwnd(window), message, wParam, lParam);
}

bool WindowSystem::SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    return ::SetPropA(ToHwnd(window), name.c_str(), reinterpret_cast<HANDLE>(value)) != FALSE;
}

std::intptr_t WindowSystem::GetPropA(platform::WindowHandle window, const std::string& name) {
    return FromHandle(::GetPropA(ToHwnd(window), name.c_str()));
}

std::intptr_t WindowSystem::RemovePropA(platform::WindowHandle window, const std::string& name) {
    return FromHandle(::RemovePropA(ToHwnd(window), name.c_str()));
}

bool WindowSystem::MessageBeep(std::uint32_t type) { return ::MessageBeep(type) != FALSE; }

bool WindowSystem::FlashWindow(platform::WindowHandle window, bool invert) {
    return ::FlashWindow(ToHwnd(window), invert ? TRUE : FALSE) != FALSE;
}

bool WindowSystem::SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x,
                                std::int32_t y, std::int32_t cx, std::int32_t cy, std::uint32_t flags) {
    return ::SetWindowPos(ToHwnd(window), ToHwnd(insertAfter), x, y, cx, cy, flags) != FALSE;
}

platform::TwipsRect WindowSystem::WorkArea() {
    RECT area{};
    if (!::SystemParametersInfoA(SPI_GETWORKAREA, 0, &area, 0)) return {};
    const double twips = 1440.0 / ScreenDpi();
    return {area.left * twips, area.top * twips, (area.right - area.left) * twips, (area.bottom - area.top) * twips};
}

std::uintptr_t WindowSystem::LoadPicture(const std::string& file) {
    HANDLE icon = ::LoadImageA(nullptr, file.c_str(), IMAGE_ICON, 0, 0, LR_LOADFROMFILE | LR_DEFAULTSIZE);
    if (icon == nullptr) return 0;
    const auto handle = reinterpret_cast<std::uintptr_t>(icon);
    pictures_.push_back(handle);
    return handle;
}

void WindowSystem::ReleasePicture(std::uintptr_t picture) {
    const auto it = std::find(pictures_.begin(), pictures_.end(), picture);
    if (picture == 0 || it == pictures_.end()) return;
    pictures_.erase(it);
    ::DestroyIcon(reinterpret_cast<HICON>(picture));
}

std::uint32_t WindowSystem::LastError() { return ::GetLastError(); }

// The system's message for an error number, without its closing line break;
// nothing for 0 (no error).
std::string WindowSystem::ErrorText(std::uint32_t number) {
    if (number == 0) return {};
    char text[512]{};
    DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, number, 0, text,
                               sizeof text, nullptr);
    while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == ' ')) --n;
    return std::string(text, n);
}

} // namespace win32
