#pragma once
// The part of the main window every renderer answers the same way: from the
// controls' states. A renderer derives from ControlView, keeps its widgets
// beside the states and shows what changes; the states themselves change here
// only, and a change to the same value is no change.
#include <cstdint>
#include <string>
#include <vector>

#include "core/view.h"
#include "platform/portable/control_state.h"

namespace portable {

// The four numbers of a control's rectangle.
enum class Edge : std::uint8_t { Left, Top, Width, Height };

class ControlView : public app::View {
public:
    bool Enabled(app::Ctl control) const override { return state(control).enabled; }
    void SetEnabled(app::Ctl control, bool enabled) override;
    bool Visible(app::Ctl control) const override { return state(control).visible; }
    void SetVisible(app::Ctl control, bool visible) override;

    double Left(app::Ctl control) const override { return bound(control, Edge::Left); }
    double Top(app::Ctl control) const override { return bound(control, Edge::Top); }
    double Width(app::Ctl control) const override { return bound(control, Edge::Width); }
    double Height(app::Ctl control) const override { return bound(control, Edge::Height); }
    void SetLeft(app::Ctl control, double twips) override { setBound(control, Edge::Left, twips); }
    void SetTop(app::Ctl control, double twips) override { setBound(control, Edge::Top, twips); }
    void SetWidth(app::Ctl control, double twips) override { setBound(control, Edge::Width, twips); }
    void SetHeight(app::Ctl control, double twips) override { setBound(control, Edge::Height, twips); }

    // A report-view item's text is its sub-item 0.
    bool SetItemText(app::Ctl list, int item, const std::string& text) override {
        return SetSubItem(list, item, 0, text);
    }
    std::string ItemText(app::Ctl list, int item) const override { return SubItem(list, item, 0); }

    std::int32_t ItemData(app::Ctl list, int index) const override { return state(list).ItemData(index); }
    bool SetItemData(app::Ctl list, int index, std::int32_t data) override {
        return state(list).SetItemData(index, data);
    }
    bool DataChanged(app::Ctl control) const override { return state(control).dataChanged; }
    void SetDataChanged(app::Ctl control, bool changed) override { state(control).dataChanged = changed; }

protected:
    ControlView() : states_(StatesFromTable()) {}

    ControlState& state(app::Ctl c) { return states_[static_cast<std::size_t>(c)]; }
    const ControlState& state(app::Ctl c) const { return states_[static_cast<std::size_t>(c)]; }
    static double& edge(ControlState& s, Edge e);
    static double edge(const ControlState& s, Edge e);

    // One number of a control's rectangle: by default the one in its state.
    virtual double bound(app::Ctl c, Edge e) const { return edge(state(c), e); }
    // Sets one number of a control's rectangle (a renderer moves the widget or the window).
    virtual void setBound(app::Ctl c, Edge e, double twips) = 0;
    // The state's enabled or visible flag has just changed.
    virtual void enabledChanged(app::Ctl c) = 0;
    virtual void visibleChanged(app::Ctl c) = 0;

private:
    std::vector<ControlState> states_;
};

} // namespace portable
