// Lists and transcripts as a careless or hostile recorder could leave them, made by a
// seeded generator: thousands of cases per test, the same ones on every run. A failure names
// its seed and case; VANTREL_HOSTILE_SEED=<seed> runs that generator again.
#include "TestSupport.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"
#include "store/Transcript.h"

#include <QDir>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <random>
#include <sys/stat.h>

// In a loop over cases i drawn by pick: fails naming the seed, the case and what it was made
// of, described only then.
#define CHECK_CASE(condition, what)                                                                \
    do {                                                                                           \
        if (!(condition))                                                                          \
            QFAIL(qPrintable(QString("seed %1, case %2: %3").arg(pick.seed).arg(i).arg(what)));    \
    } while (false)

namespace {

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

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT
private slots:
    void sortKeepsEveryEntryInOrder();
    void transcriptFiles();
    void transcriptDisplay();
};

void TestHostile::sortKeepsEveryEntryInOrder()
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

void TestHostile::transcriptFiles()
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

void TestHostile::transcriptDisplay()
{
    Random pick;
    for (int i = 0; i < kCases / 10; ++i) {
        // Paragraphs from a few characters to several times the limit, blanks dense, sparse or
        // absent, and emoji; in the first case the limit falls between an emoji's halves.
        QString text = i ? QString() : QString(kLineLimit - 1, u'a') + kEmoji + QString(99, u'b');
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
            CHECK_CASE(line.size() <= kLineLimit, QStringLiteral("a line of %1").arg(line.size()));
        CHECK_CASE(QStringView(shown).isValidUtf16(), QString("an emoji broken in two"));
    }
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
