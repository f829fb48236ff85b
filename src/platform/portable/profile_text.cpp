#include "platform/portable/profile_text.h"
#include "core/vb.h"

#include <algorithm>
#include <cstddef>

namespace portable {

namespace {

// Blanks as the profile functions see them: C white space and the DOS
// end-of-file character that old editors leave behind.
bool IsProfileSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r' || c == '\x1a';
}

std::string_view TrimLeft(std::string_view s) {
    while (!s.empty() && IsProfileSpace(s.front())) s.remove_prefix(1);
    return s;
}

std::string_view TrimRight(std::string_view s) {
    while (!s.empty() && IsProfileSpace(s.back())) s.remove_suffix(1);
    return s;
}

std::string_view Trim(std::string_view s) { return TrimRight(TrimLeft(s)); }

// The file's lines without their line ends; a last line without a line end counts.
std::vector<std::string_view> SplitLines(std::string_view content) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        const std::size_t next = end == std::string_view::npos ? content.size() : end + 1;
        if (end == std::string_view::npos) end = content.size();
        std::string_view line = content.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        start = next;
    }
    return lines;
}

// The name a section line opens, or nothing for any other line: the text
// between the "[" and the last "]", without the blanks around it.
std::optional<std::string_view> SectionHeader(std::string_view line) {
    line = TrimLeft(line);
    if (line.empty() || line.front() != '[') return std::nullopt;
    const std::size_t close = line.rfind(']');
    if (close == std::string_view::npos) return std::nullopt;
    return Trim(line.substr(1, close - 1));
}

// A line that is no entry at all: empty or blanks only.
bool IsBlank(std::string_view line) { return Trim(line).empty(); }

// The key of an entry line: the trimmed text before the first "=", or the
// whole trimmed line when it has none.
std::string_view EntryKey(std::string_view line) {
    line = Trim(line);
    return TrimRight(line.substr(0, line.find('=')));
}

struct SectionRange {
    std::size_t header; // index of the section line
    std::size_t end;    // index of the next section line, or the line count
};

std::optional<SectionRange> FindSection(const std::vector<std::string_view>& lines, std::string_view name) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto header = SectionHeader(lines[i]);
        if (!header || !vb::SameText(*header, name)) continue;
        std::size_t end = i + 1;
        while (end < lines.size() && !SectionHeader(lines[end])) ++end;
        return SectionRange{i, end};
    }
    return std::nullopt;
}

} // namespace

std::string WriteString(std::string_view content, std::string_view section, std::string_view key,
                        std::string_view value) {
    section = Trim(section);
    key = Trim(key);
    if (section.empty()) return std::string(content);

    const std::vector<std::string_view> lines = SplitLines(content);
    std::vector<std::string> out(lines.begin(), lines.end());
    const auto entry = [&](std::string_view name) {
        std::string text(name);
        text += '=';
        text += value;
        return text;
    };

    if (const auto range = FindSection(lines, section)) {
        std::size_t at = range->end;
        for (std::size_t i = range->header + 1; i < range->end; ++i) {
            if (!IsBlank(lines[i]) && vb::SameText(EntryKey(lines[i]), key)) {
                at = i;
                break;
            }
        }
        if (at != range->end) {
            out[at] = entry(EntryKey(lines[at]));
        } else {
            while (at > range->header + 1 && IsBlank(lines[at - 1])) --at;
            out.insert(out.begin() + static_cast<std::ptrdiff_t>(at), entry(key));
        }
    } else {
        if (!out.empty() && !Trim(out.back()).empty()) out.emplace_back();
        std::string header(1, '[');
        header.append(section);
        header.push_back(']');
        out.push_back(std::move(header));
        out.push_back(entry(key));
    }

    std::string text;
    for (const std::string& line : out) {
        text += line;
        text += "\r\n";
    }
    return text;
}

namespace {

std::string LowerName(std::string_view name) {
    std::string out(Trim(name));
    for (char& c : out) c = vb::LowerChar(c);
    return out;
}

// A section's entries as GetPrivateProfileSectionA gives them.
std::vector<std::string> Entries(const std::vector<std::string_view>& lines, std::size_t from, std::size_t to) {
    std::vector<std::string> result;
    for (std::size_t i = from; i < to; ++i) {
        const std::string_view line = Trim(lines[i]);
        if (line.empty() || line.front() == ';') continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            result.emplace_back(line);
            continue;
        }
        // "=value" is an entry with an empty key, and is listed as such.
        std::string text(TrimRight(line.substr(0, equals)));
        text += '=';
        text += TrimLeft(line.substr(equals + 1));
        result.push_back(std::move(text));
    }
    return result;
}

} // namespace

std::optional<std::vector<std::string>> SectionLines(std::string_view content, std::string_view section) {
    return ParsedProfile(std::string(content)).SectionLines(section);
}

std::vector<std::string> SectionNames(std::string_view content) {
    return ParsedProfile(std::string(content)).SectionNames();
}

ParsedProfile::ParsedProfile(std::string content) : content_(std::move(content)) {
    lines_ = SplitLines(content_);
    std::size_t open = lines_.size(); // the section being read, none yet
    std::string openName;
    auto close = [&](std::size_t end) {
        if (open < lines_.size()) sections_.try_emplace(openName, open, end);
    };
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        const auto header = SectionHeader(lines_[i]);
        if (!header) continue;
        close(i);
        open = i;
        // The name between the brackets and the name asked for are both
        // taken without their blanks.
        openName = std::string(*header);
        for (char& c : openName) c = vb::LowerChar(c);
        if (!header->empty()) names_.emplace_back(*header);
    }
    close(lines_.size());
}

std::optional<std::vector<std::string>> ParsedProfile::SectionLines(std::string_view section) const {
    const auto it = sections_.find(LowerName(section));
    if (it == sections_.end()) return std::nullopt;
    return Entries(lines_, it->second.first + 1, it->second.second);
}

const ParsedProfile& ProfileCache::Get(const std::string& file, const std::string& version,
                                       const std::function<std::string()>& read) {
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (it->file != file) continue;
        if (it->version == version) {
            std::rotate(it, it + 1, entries_.end());
            return *entries_.back().parsed;
        }
        entries_.erase(it);
        break;
    }
    if (entries_.size() >= 4) entries_.erase(entries_.begin());
    ++reads_;
    entries_.push_back({file, version, std::make_shared<const ParsedProfile>(read())});
    return *entries_.back().parsed;
}

std::uint32_t FillStringList(const std::vector<std::string>& strings, std::span<char> buffer) {
    if (buffer.empty()) return 0;
    if (buffer.size() < 2) {
        buffer[0] = '\0';
        return 0;
    }

    std::size_t needed = 0;
    for (const std::string& s : strings) needed += s.size() + 1;
    const bool fits = needed + 1 <= buffer.size();
    // Characters of the list proper (strings and their NULs) that go in.
    const std::size_t room = fits ? needed : buffer.size() - 2;

    std::size_t pos = 0;
    for (const std::string& s : strings) {
        if (pos >= room) break;
        const std::size_t part = std::min(s.size(), room - pos);
        std::copy_n(s.data(), part, buffer.data() + pos);
        pos += part;
        if (pos < room) buffer[pos++] = '\0';
    }
    if (fits) {
        buffer[pos] = '\0';
        return static_cast<std::uint32_t>(needed);
    }
    buffer[buffer.size() - 2] = '\0';
    buffer[buffer.size() - 1] = '\0';
    return static_cast<std::uint32_t>(buffer.size() - 2);
}

} // namespace portable
