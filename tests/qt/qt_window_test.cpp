// The Qt renderer on its own: the widgets it builds from the form table, the
// events code and the user raise, the picture surface and the window system's
// window operations.
#include <gtest/gtest.h>

#include <algorithm>

#include <QAction>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <QWindow>

#include "qt_test_support.h"

namespace {

using app::Ctl;
using app::Kind;
using qtui::QtWindow;

QRect PixelsOf(const app::ControlSpec& spec) {
    return QRect(QtWindow::TwipsToPixels(spec.left), QtWindow::TwipsToPixels(spec.top),
                 QtWindow::TwipsToPixels(spec.width), QtWindow::TwipsToPixels(spec.height));
}

QTreeWidget* List(QtWindow& w) { return static_cast<QTreeWidget*>(w.ControlWidget(Ctl::ListView1)); }

TEST(QtWindow, BuildsEveryControlOfTheTableWhereTheTableSays) {
    QtWindow window;
    auto* main = static_cast<QMainWindow*>(window.Widget());
    // The client area holds the table's, in pixels at the screen's resolution; the window keeps its size.
    EXPECT_EQ(main->centralWidget()->minimumSize(),
              QSize(QtWindow::TwipsToPixels(app::kClientWidth), QtWindow::TwipsToPixels(app::kClientHeight)));
    EXPECT_EQ(main->minimumSize(), main->maximumSize());
    EXPECT_FALSE(main->windowIcon().isNull());

    int placed = 0;
    for (const auto& row : app::FormTable()) {
        QWidget* w = window.ControlWidget(row.id);
        if (row.id == Ctl::frmMain || row.kind == Kind::Menu || row.kind == Kind::Timer || row.kind == Kind::SysInfo ||
            row.kind == Kind::MenuStyler) {
            continue;
        }
        ASSERT_NE(w, nullptr) << row.name;
        EXPECT_EQ(w->geometry(), PixelsOf(row)) << row.name;
        const QWidget* container =
            row.container == Ctl::frmMain ? main->centralWidget() : window.ControlWidget(row.container);
        EXPECT_EQ(w->parentWidget(), container) << row.name;
        EXPECT_EQ(w->isVisibleTo(container), row.visible) << row.name;
        EXPECT_EQ(w->isEnabled(), row.enabled) << row.name;
        EXPECT_EQ(w->toolTip().toStdString(), std::string(row.toolTip)) << row.name;
        ++placed;
    }
    EXPECT_GT(placed, 40);
    // The three notices and the hidden working controls start hidden.
    for (Ctl c : {Ctl::frameNotify, Ctl::frmeReleased, Ctl::frameUnloading, Ctl::lstDrives, Ctl::Text1,
                  Ctl::txtUsbDrive, Ctl::Drive1})
        EXPECT_FALSE(window.ControlWidget(c)->isVisibleTo(main)) << app::Spec(c).name;

    // The menu bar: the visible entries in order, with their access keys; the pop-up's parent is not in it.
    std::vector<std::string> bar;
    for (QAction* a : main->menuBar()->actions()) bar.push_back(a->text().toStdString());
    EXPECT_EQ(bar, (std::vector<std::string>{"&Quit", "Recycle &Bin", "&Windows Explorer", "&Quorra", "&Brindle",
                                             "Release &USB drive(s)"}));
    EXPECT_EQ(window.MenuAction(Ctl::mnubla), nullptr);
}

// The outer size is the window's on the screen, frame included, once it is
// shown; a resize asked of the window system does not change it.
TEST(QtWindow, TheShownWindowsOuterSizeIsTheTablesAndStaysSo) {
    QtWindow window;
    qttest::Recorder events;
    window.SetEvents(&events);
    window.Show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.Widget()));
    auto* main = static_cast<QMainWindow*>(window.Widget());
    const QSize outer(QtWindow::TwipsToPixels(app::kFormWidth), QtWindow::TwipsToPixels(app::kFormHeight));
    EXPECT_EQ(main->frameGeometry().size(), outer);
    EXPECT_NEAR(window.Width(Ctl::frmMain), app::kFormWidth, 15);
    EXPECT_NEAR(window.Height(Ctl::frmMain), app::kFormHeight, 15);
    // The client area still holds every control where the table puts it.
    EXPECT_GE(main->centralWidget()->width(), QtWindow::TwipsToPixels(app::kClientWidth));
    EXPECT_GE(main->centralWidget()->height(), QtWindow::TwipsToPixels(app::kClientHeight));

    main->resize(outer + QSize(120, 80));
    QTest::qWait(20);
    EXPECT_EQ(main->frameGeometry().size(), outer);
}

TEST(QtWindow, ListColumnsKeepTheirDesignedWidthsWhateverTheyShow) {
    QtWindow window;
    auto* tree = List(window);
    window.AddColumn(Ctl::ListView1, "A caption far wider than its column", 760);
    window.AddColumn(Ctl::ListView1, "Label", 2320);
    window.AddColumn(Ctl::ListView1, "Type", 1000);
    window.Show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.Widget()));
    const std::vector<int> designed{QtWindow::TwipsToPixels(760), QtWindow::TwipsToPixels(2320),
                                    QtWindow::TwipsToPixels(1000)};
    auto widths = [tree] { return std::vector<int>{tree->columnWidth(0), tree->columnWidth(1), tree->columnWidth(2)}; };
    EXPECT_EQ(widths(), designed);
    // Rows wider than their columns, refilled twice: neither widened nor narrowed.
    for (const std::string& label : {std::string(60, 'W'), std::string("short")}) {
        window.ClearItems(Ctl::ListView1);
        window.AddItem(Ctl::ListView1, "C:\\");
        window.SetSubItem(Ctl::ListView1, 1, 1, label);
        window.SetSubItem(Ctl::ListView1, 1, 2, "Removable, and a good deal more than fits");
        window.Refresh(Ctl::ListView1);
        QApplication::processEvents();
        EXPECT_EQ(widths(), designed) << label;
    }
}

TEST(QtWindow, FontsFallBackToFacesTheSystemHasAndCaptionsFit) {
    QtWindow window;
    for (const char* face : {"Segoe UI", "Calibri", "Tahoma", "Lucida Console"}) {
        const std::string usable = QtWindow::UsableFace(face);
        EXPECT_FALSE(usable.empty()) << face;
        EXPECT_TRUE(QFontDatabase::hasFamily(QString::fromStdString(usable))) << face;
    }
    for (Ctl c : {Ctl::Label1, Ctl::Label6, Ctl::Label4, Ctl::Label9, Ctl::Label3, Ctl::Label11}) {
        auto* label = static_cast<QLabel*>(window.ControlWidget(c));
        EXPECT_LE(QFontMetrics(label->font()).horizontalAdvance(label->text()), label->width()) << app::Spec(c).name;
    }
}

TEST(QtWindow, ChangesFromCodeRaiseTheEventsTheHeadlessWindowRaises) {
    QtWindow window;
    qttest::Recorder events;
    window.SetEvents(&events);

    // A text box: Change only when the text differs, and the data-changed flag.
    window.SetDataChanged(Ctl::txtDT_Cap, false);
    window.SetText(Ctl::txtDT_Cap, "STICK");
    window.SetText(Ctl::txtDT_Cap, "STICK");
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Change txtDT_Cap"});
    EXPECT_TRUE(window.DataChanged(Ctl::txtDT_Cap));
    window.SetSelStart(Ctl::txtDT_Cap, 2);
    window.SetSelLength(Ctl::txtDT_Cap, 99);
    EXPECT_EQ(window.SelStart(Ctl::txtDT_Cap), 2);
    EXPECT_EQ(window.SelLength(Ctl::txtDT_Cap), 3);
    // Lengths and positions count characters, not UTF-8 bytes.
    window.SetText(Ctl::txtDT_Cap, "Gr\xC3\xBC\xC3\x9F"
                                   "e-Stick1");
    EXPECT_EQ(window.TextLength(Ctl::txtDT_Cap), 12);
    window.SetSelStart(Ctl::txtDT_Cap, 11);
    window.SetSelLength(Ctl::txtDT_Cap, 99);
    EXPECT_EQ(window.SelLength(Ctl::txtDT_Cap), 1);

    // The event log: appending keeps the exact text, line ends included, and raises Change.
    window.SetText(Ctl::Text1, "");
    events.Take();
    window.AppendText(Ctl::Text1, "one\r\n");
    window.AppendText(Ctl::Text1, "");
    window.AppendText(Ctl::Text1, "two\r\n");
    EXPECT_EQ(window.Text(Ctl::Text1), "one\r\ntwo\r\n");
    EXPECT_EQ(window.TextLength(Ctl::Text1), 10);
    EXPECT_EQ(events.Take(), (std::vector<std::string>{"Change Text1", "Change Text1"}));

    // A combo box: nothing chosen after filling; choosing from code raises Click; out of range is refused.
    window.AddListItem(Ctl::cmbSize, "GB");
    window.AddListItem(Ctl::cmbSize, "MB");
    EXPECT_EQ(window.ListIndex(Ctl::cmbSize), -1);
    EXPECT_EQ(window.Text(Ctl::cmbSize), "");
    EXPECT_TRUE(window.SetItemData(Ctl::cmbSize, 1, 2));
    EXPECT_FALSE(window.SetItemData(Ctl::cmbSize, 2, 2));
    EXPECT_TRUE(window.SetListIndex(Ctl::cmbSize, 1));
    EXPECT_FALSE(window.SetListIndex(Ctl::cmbSize, 2));
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Click cmbSize"});
    EXPECT_EQ(window.Text(Ctl::cmbSize), "MB");
    EXPECT_EQ(window.ItemData(Ctl::cmbSize, 1), 2);
    window.AddListItem(Ctl::lstDrives, "C:\\ (Fixed)");
    EXPECT_TRUE(window.SetListIndex(Ctl::lstDrives, 0));
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Click lstDrives"});

    // Captions of labels and menu entries; the window's own size is refused without a Resize.
    window.SetText(Ctl::lblSize0, "MB");
    window.SetText(Ctl::mnuExit, "&Leave");
    EXPECT_EQ(static_cast<QLabel*>(window.ControlWidget(Ctl::lblSize0))->text(), "MB");
    EXPECT_EQ(window.MenuAction(Ctl::mnuExit)->text(), "&Leave");
    const double width = window.Width(Ctl::frmMain);
    window.SetWidth(Ctl::frmMain, width + 600);
    EXPECT_EQ(window.Width(Ctl::frmMain), width);
    window.SetLeft(Ctl::cmdAbout, 300);
    EXPECT_EQ(window.ControlWidget(Ctl::cmdAbout)->x(), QtWindow::TwipsToPixels(300));
    EXPECT_TRUE(events.Take().empty());

    // The report list: items from 1, sub-items, selection.
    window.AddColumn(Ctl::ListView1, "Letter", 760);
    window.AddColumn(Ctl::ListView1, "Label", 2320);
    EXPECT_EQ(window.ColumnCount(Ctl::ListView1), 2);
    EXPECT_EQ(window.AddItem(Ctl::ListView1, "C:\\"), 1);
    EXPECT_EQ(window.AddItem(Ctl::ListView1, "E:\\"), 2);
    EXPECT_TRUE(window.SetSubItem(Ctl::ListView1, 2, 1, "STICK"));
    EXPECT_FALSE(window.SetSubItem(Ctl::ListView1, 3, 1, "none"));
    EXPECT_EQ(window.SubItem(Ctl::ListView1, 2, 1), "STICK");
    EXPECT_EQ(window.SubItem(Ctl::ListView1, 0, 1), "");
    EXPECT_EQ(window.SelectedItem(Ctl::ListView1), 0);
    window.SetItemSelected(Ctl::ListView1, 1, true);
    window.SetSelectedItem(Ctl::ListView1, 2);
    EXPECT_FALSE(window.ItemSelected(Ctl::ListView1, 1));
    EXPECT_EQ(window.SelectedItem(Ctl::ListView1), 2);
    window.ClearItems(Ctl::ListView1);
    EXPECT_EQ(window.ItemCount(Ctl::ListView1), 0);
    EXPECT_TRUE(events.Take().empty());
}

struct ShownWindow : ::testing::Test {
    QtWindow window;
    qttest::Recorder events;
    void SetUp() override {
        window.SetEvents(&events);
        window.AddColumn(Ctl::ListView1, "Letter", 760);
        window.AddItem(Ctl::ListView1, "C:\\");
        window.AddItem(Ctl::ListView1, "E:\\");
        window.Show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.Widget()));
        events.Take();
    }
    QPoint RowCentre(int item) { return List(window)->visualItemRect(List(window)->topLevelItem(item - 1)).center(); }
};

TEST_F(ShownWindow, ClicksOnButtonsMenusAndRowsReachTheLogicButNotOnDisabledControls) {
    QTest::mouseClick(window.ControlWidget(Ctl::cmdAbout), Qt::LeftButton);
    QTest::mouseClick(window.ControlWidget(Ctl::cmdSetLabel), Qt::LeftButton); // disabled in the table
    window.MenuAction(Ctl::mnuRecycleBin)->trigger();
    window.SetEnabled(Ctl::mnuQuickLaunch, false);
    window.MenuAction(Ctl::mnuQuickLaunch)->trigger();
    QTest::mouseClick(List(window)->viewport(), Qt::LeftButton, {}, RowCentre(2));
    EXPECT_EQ(events.Take(), (std::vector<std::string>{"Click cmdAbout", "Click mnuRecycleBin", "Click ListView1",
                                                       "MouseUp ListView1 1 0"}));
    EXPECT_EQ(window.SelectedItem(Ctl::ListView1), 2);

    QTest::mouseClick(List(window)->viewport(), Qt::RightButton, Qt::ShiftModifier, RowCentre(1));
    QTest::mouseDClick(List(window)->viewport(), Qt::LeftButton, {}, RowCentre(1));
    const auto lines = events.Take();
    EXPECT_EQ(lines.front(), "MouseUp ListView1 2 1");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "DblClick ListView1"), lines.end());
}

TEST_F(ShownWindow, AccessKeysPressButtonsAndMenuBarEntries) {
    QWindow* handle = window.Widget()->windowHandle();
    ASSERT_NE(handle, nullptr);
    auto clicked = [this](const char* line) {
        return QTest::qWaitFor(
            [&] { return std::find(events.lines.begin(), events.lines.end(), line) != events.lines.end(); }, 1000);
    };
    QTest::keyClick(handle, Qt::Key_A, Qt::AltModifier); // "&About": the button shows pressed a moment first
    EXPECT_TRUE(clicked("Click cmdAbout"));
    QTest::keyClick(handle, Qt::Key_B, Qt::AltModifier); // "Recycle &Bin"
    EXPECT_TRUE(clicked("Click mnuRecycleBin"));
    const auto lines = events.Take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Click cmdAbout"), 1);
}

TEST_F(ShownWindow, TheListsKeysGoDownAndUpWithTheirShiftState) {
    QWidget* list = List(window);
    QTest::keyClick(list, Qt::Key_Delete);
    QTest::keyClick(list, Qt::Key_Return);
    QTest::keyClick(list, Qt::Key_Escape);
    // The modifiers go down and up themselves, as on Windows.
    QTest::keyClick(list, Qt::Key_F2, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(events.Take(),
              (std::vector<std::string>{"KeyDown ListView1 46 0", "KeyUp ListView1 46 0", "KeyDown ListView1 13 0",
                                        "KeyUp ListView1 13 0", "KeyDown ListView1 27 0", "KeyUp ListView1 27 0",
                                        "KeyDown ListView1 16 1", "KeyDown ListView1 17 3", "KeyDown ListView1 113 3",
                                        "KeyUp ListView1 113 3", "KeyUp ListView1 17 1", "KeyUp ListView1 16 0"}));
}

TEST_F(ShownWindow, TypingChoosingAndLeavingReachTheLogic) {
    auto* edit = static_cast<QLineEdit*>(window.ControlWidget(Ctl::txtDT_Cap));
    edit->setFocus();
    QTest::keyClicks(edit, "AB");
    EXPECT_EQ(window.Text(Ctl::txtDT_Cap), "AB");
    EXPECT_TRUE(window.DataChanged(Ctl::txtDT_Cap));
    window.ControlWidget(Ctl::cmdAbout)->setFocus(); // focus leaves the label box
    EXPECT_EQ(events.Take(), (std::vector<std::string>{"Change txtDT_Cap", "Change txtDT_Cap", "Validate txtDT_Cap"}));

    window.AddListItem(Ctl::cmbSize, "GB");
    window.AddListItem(Ctl::cmbSize, "MB");
    auto* combo = static_cast<QComboBox*>(window.ControlWidget(Ctl::cmbSize));
    combo->setCurrentIndex(0);
    QTest::keyClick(combo, Qt::Key_Down);
    EXPECT_EQ(window.ListIndex(Ctl::cmbSize), 1);
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Click cmbSize"});
}

TEST_F(ShownWindow, TheDetailTextBoxesAreWhiteWithoutABorder) {
    for (Ctl c : {Ctl::txtDT_Cap, Ctl::txtFAT, Ctl::txtNotify}) {
        auto* edit = static_cast<QLineEdit*>(window.ControlWidget(c));
        EXPECT_FALSE(edit->hasFrame()) << app::Spec(c).name;
        const QImage shot = edit->grab().toImage();
        ASSERT_FALSE(shot.isNull());
        // Empty, so white to its very edges: no frame is drawn around it.
        for (const QPoint p : {QPoint(0, 0), QPoint(shot.width() - 1, 0), QPoint(0, shot.height() - 1),
                               QPoint(shot.width() - 1, shot.height() - 1), QPoint(shot.width() / 2, 0)})
            EXPECT_EQ(shot.pixelColor(p), QColor(Qt::white)) << app::Spec(c).name << " at " << p.x() << "," << p.y();
    }
}

TEST_F(ShownWindow, ThePopUpMenuShowsItsDefaultEntryInBoldAndReportsTheChoice) {
    bool seen = false;
    qttest::WhenPopupOpens([&seen](QMenu& menu) {
        std::vector<std::string> entries;
        QAction* quit = nullptr;
        for (QAction* a : menu.actions()) {
            entries.push_back(a->isSeparator() ? "-" : a->text().toStdString() + (a->font().bold() ? " (bold)" : ""));
            if (a->text() == "Quit program") quit = a;
        }
        EXPECT_EQ(entries, (std::vector<std::string>{"Release USB (bold)", "-", "Windows Explorer", "Recycle Bin", "-",
                                                     "Quorra", "Brindle", "-", "Quit program"}));
        seen = true;
        menu.setActiveAction(quit);
        QTest::keyClick(&menu, Qt::Key_Return);
    });
    window.PopupMenu(Ctl::mnubla, Ctl::mnuPopup0);
    EXPECT_TRUE(seen);
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Click mnuPopup8"});
}

// Staying on top is told to the window system for the shown window: the
// window is not destroyed and made again (which costs a repaint and loses
// its place on some desktops).
TEST_F(ShownWindow, StayingOnTopKeepsTheWindowItIs) {
    QWidget* widget = window.Widget();
    QWindow* native = widget->windowHandle();
    const WId id = widget->winId();
    window.SetTopmost(true);
    EXPECT_TRUE(window.Topmost());
    EXPECT_EQ(widget->windowHandle(), native);
    EXPECT_EQ(widget->winId(), id);
    EXPECT_TRUE(widget->isVisible());
    EXPECT_TRUE(native->flags().testFlag(Qt::WindowStaysOnTopHint));
    window.SetTopmost(false);
    EXPECT_FALSE(window.Topmost());
    EXPECT_EQ(widget->winId(), id);
    EXPECT_FALSE(native->flags().testFlag(Qt::WindowStaysOnTopHint));
}

TEST_F(ShownWindow, MinimisingRaisesResizeAndTheCloseBoxAsksTheLogic) {
    window.SetWindowState(app::kStateMinimized);
    QTest::qWait(20);
    window.Widget()->close();
    const auto lines = events.Take();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "CloseRequested"), lines.end());
    EXPECT_TRUE(window.Widget()->isVisible() || window.WindowState() == app::kStateMinimized);
}

// A window manager that does not activate a window when it is shown: the
// window's activations never reach it while `on`.
struct NoActivation : QObject {
    bool on = true;
    bool eventFilter(QObject*, QEvent* e) override {
        return on && (e->type() == QEvent::ActivationChange || e->type() == QEvent::WindowActivate);
    }
};

TEST(QtWindow, TheShowIsTheFirstActivationAndTheNextRealOneIsNotSwallowed) {
    {
        // The window manager's activation in answer to the show is not a second one.
        QtWindow window;
        qttest::Recorder events;
        window.SetEvents(&events);
        window.Show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.Widget()));
        QTest::qWait(50);
        const auto lines = events.Take();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "Activate"), 1);
    }
    QtWindow window;
    qttest::Recorder events;
    window.SetEvents(&events);
    NoActivation manager;
    window.Widget()->installEventFilter(&manager);
    window.Show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.Widget()));
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    QTest::qWait(800); // the user comes back a while later
    EXPECT_EQ(events.Take(), (std::vector<std::string>{"Resize", "Activate"}));

    manager.on = false;
    window.Widget()->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.Widget()));
    EXPECT_EQ(events.Take(), std::vector<std::string>{"Activate"});
}

TEST(QtSurface, DrawsFilledBoxesTextAndReadsBackWhatWasPainted) {
    QtWindow window;
    app::Surface* s = window.Picture(Ctl::Picture1);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(window.Picture(Ctl::cmdAbout), nullptr);
    EXPECT_FLOAT_EQ(s->ScaleWidth(), 5415);
    EXPECT_FLOAT_EQ(s->ScaleHeight(), 1200);
    const std::int32_t grey = 0xC0C0C0, blue = 0xFF0000, red = 0x0000FF;
    EXPECT_EQ(s->BackColor(), grey);
    s->Cls();
    EXPECT_EQ(s->Point(100, 100), grey);
    // Both corners belong to the box; what lies outside is clipped.
    s->Line(0, 0, 1500, 1200, blue);
    EXPECT_EQ(s->Point(1500, 600), blue);
    EXPECT_EQ(s->Point(1530, 600), grey);
    s->Line(5000, -300, 9000, 300, red);
    EXPECT_EQ(s->Point(5400, 0), red);
    EXPECT_EQ(s->Point(5415, 0), -1);
    EXPECT_EQ(s->Point(-1, 0), -1);

    // Print: the text lands at the print position in ForeColor, which then moves to the next line.
    const float wide = s->TextWidth("Used: 8 %"), narrow = s->TextWidth("U");
    EXPECT_GT(wide, 4 * narrow);
    EXPECT_EQ(s->TextWidth(""), 0);
    s->SetForeColor(0xFFFFFF);
    s->SetCurrentX(2000);
    s->SetCurrentY(300);
    s->Print("Used: 8 %");
    EXPECT_EQ(s->CurrentX(), 0);
    EXPECT_FLOAT_EQ(s->CurrentY(), 300 + s->TextHeight("Used: 8 %"));
    const QImage& image = *window.PictureImage(Ctl::Picture1);
    int printed = 0;
    for (int y = 20; y < 20 + QtWindow::TwipsToPixels(s->TextHeight("x")); ++y)
        for (int x = 133; x < 133 + QtWindow::TwipsToPixels(wide); ++x)
            if (image.pixel(x, y) != qRgb(192, 192, 192)) ++printed;
    EXPECT_GT(printed, 40);
    s->Cls();
    EXPECT_EQ(s->Point(1500, 600), grey);
    EXPECT_EQ(s->CurrentY(), 0);
}

TEST(QtWindowSystem, MessageBoxesCarryTheTitleIconAndButtonsAsked) {
    fake::Machine machine;
    QtWindow window;
    qtui::QtWindowSystem windows(machine, window);
    std::vector<std::string> buttons;
    std::string title, text, defaultButton;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    qttest::WhenMessageBoxOpens([&](QMessageBox& box) {
        title = box.windowTitle().toStdString();
        text = box.text().toStdString();
        icon = box.icon();
        for (QAbstractButton* b : box.buttons()) buttons.push_back(b->text().toStdString());
        defaultButton = box.defaultButton()->text().toStdString();
        for (QAbstractButton* b : box.buttons())
            if (b->text() == "&Yes") b->click();
    });
    const auto answer = windows.MessageBoxA(window.hWnd(), "Release E:\\?\r\nIt is in use.", "Kestrine",
                                            platform::kMbYesNo | platform::kMbIconQuestion | platform::kMbDefButton2);
    EXPECT_EQ(answer, platform::kIdYes);
    EXPECT_EQ(title, "Kestrine");
    EXPECT_EQ(text, "Release E:\\?\nIt is in use.");
    EXPECT_EQ(icon, QMessageBox::Question);
    std::sort(buttons.begin(), buttons.end());
    EXPECT_EQ(buttons, (std::vector<std::string>{"&No", "&Yes"}));
    EXPECT_EQ(defaultButton, "&No");

    qttest::WhenMessageBoxOpens([&](QMessageBox& box) {
        icon = box.icon();
        buttons.assign(box.buttons().size(), "");
        box.close();
    });
    EXPECT_EQ(windows.MessageBoxA(window.hWnd(), "Gone.", "Kestrine", platform::kMbOk | platform::kMbIconStop),
              platform::kIdOk);
    EXPECT_EQ(icon, QMessageBox::Critical);
    EXPECT_EQ(buttons.size(), 1u);
}

TEST(QtWindowSystem, TheWorkAreaTopmostAndOtherWindowsAreHandled) {
    fake::Machine machine;
    QtWindow window;
    qtui::QtWindowSystem windows(machine, window);
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    const platform::TwipsRect twips = windows.WorkArea();
    EXPECT_DOUBLE_EQ(twips.width, QtWindow::PixelsToTwips(area.width()));
    EXPECT_DOUBLE_EQ(twips.height, QtWindow::PixelsToTwips(area.height()));
    EXPECT_FALSE(window.Topmost());
    EXPECT_TRUE(windows.SetWindowPos(window.hWnd(), platform::kHwndTopmost, 0, 0, 0, 0,
                                     platform::kSwpNoMove | platform::kSwpNoSize));
    EXPECT_TRUE(window.Topmost());
    EXPECT_TRUE(windows.MessageBeep(0));
    EXPECT_EQ(windows.Beeps(), 1);
    // Properties and procedures are the backend's.
    EXPECT_TRUE(windows.SetPropA(window.hWnd(), "kestrine", 7));
    EXPECT_EQ(machine.GetPropA(window.hWnd(), "kestrine"), 7);
}

// A timed wait sleeps in the event loop until something comes: a timer that
// fires meanwhile ends it long before its limit, and with nothing to come
// it still ends. On a simulated machine the machine's clock moves.
TEST(QtWindowSystem, ATimedWaitEndsWhenAMessageComesOrTheTimeIsUp) {
    fake::Machine machine;
    QtWindow window;
    qtui::QtWindowSystem windows(machine, window);
    bool fired = false;
    QTimer::singleShot(20, [&] { fired = true; });
    QElapsedTimer clock;
    clock.start();
    int waits = 0;
    while (!fired && clock.elapsed() < 20000) {
        windows.WaitForMessages(30.0f);
        windows.DoEvents();
        ++waits;
    }
    EXPECT_TRUE(fired);
    EXPECT_LT(clock.elapsed(), 20000) << "the wait ended with the message";
    EXPECT_LT(waits, 20) << "each wait slept until something came, never spinning";

    clock.restart();
    windows.WaitForMessages(0.1f);
    EXPECT_LT(clock.elapsed(), 20000) << "with nothing to come, the wait ends at its limit";

    qtui::QtWindowSystem simulated(machine, window, true);
    const double before = machine.Now();
    simulated.WaitForMessages(0.5f);
    EXPECT_GT(machine.Now(), before + 0.4);
}

} // namespace
