#pragma once
// The drawing surface of a picture box, as the logic paints on it. Every
// coordinate and size is in the box's own scale units (twips for the picture
// boxes of the main window), with (0, 0) at the top-left of its inner area.
// Colours are 24-bit values 0x00BBGGRR (red in the low byte).
#include <cstdint>
#include <string>

namespace app {

class Surface {
public:
    virtual ~Surface() = default;

    // Whether drawing goes to the box's persistent image, so that it survives
    // repaints.
    virtual bool AutoRedraw() const = 0;
    virtual void SetAutoRedraw(bool on) = 0;

    // Inner size of the box.
    virtual float ScaleWidth() const = 0;
    virtual float ScaleHeight() const = 0;

    // The print position: where the next Print puts the top-left of its text.
    virtual float CurrentX() const = 0;
    virtual float CurrentY() const = 0;
    virtual void SetCurrentX(float x) = 0;
    virtual void SetCurrentY(float y) = 0;

    // The colour of printed text.
    virtual std::int32_t ForeColor() const = 0;
    virtual void SetForeColor(std::int32_t colour) = 0;
    // The colour Cls clears to.
    virtual std::int32_t BackColor() const = 0;

    // Clears the whole box to its back colour and moves the print position to (0, 0).
    virtual void Cls() = 0;
    // A filled box with corners (x1, y1) and (x2, y2), both included, in the
    // given colour; what lies outside the box is clipped.
    virtual void Line(float x1, float y1, float x2, float y2, std::int32_t colour) = 0;
    // The colour at one point; -1 for a point outside the box.
    virtual std::int32_t Point(float x, float y) const = 0;

    // The extent of a line of text in the box's font.
    virtual float TextWidth(const std::string& text) const = 0;
    virtual float TextHeight(const std::string& text) const = 0;
    // Draws the text at the print position in the font and ForeColor, with a
    // transparent background. Afterwards the print position is at the start
    // of the next line: CurrentX 0, CurrentY one text height further down.
    virtual void Print(const std::string& text) = 0;
};

// What every surface keeps alike: the redraw mode, the inner size and the
// print position. A renderer adds the colours and the drawing.
class SurfaceState : public Surface {
public:
    SurfaceState(float scaleWidth, float scaleHeight) : scaleWidth_(scaleWidth), scaleHeight_(scaleHeight) {}

    bool AutoRedraw() const override { return autoRedraw_; }
    void SetAutoRedraw(bool on) override { autoRedraw_ = on; }
    float ScaleWidth() const override { return scaleWidth_; }
    float ScaleHeight() const override { return scaleHeight_; }
    float CurrentX() const override { return currentX_; }
    float CurrentY() const override { return currentY_; }
    void SetCurrentX(float x) override { currentX_ = x; }
    void SetCurrentY(float y) override { currentY_ = y; }

protected:
    float scaleWidth_, scaleHeight_;
    bool autoRedraw_ = false;
    float currentX_ = 0, currentY_ = 0;
};

} // namespace app
