// Building the Qt window from the form table: fonts, the picture box's
// surface, every control's widget where its twips say, and the menu bar.
#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QHeaderView>
#include <QIcon>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QTreeWidget>
#include <algorithm>
#include <cmath>
#include <map>

#include "platform/qt/qt_window_impl.h"

namespace qtui {

using app::Ctl;
using app::Kind;

double ScreenDpi() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    return portable::UsableDpi(screen != nullptr ? screen->logicalDotsPerInchY() : portable::kDefaultDpi, 48);
}

int QtWindow::TwipsToPixels(double twips) { return portable::TwipsToPixels(twips, ScreenDpi()); }

double QtWindow::PixelsToTwips(int pixels) { return portable::PixelsToTwips(pixels, ScreenDpi()); }

// --- fonts ---

namespace {

// Substitute faces run wider than the designed ones: they are set a little smaller.
constexpr double kSubstituteScale = 0.9;

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

} // namespace

QFont FontFor(const app::Font& font) {
    const std::string wanted(font.face);
    const std::string face = QtWindow::UsableFace(wanted);
    QFont made(Q(face));
    made.setPointSizeF(face == wanted ? font.size : font.size * kSubstituteScale);
    made.setBold(font.bold);
    return made;
}

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

// --- widgets of our own ---

namespace {

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

// --- the controls ---

QWidget* QtWindow::Impl::parentOf(Ctl c) {
    const Ctl container = app::Spec(c).container;
    return container == Ctl::frmMain ? client : at(container).widget;
}

Ctl QtWindow::Impl::controlOf(const QObject* o) const {
    for (std::size_t i = 0; i < controls.size(); ++i)
        if (controls[i].widget == o && o != nullptr) return static_cast<Ctl>(i);
    return Ctl::Count_;
}

QWidget* QtWindow::Impl::makeList(QWidget* parent, Ctl c) {
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
    // The columns keep their designed widths: the last one does not stretch to the list's edge.
    tree->header()->setStretchLastSection(false);
    tree->header()->setStyleSheet("QHeaderView::section { background: #fafafa; border: none; border-right: 1px "
                                  "solid #e3e3e3; border-bottom: 1px solid #e3e3e3; padding: 2px 4px; }");
    tree->setContextMenuPolicy(Qt::NoContextMenu);
    tree->installEventFilter(this);
    tree->viewport()->installEventFilter(this);
    QObject::connect(tree, &QTreeWidget::itemDoubleClicked, this, [this, c] {
        if (live()) events->DblClick(c);
    });
    return tree;
}

QWidget* QtWindow::Impl::makeButton(const app::ControlSpec& spec, QWidget* parent) {
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
    clickOn(button, &QPushButton::clicked, spec.id);
    return button;
}

QWidget* QtWindow::Impl::makeLabel(const app::ControlSpec& spec, QWidget* parent) {
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
    return label;
}

// Text1 holds many lines; the other text boxes one.
QWidget* QtWindow::Impl::makeTextBox(const app::ControlSpec& spec, QWidget* parent) {
    const Ctl c = spec.id;
    if (c == Ctl::Text1) {
        auto* edit = new QPlainTextEdit(parent);
        edit->setPlainText(Q(state(c).text));
        return edit;
    }
    auto* edit = new QLineEdit(Q(std::string(spec.caption)), parent);
    // Bordered only where the table says so; the box's own colour fills it whole.
    edit->setFrame(spec.border);
    edit->setAutoFillBackground(true);
    edit->installEventFilter(this);
    QObject::connect(edit, &QLineEdit::textEdited, this, [this, c] {
        state(c).dataChanged = true;
        if (live()) events->Change(c);
    });
    return edit;
}

QWidget* QtWindow::Impl::makeListBox(const app::ControlSpec& spec, QWidget* parent) {
    const Ctl c = spec.id;
    if (spec.kind == Kind::ListBox) {
        auto* list = new QListWidget(parent);
        QObject::connect(list, &QListWidget::currentRowChanged, this, [this, c] {
            if (fromCode == 0 && live()) events->Click(c);
        });
        return list;
    }
    auto* combo = new QComboBox(parent);
    clickOn(combo, &QComboBox::activated, c);
    return combo;
}

QWidget* QtWindow::Impl::makePicture(const app::ControlSpec& spec, QWidget* parent) {
    auto* box = new PictureBox(parent);
    Control& own = at(spec.id);
    own.surface = std::make_unique<QtSurface>(box, static_cast<float>(spec.width), static_cast<float>(spec.height),
                                              BackColorOf(spec.id), FontFor(portable::FontOf(spec.id)));
    box->SetSurface(own.surface.get());
    return box;
}

QWidget* QtWindow::Impl::makeImage(const app::ControlSpec& spec, QWidget* parent) {
    const Ctl c = spec.id;
    auto* image = new QLabel(parent);
    const char* file = c == Ctl::imgReleased ? ":/kestrine/released.bmp"
                       : c == Ctl::imgNotify ? ":/kestrine/releasing48.ico"
                                             : ":/kestrine/unloading32.ico";
    image->setPixmap(QIcon(file).pixmap(QSize(spec.pictureWidth, spec.pictureHeight)));
    if (c == Ctl::imgReleased) image->setPixmap(QPixmap(file));
    image->setScaledContents(true);
    return image;
}

// The widget of a control; nullptr for menus, timers and the other non-visual controls.
QWidget* QtWindow::Impl::make(const app::ControlSpec& spec) {
    QWidget* parent = parentOf(spec.id);
    switch (spec.kind) {
    case Kind::Frame:
        return new FrameBox(parent, BackColorOf(spec.id));
    case Kind::ListView:
        return makeList(parent, spec.id);
    case Kind::Button:
        return makeButton(spec, parent);
    case Kind::Label:
        return makeLabel(spec, parent);
    case Kind::TextBox:
        return makeTextBox(spec, parent);
    case Kind::ComboBox:
    case Kind::DriveListBox:
    case Kind::ListBox:
        return makeListBox(spec, parent);
    case Kind::PictureBox:
        return makePicture(spec, parent);
    case Kind::Image:
        return makeImage(spec, parent);
    default:
        return nullptr;
    }
}

QWidget* QtWindow::Impl::create(const app::ControlSpec& row) {
    QWidget* w = make(row);
    if (w != nullptr) dress(w, row);
    return w;
}

// What every widget takes from the table: font, colours, tip and states.
void QtWindow::Impl::dress(QWidget* w, const app::ControlSpec& spec) {
    w->setFont(FontFor(portable::FontOf(spec.id)));
    if (spec.kind != Kind::Frame && spec.kind != Kind::PictureBox) {
        QPalette palette = w->palette();
        const QColor back = BackColorOf(spec.id);
        if (spec.kind == Kind::Label || spec.kind == Kind::Image) palette.setColor(QPalette::Window, back);
        if (spec.backColor && spec.kind != Kind::Button) palette.setColor(QPalette::Base, back);
        if (spec.backColor && spec.kind == Kind::TextBox) palette.setColor(QPalette::Window, back);
        w->setPalette(palette);
    }
    if (!spec.toolTip.empty()) w->setToolTip(Q(std::string(spec.toolTip)));
    w->setEnabled(spec.enabled);
    w->setVisible(spec.visible);
}

void QtWindow::Impl::build() {
    const auto& form = app::Spec(Ctl::frmMain);
    main.setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint |
                        Qt::WindowCloseButtonHint);
    main.setWindowTitle(Q(std::string(form.caption)));
    main.setWindowIcon(QIcon(":/kestrine/kestrine.ico"));
    main.setFont(FontFor(form.font));
    at(Ctl::frmMain).widget = &main;
    state(Ctl::frmMain).visible = false;

    client = new QWidget(&main);
    client->setAutoFillBackground(true);
    QPalette palette = client->palette();
    palette.setColor(QPalette::Window, ToQColor(app::kWindowColor));
    client->setPalette(palette);
    // The client area is at least the table's; the window's outer size is fixed (fixOuterSize).
    client->setMinimumSize(TwipsToPixels(app::kClientWidth), TwipsToPixels(app::kClientHeight));
    main.setCentralWidget(client);

    // Table order puts every container before what it holds.
    for (const auto& row : app::FormTable()) {
        if (row.id == Ctl::frmMain || row.kind == Kind::Menu) continue;
        at(row.id).widget = create(row);
        place(row.id);
        fit(row.id);
    }
    buildMenuBar();
    main.adjustSize();
    fixOuterSize();

    activationGrace.setSingleShot(true);
    activationGrace.setInterval(kActivationGraceMs);
    QObject::connect(&activationGrace, &QTimer::timeout, this, [this] { skipActivation = false; });

    timer.setSingleShot(false);
    QObject::connect(&timer, &QTimer::timeout, this, [this] {
        if (events != nullptr) events->Tick(Ctl::tmrFlashMe);
        syncTimer();
    });
}

void QtWindow::Impl::buildMenuBar() {
    QMenuBar* bar = main.menuBar();
    bar->setFont(FontFor(app::Spec(Ctl::mnuExit).font));
    for (const auto& spec : app::FormTable()) {
        if (spec.kind != Kind::Menu || spec.container != Ctl::frmMain || spec.id == Ctl::mnubla) continue;
        QAction* action = bar->addAction(Q(std::string(spec.caption)));
        action->setEnabled(spec.enabled);
        action->setVisible(spec.visible);
        clickOn(action, &QAction::triggered, spec.id);
        at(spec.id).action = action;
    }
}

// Puts a control's widget where its twips say.
void QtWindow::Impl::place(Ctl c) {
    const QWidget* w = at(c).widget;
    if (w == nullptr || c == Ctl::frmMain) return;
    const portable::ControlState& s = state(c);
    at(c).widget->setGeometry(TwipsToPixels(s.left), TwipsToPixels(s.top), TwipsToPixels(s.width),
                              TwipsToPixels(s.height));
}

void QtWindow::Impl::fit(Ctl c) {
    const Kind kind = app::Spec(c).kind;
    QWidget* w = at(c).widget;
    if (w == nullptr || (kind != Kind::Label && kind != Kind::Button)) return;
    w->setFont(FontFor(portable::FontOf(c)));
    int room = w->width() - (kind == Kind::Button ? 8 : 2);
    if (kind == Kind::Button && app::Spec(c).pictureSize > 0) room -= app::Spec(c).pictureSize + 4;
    FitFont(w, Q(state(c).text), room);
}

// The window's outer size is the table's: the window manager's frame, when
// there is one, is taken off it. The client area never gets smaller than the
// table's, so a frame thicker than the designed one makes the window larger.
void QtWindow::Impl::fixOuterSize() {
    const QSize margins = main.frameGeometry().size() - main.geometry().size();
    const QSize inner = main.minimumSizeHint();
    const QSize wanted = QSize(TwipsToPixels(app::kFormWidth), TwipsToPixels(app::kFormHeight)) - margins;
    const QSize size = wanted.expandedTo(inner);
    if (main.minimumSize() != size || main.maximumSize() != size) main.setFixedSize(size);
}

QtWindow::QtWindow(platform::WindowHandle handle) : impl_(std::make_unique<Impl>(*this, handle)) { impl_->build(); }

QtWindow::~QtWindow() = default;

} // namespace qtui
