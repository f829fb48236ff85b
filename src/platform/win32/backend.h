#pragma once
// The Win32 backend: every service of the platform boundary passed through to
// the real Windows call it is named after ("A" functions, ANSI strings). This
// header stays free of <windows.h>; handles cross it as the boundary's
// integer types.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// <windows.h> defines CopyMemory as a macro; the shell service has a member
// of that name.
#ifdef CopyMemory
#undef CopyMemory
#endif
#include "platform/services.h"

namespace win32 {

// The running program: its single-instance guard (a named mutex) and the
// hidden top-level application window of class "ThunderRT6Main" whose title is
// the application title, kept for the life of the process.
class Application : public platform::Application {
public:
    Application();
    ~Application() override;
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    bool PrevInstance() override;
    std::string Title() override { return title_; }
    void SetTitle(const std::string& title) override;
    std::string Path() override;
    std::string CommandLine() override;
    void ExitProcess(std::uint32_t code) override;
    char DecimalSeparator() override;
    std::string CurDir() override;
    bool ChDrive(const std::string& drive) override;
    bool ChDir(const std::string& path) override;
    bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) override;

    platform::WindowHandle HiddenWindow() const { return hidden_; }
    // What follows the program's name on a command line, as CommandLine
    // gives it: the name ends at its closing quote when it starts with one,
    // else at the first blank; the blanks after it are dropped and the rest
    // is kept as it stands, in the ANSI code page.
    static std::string ArgumentsOf(const std::wstring& commandLine);

private:
    std::uintptr_t mutex_ = 0;
    bool otherRunning_ = false;
    platform::WindowHandle hidden_ = 0;
    std::string title_ = "Kestrine";
};

class Volumes : public platform::Volumes {
public:
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
};

class Profile : public platform::Profile {
public:
    std::int32_t WritePrivateProfileStringA(const std::string& section, const std::string& key,
                                            const std::string& value, const std::string& file) override;
    std::uint32_t GetPrivateProfileSectionA(const std::string& section, std::span<char> buffer,
                                            const std::string& file) override;
    std::uint32_t GetPrivateProfileSectionNamesA(std::span<char> buffer, const std::string& file) override;
};

// Window procedures installed by the logic are platform::WndProc functions.
// Each one the backend meets is bound to one of a fixed set of real WNDPROC
// trampolines, and that trampoline is what goes into the window with
// SetWindowLongPtrA; CallWindowProcA on a logic procedure calls its trampoline
// through the system. So the chain is the window system's own, and no function
// is ever called through a pointer of another type.
class WindowSystem : public platform::WindowSystem {
public:
    WindowSystem();
    ~WindowSystem() override;
    WindowSystem(const WindowSystem&) = delete;
    WindowSystem& operator=(const WindowSystem&) = delete;

    // Looks at every message before it is dispatched (by DoEvents and by the
    // program's message loop); true when the filter handled it.
    using MessageFilter = std::function<bool(void* msg)>;
    void SetMessageFilter(MessageFilter filter) { filter_ = std::move(filter); }
    // Translates and dispatches one message unless the filter takes it.
    void Dispatch(void* msg);
    // How many logic procedures can be bound at once.
    static constexpr std::size_t kProcedureSlots = 8;

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
    std::intptr_t CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                  std::uintptr_t wParam, std::intptr_t lParam) override;
    bool SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) override;
    std::intptr_t GetPropA(platform::WindowHandle window, const std::string& name) override;
    std::intptr_t RemovePropA(platform::WindowHandle window, const std::string& name) override;
    bool MessageBeep(std::uint32_t type) override;
    bool FlashWindow(platform::WindowHandle window, bool invert) override;
    bool SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x, std::int32_t y,
                      std::int32_t cx, std::int32_t cy, std::uint32_t flags) override;
    platform::TwipsRect WorkArea() override;
    std::uintptr_t LoadPicture(const std::string& file) override;
    void ReleasePicture(std::uintptr_t picture) override;
    std::uint32_t LastError() override;
    std::string ErrorText(std::uint32_t number) override;

    // The pictures loaded and not given back yet.
    std::size_t LoadedPictures() const { return pictures_.size(); }

private:
    MessageFilter filter_;
    std::vector<std::uintptr_t> pictures_; // icons loaded from files; the rest are destroyed with the service
};

class Shell : public platform::Shell {
public:
    // shell32's change registration, SHChangeNotifyRegister, exported by
    // ordinal 2. One watched item: its identifier list and a 32-bit Boolean
    // recursive flag.
    struct NotifyEntry {
        const void* pidl;
        std::int32_t recursive;
    };
    using RegisterFunction = unsigned long(__stdcall*)(void* window, int sources, long events, unsigned message,
                                                       int entries, const NotifyEntry* entry);
    // The function as the system exports it; nullptr when shell32 has no ordinal 2.
    static RegisterFunction SystemRegisterFunction();

    Shell() = default;
    // Registers through another function of the same kind (a test's recorder).
    explicit Shell(RegisterFunction registerFunction) : register_(registerFunction), ownRegister_(true) {}

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

private:
    RegisterFunction register_ = nullptr;
    bool ownRegister_ = false;
};

// The scripting object's drive objects, answered from the same kernel32 and
// mpr calls the object makes (drive type, volume information, the network
// connection of a drive letter).
class FileSystemObject : public platform::FileSystemObject {
public:
    // The system's type code of a root such as "E:\\" (GetDriveTypeA).
    using DriveTypeOf = std::function<std::uint32_t(const std::string& root)>;
    FileSystemObject();
    // Asks another source for the drive types (a test's).
    explicit FileSystemObject(DriveTypeOf driveType) : driveType_(std::move(driveType)) {}

    std::optional<platform::ScriptingDrive> GetDrive(const std::string& root) override;
    std::vector<platform::ScriptingDrive> Drives() override;

private:
    std::optional<platform::ScriptingDrive> describe(char letter);

    DriveTypeOf driveType_;
};

class Storage : public platform::Storage {
public:
    platform::Handle CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                 std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) override;
    bool DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode, std::span<const std::uint8_t> inBuffer,
                         std::span<std::uint8_t> outBuffer, std::uint32_t& bytesReturned) override;
    bool CloseHandle(platform::Handle handle) override;
    std::uint32_t QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) override;
};

class Devices : public platform::Devices {
public:
    platform::DevInfoSet SetupDiGetClassDevsA(const platform::Guid& classGuid, std::uint32_t flags) override;
    bool SetupDiEnumDeviceInterfaces(platform::DevInfoSet set, const platform::Guid& classGuid,
                                     std::uint32_t memberIndex, platform::SpDeviceInterfaceData& data) override;
    bool SetupDiGetDeviceInterfaceDetailA(platform::DevInfoSet set, const platform::SpDeviceInterfaceData& data,
                                          std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                          platform::SpDevinfoData* devInfo) override;
    bool SetupDiDestroyDeviceInfoList(platform::DevInfoSet set) override;
    std::uint32_t CM_Get_Parent(platform::DevInst& parent, platform::DevInst device, std::uint32_t flags) override;
    std::uint32_t CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                           std::span<char16_t> vetoName, std::uint32_t flags) override;
    void Sleep(std::uint32_t milliseconds) override;
};

// The management service through COM (IWbemLocator, IWbemServices::ExecQuery).
class Management : public platform::Management {
public:
    std::optional<std::vector<platform::ManagementObject>> ExecQuery(const std::string& moniker,
                                                                     const std::string& query) override;
};

// The ntdll services, found in ntdll.dll at first use.
class Native : public platform::Native {
public:
    std::uint32_t GetCurrentProcessId() override;
    platform::Handle GetCurrentProcess() override;
    std::uint32_t GetFileTypeOnThread(platform::Handle file, std::uint32_t milliseconds,
                                      std::uint32_t& fileType) override;
    platform::NtStatus NtQuerySystemInformation(std::uint32_t systemInformationClass, std::span<std::uint8_t> buffer,
                                                std::uint32_t& returnLength) override;
    platform::NtStatus NtOpenProcess(platform::Handle& processHandle, std::uint32_t desiredAccess,
                                     const platform::ClientId& clientId) override;
    platform::NtStatus NtDuplicateObject(platform::Handle sourceProcess, platform::Handle sourceHandle,
                                         platform::Handle targetProcess, platform::Handle& targetHandle,
                                         std::uint32_t desiredAccess, std::uint32_t handleAttributes,
                                         std::uint32_t options) override;
    platform::NtStatus NtQueryObject(platform::Handle handle, std::uint32_t objectInformationClass,
                                     std::span<std::uint8_t> buffer, std::uint32_t& returnLength) override;
    platform::NtStatus NtClose(platform::Handle handle) override;
};

// Every service of the real machine, in one bundle.
class Backend {
public:
    Backend() = default;
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;

    platform::Services services() {
        return {app, volumes, profile, windows, shell, fso, storage, devices, management, native};
    }

    Application app;
    Volumes volumes;
    Profile profile;
    WindowSystem windows;
    Shell shell;
    FileSystemObject fso;
    Storage storage;
    Devices devices;
    Management management;
    Native native;
};

} // namespace win32
