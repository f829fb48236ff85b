#include "platform/fake/raster_surface.h"

#include <algorithm>
#include <cmath>

namespace fake {

namespace {

constexpr double kTwips = RasterSurface::kTwipsPerPixel;

// A length in twips as a whole number of pixels, at least one.
int PixelCount(double twips) { return std::max(1, static_cast<int>(std::lround(twips / kTwips))); }

// A box corner: the nearest pixel edge, kept within a range that fits an int
// (clipping to the raster comes later).
int Edge(float twips) {
    const double px = std::floor(static_cast<double>(twips) / kTwips + 0.5);
    return static_cast<int>(std::clamp(px, -1e6, 1e6));
}

} // namespace

RasterSurface::RasterSurface(float scaleWidth, float scaleHeight, std::int32_t backColor, double fontSize,
                             std::int32_t foreColor)
    : SurfaceState(scaleWidth, scaleHeight), width_(PixelCount(scaleWidth)), height_(PixelCount(scaleHeight)),
      charWidth_(std::max(1, static_cast<int>(std::lround(fontSize * 2.0 / 3.0)))),
      lineHeight_(std::max(1, static_cast<int>(std::lround(fontSize * 1.6)))),
      pixels_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_), backColor), backColor_(backColor),
      foreColor_(foreColor) {}

std::int32_t RasterSurface::Pixel(int px, int py) const {
    if (px < 0 || py < 0 || px >= width_ || py >= height_) return -1;
    return pixels_[static_cast<std::size_t>(py) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(px)];
}

double RasterSurface::RowShare(int py, std::int32_t colour) const {
    if (py < 0 || py >= height_) return 0;
    int count = 0;
    for (int px = 0; px < width_; ++px)
        if (Pixel(px, py) == colour) ++count;
    return static_cast<double>(count) / width_;
}

void RasterSurface::fill(int left, int top, int right, int bottom, std::int32_t colour) {
    left = std::max(left, 0);
    top = std::max(top, 0);
    right = std::min(right, width_ - 1);
    bottom = std::min(bottom, height_ - 1);
    for (int py = top; py <= bottom; ++py)
        for (int px = left; px <= right; ++px)
            pixels_[static_cast<std::size_t>(py) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(px)] =
                colour;
}

void RasterSurface::Cls() {
    std::fill(pixels_.begin(), pixels_.end(), backColor_);
    currentX_ = 0;
    currentY_ = 0;
    printed_.clear();
    lineCount_ = 0;
    ++clsCount_;
    painted();
}

void RasterSurface::Line(float x1, float y1, float x2, float y2, std::int32_t colour) {
    ++lineCount_;
    if (!std::isnan(x1) && !std::isnan(y1) && !std::isnan(x2) && !std::isnan(y2)) {
        const int a = Edge(x1), b = Edge(x2), c = Edge(y1), d = Edge(y2);
        fill(std::min(a, b), std::min(c, d), std::max(a, b), std::max(c, d), colour);
    }
    painted();
}

std::int32_t RasterSurface::Point(float x, float y) const {
    if (std::isnan(x) || std::isnan(y) || x < 0 || y < 0) return -1;
    const double px = std::floor(static_cast<double>(x) / kTwips);
    const double py = std::floor(static_cast<double>(y) / kTwips);
    if (px >= width_ || py >= height_) return -1;
    return Pixel(static_cast<int>(px), static_cast<int>(py));
}

float RasterSurface::TextWidth(const std::string& text) const {
    return static_cast<float>(text.size() * static_cast<std::size_t>(charWidth_) * kTwipsPerPixel);
}

float RasterSurface::TextHeight(const std::string&) const { return static_cast<float>(lineHeight_ * kTwipsPerPixel); }

void RasterSurface::Print(const std::string& text) {
    printed_.push_back(PrintedText{text, currentX_, currentY_, foreColor_});
    const int left = static_cast<int>(std::clamp(std::floor(static_cast<double>(currentX_) / kTwips), -1e6, 1e6));
    const int top = static_cast<int>(std::clamp(std::floor(static_cast<double>(currentY_) / kTwips), -1e6, 1e6));
    const int margin = lineHeight_ / 4;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ') continue;
        const int cell = left + static_cast<int>(i) * charWidth_;
        fill(cell + 2, top + margin, cell + charWidth_ - 3, top + lineHeight_ - 1 - margin, foreColor_);
    }
    currentX_ = 0;
    currentY_ += TextHeight(text);
    painted();
}

} // namespace fake
