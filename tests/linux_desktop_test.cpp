// The Linux stand-ins for the desktop: the previous-instance channel, the
// shell's opener and the console window system's procedure chain.
#include <gtest/gtest.h>

#include <unistd.h>

#include "platform/linux/system.h"

namespace {

const std::string kFixtures = std::string(KESTRINE_SOURCE_DIR) + "/tests/fixtures/linux";

linuxbk::System::Options Fixture() {
    linuxbk::System::Options o;
    o.sysRoot = kFixtures + "/sys";
    o.mountInfo = kFixtures + "/mountinfo-plugged";
    o.events = false;
    o.title = "Kestrine test " + std::to_string(::getpid()); // no clash with a running program
    return o;
}

// The program's arguments reach it as one command line, each argument as
// given: nothing trimmed, no empty argument lost, and a line that splits back
// into the same arguments.
TEST(LinuxDesktop, TheCommandLineKeepsTheArgumentsAsGiven) {
    using linuxbk::LinuxApplication;
    EXPECT_EQ(LinuxApplication::CommandLineOf({}), "");
    EXPECT_EQ(LinuxApplication::CommandLineOf({"E:\\"}), "E:\\");
    EXPECT_EQ(LinuxApplication::CommandLineOf({"e:\\"}), "e:\\");
    // A trailing blank stays, inside the quotes that keep it part of the argument.
    EXPECT_EQ(LinuxApplication::CommandLineOf({"E:\\ "}), "\"E:\\ \"");
    // An empty argument is not dropped, so what follows it does not become the whole line.
    EXPECT_EQ(LinuxApplication::CommandLineOf({"", "E:\\"}), "\"\" E:\\");
    EXPECT_EQ(LinuxApplication::CommandLineOf({"E:\\", ""}), "E:\\ \"\"");
    // Two blanks inside one argument stay two.
    EXPECT_EQ(LinuxApplication::CommandLineOf({"E:\\  F:\\"}), "\"E:\\  F:\\\\\"");
    // Quotes are escaped with the backslashes before them, and backslashes before the closing quote doubled.
    EXPECT_EQ(LinuxApplication::CommandLineOf({"say \"hi\""}), "\"say \\\"hi\\\"\"");
    EXPECT_EQ(LinuxApplication::CommandLineOf({"a\\\"b"}), "\"a\\\\\\\"b\"");
    EXPECT_EQ(LinuxApplication::CommandLineOf({"C:\\My Files\\"}), "\"C:\\My Files\\\\\"");
}

TEST(LinuxDesktop, SecondInstanceFindsTheFirstAndAsksItToShowItself) {
    linuxbk::System first(Fixture()), second(Fixture());
    auto a = first.Services(), b = second.Services();
    EXPECT_FALSE(a.app.PrevInstance()) << "the first start holds the name";
    EXPECT_TRUE(b.app.PrevInstance());
    const auto hidden = b.windows.FindWindowA("ThunderRT6Main", first.App().Title());
    ASSERT_EQ(hidden, linuxbk::ConsoleWindows::kOtherHiddenWindow);
    const auto main = b.windows.GetWindow(hidden, platform::kGwHwndPrev);
    EXPECT_TRUE(b.windows.OpenIcon(main));
    EXPECT_TRUE(b.windows.SetForegroundWindow(main));
    EXPECT_EQ(first.Channel().Requests(), (std::vector<std::string>{"restore", "raise"}));
    EXPECT_EQ(b.windows.FindWindowA("ThunderRT6Main", "no such title"), 0u);
}

TEST(LinuxDesktop, ShellOpensMappedFoldersAndTheTrash) {
    linuxbk::System sys(Fixture());
    std::vector<std::vector<std::string>> run;
    sys.Shell().SetOpener([&](const std::vector<std::string>& command) {
        run.push_back(command);
        return true;
    });
    auto s = sys.Services();
    EXPECT_GT(s.shell.ShellExecuteA(0, "explore", "D:\\", "", "D:\\", platform::kSwShowNormal), 32);
    EXPECT_GT(s.shell.ShellExecuteA(0, "Open", "explorer.exe", "/root,::{645FF040-5081-101B-9F08-00AA002F954E}", "",
                                    platform::kSwShowNormal),
              32);
    EXPECT_LE(s.shell.ShellExecuteA(0, "open", "Q:\\nothing", "", "", platform::kSwShowNormal), 32);
    EXPECT_LE(s.shell.ShellExecuteA(0, "print", "D:\\a.txt", "", "", platform::kSwShowNormal), 32);
    ASSERT_EQ(run.size(), 2u);
    EXPECT_EQ(run[0].back(), "/media/me/Cruzer Blade");
    EXPECT_EQ(run[1].back(), "trash:///");

    // The sibling tool gets its file named and the drive root as one argument.
    EXPECT_EQ(linuxbk::LinuxApplication::Arguments("/opt/my tools/Quorra", "C:\\opt\\my tools\\Quorra",
                                                   "C:\\opt\\my tools\\Quorra E:\\"),
              (std::vector<std::string>{"/opt/my tools/Quorra", "E:\\"}));
}

std::vector<std::uint32_t> g_seen;
std::intptr_t g_previous = 0;
std::intptr_t Spy(platform::WindowHandle w, std::uint32_t m, std::uintptr_t wp, std::intptr_t lp) {
    g_seen.push_back(m);
    (void)w;
    (void)wp;
    (void)lp;
    return 7;
}

TEST(LinuxDesktop, ConsoleProcedureChainPropertiesAndMessageBoxes) {
    linuxbk::System sys(Fixture());
    auto& win = sys.Console();
    std::vector<std::uint32_t> own;
    win.SetOwnProcedure([&](platform::WindowHandle, std::uint32_t m, std::uintptr_t, std::intptr_t) {
        own.push_back(m);
        return std::intptr_t{0};
    });
    const platform::WindowHandle w = 0x10010;
    g_previous = win.SetWindowLongA(w, platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&Spy));
    EXPECT_EQ(g_previous, linuxbk::ConsoleWindows::kOwnProcedure);
    EXPECT_EQ(win.Deliver(w, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0), 7);
    EXPECT_EQ(g_seen, (std::vector<std::uint32_t>{platform::kWmDeviceChange}));
    EXPECT_TRUE(own.empty()) << "the spy does not pass it on";
    win.CallWindowProcA(g_previous, w, platform::kWmDestroy, 0, 0);
    EXPECT_EQ(own, (std::vector<std::uint32_t>{platform::kWmDestroy}));
    EXPECT_EQ(win.SetWindowLongA(w, platform::kGwlWndProc, g_previous), reinterpret_cast<std::intptr_t>(&Spy));

    EXPECT_TRUE(win.SetPropA(w, "OldWndProc", 42));
    EXPECT_EQ(win.GetPropA(w, "OldWndProc"), 42);
    EXPECT_EQ(win.RemovePropA(w, "OldWndProc"), 42);
    EXPECT_EQ(win.GetPropA(w, "OldWndProc"), 0);

    std::string shown;
    win.SetMessageSink([&](const std::string& line) { shown += line; });
    EXPECT_EQ(win.MessageBoxA(w, "Set the label?\r\n", "Kestrine",
                              platform::kMbYesNo | platform::kMbIconQuestion | platform::kMbDefButton2),
              platform::kIdNo);
    EXPECT_EQ(shown, "Kestrine: Set the label?\n");
    const float t = win.Timer();
    EXPECT_GE(t, 0.0f);
    EXPECT_LT(t, 86400.0f);
}

} // namespace
