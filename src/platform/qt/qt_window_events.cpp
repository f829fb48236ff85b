// The Qt window's event plumbing: the close box and the window's state and
// activation, the drive list's mouse and keys, the text boxes' validation, the
// flash timer, and showing, raising and keeping the window on top.
#include <QCloseEvent>
#include <QKeyEvent>
#include <QTreeWidget>
#include <QWindow>

#include "platform/qt/qt_window_impl.h"

namespace qtui {

using app::Ctl;
using app::Kind;

namespace {

// Windows virtual-key codes for the keys the logic sees.
std::int16_t VirtualKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z) return static_cast<std::int16_t>('A' + (key - Qt::Key_A));
    if (key >= Qt::Key_0 && key <= Qt::Key_9) return static_cast<std::int16_t>('0' + (key - Qt::Key_0));
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24) return static_cast<std::int16_t>(112 + (key - Qt::Key_F1));
    switch (key) {
    case Qt::Key_Backspace:
        return 8;
    case Qt::Key_Tab:
        return 9;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 13;
    case Qt::Key_Shift:
        return 16;
    case Qt::Key_Control:
        return 17;
    case Qt::Key_Alt:
        return 18;
    case Qt::Key_Escape:
        return 27;
    case Qt::Key_Space:
        return 32;
    case Qt::Key_PageUp:
        return 33;
    case Qt::Key_PageDown:
        return 34;
    case Qt::Key_End:
        return 35;
    case Qt::Key_Home:
        return 36;
    case Qt::Key_Left:
        return 37;
    case Qt::Key_Up:
        return 38;
    case Qt::Key_Right:
        return 39;
    case Qt::Key_Down:
        return 40;
    case Qt::Key_Insert:
        return 45;
    case Qt::Key_Delete:
        return 46;
    default:
        return 0;
    }
}

std::int16_t ShiftMask(Qt::KeyboardModifiers m) {
    std::int16_t shift = 0;
    if (m & Qt::ShiftModifier) shift |= app::kShiftMask;
    if (m & Qt::ControlModifier) shift |= app::kCtrlMask;
    if (m & Qt::AltModifier) shift |= app::kAltMask;
    return shift;
}

} // namespace

void QtWindow::Impl::Main::closeEvent(QCloseEvent* e) {
    if (impl_.dying) return;
    e->ignore();
    if (impl_.events != nullptr) impl_.events->CloseRequested();
    if (impl_.afterClose) impl_.afterClose();
}

void QtWindow::Impl::Main::changeEvent(QEvent* e) {
    QMainWindow::changeEvent(e);
    if (impl_.dying) return;
    if (e->type() == QEvent::WindowStateChange && impl_.live() && !impl_.showing) impl_.events->Resize();
    if (e->type() == QEvent::ActivationChange && isActiveWindow() && impl_.live() && !impl_.showing) {
        if (impl_.skipActivation) {
            impl_.skipActivation = false;
            impl_.activationGrace.stop();
        } else {
            impl_.events->Activate();
        }
    }
}

// The window manager's frame becomes known once the window is mapped, and
// may change: the outer size is fixed again each time.
bool QtWindow::Impl::Main::event(QEvent* e) {
    const bool handled = QMainWindow::event(e);
    if (!impl_.dying && (e->type() == QEvent::Move || e->type() == QEvent::Resize || e->type() == QEvent::Show))
        impl_.fixOuterSize();
    return handled;
}

void QtWindow::Impl::syncTimer() {
    const int ms = interval ? interval(Ctl::tmrFlashMe) : 0;
    if (!state(Ctl::tmrFlashMe).enabled || ms <= 0) {
        timer.stop();
        return;
    }
    if (timer.interval() != ms) timer.setInterval(ms);
    if (!timer.isActive()) timer.start();
}

// A button let go over the drive list: a left one clicks it first.
bool QtWindow::Impl::onListMouse(QEvent* e) {
    auto* mouse = static_cast<QMouseEvent*>(e);
    const std::int16_t shift = ShiftMask(mouse->modifiers());
    const auto x = static_cast<float>(PixelsToTwips(static_cast<int>(mouse->position().x())));
    const auto y = static_cast<float>(PixelsToTwips(static_cast<int>(mouse->position().y())));
    if (mouse->button() == Qt::LeftButton) {
        events->Click(Ctl::ListView1);
        events->MouseUp(Ctl::ListView1, app::kLeftButton, shift, x, y);
    } else if (mouse->button() == Qt::RightButton) {
        events->MouseUp(Ctl::ListView1, app::kRightButton, shift, x, y);
    }
    return false;
}

// The drive list's keys: the logic sees each key going down and up.
bool QtWindow::Impl::onListKey(QEvent* e) {
    auto* key = static_cast<QKeyEvent*>(e);
    if (key->isAutoRepeat() && e->type() == QEvent::KeyRelease) return false;
    std::int16_t code = VirtualKey(key->key());
    if (code == 0) return false;
    const std::int16_t shift = ShiftMask(key->modifiers());
    if (e->type() == QEvent::KeyPress)
        events->KeyDown(Ctl::ListView1, code, shift);
    else
        events->KeyUp(Ctl::ListView1, code, shift);
    return code == 0; // a key the logic handled goes no further
}

// The drive list's mouse and keys, and the text boxes' validation.
bool QtWindow::Impl::eventFilter(QObject* watched, QEvent* e) {
    if (dying) return false;
    auto* tree = as<QTreeWidget>(Ctl::ListView1);
    if (tree != nullptr && watched == tree->viewport() && e->type() == QEvent::MouseButtonRelease && live())
        return onListMouse(e);
    if (tree != nullptr && watched == tree && (e->type() == QEvent::KeyPress || e->type() == QEvent::KeyRelease) &&
        live())
        return onListKey(e);
    if (e->type() == QEvent::FocusOut && live()) {
        const Ctl c = controlOf(watched);
        if (c != Ctl::Count_ && app::Spec(c).kind == Kind::TextBox) {
            bool cancel = false;
            events->Validate(c, cancel);
            if (cancel) QTimer::singleShot(0, at(c).widget, [w = at(c).widget] { w->setFocus(); });
        }
    }
    return false;
}

void QtWindow::Show() {
    Impl& d = *impl_;
    d.showing = true;
    d.shown = true;
    if (d.events) d.events->Resize();
    state(Ctl::frmMain).visible = true;
    // The show is the first activation. The window manager's own activation
    // in answer to it is not another; one that comes later, or the first
    // when the window manager did not activate the window on show, is.
    d.skipActivation = true;
    d.activationGrace.start();
    d.main.show();
    d.main.raise();
    d.main.activateWindow();
    if (auto* list = d.at(Ctl::ListView1).widget; list != nullptr && state(Ctl::ListView1).visible) list->setFocus();
    d.showing = false;
    if (d.events) d.events->Activate();
}

void QtWindow::RestoreAndRaise() {
    QMainWindow& main = impl_->main;
    if (main.isMinimized()) main.showNormal();
    main.show();
    main.raise();
    main.activateWindow();
}

void QtWindow::SetTopmost(bool topmost) {
    QMainWindow& main = impl_->main;
    if (Topmost() == topmost) return;
    Qt::WindowFlags flags = main.windowFlags();
    flags.setFlag(Qt::WindowStaysOnTopHint, topmost);
    if (QWindow* native = main.windowHandle(); native != nullptr && main.isVisible()) {
        // Told to the window system for the window as it is: new flags on a
        // shown widget would destroy its window and make a new one.
        main.overrideWindowFlags(flags);
        native->setFlags(flags);
    } else {
        main.setWindowFlags(flags);
    }
}

bool QtWindow::Topmost() const { return impl_->main.windowFlags().testFlag(Qt::WindowStaysOnTopHint); }

void QtWindow::SetTimerInterval(std::function<int(Ctl)> interval) {
    impl_->interval = std::move(interval);
    impl_->syncTimer();
}

void QtWindow::OnCloseRequested(std::function<void()> after) { impl_->afterClose = std::move(after); }

} // namespace qtui
