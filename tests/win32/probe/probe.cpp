// The smoke run's eyes on the Windows side: finds a top-level window by its
// caption with FindWindowA and tells its outer and client size in pixels,
// whether it is the foreground window, and how many windows carry that
// caption; with "minimize" it minimizes the window first. Exit code 0 when
// the window was found, 1 when not.
//   kestrine-probe "<caption>" [minimize]
#include <windows.h>

#include <cstdio>
#include <string>

namespace {

struct Count {
    std::string caption;
    int windows = 0;
};

BOOL CALLBACK CountWindow(HWND hwnd, LPARAM data) {
    auto* count = reinterpret_cast<Count*>(data);
    char text[512]{};
    ::GetWindowTextA(hwnd, text, sizeof text);
    if (count->caption == text && ::IsWindowVisible(hwnd)) ++count->windows;
    return TRUE;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: kestrine-probe <caption> [minimize]\n");
        return 2;
    }
    HWND window = ::FindWindowA(nullptr, argv[1]);
    if (window == nullptr) {
        std::printf("found=0\n");
        return 1;
    }
    if (argc == 3 && std::string(argv[2]) == "minimize") ::ShowWindow(window, SW_MINIMIZE);
    RECT outer{}, client{};
    ::GetWindowRect(window, &outer);
    ::GetClientRect(window, &client);
    Count count{argv[1]};
    ::EnumWindows(&CountWindow, reinterpret_cast<LPARAM>(&count));
    HDC screen = ::GetDC(nullptr);
    const int dpi = ::GetDeviceCaps(screen, LOGPIXELSX);
    ::ReleaseDC(nullptr, screen);
    std::printf("found=1\nouter=%ldx%ld\nclient=%ldx%ld\ndpi=%d\nforeground=%d\niconic=%d\nwindows=%d\n",
                outer.right - outer.left, outer.bottom - outer.top, client.right, client.bottom, dpi,
                ::GetForegroundWindow() == window ? 1 : 0, ::IsIconic(window) ? 1 : 0, count.windows);
    return 0;
}
