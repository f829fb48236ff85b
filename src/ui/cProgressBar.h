#pragma once
// cProgressBar: paints the usage bar into a picture box. The used share is a
// blue band from the left edge, the rest light grey, and, centred over it, a
// line "Used: P %  ---  Free: (100 - P)%" in black or white, whichever stands
// out against the colour under its first character.
#include <cstdint>

namespace app {
class Surface;
}

namespace ui {

class cProgressBar {
public:
    // Colours painted, 0x00BBGGRR.
    static constexpr std::int32_t kUsedColor = 0xFF0000; // blue
    static constexpr std::int32_t kFreeColor = 0xC0C0C0; // light grey
    static constexpr std::int32_t kLightText = 0xFFFFFF; // on a dark background
    static constexpr std::int32_t kDarkText = 0x000000;  // on a light background

    // The start and end colours are kept as given (no range checks); the bar
    // itself is always painted in the fixed colours above.
    void StartFarbe(std::int16_t R1, std::int16_t G1, std::int16_t B1);
    void EndFarbe(std::int16_t R0, std::int16_t G0, std::int16_t B0);
    std::int32_t R1() const { return R1_; }
    std::int32_t G1() const { return G1_; }
    std::int32_t B1() const { return B1_; }
    std::int32_t R0() const { return R0_; }
    std::int32_t G0() const { return G0_; }
    std::int32_t B0() const { return B0_; }

    // Clears the picture and paints Value between Min and Max (clamped to
    // them), with the percentage text when bShowProzent is set. Nothing but
    // the clearing happens when Value ends at 0 or below. Failures of the
    // surface pass to the caller.
    void ShowProgress(app::Surface& PicProgress, std::int32_t Value, std::int32_t Min, std::int32_t Max,
                      bool bShowProzent);

private:
    std::int32_t R1_ = 0, G1_ = 0, B1_ = 0;
    std::int32_t R0_ = 0, G0_ = 0, B0_ = 0;
};

} // namespace ui
