// From the answer to "Delete N voicemails?" to the list brought up to date, on the list screen
// as the application builds it: the files gone, the rows removed, and the directory watcher's
// reload of what is left arrived and drawn. A thousand recordings go within a second.
//
// Beside it, in the same iteration and on an identical directory, the floor: unlinking the
// same files with plain ::unlink, and the catalogue reading what is left, which the reload
// cannot do without.
#include "BenchScreen.h"
#include "list/TableController.h"
#include "contacts/ContactStore.h"
#include "store/RecordingCatalogue.h"
#include "store/RecordingName.h"
#include "store/VTDirectoryWatcher.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QSocketNotifier>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <chrono>
#include <optional>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A thousand recordings within a second: a millisecond each.
constexpr double kTargetMsPerRecording = 1.0;
// In the partial case one row in this many stays unselected, spread over the whole list.
constexpr int kKeepEvery = 11;
// Each iteration writes two directories and builds a screen: a fixed, small number of them.
constexpr int kIterations = 7;

double msBetween(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The reports of the watcher on one directory. A report is a read-readiness event on the
// notifier the watcher owns, and the list reloads while it is being delivered; so once one
// has been seen and the watcher's inotify queue holds nothing more, the reload covering
// every removal has run and no other is on its way. The unlinks all happen inside
// deleteSelected, before the event loop runs again, so their events are queued by then.
class WatcherReports : public QObject
{
public:
    explicit WatcherReports(const QString &directory) : m_directory(QDir::cleanPath(directory)) {}

    int count() const { return m_count; }
    bool nothingQueued() const
    {
        pollfd queue { m_descriptor, POLLIN, 0 };
        return m_descriptor >= 0 && ::poll(&queue, 1, 0) == 0;
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() != QEvent::SockAct)
            return false;
        const auto *watcher = qobject_cast<const VTDirectoryWatcher *>(object->parent());
        if (watcher && QDir::cleanPath(watcher->watchingDirectoryPath()) == m_directory) {
            ++m_count;
            m_descriptor = static_cast<QSocketNotifier *>(object)->socket();
        }
        return false;
    }

private:
    QString m_directory;
    int m_count { 0 };
    int m_descriptor { -1 };
};

bool exists(const QString &path)
{
    struct stat info
    {
    };
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 || errno != ENOENT;
}

QSet<QString> filenames(const QList<Entry> &entries)
{
    QSet<QString> names;
    for (const Entry &entry : entries)
        names.insert(entry.filename);
    return names;
}

// The per-recording time of the run over 100, for the growth of the larger ones.
std::optional<double> basePerRecordingMs;

// range(0) recordings in the directory, range(1) of them selected: all of them through
// "Select All", or all but one row in kKeepEvery tapped one by one.
void BM_DeleteSelected(benchmark::State &state)
{
    const int recordings = int(state.range(0)), selected = int(state.range(1));
    const bool all = selected == recordings;
    const int remaining = recordings - selected;
    std::vector<double> deleteMs, answeredMs, unlinkMs, catalogueMs, reloads;

    for (auto _ : state) {
        // Untimed (the time is set by hand): the directory under the screen, its twin for
        // the floor, the screen in edit mode with its rows selected.
        BenchData twin(recordings);
        BenchScreen screen(recordings);
        if (!twin.isValid() || !screen.open("bench_delete")) {
            state.SkipWithError("could not write the recordings or show the screen");
            break;
        }
        TableController *controller = screen.controller.get();
        TableView *table = screen.table();
        const QString directory = screen.data.messagesDirectory();
        controller->toggleEdit();
        if (all) {
            controller->toggleSelectAll(controller->editButton());
        } else {
            for (int row = 0; row < recordings; ++row) {
                if (row % kKeepEvery != kKeepEvery - 1)
                    table->selectRowAtIndexPath({ 0, row }, false);
            }
            controller->updateToolbarButtonsVisibility();
        }
        spinUntil([table] { return !table->isAnimatingHeights(); });
        screen.window->repaint();

        const QList<IndexPath> chosen = table->indexPathsForSelectedRows();
        QStringList gone; // recordings and the transcripts they have, by name
        QSet<QString> kept = filenames(controller->entryList());
        for (const IndexPath &indexPath : chosen) {
            const QString name = controller->entryList().at(indexPath.row).filename;
            kept.remove(name);
            gone << name;
            const QString transcript = RecordingName::transcriptName(name);
            if (exists(directory + u'/' + transcript))
                gone << transcript;
        }
        const qsizetype filesLeft = QDir(directory).entryList(QDir::Files).size() - gone.size();
        if (chosen.size() != selected || controller->entryList().size() != recordings) {
            state.SkipWithError("the rows were not selected as asked");
            break;
        }

        WatcherReports reports(directory);
        qApp->installEventFilter(&reports);
        const Clock::time_point start = Clock::now();
        controller->deleteSelected(nullptr);
        const Clock::time_point answered = Clock::now();
        const bool settled = spinUntil([&] {
            return reports.count() > 0 && reports.nothingQueued() &&
                   table->numberOfRowsInSection(0) == remaining &&
                   controller->entryList().size() == remaining && !table->isAnimatingHeights();
        });
        // Synchronous: the frame with the updated list is drawn when this returns.
        if (settled)
            screen.window->repaint();
        const Clock::time_point end = Clock::now();
        qApp->removeEventFilter(&reports);

        if (!settled) {
            state.SkipWithError("the list never showed the remaining rows after a reload");
            break;
        }
        const bool filesGone = std::none_of(gone.cbegin(), gone.cend(), [&](const QString &name) {
            return exists(directory + u'/' + name);
        });
        if (!filesGone || QDir(directory).entryList(QDir::Files).size() != filesLeft) {
            state.SkipWithError("files of the deleted recordings are still there, or others went");
            break;
        }
        if (filenames(controller->entryList()) != kept || table->isEditing() == all) {
            state.SkipWithError("the list kept other rows than the unselected ones, or edit mode "
                                "was left wrongly");
            break;
        }
        deleteMs.push_back(msBetween(start, end));
        answeredMs.push_back(msBetween(start, answered));
        reloads.push_back(reports.count());
        state.SetIterationTime(deleteMs.back() / 1e3);

        // The floor, on the twin directory: the same files unlinked one by one, then the
        // catalogue of what is left with an address book like the list's.
        std::vector<QByteArray> paths;
        for (const QString &name : std::as_const(gone))
            paths.push_back(QFile::encodeName(twin.messagesDirectory() + u'/' + name));
        const std::unique_ptr<ContactStore> contacts = ContactStore::storeWithOptions(0, twin.contactsFile());
        const RecordingCatalogue catalogue(contacts.get());
        const Clock::time_point unlinkStart = Clock::now();
        bool unlinked = true;
        for (const QByteArray &path : paths)
            unlinked = ::unlink(path.constData()) == 0 && unlinked;
        const Clock::time_point catalogueStart = Clock::now();
        const QList<Entry> left = catalogue.entries(twin.messagesDirectory());
        const Clock::time_point catalogueEnd = Clock::now();
        if (!unlinked || left.size() != remaining) {
            state.SkipWithError("the twin directory did not match the screen's");
            break;
        }
        unlinkMs.push_back(msBetween(unlinkStart, catalogueStart));
        catalogueMs.push_back(msBetween(catalogueStart, catalogueEnd));

        // What the closed screen left for later goes with it.
        screen.window.reset();
        screen.controller.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    if (deleteMs.empty())
        return;

    const double total = median(deleteMs), unlink = median(unlinkMs), read = median(catalogueMs);
    const double perRecording = total / selected;
    if (recordings == 100 && all)
        basePerRecordingMs = perRecording;
    state.counters["per_rec_ms"] = perRecording;
    state.counters["x_target"] = perRecording / kTargetMsPerRecording;
    // deleteSelected itself: files removed, rows and entries dropped, edit mode decided.
    state.counters["answered_ms"] = median(answeredMs);
    state.counters["unlink_ms"] = unlink;
    state.counters["x_unlink"] = total / std::max(unlink, 1e-3);
    state.counters["catalogue_ms"] = read;
    state.counters["x_floor"] = total / std::max(unlink + read, 1e-3);
    state.counters["reloads"] = median(reloads);
    // Beside the run over 100, per recording: 1 when the time grows with the count alone.
    if (basePerRecordingMs && !(recordings == 100 && all))
        state.counters["x_linear"] = perRecording / *basePerRecordingMs;
}
BENCHMARK(BM_DeleteSelected)
    ->ArgNames({ "recordings", "selected" })
    ->Args({ 100, 100 })
    ->Args({ 1000, 1000 })
    ->Args({ 1100, 1000 })
    ->Iterations(kIterations)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    QApplication application(argc, argv);
    return BenchData::runBenchmarks(argc, argv);
}
