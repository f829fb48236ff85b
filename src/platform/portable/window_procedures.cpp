#include "platform/portable/window_procedures.h"

namespace portable {

std::intptr_t WindowProcedures::Procedure(platform::WindowHandle window) const {
    auto it = procedures_.find(window);
    return it == procedures_.end() ? kOwnProcedure : it->second;
}

std::intptr_t WindowProcedures::SetProcedure(platform::WindowHandle window, std::intptr_t procedure) {
    if (window == 0 || procedure == 0) return 0;
    const std::intptr_t previous = Procedure(window);
    procedures_[window] = procedure;
    return previous;
}

std::intptr_t WindowProcedures::Call(std::intptr_t procedure, platform::WindowHandle window, std::uint32_t message,
                                     std::uintptr_t wParam, std::intptr_t lParam, const OwnProcedure& own) {
    if (procedure == kOwnProcedure) return own ? own(window, message, wParam, lParam) : 0;
    if (procedure == 0) return 0;
    return reinterpret_cast<platform::WndProc>(procedure)(window, message, wParam, lParam);
}

std::intptr_t WindowProcedures::Style(platform::WindowHandle window) const {
    auto it = styles_.find(window);
    return it == styles_.end() ? 0 : it->second;
}

std::intptr_t WindowProcedures::SetStyle(platform::WindowHandle window, std::intptr_t style) {
    if (window == 0) return 0;
    const std::intptr_t previous = Style(window);
    styles_[window] = style;
    return previous;
}

bool WindowProcedures::SetProp(platform::WindowHandle window, const std::string& name, std::intptr_t value) {
    if (window == 0) return false;
    props_[{window, name}] = value;
    return true;
}

std::intptr_t WindowProcedures::Prop(platform::WindowHandle window, const std::string& name) const {
    auto it = props_.find({window, name});
    return it == props_.end() ? 0 : it->second;
}

std::intptr_t WindowProcedures::RemoveProp(platform::WindowHandle window, const std::string& name) {
    auto it = props_.find({window, name});
    if (it == props_.end()) return 0;
    const std::intptr_t value = it->second;
    props_.erase(it);
    return value;
}

} // namespace portable
