// The usage bar painted on the headless window's raster: the blue and grey
// shares, the percentage text and its contrast colour, clamping, and the bar
// drawn for the current drive's sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "core/program.h"
#include "drives/cDrive.h"
#include "kestrine-sim/scenario.h"
#include "machine_builders.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"
#include "platform/fake/raster_surface.h"
#include "ui/cProgressBar.h"

namespace {

using app::Ctl;
using fake::RasterSurface;

constexpr std::int32_t kBlue = 0xFF0000;
constexpr std::int32_t kGrey = 0xC0C0C0;
constexpr std::int32_t kWhite = 0xFFFFFF;
constexpr std::int32_t kBlack = 0x000000;

// Picture1 of the main window: 5415 x 1200 twips, grey, Tahoma 12.
RasterSurface Picture() { return RasterSurface(5415, 1200, kGrey, 12); }

RasterSurface Painted(std::int32_t value, std::int32_t min = 0, std::int32_t max = 100, bool text = true) {
    RasterSurface s = Picture();
    ui::cProgressBar().ShowProgress(s, value, min, max, text);
    return s;
}

// The columns of a pixel row, as the colour of each.
std::vector<std::int32_t> Row(const RasterSurface& s, int py) {
    std::vector<std::int32_t> row;
    for (int px = 0; px < s.PixelWidth(); ++px) row.push_back(s.Pixel(px, py));
    return row;
}

// The first column of the row that is not blue.
int BlueEnd(const RasterSurface& s, int py = 0) {
    int px = 0;
    while (px < s.PixelWidth() && s.Pixel(px, py) == kBlue) ++px;
    return px;
}

bool OnlyColours(const RasterSurface& s, std::int32_t a, std::int32_t b) {
    for (auto c : s.Pixels())
        if (c != a && c != b) return false;
    return true;
}

TEST(UsageBar, RasterConvertsTwipsAndClips) {
    RasterSurface s = Picture();
    ASSERT_EQ(s.PixelWidth(), 361);
    ASSERT_EQ(s.PixelHeight(), 80);
    EXPECT_EQ(s.TextWidth("abc"), 360.0f);
    EXPECT_EQ(s.TextHeight("abc"), 285.0f);

    // A box running past the right and bottom edges is clipped; its corners
    // go to the nearest pixel edge and both are included.
    s.Line(5000, 1100, 9000, 99999, kBlue);
    EXPECT_EQ(s.Pixel(332, 73), kGrey); // 5000 and 1100 twips are pixel edges 333 and 73
    EXPECT_EQ(s.Pixel(333, 72), kGrey);
    EXPECT_EQ(s.Pixel(333, 73), kBlue);
    EXPECT_EQ(s.Pixel(360, 79), kBlue);
    EXPECT_EQ(s.Point(5414, 1199), kBlue);
    EXPECT_EQ(s.Point(5415, 0), -1);
    EXPECT_EQ(s.Point(-1, 0), -1);
    EXPECT_EQ(s.Point(0, 1200), -1);
    EXPECT_EQ(s.LineCount(), 1);

    // Print draws at the print position in ForeColor, keeps the cell corners,
    // and moves to the start of the next line.
    s.SetForeColor(kWhite);
    s.SetCurrentX(150);
    s.SetCurrentY(300);
    s.Print("A B");
    ASSERT_EQ(s.Printed().size(), 1u);
    EXPECT_EQ(s.Printed()[0], (fake::PrintedText{"A B", 150, 300, kWhite}));
    EXPECT_EQ(s.Point(150, 300), kGrey);
    EXPECT_EQ(s.Pixel(10 + 3, 20 + 8), kWhite);      // inside "A"
    EXPECT_EQ(s.Pixel(10 + 8 + 3, 20 + 8), kGrey);   // the space
    EXPECT_EQ(s.Pixel(10 + 16 + 3, 20 + 8), kWhite); // inside "B"
    EXPECT_EQ(s.CurrentX(), 0.0f);
    EXPECT_EQ(s.CurrentY(), 585.0f);

    s.Cls();
    EXPECT_TRUE(OnlyColours(s, kGrey, kGrey));
    EXPECT_EQ(s.CurrentY(), 0.0f);
    EXPECT_TRUE(s.Printed().empty());
    EXPECT_EQ(s.LineCount(), 0);
}

TEST(UsageBar, NothingButClearingWhenValueEndsAtZeroOrBelow) {
    struct Case {
        std::int32_t value, min, max;
    };
    for (const Case c : {Case{0, 0, 100}, Case{-20, 0, 100}, Case{50, 0, 0}, Case{50, 0, -5}, Case{50, 80, -1}}) {
        SCOPED_TRACE(std::to_string(c.value) + " in " + std::to_string(c.min) + ".." + std::to_string(c.max));
        RasterSurface s = Picture();
        s.Line(0, 0, 5415, 1200, 0x0000FF);
        s.SetForeColor(0x123456);
        s.SetCurrentX(700);
        s.Print("old");
        ASSERT_FALSE(s.AutoRedraw());

        ui::cProgressBar().ShowProgress(s, c.value, c.min, c.max, true);
        EXPECT_TRUE(s.AutoRedraw());
        EXPECT_TRUE(OnlyColours(s, kGrey, kGrey));
        EXPECT_TRUE(s.Printed().empty());
        EXPECT_EQ(s.LineCount(), 0);
        EXPECT_EQ(s.ForeColor(), 0x123456);
        EXPECT_EQ(s.CurrentX(), 0.0f);
        EXPECT_EQ(s.CurrentY(), 0.0f);
    }
}

TEST(UsageBar, HalfIsBlueToTheMiddleWithWhiteText) {
    const RasterSurface s = Painted(50);
    EXPECT_TRUE(s.AutoRedraw());
    const int end = BlueEnd(s);
    EXPECT_NEAR(end, 180, 1) << "half of 361 columns";
    for (int py : {0, 25, 79}) { // rows above and below the text
        SCOPED_TRACE(py);
        EXPECT_EQ(BlueEnd(s, py), end);
        for (int px = end; px < s.PixelWidth(); ++px) ASSERT_EQ(s.Pixel(px, py), kGrey) << px;
    }
    // About a hundred boxes for the two shares, not one per pixel.
    EXPECT_GE(s.LineCount(), 100);
    EXPECT_LE(s.LineCount(), 104);

    ASSERT_EQ(s.Printed().size(), 1u);
    const auto& text = s.Printed()[0];
    EXPECT_EQ(text.text, "Used: 50 %  ---  Free: 50%");
    EXPECT_EQ(text.colour, kWhite);
    EXPECT_EQ(s.ForeColor(), kWhite);
    EXPECT_FLOAT_EQ(text.x, (5415.0f - 26 * 120) / 2);
    EXPECT_FLOAT_EQ(text.y, (1200.0f - 285) / 2);
    // White glyphs cross the boundary into the grey half.
    EXPECT_EQ(s.Pixel(end + 4, 40), kWhite);
}

TEST(UsageBar, FullIsAllBlueWithWhiteText) {
    const RasterSurface s = Painted(100);
    EXPECT_EQ(Row(s, 0), std::vector<std::int32_t>(361, kBlue));
    EXPECT_EQ(Row(s, 79), std::vector<std::int32_t>(361, kBlue));
    ASSERT_EQ(s.Printed().size(), 1u);
    EXPECT_EQ(s.Printed()[0].text, "Used: 100 %  ---  Free: 0%");
    EXPECT_EQ(s.Printed()[0].colour, kWhite);
}

TEST(UsageBar, TextColourFollowsWhatLiesUnderItsFirstCharacter) {
    const RasterSurface small = Painted(10);
    EXPECT_NEAR(BlueEnd(small), 36, 1);
    ASSERT_EQ(small.Printed().size(), 1u);
    EXPECT_EQ(small.Printed()[0].text, "Used: 10 %  ---  Free: 90%");
    EXPECT_EQ(small.Printed()[0].colour, kBlack);
    EXPECT_EQ(small.Point(small.Printed()[0].x, small.Printed()[0].y), kGrey);

    // As the share grows the text turns from black to white once, when the
    // band reaches the text's first column, and stays white.
    int firstWhite = 0;
    for (int v = 1; v <= 100; ++v) {
        const RasterSurface s = Painted(v);
        ASSERT_EQ(s.Printed().size(), 1u);
        const auto& text = s.Printed()[0];
        const std::int32_t under = s.Point(text.x, text.y);
        ASSERT_EQ(text.colour, under == kBlue ? kWhite : kBlack) << v;
        if (text.colour == kWhite && firstWhite == 0) firstWhite = v;
        if (firstWhite != 0) {
            ASSERT_EQ(text.colour, kWhite) << v;
        }
    }
    EXPECT_GT(firstWhite, 15);
    EXPECT_LT(firstWhite, 30);
}

TEST(UsageBar, ValueIsClampedToTheRange) {
    const RasterSurface full = Painted(100);
    const RasterSurface above = Painted(250);
    EXPECT_EQ(above.Pixels(), full.Pixels());
    EXPECT_EQ(above.Printed(), full.Printed());

    const RasterSurface atMin = Painted(20, 20, 100);
    const RasterSurface below = Painted(5, 20, 100);
    EXPECT_EQ(below.Pixels(), atMin.Pixels());
    ASSERT_EQ(below.Printed().size(), 1u);
    EXPECT_EQ(below.Printed()[0].text, "Used: 20 %  ---  Free: 80%");

    // With Min above Max the value ends at Max.
    const RasterSurface crossed = Painted(10, 80, 60);
    ASSERT_EQ(crossed.Printed().size(), 1u);
    EXPECT_EQ(crossed.Printed()[0].text, "Used: 100 %  ---  Free: 0%");
}

TEST(UsageBar, PercentageRoundsHalvesUpAndFollowsMax) {
    auto text = [](std::int32_t value, std::int32_t max) {
        const RasterSurface s = Painted(value, 0, max);
        return s.Printed().empty() ? std::string() : s.Printed()[0].text;
    };
    EXPECT_EQ(text(1, 8), "Used: 13 %  ---  Free: 87%"); // 12.5
    EXPECT_EQ(text(5, 8), "Used: 63 %  ---  Free: 37%"); // 62.5
    EXPECT_EQ(text(1, 3), "Used: 33 %  ---  Free: 67%");

    // Another range: the band shows the same share as the text.
    const RasterSurface quarter = Painted(50, 0, 200);
    EXPECT_EQ(quarter.Printed()[0].text, "Used: 25 %  ---  Free: 75%");
    EXPECT_NEAR(BlueEnd(quarter), 90, 1);
}

TEST(UsageBar, WithoutTextTheBarIsPaintedAndForeColorKept) {
    RasterSurface s = Picture();
    s.SetForeColor(0x123456);
    ui::cProgressBar bar;
    bar.StartFarbe(-1, 300, 0); // kept as given, and the painting does not change
    bar.EndFarbe(200, 0, 0);
    EXPECT_EQ(bar.R1(), -1);
    EXPECT_EQ(bar.G1(), 300);
    EXPECT_EQ(bar.R0(), 200);
    bar.ShowProgress(s, 50, 0, 100, false);

    EXPECT_TRUE(s.Printed().empty());
    EXPECT_EQ(s.ForeColor(), 0x123456);
    EXPECT_TRUE(OnlyColours(s, kBlue, kGrey));
    EXPECT_EQ(BlueEnd(s), BlueEnd(Painted(50)));
}

struct Rig : builders::ProgramRig {
    drives::cDrive drive{program};
    std::vector<fake::ViewChange> bars;

    explicit Rig(std::uint64_t freeBytes) {
        machine.AddDrive({.root = "E:\\",
                          .type = platform::kDriveRemovable,
                          .label = "",
                          .totalBytes = 1000,
                          .freeBytes = freeBytes});
        drive.p_SetDriveLetters("0", "E:");
        view.OnChange([this](const fake::ViewChange& c) {
            if (c.property == "bar") bars.push_back(c);
        });
    }
    const RasterSurface& bar() const { return *view.Raster(Ctl::Picture1); }
};

TEST(UsageBar, DriveCapacityDrawsTheUsedShare) {
    Rig rig(630);
    ASSERT_NE(rig.view.Picture(Ctl::Picture1), nullptr);
    EXPECT_EQ(rig.view.Picture(Ctl::lblHDSize), nullptr);

    rig.drive.GetDriveCapacity();
    ASSERT_EQ(rig.bar().Printed().size(), 1u);
    EXPECT_EQ(rig.bar().Printed()[0].text, "Used: 37 %  ---  Free: 63%");
    EXPECT_EQ(rig.bar().Printed()[0].colour, kWhite);
    EXPECT_NEAR(rig.bar().RowShare(0, kBlue), 0.37, 0.005);

    // The window reports the new picture once, when it repaints, and not again
    // for the same picture painted anew.
    EXPECT_TRUE(rig.bars.empty());
    rig.view.Repaint();
    ASSERT_EQ(rig.bars.size(), 1u);
    EXPECT_EQ(rig.bars[0].control, Ctl::Picture1);
    EXPECT_EQ(rig.bars[0].value, "Used: 37 %  ---  Free: 63%");
    rig.drive.GetDriveCapacity();
    rig.view.Repaint();
    EXPECT_EQ(rig.bars.size(), 1u);

    // The share is rounded halves to even: 36.5 % shows as 36, 37.5 % as 38.
    rig.machine.FindDrive("E:")->freeBytes = 635;
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.bar().Printed().at(0).text, "Used: 36 %  ---  Free: 64%");
    rig.machine.FindDrive("E:")->freeBytes = 625;
    rig.drive.GetDriveCapacity();
    EXPECT_EQ(rig.bar().Printed().at(0).text, "Used: 38 %  ---  Free: 62%");

    // A drive that cannot be read leaves the bar empty; a later change of a
    // control shows the cleared picture first.
    rig.machine.FindDrive("E:")->ready = false;
    rig.drive.GetDriveCapacity();
    EXPECT_TRUE(OnlyColours(rig.bar(), kGrey, kGrey));
    EXPECT_TRUE(rig.bar().Printed().empty());
    rig.bars.clear();
    std::vector<std::string> order;
    rig.view.OnChange([&](const fake::ViewChange& c) { order.push_back(c.property); });
    rig.view.SetText(Ctl::lblHDSize, "changed");
    EXPECT_EQ(order, (std::vector<std::string>{"bar", "caption"}));
}

TEST(UsageBar, SimulatorReportsTheBarOnce) {
    const auto lines = sim::RunScenario(R"({
      "machine": {
        "program": {"folder": "C:\\Tools\\Kestrine", "commandLine": "E:\\"},
        "drives": [
          {"root": "C:\\", "type": 3, "totalBytes": 1000, "freeBytes": 500},
          {"root": "E:\\", "type": 2, "label": "STICK", "totalBytes": 1000, "freeBytes": 630}
        ]
      },
      "steps": [{"do": "start"}, {"do": "choose", "control": "cmbSize", "index": 1}, {"do": "close"}]
    })");
    std::vector<std::string> bars;
    for (const auto& l : lines)
        if (l.find("\"usageBar\"") != std::string::npos) bars.push_back(l);
    ASSERT_FALSE(bars.empty());
    // The same picture repainted after the unit changes is not reported again.
    for (std::size_t i = 1; i < bars.size(); ++i) EXPECT_NE(bars[i], bars[i - 1]);
    EXPECT_NE(
        std::find_if(
            bars.begin(), bars.end(),
            [](const std::string& l) {
                return l == R"({"event":"usageBar","used":37,"text":"Used: 37 %  ---  Free: 63%","textColor":"white"})";
            }),
        bars.end())
        << bars.front();
}

} // namespace
