#include "ui/cProgressBar.h"

#include <cmath>
#include <string>

#include "core/surface.h"
#include "core/vb.h"

namespace ui {

void cProgressBar::StartFarbe(std::int16_t R1, std::int16_t G1, std::int16_t B1) {
    R1_ = R1;
    G1_ = G1;
    B1_ = B1;
}

void cProgressBar::EndFarbe(std::int16_t R0, std::int16_t G0, std::int16_t B0) {
    R0_ = R0;
    G0_ = G0;
    B0_ = B0;
}

void cProgressBar::ShowProgress(app::Surface& PicProgress, std::int32_t Value, std::int32_t Min, std::int32_t Max,
                                bool bShowProzent) {
    if (Value < Min) Value = Min;
    if (Value > Max) Value = Max;

    // The percentage shown; it fits 16 bits whenever it is shown (0 < Value <= Max).
    std::int16_t P = 100;
    if (Max > 0) P = static_cast<std::int16_t>(std::floor(static_cast<double>(Value) / Max * 100.0 + 0.5));

    if (!PicProgress.AutoRedraw()) PicProgress.SetAutoRedraw(true);
    PicProgress.Cls();
    const double W = vb::RoundHalfEven(PicProgress.ScaleWidth());
    const double H = vb::RoundHalfEven(PicProgress.ScaleHeight());

    if (Value <= 0) return;

    // The painted fraction. For the range 0 to 100 that the drive display
    // uses it is Value / 100; for any other range the band follows Value / Max,
    // the same share as the text, and stays within the box.
    const double share = static_cast<double>(Value) / Max;

    // Used share: steps of a hundredth, the last one reaching past the share.
    for (double i = 0; i <= share; i += 0.01)
        PicProgress.Line(static_cast<float>(W * i), 0.0f, static_cast<float>((i + 0.01) * W), static_cast<float>(H),
                         kUsedColor);
    // Free share, painted over the step that reached past; the last box runs
    // past the right edge and is clipped.
    for (double i = share; i <= 1; i += 0.01)
        PicProgress.Line(static_cast<float>(W * i), 0.0f, static_cast<float>((i + 0.01) * W), static_cast<float>(H),
                         kFreeColor);

    if (!bShowProzent) return;

    const std::string text =
        "Used: " + std::to_string(P) + " %  ---  Free: " + std::to_string(100 - static_cast<int>(P)) + "%";
    PicProgress.SetCurrentX((PicProgress.ScaleWidth() - PicProgress.TextWidth(text)) / 2);
    PicProgress.SetCurrentY((PicProgress.ScaleHeight() - PicProgress.TextHeight(text)) / 2);

    // Black or white, for contrast with what lies under the text's top-left corner.
    const std::int32_t under = PicProgress.Point(PicProgress.CurrentX(), PicProgress.CurrentY());
    const int red = under & 0xFF;
    const int green = (under >> 8) & 0xFF;
    const int blue = (under >> 16) & 0xFF;
    const double brightness = vb::RoundHalfEven(0.3 * red + 0.59 * green + 0.11 * blue);
    PicProgress.SetForeColor(brightness > 127 ? kDarkText : kLightText);

    PicProgress.Print(text);
}

} // namespace ui
