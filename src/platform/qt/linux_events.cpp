#include "platform/qt/linux_events.h"

#include <QSocketNotifier>

namespace qtui {

LinuxEventPump::LinuxEventPump(linuxbk::System& system, QtWindow& window) : system_(system), window_(window) {
    if (linuxbk::EventSources* sources = system_.Events()) {
        for (const pollfd& fd : sources->PollFds()) {
            // The mount table signals a change as an exceptional condition.
            const auto type = (fd.events & POLLPRI) != 0 ? QSocketNotifier::Exception : QSocketNotifier::Read;
            auto notifier = std::make_unique<QSocketNotifier>(fd.fd, type);
            QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] { Pump(); });
            notifiers_.push_back(std::move(notifier));
        }
    }
    if (const int fd = system_.Channel().Fd(); fd >= 0) {
        auto notifier = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] {
            for (const auto& request : system_.Channel().Requests())
                if (request == "restore" || request == "raise") window_.RestoreAndRaise();
        });
        notifiers_.push_back(std::move(notifier));
    }
}

LinuxEventPump::~LinuxEventPump() = default;

void LinuxEventPump::Pump() {
    linuxbk::EventSources* sources = system_.Events();
    if (sources == nullptr) return;
    for (const auto& event : sources->Read()) Deliver(event);
}

void LinuxEventPump::Deliver(const linuxbk::SystemEvent& event) {
    system_.Deliver(window_.hWnd(), event);
    if (observer_) observer_(event);
}

} // namespace qtui
