#pragma once
// A simulated Windows machine for tests and kestrine-sim: drives with files
// and folders, the program's folder, another running instance or none, a
// clock that advances only when told (or a little with every yield), and
// scripted answers to message boxes. Every boundary call is recorded in a
// journal, so a test can assert what was asked of the system.
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fake/handles.h"
#include "platform/fake/hardware.h"
#include "platform/portable/dir_search.h"
#include "platform/portable/profile_text.h"
#include "platform/portable/shell_items.h"
#include "platform/portable/window_procedures.h"
#include "platform/services.h"

namespace fake {

struct Drive {
    std::string root; // as the platform lists it, such as "E:\" (the case is kept)
    std::uint32_t type = platform::kDriveFixed;
    std::string label;
    std::string fileSystem = "NTFS";
    std::uint64_t totalBytes = 0;
    std::uint64_t freeBytes = 0;
    bool ready = true;
    bool readOnly = false; // writes and label changes fail, as on a full or protected medium
    std::uint32_t serial = 0;
    std::string shareName = {}; // network drives: "\\server\share"
    // What the volume's storage driver reports: the bus type (7 USB; none: the
    // query fails) and the device number (none: the query fails); the DOS
    // device name behind the letter (empty: "\Device\HarddiskVolumeN").
    std::optional<std::uint32_t> bus = {};
    std::optional<std::uint32_t> deviceNumber = {};
    std::string dosDevice = {};
    bool openable = true; // the volume can be opened
};

struct Call {
    std::string name;
    std::vector<std::string> args;
    std::string result;
    bool request = false; // the call asks the system to change something
};

struct MessageBoxRecord {
    std::string text;
    std::string caption;
    std::uint32_t type = 0;
    std::int32_t answer = 0;
};

// The earlier instance of the program, when one runs.
struct OtherInstance {
    bool windowFound = true; // its hidden application window can be found
    bool minimized = false;
    bool foreground = false;
};

class Machine : public platform::Application,
                public platform::Volumes,
                public platform::Profile,
                public platform::WindowSystem,
                public platform::Shell,
                public platform::FileSystemObject {
public:
    Machine();

    // Builds a machine from its JSON description (see docs/kestrine-sim.md).
    // Throws std::runtime_error with a clear message on a malformed description.
    static void LoadJson(Machine& machine, std::string_view text);
    // One drive as the description writes it (an object of "drives").
    static Drive DriveFromJson(std::string_view text);

    platform::Services services() {
        return {*this, *this, *this, *this, *this, *this, storage_, hardware_, hardware_, handles_};
    }
    // Storage drivers, device tree and management service.
    Hardware& hardware() { return hardware_; }
    // The handle table of every process, the program's own among them.
    NativeHandles& handles() { return handles_; }

    // --- describing the machine ---
    void AddDrive(Drive drive);
    Drive* FindDrive(std::string_view root); // by letter, any case
    void RemoveDrive(std::string_view root);
    void AddFile(const std::string& path, std::string content = {}, std::uint32_t attributes = platform::kAttrArchive);
    void AddFolder(const std::string& path, std::uint32_t attributes = platform::kAttrDirectory);
    std::optional<std::string> FileContent(const std::string& path) const;
    // How many times a profile file was read and parsed (each unchanged file once).
    std::size_t ProfileReads() const { return profiles_.Reads(); }
    bool Exists(const std::string& path) const;
    void SetProgramFolder(std::string folder) { programFolder_ = std::move(folder); }
    void SetCommandLine(std::string commandLine) { commandLine_ = std::move(commandLine); }
    void SetDecimalSeparator(char separator) { decimalSeparator_ = separator; }
    void SetOtherInstance(std::optional<OtherInstance> other) { other_ = other; }
    const std::optional<OtherInstance>& Other() const { return other_; }

    // --- the clock ---
    // Seconds since midnight; it may pass 86400, the timer wraps to 0 there.
    void SetTime(double secondsSinceMidnight) { now_ = secondsSinceMidnight; }
    double Now() const { return now_; }
    void SetYieldTick(double seconds) { tick_ = seconds; }
    void Advance(double seconds);
    // Runs work when the clock passes a time, during a yield.
    void At(double time, std::function<void()> work);
    // Called at every yield to the message loop, after the work then due:
    // what the user or the system does while a handler yields.
    void OnYield(std::function<void()> observer) { yieldObserver_ = std::move(observer); }

    // --- message boxes ---
    void QueueAnswer(std::int32_t answer) { answers_.push_back(answer); }
    const std::vector<MessageBoxRecord>& MessageBoxes() const { return messageBoxes_; }

    // --- the journal ---
    // Records one boundary call; the services kept in other classes of the
    // simulated machine journal through here too.
    void Record(std::string name, std::vector<std::string> args, std::string result, bool request) {
        record(std::move(name), std::move(args), std::move(result), request);
    }
    const std::vector<Call>& Journal() const { return journal_; }
    std::vector<Call> Calls(std::string_view name) const;
    void ClearJournal() { journal_.clear(); }
    void OnCall(std::function<void(const Call&)> observer) { observer_ = std::move(observer); }

    // --- windows ---
    void SetWorkArea(platform::TwipsRect area) { workArea_ = area; }
    // The style the window system keeps for a window (a list view's header).
    void SetWindowStyle(platform::WindowHandle window, std::intptr_t style) { windows_.SetStyle(window, style); }
    std::intptr_t WindowStyle(platform::WindowHandle window) const { return windows_.Style(window); }
    // True once a SetWindowPos request with kHwndTopmost reached the window.
    bool Topmost(platform::WindowHandle window) const { return topmost_.count(window) != 0; }
    // The header control the window system gives a list view.
    static platform::WindowHandle HeaderOf(platform::WindowHandle listView) {
        return portable::WindowProcedures::HeaderOf(listView);
    }
    static constexpr std::intptr_t kDefaultHeaderStyle = 0x50000000 | platform::kHdsButtons;

    // --- window procedures ---
    // Sends a message through the window's chain of procedures, as the system
    // does with a broadcast; the window's own procedure records what reaches it.
    std::intptr_t Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                          std::intptr_t lParam);
    // The messages that reached the window's own procedure, in order.
    struct Delivered {
        std::uint32_t message;
        std::uintptr_t wParam;
        std::intptr_t lParam;
    };
    const std::vector<Delivered>& OwnProcedureMessages() const { return ownMessages_; }
    // What the window's own procedure answers to every message (0 unless set).
    void SetOwnProcedureResult(std::intptr_t result) { ownResult_ = result; }
    // Called for every message as it reaches the window's own procedure.
    void OnOwnProcedure(std::function<void(const Delivered&)> observer) { ownObserver_ = std::move(observer); }
    // The value standing for a window's own procedure.
    static constexpr std::intptr_t kOwnProcedure = portable::WindowProcedures::kOwnProcedure;
    std::intptr_t CurrentProcedure(platform::WindowHandle window) const { return windows_.Procedure(window); }
    int Beeps() const { return beeps_; }

    // --- the shell's change reports ---
    // An item the shell can name; an empty name makes an item the shell
    // cannot describe, an empty path one without a file-system path.
    platform::Pidl ShellItem(const std::string& displayName, const std::string& path);
    // Delivers a report to every window registered for reports: wParam points
    // at the two items, lParam is the event code. For the image-index,
    // free-space and extended events, value goes into the small record the
    // first item points at. False when no window is registered.
    bool ShellReport(std::uint32_t event, platform::Pidl item1, platform::Pidl item2);
    bool ShellValueReport(std::uint32_t event, std::uint32_t value, platform::Pidl item2 = 0);
    bool ShellRegistered() const { return !shell_.Registrations().empty(); }
    // Places bytes at a fresh address of the simulated memory.
    std::uintptr_t Place(std::vector<std::uint8_t> bytes);
    void SetCurDir(std::string folder) { currentDir_ = std::move(folder); }

    // --- the notification area ---
    // Icons the shell shows, by window handle and id.
    std::size_t TrayIcons() const { return trayIcons_.Count(); }

    bool Ended() const { return ended_; }
    std::uint32_t ExitCode() const { return exitCode_; }
    std::int64_t Yields() const { return yields_; }

    // Application
    bool PrevInstance() override;
    std::string Title() override { return title_; }
    void SetTitle(const std::string& title) override;
    std::string Path() override { return programFolder_; }
    std::string CommandLine() override { return commandLine_; }
    void ExitProcess(std::uint32_t code) override;
    char DecimalSeparator() override { return decimalSeparator_; }
    std::string CurDir() override { return currentDir_; }
    bool ChDrive(const std::string& drive) override;
    bool ChDir(const std::string& path) override;
    bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) override;

    // Volumes
    std::uint32_t GetLogicalDriveStringsA(std::span<char> buffer) override;
    std::uint32_t GetDriveTypeA(const std::string& root) override;
    bool GetDiskFreeSpaceExA(const std::string& directory, std::span<std::uint8_t, 8> freeBytesAvailable,
                             std::span<std::uint8_t, 8> totalBytes, std::span<std::uint8_t, 8> totalFreeBytes) override;
    bool GetVolumeInformationA(const std::string& root, std::span<char> volumeName, std::uint32_t& serialNumber,
                               std::uint32_t& maxComponentLength, std::uint32_t& fileSystemFlags,
                               std::span<char> fileSystemName) override;
    bool SetVolumeLabelA(const std::string& root, const std::string& label) override;
    std::uint32_t GetFileAttributesA(const std::string& path) override;
    platform::Handle FindFirstFileA(const std::string& pattern, platform::FindData& data) override;
    bool FindNextFileA(platform::Handle search, platform::FindData& data) override;
    bool FindClose(platform::Handle search) override;
    bool DeleteFileA(const std::string& path) override;
    bool MoveFileExA(const std::string& existing, const std::string& replacement, std::uint32_t flags) override;
    std::string Dir(const std::string& pathname, std::uint32_t attributes) override;

    // Profile
    std::int32_t WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                            const std::string& value, const std::string& file) override;
    std::uint32_t GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                            const std::string& file) override;
    std::uint32_t GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) override;

    // WindowSystem
    platform::WindowHandle FindWindowA(const std::string& className, const std::string& windowName) override;
    platform::WindowHandle GetWindow(platform::WindowHandle window, std::uint32_t command) override;
    bool OpenIcon(platform::WindowHandle window) override;
    bool SetForegroundWindow(platform::WindowHandle window) override;
    std::int32_t MessageBoxA(platform::WindowHandle owner, const std::string& text, const std::string& caption,
                             std::uint32_t type) override;
    void DoEvents() override;
    void WaitForMessages(float seconds) override;
    float Timer() override;
    std::intptr_t SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) override;
    std::intptr_t GetWindowLongA(platform::WindowHandle window, std::int32_t index) override;
    std::intptr_t SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) override;
    bool SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x, std::int32_t y,
                      std::int32_t cx, std::int32_t cy, std::uint32_t flags) override;
    std::intptr_t CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                  std::uintptr_t wParam, std::intptr_t lParam) override;
    bool SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) override;
    std::intptr_t GetPropA(platform::WindowHandle window, const std::string& name) override;
    std::intptr_t RemovePropA(platform::WindowHandle window, const std::string& name) override;
    bool MessageBeep(std::uint32_t type) override;
    bool FlashWindow(platform::WindowHandle window, bool invert) override;
    platform::TwipsRect WorkArea() override;
    std::uintptr_t LoadPicture(const std::string& file) override;
    void ReleasePicture(std::uintptr_t picture) override;
    // The pictures loaded and not yet given back.
    std::size_t LivePictures() const { return livePictures_.size(); }

    // Shell
    std::intptr_t ShellExecuteA(platform::WindowHandle owner, const std::string& verb, const std::string& file,
                                const std::string& parameters, const std::string& directory,
                                std::int32_t showCommand) override;
    std::int32_t Shell_NotifyIconA(std::uint32_t message, std::span<const std::uint8_t, 88> data) override;
    std::int32_t SHGetSpecialFolderLocation(platform::WindowHandle owner, std::int32_t folder,
                                            platform::Pidl& pidl) override;
    std::uint32_t SHChangeNotifyRegister(platform::WindowHandle window, std::int32_t sources, std::int32_t events,
                                         std::uint32_t message, platform::Pidl root, bool recursive) override;
    std::uintptr_t SHGetFileInfoA(platform::Pidl pidl, std::uint32_t attributes, std::span<std::uint8_t, 352> info,
                                  std::uint32_t flags) override;
    bool SHGetPathFromIDListA(platform::Pidl pidl, std::span<char, 260> path) override;
    bool CopyMemory(std::span<std::uint8_t> destination, std::uintptr_t source) override;

    // FileSystemObject
    std::optional<platform::ScriptingDrive> GetDrive(const std::string& root) override;
    std::vector<platform::ScriptingDrive> Drives() override;

    static constexpr platform::WindowHandle kOwnHiddenWindow = portable::WindowProcedures::kOwnHiddenWindow;
    static constexpr platform::WindowHandle kOtherHiddenWindow = portable::WindowProcedures::kOtherHiddenWindow;
    static constexpr platform::WindowHandle kOtherMainWindow = portable::WindowProcedures::kOtherMainWindow;

private:
    struct Node {
        std::string path; // as created
        std::uint32_t attributes = 0;
        std::string content;
        std::uint64_t version = 0; // a new one with every new content
    };
    // The profile file's node, when path names a file on a ready drive.
    const Node* profileNode(const std::string& path);

    void record(std::string name, std::vector<std::string> args, std::string result, bool request);
    // Upper case, separators as the system reads them (a run of them is
    // one), no trailing backslash but on a root.
    static std::string Key(std::string_view path);
    Drive* driveOf(std::string_view path);
    bool writable(std::string_view path);
    bool folderExists(const std::string& key) const;
    void runDue();

    std::vector<Drive> drives_;
    std::map<std::string, Node> nodes_;
    std::uint64_t stamp_ = 0;         // the last content version given out
    portable::ProfileCache profiles_; // profile files read, by path and version
    portable::FileSearches searches_;
    std::string programFolder_ = "C:\\Program Files\\Kestrine";
    std::string commandLine_;
    std::string title_ = "Kestrine";
    char decimalSeparator_ = '.';
    std::optional<OtherInstance> other_;
    double now_ = 12 * 3600.0;
    double tick_ = 0.01;
    std::vector<std::pair<double, std::function<void()>>> scheduled_;
    std::deque<std::int32_t> answers_;
    std::vector<MessageBoxRecord> messageBoxes_;
    std::vector<Call> journal_;
    std::function<void(const Call&)> observer_;
    platform::TwipsRect workArea_{0, 0, 1920 * 15, 1040 * 15};
    portable::WindowProcedures windows_; // procedures, styles and properties of the windows
    std::vector<Delivered> ownMessages_;
    std::intptr_t ownResult_ = 0;
    std::function<void(const Delivered&)> ownObserver_;
    std::function<void()> yieldObserver_;
    int beeps_ = 0;
    portable::ShellItems shell_{0x100000}; // items, report records, registered windows
    std::string currentDir_ = "C:\\";
    std::map<platform::WindowHandle, bool> topmost_;
    portable::TrayIcons trayIcons_;
    std::uintptr_t nextPicture_ = 0x7000;
    std::set<std::uintptr_t> livePictures_;
    bool ended_ = false;
    std::uint32_t exitCode_ = 0;
    std::int64_t yields_ = 0;
    Hardware hardware_{*this};
    NativeHandles handles_{*this};
    StorageWithNul storage_{*this, hardware_, handles_}; // the hardware's storage, "NUL" opening into handles_
};

} // namespace fake
