#include "render/RenderEnvironment.h"

#include <QGuiApplication>

#include <gtest/gtest.h>

// One application and one web engine for the whole test process: starting Chromium is the
// expensive part, every test after the first reuses it.
int main(int argc, char* argv[])
{
    RenderEnvironment::prepare();
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
