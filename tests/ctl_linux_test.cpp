// kestrinectl on real drives: a loop device with an ext4 file system, held
// by a child process of the test (an open file and its working directory).
// These tests need root; elsewhere they are skipped with the reason.
#include <gtest/gtest.h>

#include <sstream>
#include <sys/stat.h>

#include "ctl/ctl.h"
#include "linux_test_support.h"
#include "platform/linux/processes.h"
#include "platform/linux/system.h"

namespace {

using linuxbk::System;
using linuxtest::Holder;

std::optional<std::string> RootAt(System& sys, const std::string& mountPoint) {
    for (const auto& d : sys.Map().Drives())
        if (d.mountPoint == mountPoint) return d.Root();
    return std::nullopt;
}

TEST(CtlLinuxLoop, WhoAndARefusedReleaseNameTheHoldingChild) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    linuxtest::LoopDrives loops;
    auto* a = loops.Add("HELD");
    ASSERT_TRUE(a);
    ::mkdir((a->mountPoint + "/work").c_str(), 0755);
    Holder child(a->mountPoint + "/work/open.txt", a->mountPoint + "/work");
    ASSERT_TRUE(child.Ready());

    System::Options o;
    o.events = false;
    o.useUdisks = false; // the direct way: the refusal does not depend on a udisks2 daemon
    System sys(o);
    platform::Services services = sys.Services();
    linuxbk::LinuxProcesses processes(sys.Map());
    auto place = [&](const std::string& root) -> std::optional<ctl::DrivePlace> {
        const auto* d = sys.Map().Find(root[0]);
        return d ? std::optional<ctl::DrivePlace>(ctl::DrivePlace{d->mountPoint, d->devNode}) : std::nullopt;
    };
    ctl::Tool tool({services, processes, place});
    const auto root = RootAt(sys, a->mountPoint);
    ASSERT_TRUE(root);

    // The drive is listed with its place, and found by mount point and device node.
    bool listed = false;
    for (const auto& row : tool.List()) {
        if (row.root != *root) continue;
        listed = true;
        EXPECT_EQ(row.label, "HELD");
        EXPECT_EQ(row.fileSystem, "ext4");
        EXPECT_GT(row.totalBytes, 0u);
        ASSERT_TRUE(row.place);
        EXPECT_EQ(row.place->deviceNode, a->device);
    }
    EXPECT_TRUE(listed);
    EXPECT_EQ(tool.Resolve(a->mountPoint), root);
    EXPECT_EQ(tool.Resolve(a->device), root);

    // who: the child's open file and working directory, nothing of this process.
    const auto holds = processes.WhoHolds(*root);
    bool file = false, cwd = false;
    for (const auto& h : holds) {
        EXPECT_NE(h.pid, static_cast<std::uint32_t>(::getpid()));
        if (h.pid != child.Pid()) continue;
        file = file || (h.what == "file" && h.path == a->mountPoint + "/work/open.txt");
        cwd = cwd || (h.what == "cwd" && h.path == a->mountPoint + "/work");
    }
    EXPECT_TRUE(file) << "the child's open file";
    EXPECT_TRUE(cwd) << "the child's working directory";

    // The loop device is no USB drive: the window's check refuses it.
    const auto refused = tool.Release(*root);
    EXPECT_EQ(refused.code, ctl::kNotUsb);
    EXPECT_NE(refused.message.find(*root), std::string::npos);

    // Past the check the eject request is vetoed while the child holds the drive,
    // and the refusal names the child.
    const auto vetoed = tool.Eject(*root);
    EXPECT_EQ(vetoed.code, ctl::kRefused);
    ASSERT_TRUE(vetoed.veto);
    EXPECT_EQ(ctl::VetoTypeName(vetoed.veto->type), "OutstandingOpen");
    bool named = false;
    for (const auto& h : vetoed.holders) named = named || h.pid == child.Pid();
    EXPECT_TRUE(named);
    EXPECT_NE(vetoed.message.find("veto OutstandingOpen"), std::string::npos) << vetoed.message;
    EXPECT_TRUE(RootAt(sys, a->mountPoint)) << "a refused release leaves the drive mounted";

    // The same through the command line, in JSON.
    std::ostringstream out, err;
    const auto parsed = ctl::ParseArgs({"who", a->mountPoint, "--json"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(tool.Run(parsed.options, out, err), ctl::kOk) << err.str();
    EXPECT_NE(out.str().find("\"pid\": " + std::to_string(child.Pid())), std::string::npos) << out.str();

    // Once the child is gone nothing holds the drive and the ejection goes through.
    child.Stop();
    EXPECT_TRUE(processes.WhoHolds(*root).empty());
    const auto released = tool.Eject(*root);
    EXPECT_EQ(released.code, ctl::kOk) << released.message;
    sys.Map().Refresh();
    EXPECT_FALSE(RootAt(sys, a->mountPoint));
    a->mountPoint.clear();
}

} // namespace
