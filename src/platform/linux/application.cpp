#include "platform/linux/application.h"
#include "platform/win_numbers.h"

#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace linuxbk {

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

// --- the application service ---

LinuxApplication::LinuxApplication(LetterMap& map, InstanceChannel& channel, std::string commandLine, std::string title)
    : map_(map), channel_(channel), commandLine_(std::move(commandLine)), title_(std::move(title)) {}

bool LinuxApplication::PrevInstance() { return !channel_.Claim(platform::kHiddenWindowClass, title_); }

std::string LinuxApplication::Path() { return map_.ToWindows(Parent(ReadLink("/proc/self/exe"))).value_or("C:\\"); }

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
    if (!current.empty() && vb::UCase(current.substr(0, 1)) == vb::UCase(drive.substr(0, 1))) return true;
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
    rest = vb::TrimBlanks(rest);
    if (!rest.empty()) args.push_back(rest);
    return args;
}

std::string LinuxApplication::CommandLineOf(const std::vector<std::string>& arguments) {
    std::string line;
    for (const auto& a : arguments) {
        if (&a != &arguments.front()) line += ' ';
        if (!a.empty() && a.find_first_of(" \t\n\v\"") == std::string::npos) {
            line += a;
            continue;
        }
        line += '"';
        std::size_t backslashes = 0;
        for (const char c : a) {
            if (c == '\\') {
                ++backslashes;
                continue;
            }
            // Backslashes before a quote are doubled, and the quote escaped.
            line.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
            backslashes = 0;
            line += c;
        }
        // Before the closing quote they are doubled too.
        line.append(backslashes * 2, '\\');
        line += '"';
    }
    return line;
}

bool LinuxApplication::CreateProcessA(const std::string& applicationName, const std::string& commandLine) {
    const auto native = map_.ToNative(applicationName);
    if (!native || ::access(native->c_str(), X_OK) != 0) return false;
    return Spawn(Arguments(*native, applicationName, commandLine));
}

} // namespace linuxbk
