// kestrine: the logic on the Linux backend, in the Qt window. Without a
// display (or with --list) it says so and prints the drive list the window
// would show, from the same logic run in the headless window.
#include <QAbstractScrollArea>
#include <QApplication>
#include <QEvent>
#include <QStyleFactory>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "platform/linux/system.h"
#include "platform/qt/linux_events.h"
#include "platform/qt/qt_program.h"
#include "platform/qt/qt_window.h"
#include "platform/qt/qt_window_system.h"

namespace {

constexpr const char* kUsage = "Usage: kestrine [OPTION...] [DRIVE]\n"
                               "Watches this computer's drives and releases USB drives safely.\n"
                               "DRIVE (such as E:\\) is the drive to select when the window first shows.\n"
                               "  --list            print the drive list the window would show, and exit\n"
                               "  --machine FILE    a simulated machine (a description as kestrine-sim reads it)\n"
                               "                    in place of this computer\n"
                               "  --print-rows      print the window's caption and rows once it shows, and\n"
                               "                    again whenever a repaint shows other rows\n"
                               "  --help            this help\n"
                               "  --version         the version\n"
                               "Without a display the drive list is printed, as with --list.\n";

bool HasDisplay() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"})
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return true;
    // A platform chosen on purpose (offscreen, vnc ...) is a display too.
    const char* platform = std::getenv("QT_QPA_PLATFORM");
    return platform != nullptr && *platform != '\0' && std::strncmp(platform, "xcb", 3) != 0 &&
           std::strncmp(platform, "wayland", 7) != 0;
}

// The drive list as the window would show it: the logic loads into the
// headless window, without watching for changes.
int PrintDriveList(platform::Services& services) {
    fake::HeadlessView view;
    app::frmMain form(services, view);
    form.Form_Load();
    std::printf("%s\n", view.Text(app::Ctl::frmMain).c_str());
    for (const auto& row : view.Rows(app::Ctl::ListView1)) std::printf("  %s\n", row.c_str());
    return 0;
}

int PrintDriveList(const std::string& commandLine) {
    linuxbk::System::Options options;
    options.commandLine = commandLine;
    options.events = false;
    options.title = "Kestrine drive list"; // not the window's title: a running window stays alone
    linuxbk::System system(options);
    platform::Services services = system.Services();
    return PrintDriveList(services);
}

std::string Rows(const qtui::QtWindow& window) {
    std::string text = "caption: " + window.Text(app::Ctl::frmMain) + "\n";
    for (int i = 1; i <= window.ItemCount(app::Ctl::ListView1); ++i) {
        std::string row = window.ItemText(app::Ctl::ListView1, i);
        for (int sub = 1; sub < window.ColumnCount(app::Ctl::ListView1); ++sub)
            row += " | " + window.SubItem(app::Ctl::ListView1, i, sub);
        text += "row: " + row + "\n";
    }
    return text;
}

// Prints the caption and rows once the window shows, and again after each
// repaint of the list that shows other rows (how long a change takes to
// reach the screen can be measured from outside).
class RowPrinter : public QObject {
public:
    explicit RowPrinter(const qtui::QtWindow& window) : window_(window) {
        if (auto* list = qobject_cast<QAbstractScrollArea*>(window.ControlWidget(app::Ctl::ListView1)))
            list->viewport()->installEventFilter(this);
        QTimer::singleShot(0, this, [this] { print(); });
    }

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint) QTimer::singleShot(0, this, [this] { print(); });
        return false;
    }

private:
    void print() {
        const std::string rows = Rows(window_);
        if (rows == printed_) return;
        printed_ = rows;
        std::fputs(rows.c_str(), stdout);
        std::fflush(stdout);
    }
    const qtui::QtWindow& window_;
    std::string printed_;
};

// A machine description, or the one a scenario holds; one sentence on
// standard error when it cannot be had.
bool LoadMachine(fake::Machine& machine, const std::string& file) {
    std::ifstream in(file);
    if (!in) {
        std::fprintf(stderr, "kestrine: The machine description %s cannot be read.\n", file.c_str());
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    try {
        auto json = nlohmann::json::parse(text.str());
        if (json.is_object() && json.contains("machine")) json = json["machine"];
        fake::Machine::LoadJson(machine, json.dump());
        return true;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kestrine: The machine description %s is not valid: %s\n", file.c_str(), e.what());
        return false;
    }
}

// Runs the window until the program ends.
int RunWindow(const platform::Services& services, qtui::QtWindow& window, bool printRows) {
    qtui::QtProgram program(services, window);
    if (!program.Start()) return 0; // another instance took over
    std::unique_ptr<RowPrinter> printer = printRows ? std::make_unique<RowPrinter>(window) : nullptr;
    return program.Exec();
}

} // namespace

int main(int argc, char** argv) {
    std::string machineFile;
    std::vector<std::string> arguments; // what is left: the program's own command line
    bool listOnly = false, printRows = false, optionsOver = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (optionsOver || a.empty() || a[0] != '-') {
            arguments.push_back(a);
        } else if (a == "--") {
            optionsOver = true;
        } else if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--version") {
            std::printf("kestrine %s\n", KESTRINE_VERSION);
            return 0;
        } else if (a == "--list") {
            listOnly = true;
        } else if (a == "--print-rows") {
            printRows = true;
        } else if (a == "--machine" || a.starts_with("--machine=")) {
            machineFile = a == "--machine" ? (i + 1 < argc ? argv[++i] : "") : a.substr(10);
            if (machineFile.empty()) {
                std::fputs("kestrine: The option --machine needs a machine description file. See kestrine --help.\n",
                           stderr);
                return 2;
            }
        } else {
            std::fprintf(stderr, "kestrine: Unknown option %s. See kestrine --help.\n", a.c_str());
            return 2;
        }
    }

    // The command line as a Windows program would be given it for these arguments.
    const std::string commandLine = linuxbk::LinuxApplication::CommandLineOf(arguments);
    std::unique_ptr<fake::Machine> machine;
    if (!machineFile.empty()) {
        machine = std::make_unique<fake::Machine>();
        if (!LoadMachine(*machine, machineFile)) return 2;
        if (!commandLine.empty()) machine->SetCommandLine(commandLine);
    }
    if (listOnly || !HasDisplay()) {
        if (!listOnly)
            std::printf("kestrine: no display ($DISPLAY and $WAYLAND_DISPLAY are unset); the drives the window would "
                        "list:\n");
        if (!machine) return PrintDriveList(commandLine);
        platform::Services services = machine->services();
        return PrintDriveList(services);
    }

    QApplication application(argc, argv);
    // One look on every desktop, so the table's colours show as designed.
    if (QStyle* fusion = QStyleFactory::create("Fusion")) QApplication::setStyle(fusion);
    QApplication::setApplicationName("Kestrine");
    QApplication::setApplicationVersion(KESTRINE_VERSION);
    QApplication::setDesktopFileName("kestrine");
    qtui::QtWindow window;

    if (machine) {
        qtui::QtWindowSystem windows(*machine, window, true);
        const platform::Services base = machine->services();
        platform::Services services{base.app, base.volumes, base.profile, windows,         base.shell,
                                    base.fso, base.storage, base.devices, base.management, base.native};
        return RunWindow(services, window, printRows);
    }

    linuxbk::System::Options options;
    options.commandLine = commandLine;
    // The window may let the session's authentication agent ask the user.
    options.interactiveAuthorisation = true;
    linuxbk::System system(options);
    qtui::QtWindowSystem windows(system.Console(), window);
    // A refused release gets the system's reason beside the program's message.
    windows.SetNotices([&system] {
        const auto n = system.Devices().TakeNotice();
        return qtui::QtWindowSystem::Notice{n.reason, n.details};
    });
    platform::Services services = system.Services(&windows);
    qtui::LinuxEventPump pump(system, window);
    return RunWindow(services, window, printRows);
}
