#include "ui/cProgressBar.h"

namespace ui {

void cProgressBar::StartFarbe(int r, int g, int b) {
    start_[0] = r;
    start_[1] = g;
    start_[2] = b;
}

void cProgressBar::EndFarbe(int r, int g, int b) {
    end_[0] = r;
    end_[1] = g;
    end_[2] = b;
}

void cProgressBar::ShowProgress(app::View&, app::Ctl, double value, double, double, bool) { lastValue_ = value; }

} // namespace ui
