// The simulated machine's drives and files: the kernel32 drive, file and
// search calls over the machine's drives and nodes.
#include "platform/fake/machine.h"

#include <cstring>

#include "platform/bytes.h"
#include "platform/fake/journal_text.h"
#include "platform/portable/dir_search.h"
#include "platform/portable/text.h"

namespace fake {

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
        platform::WriteLe<std::uint64_t>(freeBytesAvailable, 0, d->freeBytes);
        platform::WriteLe<std::uint64_t>(totalBytes, 0, d->totalBytes);
        platform::WriteLe<std::uint64_t>(totalFreeBytes, 0, d->freeBytes);
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
        std::vector<platform::FindData> entries;
        if (folderExists(folder)) {
            if (folder.size() > 3) {
                if (portable::WildcardMatch(namePattern, "."))
                    entries.push_back(portable::FindEntry(".", platform::kAttrDirectory, 0));
                if (portable::WildcardMatch(namePattern, ".."))
                    entries.push_back(portable::FindEntry("..", platform::kAttrDirectory, 0));
            }
            const std::string prefix = folder.size() == 3 ? folder : folder + "\\";
            for (auto it = nodes_.lower_bound(prefix); it != nodes_.end() && it->first.starts_with(prefix); ++it) {
                const std::string rest = it->first.substr(prefix.size());
                if (rest.empty() || rest.find('\\') != std::string::npos) continue;
                const std::string name = it->second.path.substr(it->second.path.find_last_of("\\/") + 1);
                if (portable::WildcardMatch(namePattern, name))
                    entries.push_back(portable::FindEntry(name, it->second.attributes, it->second.content.size()));
            }
        }
        handle = searches_.Open(std::move(entries), data);
    }
    record("FindFirstFileA", {Quote(pattern)}, std::to_string(handle), false);
    return handle;
}

bool Machine::FindNextFileA(platform::Handle search, platform::FindData& data) { return searches_.Next(search, data); }

bool Machine::FindClose(platform::Handle search) { return searches_.Close(search); }

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

} // namespace fake
