#pragma once
// cProgressBar: paints the usage bar into a picture box.
#include <cstdint>

#include "app/form_table.h"

namespace app {
class View;
}

namespace ui {

class cProgressBar {
public:
    void StartFarbe(int r, int g, int b);
    void EndFarbe(int r, int g, int b);
    // Paints the bar for Value between Min and Max. Painting arrives with the
    // picture surface; until then the call records its figures only.
    void ShowProgress(app::View& view, app::Ctl picture, double value, double min, double max, bool bShowProzent);

    double LastValue() const { return lastValue_; }

private:
    int start_[3] = {0, 0, 0};
    int end_[3] = {0, 0, 0};
    double lastValue_ = 0;
};

} // namespace ui
