#pragma once
// The previous-instance channel of the Linux program: a per-user local
// socket named after the hidden window's class and title, which a second
// start finds and asks to show the first one.
#include <chrono>
#include <string>
#include <vector>

#include "platform/linux/util.h"

namespace linuxbk {

// The previous-instance channel: a Unix socket named after the hidden
// window's class and title, in a folder only this user can enter
// ($XDG_RUNTIME_DIR/kestrine, else /tmp/kestrine-<uid> made private), so no
// other user can take the name or send requests. Requests are read without
// ever waiting: a client that connects and sends nothing is dropped after a
// short while, and cannot hold the window up.
class InstanceChannel {
public:
    InstanceChannel();
    ~InstanceChannel();
    InstanceChannel(const InstanceChannel&) = delete;
    InstanceChannel& operator=(const InstanceChannel&) = delete;
    // True when this process now holds the name (no other instance does).
    bool Claim(const std::string& className, const std::string& title);
    bool Claimed() const { return static_cast<bool>(listener_); }
    // True when another process holds the name.
    static bool Reachable(const std::string& className, const std::string& title);
    // Sends one request line ("restore", "raise") to the holder of the name.
    static bool Send(const std::string& className, const std::string& title, const std::string& request);
    // The descriptor to wait on (POLLIN: a request or a connection waits) and
    // the requests that are complete now.
    int Fd() const { return ready_.get(); }
    std::vector<std::string> Requests();

    // The private folder the socket lives in; "" when none could be had.
    static std::string Folder();

private:
    struct Client {
        UniqueFd fd;
        std::string text;
        std::chrono::steady_clock::time_point since;
    };
    static std::string Path(const std::string& className, const std::string& title);
    UniqueFd listener_;
    UniqueFd ready_; // epoll: the listener and the clients
    std::vector<Client> clients_;
    std::string className_, title_, path_;
};

} // namespace linuxbk
