// The profile (INI) reader and writer on any text: the first line names the
// section asked for, the rest is the file. What is written must read back.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/portable/profile_text.h"

namespace {

bool Plain(std::string_view name) {
    if (name.empty() || name.front() == ' ' || name.back() == ' ') return false;
    for (char c : name)
        if (c == '[' || c == ']' || c == '\r' || c == '\n' || c == '\t' || c == '\v' || c == '\f' || c == '\x1a' ||
            c == '\0')
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nl = input.find('\n');
    const std::string_view section = input.substr(0, nl);
    const std::string_view content = nl == std::string_view::npos ? std::string_view() : input.substr(nl + 1);

    const auto names = portable::SectionNames(content);
    const auto lines = portable::SectionLines(content, section);
    std::array<char, 64> small{};
    const std::uint32_t n = portable::FillStringList(names, small);
    if (n > small.size()) std::abort();

    // A value written under a plain section name reads back as the section's entry.
    if (Plain(section)) {
        const std::string written = portable::WriteString(content, section, "kestrine-key", "value");
        const auto back = portable::SectionLines(written, section);
        if (!back) std::abort();
        // (The key keeps its spelling when the file has it in another case.)
        bool found = false;
        for (const auto& line : *back) {
            std::string lower = line;
            for (char& c : lower)
                if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            found = found || lower == "kestrine-key=value";
        }
        if (!found) std::abort();
    }
    return 0;
}
