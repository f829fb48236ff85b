#include "platform/linux/desktop.h"

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace linuxbk {

namespace {

bool Address(const std::string& path, sockaddr_un& address, socklen_t& length) {
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

UniqueFd Connect(const std::string& path) {
    sockaddr_un address{};
    socklen_t length = 0;
    if (!Address(path, address, length)) return UniqueFd();
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) return fd;
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) return UniqueFd();
    return fd;
}

// A folder that is this user's alone: made with 0700 when missing, and
// used only when it is a real folder (no link) owned by the user with no
// access for anyone else.
bool Private(const std::string& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat st {};
    return ::lstat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() &&
           (st.st_mode & 077) == 0;
}

// A request line may take this long to arrive after its connection.
constexpr auto kClientPatience = std::chrono::seconds(2);

constexpr const char* kRecycleBin = "::{645FF040-5081-101B-9F08-00AA002F954E}";

} // namespace

// --- the previous-instance channel ---

InstanceChannel::InstanceChannel() : ready_(::epoll_create1(EPOLL_CLOEXEC)) {}

InstanceChannel::~InstanceChannel() {
    if (listener_) ::unlink(path_.c_str());
}

std::string InstanceChannel::Folder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/') {
        struct stat st {};
        if (::stat(runtime, &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0 &&
            Private(std::string(runtime) + "/kestrine"))
            return std::string(runtime) + "/kestrine";
    }
    const std::string fallback = "/tmp/kestrine-" + std::to_string(::getuid());
    return Private(fallback) ? fallback : std::string();
}

std::string InstanceChannel::Path(const std::string& className, const std::string& title) {
    const std::string folder = Folder();
    if (folder.empty()) return {};
    std::string name = className + "." + title;
    for (char& c : name)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20) c = '_';
    return folder + "/" + name;
}

bool InstanceChannel::Claim(const std::string& className, const std::string& title) {
    if (listener_ && className == className_ && title == title_) return true;
    const std::string path = Path(className, title);
    sockaddr_un address{};
    socklen_t length = 0;
    if (!Address(path, address, length)) return true; // without a channel every instance counts as the first
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return true;
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        if (errno != EADDRINUSE) return true;
        if (Connect(path)) return false; // another instance answers
        // Left by an instance that ended without cleaning up.
        ::unlink(path.c_str());
        if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) return errno != EADDRINUSE;
    }
    if (::listen(fd.get(), 8) != 0) return true;
    if (ready_) {
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.fd = fd.get();
        ::epoll_ctl(ready_.get(), EPOLL_CTL_ADD, fd.get(), &e);
    }
    listener_ = std::move(fd);
    className_ = className;
    title_ = title;
    path_ = path;
    return true;
}

bool InstanceChannel::Reachable(const std::string& className, const std::string& title) {
    return static_cast<bool>(Connect(Path(className, title)));
}

bool InstanceChannel::Send(const std::string& className, const std::string& title, const std::string& request) {
    UniqueFd fd = Connect(Path(className, title));
    if (!fd) return false;
    const std::string line = request + "\n";
    return ::send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
}

std::vector<std::string> InstanceChannel::Requests() {
    std::vector<std::string> out;
    if (!listener_) return out;
    const auto now = std::chrono::steady_clock::now();
    // New connections join the clients; none is waited for.
    for (;;) {
        UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client) break;
        ucred peer{};
        socklen_t size = sizeof peer;
        if (::getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::getuid()) continue;
        if (ready_) {
            epoll_event e{};
            e.events = EPOLLIN;
            e.data.fd = client.get();
            ::epoll_ctl(ready_.get(), EPOLL_CTL_ADD, client.get(), &e);
        }
        clients_.push_back({std::move(client), {}, now});
        if (clients_.size() > 32) { // the oldest silent one makes room
            if (ready_) ::epoll_ctl(ready_.get(), EPOLL_CTL_DEL, clients_.front().fd.get(), nullptr);
            clients_.erase(clients_.begin());
        }
    }
    // What the clients have sent; a client is done at its line's end, at
    // its end of input, or when it has kept the channel waiting too long.
    for (auto& c : clients_) {
        char buffer[256];
        bool done = false;
        for (;;) {
            const ssize_t got = ::recv(c.fd.get(), buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0 && c.text.size() < 4096) {
                c.text.append(buffer, static_cast<std::size_t>(got));
                continue;
            }
            done = got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK) || c.text.size() >= 4096;
            break;
        }
        done = done || c.text.find('\n') != std::string::npos || now - c.since > kClientPatience;
        if (!done) continue;
        std::size_t at = 0;
        while (at < c.text.size()) {
            const auto nl = c.text.find('\n', at);
            if (nl == std::string::npos) break; // an unfinished line counts for nothing
            const std::string line = Trim(c.text.substr(at, nl - at));
            if (!line.empty()) out.push_back(line);
            at = nl + 1;
        }
        if (ready_) ::epoll_ctl(ready_.get(), EPOLL_CTL_DEL, c.fd.get(), nullptr);
        c.fd.reset();
    }
    std::erase_if(clients_, [](const Client& c) { return !c.fd; });
    return out;
}

// --- starting programs ---

bool Spawn(const std::vector<std::string>& arguments) {
    if (arguments.empty()) return false;
    std::vector<char*> argv;
    for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int r = arguments[0].find('/') != std::string::npos
                      ? ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ)
                      : ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (r != 0) return false;
    // The child is waited for in the background, so it leaves no zombie.
    std::thread([pid] {
        int status = 0;
        ::waitpid(pid, &status, 0);
    }).detach();
    return true;
}

std::string FindProgram(const std::vector<std::string>& names) {
    const char* path = std::getenv("PATH");
    const std::string dirs = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    for (const auto& name : names) {
        std::size_t at = 0;
        while (at <= dirs.size()) {
            const auto colon = dirs.find(':', at);
            const std::string dir = dirs.substr(at, colon == std::string::npos ? std::string::npos : colon - at);
            const std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
            if (::access(candidate.c_str(), X_OK) == 0) return candidate;
            if (colon == std::string::npos) break;
            at = colon + 1;
        }
    }
    return {};
}

// --- the application ---

LinuxApplication::LinuxApplication(LetterMap& map, InstanceChannel& channel, std::string commandLine, std::string title)
    : map_(map), channel_(channel), commandLine_(std::move(commandLine)), title_(std::move(title)) {}

bool LinuxApplication::PrevInstance() { return !channel_.Claim("ThunderRT6Main", title_); }

std::string LinuxApplication::Path() {
    std::string exe = ReadLink("/proc/self/exe");
    const auto slash = exe.rfind('/');
    exe = slash == std::string::npos || slash == 0 ? std::string("/") : exe.substr(0, slash);
    return map_.ToWindows(exe).value_or("C:\\");
}

void LinuxApplication::ExitProcess(std::uint32_t code) { std::exit(static_cast<int>(code)); }

char LinuxApplication::DecimalSeparator() {
    char separator = '.';
    if (locale_t l = ::newlocale(LC_NUMERIC_MASK, "", static_cast<locale_t>(nullptr))) {
        const char* radix = ::nl_langinfo_l(RADIXCHAR, l);
        if (radix != nullptr && radix[0] != '\0' && radix[1] == '\0') separator = radix[0];
        ::freelocale(l);
    }
    return separator;
}

std::string LinuxApplication::CurDir() {
    char buffer[4096];
    if (::getcwd(buffer, sizeof buffer) == nullptr) return "C:\\";
    return map_.ToWindows(buffer).value_or("C:\\");
}

bool LinuxApplication::ChDrive(const std::string& drive) {
    if (drive.empty()) return false;
    const DriveRecord* d = map_.Find(drive[0]);
    if (d == nullptr || !d->Ready()) return false;
    const std::string current = CurDir();
    if (!current.empty() && Upper(current.substr(0, 1)) == Upper(drive.substr(0, 1))) return true;
    return ::chdir(d->mountPoint.c_str()) == 0;
}

bool LinuxApplication::ChDir(const std::string& path) {
    const auto native = map_.ToNative(path);
    return native && ::chdir(native->c_str()) == 0;
}

std::vector<std::string> LinuxApplication::Arguments(const std::string& nativeProgram,
                                                     const std::string& applicationName,
                                                     const std::string& commandLine) {
    std::vector<std::string> args{nativeProgram};
    std::string rest;
    if (commandLine.starts_with(applicationName))
        rest = commandLine.substr(applicationName.size());
    else if (commandLine.starts_with("\"" + applicationName + "\""))
        rest = commandLine.substr(applicationName.size() + 2);
    else
        rest = commandLine;
    rest = Trim(rest);
    if (!rest.empty()) args.push_back(rest);
    return args;
}

bool LinuxApplication::CreateProcessA(const std::string& applicationName, const std::string& commandLine) {
    const auto native = map_.ToNative(applicationName);
    if (!native || ::access(native->c_str(), X_OK) != 0) return false;
    return Spawn(Arguments(*native, applicationName, commandLine));
}

// --- the shell ---

std::intptr_t LinuxShell::ShellExecuteA(platform::WindowHandle, const std::string& verb, const std::string& file,
                                        const std::string& parameters, const std::string&, std::int32_t) {
    constexpr std::intptr_t kOk = 42, kNotFound = 2, kNoAssociation = 31;
    const std::string v = Lower(verb);
    if (!v.empty() && v != "open" && v != "explore") return kNoAssociation;
    std::string target;
    if (Lower(file) == "explorer.exe" && parameters.find(kRecycleBin) != std::string::npos) {
        target = "trash:///";
    } else if (file.size() >= 2 && file[1] == ':') {
        const auto native = map_.ToNative(file);
        if (!native) return kNotFound;
        target = *native;
    } else {
        target = file;
    }
    std::vector<std::string> command;
    const std::string gio = FindProgram({"gio"});
    const std::string xdg = FindProgram({"xdg-open"});
    if (target == "trash:///" && !gio.empty())
        command = {gio, "open", target};
    else if (!xdg.empty())
        command = {xdg, target};
    else if (!gio.empty())
        command = {gio, "open", target};
    else
        command = {"xdg-open", target};
    const bool started = opener_ ? opener_(command) : (!gio.empty() || !xdg.empty()) && Spawn(command);
    return started ? kOk : kNoAssociation;
}

std::int32_t LinuxShell::Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) {
    auto u32 = [&](std::size_t at) {
        return static_cast<std::uint32_t>(data[at]) | static_cast<std::uint32_t>(data[at + 1]) << 8 |
               static_cast<std::uint32_t>(data[at + 2]) << 16 | static_cast<std::uint32_t>(data[at + 3]) << 24;
    };
    // The record is kept and never shown: the desktop's tray belongs to the window layer.
    const std::uint32_t size = u32(0), window = u32(4), id = u32(8), icon = u32(20);
    const auto key = std::make_pair(window, id);
    if (size != 88) return 0;
    switch (message) {
    case platform::kNimAdd:
        if (window == 0 || trayIcons_.count(key) != 0) return 0;
        trayIcons_[key] = icon;
        return 1;
    case platform::kNimModify:
        if (trayIcons_.count(key) == 0) return 0;
        trayIcons_[key] = icon;
        return 1;
    case platform::kNimDelete:
        return trayIcons_.erase(key) != 0 ? 1 : 0;
    default:
        return 0;
    }
}

std::int32_t LinuxShell::SHGetSpecialFolderLocation(platform::WindowHandle, std::int32_t folder, platform::Pidl& pidl) {
    if (folder != platform::kCsidlDesktop) return -1;
    pidl = items_.Desktop();
    return 0;
}

std::uint32_t LinuxShell::SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t, std::int32_t,
                                                 std::uint32_t message, platform::Pidl root, bool) {
    return items_.Register(window, message, root);
}

std::uintptr_t LinuxShell::SHGetFileInfoA(platform::Pidl pidl, std::uint32_t, std::span<std::uint8_t, 352> info,
                                          std::uint32_t flags) {
    return items_.FileInfo(pidl, info, flags);
}

bool LinuxShell::SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) {
    return items_.PathOf(pidl, path);
}

bool LinuxShell::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) {
    return items_.CopyMemory(destination, source);
}

// --- the console window system ---

ConsoleWindows::ConsoleWindows(LetterMap& map, InstanceChannel& channel, EventSources* events)
    : map_(map), channel_(channel), events_(events) {}

platform::WindowHandle ConsoleWindows::FindWindowA(const std::string& className, const std::string& windowName) {
    if (className != "ThunderRT6Main") return 0;
    if (InstanceChannel::Reachable(className, windowName)) {
        if (channel_.Claimed()) return kOwnHiddenWindow; // this process holds the name
        otherTitle_ = windowName;
        return kOtherHiddenWindow;
    }
    return 0;
}

platform::WindowHandle ConsoleWindows::GetWindow(platform::WindowHandle window, std::uint32_t command) {
    return command == platform::kGwHwndPrev && window == kOtherHiddenWindow ? kOtherMainWindow : 0;
}

bool ConsoleWindows::OpenIcon(platform::WindowHandle window) {
    return window == kOtherMainWindow && InstanceChannel::Send("ThunderRT6Main", otherTitle_, "restore");
}

bool ConsoleWindows::SetForegroundWindow(platform::WindowHandle window) {
    return window == kOtherMainWindow && InstanceChannel::Send("ThunderRT6Main", otherTitle_, "raise");
}

std::int32_t ConsoleWindows::MessageBoxA(platform::WindowHandle, const std::string& text, const std::string& caption,
                                         std::uint32_t type) {
    std::string shown = text;
    for (std::size_t at; (at = shown.find("\r\n")) != std::string::npos;) shown.replace(at, 2, 1, '\n');
    while (!shown.empty() && shown.back() == '\n') shown.pop_back();
    const std::string line = caption + ": " + shown + "\n";
    if (sink_)
        sink_(line);
    else
        std::fputs(line.c_str(), stderr);
    if ((type & 0xF) == platform::kMbYesNo)
        return (type & platform::kMbDefButton2) != 0 ? platform::kIdNo : platform::kIdYes;
    return platform::kIdOk;
}

void ConsoleWindows::DoEvents() {
    channel_.Requests(); // a second start asks to be shown: the console has nothing to show
    if (events_ == nullptr) return;
    for (const auto& e : events_->Read()) {
        if (main_ != 0 && e.kind == SystemEvent::Kind::DeviceArrived)
            Deliver(main_, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
        else if (main_ != 0 && e.kind == SystemEvent::Kind::DeviceRemoved)
            Deliver(main_, platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
        if (observer_) observer_(e);
    }
}

void ConsoleWindows::WaitForMessages(float seconds) {
    std::vector<pollfd> fds = events_ != nullptr ? events_->PollFds() : std::vector<pollfd>{};
    if (channel_.Fd() >= 0) fds.push_back({channel_.Fd(), POLLIN, 0});
    const int ms = static_cast<int>(std::ceil(std::max(seconds, 0.0f) * 1000.0f));
    if (::poll(fds.data(), fds.size(), ms) < 0 && errno != EINTR) ::usleep(static_cast<useconds_t>(ms) * 1000);
}

float ConsoleWindows::Timer() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    ::localtime_r(&t, &local);
    const auto fraction =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() % 1'000'000;
    return static_cast<float>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) +
           static_cast<float>(fraction) / 1e6f;
}

std::intptr_t ConsoleWindows::SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t,
                                           std::intptr_t) {
    if (message == platform::kLvmGetHeader && window != 0) return static_cast<std::intptr_t>(window + 0x1F00);
    return 0;
}

std::intptr_t ConsoleWindows::GetWindowLongA(platform::WindowHandle window, std::int32_t index) {
    if (index == platform::kGwlWndProc) {
        auto it = procedures_.find(window);
        return it == procedures_.end() ? kOwnProcedure : it->second;
    }
    auto it = styles_.find(window);
    return index == platform::kGwlStyle && it != styles_.end() ? it->second : 0;
}

std::intptr_t ConsoleWindows::SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) {
    if (window == 0) return 0;
    if (index == platform::kGwlWndProc) {
        if (value == 0) return 0;
        const std::intptr_t previous = GetWindowLongA(window, index);
        procedures_[window] = value;
        return previous;
    }
    if (index != platform::kGwlStyle) return 0;
    const std::intptr_t previous = GetWindowLongA(window, index);
    styles_[window] = value;
    return previous;
}

std::intptr_t ConsoleWindows::CallWindowProcA(std::intptr_t previous, platform::WindowHandle window,
                                              std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    if (previous == kOwnProcedure) return own_ ? own_(window, message, wParam, lParam) : 0;
    if (previous == 0) return 0;
    return reinterpret_cast<platform::WndProc>(previous)(window, message, wParam, lParam);
}

std::intptr_t ConsoleWindows::Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                      std::intptr_t lParam) {
    return CallWindowProcA(GetWindowLongA(window, platform::kGwlWndProc), window, message, wParam, lParam);
}

bool ConsoleWindows::SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    if (window == 0) return false;
    props_[{window, name}] = value;
    return true;
}

std::intptr_t ConsoleWindows::GetPropA(platform::WindowHandle window, const std::string& name) {
    auto it = props_.find({window, name});
    return it == props_.end() ? 0 : it->second;
}

std::intptr_t ConsoleWindows::RemovePropA(platform::WindowHandle window, const std::string& name) {
    auto it = props_.find({window, name});
    if (it == props_.end()) return 0;
    const std::intptr_t value = it->second;
    props_.erase(it);
    return value;
}

bool ConsoleWindows::MessageBeep(std::uint32_t) {
    if (::isatty(STDERR_FILENO) != 0) {
        const char bell = '\a';
        return ::write(STDERR_FILENO, &bell, 1) == 1;
    }
    return true;
}

bool ConsoleWindows::FlashWindow(platform::WindowHandle window, bool) { return window != 0; }

bool ConsoleWindows::SetWindowPos(platform::WindowHandle window, platform::WindowHandle, std::int32_t, std::int32_t,
                                  std::int32_t, std::int32_t, std::uint32_t) {
    return window != 0;
}

std::optional<std::pair<int, int>> ScreenPixels(const std::string& sysRoot) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(sysRoot + "/class/drm", ec)) {
        const std::string folder = entry.path().string();
        if (ReadAttr(folder + "/status") != "connected") continue;
        const std::string mode = ReadAttr(folder + "/modes"); // "1920x1080"
        const auto x = mode.find('x');
        if (x == std::string::npos) continue;
        try {
            return std::make_pair(std::stoi(mode.substr(0, x)), std::stoi(mode.substr(x + 1)));
        } catch (const std::exception&) {
            continue;
        }
    }
    return std::nullopt;
}

platform::TwipsRect ConsoleWindows::WorkArea() {
    // Without a window toolkit the panels are unknown: the whole screen, or
    // a common one when no display is connected.
    const auto screen = ScreenPixels().value_or(std::make_pair(1920, 1040));
    return {0, 0, screen.first * 15.0, screen.second * 15.0};
}

std::uintptr_t ConsoleWindows::LoadPicture(const std::string& file) {
    const auto native = map_.ToNative(file);
    if (!native || ::access(native->c_str(), R_OK) != 0) return 0;
    return nextPicture_++;
}

} // namespace linuxbk
