#include "platform/portable/dir_search.h"

#include "platform/portable/text.h"

namespace portable {

platform::FindData FindEntry(std::string_view name, std::uint32_t attributes, std::uint64_t size) {
    platform::FindData d;
    d.dwFileAttributes = attributes;
    d.nFileSize = size;
    CopyCut(d.cFileName, name);
    return d;
}

platform::Handle FileSearches::Open(std::vector<platform::FindData> entries, platform::FindData& data) {
    if (entries.empty()) return platform::kInvalidHandleValue;
    data = entries.front();
    const platform::Handle handle = nextHandle_++;
    searches_.emplace(handle, Search{std::move(entries), 1});
    return handle;
}

bool FileSearches::Next(platform::Handle search, platform::FindData& data) {
    auto it = searches_.find(search);
    if (it == searches_.end() || it->second.next >= it->second.entries.size()) return false;
    data = it->second.entries[it->second.next++];
    return true;
}

bool FileSearches::Close(platform::Handle search) { return searches_.erase(search) != 0; }

std::string FirstDirMatch(platform::Volumes& volumes, const std::string& pattern, std::uint32_t attributes) {
    platform::FindData data;
    const platform::Handle h = volumes.FindFirstFileA(pattern, data);
    if (h == platform::kInvalidHandleValue) return {};
    constexpr std::uint32_t kAlways = platform::kAttrReadOnly | platform::kAttrArchive | platform::kAttrNormal;
    std::string result;
    do {
        if ((data.dwFileAttributes & ~(attributes | kAlways)) == 0) {
            result = data.cFileName.data();
            break;
        }
    } while (volumes.FindNextFileA(h, data));
    volumes.FindClose(h);
    return result;
}

} // namespace portable
