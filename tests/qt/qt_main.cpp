// The Qt tests' entry point: one application object for every test, in the
// offscreen platform unless another was chosen.
#include <gtest/gtest.h>

#include <QApplication>
#include <QStyleFactory>
#include <cstdlib>
#include <filesystem>

int main(int argc, char** argv) {
    if (std::getenv("QT_QPA_PLATFORM") == nullptr) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) {
        const auto runtime = std::filesystem::temp_directory_path() / ("kestrine-qt-" + std::to_string(getuid()));
        std::filesystem::create_directories(runtime);
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    }
    QApplication application(argc, argv);
    if (QStyle* fusion = QStyleFactory::create("Fusion")) QApplication::setStyle(fusion);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
