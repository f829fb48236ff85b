#pragma once
// What every renderer of the main window keeps of a control beside its widget
// (its caption or text, enabled and visible flags, position and size in twips,
// the data of list entries, a text's selection), the colour and font a control
// takes from its containers, and the conversion between twips and pixels.
#include <cstdint>
#include <string>
#include <vector>

#include "core/form_table.h"

namespace portable {

struct ControlState {
    std::string text; // caption of a frame, label, button or menu entry; text of a text box
    bool enabled = true;
    bool visible = true;
    double left = 0, top = 0, width = 0, height = 0; // twips, relative to the container
    bool dataChanged = false;                        // text boxes
    std::vector<std::int32_t> itemData;              // list and combo boxes: one per entry
    int selStart = 0, selLength = 0;                 // text boxes kept as a whole text

    // The data of entry `index`; 0, or false with nothing changed, when there is no such entry.
    std::int32_t ItemData(int index) const;
    bool SetItemData(int index, std::int32_t data);
    // The selection, kept inside a text of `textLength` characters.
    void SetSelStart(int start, int textLength);
    void SetSelLength(int length, int textLength);
    // A new text of `textLength` characters: the selection is empty and its start inside the text.
    void TextReplaced(int textLength);
};

// One state per control of the form table, in Ctl order, as the table starts it.
std::vector<ControlState> StatesFromTable();

// The rows a control's inherited properties are looked up in: app::Spec, or another table in tests.
using SpecLookup = const app::ControlSpec& (*)(app::Ctl);

// A control's own background colour, else that of the nearest container that
// has one, else the window's colour.
app::Rgb BackColorOf(app::Ctl control, SpecLookup spec = &app::Spec);
// A control's own font, else that of the nearest container that has one, else the form's.
app::Font FontOf(app::Ctl control, SpecLookup spec = &app::Spec);
// A colour as the 0x00BBGGRR number the drawing surfaces speak.
constexpr std::int32_t Bgr(app::Rgb c) { return c.r | c.g << 8 | c.b << 16; }

// Twips (1/1440 inch) and pixels at `dpi` dots per inch.
int TwipsToPixels(double twips, double dpi);         // the nearest pixel: sizes and positions
double PixelsToTwips(int pixels, double dpi);        // exact
int PixelContaining(double twips, double dpi);       // the pixel a point in twips lies in
inline constexpr double kDefaultDpi = 96;            // where the system tells none usable
double UsableDpi(double reported, double least = 1); // `reported`, or the default below `least`

} // namespace portable
