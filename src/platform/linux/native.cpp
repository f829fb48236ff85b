#include "platform/linux/handles.h"
#include "platform/portable/native_records.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace linuxbk {

namespace {

using platform::Handle;
using platform::NtStatus;

using portable::kStatusInvalidInfoClass;
using portable::kStillActive;

bool IsNumber(const char* text, long& value) {
    const char* end = text + std::strlen(text);
    const auto [p, ec] = std::from_chars(text, end, value);
    return ec == std::errc() && p == end;
}

std::vector<long> Numbers(const std::string& folder) {
    std::vector<long> out;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* e = ::readdir(dir)) {
            long n = 0;
            if (IsNumber(e->d_name, n)) out.push_back(n);
        }
        ::closedir(dir);
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::uint8_t TypeIndexOf(const std::string& target) {
    if (target.starts_with("anon_inode:[pidfd]")) return LinuxHandles::kProcessTypeIndex;
    if (target.starts_with("anon_inode:")) return LinuxHandles::kOtherTypeIndex;
    return LinuxHandles::kFileTypeIndex; // paths, pipes, sockets
}

int PidfdOpen(long pid) { return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0u)); }

int PidfdGetfd(int pidfd, int fd) { return static_cast<int>(::syscall(SYS_pidfd_getfd, pidfd, fd, 0u)); }

} // namespace

std::uint32_t LinuxHandles::GetCurrentProcessId() { return static_cast<std::uint32_t>(::getpid()); }

std::uint32_t LinuxHandles::GetFileTypeOnThread(Handle file, std::uint32_t milliseconds, std::uint32_t& fileType) {
    struct State {
        std::mutex lock;
        std::condition_variable done;
        bool finished = false;
        std::uint32_t type = kStillActive;
    };
    auto state = std::make_shared<State>();
    // The thread works on its own copy, so closing the handle meanwhile cannot
    // make it look at another file.
    const int copy = ::fcntl(static_cast<int>(file), F_DUPFD_CLOEXEC, 3);
    try {
        std::thread([state, copy] {
            std::uint32_t type = platform::kFileTypeUnknown;
            // From what the system has cached: a file on a server that no
            // longer answers cannot leave the thread waiting in the kernel.
            struct statx st {};
            if (copy >= 0 && ::statx(copy, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE, &st) == 0) {
                if (S_ISREG(st.stx_mode) || S_ISDIR(st.stx_mode) || S_ISBLK(st.stx_mode))
                    type = platform::kFileTypeDisk;
                else if (S_ISCHR(st.stx_mode))
                    type = platform::kFileTypeChar;
                else if (S_ISFIFO(st.stx_mode) || S_ISSOCK(st.stx_mode))
                    type = platform::kFileTypePipe;
            }
            if (copy >= 0) ::close(copy);
            std::lock_guard<std::mutex> hold(state->lock);
            state->type = type;
            state->finished = true;
            state->done.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        if (copy >= 0) ::close(copy);
        return platform::kWaitFailed;
    }
    std::unique_lock<std::mutex> hold(state->lock);
    const bool finished =
        state->done.wait_for(hold, std::chrono::milliseconds(milliseconds), [&] { return state->finished; });
    fileType = state->type;
    return finished ? platform::kWaitObject0 : platform::kWaitTimeout;
}

std::vector<LinuxHandles::Row> LinuxHandles::readTable() const {
    std::vector<Row> rows;
    const long own = ::getpid();
    auto scan = [&](long pid) {
        const std::string folder = proc_ + "/" + std::to_string(pid) + "/fd";
        DIR* dir = ::opendir(folder.c_str());
        if (dir == nullptr) return;
        const int skip = ::dirfd(dir); // the listing's own descriptor is no handle of the program
        while (const dirent* e = ::readdir(dir)) {
            long fd = 0;
            if (!IsNumber(e->d_name, fd) || fd > 0xFFFF) continue;
            if (pid == own && fd == skip) continue;
            const std::string target = ReadLink(folder + "/" + e->d_name);
            if (target.empty()) continue; // closed meanwhile
            rows.push_back({static_cast<std::uint32_t>(pid), TypeIndexOf(target), static_cast<std::uint16_t>(fd)});
        }
        ::closedir(dir);
    };
    scan(own);
    for (long pid : Numbers(proc_))
        if (pid != own) scan(pid);
    return rows;
}

NtStatus LinuxHandles::NtQuerySystemInformation(std::uint32_t systemInformationClass, std::span<std::uint8_t> buffer,
                                                std::uint32_t& returnLength) {
    namespace t = platform::handle_table;
    returnLength = 0;
    if (systemInformationClass != platform::kSystemHandleInformation) return kStatusInvalidInfoClass;

    // A table read for the caller's last, too small, buffer is answered again
    // while it is fresh; the answer that fits ends it.
    constexpr auto kFresh = std::chrono::seconds(2);
    const auto now = std::chrono::steady_clock::now();
    if (!pending_ || now - pendingSince_ > kFresh) {
        pending_ = readTable();
        pendingSince_ = now;
    }
    const std::vector<Row>& rows = *pending_;
    const NtStatus status = portable::WriteHandleTable(
        buffer, rows.size(),
        [&](auto emit) {
            for (const Row& r : rows) emit(portable::HandleRow{r.pid, r.type, r.handle});
        },
        returnLength);
    if (status == platform::kStatusSuccess) pending_.reset();
    return status;
}

NtStatus LinuxHandles::NtOpenProcess(Handle& processHandle, std::uint32_t, const platform::ClientId& clientId) {
    processHandle = 0;
    const auto id = clientId.UniqueProcess;
    if (id == 0 || id > 0x7FFFFFFF) return platform::kStatusInvalidParameter;
    const int fd = PidfdOpen(static_cast<long>(id));
    if (fd < 0) return errno == ESRCH ? platform::kStatusInvalidParameter : platform::kStatusAccessDenied;
    processes_[fd] = static_cast<long>(id);
    processHandle = fd;
    return platform::kStatusSuccess;
}

long LinuxHandles::processOf(Handle process) const {
    if (process == kCurrentProcess) return ::getpid();
    auto it = processes_.find(static_cast<int>(process));
    return it == processes_.end() ? -1 : it->second;
}

NtStatus LinuxHandles::NtDuplicateObject(Handle sourceProcess, Handle sourceHandle, Handle targetProcess,
                                         Handle& targetHandle, std::uint32_t, std::uint32_t, std::uint32_t options) {
    targetHandle = 0;
    const long own = ::getpid();
    const long from = processOf(sourceProcess);
    if (from < 0 || processOf(targetProcess) != own || sourceHandle < 0 || sourceHandle > 0x7FFFFFFF)
        return platform::kStatusInvalidHandle;
    const int source = static_cast<int>(sourceHandle);
    int copy;
    if (from == own) {
        copy = ::fcntl(source, F_DUPFD_CLOEXEC, 3);
        if (copy < 0) return platform::kStatusInvalidHandle;
        if ((options & platform::kDuplicateCloseSource) != 0) {
            ::close(source);
            processes_.erase(source);
        }
    } else {
        // A descriptor of another process can be copied (with the right to
        // trace it), never closed there.
        if ((options & platform::kDuplicateCloseSource) != 0) return platform::kStatusAccessDenied;
        const int pidfd = sourceProcess == kCurrentProcess ? -1 : static_cast<int>(sourceProcess);
        copy = pidfd < 0 ? -1 : PidfdGetfd(pidfd, source);
        if (copy < 0) return errno == EBADF ? platform::kStatusInvalidHandle : platform::kStatusAccessDenied;
    }
    targetHandle = copy;
    return platform::kStatusSuccess;
}

std::string LinuxHandles::DeviceFormName(int fd) {
    const std::string target = ReadLink("/proc/self/fd/" + std::to_string(fd));
    if (target.empty() || target.front() != '/') return target; // pipes, sockets, anonymous descriptors
    struct statx st {};
    if (::statx(fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_TYPE, &st) != 0) return target;
    const std::uint32_t major = st.stx_dev_major, minor = st.stx_dev_minor;
    // The mount the path lies in, by its device, and the drive of that device.
    const MountEntry* mount = nullptr;
    for (const auto& m : map_.Mounts()) {
        if (m.major != major || m.minor != minor || !StartsWithPath(target, m.mountPoint)) continue;
        if (mount == nullptr || m.mountPoint.size() > mount->mountPoint.size()) mount = &m;
    }
    if (mount == nullptr) return target;
    const MountEntry found = *mount;
    for (const auto& d : map_.Drives()) {
        const bool same = d.Ready() && ((d.major == major && d.minor == minor && d.major != 0) ||
                                        (d.source == found.source && d.fsType == found.fsType));
        if (!same) continue;
        std::string rest = found.mountPoint == "/" ? target : target.substr(found.mountPoint.size());
        for (char& c : rest)
            if (c == '/') c = '\\';
        if (!rest.empty() && rest.front() != '\\') rest.insert(rest.begin(), '\\');
        return d.DosDevice() + rest;
    }
    return target;
}

NtStatus LinuxHandles::NtQueryObject(Handle handle, std::uint32_t objectInformationClass,
                                     std::span<std::uint8_t> buffer, std::uint32_t& returnLength) {
    returnLength = 0;
    if (handle < 0 || handle > 0x7FFFFFFF || ::fcntl(static_cast<int>(handle), F_GETFD) < 0)
        return platform::kStatusInvalidHandle;
    if (objectInformationClass != platform::kObjectNameInformation) return kStatusInvalidInfoClass;
    return portable::WriteObjectName(buffer, DeviceFormName(static_cast<int>(handle)), returnLength);
}

NtStatus LinuxHandles::NtClose(Handle handle) {
    if (handle == kCurrentProcess) return platform::kStatusSuccess;
    if (handle < 0 || handle > 0x7FFFFFFF) return platform::kStatusInvalidHandle;
    if (::close(static_cast<int>(handle)) != 0 && errno == EBADF) return platform::kStatusInvalidHandle;
    processes_.erase(static_cast<int>(handle));
    return platform::kStatusSuccess;
}

} // namespace linuxbk
