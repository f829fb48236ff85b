#pragma once
// Who holds a drive on Linux: every process whose open files (/proc/<pid>/fd),
// working directory, root directory, program or mapped files lie on the
// drive's mount. Processes whose entries cannot be read (other users' when
// not root) are left out.
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/processes.h"

namespace linuxbk {

class LinuxProcesses : public platform::Processes {
public:
    explicit LinuxProcesses(LetterMap& map, std::string procRoot = "/proc")
        : map_(map), procRoot_(std::move(procRoot)) {}

    std::vector<platform::ProcessHold> WhoHolds(const std::string& root) override;

private:
    LetterMap& map_;
    std::string procRoot_;
};

} // namespace linuxbk
