#include "kestrine-sim/scenario.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "core/form_table.h"
#include "core/vb.h"
#include "notify/shell_report.h"
#include "platform/fake/json_numbers.h"
#include "platform/portable/shell_items.h"
#include "ui/cProgressBar.h"

namespace sim {

using Json = nlohmann::ordered_json;

namespace {

std::string Dump(const Json& j) { return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace); }

std::string ControlName(app::Ctl c) {
    const auto& spec = app::Spec(c);
    std::string name(spec.name);
    if (spec.index >= 0) name += "(" + std::to_string(spec.index) + ")";
    return name;
}

app::Ctl ControlByName(const std::string& text) {
    std::string name = text;
    int index = -1;
    if (auto open = text.find('('); open != std::string::npos && text.back() == ')') {
        name = text.substr(0, open);
        index = std::stoi(text.substr(open + 1));
    }
    auto c = app::FindControl(name, index);
    if (!c) throw std::runtime_error("scenario: there is no control named \"" + text + "\"");
    return *c;
}

std::string IconName(std::uint32_t type) {
    switch (type & 0xF0) {
    case platform::kMbIconStop:
        return "critical";
    case platform::kMbIconQuestion:
        return "question";
    case platform::kMbIconExclamation:
        return "exclamation";
    case platform::kMbIconInformation:
        return "information";
    default:
        return "none";
    }
}

// The usage bar as the user sees it: the share of its width painted blue, in
// whole percent, and the text over it with its colour; or that it is empty.
Json UsageBar(const fake::RasterSurface& bar) {
    Json e;
    e["event"] = "usageBar";
    if (bar.LineCount() == 0 && bar.Printed().empty()) {
        e["cleared"] = true;
        return e;
    }
    e["used"] = std::lround(bar.RowShare(0, ui::cProgressBar::kUsedColor) * 100.0);
    if (!bar.Printed().empty()) {
        const auto& printed = bar.Printed().back();
        e["text"] = printed.text;
        e["textColor"] = printed.colour == ui::cProgressBar::kLightText  ? "white"
                         : printed.colour == ui::cProgressBar::kDarkText ? "black"
                                                                         : std::to_string(printed.colour);
    }
    return e;
}

std::string ButtonsName(std::uint32_t type) { return (type & 0xF) == platform::kMbYesNo ? "yesNo" : "ok"; }

std::string AnswerName(std::int32_t answer) {
    switch (answer) {
    case platform::kIdOk:
        return "ok";
    case platform::kIdYes:
        return "yes";
    case platform::kIdNo:
        return "no";
    case platform::kIdCancel:
        return "cancel";
    default:
        return std::to_string(answer);
    }
}

std::int32_t AnswerNumber(const Json& j) {
    if (const auto n = fake::WholeNumber<std::int32_t>(j)) return *n;
    if (j.is_string()) {
        const auto s = j.get<std::string>();
        if (s == "ok") return platform::kIdOk;
        if (s == "yes") return platform::kIdYes;
        if (s == "no") return platform::kIdNo;
        if (s == "cancel") return platform::kIdCancel;
    }
    throw std::runtime_error("scenario: an answer is \"ok\", \"yes\", \"no\", \"cancel\" or a button number");
}

// A key by name ("delete", "enter", "escape", "f2", "down", "up") or by its
// virtual-key code.
std::int16_t KeyCode(const Json& step) {
    if (!step.contains("key")) throw std::runtime_error("scenario: step \"key\" needs a \"key\"");
    const Json& k = step["key"];
    if (const auto n = fake::WholeNumber<std::int16_t>(k)) return *n;
    if (k.is_number()) throw std::runtime_error("scenario: a key code is a whole number from -32768 to 32767");
    const std::string name = k.is_string() ? k.get<std::string>() : std::string{};
    if (name == "delete") return 46;
    if (name == "enter") return 13;
    if (name == "escape") return 27;
    if (name == "f2") return 113;
    if (name == "down") return 40;
    if (name == "up") return 38;
    throw std::runtime_error("scenario: unknown key \"" + name + "\"");
}

// How the shell names a drive: "STICK (E:)", or its kind for one without label.
std::string DriveDisplayName(const fake::Drive& d) { return portable::DriveDisplayName(d.root[0], d.label, d.type); }

std::string RootOf(const fake::Drive& d) { return std::string(1, vb::UpperChar(d.root[0])) + ":\\"; }

// A 32-bit value written as a number or as hexadecimal text ("0xFFFFFFFF").
std::optional<std::uint32_t> Hex32(const Json& j) {
    if (!j.is_string()) return std::nullopt;
    const std::string text = j.get<std::string>();
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return std::nullopt;
    std::uint32_t value = 0;
    for (std::size_t i = 2; i < text.size(); ++i) {
        const char c = vb::UpperChar(text[i]);
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0) return std::nullopt;
        value = value << 4 | static_cast<std::uint32_t>(digit);
    }
    return value;
}

// A report's item as the raw 32-bit value the report carries (0: no item),
// from -2147483648 to 4294967295 or in hexadecimal. The record holds it
// pointer-sized, widened as the system widens a 32-bit item: -1 and
// 0xFFFFFFFF are the same value with every bit set.
std::optional<platform::Pidl> RawItem(const Json& j) {
    std::optional<std::uint32_t> bits = Hex32(j);
    if (!bits) {
        if (const auto n = fake::WholeNumber<std::int64_t>(j); n && *n >= INT32_MIN && *n <= std::int64_t{UINT32_MAX})
            bits = static_cast<std::uint32_t>(*n);
    }
    if (!bits) return std::nullopt;
    return static_cast<platform::Pidl>(static_cast<std::intptr_t>(static_cast<std::int32_t>(*bits)));
}

// An event by its name ("SHCNE_CREATE") or code (any 32-bit value, also in hexadecimal).
std::uint32_t ShellEvent(const Json& step) {
    if (!step.contains("event")) throw std::runtime_error("scenario: step \"shell\" needs an \"event\"");
    const Json& e = step["event"];
    if (const auto n = fake::WholeNumber<std::uint32_t>(e)) return *n;
    if (const auto n = Hex32(e)) return *n;
    const std::string name = e.is_string() ? e.get<std::string>() : std::string{};
    for (std::uint32_t bit = 0; bit < 32; ++bit)
        if (notify::ShellEventName(1u << bit) == name) return 1u << bit;
    for (std::uint32_t code : {platform::kShcneDiskEvents, platform::kShcneGlobalEvents, platform::kShcneAllEvents})
        if (notify::ShellEventName(code) == name) return code;
    throw std::runtime_error("scenario: unknown shell event \"" + name + "\"");
}

std::string Unquote(const std::string& s) {
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') return s.substr(1, s.size() - 2);
    return s;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    for (char c : text) {
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            lines.push_back(line);
            line.clear();
        } else {
            line += c;
        }
    }
    if (!line.empty()) lines.push_back(line);
    return lines;
}

} // namespace

// The platform timer, rounded to hundredths of a second for the transcript.
double Scenario::Timer() { return std::round(static_cast<double>(machine_.Timer()) * 100.0) / 100.0; }

struct Scenario::Impl {
    Json steps = Json::array();
    bool reportOwnProcedure = false; // a line per message reaching the window's own procedure
    bool endedReported = false;
    // A step that arrives while a handler yields.
    struct Pending {
        Json step;
        std::size_t index;   // the step of the list that asked for it
        std::int64_t base;   // the machine's yield count when it was asked for
        std::int64_t target; // the yield count at which it runs
        std::uint64_t owner; // the step whose "during" it is; 0 for "atYield"
    };
    std::vector<Pending> pending;
    std::uint64_t performed = 0; // steps run so far, nested ones too
};

Scenario::Scenario(Sink sink)
    : sink_(std::move(sink)), services_(machine_.services()), impl_(std::make_unique<Impl>()) {
    view_.OnChange([this](const fake::ViewChange& change) {
        Json e;
        if (change.control == app::Ctl::frmMain && change.property == "caption") {
            e["event"] = "caption";
            e["text"] = change.value;
        } else if (change.property == "rows") {
            e["event"] = "rows";
            e["control"] = ControlName(change.control);
            Json rows = Json::array();
            for (const auto& r : view_.Rows(change.control)) rows.push_back(r);
            e["rows"] = rows;
        } else if (change.property == "bar" && change.control == app::Ctl::Picture1) {
            e = UsageBar(*view_.Raster(change.control));
        } else {
            e["event"] = "control";
            e["control"] = ControlName(change.control);
            e["property"] = change.property;
            e["value"] = change.value;
        }
        emit(Dump(e));
        // The release notices as the user reads them, one line each.
        Json notice;
        if (change.control == app::Ctl::frameNotify && change.property == "visible" && change.value == "true") {
            notice["event"] = "notice";
            notice["kind"] = "releasing";
            notice["text"] = view_.Text(app::Ctl::lblMessage1) + " " + view_.Text(app::Ctl::lblMessage2);
        } else if (change.control == app::Ctl::lblUSBMessage && change.property == "caption" &&
                   view_.Visible(app::Ctl::frmeReleased)) {
            notice["event"] = "notice";
            notice["kind"] = "released";
            notice["text"] = change.value;
        }
        if (!notice.is_null()) emit(Dump(notice));
    });
    machine_.OnCall([this](const fake::Call& call) {
        if (!call.request) return;
        Json e;
        if (call.name == "MessageBoxA") {
            const auto& box = machine_.MessageBoxes().back();
            e["event"] = "messageBox";
            e["text"] = box.text;
            e["title"] = box.caption;
            e["icon"] = IconName(box.type);
            e["buttons"] = ButtonsName(box.type);
            e["answer"] = AnswerName(box.answer);
        } else if (call.name == "Shell_NotifyIconA" && call.args.size() == 5) {
            static const char* const kMessages[] = {"add", "modify", "delete"};
            const unsigned long message = std::stoul(call.args[0]);
            e["event"] = "tray";
            e["message"] = message < 3 ? std::string(kMessages[message]) : call.args[0];
            e["window"] = std::stoull(call.args[1]);
            e["icon"] = std::stoull(call.args[3]);
            e["tip"] = Unquote(call.args[4]);
            e["accepted"] = call.result != "0";
        } else if (call.name == "CreateProcessA") {
            e["event"] = "started";
            e["file"] = Unquote(call.args[0]);
            e["commandLine"] = Unquote(call.args[1]);
            e["started"] = call.result == "true";
        } else if (call.name == "ShellExecuteA") {
            e["event"] = "shellExecute";
            e["verb"] = Unquote(call.args[1]);
            e["file"] = Unquote(call.args[2]);
            e["parameters"] = Unquote(call.args[3]);
            e["directory"] = Unquote(call.args[4]);
        } else if (call.name == "ChDrive" || call.name == "ChDir" || call.name == "SHChangeNotifyRegister") {
            return; // the process's own state, nothing a user sees
        } else if (call.name == "MessageBeep") {
            e["event"] = "beep";
        } else if (call.name == "SetWindowLongA" || call.name == "SetPropA" || call.name == "RemovePropA") {
            return; // the window's own plumbing, nothing a user sees
        } else if (call.name == "WritePrivateProfileStringA") {
            return; // reported as a whole by the "settings" event
        } else if (call.name == "MoveFileExA" && call.result == "true" && form_ &&
                   Unquote(call.args[1]) == form_->SettingsPath()) {
            e["event"] = "settings";
            e["file"] = Unquote(call.args[1]);
            Json lines = Json::array();
            for (const auto& l : Lines(machine_.FileContent(Unquote(call.args[1])).value_or(""))) lines.push_back(l);
            e["lines"] = lines;
        } else {
            e["event"] = "request";
            e["call"] = call.name;
            Json args = Json::array();
            for (const auto& a : call.args) args.push_back(Unquote(a));
            e["args"] = args;
            e["result"] = call.result;
        }
        emit(Dump(e));
    });
    // An accepted eject takes the device away: the system broadcasts its
    // removal, which reaches the window at its next yield, and the shell
    // reports each of its drives' medium and then the drive itself removed.
    machine_.hardware().OnEjected([this](const std::string&, const std::vector<std::string>& roots) {
        std::vector<fake::Drive> drives;
        for (const auto& root : roots)
            if (const fake::Drive* d = machine_.FindDrive(root)) drives.push_back(*d);
        machine_.At(machine_.Now(), [this, drives] {
            machine_.Deliver(view_.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
            for (const auto& d : drives) {
                const platform::Pidl item = machine_.ShellItem(DriveDisplayName(d), RootOf(d));
                machine_.ShellReport(platform::kShcneMediaRemoved, item, 0);
                machine_.ShellReport(platform::kShcneDriveRemoved, item, 0);
            }
        });
    });
    machine_.OnOwnProcedure([this](const fake::Machine::Delivered& m) {
        if (!impl_->reportOwnProcedure) return;
        Json e;
        e["event"] = "ownProcedure";
        e["message"] = m.message;
        e["wParam"] = m.wParam;
        e["lParam"] = m.lParam;
        emit(Dump(e));
    });
    machine_.OnYield([this] { onYield(); });
}

Scenario::~Scenario() {
    // The program's objects going away yield no more scripted steps.
    machine_.OnYield(nullptr);
    machine_.OnOwnProcedure(nullptr);
}

void Scenario::Load(std::string_view text) {
    Json doc;
    try {
        doc = Json::parse(text);
    } catch (const Json::parse_error& e) {
        throw std::runtime_error(std::string("scenario: not valid JSON: ") + e.what());
    }
    if (!doc.is_object() || !doc.contains("machine"))
        throw std::runtime_error("scenario: expected an object with \"machine\" and \"steps\"");
    fake::Machine::LoadJson(machine_, doc["machine"].dump());
    if (doc.contains("steps")) {
        if (!doc["steps"].is_array()) throw std::runtime_error("scenario: \"steps\" must be an array");
        impl_->steps = doc["steps"];
    }
    if (doc.contains("report")) {
        const Json& r = doc["report"];
        if (!r.is_object()) throw std::runtime_error("scenario: \"report\" is an object such as {\"selection\": true}");
        for (const auto& [key, value] : r.items()) {
            if (!value.is_boolean()) throw std::runtime_error("scenario: \"report." + key + "\" must be true or false");
            if (key == "ownProcedure")
                impl_->reportOwnProcedure = value.get<bool>();
            else if (key == "selection")
                view_.ReportSelection(value.get<bool>());
            else
                throw std::runtime_error("scenario: \"report\" knows \"ownProcedure\" and \"selection\", not \"" + key +
                                         "\"");
        }
    }
}

void Scenario::start() {
    form_ = std::make_unique<app::frmMain>(services_, view_);
    form_->Form_Load();
    if (machine_.Ended()) return;
    // The window system shows the loaded window: its size is fixed, then it is activated.
    form_->Resize();
    view_.Activate();
}

// One step as it runs: its description, its kind, the reading of the fields
// several kinds share, and one handler per kind.
struct Scenario::Step {
    Scenario& s;
    const Json& step;
    std::string what;
    std::size_t index; // the step of the list it belongs to, from 1

    // The control the step names.
    app::Ctl control() const {
        if (!step.contains("control") || !step["control"].is_string())
            throw std::runtime_error("scenario: step \"" + what + "\" needs a \"control\"");
        return ControlByName(step["control"].get<std::string>());
    }
    // Seconds, positions and the like: finite, and no more than a day's worth.
    double number(const char* key) const {
        const auto n = step.contains(key) ? fake::FiniteNumber(step[key], -86400, 86400) : std::nullopt;
        if (!n)
            throw std::runtime_error("scenario: step \"" + what + "\" needs a number \"" + key +
                                     "\" from -86400 to 86400");
        return *n;
    }

    void start() {
        if (s.form_) throw std::runtime_error("scenario: the program is already started");
        if (step.contains("commandLine")) s.machine_.SetCommandLine(step["commandLine"].get<std::string>());
        s.start();
    }
    void activate() { s.view_.Activate(); }
    void click() { s.view_.UserClick(control()); }
    // Rows of the drive list, by number (from 1) or by root text.
    void select() {
        std::vector<int> rows;
        if (!step.contains("rows") || !step["rows"].is_array())
            throw std::runtime_error("scenario: step \"select\" needs \"rows\": numbers or roots");
        for (const Json& r : step["rows"]) {
            if (const auto row = fake::WholeNumber<int>(r)) {
                rows.push_back(*row);
                continue;
            }
            const std::string root = r.is_string() ? r.get<std::string>() : std::string{};
            int found = 0;
            for (int i = 1; i <= s.view_.ItemCount(app::Ctl::ListView1) && found == 0; ++i)
                if (s.view_.ItemText(app::Ctl::ListView1, i) == root) found = i;
            if (found == 0) throw std::runtime_error("scenario: the drive list has no row \"" + root + "\"");
            rows.push_back(found);
        }
        s.view_.UserSelectRows(app::Ctl::ListView1, rows);
    }
    // The release command through one of its ways in.
    void release() {
        const std::string via = step.value("via", std::string("button"));
        if (via == "button") {
            s.view_.UserClick(app::Ctl::cmdRemoveUSB);
        } else if (via == "delete") {
            s.view_.UserKey(app::Ctl::ListView1, 46, 0);
        } else if (via == "enter") {
            s.view_.UserKey(app::Ctl::ListView1, 13, 0);
        } else if (via == "menu") {
            s.view_.UserClick(app::Ctl::mnuRemoveUSB);
        } else if (via == "popup") {
            s.view_.UserMouseUp(app::Ctl::ListView1, app::kRightButton);
            s.view_.UserClick(app::PopupEntry(0));
        } else {
            throw std::runtime_error("scenario: \"via\" is \"button\", \"delete\", \"enter\", \"menu\" or \"popup\"");
        }
    }
    void dblclick() { s.view_.UserDblClick(control()); }
    // A key pressed and released in a control (the drive list by default),
    // with the modifiers held: "shift", "ctrl", "alt".
    void key() {
        const app::Ctl target = step.contains("control") ? control() : app::Ctl::ListView1;
        std::int16_t shift = 0;
        for (const Json& m : step.value("modifiers", Json::array())) {
            const std::string name = m.is_string() ? m.get<std::string>() : std::string{};
            if (name == "shift")
                shift |= app::kShiftMask;
            else if (name == "ctrl")
                shift |= app::kCtrlMask;
            else if (name == "alt")
                shift |= app::kAltMask;
            else
                throw std::runtime_error("scenario: a modifier is \"shift\", \"ctrl\" or \"alt\"");
        }
        s.view_.UserKey(target, KeyCode(step), shift);
    }
    void mouseUp() {
        const std::string button = step.value("button", std::string("right"));
        s.view_.UserMouseUp(step.contains("control") ? control() : app::Ctl::ListView1,
                            button == "left" ? app::kLeftButton : app::kRightButton);
    }
    void leave() { s.view_.UserLeave(control()); }
    void choose() { s.view_.UserChoose(control(), static_cast<int>(std::trunc(number("index")))); }
    // Typing replaces the text; a selection ("selStart", "selLength") is
    // made after it, or alone when no "text" is given.
    void type() {
        const app::Ctl box = control();
        const bool selects = step.contains("selStart") || step.contains("selLength");
        if (step.contains("text") || !selects) s.view_.UserType(box, step.value("text", std::string{}));
        if (!selects) return;
        if (app::Spec(box).kind != app::Kind::TextBox)
            throw std::runtime_error("scenario: \"selStart\" and \"selLength\" select text in a text box");
        auto whole = [&](const char* key, int fallback) {
            if (!step.contains(key)) return fallback;
            const auto n = fake::WholeNumber<int>(step[key]);
            if (!n || *n < 0)
                throw std::runtime_error(std::string("scenario: \"") + key + "\" is a whole number from 0");
            return *n;
        };
        s.view_.UserSelectText(box, whole("selStart", s.view_.SelStart(box)), whole("selLength", 0));
    }
    // An entry of the drive list's pop-up menu by index, also one the menu
    // does not have: its handler gets the index as it is.
    void popup() {
        const auto n = step.contains("index") ? fake::WholeNumber<std::int16_t>(step["index"]) : std::nullopt;
        if (!n)
            throw std::runtime_error("scenario: step \"popup\" needs a whole number \"index\" from -32768 to 32767");
        if (*n >= 0 && *n <= 8)
            s.view_.UserClick(app::PopupEntry(*n));
        else
            s.form_->mnuPopup_Click(*n);
    }
    void move() {
        if (step.contains("left")) s.view_.SetLeft(app::Ctl::frmMain, number("left"));
        if (step.contains("top")) s.view_.SetTop(app::Ctl::frmMain, number("top"));
    }
    void resize() { s.view_.UserResize(number("width"), number("height")); }
    void minimize() { s.view_.UserMinimize(); }
    void restore() { s.view_.UserRestore(); }
    void close() { s.view_.UserClose(); }
    // A device arrives: with "drive", that drive appears first; without, the
    // device is not a drive (a port, a phone). Then the system's broadcast,
    // and for a drive the shell's report that it was added.
    void plug() {
        std::optional<fake::Drive> drive;
        if (step.contains("drive")) {
            drive = fake::Machine::DriveFromJson(step["drive"].dump());
            s.machine_.AddDrive(*drive);
        }
        s.machine_.Deliver(s.view_.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
        if (drive && step.value("shellReports", true))
            s.machine_.ShellReport(platform::kShcneDriveAdd,
                                   s.machine_.ShellItem(DriveDisplayName(*drive), RootOf(*drive)), 0);
    }
    // A device is removed: with "root", that drive goes first; then the
    // broadcast and the shell's report that the drive was removed.
    void pull() {
        std::optional<fake::Drive> drive;
        if (step.contains("root")) {
            if (auto* d = s.machine_.FindDrive(step["root"].get<std::string>())) drive = *d;
            s.machine_.RemoveDrive(step["root"].get<std::string>());
        }
        s.machine_.Deliver(s.view_.hWnd(), platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
        if (drive && step.value("shellReports", true))
            s.machine_.ShellReport(platform::kShcneDriveRemoved,
                                   s.machine_.ShellItem(DriveDisplayName(*drive), RootOf(*drive)), 0);
    }
    // A change report of the shell, delivered to the registered window.
    void shell() {
        const std::uint32_t event = ShellEvent(step);
        auto item = [&](const char* key) -> platform::Pidl {
            if (!step.contains(key)) return 0;
            const Json& i = step[key];
            if (i.is_object())
                return s.machine_.ShellItem(i.value("name", std::string{}), i.value("path", std::string{}));
            if (const auto raw = RawItem(i)) return *raw;
            throw std::runtime_error(std::string("scenario: a report's \"") + key +
                                     "\" is {\"name\", \"path\"} or a raw value from -2147483648 to 4294967295");
        };
        if (step.contains("value")) {
            const auto value = fake::WholeNumber<std::uint32_t>(step["value"]);
            if (!value)
                throw std::runtime_error("scenario: a report's \"value\" is a whole number from 0 to 4294967295");
            s.machine_.ShellValueReport(event, *value, item("item2"));
        } else
            s.machine_.ShellReport(event, item("item1"), item("item2"));
    }
    void tick() { s.view_.TimerTick(control()); }
    // A step that arrives at the n-th yield to the message loop from now.
    void atYield() {
        const auto n = step.contains("n") ? fake::WholeNumber<std::int64_t>(step["n"]) : std::nullopt;
        if (!n || *n < 1) throw std::runtime_error("scenario: step \"atYield\" needs a whole number \"n\" from 1");
        if (!step.contains("step") || !step["step"].is_object())
            throw std::runtime_error("scenario: step \"atYield\" needs a \"step\" to run");
        const std::int64_t now = s.machine_.Yields();
        s.queueAtYield(step["step"], index, now, now + *n, 0);
    }
    // Any window message, sent through the window's chain of procedures.
    void message() {
        auto whole = [&](const char* key, auto fallback) {
            using T = decltype(fallback);
            if (!step.contains(key)) return fallback;
            const auto n = fake::WholeNumber<T>(step[key]);
            if (!n)
                throw std::runtime_error("scenario: step \"message\" needs a whole number \"" + std::string(key) +
                                         "\"");
            return *n;
        };
        if (!step.contains("message"))
            throw std::runtime_error("scenario: step \"message\" needs a whole number \"message\"");
        s.machine_.Deliver(s.view_.hWnd(), whole("message", std::uint32_t{0}), whole("wParam", std::uintptr_t{0}),
                           whole("lParam", std::intptr_t{0}));
    }
    void advance() { s.machine_.Advance(number("seconds")); }
    void answer() {
        if (!step.contains("button")) throw std::runtime_error("scenario: step \"answer\" needs a \"button\"");
        s.machine_.QueueAnswer(AnswerNumber(step["button"]));
    }

    // The kinds of step: the name a scenario writes, whether the program must
    // have been started (the machine's own events and "start" need no
    // window), and the handler.
    struct Kind {
        std::string_view name;
        bool needsForm;
        void (Step::*run)();
    };
    static const Kind* Find(std::string_view name) {
        static constexpr Kind kKinds[] = {
            {"start", false, &Step::start},     {"activate", true, &Step::activate},
            {"click", true, &Step::click},      {"select", true, &Step::select},
            {"release", true, &Step::release},  {"dblclick", true, &Step::dblclick},
            {"key", true, &Step::key},          {"mouseUp", true, &Step::mouseUp},
            {"leave", true, &Step::leave},      {"choose", true, &Step::choose},
            {"type", true, &Step::type},        {"move", true, &Step::move},
            {"resize", true, &Step::resize},    {"minimize", true, &Step::minimize},
            {"restore", true, &Step::restore},  {"close", true, &Step::close},
            {"plug", false, &Step::plug},       {"pull", false, &Step::pull},
            {"shell", false, &Step::shell},     {"tick", true, &Step::tick},
            {"message", true, &Step::message},  {"advance", false, &Step::advance},
            {"answer", false, &Step::answer},   {"popup", true, &Step::popup},
            {"atYield", false, &Step::atYield},
        };
        for (const Kind& k : kKinds)
            if (k.name == name) return &k;
        return nullptr;
    }
};

void Scenario::runStep(std::size_t index) { perform(impl_->steps[index], index + 1, 0); }

void Scenario::perform(const Json& step, std::size_t index, std::int64_t yield) {
    const std::string where =
        "step " + std::to_string(index) + (yield > 0 ? " (at yield " + std::to_string(yield) + ")" : "");
    if (!step.is_object() || !step.contains("do") || !step["do"].is_string())
        throw std::runtime_error("scenario: " + where + " needs a \"do\"");
    Step current{*this, step, step["do"].get<std::string>(), index};
    const std::string& what = current.what;
    Json e;
    e["event"] = "step";
    e["index"] = index;
    e["do"] = what;
    e["timer"] = Timer();
    if (yield > 0) e["yield"] = yield;
    emit(Dump(e));

    if (machine_.Ended()) throw std::runtime_error("scenario: " + where + " comes after the program has ended");
    const Step::Kind* kind = Step::Find(what);
    if ((kind == nullptr || kind->needsForm) && !form_)
        throw std::runtime_error("scenario: step \"" + what + "\" comes before \"start\"");
    if (kind == nullptr) throw std::runtime_error("scenario: unknown step \"" + what + "\"");

    // The steps that arrive while this one's handler yields: one a yield, in
    // order, or at the yield each names.
    const std::uint64_t serial = ++impl_->performed;
    const std::int64_t base = machine_.Yields();
    if (step.contains("during")) {
        if (!step["during"].is_array()) throw std::runtime_error("scenario: \"during\" must be an array of steps");
        std::int64_t at = 0;
        for (const Json& d : step["during"]) {
            std::int64_t n = at + 1;
            if (d.is_object() && d.contains("yield")) {
                const auto y = fake::WholeNumber<std::int64_t>(d["yield"]);
                if (!y || *y < std::max<std::int64_t>(at, 1))
                    throw std::runtime_error("scenario: a \"during\" step's \"yield\" is a whole number from 1, "
                                             "no earlier than the one before it");
                n = *y;
            }
            at = n;
            queueAtYield(d, index, base, base + n, serial);
        }
    }
    (current.*(kind->run))();
    for (const auto& p : impl_->pending)
        if (p.owner == serial)
            throw std::runtime_error(
                "scenario: " + where + " (\"" + what + "\") yielded " + std::to_string(machine_.Yields() - base) +
                " times, so its \"during\" step for yield " + std::to_string(p.target - p.base) + " never ran");

    if (yield == 0 && after_) after_(index, what);
    if (machine_.Ended() && !impl_->endedReported) {
        impl_->endedReported = true;
        Json end;
        end["event"] = "ended";
        end["exitCode"] = machine_.ExitCode();
        end["timer"] = Timer();
        emit(Dump(end));
    }
}

void Scenario::queueAtYield(const Json& step, std::size_t index, std::int64_t base, std::int64_t target,
                            std::uint64_t owner) {
    impl_->pending.push_back(Impl::Pending{step, index, base, target, owner});
}

void Scenario::onYield() {
    if (finished_) return;
    auto& pending = impl_->pending;
    for (;;) {
        const std::int64_t now = machine_.Yields();
        const auto due = std::find_if(pending.begin(), pending.end(), [now](const auto& p) { return p.target <= now; });
        if (due == pending.end()) return;
        const Impl::Pending p = std::move(*due);
        pending.erase(due);
        perform(p.step, p.index, now - p.base);
    }
}

void Scenario::Run() {
    for (std::size_t i = 0; i < impl_->steps.size(); ++i) runStep(i);
    if (!impl_->pending.empty()) {
        const auto& p = impl_->pending.front();
        throw std::runtime_error("scenario: the \"atYield\" step of step " + std::to_string(p.index) +
                                 " waits for yield " + std::to_string(p.target - p.base) +
                                 ", but the program yielded only " + std::to_string(machine_.Yields() - p.base) +
                                 " times after it");
    }

    Json final;
    final["event"] = "final";
    final["caption"] = view_.Text(app::Ctl::frmMain);
    Json controls = Json::object();
    for (const auto& spec : app::FormTable()) {
        using app::Kind;
        if (spec.kind == Kind::Label || spec.kind == Kind::TextBox || spec.kind == Kind::ComboBox ||
            spec.kind == Kind::Button)
            controls[ControlName(spec.id)] = view_.Text(spec.id);
    }
    final["controls"] = controls;
    Json rows = Json::array();
    for (const auto& r : view_.Rows(app::Ctl::ListView1)) rows.push_back(r);
    final["rows"] = rows;
    if (form_) {
        const auto content = machine_.FileContent(form_->SettingsPath());
        if (content) {
            Json lines = Json::array();
            for (const auto& l : Lines(*content)) lines.push_back(l);
            final["settings"] = lines;
        } else {
            final["settings"] = nullptr;
        }
    }
    final["ended"] = machine_.Ended();
    emit(Dump(final));
    finished_ = true;
}

std::string Scenario::WindowText() const {
    using app::Ctl;
    const auto& v = view_;
    auto pad = [](std::string s, std::size_t n) {
        if (s.size() < n) s.resize(n, ' ');
        return s;
    };
    std::string out;
    out += "+-- " + v.Text(Ctl::frmMain) + (machine_.Ended() ? "  (closed)" : "") + "\n";
    out += "| Drives:\n";
    const int rows = v.ItemCount(Ctl::ListView1);
    if (rows == 0) out += "|   (no rows)\n";
    for (int i = 1; i <= rows; ++i) {
        out += std::string("|  ") + (v.ItemSelected(Ctl::ListView1, i) ? "> " : "  ") +
               pad(v.ItemText(Ctl::ListView1, i), 5) + pad(v.SubItem(Ctl::ListView1, i, 1), 14) +
               v.SubItem(Ctl::ListView1, i, 2) + "\n";
    }
    auto line = [&](const char* caption, const std::string& value) {
        out += std::string("| ") + pad(caption, 12) + ": " + value + "\n";
    };
    line("Drive label", v.Text(Ctl::txtDT_Cap));
    line("File system", v.Text(Ctl::txtFAT));
    line("Capacity", v.Text(Ctl::lblHDSize) + " " + v.Text(Ctl::lblSize0));
    line("Used space", v.Text(Ctl::lblHDUsed) + " " + v.Text(Ctl::lblSize1));
    line("Free space", v.Text(Ctl::lblHDFree) + " " + v.Text(Ctl::lblSize2));
    line("Value units", v.Text(Ctl::cmbSize));
    line("Drive line", v.Text(Ctl::txtNotify));
    for (Ctl notice : {Ctl::frameNotify, Ctl::frmeReleased, Ctl::frameUnloading}) {
        if (!v.Visible(notice)) continue;
        std::string text;
        for (Ctl c : {Ctl::lblMessage1, Ctl::lblMessage2, Ctl::lblUSBMessage, Ctl::Label2})
            if (app::Spec(c).container == notice && !v.Text(c).empty()) text += (text.empty() ? "" : " / ") + v.Text(c);
        line("Notice", text);
    }
    std::string buttons;
    for (Ctl b : {Ctl::cmdRemoveUSB, Ctl::cmdExplore, Ctl::cmdSelectUtility, Ctl::cmdBrindle, Ctl::cmdSetLabel,
                  Ctl::cmdAbout, Ctl::cmdClose}) {
        std::string caption = v.Text(b);
        std::erase(caption, '&');
        if (caption.empty()) continue;
        buttons += (v.Enabled(b) ? "[" : "(") + caption + (v.Enabled(b) ? "] " : ") ");
    }
    out += "| " + buttons + "\n";
    out += "| Position: left " + std::to_string(static_cast<long>(v.Left(Ctl::frmMain))) + ", top " +
           std::to_string(static_cast<long>(v.Top(Ctl::frmMain))) + " twips\n";
    out += "+--\n";
    return out;
}

std::vector<std::string> RunScenario(std::string_view json) {
    std::vector<std::string> lines;
    Scenario scenario([&](const std::string& line) { lines.push_back(line); });
    scenario.Load(json);
    scenario.Run();
    return lines;
}

} // namespace sim
