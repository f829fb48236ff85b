#pragma once
// The main window as data: every frame, control and menu of frmMain with its
// name, kind, container, position and size in twips, caption, font, colours,
// visibility and enabled state. Renderers build their widgets from this table;
// the logic addresses controls by their Ctl id through the View.
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace app {

enum class Ctl : std::uint16_t {
    frmMain,
    // frames
    Frame3,
    Frame1,
    Frame2,
    Frame4,
    frameNotify,
    frmeReleased,
    frameUnloading,
    // visible controls
    ListView1,
    cmdRemoveUSB,
    cmdExplore,
    cmdSelectUtility,
    cmdBrindle,
    cmdSetLabel,
    Label1,
    txtDT_Cap,
    cmdCentreScreen,
    Label6,
    txtFAT,
    cmdClose,
    cmdAbout,
    Label4,
    lblHDSize,
    lblSize0,
    lblHDUsedColor,
    Label9,
    lblHDUsed,
    lblSize1,
    Label11,
    lblHDFreeColor,
    Label3,
    lblHDFree,
    lblSize2,
    cmbSize,
    Picture1,
    txtNotify,
    imgNotify,
    lblMessage1,
    lblMessage2,
    imgReleased,
    lblUSBMessage,
    imgUnloading,
    Label2,
    // hidden working controls
    lstDrives,
    lstTempUSB,
    Drive1,
    txtUsbDrive,
    Text1,
    lblSerialNumber,
    lblWMIDeviceID,
    // non-visual controls
    tmrFlashMe,
    SysInfo1,
    OfficeMenu1,
    // menu bar
    mnuExit,
    mnuRecycleBin,
    mnuWindowsExplorer,
    mnuQuorraFiles,
    mnuQuickLaunch,
    mnuRemoveUSB,
    // pop-up menu of the drive list and its entries
    mnubla,
    mnuPopup0,
    mnuPopup1,
    mnuPopup2,
    mnuPopup3,
    mnuPopup4,
    mnuPopup5,
    mnuPopup6,
    mnuPopup7,
    mnuPopup8,
    Count_
};

inline constexpr std::size_t kControlCount = static_cast<std::size_t>(Ctl::Count_);

enum class Kind : std::uint8_t {
    Form,
    Frame,
    ListView, // report view
    Button,   // push button, optionally with a picture
    Label,
    TextBox,
    ComboBox, // drop-down list
    ListBox,
    DriveListBox,
    PictureBox,
    Image, // a picture stretched into its rectangle
    Timer,
    SysInfo,
    MenuStyler,
    Menu, // a menu bar entry, a pop-up parent or a pop-up entry
};

enum class Align : std::uint8_t { Left, Right, Center };

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    friend constexpr bool operator==(Rgb, Rgb) = default;
};

struct Font {
    std::string_view face; // empty: the container's font
    double size = 0;       // points
    bool bold = false;
};

struct ControlSpec {
    Ctl id;
    std::string_view name; // design name without the index
    std::int16_t index;    // index within a control array, -1 when none
    Kind kind;
    Ctl container;                // frmMain for top-level controls and menu bar entries
    int left, top, width, height; // twips, relative to the container
    std::string_view caption;     // caption or initial text
    Font font;
    std::optional<Rgb> backColor; // none: the container's colour
    bool visible;
    bool enabled;
    Align align = Align::Left;
    bool border = false;
    std::string_view toolTip = {};
    int pictureSize = 0;                     // edge of the square picture in pixels (buttons); 0 none
    int pictureWidth = 0, pictureHeight = 0; // images: the picture's own size in pixels
};

inline constexpr int kFormWidth = 10935; // outer, twips
inline constexpr int kFormHeight = 7515;
inline constexpr int kClientWidth = 10695;
inline constexpr int kClientHeight = 6645;
inline constexpr int kTwipsPerPixel = 15; // at 96 dots per inch
inline constexpr Rgb kWindowColor{247, 242, 243};
inline constexpr Rgb kNoticeColor{236, 237, 253};
inline constexpr std::string_view kAppName = "Kestrine";

// The list view's columns, in order.
struct ColumnSpec {
    std::string_view caption;
    int width; // twips
};
std::span<const ColumnSpec> ListViewColumns();

std::span<const ControlSpec> FormTable();
const ControlSpec& Spec(Ctl id);
// The control of that design name (and index for control arrays), if any.
std::optional<Ctl> FindControl(std::string_view name, int index = -1);

// Pop-up entry i (0 to 8) of the drive list's menu.
constexpr Ctl PopupEntry(int i) { return static_cast<Ctl>(static_cast<int>(Ctl::mnuPopup0) + i); }
// Size label i (0 to 2).
constexpr Ctl SizeLabel(int i) { return i == 0 ? Ctl::lblSize0 : i == 1 ? Ctl::lblSize1 : Ctl::lblSize2; }

} // namespace app
