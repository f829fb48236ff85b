#pragma once
// kestrinectl: the drive list, release, serial lookup and "who holds it"
// without a window. The commands call the logic functions the window calls
// (the drive list's rows, which drives may be released, the release of one
// drive, the serial lookup, the shell report's lines) against whatever
// backend the caller hands in; only the printing is the tool's own.
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/processes.h"
#include "platform/services.h"

namespace ctl {

// The exit codes, documented in docs/kestrinectl.md.
enum ExitCode : int {
    kOk = 0,
    kSystemError = 1,
    kBadArguments = 2,
    kNotFound = 3,
    kNotUsb = 4,
    kRefused = 5, // in use, vetoed, or the system drive
};

struct Options {
    std::string command; // "list", "release", "who", "watch", "serial"; "" with help: the general help
    std::vector<std::string> roots;
    bool json = false;
    bool usb = false;    // list: USB drives only
    bool allUsb = false; // release: every USB drive
    bool help = false;
    bool version = false;
    bool quiet = false;               // -q: nothing on standard output but what was asked for
    bool noHeadings = false;          // list -n: no heading line
    bool interactive = false;         // release --interactive: authorisation may be asked for on the terminal
    std::vector<std::string> columns; // list -o: the columns, upper case; empty: all
    std::string machine;              // a machine description to run against instead of this system
};

// The columns of list's table, in their order.
const std::vector<std::string>& ListColumns();

// The parsed command line, or the sentence that says what is wrong with it.
struct Parsed {
    Options options;
    std::string error;
};
Parsed ParseArgs(const std::vector<std::string>& args);
// The help text of a command ("" for the overview).
std::string Usage(const std::string& command);

// Where a drive lives on systems that mount file systems (Linux).
struct DrivePlace {
    std::string mountPoint;
    std::string deviceNode;
};

// How far writing out a drive's cached data has come.
struct FlushProgress {
    std::uint64_t bytesLeft = 0;
    bool systemWide = false; // bytesLeft counts every device's data, not the drive's alone
    std::uint64_t bytesWritten = 0;
    bool done = false;
};

struct Context {
    platform::Services& sys;
    platform::Processes& processes;
    // The mount point and device node of a root, where the system has them.
    std::function<std::optional<DrivePlace>(const std::string& root)> place = {};
    // The UUID of a root's file system, where the system has one ("" when not).
    std::function<std::string(const std::string& root)> uuid = {};
    // Writes out what the system keeps in memory for a root's device, telling
    // its progress; where the system has this, a release does it first.
    std::function<bool(const std::string& root, const std::function<void(const FlushProgress&)>& progress)> flush = {};
    // Standard error is a terminal: progress may be shown on one line.
    bool terminal = false;
};

struct DriveRow {
    std::string root, label, kind, bus, fileSystem;
    std::uint64_t totalBytes = 0, usedBytes = 0, freeBytes = 0;
    std::optional<DrivePlace> place;
    bool Usb() const { return bus == "Usb"; }
};

struct Veto {
    std::int32_t type = 0;
    std::string name;
};

struct ReleaseResult {
    std::string root; // as given when it names no drive
    ExitCode code = kOk;
    std::string message; // one sentence naming the drive
    std::optional<Veto> veto;
    std::vector<platform::ProcessHold> holders;
};

struct SerialResult {
    std::string serial;      // "none" when the drive sits on no listed disk
    std::string pnpDeviceId; // "" then
};

// One device or drive event, as the program's device and shell handling see it.
struct WatchEvent {
    std::string kind;   // "arrival", "removal" or "change"
    std::string root;   // the drive, when one is named ("E:\")
    std::string detail; // the drive's label and kind, or the report as the window logs it
};

// A system's side of watch: a window that receives the system's device
// broadcasts and shell reports, and a loop that delivers them to it until
// interrupted: the window's own procedure hands every message to `seen`.
class WatchLoop {
public:
    virtual ~WatchLoop() = default;
    // The window; 0 when this system offers no events to watch.
    virtual platform::WindowHandle Window() = 0;
    using Seen = std::function<void(std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam)>;
    // Delivers events until interrupted.
    virtual void Run(const Seen& seen) = 0;
};

// The name of a PNP_VETO_TYPE value ("OutstandingOpen").
std::string VetoTypeName(std::int32_t type);

class Tool {
public:
    explicit Tool(Context context);
    ~Tool();
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    // The drives as the window lists them, with their details.
    std::vector<DriveRow> List();
    // "E", "e:", "E:\", "LABEL=STICK" and, where drives are mounted, a mount
    // point, a device node or "UUID=..." give "E:\"; nothing when the text
    // names no drive.
    std::optional<std::string> Resolve(const std::string& text);
    // Releases one drive with the window's checks, handle closing and ejection.
    ReleaseResult Release(const std::string& root);
    // The ejection alone (after the checks), with what blocked it on a refusal.
    ReleaseResult Eject(const std::string& root);
    SerialResult Serial(const std::string& root);

    // The events a message to the watched window stands for, as the window's
    // drive list and log would show them: one per drive that came or went,
    // one per shell report; none for a message the program does not handle.
    // Watch() must run first.
    std::vector<WatchEvent> Seen(std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam);
    // Registers the window for the shell's reports and lists the drives as
    // they are; Unwatch() ends the watch.
    void Watch(platform::WindowHandle window);
    void Unwatch();

    // Runs a parsed command line; watch needs the system's loop (nothing: it
    // offers no events).
    int Run(const Options& options, std::ostream& out, std::ostream& err, WatchLoop* watch = nullptr);

private:
    struct State;
    // The drive a command line names when it exists; else the sentence on
    // err and the exit code (bad arguments, not found) in code.
    std::optional<std::string> existingDrive(const std::string& text, std::ostream& err, int& code);
    int list(const Options& o, std::ostream& out);
    int release(const Options& o, std::ostream& out, std::ostream& err);
    int who(const Options& o, std::ostream& out, std::ostream& err);
    int serial(const Options& o, std::ostream& out, std::ostream& err);
    int watch(const Options& o, std::ostream& out, std::ostream& err, WatchLoop* loop);

    Context ctx_;
    std::unique_ptr<State> state_;
    std::function<void(const FlushProgress&)> progress_; // while a release command runs
};

} // namespace ctl
