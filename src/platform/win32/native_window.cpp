// The main window rendered with native Windows controls from the form table.
#include "platform/win32/raii.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "platform/win32/native_window.h"
#include "platform/win32/resource_ids.h"

namespace win32 {

using app::Ctl;
using app::Kind;

namespace {

constexpr const char* kMainClass = "KestrineMain";
constexpr const char* kFrameClass = "KestrineFrame";
constexpr const char* kPictureClass = "KestrinePicture";
constexpr const char* kImageClass = "KestrineImage";
constexpr int kControlIdBase = 100; // control i has id 100 + i
constexpr int kMenuIdBase = 1000;   // menu entry i has command 1000 + i
constexpr int kComboDropPixels = 160;
constexpr int kFrameEdgeTop = 6; // the etched edge of a frame starts this far down

int SystemDpi() {
    static const int dpi = [] {
        HDC dc = ::GetDC(nullptr);
        const int value = dc != nullptr ? ::GetDeviceCaps(dc, LOGPIXELSY) : 96;
        if (dc != nullptr) ::ReleaseDC(nullptr, dc);
        return value > 0 ? value : 96;
    }();
    return dpi;
}

COLORREF ToColorRef(app::Rgb c) { return RGB(c.r, c.g, c.b); }

std::size_t Index(Ctl c) { return static_cast<std::size_t>(c); }

bool IsMenu(Ctl c) { return app::Spec(c).kind == Kind::Menu; }

// A control's own background colour or its container's.
COLORREF BackColorOf(Ctl c) {
    for (;;) {
        const auto& spec = app::Spec(c);
        if (spec.backColor) return ToColorRef(*spec.backColor);
        if (c == Ctl::frmMain || spec.container == c) break;
        c = spec.container;
    }
    return ToColorRef(app::kWindowColor);
}

// A control's own font or its container's.
app::Font FontOf(Ctl c) {
    for (;;) {
        const auto& spec = app::Spec(c);
        if (spec.font.size > 0) return spec.font;
        if (c == Ctl::frmMain || spec.container == c) return app::Spec(Ctl::frmMain).font;
        c = spec.container;
    }
}

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

// --- the picture box's drawing surface ---

// Draws into a bitmap of the box's size; the box paints from it. Coordinates
// are twips from the top-left of the box.
class GdiSurface : public app::SurfaceState {
public:
    GdiSurface(HWND box, float scaleWidth, float scaleHeight, COLORREF back, HFONT font)
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
    ~GdiSurface() override {
        ::SelectObject(dc_, oldFont_);
        ::SelectObject(dc_, oldBitmap_);
        ::DeleteObject(bitmap_);
        ::DeleteDC(dc_);
    }
    GdiSurface(const GdiSurface&) = delete;
    GdiSurface& operator=(const GdiSurface&) = delete;

    void PaintTo(HDC target) const { ::BitBlt(target, 0, 0, width_, height_, dc_, 0, 0, SRCCOPY); }

    std::int32_t ForeColor() const override { return static_cast<std::int32_t>(fore_); }
    void SetForeColor(std::int32_t colour) override { fore_ = static_cast<COLORREF>(colour) & 0xFFFFFF; }
    std::int32_t BackColor() const override { return static_cast<std::int32_t>(back_); }

    void Cls() override {
        RECT all{0, 0, width_, height_};
        ::FillRect(dc_, &all, BrushFor(back_));
        currentX_ = currentY_ = 0;
        changed();
    }
    void Line(float x1, float y1, float x2, float y2, std::int32_t colour) override {
        RECT box{Px(std::min(x1, x2)), Px(std::min(y1, y2)), Px(std::max(x1, x2)) + 1, Px(std::max(y1, y2)) + 1};
        ::FillRect(dc_, &box, BrushFor(static_cast<COLORREF>(colour) & 0xFFFFFF));
        changed();
    }
    std::int32_t Point(float x, float y) const override {
        if (x < 0 || y < 0 || x >= scaleWidth_ || y >= scaleHeight_) return -1;
        const COLORREF c = ::GetPixel(dc_, Px(x), Px(y));
        return c == CLR_INVALID ? -1 : static_cast<std::int32_t>(c);
    }
    float TextWidth(const std::string& text) const override { return static_cast<float>(Extent(text).cx * Twips()); }
    float TextHeight(const std::string& text) const override { return static_cast<float>(Extent(text).cy * Twips()); }
    void Print(const std::string& text) override {
        ::SetTextColor(dc_, fore_);
        ::TextOutA(dc_, Px(currentX_), Px(currentY_), text.c_str(), static_cast<int>(text.size()));
        currentY_ += TextHeight(text);
        currentX_ = 0;
        changed();
    }

private:
    static int Px(float twips) { return static_cast<int>(std::floor(twips * SystemDpi() / 1440.0f)); }
    static double Twips() { return 1440.0 / SystemDpi(); }
    SIZE Extent(const std::string& text) const {
        SIZE size{};
        const std::string measured = text.empty() ? std::string(" ") : text;
        ::GetTextExtentPoint32A(dc_, measured.c_str(), static_cast<int>(measured.size()), &size);
        if (text.empty()) size.cx = 0;
        return size;
    }
    void changed() { ::InvalidateRect(box_, nullptr, FALSE); }

    HWND box_;
    COLORREF back_;
    COLORREF fore_ = 0;
    HDC dc_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HGDIOBJ oldBitmap_ = nullptr, oldFont_ = nullptr;
    int width_ = 1, height_ = 1;
};

// --- the window ---

class Window final : public NativeWindow {
public:
    Window(WindowSystem& windows, HWND hidden) : windows_(windows), hidden_(hidden), controls_(app::kControlCount) {}
    ~Window() override;

    bool build();

    // NativeWindow
    void Show() override;
    platform::WindowHandle ControlWindow(Ctl c) const override { return FromHwnd(at(c).hwnd); }

    // View
    void SetEvents(app::ViewEvents* events) override { events_ = events; }
    platform::WindowHandle hWnd() const override { return FromHwnd(main_); }
    platform::WindowHandle ControlHandle(Ctl c) const override {
        return app::Spec(c).kind == Kind::ListView ? FromHwnd(at(c).hwnd) : 0;
    }
    std::string Text(Ctl c) const override;
    void SetText(Ctl c, const std::string& text) override;
    bool Enabled(Ctl c) const override { return at(c).enabled; }
    void SetEnabled(Ctl c, bool enabled) override;
    bool Visible(Ctl c) const override { return at(c).visible; }
    void SetVisible(Ctl c, bool visible) override;
    double Left(Ctl c) const override;
    double Top(Ctl c) const override;
    double Width(Ctl c) const override;
    double Height(Ctl c) const override;
    void SetLeft(Ctl c, double twips) override;
    void SetTop(Ctl c, double twips) override;
    void SetWidth(Ctl c, double twips) override;
    void SetHeight(Ctl c, double twips) override;
    double ScaleWidth(Ctl c) const override;
    double ScaleHeight(Ctl c) const override;
    int WindowState() const override;
    void SetWindowState(int state) override;

    void AddColumn(Ctl list, const std::string& caption, int widthTwips) override;
    int ColumnCount(Ctl list) const override;
    void ClearItems(Ctl list) override;
    int AddItem(Ctl list, const std::string& text) override;
    int ItemCount(Ctl list) const override;
    bool SetItemText(Ctl list, int item, const std::string& text) override;
    std::string ItemText(Ctl list, int item) const override { return SubItem(list, item, 0); }
    bool SetSubItem(Ctl list, int item, int sub, const std::string& text) override;
    std::string SubItem(Ctl list, int item, int sub) const override;
    bool SetItemSelected(Ctl list, int item, bool selected) override;
    bool ItemSelected(Ctl list, int item) const override;
    int SelectedItem(Ctl list) const override;
    bool SetSelectedItem(Ctl list, int item) override;

    void AddListItem(Ctl list, const std::string& text) override;
    void ClearList(Ctl list) override;
    int ListCount(Ctl list) const override;
    std::string List(Ctl list, int index) const override;
    int ListIndex(Ctl list) const override;
    bool SetListIndex(Ctl list, int index) override;
    std::int32_t ItemData(Ctl list, int index) const override;
    bool SetItemData(Ctl list, int index, std::int32_t data) override;

    void AppendText(Ctl c, const std::string& text) override;
    int TextLength(Ctl c) const override;
    bool DataChanged(Ctl c) const override { return at(c).dataChanged; }
    void SetDataChanged(Ctl c, bool changed) override { at(c).dataChanged = changed; }
    int SelStart(Ctl c) const override;
    void SetSelStart(Ctl c, int start) override;
    int SelLength(Ctl c) const override;
    void SetSelLength(Ctl c, int length) override;
    void SetFocus(Ctl c) override;
    void Refresh(Ctl c) override;
    void PopupMenu(Ctl menu, Ctl defaultEntry) override;
    app::Surface* Picture(Ctl c) override { return at(c).surface.get(); }

    // Window procedures.
    static LRESULT CALLBACK MainProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK FrameProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK PictureProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK ImageProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK ListProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                                     DWORD_PTR self);
    bool FilterMessage(MSG& msg);

private:
    struct Control {
        HWND hwnd = nullptr;
        double left = 0, top = 0, width = 0, height = 0; // twips, relative to the container
        bool visible = true, enabled = true;
        std::string caption; // labels, buttons, frames, menus
        bool dataChanged = false;
        HICON icon = nullptr;     // buttons and images
        HBITMAP bitmap = nullptr; // images
        std::unique_ptr<GdiSurface> surface;
    };

    Control& at(Ctl c) { return controls_[Index(c)]; }
    const Control& at(Ctl c) const { return controls_[Index(c)]; }
    HWND parentOf(Ctl c) const { return at(app::Spec(c).container).hwnd; }
    Ctl controlOf(HWND hwnd) const;
    bool live() const { return events_ != nullptr && shown_; }

    HWND createControl(const app::ControlSpec& spec);
    void place(Ctl c);
    void buildMenuBar();
    void keepHiddenBelow();
    void setMenuText(Ctl c);
    // What a container hears from its controls (commands, notifications,
    // colours, owner-drawn buttons); false for any other message.
    bool fromControl(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result);
    LRESULT onCommand(WPARAM wParam, LPARAM lParam);
    LRESULT onNotify(NMHDR* header);
    LRESULT onColour(HDC dc, HWND control);
    void drawButton(const DRAWITEMSTRUCT& item);
    void paintFrame(HWND frame);
    bool onMnemonic(char key);
    static int itemIndex(Ctl, int item) { return item - 1; }
    bool validItem(Ctl list, int item) const { return item >= 1 && item <= ItemCount(list); }
    bool isCombo(Ctl c) const {
        const Kind k = app::Spec(c).kind;
        return k == Kind::ComboBox || k == Kind::DriveListBox;
    }

    WindowSystem& windows_;
    HWND hidden_;
    HWND main_ = nullptr;
    HWND tooltip_ = nullptr;
    HMENU menuBar_ = nullptr;
    HICON bigIcon_ = nullptr, smallIcon_ = nullptr;
    std::vector<Control> controls_;
    app::ViewEvents* events_ = nullptr;
    bool shown_ = false;
    bool showing_ = false;
    int settingText_ = 0;      // changes of an edit box made from code under way
    HWND lastFocus_ = nullptr; // the control to give the focus back to
};

Window* FromUserData(HWND hwnd) { return reinterpret_cast<Window*>(::GetWindowLongPtrA(hwnd, GWLP_USERDATA)); }

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
    wc.lpfnWndProc = &Window::PictureProc;
    wc.lpszClassName = kPictureClass;
    if (::RegisterClassExA(&wc) == 0) return false;
    wc.lpfnWndProc = &Window::ImageProc;
    wc.lpszClassName = kImageClass;
    if (::RegisterClassExA(&wc) == 0) return false;
    done = true;
    return true;
}

std::string WindowText(HWND hwnd) {
    const int n = ::GetWindowTextLengthA(hwnd);
    std::string text(static_cast<std::size_t>(std::max(n, 0)) + 1, '\0');
    const int got = ::GetWindowTextA(hwnd, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(std::max(got, 0)));
    return text;
}

} // namespace

int TwipsToPixels(double twips) { return static_cast<int>(std::lround(twips * SystemDpi() / 1440.0)); }

double PixelsToTwips(int pixels) { return pixels * 1440.0 / SystemDpi(); }

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

    for (const auto& spec : app::FormTable()) {
        Control& c = at(spec.id);
        c.left = spec.left;
        c.top = spec.top;
        c.width = spec.width;
        c.height = spec.height;
        c.visible = spec.visible;
        c.enabled = spec.enabled;
        c.caption = std::string(spec.caption);
    }

    const auto& form = app::Spec(Ctl::frmMain);
    main_ = ::CreateWindowExA(WS_EX_CONTROLPARENT, kMainClass, std::string(form.caption).c_str(),
                              WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_CLIPCHILDREN, CW_USEDEFAULT,
                              CW_USEDEFAULT, TwipsToPixels(form.width), TwipsToPixels(form.height), nullptr, nullptr,
                              instance, nullptr);
    if (main_ == nullptr) return false;
    ::SetWindowLongPtrA(main_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    at(Ctl::frmMain).hwnd = main_;
    at(Ctl::frmMain).visible = false;
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

HWND Window::createControl(const app::ControlSpec& spec) {
    HINSTANCE instance = ::GetModuleHandleA(nullptr);
    const Control& c = at(spec.id);
    const char* cls = nullptr;
    DWORD style = WS_CHILD | WS_CLIPSIBLINGS | (c.visible ? WS_VISIBLE : 0u) | (c.enabled ? 0u : WS_DISABLED);
    DWORD ex = 0;
    const std::string caption(spec.caption);
    switch (spec.kind) {
    case Kind::Frame:
        cls = kFrameClass;
        ex = WS_EX_CONTROLPARENT;
        style |= WS_CLIPCHILDREN;
        break;
    case Kind::ListView:
        cls = WC_LISTVIEWA;
        style |= WS_TABSTOP | LVS_REPORT | LVS_SHOWSELALWAYS;
        ex = WS_EX_CLIENTEDGE;
        break;
    case Kind::Button:
        cls = "BUTTON";
        style |= WS_TABSTOP | ((spec.pictureSize > 0 || spec.backColor) ? BS_OWNERDRAW : BS_PUSHBUTTON);
        break;
    case Kind::Label:
        cls = "STATIC";
        style |= spec.align == app::Align::Right ? SS_RIGHT : spec.align == app::Align::Center ? SS_CENTER : SS_LEFT;
        if (spec.border) style |= WS_BORDER;
        break;
    case Kind::TextBox:
        cls = "EDIT";
        style |= WS_TABSTOP | ES_AUTOHSCROLL | ES_LEFT;
        if (spec.id == Ctl::Text1) style |= ES_MULTILINE | ES_AUTOVSCROLL | WS_VSCROLL | WS_HSCROLL;
        break;
    case Kind::ComboBox:
    case Kind::DriveListBox:
        cls = "COMBOBOX";
        style |= WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST;
        break;
    case Kind::ListBox:
        cls = "LISTBOX";
        style |= WS_VSCROLL | LBS_NOTIFY | LBS_NOINTEGRALHEIGHT;
        ex = WS_EX_CLIENTEDGE;
        break;
    case Kind::PictureBox:
        cls = kPictureClass;
        break;
    case Kind::Image:
        cls = kImageClass;
        break;
    default:
        return nullptr; // menus, timers and the other non-visual controls
    }
    const int id = kControlIdBase + static_cast<int>(Index(spec.id));
    HWND hwnd = ::CreateWindowExA(ex, cls, caption.c_str(), style, 0, 0, 1, 1, parentOf(spec.id),
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), instance, nullptr);
    if (hwnd == nullptr) return nullptr;
    ::SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    if (spec.kind != Kind::Image && spec.kind != Kind::Frame)
        ::SendMessageA(hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(FontFor(FontOf(spec.id))), FALSE);
    Control& own = at(spec.id);
    own.hwnd = hwnd;
    place(spec.id);

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
            own.bitmap = static_cast<HBITMAP>(
                ::LoadImageA(instance, MAKEINTRESOURCEA(IDB_RELEASED), IMAGE_BITMAP, 0, 0, LR_DEFAULTCOLOR));
        else
            own.icon = LoadIconOfSize(spec.id == Ctl::imgNotify ? IDI_RELEASING : IDI_UNLOADING, spec.pictureWidth);
        break;
    case Kind::TextBox:
        ::SendMessageA(hwnd, EM_SETLIMITTEXT, 0, 0); // as much text as the system allows
        break;
    case Kind::PictureBox:
        own.surface =
            std::make_unique<GdiSurface>(hwnd, static_cast<float>(spec.width), static_cast<float>(spec.height),
                                         BackColorOf(spec.id), FontFor(FontOf(spec.id)));
        break;
    default:
        break;
    }
    if (!spec.toolTip.empty() && tooltip_ != nullptr) {
        const std::string tip(spec.toolTip);
        TTTOOLINFOA tool{};
        tool.cbSize = sizeof tool;
        tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
        tool.hwnd = main_;
        tool.uId = reinterpret_cast<UINT_PTR>(hwnd);
        tool.lpszText = const_cast<char*>(tip.c_str());
        ::SendMessageA(tooltip_, TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&tool));
    }
    return hwnd;
}

// Puts a control's window where its twips say.
void Window::place(Ctl c) {
    const Control& own = at(c);
    if (own.hwnd == nullptr || c == Ctl::frmMain) return;
    int height = TwipsToPixels(own.height);
    if (isCombo(c)) height += kComboDropPixels; // the closed box keeps its own height
    ::SetWindowPos(own.hwnd, nullptr, TwipsToPixels(own.left), TwipsToPixels(own.top), TwipsToPixels(own.width), height,
                   SWP_NOZORDER | SWP_NOACTIVATE);
}

void Window::buildMenuBar() {
    HMENU bar = ::CreateMenu();
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != Ctl::frmMain || !at(spec.id).visible) continue;
        const UINT flags = MF_STRING | (at(spec.id).enabled ? MF_ENABLED : MF_GRAYED);
        ::AppendMenuA(bar, flags, static_cast<UINT_PTR>(kMenuIdBase + Index(spec.id)), at(spec.id).caption.c_str());
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
    at(Ctl::frmMain).visible = true;
    ::ShowWindow(main_, SW_SHOWNORMAL);
    ::UpdateWindow(main_);
    ::SetForegroundWindow(main_);
    if (HWND list = at(Ctl::ListView1).hwnd; list != nullptr && at(Ctl::ListView1).visible) ::SetFocus(list);
    keepHiddenBelow();
    showing_ = false;
    if (events_) events_->Activate();
}

Ctl Window::controlOf(HWND hwnd) const {
    for (std::size_t i = 0; i < controls_.size(); ++i)
        if (controls_[i].hwnd == hwnd && hwnd != nullptr) return static_cast<Ctl>(i);
    return Ctl::Count_;
}

// --- texts, states and positions ---

std::string Window::Text(Ctl c) const {
    const Kind kind = app::Spec(c).kind;
    const Control& own = at(c);
    if (c == Ctl::frmMain || kind == Kind::TextBox) return WindowText(own.hwnd);
    if (isCombo(c)) return List(c, ListIndex(c));
    return own.caption;
}

void Window::SetText(Ctl c, const std::string& text) {
    const Kind kind = app::Spec(c).kind;
    Control& own = at(c);
    if (kind == Kind::TextBox) {
        if (WindowText(own.hwnd) == text) return;
        ++settingText_;
        ::SetWindowTextA(own.hwnd, text.c_str());
        --settingText_;
        own.dataChanged = true;
        if (events_) events_->Change(c);
        return;
    }
    if (c == Ctl::frmMain) {
        ::SetWindowTextA(main_, text.c_str());
        return;
    }
    if (isCombo(c)) return;
    if (own.caption == text) return;
    own.caption = text;
    if (kind == Kind::Menu) {
        setMenuText(c);
    } else if (own.hwnd != nullptr) {
        ::SetWindowTextA(own.hwnd, text.c_str());
        ::InvalidateRect(own.hwnd, nullptr, TRUE);
    }
}

void Window::setMenuText(Ctl c) {
    if (app::Spec(c).container != Ctl::frmMain) return; // pop-up entries are built when shown
    const auto id = static_cast<UINT>(kMenuIdBase + Index(c));
    ::ModifyMenuA(menuBar_, id, MF_BYCOMMAND | MF_STRING, id, at(c).caption.c_str());
    ::DrawMenuBar(main_);
}

void Window::SetEnabled(Ctl c, bool enabled) {
    Control& own = at(c);
    if (own.enabled == enabled) return;
    own.enabled = enabled;
    if (IsMenu(c)) {
        if (app::Spec(c).container == Ctl::frmMain) {
            ::EnableMenuItem(menuBar_, static_cast<UINT>(kMenuIdBase + Index(c)),
                             MF_BYCOMMAND | (enabled ? MF_ENABLED : MF_GRAYED));
            ::DrawMenuBar(main_);
        }
        return;
    }
    if (own.hwnd != nullptr) ::EnableWindow(own.hwnd, enabled);
}

void Window::SetVisible(Ctl c, bool visible) {
    Control& own = at(c);
    if (own.visible == visible) return;
    own.visible = visible;
    if (IsMenu(c)) {
        if (app::Spec(c).container == Ctl::frmMain) buildMenuBar();
        return;
    }
    if (own.hwnd == nullptr) return;
    if (c == Ctl::frmMain) {
        ::ShowWindow(main_, visible ? SW_SHOW : SW_HIDE);
        return;
    }
    // A notice that appears comes to the front of its siblings.
    ::SetWindowPos(own.hwnd, HWND_TOP, 0, 0, 0, 0,
                   SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | (visible ? SWP_SHOWWINDOW : SWP_HIDEWINDOW));
}

double Window::Left(Ctl c) const {
    if (c != Ctl::frmMain) return at(c).left;
    RECT r{};
    ::GetWindowRect(main_, &r);
    return PixelsToTwips(r.left);
}

double Window::Top(Ctl c) const {
    if (c != Ctl::frmMain) return at(c).top;
    RECT r{};
    ::GetWindowRect(main_, &r);
    return PixelsToTwips(r.top);
}

double Window::Width(Ctl c) const {
    if (c != Ctl::frmMain) return at(c).width;
    RECT r{};
    ::GetWindowRect(main_, &r);
    return PixelsToTwips(r.right - r.left);
}

double Window::Height(Ctl c) const {
    if (c != Ctl::frmMain) return at(c).height;
    RECT r{};
    ::GetWindowRect(main_, &r);
    return PixelsToTwips(r.bottom - r.top);
}

void Window::SetLeft(Ctl c, double twips) {
    if (c == Ctl::frmMain) {
        ::SetWindowPos(main_, nullptr, TwipsToPixels(twips), TwipsToPixels(Top(c)), 0, 0,
                       SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        return;
    }
    at(c).left = twips;
    place(c);
}

void Window::SetTop(Ctl c, double twips) {
    if (c == Ctl::frmMain) {
        ::SetWindowPos(main_, nullptr, TwipsToPixels(Left(c)), TwipsToPixels(twips), 0, 0,
                       SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        return;
    }
    at(c).top = twips;
    place(c);
}

// A change of the window's size reaches the logic as Resize, from WM_SIZE.
void Window::SetWidth(Ctl c, double twips) {
    if (c == Ctl::frmMain) {
        if (::IsIconic(main_)) return;
        RECT r{};
        ::GetWindowRect(main_, &r);
        if (r.right - r.left == TwipsToPixels(twips)) return;
        ::SetWindowPos(main_, nullptr, 0, 0, TwipsToPixels(twips), r.bottom - r.top,
                       SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        return;
    }
    at(c).width = twips;
    place(c);
}

void Window::SetHeight(Ctl c, double twips) {
    if (c == Ctl::frmMain) {
        if (::IsIconic(main_)) return;
        RECT r{};
        ::GetWindowRect(main_, &r);
        if (r.bottom - r.top == TwipsToPixels(twips)) return;
        ::SetWindowPos(main_, nullptr, 0, 0, r.right - r.left, TwipsToPixels(twips),
                       SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
        return;
    }
    at(c).height = twips;
    place(c);
}

double Window::ScaleWidth(Ctl c) const {
    if (c == Ctl::frmMain) {
        RECT r{};
        ::GetClientRect(main_, &r);
        return PixelsToTwips(r.right);
    }
    if (const auto* s = at(c).surface.get()) return s->ScaleWidth();
    return at(c).width;
}

double Window::ScaleHeight(Ctl c) const {
    if (c == Ctl::frmMain) {
        RECT r{};
        ::GetClientRect(main_, &r);
        return PixelsToTwips(r.bottom);
    }
    if (const auto* s = at(c).surface.get()) return s->ScaleHeight();
    return at(c).height;
}

int Window::WindowState() const {
    if (::IsIconic(main_)) return app::kStateMinimized;
    if (::IsZoomed(main_)) return app::kStateMaximized;
    return app::kStateNormal;
}

void Window::SetWindowState(int state) {
    if (WindowState() == state) return;
    ::ShowWindow(main_, state == app::kStateMinimized   ? SW_MINIMIZE
                        : state == app::kStateMaximized ? SW_MAXIMIZE
                                                        : SW_RESTORE);
}

// --- the report-view list ---

void Window::AddColumn(Ctl list, const std::string& caption, int widthTwips) {
    LVCOLUMNA column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    // Never narrower than its caption: a substitute font may be wider than the designed one.
    const int captionWidth = static_cast<int>(::SendMessageA(at(list).hwnd, LVM_GETSTRINGWIDTHA, 0,
                                                             reinterpret_cast<LPARAM>(caption.c_str()))) +
                             16;
    column.cx = std::max(TwipsToPixels(widthTwips), captionWidth);
    column.pszText = const_cast<char*>(caption.c_str());
    column.iSubItem = ColumnCount(list);
    HWND hwnd = at(list).hwnd;
    ::SendMessageA(hwnd, LVM_INSERTCOLUMNA, static_cast<WPARAM>(column.iSubItem), reinterpret_cast<LPARAM>(&column));
    // What a widened caption adds comes off the widest column, so the rows
    // still fit without a horizontal scroll bar.
    RECT client{};
    ::GetClientRect(hwnd, &client);
    const int count = ColumnCount(list);
    int total = 0, widest = 0;
    for (int i = 0; i < count; ++i) {
        total += ListView_GetColumnWidth(hwnd, i);
        if (ListView_GetColumnWidth(hwnd, i) > ListView_GetColumnWidth(hwnd, widest)) widest = i;
    }
    const int excess = total - (client.right - ::GetSystemMetrics(SM_CXVSCROLL));
    if (excess > 0 && total - TwipsToPixels(widthTwips) < client.right)
        ListView_SetColumnWidth(hwnd, widest, std::max(ListView_GetColumnWidth(hwnd, widest) - excess, 24));
}

int Window::ColumnCount(Ctl list) const {
    HWND header = ListView_GetHeader(at(list).hwnd);
    return header != nullptr ? Header_GetItemCount(header) : 0;
}

void Window::ClearItems(Ctl list) { ListView_DeleteAllItems(at(list).hwnd); }

int Window::AddItem(Ctl list, const std::string& text) {
    LVITEMA item{};
    item.mask = LVIF_TEXT;
    item.iItem = ItemCount(list);
    item.pszText = const_cast<char*>(text.c_str());
    const auto index = ::SendMessageA(at(list).hwnd, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
    return index < 0 ? 0 : static_cast<int>(index) + 1;
}

int Window::ItemCount(Ctl list) const { return ListView_GetItemCount(at(list).hwnd); }

bool Window::SetItemText(Ctl list, int item, const std::string& text) { return SetSubItem(list, item, 0, text); }

bool Window::SetSubItem(Ctl list, int item, int sub, const std::string& text) {
    if (!validItem(list, item) || sub < 0) return false;
    LVITEMA entry{};
    entry.iSubItem = sub;
    entry.pszText = const_cast<char*>(text.c_str());
    return ::SendMessageA(at(list).hwnd, LVM_SETITEMTEXTA, static_cast<WPARAM>(itemIndex(list, item)),
                          reinterpret_cast<LPARAM>(&entry)) != FALSE;
}

std::string Window::SubItem(Ctl list, int item, int sub) const {
    if (!validItem(list, item) || sub < 0) return {};
    char buffer[512]{};
    LVITEMA entry{};
    entry.iSubItem = sub;
    entry.pszText = buffer;
    entry.cchTextMax = sizeof buffer;
    const auto n = ::SendMessageA(at(list).hwnd, LVM_GETITEMTEXTA, static_cast<WPARAM>(itemIndex(list, item)),
                                  reinterpret_cast<LPARAM>(&entry));
    return std::string(buffer, static_cast<std::size_t>(std::max<LRESULT>(n, 0)));
}

bool Window::SetItemSelected(Ctl list, int item, bool selected) {
    if (!validItem(list, item)) return false;
    const UINT state = selected ? LVIS_SELECTED | LVIS_FOCUSED : 0;
    const UINT mask = selected ? LVIS_SELECTED | LVIS_FOCUSED : LVIS_SELECTED;
    ListView_SetItemState(at(list).hwnd, itemIndex(list, item), state, mask);
    return true;
}

bool Window::ItemSelected(Ctl list, int item) const {
    if (!validItem(list, item)) return false;
    return (ListView_GetItemState(at(list).hwnd, itemIndex(list, item), LVIS_SELECTED) & LVIS_SELECTED) != 0;
}

// The focused item when it is selected, else the first selected one.
int Window::SelectedItem(Ctl list) const {
    HWND hwnd = at(list).hwnd;
    const int focused = ListView_GetNextItem(hwnd, -1, LVNI_FOCUSED);
    if (focused >= 0 && ItemSelected(list, focused + 1)) return focused + 1;
    const int first = ListView_GetNextItem(hwnd, -1, LVNI_SELECTED);
    return first >= 0 ? first + 1 : 0;
}

bool Window::SetSelectedItem(Ctl list, int item) {
    if (!validItem(list, item)) return false;
    ListView_SetItemState(at(list).hwnd, -1, 0, LVIS_SELECTED);
    SetItemSelected(list, item, true);
    ListView_EnsureVisible(at(list).hwnd, itemIndex(list, item), FALSE);
    return true;
}

// --- list boxes and combo boxes ---

void Window::AddListItem(Ctl list, const std::string& text) {
    ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_ADDSTRING : LB_ADDSTRING, 0,
                   reinterpret_cast<LPARAM>(text.c_str()));
}

void Window::ClearList(Ctl list) {
    ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_RESETCONTENT : LB_RESETCONTENT, 0, 0);
}

int Window::ListCount(Ctl list) const {
    const auto n = ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_GETCOUNT : LB_GETCOUNT, 0, 0);
    return n < 0 ? 0 : static_cast<int>(n);
}

std::string Window::List(Ctl list, int index) const {
    if (index < 0 || index >= ListCount(list)) return {};
    HWND hwnd = at(list).hwnd;
    const bool combo = isCombo(list);
    const auto length = ::SendMessageA(hwnd, combo ? CB_GETLBTEXTLEN : LB_GETTEXTLEN, static_cast<WPARAM>(index), 0);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    const auto got = ::SendMessageA(hwnd, combo ? CB_GETLBTEXT : LB_GETTEXT, static_cast<WPARAM>(index),
                                    reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<std::size_t>(std::max<LRESULT>(got, 0)));
    return text;
}

int Window::ListIndex(Ctl list) const {
    const auto i = ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_GETCURSEL : LB_GETCURSEL, 0, 0);
    return i < 0 ? -1 : static_cast<int>(i);
}

// Selecting an entry from code raises Click as a choice of the user does.
bool Window::SetListIndex(Ctl list, int index) {
    if (index < -1 || index >= ListCount(list)) return false;
    ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_SETCURSEL : LB_SETCURSEL, static_cast<WPARAM>(index), 0);
    if (events_) events_->Click(list);
    return true;
}

std::int32_t Window::ItemData(Ctl list, int index) const {
    if (index < 0 || index >= ListCount(list)) return 0;
    return static_cast<std::int32_t>(
        ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_GETITEMDATA : LB_GETITEMDATA, static_cast<WPARAM>(index), 0));
}

bool Window::SetItemData(Ctl list, int index, std::int32_t data) {
    if (index < 0 || index >= ListCount(list)) return false;
    ::SendMessageA(at(list).hwnd, isCombo(list) ? CB_SETITEMDATA : LB_SETITEMDATA, static_cast<WPARAM>(index),
                   static_cast<LPARAM>(data));
    return true;
}

// --- text boxes, focus, repainting, the pop-up menu ---

// Appending replaces the empty selection at the end: no copy of what is there.
void Window::AppendText(Ctl c, const std::string& text) {
    if (app::Spec(c).kind != Kind::TextBox) {
        SetText(c, Text(c) + text);
        return;
    }
    if (text.empty()) return;
    HWND edit = at(c).hwnd;
    const int end = ::GetWindowTextLengthA(edit);
    ++settingText_;
    ::SendMessageA(edit, EM_SETSEL, static_cast<WPARAM>(end), end);
    ::SendMessageA(edit, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
    --settingText_;
    at(c).dataChanged = true;
    if (events_) events_->Change(c);
}

int Window::TextLength(Ctl c) const {
    if (app::Spec(c).kind == Kind::TextBox) return ::GetWindowTextLengthA(at(c).hwnd);
    return static_cast<int>(Text(c).size());
}

int Window::SelStart(Ctl c) const {
    if (app::Spec(c).kind != Kind::TextBox) return 0;
    DWORD start = 0, end = 0;
    ::SendMessageA(at(c).hwnd, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
    return static_cast<int>(start);
}

void Window::SetSelStart(Ctl c, int start) {
    if (app::Spec(c).kind != Kind::TextBox) return;
    const int length = ::GetWindowTextLengthA(at(c).hwnd);
    start = std::clamp(start, 0, length);
    ::SendMessageA(at(c).hwnd, EM_SETSEL, static_cast<WPARAM>(start), start);
}

int Window::SelLength(Ctl c) const {
    if (app::Spec(c).kind != Kind::TextBox) return 0;
    DWORD start = 0, end = 0;
    ::SendMessageA(at(c).hwnd, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
    return static_cast<int>(end - start);
}

void Window::SetSelLength(Ctl c, int length) {
    if (app::Spec(c).kind != Kind::TextBox) return;
    const int start = SelStart(c);
    const int end = std::clamp(start + std::max(length, 0), start, ::GetWindowTextLengthA(at(c).hwnd));
    ::SendMessageA(at(c).hwnd, EM_SETSEL, static_cast<WPARAM>(start), end);
}

void Window::SetFocus(Ctl c) {
    if (at(c).hwnd != nullptr) ::SetFocus(at(c).hwnd);
}

void Window::Refresh(Ctl c) {
    if (at(c).hwnd == nullptr) return;
    ::InvalidateRect(at(c).hwnd, nullptr, TRUE);
    ::UpdateWindow(at(c).hwnd);
}

void Window::PopupMenu(Ctl menu, Ctl defaultEntry) {
    HMENU popup = ::CreatePopupMenu();
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != menu || spec.id == menu || !at(spec.id).visible) continue;
        const auto id = static_cast<UINT_PTR>(kMenuIdBase + Index(spec.id));
        if (at(spec.id).caption == "-")
            ::AppendMenuA(popup, MF_SEPARATOR, 0, nullptr);
        else
            ::AppendMenuA(popup, MF_STRING | (at(spec.id).enabled ? MF_ENABLED : MF_GRAYED), id,
                          at(spec.id).caption.c_str());
    }
    ::SetMenuDefaultItem(popup, static_cast<UINT>(kMenuIdBase + Index(defaultEntry)), FALSE);
    POINT at{};
    ::GetCursorPos(&at);
    ::SetForegroundWindow(main_);
    const int chosen =
        static_cast<int>(::TrackPopupMenu(popup, TPM_RETURNCMD | TPM_RIGHTBUTTON, at.x, at.y, 0, main_, nullptr));
    ::PostMessageA(main_, WM_NULL, 0, 0);
    ::DestroyMenu(popup);
    if (chosen >= kMenuIdBase && chosen < kMenuIdBase + static_cast<int>(app::kControlCount) && events_)
        events_->Click(static_cast<Ctl>(chosen - kMenuIdBase));
}

// --- messages ---

LRESULT Window::onCommand(WPARAM wParam, LPARAM lParam) {
    const int id = LOWORD(wParam);
    const int code = HIWORD(wParam);
    if (lParam == 0) { // a menu entry
        if (id >= kMenuIdBase && id < kMenuIdBase + static_cast<int>(app::kControlCount) && live())
            events_->Click(static_cast<Ctl>(id - kMenuIdBase));
        return 0;
    }
    const int index = id - kControlIdBase;
    if (index < 0 || index >= static_cast<int>(app::kControlCount) || !live()) return 0;
    const Ctl c = static_cast<Ctl>(index);
    switch (app::Spec(c).kind) {
    case Kind::Button:
        if (code == BN_CLICKED) events_->Click(c);
        break;
    case Kind::TextBox:
        if (code == EN_CHANGE && settingText_ == 0) {
            at(c).dataChanged = true;
            events_->Change(c);
        } else if (code == EN_KILLFOCUS) {
            bool cancel = false;
            events_->Validate(c, cancel);
            if (cancel) ::SetFocus(at(c).hwnd);
        }
        break;
    case Kind::ComboBox:
    case Kind::DriveListBox:
        if (code == CBN_SELCHANGE) events_->Click(c);
        break;
    case Kind::ListBox:
        if (code == LBN_SELCHANGE) events_->Click(c);
        break;
    default:
        break;
    }
    return 0;
}

LRESULT Window::onNotify(NMHDR* header) {
    if (header == nullptr || !live()) return 0;
    const Ctl c = controlOf(header->hwndFrom);
    if (c == Ctl::Count_ || app::Spec(c).kind != Kind::ListView) return 0;
    switch (header->code) {
    case NM_CLICK:
        events_->Click(c);
        events_->MouseUp(c, app::kLeftButton, 0, 0, 0);
        break;
    case NM_DBLCLK:
        events_->DblClick(c);
        break;
    case NM_RCLICK:
        events_->MouseUp(c, app::kRightButton, 0, 0, 0);
        break;
    default:
        break;
    }
    return 0;
}

LRESULT Window::onColour(HDC dc, HWND control) {
    const Ctl c = controlOf(control);
    const COLORREF back = c == Ctl::Count_ ? ToColorRef(app::kWindowColor) : BackColorOf(c);
    ::SetBkColor(dc, back);
    ::SetTextColor(dc, ::GetSysColor(COLOR_WINDOWTEXT));
    return reinterpret_cast<LRESULT>(BrushFor(back));
}

// Buttons with a picture or a colour of their own: a raised face in that
// colour, the picture and the caption centred together, the focus rectangle.
void Window::drawButton(const DRAWITEMSTRUCT& item) {
    const Ctl c = controlOf(item.hwndItem);
    if (c == Ctl::Count_) return;
    const auto& spec = app::Spec(c);
    HDC dc = item.hDC;
    RECT r = item.rcItem;
    const bool pressed = (item.itemState & ODS_SELECTED) != 0;
    const bool disabled = (item.itemState & ODS_DISABLED) != 0;
    ::FillRect(dc, &r, BrushFor(BackColorOf(c)));
    ::DrawEdge(dc, &r, pressed ? EDGE_SUNKEN : EDGE_RAISED, BF_RECT);
    const int shift = pressed ? 1 : 0;
    const std::string& caption = at(c).caption;
    ::SelectObject(dc, FontFor(FontOf(c)));
    RECT text{};
    ::DrawTextA(dc, caption.c_str(), static_cast<int>(caption.size()), &text, DT_CALCRECT | DT_SINGLELINE);
    const int textWidth = caption.empty() ? 0 : text.right - text.left;
    const int iconSize = at(c).icon != nullptr ? spec.pictureSize : 0;
    const int gap = iconSize > 0 && textWidth > 0 ? 8 : 0;
    const int width = r.right - r.left, height = r.bottom - r.top;
    // Wide, low buttons put the picture beside the caption; others above it.
    const bool beside = iconSize > 0 && height < iconSize + text.bottom + 8;
    int x = 0, y = 0;
    if (beside) {
        x = r.left + (width - (iconSize + gap + textWidth)) / 2;
        y = r.top + (height - iconSize) / 2;
    } else {
        x = r.left + (width - iconSize) / 2;
        y = r.top + (height - (iconSize + (textWidth > 0 ? text.bottom + 2 : 0))) / 2;
    }
    if (iconSize > 0) ::DrawIconEx(dc, x + shift, y + shift, at(c).icon, iconSize, iconSize, 0, nullptr, DI_NORMAL);
    if (textWidth > 0) {
        RECT place = r;
        if (beside) {
            place.left = x + iconSize + gap;
            place.right = place.left + textWidth + 1;
        } else if (iconSize > 0) {
            place.top = y + iconSize + 2;
            place.bottom = place.top + text.bottom;
        }
        ::OffsetRect(&place, shift, shift);
        ::SetBkMode(dc, TRANSPARENT);
        ::SetTextColor(dc, ::GetSysColor(disabled ? COLOR_GRAYTEXT : COLOR_BTNTEXT));
        const UINT format = DT_SINGLELINE | DT_VCENTER | (beside ? DT_LEFT : DT_CENTER) |
                            ((item.itemState & ODS_NOACCEL) != 0 ? DT_HIDEPREFIX : 0);
        ::DrawTextA(dc, caption.c_str(), static_cast<int>(caption.size()), &place, format);
    }
    if ((item.itemState & ODS_FOCUS) != 0) {
        RECT focus = r;
        ::InflateRect(&focus, -4, -4);
        ::DrawFocusRect(dc, &focus);
    }
}

void Window::paintFrame(HWND frame) {
    PAINTSTRUCT ps;
    HDC dc = ::BeginPaint(frame, &ps);
    RECT r{};
    ::GetClientRect(frame, &r);
    const Ctl c = controlOf(frame);
    ::FillRect(dc, &r, BrushFor(c == Ctl::Count_ ? ToColorRef(app::kWindowColor) : BackColorOf(c)));
    r.top += kFrameEdgeTop;
    ::DrawEdge(dc, &r, EDGE_ETCHED, BF_RECT);
    ::EndPaint(frame, &ps);
}

// Alt and a button's access key presses the button.
bool Window::onMnemonic(char key) {
    const int wanted = std::toupper(static_cast<unsigned char>(key));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Button) continue;
        const std::string& caption = at(spec.id).caption;
        const auto amp = caption.find('&');
        if (amp == std::string::npos || amp + 1 >= caption.size()) continue;
        if (std::toupper(static_cast<unsigned char>(caption[amp + 1])) != wanted) continue;
        HWND button = at(spec.id).hwnd;
        if (button == nullptr || !::IsWindowEnabled(button) || !::IsWindowVisible(button)) return false;
        ::SetFocus(button);
        if (live()) events_->Click(spec.id);
        return true;
    }
    return false;
}

bool Window::FilterMessage(MSG& msg) {
    if (main_ == nullptr || !::IsWindow(main_)) return false;
    if (msg.hwnd != main_ && !::IsChild(main_, msg.hwnd)) return false;
    if (msg.message == WM_KEYDOWN && msg.wParam == VK_TAB) return ::IsDialogMessageA(main_, &msg) != FALSE;
    if (msg.message == WM_SYSCHAR) return onMnemonic(static_cast<char>(msg.wParam));
    return false;
}

bool Window::fromControl(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    switch (message) {
    case WM_COMMAND:
        result = onCommand(wParam, lParam);
        return true;
    case WM_NOTIFY:
        result = onNotify(reinterpret_cast<NMHDR*>(lParam));
        return true;
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
        result = onColour(reinterpret_cast<HDC>(wParam), reinterpret_cast<HWND>(lParam));
        return true;
    case WM_DRAWITEM:
        drawButton(*reinterpret_cast<DRAWITEMSTRUCT*>(lParam));
        result = TRUE;
        return true;
    default:
        return false;
    }
}

LRESULT CALLBACK Window::MainProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (LRESULT result = 0; self->fromControl(message, wParam, lParam, result)) return result;
    switch (message) {
    case WM_SIZE:
        if (self->live() && !self->showing_) self->events_->Resize();
        return 0;
    case WM_ACTIVATE:
        // The control that had the focus gets it back when the window is active again.
        if (LOWORD(wParam) == WA_INACTIVE) {
            HWND focus = ::GetFocus();
            if (focus != nullptr && ::IsChild(hWnd, focus)) self->lastFocus_ = focus;
            return 0;
        }
        if (HIWORD(wParam) == 0) {
            HWND focus = self->lastFocus_ != nullptr && ::IsWindow(self->lastFocus_) ? self->lastFocus_
                                                                                     : self->at(Ctl::ListView1).hwnd;
            ::SetFocus(focus);
            if (self->live() && !self->showing_) self->events_->Activate();
        }
        return 0;
    case WM_WINDOWPOSCHANGED:
        if ((reinterpret_cast<WINDOWPOS*>(lParam)->flags & SWP_NOZORDER) == 0) self->keepHiddenBelow();
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    case WM_CLOSE:
        if (self->events_) self->events_->CloseRequested();
        return 0;
    case WM_DESTROY:
        ::PostQuitMessage(0);
        return 0;
    default:
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    }
}

// Frames hold controls: what those controls tell their parent goes on to the
// main window's handling.
LRESULT CALLBACK Window::FrameProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (LRESULT result = 0; self->fromControl(message, wParam, lParam, result)) return result;
    switch (message) {
    case WM_ERASEBKGND:
        return TRUE;
    case WM_PAINT:
        self->paintFrame(hWnd);
        return 0;
    default:
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    }
}

LRESULT CALLBACK Window::PictureProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr || (message != WM_PAINT && message != WM_ERASEBKGND))
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (message == WM_ERASEBKGND) return TRUE;
    PAINTSTRUCT ps;
    HDC dc = ::BeginPaint(hWnd, &ps);
    const Ctl c = self->controlOf(hWnd);
    if (c != Ctl::Count_ && self->at(c).surface) self->at(c).surface->PaintTo(dc);
    ::EndPaint(hWnd, &ps);
    return 0;
}

// Images are stretched into their rectangle on the container's colour.
LRESULT CALLBACK Window::ImageProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr || (message != WM_PAINT && message != WM_ERASEBKGND))
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (message == WM_ERASEBKGND) return TRUE;
    PAINTSTRUCT ps;
    HDC dc = ::BeginPaint(hWnd, &ps);
    RECT r{};
    ::GetClientRect(hWnd, &r);
    const Ctl c = self->controlOf(hWnd);
    if (c != Ctl::Count_) {
        ::FillRect(dc, &r, BrushFor(BackColorOf(c)));
        const Control& own = self->at(c);
        if (own.icon != nullptr) {
            ::DrawIconEx(dc, 0, 0, own.icon, r.right, r.bottom, 0, nullptr, DI_NORMAL);
        } else if (own.bitmap != nullptr) {
            BITMAP info{};
            ::GetObjectA(own.bitmap, sizeof info, &info);
            HDC source = ::CreateCompatibleDC(dc);
            HGDIOBJ old = ::SelectObject(source, own.bitmap);
            ::SetStretchBltMode(dc, HALFTONE);
            ::StretchBlt(dc, 0, 0, r.right, r.bottom, source, 0, 0, info.bmWidth, info.bmHeight, SRCCOPY);
            ::SelectObject(source, old);
            ::DeleteDC(source);
        }
    }
    ::EndPaint(hWnd, &ps);
    return 0;
}

// The drive list's keys: the logic sees each key going down and up, and a
// key whose code it sets to 0 goes no further.
LRESULT CALLBACK Window::ListProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR data) {
    auto* self = reinterpret_cast<Window*>(data);
    if (message == WM_GETDLGCODE) return DLGC_WANTALLKEYS | ::DefSubclassProc(hWnd, message, wParam, lParam);
    if ((message == WM_KEYDOWN || message == WM_KEYUP) && self != nullptr && self->live()) {
        const Ctl c = self->controlOf(hWnd);
        std::int16_t shift = 0;
        if (::GetKeyState(VK_SHIFT) < 0) shift |= app::kShiftMask;
        if (::GetKeyState(VK_CONTROL) < 0) shift |= app::kCtrlMask;
        if (::GetKeyState(VK_MENU) < 0) shift |= app::kAltMask;
        auto code = static_cast<std::int16_t>(wParam);
        if (message == WM_KEYDOWN)
            self->events_->KeyDown(c, code, shift);
        else
            self->events_->KeyUp(c, code, shift);
        if (code == 0 || !::IsWindow(hWnd)) return 0;
    }
    if (message == WM_NCDESTROY) ::RemoveWindowSubclass(hWnd, &Window::ListProc, 1);
    return ::DefSubclassProc(hWnd, message, wParam, lParam);
}

} // namespace win32
