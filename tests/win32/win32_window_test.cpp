// The Win32 backend's window services: the hidden application window and the
// instance guard, the window-procedure chain, properties, the shell's change
// registration, and the native window's control semantics.
#include "platform/win32/raii.h"
// The backend's header before any other boundary header: it clears a macro of <windows.h>.
#include "platform/win32/backend.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <string>
#include <vector>

#include "platform/win32/native_window.h"

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

TEST(Win32Shell, ChangeReportsRegisterForTheDesktopAndItsItemsCanBeRead) {
    win32::Shell shell;
    HWND hwnd = MakeWindow();
    platform::Pidl desktop = 0;
    ASSERT_EQ(shell.SHGetSpecialFolderLocation(0, platform::kCsidlDesktop, desktop), 0);
    ASSERT_NE(desktop, 0u);
    // Every source and event, recursively, as the program registers.
    EXPECT_NE(
        shell.SHChangeNotifyRegister(win32::FromHwnd(hwnd), 0x3, 0x7FFFFFFF, platform::kWmShNotify, desktop, true), 0u);

    std::array<std::uint8_t, 352> info{};
    EXPECT_NE(shell.SHGetFileInfoA(desktop, 0, info, platform::kShgfiPidl | platform::kShgfiDisplayName), 0u);
    EXPECT_NE(info[12], 0) << "a display name at offset 12";

    // Reading the program's own memory by address; an address of nothing fails.
    const std::array<std::uint8_t, 4> source{1, 2, 3, 4};
    std::array<std::uint8_t, 4> copy{};
    EXPECT_TRUE(shell.CopyMemory(copy, reinterpret_cast<std::uintptr_t>(source.data())));
    EXPECT_EQ(copy, source);
    EXPECT_FALSE(shell.CopyMemory(copy, 0));
    ::CoTaskMemFree(reinterpret_cast<void*>(desktop));
    ::DestroyWindow(hwnd);
}

// --- the native window ---

struct Recorder : app::ViewEvents {
    std::vector<std::string> seen;
    void Click(app::Ctl c) override { seen.push_back("click " + std::string(app::Spec(c).name)); }
    void DblClick(app::Ctl) override {}
    void Change(app::Ctl c) override { seen.push_back("change " + std::string(app::Spec(c).name)); }
    void KeyDown(app::Ctl, std::int16_t&, std::int16_t) override {}
    void KeyUp(app::Ctl, std::int16_t&, std::int16_t) override {}
    void MouseUp(app::Ctl, std::int16_t, std::int16_t, float, float) override {}
    void Validate(app::Ctl, bool&) override {}
    void Tick(app::Ctl) override {}
    void Resize() override { seen.push_back("resize"); }
    void Activate() override { seen.push_back("activate"); }
    void CloseRequested() override { seen.push_back("close"); }
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

} // namespace
