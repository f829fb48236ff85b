#pragma once
// A picture box's drawing surface without a screen: a real raster of pixels,
// so that reading a point gives back what was painted there. The scale is
// twips at 15 twips per pixel (96 dots per inch); a box of 5415 x 1200 twips
// is 361 x 80 pixels.
//
// Coordinates become pixels like this:
// - a filled box's corners go to the nearest pixel edge, floor(twips / 15 + 0.5),
//   and the box covers every pixel from one corner's to the other's, both
//   included; anything outside the raster is clipped away;
// - a point is the pixel that contains it, floor(twips / 15).
//
// The font is a fixed-pitch stand-in scaled from the point size: a character
// cell is round(2/3 x size) pixels wide and round(1.6 x size) pixels high, so
// Tahoma 12 gives cells of 8 x 19 pixels (120 x 285 twips). Printed text is
// drawn with a transparent background, one solid block per visible character
// in the middle of its cell (a 2-pixel margin left and right, a quarter of the
// cell above and below), so the cell's corners keep what lies under them.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/surface.h"

namespace fake {

struct PrintedText {
    std::string text;
    float x = 0, y = 0;      // the print position it was drawn at, twips
    std::int32_t colour = 0; // the ForeColor it was drawn in
    friend bool operator==(const PrintedText&, const PrintedText&) = default;
};

class RasterSurface : public app::SurfaceState {
public:
    static constexpr int kTwipsPerPixel = 15;

    // A surface of the given inner size in twips, cleared to backColor.
    RasterSurface(float scaleWidth, float scaleHeight, std::int32_t backColor, double fontSize = 12,
                  std::int32_t foreColor = 0);

    // Called after every change of the picture (Cls, Line, Print).
    void OnPaint(std::function<void()> painted) { painted_ = std::move(painted); }

    int PixelWidth() const { return width_; }
    int PixelHeight() const { return height_; }
    // The colour of one pixel; -1 outside the raster.
    std::int32_t Pixel(int px, int py) const;
    const std::vector<std::int32_t>& Pixels() const { return pixels_; }
    // The part of pixel row py (0 to 1) painted in the colour.
    double RowShare(int py, std::int32_t colour) const;
    int CharWidthPixels() const { return charWidth_; }
    int LineHeightPixels() const { return lineHeight_; }

    // What was drawn since the last Cls: the texts printed, in order, and the
    // number of filled boxes.
    const std::vector<PrintedText>& Printed() const { return printed_; }
    int LineCount() const { return lineCount_; }
    int ClsCount() const { return clsCount_; }

    // app::Surface
    std::int32_t ForeColor() const override { return foreColor_; }
    void SetForeColor(std::int32_t colour) override { foreColor_ = colour; }
    std::int32_t BackColor() const override { return backColor_; }
    void Cls() override;
    void Line(float x1, float y1, float x2, float y2, std::int32_t colour) override;
    std::int32_t Point(float x, float y) const override;
    float TextWidth(const std::string& text) const override;
    float TextHeight(const std::string& text) const override;
    void Print(const std::string& text) override;

private:
    void fill(int left, int top, int right, int bottom, std::int32_t colour); // pixels, inclusive, clipped
    void painted() {
        if (painted_) painted_();
    }

    int width_, height_;
    int charWidth_, lineHeight_;
    std::vector<std::int32_t> pixels_;
    std::int32_t backColor_;
    std::int32_t foreColor_;
    std::vector<PrintedText> printed_;
    int lineCount_ = 0;
    int clsCount_ = 0;
    std::function<void()> painted_;
};

} // namespace fake
