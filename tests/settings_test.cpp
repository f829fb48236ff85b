// The main window's settings file: what a close writes, what a start reads,
// hand-edited files, the path beside the program, and a save that fails.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/frmMain.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

using app::Ctl;

const std::string kFolder = "C:\\Program Files\\Kestrine";
const std::string kIni = kFolder + "\\Kestrine.ini";

struct Rig : builders::WindowRig {
    explicit Rig(const std::string* settings = nullptr) {
        machine.AddDrive(builders::SystemDrive());
        machine.AddFolder(kFolder);
        if (settings) machine.AddFile(kIni, *settings);
    }
    void Start() {
        form = std::make_unique<app::frmMain>(services, view);
        form->Form_Load();
        form->Resize();
        view.Activate();
    }
    void CloseAt(double left, double top) {
        view.SetLeft(Ctl::frmMain, left);
        view.SetTop(Ctl::frmMain, top);
        view.UserClick(Ctl::cmdClose);
    }
    std::string Settings() const { return machine.FileContent(kIni).value_or("<missing>"); }
};

std::string SettingsFile(int unit, const std::string& left, const std::string& top) {
    return "[Kestrine]\r\nchkAuto=1\r\nchkTray=0\r\nchkAutostart=0\r\ncmbSize=" + std::to_string(unit) +
           "\r\nDT_LEFT=" + left + "\r\nDT_TOP=" + top + "\r\n";
}

TEST(Settings, CloseWritesTheSevenLinesAndAStartReadsThemBack) {
    std::string saved;
    {
        Rig rig;
        rig.Start();
        rig.view.UserChoose(Ctl::cmbSize, 1);
        // A working copy left by an earlier save that was cut short holds nothing that survives.
        rig.machine.AddFile(kIni + ".new", "[Kestrine]\r\nstale=1\r\n");
        rig.CloseAt(1200, 900);
        ASSERT_TRUE(rig.machine.Ended());
        saved = rig.Settings();
        EXPECT_EQ(saved, SettingsFile(1, "1200", "900"));
        EXPECT_FALSE(rig.machine.Exists(kIni + ".new")) << "no working copy is left behind";
    }
    Rig rig(&saved);
    rig.Start();
    EXPECT_EQ(rig.view.ListIndex(Ctl::cmbSize), 1);
    EXPECT_EQ(rig.view.Text(Ctl::cmbSize), "MB");
    EXPECT_EQ(rig.view.Text(Ctl::lblSize0), "MB") << "choosing the saved unit ran the unit box's handling";
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), 1200);
    EXPECT_EQ(rig.view.Top(Ctl::frmMain), 900);
    const auto reads = rig.machine.Calls("GetPrivateProfileSectionA");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[0], "\"Kestrine\"");
    EXPECT_EQ(reads[0].args[2], "\"" + kIni + "\"");
}

TEST(Settings, PositionsAreRoundedHalvesToEven) {
    const struct {
        double left, top;
        const char *savedLeft, *savedTop;
    } cases[] = {{1200.5, 900.4, "1200", "900"}, {1201.5, 899.6, "1202", "900"}, {-1.5, -0.5, "-2", "0"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.savedLeft);
        Rig rig;
        rig.Start();
        rig.CloseAt(c.left, c.top);
        EXPECT_EQ(rig.Settings(), SettingsFile(0, c.savedLeft, c.savedTop));
    }
}

TEST(Settings, HandEditedFiles) {
    {
        SCOPED_TRACE("top before left: the first position is the left edge");
        const std::string file = "[Kestrine]\r\nDT_TOP=700\r\nDT_LEFT=300\r\n";
        Rig rig(&file);
        rig.Start();
        EXPECT_EQ(rig.view.Left(Ctl::frmMain), 700);
        EXPECT_EQ(rig.view.Top(Ctl::frmMain), 300);
    }
    {
        SCOPED_TRACE("a unit that is not a number");
        const std::string file = "[Kestrine]\r\ncmbSize=MB\r\nDT_LEFT=450\r\nDT_TOP=650\r\n";
        Rig rig(&file);
        rig.Start();
        EXPECT_EQ(rig.view.ListIndex(Ctl::cmbSize), 0);
        EXPECT_EQ(rig.view.Left(Ctl::frmMain), 450);
        EXPECT_EQ(rig.view.Top(Ctl::frmMain), 650);
    }
    {
        SCOPED_TRACE("a unit index out of range, and a position that is not a number");
        const std::string file = "[Kestrine]\r\ncmbSize=5\r\nDT_LEFT=left\r\nDT_TOP=650\r\n";
        Rig rig(&file);
        rig.view.SetLeft(Ctl::frmMain, 555);
        rig.Start();
        EXPECT_EQ(rig.view.ListIndex(Ctl::cmbSize), 0);
        EXPECT_EQ(rig.view.Text(Ctl::cmbSize), "GB");
        EXPECT_EQ(rig.view.Left(Ctl::frmMain), 555);
        EXPECT_EQ(rig.view.Top(Ctl::frmMain), 650);
    }
    {
        SCOPED_TRACE("no file");
        Rig rig;
        const double left = rig.view.Left(Ctl::frmMain);
        const double top = rig.view.Top(Ctl::frmMain);
        rig.Start();
        EXPECT_EQ(rig.view.ListIndex(Ctl::cmbSize), 0);
        EXPECT_EQ(rig.view.Left(Ctl::frmMain), left);
        EXPECT_EQ(rig.view.Top(Ctl::frmMain), top);
        EXPECT_FALSE(rig.machine.Exists(kIni)) << "reading does not create the file";
    }
}

TEST(Settings, ProgramFolderAtADriveRoot) {
    Rig rig;
    rig.machine.AddDrive({.root = "E:\\",
                          .type = platform::kDriveRemovable,
                          .label = "STICK",
                          .totalBytes = 8ull << 30,
                          .freeBytes = 2ull << 30});
    rig.machine.SetProgramFolder("E:\\");
    rig.machine.AddFile("E:\\Kestrine.ini", SettingsFile(1, "10", "20"));
    rig.Start();
    EXPECT_EQ(rig.form->SettingsPath(), "E:\\Kestrine.ini");
    EXPECT_EQ(rig.view.ListIndex(Ctl::cmbSize), 1);
    EXPECT_EQ(rig.view.Left(Ctl::frmMain), 10);

    rig.CloseAt(30, 40);
    EXPECT_EQ(rig.machine.FileContent("E:\\Kestrine.ini"), SettingsFile(1, "30", "40"));
    for (const auto& call : rig.machine.Journal()) {
        for (const auto& arg : call.args) {
            if (arg.find("Kestrine.ini") == std::string::npos) continue;
            EXPECT_EQ(arg.find("E:\\\\"), std::string::npos) << call.name << " " << arg;
        }
    }
}

TEST(Settings, FailedSaveKeepsTheOldFile) {
    const std::string old = SettingsFile(1, "1200", "900");
    Rig rig(&old);
    rig.Start();
    rig.machine.FindDrive("C:")->readOnly = true;
    rig.view.UserChoose(Ctl::cmbSize, 0);
    rig.CloseAt(10, 20);

    EXPECT_TRUE(rig.machine.Ended()) << "the program still ends";
    EXPECT_EQ(rig.Settings(), old);
    EXPECT_FALSE(rig.machine.Exists(kIni + ".new"));
}

} // namespace
