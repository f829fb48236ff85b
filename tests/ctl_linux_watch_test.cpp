// kestrinectl watch on the Linux backend: a real loop drive is mounted and
// unmounted while the tool watches, and the lines name it as the program's
// device and shell handling saw it. Needs root; skipped elsewhere.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <sys/mount.h>

#include "ctl/ctl.h"
#include "linux_test_support.h"
#include "linux_watch.h"
#include "platform/linux/processes.h"
#include "platform/linux/system.h"

namespace {

// The root the line of this kind names for the label, or "".
std::string RootIn(const std::string& text, const std::string& kind, const std::string& label) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(kind + " ") && line.ends_with(" " + label + " (Fixed)"))
            return line.substr(kind.size() + 1, 3);
    return {};
}

TEST(CtlLinuxWatch, AMountedLoopDriveComesAndGoes) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    linuxtest::LoopDrives loops;
    linuxtest::LoopDrive* drive = loops.Add("WATCHED", /*mount=*/false);
    ASSERT_TRUE(drive);

    linuxbk::System::Options o;
    o.useUdisks = false;
    linuxbk::System sys(o);
    platform::Services services = sys.Services();
    linuxbk::LinuxProcesses processes(sys.Map());
    ctl::Tool tool({services, processes, {}});

    std::ostringstream out, err;
    enum { kMount, kArrived, kUnmounted } phase = kMount;
    std::string root;
    const auto start = std::chrono::steady_clock::now();
    ctllinux::LinuxWatchLoop loop(
        sys,
        [&] {
            if (std::chrono::steady_clock::now() - start > std::chrono::seconds(20)) return false;
            if (phase == kMount) {
                if (!loops.Mount(*drive)) return false;
                phase = kArrived;
            } else if (phase == kArrived) {
                root = RootIn(out.str(), "arrival", "WATCHED");
                if (!root.empty() && out.str().find("change " + root + " SHCNE_DRIVEADD") != std::string::npos) {
                    ::umount2(drive->mountPoint.c_str(), 0);
                    drive->mountPoint.clear();
                    phase = kUnmounted;
                }
            } else if (!RootIn(out.str(), "removal", "WATCHED").empty()) {
                return false;
            }
            return true;
        },
        100);
    const auto parsed = ctl::ParseArgs({"watch"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(tool.Run(parsed.options, out, err, &loop), ctl::kOk) << err.str();

    ASSERT_EQ(phase, kUnmounted) << "the mounted drive was not seen arriving:\n" << out.str();
    EXPECT_EQ(RootIn(out.str(), "removal", "WATCHED"), root) << out.str();
    EXPECT_NE(out.str().find("change " + root + " SHCNE_DRIVEREMOVED"), std::string::npos) << out.str();
    // The arrival is told once the drive is in the window's list, before the shell's report of it.
    EXPECT_LT(out.str().find("arrival " + root), out.str().find("change " + root + " SHCNE_DRIVEADD"));
    EXPECT_EQ(err.str(), "");
}

} // namespace
