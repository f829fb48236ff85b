// The View of the native window: texts, states and positions, the
// report-view list, list and combo boxes, text boxes, focus, repainting and
// the pop-up menu.
#include <algorithm>

#include "platform/win32/native_window_impl.h"

namespace win32 {

using app::Ctl;
using app::Kind;
using portable::Edge;

namespace {

bool IsMenu(Ctl c) { return app::Spec(c).kind == Kind::Menu; }
UINT MenuId(Ctl c) { return static_cast<UINT>(kMenuIdBase + static_cast<int>(c)); }

} // namespace

// --- texts, states and positions ---

std::string Window::Text(Ctl c) const {
    const Kind kind = app::Spec(c).kind;
    if (c == Ctl::frmMain || kind == Kind::TextBox) return WindowText(at(c).hwnd);
    if (isCombo(c)) return List(c, ListIndex(c));
    return state(c).text;
}

void Window::SetText(Ctl c, const std::string& text) {
    const Kind kind = app::Spec(c).kind;
    portable::ControlState& own = state(c);
    HWND hwnd = at(c).hwnd;
    if (kind == Kind::TextBox) {
        if (WindowText(hwnd) == text) return;
        ++settingText_;
        ::SetWindowTextA(hwnd, text.c_str());
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
    if (own.text == text) return;
    own.text = text;
    if (kind == Kind::Menu) {
        setMenuText(c);
    } else if (hwnd != nullptr) {
        ::SetWindowTextA(hwnd, text.c_str());
        ::InvalidateRect(hwnd, nullptr, TRUE);
    }
}

void Window::setMenuText(Ctl c) {
    if (app::Spec(c).container != Ctl::frmMain) return; // pop-up entries are built when shown
    ::ModifyMenuA(menuBar_, MenuId(c), MF_BYCOMMAND | MF_STRING, MenuId(c), state(c).text.c_str());
    ::DrawMenuBar(main_);
}

void Window::enabledChanged(Ctl c) {
    const bool enabled = state(c).enabled;
    if (IsMenu(c)) {
        if (app::Spec(c).container == Ctl::frmMain) {
            ::EnableMenuItem(menuBar_, MenuId(c), MF_BYCOMMAND | (enabled ? MF_ENABLED : MF_GRAYED));
            ::DrawMenuBar(main_);
        }
        return;
    }
    if (at(c).hwnd != nullptr) ::EnableWindow(at(c).hwnd, enabled);
}

void Window::visibleChanged(Ctl c) {
    const bool visible = state(c).visible;
    if (IsMenu(c)) {
        if (app::Spec(c).container == Ctl::frmMain) buildMenuBar();
        return;
    }
    HWND hwnd = at(c).hwnd;
    if (hwnd == nullptr) return;
    if (c == Ctl::frmMain) {
        ::ShowWindow(main_, visible ? SW_SHOW : SW_HIDE);
        return;
    }
    // A notice that appears comes to the front of its siblings.
    ::SetWindowPos(hwnd, HWND_TOP, 0, 0, 0, 0,
                   SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | (visible ? SWP_SHOWWINDOW : SWP_HIDEWINDOW));
}

RECT Window::outerRect() const {
    RECT r{};
    ::GetWindowRect(main_, &r);
    return r;
}

double Window::bound(Ctl c, Edge e) const {
    if (c != Ctl::frmMain) return ControlView::bound(c, e);
    const RECT r = outerRect();
    switch (e) {
    case Edge::Left:
        return PixelsToTwips(r.left);
    case Edge::Top:
        return PixelsToTwips(r.top);
    case Edge::Width:
        return PixelsToTwips(r.right - r.left);
    case Edge::Height:
        break;
    }
    return PixelsToTwips(r.bottom - r.top);
}

// A change of the window's size reaches the logic as Resize, from WM_SIZE; a
// minimised window keeps its size.
void Window::setBound(Ctl c, Edge e, double twips) {
    if (c != Ctl::frmMain) {
        edge(state(c), e) = twips;
        place(c);
        return;
    }
    const RECT r = outerRect();
    const int pixels = TwipsToPixels(twips);
    int x = r.left, y = r.top, width = r.right - r.left, height = r.bottom - r.top;
    UINT flags = SWP_NOZORDER | SWP_NOACTIVATE;
    switch (e) {
    case Edge::Left:
        x = pixels;
        flags |= SWP_NOSIZE;
        break;
    case Edge::Top:
        y = pixels;
        flags |= SWP_NOSIZE;
        break;
    case Edge::Width:
        if (::IsIconic(main_) || width == pixels) return;
        width = pixels;
        flags |= SWP_NOMOVE;
        break;
    case Edge::Height:
        if (::IsIconic(main_) || height == pixels) return;
        height = pixels;
        flags |= SWP_NOMOVE;
        break;
    }
    ::SetWindowPos(main_, nullptr, x, y, width, height, flags);
}

RECT Window::clientRect() const {
    RECT r{};
    ::GetClientRect(main_, &r);
    return r;
}

// The form's inner size is its client area's; a picture box's its surface's.
double Window::ScaleWidth(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(clientRect().right);
    if (const auto* s = at(c).surface.get()) return s->ScaleWidth();
    return state(c).width;
}

double Window::ScaleHeight(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(clientRect().bottom);
    if (const auto* s = at(c).surface.get()) return s->ScaleHeight();
    return state(c).height;
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

// Columns keep the width the logic gives them, in twips, whatever their
// caption or the rows below them.
void Window::AddColumn(Ctl list, const std::string& caption, int widthTwips) {
    LVCOLUMNA column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    column.cx = TwipsToPixels(widthTwips);
    column.pszText = const_cast<char*>(caption.c_str());
    column.iSubItem = ColumnCount(list);
    ::SendMessageA(at(list).hwnd, LVM_INSERTCOLUMNA, static_cast<WPARAM>(column.iSubItem),
                   reinterpret_cast<LPARAM>(&column));
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
    state(c).dataChanged = true;
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
        const portable::ControlState& s = state(spec.id);
        if (spec.kind != Kind::Menu || spec.container != menu || spec.id == menu || !s.visible) continue;
        if (s.text == "-")
            ::AppendMenuA(popup, MF_SEPARATOR, 0, nullptr);
        else
            ::AppendMenuA(popup, MF_STRING | (s.enabled ? MF_ENABLED : MF_GRAYED), MenuId(spec.id), s.text.c_str());
    }
    ::SetMenuDefaultItem(popup, MenuId(defaultEntry), FALSE);
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

} // namespace win32
