#include "win32_watch.h"

#include <windows.h>

namespace ctlwin {

namespace {

constexpr const char* kClassName = "KestrinectlWatch";
WatchWindow* gActive = nullptr; // the window being watched; one per process

LRESULT CALLBACK WatchProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CLOSE) {
        ::PostQuitMessage(0);
        return 0;
    }
    if (gActive != nullptr) gActive->Reached(message, wParam, lParam);
    return ::DefWindowProcA(hwnd, message, wParam, lParam);
}

} // namespace

WatchWindow::WatchWindow(win32::WindowSystem& windows) : windows_(windows) {
    const HINSTANCE instance = ::GetModuleHandleA(nullptr);
    WNDCLASSA wc{};
    wc.lpfnWndProc = &WatchProcedure;
    wc.hInstance = instance;
    wc.lpszClassName = kClassName;
    ::RegisterClassA(&wc); // fails harmlessly when a second watcher registered it already
    // A top-level window (never shown): only top-level windows receive the
    // device broadcasts; a message-only window would not.
    const HWND hwnd = ::CreateWindowExA(0, kClassName, "kestrinectl watch", WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr,
                                        instance, nullptr);
    window_ = static_cast<platform::WindowHandle>(reinterpret_cast<std::uintptr_t>(hwnd));
    gActive = this;
}

WatchWindow::~WatchWindow() {
    if (gActive == this) gActive = nullptr;
    if (window_ != 0) ::DestroyWindow(reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window_)));
}

void WatchWindow::Reached(std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    if (seen_ != nullptr) (*seen_)(message, wParam, lParam);
}

void WatchWindow::Run(const Seen& seen) {
    if (window_ == 0) return;
    seen_ = &seen;
    running_ = true;
    MSG msg;
    while (::GetMessageA(&msg, nullptr, 0, 0) > 0) windows_.Dispatch(&msg);
    running_ = false;
    seen_ = nullptr;
}

void WatchWindow::Stop() {
    ::PostMessageA(reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window_)), WM_CLOSE, 0, 0);
}

} // namespace ctlwin
