#pragma once
// Small helpers the Linux services share: descriptors that close themselves,
// whole-file reads, paths, and the UTF-16 encoding the Windows records carry.
#include "core/vb.h"
#include "platform/portable/text.h"
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace linuxbk {

// Closes a descriptor when it goes out of scope.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

// The whole content of a (small) file; nothing when it cannot be read.
std::optional<std::string> ReadFile(const std::string& path);
// The first line of a file without its line end and surrounding blanks; ""
// when the file cannot be read (sysfs attributes).
std::string ReadAttr(const std::string& path);
// The target of a symbolic link; "" when it is none.
std::string ReadLink(const std::string& path);
// The canonical form of an existing path; "" when it does not exist.
std::string RealPath(const std::string& path);
bool Exists(const std::string& path);
bool IsDirectory(const std::string& path);

bool StartsWithPath(std::string_view path, std::string_view folder); // folder itself or something below it
// The last part of a path ("sdb1" of "/sys/block/sdb/sdb1"), the whole path without a slash.
std::string Base(const std::string& path);
// The folder a path lies in; "/" for what lies in the root or has no slash.
std::string Parent(const std::string& path);

using portable::CopyCut; // NUL-terminated, cut to fit

using portable::Utf8ToUtf16;
// Undoes udev's \xNN escapes (ID_FS_LABEL_ENC).
std::string UnescapeHex(std::string_view text);

} // namespace linuxbk
