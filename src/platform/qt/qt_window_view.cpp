// The View of the Qt window: texts, states and positions, the report-view
// list, list and combo boxes, text boxes, focus, repainting and the pop-up menu.
#include <QAction>
#include <QComboBox>
#include <QCursor>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTreeWidget>
#include <algorithm>

#include "platform/qt/qt_window_impl.h"

namespace qtui {

using app::Ctl;
using app::Kind;
using portable::Edge;

QWidget* QtWindow::Widget() const { return &impl_->main; }
QWidget* QtWindow::ControlWidget(Ctl c) const { return impl_->at(c).widget; }
QAction* QtWindow::MenuAction(Ctl c) const { return impl_->at(c).action; }
const QImage* QtWindow::PictureImage(Ctl c) const {
    const auto& surface = impl_->at(c).surface;
    return surface ? &surface->Image() : nullptr;
}

void QtWindow::SetEvents(app::ViewEvents* events) { impl_->events = events; }
platform::WindowHandle QtWindow::hWnd() const { return impl_->handle; }
platform::WindowHandle QtWindow::ControlHandle(Ctl c) const {
    return app::Spec(c).kind == Kind::ListView ? impl_->handle + 0x10 + static_cast<platform::WindowHandle>(c) : 0;
}

// --- texts, states and positions ---

std::string QtWindow::Text(Ctl c) const {
    const Impl& d = *impl_;
    const Kind kind = app::Spec(c).kind;
    if (c == Ctl::frmMain) return S(d.main.windowTitle());
    if (kind == Kind::TextBox) {
        if (auto* edit = d.as<QLineEdit>(c)) return S(edit->text());
        return state(c).text;
    }
    if (kind == Kind::ComboBox || kind == Kind::DriveListBox) return List(c, ListIndex(c));
    return state(c).text;
}

void QtWindow::SetText(Ctl c, const std::string& text) {
    Impl& d = *impl_;
    portable::ControlState& own = state(c);
    const Kind kind = app::Spec(c).kind;
    if (kind == Kind::TextBox) {
        if (Text(c) == text) return;
        ++d.fromCode;
        if (auto* edit = d.as<QLineEdit>(c)) {
            edit->setText(Q(text));
        } else if (auto* plain = d.as<QPlainTextEdit>(c)) {
            own.text = text;
            plain->setPlainText(Q(text));
            own.TextReplaced(static_cast<int>(text.size()));
        }
        --d.fromCode;
        own.dataChanged = true;
        if (d.events) d.events->Change(c);
        return;
    }
    if (c == Ctl::frmMain) {
        d.main.setWindowTitle(Q(text));
        return;
    }
    if (kind == Kind::ComboBox || kind == Kind::DriveListBox) return;
    if (own.text == text) return;
    own.text = text;
    if (QAction* action = d.at(c).action) action->setText(Q(text));
    if (auto* label = d.as<QLabel>(c)) label->setText(Q(text));
    if (auto* button = d.as<QPushButton>(c)) button->setText(Q(text));
    d.fit(c);
}

void QtWindow::enabledChanged(Ctl c) {
    Impl& d = *impl_;
    const bool enabled = state(c).enabled;
    if (QAction* action = d.at(c).action) action->setEnabled(enabled);
    if (QWidget* w = d.at(c).widget; w != nullptr && c != Ctl::frmMain) w->setEnabled(enabled);
    if (c == Ctl::tmrFlashMe) d.syncTimer();
}

void QtWindow::visibleChanged(Ctl c) {
    const bool visible = state(c).visible;
    if (QAction* action = impl_->at(c).action) action->setVisible(visible);
    QWidget* w = impl_->at(c).widget;
    if (w == nullptr) return;
    w->setVisible(visible);
    if (visible) w->raise(); // a notice that appears comes to the front of its siblings
}

double QtWindow::bound(Ctl c, Edge e) const {
    if (c != Ctl::frmMain) return ControlView::bound(c, e);
    const QMainWindow& main = impl_->main;
    switch (e) {
    case Edge::Left:
        return PixelsToTwips(main.frameGeometry().x());
    case Edge::Top:
        return PixelsToTwips(main.frameGeometry().y());
    case Edge::Width:
        return PixelsToTwips(main.frameGeometry().width());
    case Edge::Height:
        break;
    }
    return PixelsToTwips(main.frameGeometry().height());
}

// The window moves but keeps its size: a request for another is refused.
void QtWindow::setBound(Ctl c, Edge e, double twips) {
    Impl& d = *impl_;
    if (c == Ctl::frmMain) {
        const QRect frame = d.main.frameGeometry();
        if (e == Edge::Left) d.main.move(TwipsToPixels(twips), frame.y());
        if (e == Edge::Top) d.main.move(frame.x(), TwipsToPixels(twips));
        return;
    }
    edge(state(c), e) = twips;
    d.place(c);
    if (e == Edge::Width) d.fit(c);
}

double QtWindow::ScaleWidth(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(impl_->client->width());
    if (const auto& s = impl_->at(c).surface) return s->ScaleWidth();
    return state(c).width;
}

double QtWindow::ScaleHeight(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(impl_->client->height());
    if (const auto& s = impl_->at(c).surface) return s->ScaleHeight();
    return state(c).height;
}

int QtWindow::WindowState() const {
    if (impl_->main.isMinimized()) return app::kStateMinimized;
    if (impl_->main.isMaximized()) return app::kStateMaximized;
    return app::kStateNormal;
}

void QtWindow::SetWindowState(int state) {
    if (WindowState() == state) return;
    if (state == app::kStateMinimized)
        impl_->main.showMinimized();
    else
        impl_->main.showNormal(); // a window of fixed size is never maximised
}

// --- the report-view list ---

void QtWindow::AddColumn(Ctl list, const std::string& caption, int widthTwips) {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return;
    const int index = tree->columnCount();
    tree->setColumnCount(index + 1);
    tree->headerItem()->setText(index, Q(caption));
    // Exactly the designed width, whatever the caption or the rows need.
    tree->setColumnWidth(index, TwipsToPixels(widthTwips));
}

int QtWindow::ColumnCount(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    return tree != nullptr ? tree->columnCount() : 0;
}

void QtWindow::ClearItems(Ctl list) {
    if (auto* tree = impl_->as<QTreeWidget>(list)) tree->clear();
}

int QtWindow::AddItem(Ctl list, const std::string& text) {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return 0;
    auto* item = new QTreeWidgetItem(tree);
    item->setText(0, Q(text));
    return tree->topLevelItemCount();
}

int QtWindow::ItemCount(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    return tree != nullptr ? tree->topLevelItemCount() : 0;
}

namespace {
QTreeWidgetItem* ItemAt(QTreeWidget* tree, int item) {
    if (tree == nullptr || item < 1 || item > tree->topLevelItemCount()) return nullptr;
    return tree->topLevelItem(item - 1);
}
} // namespace

bool QtWindow::SetSubItem(Ctl list, int item, int sub, const std::string& text) {
    QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    if (row == nullptr || sub < 0) return false;
    row->setText(sub, Q(text));
    return true;
}

std::string QtWindow::SubItem(Ctl list, int item, int sub) const {
    const QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    if (row == nullptr || sub < 0) return {};
    return S(row->text(sub));
}

bool QtWindow::SetItemSelected(Ctl list, int item, bool selected) {
    auto* tree = impl_->as<QTreeWidget>(list);
    QTreeWidgetItem* row = ItemAt(tree, item);
    if (row == nullptr) return false;
    row->setSelected(selected);
    if (selected) tree->setCurrentItem(row, 0, QItemSelectionModel::NoUpdate);
    return true;
}

bool QtWindow::ItemSelected(Ctl list, int item) const {
    const QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    return row != nullptr && row->isSelected();
}

// The current item when it is selected, else the first selected one.
int QtWindow::SelectedItem(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return 0;
    if (QTreeWidgetItem* current = tree->currentItem(); current != nullptr && current->isSelected())
        return tree->indexOfTopLevelItem(current) + 1;
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        if (tree->topLevelItem(i)->isSelected()) return i + 1;
    return 0;
}

bool QtWindow::SetSelectedItem(Ctl list, int item) {
    auto* tree = impl_->as<QTreeWidget>(list);
    QTreeWidgetItem* row = ItemAt(tree, item);
    if (row == nullptr) return false;
    tree->clearSelection();
    SetItemSelected(list, item, true);
    tree->scrollToItem(row);
    return true;
}

// --- list boxes and combo boxes ---

void QtWindow::AddListItem(Ctl list, const std::string& text) {
    Impl& d = *impl_;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) {
        combo->addItem(Q(text));
        combo->setCurrentIndex(state(list).itemData.empty() ? -1 : combo->currentIndex());
    } else if (auto* box = d.as<QListWidget>(list)) {
        box->addItem(Q(text));
    }
    --d.fromCode;
    state(list).itemData.push_back(0);
}

void QtWindow::ClearList(Ctl list) {
    Impl& d = *impl_;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) combo->clear();
    if (auto* box = d.as<QListWidget>(list)) box->clear();
    --d.fromCode;
    state(list).itemData.clear();
}

int QtWindow::ListCount(Ctl list) const { return static_cast<int>(state(list).itemData.size()); }

std::string QtWindow::List(Ctl list, int index) const {
    if (index < 0 || index >= ListCount(list)) return {};
    if (auto* combo = impl_->as<QComboBox>(list)) return S(combo->itemText(index));
    if (auto* box = impl_->as<QListWidget>(list)) return S(box->item(index)->text());
    return {};
}

int QtWindow::ListIndex(Ctl list) const {
    if (auto* combo = impl_->as<QComboBox>(list)) return combo->currentIndex();
    if (auto* box = impl_->as<QListWidget>(list)) return box->currentRow();
    return -1;
}

// Selecting an entry from code raises Click as a choice of the user does.
bool QtWindow::SetListIndex(Ctl list, int index) {
    Impl& d = *impl_;
    if (index < -1 || index >= ListCount(list)) return false;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) combo->setCurrentIndex(index);
    if (auto* box = d.as<QListWidget>(list)) box->setCurrentRow(index);
    --d.fromCode;
    if (d.events) d.events->Click(list);
    return true;
}

// --- text boxes, focus, repainting, the pop-up menu ---

// Appending adds at the end of what is there: no copy of the text so far.
void QtWindow::AppendText(Ctl c, const std::string& text) {
    Impl& d = *impl_;
    if (app::Spec(c).kind != Kind::TextBox) {
        SetText(c, Text(c) + text);
        return;
    }
    if (text.empty()) return;
    portable::ControlState& own = state(c);
    ++d.fromCode;
    if (auto* plain = d.as<QPlainTextEdit>(c)) {
        own.text += text;
        QTextCursor cursor(plain->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(Q(text));
    } else if (auto* edit = d.as<QLineEdit>(c)) {
        edit->setText(edit->text() + Q(text));
    }
    --d.fromCode;
    own.dataChanged = true;
    if (d.events) d.events->Change(c);
}

int QtWindow::TextLength(Ctl c) const {
    // The line edit's positions count its characters (UTF-16 units), and so does its length.
    if (auto* edit = impl_->as<QLineEdit>(c)) return static_cast<int>(edit->text().size());
    if (app::Spec(c).kind == Kind::TextBox) return static_cast<int>(state(c).text.size());
    return static_cast<int>(Text(c).size());
}

int QtWindow::SelStart(Ctl c) const {
    if (auto* edit = impl_->as<QLineEdit>(c))
        return edit->hasSelectedText() ? edit->selectionStart() : edit->cursorPosition();
    return state(c).selStart;
}

void QtWindow::SetSelStart(Ctl c, int start) {
    const int length = TextLength(c);
    start = std::clamp(start, 0, length);
    if (auto* edit = impl_->as<QLineEdit>(c)) {
        edit->setCursorPosition(start);
        return;
    }
    state(c).SetSelStart(start, length);
    if (auto* plain = impl_->as<QPlainTextEdit>(c); plain != nullptr && start == length)
        plain->verticalScrollBar()->setValue(plain->verticalScrollBar()->maximum());
}

int QtWindow::SelLength(Ctl c) const {
    if (auto* edit = impl_->as<QLineEdit>(c)) return static_cast<int>(edit->selectedText().size());
    return state(c).selLength;
}

void QtWindow::SetSelLength(Ctl c, int length) {
    if (auto* edit = impl_->as<QLineEdit>(c)) {
        const int start = SelStart(c);
        edit->setSelection(start, std::clamp(length, 0, TextLength(c) - start));
        return;
    }
    state(c).SetSelLength(length, TextLength(c));
}

void QtWindow::SetFocus(Ctl c) {
    if (QWidget* w = impl_->at(c).widget; w != nullptr && c != Ctl::frmMain) w->setFocus();
}

void QtWindow::Refresh(Ctl c) {
    if (QWidget* w = impl_->at(c).widget) w->update();
}

void QtWindow::PopupMenu(Ctl menu, Ctl defaultEntry) {
    Impl& d = *impl_;
    QMenu popup(&d.main);
    popup.setFont(FontFor(app::Spec(menu).font));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != menu || spec.id == menu || !state(spec.id).visible) continue;
        const std::string& caption = state(spec.id).text;
        if (caption == "-") {
            popup.addSeparator();
            continue;
        }
        QAction* action = popup.addAction(Q(caption));
        action->setData(static_cast<int>(spec.id));
        action->setEnabled(state(spec.id).enabled);
        if (spec.id == defaultEntry) {
            QFont bold = popup.font();
            bold.setBold(true);
            action->setFont(bold);
            popup.setDefaultAction(action);
        }
    }
    QAction* chosen = popup.exec(QCursor::pos());
    if (chosen != nullptr && d.events) d.events->Click(static_cast<Ctl>(chosen->data().toInt()));
}

app::Surface* QtWindow::Picture(Ctl c) { return impl_->at(c).surface.get(); }

} // namespace qtui
