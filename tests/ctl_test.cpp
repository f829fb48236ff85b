// kestrinectl against the simulated machine of tests/golden/ctl_machine.json:
// the command line, the JSON documents (compared with the golden documents
// beside it; KESTRINE_UPDATE_GOLDEN=1 rewrites them), the exit code of every
// outcome, and what was asked of the system on the way.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl/ctl.h"
#include "platform/fake/machine.h"
#include "platform/fake/processes.h"

namespace {

const std::string kGolden = std::string(KESTRINE_SOURCE_DIR) + "/tests/golden/";

std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The golden machine, its processes and a tool on them.
struct Bench {
    fake::Machine machine;
    fake::FakeProcesses processes;
    platform::Services services;
    ctl::Tool tool;

    Bench() : services(Load(machine, processes)), tool({services, processes, {}}) {}
    static platform::Services Load(fake::Machine& m, fake::FakeProcesses& p) {
        const std::string text = ReadText(kGolden + "ctl_machine.json");
        fake::Machine::LoadJson(m, text);
        p.LoadJson(nlohmann::json::parse(text));
        return m.services();
    }

    struct Outcome {
        int code;
        std::string out, err;
    };
    Outcome Run(const std::vector<std::string>& args) {
        const ctl::Parsed parsed = ctl::ParseArgs(args);
        EXPECT_EQ(parsed.error, "");
        std::ostringstream out, err;
        const int code = tool.Run(parsed.options, out, err);
        return {code, out.str(), err.str()};
    }
    int Ejections() { return static_cast<int>(machine.Calls("CM_Request_Device_EjectW").size()); }
};

void ExpectGolden(const std::string& name, const std::string& actual) {
    const std::string path = kGolden + name;
    if (std::getenv("KESTRINE_UPDATE_GOLDEN") != nullptr) std::ofstream(path) << actual;
    EXPECT_EQ(actual, ReadText(path)) << "the document differs from " << path;
}

TEST(CtlArgs, AcceptsEveryCommandWithItsOptions) {
    auto p = ctl::ParseArgs({"list", "--json", "--usb"});
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.options.command, "list");
    EXPECT_TRUE(p.options.json && p.options.usb);

    p = ctl::ParseArgs({"release", "E:", "f", "--all-usb", "--machine", "m.json"});
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.options.roots, (std::vector<std::string>{"E:", "f"}));
    EXPECT_TRUE(p.options.allUsb);
    EXPECT_EQ(p.options.machine, "m.json");

    p = ctl::ParseArgs({"--machine=x.json", "release", "--all-usb"});
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.options.machine, "x.json");

    // Help in every form, and a help text for every command.
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--help"}, {"help"}, {"who", "--help"}, {"help", "release"}, {"serial", "-h"}}) {
        p = ctl::ParseArgs(args);
        EXPECT_EQ(p.error, "") << args[0];
        EXPECT_TRUE(p.options.help) << args[0];
    }
    for (const char* c : {"list", "release", "who", "watch", "serial"}) {
        EXPECT_NE(ctl::Usage(c).find(std::string("kestrinectl ") + c), std::string::npos) << c;
        EXPECT_NE(ctl::Usage(c).find("--json"), std::string::npos) << c;
    }

    // The version, the columns and headings as lsblk takes them, quiet, and "--".
    EXPECT_TRUE(ctl::ParseArgs({"--version"}).options.version);
    p = ctl::ParseArgs({"list", "-o", "root,Label", "-n"});
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.options.columns, (std::vector<std::string>{"ROOT", "LABEL"}));
    EXPECT_TRUE(p.options.noHeadings);
    EXPECT_EQ(ctl::ParseArgs({"list", "--output=FREE"}).options.columns, std::vector<std::string>{"FREE"});
    p = ctl::ParseArgs({"release", "-q", "--", "-weird-label-mount"});
    EXPECT_EQ(p.error, "");
    EXPECT_TRUE(p.options.quiet);
    EXPECT_EQ(p.options.roots, std::vector<std::string>{"-weird-label-mount"});
}

TEST(CtlArgs, RejectsBadCommandLinesWithASentence) {
    const std::vector<std::vector<std::string>> bad = {
        {},                             // no command
        {"eject", "E:"},                // no such command
        {"list", "E:"},                 // list takes no drive
        {"list", "--all-usb"},          // an option of another command
        {"release"},                    // nothing to release
        {"release", "E:", "--usb"},     // an option of another command
        {"who"},                        // who needs a drive
        {"who", "E:", "F:"},            // ... exactly one
        {"serial", "E:", "--all-usb"},  // an option of another command
        {"watch", "--usb"},             // an option of another command
        {"list", "--verbose"},          // no such option
        {"list", "--machine"},          // the option needs its file
        {"list", "-o", "ROOT,SIZE"},    // no such column
        {"list", "-o"},                 // the option needs its columns
        {"watch", "-n"},                // an option of another command
        {"who", "E:", "--interactive"}, // an option of another command
    };
    for (const auto& args : bad) {
        const auto p = ctl::ParseArgs(args);
        std::string line;
        for (const auto& a : args) line += a + " ";
        EXPECT_NE(p.error, "") << line;
        EXPECT_EQ(p.error.back(), '.') << line;
    }
}

TEST(CtlTool, RootsAreWrittenAnyWayTheUserWritesThem) {
    Bench b;
    for (const char* text : {"e", "E", "e:", "E:", "E:\\", "e:/"}) EXPECT_EQ(b.tool.Resolve(text), "E:\\") << text;
    for (const char* text : {"", "12", "EE", "E:x", "E:\\x", ":"})
        EXPECT_EQ(b.tool.Resolve(text), std::nullopt) << text;
    // Without mounted drives no path names a drive.
    EXPECT_EQ(b.tool.Resolve("/media/stick"), std::nullopt);
    // A label names its drive; a label nobody has names none.
    EXPECT_EQ(b.tool.Resolve("LABEL=STICK"), "E:\\");
    EXPECT_EQ(b.tool.Resolve("LABEL=NOBODY"), std::nullopt);
    EXPECT_EQ(b.tool.Resolve("UUID=1234-ABCD"), std::nullopt); // the simulated machine has no UUIDs
}

TEST(CtlTool, ColumnsHeadingsQuietAndDrivesByLabelOnTheCommandLine) {
    Bench b;
    auto r = b.Run({"list", "-o", "ROOT,LABEL", "-n"});
    EXPECT_EQ(r.code, ctl::kOk);
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "C:\\  System");
    EXPECT_EQ(r.out.find("ROOT"), std::string::npos);
    r = b.Run({"who", "LABEL=NOBODY"});
    EXPECT_EQ(r.code, ctl::kNotFound) << r.err;
    EXPECT_EQ(r.err, "kestrinectl: Drive LABEL=NOBODY was not found.\n");
    r = b.Run({"release", "LABEL=STICK", "-q"});
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_EQ(r.out, "") << "quiet";
    r = b.Run({"--version"});
    EXPECT_EQ(r.out, std::string("kestrinectl ") + KESTRINE_VERSION + "\n");
}

// Before a release the drive's cached data is written out while the user
// watches: a line kept in place on a terminal, JSON objects with --json, and
// "safe to unplug" only once the device is off.
TEST(CtlRelease, CachedDataIsWrittenFirstWithItsProgress) {
    std::vector<std::string> flushed;
    int ejectionsAtFlush = -1;
    // Each run on a fresh machine, as a release takes the drive away.
    auto run = [&](const std::vector<std::string>& args, bool terminal) {
        fake::Machine machine;
        fake::FakeProcesses processes;
        platform::Services services = Bench::Load(machine, processes);
        auto flush = [&](const std::string& root, const std::function<void(const ctl::FlushProgress&)>& progress) {
            flushed.push_back(root);
            ejectionsAtFlush = static_cast<int>(machine.Calls("CM_Request_Device_EjectW").size());
            progress({3u << 20, false, 0, false});
            progress({0, false, 3u << 20, true});
            return true;
        };
        ctl::Tool tool({services, processes, {}, {}, flush, terminal});
        std::ostringstream out, err;
        const int code = tool.Run(ctl::ParseArgs(args).options, out, err);
        return Bench::Outcome{code, out.str(), err.str()};
    };

    auto r = run({"release", "E:"}, true);
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_EQ(flushed, std::vector<std::string>{"E:\\"});
    EXPECT_EQ(ejectionsAtFlush, 0) << "written before the ejection";
    EXPECT_EQ(r.err, "\rE:\\ writing cached data: 3.0 MB left, 0.0 MB written   "
                     "\rE:\\ writing cached data: 0.0 MB left, 3.0 MB written\n");
    EXPECT_EQ(r.out, "Drive E:\\ has been released; it is safe to unplug it now.\n");

    // Not on a terminal, or quiet: no progress line.
    EXPECT_EQ(run({"release", "E:"}, false).err, "");
    EXPECT_EQ(run({"release", "E:", "-q"}, true).err, "");

    // A refusal writes the data too, and says nothing of safety.
    r = run({"release", "F:"}, true);
    EXPECT_EQ(r.code, ctl::kRefused);
    EXPECT_EQ(r.out.find("safe"), std::string::npos) << r.out;

    r = run({"release", "E:", "--json"}, false);
    std::istringstream lines(r.err);
    std::vector<nlohmann::json> progress;
    for (std::string line; std::getline(lines, line);) progress.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(progress.size(), 2u) << r.err;
    EXPECT_EQ(progress[0].at("progress").at("root"), "E:\\");
    EXPECT_EQ(progress[0].at("progress").at("bytesLeft"), 3u << 20);
    EXPECT_EQ(progress[1].at("progress").at("done"), true);
    EXPECT_EQ(nlohmann::json::parse(r.out).at("exitCode"), 0);
}

TEST(CtlGolden, ListDocuments) {
    Bench b;
    auto r = b.Run({"list", "--json"});
    EXPECT_EQ(r.code, ctl::kOk);
    EXPECT_EQ(r.err, "");
    ExpectGolden("list.json", r.out);
    // The window's list: the CD-ROM drive is left out, every drive has every key.
    const auto doc = nlohmann::json::parse(r.out);
    EXPECT_EQ(doc["drives"].size(), 5u);
    for (const auto& d : doc["drives"]) {
        EXPECT_NE(d["root"], "D:\\");
        for (const char* key : {"root", "label", "kind", "bus", "usb", "fileSystem", "totalBytes", "usedBytes",
                                "freeBytes", "mountPoint", "deviceNode"})
            EXPECT_TRUE(d.contains(key)) << key;
        EXPECT_EQ(d["usedBytes"].get<std::uint64_t>() + d["freeBytes"].get<std::uint64_t>(),
                  d["totalBytes"].get<std::uint64_t>());
    }

    r = b.Run({"list", "--json", "--usb"});
    ExpectGolden("list-usb.json", r.out);
    r = b.Run({"list"});
    ExpectGolden("list.txt", r.out);
}

TEST(CtlGolden, WhoAndSerialDocuments) {
    Bench b;
    auto r = b.Run({"who", "f:", "--json"});
    EXPECT_EQ(r.code, ctl::kOk);
    ExpectGolden("who-f.json", r.out);
    r = b.Run({"who", "G", "--json"});
    EXPECT_EQ(nlohmann::json::parse(r.out)["holders"].size(), 0u) << "nothing holds G";

    r = b.Run({"serial", "E:", "--json"});
    ExpectGolden("serial-e.json", r.out);
    const auto doc = nlohmann::json::parse(r.out);
    EXPECT_EQ(doc["serial"], "0123456789AB 0");
    EXPECT_EQ(doc["pnpDeviceId"], "USBSTOR\\DISK&VEN_ACME&PROD_STICK&REV_1.00\\0123456789AB&0") << "single ampersands";
    r = b.Run({"serial", "G:", "--json"});
    EXPECT_EQ(nlohmann::json::parse(r.out)["serial"], "none");
    EXPECT_EQ(nlohmann::json::parse(r.out)["pnpDeviceId"], "");
}

TEST(CtlGolden, ReleaseOfEveryUsbDrive) {
    Bench b;
    const auto r = b.Run({"release", "--all-usb", "--json"});
    ExpectGolden("release-all-usb.json", r.out);
    EXPECT_EQ(r.code, ctl::kRefused) << "F: is refused";
    EXPECT_EQ(r.err,
              "kestrinectl: Drive F:\\ could not be released: the system refused to eject it (veto OutstandingOpen: "
              "USB\\VID_0951&PID_1666\\BK2024; held by explorer.exe [988] and other processes).\n");
    // E: once, F: four times (refused each time), each pause 300 ms.
    EXPECT_EQ(b.Ejections(), 5);
    const auto sleeps = b.machine.Calls("Sleep");
    ASSERT_EQ(sleeps.size(), 4u);
    for (const auto& s : sleeps) EXPECT_EQ(s.args.front(), "300");
    EXPECT_FALSE(b.machine.hardware().Present("USBSTOR\\DISK&VEN_ACME&PROD_STICK&REV_1.00\\0123456789AB&0"));
    EXPECT_TRUE(b.machine.hardware().Present("USB\\VID_0951&PID_1666\\BK2024"));
}

TEST(CtlRelease, ExitCodeOfEachOutcome) {
    struct Case {
        std::vector<std::string> args;
        int code;
        int ejections;
        std::string err; // the sentence on standard error, naming the drive
    };
    const std::vector<Case> cases = {
        {{"release", "E:"}, ctl::kOk, 1, ""},
        {{"release", "F:"}, ctl::kRefused, 4, "Drive F:\\ could not be released"},
        {{"release", "G:"}, ctl::kNotUsb, 0, "Drive G:\\ is not a USB drive."},
        {{"release", "Z:"}, ctl::kNotUsb, 0, "Drive Z:\\ is not a USB drive."},
        {{"release", "c"}, ctl::kRefused, 0, "Drive C:\\ is the system drive and is never released."},
        {{"release", "Q:"}, ctl::kNotFound, 0, "Drive Q:\\ was not found."},
        {{"release", "E:x"}, ctl::kBadArguments, 0, "E:x is not a drive;"},
        {{"release", "G:", "E:"}, ctl::kNotUsb, 1, "Drive G:\\ is not a USB drive."}, // the first failure counts
        {{"who", "Q"}, ctl::kNotFound, 0, "Drive Q:\\ was not found."},
        {{"serial", "Q"}, ctl::kNotFound, 0, "Drive Q:\\ was not found."},
        {{"who", "12"}, ctl::kBadArguments, 0, "12 is not a drive;"},
        {{"watch"}, ctl::kSystemError, 0, "no device events"},
    };
    for (const auto& c : cases) {
        Bench b;
        const auto r = b.Run(c.args);
        const std::string what = c.args[0] + " " + (c.args.size() > 1 ? c.args[1] : "");
        EXPECT_EQ(r.code, c.code) << what;
        EXPECT_EQ(b.Ejections(), c.ejections) << what;
        if (c.err.empty())
            EXPECT_EQ(r.err, "") << what;
        else
            EXPECT_NE(r.err.find(c.err), std::string::npos) << what << ": " << r.err;
    }
}

TEST(CtlRelease, AUsbDriveWithoutADeviceToEjectIsASystemError) {
    Bench b;
    fake::Drive h;
    h.root = "H:\\";
    h.type = platform::kDriveRemovable;
    h.bus = 7;
    h.deviceNumber = 9; // no interface of the device tree reports it
    b.machine.AddDrive(h);
    const auto r = b.Run({"release", "H:", "--json"});
    EXPECT_EQ(r.code, ctl::kSystemError);
    EXPECT_EQ(b.Ejections(), 0);
    const auto result = nlohmann::json::parse(r.out)["results"][0];
    EXPECT_EQ(result["outcome"], "error");
    EXPECT_EQ(result["veto"], nullptr);
    EXPECT_EQ(r.err, "kestrinectl: Drive H:\\ could not be released: the system found no device to eject for it.\n");
}

TEST(CtlRelease, ClosesTheOwnHandlesOnTheDriveFirst) {
    Bench b;
    fake::HandleEntry own;
    own.processId = b.machine.handles().OwnProcessId();
    own.handle = 900;
    own.name = "\\Device\\HarddiskVolume9\\open.txt";
    b.machine.FindDrive("E:")->dosDevice = "\\Device\\HarddiskVolume9";
    b.machine.handles().Add(own);
    const auto r = b.Run({"release", "E:"});
    EXPECT_EQ(r.code, ctl::kOk) << r.err;
    EXPECT_FALSE(b.machine.handles().IsOpen(own.processId, 900)) << "the handle on E: was closed";
    // The handle went before the eject request.
    const auto& journal = b.machine.Journal();
    std::size_t closed = journal.size(), eject = journal.size();
    for (std::size_t i = 0; i < journal.size(); ++i) {
        if (journal[i].name == "NtDuplicateObject" && journal[i].request && closed == journal.size()) closed = i;
        if (journal[i].name == "CM_Request_Device_EjectW") eject = i;
    }
    EXPECT_LT(closed, eject);
}

TEST(CtlProgram, ExitCodesAndMessagesOfTheProgramItself) {
    const std::string ctl = KESTRINECTL_PATH;
    const std::string machine = " --machine " + kGolden + "ctl_machine.json";
    auto run = [](const std::string& command, std::string* err = nullptr) {
        const std::string errFile = ::testing::TempDir() + "kestrinectl.err";
        const int status = std::system((command + " >/dev/null 2>" + errFile).c_str());
        if (err != nullptr) *err = ReadText(errFile);
        return WEXITSTATUS(status);
    };
    std::string err;
    EXPECT_EQ(run(ctl + " list" + machine), ctl::kOk);
    EXPECT_EQ(run(ctl + " --help"), ctl::kOk);
    EXPECT_EQ(run(ctl + " frob" + machine, &err), ctl::kBadArguments);
    EXPECT_NE(err.find("Unknown command frob"), std::string::npos) << err;
    EXPECT_EQ(run(ctl + " release G:" + machine, &err), ctl::kNotUsb);
    EXPECT_EQ(err, "kestrinectl: Drive G:\\ is not a USB drive.\n");
    EXPECT_EQ(run(ctl + " release F:" + machine), ctl::kRefused);
    EXPECT_EQ(run(ctl + " serial Q:" + machine), ctl::kNotFound);
    EXPECT_EQ(run(ctl + " list --machine /nonexistent/m.json", &err), ctl::kBadArguments);
    EXPECT_NE(err.find("/nonexistent/m.json"), std::string::npos) << err;
}

// The simulated machine's side of watch: a script of system events, each
// followed by the messages that reached the window's own procedure.
class ScriptedWatch : public ctl::WatchLoop {
public:
    using Step = std::function<void(fake::Machine&, platform::WindowHandle)>;
    ScriptedWatch(fake::Machine& machine, std::vector<Step> steps) : machine_(machine), steps_(std::move(steps)) {}
    static constexpr platform::WindowHandle kWindow = 0x7700;
    platform::WindowHandle Window() override { return kWindow; }
    void Run(const Seen& seen) override {
        for (const auto& step : steps_) {
            step(machine_, kWindow);
            const auto& reached = machine_.OwnProcedureMessages();
            for (; passed_ < reached.size(); ++passed_)
                seen(reached[passed_].message, reached[passed_].wParam, reached[passed_].lParam);
        }
    }

private:
    fake::Machine& machine_;
    std::vector<Step> steps_;
    std::size_t passed_ = 0;
};

fake::Drive Stick(const std::string& root, const std::string& label) {
    const nlohmann::json drive = {
        {"root", root + "\\"},      {"type", 2},         {"label", label}, {"fileSystem", "FAT32"},
        {"totalBytes", 1000000000}, {"freeBytes", 1000}, {"bus", 7}};
    return fake::Machine::DriveFromJson(drive.dump());
}

TEST(CtlWatch, DevicesAndReportsAsTheProgramSeesThem) {
    Bench b;
    constexpr std::uint32_t kDriveAdd = 0x100, kMkdir = 0x8, kDevNodesChanged = 0x7;
    ScriptedWatch loop(
        b.machine,
        {// A stick arrives: the broadcast, then the shell's report of the new drive.
         [](fake::Machine& m, platform::WindowHandle w) {
             m.AddDrive(Stick("H:", "NEW"));
             m.Deliver(w, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
             m.ShellReport(kDriveAdd, m.ShellItem("NEW (H:)", "H:\\"), 0);
         },
         // A folder made on a drive.
         [](fake::Machine& m, platform::WindowHandle) { m.ShellReport(kMkdir, m.ShellItem("docs", "E:\\docs"), 0); },
         // Two sticks go at once; then a device change the program does not handle.
         [](fake::Machine& m, platform::WindowHandle w) {
             m.RemoveDrive("F:\\");
             m.RemoveDrive("H:\\");
             m.Deliver(w, platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
             m.Deliver(w, platform::kWmDeviceChange, kDevNodesChanged, 0);
         },
         // A device that is no drive.
         [](fake::Machine& m, platform::WindowHandle w) {
             m.Deliver(w, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
         }});
    const auto parsed = ctl::ParseArgs({"watch"});
    ASSERT_EQ(parsed.error, "");
    std::ostringstream out, err;
    EXPECT_EQ(b.tool.Run(parsed.options, out, err, &loop), ctl::kOk) << err.str();
    EXPECT_EQ(out.str(), "arrival H:\\ NEW (Removable)\n"
                         "change H:\\ SHCNE_DRIVEADD; first item displayname: NEW (H:); first item path: H:\\\n"
                         "change E:\\ SHCNE_MKDIR; first item displayname: docs; first item path: E:\\docs\n"
                         "removal F:\\ BACKUP (Removable)\n"
                         "removal H:\\ NEW (Removable)\n"
                         "arrival - no drive came\n");
    EXPECT_EQ(err.str(), "");
    // Nothing was put in front of the window's own procedure.
    EXPECT_EQ(b.machine.CurrentProcedure(ScriptedWatch::kWindow), fake::Machine::kOwnProcedure);
    EXPECT_TRUE(b.machine.ShellRegistered()) << "registered for the shell's reports";
    // A tool does not beep at every device, nor raise a window it does not have.
    EXPECT_EQ(b.machine.Beeps(), 0);
    EXPECT_TRUE(b.machine.Calls("SetWindowPos").empty());
}

TEST(CtlWatch, JsonLinesAndASystemWithoutEvents) {
    Bench b;
    ScriptedWatch loop(b.machine, {[](fake::Machine& m, platform::WindowHandle w) {
                           m.AddDrive(Stick("K:", "Q\"UOTE"));
                           m.Deliver(w, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
                       }});
    const auto parsed = ctl::ParseArgs({"watch", "--json"});
    std::ostringstream out, err;
    EXPECT_EQ(b.tool.Run(parsed.options, out, err, &loop), ctl::kOk);
    const auto line = nlohmann::json::parse(out.str());
    EXPECT_EQ(line, (nlohmann::json{{"event", "arrival"}, {"root", "K:\\"}, {"detail", "Q\"UOTE (Removable)"}}));

    std::ostringstream none, noneErr;
    EXPECT_EQ(b.tool.Run(parsed.options, none, noneErr), ctl::kSystemError);
    EXPECT_EQ(noneErr.str(), "kestrinectl: This system offers no device events to watch.\n");
}

TEST(CtlFakeProcesses, MalformedDescriptionsAreRejected) {
    for (const char* text : {R"({"processes": 3})", R"({"processes": [{"name": "x"}]})",
                             R"({"processes": [{"pid": 1, "holds": [{"what": "file"}]}]})"}) {
        fake::FakeProcesses p;
        EXPECT_THROW(p.LoadJson(nlohmann::json::parse(text)), std::runtime_error) << text;
    }
}

} // namespace
