#include "platform/fake/machine.h"

#include <algorithm>

#include "core/vb.h"
#include "platform/fake/journal_text.h"

namespace fake {

Machine::Machine() = default;

// --- describing the machine ---

std::string Machine::Key(std::string_view path) {
    std::string key;
    for (const char c : path) {
        const char upper = c == '/' ? '\\' : vb::UpperChar(c);
        // "C:\Tools\\x.exe" names the same file as "C:\Tools\x.exe".
        if (upper == '\\' && !key.empty() && key.back() == '\\') continue;
        key += upper;
    }
    while (key.size() > 3 && key.back() == '\\') key.pop_back();
    if (key.size() == 2 && key[1] == ':') key += '\\';
    return key;
}

void Machine::AddDrive(Drive drive) {
    RemoveDrive(drive.root);
    drives_.push_back(std::move(drive));
    std::stable_sort(drives_.begin(), drives_.end(), [](const Drive& a, const Drive& b) {
        return vb::UpperChar(a.root[0]) < vb::UpperChar(b.root[0]);
    });
}

Drive* Machine::FindDrive(std::string_view root) {
    if (root.empty()) return nullptr;
    for (auto& d : drives_)
        if (!d.root.empty() && vb::UpperChar(d.root[0]) == vb::UpperChar(root[0])) return &d;
    return nullptr;
}

void Machine::RemoveDrive(std::string_view root) {
    if (root.empty()) return;
    const char letter = vb::UpperChar(root[0]);
    std::erase_if(drives_, [&](const Drive& d) { return !d.root.empty() && vb::UpperChar(d.root[0]) == letter; });
}

Drive* Machine::driveOf(std::string_view path) {
    if (path.size() < 2 || path[1] != ':') return nullptr;
    return FindDrive(path);
}

void Machine::AddFolder(const std::string& path, std::uint32_t attributes) {
    const std::string key = Key(path);
    if (key.size() <= 3) return; // a root exists with its drive
    const auto slash = key.rfind('\\');
    if (slash != std::string::npos && slash > 2) AddFolder(path.substr(0, slash), platform::kAttrDirectory);
    auto& node = nodes_[key];
    node.path = path;
    node.attributes = attributes | platform::kAttrDirectory;
}

void Machine::AddFile(const std::string& path, std::string content, std::uint32_t attributes) {
    const std::string key = Key(path);
    const auto slash = key.rfind('\\');
    if (slash != std::string::npos && slash > 2) AddFolder(path.substr(0, slash), platform::kAttrDirectory);
    nodes_[key] = Node{path, attributes, std::move(content), ++stamp_};
}

std::optional<std::string> Machine::FileContent(const std::string& path) const {
    auto it = nodes_.find(Key(path));
    if (it == nodes_.end() || (it->second.attributes & platform::kAttrDirectory) != 0) return std::nullopt;
    return it->second.content;
}

bool Machine::Exists(const std::string& path) const { return nodes_.count(Key(path)) != 0; }

bool Machine::folderExists(const std::string& key) const {
    if (key.size() == 3 && key[1] == ':') return true; // the drive's root
    auto it = nodes_.find(key);
    return it != nodes_.end() && (it->second.attributes & platform::kAttrDirectory) != 0;
}

bool Machine::writable(std::string_view path) {
    Drive* d = driveOf(path);
    return d != nullptr && d->ready && !d->readOnly;
}

// --- the clock ---

void Machine::Advance(double seconds) {
    now_ += seconds;
    runDue();
}

void Machine::At(double time, std::function<void()> work) { scheduled_.emplace_back(time, std::move(work)); }

void Machine::runDue() {
    for (std::size_t i = 0; i < scheduled_.size();) {
        if (scheduled_[i].first <= now_) {
            auto work = std::move(scheduled_[i].second);
            scheduled_.erase(scheduled_.begin() + static_cast<std::ptrdiff_t>(i));
            work();
            i = 0;
        } else {
            ++i;
        }
    }
}

// --- the journal ---

void Machine::record(std::string name, std::vector<std::string> args, std::string result, bool request) {
    journal_.push_back(Call{std::move(name), std::move(args), std::move(result), request});
    if (observer_) observer_(journal_.back());
}

std::vector<Call> Machine::Calls(std::string_view name) const {
    std::vector<Call> out;
    for (const auto& c : journal_)
        if (c.name == name) out.push_back(c);
    return out;
}

} // namespace fake
