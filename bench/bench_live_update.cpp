// From a recording written into the Messages directory to the list showing it on screen,
// with the list built as the application builds it, over a heavy user's directory.
#include "BenchScreen.h"
#include "list/TableController.h"
#include "toolkit/TableViewCell.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

constexpr int kRecordings = 10000;

BenchScreen *screen = nullptr;

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
    return BenchScreen::run(argc, argv, kRecordings, "bench_live_update", screen);
}
