#include "TestSupport.h"
#include "store/ContactStore.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Names go to the file system as raw bytes, so that names that are not UTF-8 can be made too.
// QTemporaryDir cannot remove those, so the file goes when the returned guard does.
auto createFile(const QString &directory, const QByteArray &name, bool *created)
{
    const QByteArray path = QFile::encodeName(directory) + '/' + name;
    const int fd = ::open(path.constData(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    *created = fd >= 0 && ::write(fd, "x", 1) == 1;
    if (fd >= 0)
        ::close(fd);
    return qScopeGuard([path] { ::unlink(path.constData()); });
}

QDateTime utc(int year, int month, int day, int hour, int minute, int second)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), QTimeZone::utc());
}

QDateTime local(int year, int month, int day, int hour, int minute, int second)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

// One vCard around the given properties, with the line breaks the format asks for.
QByteArray card(const QByteArray &properties)
{
    return QByteArray("BEGIN:VCARD\n" + properties + "END:VCARD\n").replace("\n", "\r\n");
}

const QByteArray kJaneCard = card("VERSION:3.0\nFN:Jane Doe\nTEL;TYPE=CELL:(555) 123-4567\n");
const QByteArray kExample = "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf";

} // namespace

class TestCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void fileNames_data();
    void fileNames();
    void transcripts_data();
    void transcripts();
    void missingDirectoryIsEmpty();
    void newestFirst();
    void description();
    void compare_data();
    void compare();
    void sortKeepsEveryEntry();
};

void TestCatalogue::fileNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("listed");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QDateTime>("date"); // invalid: the entry has no date
    QTest::addColumn<QString>("dateString");

    const QDateTime example = utc(2026, 11, 16, 3, 10, 7);
    const QString shown = "Nov 15 2026 - 22:10:07";
    const auto listed = [](const char *tag, const QByteArray &name, const QString &address,
                           const QDateTime &date = {}, const QString &dateString = {},
                           const QString &type = "Telephony") {
        QTest::newRow(tag) << name << true << type << address << date << dateString;
    };
    const auto skipped = [](const char *tag, const QByteArray &name) {
        QTest::newRow(tag) << name << false << QString() << QString() << QDateTime() << QString();
    };

    listed("telephony", kExample, "+15551234567", example, shown);
    listed("facetime", "msg-_FT-_+15557654321-_03-Jan-2027-09-05-41.caf", "+15557654321",
           utc(2027, 1, 3, 14, 5, 41), "Jan 03 2027 - 09:05:41", "FaceTime");
    listed("other kind as written", "msg-_SIP-_+15551234567-_15-Nov-2026-22-10-07.caf",
           "+15551234567", example, shown, "SIP");
    listed("private caller", "msg-_TEL-_PRIVATE-_28-Feb-2026-23-59-00.caf", "PRIVATE",
           utc(2026, 3, 1, 4, 59, 0), "Feb 28 2026 - 23:59:00");
    // Summer time: the offset is the one of that day, not of today.
    listed("daylight saving time", "msg-_TEL-_1-_04-Jul-2026-12-00-00.caf", "1",
           utc(2026, 7, 4, 16, 0, 0), "Jul 04 2026 - 12:00:00");

    skipped("five fields", "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07-_extra.caf");
    skipped("not a message", "rec-_TEL-_1-_15-Nov-2026-22-10-07.caf");
    skipped("two fields", "msg-_TEL-_1.caf");
    skipped("transcript alone", "msg-_TEL-_1-_15-Nov-2026-22-10-07.txt");
    skipped("upper-case suffix", "msg-_TEL-_1-_15-Nov-2026-22-10-07.CAF");
    skipped("not UTF-8", "msg-_TEL-_\xff-_15-Nov-2026-22-10-07.caf");

    listed("time not a date", "msg-_TEL-_1-_garbage.caf", "1");
    listed("suffix without a dot", "msg-_TEL-_1-_15-Nov-2026-22-10-07caf", "1");
    listed("longer suffix", "msg-_TEL-_1-_15-Nov-2026-22-10-07.xcaf", "1", example, shown);
    listed("31 February", "msg-_TEL-_1-_31-Feb-2026-10-00-00.caf", "1");
    listed("hour 25", "msg-_TEL-_1-_15-Nov-2026-25-00-00.caf", "1");
    listed("lower-case month", "msg-_TEL-_1-_15-nov-2026-22-10-07.caf", "1", example, shown);
    listed("one-digit day", "msg-_TEL-_1-_5-Nov-2026-09-07-03.caf", "1", utc(2026, 11, 5, 14, 7, 3),
           "Nov 05 2026 - 09:07:03");

    // Whatever the caller's side put in the address is data, never syntax.
    listed("spaces", "msg-_TEL-_Jane Doe-_15-Nov-2026-22-10-07.caf", "Jane Doe", example, shown);
    listed("quotes", "msg-_TEL-_\"O'Brien\"-_15-Nov-2026-22-10-07.caf", "\"O'Brien\"", example,
           shown);
    listed("percent signs", "msg-_TEL-_100%25 %s%n%@-_15-Nov-2026-22-10-07.caf", "100%25 %s%n%@",
           example, shown);
    listed("line break", "msg-_TEL-_line\nbreak-_15-Nov-2026-22-10-07.caf", "line\nbreak", example,
           shown);
    // The longest name the file system takes (255 bytes).
    const QByteArray longAddress = '+' + QByteArray(218, '7');
    listed("longest name", "msg-_TEL-_" + longAddress + "-_15-Nov-2026-22-10-07.caf",
           QString::fromLatin1(longAddress), example, shown);
}

void TestCatalogue::fileNames()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, listed);
    QFETCH(QString, type);
    QFETCH(QString, address);
    QFETCH(QDateTime, date);
    QFETCH(QString, dateString);

    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    bool created = false;
    const auto removal = createFile(messages.path(), name, &created);
    QVERIFY(created);

    const QList<Entry> entries = RecordingCatalogue(nullptr).entries(messages.path());
    QCOMPARE(entries.size(), listed ? 1 : 0);
    if (!listed)
        return;
    const Entry &entry = entries.first();
    QCOMPARE(entry.filename, QString::fromUtf8(name));
    QCOMPARE(entry.type, type);
    QCOMPARE(entry.address, address);
    QCOMPARE(entry.name, address);
    QVERIFY(!entry.duration);
    QCOMPARE(entry.date.has_value(), date.isValid());
    QCOMPARE(entry.dateString.has_value(), date.isValid());
    if (date.isValid()) {
        QCOMPARE(*entry.date, date);
        QCOMPARE(*entry.dateString, dateString);
    } else {
        QCOMPARE(entry.detailText(), "(null) - " + type);
    }
}

void TestCatalogue::transcripts_data()
{
    QTest::addColumn<QString>("recording");
    QTest::addColumn<QString>("present"); // made next to the recording, if not empty
    QTest::addColumn<bool>("asDirectory");
    QTest::addColumn<QString>("textFile"); // null: none

    const QString plain = QString::fromLatin1(kExample);
    const QString plainText = "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.txt";
    const QString dotted = "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.caf";
    const QString dottedText = "msg-_TEL-_a.txt.b-_15-Nov-2026-22-10-07.txt";

    QTest::newRow("none") << plain << QString() << false << QString();
    QTest::newRow("file") << plain << plainText << false << plainText;
    QTest::newRow("directory") << plain << plainText << true << QString();
    QTest::newRow("every .caf replaced") << dotted << dottedText << false << dottedText;
    QTest::newRow("only the last .caf replaced")
        << dotted << "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.txt" << false << QString();
}

void TestCatalogue::transcripts()
{
    QFETCH(QString, recording);
    QFETCH(QString, present);
    QFETCH(bool, asDirectory);
    QFETCH(QString, textFile);

    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    QVERIFY(TestSupport::writeFile(messages.filePath(recording)));
    if (!present.isEmpty()) {
        QVERIFY(asDirectory ? QDir(messages.path()).mkdir(present)
                            : TestSupport::writeFile(messages.filePath(present)));
    }

    const QList<Entry> entries = RecordingCatalogue(nullptr).entries(messages.path());
    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.first().textFile.has_value(), !textFile.isNull());
    if (!textFile.isNull())
        QCOMPARE(*entries.first().textFile, textFile);
}

void TestCatalogue::missingDirectoryIsEmpty()
{
    QTemporaryDir parent;
    QVERIFY(parent.isValid());
    const RecordingCatalogue catalogue(nullptr);
    QVERIFY(catalogue.entries(parent.filePath("Messages")).isEmpty());
    QVERIFY(catalogue.entries(QString()).isEmpty());

    const QString file = parent.filePath(QString::fromLatin1(kExample));
    QVERIFY(TestSupport::writeFile(file));
    QVERIFY(catalogue.entries(file).isEmpty());
}

void TestCatalogue::newestFirst()
{
    QTemporaryDir messages;
    QVERIFY(messages.isValid());
    // Newest first; neither the day, the month name nor the time alone orders them.
    const QStringList expected = {
        "msg-_TEL-_1-_03-Jan-2027-09-05-41.caf", "msg-_TEL-_2-_15-Nov-2026-22-10-08.caf",
        "msg-_TEL-_3-_15-Nov-2026-22-10-07.caf", "msg-_FT-_4-_15-Nov-2026-09-00-00.caf",
        "msg-_TEL-_5-_14-Nov-2026-23-00-00.caf", "msg-_TEL-_6-_01-Jul-2026-08-00-00.caf",
        "msg-_TEL-_7-_31-Dec-2025-23-59-59.caf",
    };
    QStringList shuffled = expected;
    std::reverse(shuffled.begin(), shuffled.end());
    std::rotate(shuffled.begin(), shuffled.begin() + 3, shuffled.end());
    for (const QString &name : shuffled)
        QVERIFY(TestSupport::writeFile(messages.filePath(name)));
    // Names that are not recordings must not disturb the others.
    bool created = false;
    const auto removal =
        createFile(messages.path(), "msg-_TEL-_\xfe\xff-_16-Nov-2026-10-00-00.caf", &created);
    QVERIFY(created);
    QVERIFY(TestSupport::writeFile(messages.filePath("notes.txt")));

    QStringList listed;
    for (const Entry &entry : RecordingCatalogue(nullptr).entries(messages.path()))
        listed << entry.filename;
    QCOMPARE(listed, expected);
}

void TestCatalogue::description()
{
    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(TestSupport::writeFile(root.filePath("jane.vcf"), kJaneCard));
    QVERIFY(QDir(root.path()).mkdir("Messages"));
    QVERIFY(TestSupport::writeFile(root.filePath("Messages/" + QString::fromLatin1(kExample))));

    const ContactStore contacts({ root.filePath("jane.vcf") }, "US");
    const QList<Entry> entries = RecordingCatalogue(&contacts).entries(root.filePath("Messages"));
    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.first().description(),
             R"({address = "+15551234567"; date = 2026-11-15T22:10:07-05:00; )"
             R"(dateString = "Nov 15 2026 - 22:10:07"; )"
             R"(filename = "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf"; )"
             R"(name = "Jane Doe"; type = Telephony})");
}

void TestCatalogue::compare_data()
{
    QTest::addColumn<QDateTime>("a"); // invalid: no date
    QTest::addColumn<QDateTime>("b");
    QTest::addColumn<ComparisonResult>("expected");

    const QDateTime call = local(2026, 11, 15, 22, 10, 7);
    const auto ascending = ComparisonResult::OrderedAscending;
    const auto descending = ComparisonResult::OrderedDescending;
    QTest::newRow("a later") << call.addSecs(1) << call << ascending;
    QTest::newRow("a earlier") << call.addSecs(-1) << call << descending;
    QTest::newRow("same second") << call << call << descending;
    QTest::newRow("a undated") << QDateTime() << call << descending;
    QTest::newRow("both undated") << QDateTime() << QDateTime() << descending;
    // A missing right-hand date counts as 2001-01-01 00:00:00 UTC.
    QTest::newRow("b undated, a recent") << call << QDateTime() << ascending;
    QTest::newRow("b undated, a in 1999")
        << local(1999, 6, 1, 12, 0, 0) << QDateTime() << descending;
    QTest::newRow("b undated, a just after 2001 UTC")
        << utc(2001, 1, 1, 0, 0, 1) << QDateTime() << ascending;
    QTest::newRow("b undated, a at 2001 UTC")
        << utc(2001, 1, 1, 0, 0, 0) << QDateTime() << descending;
    // Still 2000 in New York, but already 2001 in UTC.
    QTest::newRow("b undated, a on New Year's Eve 2000 local")
        << local(2000, 12, 31, 20, 0, 0) << QDateTime() << ascending;
}

void TestCatalogue::compare()
{
    QFETCH(QDateTime, a);
    QFETCH(QDateTime, b);
    QFETCH(ComparisonResult, expected);

    Entry left;
    Entry right;
    if (a.isValid())
        left.date = a;
    if (b.isValid())
        right.date = b;
    QCOMPARE(compareElements(left, right, nullptr), expected);
}

void TestCatalogue::sortKeepsEveryEntry()
{
    // Many entries, with undated ones and equal dates among them, in a scrambled order.
    QList<Entry> entries;
    QStringList all;
    const QDateTime base = local(2026, 1, 1, 8, 0, 0);
    for (int i = 0; i < 90; ++i) {
        Entry entry;
        entry.filename = QString::number(i);
        if (i % 4 != 0)
            entry.date = base.addSecs(qint64((i * 37) % 29) * 86400);
        entries << entry;
        all << entry.filename;
    }
    all.sort();
    RecordingCatalogue::sort(entries);

    QStringList names;
    QList<QDateTime> dates;
    for (const Entry &entry : entries) {
        names << entry.filename;
        if (entry.date)
            dates << *entry.date;
    }
    names.sort();
    QCOMPARE(names, all);
    QCOMPARE(dates.size(), 90 - 23);
    QVERIFY(std::is_sorted(dates.begin(), dates.end(), std::greater<QDateTime>()));
}

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
