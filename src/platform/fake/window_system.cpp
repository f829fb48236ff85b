// The simulated machine's window system: the other instance's windows,
// scripted message-box answers, the clock that advances with every yield,
// window procedures, styles and properties.
#include "platform/fake/machine.h"

#include <algorithm>
#include <cmath>

#include "platform/fake/journal_text.h"

namespace fake {

platform::WindowHandle Machine::FindWindowA(const std::string& className, const std::string& windowName) {
    platform::WindowHandle found = 0;
    if (className == platform::kHiddenWindowClass) {
        if (other_ && other_->windowFound && windowName == "Kestrine")
            found = kOtherHiddenWindow;
        else if (windowName == title_)
            found = kOwnHiddenWindow;
    }
    record("FindWindowA", {Quote(className), Quote(windowName)}, std::to_string(found), false);
    return found;
}

platform::WindowHandle Machine::GetWindow(platform::WindowHandle window, std::uint32_t command) {
    platform::WindowHandle result = 0;
    if (command == platform::kGwHwndPrev && window == kOtherHiddenWindow) result = kOtherMainWindow;
    record("GetWindow", {std::to_string(window), std::to_string(command)}, std::to_string(result), false);
    return result;
}

bool Machine::OpenIcon(platform::WindowHandle window) {
    const bool ok = window == kOtherMainWindow && other_.has_value();
    if (ok) other_->minimized = false;
    record("OpenIcon", {std::to_string(window)}, ok ? "true" : "false", true);
    return ok;
}

bool Machine::SetForegroundWindow(platform::WindowHandle window) {
    const bool ok = window == kOtherMainWindow && other_.has_value();
    if (ok) other_->foreground = true;
    record("SetForegroundWindow", {std::to_string(window)}, ok ? "true" : "false", true);
    return ok;
}

std::int32_t Machine::MessageBoxA(platform::WindowHandle owner, const std::string& text, const std::string& caption,
                                  std::uint32_t type) {
    std::int32_t answer;
    if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
    } else if ((type & 0xF) == platform::kMbYesNo) {
        answer = (type & platform::kMbDefButton2) != 0 ? platform::kIdNo : platform::kIdYes;
    } else {
        answer = platform::kIdOk;
    }
    messageBoxes_.push_back(MessageBoxRecord{text, caption, type, answer});
    record("MessageBoxA", {std::to_string(owner), Quote(text), Quote(caption), std::to_string(type)},
           std::to_string(answer), true);
    return answer;
}

void Machine::DoEvents() {
    ++yields_;
    now_ += tick_;
    runDue();
    if (yieldObserver_) yieldObserver_();
}

void Machine::WaitForMessages(float seconds) {
    // The clock goes on in whole ticks, as it does while the program yields,
    // and stops a tick short of the end of the wait and of the next piece of
    // scheduled work: the yield after the wait then reaches the very time a
    // yield-only wait would have reached, and nothing due is passed over.
    if (tick_ <= 0) return;
    double until = now_ + static_cast<double>(seconds) - tick_;
    for (const auto& work : scheduled_) until = std::min(until, work.first);
    while (now_ + tick_ < until) now_ += tick_;
}

float Machine::Timer() { return static_cast<float>(std::fmod(now_, 86400.0)); }

std::intptr_t Machine::SendMessageA(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                                    std::intptr_t lParam) {
    std::intptr_t result = 0;
    if (message == platform::kLvmGetHeader && window != 0) {
        const platform::WindowHandle header = HeaderOf(window);
        if (!windows_.HasStyle(header)) windows_.SetStyle(header, kDefaultHeaderStyle);
        result = static_cast<std::intptr_t>(header);
    }
    record("SendMessageA",
           {std::to_string(window), std::to_string(message), std::to_string(wParam), std::to_string(lParam)},
           std::to_string(result), false);
    return result;
}

std::intptr_t Machine::GetWindowLongA(platform::WindowHandle window, std::int32_t index) {
    const std::intptr_t value = index == platform::kGwlStyle ? WindowStyle(window) : 0;
    record("GetWindowLongA", {std::to_string(window), std::to_string(index)}, std::to_string(value), false);
    return value;
}

std::intptr_t Machine::SetWindowLongA(platform::WindowHandle window, std::int32_t index, std::intptr_t value) {
    std::intptr_t previous = 0;
    if (index == platform::kGwlStyle && window != 0) {
        previous = windows_.SetStyle(window, value);
    } else if (index == platform::kGwlWndProc && window != 0 && value != 0) {
        previous = windows_.SetProcedure(window, value);
        record("SetWindowLongA", {std::to_string(window), "GWL_WNDPROC", value == kOwnProcedure ? "own" : "procedure"},
               previous == kOwnProcedure ? "own" : "procedure", true);
        return previous;
    }
    record("SetWindowLongA", {std::to_string(window), std::to_string(index), std::to_string(value)},
           std::to_string(previous), true);
    return previous;
}

bool Machine::SetWindowPos(platform::WindowHandle window, platform::WindowHandle insertAfter, std::int32_t x,
                           std::int32_t y, std::int32_t cx, std::int32_t cy, std::uint32_t flags) {
    const bool ok = window != 0;
    if (ok && insertAfter == platform::kHwndTopmost && (flags & platform::kSwpNoZOrder) == 0) topmost_[window] = true;
    const std::string after =
        insertAfter == platform::kHwndTopmost ? std::string("HWND_TOPMOST") : std::to_string(insertAfter);
    record("SetWindowPos",
           {std::to_string(window), after, std::to_string(x), std::to_string(y), std::to_string(cx), std::to_string(cy),
            std::to_string(flags)},
           ok ? "true" : "false", true);
    return ok;
}

std::intptr_t Machine::CallWindowProcA(std::intptr_t previous, platform::WindowHandle window, std::uint32_t message,
                                       std::uintptr_t wParam, std::intptr_t lParam) {
    // The own procedure only notes what reached it.
    return portable::WindowProcedures::Call(
        previous, window, message, wParam, lParam,
        [this](platform::WindowHandle, std::uint32_t m, std::uintptr_t w, std::intptr_t l) {
            ownMessages_.push_back(Delivered{m, w, l});
            if (ownObserver_) ownObserver_(ownMessages_.back());
            return ownResult_;
        });
}

std::intptr_t Machine::Deliver(platform::WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) {
    return CallWindowProcA(CurrentProcedure(window), window, message, wParam, lParam);
}

bool Machine::SetPropA(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    const bool ok = windows_.SetProp(window, name, value);
    record("SetPropA", {std::to_string(window), Quote(name)}, ok ? "true" : "false", false);
    return ok;
}

std::intptr_t Machine::GetPropA(platform::WindowHandle window, const std::string& name) {
    return windows_.Prop(window, name);
}

std::intptr_t Machine::RemovePropA(platform::WindowHandle window, const std::string& name) {
    const std::intptr_t value = windows_.RemoveProp(window, name);
    record("RemovePropA", {std::to_string(window), Quote(name)}, value != 0 ? "found" : "none", false);
    return value;
}

bool Machine::MessageBeep(std::uint32_t type) {
    ++beeps_;
    record("MessageBeep", {std::to_string(type)}, "true", true);
    return true;
}

bool Machine::FlashWindow(platform::WindowHandle window, bool invert) {
    record("FlashWindow", {std::to_string(window), invert ? "true" : "false"}, "true", true);
    return true;
}

platform::TwipsRect Machine::WorkArea() {
    record("WorkArea", {}, "", false);
    return workArea_;
}

std::uintptr_t Machine::LoadPicture(const std::string& file) {
    std::uintptr_t handle = 0;
    const Drive* d = driveOf(file);
    if (d != nullptr && d->ready && FileContent(file).has_value()) handle = nextPicture_++;
    if (handle != 0) livePictures_.insert(handle);
    record("LoadPicture", {Quote(file)}, std::to_string(handle), false);
    return handle;
}

void Machine::ReleasePicture(std::uintptr_t picture) {
    const bool known = livePictures_.erase(picture) != 0;
    record("ReleasePicture", {std::to_string(picture)}, known ? "released" : "unknown", false);
}

} // namespace fake
