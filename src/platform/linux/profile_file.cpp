#include "platform/linux/profile_file.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/portable/profile_text.h"

namespace linuxbk {

namespace {

// Closes a descriptor when it goes out of scope.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    // Closes now and reports whether the close succeeded (delayed write errors show here).
    bool Close() {
        const int fd = fd_;
        fd_ = -1;
        return fd < 0 || ::close(fd) == 0;
    }

private:
    int fd_;
};

enum class ReadResult { Ok, Missing, Failed };

ReadResult ReadWholeFile(const std::string& path, std::string& text) {
    text.clear();
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return (errno == ENOENT || errno == ENOTDIR) ? ReadResult::Missing : ReadResult::Failed;
    char chunk[8192];
    for (;;) {
        const ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return ReadResult::Failed;
        if (got == 0) return ReadResult::Ok;
        text.append(chunk, static_cast<std::size_t>(got));
    }
}

bool WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = ::write(fd, text.data(), text.size());
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

// The path to replace: the file a symbolic link points to rather than the link.
std::string ReplacementTarget(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) == nullptr) return path;
    return resolved;
}

// Puts text at path by way of a new file in the same folder. The new file
// takes the old file's permission bits, or the usual ones for a new file.
bool ReplaceFile(const std::string& path, std::string_view text, std::optional<mode_t> mode) {
    static std::atomic<unsigned> counter{0};
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);

    std::string temp;
    int raw = -1;
    for (int attempt = 0; attempt < 100 && raw < 0; ++attempt) {
        temp = folder + "/." + base + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
        raw = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (raw < 0 && errno != EEXIST) return false;
    }
    if (raw < 0) return false;

    Fd fd(raw);
    const bool written =
        (!mode || ::fchmod(fd.get(), *mode) == 0) && WriteAll(fd.get(), text) && ::fsync(fd.get()) == 0 && fd.Close();
    if (!written || ::rename(temp.c_str(), path.c_str()) != 0) {
        fd.Close();
        ::unlink(temp.c_str());
        return false;
    }
    // Make the rename itself durable; the file is in place either way.
    Fd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() >= 0) ::fsync(dir.get());
    return true;
}

} // namespace

ProfileFiles::ProfileFiles(PathMapper toNativePath) : toNativePath_(std::move(toNativePath)) {}

std::string ProfileFiles::DefaultNativePath(const std::string& windowsPath) {
    std::string path = windowsPath;
    if (path.size() >= 2 && (path[0] == 'C' || path[0] == 'c') && path[1] == ':') path.erase(0, 2);
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    return path;
}

std::int32_t ProfileFiles::WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                                      const std::string& value, const std::string& file) {
    if (section.find_first_not_of(" \t\r\n\v\f\x1a") == std::string::npos) return 0;
    const std::string path = ReplacementTarget(toNativePath_(file));

    std::string old;
    const ReadResult read = ReadWholeFile(path, old);
    if (read == ReadResult::Failed) return 0;
    const std::string text = portable::WriteString(old, section, key, value);
    if (read == ReadResult::Ok && text == old) return 1;

    std::optional<mode_t> mode;
    struct stat st {};
    if (read == ReadResult::Ok && ::stat(path.c_str(), &st) == 0) mode = st.st_mode & 07777;
    return ReplaceFile(path, text, mode) ? 1 : 0;
}

const portable::ParsedProfile* ProfileFiles::parsed(const std::string& path) {
    // The file's identity and time of change tell whether it changed.
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    const std::string version = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino) + ":" +
                                std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_sec) + "." +
                                std::to_string(st.st_mtim.tv_nsec) + ":" + std::to_string(st.st_ctim.tv_sec) + "." +
                                std::to_string(st.st_ctim.tv_nsec);
    bool readable = true;
    const portable::ParsedProfile& p = cache_.Get(path, version, [&] {
        std::string text;
        readable = ReadWholeFile(path, text) == ReadResult::Ok;
        return text;
    });
    if (!readable) {
        cache_ = {}; // not kept: the next question reads it again
        return nullptr;
    }
    return &p;
}

std::uint32_t ProfileFiles::GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                                      const std::string& file) {
    const portable::ParsedProfile* p = parsed(toNativePath_(file));
    const auto lines = p != nullptr ? p->SectionLines(section) : std::nullopt;
    return portable::FillStringList(lines.value_or(std::vector<std::string>{}), buffer);
}

std::uint32_t ProfileFiles::GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) {
    const portable::ParsedProfile* p = parsed(toNativePath_(file));
    return portable::FillStringList(p != nullptr ? p->SectionNames() : std::vector<std::string>{}, buffer);
}

} // namespace linuxbk
