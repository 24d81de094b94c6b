// The list follows the Messages directory change by change; whatever the recorder, the user or
// another program does there, the rows are those a fresh start would show.
#include "ListScreen.h"
#include "TestSupport.h"
#include "contacts/ContactStore.h"
#include "store/RecordingCatalogue.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <ctime>
#include <random>

namespace {

// Names that collide on purpose: the same second from two callers, a time that does not read,
// the hour that daylight saving time repeats, a ".txt" inside a recording's name, a name that
// ends in "caf" without the dot (its own transcript), and a file that is no recording.
QStringList poolOfNames()
{
    QStringList names;
    for (const char *kind : { "TEL", "FT" })
        for (const char *address : { "+15551234567", "+15559870000" })
            for (const char *time : { "15-Nov-2026-22-10-07", "15-Nov-2026-22-10-08",
                                      "01-Nov-2026-01-30-00", "31-Feb-2026-10-00-00" }) {
                const QString name = TestSupport::recordingName(
                    QLatin1String(kind), QLatin1String(address), QLatin1String(time));
                names << name
                      << QString(name).replace(QLatin1String(".caf"), QLatin1String(".txt"));
            }
    names << QStringLiteral("msg-_TEL-_+1555.txt-_15-Nov-2026-22-10-07.caf")
          << QStringLiteral("msg-_TEL-_+1555.txt-_15-Nov-2026-22-10-07.txt")
          << QStringLiteral("msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07caf")
          << QStringLiteral("notes.txt");
    return names;
}

// Every field of every row, in order, and how many rows are drawn.
QStringList described(const QList<Entry> &entries, int drawn)
{
    QStringList rows;
    for (const Entry &entry : entries)
        rows << entry.description();
    return rows << QStringLiteral("%1 rows drawn").arg(drawn);
}

QStringList shown(const ListScreen &screen)
{
    return described(screen.list()->entryList(), screen.table()->numberOfRowsInSection(0));
}

// What a fresh start would show.
QStringList freshlyRead(const ListScreen &screen)
{
    const auto contacts =
        ContactStore::storeWithOptions(0, screen.root() + QLatin1String("/contacts.vcf"));
    const QList<Entry> entries = RecordingCatalogue(contacts.get()).entries(screen.messages());
    return described(entries, entries.size());
}

// The kernel queues a change before the call that made it returns: a few turns of the event
// loop deliver every report that is due.
void deliverPending()
{
    for (int turn = 0; turn < 5; ++turn)
        QCoreApplication::processEvents();
}

} // namespace

class TestLiveList : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // A zone whose clocks go back, so that one hour of names is read twice over.
        qputenv("TZ", "America/New_York");
        tzset();
    }

    void followsRandomChanges_data()
    {
        QTest::addColumn<int>("burst");
        QTest::addColumn<int>("steps");
        QTest::newRow("one change at a time") << 1 << 400;
        QTest::newRow("bursts read in one go") << 12 << 40;
    }

    void followsRandomChanges()
    {
        QFETCH(int, burst);
        QFETCH(int, steps);
        ListScreen screen;
        screen.open();
        const QDir messages(screen.messages());
        const QStringList pool = poolOfNames();
        std::mt19937 random(20261126 + burst);
        const auto any = [&](const QStringList &from) {
            return from.at(std::uniform_int_distribution<qsizetype>(0, from.size() - 1)(random));
        };
        QStringList done;
        for (int step = 0; step < steps; ++step) {
            for (int change = 0; change < burst; ++change) {
                const QStringList present =
                    messages.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
                const QString name = any(pool);
                const int what = std::uniform_int_distribution<int>(0, 99)(random);
                QString command; // on the files under the Messages directory's parent
                if (what < 40 || present.isEmpty())
                    command = "write Messages/" + name;
                else if (what < 60) // a file or a folder
                    command = QStringLiteral("rm -r Messages/%1;rm Messages/%1").arg(any(present));
                else if (what < 85)
                    command = QStringLiteral("mv Messages/%1 Messages/%2").arg(any(present), name);
                else if (what < 92) // a folder where a transcript or a recording would be
                    command = "mkdir Messages/" + name;
                else if (what < 98) // written into: no change the list must see
                    command = "append Messages/" + name;
                else // replaced by another directory with a recording in it, as a restore would
                    command = "rm -r Messages.old;mv Messages Messages.old;write Messages/" + name;
                TestSupport::run(QDir(screen.root()), command);
                done << command;
            }
            deliverPending();
            const QStringList fresh = freshlyRead(screen);
            if (shown(screen) != fresh)
                qWarning().noquote() << "after:\n " << done.join(QLatin1String("\n  "));
            QCOMPARE(shown(screen), fresh);
        }
    }

    void catchesUpWhenTheKernelDropsChanges()
    {
        // More changes than the kernel queues for one watcher before it drops them and says so.
        QFile limits(QStringLiteral("/proc/sys/fs/inotify/max_queued_events"));
        const int limit =
            limits.open(QIODevice::ReadOnly) ? limits.readAll().trimmed().toInt() : 16384;
        ListScreen screen;
        screen.open();
        for (int i = 0; i < limit * 2 / 3 + 100; ++i) { // and every other one removed
            const QString name = screen.addRecording(
                QStringLiteral("TEL"), QStringLiteral("+1555%1").arg(i, 7, 10, QLatin1Char('0')),
                QStringLiteral("15-Nov-2026-22-10-07"));
            if (i % 2 == 0)
                QFile::remove(screen.messages() + u'/' + name);
        }
        deliverPending();
        QCOMPARE(shown(screen), freshlyRead(screen));
    }
};

QTEST_MAIN(TestLiveList)
#include "tst_livelist.moc"
