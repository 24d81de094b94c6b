// Launch to first painted frame of the real program, and what memory it took to get there.
// The program exits once it has written its first frame (--screenshot), so the child's
// lifetime is the measure, and its peak resident set comes back with wait4().
#include "BenchData.h"
#include "EvolutionServer.h"
#include "contacts/DesktopAddressBook.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int kRecordings = 10000;
// Twenty calls a day for fourteen years, kept.
constexpr int kLifetimeRecordings = 100000;
// A launch that has not painted by then never will: the child is killed and the run reports it.
constexpr unsigned kLaunchTimeoutSeconds = 30;

volatile sig_atomic_t runningChild = 0;
void killRunningChild(int)
{
    if (runningChild > 0)
        kill(runningChild, SIGKILL);
}

// Started by the case that needs it, stopped as the program ends.
EvolutionServer *s_server = nullptr;

// The runs without the desktop's address book, for the ratio of the one with it.
double s_plainMeans = 0;
int s_plainRuns = 0;

const BenchData &data()
{
    static const BenchData fixture(kRecordings);
    return fixture;
}

// Written only when its case runs: 133,000 files take a while.
const BenchData &lifetimeData()
{
    static const BenchData fixture(kLifetimeRecordings);
    return fixture;
}

// The same address book over a Messages directory with nothing in it.
const BenchData &emptyData()
{
    static const BenchData fixture(0);
    return fixture;
}

struct Launch
{
    bool ok { false };
    double seconds { 0 };
    double peakRssMb { 0 };
};

Launch launchOnce(const QString &screenshot, const QString &log, const BenchData &over = data())
{
    const QByteArray program = VANTREL_EXECUTABLE;
    const QByteArray dir = QFile::encodeName(over.messagesDirectory());
    const QByteArray contacts = QFile::encodeName(over.contactsFile());
    const QByteArray shot = QFile::encodeName(screenshot);
    char *argv[] = { const_cast<char *>(program.constData()),  const_cast<char *>("--messages-dir"),
                     const_cast<char *>(dir.constData()),      const_cast<char *>("--contacts"),
                     const_cast<char *>(contacts.constData()), const_cast<char *>("--screenshot"),
                     const_cast<char *>(shot.constData()),     nullptr };
    // The child's chatter goes to a file, so that the terminal shows only results.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const QByteArray logPath = QFile::encodeName(log);
    posix_spawn_file_actions_addopen(&actions, 1, logPath.constData(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);

    Launch result;
    QFile::remove(screenshot);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return result;
    runningChild = pid;
    std::signal(SIGALRM, killRunningChild);
    alarm(kLaunchTimeoutSeconds);
    int status = 0;
    rusage usage {};
    const pid_t waited = wait4(pid, &status, 0, &usage);
    alarm(0);
    runningChild = 0;
    if (waited != pid)
        return result;
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.peakRssMb = double(usage.ru_maxrss) / 1024.0; // kilobytes on Linux
    result.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && QFileInfo(screenshot).size() > 0;
    return result;
}

QString screenshotPath()
{
    return data().root() + QLatin1String("/first-frame.png");
}
QString logPath()
{
    return data().root() + QLatin1String("/vantrel.log");
}

// Times every launch of a case as its iterations, each after an untimed launch of its peer
// when it has one. Answers the launches' means and the largest peak resident set, or nothing
// once one failed.
struct Launches
{
    double meanSeconds { 0 };
    double peerMeanSeconds { 0 };
    double peakRssMb { 0 };
};
std::optional<Launches> timeLaunches(benchmark::State &state,
                                     const std::function<Launch()> &peer = {},
                                     const BenchData &over = data())
{
    // One launch first, untimed, so that every timed one finds the libraries in the page cache.
    static const bool warmedUp = launchOnce(screenshotPath(), logPath()).ok;
    Launches launches;
    double seconds = 0;
    double peerSeconds = 0;
    int count = 0;
    for (auto _ : state) {
        // Manual time: only the launch's own time is the iteration's.
        const Launch before = peer && warmedUp ? peer() : Launch { warmedUp };
        const Launch launch =
            before.ok ? launchOnce(screenshotPath(), logPath(), over) : Launch();
        if (!launch.ok) {
            state.SkipWithError(qPrintable(QLatin1String("vantrel failed; see ") + logPath()));
            return std::nullopt;
        }
        state.SetIterationTime(launch.seconds);
        seconds += launch.seconds;
        peerSeconds += before.seconds;
        ++count;
        launches.peakRssMb = std::max(launches.peakRssMb, launch.peakRssMb);
    }
    launches.meanSeconds = count > 0 ? seconds / count : 0;
    launches.peerMeanSeconds = count > 0 ? peerSeconds / count : 0;
    return launches;
}

void BM_StartupToFirstFrame(benchmark::State &state)
{
    if (!data().isValid()) {
        state.SkipWithError("could not write the recordings");
        return;
    }
    if (const std::optional<Launches> launches = timeLaunches(state)) {
        state.counters["peak_rss_MB"] = launches->peakRssMb;
        s_plainMeans += launches->meanSeconds;
        ++s_plainRuns;
    }
}
BENCHMARK(BM_StartupToFirstFrame)->Unit(benchmark::kMillisecond)->UseManualTime();

// A lifetime of recordings. Each launch follows one over an empty directory with the same
// address book, and the time it takes beyond that is set against the floor of reading the
// same directory (list it, split the names, look for the transcripts), measured in the same
// run: the target is at most 3 times the floor, and 120 MB at the first frame.
void BM_StartupWithLifetimeOfRecordings(benchmark::State &state)
{
    if (!lifetimeData().isValid() || !emptyData().isValid()) {
        state.SkipWithError("could not write the recordings");
        return;
    }
    const std::string directory =
        QFile::encodeName(lifetimeData().messagesDirectory()).toStdString();
    double floorSeconds = 0;
    int floorRuns = 0;
    const auto emptyThenFloor = [&] {
        const Launch launch = launchOnce(screenshotPath(), logPath(), emptyData());
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(BenchData::directoryFloor(directory));
        floorSeconds +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        ++floorRuns;
        return launch;
    };
    const std::optional<Launches> launches = timeLaunches(state, emptyThenFloor, lifetimeData());
    if (!launches || floorRuns == 0)
        return;
    const double extra = launches->meanSeconds - launches->peerMeanSeconds;
    const double floor = floorSeconds / floorRuns;
    state.counters["peak_rss_MB"] = launches->peakRssMb;
    state.counters["empty_ms"] = launches->peerMeanSeconds * 1e3;
    state.counters["floor_ms"] = floor * 1e3;
    state.counters["x_floor"] = floor > 0 ? extra / floor : 0.0;
}
BENCHMARK(BM_StartupWithLifetimeOfRecordings)->Unit(benchmark::kMillisecond)->UseManualTime();

// GNOME's and Phosh's address book running beside it with 1,000 contacts, and the copy of
// them that the program keeps, made by the program's own follower as a previous run would
// have left it: every start then reads the copy, and asks the server only after its first
// frame.
QString startDesktopBook(EvolutionServer &server)
{
    constexpr int kContacts = 1000;
    constexpr int kCopyMilliseconds = 30000; // the follower's settling, then 1,000 contacts
    if (QString problem = server.start(); !problem.isEmpty())
        return problem;
    QByteArrayList cards;
    for (int i = 0; i < kContacts; ++i)
        cards << QStringLiteral("BEGIN:VCARD\nVERSION:3.0\nFN:Caller %1\nTEL:(555) 2%2\nEND:VCARD")
                     .arg(i)
                     .arg(i, 6, 10, QLatin1Char('0'))
                     .toUtf8();
    if (server.add(cards).size() != kContacts)
        return QStringLiteral("the address book did not take the contacts");
    const std::shared_ptr<DesktopAddressBook> follower = DesktopAddressBook::shared();
    QTimer deadline;
    deadline.start(kCopyMilliseconds);
    while (deadline.isActive() && QFileInfo(DesktopAddressBook::copyPath()).size() == 0)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return QFileInfo(DesktopAddressBook::copyPath()).size() > 0
               ? QString()
               : QStringLiteral("no copy of the address book was written");
}

void BM_StartupWithDesktopBook(benchmark::State &state)
{
    if (!data().isValid() || qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        state.SkipWithError("needs the recordings and a session bus (run under dbus-run-session)");
        return;
    }
    static const QString started = startDesktopBook(*s_server);
    if (!started.isEmpty()) {
        state.SkipWithError(qPrintable(started));
        return;
    }
    // Each launch also follows one without the copy, the server still running, so that the
    // machine's drift between two cases does not count.
    const auto withoutCopy = [] {
        const QString copy = DesktopAddressBook::copyPath();
        const QString aside = copy + QLatin1String(".aside");
        QFile::rename(copy, aside);
        const Launch launch = launchOnce(screenshotPath(), logPath());
        QFile::rename(aside, copy);
        return launch;
    };
    const std::optional<Launches> launches = timeLaunches(state, withoutCopy);
    if (!launches)
        return;
    // The target is 1.10 against the start without it.
    state.counters["x_without_copy"] = launches->meanSeconds / launches->peerMeanSeconds;
    if (s_plainRuns > 0)
        state.counters["x_without_server"] = launches->meanSeconds / (s_plainMeans / s_plainRuns);
}
BENCHMARK(BM_StartupWithDesktopBook)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    // A cache of its own: the launches without the desktop's address book find no copy of it.
    qputenv("XDG_CACHE_HOME", QFile::encodeName(data().root() + QLatin1String("/cache")));
    // The session bus and the address book's follower need an application object.
    QCoreApplication application(argc, argv);
    EvolutionServer server;
    s_server = &server;
    return BenchData::runBenchmarks(argc, argv);
}
