// Search as you type over a lifetime of recordings: from a key pressed in the search field to
// the list's frame painted with what it finds.
#include "BenchScreen.h"
#include "toolkit/SearchBar.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTest>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <string>
#include <vector>

namespace {

constexpr int kRecordings = 100000;

BenchScreen *screen = nullptr;

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// What people type: a name, part of a number in several forms, a word of a transcript.
const QStringList kQueries = { "Priya", "555 2", "(555) 3", "+44 77", "call me", "tanaka" };

// What no search can go below, per key: looking for the typed text in every caller's name,
// as plain bytes, and painting one frame.
struct Floor
{
    std::vector<std::string> names;

    double measure(const std::string &typed, QWidget &window) const
    {
        const auto start = std::chrono::steady_clock::now();
        std::size_t found = 0;
        for (const std::string &name : names)
            found += name.find(typed) != std::string::npos;
        benchmark::DoNotOptimize(found);
        window.repaint();
        return secondsSince(start);
    }
};

void BM_SearchKeystroke(benchmark::State &state)
{
    QLineEdit *field = screen->controller->searchBar()->field();
    QTest::keySequence(screen->window.get(), QKeySequence::Find);
    // The transcripts are read in the background first: wait until they stop coming.
    QElapsedTimer quiet;
    quiet.start();
    int shown = -1;
    while (quiet.elapsed() < 1000) {
        QTest::keyClicks(field, QStringLiteral("me"));
        const int rows = screen->controller->rowCount();
        if (rows != shown)
            quiet.restart();
        shown = rows;
        field->clear();
        QTest::qWait(100);
    }
    Floor floor;
    for (const Entry &entry : screen->controller->entryList())
        floor.names.push_back(entry.name.toStdString());

    std::vector<double> each;
    double seconds = 0, floorSeconds = 0;
    qsizetype query = 0, typed = 0;
    int keys = 0;
    for (auto _ : state) {
        const QString &text = kQueries[query];
        const QChar key = text[typed];
        const auto start = std::chrono::steady_clock::now();
        QTest::keyClick(field, key.toLatin1());
        screen->window->repaint();
        const double took = secondsSince(start);
        state.SetIterationTime(took);
        seconds += took;
        each.push_back(took);
        ++keys;

        state.PauseTiming();
        floorSeconds += floor.measure(text.left(typed + 1).toStdString(), *screen->window);
        if (++typed == text.size()) {
            typed = 0;
            query = (query + 1) % kQueries.size();
            field->clear();
        }
        state.ResumeTiming();
    }
    // The target is one frame (16 ms) for the median key.
    std::nth_element(each.begin(), each.begin() + each.size() / 2, each.end());
    if (!each.empty())
        state.counters["key_median_ms"] = each[each.size() / 2] * 1e3;
    if (floorSeconds > 0) {
        state.counters["floor_ms"] = floorSeconds * 1e3 / keys;
        state.counters["x_floor"] = seconds / floorSeconds;
    }
}
BENCHMARK(BM_SearchKeystroke)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(120);

} // namespace

int main(int argc, char **argv)
{
    return BenchScreen::run(argc, argv, kRecordings, "bench_search", screen);
}
