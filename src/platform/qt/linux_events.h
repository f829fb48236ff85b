#pragma once
// Feeds the Linux backend's event sources into the window: the descriptors
// are watched by the Qt event loop (no polling), device arrival and removal
// go through the window-procedure chain as WM_DEVICECHANGE, drive, medium
// and file changes as WM_SHNOTIFY reports with items the shell stand-in can
// name, and a second start's requests restore and raise the window.
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "platform/linux/system.h"
#include "platform/qt/qt_window.h"

class QSocketNotifier;

namespace qtui {

class LinuxEventPump {
public:
    LinuxEventPump(linuxbk::System& system, QtWindow& window);
    ~LinuxEventPump();
    LinuxEventPump(const LinuxEventPump&) = delete;
    LinuxEventPump& operator=(const LinuxEventPump&) = delete;

    // Reads what the sources have now and delivers it (see Queue).
    void Pump();
    // Delivers the first event at once and each next one in a later turn of
    // the event loop, after the window has repainted what the one before
    // changed: the list shows a new drive before the shell's reports of it
    // are logged, which on Windows come later anyway, from the shell.
    void Queue(std::vector<linuxbk::SystemEvent> events);
    // Delivers one event as the window would receive it.
    void Deliver(const linuxbk::SystemEvent& event);
    // Sees every event after it was delivered.
    void OnEvent(std::function<void(const linuxbk::SystemEvent&)> observer) { observer_ = std::move(observer); }

private:
    class Later;
    void deliverNext();

    linuxbk::System& system_;
    QtWindow& window_;
    std::vector<std::unique_ptr<QSocketNotifier>> notifiers_;
    std::deque<linuxbk::SystemEvent> pending_;
    std::unique_ptr<Later> later_; // receives the posted "deliver the next one"
    bool posted_ = false;
    std::function<void(const linuxbk::SystemEvent&)> observer_;
};

} // namespace qtui
