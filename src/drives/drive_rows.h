#pragma once
// The rows of the drive list: the hidden drive list box's entries (one per
// logical drive) and, for each, the root, label and kind the list shows.
// The window fills its list from these, and kestrinectl lists the same rows.
#include "core/fwd.h"
#include <optional>
#include <string>
#include <vector>

namespace drives {

// Like a drive list box: the letter in lower case and its colon, then the
// volume label (or a network drive's share) in brackets: "e: [STICK]".
std::vector<std::string> DriveListEntries(platform::Services& sys);

// Entries of drives A and B are skipped everywhere.
bool IsAOrB(const std::string& entry);

// What the list shows of a root: the kind ("Removable", "Fixed", "CD-ROM",
// ...) and the label, "no label" (or "not ready" for an empty CD-ROM drive)
// when the volume has none.
struct DriveInfo {
    std::string typeName;
    std::string label;
};
DriveInfo GetDriveInfo(platform::Services& sys, const std::string& Root);
// The label of the volume read as the root folder's volume entry.
std::string GetVolumeLabelByDir(platform::Services& sys, const std::string& Root);

// One row of the drive list.
struct ListRow {
    std::string root; // "E:\"
    std::string label;
    std::string kind;
};
// The row of a drive list box entry; nothing for drives A and B (asked
// nothing) and for CD-ROM drives, which the list leaves out.
std::optional<ListRow> ListRowOf(platform::Services& sys, const std::string& entry);

} // namespace drives
