// kestrine-sim's steps for what happens while a handler yields, raw shell
// reports, a text box's selection, any pop-up index, the window's own
// procedure, the shell's reports of an ejected stick and process paths.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim_events.h"

namespace {

using Json = nlohmann::json;

using simtest::RunSim;

// A system disk C: and a USB stick E: whose device accepts the eject.
const std::string kStickMachine = R"("machine": {
    "program": { "folder": "C:\\Tools\\Kestrine" },
    "files": [ { "path": "C:\\Tools\\Kestrine", "folder": true } ],
    "drives": [ { "root": "C:\\", "type": 3, "label": "System", "totalBytes": 1000, "freeBytes": 500,
                  "bus": 3, "deviceNumber": 0 },
                { "root": "E:\\", "type": 2, "label": "STICK", "totalBytes": 1000, "freeBytes": 250,
                  "bus": 7, "deviceNumber": 1 },
                { "root": "F:\\", "type": 2, "label": "CARD", "totalBytes": 1000, "freeBytes": 250 } ],
    "deviceTree": [ { "instanceId": "USB\\STICK" },
                    { "instanceId": "USBSTOR\\STICK", "parent": "USB\\STICK", "interface": "disk",
                      "deviceNumber": 1 } ] })";

std::vector<Json> RunSteps(const std::string& steps, const std::string& extra = "") {
    return RunSim("{" + kStickMachine + extra + R"(, "steps": )" + steps + "}");
}

// The position of the first event for which match is true, or -1.
template <typename Match> int Find(const std::vector<Json>& events, Match match, int from = 0) {
    for (int i = from; i < static_cast<int>(events.size()); ++i)
        if (match(events[static_cast<std::size_t>(i)])) return i;
    return -1;
}

int Count(const std::vector<Json>& events, const std::string& kind) {
    int n = 0;
    for (const auto& e : events) n += e["event"] == kind ? 1 : 0;
    return n;
}

auto Control(const std::string& control, const std::string& property, const std::string& value) {
    return [=](const Json& e) {
        return e["event"] == "control" && e["control"] == control && e["property"] == property && e["value"] == value;
    };
}

auto StepAtYield(const std::string& what) {
    return [=](const Json& e) { return e["event"] == "step" && e["do"] == what && e.contains("yield"); };
}

bool Appended(const Json& e) {
    return e["event"] == "control" && e["control"] == "Text1" && e["property"] == "appended";
}

// All the text the event log received, in order.
std::string EventLog(const std::vector<Json>& events) {
    std::string log;
    for (const auto& e : events)
        if (Appended(e)) log += e["value"].get<std::string>();
    return log;
}

void ExpectFailure(const std::string& steps, const std::string& message, const std::string& extra = "") {
    SCOPED_TRACE(steps);
    try {
        RunSteps(steps, extra);
        ADD_FAILURE() << "no error for a malformed scenario";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
    }
}

// --- steps that arrive while a handler yields ---

TEST(SimDuring, CloseDuringTheCloseWaitChangesNothing) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "close", "during": [ { "do": "close" } ] } ])");
    const int nested = Find(events, StepAtYield("close"));
    ASSERT_GE(nested, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(nested)]["yield"], 1);
    EXPECT_EQ(events[static_cast<std::size_t>(nested)]["index"], 2);
    // It came inside the half-second wait, before "Quit" was greyed out.
    EXPECT_LT(nested, Find(events, Control("cmdClose", "enabled", "false")));
    // The close under way goes on alone: no message, one save, one end.
    EXPECT_EQ(Count(events, "messageBox"), 0);
    EXPECT_EQ(Count(events, "settings"), 1);
    EXPECT_EQ(Count(events, "ended"), 1);
    EXPECT_EQ(events.back()["ended"], true);
}

TEST(SimDuring, CloseDuringAReleaseIsRefusedWithTheMessage) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "select", "rows": ["E:\\"] },
        { "do": "release", "during": [ { "do": "close", "yield": 2 } ] } ])");
    const int nested = Find(events, StepAtYield("close"));
    ASSERT_GE(nested, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(nested)]["yield"], 2);
    const int box = Find(
        events, [](const Json& e) { return e["event"] == "messageBox"; }, nested);
    ASSERT_GE(box, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(box)]["text"],
              "Cannot close program while USB drive(s) are being released.");
    EXPECT_EQ(events[static_cast<std::size_t>(box)]["icon"], "information");
    EXPECT_EQ(Count(events, "settings"), 0);
    EXPECT_FALSE(events.back()["ended"].get<bool>());
    // The release went on to its end.
    EXPECT_GE(Find(events, Control("cmdClose", "enabled", "true"), box), 0);
}

TEST(SimDuring, KeysAndClicksDuringAReleaseStartNoSecondRun) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "select", "rows": ["E:\\"] },
        { "do": "release", "during": [ { "do": "key", "key": "delete", "yield": 2 }, { "do": "key", "key": "enter" },
                                       { "do": "click", "control": "cmdRemoveUSB" },
                                       { "do": "popup", "index": 0 } ] } ])");
    std::vector<int> yields;
    for (const auto& e : events)
        if (e["event"] == "step" && e.contains("yield")) yields.push_back(e["yield"].get<int>());
    EXPECT_EQ(yields, (std::vector<int>{2, 3, 4, 5}));
    int notices = 0, ejects = 0;
    for (const auto& e : events) {
        notices += e["event"] == "notice" && e["kind"] == "releasing" ? 1 : 0;
        ejects += e["event"] == "request" && e["call"] == "CM_Request_Device_EjectW" ? 1 : 0;
    }
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(ejects, 1);
}

TEST(SimDuring, DeviceEventAtTheNthYield) {
    // The release yields once after collecting its work list, disables the
    // buttons, yields once more, then hides the command frame and yields.
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "select", "rows": ["E:\\"] },
        { "do": "atYield", "n": 3, "step": { "do": "pull", "root": "F:\\" } }, { "do": "release" } ])");
    const int pulled = Find(events, StepAtYield("pull"));
    ASSERT_GE(pulled, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(pulled)]["index"], 3);
    EXPECT_EQ(events[static_cast<std::size_t>(pulled)]["yield"], 3);
    EXPECT_GT(pulled, Find(events, Control("Frame1", "visible", "false")));
    EXPECT_LT(pulled, Find(events, Control("lblMessage1", "caption", "Releasing USB drive at [ E:\\ ]")));
    // The removal reached the window while the release ran: a beep and the
    // list without F: before the release's own notice.
    const int rows = Find(
        events, [](const Json& e) { return e["event"] == "rows" && e["rows"].size() == 2; }, pulled);
    ASSERT_GE(rows, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(rows)]["rows"],
              Json::array({"C:\\ | System | Fixed", "E:\\ | STICK | Removable"}));
    EXPECT_LT(rows, Find(events, [](const Json& e) { return e["event"] == "notice"; }));
}

TEST(SimDuring, StepsThatNeverArriveAreErrors) {
    ExpectFailure(R"([ { "do": "start" }, { "do": "activate", "during": [ { "do": "close" } ] } ])",
                  "its \"during\" step for yield 1 never ran");
    ExpectFailure(R"([ { "do": "start" }, { "do": "atYield", "n": 400, "step": { "do": "close" } } ])",
                  "waits for yield 400");
    ExpectFailure(R"([ { "do": "start" }, { "do": "atYield", "n": 0, "step": { "do": "close" } } ])",
                  "needs a whole number \"n\" from 1");
    ExpectFailure(R"([ { "do": "start" }, { "do": "atYield", "n": 2 } ])", "needs a \"step\"");
    ExpectFailure(R"([ { "do": "start" }, { "do": "close", "during": [ { "do": "close", "yield": 0 } ] } ])",
                  "\"yield\" is a whole number from 1");
    ExpectFailure(R"([ { "do": "start" }, { "do": "close", "during": [ { "do": "fly" } ] } ])", "unknown step \"fly\"");
}

// --- raw shell reports ---

TEST(SimShellReports, RawItemValuesAndEventCodes) {
    const auto events = RunSteps(R"([ { "do": "start" },
        { "do": "shell", "event": "SHCNE_EXTENDED_EVENT", "value": 99, "item2": 4294967295 },
        { "do": "shell", "event": "SHCNE_EXTENDED_EVENT", "value": 99, "item2": -2 },
        { "do": "shell", "event": "0x00012345", "item1": "0xFFFFFFFF", "item2": 0 },
        { "do": "shell", "event": 8, "item1": 12345 } ])");
    EXPECT_EQ(EventLog(events), "SHCNE_EXTENDED_EVENT\r\nunknown extended event\r\nshns.dwItem2: -1\r\n\r\n"
                                "SHCNE_EXTENDED_EVENT\r\nunknown extended event\r\nshns.dwItem2: -2\r\n\r\n"
                                "\r\nfirst item is invalid\r\n\r\n"
                                "SHCNE_MKDIR\r\nfirst item is invalid\r\n\r\n");
    ExpectFailure(R"([ { "do": "start" }, { "do": "shell", "event": 2, "item1": 4294967296 } ])",
                  "a raw value from -2147483648 to 4294967295");
    ExpectFailure(R"([ { "do": "start" }, { "do": "shell", "event": 2, "item2": "0xZZ" } ])", "\"item2\" is");
}

// --- a text box's selection ---

TEST(SimSelection, TypedSelectionAndTheLabelLimitAreReportedWhenAsked) {
    const std::string steps = R"([ { "do": "start" },
        { "do": "type", "control": "txtDT_Cap", "text": "ABCDEFGHIJKLM", "selStart": 2, "selLength": 3 },
        { "do": "answer", "button": "yes" }, { "do": "click", "control": "cmdSetLabel" } ])";
    const auto events = RunSteps(steps, R"(, "report": { "selection": true })");
    const int typed = Find(events, Control("txtDT_Cap", "selStart", "2"));
    ASSERT_GE(typed, 0);
    EXPECT_GE(Find(events, Control("txtDT_Cap", "selLength", "3"), typed), 0);
    // Too long a label: the characters after the 11th are selected.
    const int box =
        Find(events, [](const Json& e) { return e["event"] == "messageBox" && e["icon"] == "information"; });
    ASSERT_GE(box, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(box)]["text"], "Max. length of label is 11 characters !");
    EXPECT_GE(Find(events, Control("txtDT_Cap", "selStart", "11"), box), 0);
    EXPECT_GE(Find(events, Control("txtDT_Cap", "selLength", "2"), box), 0);

    // Unasked, the selection stays out of the transcript.
    for (const auto& e : RunSteps(steps))
        EXPECT_FALSE(e["event"] == "control" && (e["property"] == "selStart" || e["property"] == "selLength"));

    ExpectFailure(R"([ { "do": "start" }, { "do": "type", "control": "cmdClose", "selStart": 1 } ])",
                  "select text in a text box");
    ExpectFailure(R"([ { "do": "start" } ])", "knows \"ownProcedure\" and \"selection\"",
                  R"(, "report": { "x": true })");
}

TEST(SimSelection, SelectionAloneKeepsTheText) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "type", "control": "txtDT_Cap", "text": "STICKY" },
        { "do": "type", "control": "txtDT_Cap", "selStart": 9, "selLength": 4 } ])",
                                 R"(, "report": { "selection": true })");
    EXPECT_EQ(events.back()["controls"]["txtDT_Cap"], "STICKY");
    // The selection is kept inside the text: the start at its end, nothing selected.
    const int last = Find(events, [](const Json& e) { return e["event"] == "step" && e["index"] == 3; });
    EXPECT_EQ(Find(events, Control("txtDT_Cap", "selLength", "4"), last), -1);
    EXPECT_EQ(Find(
                  events, [](const Json& e) { return e["event"] == "control" && e["property"] == "text"; }, last),
              -1);
}

// --- pop-up entries by index ---

TEST(SimPopup, AnyIndexReachesTheHandler) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "select", "rows": ["E:\\"] },
        { "do": "popup", "index": 3 }, { "do": "popup", "index": 9 }, { "do": "popup", "index": -1 },
        { "do": "popup", "index": 1 }, { "do": "popup", "index": 8 } ])");
    int opened = 0;
    for (const auto& e : events) opened += e["event"] == "shellExecute" ? 1 : 0;
    EXPECT_EQ(opened, 1); // the Recycle Bin, and nothing for 9, -1 or the separator 1
    EXPECT_EQ(Count(events, "ended"), 1);
    ExpectFailure(R"([ { "do": "start" }, { "do": "popup", "index": 40000 } ])", "from -32768 to 32767");
}

// --- the window's own procedure ---

TEST(SimOwnProcedure, ForwardedMessagesAreReportedWhenAsked) {
    const std::string steps = R"([ { "do": "start" }, { "do": "message", "message": 537, "wParam": 7 },
        { "do": "shell", "event": "SHCNE_CREATE", "item1": { "name": "a.txt", "path": "E:\\a.txt" } } ])";
    const auto events = RunSteps(steps, R"(, "report": { "ownProcedure": true })");
    std::vector<std::string> own;
    for (const auto& e : events)
        if (e["event"] == "ownProcedure")
            own.push_back(std::to_string(e["message"].get<int>()) + "/" + std::to_string(e["wParam"].get<int>()));
    ASSERT_EQ(own.size(), 2u);
    EXPECT_EQ(own[0], "537/7");
    EXPECT_EQ(own[1].substr(0, 5), "1025/");
    // The shell's report was decoded before it went on to the own procedure.
    EXPECT_LT(Find(events, Appended),
              Find(events, [](const Json& e) { return e["event"] == "ownProcedure" && e["message"] == 1025; }));
    EXPECT_EQ(Count(RunSteps(steps), "ownProcedure"), 0);
}

// --- the simulated system ---

TEST(SimSystem, AnEjectedStickIsReportedByTheShell) {
    const auto events = RunSteps(R"([ { "do": "start" }, { "do": "select", "rows": ["E:\\"] }, { "do": "release" } ])");
    EXPECT_EQ(EventLog(events),
              "SHCNE_MEDIAREMOVED\r\nfirst item displayname: STICK (E:)\r\nfirst item path: E:\\\r\n\r\n"
              "SHCNE_DRIVEREMOVED\r\nfirst item displayname: STICK (E:)\r\nfirst item path: E:\\\r\n\r\n");
    // The removal broadcast came first, the reports after it.
    EXPECT_LT(Find(events, [](const Json& e) { return e["event"] == "beep"; }), Find(events, Appended));
    EXPECT_EQ(events.back()["caption"], "Kestrine  [ no USB device found on this computer ]");
}

TEST(SimSystem, ADoubledSeparatorStillFindsTheProgram) {
    const auto events = RunSim(R"({ "machine": {
        "program": { "folder": "C:\\Tools\\" },
        "drives": [ { "root": "C:\\", "type": 3, "label": "System" } ],
        "files": [ { "path": "C:\\Tools\\Quorra.exe" } ] },
      "steps": [ { "do": "start" }, { "do": "click", "control": "cmdSelectUtility" } ] })");
    const int started = Find(events, [](const Json& e) { return e["event"] == "started"; });
    ASSERT_GE(started, 0);
    EXPECT_EQ(events[static_cast<std::size_t>(started)]["file"], "C:\\Tools\\\\Quorra.exe");
    EXPECT_EQ(events[static_cast<std::size_t>(started)]["started"], true);
    EXPECT_EQ(Count(events, "messageBox"), 0);
}

} // namespace
