// The Qt views' tests share one QApplication, made on main's stack so that it goes before the
// statics Qt keeps (its icon cache among them), on the offscreen platform unless one is asked for.

#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
