// kestrine-sim and the release: the documented two-stick example, and every
// way in to the release command.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim_events.h"

namespace {

using Json = nlohmann::json;

using simtest::RunSim;

// "notice: ...", "eject: <device> <result>", "box: ..." in the order a user meets them.
std::vector<std::string> WhatTheUserMeets(const std::vector<Json>& events) {
    std::vector<std::string> out;
    for (const auto& e : events) {
        if (e["event"] == "notice") out.push_back("notice: " + e["text"].get<std::string>());
        if (e["event"] == "messageBox") out.push_back("box: " + e["text"].get<std::string>());
        if (e["event"] == "request" && e["call"] == "CM_Request_Device_EjectW")
            out.push_back("eject: " + e["args"][0].get<std::string>() + " " + e["result"].get<std::string>());
    }
    return out;
}

TEST(ReleaseSim, DocumentedTwoStickExample) {
    std::ifstream in(std::string(KESTRINE_SOURCE_DIR) + "/docs/example-release.json");
    ASSERT_TRUE(in);
    std::ostringstream text;
    text << in.rdbuf();
    const auto events = RunSim(text.str());
    EXPECT_EQ(WhatTheUserMeets(events),
              (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ] This may take some time. Please wait.",
                                        "eject: USB\\VID_0781&PID_5567\\0123456789AB CR_SUCCESS",
                                        "notice: Releasing USB drive at [ F:\\ ] This may take some time. Please wait.",
                                        "eject: USB\\VID_0951&PID_1666\\BK2024 CR_REMOVE_VETOED",
                                        "eject: USB\\VID_0951&PID_1666\\BK2024 CR_REMOVE_VETOED",
                                        "eject: USB\\VID_0951&PID_1666\\BK2024 CR_SUCCESS",
                                        "notice: 2 USB drives released."}));
    // The program's own handle on E: was closed before E: was ejected.
    bool closed = false;
    for (const auto& e : events) {
        if (e["event"] == "request" && e["call"] == "NtDuplicateObject" && e["args"][1] == "844") closed = true;
        if (e["event"] == "request" && e["call"] == "CM_Request_Device_EjectW") break;
    }
    EXPECT_TRUE(closed);
    // The removals came back and the list was refilled without the sticks.
    EXPECT_EQ(events.back()["rows"], Json::array({"C:\\ | System | Fixed"}));
}

TEST(ReleaseSim, EveryWayIn) {
    const std::string machine = R"("machine": {
        "drives": [ { "root": "C:\\", "type": 3, "label": "System", "bus": 3, "deviceNumber": 0 },
                    { "root": "E:\\", "type": 2, "label": "STICK", "bus": 7, "deviceNumber": 1 } ],
        "deviceTree": [ { "instanceId": "USB\\STICK", "eject": ["refused", "accepted"] },
                        { "instanceId": "USBSTOR\\STICK", "parent": "USB\\STICK", "interface": "disk",
                          "deviceNumber": 1 } ] })";
    for (const std::string via : {"button", "delete", "enter", "menu", "popup"}) {
        const auto events =
            RunSim("{" + machine + R"(, "steps": [ { "do": "start" }, { "do": "select", "rows": ["E:\\"] },
            { "do": "release", "via": ")" +
                   via + R"(" } ] })");
        EXPECT_EQ(
            WhatTheUserMeets(events),
            (std::vector<std::string>{"notice: Releasing USB drive at [ E:\\ ] This may take some time. Please wait.",
                                      "eject: USB\\STICK CR_REMOVE_VETOED", "eject: USB\\STICK CR_SUCCESS",
                                      "notice: USB device at [ E:\\ ]  has been released."}))
            << via;
    }
    EXPECT_THROW(RunSim("{" + machine + R"(, "steps": [ { "do": "start" }, { "do": "release", "via": "voice" } ] })"),
                 std::runtime_error);
    EXPECT_THROW(RunSim(R"({ "machine": { "deviceTree": [ { "instanceId": "X", "eject": ["maybe"] } ] } })"),
                 std::runtime_error);
}

} // namespace
