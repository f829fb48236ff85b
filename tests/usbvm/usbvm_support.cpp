#include "usbvm_support.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/wait.h>

namespace usbvm {

namespace {

std::string Quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Chomp(std::string s) {
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

} // namespace

Result Sh(const std::string& command) {
    const std::string err = "/run/usbvm/stderr." + std::to_string(::getpid());
    Result r;
    FILE* pipe = ::popen(("(" + command + ") 2>" + err).c_str(), "r");
    if (pipe == nullptr) return r;
    char chunk[4096];
    while (std::size_t n = std::fread(chunk, 1, sizeof chunk, pipe)) r.out.append(chunk, n);
    const int status = ::pclose(pipe);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    r.err = Slurp(err);
    std::filesystem::remove(err);
    return r;
}

Result Ctl(const std::vector<std::string>& args, const std::string& user) {
    std::string command = user.empty() ? "" : "setpriv --reuid=" + user + " --regid=" + user + " --clear-groups ";
    command += KESTRINECTL_PATH;
    for (const auto& a : args) command += " " + Quote(a);
    return Sh(command);
}

nlohmann::json Json(const Result& r) {
    try {
        return nlohmann::json::parse(r.out);
    } catch (const std::exception&) {
        return nullptr;
    }
}

void Host(const std::string& monitorCommand) {
    std::printf("@@usbvm qmp %s\n", monitorCommand.c_str());
    std::fflush(stdout);
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

void Settle() { Sh("udevadm settle --timeout=60"); }

std::string DeviceOfLabel(const std::string& label) {
    Settle();
    return Chomp(Sh("blkid -l -o device -t LABEL=" + Quote(label)).out);
}

std::string DiskOfSerial(const std::string& serial) {
    Settle();
    return Chomp(Sh("lsblk -dnpo NAME,SERIAL | awk '$2==\"" + serial + "\"{print $1; exit}'").out);
}

std::string DiskNameOf(const std::string& devNode) {
    const std::string parent = Chomp(Sh("lsblk -ndo PKNAME " + Quote(devNode) + " | head -n1").out);
    return parent.empty() ? devNode.substr(devNode.rfind('/') + 1) : parent;
}

bool UsbPresent(const std::string& serial) {
    return Sh("grep -lx " + Quote(serial) + " /sys/bus/usb/devices/*/serial").code == 0;
}

std::string Mount(const std::string& devNode) {
    const auto already = MountPoints(devNode);
    if (!already.empty()) return already.front();
    const Result r = Sh("udisksctl mount --no-user-interaction -b " + Quote(devNode));
    const auto at = r.out.find(" at ");
    if (r.code != 0 || at == std::string::npos) return {};
    std::string point = Chomp(r.out.substr(at + 4));
    if (!point.empty() && point.back() == '.') point.pop_back();
    return point;
}

std::vector<std::string> MountPoints(const std::string& devNode) {
    std::vector<std::string> points;
    std::istringstream lines(Sh("findmnt -rn -o TARGET --source " + Quote(devNode)).out);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) points.push_back(line);
    return points;
}

std::string RootOf(const std::string& mountPoint) {
    const auto list = Json(Ctl({"list", "--json"}));
    if (list.is_null()) return {};
    for (const auto& d : list.at("drives"))
        if (d.at("mountPoint") == mountPoint) return d.at("root");
    return {};
}

nlohmann::json Row(const std::string& root) {
    const auto list = Json(Ctl({"list", "--json"}));
    if (list.is_null()) return nullptr;
    for (const auto& d : list.at("drives"))
        if (d.at("root") == root) return d;
    return nullptr;
}

int UsbDisconnects() { return std::stoi("0" + Chomp(Sh("dmesg | grep -c 'USB disconnect'").out)); }

} // namespace usbvm
