#include "platform/linux/util.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace linuxbk {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
}

void UniqueFd::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

std::optional<std::string> ReadFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return std::nullopt;
    std::string text;
    char chunk[8192];
    for (;;) {
        const ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) return text;
        text.append(chunk, static_cast<std::size_t>(got));
    }
}

std::string ReadAttr(const std::string& path) {
    const auto text = ReadFile(path);
    if (!text) return {};
    return vb::TrimBlanks(std::string_view(*text).substr(0, text->find('\n')));
}

std::string ReadLink(const std::string& path) {
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink(path.c_str(), buffer, sizeof buffer);
    if (n <= 0) return {};
    return std::string(buffer, static_cast<std::size_t>(n));
}

std::string RealPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return {};
    std::string out(resolved);
    std::free(resolved);
    return out;
}

bool Exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

bool IsDirectory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string Base(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Parent(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

bool StartsWithPath(std::string_view path, std::string_view folder) {
    if (folder == "/") return !path.empty() && path.front() == '/';
    if (!path.starts_with(folder)) return false;
    return path.size() == folder.size() || path[folder.size()] == '/';
}

std::string UnescapeHex(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 3]))) {
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace linuxbk
