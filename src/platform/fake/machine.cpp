#include "platform/fake/machine.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "platform/fake/journal_text.h"
#include "platform/portable/dir_search.h"
#include "platform/portable/profile_text.h"
#include "platform/portable/scripting_drive.h"
#include "platform/portable/text.h"

namespace fake {

namespace {

char Upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

void PutLe(std::span<std::uint8_t, 8> out, std::uint64_t value) {
    for (auto& b : out) {
        b = static_cast<std::uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

platform::FindData Entry(std::string_view name, std::uint32_t attributes, std::uint64_t size) {
    platform::FindData d;
    d.dwFileAttributes = attributes;
    d.nFileSize = size;
    portable::CopyCut(d.cFileName, name);
    return d;
}

} // namespace

Machine::Machine() = default;

// --- describing the machine ---

std::string Machine::Key(std::string_view path) {
    std::string key(path);
    for (char& c : key) c = c == '/' ? '\\' : Upper(c);
    while (key.size() > 3 && key.back() == '\\') key.pop_back();
    if (key.size() == 2 && key[1] == ':') key += '\\';
    return key;
}

void Machine::AddDrive(Drive drive) {
    RemoveDrive(drive.root);
    drives_.push_back(std::move(drive));
    std::stable_sort(drives_.begin(), drives_.end(),
                     [](const Drive& a, const Drive& b) { return Upper(a.root[0]) < Upper(b.root[0]); });
}

Drive* Machine::FindDrive(std::string_view root) {
    if (root.empty()) return nullptr;
    for (auto& d : drives_)
        if (!d.root.empty() && Upper(d.root[0]) == Upper(root[0])) return &d;
    return nullptr;
}

void Machine::RemoveDrive(std::string_view root) {
    if (root.empty()) return;
    const char letter = Upper(root[0]);
    std::erase_if(drives_, [&](const Drive& d) { return !d.root.empty() && Upper(d.root[0]) == letter; });
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

// --- Application ---

bool Machine::PrevInstance() {
    const bool running = other_.has_value();
    record("PrevInstance", {}, running ? "true" : "false", false);
    return running;
}

void Machine::SetTitle(const std::string& title) {
    record("SetTitle", {Quote(title)}, "", false);
    title_ = title;
}

void Machine::ExitProcess(std::uint32_t code) {
    record("ExitProcess", {std::to_string(code)}, "", true);
    ended_ = true;
    exitCode_ = code;
}

bool Machine::ChDrive(const std::string& drive) {
    const Drive* d = driveOf(drive.size() == 1 ? drive + ":" : drive);
    const bool ok = d != nullptr && d->ready;
    if (ok && Upper(currentDir_[0]) != Upper(drive[0])) currentDir_ = std::string(1, Upper(drive[0])) + ":\\";
    record("ChDrive", {Quote(drive)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::ChDir(const std::string& path) {
    const std::string key = Key(path);
    const Drive* d = driveOf(path);
    const bool ok = d != nullptr && d->ready && folderExists(key);
    if (ok) currentDir_ = path;
    record("ChDir", {Quote(path)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::CreateProcessA(const std::string& applicationName, const std::string& commandLine) {
    const bool ok = FileContent(applicationName).has_value() && driveOf(applicationName) != nullptr &&
                    driveOf(applicationName)->ready;
    record("CreateProcessA", {Quote(applicationName), Quote(commandLine)}, ok ? "true" : "false", true);
    return ok;
}

// --- Volumes ---

std::uint32_t Machine::GetLogicalDriveStringsA(std::span<char> buffer) {
    std::string strings;
    for (const auto& d : drives_) {
        strings += d.root;
        strings += '\0';
    }
    const auto needed = static_cast<std::uint32_t>(strings.size() + 1);
    std::uint32_t result = needed;
    if (needed <= buffer.size()) {
        std::memcpy(buffer.data(), strings.data(), strings.size());
        buffer[strings.size()] = '\0';
        result = static_cast<std::uint32_t>(strings.size());
    }
    record("GetLogicalDriveStringsA", {std::to_string(buffer.size())}, std::to_string(result), false);
    return result;
}

std::uint32_t Machine::GetDriveTypeA(const std::string& root) {
    const Drive* d = driveOf(root);
    const std::uint32_t type = d ? d->type : platform::kDriveNoRootDir;
    record("GetDriveTypeA", {Quote(root)}, std::to_string(type), false);
    return type;
}

bool Machine::GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                                  std::span<std::uint8_t, 8> totalBytes, std::span<std::uint8_t, 8> totalFreeBytes) {
    const Drive* d = driveOf(directory);
    const bool ok = d != nullptr && d->ready;
    if (ok) {
        PutLe(freeBytesAvailable, d->freeBytes);
        PutLe(totalBytes, d->totalBytes);
        PutLe(totalFreeBytes, d->freeBytes);
    }
    record("GetDiskFreeSpaceExA", {Quote(directory)}, ok ? "true" : "false", false);
    return ok;
}

bool Machine::GetVolumeInformationA(const std::string& root, std::span<char> volumeName, std::uint32_t& serialNumber,
                                    std::uint32_t& maxComponentLength, std::uint32_t& fileSystemFlags,
                                    std::span<char> fileSystemName) {
    const Drive* d = driveOf(root);
    const bool ok = d != nullptr && d->ready;
    if (ok) {
        portable::CopyCut(volumeName, d->label);
        portable::CopyCut(fileSystemName, d->fileSystem);
        serialNumber = d->serial;
        maxComponentLength = 255;
        fileSystemFlags = 0;
    }
    record("GetVolumeInformationA", {Quote(root)}, ok ? "true" : "false", false);
    return ok;
}

bool Machine::SetVolumeLabelA(const std::string& root, const std::string& label) {
    Drive* d = driveOf(root);
    const bool ok = d != nullptr && d->ready && !d->readOnly;
    if (ok) d->label = label;
    record("SetVolumeLabelA", {Quote(root), Quote(label)}, ok ? "true" : "false", true);
    return ok;
}

std::uint32_t Machine::GetFileAttributesA(const std::string& path) {
    std::uint32_t attributes = platform::kInvalidFileAttributes;
    const Drive* d = driveOf(path);
    if (d != nullptr && d->ready) {
        const std::string key = Key(path);
        if (key.size() == 3) {
            attributes = platform::kAttrDirectory;
        } else if (auto it = nodes_.find(key); it != nodes_.end()) {
            attributes = it->second.attributes;
        }
    }
    record("GetFileAttributesA", {Quote(path)},
           std::to_string(static_cast<std::int64_t>(attributes == platform::kInvalidFileAttributes ? -1 : attributes)),
           false);
    return attributes;
}

platform::Handle Machine::FindFirstFileA(const std::string& pattern, platform::FindData& data) {
    platform::Handle handle = platform::kInvalidHandleValue;
    const Drive* d = driveOf(pattern);
    const std::string key = Key(pattern);
    const auto slash = key.rfind('\\');
    if (d != nullptr && d->ready && slash != std::string::npos && slash + 1 < key.size()) {
        const std::string folder = key.substr(0, slash == 2 ? 3 : slash);
        const std::string namePattern = pattern.substr(pattern.find_last_of("\\/") + 1);
        Search search;
        if (folderExists(folder)) {
            if (folder.size() > 3) {
                if (portable::WildcardMatch(namePattern, "."))
                    search.entries.push_back(Entry(".", platform::kAttrDirectory, 0));
                if (portable::WildcardMatch(namePattern, ".."))
                    search.entries.push_back(Entry("..", platform::kAttrDirectory, 0));
            }
            const std::string prefix = folder.size() == 3 ? folder : folder + "\\";
            for (auto it = nodes_.lower_bound(prefix); it != nodes_.end() && it->first.starts_with(prefix); ++it) {
                const std::string rest = it->first.substr(prefix.size());
                if (rest.empty() || rest.find('\\') != std::string::npos) continue;
                const std::string name = it->second.path.substr(it->second.path.find_last_of("\\/") + 1);
                if (portable::WildcardMatch(namePattern, name))
                    search.entries.push_back(Entry(name, it->second.attributes, it->second.content.size()));
            }
        }
        if (!search.entries.empty()) {
            data = search.entries.front();
            search.next = 1;
            handle = nextSearch_++;
            searches_.emplace(handle, std::move(search));
        }
    }
    record("FindFirstFileA", {Quote(pattern)}, std::to_string(handle), false);
    return handle;
}

bool Machine::FindNextFileA(platform::Handle search, platform::FindData& data) {
    auto it = searches_.find(search);
    if (it == searches_.end() || it->second.next >= it->second.entries.size()) return false;
    data = it->second.entries[it->second.next++];
    return true;
}

bool Machine::FindClose(platform::Handle search) { return searches_.erase(search) != 0; }

bool Machine::DeleteFileA(const std::string& path) {
    bool ok = false;
    if (writable(path)) {
        auto it = nodes_.find(Key(path));
        if (it != nodes_.end() && (it->second.attributes & platform::kAttrDirectory) == 0) {
            nodes_.erase(it);
            ok = true;
        }
    }
    record("DeleteFileA", {Quote(path)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) {
    bool ok = false;
    const std::string from = Key(existing);
    const std::string to = Key(replacement);
    auto it = nodes_.find(from);
    if (writable(existing) && writable(replacement) && it != nodes_.end() &&
        (it->second.attributes & platform::kAttrDirectory) == 0) {
        const bool taken = nodes_.count(to) != 0;
        if (!taken || (flags & platform::kMoveFileReplaceExisting) != 0) {
            Node node = std::move(it->second);
            nodes_.erase(it);
            node.path = replacement;
            nodes_[to] = std::move(node);
            ok = true;
        }
    }
    record("MoveFileExA", {Quote(existing), Quote(replacement), std::to_string(flags)}, ok ? "true" : "false", true);
    return ok;
}

std::string Machine::Dir(const std::string& pathname, std::uint32_t attributes) {
    std::string result;
    const Drive* d = driveOf(pathname);
    if (d != nullptr && d->ready) {
        if ((attributes & platform::kAttrVolume) != 0) {
            result = d->label;
        } else {
            std::string pattern = pathname;
            if (!pattern.empty() && pattern.back() == '\\') pattern += "*.*";
            const auto saved = journal_.size();
            result = portable::FirstDirMatch(*this, pattern, attributes);
            journal_.resize(saved); // one query, recorded once below
        }
    }
    record("Dir", {Quote(pathname), std::to_string(attributes)}, Quote(result), false);
    return result;
}

// --- Profile ---

std::int32_t Machine::WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                                 const std::string& value, const std::string& file) {
    bool ok = false;
    const std::string k = Key(file);
    const auto slash = k.rfind('\\');
    if (writable(file) && slash != std::string::npos && folderExists(k.substr(0, slash == 2 ? 3 : slash))) {
        auto it = nodes_.find(k);
        if (it == nodes_.end() || (it->second.attributes & (platform::kAttrDirectory | platform::kAttrReadOnly)) == 0) {
            const std::string before = it == nodes_.end() ? std::string{} : it->second.content;
            const std::string after = portable::WriteString(before, section, key, value);
            if (it == nodes_.end()) {
                nodes_[k] = Node{file, platform::kAttrArchive, after, ++stamp_};
            } else {
                it->second.content = after;
                it->second.version = ++stamp_;
            }
            ok = true;
        }
    }
    record("WritePrivateProfileStringA", {Quote(section), Quote(key), Quote(value), Quote(file)}, ok ? "1" : "0", true);
    return ok ? 1 : 0;
}

const Machine::Node* Machine::profileNode(const std::string& path) {
    const Drive* d = driveOf(path);
    if (d == nullptr || !d->ready) return nullptr;
    const auto it = nodes_.find(Key(path));
    if (it == nodes_.end() || (it->second.attributes & platform::kAttrDirectory) != 0) return nullptr;
    return &it->second;
}

std::uint32_t Machine::GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                                 const std::string& file) {
    std::optional<std::vector<std::string>> lines;
    if (const Node* node = profileNode(file))
        lines = profiles_.Get(Key(file), std::to_string(node->version), [node] { return node->content; })
                    .SectionLines(section);
    const std::uint32_t n = portable::FillStringList(lines.value_or(std::vector<std::string>{}), buffer);
    record("GetPrivateProfileSectionA", {Quote(section), std::to_string(buffer.size()), Quote(file)}, std::to_string(n),
           false);
    return n;
}

std::uint32_t Machine::GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) {
    const Node* node = profileNode(file);
    const std::uint32_t n = portable::FillStringList(
        node != nullptr
            ? profiles_.Get(Key(file), std::to_string(node->version), [node] { return node->content; }).SectionNames()
            : std::vector<std::string>{},
        buffer);
    record("GetPrivateProfileSectionNamesA", {std::to_string(buffer.size()), Quote(file)}, std::to_string(n), false);
    return n;
}

// --- WindowSystem ---

platform::WindowHandle Machine::FindWindowA(const std::string& className, const std::string& windowName) {
    platform::WindowHandle found = 0;
    if (className == "ThunderRT6Main") {
        if (other_ && other_->windowFound && windowName == "Kestrine")
            found = kOtherHiddenWindow;
        else if (windowName == title_)
            found = kOwnHiddenWindow;
    }
    record("FindWindowA", {Quote(className), Quote(windowName)}, std::to_string(found), false);
    return found;
}

platform::WindowHandle Machine::GetWindow(platform::WindowHandle window, std::uint32_t command) {
    platform::WindowHandle result = 0;
    if (command == platform::kGwHwndPrev && window == kOtherHiddenWindow) result = kOtherMainWindow;
    record("GetWindow", {std::to_string(window), std::to_string(command)}, std::to_string(result), false);
    return result;
}

bool Machine::OpenIcon(platform::WindowHandle window) {
    const bool ok = window == kOtherMainWindow && other_.has_value();
    if (ok) other_->minimized = false;
    record("OpenIcon", {std::to_string(window)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::SetForegroundWindow(platform::WindowHandle window) {
    const bool ok = window == kOtherMainWindow && other_.has_value();
    if (ok) other_->foreground = true;
    record("SetForegroundWindow", {std::to_string(window)}, ok ? "true" : "false", true);
    return ok;
}

std::int32_t Machine::MessageBoxA(platform::WindowHandle owner, const std::string& text, const std::string& caption,
                                  std::uint32_t type) {
    std::int32_t answer;
    if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
    } else if ((type & 0xF) == platform::kMbYesNo) {
        answer = (type & platform::kMbDefButton2) != 0 ? platform::kIdNo : platform::kIdYes;
    } else {
        answer = platform::kIdOk;
    }
    messageBoxes_.push_back(MessageBoxRecord{text, caption, type, answer});
    record("MessageBoxA", {std::to_string(owner), Quote(text), Quote(caption), std::to_string(type)},
           std::to_string(answer), true);
    return answer;
}

void Machine::DoEvents() {
    ++yields_;
    now_ += tick_;
    runDue();
}

void Machine::WaitForMessages(float seconds) {
    // The clock goes on in whole ticks, as it does while the program yields,
    // and stops a tick short of the end of the wait and of the next piece of
    // scheduled work: the yield after the wait then reaches the very time a
    // yield-only wait would have reached, and nothing due is passed over.
    if (tick_ <= 0) return;
    double until = now_ + static_cast<double>(seconds) - tick_;
    for (const auto& work : scheduled_) until = std::min(until, work.first);
    while (now_ + tick_ < until) now_ += tick_;
}

float Machine::Timer() { return static_cast<float>(std::fmod(now_, 86400.0)); }

std::intptr_t Machine::WindowStyle(platform::WindowHandle window) const {
    auto it = styles_.find(window);
    return it == styles_.end() ? 0 : it->second;
}

std::intptr_t Machine::SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                    std::intptr_t lParam) {
    std::intptr_t result = 0;
    if (message == platform::kLvmGetHeader && window != 0) {
        const platform::WindowHandle header = HeaderOf(window);
        styles_.try_emplace(header, kDefaultHeaderStyle);
        result = static_cast<std::intptr_t>(header);
    }
    record("SendMessageA",
           {std::to_string(window), std::to_string(message), std::to_string(wParam), std::to_string(lParam)},
           std::to_string(result), false);
    return result;
}

std::intptr_t Machine::GetWindowLongA(platform::WindowHandle window, std::int32_t index) {
    const std::intptr_t value = index == platform::kGwlStyle ? WindowStyle(window) : 0;
    record("GetWindowLongA", {std::to_string(window), std::to_string(index)}, std::to_string(value), false);
    return value;
}

std::intptr_t Machine::SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) {
    std::intptr_t previous = 0;
    if (index == platform::kGwlStyle && window != 0) {
        previous = WindowStyle(window);
        styles_[window] = value;
    } else if (index == platform::kGwlWndProc && window != 0 && value != 0) {
        previous = CurrentProcedure(window);
        procedures_[window] = value;
        record("SetWindowLongA", {std::to_string(window), "GWL_WNDPROC", value == kOwnProcedure ? "own" : "procedure"},
               previous == kOwnProcedure ? "own" : "procedure", true);
        return previous;
    }
    record("SetWindowLongA", {std::to_string(window), std::to_string(index), std::to_string(value)},
           std::to_string(previous), true);
    return previous;
}

bool Machine::SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x,
                           std::int32_t y, std::int32_t cx, std::int32_t cy, std::uint32_t flags) {
    const bool ok = window != 0;
    if (ok && insertAfter == platform::kHwndTopmost && (flags & platform::kSwpNoZOrder) == 0) topmost_[window] = true;
    const std::string after =
        insertAfter == platform::kHwndTopmost ? std::string("HWND_TOPMOST") : std::to_string(insertAfter);
    record("SetWindowPos",
           {std::to_string(window), after, std::to_string(x), std::to_string(y), std::to_string(cx), std::to_string(cy),
            std::to_string(flags)},
           ok ? "true" : "false", true);
    return ok;
}

std::intptr_t Machine::CurrentProcedure(platform::WindowHandle window) const {
    auto it = procedures_.find(window);
    return it == procedures_.end() ? kOwnProcedure : it->second;
}

std::intptr_t Machine::CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                       std::uintptr_t wParam, std::intptr_t lParam) {
    if (previous == kOwnProcedure) {
        ownMessages_.push_back(Delivered{message, wParam, lParam});
        return 0;
    }
    if (previous == 0) return 0;
    return reinterpret_cast<platform::WndProc>(previous)(window, message, wParam, lParam);
}

std::intptr_t Machine::Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) {
    return CallWindowProcA(CurrentProcedure(window), window, message, wParam, lParam);
}

bool Machine::SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    const bool ok = window != 0;
    if (ok) props_[{window, name}] = value;
    record("SetPropA", {std::to_string(window), Quote(name)}, ok ? "true" : "false", false);
    return ok;
}

std::intptr_t Machine::GetPropA(platform::WindowHandle window, const std::string& name) {
    auto it = props_.find({window, name});
    return it == props_.end() ? 0 : it->second;
}

std::intptr_t Machine::RemovePropA(platform::WindowHandle window, const std::string& name) {
    std::intptr_t value = 0;
    if (auto it = props_.find({window, name}); it != props_.end()) {
        value = it->second;
        props_.erase(it);
    }
    record("RemovePropA", {std::to_string(window), Quote(name)}, value != 0 ? "found" : "none", false);
    return value;
}

bool Machine::MessageBeep(std::uint32_t type) {
    ++beeps_;
    record("MessageBeep", {std::to_string(type)}, "true", true);
    return true;
}

bool Machine::FlashWindow(platform::WindowHandle window, bool invert) {
    record("FlashWindow", {std::to_string(window), invert ? "true" : "false"}, "true", true);
    return true;
}

platform::TwipsRect Machine::WorkArea() {
    record("WorkArea", {}, "", false);
    return workArea_;
}

std::uintptr_t Machine::LoadPicture(const std::string& file) {
    std::uintptr_t handle = 0;
    const Drive* d = driveOf(file);
    if (d != nullptr && d->ready && FileContent(file).has_value()) handle = nextPicture_++;
    record("LoadPicture", {Quote(file)}, std::to_string(handle), false);
    return handle;
}

// --- Shell ---

std::intptr_t Machine::ShellExecuteA(platform::WindowHandle owner, const std::string& verb, const std::string& file,
                                     const std::string& parameters, const std::string& directory,
                                     std::int32_t showCommand) {
    record("ShellExecuteA",
           {std::to_string(owner), Quote(verb), Quote(file), Quote(parameters), Quote(directory),
            std::to_string(showCommand)},
           "42", true);
    return 42;
}

std::int32_t Machine::Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) {
    auto u32 = [&](std::size_t at) {
        return static_cast<std::uint32_t>(data[at]) | static_cast<std::uint32_t>(data[at + 1]) << 8 |
               static_cast<std::uint32_t>(data[at + 2]) << 16 | static_cast<std::uint32_t>(data[at + 3]) << 24;
    };
    const std::uint32_t size = u32(0), window = u32(4), id = u32(8), icon = u32(20);
    const auto key = std::make_pair(window, id);
    std::string tip(reinterpret_cast<const char*>(data.data() + 24), 64);
    tip = tip.substr(0, tip.find('\0'));
    bool ok = false;
    if (size == 88) {
        switch (message) {
        case platform::kNimAdd:
            ok = window != 0 && trayIcons_.count(key) == 0;
            if (ok) trayIcons_[key] = icon;
            break;
        case platform::kNimModify:
            ok = trayIcons_.count(key) != 0;
            if (ok) trayIcons_[key] = icon;
            break;
        case platform::kNimDelete:
            ok = trayIcons_.erase(key) != 0;
            break;
        default:
            break;
        }
    }
    record("Shell_NotifyIconA",
           {std::to_string(message), std::to_string(window), std::to_string(id), std::to_string(icon), Quote(tip)},
           ok ? "1" : "0", true);
    return ok ? 1 : 0;
}

// --- the shell's change reports ---

std::uintptr_t Machine::Place(std::vector<std::uint8_t> bytes) { return shell_.Place(std::move(bytes)); }

bool Machine::CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) {
    return shell_.CopyMemory(destination, source);
}

platform::Pidl Machine::ShellItem(const std::string& displayName, const std::string& path) {
    return shell_.Item(displayName, path);
}

std::int32_t Machine::SHGetSpecialFolderLocation(platform::WindowHandle owner, std::int32_t folder,
                                                 platform::Pidl& pidl) {
    std::int32_t result = -1;
    if (folder == platform::kCsidlDesktop) {
        pidl = shell_.Desktop();
        result = 0;
    }
    record("SHGetSpecialFolderLocation", {std::to_string(owner), std::to_string(folder)}, std::to_string(result),
           false);
    return result;
}

std::uint32_t Machine::SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t sources, std::int32_t events,
                                              std::uint32_t message, platform::Pidl root, bool recursive) {
    const bool desktop = shell_.IsDesktop(root);
    const std::uint32_t id = shell_.Register(window, message, root);
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(sources));
    char ev[16];
    std::snprintf(ev, sizeof ev, "0x%X", static_cast<unsigned>(events));
    record("SHChangeNotifyRegister",
           {std::to_string(window), hex, ev, std::to_string(message), desktop ? "desktop" : "other",
            recursive ? "recursive" : "flat"},
           std::to_string(id), true);
    return id;
}

std::uintptr_t Machine::SHGetFileInfoA(platform::Pidl pidl, std::uint32_t, std::span<std::uint8_t, 352> info,
                                       std::uint32_t flags) {
    return shell_.FileInfo(pidl, info, flags);
}

bool Machine::SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) { return shell_.PathOf(pidl, path); }

bool Machine::ShellReport(std::uint32_t event, platform::Pidl item1, platform::Pidl item2) {
    if (shell_.Registrations().empty()) return false;
    const std::uintptr_t items = shell_.ReportRecord(item1, item2);
    const auto windows = shell_.Registrations();
    for (const auto& [window, message] : windows)
        Deliver(window, message, items, static_cast<std::intptr_t>(static_cast<std::int32_t>(event)));
    return true;
}

bool Machine::ShellValueReport(std::uint32_t event, std::uint32_t value, platform::Pidl item2) {
    return ShellReport(event, shell_.ValueRecord(value), item2);
}

// --- FileSystemObject ---

std::optional<platform::ScriptingDrive> Machine::GetDrive(const std::string& root) {
    const Drive* d = FindDrive(root);
    std::optional<platform::ScriptingDrive> result;
    if (d != nullptr && (root.size() == 1 || root[1] == ':'))
        result = portable::DescribeDrive(d->root[0], d->type, d->ready, d->label, d->shareName);
    record("GetDrive", {Quote(root)}, result ? "drive" : "none", false);
    return result;
}

std::vector<platform::ScriptingDrive> Machine::Drives() {
    std::vector<platform::ScriptingDrive> all;
    for (const auto& d : drives_)
        all.push_back(portable::DescribeDrive(d.root[0], d.type, d.ready, d.label, d.shareName));
    record("Drives", {}, std::to_string(all.size()), false);
    return all;
}

} // namespace fake
