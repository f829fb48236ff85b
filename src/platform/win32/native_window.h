#pragma once
// The main window on Windows: the form table rendered with real controls (a
// comctl32 report-view list view, buttons with icons, static labels, edit
// boxes, a drop-down list, list boxes, captionless frames, a picture box
// painted with GDI, images, the menu bar and the pop-up menu), at a fixed
// size in twips converted with the system's dots per inch.
#include <memory>

#include "platform/portable/control_view.h"
#include "platform/win32/backend.h"

namespace win32 {

class NativeWindow : public portable::ControlView {
public:
    // Builds the window and every control, hidden. The hidden application
    // window is kept directly below the main window in the z-order, so that
    // GetWindow(hidden, GW_HWNDPREV) finds the main window from another
    // instance. nullptr when the window cannot be created.
    static std::unique_ptr<NativeWindow> Create(WindowSystem& windows, platform::WindowHandle hiddenWindow);

    // Shows the window as the window system does after loading it: the
    // resize handling first, then the window appears, takes the focus and is
    // activated.
    virtual void Show() = 0;
    // The system window of a control that has one (frames, labels, buttons,
    // boxes, lists); 0 for menus and non-visual controls.
    virtual platform::WindowHandle ControlWindow(app::Ctl control) const = 0;
};

// Pixels for twips at the system's dots per inch, and back.
int TwipsToPixels(double twips);
double PixelsToTwips(int pixels);

} // namespace win32
