#pragma once
// The control-keyed interface through which the logic reads and changes the
// main window. Renderers (native Win32 controls, Qt widgets, the headless
// in-memory window of the tests) implement it from the form table and report
// the user's actions back through ViewEvents.
#include <cstdint>
#include <string>

#include "core/form_table.h"
#include "core/surface.h"
#include "core/vb.h"
#include "platform/types.h"

namespace app {

// Window states.
inline constexpr int kStateNormal = 0;
inline constexpr int kStateMinimized = 1;
inline constexpr int kStateMaximized = 2;

// Mouse buttons and shift masks.
inline constexpr std::int16_t kLeftButton = 1;
inline constexpr std::int16_t kRightButton = 2;
inline constexpr std::int16_t kShiftMask = 1;
inline constexpr std::int16_t kCtrlMask = 2;
inline constexpr std::int16_t kAltMask = 4;

// What the window reports to the logic. A renderer calls these on the user
// interface thread; the headless window also calls them when code changes a
// control in a way that raises an event (a combo box index, a text).
class ViewEvents {
public:
    virtual ~ViewEvents() = default;
    virtual void Click(Ctl control) = 0; // buttons, menu entries, a combo choice, a list selection
    virtual void DblClick(Ctl control) = 0;
    virtual void Change(Ctl control) = 0; // a text box's text changed
    virtual void KeyDown(Ctl control, std::int16_t& keyCode, std::int16_t shift) = 0;
    virtual void KeyUp(Ctl control, std::int16_t& keyCode, std::int16_t shift) = 0;
    virtual void MouseUp(Ctl control, std::int16_t button, std::int16_t shift, float x, float y) = 0;
    virtual void Validate(Ctl control, bool& cancel) = 0;
    virtual void Tick(Ctl timer) = 0; // a timer's interval has passed
    virtual void Resize() = 0;
    virtual void Activate() = 0;
    // The close box, the system menu or a system shutdown asks the window to close.
    virtual void CloseRequested() = 0;
    // The session is ending: the same close request, answered. False when
    // the window refused to close and the session should not end yet.
    virtual bool SessionEnding() {
        CloseRequested();
        return true;
    }
};

class View {
public:
    virtual ~View() = default;

    virtual void SetEvents(ViewEvents* events) = 0;
    virtual platform::WindowHandle hWnd() const = 0;
    // The window handle of a control that has its own window (the list view); 0 otherwise.
    virtual platform::WindowHandle ControlHandle(Ctl control) const = 0;

    // Caption of the form, a frame, label, button or menu entry; text of a text
    // box; text of the selected entry of a combo box.
    virtual std::string Text(Ctl control) const = 0;
    // Raises Change for a text box whose text differs from before.
    virtual void SetText(Ctl control, const std::string& text) = 0;
    virtual bool Enabled(Ctl control) const = 0;
    virtual void SetEnabled(Ctl control, bool enabled) = 0;
    virtual bool Visible(Ctl control) const = 0;
    virtual void SetVisible(Ctl control, bool visible) = 0;

    // Position and size in twips relative to the container; for the form, its
    // outer rectangle on the screen. Changing the form's size raises Resize.
    virtual double Left(Ctl control) const = 0;
    virtual double Top(Ctl control) const = 0;
    virtual double Width(Ctl control) const = 0;
    virtual double Height(Ctl control) const = 0;
    virtual void SetLeft(Ctl control, double twips) = 0;
    virtual void SetTop(Ctl control, double twips) = 0;
    virtual void SetWidth(Ctl control, double twips) = 0;
    virtual void SetHeight(Ctl control, double twips) = 0;
    // Inner size of the form (client area), a frame or a picture box, in twips.
    virtual double ScaleWidth(Ctl control) const = 0;
    virtual double ScaleHeight(Ctl control) const = 0;
    virtual int WindowState() const = 0;
    virtual void SetWindowState(int state) = 0;

    // Report-view list: columns, items numbered from 1, sub-items from 1.
    virtual void AddColumn(Ctl list, const std::string& caption, int widthTwips) = 0;
    virtual int ColumnCount(Ctl list) const = 0;
    virtual void ClearItems(Ctl list) = 0;
    // Adds an item at the end and returns its index.
    virtual int AddItem(Ctl list, const std::string& text) = 0;
    virtual int ItemCount(Ctl list) const = 0;
    // False when there is no such item.
    virtual bool SetItemText(Ctl list, int item, const std::string& text) = 0;
    virtual std::string ItemText(Ctl list, int item) const = 0;
    virtual bool SetSubItem(Ctl list, int item, int sub, const std::string& text) = 0;
    virtual std::string SubItem(Ctl list, int item, int sub) const = 0;
    virtual bool SetItemSelected(Ctl list, int item, bool selected) = 0;
    virtual bool ItemSelected(Ctl list, int item) const = 0;
    // The selected (focused) item, 0 when none; setting it selects that item.
    virtual int SelectedItem(Ctl list) const = 0;
    virtual bool SetSelectedItem(Ctl list, int item) = 0;

    // List boxes, drive list box and combo box: entries numbered from 0.
    virtual void AddListItem(Ctl list, const std::string& text) = 0;
    virtual void ClearList(Ctl list) = 0;
    virtual int ListCount(Ctl list) const = 0;
    virtual std::string List(Ctl list, int index) const = 0;
    // -1 when nothing is selected.
    virtual int ListIndex(Ctl list) const = 0;
    // Selects an entry (-1 for none) and raises Click; false, with nothing
    // changed, when the index is out of range.
    virtual bool SetListIndex(Ctl list, int index) = 0;
    virtual std::int32_t ItemData(Ctl list, int index) const = 0;
    virtual bool SetItemData(Ctl list, int index, std::int32_t data) = 0;

    // Text boxes. Lengths and selection positions count characters, not the
    // bytes of the UTF-8 text.
    // Appends to a text box's text (raising Change); a renderer keeps this
    // cheap however long the text grows.
    virtual void AppendText(Ctl control, const std::string& text) { SetText(control, Text(control) + text); }
    virtual int TextLength(Ctl control) const { return vb::CharCount(Text(control)); }
    virtual bool DataChanged(Ctl control) const = 0;
    virtual void SetDataChanged(Ctl control, bool changed) = 0;
    virtual int SelStart(Ctl control) const = 0;
    virtual void SetSelStart(Ctl control, int start) = 0;
    virtual int SelLength(Ctl control) const = 0;
    virtual void SetSelLength(Ctl control, int length) = 0;
    virtual void SetFocus(Ctl control) = 0;

    // Repaints a control now (a list after its rows changed).
    virtual void Refresh(Ctl control) = 0;

    // Opens a pop-up menu at the mouse position with a default (bold) entry.
    virtual void PopupMenu(Ctl menu, Ctl defaultEntry) = 0;

    // The drawing surface of a picture box; nullptr for any other control.
    virtual Surface* Picture(Ctl control) = 0;
};

} // namespace app
