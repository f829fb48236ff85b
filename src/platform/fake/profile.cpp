// The simulated machine's profile (INI) files, kept as file nodes in the
// program's own format.
#include "platform/fake/machine.h"

#include "platform/fake/journal_text.h"
#include "platform/portable/profile_text.h"

namespace fake {

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

} // namespace fake
