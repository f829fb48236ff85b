// The controls' states the window renderers share: what a control takes from
// its containers, twips and pixels, the states as the table starts them, and
// the selection and entry data kept beside a control.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "platform/fake/headless_view.h"
#include "platform/portable/control_state.h"

using app::Ctl;
using app::Font;
using app::Rgb;

namespace {

constexpr Font kFormFont{"FormFace", 10};
constexpr Font kFrameFont{"FrameFace", 12, true};
constexpr Rgb kFrameColor{1, 2, 3};
constexpr Rgb kOwnColor{200, 100, 50};

app::ControlSpec Row(Ctl id, Ctl container, Font font, std::optional<Rgb> back) {
    return app::ControlSpec{id, "", -1, app::Kind::Label, container, 0, 0, 0, 0, "", font, back, true, true};
}

// A small window: the form has a font but no colour; Frame3 has a colour,
// Frame1 a font; Frame2 sits in Frame3; cmdClose names itself as its container.
const std::array kRows = {
    Row(Ctl::frmMain, Ctl::frmMain, kFormFont, {}),    Row(Ctl::Frame3, Ctl::frmMain, {}, kFrameColor),
    Row(Ctl::Frame1, Ctl::frmMain, kFrameFont, {}),    Row(Ctl::Frame2, Ctl::Frame3, {}, {}),
    Row(Ctl::ListView1, Ctl::Frame3, {}, {}),          Row(Ctl::Label4, Ctl::Frame2, {}, {}),
    Row(Ctl::cmdExplore, Ctl::Frame1, {}, kOwnColor),  Row(Ctl::Label1, Ctl::Frame1, {}, {}),
    Row(Ctl::cmdClose, Ctl::cmdClose, {"Own", 0}, {}),
};

const app::ControlSpec& SmallWindow(Ctl c) {
    for (const auto& row : kRows)
        if (row.id == c) return row;
    ADD_FAILURE() << "looked up a control outside the small window: " << static_cast<int>(c);
    return kRows[0];
}

bool SameFont(const Font& a, const Font& b) { return a.face == b.face && a.size == b.size && a.bold == b.bold; }

} // namespace

TEST(ControlState, ColourAndFontComeFromTheNearestContainerThatHasThem) {
    using portable::BackColorOf;
    using portable::FontOf;
    // Own values win over every container's.
    EXPECT_EQ(BackColorOf(Ctl::cmdExplore, &SmallWindow), kOwnColor);
    EXPECT_EQ(BackColorOf(Ctl::Frame3, &SmallWindow), kFrameColor);
    EXPECT_TRUE(SameFont(FontOf(Ctl::Frame1, &SmallWindow), kFrameFont));
    // The nearest container, not the form: one level and two levels up.
    EXPECT_EQ(BackColorOf(Ctl::ListView1, &SmallWindow), kFrameColor);
    EXPECT_EQ(BackColorOf(Ctl::Label4, &SmallWindow), kFrameColor);
    EXPECT_TRUE(SameFont(FontOf(Ctl::cmdExplore, &SmallWindow), kFrameFont));
    EXPECT_TRUE(SameFont(FontOf(Ctl::Label1, &SmallWindow), kFrameFont));
    // Nothing in the chain: the window's colour and the form's font.
    EXPECT_EQ(BackColorOf(Ctl::Label1, &SmallWindow), app::kWindowColor);
    EXPECT_EQ(BackColorOf(Ctl::frmMain, &SmallWindow), app::kWindowColor);
    EXPECT_TRUE(SameFont(FontOf(Ctl::Label4, &SmallWindow), kFormFont));
    // A control that is its own container ends the chain; a face without a size is no font.
    EXPECT_EQ(BackColorOf(Ctl::cmdClose, &SmallWindow), app::kWindowColor);
    EXPECT_TRUE(SameFont(FontOf(Ctl::cmdClose, &SmallWindow), kFormFont));
}

TEST(ControlState, TheMainWindowsControlsInheritAsDesigned) {
    using portable::BackColorOf;
    // The released notice's picture stands on the notice's colour, not the window's.
    EXPECT_EQ(app::Spec(Ctl::imgReleased).backColor, std::nullopt);
    EXPECT_EQ(BackColorOf(Ctl::imgReleased), app::kNoticeColor);
    EXPECT_EQ(BackColorOf(Ctl::Label1), app::kWindowColor);
    EXPECT_EQ(BackColorOf(Ctl::lblHDUsedColor), (Rgb{0, 0, 255}));
    // The centring button has no font of its own: the details panel's.
    const Font centre = portable::FontOf(Ctl::cmdCentreScreen);
    EXPECT_EQ(centre.face, "Segoe UI");
    EXPECT_EQ(centre.size, 9.75);
    EXPECT_EQ(portable::Bgr(app::kWindowColor), 0xF3F2F7);
    EXPECT_EQ(portable::Bgr(Rgb{0x12, 0x34, 0x56}), 0x563412);
}

TEST(ControlState, TwipsAndPixels) {
    using portable::PixelContaining;
    using portable::PixelsToTwips;
    using portable::TwipsToPixels;
    // 15 twips a pixel at 96 dots per inch: the client area is 713 x 443 pixels.
    EXPECT_EQ(TwipsToPixels(app::kClientWidth, 96), 713);
    EXPECT_EQ(TwipsToPixels(app::kClientHeight, 96), 443);
    EXPECT_EQ(TwipsToPixels(1440, 120), 120);
    // Sizes round to the nearest pixel, halves away from zero.
    EXPECT_EQ(TwipsToPixels(7, 96), 0);
    EXPECT_EQ(TwipsToPixels(7.5, 96), 1);
    EXPECT_EQ(TwipsToPixels(-7.5, 96), -1);
    EXPECT_EQ(TwipsToPixels(22, 96), 1);
    // A point lies in the pixel it has reached, also left of the origin.
    EXPECT_EQ(PixelContaining(14.9, 96), 0);
    EXPECT_EQ(PixelContaining(15, 96), 1);
    EXPECT_EQ(PixelContaining(-1, 96), -1);
    EXPECT_EQ(PixelContaining(23, 144), 2);
    // Pixels to twips is exact, and back again gives the same pixel.
    EXPECT_DOUBLE_EQ(PixelsToTwips(713, 96), 10695);
    EXPECT_DOUBLE_EQ(PixelsToTwips(1, 144), 10);
    EXPECT_DOUBLE_EQ(PixelsToTwips(7, 120), 84);
    for (double dpi : {72.0, 96.0, 120.0, 144.0, 157.0})
        for (int px = -50; px <= 2000; ++px) ASSERT_EQ(TwipsToPixels(PixelsToTwips(px, dpi), dpi), px) << dpi;
    // A system that tells no usable resolution is taken as 96 dots per inch.
    EXPECT_EQ(portable::UsableDpi(0), 96);
    EXPECT_EQ(portable::UsableDpi(40, 48), 96);
    EXPECT_EQ(portable::UsableDpi(48, 48), 48);
    EXPECT_EQ(portable::UsableDpi(120, 48), 120);
}

TEST(ControlState, StatesStartAsTheTableSays) {
    const std::vector<portable::ControlState> states = portable::StatesFromTable();
    ASSERT_EQ(states.size(), app::kControlCount);
    const auto& notify = states[static_cast<std::size_t>(Ctl::txtNotify)];
    EXPECT_EQ(notify.left, 240);
    EXPECT_EQ(notify.top, 280);
    EXPECT_EQ(notify.width, 5415);
    EXPECT_EQ(notify.height, 360);
    EXPECT_TRUE(notify.visible);
    EXPECT_EQ(states[static_cast<std::size_t>(Ctl::cmdRemoveUSB)].text, "&Release USB drive(s)");
    EXPECT_EQ(states[static_cast<std::size_t>(Ctl::Text1)].text, "Text1");
    EXPECT_FALSE(states[static_cast<std::size_t>(Ctl::cmdSetLabel)].enabled);
    EXPECT_TRUE(states[static_cast<std::size_t>(Ctl::cmdSetLabel)].visible);
    EXPECT_FALSE(states[static_cast<std::size_t>(Ctl::frameNotify)].visible);
    EXPECT_TRUE(states[static_cast<std::size_t>(Ctl::frameNotify)].enabled);
    EXPECT_FALSE(states[static_cast<std::size_t>(Ctl::txtDT_Cap)].dataChanged);
}

TEST(ControlState, EntryDataAndSelectionStayInRange) {
    portable::ControlState s;
    s.itemData = {7, 8};
    EXPECT_EQ(s.ItemData(1), 8);
    EXPECT_EQ(s.ItemData(2), 0);
    EXPECT_EQ(s.ItemData(-1), 0);
    EXPECT_TRUE(s.SetItemData(0, 42));
    EXPECT_FALSE(s.SetItemData(2, 5));
    EXPECT_FALSE(s.SetItemData(-1, 5));
    EXPECT_EQ(s.itemData, (std::vector<std::int32_t>{42, 8}));

    // A text of 10 characters.
    s.SetSelStart(4, 10);
    s.SetSelLength(20, 10);
    EXPECT_EQ(s.selStart, 4);
    EXPECT_EQ(s.selLength, 6);
    s.SetSelStart(8, 10); // the selection shortens to end with the text
    EXPECT_EQ(s.selLength, 2);
    s.SetSelStart(-3, 10);
    EXPECT_EQ(s.selStart, 0);
    s.SetSelStart(99, 10);
    EXPECT_EQ(s.selStart, 10);
    EXPECT_EQ(s.selLength, 0);
    s.SetSelStart(2, 10);
    s.SetSelLength(-1, 10);
    EXPECT_EQ(s.selLength, 0);
    // A new, shorter text: the start stays inside it and nothing is selected.
    s.SetSelLength(5, 10);
    s.SetSelStart(9, 10);
    s.TextReplaced(3);
    EXPECT_EQ(s.selStart, 3);
    EXPECT_EQ(s.selLength, 0);
}

// Each number of a rectangle is its own: setting one leaves the others, and a
// change to the same value is not reported again.
TEST(ControlState, EachEdgeOfARectangleIsItsOwn) {
    fake::HeadlessView view;
    std::vector<std::string> seen;
    view.OnChange([&seen](const fake::ViewChange& c) { seen.push_back(c.property + "=" + c.value); });
    view.SetLeft(Ctl::Label1, 1);
    view.SetTop(Ctl::Label1, 2);
    view.SetWidth(Ctl::Label1, 3);
    view.SetHeight(Ctl::Label1, 4);
    EXPECT_EQ(view.Left(Ctl::Label1), 1);
    EXPECT_EQ(view.Top(Ctl::Label1), 2);
    EXPECT_EQ(view.Width(Ctl::Label1), 3);
    EXPECT_EQ(view.Height(Ctl::Label1), 4);
    EXPECT_EQ(view.Left(Ctl::Label6), app::Spec(Ctl::Label6).left);
    view.SetHeight(Ctl::Label1, 4);
    view.SetEnabled(Ctl::Label1, true);
    view.SetVisible(Ctl::Label1, false);
    view.SetVisible(Ctl::Label1, false);
    EXPECT_EQ(seen, (std::vector<std::string>{"left=1", "top=2", "width=3", "height=4", "visible=false"}));
}
