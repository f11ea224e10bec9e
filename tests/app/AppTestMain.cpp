#include "PlainTextLabels.h"
#include "render/RenderEnvironment.h"

#include <QApplication>

#include <gtest/gtest.h>

// One QApplication for the whole run, on the off-screen platform: the widgets are real, only
// the screen is not. The web engine starts once and serves every test.
int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    RenderEnvironment::prepare();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Ledra"));
    PlainTextLabels::install(app);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
