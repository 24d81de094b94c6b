// Names, lists and transcripts as a careless or hostile recorder could leave them, made by a
// seeded generator: thousands of cases per test, the same ones on every run. A failure names
// its seed and case; VANTREL_HOSTILE_SEED=<seed> runs that generator again.
#include "TestSupport.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"
#include "store/RecordingName.h"
#include "store/Transcript.h"

#include <QDir>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
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

// Real names mangled by hand, a huge one, and times made of any numbers (mostly at the edge of
// a field's range, now and then far beyond) and months in any case.
QString hostileName(Random &pick)
{
    // ASCII, separators, accents, CJK, a byte-order mark, Arabic digits, NUL and emoji halves.
    static const QString chars =
        QStringLiteral("-_.09aZ \n/\"%éß日\ufeff٣") + QChar(0) + QChar(0xd83d) + QChar(0xde00);
    const auto number = [&](int limit) {
        const int value = pick(0, 1) ? pick(0, limit) : limit - pick(0, 2);
        return pick(0, 7) ? QString::number(value).rightJustified(pick(1, 2), u'0')
                          : QString(pick(1, 14), u'9');
    };
    const int kind = pick(0, 7);
    if (kind == 0)
        return "msg-_TEL-_" + QString(pick(100000, 101000), u'7') + "-_15-Nov-2026-22-10-07.caf";
    if (kind <= 2) {
        QString month =
            QStringLiteral("janfebmaraprmayjunjulaugsepoctnovdec").mid(3 * pick(0, 11), 3);
        for (QChar &c : month)
            c = pick(0, 1) ? c.toUpper() : c;
        return QStringLiteral("msg-_TEL-_1-_%1-%2-%3-%4-%5-%6.caf")
            .arg(number(31), month, number(9999), number(24), number(60), number(60));
    }
    QString name = QStringList { "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
                                 "msg-_TEL-_1-_08-Mar-2026-02-30-00.caf", // in New York's gap
                                 "msg-_TEL-_2-_01-Nov-2026-01-30-00.caf" }[pick(0, 2)];
    for (int edits = pick(1, 4); edits > 0; --edits) {
        const int at = pick(0, int(name.size()));
        const int what = pick(0, 3); // 2: a character more, 3: one in place of another
        if (what == 0)
            name.remove(at, pick(1, 3));
        else if (what == 1)
            name.insert(at, name.mid(at, pick(1, 6)));
        else
            name.insert(at, chars[pick(0, int(chars.size()) - 1)]).remove(at + 1, what - 2);
    }
    return name;
}

// A time field with numbers as numbers and months in lower case: "05-NOV-0026" is "5-nov-26".
QStringList normalTime(const QString &field)
{
    QStringList parts = field.toLower().split(u'-');
    for (int at = 0; at < parts.size(); at += at == 0 ? 2 : 1)
        parts[at] = QString::number(parts[at].toInt());
    return parts;
}

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT
private slots:
    void recordingNames();
    void sortKeepsEveryEntryInOrder();
    void transcriptFiles();
    void transcriptDisplay();
    void displayTimesInManyLocales();
};

void TestHostile::recordingNames()
{
    Random pick;
    for (int i = 0; i < kCases; ++i) {
        const QString name = hostileName(pick);
        const auto parsed = RecordingName::parse(name);
        if (!parsed)
            continue;
        // Whatever was read is what the name holds, in its order, around "-_".
        const qsizetype dot = name.lastIndexOf(u'.');
        CHECK_CASE(name.endsWith("caf") &&
                       !(parsed->kind + parsed->address + parsed->time).contains("-_") &&
                       "msg-_" + parsed->kind + "-_" + parsed->address + "-_" + parsed->time ==
                           name.left(dot > 0 ? dot : name.size()),
                   name);
        // A time that reads at all reads back as itself: no field wrapped into the next.
        const auto time = RecordingName::parseTime(parsed->time);
        const QString written = time ? QLocale::c().toString(*time, "dd-MMM-yyyy-HH-mm-ss") : "";
        CHECK_CASE(!time || (time->isValid() && normalTime(written) == normalTime(parsed->time)),
                   name + " read as " + written);
    }
}

void TestHostile::sortKeepsEveryEntryInOrder()
{
    using enum ComparisonResult;
    Random pick;
    // 2001-01-01 00:00:00 UTC, which an undated entry stands for when compared, and either side
    // of it; either side of New York's changes of daylight saving time, 01:30 in summer and in
    // winter, long before and after today; in UTC too. Few enough that many entries share one.
    QList<QDateTime> instants;
    for (const char *time :
         { "2001-01-01T00:00:00Z", "2000-12-31T23:59:59Z", "2001-01-01T00:00:01Z",
           "2000-12-31T19:00:00", "1999-06-01T12:00:00", "1970-01-01T00:00:00",
           "2026-11-15T22:10:07", "2026-03-08T01:59:59", "2026-03-08T03:00:00",
           "2026-11-01T00:59:59", "2026-11-01T01:30:00-04:00", "2026-11-01T01:30:00-05:00",
           "2026-11-01T02:00:00", "1950-06-01T12:00:00", "9999-12-31T23:59:59" })
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
        CHECK_CASE(entries.size() == size && names.size() == size, QString("lost or doubled"));
        // No pair stands against an answer the comparator gives both ways round.
        const auto order = [&](int a, int b) {
            return compareElements(entries[a], entries[b], {});
        };
        for (int a = 0; size <= 24 && a < size; ++a) {
            for (int b = a + 1; b < size; ++b)
                CHECK_CASE(order(b, a) != OrderedAscending || order(a, b) != OrderedDescending,
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

void TestHostile::displayTimesInManyLocales()
{
    Random pick;
    QTemporaryDir messages;
    // Times all through a year, shown in locales with their own digits and month names.
    const QDateTime newYear(QDate(2026, 1, 1), QTime(0, 0));
    for (int i = 0; i < 200; ++i) {
        const QDateTime time = newYear.addSecs(pick(0, 366 * 86400));
        QVERIFY(TestSupport::writeFile(messages.filePath(TestSupport::recordingName(
            "TEL", QString::number(i), QLocale::c().toString(time, "dd-MMM-yyyy-HH-mm-ss")))));
    }

    for (const char *name : { "en_US", "de_DE", "ar_EG", "fa_IR", "hi_IN", "ja_JP", "ru_RU" }) {
        const QLocale locale(QString::fromLatin1(name));
        const QList<Entry> entries = RecordingCatalogue(nullptr, locale).entries(messages.path());
        QCOMPARE(entries.size(), 200);
        for (const Entry &entry : entries) {
            QVERIFY2(entry.date && entry.dateString, qPrintable(entry.filename));
            QCOMPARE(*entry.dateString, locale.toString(*entry.date, "MMM dd yyyy - HH:mm:ss"));
        }
    }
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
