#include "kestrine-sim/scenario.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "app/form_table.h"

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
    if (j.is_number_integer()) return j.get<std::int32_t>();
    if (j.is_string()) {
        const auto s = j.get<std::string>();
        if (s == "ok") return platform::kIdOk;
        if (s == "yes") return platform::kIdYes;
        if (s == "no") return platform::kIdNo;
        if (s == "cancel") return platform::kIdCancel;
    }
    throw std::runtime_error("scenario: an answer is \"ok\", \"yes\", \"no\", \"cancel\" or a button number");
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
        } else {
            e["event"] = "control";
            e["control"] = ControlName(change.control);
            e["property"] = change.property;
            e["value"] = change.value;
        }
        emit(Dump(e));
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
}

Scenario::~Scenario() = default;

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
}

void Scenario::start() {
    form_ = std::make_unique<app::frmMain>(services_, view_);
    form_->Form_Load();
    if (machine_.Ended()) return;
    // The window system shows the loaded window: its size is fixed, then it is activated.
    form_->Resize();
    view_.Activate();
}

void Scenario::runStep(std::size_t index) {
    const Json& step = impl_->steps[index];
    if (!step.is_object() || !step.contains("do") || !step["do"].is_string())
        throw std::runtime_error("scenario: step " + std::to_string(index + 1) + " needs a \"do\"");
    const std::string what = step["do"].get<std::string>();
    Json e;
    e["event"] = "step";
    e["index"] = index + 1;
    e["do"] = what;
    e["timer"] = Timer();
    emit(Dump(e));

    if (machine_.Ended())
        throw std::runtime_error("scenario: step " + std::to_string(index + 1) + " comes after the program has ended");
    auto control = [&] {
        if (!step.contains("control") || !step["control"].is_string())
            throw std::runtime_error("scenario: step \"" + what + "\" needs a \"control\"");
        return ControlByName(step["control"].get<std::string>());
    };
    auto number = [&](const char* key) {
        if (!step.contains(key) || !step[key].is_number())
            throw std::runtime_error("scenario: step \"" + what + "\" needs a number \"" + key + "\"");
        return step[key].get<double>();
    };
    const bool needsForm = what != "start" && what != "advance" && what != "answer";
    if (needsForm && !form_) throw std::runtime_error("scenario: step \"" + what + "\" comes before \"start\"");

    if (what == "start") {
        if (form_) throw std::runtime_error("scenario: the program is already started");
        if (step.contains("commandLine")) machine_.SetCommandLine(step["commandLine"].get<std::string>());
        start();
    } else if (what == "activate") {
        view_.Activate();
    } else if (what == "click") {
        view_.UserClick(control());
    } else if (what == "choose") {
        view_.UserChoose(control(), static_cast<int>(number("index")));
    } else if (what == "type") {
        view_.UserType(control(), step.value("text", std::string{}));
    } else if (what == "move") {
        if (step.contains("left")) view_.SetLeft(app::Ctl::frmMain, number("left"));
        if (step.contains("top")) view_.SetTop(app::Ctl::frmMain, number("top"));
    } else if (what == "resize") {
        view_.UserResize(number("width"), number("height"));
    } else if (what == "minimize") {
        view_.UserMinimize();
    } else if (what == "restore") {
        view_.UserRestore();
    } else if (what == "close") {
        view_.UserClose();
    } else if (what == "advance") {
        machine_.Advance(number("seconds"));
    } else if (what == "answer") {
        if (!step.contains("button")) throw std::runtime_error("scenario: step \"answer\" needs a \"button\"");
        machine_.QueueAnswer(AnswerNumber(step["button"]));
    } else {
        throw std::runtime_error("scenario: unknown step \"" + what + "\"");
    }
    if (after_) after_(index + 1, what);
    if (machine_.Ended()) {
        Json end;
        end["event"] = "ended";
        end["exitCode"] = machine_.ExitCode();
        end["timer"] = Timer();
        emit(Dump(end));
    }
}

void Scenario::Run() {
    for (std::size_t i = 0; i < impl_->steps.size(); ++i) runStep(i);

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
