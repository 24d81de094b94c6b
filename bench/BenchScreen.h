#pragma once

#include "BenchData.h"
#include "list/TableController.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QWidget>
#include <memory>

// The list screen as the application builds it (a TableController inside a
// RootViewController in a 375 x 667 window) over a BenchData Messages directory. Needs a
// QApplication.
struct BenchScreen
{
    explicit BenchScreen(int recordings) : data(recordings) {}

    // Builds and shows the screen; on failure says why on standard error, naming the benchmark.
    bool open(const char *benchmarkName);

    // The whole main() of a benchmark over the list screen: fixes the environment, makes the
    // application object and a screen over that many recordings, points screen at it while
    // the benchmarks run, and answers the exit code.
    static int run(int argc, char **argv, int recordings, const char *benchmarkName,
                   BenchScreen *&screen);
    TableView *table() const { return controller->tableView(); }

    BenchData data;
    // Declared before the window so that, as in the application, it outlives its view.
    std::unique_ptr<TableController> controller;
    std::unique_ptr<QWidget> window;
};

// Runs the event loop flat out until done() holds; false after ten seconds without.
template <class Done> bool spinUntil(Done done)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > 10000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
    return true;
}
