// Reading a machine description (JSON) into the simulated machine.
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/fake/description_fields.h"
#include "platform/fake/machine.h"

namespace fake {

namespace {

using nlohmann::json;

template <typename T> T Num(const json& j, const char* key, T fallback) {
    if (!j.contains(key)) return fallback;
    if (!j[key].is_number()) Fail(std::string("\"") + key + "\" must be a number");
    return j[key].get<T>();
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
        m.SetTime(Num<double>(c, "time", m.Now()));
        m.SetYieldTick(Num<double>(c, "tick", 0.01));
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
            if (!a.is_number_integer()) Fail("\"messageBoxAnswers\" must hold button numbers");
            m.QueueAnswer(a.get<std::int32_t>());
        }
    }
    LoadHardware(m, doc);
    if (doc.contains("handles")) m.handles().LoadJson(doc["handles"]);
}

} // namespace fake
