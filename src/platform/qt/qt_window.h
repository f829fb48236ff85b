#pragma once
// The main window in Qt 6 Widgets: every frame, control and menu of the form
// table built as real widgets at the table's twips (converted with the
// screen's dots per inch), reporting the user's actions through ViewEvents
// with the same semantics as the headless window: a list or combo index set
// from code raises Click, a text box's text changed from code raises Change,
// a disabled control ignores the user, a key goes down and then up.
#include <functional>
#include <memory>
#include <string>

#include "platform/portable/control_view.h"

class QWidget;
class QAction;
class QImage;

namespace qtui {

class QtWindow : public portable::ControlView {
public:
    explicit QtWindow(platform::WindowHandle handle = 0x10010);
    ~QtWindow() override;
    QtWindow(const QtWindow&) = delete;
    QtWindow& operator=(const QtWindow&) = delete;

    // Shows the window as the window system does after loading it: the
    // resize handling first, then the window appears with the drive list
    // focused, and is activated.
    void Show();
    // Brings the window back from the task bar and to the front.
    void RestoreAndRaise();
    // Keeps the window above all others (or not).
    void SetTopmost(bool topmost);
    bool Topmost() const;
    // The flash timer's interval in milliseconds, asked again after every
    // tick; 0 means the timer never ticks.
    void SetTimerInterval(std::function<int(app::Ctl)> interval);
    // Called after the close box was pressed and the logic was told.
    void OnCloseRequested(std::function<void()> after);

    // The widgets, for the window system layer and tests.
    QWidget* Widget() const;
    QWidget* ControlWidget(app::Ctl control) const;
    QAction* MenuAction(app::Ctl control) const;
    // The picture box's image as painted so far.
    const QImage* PictureImage(app::Ctl control) const;
    // The face a table font became on this system.
    static std::string UsableFace(const std::string& wanted);

    static int TwipsToPixels(double twips);
    static double PixelsToTwips(int pixels);

    // View
    void SetEvents(app::ViewEvents* events) override;
    platform::WindowHandle hWnd() const override;
    platform::WindowHandle ControlHandle(app::Ctl control) const override;
    std::string Text(app::Ctl control) const override;
    void SetText(app::Ctl control, const std::string& text) override;
    double ScaleWidth(app::Ctl control) const override;
    double ScaleHeight(app::Ctl control) const override;
    int WindowState() const override;
    void SetWindowState(int state) override;

    void AddColumn(app::Ctl list, const std::string& caption, int widthTwips) override;
    int ColumnCount(app::Ctl list) const override;
    void ClearItems(app::Ctl list) override;
    int AddItem(app::Ctl list, const std::string& text) override;
    int ItemCount(app::Ctl list) const override;
    bool SetSubItem(app::Ctl list, int item, int sub, const std::string& text) override;
    std::string SubItem(app::Ctl list, int item, int sub) const override;
    bool SetItemSelected(app::Ctl list, int item, bool selected) override;
    bool ItemSelected(app::Ctl list, int item) const override;
    int SelectedItem(app::Ctl list) const override;
    bool SetSelectedItem(app::Ctl list, int item) override;

    void AddListItem(app::Ctl list, const std::string& text) override;
    void ClearList(app::Ctl list) override;
    int ListCount(app::Ctl list) const override;
    std::string List(app::Ctl list, int index) const override;
    int ListIndex(app::Ctl list) const override;
    bool SetListIndex(app::Ctl list, int index) override;

    void AppendText(app::Ctl control, const std::string& text) override;
    int TextLength(app::Ctl control) const override;
    int SelStart(app::Ctl control) const override;
    void SetSelStart(app::Ctl control, int start) override;
    int SelLength(app::Ctl control) const override;
    void SetSelLength(app::Ctl control, int length) override;
    void SetFocus(app::Ctl control) override;
    void Refresh(app::Ctl control) override;
    void PopupMenu(app::Ctl menu, app::Ctl defaultEntry) override;
    app::Surface* Picture(app::Ctl control) override;

    class Impl;

protected:
    // The form's rectangle is the window's on the screen; its size stays as built.
    double bound(app::Ctl control, portable::Edge edge) const override;
    void setBound(app::Ctl control, portable::Edge edge, double twips) override;
    void enabledChanged(app::Ctl control) override;
    void visibleChanged(app::Ctl control) override;

private:
    std::unique_ptr<Impl> impl_;
};

} // namespace qtui
