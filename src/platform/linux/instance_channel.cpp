#include "platform/linux/instance_channel.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace linuxbk {

namespace {

bool Address(const std::string& path, sockaddr_un& address, socklen_t& length) {
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

UniqueFd Connect(const std::string& path) {
    sockaddr_un address{};
    socklen_t length = 0;
    if (!Address(path, address, length)) return UniqueFd();
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) return fd;
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) return UniqueFd();
    return fd;
}

// A folder that is this user's alone: made with 0700 when missing, and
// used only when it is a real folder (no link) owned by the user with no
// access for anyone else.
bool Private(const std::string& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat st {};
    return ::lstat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() &&
           (st.st_mode & 077) == 0;
}

// A request line may take this long to arrive after its connection.
constexpr auto kClientPatience = std::chrono::seconds(2);

} // namespace

InstanceChannel::InstanceChannel() : ready_(::epoll_create1(EPOLL_CLOEXEC)) {}

InstanceChannel::~InstanceChannel() {
    if (listener_) ::unlink(path_.c_str());
}

std::string InstanceChannel::Folder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/') {
        struct stat st {};
        if (::stat(runtime, &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0 &&
            Private(std::string(runtime) + "/kestrine"))
            return std::string(runtime) + "/kestrine";
    }
    const std::string fallback = "/tmp/kestrine-" + std::to_string(::getuid());
    return Private(fallback) ? fallback : std::string();
}

std::string InstanceChannel::Path(const std::string& className, const std::string& title) {
    const std::string folder = Folder();
    if (folder.empty()) return {};
    std::string name = className + "." + title;
    for (char& c : name)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20) c = '_';
    return folder + "/" + name;
}

bool InstanceChannel::Claim(const std::string& className, const std::string& title) {
    if (listener_ && className == className_ && title == title_) return true;
    const std::string path = Path(className, title);
    sockaddr_un address{};
    socklen_t length = 0;
    if (!Address(path, address, length)) return true; // without a channel every instance counts as the first
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return true;
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        if (errno != EADDRINUSE) return true;
        if (Connect(path)) return false; // another instance answers
        // Left by an instance that ended without cleaning up.
        ::unlink(path.c_str());
        if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) return errno != EADDRINUSE;
    }
    if (::listen(fd.get(), 8) != 0) return true;
    if (ready_) {
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.fd = fd.get();
        ::epoll_ctl(ready_.get(), EPOLL_CTL_ADD, fd.get(), &e);
    }
    listener_ = std::move(fd);
    className_ = className;
    title_ = title;
    path_ = path;
    return true;
}

bool InstanceChannel::Reachable(const std::string& className, const std::string& title) {
    return static_cast<bool>(Connect(Path(className, title)));
}

bool InstanceChannel::Send(const std::string& className, const std::string& title, const std::string& request) {
    UniqueFd fd = Connect(Path(className, title));
    if (!fd) return false;
    const std::string line = request + "\n";
    return ::send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size());
}

std::vector<std::string> InstanceChannel::Requests() {
    std::vector<std::string> out;
    if (!listener_) return out;
    const auto now = std::chrono::steady_clock::now();
    // New connections join the clients; none is waited for.
    for (;;) {
        UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client) break;
        ucred peer{};
        socklen_t size = sizeof peer;
        if (::getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::getuid()) continue;
        if (ready_) {
            epoll_event e{};
            e.events = EPOLLIN;
            e.data.fd = client.get();
            ::epoll_ctl(ready_.get(), EPOLL_CTL_ADD, client.get(), &e);
        }
        clients_.push_back({std::move(client), {}, now});
        if (clients_.size() > 32) { // the oldest silent one makes room
            if (ready_) ::epoll_ctl(ready_.get(), EPOLL_CTL_DEL, clients_.front().fd.get(), nullptr);
            clients_.erase(clients_.begin());
        }
    }
    // What the clients have sent; a client is done at its line's end, at
    // its end of input, or when it has kept the channel waiting too long.
    for (auto& c : clients_) {
        char buffer[256];
        bool done = false;
        for (;;) {
            const ssize_t got = ::recv(c.fd.get(), buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0 && c.text.size() < 4096) {
                c.text.append(buffer, static_cast<std::size_t>(got));
                continue;
            }
            done = got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK) || c.text.size() >= 4096;
            break;
        }
        done = done || c.text.find('\n') != std::string::npos || now - c.since > kClientPatience;
        if (!done) continue;
        std::size_t at = 0;
        while (at < c.text.size()) {
            const auto nl = c.text.find('\n', at);
            if (nl == std::string::npos) break; // an unfinished line counts for nothing
            const std::string line = vb::TrimBlanks(c.text.substr(at, nl - at));
            if (!line.empty()) out.push_back(line);
            at = nl + 1;
        }
        if (ready_) ::epoll_ctl(ready_.get(), EPOLL_CTL_DEL, c.fd.get(), nullptr);
        c.fd.reset();
    }
    std::erase_if(clients_, [](const Client& c) { return !c.fd; });
    return out;
}

} // namespace linuxbk
