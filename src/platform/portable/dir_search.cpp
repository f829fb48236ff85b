#include "platform/portable/dir_search.h"

namespace portable {

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
