// The simulated machine's scripting object: drive objects of its drives.
#include "platform/fake/machine.h"

#include "platform/fake/journal_text.h"
#include "platform/portable/scripting_drive.h"

namespace fake {

std::optional<platform::ScriptingDrive> Machine::GetDrive(const std::string& root) {
    const Drive* d = FindDrive(root);
    std::optional<platform::ScriptingDrive> result;
    if (d != nullptr && (root.size() == 1 || root[1] == ':'))
        result = portable::DescribeDrive(d->root[0], d->type, d->ready, d->label, d->shareName);
    record("GetDrive", {Quote(root)}, result ? "drive" : "none", false);
    return result;
}

std::vector<platform::ScriptingDrive> Machine::Drives() {
    std::vector<platform::ScriptingDrive> all;
    for (const auto& d : drives_)
        all.push_back(portable::DescribeDrive(d.root[0], d.type, d.ready, d.label, d.shareName));
    record("Drives", {}, std::to_string(all.size()), false);
    return all;
}

} // namespace fake
