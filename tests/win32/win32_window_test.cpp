// The Win32 backend's window services: the hidden application window and the
// instance guard, the window-procedure chain, properties, the shell's change
// registration, and the native window's control semantics.
#include "platform/win32/raii.h"
// The backend's header before any other boundary header: it clears a macro of <windows.h>.
#include "platform/win32/backend.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <objbase.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "app/shell_notify.h"
#include "core/program.h"
#include "drives/cDrive.h"
#include "notify/shell_report.h"
#include "platform/pass_through.h"
#include "platform/win32/native_window.h"
#include "ui/cTray.h"

namespace {

// --- the hidden application window and the guard ---

TEST(Win32Application, HiddenWindowIsFoundByClassAndTitleAndASecondInstanceIsSeen) {
    win32::Application first;
    win32::WindowSystem windows;
    ASSERT_NE(first.HiddenWindow(), 0u);
    EXPECT_EQ(windows.FindWindowA("ThunderRT6Main", "Kestrine"), first.HiddenWindow());
    EXPECT_FALSE(::IsWindowVisible(win32::ToHwnd(first.HiddenWindow())));
    EXPECT_FALSE(first.PrevInstance());

    {
        win32::Application second; // as a second process would, it sees the first
        EXPECT_TRUE(second.PrevInstance());
        // The guard renames its own window before searching, so only the first is found.
        second.SetTitle("unwanted instance");
        EXPECT_EQ(windows.FindWindowA("ThunderRT6Main", "Kestrine"), first.HiddenWindow());
    }
    first.SetTitle("Renamed");
    EXPECT_EQ(first.Title(), "Renamed");
    EXPECT_EQ(windows.FindWindowA("ThunderRT6Main", "Kestrine"), 0u);
    EXPECT_EQ(windows.FindWindowA("ThunderRT6Main", "Renamed"), first.HiddenWindow());

    const std::string folder = first.Path();
    ASSERT_GE(folder.size(), 3u);
    EXPECT_EQ(folder[1], ':');
    EXPECT_TRUE(folder.size() == 3 || folder.back() != '\\') << folder;
}

TEST(Win32Application, CurrentFolderAndProgramStart) {
    win32::Application app;
    const std::string before = app.CurDir();
    ASSERT_FALSE(before.empty());
    EXPECT_TRUE(app.ChDir("C:\\windows"));
    EXPECT_EQ(::CharLowerA(std::string(app.CurDir()).data()), std::string("c:\\windows"));
    EXPECT_FALSE(app.ChDir("C:\\no\\such\\folder"));
    EXPECT_TRUE(app.ChDrive("C"));
    EXPECT_EQ(app.CurDir().substr(0, 2), "C:");
    EXPECT_TRUE(app.ChDir(before));
    // The program file is named on its own: a missing one is not searched for.
    EXPECT_FALSE(app.CreateProcessA("C:\\no such folder\\Quorra.exe", "\"C:\\no such folder\\Quorra.exe\" E:\\"));
}

TEST(Win32Application, CommandLineIsWhatFollowsTheProgramName) {
    using win32::Application;
    EXPECT_EQ(Application::ArgumentsOf(L"\"C:\\Program Files\\Kestrine\\Kestrine.exe\"  E:\\"), "E:\\");
    EXPECT_EQ(Application::ArgumentsOf(L"Kestrine.exe E:\\"), "E:\\");
    EXPECT_EQ(Application::ArgumentsOf(L"C:\\Kestrine\\Kestrine.exe\t \tE:\\"), "E:\\");
    // The rest stands as it is given: quotes, inner and trailing blanks, case.
    EXPECT_EQ(Application::ArgumentsOf(L"\"Kestrine.exe\" \"e:\\\" "), "\"e:\\\" ");
    EXPECT_EQ(Application::ArgumentsOf(L"\"Kestrine.exe\"E:\\"), "E:\\");
    EXPECT_EQ(Application::ArgumentsOf(L"Kestrine.exe"), "");
    EXPECT_EQ(Application::ArgumentsOf(L"\"C:\\a b\\Kestrine.exe\""), "");
    EXPECT_EQ(Application::ArgumentsOf(L"\"C:\\unclosed E:\\"), "") << "an unclosed quote holds the whole line";
    EXPECT_EQ(Application::ArgumentsOf(L""), "");
    // The process's own line, from the system's wide form.
    win32::Application app;
    EXPECT_EQ(app.CommandLine(), Application::ArgumentsOf(::GetCommandLineW()));
}

// --- the procedure chain ---

std::vector<std::string> gSeen;

LRESULT CALLBACK OwnProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP + 7) {
        gSeen.push_back("own");
        return 7;
    }
    return ::DefWindowProcA(hWnd, message, wParam, lParam);
}

win32::WindowSystem* gWindows = nullptr;
std::intptr_t gBelowFirst = 0;  // what the first procedure installed replaced
std::intptr_t gBelowSecond = 0; // what the second one replaced

std::intptr_t FirstProc(platform::WindowHandle hWnd, std::uint32_t msg, std::uintptr_t wParam, std::intptr_t lParam) {
    if (msg == WM_APP + 7) gSeen.push_back("first");
    return gWindows->CallWindowProcA(gBelowFirst, hWnd, msg, wParam, lParam);
}

std::intptr_t SecondProc(platform::WindowHandle hWnd, std::uint32_t msg, std::uintptr_t wParam, std::intptr_t lParam) {
    if (msg == WM_APP + 7) gSeen.push_back("second");
    return gWindows->CallWindowProcA(gBelowSecond, hWnd, msg, wParam, lParam);
}

HWND MakeWindow() {
    WNDCLASSA wc{};
    wc.lpfnWndProc = &OwnProc;
    wc.hInstance = ::GetModuleHandleA(nullptr);
    wc.lpszClassName = "KestrineChainTest";
    ::RegisterClassA(&wc);
    return ::CreateWindowExA(0, "KestrineChainTest", "chain", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, nullptr, nullptr,
                             wc.hInstance, nullptr);
}

TEST(Win32WindowChain, MessagesPassEveryProcedureInOrderAndOneStepUnhooksBoth) {
    win32::WindowSystem windows;
    gWindows = &windows;
    HWND hwnd = MakeWindow();
    ASSERT_NE(hwnd, nullptr);
    const auto window = win32::FromHwnd(hwnd);

    gBelowFirst = windows.SetWindowLongA(window, platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&FirstProc));
    ASSERT_NE(gBelowFirst, 0);
    gBelowSecond = windows.SetWindowLongA(window, platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&SecondProc));
    EXPECT_EQ(gBelowSecond, reinterpret_cast<std::intptr_t>(&FirstProc)) << "the logic sees its own procedure back";
    EXPECT_EQ(windows.GetWindowLongA(window, platform::kGwlWndProc), reinterpret_cast<std::intptr_t>(&SecondProc));

    gSeen.clear();
    EXPECT_EQ(windows.SendMessageA(window, WM_APP + 7, 0, 0), 7);
    EXPECT_EQ(gSeen, (std::vector<std::string>{"second", "first", "own"}));

    // Putting back what the first replaced takes both out.
    windows.SetWindowLongA(window, platform::kGwlWndProc, gBelowFirst);
    gSeen.clear();
    windows.SendMessageA(window, WM_APP + 7, 0, 0);
    EXPECT_EQ(gSeen, (std::vector<std::string>{"own"}));
    EXPECT_EQ(::GetWindowLongPtrA(hwnd, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(&OwnProc));

    // Properties on the window.
    EXPECT_TRUE(windows.SetPropA(window, "PrevWndProc", 0x1234));
    EXPECT_EQ(windows.GetPropA(window, "PrevWndProc"), 0x1234);
    EXPECT_EQ(windows.RemovePropA(window, "PrevWndProc"), 0x1234);
    EXPECT_EQ(windows.GetPropA(window, "PrevWndProc"), 0);
    ::DestroyWindow(hwnd);
}

TEST(Win32WindowSystem, TimerAndWorkArea) {
    win32::WindowSystem windows;
    const float now = windows.Timer();
    EXPECT_GE(now, 0.0f);
    EXPECT_LT(now, 86400.0f);
    const platform::TwipsRect area = windows.WorkArea();
    EXPECT_GT(area.width, 0);
    EXPECT_GT(area.height, 0);
    EXPECT_EQ(windows.LoadPicture("C:\\no\\such.ico"), 0u);
}

// --- the shell ---

// What the shell's registration function was given.
struct Registration {
    void* window = nullptr;
    int sources = 0;
    long events = 0;
    unsigned message = 0;
    int entries = 0;
    const void* pidl = nullptr;
    std::int32_t recursive = 0;
};
Registration gRegistration;

unsigned long __stdcall RecordRegistration(void* window, int sources, long events, unsigned message, int entries,
                                           const win32::Shell::NotifyEntry* entry) {
    gRegistration = {window, sources, events, message, entries, entry->pidl, entry->recursive};
    return 77;
}

// Services of the machine the tests run on, with another shell.
struct WithShell {
    win32::Backend backend;
    win32::Shell& shell;
    platform::Services services{backend.app, backend.volumes, backend.profile, backend.windows,    shell,
                                backend.fso, backend.storage, backend.devices, backend.management, backend.native};
    explicit WithShell(win32::Shell& s) : shell(s) {}
};

TEST(Win32Shell, ChangeReportsRegisterAsTheProgramDoesAndItemsCanBeRead) {
    // The registration function is shell32's ordinal 2.
    HMODULE shell32 = ::LoadLibraryA("shell32.dll");
    ASSERT_NE(shell32, nullptr);
    const auto byOrdinal = ::GetProcAddress(shell32, MAKEINTRESOURCEA(2));
    ASSERT_NE(byOrdinal, nullptr);
    EXPECT_EQ(reinterpret_cast<void*>(win32::Shell::SystemRegisterFunction()), reinterpret_cast<void*>(byOrdinal));

    // What the program's registration hands the shell: every source and
    // event, its message, one entry for the desktop, recursive as True (-1).
    HWND hwnd = MakeWindow();
    {
        win32::Shell recording(&RecordRegistration);
        WithShell machine(recording);
        gRegistration = {};
        const notify::ShellRegistration r = notify::RegisterForAllReports(machine.services, win32::FromHwnd(hwnd));
        EXPECT_EQ(r.id, 77u);
        ASSERT_NE(r.desktopPidl, 0u);
        EXPECT_EQ(gRegistration.window, hwnd);
        EXPECT_EQ(gRegistration.sources, 0xFF);
        EXPECT_EQ(gRegistration.events, -1L);
        EXPECT_EQ(gRegistration.message, 0x401u);
        EXPECT_EQ(gRegistration.entries, 1);
        EXPECT_EQ(gRegistration.pidl, reinterpret_cast<const void*>(r.desktopPidl));
        EXPECT_EQ(gRegistration.recursive, -1);
        ::CoTaskMemFree(reinterpret_cast<void*>(r.desktopPidl));
    }

    // The same registration with the system's shell is accepted.
    win32::Shell shell;
    WithShell machine(shell);
    const notify::ShellRegistration r = notify::RegisterForAllReports(machine.services, win32::FromHwnd(hwnd));
    EXPECT_NE(r.id, 0u);
    ASSERT_NE(r.desktopPidl, 0u);

    std::array<std::uint8_t, 352> info{};
    EXPECT_NE(shell.SHGetFileInfoA(r.desktopPidl, 0, info, platform::kShgfiPidl | platform::kShgfiDisplayName), 0u);
    EXPECT_NE(info[12], 0) << "a display name at offset 12";

    // Reading the program's own memory by address; an address of nothing fails.
    const std::array<std::uint8_t, 4> source{1, 2, 3, 4};
    std::array<std::uint8_t, 4> copy{};
    EXPECT_TRUE(shell.CopyMemory(copy, reinterpret_cast<std::uintptr_t>(source.data())));
    EXPECT_EQ(copy, source);
    EXPECT_FALSE(shell.CopyMemory(copy, 0));
    ::DestroyWindow(hwnd);
}

// --- the native window ---

struct Recorder : app::ViewEvents {
    std::vector<std::string> seen;
    void Click(app::Ctl c) override { seen.push_back("click " + std::string(app::Spec(c).name)); }
    void DblClick(app::Ctl) override {}
    void Change(app::Ctl c) override { seen.push_back("change " + std::string(app::Spec(c).name)); }
    void KeyDown(app::Ctl c, std::int16_t& code, std::int16_t shift) override {
        seen.push_back("keydown " + std::string(app::Spec(c).name) + " " + std::to_string(code) + " " +
                       std::to_string(shift));
        if (code == 46) code = 0; // the logic takes Delete
    }
    void KeyUp(app::Ctl c, std::int16_t&, std::int16_t shift) override {
        seen.push_back("keyup " + std::string(app::Spec(c).name) + " " + std::to_string(shift));
    }
    void MouseUp(app::Ctl, std::int16_t, std::int16_t, float, float) override {}
    void Validate(app::Ctl, bool&) override {}
    void Tick(app::Ctl) override {}
    void Resize() override { seen.push_back("resize"); }
    void Activate() override { seen.push_back("activate"); }
    void CloseRequested() override { seen.push_back("close"); }
    bool refuse = false; // the close request's answer to the session ending
    bool SessionEnding() override {
        seen.push_back("session");
        return !refuse;
    }
};

TEST(Win32NativeWindow, ControlsBehaveAsTheLogicExpects) {
    using app::Ctl;
    win32::Application application;
    win32::WindowSystem windows;
    auto view = win32::NativeWindow::Create(windows, application.HiddenWindow());
    ASSERT_NE(view, nullptr);
    Recorder events;
    view->SetEvents(&events);

    // The designed outer size, and the hidden window right below the main one.
    EXPECT_NEAR(view->Width(Ctl::frmMain), app::kFormWidth, 15);
    EXPECT_NEAR(view->Height(Ctl::frmMain), app::kFormHeight, 15);
    view->Show();
    EXPECT_EQ(::GetWindow(win32::ToHwnd(application.HiddenWindow()), GW_HWNDPREV), win32::ToHwnd(view->hWnd()));
    EXPECT_EQ(events.seen, (std::vector<std::string>{"resize", "activate"}));

    // A combo choice from code raises Click; item data stays with its entry.
    events.seen.clear();
    view->AddListItem(Ctl::cmbSize, "GB");
    view->AddListItem(Ctl::cmbSize, "MB");
    EXPECT_TRUE(view->SetItemData(Ctl::cmbSize, 1, 2));
    EXPECT_TRUE(view->SetListIndex(Ctl::cmbSize, 1));
    EXPECT_FALSE(view->SetListIndex(Ctl::cmbSize, 2));
    EXPECT_EQ(view->Text(Ctl::cmbSize), "MB");
    EXPECT_EQ(view->ItemData(Ctl::cmbSize, 1), 2);
    EXPECT_EQ(events.seen, (std::vector<std::string>{"click cmbSize"}));

    // A text from code marks the box changed and raises Change once; the same text again changes nothing.
    events.seen.clear();
    view->SetDataChanged(Ctl::txtDT_Cap, false);
    view->SetText(Ctl::txtDT_Cap, "MY STICK");
    view->SetText(Ctl::txtDT_Cap, "MY STICK");
    EXPECT_TRUE(view->DataChanged(Ctl::txtDT_Cap));
    EXPECT_EQ(view->Text(Ctl::txtDT_Cap), "MY STICK");
    EXPECT_EQ(events.seen, (std::vector<std::string>{"change txtDT_Cap"}));
    view->SetSelStart(Ctl::txtDT_Cap, 99);
    EXPECT_EQ(view->SelStart(Ctl::txtDT_Cap), 8);

    // The report-view list: items from 1, sub-items, the selected item.
    view->AddColumn(Ctl::ListView1, "Letter", 760);
    view->AddColumn(Ctl::ListView1, "Label", 2320);
    EXPECT_EQ(view->ColumnCount(Ctl::ListView1), 2);
    EXPECT_EQ(view->AddItem(Ctl::ListView1, "C:\\"), 1);
    EXPECT_EQ(view->AddItem(Ctl::ListView1, "E:\\"), 2);
    EXPECT_TRUE(view->SetSubItem(Ctl::ListView1, 2, 1, "STICK"));
    EXPECT_FALSE(view->SetSubItem(Ctl::ListView1, 3, 1, "none"));
    EXPECT_EQ(view->SubItem(Ctl::ListView1, 2, 1), "STICK");
    EXPECT_EQ(view->SelectedItem(Ctl::ListView1), 0);
    EXPECT_TRUE(view->SetSelectedItem(Ctl::ListView1, 2));
    EXPECT_EQ(view->SelectedItem(Ctl::ListView1), 2);
    EXPECT_FALSE(view->ItemSelected(Ctl::ListView1, 1));
    view->SetItemSelected(Ctl::ListView1, 1, true);
    EXPECT_EQ(view->SelectedItem(Ctl::ListView1), 1);
    EXPECT_TRUE(view->ItemSelected(Ctl::ListView1, 2)) << "several rows can be selected";
    view->ClearItems(Ctl::ListView1);
    EXPECT_EQ(view->ItemCount(Ctl::ListView1), 0);
    EXPECT_EQ(view->ControlHandle(Ctl::ListView1), view->ControlWindow(Ctl::ListView1));

    // Captions, visibility and twips positions of controls in their frames.
    view->SetText(Ctl::lblHDSize, "12.5");
    EXPECT_EQ(view->Text(Ctl::lblHDSize), "12.5");
    EXPECT_FALSE(view->Visible(Ctl::frmeReleased));
    view->SetVisible(Ctl::frmeReleased, true);
    EXPECT_TRUE(::IsWindowVisible(win32::ToHwnd(view->ControlWindow(Ctl::frmeReleased))));
    view->SetLeft(Ctl::frmeReleased, 2100);
    EXPECT_EQ(view->Left(Ctl::frmeReleased), 2100);
    RECT r{};
    ::GetWindowRect(win32::ToHwnd(view->ControlWindow(Ctl::frmeReleased)), &r);
    EXPECT_EQ(r.right - r.left, win32::TwipsToPixels(6495));

    // The picture box paints in twips: a filled box and its colour.
    app::Surface* bar = view->Picture(Ctl::Picture1);
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(view->Picture(Ctl::Label1), nullptr);
    bar->Cls();
    EXPECT_EQ(bar->Point(100, 100), bar->BackColor());
    bar->Line(0, 0, 1500, 600, 0xFF0000);
    EXPECT_EQ(bar->Point(100, 100), 0xFF0000);
    EXPECT_EQ(bar->Point(3000, 100), bar->BackColor());
    EXPECT_EQ(bar->Point(-1, 0), -1);
    bar->SetCurrentY(0);
    const float line = bar->TextHeight("Used");
    bar->Print("Used");
    EXPECT_FLOAT_EQ(bar->CurrentY(), line);
    EXPECT_EQ(bar->CurrentX(), 0);
    EXPECT_GT(bar->TextWidth("Used: 70 %"), bar->TextWidth("Used"));

    // Resizing the window is undone by nobody here, but raises Resize.
    events.seen.clear();
    view->SetWidth(Ctl::frmMain, app::kFormWidth + 1500);
    EXPECT_EQ(events.seen, (std::vector<std::string>{"resize"}));
    view->SetWidth(Ctl::frmMain, app::kFormWidth + 1500);
    EXPECT_EQ(events.seen.size(), 1u) << "no change, no Resize";

    // The close box asks the logic; it does not close the window itself.
    events.seen.clear();
    ::SendMessageA(win32::ToHwnd(view->hWnd()), WM_CLOSE, 0, 0);
    EXPECT_EQ(events.seen, (std::vector<std::string>{"close"}));
    EXPECT_TRUE(::IsWindow(win32::ToHwnd(view->hWnd())));
    view->SetEvents(nullptr);
}

// The main window made as the program makes it, shown, reporting to a recorder.
struct ShownWindow {
    win32::Application application;
    win32::WindowSystem windows;
    std::unique_ptr<win32::NativeWindow> view = win32::NativeWindow::Create(windows, application.HiddenWindow());
    Recorder events;

    ShownWindow() {
        if (!view) return;
        view->SetEvents(&events);
        view->Show();
        events.seen.clear();
    }
    ~ShownWindow() {
        if (view) view->SetEvents(nullptr);
    }
    HWND main() const { return win32::ToHwnd(view->hWnd()); }
    HWND list() const { return win32::ToHwnd(view->ControlWindow(app::Ctl::ListView1)); }
};

TEST(Win32NativeWindow, OuterSizeAndClientAreaAreTheDesignedOnes) {
    ShownWindow w;
    ASSERT_NE(w.view, nullptr);
    RECT outer{}, client{};
    ::GetWindowRect(w.main(), &outer);
    ::GetClientRect(w.main(), &client);
    EXPECT_EQ(outer.right - outer.left, win32::TwipsToPixels(app::kFormWidth));
    EXPECT_EQ(outer.bottom - outer.top, win32::TwipsToPixels(app::kFormHeight));
    EXPECT_NEAR(client.right, win32::TwipsToPixels(app::kClientWidth), 1);
    EXPECT_NEAR(client.bottom, win32::TwipsToPixels(app::kClientHeight), 1);
    EXPECT_NEAR(w.view->ScaleWidth(app::Ctl::frmMain), app::kClientWidth, 15);
    EXPECT_NEAR(w.view->ScaleHeight(app::Ctl::frmMain), app::kClientHeight, 15);
}

TEST(Win32NativeWindow, ListColumnsKeepTheirDesignedWidths) {
    using app::Ctl;
    ShownWindow w;
    ASSERT_NE(w.view, nullptr);
    std::vector<int> widths;
    for (const auto& column : app::ListViewColumns()) {
        w.view->AddColumn(Ctl::ListView1, std::string(column.caption), column.width);
        widths.push_back(column.width);
    }
    ASSERT_EQ(widths, (std::vector<int>{760, 2320, 1000}));
    // A caption wider than its column does not widen it.
    w.view->AddColumn(Ctl::ListView1, "A caption far wider than its column", 300);
    widths.push_back(300);
    const auto check = [&](const char* when) {
        for (std::size_t i = 0; i < widths.size(); ++i)
            EXPECT_EQ(ListView_GetColumnWidth(w.list(), static_cast<int>(i)), win32::TwipsToPixels(widths[i]))
                << "column " << i << " " << when;
    };
    check("after adding");
    // Rows far wider than the columns, then a refill with short ones.
    for (int round = 0; round < 2; ++round) {
        w.view->ClearItems(Ctl::ListView1);
        for (const char* root : {"C:\\", "E:\\", "F:\\"}) {
            const int item = w.view->AddItem(Ctl::ListView1, root);
            w.view->SetSubItem(Ctl::ListView1, item, 1, round == 0 ? std::string(80, 'W') : "STICK");
            w.view->SetSubItem(Ctl::ListView1, item, 2, round == 0 ? std::string(40, 'W') : "Fixed");
        }
        check(round == 0 ? "after long rows" : "after a refill");
    }
}

// Sends a key to the drive list with the given modifiers held.
LRESULT SendKey(HWND list, UINT message, WPARAM key, bool shift, bool ctrl, bool alt) {
    BYTE keys[256]{};
    ::GetKeyboardState(keys);
    keys[VK_SHIFT] = shift ? 0x80 : 0;
    keys[VK_CONTROL] = ctrl ? 0x80 : 0;
    keys[VK_MENU] = alt ? 0x80 : 0;
    ::SetKeyboardState(keys);
    const LPARAM flags = alt ? (1 << 29) : 0; // the context code of a key with Alt held
    const LRESULT result = ::SendMessageA(list, message, key, flags | 1);
    keys[VK_SHIFT] = keys[VK_CONTROL] = keys[VK_MENU] = 0;
    ::SetKeyboardState(keys);
    return result;
}

TEST(Win32NativeWindow, ListKeysReachTheLogicWithAnyModifiersAltIncluded) {
    ShownWindow w;
    ASSERT_NE(w.view, nullptr);
    SendKey(w.list(), WM_KEYDOWN, VK_DELETE, false, false, false);
    SendKey(w.list(), WM_KEYDOWN, VK_RETURN, true, true, false);
    // With Alt held the system sends the keys as system keys.
    SendKey(w.list(), WM_SYSKEYDOWN, VK_DELETE, false, false, true);
    SendKey(w.list(), WM_SYSKEYDOWN, VK_F2, true, true, true);
    SendKey(w.list(), WM_SYSKEYUP, VK_DELETE, false, false, true);
    EXPECT_EQ(w.events.seen,
              (std::vector<std::string>{"keydown ListView1 46 0", "keydown ListView1 13 3", "keydown ListView1 46 4",
                                        "keydown ListView1 113 7", "keyup ListView1 4"}));
}

TEST(Win32NativeWindow, TheSessionEndingRunsTheCloseRequestAndARefusalHoldsItBack) {
    ShownWindow w;
    ASSERT_NE(w.view, nullptr);
    w.events.refuse = true;
    EXPECT_EQ(::SendMessageA(w.main(), WM_QUERYENDSESSION, 0, 0), FALSE);
    EXPECT_EQ(w.events.seen, (std::vector<std::string>{"session"}));
    w.events.refuse = false;
    EXPECT_NE(::SendMessageA(w.main(), WM_QUERYENDSESSION, 0, ENDSESSION_LOGOFF), FALSE);
    EXPECT_EQ(w.events.seen.size(), 2u);
    // The end itself: the close runs when the session really ends, not when it goes on.
    ::SendMessageA(w.main(), WM_ENDSESSION, FALSE, 0);
    EXPECT_EQ(w.events.seen.size(), 2u);
    ::SendMessageA(w.main(), WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(w.events.seen, (std::vector<std::string>{"session", "session", "session"}));
    EXPECT_TRUE(::IsWindow(w.main()));
}

// --- the logic on the window and the system ---

// The window system with its message boxes written down instead of shown.
class QuietWindows : public platform::WindowSystemPassThrough {
public:
    using WindowSystemPassThrough::WindowSystemPassThrough;
    std::vector<std::string> boxes;
    std::int32_t MessageBoxA(platform::WindowHandle, const std::string& text, const std::string&,
                             std::uint32_t) override {
        boxes.push_back(text);
        return 1;
    }
};

// The program's objects on this machine, in the main window, without the form.
struct ProgramOnWindow {
    win32::Backend backend;
    QuietWindows windows{backend.windows};
    platform::Services services{backend.app,        backend.volumes, backend.profile, windows,
                                backend.shell,      backend.fso,     backend.storage, backend.devices,
                                backend.management, backend.native};
    std::unique_ptr<win32::NativeWindow> view =
        win32::NativeWindow::Create(backend.windows, backend.app.HiddenWindow());
    std::unique_ptr<app::Program> prog = view ? std::make_unique<app::Program>(services, *view) : nullptr;
};

TEST(Win32Subclass, AFailureNamesTheSystemsErrorNumberAndText) {
    ProgramOnWindow p;
    ASSERT_NE(p.prog, nullptr);
    HWND gone = MakeWindow();
    ::DestroyWindow(gone);
    const auto window = win32::FromHwnd(gone);
    EXPECT_EQ(
        p.backend.windows.SetWindowLongA(window, platform::kGwlWndProc, reinterpret_cast<std::intptr_t>(&FirstProc)),
        0);
    const std::uint32_t number = p.backend.windows.LastError();
    EXPECT_NE(number, 0u) << "the system keeps why it failed";
    const std::string text = p.backend.windows.ErrorText(number);
    EXPECT_FALSE(text.empty());
    EXPECT_NE(text.back(), '\n');
    EXPECT_EQ(p.backend.windows.ErrorText(0), "");

    EXPECT_FALSE(notify::SubclassWindow(*p.prog, window, reinterpret_cast<std::intptr_t>(&notify::ShellNotifyProc)));
    char hex[32];
    std::snprintf(hex, sizeof hex, "%llX", static_cast<unsigned long long>(window));
    ASSERT_EQ(p.windows.boxes.size(), 1u);
    EXPECT_EQ(p.windows.boxes[0], std::string("Error subclassing window &H") + hex + "\r\n\r\nErr# " +
                                      std::to_string(number) + ": " + text);
}

// Every drive event and row click loads Connect.ico afresh; the tray keeps
// one picture and gives the one it replaces back.
TEST(Win32Tray, PicturesAreGivenBackSoNoHandleGrowsWithEventsAndClicks) {
    ProgramOnWindow p;
    ASSERT_NE(p.prog, nullptr);
    ASSERT_TRUE(std::filesystem::exists(p.backend.app.Path() + "\\Connect.ico")) << "copied beside the tests";
    app::Program& prog = *p.prog;
    prog.gTray = std::make_unique<ui::cTray>(prog);
    prog.gDrive = std::make_unique<drives::cDrive>(prog);
    for (const auto& [text, power] : {std::pair{"GB", 3}, std::pair{"MB", 2}}) {
        p.view->AddListItem(app::Ctl::cmbSize, text);
        p.view->SetItemData(app::Ctl::cmbSize, p.view->ListCount(app::Ctl::cmbSize) - 1, power);
    }
    const DWORD userObjects = ::GetGuiResources(::GetCurrentProcess(), GR_USEROBJECTS);
    for (int i = 0; i < 40; ++i) {
        prog.gDrive->mp_GetDriveTyps(); // as after an arrival
        std::string first = prog.gDrive->p_GetDriveLetters("0");
        prog.gDrive->ChooseUSB_Info(first);
        std::string clicked = "C:\\"; // as a click on a row
        prog.gDrive->ChooseUSB_Info(clicked);
    }
    EXPECT_EQ(p.backend.windows.LoadedPictures(), 1u);
    EXPECT_NE(prog.gTray->TrayIcon_Icon(), 0u);
    EXPECT_LE(::GetGuiResources(::GetCurrentProcess(), GR_USEROBJECTS), userObjects + 2);
    prog.gTray.reset();
    EXPECT_EQ(p.backend.windows.LoadedPictures(), 0u);
    EXPECT_TRUE(p.windows.boxes.empty()) << (p.windows.boxes.empty() ? "" : p.windows.boxes[0]);
}

} // namespace
