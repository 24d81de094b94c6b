// The recordings of the Messages directory: what a fresh read makes of their names, dates and
// transcripts, in what order, and how the directory is followed; and lists, transcripts and
// orders as a careless or hostile recorder could leave them, made by a seeded generator:
// thousands of cases per test, the same ones on every run. A failure names its seed and case;
// VANTREL_HOSTILE_SEED=<seed> runs that generator again.
#include "TestSupport.h"
#include "store/Entry.h"
#include "store/MessagesDirectoryFollower.h"
#include "store/RecordingCatalogue.h"
#include "store/Transcript.h"
#include "store/VTDirectoryWatcher.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

// In a loop over cases i drawn by pick: fails naming the seed, the case and what it was made
// of, described only then.
#define CHECK_CASE(condition, what)                                                                \
    do {                                                                                           \
        if (!(condition))                                                                          \
            QFAIL(qPrintable(QString("seed %1, case %2: %3").arg(pick.seed).arg(i).arg(what)));    \
    } while (false)

namespace {

// Names go to the file system as raw bytes, so that names that are not UTF-8 can be made too.
// QTemporaryDir cannot remove those, so the file goes when the returned guard does.
auto createFile(const QString &directory, const QByteArray &name, bool *created)
{
    const QByteArray path = QFile::encodeName(directory) + '/' + name;
    const int fd = ::open(path.constData(), O_CREAT | O_WRONLY, 0644);
    *created = fd >= 0 && ::close(fd) == 0;
    return qScopeGuard([path] { ::unlink(path.constData()); });
}

// An ISO date: in UTC with a "Z", else in local time.
QDateTime at(const char *iso)
{
    return QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODate);
}

constexpr int kCases = 3000;
// The reader's longest line: paragraphs longer than this are broken for display.
constexpr qsizetype kLineLimit = 4096;
const QString kEmoji = QString::fromUtf8("\xf0\x9f\x98\x80"); // two UTF-16 halves

// One test's generator: pick(from, to) draws from the closed range.
struct Random
{
    quint32 seed = qEnvironmentVariableIsSet("VANTREL_HOSTILE_SEED")
                       ? qEnvironmentVariable("VANTREL_HOSTILE_SEED").toUInt()
                       : 20261115u;
    std::mt19937 engine { seed };

    template <typename T> T operator()(T from, T to)
    {
        return std::uniform_int_distribution<T>(from, to)(engine);
    }
};

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

class TestStore : public QObject
{
    Q_OBJECT
private slots:
    void fileNames_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("address");  // null: not listed
        QTest::addColumn<QString>("detail");   // the row's second line
        QTest::addColumn<QDateTime>("date");   // invalid: the entry has no date
        QTest::addColumn<QString>("made");     // next to it; ending in "/": a directory
        QTest::addColumn<QString>("textFile"); // null: no transcript

        const QString shown = "Nov 15 2026 - 22:10:07 - Telephony";
        const QDateTime example = at("2026-11-16T03:10:07Z");
        const auto row = [](const char *tag, const QByteArray &name, const QString &address,
                            const QString &detail = "(null) - Telephony",
                            const QDateTime &date = {}, const QString &made = {},
                            const QString &textFile = {}) {
            QTest::newRow(tag) << name << address << detail << date << made << textFile;
        };

        row("telephony", "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf", "+15551234567", shown,
            example);
        row("facetime", "msg-_FT-_+15557654321-_03-Jan-2027-09-05-41.caf", "+15557654321",
            "Jan 03 2027 - 09:05:41 - FaceTime", at("2027-01-03T14:05:41Z"));
        row("other kind as written", "msg-_SIP-_1-_15-Nov-2026-22-10-07.caf", "1",
            "Nov 15 2026 - 22:10:07 - SIP", example);
        // Summer time: the offset is the one of that day, not of today.
        row("daylight saving time", "msg-_TEL-_1-_04-Jul-2026-12-00-00.caf", "1",
            "Jul 04 2026 - 12:00:00 - Telephony", at("2026-07-04T16:00:00Z"));
        row("lower-case month", "msg-_TEL-_1-_15-nov-2026-22-10-07.caf", "1", shown, example);
        row("one-digit day", "msg-_TEL-_1-_5-Nov-2026-09-07-03.caf", "1",
            "Nov 05 2026 - 09:07:03 - Telephony", at("2026-11-05T14:07:03Z"));
        // Without ".caf" in it, a name is its own transcript's name.
        row("longer suffix", "msg-_TEL-_1-_15-Nov-2026-22-10-07.xcaf", "1", shown, example, {},
            "msg-_TEL-_1-_15-Nov-2026-22-10-07.xcaf");
        row("suffix without a dot", "msg-_TEL-_1-_15-Nov-2026-22-10-07caf", "1",
            "(null) - Telephony", {}, {}, "msg-_TEL-_1-_15-Nov-2026-22-10-07caf");

        row("five fields", "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07-_extra.caf", {});
        row("not a message", "rec-_TEL-_1-_15-Nov-2026-22-10-07.caf", {});
        row("transcript alone", "msg-_TEL-_1-_15-Nov-2026-22-10-07.txt", {});
        row("upper-case suffix", "msg-_TEL-_1-_15-Nov-2026-22-10-07.CAF", {});
        row("not UTF-8", "msg-_TEL-_\xff-_15-Nov-2026-22-10-07.caf", {});

        row("time not a date", "msg-_TEL-_1-_garbage.caf", "1");
        row("31 February", "msg-_TEL-_1-_31-Feb-2026-10-00-00.caf", "1");
        row("Arabic-Indic digit", "msg-_TEL-_1-_15-Nov-202\xd9\xa6-22-10-07.caf", "1");
        row("skipped by the clock in spring", "msg-_TEL-_1-_08-Mar-2026-02-30-00.caf", "1");

        // Whatever the caller's side put in the address is data, never syntax.
        row("blanks, quotes, percent signs, a line break",
            "msg-_TEL-_\"O'Brien\" 100%25 %s%n%@\nx-_15-Nov-2026-22-10-07.caf",
            "\"O'Brien\" 100%25 %s%n%@\nx", shown, example);
        // A transcript: the recording's name with every ".caf" made ".txt", a file and no
        // directory.
        const QByteArray twoCafs = "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.caf";
        const QString text = "msg-_TEL-_a.txt.b-_15-Nov-2026-22-10-07.txt";
        row("transcript", twoCafs, "a.caf.b", shown, example, text, text);
        row("transcript a directory", twoCafs, "a.caf.b", shown, example, text + "/");
        row("transcript with the last .caf replaced alone", twoCafs, "a.caf.b", shown, example,
            "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.txt");
    }

    void fileNames()
    {
        QFETCH(QByteArray, name);
        QFETCH(QString, address);
        QFETCH(QString, detail);
        QFETCH(QDateTime, date);
        QFETCH(QString, made);
        QFETCH(QString, textFile);

        QTemporaryDir messages;
        bool created = false;
        const auto removal = createFile(messages.path(), name, &created);
        QVERIFY(created);
        if (made.endsWith(u'/'))
            QVERIFY(QDir(messages.path()).mkdir(made));
        else if (!made.isEmpty())
            QVERIFY(TestSupport::writeFile(messages.filePath(made)));

        const QList<Entry> entries = RecordingCatalogue(nullptr).entries(messages.path());
        QCOMPARE(entries.size(), address.isNull() ? 0 : 1);
        if (address.isNull())
            return;
        const Entry &entry = entries.first();
        QCOMPARE(entry.filename, QString::fromUtf8(name));
        QCOMPARE(entry.address, address);
        QCOMPARE(entry.name, address);
        QCOMPARE(entry.detailText(), detail);
        QCOMPARE(entry.date.value_or(QDateTime()), date);
        QCOMPARE(entry.textFile.value_or(QString()), textFile);
        // Its line in the log holds the address whole and stays one line: quotes and line
        // breaks escaped.
        QString escaped = address;
        escaped.replace('"', "\\\"").replace('\n', "\\n");
        const QString logged = entry.description();
        QVERIFY2(logged.contains(escaped) && !logged.contains('\n'), qPrintable(logged));
    }

    void newestFirst()
    {
        // Neither the day, the month name, the year nor the time alone orders them; the undated go
        // last. Dates are shown in the list's locale, with its own digits and month names.
        const QStringList expected = {
            "msg-_TEL-_1-_03-Jan-2027-09-05-41.caf", "msg-_TEL-_2-_15-Nov-2026-22-10-08.caf",
            "msg-_TEL-_3-_15-Nov-2026-22-10-07.caf", "msg-_FT-_4-_15-Nov-2026-09-00-00.caf",
            "msg-_TEL-_5-_14-Nov-2026-23-00-00.caf", "msg-_TEL-_6-_15-Jul-2026-08-00-00.caf",
            "msg-_TEL-_7-_03-Jan-2026-23-59-59.caf", "msg-_TEL-_8-_garbage.caf",
        };
        QTemporaryDir messages;
        for (const QString &name : expected)
            QVERIFY(TestSupport::writeFile(messages.filePath(name)));
        for (const QLocale &locale : { QLocale("en_US"), QLocale("ar_EG"), QLocale("ru_RU") }) {
            QStringList names;
            for (const Entry &entry :
                 RecordingCatalogue(nullptr, locale).entries(messages.path())) {
                names << entry.filename;
                QCOMPARE(entry.dateString,
                         entry.date
                             ? std::optional(locale.toString(*entry.date, "MMM dd yyyy - HH:mm:ss"))
                             : std::nullopt);
            }
            QCOMPARE(names, expected);
        }
        // A missing directory, none at all and a file in its place list nothing.
        for (const QString &path :
             { messages.filePath("Messages"), QString(), messages.filePath(expected.first()) })
            QVERIFY(RecordingCatalogue(nullptr).entries(path).isEmpty());
    }

    void compare_data()
    {
        QTest::addColumn<QDateTime>("a"); // invalid: no date
        QTest::addColumn<QDateTime>("b");
        QTest::addColumn<ComparisonResult>("expected");

        const QDateTime call = at("2026-11-15T22:10:07");
        const auto first = ComparisonResult::OrderedAscending;
        const auto after = ComparisonResult::OrderedDescending;
        QTest::newRow("same second") << call << call << after;
        QTest::newRow("a undated") << QDateTime() << call << after;
        // A missing right-hand date counts as 2001-01-01 00:00:00 UTC: still 2000 in New York.
        QTest::newRow("b undated, a 2000 locally")
            << at("2000-12-31T20:00:00") << QDateTime() << first;
    }

    void compare()
    {
        QFETCH(QDateTime, a);
        QFETCH(QDateTime, b);
        QFETCH(ComparisonResult, expected);
        Entry left, right;
        left.date = a.isValid() ? std::optional(a) : std::nullopt;
        right.date = b.isValid() ? std::optional(b) : std::nullopt;
        QCOMPARE(compareElements(left, right, nullptr), expected);
    }

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

    void sortKeepsEveryEntryInOrder()
    {
        using enum ComparisonResult;
        Random pick;
        // The instant an undated entry stands for and either side of it, either side of New York's
        // changes of daylight saving time, 01:30 in summer and in winter, far past and future, UTC.
        // Few enough that many entries share one.
        QList<QDateTime> instants;
        for (const char *time :
             { "2001-01-01T00:00:00Z", "2000-12-31T23:59:59Z", "2001-01-01T00:00:01Z",
               "2000-12-31T19:00:00", "1970-01-01T00:00:00", "2026-11-15T22:10:07",
               "2026-03-08T01:59:59", "2026-03-08T03:00:00", "2026-11-01T00:59:59",
               "2026-11-01T01:30:00-04:00", "2026-11-01T01:30:00-05:00", "2026-11-01T02:00:00",
               "1950-06-01T12:00:00", "9999-12-31T23:59:59" })
            instants << QDateTime::fromString(time, Qt::ISODate).toLocalTime();
        instants << instants.first().toUTC();
        for (int i = 0; i < kCases / 3; ++i) {
            // Mostly short lists, where every pair is checked, now and then a long one; entries
            // undated, at one of the instants or at any second of 1960-2040.
            const int size = i % 50 == 0 ? 3000 : pick(0, 24);
            QList<Entry> entries(size);
            for (int n = 0; n < size; ++n) {
                entries[n].filename = QString::number(n);
                if (const int which = pick(-4, int(instants.size()) + 3); which >= instants.size())
                    entries[n].date = QDateTime::fromSecsSinceEpoch(
                        pick(qint64(-315619200), qint64(2208988800)), Qt::LocalTime);
                else if (which >= 0)
                    entries[n].date = instants[which];
            }
            RecordingCatalogue::sort(entries);
            QSet<QString> names;
            QDateTime previous;
            for (const Entry &entry : entries) {
                names.insert(entry.filename);
                CHECK_CASE(!entry.date || !previous.isValid() || !(previous < *entry.date),
                           QString("dated out of order"));
                previous = entry.date.value_or(previous);
            }
            CHECK_CASE(names.size() == size, QString("lost or doubled"));
            // No pair stands against an answer the comparator gives both ways round.
            for (int a = 0; size <= 24 && a < size; ++a) {
                for (int b = a + 1; b < size; ++b)
                    CHECK_CASE(compareElements(entries[b], entries[a], {}) != OrderedAscending ||
                                   compareElements(entries[a], entries[b], {}) != OrderedDescending,
                               QStringLiteral("%1 before %2").arg(a).arg(b));
            }
        }
    }

    void transcriptFiles()
    {
        Random pick;
        QTemporaryDir directory;
        const QString path = directory.filePath("msg-_TEL-_1-_15-Nov-2026-22-10-07.txt");
        // First what a decoder of its own could read wrongly (nothing, NULs; an overlong "/", a
        // surrogate, a cut sequence, a code point beyond U+10FFFF), then every other file text
        // (any code points, as an editor writes them) and the rest any bytes.
        const QList<QByteArray> fixed = { "",          QByteArray("Hi\0\0there", 9),
                                          "a\xc0\xaf", "a\xed\xa0\x80",
                                          "caf\xc3",   "\xf4\x90\x80\x80" };
        for (int i = 0; i < kCases; ++i) {
            const bool text = i < fixed.size() ? i < 2 : i % 2 == 0;
            QByteArray bytes = fixed.value(i);
            for (int n = i < fixed.size() ? 0 : pick(0, 64); n > 0; --n) {
                const char32_t c = pick(1u, 0x10ffffu);
                if (!text)
                    bytes += char(c);
                else
                    bytes += c >= 0xd800 && c <= 0xdfff ? "?" : QString::fromUcs4(&c, 1).toUtf8();
            }
            QVERIFY(TestSupport::writeFile(path, bytes));
            // What is shown is exactly the file, never a guess at a broken part of it.
            const QString read = Transcript::read(path);
            const QByteArray shown = bytes.startsWith("\xef\xbb\xbf") ? bytes.mid(3) : bytes;
            CHECK_CASE(read.isNull() ? !text : read.toUtf8() == shown,
                       QString::fromLatin1(bytes.toHex()));
        }

        // Neither a pipe nobody writes to (which must not hold the reader up) nor a directory.
        QVERIFY(QFile::remove(path));
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        QVERIFY(Transcript::read(path).isNull());
        QVERIFY(QFile::remove(path) && QDir(directory.path()).mkdir(QFileInfo(path).fileName()));
        QVERIFY(Transcript::read(path).isNull());
    }

    void transcriptDisplay()
    {
        Random pick;
        for (int i = 0; i < kCases / 10; ++i) {
            // Paragraphs from a few characters to several times the limit, blanks dense, sparse or
            // absent, and emoji; in the first case the limit falls between an emoji's halves.
            QString text =
                i ? QString() : QString(kLineLimit - 1, u'a') + kEmoji + QString(99, u'b');
            for (int paragraphs = i ? pick(1, 4) : 0; paragraphs > 0; --paragraphs) {
                const int blankEvery = pick(0, 3) == 0 ? 0 : pick(2, 6000);
                for (int n = pick(0, 3 * int(kLineLimit)); n > 0; --n) {
                    if (blankEvery && pick(0, blankEvery) == 0)
                        text += u' ';
                    else
                        text += n % 97 == 0 ? kEmoji : QString(QChar(u'a' + n % 26));
                }
                text += u'\n';
            }
            const QString shown = Transcript::forDisplay(text);
            const auto letters = [](QString text) { return text.remove(u' ').remove(u'\n'); };
            CHECK_CASE(letters(shown) == letters(text), QString("text lost"));
            for (const QStringView line : QStringView(shown).split(u'\n'))
                CHECK_CASE(line.size() <= kLineLimit,
                           QStringLiteral("a line of %1").arg(line.size()));
            CHECK_CASE(QStringView(shown).isValidUtf16(), QString("an emoji broken in two"));
        }
    }
};

QTEST_GUILESS_MAIN(TestStore)
#include "tst_store.moc"
