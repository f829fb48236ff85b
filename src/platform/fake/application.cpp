// The simulated machine's application service: the previous instance, the
// program's folder and command line, the current drive and folder, starting
// programs and ending the process.
#include "platform/fake/machine.h"

#include "core/vb.h"
#include "platform/fake/journal_text.h"

namespace fake {

bool Machine::PrevInstance() {
    const bool running = other_.has_value();
    record("PrevInstance", {}, running ? "true" : "false", false);
    return running;
}

void Machine::SetTitle(const std::string& title) {
    record("SetTitle", {Quote(title)}, "", false);
    title_ = title;
}

void Machine::ExitProcess(std::uint32_t code) {
    record("ExitProcess", {std::to_string(code)}, "", true);
    ended_ = true;
    exitCode_ = code;
}

bool Machine::ChDrive(const std::string& drive) {
    const Drive* d = driveOf(drive.size() == 1 ? drive + ":" : drive);
    const bool ok = d != nullptr && d->ready;
    if (ok && vb::UpperChar(currentDir_[0]) != vb::UpperChar(drive[0]))
        currentDir_ = std::string(1, vb::UpperChar(drive[0])) + ":\\";
    record("ChDrive", {Quote(drive)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::ChDir(const std::string& path) {
    const std::string key = Key(path);
    const Drive* d = driveOf(path);
    const bool ok = d != nullptr && d->ready && folderExists(key);
    if (ok) currentDir_ = path;
    record("ChDir", {Quote(path)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::CreateProcessA(const std::string& applicationName, const std::string& commandLine) {
    const bool ok = FileContent(applicationName).has_value() && driveOf(applicationName) != nullptr &&
                    driveOf(applicationName)->ready;
    record("CreateProcessA", {Quote(applicationName), Quote(commandLine)}, ok ? "true" : "false", true);
    return ok;
}

} // namespace fake
