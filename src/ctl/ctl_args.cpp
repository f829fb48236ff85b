// kestrinectl's command line: the commands, their options and their help.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "core/vb.h"
#include "ctl/ctl.h"
#include "ctl/shown.h"

namespace ctl {

const std::vector<std::string>& ListColumns() {
    static const std::vector<std::string> kColumns = {"ROOT",  "LABEL", "KIND", "BUS",   "FS",
                                                      "TOTAL", "USED",  "FREE", "MOUNT", "DEVICE"};
    return kColumns;
}

namespace {

const std::vector<std::string> kCommands = {"list", "release", "who", "watch", "serial", "help"};

// The columns of -o, "ROOT,LABEL,FREE" in any case.
void ReadColumns(const std::string& list, Parsed& p) {
    std::size_t at = 0;
    while (at <= list.size()) {
        const std::size_t comma = list.find(',', at);
        const std::string name =
            vb::UCase(list.substr(at, comma == std::string::npos ? std::string::npos : comma - at));
        const auto& known = ListColumns();
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            std::string all;
            for (const auto& k : known) all += (all.empty() ? "" : ",") + k;
            p.error = "Unknown column \"" + name + "\"; the columns are " + all + ".";
            return;
        }
        p.options.columns.push_back(name);
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
}

// A word that is no option: the command first ("help" takes the next word
// as the command it tells of), then the drives.
void ReadWord(const std::vector<std::string>& args, std::size_t& i, bool positionalOnly, Parsed& p) {
    Options& o = p.options;
    const std::string& a = args[i];
    if (!o.command.empty() || positionalOnly) {
        o.roots.push_back(a);
    } else if (std::find(kCommands.begin(), kCommands.end(), a) == kCommands.end()) {
        p.error = "Unknown command " + a + "; the commands are list, release, who, watch and serial.";
    } else if (a == "help") {
        o.help = true;
        o.command = "";
        if (i + 1 < args.size()) o.command = args[++i];
    } else {
        o.command = a;
    }
}

// An option; i moves past the value it takes.
void ReadOption(const std::vector<std::string>& args, std::size_t& i, Parsed& p) {
    Options& o = p.options;
    const std::string& a = args[i];
    static const std::vector<std::pair<std::vector<std::string>, bool Options::*>> kFlags = {
        {{"--help", "-h"}, &Options::help},
        {{"--version", "-V"}, &Options::version},
        {{"--json"}, &Options::json},
        {{"--usb"}, &Options::usb},
        {{"--all-usb"}, &Options::allUsb},
        {{"-q", "--quiet"}, &Options::quiet},
        {{"-n", "--noheadings"}, &Options::noHeadings},
        {{"--interactive"}, &Options::interactive}};
    for (const auto& [names, flag] : kFlags) {
        if (std::find(names.begin(), names.end(), a) != names.end()) {
            o.*flag = true;
            return;
        }
    }
    if (a == "-o" || a == "--output") {
        if (i + 1 < args.size())
            ReadColumns(args[++i], p);
        else
            p.error = "The option " + a + " needs a list of columns, such as ROOT,LABEL,FREE.";
    } else if (a.starts_with("--output=") || (a.starts_with("-o") && a.size() > 2)) {
        ReadColumns(a.substr(a[1] == 'o' ? 2 : 9), p);
    } else if (a == "--machine" || a.starts_with("--machine=")) {
        if (a != "--machine") {
            o.machine = a.substr(10);
        } else if (i + 1 < args.size()) {
            o.machine = args[++i];
        }
        if (o.machine.empty()) p.error = "The option --machine needs a machine description file.";
    } else {
        p.error = "Unknown option " + Shown(a) + ".";
    }
}

// The command's drives and options belong together: the first that does not
// is the error.
void CheckCombination(Parsed& p) {
    const Options& o = p.options;
    auto option = [&](bool set, const char* name, const char* allowed) {
        if (set && p.error.empty())
            p.error = std::string("The option ") + name + " belongs to " + allowed + ", not to " + o.command + ".";
    };
    if (o.command.empty()) {
        p.error = "No command given; the commands are list, release, who, watch and serial.";
    } else if (o.command == "list" || o.command == "watch") {
        if (!o.roots.empty())
            p.error = "The command " + o.command + " takes no drive, but " + Shown(o.roots[0]) + " was given.";
        option(o.usb && o.command == "watch", "--usb", "list");
        option(o.allUsb, "--all-usb", "release");
        option(o.interactive, "--interactive", "release");
        option(!o.columns.empty() && o.command == "watch", "-o", "list");
        option(o.noHeadings && o.command == "watch", "-n", "list");
    } else if (o.command == "release") {
        if (o.roots.empty() && !o.allUsb) p.error = "The command release needs a drive (such as E:) or --all-usb.";
        option(o.usb, "--usb", "list");
        option(!o.columns.empty(), "-o", "list");
        option(o.noHeadings, "-n", "list");
    } else { // who, serial
        if (o.roots.size() != 1) p.error = "The command " + o.command + " needs exactly one drive (such as E:).";
        option(o.usb, "--usb", "list");
        option(o.allUsb, "--all-usb", "release");
        option(o.interactive, "--interactive", "release");
        option(!o.columns.empty(), "-o", "list");
        option(o.noHeadings && o.command == "serial", "-n", "list and who");
    }
}

} // namespace

Parsed ParseArgs(const std::vector<std::string>& args) {
    Parsed p;
    bool positionalOnly = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (positionalOnly || a.size() < 2 || a[0] != '-')
            ReadWord(args, i, positionalOnly, p);
        else if (a == "--")
            positionalOnly = true;
        else
            ReadOption(args, i, p);
        if (!p.error.empty()) return p;
    }
    if (!p.options.help && !p.options.version) CheckCombination(p);
    return p;
}

std::string Usage(const std::string& command) {
    const std::string drive = "DRIVE is E, E: or E:\\, a mount point, a device node, LABEL=... or UUID=...\n";
    if (command == "list")
        return "Usage: kestrinectl list [--usb] [-o COLUMNS] [-n] [--json]\n"
               "Lists every drive as the Kestrine window lists it (root, label, kind), with its bus,\n"
               "file system and total, used and free bytes; on Linux also the mount point and device node.\n"
               "  --usb         USB drives only\n"
               "  -o COLUMNS    the columns to show, such as ROOT,LABEL,FREE (of ROOT, LABEL, KIND, BUS,\n"
               "                FS, TOTAL, USED, FREE, MOUNT, DEVICE)\n"
               "  -n            no heading line\n"
               "  --json        one JSON document (see docs/kestrinectl.md)\n";
    if (command == "release")
        return "Usage: kestrinectl release DRIVE... [--all-usb] [--interactive] [-q] [--json]\n"
               "Releases USB drives as the window's release command does: checks the bus, closes this\n"
               "program's open handles on the drive and asks the system to eject it (4 attempts, 300 ms\n"
               "apart). The system drive is never released. A refusal names what blocked it.\n" +
               drive +
               "  --all-usb      every USB drive\n"
               "  --interactive  let the system ask for authorisation on this terminal when it is needed\n"
               "  -q             say nothing when a drive was released\n"
               "  --json         one JSON document\n";
    if (command == "who")
        return "Usage: kestrinectl who DRIVE [-n] [--json]\n"
               "Lists the processes holding files, folders or their working directory on the drive,\n"
               "with process id, name and what they hold. Nothing is released.\n" +
               drive +
               "  -n      no heading line\n"
               "  --json  one JSON document\n";
    if (command == "watch")
        return "Usage: kestrinectl watch [--json]\n"
               "Prints one line per device arrival, removal and drive change until interrupted.\n"
               "  --json  one JSON object per line\n";
    if (command == "serial")
        return "Usage: kestrinectl serial DRIVE [--json]\n"
               "Prints the disk serial text and the PNP device ID of the drive's disk, as the window shows them.\n" +
               drive + "  --json  one JSON document\n";
    return "Usage: kestrinectl COMMAND [OPTIONS]\n"
           "Commands:\n"
           "  list [--usb] [-o COLUMNS] [-n] [--json]                    the drives\n"
           "  release DRIVE... [--all-usb] [--interactive] [-q] [--json]  release USB drives\n"
           "  who DRIVE [-n] [--json]                                    the processes holding a drive\n"
           "  watch [--json]                                             device and drive events until interrupted\n"
           "  serial DRIVE [--json]                                      the disk serial and PNP device ID\n" +
           drive +
           "Options for every command:\n"
           "  --machine FILE.json  run against a simulated machine instead of this system\n"
           "  --help               the help of a command\n"
           "  --version            the version\n"
           "  --                   what follows is no option\n"
           "Exit codes: 0 success, 1 system error, 2 bad arguments, 3 not found,\n"
           "            4 not a USB drive, 5 in use or refused.\n";
}

} // namespace ctl
