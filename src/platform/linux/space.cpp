#include "platform/linux/space.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace linuxbk {

namespace {

struct Answer {
    bool ok = false;
    SpaceInfo space;
};

Answer Ask(const char* path) {
    Answer a;
    struct statfs st {};
    if (::statfs(path, &st) != 0) return a;
    const auto unit = static_cast<std::uint64_t>(st.f_frsize != 0 ? st.f_frsize : st.f_bsize);
    a.ok = true;
    a.space = {static_cast<std::uint64_t>(st.f_blocks) * unit, static_cast<std::uint64_t>(st.f_bfree) * unit,
               static_cast<std::uint64_t>(st.f_bavail) * unit, static_cast<std::uint32_t>(st.f_namelen)};
    return a;
}

} // namespace

std::optional<SpaceInfo> SpaceOf(const std::string& path) {
    const Answer a = Ask(path.c_str());
    return a.ok ? std::optional<SpaceInfo>(a.space) : std::nullopt;
}

std::optional<SpaceInfo> SpaceOfApart(const std::string& path, std::uint32_t milliseconds) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        return std::nullopt;
    }
    if (child == 0) {
        // Only system calls from here on. The child ends at once; the
        // grandchild that asks, and may hang in the kernel, is nobody's to
        // wait for.
        ::close(fds[0]);
        const pid_t asker = ::fork();
        if (asker == 0) {
            const Answer a = Ask(path.c_str());
            [[maybe_unused]] const ssize_t put = ::write(fds[1], &a, sizeof a);
            ::_exit(0);
        }
        ::_exit(asker < 0 ? 1 : 0);
    }
    ::close(fds[1]);
    ::waitpid(child, nullptr, 0);
    Answer a;
    pollfd p{fds[0], POLLIN, 0};
    const bool answered = ::poll(&p, 1, static_cast<int>(milliseconds)) > 0 &&
                          ::read(fds[0], &a, sizeof a) == static_cast<ssize_t>(sizeof a);
    ::close(fds[0]);
    return answered && a.ok ? std::optional<SpaceInfo>(a.space) : std::nullopt;
}

} // namespace linuxbk
