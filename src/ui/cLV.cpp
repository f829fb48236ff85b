#include "ui/cLV.h"

#include "core/program.h"

namespace ui {

// The form is a window of its own; any other control answers through the view.
platform::WindowHandle cLV::handleOf(app::Ctl control) const {
    return control == app::Ctl::frmMain ? program_.view.hWnd() : program_.view.ControlHandle(control);
}

platform::WindowHandle cLV::GetHeaderHandle(app::Ctl list) {
    return static_cast<platform::WindowHandle>(
        program_.sys.windows.SendMessageA(handleOf(list), platform::kLvmGetHeader, 0, 0));
}

std::int32_t cLV::FlatListView(app::Ctl list, app::Ctl owner) {
    auto& windows = program_.sys.windows;
    const platform::WindowHandle header = GetHeaderHandle(list);
    const std::intptr_t style =
        windows.GetWindowLongA(header, platform::kGwlStyle) ^ static_cast<std::intptr_t>(platform::kHdsButtons);
    if (style != 0) {
        windows.SetWindowLongA(header, platform::kGwlStyle, style);
        windows.SetWindowPos(handleOf(list), handleOf(owner), 0, 0, 0, 0,
                             platform::kSwpNoSize | platform::kSwpNoMove | platform::kSwpNoZOrder);
    }
    return 0;
}

} // namespace ui
