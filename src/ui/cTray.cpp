#include "ui/cTray.h"
#include "platform/bytes.h"

#include <algorithm>

#include "core/program.h"

namespace ui {

cTray::~cTray() {
    TrayIcon_Delete();
    program_.sys.windows.ReleasePicture(picture_);
}

void cTray::TrayIcon_Icon(std::uintptr_t lNew) {
    if (lNew == picture_) return;
    program_.sys.windows.ReleasePicture(picture_);
    picture_ = lNew;
}

void cTray::put(std::size_t offset, std::uint32_t value) { platform::WriteLe32(record_, offset, value); }

std::uint32_t cTray::get(std::size_t offset) const { return platform::ReadLe32(record_, offset); }

// The text cut to 63 bytes so that the terminating null always fits, then
// spaces up to the field's 64 bytes.
void cTray::putTip(const std::string& text) {
    const std::size_t n = std::min(text.size(), kTipSize - 1);
    auto tip = record_.begin() + static_cast<std::ptrdiff_t>(kOffsetTip);
    std::copy_n(text.begin(), n, tip);
    tip[static_cast<std::ptrdiff_t>(n)] = 0;
    std::fill(tip + static_cast<std::ptrdiff_t>(n) + 1, record_.end(), static_cast<std::uint8_t>(' '));
}

// The shell's answer is not looked at: a refused request changes nothing.
void cTray::notify(std::uint32_t message) {
    program_.sys.shell.Shell_NotifyIconA(message, std::span<const std::uint8_t, kRecordSize>(record_));
}

void cTray::TrayIcon_Set(platform::WindowHandle lhWnd, const std::string& sCaption) {
    window_ = lhWnd;
    put(kOffsetCbSize, kRecordSize);
    put(kOffsetWnd, static_cast<std::uint32_t>(lhWnd));
    put(kOffsetId, kIconId);
    put(kOffsetFlags, kFlags);
    put(kOffsetCallbackMessage, kCallbackMessage);
    put(kOffsetIcon, static_cast<std::uint32_t>(picture_));
    putTip(sCaption);
    notify(platform::kNimAdd);
}

void cTray::TrayIcon_Modify(const std::string& sCaption, std::uint32_t& lIcon) {
    put(kOffsetCbSize, kRecordSize);
    put(kOffsetWnd, static_cast<std::uint32_t>(window_));
    put(kOffsetIcon, lIcon);
    putTip(sCaption);
    notify(platform::kNimModify);
}

void cTray::TrayIcon_Modify(const std::string& sCaption) {
    std::uint32_t lIcon = get(kOffsetIcon);
    TrayIcon_Modify(sCaption, lIcon);
}

void cTray::TrayIcon_Delete() { notify(platform::kNimDelete); }

} // namespace ui
