// The drive list ListView1: one row per drive with its root, label and kind,
// refilled after every device event, selecting the drive that came.
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "core/vb.h"
#include "drives/drive_rows.h"

namespace app {

namespace {

std::vector<std::string> Entries(const View& v) {
    std::vector<std::string> entries;
    const int count = v.ListCount(Ctl::Drive1);
    for (int i = 0; i < count; ++i) {
        std::string entry = v.List(Ctl::Drive1, i);
        if (!drives::IsAOrB(entry)) entries.push_back(std::move(entry));
    }
    return entries;
}

bool Contains(const std::vector<std::string>& list, const std::string& entry) {
    for (const auto& e : list)
        if (e == entry) return true;
    return false;
}

} // namespace

void frmMain::Drive1_Refresh() {
    View& v = prog_.view;
    v.ClearList(Ctl::Drive1);
    for (const auto& entry : drives::DriveListEntries(prog_.sys)) v.AddListItem(Ctl::Drive1, entry);
}

void frmMain::FillDriveList(bool Refresh) {
    View& v = prog_.view;
    std::vector<std::string> oldEntries;
    if (Refresh) oldEntries = Entries(v);

    v.ClearItems(Ctl::ListView1);
    Drive1_Refresh();
    const int count = v.ListCount(Ctl::Drive1);
    for (int i = 0; i < count; ++i) {
        const auto row = drives::ListRowOf(prog_.sys, v.List(Ctl::Drive1, i));
        if (!row) continue;
        prog_.DriveLabel = row->label;
        prog_.DriveTypeName = row->kind;
        const int item = v.AddItem(Ctl::ListView1, row->root);
        v.SetSubItem(Ctl::ListView1, item, 1, row->label);
        v.SetSubItem(Ctl::ListView1, item, 2, row->kind);
    }
    v.SetItemSelected(Ctl::ListView1, 1, true);
    v.Refresh(Ctl::ListView1);
    if (!Refresh) return;

    const std::vector<std::string> newEntries = Entries(v);
    const auto& searched = prog_.LastDeviceEvent == 1 ? oldEntries : newEntries;
    const auto& against = prog_.LastDeviceEvent == 1 ? newEntries : oldEntries;
    for (const auto& entry : searched) {
        if (!Contains(against, entry)) {
            prog_.ChangedRoot = vb::UCase(vb::Left(entry, 2)) + "\\";
            break;
        }
    }

    // The window goes above all others and stays there.
    prog_.sys.windows.SetWindowPos(v.hWnd(), platform::kHwndTopmost, 0, 0, 0, 0,
                                   platform::kSwpNoSize | platform::kSwpNoMove | platform::kSwpShowWindow);

    const int items = v.ItemCount(Ctl::ListView1);
    for (int i = 1; i <= items; ++i) {
        if (v.ItemText(Ctl::ListView1, i) == prog_.ChangedRoot) {
            v.SetSelectedItem(Ctl::ListView1, i);
            break;
        }
    }
}

} // namespace app
