#include "platform/qt/linux_events.h"

#include <QSocketNotifier>

namespace qtui {

using Kind = linuxbk::SystemEvent::Kind;

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

std::uint32_t LinuxEventPump::ShellEventCode(Kind kind) {
    switch (kind) {
    case Kind::Renamed:
        return 0x1;
    case Kind::Created:
        return 0x2;
    case Kind::Deleted:
        return 0x4;
    case Kind::FolderCreated:
        return 0x8;
    case Kind::FolderRemoved:
        return 0x10;
    case Kind::MediaInserted:
        return 0x20;
    case Kind::MediaRemoved:
        return 0x40;
    case Kind::DriveRemoved:
        return 0x80;
    case Kind::DriveAdded:
        return 0x100;
    case Kind::AttributesChanged:
        return 0x800;
    default:
        return 0;
    }
}

void LinuxEventPump::Pump() {
    linuxbk::EventSources* sources = system_.Events();
    if (sources == nullptr) return;
    for (const auto& event : sources->Read()) Deliver(event);
}

void LinuxEventPump::Deliver(const linuxbk::SystemEvent& event) {
    linuxbk::ConsoleWindows& windows = system_.Console();
    const platform::WindowHandle main = window_.hWnd();
    if (event.kind == Kind::DeviceArrived) {
        windows.Deliver(main, platform::kWmDeviceChange, platform::kDbtDeviceArrival, 0);
    } else if (event.kind == Kind::DeviceRemoved) {
        windows.Deliver(main, platform::kWmDeviceChange, platform::kDbtDeviceRemoveComplete, 0);
    } else if (const std::uint32_t code = ShellEventCode(event.kind); code != 0) {
        linuxbk::LinuxShell& shell = system_.Shell();
        auto item = [&shell](const std::string& path) -> platform::Pidl {
            return path.empty() ? 0 : shell.Item(linuxbk::EventSources::DisplayName(path), path);
        };
        const std::uintptr_t record = shell.ReportRecord(item(event.path1), item(event.path2));
        const auto registered = shell.Registrations();
        for (const auto& [window, message] : registered)
            windows.Deliver(window, message, record, static_cast<std::intptr_t>(static_cast<std::int32_t>(code)));
    }
    if (observer_) observer_(event);
}

} // namespace qtui
