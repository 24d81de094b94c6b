#include "TestSupport.h"
#include "contacts/ContactStore.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <unistd.h>

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

} // namespace

class TestCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void fileNames_data();
    void fileNames();
    void newestFirst();
    void description();
    void compare_data();
    void compare();
};

void TestCatalogue::fileNames_data()
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
                        const QString &detail = "(null) - Telephony", const QDateTime &date = {},
                        const QString &made = {}, const QString &textFile = {}) {
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
    row("suffix without a dot", "msg-_TEL-_1-_15-Nov-2026-22-10-07caf", "1", "(null) - Telephony",
        {}, {}, "msg-_TEL-_1-_15-Nov-2026-22-10-07caf");

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
    // A transcript: the recording's name with every ".caf" made ".txt", a file and no directory.
    const QByteArray twoCafs = "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.caf";
    const QString text = "msg-_TEL-_a.txt.b-_15-Nov-2026-22-10-07.txt";
    row("transcript", twoCafs, "a.caf.b", shown, example, text, text);
    row("transcript a directory", twoCafs, "a.caf.b", shown, example, text + "/");
    row("transcript with the last .caf replaced alone", twoCafs, "a.caf.b", shown, example,
        "msg-_TEL-_a.caf.b-_15-Nov-2026-22-10-07.txt");
}

void TestCatalogue::fileNames()
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
}

void TestCatalogue::newestFirst()
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
        for (const Entry &entry : RecordingCatalogue(nullptr, locale).entries(messages.path())) {
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

void TestCatalogue::description()
{
    // An entry is named by the contact's full name over its nickname; its line in the log keeps
    // an address with quotes and a line break on one line.
    QTemporaryDir root;
    QVERIFY(TestSupport::writeFile(root.filePath("jane.vcf"),
                                   "BEGIN:VCARD\r\nVERSION:3.0\r\nNICKNAME:JD\r\nFN:Jane Doe\r\n"
                                   "TEL;TYPE=CELL:(555) 123-4567\r\nEND:VCARD\r\n"));
    QVERIFY(QDir(root.path()).mkdir("Messages"));
    QVERIFY(TestSupport::writeFile(
        root.filePath("Messages/msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf")));
    QVERIFY(TestSupport::writeFile(root.filePath("Messages/msg-_TEL-_a \"b\"\nc-_garbage.caf")));

    const ContactStore contacts({ root.filePath("jane.vcf") }, "US");
    const QList<Entry> entries = RecordingCatalogue(&contacts).entries(root.filePath("Messages"));
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.first().name, "Jane Doe");
    const QString escaped = "{address = \"a \\\"b\\\"\\nc\"; ";
    QVERIFY2(entries.last().description().startsWith(escaped),
             qPrintable(entries.last().description()));
}

void TestCatalogue::compare_data()
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
    QTest::newRow("b undated, a 2000 locally") << at("2000-12-31T20:00:00") << QDateTime() << first;
}

void TestCatalogue::compare()
{
    QFETCH(QDateTime, a);
    QFETCH(QDateTime, b);
    QFETCH(ComparisonResult, expected);
    Entry left, right;
    left.date = a.isValid() ? std::optional(a) : std::nullopt;
    right.date = b.isValid() ? std::optional(b) : std::nullopt;
    QCOMPARE(compareElements(left, right, nullptr), expected);
}

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
