// From a recording written into the Messages directory to the list showing it on screen,
// with the list built as the application builds it, over a heavy user's directory and over a
// lifetime's.
#include "BenchScreen.h"
#include "list/TableController.h"
#include "toolkit/TableViewCell.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <chrono>
#include <memory>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

// One screen at a time: the one the running case asked for.
std::unique_ptr<BenchScreen> s_screen;

BenchScreen *screenOver(int recordings)
{
    if (!s_screen || s_screen->data.recordingCount() != recordings) {
        s_screen.reset();
        s_screen = std::make_unique<BenchScreen>(recordings);
        if (!s_screen->open("bench_live_update"))
            s_screen.reset();
    }
    return s_screen.get();
}

bool firstRowIs(const BenchScreen &screen, const QString &fileName)
{
    const QList<Entry> &entries = screen.controller->entryList();
    if (entries.isEmpty() || entries.first().filename != fileName)
        return false;
    const TableViewCell *cell = screen.controller->tableView()->cellForRowAtIndexPath({ 0, 0 });
    return cell && cell->isVisible() && cell->textLabel()->text() == entries.first().name;
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// What no list can go below: the same file written into a directory that inotify watches,
// the event read, and one frame of the window painted.
class Floor
{
public:
    Floor() : m_inotify(inotify_init1(IN_CLOEXEC))
    {
        inotify_add_watch(m_inotify, QFile::encodeName(m_directory.path()).constData(),
                          IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM);
    }
    ~Floor() { close(m_inotify); }

    double measure(const QString &name, QWidget &window)
    {
        const QString path = m_directory.path() + u'/' + name;
        const auto start = std::chrono::steady_clock::now();
        BenchData::writeFile(path);
        pollfd ready { m_inotify, POLLIN, 0 };
        alignas(inotify_event) char events[4096];
        if (poll(&ready, 1, 1000) == 1)
            benchmark::DoNotOptimize(read(m_inotify, events, sizeof events));
        window.repaint();
        const double seconds = secondsSince(start);
        QFile::remove(path);
        benchmark::DoNotOptimize(read(m_inotify, events, sizeof events));
        return seconds;
    }

private:
    QTemporaryDir m_directory;
    int m_inotify;
};

void BM_NewRecordingOnScreen(benchmark::State &state)
{
    BenchScreen *screen = screenOver(int(state.range(0)));
    if (!screen) {
        state.SkipWithError("the list screen could not be built");
        return;
    }
    const BenchData &data = screen->data;
    Floor floor;
    double floorSeconds = 0, seconds = 0;
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
        const bool shown = written && spinUntil([&] { return firstRowIs(*screen, name); });
        // Synchronous: the frame with the new row is drawn when this returns.
        if (shown)
            screen->window->repaint();
        const double took = secondsSince(start);
        if (!shown) {
            state.SkipWithError("the new recording did not reach the first row");
            break;
        }
        state.SetIterationTime(took);
        seconds += took;

        state.PauseTiming();
        QFile::remove(path);
        const bool settled = spinUntil([&] {
            const QList<Entry> &entries = screen->controller->entryList();
            return !entries.isEmpty() && entries.first().filename != name;
        });
        floorSeconds += floor.measure(name, *screen->window);
        state.ResumeTiming();
        if (!settled) {
            state.SkipWithError("the list did not drop the removed recording");
            break;
        }
    }
    if (sequence > 0 && floorSeconds > 0) {
        state.counters["floor_ms"] = floorSeconds * 1e3 / sequence;
        state.counters["x_floor"] = seconds / floorSeconds;
    }
}
BENCHMARK(BM_NewRecordingOnScreen)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    QApplication application(argc, argv);
    const int status = BenchData::runBenchmarks(argc, argv);
    s_screen.reset(); // before the application object goes
    return status;
}
