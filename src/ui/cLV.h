#pragma once
// cLV: helpers for the report-view list. It holds no state; the operations
// read the window handles of the controls they are given.
#include <cstdint>

#include "core/form_table.h"
#include "core/fwd.h"
#include "platform/types.h"

namespace ui {

class cLV {
public:
    explicit cLV(app::Program& program) : program_(program) {}

    // The window handle of the list's column header, as the list reports it.
    platform::WindowHandle GetHeaderHandle(app::Ctl list);
    // Toggles the header's button style (on the list's normal header this
    // removes it, giving the flat look) and has the list redrawn in place
    // behind its owner. A header whose style would become 0 is left as it is.
    // Always 0.
    std::int32_t FlatListView(app::Ctl list, app::Ctl owner);

private:
    platform::WindowHandle handleOf(app::Ctl control) const;

    app::Program& program_;
};

} // namespace ui
