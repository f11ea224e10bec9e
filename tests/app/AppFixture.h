#pragma once

#include "DesktopApplication.h"
#include "InvoiceEditor.h"
#include "MainWindow.h"
#include "tasks/Workspace.h"

#include <QAction>
#include <QApplication>
#include <QDeadlineTimer>
#include <QProcessEnvironment>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

// A main window over a data home of its own (XDG variables point into a temporary folder),
// in English, driven through its real widgets.
class AppFixture : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Opens the window; `prepare` may fill the data folder first.
    void openWindow(const std::function<void(Workspace&)>& prepare = {});
    MainWindow& window() { return *m_window; }
    Workspace& workspace() { return *m_workspace; }
    QString dataFolder() const;
    QString invoicesFolder() const;
    QProcessEnvironment environment() const;

    void trigger(const QString& actionName);
    // Runs the event loop until the condition holds; false when the time is up.
    static bool waitFor(const std::function<bool()>& condition, int milliseconds = 5000);
    static void spin(int milliseconds);
    // Answers the next modal dialog (a message box) from the event loop: `answer` looks at it
    // and closes it. Gives up when none comes within the time.
    static void whenModal(std::function<void(QWidget*)> answer, int milliseconds = 10000);

    QTemporaryDir m_home;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<MainWindow> m_window;
};
