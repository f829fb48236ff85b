// Reading a machine description (JSON) into the simulated machine.
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <type_traits>

#include "platform/fake/description_fields.h"
#include "platform/fake/json_numbers.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

using nlohmann::json;

// A number field that fits T (whole for integer fields), or the fallback when
// it is missing; anything else is an error.
template <typename T> T Num(const json& j, const char* key, T fallback) {
    if (!j.contains(key)) return fallback;
    const std::string name = std::string("\"") + key + "\"";
    if constexpr (std::is_integral_v<T>) {
        const auto n = WholeNumber<T>(j[key]);
        if (!n)
            Fail(name + " must be a whole number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
                 std::to_string(std::numeric_limits<T>::max()));
        return *n;
    } else {
        const auto n = FiniteNumber(j[key], -1e15, 1e15);
        if (!n) Fail(name + " must be a number");
        return *n;
    }
}

bool Flag(const json& j, const char* key, bool fallback) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_boolean()) Fail(std::string("\"") + key + "\" must be true or false");
    return j[key].get<bool>();
}

Drive ParseDrive(const json& d) {
    if (!d.is_object()) Fail("a drive must be an object");
    Drive drive;
    drive.root = Str(d, "root");
    if (drive.root.size() < 2 || drive.root[1] != ':') Fail("a drive's \"root\" must look like \"E:\\\"");
    drive.type = Num<std::uint32_t>(d, "type", platform::kDriveFixed);
    drive.label = Str(d, "label");
    drive.fileSystem = Str(d, "fileSystem", "NTFS");
    drive.totalBytes = Num<std::uint64_t>(d, "totalBytes", 0);
    drive.freeBytes = Num<std::uint64_t>(d, "freeBytes", 0);
    drive.ready = Flag(d, "ready", true);
    drive.readOnly = Flag(d, "readOnly", false);
    drive.serial = Num<std::uint32_t>(d, "serial", 0);
    drive.shareName = Str(d, "shareName");
    // What the volume's storage driver answers.
    if (d.contains("bus")) drive.bus = Num<std::uint32_t>(d, "bus", 0);
    if (d.contains("deviceNumber")) drive.deviceNumber = Num<std::uint32_t>(d, "deviceNumber", 0);
    drive.dosDevice = Str(d, "dosDevice");
    drive.openable = Flag(d, "openable", true);
    return drive;
}

} // namespace

Drive Machine::DriveFromJson(std::string_view text) {
    json d;
    try {
        d = json::parse(text);
    } catch (const json::parse_error& e) {
        Fail(std::string("not valid JSON: ") + e.what());
    }
    return ParseDrive(d);
}

void Machine::LoadJson(Machine& m, std::string_view text) {
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::parse_error& e) {
        Fail(std::string("not valid JSON: ") + e.what());
    }
    if (!doc.is_object()) Fail("the description must be a JSON object");

    if (doc.contains("program")) {
        const json& p = doc["program"];
        m.SetProgramFolder(Str(p, "folder", m.Path()));
        m.title_ = Str(p, "title", m.title_);
        m.SetCommandLine(Str(p, "commandLine", m.CommandLine()));
        const std::string sep = Str(p, "decimalSeparator", ".");
        if (sep.size() != 1) Fail("\"decimalSeparator\" must be one character");
        m.SetDecimalSeparator(sep[0]);
    }
    if (doc.contains("otherInstance") && !doc["otherInstance"].is_null()) {
        const json& o = doc["otherInstance"];
        OtherInstance other;
        other.windowFound = Flag(o, "windowFound", true);
        other.minimized = Flag(o, "minimized", false);
        m.SetOtherInstance(other);
    }
    if (doc.contains("clock")) {
        const json& c = doc["clock"];
        const double time = Num<double>(c, "time", m.Now());
        if (time < 0 || time >= 86400) Fail("\"time\" must be seconds since midnight, from 0 to below 86400");
        m.SetTime(time);
        // Every yield advances the clock: a tick of 0 would make a timed wait never end.
        const double tick = Num<double>(c, "tick", 0.01);
        if (tick <= 0 || tick > 60) Fail("\"tick\" must be more than 0 and at most 60 seconds");
        m.SetYieldTick(tick);
    }
    if (doc.contains("drives")) {
        if (!doc["drives"].is_array()) Fail("\"drives\" must be an array");
        for (const json& d : doc["drives"]) {
            Drive drive = ParseDrive(d);
            m.AddDrive(std::move(drive));
        }
    }
    if (doc.contains("files")) {
        if (!doc["files"].is_array()) Fail("\"files\" must be an array");
        for (const json& f : doc["files"]) {
            const std::string path = Str(f, "path");
            if (path.size() < 3 || path[1] != ':') Fail("a file's \"path\" must begin with a drive, such as \"C:\\\"");
            if (Flag(f, "folder", false))
                m.AddFolder(path, Num<std::uint32_t>(f, "attributes", platform::kAttrDirectory));
            else
                m.AddFile(path, Str(f, "content"), Num<std::uint32_t>(f, "attributes", platform::kAttrArchive));
        }
    }
    if (doc.contains("workArea")) {
        const json& w = doc["workArea"];
        m.SetWorkArea(platform::TwipsRect{Num<double>(w, "left", 0), Num<double>(w, "top", 0),
                                          Num<double>(w, "width", 28800), Num<double>(w, "height", 15600)});
    }
    if (doc.contains("messageBoxAnswers")) {
        for (const json& a : doc["messageBoxAnswers"]) {
            const auto answer = WholeNumber<std::int32_t>(a);
            if (!answer) Fail("\"messageBoxAnswers\" must hold button numbers");
            m.QueueAnswer(*answer);
        }
    }
    LoadHardware(m, doc);
    if (doc.contains("handles")) m.handles().LoadJson(doc["handles"]);
}

} // namespace fake
