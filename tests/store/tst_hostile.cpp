// Names, lists and transcripts as a careless or hostile recorder could leave them, made by a
// seeded generator: thousands of cases per test, the same ones on every run. A failure names
// its seed and case; VANTREL_HOSTILE_SEED=<seed> runs that generator again.
#include "TestSupport.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"
#include "store/RecordingName.h"
#include "store/Transcript.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <algorithm>
#include <random>
#include <sys/stat.h>

namespace {

constexpr int kCases = 3000;
// The reader's longest line: paragraphs longer than this are broken for display.
constexpr qsizetype kLineLimit = 4096;

quint32 seed()
{
    bool ok = false;
    const quint32 given = qEnvironmentVariable("VANTREL_HOSTILE_SEED").toUInt(&ok);
    return ok ? given : 20261115u;
}

QString where(quint32 seed, int item, const QString &input)
{
    return QStringLiteral("seed %1, case %2, input \"%3\"")
        .arg(seed)
        .arg(item)
        .arg(input.size() > 200 ? input.left(200) + QStringLiteral("...") : input);
}

const QStringList kValidNames = {
    "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
    "msg-_FT-_jane.doe@example.com-_03-Jan-2027-09-05-41.caf",
    "msg-_TEL-_PRIVATE-_28-Feb-2026-23-59-00.caf",
    "msg-_TEL-_+447700900123-_08-Mar-2026-02-30-00.caf", // in New York's spring gap
    "msg-_TEL-_+15551234567-_01-Nov-2026-01-30-00.caf",  // twice in New York's autumn
};

// A character as found in real and broken names: ASCII, separators, accents, CJK, emoji
// halves, controls and NUL.
QChar anyChar(std::mt19937 &random)
{
    static const char16_t pool[] = { u'-',      u'_',      u'.',  u'0', u'9', u'a',  u'Z',
                                     u' ',      u'\0',     u'\n', u'é', u'ß', u'日', u'\xd83d',
                                     u'\xde00', u'\xfeff', u'٣',  u'/', u'%', u'"' };
    return QChar(pool[std::uniform_int_distribution<std::size_t>(0, std::size(pool) - 1)(random)]);
}

QString mutatedName(std::mt19937 &random)
{
    const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    QString name = kValidNames[pick(int(kValidNames.size()))];
    switch (pick(8)) {
    case 0:
        return QString(pick(40) + 1, u'-').replace(u'-', QLatin1String("-_")) + "caf";
    case 1: // huge
        return "msg-_TEL-_" + QString(100000 + pick(1000), u'7') + "-_15-Nov-2026-22-10-07.caf";
    case 2: // digits beyond any field's width
        return QStringLiteral("msg-_TEL-_1-_%1-Nov-%2-%3-10-07.caf")
            .arg(QString(pick(12) + 1, u'9'), QString(pick(14) + 1, u'9'),
                 QString(pick(12) + 1, u'9'));
    default:
        break;
    }
    for (int edits = pick(4) + 1; edits > 0; --edits) {
        const qsizetype at = pick(int(name.size()) + 1);
        switch (pick(4)) {
        case 0:
            if (at < name.size())
                name[at] = anyChar(random);
            break;
        case 1:
            name.remove(at, pick(3) + 1);
            break;
        case 2:
            name.insert(at, name.mid(at, pick(6) + 1));
            break;
        default:
            name.insert(at, anyChar(random));
        }
    }
    return name;
}

QDateTime local(int year, int month, int day, int hour, int minute, int second)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

// Whether the text has no UTF-16 half that is not part of a pair.
bool wellFormed(QStringView text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            ++i;
        else if (text[i].isSurrogate())
            return false;
    }
    return true;
}

QString nonBlank(const QString &text)
{
    QString kept;
    for (const QChar c : text) {
        if (!c.isSpace())
            kept += c;
    }
    return kept;
}

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT
private slots:
    void recordingNames();
    void sortKeepsEveryEntryInOrder();
    void transcriptFiles();
    void transcriptSpecialFiles_data();
    void transcriptSpecialFiles();
    void transcriptDisplay();
    void displayTimesInManyLocales();
};

void TestHostile::recordingNames()
{
    const quint32 s = seed();
    std::mt19937 random(s);
    for (int i = 0; i < kCases; ++i) {
        const QString name = mutatedName(random);
        const auto parsed = RecordingName::parse(name);
        if (!parsed)
            continue;
        // Whatever was read must be what the name holds, in its order, around "-_".
        const QString stem =
            name.left(name.lastIndexOf(u'.') > 0 ? name.lastIndexOf(u'.') : name.size());
        QVERIFY2(name.endsWith(QLatin1String("caf")), qPrintable(where(s, i, name)));
        QVERIFY2("msg-_" + parsed->kind + "-_" + parsed->address + "-_" + parsed->time == stem,
                 qPrintable(where(s, i, name)));
        QVERIFY2(!(parsed->kind + parsed->address + parsed->time).contains(QLatin1String("-_")),
                 qPrintable(where(s, i, name)));

        // A time that reads at all reads back as itself: no overflowed or wrapped field.
        const auto time = RecordingName::parseTime(parsed->time);
        if (!time)
            continue;
        QVERIFY2(time->isValid(), qPrintable(where(s, i, name)));
        const QString written = QLocale::c().toString(*time, "dd-MMM-yyyy-HH-mm-ss");
        const auto again = RecordingName::parseTime(written);
        QVERIFY2(again && *again == *time, qPrintable(where(s, i, name) + " wrote " + written));
        QVERIFY2(time->date().year() >= 1 && time->date().year() <= 9999,
                 qPrintable(where(s, i, name)));
    }
}

void TestHostile::sortKeepsEveryEntryInOrder()
{
    const quint32 s = seed();
    std::mt19937 random(s);
    // Around 2001-01-01 00:00:00 UTC, which an undated entry stands for when compared, and far
    // from it; few enough instants that many entries share one.
    const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    // Also either side of New York's daylight-saving changes, the same wall time once in
    // summer and once in winter, a date in UTC, and long before and after today.
    const QList<QDateTime> instants = {
        reference.addSecs(-1).toLocalTime(),
        reference.toLocalTime(),
        reference.addSecs(1).toLocalTime(),
        reference,
        local(2000, 12, 31, 19, 0, 0),
        local(1999, 6, 1, 12, 0, 0),
        local(1970, 1, 1, 0, 0, 0),
        local(2026, 11, 15, 22, 10, 7),
        local(2026, 3, 8, 1, 59, 59),
        local(2026, 3, 8, 3, 0, 0),
        local(2026, 11, 1, 0, 59, 59),
        local(2026, 11, 1, 1, 30, 0),
        local(2026, 11, 1, 1, 30, 0).addSecs(3600),
        local(2026, 11, 1, 2, 0, 0),
        local(1950, 6, 1, 12, 0, 0),
        local(9999, 12, 31, 23, 59, 59),
    };
    const auto anyDate = [&]() -> std::optional<QDateTime> {
        const int which = std::uniform_int_distribution<int>(-4, int(instants.size()) + 3)(random);
        if (which < 0)
            return std::nullopt;
        if (which < instants.size())
            return instants[which];
        // Any second from 1960 to 2040, in local time.
        return QDateTime::fromSecsSinceEpoch(
            std::uniform_int_distribution<qint64>(-315619200, 2208988800)(random), Qt::LocalTime);
    };
    for (int i = 0; i < kCases / 3; ++i) {
        // Mostly short lists, where every pair is checked; now and then a long one.
        const int size = i % 50 == 0 ? 3000 : std::uniform_int_distribution<int>(0, 24)(random);
        QList<Entry> entries;
        for (int n = 0; n < size; ++n) {
            Entry entry;
            entry.filename = QString::number(n);
            entry.date = anyDate();
            entries << entry;
        }
        const QList<Entry> before = entries;
        RecordingCatalogue::sort(entries);
        const QString context = where(s, i, QStringLiteral("%1 entries").arg(size));

        QCOMPARE(entries.size(), before.size());
        QList<bool> seen(size, false);
        for (const Entry &entry : entries) {
            const int n = entry.filename.toInt();
            QVERIFY2(!seen[n], qPrintable(context + ": twice " + entry.filename));
            seen[n] = true;
        }
        QDateTime previous;
        for (const Entry &entry : entries) {
            if (!entry.date)
                continue;
            QVERIFY2(!previous.isValid() || !(previous < *entry.date),
                     qPrintable(context + ": dated out of order"));
            previous = *entry.date;
        }
        if (size > 24)
            continue;
        // No pair stands against an answer the comparator gives both ways round.
        for (int a = 0; a < size; ++a) {
            for (int b = a + 1; b < size; ++b) {
                const bool laterFirst = compareElements(entries[b], entries[a], nullptr) ==
                                        ComparisonResult::OrderedAscending;
                const bool earlierAfter = compareElements(entries[a], entries[b], nullptr) ==
                                          ComparisonResult::OrderedDescending;
                QVERIFY2(!(laterFirst && earlierAfter),
                         qPrintable(QStringLiteral("%1: %2 before %3")
                                        .arg(context, entries[a].filename, entries[b].filename)));
            }
        }
    }
}

void TestHostile::transcriptFiles()
{
    const quint32 s = seed();
    std::mt19937 random(s);
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString path = directory.filePath("msg-_TEL-_1-_15-Nov-2026-22-10-07.txt");
    for (int i = 0; i < kCases; ++i) {
        QByteArray bytes;
        const int size = std::uniform_int_distribution<int>(0, 64)(random);
        const bool text = i % 2 == 0;
        for (int n = 0; n < size; ++n) {
            if (text) {
                // Any code point, written as UTF-8 the way an editor writes it.
                char32_t c = std::uniform_int_distribution<char32_t>(1, 0x10ffff)(random);
                if (c >= 0xd800 && c <= 0xdfff)
                    c = u'?';
                bytes += QString::fromUcs4(&c, 1).toUtf8();
            } else {
                bytes += char(std::uniform_int_distribution<int>(0, 255)(random));
            }
        }
        QVERIFY(TestSupport::writeFile(path, bytes));
        const QString read = Transcript::read(path);
        const QString context = where(s, i, QString::fromLatin1(bytes.toHex()));
        if (text)
            QVERIFY2(!read.isNull(), qPrintable(context));
        // What is shown is exactly the file, never a guess at a broken part of it.
        if (!read.isNull()) {
            QByteArray expected = bytes;
            if (expected.startsWith("\xef\xbb\xbf"))
                expected.remove(0, 3);
            QVERIFY2(read.toUtf8() == expected, qPrintable(context));
        }
    }
}

void TestHostile::transcriptSpecialFiles_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("kind");     // "file", "fifo" or "directory"
    QTest::addColumn<QString>("expected"); // null: nothing to show

    QTest::newRow("empty") << QByteArray() << "file"
                           << "";
    QTest::newRow("NULs") << QByteArray("Hi\0\0there", 9) << "file"
                          << QString::fromUtf8("Hi\0\0there", 9);
    QTest::newRow("overlong slash") << QByteArray("a\xc0\xaf") << "file" << QString();
    QTest::newRow("surrogate as UTF-8") << QByteArray("a\xed\xa0\x80") << "file" << QString();
    QTest::newRow("cut sequence") << QByteArray("caf\xc3") << "file" << QString();
    QTest::newRow("beyond U+10FFFF") << QByteArray("\xf4\x90\x80\x80") << "file" << QString();
    QTest::newRow("pipe") << QByteArray() << "fifo" << QString();
    QTest::newRow("directory") << QByteArray() << "directory" << QString();
}

void TestHostile::transcriptSpecialFiles()
{
    QFETCH(QByteArray, contents);
    QFETCH(QString, kind);
    QFETCH(QString, expected);

    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString path = directory.filePath("msg-_TEL-_1-_15-Nov-2026-22-10-07.txt");
    if (kind == "fifo")
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    else if (kind == "directory")
        QVERIFY(QDir(directory.path()).mkdir(QFileInfo(path).fileName()));
    else
        QVERIFY(TestSupport::writeFile(path, contents));

    // A pipe nobody writes to must not hold the reader up: this returns at once.
    const QString read = Transcript::read(path);
    QCOMPARE(read.isNull(), expected.isNull());
    QCOMPARE(read, expected);
}

void TestHostile::transcriptDisplay()
{
    // A paragraph without blanks whose limit falls between the halves of an emoji.
    const QString split = QString(kLineLimit - 1, u'a') + QString::fromUtf8("\xf0\x9f\x98\x80") +
                          QString(kLineLimit, u'b');
    QVERIFY(wellFormed(Transcript::forDisplay(split)));

    const quint32 s = seed();
    std::mt19937 random(s);
    for (int i = 0; i < kCases / 10; ++i) {
        // Paragraphs from a few characters to several times the limit, with blanks dense,
        // sparse or absent, and characters outside the Basic Multilingual Plane.
        QString text;
        const int paragraphs = std::uniform_int_distribution<int>(1, 4)(random);
        for (int p = 0; p < paragraphs; ++p) {
            const int length = std::uniform_int_distribution<int>(0, 3 * kLineLimit)(random);
            const int blankEvery = std::uniform_int_distribution<int>(0, 3)(random) == 0
                                       ? 0
                                       : std::uniform_int_distribution<int>(2, 6000)(random);
            for (int n = 0; n < length; ++n) {
                if (blankEvery && std::uniform_int_distribution<int>(0, blankEvery)(random) == 0)
                    text += u' ';
                else if (n % 97 == 0)
                    text += QString::fromUtf8("\xf0\x9f\x98\x80"); // an emoji
                else
                    text += QChar(u'a' + n % 26);
            }
            if (p + 1 < paragraphs)
                text += u'\n';
        }
        const QString shown = Transcript::forDisplay(text);
        const QString context = where(s, i, QStringLiteral("%1 characters").arg(text.size()));
        QVERIFY2(nonBlank(shown) == nonBlank(text), qPrintable(context));
        for (const QStringView line : QStringView(shown).split(u'\n'))
            QVERIFY2(line.size() <= kLineLimit,
                     qPrintable(context + QStringLiteral(": a line of %1").arg(line.size())));
        QVERIFY2(wellFormed(shown), qPrintable(context + ": an emoji broken in two"));
    }
}

void TestHostile::displayTimesInManyLocales()
{
    const quint32 s = seed();
    std::mt19937 random(s);
    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    // Every day of a month and every minute and second, a few around the daylight-saving
    // changes, read in locales with their own digits and month names.
    for (int i = 0; i < 200; ++i) {
        const QDateTime time =
            local(2026, 1, 1, 0, 0, 0)
                .addSecs(std::uniform_int_distribution<qint64>(0, 366LL * 86400)(random));
        const QString name = QStringLiteral("msg-_TEL-_%1-_%2.caf")
                                 .arg(i)
                                 .arg(QLocale::c().toString(time, "dd-MMM-yyyy-HH-mm-ss"));
        QVERIFY(TestSupport::writeFile(messages.filePath(name)));
    }
    QVERIFY(TestSupport::writeFile(messages.filePath("msg-_TEL-_gap-_08-Mar-2026-02-30-00.caf")));
    QVERIFY(TestSupport::writeFile(messages.filePath("msg-_TEL-_twice-_01-Nov-2026-01-30-00.caf")));

    for (const char *name : { "en_US", "de_DE", "ar_EG", "fa_IR", "hi_IN", "ja_JP", "ru_RU" }) {
        const QLocale locale(QString::fromLatin1(name));
        const QList<Entry> entries = RecordingCatalogue(nullptr, locale).entries(messages.path());
        QCOMPARE(entries.size(), 202);
        for (const Entry &entry : entries) {
            // A time that the clock skipped, in spring, is no time at all.
            if (entry.address == "gap") {
                QVERIFY2(!entry.date && !entry.dateString, qPrintable(entry.filename));
                continue;
            }
            QVERIFY2(entry.date && entry.dateString, qPrintable(entry.filename));
            QCOMPARE(*entry.dateString, locale.toString(*entry.date, "MMM dd yyyy - HH:mm:ss"));
        }
    }
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
