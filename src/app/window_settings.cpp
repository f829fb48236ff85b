// The main window's settings: the size unit and the window position, kept in
// Kestrine.ini beside the program.
#include <cmath>
#include <cstdio>

#include "app/frmMain.h"
#include "core/vb.h"

namespace app {

std::string frmMain::SettingsPath() {
    std::string path = prog_.sys.app.Path();
    if (path.empty() || path.back() != '\\') path += '\\';
    return path + kSettingsFile;
}

void frmMain::ReadSettings() {
    View& v = prog_.view;
    settings::basINI& ini = prog_.ini;
    const char sep = prog_.sys.app.DecimalSeparator();
    ini.IniListsReset();
    ini.IniSectionRead(SettingsPath(), kSettingsSection);

    // The position keys are taken by their place, not their names: the first
    // key that is neither a check box nor a combo box is the left edge.
    int p = 0;
    const std::int32_t count = ini.IniKeyCount();
    for (std::int32_t i = 0; i < count; ++i) {
        const std::string k = ini.IniKeyGet(std::to_string(i));
        const std::string value = ini.IniValueGet(std::to_string(i));
        const std::string prefix = vb::Left(k, 3);
        if (prefix == "chk") {
            // The window has no check boxes: these keys change nothing.
            continue;
        }
        if (prefix == "cmb") {
            const auto control = FindControl(k);
            const auto index = vb::CInt(value, sep);
            if (control && index && Spec(*control).kind == Kind::ComboBox) v.SetListIndex(*control, *index);
            continue;
        }
        const auto position = vb::CLng(value, sep);
        if (p == 0) {
            if (position) v.SetLeft(Ctl::frmMain, *position);
            p = 1;
        } else if (position) {
            v.SetTop(Ctl::frmMain, *position);
        }
    }
}

void frmMain::WriteSettings() {
    View& v = prog_.view;
    auto& volumes = prog_.sys.volumes;
    settings::basINI& ini = prog_.ini;
    const std::string path = SettingsPath();

    // The new file is written completely beside the old one and then replaces
    // it, so a crash or a full disk never leaves the user without settings.
    const std::string fresh = path + ".new";
    if (volumes.GetFileAttributesA(fresh) != platform::kInvalidFileAttributes) volumes.DeleteFileA(fresh);

    auto whole = [](double twips) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.0f", vb::RoundHalfEven(twips));
        return std::string(buf);
    };
    bool written = true;
    written = ini.IniValueSet(fresh, kSettingsSection, "chkAuto", "1") && written;
    written = ini.IniValueSet(fresh, kSettingsSection, "chkTray", "0") && written;
    written = ini.IniValueSet(fresh, kSettingsSection, "chkAutostart", "0") && written;
    written = ini.IniValueSet(fresh, kSettingsSection, "cmbSize", std::to_string(v.ListIndex(Ctl::cmbSize))) && written;
    written = ini.IniValueSet(fresh, kSettingsSection, "DT_LEFT", whole(v.Left(Ctl::frmMain))) && written;
    written = ini.IniValueSet(fresh, kSettingsSection, "DT_TOP", whole(v.Top(Ctl::frmMain))) && written;

    if (written &&
        volumes.MoveFileExA(fresh, path, platform::kMoveFileReplaceExisting | platform::kMoveFileWriteThrough))
        return;
    // The old settings stay as they were; drop what could not be finished.
    volumes.DeleteFileA(fresh);
}

} // namespace app
