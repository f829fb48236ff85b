#pragma once
// cLV: helpers for the report-view list.
#include "app/form_table.h"

namespace app {
struct Program;
}

namespace ui {

class cLV {
public:
    explicit cLV(app::Program& program) : program_(program) {}
    // Gives the list's column header the flat look. The header handling is
    // not built yet, so nothing is asked of the window and false is returned.
    bool FlatListView(app::Ctl list, app::Ctl form);

private:
    [[maybe_unused]] app::Program& program_;
};

} // namespace ui
