#include "platform/portable/control_view.h"

namespace portable {

void ControlView::SetEnabled(app::Ctl control, bool enabled) {
    ControlState& s = state(control);
    if (s.enabled == enabled) return;
    s.enabled = enabled;
    enabledChanged(control);
}

void ControlView::SetVisible(app::Ctl control, bool visible) {
    ControlState& s = state(control);
    if (s.visible == visible) return;
    s.visible = visible;
    visibleChanged(control);
}

double& ControlView::edge(ControlState& s, Edge e) {
    switch (e) {
    case Edge::Left:
        return s.left;
    case Edge::Top:
        return s.top;
    case Edge::Width:
        return s.width;
    case Edge::Height:
        break;
    }
    return s.height;
}

double ControlView::edge(const ControlState& s, Edge e) { return edge(const_cast<ControlState&>(s), e); }

} // namespace portable
