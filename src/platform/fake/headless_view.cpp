#include "platform/fake/headless_view.h"

#include <cmath>
#include <cstdio>

namespace fake {

using app::Ctl;
using app::Kind;
using portable::Edge;

namespace {

std::string Number(double v) {
    char buf[64];
    if (v == std::floor(v) && std::fabs(v) < 1e15)
        std::snprintf(buf, sizeof buf, "%.0f", v);
    else
        std::snprintf(buf, sizeof buf, "%.3f", v);
    return buf;
}

bool IsTextBox(Ctl c) { return app::Spec(c).kind == Kind::TextBox; }

// The three-dimensional border of a picture box takes two pixels on every side.
constexpr double kBorderTwips = 2.0 * app::kTwipsPerPixel;

} // namespace

HeadlessView::HeadlessView(platform::WindowHandle handle) : handle_(handle), lists_(app::kControlCount) {
    canvases_.resize(app::kControlCount);
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::PictureBox) continue;
        const double inset = spec.border ? 2 * kBorderTwips : 0;
        Canvas& canvas = canvases_[static_cast<std::size_t>(spec.id)];
        canvas.surface = std::make_unique<RasterSurface>(
            static_cast<float>(spec.width - inset), static_cast<float>(spec.height - inset),
            portable::Bgr(portable::BackColorOf(spec.id)), portable::FontOf(spec.id).size);
        canvas.shownPixels = canvas.surface->Pixels();
        canvas.surface->OnPaint([&canvas] { canvas.pending = true; });
    }
}

void HeadlessView::Repaint() {
    for (std::size_t i = 0; i < canvases_.size(); ++i) {
        Canvas& canvas = canvases_[i];
        if (!canvas.pending) continue;
        canvas.pending = false;
        const RasterSurface& surface = *canvas.surface;
        if (surface.Pixels() == canvas.shownPixels && surface.Printed() == canvas.shownTexts) continue;
        canvas.shownPixels = surface.Pixels();
        canvas.shownTexts = surface.Printed();
        std::string texts;
        for (const auto& printed : surface.Printed()) {
            if (!texts.empty()) texts += "\n";
            texts += printed.text;
        }
        notifyNow(static_cast<Ctl>(i), "bar", texts);
    }
}

void HeadlessView::notify(Ctl control, std::string property, std::string value) {
    Repaint(); // what was painted before this change is seen before it
    notifyNow(control, std::move(property), std::move(value));
}

void HeadlessView::notifyNow(Ctl control, std::string property, std::string value) {
    if (observer_) observer_(ViewChange{control, std::move(property), std::move(value)});
}

void HeadlessView::notifyRows(Ctl list) {
    if (!observer_) return;
    std::string joined;
    for (const auto& row : Rows(list)) {
        if (!joined.empty()) joined += "\n";
        joined += row;
    }
    notify(list, "rows", joined);
}

std::string HeadlessView::Text(Ctl control) const {
    if (app::Spec(control).kind == Kind::ComboBox) return List(control, ListIndex(control));
    return state(control).text;
}

void HeadlessView::selectionMoved(Ctl control, int start, int length) {
    if (!reportSelection_) return;
    const portable::ControlState& s = state(control);
    if (s.selStart != start) notify(control, "selStart", std::to_string(s.selStart));
    if (s.selLength != length) notify(control, "selLength", std::to_string(s.selLength));
}

void HeadlessView::SetText(Ctl control, const std::string& text) {
    portable::ControlState& s = state(control);
    if (s.text == text) return;
    s.text = text;
    counted_[static_cast<std::size_t>(control)] = Counted{text.size(), vb::CharCount(text)};
    const bool textBox = IsTextBox(control);
    notify(control, textBox ? "text" : "caption", text);
    if (textBox) {
        s.dataChanged = true;
        const int start = s.selStart, length = s.selLength;
        s.TextReplaced(vb::CharCount(text));
        selectionMoved(control, start, length);
        if (events_) events_->Change(control);
    }
}

int HeadlessView::TextLength(Ctl control) const {
    const std::string& text = state(control).text;
    Counted& c = counted_[static_cast<std::size_t>(control)];
    if (c.bytes != text.size()) c = Counted{text.size(), vb::CharCount(text)};
    return c.chars;
}

void HeadlessView::AppendText(Ctl control, const std::string& text) {
    if (text.empty()) return;
    portable::ControlState& s = state(control);
    Counted& c = counted_[static_cast<std::size_t>(control)];
    if (c.bytes == s.text.size()) c = Counted{c.bytes + text.size(), c.chars + vb::CharCount(text)};
    s.text += text;
    notify(control, "appended", text);
    if (IsTextBox(control)) {
        s.dataChanged = true;
        if (events_) events_->Change(control);
    }
}

void HeadlessView::enabledChanged(Ctl control) {
    notify(control, "enabled", state(control).enabled ? "true" : "false");
}

void HeadlessView::visibleChanged(Ctl control) {
    notify(control, "visible", state(control).visible ? "true" : "false");
}

void HeadlessView::setBound(Ctl control, Edge e, double twips) {
    static constexpr const char* kNames[] = {"left", "top", "width", "height"};
    double& value = edge(state(control), e);
    if (value == twips) return;
    value = twips;
    notify(control, kNames[static_cast<int>(e)], Number(twips));
    // The window's size is the user's to change: the logic hears of it.
    if (control == Ctl::frmMain && (e == Edge::Width || e == Edge::Height) && events_) events_->Resize();
}

double HeadlessView::ScaleWidth(Ctl control) const {
    if (control == Ctl::frmMain) return state(control).width - (app::kFormWidth - app::kClientWidth);
    return state(control).width;
}

double HeadlessView::ScaleHeight(Ctl control) const {
    if (control == Ctl::frmMain) return state(control).height - (app::kFormHeight - app::kClientHeight);
    return state(control).height;
}

void HeadlessView::SetWindowState(int state) {
    if (windowState_ == state) return;
    windowState_ = state;
    notify(Ctl::frmMain, "windowState", std::to_string(state));
    if (events_) events_->Resize();
}

void HeadlessView::AddColumn(Ctl list, const std::string& caption, int widthTwips) {
    at(list).columns.push_back(Column{caption, widthTwips});
    notify(list, "column", caption);
}

void HeadlessView::ClearItems(Ctl list) {
    Lists& s = at(list);
    s.items.clear();
    s.selectedItem = 0;
    notifyRows(list);
}

int HeadlessView::AddItem(Ctl list, const std::string& text) {
    Lists& s = at(list);
    s.items.push_back(Item{text, {}, false});
    return static_cast<int>(s.items.size());
}

bool HeadlessView::SetItemText(Ctl list, int item, const std::string& text) {
    if (!validItem(list, item)) return false;
    at(list).items[static_cast<std::size_t>(item - 1)].text = text;
    return true;
}

std::string HeadlessView::ItemText(Ctl list, int item) const {
    if (!validItem(list, item)) return {};
    return at(list).items[static_cast<std::size_t>(item - 1)].text;
}

bool HeadlessView::SetSubItem(Ctl list, int item, int sub, const std::string& text) {
    if (!validItem(list, item) || sub < 1) return false;
    auto& subs = at(list).items[static_cast<std::size_t>(item - 1)].subItems;
    if (subs.size() < static_cast<std::size_t>(sub)) subs.resize(static_cast<std::size_t>(sub));
    subs[static_cast<std::size_t>(sub - 1)] = text;
    return true;
}

std::string HeadlessView::SubItem(Ctl list, int item, int sub) const {
    if (!validItem(list, item) || sub < 1) return {};
    const auto& subs = at(list).items[static_cast<std::size_t>(item - 1)].subItems;
    if (subs.size() < static_cast<std::size_t>(sub)) return {};
    return subs[static_cast<std::size_t>(sub - 1)];
}

bool HeadlessView::SetItemSelected(Ctl list, int item, bool selected) {
    if (!validItem(list, item)) return false;
    Lists& s = at(list);
    auto& it = s.items[static_cast<std::size_t>(item - 1)];
    if (it.selected == selected) return true;
    it.selected = selected;
    if (selected)
        s.selectedItem = item;
    else if (s.selectedItem == item)
        s.selectedItem = 0;
    notify(list, "selected", it.text + (selected ? " on" : " off"));
    return true;
}

bool HeadlessView::ItemSelected(Ctl list, int item) const {
    if (!validItem(list, item)) return false;
    return at(list).items[static_cast<std::size_t>(item - 1)].selected;
}

bool HeadlessView::SetSelectedItem(Ctl list, int item) {
    if (!validItem(list, item)) return false;
    Lists& s = at(list);
    for (int i = 1; i <= ItemCount(list); ++i)
        if (i != item) SetItemSelected(list, i, false);
    SetItemSelected(list, item, true);
    s.selectedItem = item;
    return true;
}

void HeadlessView::AddListItem(Ctl list, const std::string& text) {
    at(list).entries.push_back(text);
    state(list).itemData.push_back(0);
    notify(list, "added", text);
}

void HeadlessView::ClearList(Ctl list) {
    Lists& s = at(list);
    s.entries.clear();
    state(list).itemData.clear();
    s.listIndex = -1;
    notify(list, "cleared", "");
}

std::string HeadlessView::List(Ctl list, int index) const {
    const Lists& s = at(list);
    if (index < 0 || index >= static_cast<int>(s.entries.size())) return {};
    return s.entries[static_cast<std::size_t>(index)];
}

bool HeadlessView::SetListIndex(Ctl list, int index) {
    Lists& s = at(list);
    if (index < -1 || index >= static_cast<int>(s.entries.size())) return false;
    s.listIndex = index;
    notify(list, "listIndex", std::to_string(index));
    if (events_) events_->Click(list);
    return true;
}

void HeadlessView::SetSelStart(Ctl control, int start) {
    portable::ControlState& s = state(control);
    const int oldStart = s.selStart, oldLength = s.selLength;
    s.SetSelStart(start, TextLength(control));
    selectionMoved(control, oldStart, oldLength);
}

void HeadlessView::SetSelLength(Ctl control, int length) {
    portable::ControlState& s = state(control);
    const int oldStart = s.selStart, oldLength = s.selLength;
    s.SetSelLength(length, TextLength(control));
    selectionMoved(control, oldStart, oldLength);
}

void HeadlessView::SetFocus(Ctl control) { focus_ = control; }

void HeadlessView::PopupMenu(Ctl menu, Ctl defaultEntry) {
    lastPopup_ = menu;
    lastPopupDefault_ = defaultEntry;
    ++popupCount_;
    notify(menu, "popup", std::string(app::Spec(defaultEntry).caption));
}

void HeadlessView::Refresh(Ctl control) {
    if (app::Spec(control).kind == Kind::ListView) notifyRows(control);
}

std::vector<std::string> HeadlessView::Rows(Ctl list) const {
    std::vector<std::string> rows;
    for (const auto& item : at(list).items) {
        std::string row = item.text;
        for (const auto& sub : item.subItems) row += " | " + sub;
        rows.push_back(std::move(row));
    }
    return rows;
}

// --- the user's actions ---

void HeadlessView::UserClick(Ctl control) {
    if (!state(control).enabled) return;
    if (events_) events_->Click(control);
}

void HeadlessView::UserDblClick(Ctl control) {
    if (events_) events_->DblClick(control);
}

void HeadlessView::UserKey(Ctl control, std::int16_t keyCode, std::int16_t shift) {
    focus_ = control;
    std::int16_t code = keyCode;
    if (events_) events_->KeyDown(control, code, shift);
    std::int16_t up = keyCode;
    if (events_) events_->KeyUp(control, up, shift);
}

void HeadlessView::UserMouseUp(Ctl control, std::int16_t button, std::int16_t shift) {
    if (events_) events_->MouseUp(control, button, shift, 0.0f, 0.0f);
}

void HeadlessView::UserType(Ctl control, const std::string& text) {
    focus_ = control;
    SetText(control, text);
    SetSelStart(control, vb::CharCount(text)); // the caret after the last character typed
}

void HeadlessView::UserSelectText(Ctl control, int start, int length) {
    focus_ = control;
    SetSelStart(control, start);
    SetSelLength(control, length);
}

void HeadlessView::UserLeave(Ctl control) {
    bool cancel = false;
    if (events_) events_->Validate(control, cancel);
    if (!cancel) focus_ = Ctl::frmMain;
}

void HeadlessView::UserChoose(Ctl list, int index) { SetListIndex(list, index); }

void HeadlessView::UserSelectRows(Ctl list, const std::vector<int>& items) {
    for (int i = 1; i <= ItemCount(list); ++i) SetItemSelected(list, i, false);
    for (int item : items) SetItemSelected(list, item, true);
    if (!items.empty()) at(list).selectedItem = items.front();
    focus_ = list;
    if (events_) events_->Click(list);
}

void HeadlessView::UserResize(double width, double height) {
    SetWidth(Ctl::frmMain, width);
    SetHeight(Ctl::frmMain, height);
}

void HeadlessView::UserMinimize() { SetWindowState(app::kStateMinimized); }

void HeadlessView::UserRestore() { SetWindowState(app::kStateNormal); }

void HeadlessView::Activate() {
    if (events_) events_->Activate();
}

void HeadlessView::TimerTick(Ctl timer) {
    if (events_) events_->Tick(timer);
}

void HeadlessView::UserClose() {
    if (events_) events_->CloseRequested();
}

} // namespace fake
