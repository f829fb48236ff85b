// The running program: instance guard, hidden application window, folder,
// command line, end of the process and the user's decimal separator.
#include "platform/win32/raii.h"

#include "platform/win32/backend.h"

namespace win32 {

namespace {
constexpr const char* kHiddenClass = platform::kHiddenWindowClass;
constexpr const char* kInstanceMutex = "Local\\Kestrine.Instance";

// The hidden window has nothing to do but exist; the system's default
// procedure answers everything.
ATOM RegisterHiddenClass(HINSTANCE instance) {
    static ATOM atom = 0;
    if (atom != 0) return atom;
    WNDCLASSA wc{};
    wc.lpfnWndProc = ::DefWindowProcA;
    wc.hInstance = instance;
    wc.lpszClassName = kHiddenClass;
    atom = ::RegisterClassA(&wc);
    return atom;
}
} // namespace

Application::Application() {
    // The mutex lives as long as the process; the system closes it at the end.
    HANDLE mutex = ::CreateMutexA(nullptr, FALSE, kInstanceMutex);
    otherRunning_ = mutex != nullptr && ::GetLastError() == ERROR_ALREADY_EXISTS;
    mutex_ = reinterpret_cast<std::uintptr_t>(mutex);

    HINSTANCE instance = ::GetModuleHandleA(nullptr);
    RegisterHiddenClass(instance);
    HWND hidden = ::CreateWindowExA(WS_EX_TOOLWINDOW, kHiddenClass, title_.c_str(), WS_POPUP, 0, 0, 0, 0, nullptr,
                                    nullptr, instance, nullptr);
    hidden_ = FromHwnd(hidden);
}

Application::~Application() {
    if (hidden_ != 0) ::DestroyWindow(ToHwnd(hidden_));
    if (mutex_ != 0) ::CloseHandle(reinterpret_cast<HANDLE>(mutex_));
}

bool Application::PrevInstance() { return otherRunning_; }

void Application::SetTitle(const std::string& title) {
    title_ = title;
    if (hidden_ != 0) ::SetWindowTextA(ToHwnd(hidden_), title_.c_str());
}

std::string Application::Path() {
    char buffer[MAX_PATH + 1]{};
    const DWORD n = ::GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    std::string path(buffer, n);
    const auto slash = path.find_last_of("\\/");
    if (slash == std::string::npos) return {};
    path.resize(slash);
    if (path.size() == 2 && path[1] == ':') path += '\\'; // a drive root keeps its backslash
    return path;
}

std::string Application::ArgumentsOf(const std::wstring& commandLine) {
    std::size_t at = 0;
    const std::size_t n = commandLine.size();
    if (n > 0 && commandLine[0] == L'"') {
        at = commandLine.find(L'"', 1);
        at = at == std::wstring::npos ? n : at + 1;
    } else {
        while (at < n && commandLine[at] != L' ' && commandLine[at] != L'\t') ++at;
    }
    while (at < n && (commandLine[at] == L' ' || commandLine[at] == L'\t')) ++at;
    const std::wstring rest = commandLine.substr(at);
    if (rest.empty()) return {};
    const int wide = static_cast<int>(rest.size());
    const int bytes = ::WideCharToMultiByte(CP_ACP, 0, rest.c_str(), wide, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return {};
    std::string out(static_cast<std::size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_ACP, 0, rest.c_str(), wide, out.data(), bytes, nullptr, nullptr);
    return out;
}

// The command line as the system gives it to the process, less the program's name.
std::string Application::CommandLine() {
    const wchar_t* line = ::GetCommandLineW();
    return line == nullptr ? std::string{} : ArgumentsOf(line);
}

void Application::ExitProcess(std::uint32_t code) { ::ExitProcess(code); }

char Application::DecimalSeparator() {
    char buffer[8]{};
    if (::GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, buffer, sizeof buffer) > 1) return buffer[0];
    return '.';
}

std::string Application::CurDir() {
    char buffer[MAX_PATH + 1]{};
    const DWORD n = ::GetCurrentDirectoryA(sizeof buffer, buffer);
    return n > 0 && n < sizeof buffer ? std::string(buffer, n) : std::string{};
}

// Changing the drive goes to the folder the process last used on it (the
// system keeps one per drive), or its root.
bool Application::ChDrive(const std::string& drive) {
    if (drive.empty()) return false;
    const std::string name = std::string(1, drive[0]) + ":";
    char folder[MAX_PATH + 1]{};
    const DWORD n = ::GetFullPathNameA(name.c_str(), sizeof folder, folder, nullptr);
    if (n == 0 || n >= sizeof folder) return false;
    return ::SetCurrentDirectoryA(folder) != FALSE;
}

bool Application::ChDir(const std::string& path) { return ::SetCurrentDirectoryA(path.c_str()) != FALSE; }

bool Application::CreateProcessA(const std::string& applicationName, const std::string& commandLine) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_SHOWNORMAL;
    PROCESS_INFORMATION started{};
    std::string line = commandLine; // the system may write into the command line
    const BOOL ok = ::CreateProcessA(applicationName.c_str(), line.empty() ? nullptr : line.data(), nullptr, nullptr,
                                     FALSE, 0, nullptr, nullptr, &startup, &started);
    if (!ok) return false;
    UniqueHandle process(started.hProcess), thread(started.hThread);
    return true;
}

} // namespace win32
