#include "TestSupport.h"
#include "store/MessagesDirectoryFollower.h"
#include "store/VTDirectoryWatcher.h"

#include <QDir>
#include <QTest>

namespace {

// Counts its calls and reads the directory at each, as the list does when it reloads.
struct Delegate : VTDirectoryWatcherDelegate
{
    QString path;
    QStringList listing;
    int calls = 0;
    VTDirectoryWatcher *lastWatcher = nullptr;

    void directoryDidChange(VTDirectoryWatcher *watcher) override
    {
        ++calls;
        lastWatcher = watcher;
        listing = QDir(path).entryList(QDir::Files, QDir::Name);
    }
};

// One step of a user's (or the recorder's) work on the file system ("mkdir [-p] P", "write P",
// "append P", "chmod P", "rm [-r] P", "mv A B", joined by ';'), with what the list then shows
// and how many times it was told.
struct Step
{
    QString commands;
    QStringList listing;
    int calls = 1;
};
using Script = QList<Step>;

// Delivers every report that is due: the kernel queues a change before the call that made it
// returns, so no wait is needed for a change that was going to be reported.
void deliverPending()
{
    for (int turn = 0; turn < 5; ++turn)
        QCoreApplication::processEvents();
}

int openDescriptorCount()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

Q_DECLARE_METATYPE(Script)

class TestWatcher : public QObject
{
    Q_OBJECT
private slots:
    void followsTheDirectory_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("before"); // commands run before following starts
        QTest::addColumn<Script>("script");

        const auto row = [](const char *name, const QString &path, const QString &before,
                            const Script &script) {
            QTest::newRow(name) << path << before << script;
        };
        const Step writeDeep = { "write a/b/Messages/new.caf", { "new.caf" } };
        const Step writeBeside = { "write Messages/new.caf", { "new.caf", "old.caf" } };
        const QString full = "mkdir -p Messages/sub;write Messages/old.caf;write in.caf";
        QStringList burst;
        for (int i = 10; i < 60; ++i)
            burst << QString::number(i) + ".caf";

        // Inside it (arrivals, removals and renames are the live list's to check): entries moved
        // in or out are told, a burst once; writes and subfolders are not.
        row("move in", "Messages", full,
            { { "mv in.caf Messages/in.caf", { "in.caf", "old.caf" } } });
        row("move out", "Messages", full, { { "mv Messages/old.caf old.caf", {} } });
        row("burst of 50 files", "Messages", full,
            { { "write Messages/" + burst.join(";write Messages/"),
                burst + QStringList { "old.caf" } } });
        for (const char *quiet :
             { "append Messages/old.caf", "chmod Messages/old.caf", "write Messages/sub/new.caf" })
            row(quiet, "Messages", full, { { quiet, {}, 0 }, writeBeside });

        // What becomes of the directory itself.
        row("several levels missing", "a/b/Messages", "",
            { { "mkdir -p a/b/Messages", {} }, writeDeep });
        row("replaced at once", "Messages",
            "mkdir Messages;write Messages/old.caf;mkdir Staging;write Staging/1.caf",
            { { "mv Messages Old;mv Staging Messages", { "1.caf" } },
              { "write Messages/new.caf", { "1.caf", "new.caf" } } });
        row("renamed into place full", "Messages", "mkdir Staging;write Staging/1.caf",
            { { "mv Staging Messages", { "1.caf" } }, { "rm Messages/1.caf", {} } });
        row("an ancestor renamed away", "a/b/Messages",
            "mkdir -p a/b/Messages;write a/b/Messages/old.caf",
            { { "mv a z", {} },
              { "write z/b/Messages/gone.caf", {}, 0 },
              { "mkdir -p a/b/Messages", {} },
              writeDeep });
    }

    void followsTheDirectory()
    {
        QFETCH(QString, path);
        QFETCH(QString, before);
        QFETCH(Script, script);

        QTemporaryDir root;
        QVERIFY(TestSupport::run(root.path(), before));
        const int descriptorsBefore = openDescriptorCount();
        Delegate delegate;
        delegate.path = root.filePath(path);
        auto follower = std::make_unique<MessagesDirectoryFollower>(delegate.path, &delegate);
        QCOMPARE(follower->directoryWatcher() != nullptr, QFileInfo(delegate.path).isDir());

        for (const Step &step : script) {
            const int calls = delegate.calls;
            delegate.listing = QStringList { "<not told>" };
            QVERIFY2(TestSupport::run(root.path(), step.commands), qPrintable(step.commands));
            if (step.calls != 0)
                QTRY_COMPARE(delegate.listing, step.listing);
            deliverPending();
            QVERIFY2(delegate.calls == calls + step.calls, qPrintable(step.commands));
            // Told with the watcher of the directory now there, or with none.
            if (delegate.calls > calls)
                QCOMPARE(delegate.lastWatcher, follower->directoryWatcher());
        }

        follower.reset();
        QCOMPARE(openDescriptorCount(), descriptorsBefore);
    }
};

QTEST_GUILESS_MAIN(TestWatcher)
#include "tst_watcher.moc"
