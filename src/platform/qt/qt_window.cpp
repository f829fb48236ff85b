// The main window rendered with Qt Widgets from the form table.
#include "platform/qt/qt_window.h"

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QCursor>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QHeaderView>
#include <QIcon>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTimer>
#include <QTreeWidget>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

namespace qtui {

using app::Ctl;
using app::Kind;

namespace {

std::size_t Index(Ctl c) { return static_cast<std::size_t>(c); }

double ScreenDpi() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
    return dpi >= 48 ? dpi : 96.0;
}

QString Q(const std::string& s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }
std::string S(const QString& s) { return s.toUtf8().toStdString(); }

QColor ToQColor(app::Rgb c) { return QColor(c.r, c.g, c.b); }
QColor FromBgr(std::int32_t c) { return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF); }
std::int32_t ToBgr(QRgb c) { return qRed(c) | qGreen(c) << 8 | qBlue(c) << 16; }

// A control's own background colour or its container's.
app::Rgb BackColorOf(Ctl c) {
    for (;;) {
        const auto& spec = app::Spec(c);
        if (spec.backColor) return *spec.backColor;
        if (c == Ctl::frmMain || spec.container == c) break;
        c = spec.container;
    }
    return app::kWindowColor;
}

// A control's own font or its container's.
app::Font FontOf(Ctl c) {
    for (;;) {
        const auto& spec = app::Spec(c);
        if (spec.font.size > 0) return spec.font;
        if (c == Ctl::frmMain || spec.container == c) return app::Spec(Ctl::frmMain).font;
        c = spec.container;
    }
}

// Substitute faces run wider than the designed ones: they are set a little smaller.
constexpr double kSubstituteScale = 0.9;

QFont FontFor(const app::Font& font) {
    const std::string wanted(font.face);
    const std::string face = QtWindow::UsableFace(wanted);
    QFont made(Q(face));
    made.setPointSizeF(face == wanted ? font.size : font.size * kSubstituteScale);
    made.setBold(font.bold);
    return made;
}

// Makes a caption fit its rectangle: a substitute font that is still too
// wide is narrowed a step at a time, to no less than four fifths.
void FitFont(QWidget* w, const QString& text, int room) {
    QFont font = w->font();
    const double start = font.pointSizeF();
    QString plain = text;
    plain.remove('&');
    while (QFontMetricsF(font).horizontalAdvance(plain) > room && font.pointSizeF() > start * 0.8)
        font.setPointSizeF(font.pointSizeF() - 0.25);
    w->setFont(font);
}

// Windows virtual-key codes for the keys the logic sees.
std::int16_t VirtualKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z) return static_cast<std::int16_t>('A' + (key - Qt::Key_A));
    if (key >= Qt::Key_0 && key <= Qt::Key_9) return static_cast<std::int16_t>('0' + (key - Qt::Key_0));
    if (key >= Qt::Key_F1 && key <= Qt::Key_F24) return static_cast<std::int16_t>(112 + (key - Qt::Key_F1));
    switch (key) {
    case Qt::Key_Backspace:
        return 8;
    case Qt::Key_Tab:
        return 9;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 13;
    case Qt::Key_Shift:
        return 16;
    case Qt::Key_Control:
        return 17;
    case Qt::Key_Alt:
        return 18;
    case Qt::Key_Escape:
        return 27;
    case Qt::Key_Space:
        return 32;
    case Qt::Key_PageUp:
        return 33;
    case Qt::Key_PageDown:
        return 34;
    case Qt::Key_End:
        return 35;
    case Qt::Key_Home:
        return 36;
    case Qt::Key_Left:
        return 37;
    case Qt::Key_Up:
        return 38;
    case Qt::Key_Right:
        return 39;
    case Qt::Key_Down:
        return 40;
    case Qt::Key_Insert:
        return 45;
    case Qt::Key_Delete:
        return 46;
    default:
        return 0;
    }
}

std::int16_t ShiftMask(Qt::KeyboardModifiers m) {
    std::int16_t shift = 0;
    if (m & Qt::ShiftModifier) shift |= app::kShiftMask;
    if (m & Qt::ControlModifier) shift |= app::kCtrlMask;
    if (m & Qt::AltModifier) shift |= app::kAltMask;
    return shift;
}

// --- the picture box's drawing surface ---

// Draws into an image of the box's size; the box paints from it. Coordinates
// are twips from the top-left of the box.
class QtSurface : public app::SurfaceState {
public:
    QtSurface(QWidget* box, float scaleWidth, float scaleHeight, QColor back, QFont font)
        : SurfaceState(scaleWidth, scaleHeight), box_(box), back_(back), font_(std::move(font)),
          image_(std::max(1, QtWindow::TwipsToPixels(scaleWidth)), std::max(1, QtWindow::TwipsToPixels(scaleHeight)),
                 QImage::Format_RGB32) {
        const int dotsPerMeter = static_cast<int>(std::lround(ScreenDpi() / 0.0254));
        image_.setDotsPerMeterX(dotsPerMeter);
        image_.setDotsPerMeterY(dotsPerMeter);
        Cls();
    }

    const QImage& Image() const { return image_; }

    std::int32_t ForeColor() const override { return fore_; }
    void SetForeColor(std::int32_t colour) override { fore_ = colour & 0xFFFFFF; }
    std::int32_t BackColor() const override { return ToBgr(back_.rgb()); }

    void Cls() override {
        image_.fill(back_);
        currentX_ = currentY_ = 0;
        changed();
    }
    void Line(float x1, float y1, float x2, float y2, std::int32_t colour) override {
        if (std::isnan(x1) || std::isnan(y1) || std::isnan(x2) || std::isnan(y2)) return;
        QPainter p(&image_);
        p.fillRect(QRect(QPoint(Px(std::min(x1, x2)), Px(std::min(y1, y2))),
                         QPoint(Px(std::max(x1, x2)), Px(std::max(y1, y2)))),
                   FromBgr(colour));
        p.end();
        changed();
    }
    std::int32_t Point(float x, float y) const override {
        if (std::isnan(x) || std::isnan(y) || x < 0 || y < 0) return -1;
        const int px = Px(x), py = Px(y);
        if (px >= image_.width() || py >= image_.height()) return -1;
        return ToBgr(image_.pixel(px, py));
    }
    float TextWidth(const std::string& text) const override {
        return static_cast<float>(QFontMetricsF(font_, &image_).horizontalAdvance(Q(text)) * Twips());
    }
    float TextHeight(const std::string&) const override {
        return static_cast<float>(QFontMetricsF(font_, &image_).height() * Twips());
    }
    void Print(const std::string& text) override {
        QPainter p(&image_);
        p.setRenderHint(QPainter::TextAntialiasing);
        p.setFont(font_);
        p.setPen(FromBgr(fore_));
        const QFontMetricsF metrics(font_, &image_);
        p.drawText(QPointF(Px(currentX_), Px(currentY_) + metrics.ascent()), Q(text));
        p.end();
        currentY_ += TextHeight(text);
        currentX_ = 0;
        changed();
    }

private:
    static int Px(float twips) { return static_cast<int>(std::floor(twips * ScreenDpi() / 1440.0)); }
    static double Twips() { return 1440.0 / ScreenDpi(); }
    void changed() {
        if (box_ != nullptr) box_->update();
    }

    QWidget* box_;
    QColor back_;
    QFont font_;
    QImage image_;
    std::int32_t fore_ = 0;
};

// A picture box: shows its surface's image.
class PictureBox : public QWidget {
public:
    explicit PictureBox(QWidget* parent) : QWidget(parent) { setAttribute(Qt::WA_OpaquePaintEvent); }
    void SetSurface(const QtSurface* surface) { surface_ = surface; }

protected:
    void paintEvent(QPaintEvent*) override {
        if (surface_ == nullptr) return;
        QPainter p(this);
        p.drawImage(0, 0, surface_->Image());
    }

private:
    const QtSurface* surface_ = nullptr;
};

// A captionless frame: its colour and an etched edge a little below its top.
class FrameBox : public QWidget {
public:
    FrameBox(QWidget* parent, QColor back) : QWidget(parent), back_(back) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), back_);
        const QRect edge = rect().adjusted(0, kEdgeTop, -2, -2);
        p.setPen(back_.darker(135));
        p.drawRect(edge);
        p.setPen(Qt::white);
        p.drawRect(edge.translated(1, 1));
    }

private:
    static constexpr int kEdgeTop = 6;
    QColor back_;
};

} // namespace

// --- the window ---

class QtWindow::Impl : public QObject {
public:
    struct Control {
        QWidget* widget = nullptr;
        QAction* action = nullptr; // menu bar entries
        double left = 0, top = 0, width = 0, height = 0;
        bool visible = true, enabled = true;
        std::string caption;
        bool dataChanged = false;
        std::vector<std::int32_t> itemData;
        std::unique_ptr<QtSurface> surface;
        std::string text;                // multi-line text boxes: the whole text
        int selStart = 0, selLength = 0; // multi-line text boxes
    };

    class Main : public QMainWindow {
    public:
        explicit Main(Impl& impl) : impl_(impl) {}

    protected:
        void closeEvent(QCloseEvent* e) override {
            if (impl_.dying) return;
            e->ignore();
            if (impl_.events != nullptr) impl_.events->CloseRequested();
            if (impl_.afterClose) impl_.afterClose();
        }
        void changeEvent(QEvent* e) override {
            QMainWindow::changeEvent(e);
            if (impl_.dying) return;
            if (e->type() == QEvent::WindowStateChange && impl_.live() && !impl_.showing) impl_.events->Resize();
            if (e->type() == QEvent::ActivationChange && isActiveWindow() && impl_.live() && !impl_.showing) {
                if (impl_.skipActivation)
                    impl_.skipActivation = false;
                else
                    impl_.events->Activate();
            }
        }

    private:
        Impl& impl_;
    };

    explicit Impl(platform::WindowHandle h) : handle(h), controls(app::kControlCount), main(*this) {}
    // The widgets go before the rest: what they report while going away is not looked at.
    ~Impl() override { dying = true; }

    bool live() const { return events != nullptr && shown; }
    Control& at(Ctl c) { return controls[Index(c)]; }
    const Control& at(Ctl c) const { return controls[Index(c)]; }
    QWidget* parentOf(Ctl c) {
        const Ctl container = app::Spec(c).container;
        return container == Ctl::frmMain ? client : at(container).widget;
    }
    template <class W> W* as(Ctl c) const { return dynamic_cast<W*>(at(c).widget); }

    void build();
    QWidget* create(const app::ControlSpec& spec);
    void place(Ctl c);
    void fit(Ctl c);
    void syncTimer();
    void fitColumns(Ctl list);
    bool eventFilter(QObject* watched, QEvent* e) override;
    Ctl controlOf(const QObject* o) const {
        for (std::size_t i = 0; i < controls.size(); ++i)
            if (controls[i].widget == o && o != nullptr) return static_cast<Ctl>(i);
        return Ctl::Count_;
    }

    platform::WindowHandle handle;
    std::vector<Control> controls;
    Main main;
    QWidget* client = nullptr;
    app::ViewEvents* events = nullptr;
    bool shown = false;
    bool showing = false;
    bool skipActivation = false;
    bool dying = false;
    int fromCode = 0; // changes made from code under way: the widgets' own signals are not the user's
    QTimer timer;
    std::function<int(Ctl)> interval;
    std::function<void()> afterClose;
};

QWidget* QtWindow::Impl::create(const app::ControlSpec& spec) {
    QWidget* parent = parentOf(spec.id);
    const Ctl c = spec.id;
    QWidget* w = nullptr;
    switch (spec.kind) {
    case Kind::Frame:
        w = new FrameBox(parent, ToQColor(BackColorOf(c)));
        break;
    case Kind::ListView: {
        auto* tree = new QTreeWidget(parent);
        tree->setRootIsDecorated(false);
        tree->setUniformRowHeights(true);
        tree->setAllColumnsShowFocus(true);
        tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
        tree->setSelectionBehavior(QAbstractItemView::SelectRows);
        tree->setColumnCount(0);
        tree->setHeaderLabels({});
        // A flat header: its sections are captions, not buttons.
        tree->header()->setSectionsClickable(false);
        tree->header()->setHighlightSections(false);
        tree->header()->setSectionsMovable(false);
        tree->header()->setStretchLastSection(true);
        tree->header()->setStyleSheet("QHeaderView::section { background: #fafafa; border: none; border-right: 1px "
                                      "solid #e3e3e3; border-bottom: 1px solid #e3e3e3; padding: 2px 4px; }");
        tree->setContextMenuPolicy(Qt::NoContextMenu);
        tree->installEventFilter(this);
        tree->viewport()->installEventFilter(this);
        QObject::connect(tree, &QTreeWidget::itemDoubleClicked, this, [this, c] {
            if (live()) events->DblClick(c);
        });
        w = tree;
        break;
    }
    case Kind::Button: {
        auto* button = new QPushButton(Q(std::string(spec.caption)), parent);
        if (spec.pictureSize > 0) {
            const char* file = spec.pictureSize >= 48   ? ":/kestrine/release48.ico"
                               : spec.pictureSize >= 32 ? ":/kestrine/quit32.ico"
                                                        : ":/kestrine/centre16.ico";
            button->setIcon(QIcon(file));
            button->setIconSize(QSize(spec.pictureSize, spec.pictureSize));
        }
        if (spec.backColor) {
            QPalette palette = button->palette();
            palette.setColor(QPalette::Button, ToQColor(*spec.backColor));
            button->setPalette(palette);
        }
        QObject::connect(button, &QPushButton::clicked, this, [this, c] {
            if (live()) events->Click(c);
        });
        w = button;
        break;
    }
    case Kind::Label: {
        auto* label = new QLabel(Q(std::string(spec.caption)), parent);
        label->setTextFormat(Qt::PlainText);
        const Qt::Alignment h = spec.align == app::Align::Right    ? Qt::AlignRight
                                : spec.align == app::Align::Center ? Qt::AlignHCenter
                                                                   : Qt::AlignLeft;
        label->setAlignment(h | Qt::AlignVCenter);
        if (spec.border) label->setFrameStyle(QFrame::Box | QFrame::Plain);
        if (spec.backColor) {
            label->setAutoFillBackground(true);
            if (spec.align == app::Align::Left) label->setIndent(3);
        }
        w = label;
        break;
    }
    case Kind::TextBox:
        if (c == Ctl::Text1) {
            auto* edit = new QPlainTextEdit(parent);
            edit->setPlainText(Q(std::string(spec.caption)));
            at(c).text = std::string(spec.caption);
            w = edit;
        } else {
            auto* edit = new QLineEdit(Q(std::string(spec.caption)), parent);
            edit->setFrame(true);
            edit->installEventFilter(this);
            QObject::connect(edit, &QLineEdit::textEdited, this, [this, c] {
                at(c).dataChanged = true;
                if (live()) events->Change(c);
            });
            w = edit;
        }
        break;
    case Kind::ComboBox:
    case Kind::DriveListBox: {
        auto* combo = new QComboBox(parent);
        QObject::connect(combo, &QComboBox::activated, this, [this, c] {
            if (live()) events->Click(c);
        });
        w = combo;
        break;
    }
    case Kind::ListBox: {
        auto* list = new QListWidget(parent);
        QObject::connect(list, &QListWidget::currentRowChanged, this, [this, c] {
            if (fromCode == 0 && live()) events->Click(c);
        });
        w = list;
        break;
    }
    case Kind::PictureBox: {
        auto* box = new PictureBox(parent);
        at(c).surface =
            std::make_unique<QtSurface>(box, static_cast<float>(spec.width), static_cast<float>(spec.height),
                                        ToQColor(BackColorOf(c)), FontFor(FontOf(c)));
        box->SetSurface(at(c).surface.get());
        w = box;
        break;
    }
    case Kind::Image: {
        auto* image = new QLabel(parent);
        const char* file = c == Ctl::imgReleased ? ":/kestrine/released.bmp"
                           : c == Ctl::imgNotify ? ":/kestrine/releasing48.ico"
                                                 : ":/kestrine/unloading32.ico";
        image->setPixmap(QIcon(file).pixmap(QSize(spec.pictureWidth, spec.pictureHeight)));
        if (c == Ctl::imgReleased) image->setPixmap(QPixmap(file));
        image->setScaledContents(true);
        w = image;
        break;
    }
    default:
        return nullptr; // menus, timers and the other non-visual controls
    }
    w->setFont(FontFor(FontOf(c)));
    if (spec.kind != Kind::Frame && spec.kind != Kind::PictureBox) {
        QPalette palette = w->palette();
        const QColor back = ToQColor(BackColorOf(c));
        if (spec.kind == Kind::Label || spec.kind == Kind::Image) palette.setColor(QPalette::Window, back);
        if (spec.backColor && spec.kind != Kind::Button) palette.setColor(QPalette::Base, back);
        w->setPalette(palette);
    }
    if (!spec.toolTip.empty()) w->setToolTip(Q(std::string(spec.toolTip)));
    w->setEnabled(spec.enabled);
    w->setVisible(spec.visible);
    return w;
}

void QtWindow::Impl::build() {
    for (const auto& row : app::FormTable()) {
        Control& own = at(row.id);
        own.left = row.left;
        own.top = row.top;
        own.width = row.width;
        own.height = row.height;
        own.visible = row.visible;
        own.enabled = row.enabled;
        own.caption = std::string(row.caption);
    }
    const auto& form = app::Spec(Ctl::frmMain);
    main.setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                        Qt::WindowCloseButtonHint);
    main.setWindowTitle(Q(std::string(form.caption)));
    main.setWindowIcon(QIcon(":/kestrine/kestrine.ico"));
    main.setFont(FontFor(form.font));
    at(Ctl::frmMain).widget = &main;
    at(Ctl::frmMain).visible = false;

    client = new QWidget(&main);
    client->setAutoFillBackground(true);
    QPalette palette = client->palette();
    palette.setColor(QPalette::Window, ToQColor(app::kWindowColor));
    client->setPalette(palette);
    client->setFixedSize(TwipsToPixels(app::kClientWidth), TwipsToPixels(app::kClientHeight));
    main.setCentralWidget(client);

    // Table order puts every container before what it holds.
    for (const auto& row : app::FormTable()) {
        if (row.id == Ctl::frmMain || row.kind == Kind::Menu) continue;
        at(row.id).widget = create(row);
        place(row.id);
        fit(row.id);
    }

    QMenuBar* bar = main.menuBar();
    bar->setFont(FontFor(app::Spec(Ctl::mnuExit).font));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != Ctl::frmMain || spec.id == Ctl::mnubla) continue;
        QAction* action = bar->addAction(Q(std::string(spec.caption)));
        const Ctl c = spec.id;
        action->setEnabled(spec.enabled);
        action->setVisible(spec.visible);
        QObject::connect(action, &QAction::triggered, this, [this, c] {
            if (live()) events->Click(c);
        });
        at(c).action = action;
    }
    main.adjustSize();
    main.setFixedSize(main.sizeHint());

    timer.setSingleShot(false);
    QObject::connect(&timer, &QTimer::timeout, this, [this] {
        if (events != nullptr) events->Tick(Ctl::tmrFlashMe);
        syncTimer();
    });
}

// Puts a control's widget where its twips say.
void QtWindow::Impl::place(Ctl c) {
    const Control& own = at(c);
    if (own.widget == nullptr || c == Ctl::frmMain) return;
    own.widget->setGeometry(TwipsToPixels(own.left), TwipsToPixels(own.top), TwipsToPixels(own.width),
                            TwipsToPixels(own.height));
}

void QtWindow::Impl::fit(Ctl c) {
    const Kind kind = app::Spec(c).kind;
    Control& own = at(c);
    if (own.widget == nullptr || (kind != Kind::Label && kind != Kind::Button)) return;
    own.widget->setFont(FontFor(FontOf(c)));
    int room = own.widget->width() - (kind == Kind::Button ? 8 : 2);
    if (kind == Kind::Button && app::Spec(c).pictureSize > 0) room -= app::Spec(c).pictureSize + 4;
    FitFont(own.widget, Q(own.caption), room);
}

// The last column shows its longest entry whole: what it needs more than its
// width comes off the widest column, so the rows still fit without a
// horizontal scroll bar (a substitute font may be wider than the designed one).
void QtWindow::Impl::fitColumns(Ctl list) {
    auto* tree = as<QTreeWidget>(list);
    if (tree == nullptr || tree->columnCount() < 2) return;
    const int last = tree->columnCount() - 1;
    const QFontMetrics metrics(tree->font());
    int needed = QFontMetrics(tree->header()->font()).horizontalAdvance(tree->headerItem()->text(last)) + 16;
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        needed = std::max(needed, metrics.horizontalAdvance(tree->topLevelItem(i)->text(last)) + 12);
    int others = 0, widest = 0;
    for (int c = 0; c < last; ++c) {
        others += tree->columnWidth(c);
        if (tree->columnWidth(c) > tree->columnWidth(widest)) widest = c;
    }
    const int room = tree->viewport()->width() - others;
    if (needed > room) tree->setColumnWidth(widest, std::max(tree->columnWidth(widest) - (needed - room), 40));
}

void QtWindow::Impl::syncTimer() {
    const Control& own = at(Ctl::tmrFlashMe);
    const int ms = interval ? interval(Ctl::tmrFlashMe) : 0;
    if (!own.enabled || ms <= 0) {
        timer.stop();
        return;
    }
    if (timer.interval() != ms) timer.setInterval(ms);
    if (!timer.isActive()) timer.start();
}

// The drive list's mouse and keys, and the text boxes' validation.
bool QtWindow::Impl::eventFilter(QObject* watched, QEvent* e) {
    if (dying) return false;
    auto* tree = as<QTreeWidget>(Ctl::ListView1);
    if (tree != nullptr && watched == tree->viewport() && e->type() == QEvent::MouseButtonRelease && live()) {
        auto* mouse = static_cast<QMouseEvent*>(e);
        const std::int16_t shift = ShiftMask(mouse->modifiers());
        const auto x = static_cast<float>(PixelsToTwips(static_cast<int>(mouse->position().x())));
        const auto y = static_cast<float>(PixelsToTwips(static_cast<int>(mouse->position().y())));
        if (mouse->button() == Qt::LeftButton) {
            events->Click(Ctl::ListView1);
            events->MouseUp(Ctl::ListView1, app::kLeftButton, shift, x, y);
        } else if (mouse->button() == Qt::RightButton) {
            events->MouseUp(Ctl::ListView1, app::kRightButton, shift, x, y);
        }
        return false;
    }
    if (tree != nullptr && watched == tree && (e->type() == QEvent::KeyPress || e->type() == QEvent::KeyRelease) &&
        live()) {
        auto* key = static_cast<QKeyEvent*>(e);
        if (key->isAutoRepeat() && e->type() == QEvent::KeyRelease) return false;
        std::int16_t code = VirtualKey(key->key());
        if (code == 0) return false;
        const std::int16_t shift = ShiftMask(key->modifiers());
        if (e->type() == QEvent::KeyPress)
            events->KeyDown(Ctl::ListView1, code, shift);
        else
            events->KeyUp(Ctl::ListView1, code, shift);
        return code == 0; // a key the logic handled goes no further
    }
    if (e->type() == QEvent::FocusOut && live()) {
        const Ctl c = controlOf(watched);
        if (c != Ctl::Count_ && app::Spec(c).kind == Kind::TextBox) {
            bool cancel = false;
            events->Validate(c, cancel);
            if (cancel) QTimer::singleShot(0, at(c).widget, [w = at(c).widget] { w->setFocus(); });
        }
    }
    return false;
}

// --- the public face ---

QtWindow::QtWindow(platform::WindowHandle handle) : impl_(std::make_unique<Impl>(handle)) { impl_->build(); }

QtWindow::~QtWindow() = default;

int QtWindow::TwipsToPixels(double twips) { return static_cast<int>(std::lround(twips * ScreenDpi() / 1440.0)); }

double QtWindow::PixelsToTwips(int pixels) { return pixels * 1440.0 / ScreenDpi(); }

std::string QtWindow::UsableFace(const std::string& wanted) {
    static std::map<std::string, std::string> chosen;
    if (auto it = chosen.find(wanted); it != chosen.end()) return it->second;
    const bool fixed = wanted.find("Console") != std::string::npos || wanted.find("Mono") != std::string::npos;
    std::vector<std::string> candidates{wanted};
    if (fixed)
        candidates.insert(candidates.end(), {"DejaVu Sans Mono", "Liberation Mono", "Noto Sans Mono"});
    else
        candidates.insert(candidates.end(),
                          {"Segoe UI", "Tahoma", "Noto Sans", "Cantarell", "Liberation Sans", "DejaVu Sans"});
    std::string face;
    for (const auto& candidate : candidates) {
        if (!candidate.empty() && QFontDatabase::hasFamily(Q(candidate))) {
            face = candidate;
            break;
        }
    }
    if (face.empty())
        face = S((fixed ? QFontDatabase::systemFont(QFontDatabase::FixedFont) : QApplication::font()).family());
    chosen.emplace(wanted, face);
    return face;
}

void QtWindow::Show() {
    Impl& d = *impl_;
    d.showing = true;
    d.shown = true;
    if (d.events) d.events->Resize();
    d.at(Ctl::frmMain).visible = true;
    d.skipActivation = true;
    d.main.show();
    d.main.raise();
    d.main.activateWindow();
    if (auto* list = d.at(Ctl::ListView1).widget; list != nullptr && d.at(Ctl::ListView1).visible) list->setFocus();
    d.showing = false;
    if (d.events) d.events->Activate();
}

void QtWindow::RestoreAndRaise() {
    QMainWindow& main = impl_->main;
    if (main.isMinimized()) main.showNormal();
    main.show();
    main.raise();
    main.activateWindow();
}

void QtWindow::SetTopmost(bool topmost) {
    QMainWindow& main = impl_->main;
    if (Topmost() == topmost) return;
    Qt::WindowFlags flags = main.windowFlags();
    flags.setFlag(Qt::WindowStaysOnTopHint, topmost);
    if (QWindow* native = main.windowHandle(); native != nullptr && main.isVisible()) {
        // Told to the window system for the window as it is: new flags on a
        // shown widget would destroy its window and make a new one.
        main.overrideWindowFlags(flags);
        native->setFlags(flags);
    } else {
        main.setWindowFlags(flags);
    }
}

bool QtWindow::Topmost() const { return impl_->main.windowFlags().testFlag(Qt::WindowStaysOnTopHint); }

void QtWindow::SetTimerInterval(std::function<int(Ctl)> interval) {
    impl_->interval = std::move(interval);
    impl_->syncTimer();
}

void QtWindow::OnCloseRequested(std::function<void()> after) { impl_->afterClose = std::move(after); }

QWidget* QtWindow::Widget() const { return &impl_->main; }
QWidget* QtWindow::ControlWidget(Ctl c) const { return impl_->at(c).widget; }
QAction* QtWindow::MenuAction(Ctl c) const { return impl_->at(c).action; }
const QImage* QtWindow::PictureImage(Ctl c) const {
    const auto& surface = impl_->at(c).surface;
    return surface ? &surface->Image() : nullptr;
}

void QtWindow::SetEvents(app::ViewEvents* events) { impl_->events = events; }
platform::WindowHandle QtWindow::hWnd() const { return impl_->handle; }
platform::WindowHandle QtWindow::ControlHandle(Ctl c) const {
    return app::Spec(c).kind == Kind::ListView ? impl_->handle + 0x10 + static_cast<platform::WindowHandle>(c) : 0;
}

// --- texts, states and positions ---

std::string QtWindow::Text(Ctl c) const {
    const Impl& d = *impl_;
    const Kind kind = app::Spec(c).kind;
    if (c == Ctl::frmMain) return S(d.main.windowTitle());
    if (kind == Kind::TextBox) {
        if (auto* edit = d.as<QLineEdit>(c)) return S(edit->text());
        return d.at(c).text;
    }
    if (kind == Kind::ComboBox || kind == Kind::DriveListBox) return List(c, ListIndex(c));
    return d.at(c).caption;
}

void QtWindow::SetText(Ctl c, const std::string& text) {
    Impl& d = *impl_;
    Impl::Control& own = d.at(c);
    const Kind kind = app::Spec(c).kind;
    if (kind == Kind::TextBox) {
        if (Text(c) == text) return;
        ++d.fromCode;
        if (auto* edit = d.as<QLineEdit>(c)) {
            edit->setText(Q(text));
        } else if (auto* plain = d.as<QPlainTextEdit>(c)) {
            own.text = text;
            plain->setPlainText(Q(text));
            own.selStart = std::min(own.selStart, static_cast<int>(text.size()));
            own.selLength = 0;
        }
        --d.fromCode;
        own.dataChanged = true;
        if (d.events) d.events->Change(c);
        return;
    }
    if (c == Ctl::frmMain) {
        d.main.setWindowTitle(Q(text));
        return;
    }
    if (kind == Kind::ComboBox || kind == Kind::DriveListBox) return;
    if (own.caption == text) return;
    own.caption = text;
    if (own.action != nullptr) own.action->setText(Q(text));
    if (auto* label = d.as<QLabel>(c)) label->setText(Q(text));
    if (auto* button = d.as<QPushButton>(c)) button->setText(Q(text));
    d.fit(c);
}

bool QtWindow::Enabled(Ctl c) const { return impl_->at(c).enabled; }

void QtWindow::SetEnabled(Ctl c, bool enabled) {
    Impl& d = *impl_;
    Impl::Control& own = d.at(c);
    if (own.enabled == enabled) return;
    own.enabled = enabled;
    if (own.action != nullptr) own.action->setEnabled(enabled);
    if (own.widget != nullptr && c != Ctl::frmMain) own.widget->setEnabled(enabled);
    if (c == Ctl::tmrFlashMe) d.syncTimer();
}

bool QtWindow::Visible(Ctl c) const { return impl_->at(c).visible; }

void QtWindow::SetVisible(Ctl c, bool visible) {
    Impl& d = *impl_;
    Impl::Control& own = d.at(c);
    if (own.visible == visible) return;
    own.visible = visible;
    if (own.action != nullptr) own.action->setVisible(visible);
    if (own.widget == nullptr) return;
    own.widget->setVisible(visible);
    if (visible) own.widget->raise(); // a notice that appears comes to the front of its siblings
}

namespace {
// The window's outer rectangle in pixels: with a window manager's frame when
// there is one, else the client area and menu bar plus the edges the table allows for.
QRect OuterPixels(const QMainWindow& main, const QWidget& client) {
    const QRect frame = main.frameGeometry();
    if (frame.size() != main.geometry().size()) return frame;
    const QPoint at = main.geometry().topLeft();
    return QRect(at, QSize(client.width() + QtWindow::TwipsToPixels(app::kFormWidth - app::kClientWidth),
                           client.height() + QtWindow::TwipsToPixels(app::kFormHeight - app::kClientHeight)));
}
} // namespace

double QtWindow::Left(Ctl c) const {
    if (c != Ctl::frmMain) return impl_->at(c).left;
    return PixelsToTwips(impl_->main.frameGeometry().x());
}

double QtWindow::Top(Ctl c) const {
    if (c != Ctl::frmMain) return impl_->at(c).top;
    return PixelsToTwips(impl_->main.frameGeometry().y());
}

double QtWindow::Width(Ctl c) const {
    if (c != Ctl::frmMain) return impl_->at(c).width;
    return PixelsToTwips(OuterPixels(impl_->main, *impl_->client).width());
}

double QtWindow::Height(Ctl c) const {
    if (c != Ctl::frmMain) return impl_->at(c).height;
    return PixelsToTwips(OuterPixels(impl_->main, *impl_->client).height());
}

void QtWindow::SetLeft(Ctl c, double twips) {
    Impl& d = *impl_;
    if (c == Ctl::frmMain) {
        d.main.move(TwipsToPixels(twips), d.main.frameGeometry().y());
        return;
    }
    d.at(c).left = twips;
    d.place(c);
}

void QtWindow::SetTop(Ctl c, double twips) {
    Impl& d = *impl_;
    if (c == Ctl::frmMain) {
        d.main.move(d.main.frameGeometry().x(), TwipsToPixels(twips));
        return;
    }
    d.at(c).top = twips;
    d.place(c);
}

// The window keeps its size: a request for another is refused.
void QtWindow::SetWidth(Ctl c, double twips) {
    if (c == Ctl::frmMain) return;
    impl_->at(c).width = twips;
    impl_->place(c);
    impl_->fit(c);
}

void QtWindow::SetHeight(Ctl c, double twips) {
    if (c == Ctl::frmMain) return;
    impl_->at(c).height = twips;
    impl_->place(c);
}

double QtWindow::ScaleWidth(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(impl_->client->width());
    if (const auto& s = impl_->at(c).surface) return s->ScaleWidth();
    return impl_->at(c).width;
}

double QtWindow::ScaleHeight(Ctl c) const {
    if (c == Ctl::frmMain) return PixelsToTwips(impl_->client->height());
    if (const auto& s = impl_->at(c).surface) return s->ScaleHeight();
    return impl_->at(c).height;
}

int QtWindow::WindowState() const {
    if (impl_->main.isMinimized()) return app::kStateMinimized;
    if (impl_->main.isMaximized()) return app::kStateMaximized;
    return app::kStateNormal;
}

void QtWindow::SetWindowState(int state) {
    if (WindowState() == state) return;
    if (state == app::kStateMinimized)
        impl_->main.showMinimized();
    else
        impl_->main.showNormal(); // a window of fixed size is never maximised
}

// --- the report-view list ---

void QtWindow::AddColumn(Ctl list, const std::string& caption, int widthTwips) {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return;
    const int index = tree->columnCount();
    tree->setColumnCount(index + 1);
    tree->headerItem()->setText(index, Q(caption));
    // Never narrower than its caption: a substitute font may be wider than the designed one.
    const int captionWidth = static_cast<int>(QFontMetricsF(tree->header()->font()).horizontalAdvance(Q(caption))) + 16;
    tree->setColumnWidth(index, std::max(TwipsToPixels(widthTwips), captionWidth));
}

int QtWindow::ColumnCount(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    return tree != nullptr ? tree->columnCount() : 0;
}

void QtWindow::ClearItems(Ctl list) {
    if (auto* tree = impl_->as<QTreeWidget>(list)) tree->clear();
}

int QtWindow::AddItem(Ctl list, const std::string& text) {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return 0;
    auto* item = new QTreeWidgetItem(tree);
    item->setText(0, Q(text));
    return tree->topLevelItemCount();
}

int QtWindow::ItemCount(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    return tree != nullptr ? tree->topLevelItemCount() : 0;
}

namespace {
QTreeWidgetItem* ItemAt(QTreeWidget* tree, int item) {
    if (tree == nullptr || item < 1 || item > tree->topLevelItemCount()) return nullptr;
    return tree->topLevelItem(item - 1);
}
} // namespace

bool QtWindow::SetItemText(Ctl list, int item, const std::string& text) { return SetSubItem(list, item, 0, text); }

std::string QtWindow::ItemText(Ctl list, int item) const { return SubItem(list, item, 0); }

bool QtWindow::SetSubItem(Ctl list, int item, int sub, const std::string& text) {
    QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    if (row == nullptr || sub < 0) return false;
    row->setText(sub, Q(text));
    return true;
}

std::string QtWindow::SubItem(Ctl list, int item, int sub) const {
    const QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    if (row == nullptr || sub < 0) return {};
    return S(row->text(sub));
}

bool QtWindow::SetItemSelected(Ctl list, int item, bool selected) {
    auto* tree = impl_->as<QTreeWidget>(list);
    QTreeWidgetItem* row = ItemAt(tree, item);
    if (row == nullptr) return false;
    row->setSelected(selected);
    if (selected) tree->setCurrentItem(row, 0, QItemSelectionModel::NoUpdate);
    return true;
}

bool QtWindow::ItemSelected(Ctl list, int item) const {
    const QTreeWidgetItem* row = ItemAt(impl_->as<QTreeWidget>(list), item);
    return row != nullptr && row->isSelected();
}

// The current item when it is selected, else the first selected one.
int QtWindow::SelectedItem(Ctl list) const {
    auto* tree = impl_->as<QTreeWidget>(list);
    if (tree == nullptr) return 0;
    if (QTreeWidgetItem* current = tree->currentItem(); current != nullptr && current->isSelected())
        return tree->indexOfTopLevelItem(current) + 1;
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        if (tree->topLevelItem(i)->isSelected()) return i + 1;
    return 0;
}

bool QtWindow::SetSelectedItem(Ctl list, int item) {
    auto* tree = impl_->as<QTreeWidget>(list);
    QTreeWidgetItem* row = ItemAt(tree, item);
    if (row == nullptr) return false;
    tree->clearSelection();
    SetItemSelected(list, item, true);
    tree->scrollToItem(row);
    return true;
}

// --- list boxes and combo boxes ---

void QtWindow::AddListItem(Ctl list, const std::string& text) {
    Impl& d = *impl_;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) {
        combo->addItem(Q(text));
        combo->setCurrentIndex(d.at(list).itemData.empty() ? -1 : combo->currentIndex());
    } else if (auto* box = d.as<QListWidget>(list)) {
        box->addItem(Q(text));
    }
    --d.fromCode;
    d.at(list).itemData.push_back(0);
}

void QtWindow::ClearList(Ctl list) {
    Impl& d = *impl_;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) combo->clear();
    if (auto* box = d.as<QListWidget>(list)) box->clear();
    --d.fromCode;
    d.at(list).itemData.clear();
}

int QtWindow::ListCount(Ctl list) const { return static_cast<int>(impl_->at(list).itemData.size()); }

std::string QtWindow::List(Ctl list, int index) const {
    if (index < 0 || index >= ListCount(list)) return {};
    if (auto* combo = impl_->as<QComboBox>(list)) return S(combo->itemText(index));
    if (auto* box = impl_->as<QListWidget>(list)) return S(box->item(index)->text());
    return {};
}

int QtWindow::ListIndex(Ctl list) const {
    if (auto* combo = impl_->as<QComboBox>(list)) return combo->currentIndex();
    if (auto* box = impl_->as<QListWidget>(list)) return box->currentRow();
    return -1;
}

// Selecting an entry from code raises Click as a choice of the user does.
bool QtWindow::SetListIndex(Ctl list, int index) {
    Impl& d = *impl_;
    if (index < -1 || index >= ListCount(list)) return false;
    ++d.fromCode;
    if (auto* combo = d.as<QComboBox>(list)) combo->setCurrentIndex(index);
    if (auto* box = d.as<QListWidget>(list)) box->setCurrentRow(index);
    --d.fromCode;
    if (d.events) d.events->Click(list);
    return true;
}

std::int32_t QtWindow::ItemData(Ctl list, int index) const {
    if (index < 0 || index >= ListCount(list)) return 0;
    return impl_->at(list).itemData[static_cast<std::size_t>(index)];
}

bool QtWindow::SetItemData(Ctl list, int index, std::int32_t data) {
    if (index < 0 || index >= ListCount(list)) return false;
    impl_->at(list).itemData[static_cast<std::size_t>(index)] = data;
    return true;
}

// --- text boxes, focus, repainting, the pop-up menu ---

// Appending adds at the end of what is there: no copy of the text so far.
void QtWindow::AppendText(Ctl c, const std::string& text) {
    Impl& d = *impl_;
    if (app::Spec(c).kind != Kind::TextBox) {
        SetText(c, Text(c) + text);
        return;
    }
    if (text.empty()) return;
    Impl::Control& own = d.at(c);
    ++d.fromCode;
    if (auto* plain = d.as<QPlainTextEdit>(c)) {
        own.text += text;
        QTextCursor cursor(plain->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(Q(text));
    } else if (auto* edit = d.as<QLineEdit>(c)) {
        edit->setText(edit->text() + Q(text));
    }
    --d.fromCode;
    own.dataChanged = true;
    if (d.events) d.events->Change(c);
}

int QtWindow::TextLength(Ctl c) const {
    if (auto* edit = impl_->as<QLineEdit>(c)) return static_cast<int>(S(edit->text()).size());
    if (app::Spec(c).kind == Kind::TextBox) return static_cast<int>(impl_->at(c).text.size());
    return static_cast<int>(Text(c).size());
}

bool QtWindow::DataChanged(Ctl c) const { return impl_->at(c).dataChanged; }
void QtWindow::SetDataChanged(Ctl c, bool changed) { impl_->at(c).dataChanged = changed; }

int QtWindow::SelStart(Ctl c) const {
    if (auto* edit = impl_->as<QLineEdit>(c))
        return edit->hasSelectedText() ? edit->selectionStart() : edit->cursorPosition();
    return impl_->at(c).selStart;
}

void QtWindow::SetSelStart(Ctl c, int start) {
    Impl::Control& own = impl_->at(c);
    const int length = TextLength(c);
    start = std::clamp(start, 0, length);
    if (auto* edit = impl_->as<QLineEdit>(c)) {
        edit->setCursorPosition(start);
        return;
    }
    own.selStart = start;
    own.selLength = std::min(own.selLength, length - start);
    if (auto* plain = impl_->as<QPlainTextEdit>(c); plain != nullptr && start == length)
        plain->verticalScrollBar()->setValue(plain->verticalScrollBar()->maximum());
}

int QtWindow::SelLength(Ctl c) const {
    if (auto* edit = impl_->as<QLineEdit>(c)) return static_cast<int>(edit->selectedText().size());
    return impl_->at(c).selLength;
}

void QtWindow::SetSelLength(Ctl c, int length) {
    const int start = SelStart(c);
    length = std::clamp(length, 0, TextLength(c) - start);
    if (auto* edit = impl_->as<QLineEdit>(c)) {
        edit->setSelection(start, length);
        return;
    }
    impl_->at(c).selLength = length;
}

void QtWindow::SetFocus(Ctl c) {
    if (QWidget* w = impl_->at(c).widget; w != nullptr && c != Ctl::frmMain) w->setFocus();
}

void QtWindow::Refresh(Ctl c) {
    if (app::Spec(c).kind == Kind::ListView) impl_->fitColumns(c);
    if (QWidget* w = impl_->at(c).widget) w->update();
}

void QtWindow::PopupMenu(Ctl menu, Ctl defaultEntry) {
    Impl& d = *impl_;
    QMenu popup(&d.main);
    popup.setFont(FontFor(app::Spec(menu).font));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != menu || spec.id == menu || !d.at(spec.id).visible) continue;
        const std::string& caption = d.at(spec.id).caption;
        if (caption == "-") {
            popup.addSeparator();
            continue;
        }
        QAction* action = popup.addAction(Q(caption));
        action->setData(static_cast<int>(spec.id));
        action->setEnabled(d.at(spec.id).enabled);
        if (spec.id == defaultEntry) {
            QFont bold = popup.font();
            bold.setBold(true);
            action->setFont(bold);
            popup.setDefaultAction(action);
        }
    }
    QAction* chosen = popup.exec(QCursor::pos());
    if (chosen != nullptr && d.events) d.events->Click(static_cast<Ctl>(chosen->data().toInt()));
}

app::Surface* QtWindow::Picture(Ctl c) { return impl_->at(c).surface.get(); }

} // namespace qtui
