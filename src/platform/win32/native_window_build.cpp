// Building the native window from the form table: window classes, fonts and
// brushes, the picture box's GDI surface, every control's system window where
// its twips say, and the menu bar.
#include <windowsx.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "platform/win32/native_window_impl.h"
#include "platform/win32/resource_ids.h"

namespace win32 {

using app::Ctl;
using app::Kind;

int SystemDpi() {
    static const int dpi = [] {
        HDC dc = ::GetDC(nullptr);
        const int value = dc != nullptr ? ::GetDeviceCaps(dc, LOGPIXELSY) : 96;
        if (dc != nullptr) ::ReleaseDC(nullptr, dc);
        return static_cast<int>(portable::UsableDpi(value));
    }();
    return dpi;
}

int TwipsToPixels(double twips) { return portable::TwipsToPixels(twips, SystemDpi()); }

double PixelsToTwips(int pixels) { return portable::PixelsToTwips(pixels, SystemDpi()); }

namespace {

int CALLBACK FaceFound(const LOGFONTA*, const TEXTMETRICA*, DWORD, LPARAM found) {
    *reinterpret_cast<bool*>(found) = true;
    return 0;
}

bool FaceInstalled(const std::string& face) {
    HDC dc = ::GetDC(nullptr);
    LOGFONTA query{};
    query.lfCharSet = DEFAULT_CHARSET;
    face.copy(query.lfFaceName, LF_FACESIZE - 1);
    bool found = false;
    ::EnumFontFamiliesExA(dc, &query, &FaceFound, reinterpret_cast<LPARAM>(&found), 0);
    ::ReleaseDC(nullptr, dc);
    return found;
}

// The face the layout names, or the nearest one the system has.
std::string UsableFace(std::string_view wanted) {
    static std::map<std::string, std::string, std::less<>> chosen;
    if (auto it = chosen.find(wanted); it != chosen.end()) return it->second;
    std::string face;
    for (const char* candidate : {"", "Segoe UI", "Tahoma", "MS Shell Dlg 2"}) {
        const std::string name = *candidate != '\0' ? candidate : std::string(wanted);
        if (!name.empty() && FaceInstalled(name)) {
            face = name;
            break;
        }
    }
    chosen.emplace(std::string(wanted), face);
    return face;
}

} // namespace

// Fonts by face, size and weight, created once and kept for the process.
HFONT FontFor(const app::Font& font) {
    static std::map<std::tuple<std::string, int, bool>, HFONT> fonts;
    const std::string face = UsableFace(font.face);
    const int height = -static_cast<int>(std::lround(font.size * SystemDpi() / 72.0));
    const auto key = std::make_tuple(face, height, font.bold);
    if (auto it = fonts.find(key); it != fonts.end()) return it->second;
    HFONT made = ::CreateFontA(height, 0, 0, 0, font.bold ? FW_BOLD : FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                               OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH | FF_SWISS,
                               face.c_str());
    fonts.emplace(key, made);
    return made;
}

HBRUSH BrushFor(COLORREF colour) {
    static std::map<COLORREF, HBRUSH> brushes;
    if (auto it = brushes.find(colour); it != brushes.end()) return it->second;
    HBRUSH made = ::CreateSolidBrush(colour);
    brushes.emplace(colour, made);
    return made;
}

HICON LoadIconOfSize(int id, int size) {
    return static_cast<HICON>(
        ::LoadImageA(::GetModuleHandleA(nullptr), MAKEINTRESOURCEA(id), IMAGE_ICON, size, size, LR_DEFAULTCOLOR));
}

std::string WindowText(HWND hwnd) {
    const int n = ::GetWindowTextLengthA(hwnd);
    std::string text(static_cast<std::size_t>(std::max(n, 0)) + 1, '\0');
    const int got = ::GetWindowTextA(hwnd, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(std::max(got, 0)));
    return text;
}

// --- the picture box's drawing surface ---

GdiSurface::GdiSurface(HWND box, float scaleWidth, float scaleHeight, COLORREF back, HFONT font)
    : SurfaceState(scaleWidth, scaleHeight), box_(box), back_(back) {
    HDC screen = ::GetDC(nullptr);
    dc_ = ::CreateCompatibleDC(screen);
    width_ = std::max(1, TwipsToPixels(scaleWidth));
    height_ = std::max(1, TwipsToPixels(scaleHeight));
    bitmap_ = ::CreateCompatibleBitmap(screen, width_, height_);
    ::ReleaseDC(nullptr, screen);
    oldBitmap_ = ::SelectObject(dc_, bitmap_);
    oldFont_ = ::SelectObject(dc_, font);
    ::SetBkMode(dc_, TRANSPARENT);
    Cls();
}

GdiSurface::~GdiSurface() {
    ::SelectObject(dc_, oldFont_);
    ::SelectObject(dc_, oldBitmap_);
    ::DeleteObject(bitmap_);
    ::DeleteDC(dc_);
}

void GdiSurface::Cls() {
    RECT all{0, 0, width_, height_};
    ::FillRect(dc_, &all, BrushFor(back_));
    currentX_ = currentY_ = 0;
    changed();
}

void GdiSurface::Line(float x1, float y1, float x2, float y2, std::int32_t colour) {
    RECT box{Px(std::min(x1, x2)), Px(std::min(y1, y2)), Px(std::max(x1, x2)) + 1, Px(std::max(y1, y2)) + 1};
    ::FillRect(dc_, &box, BrushFor(static_cast<COLORREF>(colour) & 0xFFFFFF));
    changed();
}

std::int32_t GdiSurface::Point(float x, float y) const {
    if (x < 0 || y < 0 || x >= scaleWidth_ || y >= scaleHeight_) return -1;
    const COLORREF c = ::GetPixel(dc_, Px(x), Px(y));
    return c == CLR_INVALID ? -1 : static_cast<std::int32_t>(c);
}

void GdiSurface::Print(const std::string& text) {
    ::SetTextColor(dc_, fore_);
    ::TextOutA(dc_, Px(currentX_), Px(currentY_), text.c_str(), static_cast<int>(text.size()));
    currentY_ += TextHeight(text);
    currentX_ = 0;
    changed();
}

SIZE GdiSurface::Extent(const std::string& text) const {
    SIZE size{};
    const std::string measured = text.empty() ? std::string(" ") : text;
    ::GetTextExtentPoint32A(dc_, measured.c_str(), static_cast<int>(measured.size()), &size);
    if (text.empty()) size.cx = 0;
    return size;
}

// --- the window ---

namespace {

bool RegisterClasses(HINSTANCE instance) {
    static bool done = false;
    if (done) return true;
    WNDCLASSEXA wc{};
    wc.cbSize = sizeof wc;
    wc.hInstance = instance;
    wc.hCursor = ::LoadCursorA(nullptr, MAKEINTRESOURCEA(32512)); // IDC_ARROW

    wc.lpfnWndProc = &Window::MainProc;
    wc.lpszClassName = kMainClass;
    wc.hIcon = LoadIconOfSize(IDI_KESTRINE, ::GetSystemMetrics(SM_CXICON));
    wc.hIconSm = LoadIconOfSize(IDI_KESTRINE, ::GetSystemMetrics(SM_CXSMICON));
    wc.hbrBackground = BrushFor(ToColorRef(app::kWindowColor));
    if (::RegisterClassExA(&wc) == 0) return false;

    wc.hIcon = wc.hIconSm = nullptr;
    wc.hbrBackground = nullptr;
    wc.lpfnWndProc = &Window::FrameProc;
    wc.lpszClassName = kFrameClass;
    if (::RegisterClassExA(&wc) == 0) return false;
    wc.lpfnWndProc = &Window::PaintProc;
    wc.lpszClassName = kPictureClass;
    if (::RegisterClassExA(&wc) == 0) return false;
    wc.lpfnWndProc = &Window::PaintProc;
    wc.lpszClassName = kImageClass;
    if (::RegisterClassExA(&wc) == 0) return false;
    done = true;
    return true;
}

} // namespace

std::unique_ptr<NativeWindow> NativeWindow::Create(WindowSystem& windows, platform::WindowHandle hiddenWindow) {
    auto window = std::make_unique<Window>(windows, ToHwnd(hiddenWindow));
    if (!window->build()) return nullptr;
    Window* self = window.get();
    windows.SetMessageFilter([self](void* msg) { return self->FilterMessage(*static_cast<MSG*>(msg)); });
    return window;
}

// --- building ---

Window::~Window() {
    windows_.SetMessageFilter(nullptr);
    if (main_ != nullptr) {
        ::SetWindowLongPtrA(main_, GWLP_USERDATA, 0);
        ::DestroyWindow(main_);
    }
    for (auto& c : controls_) {
        if (c.icon != nullptr) ::DestroyIcon(c.icon);
        if (c.bitmap != nullptr) ::DeleteObject(c.bitmap);
    }
    if (bigIcon_ != nullptr) ::DestroyIcon(bigIcon_);
    if (smallIcon_ != nullptr) ::DestroyIcon(smallIcon_);
}

bool Window::build() {
    HINSTANCE instance = ::GetModuleHandleA(nullptr);
    INITCOMMONCONTROLSEX icc{sizeof icc, ICC_LISTVIEW_CLASSES | ICC_STANDARD_CLASSES | ICC_TAB_CLASSES};
    ::InitCommonControlsEx(&icc);
    if (!RegisterClasses(instance)) return false;

    const auto& form = app::Spec(Ctl::frmMain);
    main_ = ::CreateWindowExA(WS_EX_CONTROLPARENT, kMainClass, std::string(form.caption).c_str(),
                              WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_CLIPCHILDREN, CW_USEDEFAULT,
                              CW_USEDEFAULT, TwipsToPixels(form.width), TwipsToPixels(form.height), nullptr, nullptr,
                              instance, nullptr);
    if (main_ == nullptr) return false;
    ::SetWindowLongPtrA(main_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    // The client area is worked out again, now by the window's own procedure.
    ::SetWindowPos(main_, nullptr, 0, 0, 0, 0,
                   SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_FRAMECHANGED);
    at(Ctl::frmMain).hwnd = main_;
    state(Ctl::frmMain).visible = false;
    bigIcon_ = LoadIconOfSize(IDI_KESTRINE, ::GetSystemMetrics(SM_CXICON));
    smallIcon_ = LoadIconOfSize(IDI_KESTRINE, ::GetSystemMetrics(SM_CXSMICON));
    ::SendMessageA(main_, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(bigIcon_));
    ::SendMessageA(main_, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(smallIcon_));

    tooltip_ = ::CreateWindowExA(WS_EX_TOPMOST, TOOLTIPS_CLASSA, nullptr, WS_POPUP | TTS_ALWAYSTIP, CW_USEDEFAULT,
                                 CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, main_, nullptr, instance, nullptr);

    // Table order puts every container before what it holds.
    for (const auto& row : app::FormTable())
        if (row.id != Ctl::frmMain) at(row.id).hwnd = createControl(row);
    buildMenuBar();
    keepHiddenBelow();
    return true;
}

namespace {

// The class, style and extended style of a control's system window; no class
// for menus, timers and the other non-visual controls.
struct WindowStyle {
    const char* cls = nullptr;
    DWORD style = 0;
    DWORD ex = 0;
};

WindowStyle StyleOf(const app::ControlSpec& spec) {
    switch (spec.kind) {
    case Kind::Frame:
        return {kFrameClass, WS_CLIPCHILDREN, WS_EX_CONTROLPARENT};
    case Kind::ListView:
        return {WC_LISTVIEWA, WS_TABSTOP | LVS_REPORT | LVS_SHOWSELALWAYS, WS_EX_CLIENTEDGE};
    case Kind::Button: {
        const DWORD face = spec.pictureSize > 0 || spec.backColor ? BS_OWNERDRAW : BS_PUSHBUTTON;
        return {"BUTTON", WS_TABSTOP | face};
    }
    case Kind::Label: {
        DWORD style = spec.align == app::Align::Right    ? SS_RIGHT
                      : spec.align == app::Align::Center ? SS_CENTER
                                                         : SS_LEFT;
        if (spec.border) style |= WS_BORDER;
        return {"STATIC", style};
    }
    case Kind::TextBox: {
        DWORD style = WS_TABSTOP | ES_AUTOHSCROLL | ES_LEFT;
        if (spec.id == Ctl::Text1) style |= ES_MULTILINE | ES_AUTOVSCROLL | WS_VSCROLL | WS_HSCROLL;
        return {"EDIT", style};
    }
    case Kind::ComboBox:
    case Kind::DriveListBox:
        return {"COMBOBOX", WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST};
    case Kind::ListBox:
        return {"LISTBOX", WS_VSCROLL | LBS_NOTIFY | LBS_NOINTEGRALHEIGHT, WS_EX_CLIENTEDGE};
    case Kind::PictureBox:
        return {kPictureClass};
    case Kind::Image:
        return {kImageClass};
    default:
        return {};
    }
}

} // namespace

HWND Window::createControl(const app::ControlSpec& row) {
    const WindowStyle made = StyleOf(row);
    if (made.cls == nullptr) return nullptr;
    const portable::ControlState& s = state(row.id);
    const DWORD style =
        WS_CHILD | WS_CLIPSIBLINGS | (s.visible ? WS_VISIBLE : 0u) | (s.enabled ? 0u : WS_DISABLED) | made.style;
    const std::string caption(row.caption);
    const int id = kControlIdBase + static_cast<int>(row.id);
    HWND hwnd =
        ::CreateWindowExA(made.ex, made.cls, caption.c_str(), style, 0, 0, 1, 1, parentOf(row.id),
                          reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), ::GetModuleHandleA(nullptr), nullptr);
    if (hwnd == nullptr) return nullptr;
    ::SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    if (row.kind != Kind::Image && row.kind != Kind::Frame)
        ::SendMessageA(hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(FontFor(portable::FontOf(row.id))), FALSE);
    at(row.id).hwnd = hwnd;
    place(row.id);
    dressControl(row, hwnd);
    addToolTip(row, hwnd);
    return hwnd;
}

// What a kind of control needs once its window is there: colours, pictures, a surface.
void Window::dressControl(const app::ControlSpec& spec, HWND hwnd) {
    Control& own = at(spec.id);
    switch (spec.kind) {
    case Kind::ListView:
        ListView_SetExtendedListViewStyle(hwnd, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER | LVS_EX_LABELTIP);
        ListView_SetBkColor(hwnd, BackColorOf(spec.id));
        ListView_SetTextBkColor(hwnd, BackColorOf(spec.id));
        ::SetWindowSubclass(hwnd, &Window::ListProc, 1, reinterpret_cast<DWORD_PTR>(this));
        break;
    case Kind::Button:
        if (spec.pictureSize > 0) {
            const int icon = spec.pictureSize >= 48 ? IDI_RELEASE : spec.pictureSize >= 32 ? IDI_QUIT : IDI_CENTRE;
            own.icon = LoadIconOfSize(icon, spec.pictureSize);
        }
        break;
    case Kind::Image:
        if (spec.id == Ctl::imgReleased)
            own.bitmap = static_cast<HBITMAP>(::LoadImageA(::GetModuleHandleA(nullptr), MAKEINTRESOURCEA(IDB_RELEASED),
                                                           IMAGE_BITMAP, 0, 0, LR_DEFAULTCOLOR));
        else
            own.icon = LoadIconOfSize(spec.id == Ctl::imgNotify ? IDI_RELEASING : IDI_UNLOADING, spec.pictureWidth);
        break;
    case Kind::TextBox:
        ::SendMessageA(hwnd, EM_SETLIMITTEXT, 0, 0); // as much text as the system allows
        break;
    case Kind::PictureBox:
        own.surface =
            std::make_unique<GdiSurface>(hwnd, static_cast<float>(spec.width), static_cast<float>(spec.height),
                                         BackColorOf(spec.id), FontFor(portable::FontOf(spec.id)));
        break;
    default:
        break;
    }
}

void Window::addToolTip(const app::ControlSpec& spec, HWND hwnd) {
    if (spec.toolTip.empty() || tooltip_ == nullptr) return;
    const std::string tip(spec.toolTip);
    TTTOOLINFOA tool{};
    tool.cbSize = sizeof tool;
    tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    tool.hwnd = main_;
    tool.uId = reinterpret_cast<UINT_PTR>(hwnd);
    tool.lpszText = const_cast<char*>(tip.c_str());
    ::SendMessageA(tooltip_, TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&tool));
}

// Puts a control's window where its twips say.
void Window::place(Ctl c) {
    HWND hwnd = at(c).hwnd;
    if (hwnd == nullptr || c == Ctl::frmMain) return;
    const portable::ControlState& s = state(c);
    int height = TwipsToPixels(s.height);
    if (isCombo(c)) height += kComboDropPixels; // the closed box keeps its own height
    ::SetWindowPos(hwnd, nullptr, TwipsToPixels(s.left), TwipsToPixels(s.top), TwipsToPixels(s.width), height,
                   SWP_NOZORDER | SWP_NOACTIVATE);
}

void Window::buildMenuBar() {
    HMENU bar = ::CreateMenu();
    for (const auto& spec : app::FormTable()) {
        const portable::ControlState& s = state(spec.id);
        if (spec.kind != Kind::Menu || spec.container != Ctl::frmMain || !s.visible) continue;
        const UINT flags = MF_STRING | (s.enabled ? MF_ENABLED : MF_GRAYED);
        ::AppendMenuA(bar, flags, static_cast<UINT_PTR>(kMenuIdBase + static_cast<int>(spec.id)), s.text.c_str());
    }
    HMENU old = ::GetMenu(main_);
    ::SetMenu(main_, bar);
    if (old != nullptr) ::DestroyMenu(old);
    menuBar_ = bar;
    ::DrawMenuBar(main_);
}

// The hidden application window sits just below the main window, so another
// instance finds the main window as the window above it.
void Window::keepHiddenBelow() {
    if (hidden_ == nullptr || main_ == nullptr) return;
    if (::GetWindow(hidden_, GW_HWNDPREV) == main_) return;
    ::SetWindowPos(hidden_, main_, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOOWNERZORDER);
}

void Window::Show() {
    showing_ = true;
    shown_ = true;
    if (events_) events_->Resize();
    state(Ctl::frmMain).visible = true;
    ::ShowWindow(main_, SW_SHOWNORMAL);
    ::UpdateWindow(main_);
    ::SetForegroundWindow(main_);
    if (HWND list = at(Ctl::ListView1).hwnd; list != nullptr && state(Ctl::ListView1).visible) ::SetFocus(list);
    keepHiddenBelow();
    showing_ = false;
    if (events_) events_->Activate();
}

Ctl Window::controlOf(HWND hwnd) const {
    for (std::size_t i = 0; i < controls_.size(); ++i)
        if (controls_[i].hwnd == hwnd && hwnd != nullptr) return static_cast<Ctl>(i);
    return Ctl::Count_;
}

} // namespace win32
