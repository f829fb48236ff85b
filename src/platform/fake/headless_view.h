#pragma once
// The main window without a screen: every control of the form table held in
// memory, raising the same events a real window raises, so the logic runs
// unchanged in tests and in kestrine-sim. It also plays the user: clicks, keys,
// typing, choices and close requests go to the logic through ViewEvents.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/view.h"
#include "platform/fake/raster_surface.h"
#include "platform/portable/control_view.h"

namespace fake {

struct ViewChange {
    app::Ctl control;
    std::string property; // "caption", "text", "enabled", "visible", "left", "rows", "listIndex", "popup", "bar", ...
    std::string value;
};

class HeadlessView : public portable::ControlView {
public:
    explicit HeadlessView(platform::WindowHandle handle = 0x10010);
    HeadlessView(const HeadlessView&) = delete;
    HeadlessView& operator=(const HeadlessView&) = delete;

    // Observers see every change of a control's state, in order.
    void OnChange(std::function<void(const ViewChange&)> observer) { observer_ = std::move(observer); }
    // Whether a text box's selection is a change observers see ("selStart",
    // "selLength"); off unless asked for.
    void ReportSelection(bool report) { reportSelection_ = report; }

    // The user's actions.
    void UserClick(app::Ctl control);
    void UserDblClick(app::Ctl control);
    void UserKey(app::Ctl control, std::int16_t keyCode, std::int16_t shift); // key down, then up
    void UserMouseUp(app::Ctl control, std::int16_t button, std::int16_t shift = 0);
    void UserType(app::Ctl control, const std::string& text);
    void UserSelectText(app::Ctl control, int start, int length);      // the selection in a text box
    void UserLeave(app::Ctl control);                                  // focus leaves a control that validates
    void UserChoose(app::Ctl list, int index);                         // a combo or list box entry
    void UserSelectRows(app::Ctl list, const std::vector<int>& items); // report-view rows, then a click
    void UserResize(double width, double height);
    void UserMinimize();
    void UserRestore();
    void Activate();
    void UserClose();
    void TimerTick(app::Ctl timer);

    // The last pop-up menu opened, for tests.
    app::Ctl LastPopup() const { return lastPopup_; }
    app::Ctl LastPopupDefault() const { return lastPopupDefault_; }
    int PopupCount() const { return popupCount_; }
    bool Focused(app::Ctl control) const { return focus_ == control; }

    // Stands for another window from now on (a window-less tool that lends
    // the program a hidden window of the system to receive broadcasts).
    void SetHwnd(platform::WindowHandle handle) { handle_ = handle; }

    // View
    void SetEvents(app::ViewEvents* events) override { events_ = events; }
    platform::WindowHandle hWnd() const override { return handle_; }
    platform::WindowHandle ControlHandle(app::Ctl control) const override {
        return handle_ + 0x10 + static_cast<platform::WindowHandle>(control);
    }
    std::string Text(app::Ctl control) const override;
    void SetText(app::Ctl control, const std::string& text) override;
    double ScaleWidth(app::Ctl control) const override;
    double ScaleHeight(app::Ctl control) const override;
    int WindowState() const override { return windowState_; }
    void SetWindowState(int state) override;

    void AddColumn(app::Ctl list, const std::string& caption, int widthTwips) override;
    int ColumnCount(app::Ctl list) const override { return static_cast<int>(at(list).columns.size()); }
    void ClearItems(app::Ctl list) override;
    int AddItem(app::Ctl list, const std::string& text) override;
    int ItemCount(app::Ctl list) const override { return static_cast<int>(at(list).items.size()); }
    bool SetItemText(app::Ctl list, int item, const std::string& text) override;
    std::string ItemText(app::Ctl list, int item) const override;
    bool SetSubItem(app::Ctl list, int item, int sub, const std::string& text) override;
    std::string SubItem(app::Ctl list, int item, int sub) const override;
    bool SetItemSelected(app::Ctl list, int item, bool selected) override;
    bool ItemSelected(app::Ctl list, int item) const override;
    int SelectedItem(app::Ctl list) const override { return at(list).selectedItem; }
    bool SetSelectedItem(app::Ctl list, int item) override;

    void AddListItem(app::Ctl list, const std::string& text) override;
    void ClearList(app::Ctl list) override;
    int ListCount(app::Ctl list) const override { return static_cast<int>(at(list).entries.size()); }
    std::string List(app::Ctl list, int index) const override;
    int ListIndex(app::Ctl list) const override { return at(list).listIndex; }
    bool SetListIndex(app::Ctl list, int index) override;

    void AppendText(app::Ctl control, const std::string& text) override;
    int TextLength(app::Ctl control) const override;
    int SelStart(app::Ctl control) const override { return state(control).selStart; }
    void SetSelStart(app::Ctl control, int start) override;
    int SelLength(app::Ctl control) const override { return state(control).selLength; }
    void SetSelLength(app::Ctl control, int length) override;
    void SetFocus(app::Ctl control) override;
    void PopupMenu(app::Ctl menu, app::Ctl defaultEntry) override;
    void Refresh(app::Ctl control) override;

    // One line per row of a report-view list: text and sub-items joined by " | ".
    std::vector<std::string> Rows(app::Ctl list) const;

    // Picture boxes: their rasters (nullptr for other controls), and the
    // window's repaint. Painting goes to a box's image at once; observers hear
    // of it when the window next repaints, which happens before any other
    // change is reported and whenever Repaint is called. A picture that looks
    // as it did at the last repaint is not reported again; one that changed is
    // reported once as property "bar" with the texts printed on it (one per
    // line; empty when none).
    RasterSurface* Raster(app::Ctl control) { return canvases_[static_cast<std::size_t>(control)].surface.get(); }
    const RasterSurface* Raster(app::Ctl control) const {
        return canvases_[static_cast<std::size_t>(control)].surface.get();
    }
    app::Surface* Picture(app::Ctl control) override { return Raster(control); }
    void Repaint();

protected:
    void setBound(app::Ctl c, portable::Edge e, double twips) override;
    void enabledChanged(app::Ctl c) override;
    void visibleChanged(app::Ctl c) override;

private:
    struct Item {
        std::string text;
        std::vector<std::string> subItems;
        bool selected = false;
    };
    struct Column {
        std::string caption;
        int width = 0;
    };
    // What a list holds beside its control state: a report view's columns
    // and rows, a list or combo box's entries (their data is in the state).
    struct Lists {
        std::vector<Column> columns;
        std::vector<Item> items;
        int selectedItem = 0;
        std::vector<std::string> entries;
        int listIndex = -1;
    };

    struct Canvas {
        std::unique_ptr<RasterSurface> surface;
        bool pending = false;
        std::vector<std::int32_t> shownPixels;
        std::vector<PrintedText> shownTexts;
    };

    // A text's length in characters, counted once per text and kept up to
    // date by appends, so a log that only grows costs nothing to measure.
    struct Counted {
        std::size_t bytes = 0;
        int chars = 0;
    };
    mutable std::vector<Counted> counted_ = std::vector<Counted>(app::kControlCount);

    Lists& at(app::Ctl control) { return lists_[static_cast<std::size_t>(control)]; }
    const Lists& at(app::Ctl control) const { return lists_[static_cast<std::size_t>(control)]; }
    void notify(app::Ctl control, std::string property, std::string value);
    void notifyNow(app::Ctl control, std::string property, std::string value);
    void notifyRows(app::Ctl list);
    // Reports the selection of a text box where it differs from start and length.
    void selectionMoved(app::Ctl control, int start, int length);
    bool validItem(app::Ctl list, int item) const { return item >= 1 && item <= ItemCount(list); }

    platform::WindowHandle handle_;
    std::vector<Lists> lists_;
    std::vector<Canvas> canvases_;
    app::ViewEvents* events_ = nullptr;
    std::function<void(const ViewChange&)> observer_;
    bool reportSelection_ = false;
    int windowState_ = app::kStateNormal;
    app::Ctl focus_ = app::Ctl::frmMain;
    app::Ctl lastPopup_ = app::Ctl::frmMain;
    app::Ctl lastPopupDefault_ = app::Ctl::frmMain;
    int popupCount_ = 0;
};

} // namespace fake
