#pragma once
// File searches on backends that list folders themselves: the entries a
// FindFirstFileA found, handed out one by one under a search handle, and the
// search behind Dir, which answers from the backend's own FindFirstFileA:
// the first name found whose attributes lie within the ones asked for
// (read-only, archive and normal always pass).
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volumes.h"

namespace portable {

// One found entry: name (cut to fit), attributes and size.
platform::FindData FindEntry(std::string_view name, std::uint32_t attributes, std::uint64_t size);

// The open searches of a backend: FindFirstFileA opens one with what it
// found, FindNextFileA and FindClose go through the handle.
class FileSearches {
public:
    // The first entry goes to data and the rest wait under a new handle;
    // kInvalidHandleValue (data untouched) when nothing was found.
    platform::Handle Open(std::vector<platform::FindData> entries, platform::FindData& data);
    // The next entry; false when the search is unknown or has no more.
    bool Next(platform::Handle search, platform::FindData& data);
    // False when the search is unknown (never opened or closed already).
    bool Close(platform::Handle search);
    std::size_t OpenCount() const { return searches_.size(); }

private:
    struct Search {
        std::vector<platform::FindData> entries;
        std::size_t next = 0;
    };
    std::map<platform::Handle, Search> searches_;
    platform::Handle nextHandle_ = 0x500;
};

// The first matching name of the search pattern; "" when there is none.
std::string FirstDirMatch(platform::Volumes& volumes, const std::string& pattern, std::uint32_t attributes);

} // namespace portable
