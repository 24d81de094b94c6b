#include "BenchScreen.h"

#include "app/RootViewController.h"
#include "app/Services.h"

#include <QApplication>
#include <QTest>
#include <QVBoxLayout>
#include <cstdio>

bool BenchScreen::open(const char *benchmarkName)
{
    if (!data.isValid()) {
        std::fprintf(stderr, "%s: could not write the recordings\n", benchmarkName);
        return false;
    }

    Services::install();
    controller = std::make_unique<TableController>(data.messagesDirectory(), data.contactsFile());
    window = std::make_unique<QWidget>();
    window->setFixedSize(375, 667);
    auto *root = new RootViewController(controller.get(), window.get());
    auto *layout = new QVBoxLayout(window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(root);
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get())) {
        std::fprintf(stderr, "%s: the window was never shown\n", benchmarkName);
        return false;
    }
    return true;
}

int BenchScreen::run(int argc, char **argv, int recordings, const char *benchmarkName,
                     BenchScreen *&screen)
{
    BenchData::setUpEnvironment();
    QApplication application(argc, argv);
    BenchScreen listScreen(recordings); // goes before the application object does
    if (!listScreen.open(benchmarkName))
        return 1;
    screen = &listScreen;
    const int status = BenchData::runBenchmarks(argc, argv);
    screen = nullptr;
    return status;
}
