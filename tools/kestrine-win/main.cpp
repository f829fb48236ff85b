// Kestrine.exe: the logic on the real Windows services, in the native window.
#include "platform/win32/raii.h"
// The backend's header before any other boundary header: it clears a macro of <windows.h>.
#include "platform/win32/backend.h"

#include <memory>

#include "app/frmMain.h"
#include "platform/win32/native_window.h"

namespace {

// System-wide dots per inch: the layout is in twips, converted once.
void BeDpiAware() {
    using Fn = BOOL(WINAPI*)();
    if (auto aware = win32::Export<Fn>("user32.dll", "SetProcessDPIAware")) aware();
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    BeDpiAware();
    win32::Backend backend;
    platform::Services services = backend.services();
    auto window = win32::NativeWindow::Create(backend.windows, backend.app.HiddenWindow());
    if (!window) {
        ::MessageBoxA(nullptr, "The main window could not be created.", "Kestrine", MB_OK | MB_ICONSTOP);
        return 1;
    }
    app::frmMain form(services, *window);
    form.Form_Load();
    if (form.Ended()) return 0; // another instance took over
    window->Show();

    MSG msg;
    while (::GetMessageA(&msg, nullptr, 0, 0) > 0) backend.windows.Dispatch(&msg);
    return static_cast<int>(msg.wParam);
}
