#pragma once
// Inside the native window: the Window class with the system windows kept
// beside the controls' states, the picture box's GDI surface, and the helpers
// the building, the View methods and the window procedures share.
#include "platform/win32/raii.h"

#include <commctrl.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "platform/portable/control_state.h"
#include "platform/win32/native_window.h"

namespace win32 {

using app::Ctl;
using app::Kind;

inline constexpr const char* kMainClass = "KestrineMain";
inline constexpr const char* kFrameClass = "KestrineFrame";
inline constexpr const char* kPictureClass = "KestrinePicture";
inline constexpr const char* kImageClass = "KestrineImage";
inline constexpr int kControlIdBase = 100; // control i has id 100 + i
inline constexpr int kMenuIdBase = 1000;   // menu entry i has command 1000 + i
inline constexpr int kComboDropPixels = 160;
inline constexpr int kFrameEdgeTop = 6; // the etched edge of a frame starts this far down

int SystemDpi();
inline COLORREF ToColorRef(app::Rgb c) { return RGB(c.r, c.g, c.b); }
// The colour a control takes from the table, directly or from its containers.
inline COLORREF BackColorOf(Ctl c) { return ToColorRef(portable::BackColorOf(c)); }
// Fonts by face, size and weight, and solid brushes, created once and kept for the process.
HFONT FontFor(const app::Font& font);
HBRUSH BrushFor(COLORREF colour);
HICON LoadIconOfSize(int id, int size);
std::string WindowText(HWND hwnd);

// Draws into a bitmap of the box's size; the box paints from it. Coordinates
// are twips from the top-left of the box.
class GdiSurface : public app::SurfaceState {
public:
    GdiSurface(HWND box, float scaleWidth, float scaleHeight, COLORREF back, HFONT font);
    ~GdiSurface() override;
    GdiSurface(const GdiSurface&) = delete;
    GdiSurface& operator=(const GdiSurface&) = delete;

    void PaintTo(HDC target) const { ::BitBlt(target, 0, 0, width_, height_, dc_, 0, 0, SRCCOPY); }

    std::int32_t ForeColor() const override { return static_cast<std::int32_t>(fore_); }
    void SetForeColor(std::int32_t colour) override { fore_ = static_cast<COLORREF>(colour) & 0xFFFFFF; }
    std::int32_t BackColor() const override { return static_cast<std::int32_t>(back_); }
    void Cls() override;
    void Line(float x1, float y1, float x2, float y2, std::int32_t colour) override;
    std::int32_t Point(float x, float y) const override;
    float TextWidth(const std::string& text) const override { return static_cast<float>(Extent(text).cx * Twips()); }
    float TextHeight(const std::string& text) const override { return static_cast<float>(Extent(text).cy * Twips()); }
    void Print(const std::string& text) override;

private:
    static int Px(float twips) { return static_cast<int>(std::floor(twips * SystemDpi() / 1440.0f)); }
    static double Twips() { return PixelsToTwips(1); }
    SIZE Extent(const std::string& text) const;
    void changed() { ::InvalidateRect(box_, nullptr, FALSE); }

    HWND box_;
    COLORREF back_;
    COLORREF fore_ = 0;
    HDC dc_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HGDIOBJ oldBitmap_ = nullptr, oldFont_ = nullptr;
    int width_ = 1, height_ = 1;
};

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
    double ScaleWidth(Ctl c) const override;
    double ScaleHeight(Ctl c) const override;
    int WindowState() const override;
    void SetWindowState(int state) override;

    void AddColumn(Ctl list, const std::string& caption, int widthTwips) override;
    int ColumnCount(Ctl list) const override;
    void ClearItems(Ctl list) override;
    int AddItem(Ctl list, const std::string& text) override;
    int ItemCount(Ctl list) const override;
    bool SetSubItem(Ctl list, int item, int sub, const std::string& text) override;
    std::string SubItem(Ctl list, int item, int sub) const override;
    bool SetItemSelected(Ctl list, int item, bool selected) override;
    bool ItemSelected(Ctl list, int item) const override;
    int SelectedItem(Ctl list) const override;
    bool SetSelectedItem(Ctl list, int item) override;

    // List and combo boxes keep their entries' data themselves.
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
    static LRESULT CALLBACK PaintProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam);
    static LRESULT CALLBACK ListProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                                     DWORD_PTR self);
    bool FilterMessage(MSG& msg);

protected:
    // The form's rectangle is the main window's on the screen.
    double bound(Ctl c, portable::Edge e) const override;
    void setBound(Ctl c, portable::Edge e, double twips) override;
    void enabledChanged(Ctl c) override;
    void visibleChanged(Ctl c) override;

private:
    // A control's system window and pictures; what the logic set is in its control state.
    struct Control {
        HWND hwnd = nullptr;
        HICON icon = nullptr;     // buttons and images
        HBITMAP bitmap = nullptr; // images
        std::unique_ptr<GdiSurface> surface;
    };

    Control& at(Ctl c) { return controls_[static_cast<std::size_t>(c)]; }
    const Control& at(Ctl c) const { return controls_[static_cast<std::size_t>(c)]; }
    HWND parentOf(Ctl c) const { return at(app::Spec(c).container).hwnd; }
    Ctl controlOf(HWND hwnd) const;
    bool live() const { return events_ != nullptr && shown_; }
    RECT outerRect() const;
    RECT clientRect() const;

    // Building (native_window_build.cpp).
    HWND createControl(const app::ControlSpec& spec);
    void dressControl(const app::ControlSpec& spec, HWND hwnd);
    void addToolTip(const app::ControlSpec& spec, HWND hwnd);
    void place(Ctl c);
    void buildMenuBar();
    void keepHiddenBelow();
    void setMenuText(Ctl c);
    // Messages (native_window_events.cpp). What a container hears from its
    // controls (commands, notifications, colours, owner-drawn buttons); false
    // for any other message.
    bool fromControl(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result);
    LRESULT onCommand(WPARAM wParam, LPARAM lParam);
    LRESULT onNotify(NMHDR* header);
    LRESULT onColour(HDC dc, HWND control);
    void drawButton(const DRAWITEMSTRUCT& item);
    void paintFrame(HWND frame);
    void paintPicture(HWND box);
    void paintImage(HWND image);
    bool onMnemonic(char key);
    void fitClient(const RECT& outer, RECT& client) const;
    void paintBand() const;
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

inline Window* FromUserData(HWND hwnd) { return reinterpret_cast<Window*>(::GetWindowLongPtrA(hwnd, GWLP_USERDATA)); }

} // namespace win32
