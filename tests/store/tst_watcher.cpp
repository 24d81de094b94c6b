#include "TestSupport.h"
#include "store/MessagesDirectoryFollower.h"
#include "store/VTDirectoryWatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <csignal>
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Long enough for a change that was going to be reported to have been.
constexpr int kSettleMs = 200;

struct CountingDelegate : VTDirectoryWatcherDelegate
{
    int calls = 0;
    VTDirectoryWatcher *lastWatcher = nullptr;

    void directoryDidChange(VTDirectoryWatcher *watcher) override
    {
        ++calls;
        lastWatcher = watcher;
    }
};

// Reads the directory at each call, as the list does when it reloads.
struct ListingDelegate : VTDirectoryWatcherDelegate
{
    QString path;
    QStringList listing;
    int calls = 0;

    void directoryDidChange(VTDirectoryWatcher *) override
    {
        ++calls;
        listing = QDir(path).entryList(QDir::Files, QDir::Name);
    }
};

// One step of a user's (or the recorder's) work on the file system, with what the list then
// shows and how many times it was told: kSome where a removal may also report its files.
struct Step
{
    QString commands; // "mkdir [-p] P", "write P...", "rm [-r] P", "mv A B"; joined by ';'
    QStringList listing;
    int calls = 1;
};
using Script = QList<Step>;
constexpr int kSome = -1;

// Runs commands relative to root, with no turn of the event loop in between.
bool run(QDir root, const QString &commands)
{
    for (const QString &command : commands.split(u';', Qt::SkipEmptyParts)) {
        const QStringList words = command.split(u' ', Qt::SkipEmptyParts);
        const QString &verb = words.value(0);
        const bool option = words.value(1).startsWith(u'-');
        const QString target = words.value(option ? 2 : 1);
        bool done = false;
        if (verb == "mkdir")
            done = option ? root.mkpath(target) : root.mkdir(target);
        else if (verb == "write")
            done = std::all_of(words.begin() + 1, words.end(), [&](const QString &file) {
                return TestSupport::writeFile(root.filePath(file));
            });
        else if (verb == "rm")
            done = option ? QDir(root.filePath(target)).removeRecursively() : root.remove(target);
        else if (verb == "mv")
            done = root.rename(words.value(1), words.value(2));
        if (!done)
            return false;
    }
    return true;
}

int openDescriptorCount()
{
    int count = 0;
    if (DIR *fds = opendir("/proc/self/fd")) {
        while (readdir(fds))
            ++count;
        closedir(fds);
    }
    return count;
}

} // namespace

Q_DECLARE_METATYPE(Script)

class TestWatcher : public QObject
{
    Q_OBJECT
private slots:
    void refusesToWatch_data();
    void refusesToWatch();
    void reportsChanges_data();
    void reportsChanges();
    void secondStartIsRefused();
    void invalidateStopsReports();
    void wrongCallbackIsFatal();
    void followsTheDirectory_data();
    void followsTheDirectory();
};

void TestWatcher::refusesToWatch_data()
{
    QTest::addColumn<QString>("relativePath"); // "<null>": a null path
    QTest::addColumn<bool>("withDelegate");

    QTest::newRow("null path") << "<null>" << true;
    QTest::newRow("empty path") << "" << true;
    QTest::newRow("no delegate") << "dir" << false;
    QTest::newRow("missing") << "missing" << true;
    QTest::newRow("regular file") << "file" << true;
}

void TestWatcher::refusesToWatch()
{
    QFETCH(QString, relativePath);
    QFETCH(bool, withDelegate);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(QDir(root.path()).mkdir("dir"));
    QVERIFY(TestSupport::writeFile(root.filePath("file")));
    const QString path = relativePath == "<null>" ? QString()
                         : relativePath.isEmpty() ? QString("")
                                                  : root.filePath(relativePath);

    CountingDelegate delegate;
    const int before = openDescriptorCount();
    const auto watcher =
        VTDirectoryWatcher::watchFolderWithPath(path, withDelegate ? &delegate : nullptr);
    QVERIFY(!watcher);
    QCOMPARE(openDescriptorCount(), before);
}

void TestWatcher::reportsChanges_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("expectedCalls");

    QTest::newRow("create") << "create" << 1;
    QTest::newRow("delete") << "delete" << 1;
    QTest::newRow("rename inside") << "rename" << 1;
    QTest::newRow("move in") << "move in" << 1;
    QTest::newRow("move out") << "move out" << 1;
    QTest::newRow("make a folder") << "mkdir" << 1;
    QTest::newRow("burst of 50 creates") << "burst" << 1;
    QTest::newRow("append to a file") << "append" << 0;
    QTest::newRow("rewrite a file") << "rewrite" << 0;
    QTest::newRow("change permissions") << "chmod" << 0;
    QTest::newRow("create in a subfolder") << "create in subfolder" << 0;
}

void TestWatcher::reportsChanges()
{
    QFETCH(QString, operation);
    QFETCH(int, expectedCalls);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    const QDir dir(root.path());
    QVERIFY(dir.mkpath("Messages/sub"));
    QVERIFY(dir.mkdir("elsewhere"));
    const QString messages = root.filePath("Messages");
    const QString existing = messages + "/existing.caf";
    QVERIFY(TestSupport::writeFile(existing));
    QVERIFY(TestSupport::writeFile(root.filePath("elsewhere/incoming.caf")));

    const int descriptorsBefore = openDescriptorCount();
    CountingDelegate delegate;
    auto watcher = VTDirectoryWatcher::watchFolderWithPath(messages, &delegate);
    QVERIFY(watcher);
    QVERIFY(watcher->isMonitoring());
    QCOMPARE(openDescriptorCount(), descriptorsBefore + 2);

    if (operation == "create") {
        QVERIFY(TestSupport::writeFile(messages + "/new.caf"));
    } else if (operation == "delete") {
        QVERIFY(QFile::remove(existing));
    } else if (operation == "rename") {
        QVERIFY(QFile::rename(existing, messages + "/renamed.caf"));
    } else if (operation == "move in") {
        QVERIFY(QFile::rename(root.filePath("elsewhere/incoming.caf"), messages + "/in.caf"));
    } else if (operation == "move out") {
        QVERIFY(QFile::rename(existing, root.filePath("elsewhere/out.caf")));
    } else if (operation == "mkdir") {
        QVERIFY(dir.mkdir("Messages/folder"));
    } else if (operation == "burst") {
        for (int i = 0; i < 50; ++i)
            QVERIFY(TestSupport::writeFile(messages + QString("/burst-%1.caf").arg(i)));
    } else if (operation == "append") {
        QFile file(existing);
        QVERIFY(file.open(QIODevice::Append) && file.write("more") == 4);
    } else if (operation == "rewrite") {
        QVERIFY(TestSupport::writeFile(existing, "new contents"));
    } else if (operation == "chmod") {
        QVERIFY(QFile::setPermissions(existing, QFile::ReadOwner));
    } else if (operation == "create in subfolder") {
        QVERIFY(TestSupport::writeFile(messages + "/sub/nested.caf"));
    } else {
        QFAIL("unknown operation");
    }

    if (expectedCalls > 0)
        QTRY_COMPARE(delegate.calls, expectedCalls);
    QTest::qWait(kSettleMs);
    QCOMPARE(delegate.calls, expectedCalls);

    // Whatever happened, the watcher is still listening.
    QVERIFY(TestSupport::writeFile(messages + "/marker.caf"));
    QTRY_COMPARE(delegate.calls, expectedCalls + 1);
    QCOMPARE(delegate.lastWatcher, watcher.get());

    watcher.reset();
    QCOMPARE(openDescriptorCount(), descriptorsBefore);
}

void TestWatcher::secondStartIsRefused()
{
    QTemporaryDir messages;
    QTemporaryDir other;
    QVERIFY(messages.isValid() && other.isValid());
    CountingDelegate delegate;
    auto watcher = VTDirectoryWatcher::watchFolderWithPath(messages.path(), &delegate);
    QVERIFY(watcher);
    const int dirFD = watcher->directoryDescriptor();
    const int queue = watcher->queueDescriptor();
    const int descriptors = openDescriptorCount();

    QVERIFY(!watcher->startMonitoringDirectory(messages.path()));
    QVERIFY(!watcher->startMonitoringDirectory(other.path()));
    QCOMPARE(openDescriptorCount(), descriptors);
    QCOMPARE(watcher->directoryDescriptor(), dirFD);
    QCOMPARE(watcher->queueDescriptor(), queue);

    // Still watching the first folder, and only that one.
    QVERIFY(TestSupport::writeFile(other.filePath("ignored.caf")));
    QVERIFY(TestSupport::writeFile(messages.filePath("seen.caf")));
    QTRY_COMPARE(delegate.calls, 1);
    QTest::qWait(kSettleMs);
    QCOMPARE(delegate.calls, 1);
}

void TestWatcher::invalidateStopsReports()
{
    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    const int descriptorsBefore = openDescriptorCount();
    CountingDelegate delegate;
    auto watcher = VTDirectoryWatcher::watchFolderWithPath(messages.path(), &delegate);
    QVERIFY(watcher);

    // A change still queued when the watcher stops is not reported either.
    QVERIFY(TestSupport::writeFile(messages.filePath("pending.caf")));
    watcher->invalidate();
    watcher->invalidate();
    QVERIFY(!watcher->isMonitoring());
    QCOMPARE(watcher->directoryDescriptor(), -1);
    QCOMPARE(watcher->queueDescriptor(), -1);
    QCOMPARE(openDescriptorCount(), descriptorsBefore);

    QVERIFY(TestSupport::writeFile(messages.filePath("after.caf")));
    QTest::qWait(kSettleMs);
    QCOMPARE(delegate.calls, 0);

    // Idle again, so it can be started again.
    QVERIFY(watcher->startMonitoringDirectory(messages.path()));
    QVERIFY(QFile::remove(messages.filePath("after.caf")));
    QTRY_COMPARE(delegate.calls, 1);
}

void TestWatcher::wrongCallbackIsFatal()
{
    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    CountingDelegate delegate;
    auto watcher = VTDirectoryWatcher::watchFolderWithPath(messages.path(), &delegate);
    QVERIFY(watcher);
    // The watcher's own notifier is its only child of that kind.
    QSocketNotifier *notifier = watcher->findChild<QSocketNotifier *>();
    QVERIFY(notifier);

    int errors[2];
    QCOMPARE(::pipe(errors), 0);
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        // The test framework's crash handler would add its own report to stderr.
        std::signal(SIGABRT, SIG_DFL);
        ::dup2(errors[1], STDERR_FILENO);
        ::close(errors[0]);
        ::close(errors[1]);
        KQCallback(notifier, kCFFileDescriptorWriteCallBack, watcher.get());
        ::_exit(0);
    }
    ::close(errors[1]);
    QFile written;
    QVERIFY(written.open(errors[0], QIODevice::ReadOnly, QFile::AutoCloseHandle));
    const QByteArray message = written.readAll();
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);

    QVERIFY2(WIFSIGNALED(status), qPrintable(QString("child status %1").arg(status)));
    QCOMPARE(WTERMSIG(status), SIGABRT);
    QCOMPARE(message, "Assertion failed: (callBackTypes == kCFFileDescriptorReadCallBack), "
                      "function KQCallback, file VantrelApplication, line 411.\n");
}

void TestWatcher::followsTheDirectory_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("before"); // commands run before following starts
    QTest::addColumn<Script>("script");

    const auto row = [](const char *name, const QString &path, const QString &before,
                        const Script &script) { QTest::newRow(name) << path << before << script; };
    const Step write = { "write Messages/new.caf", { "new.caf" } };
    const Step writeDeep = { "write a/b/Messages/new.caf", { "new.caf" } };

    row("missing, then made", "Messages", "", { { "mkdir Messages", {} }, write });
    row("several levels missing", "a/b/Messages", "",
        { { "mkdir -p a/b/Messages", {} }, writeDeep });
    row("made together with its files", "a/b/Messages", "",
        { { "mkdir -p a/b/Messages;write a/b/Messages/1.caf a/b/Messages/2.caf",
            { "1.caf", "2.caf" } } });
    row("removed and made again", "Messages", "mkdir Messages;write Messages/old.caf",
        { { "rm -r Messages", {}, kSome }, { "mkdir Messages", {} }, write });
    row("renamed away, a new one made", "Messages", "mkdir Messages;write Messages/old.caf",
        { { "mv Messages Old", {} },
          { "write Old/gone.caf", {}, 0 },
          { "mkdir Messages", {} },
          write });
    row("replaced at once", "Messages",
        "mkdir Messages;write Messages/old.caf;mkdir Staging;write Staging/1.caf",
        { { "mv Messages Old;mv Staging Messages", { "1.caf" } },
          { "write Messages/new.caf", { "1.caf", "new.caf" } } });
    row("renamed into place full", "Messages",
        "mkdir Staging;write Staging/1.caf Staging/2.caf Staging/3.caf",
        { { "mv Staging Messages", { "1.caf", "2.caf", "3.caf" } },
          { "rm Messages/2.caf", { "1.caf", "3.caf" } } });
    row("an ancestor renamed away", "a/b/Messages",
        "mkdir -p a/b/Messages;write a/b/Messages/old.caf",
        { { "mv a z", {} },
          { "write z/b/Messages/gone.caf", {}, 0 },
          { "mkdir -p a/b/Messages", {} },
          writeDeep });
    row("a file at first", "Messages", "write Messages",
        { { "write other.caf", {}, 0 }, { "rm Messages;mkdir Messages", {} }, write });
}

void TestWatcher::followsTheDirectory()
{
    QFETCH(QString, path);
    QFETCH(QString, before);
    QFETCH(Script, script);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    const QDir dir(root.path());
    QVERIFY(run(dir, before));
    const int descriptorsBefore = openDescriptorCount();
    ListingDelegate delegate;
    delegate.path = root.filePath(path);
    auto follower = std::make_unique<MessagesDirectoryFollower>(delegate.path, &delegate);
    QCOMPARE(follower->directoryWatcher() != nullptr, QFileInfo(delegate.path).isDir());

    for (const Step &step : script) {
        const int calls = delegate.calls;
        delegate.listing = QStringList { "<not told>" };
        QVERIFY2(run(dir, step.commands), qPrintable(step.commands));
        if (step.calls != 0) {
            QTRY_COMPARE(delegate.listing, step.listing);
        }
        QTest::qWait(kSettleMs);
        if (step.calls != kSome)
            QVERIFY2(delegate.calls == calls + step.calls, qPrintable(step.commands));
    }

    follower.reset();
    QCOMPARE(openDescriptorCount(), descriptorsBefore);
}

QTEST_GUILESS_MAIN(TestWatcher)
#include "tst_watcher.moc"
