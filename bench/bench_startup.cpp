// Launch to first painted frame of the real program, and what memory it took to get there.
// The program exits once it has written its first frame (--screenshot), so the child's
// lifetime is the measure, and its peak resident set comes back with wait4().
#include "BenchData.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int kRecordings = 10000;
// A launch that has not painted by then never will: the child is killed and the run reports it.
constexpr unsigned kLaunchTimeoutSeconds = 30;

volatile sig_atomic_t runningChild = 0;
void killRunningChild(int)
{
    if (runningChild > 0)
        kill(runningChild, SIGKILL);
}

const BenchData &data()
{
    static const BenchData fixture(kRecordings);
    return fixture;
}

struct Launch
{
    bool ok { false };
    double seconds { 0 };
    double peakRssMb { 0 };
};

Launch launchOnce(const QString &screenshot, const QString &log)
{
    const QByteArray program = VANTREL_EXECUTABLE;
    const QByteArray dir = QFile::encodeName(data().messagesDirectory());
    const QByteArray contacts = QFile::encodeName(data().contactsFile());
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

void BM_StartupToFirstFrame(benchmark::State &state)
{
    if (!data().isValid()) {
        state.SkipWithError("could not write the recordings");
        return;
    }
    const QString screenshot = data().root() + QLatin1String("/first-frame.png");
    const QString log = data().root() + QLatin1String("/vantrel.log");
    // One launch first, untimed, so that every timed one finds the libraries in the page cache.
    static const bool warmedUp = launchOnce(screenshot, log).ok;
    if (!warmedUp) {
        state.SkipWithError(qPrintable(QLatin1String("vantrel failed; see ") + log));
        return;
    }
    double peak = 0;
    for (auto _ : state) {
        const Launch launch = launchOnce(screenshot, log);
        if (!launch.ok) {
            state.SkipWithError(qPrintable(QLatin1String("vantrel failed; see ") + log));
            break;
        }
        state.SetIterationTime(launch.seconds);
        peak = std::max(peak, launch.peakRssMb);
    }
    state.counters["peak_rss_MB"] = peak;
}
BENCHMARK(BM_StartupToFirstFrame)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    return BenchData::runBenchmarks(argc, argv);
}
