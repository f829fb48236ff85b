#include "ctl/ctl.h"
#include "ctl/shown.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

#include "core/program.h"
#include "core/vb.h"
#include "drives/drive_rows.h"
#include "drives/modGetDriveSerialNumber.h"
#include "drives/modGetDriveType.h"
#include "notify/shell_report.h"
#include "platform/pass_through.h"
#include "platform/portable/text.h"
#include "release/release_drive.h"

namespace ctl {

namespace {

using Json = nlohmann::ordered_json;

// Passes every device-manager call through and keeps what the last eject
// request's refusal named. The request always carries both a veto-type
// variable and a veto-name buffer, so the refusal can be told in full.
class VetoRecorder : public platform::DevicesPassThrough {
public:
    explicit VetoRecorder(platform::Devices& inner) : DevicesPassThrough(inner) {}

    std::uint32_t CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                           std::span<char16_t> vetoName, std::uint32_t flags) override {
        std::int32_t type = platform::kPnpVetoTypeUnknown;
        std::array<char16_t, 260> name{};
        const std::uint32_t result = inner_.CM_Request_Device_EjectW(device, &type, name, flags);
        ++requests_;
        if (vetoType != nullptr) *vetoType = type;
        std::copy_n(name.begin(), std::min(name.size(), vetoName.size()), vetoName.begin());
        if (result == platform::kCrSuccess) {
            last_.reset();
        } else {
            last_ = Veto{type, portable::Utf16ToUtf8(std::u16string_view(name.data(), name.size()))};
        }
        return result;
    }
    void Reset() {
        last_.reset();
        requests_ = 0;
    }
    int Requests() const { return requests_; }
    const std::optional<Veto>& Last() const { return last_; }

private:
    std::optional<Veto> last_;
    int requests_ = 0;
};

// The window system as a window-less tool needs it: no beeps, and message
// boxes become lines on standard error with their default answer, so nothing
// waits for a click. Everything else passes through.
class ToolWindows : public platform::WindowSystemPassThrough {
public:
    explicit ToolWindows(platform::WindowSystem& inner) : WindowSystemPassThrough(inner) {}
    void SetErrors(std::ostream* err) { err_ = err; }

    bool OpenIcon(platform::WindowHandle) override { return true; }
    bool SetForegroundWindow(platform::WindowHandle) override { return true; }
    std::int32_t MessageBoxA(platform::WindowHandle, const std::string& text, const std::string& caption,
                             std::uint32_t type) override {
        std::string shown;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
                shown += ' ';
                ++i;
            } else {
                shown += text[i];
            }
        }
        if (err_ != nullptr) *err_ << "kestrinectl: " << caption << ": " << shown << '\n';
        if ((type & 0xF) == platform::kMbYesNo)
            return (type & platform::kMbDefButton2) != 0 ? platform::kIdNo : platform::kIdYes;
        return platform::kIdOk;
    }
    bool MessageBeep(std::uint32_t) override { return true; }
    bool FlashWindow(platform::WindowHandle, bool) override { return true; }
    bool SetWindowPos(platform::WindowHandle, platform::WindowHandle, std::int32_t, std::int32_t, std::int32_t,
                      std::int32_t, std::uint32_t) override {
        return true;
    }

private:
    std::ostream* err_ = nullptr;
};

// The drive list's rows, as the window lists them.
std::vector<drives::ListRow> ListedRows(platform::Services& sys) {
    std::vector<drives::ListRow> rows;
    for (const auto& entry : drives::DriveListEntries(sys))
        if (auto row = drives::ListRowOf(sys, entry)) rows.push_back(std::move(*row));
    return rows;
}

std::uint64_t U64(const std::array<std::uint8_t, 8>& b) {
    std::uint64_t v = 0;
    for (std::size_t i = 8; i-- > 0;) v = v << 8 | b[i];
    return v;
}

std::string CString(const std::array<char, 261>& b) { return std::string(b.data()); }

char UpperLetter(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// A drive named by what it holds (a mount point, a device node, a label or
// a UUID) rather than by its letter: when it names nothing, the drive is not
// there, rather than the argument being wrong.
bool NamedByWhatItHolds(const std::string& text) {
    return text.starts_with("/") || text.starts_with("LABEL=") || text.starts_with("UUID=");
}

constexpr const char* kDriveForms = "write a drive as E, E:, E:\\, a mount point, a device node, LABEL=... or UUID=...";

std::string Size(std::uint64_t bytes) {
    char text[32];
    const double b = static_cast<double>(bytes);
    if (b >= 1e9)
        std::snprintf(text, sizeof text, "%.1f GB", b / 1073741824.0);
    else
        std::snprintf(text, sizeof text, "%.1f MB", b / 1048576.0);
    return text;
}

// A document as text. Names from the system may hold bytes that are not
// UTF-8 (a label, a file name, a process name): each such byte becomes
// U+FFFD, so the document stays valid JSON whatever the system holds.
std::string Dump(const Json& doc, int indent = 2) {
    return doc.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json PlaceJson(const std::optional<DrivePlace>& p, bool mount) {
    if (!p) return nullptr;
    return mount ? p->mountPoint : p->deviceNode;
}

Json HoldersJson(const std::vector<platform::ProcessHold>& holders) {
    Json list = Json::array();
    for (const auto& h : holders)
        list.push_back({{"pid", h.pid}, {"name", h.name}, {"what", h.what}, {"path", h.path}});
    return list;
}

void PrintHolders(std::ostream& out, const std::vector<platform::ProcessHold>& holders, const std::string& indent) {
    for (const auto& h : holders)
        out << indent << h.pid << ' ' << Shown(h.name) << " (" << h.what << ") " << Shown(h.path) << '\n';
}

// Columns padded to their widest cell.
void PrintTable(std::ostream& out, std::vector<std::vector<std::string>> rows) {
    for (auto& r : rows)
        for (auto& cell : r) cell = Shown(cell);
    std::vector<std::size_t> widths;
    for (const auto& r : rows)
        for (std::size_t i = 0; i < r.size(); ++i) {
            if (widths.size() <= i) widths.push_back(0);
            widths[i] = std::max(widths[i], r[i].size());
        }
    for (const auto& r : rows) {
        std::string line;
        for (std::size_t i = 0; i < r.size(); ++i) {
            line += r[i];
            if (i + 1 < r.size()) line += std::string(widths[i] - r[i].size() + 2, ' ');
        }
        out << line << '\n';
    }
}

const char* kProgram = "kestrinectl: ";
constexpr std::int32_t kVetoInsufficientRights = 12;

} // namespace

std::string Shown(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F) {
            static constexpr char kHex[] = "0123456789abcdef";
            out += "\\x";
            out += kHex[u >> 4];
            out += kHex[u & 0xF];
        } else {
            out += c;
        }
    }
    return out;
}

std::string VetoTypeName(std::int32_t type) {
    static constexpr const char* kNames[] = {"Unknown",
                                             "LegacyDevice",
                                             "PendingClose",
                                             "WindowsApp",
                                             "WindowsService",
                                             "OutstandingOpen",
                                             "Device",
                                             "Driver",
                                             "IllegalDeviceRequest",
                                             "InsufficientPower",
                                             "NonDisableable",
                                             "LegacyDriver",
                                             "InsufficientRights",
                                             "AlreadyRemoved"};
    return type >= 0 && static_cast<std::size_t>(type) < std::size(kNames) ? kNames[type] : "Unknown";
}

struct Tool::State {
    explicit State(platform::Services& sys)
        : veto(sys.devices),
          windows(sys.windows), services{sys.app, sys.volumes, sys.profile, windows,        sys.shell,
                                         sys.fso, sys.storage, veto,        sys.management, sys.native} {}
    VetoRecorder veto;
    ToolWindows windows;
    platform::Services services;
    // While watching: the window and the drives listed.
    platform::WindowHandle watched = 0;
    std::vector<drives::ListRow> drives;
};

Tool::Tool(Context context) : ctx_(std::move(context)), state_(std::make_unique<State>(ctx_.sys)) {}
Tool::~Tool() { Unwatch(); }

std::vector<DriveRow> Tool::List() {
    platform::Services& sys = state_->services;
    std::vector<DriveRow> rows;
    for (const auto& listed : ListedRows(sys)) {
        DriveRow row;
        row.root = listed.root;
        row.label = listed.label;
        row.kind = listed.kind;
        row.bus = drives::GetBusType(sys, vb::Left(row.root, 2));
        std::array<char, 261> volume{}, fs{};
        std::uint32_t serial = 0, maxLen = 0, flags = 0;
        if (sys.volumes.GetVolumeInformationA(row.root, std::span(volume.data(), 260), serial, maxLen, flags,
                                              std::span(fs.data(), 260)))
            row.fileSystem = CString(fs);
        std::array<std::uint8_t, 8> avail{}, total{}, totalFree{};
        if (sys.volumes.GetDiskFreeSpaceExA(row.root, avail, total, totalFree)) {
            row.totalBytes = U64(total);
            row.freeBytes = U64(totalFree);
            row.usedBytes = row.totalBytes >= row.freeBytes ? row.totalBytes - row.freeBytes : 0;
        }
        if (ctx_.place) row.place = ctx_.place(row.root);
        rows.push_back(std::move(row));
    }
    return rows;
}

std::optional<std::string> Tool::Resolve(const std::string& text) {
    std::string t = text;
    if (t.starts_with("LABEL=")) {
        // The volume label, as the drive list shows it.
        const std::string label = t.substr(6);
        for (const auto& d : state_->services.fso.Drives())
            if (d.IsReady && d.VolumeName && *d.VolumeName == label && !label.empty()) return d.DriveLetter + ":\\";
        return std::nullopt;
    }
    if (t.starts_with("UUID=")) {
        const std::string uuid = vb::UCase(t.substr(5));
        if (!ctx_.uuid || uuid.empty()) return std::nullopt;
        for (const auto& d : state_->services.fso.Drives()) {
            const std::string root = d.DriveLetter + ":\\";
            if (vb::UCase(ctx_.uuid(root)) == uuid) return root;
        }
        return std::nullopt;
    }
    if (!t.empty() && t[0] == '/') {
        // A mount point or device node: the system's place of each letter, no more.
        while (t.size() > 1 && t.back() == '/') t.pop_back();
        if (!ctx_.place) return std::nullopt;
        for (char letter = 'A'; letter <= 'Z'; ++letter) {
            const std::string root = std::string(1, letter) + ":\\";
            const auto p = ctx_.place(root);
            if (p && (p->mountPoint == t || p->deviceNode == t)) return root;
        }
        return std::nullopt;
    }
    const bool letter = !t.empty() && ((t[0] >= 'A' && t[0] <= 'Z') || (t[0] >= 'a' && t[0] <= 'z'));
    if (!letter || t.size() > 3 || (t.size() >= 2 && t[1] != ':') || (t.size() == 3 && t[2] != '\\' && t[2] != '/'))
        return std::nullopt;
    return std::string(1, UpperLetter(t[0])) + ":\\";
}

ReleaseResult Tool::Release(const std::string& root) {
    using release::Refusal;
    const auto why = release::WhyNotReleasable(state_->services, root);
    if (!why) return Eject(root);
    if (*why == Refusal::kSystemDrive)
        return {root, kRefused, "Drive " + root + " is the system drive and is never released.", {}, {}};
    if (*why == Refusal::kNoSuchDrive) return {root, kNotFound, "Drive " + root + " was not found.", {}, {}};
    return {root, kNotUsb, "Drive " + root + " is not a USB drive.", {}, {}};
}

ReleaseResult Tool::Eject(const std::string& root) {
    ReleaseResult r{root, kOk, {}, {}, {}};
    // What is still cached for the device is written first, while the user
    // can watch; the ejection writes anything left again.
    if (ctx_.flush)
        ctx_.flush(
            root, progress_ ? progress_ : [](const FlushProgress&) {});
    state_->veto.Reset();
    const release::Outcome outcome = release::ReleaseDrive(state_->services, root, app::kFalse);
    if (outcome == release::Outcome::kHandlesNotClosed) {
        r.code = kSystemError;
        r.message = "Drive " + root + " could not be released: closing this program's open handles on it failed.";
        return r;
    }
    if (outcome == release::Outcome::kNotEjected) {
        if (state_->veto.Requests() == 0) {
            // The volume, its device number or its device could not be found.
            r.code = kSystemError;
            r.message = "Drive " + root + " could not be released: the system found no device to eject for it.";
            return r;
        }
        r.code = kRefused;
        r.veto = state_->veto.Last();
        r.holders = ctx_.processes.WhoBlocksRelease(root);
        if (r.veto && r.veto->type == kVetoInsufficientRights) {
            r.message =
                "Drive " + root + " could not be released: authorisation is needed to unmount and power it off (" +
                r.veto->name +
                "); run it again with --interactive to authorise on this terminal, run it as root, or let polkit "
                "allow it for your account.";
            return r;
        }
        std::vector<std::string> parts;
        if (r.veto)
            parts.push_back("veto " + VetoTypeName(r.veto->type) + (r.veto->name.empty() ? "" : ": " + r.veto->name));
        if (!r.holders.empty()) {
            const auto& first = r.holders.front();
            std::string tag = "["; // built in steps: "[" + std::to_string(...) trips GCC 12's -Wrestrict
            tag += std::to_string(first.pid);
            tag += ']';
            const bool others = std::any_of(r.holders.begin(), r.holders.end(),
                                            [&](const platform::ProcessHold& h) { return h.pid != first.pid; });
            // Named once: the refusal may name the holder itself.
            if (!r.veto || r.veto->name.find(tag) == std::string::npos)
                parts.push_back("held by " + first.name + " " + tag + (others ? " and other processes" : ""));
        }
        std::string why;
        for (const auto& part : parts) why += (why.empty() ? " (" : "; ") + part;
        if (!why.empty()) why += ")";
        r.message = "Drive " + root + " could not be released: the system refused to eject it" + why + ".";
        return r;
    }
    r.message = "Drive " + root + " has been released; it is safe to unplug it now.";
    return r;
}

SerialResult Tool::Serial(const std::string& root) {
    const std::string id = drives::FindPNPDeviceID(state_->services, vb::Left(root, 2)).value_or(std::string{});
    return {drives::SerialOfDeviceId(id), vb::Trim(id).empty() ? std::string{} : id};
}

void Tool::Watch(platform::WindowHandle window) {
    state_->watched = window;
    state_->drives = ListedRows(state_->services);
    // Every shell report reaches the window; device broadcasts reach every
    // top-level window without asking.
    notify::RegisterForAllReports(state_->services, window);
}

void Tool::Unwatch() { state_->watched = 0; }

std::vector<WatchEvent> Tool::Seen(std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
    std::vector<WatchEvent> events;
    if (state_->watched == 0) return events;
    if (message == platform::kWmDeviceChange &&
        (wParam == platform::kDbtDeviceArrival || wParam == platform::kDbtDeviceRemoveComplete)) {
        // The drive list as the window refills it: one line per drive that came or went.
        const bool arrival = wParam == platform::kDbtDeviceArrival;
        const std::vector<drives::ListRow> now = ListedRows(state_->services);
        const std::vector<drives::ListRow>& from = arrival ? now : state_->drives;
        const std::vector<drives::ListRow>& against = arrival ? state_->drives : now;
        for (const auto& d : from) {
            const bool stays = std::any_of(against.begin(), against.end(),
                                           [&](const drives::ListRow& other) { return other.root == d.root; });
            if (!stays) events.push_back({arrival ? "arrival" : "removal", d.root, d.label + " (" + d.kind + ")"});
        }
        if (events.empty())
            events.push_back({arrival ? "arrival" : "removal", "", arrival ? "no drive came" : "no drive went"});
        state_->drives = now;
        return events;
    }
    if (message == platform::kWmShNotify) {
        // The report as the window logs it, its lines joined.
        const std::string entry =
            notify::DescribeShellReport(state_->services.shell, wParam, static_cast<std::uint32_t>(lParam));
        WatchEvent e{"change", "", ""};
        std::size_t at = 0;
        while (at < entry.size()) {
            std::size_t end = entry.find("\r\n", at);
            if (end == std::string::npos) end = entry.size();
            const std::string line = entry.substr(at, end - at);
            at = end + 2;
            if (line.empty()) continue;
            e.detail += (e.detail.empty() ? "" : "; ") + line;
            // The drive of the first path the report names.
            const auto path = line.find(" path: ");
            const std::string named = path != std::string::npos ? line.substr(path + 7) : line;
            if (e.root.empty() && notify::IsDriveRoot(named)) e.root = named.substr(0, 3);
        }
        if (!e.detail.empty()) events.push_back(std::move(e));
    }
    return events;
}

int Tool::Run(const Options& o, std::ostream& out, std::ostream& err, WatchLoop* watchLoop) {
    state_->windows.SetErrors(&err);
    if (o.help) {
        out << Usage(o.command);
        return kOk;
    }
    if (o.version) {
        out << "kestrinectl " << KESTRINE_VERSION << '\n';
        return kOk;
    }
    if (o.command == "list") return list(o, out);
    if (o.command == "release") return release(o, out, err);
    if (o.command == "who") return who(o, out, err);
    if (o.command == "serial") return serial(o, out, err);
    if (o.command == "watch") return watch(o, out, err, watchLoop);
    err << kProgram << "Unknown command " << o.command << ".\n";
    return kBadArguments;
}

int Tool::list(const Options& o, std::ostream& out) {
    std::vector<DriveRow> rows = List();
    if (o.usb) std::erase_if(rows, [](const DriveRow& r) { return !r.Usb(); });
    if (o.json) {
        Json drives = Json::array();
        for (const auto& r : rows)
            drives.push_back({{"root", r.root},
                              {"label", r.label},
                              {"kind", r.kind},
                              {"bus", r.bus},
                              {"usb", r.Usb()},
                              {"fileSystem", r.fileSystem},
                              {"totalBytes", r.totalBytes},
                              {"usedBytes", r.usedBytes},
                              {"freeBytes", r.freeBytes},
                              {"mountPoint", PlaceJson(r.place, true)},
                              {"deviceNode", PlaceJson(r.place, false)}});
        out << Dump(Json{{"version", 1}, {"drives", drives}}) << '\n';
        return kOk;
    }
    // The columns asked for; by default all, the places only where the system has them.
    std::vector<std::string> columns = o.columns;
    if (columns.empty()) {
        const bool places =
            std::any_of(rows.begin(), rows.end(), [](const DriveRow& r) { return r.place.has_value(); });
        for (const auto& c : ListColumns())
            if (places || (c != "MOUNT" && c != "DEVICE")) columns.push_back(c);
    }
    auto cell = [](const DriveRow& r, const std::string& c) -> std::string {
        if (c == "ROOT") return r.root;
        if (c == "LABEL") return r.label;
        if (c == "KIND") return r.kind;
        if (c == "BUS") return r.bus.empty() ? "-" : r.bus;
        if (c == "FS") return r.fileSystem.empty() ? "-" : r.fileSystem;
        if (c == "TOTAL") return Size(r.totalBytes);
        if (c == "USED") return Size(r.usedBytes);
        if (c == "FREE") return Size(r.freeBytes);
        if (c == "MOUNT") return r.place && !r.place->mountPoint.empty() ? r.place->mountPoint : "-";
        return r.place && !r.place->deviceNode.empty() ? r.place->deviceNode : "-";
    };
    std::vector<std::vector<std::string>> table;
    if (!o.noHeadings) table.push_back(columns);
    for (const auto& r : rows) {
        table.emplace_back();
        for (const auto& c : columns) table.back().push_back(cell(r, c));
    }
    PrintTable(out, table);
    return kOk;
}

int Tool::release(const Options& o, std::ostream& out, std::ostream& err) {
    std::vector<std::string> roots;
    for (const auto& text : o.roots) {
        const auto root = Resolve(text);
        if (!root && !NamedByWhatItHolds(text)) {
            err << kProgram << Shown(text) << " is not a drive; " << kDriveForms << ".\n";
            return kBadArguments;
        }
        roots.push_back(root.value_or(text));
    }
    if (o.allUsb)
        for (const auto& row : List())
            if (row.Usb() && std::find(roots.begin(), roots.end(), row.root) == roots.end()) roots.push_back(row.root);
    if (roots.empty()) {
        err << kProgram << "No USB drive to release was found.\n";
        if (o.json) out << Dump(Json{{"version", 1}, {"results", Json::array()}, {"exitCode", kNotFound}}) << '\n';
        return kNotFound;
    }

    int code = kOk;
    Json results = Json::array();
    for (const auto& root : roots) {
        // Progress: JSON lines on standard error, or one line kept in place on a terminal.
        progress_ = [&](const FlushProgress& p) {
            if (o.json) {
                err << Dump(Json{{"progress",
                                  {{"root", root},
                                   {"bytesLeft", p.bytesLeft},
                                   {"systemWide", p.systemWide},
                                   {"bytesWritten", p.bytesWritten},
                                   {"done", p.done}}}},
                            -1)
                    << std::endl;
            } else if (ctx_.terminal && !o.quiet) {
                err << '\r' << root << " writing cached data: " << Size(p.bytesLeft) << " left"
                    << (p.systemWide ? " on this computer" : "") << ", " << Size(p.bytesWritten) << " written"
                    << (p.done ? "\n" : "   ") << std::flush;
            }
        };
        const ReleaseResult r = root.size() == 3 && root[1] == ':'
                                    ? Release(root)
                                    : ReleaseResult{root, kNotFound, "Drive " + root + " was not found.", {}, {}};
        if (code == kOk) code = r.code;
        if (r.code != kOk) err << kProgram << Shown(r.message) << '\n';
        if (o.json) {
            static const char* kOutcome[] = {"released", "error", "bad-arguments", "not-found", "not-usb", "refused"};
            Json veto = nullptr;
            if (r.veto)
                veto = {{"type", r.veto->type}, {"typeName", VetoTypeName(r.veto->type)}, {"name", r.veto->name}};
            results.push_back({{"root", r.root},
                               {"outcome", kOutcome[r.code]},
                               {"exitCode", static_cast<int>(r.code)},
                               {"message", r.message},
                               {"veto", veto},
                               {"holders", HoldersJson(r.holders)}});
        } else if (r.code == kOk) {
            if (!o.quiet) out << Shown(r.message) << '\n';
        } else if (!r.holders.empty()) {
            out << "Processes holding " << r.root << ":\n";
            PrintHolders(out, r.holders, "  ");
        }
    }
    progress_ = {};
    if (o.json) out << Dump(Json{{"version", 1}, {"results", results}, {"exitCode", code}}) << '\n';
    return code;
}

std::optional<std::string> Tool::existingDrive(const std::string& text, std::ostream& err, int& code) {
    const auto root = Resolve(text);
    if (!root && !NamedByWhatItHolds(text)) {
        err << kProgram << Shown(text) << " is not a drive; " << kDriveForms << ".\n";
        code = kBadArguments;
        return std::nullopt;
    }
    if (!root || !state_->services.fso.GetDrive(*root)) {
        err << kProgram << "Drive " << Shown(root ? *root : text) << " was not found.\n";
        code = kNotFound;
        return std::nullopt;
    }
    return root;
}

int Tool::who(const Options& o, std::ostream& out, std::ostream& err) {
    int code = kOk;
    const auto root = existingDrive(o.roots.front(), err, code);
    if (!root) return code;
    const auto holders = ctx_.processes.WhoHolds(*root);
    const std::size_t unseen = ctx_.processes.Uninspected();
    if (o.json) {
        out << Dump(Json{{"version", 1}, {"root", *root}, {"holders", HoldersJson(holders)}, {"uninspected", unseen}})
            << '\n';
        return kOk;
    }
    if (holders.empty()) {
        out << "Nothing holds drive " << *root << ".\n";
    } else {
        std::vector<std::vector<std::string>> table;
        if (!o.noHeadings) table.push_back({"PID", "NAME", "WHAT", "PATH"});
        for (const auto& h : holders) table.push_back({std::to_string(h.pid), h.name, h.what, h.path});
        PrintTable(out, table);
    }
    // What this user could not look into may hold the drive too.
    if (unseen > 0)
        out << unseen << (unseen == 1 ? " process" : " processes")
            << " could not be inspected; run as root to see every holder.\n";
    return kOk;
}

int Tool::serial(const Options& o, std::ostream& out, std::ostream& err) {
    int code = kOk;
    const auto root = existingDrive(o.roots.front(), err, code);
    if (!root) return code;
    const SerialResult s = Serial(*root);
    if (o.json) {
        out << Dump(Json{{"version", 1}, {"root", *root}, {"serial", s.serial}, {"pnpDeviceId", s.pnpDeviceId}})
            << '\n';
    } else {
        out << "Serial:        " << Shown(s.serial) << '\n'
            << "PNP device ID: " << Shown(s.pnpDeviceId.empty() ? drives::kNoDeviceId : s.pnpDeviceId) << '\n';
    }
    return kOk;
}

int Tool::watch(const Options& o, std::ostream& out, std::ostream& err, WatchLoop* loop) {
    const platform::WindowHandle window = loop != nullptr ? loop->Window() : 0;
    if (window == 0) {
        err << kProgram << "This system offers no device events to watch.\n";
        return kSystemError;
    }
    Watch(window);
    loop->Run([&](std::uint32_t message, std::uintptr_t wParam, std::intptr_t lParam) {
        for (const auto& e : Seen(message, wParam, lParam)) {
            if (o.json)
                out << Dump(Json{{"event", e.kind}, {"root", e.root}, {"detail", e.detail}}, -1) << std::endl;
            else
                out << e.kind << ' ' << (e.root.empty() ? "-" : e.root) << ' ' << Shown(e.detail) << std::endl;
        }
    });
    Unwatch();
    return kOk;
}

} // namespace ctl
