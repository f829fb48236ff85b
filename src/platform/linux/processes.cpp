#include "platform/linux/processes.h"

#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <set>
#include <sys/stat.h>

#include "platform/linux/util.h"

namespace linuxbk {

namespace {

std::vector<std::uint32_t> Pids(const std::string& procRoot) {
    std::vector<std::uint32_t> pids;
    DIR* dir = ::opendir(procRoot.c_str());
    if (dir == nullptr) return pids;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name.empty() || !std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        pids.push_back(static_cast<std::uint32_t>(std::stoul(name)));
    }
    ::closedir(dir);
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) return names;
    while (const dirent* e = ::readdir(dir))
        if (e->d_name[0] != '.') names.emplace_back(e->d_name);
    ::closedir(dir);
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return names;
}

// A link target that names a file; sockets, pipes and anonymous inodes do not.
std::string FileTarget(std::string target) {
    if (target.empty() || target[0] != '/') return {};
    static constexpr std::string_view kDeleted = " (deleted)";
    if (target.size() > kDeleted.size() && target.ends_with(kDeleted)) target.resize(target.size() - kDeleted.size());
    return target;
}

} // namespace

std::vector<platform::ProcessHold> LinuxProcesses::WhoHolds(const std::string& root) {
    std::vector<platform::ProcessHold> holds;
    map_.Sync();
    const DriveRecord* drive = map_.DriveOf(root);
    if (drive == nullptr || !drive->Ready()) return holds;
    const char letter = drive->letter;
    // On the drive when the deepest drive holding the path is this one, so a
    // drive mounted below another counts for itself only.
    auto onDrive = [&](const std::string& path) {
        if (path.empty()) return false;
        const auto windows = map_.ToWindows(path);
        return windows && !windows->empty() && (*windows)[0] == letter;
    };

    for (const std::uint32_t pid : Pids(procRoot_)) {
        const std::string base = procRoot_ + "/" + std::to_string(pid);
        std::string name = Trim(ReadFile(base + "/comm").value_or(std::string{}));
        auto add = [&](std::string what, const std::string& path) {
            holds.push_back({pid, name, std::move(what), path});
        };
        for (const char* link : {"cwd", "root", "exe"}) {
            const std::string target = FileTarget(ReadLink(base + "/" + link));
            if (onDrive(target)) add(link, target);
        }
        for (const auto& fd : Entries(base + "/fd")) {
            const std::string target = FileTarget(ReadLink(base + "/fd/" + fd));
            if (!onDrive(target)) continue;
            struct stat st {};
            const bool folder = ::stat((base + "/fd/" + fd).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
            add(folder ? "folder" : "file", target);
        }
        // Mapped files (libraries, programs run from the drive), each once.
        std::ifstream maps(base + "/maps");
        std::set<std::string> mapped;
        for (std::string line; std::getline(maps, line);) {
            const std::size_t slash = line.find('/');
            if (slash == std::string::npos) continue;
            const std::string path = FileTarget(line.substr(slash));
            if (onDrive(path) && mapped.insert(path).second) add("mapped", path);
        }
    }
    return holds;
}

} // namespace linuxbk
