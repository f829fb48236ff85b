// The native window's messages: commands and notifications from the
// controls, colours, owner-drawn buttons, frames and images, access keys, and
// the window procedures.
#include <windowsx.h>

#include <cctype>

#include "platform/win32/native_window_impl.h"

namespace win32 {

using app::Ctl;
using app::Kind;

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
            state(c).dataChanged = true;
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
    const std::string& caption = state(c).text;
    ::SelectObject(dc, FontFor(portable::FontOf(c)));
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

namespace {

// BeginPaint and EndPaint around the painting of one window, with its client rectangle.
class Painting {
public:
    explicit Painting(HWND hwnd) : hwnd_(hwnd), dc(::BeginPaint(hwnd, &ps_)) { ::GetClientRect(hwnd, &client); }
    ~Painting() { ::EndPaint(hwnd_, &ps_); }
    Painting(const Painting&) = delete;
    Painting& operator=(const Painting&) = delete;

private:
    HWND hwnd_;
    PAINTSTRUCT ps_{};

public:
    HDC dc;
    RECT client{};
};

} // namespace

void Window::paintFrame(HWND frame) {
    Painting p(frame);
    const Ctl c = controlOf(frame);
    ::FillRect(p.dc, &p.client, BrushFor(c == Ctl::Count_ ? ToColorRef(app::kWindowColor) : BackColorOf(c)));
    RECT edge = p.client;
    edge.top += kFrameEdgeTop;
    ::DrawEdge(p.dc, &edge, EDGE_ETCHED, BF_RECT);
}

void Window::paintPicture(HWND box) {
    Painting p(box);
    const Ctl c = controlOf(box);
    if (c != Ctl::Count_ && at(c).surface) at(c).surface->PaintTo(p.dc);
}

// Images are stretched into their rectangle on the container's colour.
void Window::paintImage(HWND image) {
    Painting p(image);
    const Ctl c = controlOf(image);
    if (c == Ctl::Count_) return;
    const RECT& r = p.client;
    ::FillRect(p.dc, &r, BrushFor(BackColorOf(c)));
    const Control& own = at(c);
    if (own.icon != nullptr) {
        ::DrawIconEx(p.dc, 0, 0, own.icon, r.right, r.bottom, 0, nullptr, DI_NORMAL);
    } else if (own.bitmap != nullptr) {
        BITMAP info{};
        ::GetObjectA(own.bitmap, sizeof info, &info);
        HDC source = ::CreateCompatibleDC(p.dc);
        HGDIOBJ old = ::SelectObject(source, own.bitmap);
        ::SetStretchBltMode(p.dc, HALFTONE);
        ::StretchBlt(p.dc, 0, 0, r.right, r.bottom, source, 0, 0, info.bmWidth, info.bmHeight, SRCCOPY);
        ::SelectObject(source, old);
        ::DeleteDC(source);
    }
}

// Alt and a button's access key presses the button.
bool Window::onMnemonic(char key) {
    const int wanted = std::toupper(static_cast<unsigned char>(key));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Button) continue;
        const std::string& caption = state(spec.id).text;
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

// The frame, caption and menu bar take the designed share of the outer size
// even where the system's own take less: what is left over is a band of the
// window's colour at the sides and below, outside the client area. So at the
// designed outer size the client area is the designed one.
void Window::fitClient(const RECT& outer, RECT& client) const {
    const int frameWidth = TwipsToPixels(app::kFormWidth) - TwipsToPixels(app::kClientWidth);
    const int frameHeight = TwipsToPixels(app::kFormHeight) - TwipsToPixels(app::kClientHeight);
    const int extraWidth = frameWidth - ((outer.right - outer.left) - (client.right - client.left));
    const int extraHeight = frameHeight - ((outer.bottom - outer.top) - (client.bottom - client.top));
    if (extraWidth > 0 && client.right - client.left > extraWidth) {
        client.left += extraWidth / 2;
        client.right -= extraWidth - extraWidth / 2;
    }
    if (extraHeight > 0 && client.bottom - client.top > extraHeight) client.bottom -= extraHeight;
}

void Window::paintBand() const {
    RECT outer{};
    ::GetWindowRect(main_, &outer);
    RECT band = outer; // the client area as the system would have made it, in screen coordinates
    ::DefWindowProcA(main_, WM_NCCALCSIZE, FALSE, reinterpret_cast<LPARAM>(&band));
    RECT client{};
    ::GetClientRect(main_, &client);
    ::MapWindowPoints(main_, nullptr, reinterpret_cast<POINT*>(&client), 2);
    if (::EqualRect(&band, &client)) return;
    HDC dc = ::GetWindowDC(main_);
    if (dc == nullptr) return;
    ::OffsetRect(&band, -outer.left, -outer.top);
    ::OffsetRect(&client, -outer.left, -outer.top);
    ::ExcludeClipRect(dc, client.left, client.top, client.right, client.bottom);
    ::FillRect(dc, &band, BrushFor(ToColorRef(app::kWindowColor)));
    ::ReleaseDC(main_, dc);
}

LRESULT CALLBACK Window::MainProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr) return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (LRESULT result = 0; self->fromControl(message, wParam, lParam, result)) return result;
    switch (message) {
    case WM_SIZE:
        if (self->live() && !self->showing_) self->events_->Resize();
        return 0;
    case WM_NCCALCSIZE: {
        auto* sizes = reinterpret_cast<NCCALCSIZE_PARAMS*>(lParam);
        const RECT outer = sizes->rgrc[0];
        const LRESULT result = ::DefWindowProcA(hWnd, message, wParam, lParam);
        if (wParam != FALSE && !::IsIconic(hWnd)) self->fitClient(outer, sizes->rgrc[0]);
        return result;
    }
    case WM_NCPAINT:
    case WM_NCACTIVATE: {
        const LRESULT result = ::DefWindowProcA(hWnd, message, wParam, lParam);
        self->paintBand();
        return result;
    }
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
    case WM_QUERYENDSESSION:
        // The session ending is a close request like any other; a refused
        // close holds the session back.
        return self->events_ == nullptr || self->events_->SessionEnding() ? TRUE : FALSE;
    case WM_ENDSESSION:
        // Ending without having asked first: the close request runs all the same.
        if (wParam != FALSE && self->events_) self->events_->SessionEnding();
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

// Picture boxes and images do nothing but paint themselves.
LRESULT CALLBACK Window::PaintProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Window* self = FromUserData(hWnd);
    if (self == nullptr || (message != WM_PAINT && message != WM_ERASEBKGND))
        return ::DefWindowProcA(hWnd, message, wParam, lParam);
    if (message == WM_ERASEBKGND) return TRUE;
    const Ctl c = self->controlOf(hWnd);
    if (c != Ctl::Count_ && app::Spec(c).kind == Kind::Image)
        self->paintImage(hWnd);
    else
        self->paintPicture(hWnd);
    return 0;
}

// The drive list's keys: the logic sees each key going down and up, with
// any modifiers (with Alt held the system sends them as WM_SYSKEYDOWN and
// WM_SYSKEYUP), and a key whose code it sets to 0 goes no further.
LRESULT CALLBACK Window::ListProc(HWND hWnd, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR, DWORD_PTR data) {
    auto* self = reinterpret_cast<Window*>(data);
    if (message == WM_GETDLGCODE) return DLGC_WANTALLKEYS | ::DefSubclassProc(hWnd, message, wParam, lParam);
    const bool down = message == WM_KEYDOWN || message == WM_SYSKEYDOWN;
    const bool up = message == WM_KEYUP || message == WM_SYSKEYUP;
    if ((down || up) && self != nullptr && self->live()) {
        const Ctl c = self->controlOf(hWnd);
        std::int16_t shift = 0;
        if (::GetKeyState(VK_SHIFT) < 0) shift |= app::kShiftMask;
        if (::GetKeyState(VK_CONTROL) < 0) shift |= app::kCtrlMask;
        if (::GetKeyState(VK_MENU) < 0) shift |= app::kAltMask;
        auto code = static_cast<std::int16_t>(wParam);
        if (down)
            self->events_->KeyDown(c, code, shift);
        else
            self->events_->KeyUp(c, code, shift);
        if (code == 0 || !::IsWindow(hWnd)) return 0;
    }
    if (message == WM_NCDESTROY) ::RemoveWindowSubclass(hWnd, &Window::ListProc, 1);
    return ::DefSubclassProc(hWnd, message, wParam, lParam);
}

} // namespace win32
