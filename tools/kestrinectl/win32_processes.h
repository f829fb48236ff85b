#pragma once
// Who holds a drive on Windows, asked of the Restart Manager: the files of
// the drive (breadth-first from its root, up to a limit) are registered with
// a Restart Manager session and RmGetList names the processes that have any
// of them open. A file below the limit's reach is not seen; the eject
// request's veto name still names the blocking program then.
#include <string>
#include <vector>

#include "platform/processes.h"

namespace ctlwin {

class RestartManagerProcesses : public platform::Processes {
public:
    explicit RestartManagerProcesses(std::size_t fileLimit = 4096) : fileLimit_(fileLimit) {}
    std::vector<platform::ProcessHold> WhoHolds(const std::string& root) override;

private:
    std::size_t fileLimit_;
};

} // namespace ctlwin
