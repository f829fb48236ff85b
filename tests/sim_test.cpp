// The scenario runner: the built-in demonstration's transcript, and the
// messages a malformed scenario gets.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "kestrine-sim/scenario.h"

namespace {

using Json = nlohmann::json;

std::vector<Json> Parse(const std::vector<std::string>& lines) {
    std::vector<Json> events;
    for (const auto& line : lines) events.push_back(Json::parse(line));
    return events;
}

const Json* First(const std::vector<Json>& events, const std::string& kind) {
    for (const auto& e : events)
        if (e.value("event", "") == kind) return &e;
    return nullptr;
}

TEST(Sim, DemoScenarioTranscript) {
    const auto events = Parse(sim::RunScenario(sim::DemoScenario()));
    ASSERT_FALSE(events.empty());
    const Json expectedLines = Json::array(
        {"[Kestrine]", "chkAuto=1", "chkTray=0", "chkAutostart=0", "cmbSize=1", "DT_LEFT=1200", "DT_TOP=900"});

    const Json* settings = First(events, "settings");
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ((*settings)["file"], "C:\\Program Files\\Kestrine\\Kestrine.ini");
    EXPECT_EQ((*settings)["lines"], expectedLines);

    const Json* ended = First(events, "ended");
    ASSERT_NE(ended, nullptr);
    EXPECT_EQ((*ended)["exitCode"], 0);

    std::vector<int> steps;
    for (const auto& e : events)
        if (e["event"] == "step") steps.push_back(e["index"].get<int>());
    EXPECT_EQ(steps, (std::vector<int>{1, 2, 3, 4}));

    // The unit switch shows the first recorded drive, C:, in MB.
    bool sizeInMb = false;
    for (const auto& e : events)
        if (e["event"] == "control" && e["control"] == "lblHDSize" && e["value"] == "244198.34") sizeInMb = true;
    EXPECT_TRUE(sizeInMb);

    const Json& final = events.back();
    ASSERT_EQ(final["event"], "final");
    EXPECT_EQ(final["caption"], "Kestrine  [ no USB device found on this computer ]");
    EXPECT_EQ(final["settings"], expectedLines);
    EXPECT_EQ(final["ended"], true);
    EXPECT_EQ(final["controls"]["cmbSize"], "MB");
    EXPECT_EQ(final["controls"]["lblHDFree"], "94190.06");
    EXPECT_EQ(final["controls"]["lblHDUsed"], "150008.28");
    EXPECT_EQ(final["controls"]["lblSerialNumber"], "");
}

void ExpectFailure(const std::string& scenario, const std::string& message) {
    SCOPED_TRACE(scenario);
    try {
        sim::RunScenario(scenario);
        ADD_FAILURE() << "no error for a malformed scenario";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
    }
}

TEST(Sim, MalformedScenariosAreRejectedClearly) {
    ExpectFailure(R"({"machine": {}, "steps": [{"do": "start"}, {"do": "fly"}]})", "unknown step \"fly\"");
    ExpectFailure(R"({"machine": {}, "steps": [{"do": "start"}, {"do": "click", "control": "cmdNothing"}]})",
                  "no control named \"cmdNothing\"");
    ExpectFailure(R"({"machine": {}, "steps": [{"do": "start"}, )", "not valid JSON");
    ExpectFailure(R"({"steps": []})", "\"machine\"");
    ExpectFailure(R"({"machine": {}, "steps": [{"do": "click", "control": "cmdClose"}]})", "before \"start\"");
    ExpectFailure(R"({"machine": {"drives": [{"root": "E"}]}})", "\"root\"");
    ExpectFailure(R"({"machine": {}, "steps": [{"do": "start"}, {"do": "choose", "control": "cmbSize"}]})",
                  "needs a number \"index\"");
}

} // namespace
