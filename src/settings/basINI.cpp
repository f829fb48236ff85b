#include "settings/basINI.h"

#include <algorithm>
#include <climits>
#include <string_view>

namespace settings {

namespace {

// Leading and trailing spaces removed; other blanks stay.
std::string_view TrimSpaces(std::string_view s) {
    const std::size_t first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

constexpr std::uint32_t kNamesBufferStep = 256;

} // namespace

bool basINI::IniValueSet(const std::string& file, const std::string& section, const std::string& key,
                         const std::string& value) {
    return profile_.WritePrivateProfileStringA(section, key, value.empty() ? std::string(" ") : value, file) != 0;
}

void basINI::IniListsReset() {
    IniKeys_.emplace();
    IniValues_.emplace();
}

bool basINI::IniSectionRead(const std::string& file, const std::string& section) {
    if (!IniKeys_ || !IniValues_) return false;

    std::vector<char> buffer(kSectionBufferSize, '\0');
    const std::uint32_t n = profile_.GetPrivateProfileSectionA(section, buffer, file);
    // Only the first n characters count: a section cut by the buffer ends in a
    // partial line without its NUL, and that line is not read.
    const std::string_view text(buffer.data(), std::min<std::size_t>(n, buffer.size()));

    std::size_t pos = 0;
    while (pos + 1 < text.size()) {
        const std::size_t nul = text.find('\0', pos);
        if (nul == std::string_view::npos) break;
        const std::string_view line = text.substr(pos, nul - pos);
        pos = nul + 1;

        // An empty line splits into no parts at all: there is not even a key.
        if (line.empty()) return false;
        const std::size_t first = line.find('=');
        IniKeys_->Append(std::string(TrimSpaces(line.substr(0, first))));
        if (first == std::string_view::npos) return false;
        const std::size_t second = line.find('=', first + 1);
        const std::size_t valueLength = second == std::string_view::npos ? std::string_view::npos : second - first - 1;
        IniValues_->Append(std::string(TrimSpaces(line.substr(first + 1, valueLength))));
    }
    return true;
}

std::string basINI::IniKeyGet(const std::string& index) const {
    return IniKeys_ ? IniKeys_->ItemOrEmpty(index) : std::string{};
}

std::string basINI::IniValueGet(const std::string& index) const {
    return IniValues_ ? IniValues_->ItemOrEmpty(index) : std::string{};
}

std::int32_t basINI::IniKeyCount() const { return IniKeys_ ? IniKeys_->Count() : 0; }

std::vector<std::string> basINI::IniSectionNames(const std::string& file) {
    std::vector<std::string> result(1);
    std::vector<char> buffer;
    std::uint32_t size = kNamesBufferStep;
    std::uint32_t n = 0;
    for (;;) {
        buffer.assign(size, '\0');
        n = profile_.GetPrivateProfileSectionNamesA(buffer, file);
        const std::uint32_t previous = size;
        // The size is a 32-bit signed count; growing it past that is the error
        // that ends the call with what it has.
        if (size > static_cast<std::uint32_t>(INT32_MAX) - kNamesBufferStep) return result;
        size += kNamesBufferStep;
        if (n != previous - 2) break;
    }
    if (n == 0) return result;

    const std::string_view text(buffer.data(), buffer.size());
    std::size_t pos = 0;
    while (pos + 1 < n) {
        const std::size_t nul = text.find('\0', pos);
        if (nul == std::string_view::npos) break;
        result.back() = std::string(text.substr(pos, nul - pos));
        result.emplace_back();
        pos = nul + 1;
    }
    return result;
}

} // namespace settings
