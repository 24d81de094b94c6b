// Launch to first painted frame of the real program, and what memory it took to get there.
// The program exits once it has written its first frame (--screenshot), so the child's
// lifetime is the measure, and its peak resident set comes back with wait4().
#include "BenchData.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#undef signals // GLib names a structure field so
#include <libebook/libebook.h>

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

// Every timed launch without the desktop's address book, for the ratio of the one with it.
double s_plainSeconds = 0;
int s_plainLaunches = 0;

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
        s_plainSeconds += launch.seconds;
        ++s_plainLaunches;
    }
    state.counters["peak_rss_MB"] = peak;
}
BENCHMARK(BM_StartupToFirstFrame)->Unit(benchmark::kMillisecond)->UseManualTime();

// GNOME's and Phosh's address book running beside it, holding 1,000 contacts: the program
// reads it only after its first frame, so start-up should not notice it.
class DesktopBook
{
public:
    static constexpr int kContacts = 1000;
    ~DesktopBook()
    {
        for (auto &process : m_server) {
            process->terminate();
            if (!process->waitForFinished(3000))
                process->kill();
        }
    }
    QString start()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *folder : { "config", "data", "cache" }) {
            QDir().mkpath(m_home.filePath(folder));
            environment.insert(QStringLiteral("XDG_%1_HOME").arg(QString(folder).toUpper()),
                               m_home.filePath(folder));
        }
        environment.insert("GSETTINGS_BACKEND", "memory");
        for (const char *program : { "/usr/libexec/evolution-source-registry",
                                     "/usr/libexec/evolution-addressbook-factory" }) {
            auto &process = m_server.emplace_back(std::make_unique<QProcess>());
            process->setProcessEnvironment(environment);
            process->start(program, {});
            if (!process->waitForStarted())
                return QStringLiteral("cannot start ") + program;
            QThread::sleep(2); // the registry must own its name before the factory asks for it
        }
        GError *error = nullptr;
        ESourceRegistry *registry = e_source_registry_new_sync(nullptr, &error);
        if (!registry)
            return QString::fromUtf8(error->message);
        ESource *source = e_source_registry_ref_builtin_address_book(registry);
        EClient *book = e_book_client_connect_sync(source, 30, nullptr, &error);
        g_object_unref(source);
        g_object_unref(registry);
        if (!book)
            return QString::fromUtf8(error->message);
        GSList *contacts = nullptr;
        for (int i = 0; i < kContacts; ++i)
            contacts = g_slist_prepend(
                contacts,
                e_contact_new_from_vcard(QStringLiteral("BEGIN:VCARD\nVERSION:3.0\nFN:Caller %1\n"
                                                        "TEL:(555) 2%2\nEND:VCARD")
                                             .arg(i)
                                             .arg(i, 6, 10, QLatin1Char('0'))
                                             .toUtf8()
                                             .constData()));
        const bool added = e_book_client_add_contacts_sync(
            E_BOOK_CLIENT(book), contacts, E_BOOK_OPERATION_FLAG_NONE, nullptr, nullptr, &error);
        g_slist_free_full(contacts, g_object_unref);
        g_object_unref(book);
        return added ? QString() : QString::fromUtf8(error->message);
    }

private:
    QTemporaryDir m_home;
    std::vector<std::unique_ptr<QProcess>> m_server;
};

void BM_StartupWithDesktopBook(benchmark::State &state)
{
    if (!data().isValid() || qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        state.SkipWithError("needs the recordings and a session bus (run under dbus-run-session)");
        return;
    }
    static DesktopBook book;
    static const QString started = book.start();
    if (!started.isEmpty()) {
        state.SkipWithError(qPrintable(started));
        return;
    }
    const QString screenshot = data().root() + QLatin1String("/first-frame.png");
    const QString log = data().root() + QLatin1String("/vantrel.log");
    double seconds = 0;
    int launches = 0;
    for (auto _ : state) {
        const Launch launch = launchOnce(screenshot, log);
        if (!launch.ok) {
            state.SkipWithError(qPrintable(QLatin1String("vantrel failed; see ") + log));
            break;
        }
        state.SetIterationTime(launch.seconds);
        seconds += launch.seconds;
        ++launches;
    }
    // Against the launches without it, measured before it started (the target is 1.10).
    if (launches > 0 && s_plainLaunches > 0)
        state.counters["x_without_book"] =
            (seconds / launches) / (s_plainSeconds / s_plainLaunches);
}
BENCHMARK(BM_StartupWithDesktopBook)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    return BenchData::runBenchmarks(argc, argv);
}
