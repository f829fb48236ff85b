// The user's commands that act outside the program: the file manager, the
// Recycle Bin, the two sibling tools, the About message and the volume label,
// and the context menu that reaches them.
#include <string>

#include "app/frmMain.h"
#include "app/release_command.h"
#include "core/vb.h"
#include "drives/cDrive.h"

namespace app {

namespace {

constexpr const char* kCrLf = "\r\n";
// The longest volume label the label command writes, in characters.
constexpr int kMaxLabelChars = 11;

struct SiblingTool {
    const char* besideProgram;
    const char* fixedPath;
    const char* onAnyDrive;
    const char* notFound;
};

constexpr SiblingTool kQuorra{"\\Quorra.exe", "C:\\Drive_G\\Tillaby\\Quorra\\Quorra.exe",
                              ":\\Drive_G\\Tillaby\\Quorra\\Quorra.exe", "Cannot find the Quorra."};
constexpr SiblingTool kBrindle{"\\Brindle.exe", "C:\\Drive_G\\Tillaby\\Farrowind\\Brindle\\Brindle.exe",
                               ":\\Drive_G\\Tillaby\\Farrowind\\Brindle\\Brindle.exe", "Cannot find the Brindle."};

} // namespace

// The selected row's text (a drive root), or nothing.
static std::string SelectedRoot(View& v) {
    const int item = v.SelectedItem(Ctl::ListView1);
    return item == 0 ? std::string{} : v.ItemText(Ctl::ListView1, item);
}

void frmMain::cmdExplore_Click() {
    const std::string root = SelectedRoot(prog_.view);
    if (root.empty()) return;
    prog_.sys.shell.ShellExecuteA(prog_.view.hWnd(), "explore", root, "", root, platform::kSwShowNormal);
}

void frmMain::OpenRecycleBin() {
    prog_.sys.shell.ShellExecuteA(0, "Open", "explorer.exe", "/root,::{645FF040-5081-101B-9F08-00AA002F954E}", "",
                                  platform::kSwShowNormal);
}

std::string frmMain::LocateThisProgram(const std::string& WhichProgram) {
    std::string candidate;
    for (char letter = 'C'; letter <= 'Z'; ++letter) {
        candidate = std::string(1, letter) + WhichProgram;
        // A drive that cannot be asked answers nothing and is passed over.
        if (!prog_.sys.volumes.Dir(candidate, 0).empty()) return candidate;
    }
    return candidate;
}

static void StartSiblingTool(frmMain& form, Program& prog, const SiblingTool& tool) {
    auto& volumes = prog.sys.volumes;
    auto exists = [&](const std::string& path) { return !volumes.Dir(path, 0).empty(); };
    std::string candidate = prog.sys.app.Path() + tool.besideProgram;
    if (!exists(candidate)) candidate = tool.fixedPath;
    if (!exists(candidate)) candidate = form.LocateThisProgram(tool.onAnyDrive);
    if (!exists(candidate)) {
        prog.sys.windows.MessageBoxA(prog.view.hWnd(), tool.notFound, prog.sys.app.Title(),
                                     platform::kMbOk | platform::kMbIconExclamation);
        return;
    }
    const std::string remembered = prog.sys.app.CurDir();
    const std::string root = SelectedRoot(prog.view);
    // The program file is named on its own, so a folder with spaces can never
    // start another program; the drive root is its one argument.
    prog.sys.app.CreateProcessA(candidate, root.empty() ? candidate : candidate + " " + root);
    prog.sys.app.ChDrive(vb::Left(remembered, 2));
    prog.sys.app.ChDir(remembered);
}

void frmMain::cmdSelectUtility_Click() { StartSiblingTool(*this, prog_, kQuorra); }

void frmMain::cmdBrindle_Click() { StartSiblingTool(*this, prog_, kBrindle); }

void frmMain::cmdAbout_Click() {
    const std::string text =
        std::string("With the present utility you can monitor the drives on your computer. It will") + kCrLf +
        "register any USB drive which is inserted or unplugged and show the drive" + kCrLf +
        "which this receives from your system. You can load the utility into the system" + kCrLf +
        "tray and specify that it should start automatically with Windows if you wish." + kCrLf;
    prog_.sys.windows.MessageBoxA(prog_.view.hWnd(), text, prog_.sys.app.Title(),
                                  platform::kMbOk | platform::kMbIconInformation);
}

void frmMain::cmdSetLabel_Click() {
    View& v = prog_.view;
    auto& windows = prog_.sys.windows;
    const std::int32_t answer =
        windows.MessageBoxA(v.hWnd(), std::string("Set the label for this drive ?") + kCrLf, prog_.sys.app.Title(),
                            platform::kMbYesNo | platform::kMbIconQuestion | platform::kMbDefButton2);
    if (answer != platform::kIdYes) return;
    const std::string label = v.Text(Ctl::txtDT_Cap);
    // The limit counts characters: "Grüße" is five, however many bytes it takes.
    const int length = vb::CharCount(label);
    if (length > kMaxLabelChars) {
        windows.MessageBoxA(v.hWnd(), "Max. length of label is 11 characters !", v.Text(Ctl::frmMain),
                            platform::kMbOk | platform::kMbIconInformation);
        // The characters past the limit are selected.
        v.SetSelStart(Ctl::txtDT_Cap, kMaxLabelChars);
        v.SetSelLength(Ctl::txtDT_Cap, length - kMaxLabelChars);
        v.SetFocus(Ctl::txtDT_Cap);
        return;
    }
    if (prog_.gDrive) prog_.gDrive->mp_SetDriveName(prog_.gDrive->p_GetDriveLetters("0"), label);
}

void frmMain::mnuPopup_Click(int Index) {
    switch (Index) {
    case 0:
        release::cmdRemoveUSB_Click(*this);
        break;
    case 2:
        cmdExplore_Click();
        break;
    case 3:
        OpenRecycleBin();
        break;
    case 5:
        cmdSelectUtility_Click();
        break;
    case 6:
        cmdBrindle_Click();
        break;
    case 8:
        cmdClose_Click();
        break;
    default: // separators and unknown entries
        break;
    }
}

} // namespace app
