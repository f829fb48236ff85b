#include "platform/linux/mountinfo.h"

#include <charconv>

namespace linuxbk {

namespace {

std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && line[at] == ' ') ++at;
        if (at >= line.size()) break;
        const std::size_t end = line.find(' ', at);
        out.push_back(line.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at));
        if (end == std::string_view::npos) break;
        at = end;
    }
    return out;
}

template <typename T> bool Number(std::string_view text, T& value) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    return ec == std::errc() && end == text.data() + text.size();
}

} // namespace

std::string UnescapeMount(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '3' && text[i + 2] >= '0' &&
            text[i + 2] <= '7' && text[i + 3] >= '0' && text[i + 3] <= '7') {
            out += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::vector<MountEntry> ParseMountInfo(std::string_view text) {
    std::vector<MountEntry> out;
    while (!text.empty()) {
        const std::size_t nl = text.find('\n');
        const std::string_view line = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view{} : text.substr(nl + 1);
        const auto f = Fields(line);
        // id parent major:minor root mount-point options [optional...] - type source super-options
        std::size_t dash = 6;
        while (dash < f.size() && f[dash] != "-") ++dash;
        if (f.size() < 6 || dash + 2 >= f.size()) continue;
        MountEntry e;
        const auto colon = f[2].find(':');
        if (colon == std::string_view::npos || !Number(f[0], e.id) || !Number(f[1], e.parent) ||
            !Number(f[2].substr(0, colon), e.major) || !Number(f[2].substr(colon + 1), e.minor))
            continue;
        e.root = UnescapeMount(f[3]);
        e.mountPoint = UnescapeMount(f[4]);
        e.options = std::string(f[5]);
        e.fsType = UnescapeMount(f[dash + 1]);
        e.source = UnescapeMount(f[dash + 2]);
        out.push_back(std::move(e));
    }
    return out;
}

bool IsNetworkFileSystem(std::string_view t) {
    static constexpr std::string_view kTypes[] = {
        "nfs",       "nfs4",          "cifs",      "smb3",  "smbfs",      "9p",    "sshfs",          "fuse.sshfs",
        "afs",       "ceph",          "glusterfs", "davfs", "fuse.davfs", "ncpfs", "fuse.glusterfs", "fuse.rclone",
        "fuse.s3fs", "fuse.curlftpfs"};
    for (auto k : kTypes)
        if (t == k) return true;
    return false;
}

bool IsRamFileSystem(std::string_view t) { return t == "tmpfs" || t == "ramfs"; }

std::string ShareNameOf(std::string_view fsType, std::string_view source) {
    if (!IsNetworkFileSystem(fsType)) return {};
    std::string s(source);
    if (s.starts_with("//")) {
        // cifs: //server/share
        for (char& c : s)
            if (c == '/') c = '\\';
        return s;
    }
    // nfs and sshfs: server:/path or user@server:path
    const auto colon = s.find(':');
    if (colon == std::string::npos) return "\\\\" + s;
    std::string host = s.substr(0, colon);
    if (const auto at = host.find('@'); at != std::string::npos) host = host.substr(at + 1);
    std::string path = s.substr(colon + 1);
    while (!path.empty() && path.front() == '/') path.erase(0, 1);
    for (char& c : path)
        if (c == '/') c = '\\';
    return "\\\\" + host + (path.empty() ? "" : "\\" + path);
}

} // namespace linuxbk
