#pragma once
// cTray: the program's notification-area icon. It keeps the icon's 88-byte
// NOTIFYICONDATAA record and the picture shown as the icon's image, and adds,
// changes and removes the icon through the shell. The program never adds the
// icon; the drive handling keeps its picture and tip current all the same,
// and releasing the object asks the shell to delete it.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/fwd.h"
#include "platform/types.h"
#include "platform/win_numbers.h"

namespace ui {

class cTray {
public:
    // The record in the shell's ANSI layout: 32-bit little-endian fields and
    // the tip text as 64 bytes.
    static constexpr std::size_t kRecordSize = 88;
    static constexpr std::size_t kOffsetCbSize = 0;
    static constexpr std::size_t kOffsetWnd = 4;
    static constexpr std::size_t kOffsetId = 8;
    static constexpr std::size_t kOffsetFlags = 12;
    static constexpr std::size_t kOffsetCallbackMessage = 16;
    static constexpr std::size_t kOffsetIcon = 20;
    static constexpr std::size_t kOffsetTip = 24;
    static constexpr std::size_t kTipSize = 64;
    static constexpr std::uint32_t kIconId = 1;
    static constexpr std::uint32_t kFlags = 7; // NIF_MESSAGE + NIF_ICON + NIF_TIP
    static constexpr std::uint32_t kCallbackMessage = platform::kWmMouseMove;

    using Record = std::array<std::uint8_t, kRecordSize>;

    explicit cTray(app::Program& program) : program_(program) {}
    // Runs TrayIcon_Delete once and gives the picture back.
    ~cTray();
    cTray(const cTray&) = delete;
    cTray& operator=(const cTray&) = delete;

    // The picture used as the icon: a picture handle, 0 for none. A new
    // picture replaces the stored one, which is given back to the window
    // system; the last one goes with the object.
    std::uintptr_t TrayIcon_Icon() const { return picture_; }
    void TrayIcon_Icon(std::uintptr_t lNew);

    // Fills the whole record for the given window and adds the icon.
    void TrayIcon_Set(platform::WindowHandle lhWnd, const std::string& sCaption);
    // Changes the icon's image and tip. With lIcon the icon becomes that
    // handle; without it the record's current icon stays. uID, uFlags and
    // uCallbackMessage keep what TrayIcon_Set stored, or 0.
    void TrayIcon_Modify(const std::string& sCaption, std::uint32_t& lIcon);
    void TrayIcon_Modify(const std::string& sCaption);
    // Removes the icon, with the record as it stands.
    void TrayIcon_Delete();

    const Record& record() const { return record_; }

private:
    void put(std::size_t offset, std::uint32_t value);
    std::uint32_t get(std::size_t offset) const;
    void putTip(const std::string& text);
    void notify(std::uint32_t message);

    app::Program& program_;
    Record record_{};
    platform::WindowHandle window_ = 0; // the handle given to TrayIcon_Set
    std::uintptr_t picture_ = 0;
};

} // namespace ui
