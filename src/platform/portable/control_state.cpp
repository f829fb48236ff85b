#include "platform/portable/control_state.h"

#include <algorithm>
#include <cmath>

namespace portable {

std::int32_t ControlState::ItemData(int index) const {
    if (index < 0 || index >= static_cast<int>(itemData.size())) return 0;
    return itemData[static_cast<std::size_t>(index)];
}

bool ControlState::SetItemData(int index, std::int32_t data) {
    if (index < 0 || index >= static_cast<int>(itemData.size())) return false;
    itemData[static_cast<std::size_t>(index)] = data;
    return true;
}

void ControlState::SetSelStart(int start, int textLength) {
    selStart = std::clamp(start, 0, std::max(textLength, 0));
    selLength = std::min(selLength, textLength - selStart);
}

void ControlState::SetSelLength(int length, int textLength) {
    selLength = std::max(length, 0);
    if (selStart + selLength > textLength) selLength = textLength - selStart;
}

void ControlState::TextReplaced(int textLength) {
    selStart = std::min(selStart, textLength);
    selLength = 0;
}

std::vector<ControlState> StatesFromTable() {
    std::vector<ControlState> states(app::kControlCount);
    for (const auto& row : app::FormTable()) {
        ControlState& s = states[static_cast<std::size_t>(row.id)];
        s.text = std::string(row.caption);
        s.enabled = row.enabled;
        s.visible = row.visible;
        s.left = row.left;
        s.top = row.top;
        s.width = row.width;
        s.height = row.height;
    }
    return states;
}

namespace {

// The row of the control itself, else of the nearest container for which
// `has` holds; nullptr when none does. The form ends the chain, as does a
// control that names itself as its container.
template <class Has> const app::ControlSpec* Nearest(app::Ctl c, SpecLookup spec, Has has) {
    for (;;) {
        const app::ControlSpec& row = spec(c);
        if (has(row)) return &row;
        if (c == app::Ctl::frmMain || row.container == c) return nullptr;
        c = row.container;
    }
}

} // namespace

app::Rgb BackColorOf(app::Ctl control, SpecLookup spec) {
    const auto* row = Nearest(control, spec, [](const app::ControlSpec& r) { return r.backColor.has_value(); });
    return row != nullptr ? *row->backColor : app::kWindowColor;
}

app::Font FontOf(app::Ctl control, SpecLookup spec) {
    const auto* row = Nearest(control, spec, [](const app::ControlSpec& r) { return r.font.size > 0; });
    return row != nullptr ? row->font : spec(app::Ctl::frmMain).font;
}

int TwipsToPixels(double twips, double dpi) { return static_cast<int>(std::lround(twips * dpi / 1440.0)); }

double PixelsToTwips(int pixels, double dpi) { return pixels * 1440.0 / dpi; }

int PixelContaining(double twips, double dpi) { return static_cast<int>(std::floor(twips * dpi / 1440.0)); }

double UsableDpi(double reported, double least) { return reported >= least ? reported : kDefaultDpi; }

} // namespace portable
