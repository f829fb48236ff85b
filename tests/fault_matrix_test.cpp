// Bad input and faults answered as designed, on the simulated machine and in
// the platform-free readers: hostile numbers in descriptions and scenarios,
// a huge USB.ini, a settings file of garbage, names with any bytes in
// kestrinectl's output, kernel names with endless numbers. (A drive pulled
// during a release, refused ejections and a full disk at close are in
// release_test.cpp and settings_test.cpp; the Linux faults in
// linux_faults_test.cpp.)
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "app/frmMain.h"
#include "ctl/ctl.h"
#include "drives/cDrive.h"
#include "kestrine-sim/scenario.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "platform/fake/processes.h"
#if defined(__linux__)
#include "platform/linux/sysfs.h"
#endif

namespace {

std::string LoadError(const std::string& description) {
    fake::Machine m;
    try {
        fake::Machine::LoadJson(m, description);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(Faults, NumbersThatDoNotFitAreRefusedWithASentence) {
    // Each of these used to be converted as it came: undefined, or a clock that never moves.
    EXPECT_EQ(LoadError(R"({"drives":[{"root":"E:\\","totalBytes":1e300}]})"),
              "machine description: \"totalBytes\" must be a whole number from 0 to 18446744073709551615");
    EXPECT_EQ(LoadError(R"({"drives":[{"root":"E:\\","type":-1}]})"),
              "machine description: \"type\" must be a whole number from 0 to 4294967295");
    EXPECT_EQ(LoadError(R"({"drives":[{"root":"E:\\","serial":2.5}]})"),
              "machine description: \"serial\" must be a whole number from 0 to 4294967295");
    EXPECT_EQ(LoadError(R"({"clock":{"tick":0}})"),
              "machine description: \"tick\" must be more than 0 and at most 60 seconds");
    EXPECT_EQ(LoadError(R"({"clock":{"time":1e20}})"), "machine description: \"time\" must be a number");
    EXPECT_EQ(LoadError(R"({"messageBoxAnswers":[1e10]})"),
              "machine description: \"messageBoxAnswers\" must hold button numbers");
    EXPECT_EQ(LoadError(R"({"drives":[{"root":"E:\\","bus":4294967296}]})"),
              "machine description: \"bus\" must be a whole number from 0 to 4294967295");

    sim::Scenario scenario([](const std::string&) {});
    for (const char* step : {R"({"step":"message","message":-5})", R"({"step":"message","message":537,"wParam":-1})",
                             R"({"step":"advance","seconds":1e300})", R"({"step":"key","key":1e9})"}) {
        const std::string text = std::string(R"({"steps":[{"step":"start"},)") + step + "]}";
        EXPECT_THROW(
            {
                sim::Scenario s([](const std::string&) {});
                s.Load(text);
                s.Run();
            },
            std::runtime_error)
            << step;
    }
}

TEST(Faults, AHugeUsbIniIsReadOnceWhateverItsSections) {
    fake::Machine machine;
    fake::Drive stick;
    stick.root = "E:\\";
    stick.type = platform::kDriveRemovable;
    machine.AddDrive(stick);
    machine.SetProgramFolder("E:\\Kestrine");
    machine.AddFile("E:\\Kestrine\\Connect.ico", "icon");
    std::string ini;
    for (int i = 0; i < 5000; ++i) ini += "[S" + std::to_string(i) + "]\r\nK" + std::to_string(i) + "=v\r\n";
    machine.AddFile("E:\\USB.ini", ini);
    platform::Services services = machine.services();
    fake::HeadlessView view;
    app::Program prog(services, view);
    drives::cDrive drive(prog);
    drive.mp_GetDriveTyps();
    ASSERT_EQ(drive.p_USBInfosCount(), 10000);
    EXPECT_EQ(drive.p_GetUSBInfos("9998"), "K4999");
    // 5,000 sections asked one by one, and the file parsed once.
    EXPECT_EQ(machine.Calls("GetPrivateProfileSectionA").size(), 5000u);
    EXPECT_EQ(machine.ProfileReads(), 1u);
}

TEST(Faults, ASettingsFileOfGarbageGivesTheDefaultsAndIsWrittenAfresh) {
    fake::Machine machine;
    fake::Drive c;
    c.root = "C:\\";
    c.type = platform::kDriveFixed;
    machine.AddDrive(c);
    machine.SetProgramFolder("C:\\Kestrine");
    machine.AddFile("C:\\Kestrine\\Kestrine.ini", std::string("\xff\xfe[\0Settings\x1a\r\n=\r\ncmbSize=x\r\n", 28));
    platform::Services services = machine.services();
    fake::HeadlessView view;
    app::frmMain form(services, view);
    form.Form_Load();
    EXPECT_EQ(view.Text(app::Ctl::cmbSize), "GB");
    view.UserClick(app::Ctl::cmdClose);
    const auto written = machine.FileContent("C:\\Kestrine\\Kestrine.ini");
    ASSERT_TRUE(written.has_value());
    EXPECT_NE(written->find("cmbSize=0"), std::string::npos) << *written;
}

TEST(Faults, NamesWithAnyBytesGiveValidJsonAndLinesThatCannotBeForged) {
    fake::Machine machine;
    fake::FakeProcesses processes;
    fake::Drive f;
    f.root = "F:\\";
    f.type = platform::kDriveRemovable;
    f.label = "ST\xff"
              "CK";
    machine.AddDrive(f);
    processes.Add({77, "evil\nname\x1b[31m", "file", "F:\\a\xc3.txt"});
    platform::Services services = machine.services();
    ctl::Tool tool({services, processes, {}});
    auto run = [&](const std::vector<std::string>& args) {
        std::ostringstream out, err;
        tool.Run(ctl::ParseArgs(args).options, out, err);
        return out.str();
    };

    const auto list = nlohmann::json::parse(run({"list", "--json"}));
    EXPECT_EQ(list.at("drives")[0].at("label"), "ST\xef\xbf\xbd"
                                                "CK"); // U+FFFD
    const auto who = nlohmann::json::parse(run({"who", "F:", "--json"}));
    EXPECT_EQ(who.at("holders")[0].at("path"), "F:\\a\xef\xbf\xbd.txt");
    EXPECT_EQ(who.at("holders")[0].at("name"), "evil\nname\x1b[31m"); // JSON escapes control characters itself

    const std::string text = run({"who", "F:"});
    EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
    EXPECT_NE(text.find("evil\\x0aname\\x1b[31m"), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << "a heading and one row:\n" << text;
}

#if defined(__linux__)
TEST(Faults, KernelNamesWithEndlessNumbersSortWithoutFailing) {
    const std::string huge = "sd" + std::string(40, '9');
    EXPECT_TRUE(linuxbk::NaturalLess("sd2", huge));
    EXPECT_FALSE(linuxbk::NaturalLess(huge, "sd2"));
    EXPECT_TRUE(linuxbk::NaturalLess("sdb2", "sdb10"));
    EXPECT_TRUE(linuxbk::NaturalLess("loop07", "loop7")); // same number: by spelling
    EXPECT_FALSE(linuxbk::NaturalLess("loop7", "loop07"));
    EXPECT_EQ(linuxbk::UeventValue("MAJOR=8\nDEVNAME=sdb1\nDEVNAMEX=no\n", "DEVNAME"), "sdb1");
    std::uint32_t major = 0, minor = 0;
    EXPECT_FALSE(linuxbk::ParseDev("99999999999:1", major, minor));
    EXPECT_TRUE(linuxbk::ParseDev("8:17\n", major, minor));
    EXPECT_EQ(minor, 17u);
}
#endif

} // namespace
