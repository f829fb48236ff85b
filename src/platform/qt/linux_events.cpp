#include "platform/qt/linux_events.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSocketNotifier>

namespace qtui {

namespace {

const QEvent::Type kDeliverNext = static_cast<QEvent::Type>(QEvent::registerEventType());
// The window's repaint is posted at Qt::LowEventPriority; the next event comes after it.
constexpr int kAfterRepaint = Qt::LowEventPriority - 1;

} // namespace

class LinuxEventPump::Later : public QObject {
public:
    explicit Later(LinuxEventPump& pump) : pump_(pump) {}

protected:
    void customEvent(QEvent* event) override {
        if (event->type() == kDeliverNext) pump_.deliverNext();
    }

private:
    LinuxEventPump& pump_;
};

LinuxEventPump::LinuxEventPump(linuxbk::System& system, QtWindow& window)
    : system_(system), window_(window), later_(std::make_unique<Later>(*this)) {
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
    Queue(sources->Read());
}

void LinuxEventPump::Queue(std::vector<linuxbk::SystemEvent> events) {
    for (auto& event : events) pending_.push_back(std::move(event));
    if (!posted_) deliverNext();
}

void LinuxEventPump::deliverNext() {
    posted_ = false;
    if (pending_.empty()) return;
    const linuxbk::SystemEvent event = std::move(pending_.front());
    pending_.pop_front();
    posted_ = true; // while it is handled, events read meanwhile wait their turn
    Deliver(event);
    if (pending_.empty()) {
        posted_ = false;
        return;
    }
    QCoreApplication::postEvent(later_.get(), new QEvent(kDeliverNext), kAfterRepaint);
}

void LinuxEventPump::Deliver(const linuxbk::SystemEvent& event) {
    system_.Deliver(window_.hWnd(), event);
    if (observer_) observer_(event);
}

} // namespace qtui
