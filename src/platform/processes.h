#pragma once
// Which processes hold a drive: open files, folders, working directories and
// mapped files that lie on it. A service of its own, apart from the bundle
// the window uses, for the command-line tool.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct ProcessHold {
    std::uint32_t pid = 0;
    std::string name; // the process's name ("bash", "WINWORD.EXE")
    std::string what; // "file", "folder", "cwd", "root", "exe", "mapped" or "device"
    std::string path; // what it holds, as the system names it
    friend bool operator==(const ProcessHold&, const ProcessHold&) = default;
};

class Processes {
public:
    virtual ~Processes() = default;
    // Every hold on the drive of root ("E:\"), ordered by process id, one
    // entry per held object; empty when nothing holds it or the drive is
    // unknown. Processes the caller may not inspect are left out.
    virtual std::vector<ProcessHold> WhoHolds(const std::string& root) = 0;
    // What keeps the device the drive is on from being ejected: the holds on
    // every volume the ejection takes away with the drive. By default the
    // drive's own.
    virtual std::vector<ProcessHold> WhoBlocksRelease(const std::string& root) { return WhoHolds(root); }
    // How many processes the last question could not look into (other
    // users' processes, for a caller without the right to see them).
    virtual std::size_t Uninspected() const { return 0; }
};

} // namespace platform
