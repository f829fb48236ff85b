#include "ui/cLV.h"

namespace ui {

bool cLV::FlatListView(app::Ctl, app::Ctl) { return false; }

} // namespace ui
