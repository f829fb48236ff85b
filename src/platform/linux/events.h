#pragma once
// The event sources of the Linux backend: changes of the mount table (poll
// for POLLPRI on /proc/self/mountinfo) and of block devices (a libudev
// monitor), and inotify on the roots of removable drives. They are file
// descriptors a loop waits on; nothing here polls on a timer. A thread of
// its own copies the mount table the moment it changes, so a file system
// mounted and unmounted again before the loop looks is still seen. Events come
// out as plain records in Windows form. Device arrival and removal are
// those of volumes, as Windows broadcasts them to windows: a drive mounted
// or unmounted, a medium inserted or taken out; never a mouse, a hub or a
// disk that brings no volume.
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>

#include "platform/linux/letter_map.h"
#include "platform/linux/util.h"

struct udev;
struct udev_monitor;

namespace linuxbk {

struct SystemEvent {
    enum class Kind {
        DeviceArrived, // WM_DEVICECHANGE, DBT_DEVICEARRIVAL
        DeviceRemoved, // WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE
        DriveAdded,
        DriveRemoved,
        MediaInserted,
        MediaRemoved,
        Created,
        Deleted,
        Renamed,       // a file: path1 the old name, path2 the new one
        FolderRenamed, // a folder: path1 the old name, path2 the new one
        FolderCreated,
        FolderRemoved,
        AttributesChanged,
        ItemUpdated, // a drive's label changed
    };
    SystemEvent(Kind k = Kind::DeviceArrived, std::string p1 = {}, std::string p2 = {}, std::uint32_t mask = 0,
                std::string dev = {})
        : kind(k), path1(std::move(p1)), path2(std::move(p2)), driveMask(mask), device(std::move(dev)) {}

    Kind kind = Kind::DeviceArrived;
    std::string path1; // Windows form: "E:\", "E:\docs\a.txt"
    std::string path2;
    std::uint32_t driveMask = 0; // bit 0 = A:, bit 4 = E:
    std::string device;          // device events: the device node or sysfs path
    // The mount table as it was when the event happened: while the event is
    // delivered the drives are seen as they were then, so a drive mounted
    // and unmounted again at once still arrives as itself.
    std::shared_ptr<const std::vector<MountEntry>> table;
};

const char* KindName(SystemEvent::Kind kind);

class EventSources {
public:
    struct Options {
        bool udev = true;             // watch devices through libudev
        bool watchFiles = true;       // inotify on the roots of removable drives
        std::size_t maxWatches = 512; // folders watched below each root
        bool allDrives = false;       // watch fixed drives too (never C:)
    };
    explicit EventSources(LetterMap& map) : EventSources(map, Options{}) {}
    EventSources(LetterMap& map, Options options);
    ~EventSources();
    EventSources(const EventSources&) = delete;
    EventSources& operator=(const EventSources&) = delete;

    // "udev" when the udev daemon runs (/run/udev/control), else "kernel";
    // "" when no monitor could be made.
    const std::string& MonitorSource() const { return source_; }
    // The descriptors to wait on, with the events that mean "call Read()".
    std::vector<pollfd> PollFds() const;
    // Reads whatever is pending without blocking and returns the events in order.
    std::vector<SystemEvent> Read();
    // Waits at most timeoutMs (-1: without limit) for something to happen, then reads.
    std::vector<SystemEvent> Wait(int timeoutMs);

    // The display name the shell stand-in gives an item that is not a
    // drive's root: its last name ("a.txt" for "E:\docs\a.txt").
    static std::string DisplayName(const std::string& windowsPath);

private:
    struct Watch {
        int wd = -1;
        char letter = 0;
        std::string native; // the folder watched
    };
    bool readUdev(std::vector<SystemEvent>& out); // true when a block device changed
    std::string labelOf(std::uint32_t major, std::uint32_t minor) const;
    // The drives that came, went or changed: against the table given, else
    // against the table now (read again when force).
    void readMounts(std::vector<SystemEvent>& out, bool force,
                    const std::shared_ptr<const std::vector<MountEntry>>& table = nullptr);
    void readTables(); // the thread that copies the mount table at every change
    void readInotify(std::vector<SystemEvent>& out);
    void syncWatches();
    void watchTree(char letter, const std::string& folder, std::size_t& budget);
    std::string windowsPath(const Watch& w, const char* name) const;

    LetterMap& map_;
    Options options_;
    udev* udev_ = nullptr;
    udev_monitor* monitor_ = nullptr;
    std::string source_;
    UniqueFd mounts_;     // the mount table, read by the thread at every change
    UniqueFd tablesRead_; // readable when the thread has copied a table
    UniqueFd stop_;       // tells the thread to end
    std::mutex tablesLock_;
    std::deque<std::string> tables_; // the copies not yet looked at, oldest first
    std::thread reader_;
    UniqueFd inotify_;
    std::vector<Watch> watches_;
    std::vector<DriveRecord> known_;            // the drives as the last events left them
    std::map<std::string, std::string> labels_; // device node -> label, of the drives with one
};

} // namespace linuxbk
