// How smoothly the list scrolls over a heavy user's directory. Every frame is timed from the
// change of scroll position to the end of its painting: the frames of a fling made with the
// mouse, and those of a scrollbar dragged a screen at a time, which needs a whole screen of
// new cells per frame. A frame that takes longer than 16 ms is a frame the screen misses.
#include "BenchScreen.h"
#include "list/TableController.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTest>
#include <QThread>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

constexpr int kRecordings = 10000;
// The fling: four strokes of 100 points, 10 ms apart, then the lift; a quick flick of the
// thumb.
constexpr int kStrokes = 4;
constexpr int kStrokeLength = 100;
constexpr int kStrokeIntervalMs = 10;

using Clock = std::chrono::steady_clock;

BenchScreen *screen = nullptr;

TableView *table()
{
    return screen->controller->tableView();
}

// Worst and mean of a run of frames.
struct Frames
{
    double worst = 0;
    double total = 0;
    int count = 0;

    void add(Clock::duration frame)
    {
        const double seconds = std::chrono::duration<double>(frame).count();
        worst = std::max(worst, seconds);
        total += seconds;
        ++count;
    }
    void merge(const Frames &other)
    {
        worst = std::max(worst, other.worst);
        total += other.total;
        count += other.count;
    }
    void report(benchmark::State &state, int runs) const
    {
        state.counters["worst_ms"] = worst * 1000;
        state.counters["mean_ms"] = count ? total / count * 1000 : 0;
        state.counters["frames"] = double(count) / std::max(1, runs);
    }
};

// What the event loop does for a frame once the cells are placed: cells that went past the
// reuse limit are deleted, and the window is painted, synchronously.
void finishFrame(Frames &frames, Clock::time_point start)
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    screen->window->repaint();
    frames.add(Clock::now() - start);
}

// Untimed: the list laid out, painted and idle at a scroll position.
void settleAt(int value)
{
    table()->verticalScrollBar()->setValue(value);
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    screen->window->repaint();
}

void sendMouse(QEvent::Type type, QPoint position)
{
    QWidget *viewport = table()->viewport();
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons held =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, position, viewport->mapToGlobal(position), button, held,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &event);
}

// Notes when the scroller moves the list: each scroll event is the start of a frame.
class ScrollWatch : public QObject
{
public:
    Clock::time_point lastScroll;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Scroll)
            lastScroll = Clock::now();
        return false;
    }
};

// Runs the event loop until done() holds, finishing a frame each time the list moved.
template <class Done> void runFrames(Frames &frames, const ScrollWatch &watch, Done done)
{
    QScrollBar *bar = table()->verticalScrollBar();
    int value = bar->value();
    while (!done()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        if (bar->value() != value) {
            value = bar->value();
            finishFrame(frames, watch.lastScroll);
        } else {
            QThread::usleep(200);
        }
    }
}

// One fling, from press to the list coming to rest; false when the list did not flick.
bool fling(Frames &frames, int *distance)
{
    QScrollBar *bar = table()->verticalScrollBar();
    const int startValue = bar->value();
    const int x = table()->viewport()->width() / 2;
    int y = table()->viewport()->height() - 40;
    ScrollWatch watch;
    table()->viewport()->installEventFilter(&watch);
    sendMouse(QEvent::MouseButtonPress, { x, y });
    QElapsedTimer stroke;
    stroke.start();
    for (int i = 1; i <= kStrokes; ++i) {
        // Strokes keep their rhythm whatever a frame costs, as a hand does; the scroller moves
        // the list on its own frames in between.
        runFrames(frames, watch, [&] { return stroke.elapsed() >= i * kStrokeIntervalMs; });
        y -= kStrokeLength;
        sendMouse(QEvent::MouseMove, { x, y });
    }
    runFrames(frames, watch,
              [&] { return stroke.elapsed() >= (kStrokes + 1) * kStrokeIntervalMs; });
    sendMouse(QEvent::MouseButtonRelease, { x, y });
    const bool flicked = table()->isDecelerating();
    QElapsedTimer limit;
    limit.start();
    runFrames(frames, watch, [&] {
        return (!table()->isDecelerating() && !table()->isDragging()) || limit.elapsed() > 10000;
    });
    table()->viewport()->removeEventFilter(&watch);
    *distance = bar->value() - startValue;
    return flicked && !table()->isDecelerating();
}

// The argument is where the fling starts, in percent of the list.
void BM_Fling(benchmark::State &state)
{
    QScrollBar *bar = table()->verticalScrollBar();
    const int start = int(qint64(bar->maximum()) * state.range(0) / 100);
    Frames all;
    int runs = 0;
    int distance = 0;
    for (auto _ : state) {
        settleAt(start);
        Frames frames;
        if (!fling(frames, &distance)) {
            state.SkipWithError("the list did not fling");
            break;
        }
        // One fling's number is its worst frame: the stutter the user sees.
        state.SetIterationTime(frames.worst);
        all.merge(frames);
        ++runs;
    }
    all.report(state, runs);
    state.counters["rows"] = distance / TableController::kClosedRowHeight;
}
BENCHMARK(BM_Fling)
    ->ArgName("start_percent")
    ->Arg(0)
    ->Arg(50)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

// The scrollbar dragged from top to bottom a screen per frame: not a cell on screen survives
// from one frame to the next.
void BM_ScrollbarDrag(benchmark::State &state)
{
    QScrollBar *bar = table()->verticalScrollBar();
    Frames all;
    int runs = 0;
    for (auto _ : state) {
        settleAt(0);
        Frames frames;
        while (bar->value() < bar->maximum()) {
            const Clock::time_point start = Clock::now();
            bar->setValue(bar->value() + bar->pageStep());
            finishFrame(frames, start);
            QCoreApplication::processEvents(); // between frames, as the event loop would
        }
        state.SetIterationTime(frames.worst);
        all.merge(frames);
        ++runs;
    }
    all.report(state, runs);
}
BENCHMARK(BM_ScrollbarDrag)->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    return BenchScreen::run(argc, argv, kRecordings, "bench_scroll", screen);
}
