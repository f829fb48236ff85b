#include "platform/qt/qt_window_system.h"

#include <algorithm>
#include <cmath>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWidget>

namespace qtui {

namespace {

QString Q(const std::string& s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }

QMessageBox::Icon IconOf(std::uint32_t type) {
    switch (type & 0xF0) {
    case platform::kMbIconStop:
        return QMessageBox::Critical;
    case platform::kMbIconQuestion:
        return QMessageBox::Question;
    case platform::kMbIconExclamation:
        return QMessageBox::Warning;
    case platform::kMbIconInformation:
        return QMessageBox::Information;
    default:
        return QMessageBox::NoIcon;
    }
}

} // namespace

bool QtWindowSystem::OpenIcon(platform::WindowHandle window) {
    if (window != window_.hWnd()) return base_.OpenIcon(window);
    window_.RestoreAndRaise();
    return true;
}

bool QtWindowSystem::SetForegroundWindow(platform::WindowHandle window) {
    if (window != window_.hWnd()) return base_.SetForegroundWindow(window);
    window_.RestoreAndRaise();
    return true;
}

// The buttons a message box type asks for, in the system's order, with the
// answers they give.
std::int32_t QtWindowSystem::MessageBoxA(platform::WindowHandle, const std::string& text, const std::string& caption,
                                         std::uint32_t type) {
    std::string shown = text;
    for (std::size_t at; (at = shown.find("\r\n")) != std::string::npos;) shown.replace(at, 2, 1, '\n');
    QMessageBox box(IconOf(type), Q(caption), Q(shown), QMessageBox::NoButton, window_.Widget());
    if (notices_) {
        const Notice notice = notices_();
        if (!notice.reason.empty()) box.setInformativeText(Q(notice.reason));
        if (!notice.details.empty()) box.setDetailedText(Q(notice.details));
    }
    struct Choice {
        const char* label;
        QMessageBox::ButtonRole role;
        std::int32_t answer;
    };
    std::vector<Choice> choices;
    switch (type & 0xF) {
    case 1:
        choices = {{"OK", QMessageBox::AcceptRole, platform::kIdOk}, {"Cancel", QMessageBox::RejectRole, 2}};
        break;
    case 3:
        choices = {{"&Yes", QMessageBox::YesRole, platform::kIdYes},
                   {"&No", QMessageBox::NoRole, platform::kIdNo},
                   {"Cancel", QMessageBox::RejectRole, platform::kIdCancel}};
        break;
    case platform::kMbYesNo:
        choices = {{"&Yes", QMessageBox::YesRole, platform::kIdYes}, {"&No", QMessageBox::NoRole, platform::kIdNo}};
        break;
    case 5:
        choices = {{"&Retry", QMessageBox::AcceptRole, 4}, {"Cancel", QMessageBox::RejectRole, 2}};
        break;
    default:
        choices = {{"OK", QMessageBox::AcceptRole, platform::kIdOk}};
        break;
    }
    std::vector<QPushButton*> buttons;
    for (const auto& choice : choices) buttons.push_back(box.addButton(choice.label, choice.role));
    const std::size_t preferred = (type & 0xF00) / platform::kMbDefButton2;
    box.setDefaultButton(buttons[preferred < buttons.size() ? preferred : 0]);
    box.setEscapeButton(buttons.back());
    box.exec();
    for (std::size_t i = 0; i < buttons.size(); ++i)
        if (box.clickedButton() == buttons[i]) return choices[i].answer;
    return choices.back().answer; // closed without a choice
}

void QtWindowSystem::DoEvents() {
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    if (yieldToBase_) base_.DoEvents();
}

void QtWindowSystem::WaitForMessages(float seconds) {
    // A simulated machine's time passes in the machine.
    if (yieldToBase_) {
        base_.WaitForMessages(seconds);
        return;
    }
    // The event loop sleeps until an event comes or the timer ends the wait.
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.start(static_cast<int>(std::ceil(std::max(seconds, 0.0f) * 1000.0f)));
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

bool QtWindowSystem::MessageBeep(std::uint32_t) {
    ++beeps_;
    QApplication::beep();
    return true;
}

bool QtWindowSystem::FlashWindow(platform::WindowHandle window, bool) {
    if (window != window_.hWnd()) return base_.FlashWindow(window, true);
    QApplication::alert(window_.Widget(), 200);
    return true;
}

bool QtWindowSystem::SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x,
                                  std::int32_t y, std::int32_t cx, std::int32_t cy, std::uint32_t flags) {
    if (window != window_.hWnd()) return base_.SetWindowPos(window, insertAfter, x, y, cx, cy, flags);
    constexpr auto kNoTopmost = static_cast<platform::WindowHandle>(-2);
    if ((flags & platform::kSwpNoZOrder) == 0) {
        if (insertAfter == platform::kHwndTopmost) window_.SetTopmost(true);
        if (insertAfter == kNoTopmost) window_.SetTopmost(false);
    }
    if ((flags & platform::kSwpNoMove) == 0) window_.Widget()->move(x, y);
    if ((flags & platform::kSwpShowWindow) != 0) window_.Widget()->show();
    return true;
}

platform::TwipsRect QtWindowSystem::WorkArea() {
    const QScreen* screen = window_.Widget()->screen();
    if (screen == nullptr) screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) return base_.WorkArea();
    const QRect area = screen->availableGeometry();
    return {QtWindow::PixelsToTwips(area.x()), QtWindow::PixelsToTwips(area.y()), QtWindow::PixelsToTwips(area.width()),
            QtWindow::PixelsToTwips(area.height())};
}

} // namespace qtui
