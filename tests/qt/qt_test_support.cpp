#include "qt_test_support.h"

#include <QTest>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "kestrine-sim/scenario.h"

namespace qttest {

std::string DemoMachine() { return nlohmann::json::parse(sim::DemoScenario())["machine"].dump(); }

namespace {
void Poll(std::function<bool()> tryOnce) {
    auto* timer = new QTimer(qApp);
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, tryOnce] {
        if (!tryOnce()) return;
        timer->stop();
        timer->deleteLater();
    });
    timer->start();
}
} // namespace

void WhenPopupOpens(std::function<void(QMenu&)> act) {
    Poll([act] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (menu == nullptr) return false;
        act(*menu);
        return true;
    });
}

void WhenMessageBoxOpens(std::function<void(QMessageBox&)> act) {
    Poll([act] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr) return false;
        act(*box);
        return true;
    });
}

Program::Program(const std::string& machineJson) { fake::Machine::LoadJson(machine, machineJson); }

void Program::Start() {
    form = std::make_unique<app::frmMain>(services, window);
    window.SetTimerInterval([this](app::Ctl) { return form->FlashInterval(); });
    form->Form_Load();
    if (!machine.Ended()) window.Show();
    if (!QTest::qWaitForWindowExposed(window.Widget())) throw std::runtime_error("the window was not shown");
}

std::vector<std::string> Program::Rows() const {
    std::vector<std::string> rows;
    for (int i = 1; i <= window.ItemCount(app::Ctl::ListView1); ++i) {
        std::string row = window.ItemText(app::Ctl::ListView1, i);
        for (int sub = 1; sub < window.ColumnCount(app::Ctl::ListView1); ++sub)
            row += " | " + window.SubItem(app::Ctl::ListView1, i, sub);
        rows.push_back(row);
    }
    return rows;
}

} // namespace qttest
