// The scenarios' entry point: one offscreen Qt application for the window's
// scenarios. They only mean something inside the USB guest, where
// guest-init.sh sets KESTRINE_USBVM; anywhere else every one is skipped.
#include <gtest/gtest.h>

#include <QApplication>
#include <QStyleFactory>
#include <cstdlib>

namespace {

class InTheGuest : public ::testing::Environment {
public:
    void SetUp() override {
        if (std::getenv("KESTRINE_USBVM") == nullptr)
            GTEST_SKIP() << "these scenarios release real USB sticks: they run in the guest of tests/usbvm/usbvm.py";
    }
};

} // namespace

int main(int argc, char** argv) {
    if (std::getenv("QT_QPA_PLATFORM") == nullptr) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication application(argc, argv);
    if (QStyle* fusion = QStyleFactory::create("Fusion")) QApplication::setStyle(fusion);
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new InTheGuest);
    return RUN_ALL_TESTS();
}
