#pragma once
// Inside the Qt window: the widgets kept beside the controls' states, the
// picture box's drawing surface, and what the building, the View methods and
// the event handling share.
#include <QFontMetricsF>
#include <QImage>
#include <QMainWindow>
#include <QPainter>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/portable/control_state.h"
#include "platform/qt/qt_window.h"

class QEvent;
class QPlainTextEdit;
class QTreeWidget;

namespace qtui {

double ScreenDpi();
inline QString Q(const std::string& s) { return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size())); }
inline std::string S(const QString& s) { return s.toUtf8().toStdString(); }
inline QColor ToQColor(app::Rgb c) { return QColor(c.r, c.g, c.b); }
// The colour a control takes from the table, directly or from its containers.
inline QColor BackColorOf(app::Ctl c) { return ToQColor(portable::BackColorOf(c)); }
// A table font as a Qt font, on the face this system has.
QFont FontFor(const app::Font& font);

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
    static QColor FromBgr(std::int32_t c) { return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF); }
    static std::int32_t ToBgr(QRgb c) { return qRed(c) | qGreen(c) << 8 | qBlue(c) << 16; }
    // The pixel a point in twips lies in, and the twips of one pixel.
    static int Px(float twips) { return portable::PixelContaining(twips, ScreenDpi()); }
    static double Twips() { return portable::PixelsToTwips(1, ScreenDpi()); }
    void changed() {
        if (box_ != nullptr) box_->update();
    }

    QWidget* box_;
    QColor back_;
    QFont font_;
    QImage image_;
    std::int32_t fore_ = 0;
};

class QtWindow::Impl : public QObject {
public:
    // A control's widgets; what the logic set is in the window's control states.
    struct Control {
        QWidget* widget = nullptr;
        QAction* action = nullptr; // menu bar entries
        std::unique_ptr<QtSurface> surface;
    };

    class Main : public QMainWindow {
    public:
        explicit Main(Impl& impl) : impl_(impl) {}

    protected:
        void closeEvent(QCloseEvent* e) override;
        void changeEvent(QEvent* e) override;
        bool event(QEvent* e) override;

    private:
        Impl& impl_;
    };

    Impl(QtWindow& window, platform::WindowHandle h)
        : self(window), handle(h), controls(app::kControlCount), main(*this) {}
    // The widgets go before the rest: what they report while going away is not looked at.
    ~Impl() override { dying = true; }

    bool live() const { return events != nullptr && shown; }
    Control& at(app::Ctl c) { return controls[static_cast<std::size_t>(c)]; }
    const Control& at(app::Ctl c) const { return controls[static_cast<std::size_t>(c)]; }
    portable::ControlState& state(app::Ctl c) { return self.state(c); }
    const portable::ControlState& state(app::Ctl c) const { return self.state(c); }
    template <class W> W* as(app::Ctl c) const { return dynamic_cast<W*>(at(c).widget); }
    app::Ctl controlOf(const QObject* o) const;

    // Building (qt_window_build.cpp).
    void build();
    QWidget* parentOf(app::Ctl c);
    QWidget* create(const app::ControlSpec& spec);
    QWidget* make(const app::ControlSpec& spec);
    QWidget* makeList(QWidget* parent, app::Ctl c);
    QWidget* makeButton(const app::ControlSpec& spec, QWidget* parent);
    QWidget* makeLabel(const app::ControlSpec& spec, QWidget* parent);
    QWidget* makeTextBox(const app::ControlSpec& spec, QWidget* parent);
    QWidget* makeListBox(const app::ControlSpec& spec, QWidget* parent);
    QWidget* makePicture(const app::ControlSpec& spec, QWidget* parent);
    QWidget* makeImage(const app::ControlSpec& spec, QWidget* parent);
    void dress(QWidget* w, const app::ControlSpec& spec);
    void buildMenuBar();
    void place(app::Ctl c);
    void fit(app::Ctl c);
    void fixOuterSize();
    // The user's `signal` of `sender` reaches the logic as a click of `c`.
    template <class Sender, class Signal> void clickOn(Sender* sender, Signal signal, app::Ctl c) {
        QObject::connect(sender, signal, this, [this, c] {
            if (live()) events->Click(c);
        });
    }

    // Events (qt_window_events.cpp).
    void syncTimer();
    bool eventFilter(QObject* watched, QEvent* e) override;
    bool onListMouse(QEvent* e);
    bool onListKey(QEvent* e);

    QtWindow& self;
    platform::WindowHandle handle;
    std::vector<Control> controls;
    Main main;
    QWidget* client = nullptr;
    app::ViewEvents* events = nullptr;
    bool shown = false;
    bool showing = false;
    // How long after the show the window manager's activation counts as its answer to the show.
    static constexpr int kActivationGraceMs = 500;
    bool skipActivation = false; // the window manager's answer to the show is still to come
    QTimer activationGrace;      // how long it may take
    bool dying = false;
    int fromCode = 0; // changes made from code under way: the widgets' own signals are not the user's
    QTimer timer;
    std::function<int(app::Ctl)> interval;
    std::function<void()> afterClose;
};

} // namespace qtui
