// From a recording written into the Messages directory to the list showing it on screen,
// with the list built as the application builds it, over a heavy user's directory.
#include "BenchData.h"
#include "app/RootViewController.h"
#include "list/TableController.h"
#include "platform/TableViewCell.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>
#include <QVBoxLayout>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

constexpr int kRecordings = 10000;

struct ListScreen
{
    BenchData data { kRecordings };
    // Declared before the window so that, as in the application, it outlives its view.
    std::unique_ptr<TableController> controller;
    std::unique_ptr<QWidget> window;
};
ListScreen *screen = nullptr;

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

bool firstRowIs(const QString &fileName)
{
    const QList<Entry> &entries = screen->controller->entryList();
    if (entries.isEmpty() || entries.first().filename != fileName)
        return false;
    const TableViewCell *cell = screen->controller->tableView()->cellForRowAtIndexPath({ 0, 0 });
    return cell && cell->isVisible() && cell->textLabel()->text() == entries.first().name;
}

void BM_NewRecordingOnScreen(benchmark::State &state)
{
    const BenchData &data = screen->data;
    int sequence = 0;
    for (auto _ : state) {
        // Always newer than anything in the directory, from a caller that may be a contact.
        ++sequence;
        const QString caller = data.callers()[sequence % data.callers().size()];
        const QString name = BenchData::recordingName(
            caller, data.newestTime().addSecs(60 * sequence), caller.contains(u'@'));
        const QString path = data.messagesDirectory() + u'/' + name;

        const auto start = std::chrono::steady_clock::now();
        const bool written = BenchData::writeFile(path);
        const bool shown = written && spinUntil([&] { return firstRowIs(name); });
        // Synchronous: the frame with the new row is drawn when this returns.
        if (shown)
            screen->window->repaint();
        const auto end = std::chrono::steady_clock::now();
        if (!shown) {
            state.SkipWithError("the new recording did not reach the first row");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());

        state.PauseTiming();
        QFile::remove(path);
        const bool settled = spinUntil([&] {
            const QList<Entry> &entries = screen->controller->entryList();
            return !entries.isEmpty() && entries.first().filename != name;
        });
        state.ResumeTiming();
        if (!settled) {
            state.SkipWithError("the list did not drop the removed recording");
            break;
        }
    }
}
BENCHMARK(BM_NewRecordingOnScreen)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    QApplication application(argc, argv);
    ListScreen listScreen; // goes before the application object does
    if (!listScreen.data.isValid()) {
        std::fprintf(stderr, "bench_live_update: could not write the recordings\n");
        return 1;
    }
    // The list reads its address book from the environment, as in the application.
    qputenv("VANTREL_CONTACTS", QFile::encodeName(listScreen.data.contactsFile()));

    listScreen.controller = std::make_unique<TableController>(listScreen.data.messagesDirectory());
    listScreen.window = std::make_unique<QWidget>();
    listScreen.window->setFixedSize(375, 667);
    auto *root = new RootViewController(listScreen.controller.get(), listScreen.window.get());
    auto *layout = new QVBoxLayout(listScreen.window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(root);
    listScreen.window->show();
    if (!QTest::qWaitForWindowExposed(listScreen.window.get())) {
        std::fprintf(stderr, "bench_live_update: the window was never shown\n");
        return 1;
    }
    screen = &listScreen;

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
