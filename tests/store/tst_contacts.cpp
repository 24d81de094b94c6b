#include "TestSupport.h"
#include "store/ContactStore.h"
#include "store/Entry.h"
#include "store/RecordingCatalogue.h"
#include "store/VCardReader.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <algorithm>
#include <cstdio>
#include <random>

namespace {

// One vCard around the given properties, with the line breaks the format asks for.
QByteArray card(const QByteArray &properties)
{
    return QByteArray("BEGIN:VCARD\n" + properties + "END:VCARD\n").replace("\n", "\r\n");
}

const QByteArray kJaneCard = card("VERSION:3.0\nFN:Jane Doe\nTEL;TYPE=CELL:(555) 123-4567\n");
const QString kJane = "+15551234567";

// The name the list shows for a contact: the full name, else the display name.
QString shownName(const Contact &contact)
{
    return contact.fullName().isNull() ? contact.displayName() : contact.fullName();
}

QStringList shownNames(const QList<Contact> &contacts)
{
    QStringList names;
    for (const Contact &contact : contacts)
        names << shownName(contact);
    return names;
}

QByteArray sample(const QString &name)
{
    QFile file(QFINDTESTDATA("contacts/" + name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The name the list shows for a caller, read through the recording catalogue as the list does.
QString listedName(const ContactStore &store, const QString &address)
{
    QTemporaryDir messages;
    TestSupport::writeFile(
        messages.filePath(TestSupport::recordingName("TEL", address, "15-Nov-2026-22-10-07")));
    const QList<Entry> entries = RecordingCatalogue(&store).entries(messages.path());
    return entries.size() == 1 ? entries.first().name : QString();
}

enum class Change
{
    Add,
    EditInPlace,
    Remove,
    ReplaceByRename,
    NewSubfolder,
    SourceCreatedLater,
    FileSourceCreatedLater,
};

} // namespace

class TestContacts : public QObject
{
    Q_OBJECT
private slots:
    void samples_data();
    void samples();
    void readerForms_data();
    void readerForms();
    void contactMatching_data();
    void contactMatching();
    void filesThatAreNotVCards_data();
    void filesThatAreNotVCards();
    void followsFiles_data();
    void followsFiles();
    void burstIsCoalesced();
    void destroyedWhileReloading();
    void hostileInput();
};

void TestContacts::samples_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("name"); // null: no contact; empty: a contact without a name
    QTest::addColumn<QString>("initials");

    const auto row = [](const char *tag, const char *file, const QString &address,
                        const QString &name, const QString &initials) {
        QTest::newRow(tag) << file << address << name << initials;
    };
    const char *android = "android-samsung-2.1.vcf";
    row("android: QP name", android, "+46701234567", "Sören Öberg", "SÖ");
    row("android: home", android, "+46812345678", "Sören Öberg", "SÖ");
    row("android: work, preferred", android, "+46855501234", "Sören Öberg", "SÖ");
    row("android: e-mail", android, "Soren.Oberg@example.se", "Sören Öberg", "SÖ");
    row("android: soft break in the name", android, "+15552013344", "María José Núñez", "MN");
    row("android: custom type", android, "+15552017001", "María José Núñez", "MN");
    row("android: nameless", android, "+15559090000", "", "");
    const char *iphone = "iphone-icloud-3.0.vcf";
    row("iphone: cell", iphone, "+33612345678", "Amélie Fontaine", "AF");
    row("iphone: grouped", iphone, "+15553037788", "Amélie Fontaine", "AF");
    row("iphone: grouped e-mail", iphone, "AMELIE@boulangerie-fontaine.fr", "Amélie Fontaine",
        "AF");
    row("iphone: messaging", iphone, "amelie.fontaine", "Amélie Fontaine", "AF");
    row("iphone: escaped comma", iphone, "+15556102020", "Dr. Liam Patrick O'Connor, Jr.", "LO");
    row("iphone: after a photo", iphone, "+353871234567", "Dr. Liam Patrick O'Connor, Jr.", "LO");
    row("iphone: company", iphone, "+15557654321", "Northwind Dental; Downtown", "ND");
    const char *google = "google-contacts-3.0.vcf";
    row("google: cell", google, "+15554041212", "Hannah Lee", "HL");
    row("google: second e-mail", google, "H.Lee@contoso.example", "Hannah Lee", "HL");
    row("google: organisation only", google, "+15557770100", "Acme Plumbing & Heating", "AH");
    row("google: name over nickname", google, "+15558182323", "Joseph Miller", "JM");
    row("google: nickname only", google, "coach.d@gmail.com", "Coach", "C");
    const char *nextcloud = "nextcloud-4.0.vcf";
    row("nextcloud: tel URI", nextcloud, "+442079460958", "Oliver Hughes", "OH");
    row("nextcloud: extension", nextcloud, "+442079460000", "Oliver Hughes", "OH");
    row("nextcloud: xmpp", nextcloud, "oliver@jabber.example.org", "Oliver Hughes", "OH");
    row("nextcloud: first of several names", nextcloud, "+819012345678", "山田 太郎", "太山");
    row("unknown", nextcloud, "+15559999999", QString(), QString());
}

void TestContacts::samples()
{
    QFETCH(QString, file);
    QFETCH(QString, address);
    QFETCH(QString, name);
    QFETCH(QString, initials);

    const ContactStore store({ QFINDTESTDATA("contacts/" + file) }, "US");
    const QHash<QString, int> cards = { { "android-samsung-2.1.vcf", 3 },
                                        { "iphone-icloud-3.0.vcf", 3 },
                                        { "google-contacts-3.0.vcf", 4 },
                                        { "nextcloud-4.0.vcf", 2 } };
    QCOMPARE(store.count(), cards.value(file));
    const Contact *contact = store.contactForDestinationId(address);
    QCOMPARE(contact != nullptr, !name.isNull());
    if (!contact)
        return;
    QCOMPARE(shownName(*contact), name);
    QCOMPARE(contact->initials(), initials);
    QCOMPARE(listedName(store, address), name.isEmpty() ? address : name);
}

void TestContacts::readerForms_data()
{
    QTest::addColumn<QByteArray>("vcf");
    QTest::addColumn<QStringList>("names");     // of every contact read, in order
    QTest::addColumn<QStringList>("addresses"); // numbers and handles of every contact

    const QStringList jane = { "Jane Doe" };
    const QStringList number = { "+1 555 123 4567" };
    const auto row = [](const char *tag, const QByteArray &vcf, const QStringList &names,
                        const QStringList &addresses) {
        QTest::newRow(tag) << vcf << names << addresses;
    };

    row("2.1 bare QUOTED-PRINTABLE",
        card("VERSION:2.1\nN;CHARSET=UTF-8;QUOTED-PRINTABLE:M=C3=BCller;J=C3=BCrgen\n"),
        { "Jürgen Müller" }, {});
    row("QP soft break, continuation indented",
        card("VERSION:2.1\nFN;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:J=C3=BCr=\n =67en\n"),
        { "Jürgen" }, {});
    row("ISO-8859-1 bytes", card("VERSION:2.1\nFN;CHARSET=ISO-8859-1:J\xfcrgen M\xfcller\n"),
        { "Jürgen Müller" }, {});
    row("Windows-1252 bytes", card("VERSION:2.1\nFN;CHARSET=windows-1252:Zo\xeb \x93Z\x94\n"),
        { "Zoë “Z”" }, {});
    row("QP in Latin-1",
        card("VERSION:2.1\nFN;CHARSET=ISO-8859-1;ENCODING=QUOTED-PRINTABLE:"
             "Fran=E7ois\n"),
        { "François" }, {});
    row("undeclared Windows-1252", card("VERSION:3.0\nFN:Ren\xe9\x65 Roy\n"), { "Renée Roy" }, {});
    row("lower-case names",
        QByteArray("begin:vcard\nversion:3.0\nfn:Jane Doe\ntel;type=cell:+1 555 123 4567\n"
                   "end:vcard\n"),
        jane, number);
    row("mixed line breaks",
        QByteArray("BEGIN:VCARD\r\nFN:Jane\r\n  Doe\nTEL:+1 555 123 4567\rEND:VCARD\n"), jane,
        number);
    row("byte-order marks", "\xEF\xBB\xBF" + kJaneCard + "\xEF\xBB\xBF" + kJaneCard,
        { "Jane Doe", "Jane Doe" }, { "(555) 123-4567", "(555) 123-4567" });
    row("UTF-16",
        QByteArray("\xFF\xFE") +
            QByteArray(reinterpret_cast<const char *>(QString::fromUtf8(kJaneCard).utf16()),
                       kJaneCard.size() * 2),
        jane, { "(555) 123-4567" });
    row("TYPE forms",
        card("FN:Jane Doe\nTEL;CELL:1\nTEL;TYPE=CELL,VOICE:2\nTEL;TYPE=cell;TYPE=pref:3\n"
             "TEL;VALUE=uri;TYPE=\"voice,cell\":tel:+1-555-123-4567\nitem1.EMAIL;type=INTERNET:"
             "j@d.org\nitem1.X-ABLabel:_$!<Home>!$_\n"),
        jane, { "1", "2", "3", "+1-555-123-4567", "j@d.org" });
    row("folded photo head and unindented 2.1 base64",
        card("VERSION:2.1\nPHOTO;ENCODING=b;\n TYPE=JPEG:/9j/4AAQ\n AAAA\nLOGO;ENCODING=BASE64;"
             "GIF:R0lGOD\nlhAQABAIAAAP\n\nFN:Jane Doe\n"),
        jane, {});
    row("a line without a colon is dropped alone",
        card("FN:Jane Doe\nthis is not a property\nTEL:+1 555 123 4567\n"), jane, number);
    row("broken QP escape", card("FN;ENCODING=QUOTED-PRINTABLE:J=ZZane\nN:Doe;Jane\n"), jane, {});
    row("unknown charset", card("FN;CHARSET=x-unheard-of:Jane\nN:Doe;Jane\n"), jane, {});
    row("bad bytes for the charset", card("FN;CHARSET=UTF-8:Jan\xe9\nN:Doe;Jane\n"), jane, {});
    row("unterminated quote",
        card("FN:Jane Doe\nTEL;TYPE=\"cell:+1 555 000 0000\nTEL:+1 555 123 4567\n"), jane, number);
    row("no END:VCARD at the end", kJaneCard + "BEGIN:VCARD\nFN:Cut Short\nTEL:7",
        { "Jane Doe", "Cut Short" }, { "(555) 123-4567", "7" });
    row("nested and stray BEGIN and END",
        QByteArray("END:VCARD\nBEGIN:VCARD\nFN:A\nBEGIN:VCARD\nFN:B\nEND:VCARD\nEND:VCARD\n"
                   "FN:outside\nBEGIN:VCALENDAR\nEND:VCALENDAR\n"),
        { "A", "B" }, {});
}

void TestContacts::readerForms()
{
    QFETCH(QByteArray, vcf);
    QFETCH(QStringList, names);
    QFETCH(QStringList, addresses);

    const VCardReader::Result result = VCardReader::read(vcf);
    QCOMPARE(result.error, QString());
    QCOMPARE(shownNames(result.contacts), names);
    QStringList read;
    for (const Contact &contact : result.contacts)
        read << contact.phoneNumbers() << contact.handles();
    QCOMPARE(read, addresses);
}

void TestContacts::contactMatching_data()
{
    QTest::addColumn<QByteArray>("vcard");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("name"); // empty: no contact

    const auto jane = [](const char *tel) {
        return card("VERSION:3.0\nFN:Jane Doe\n" + QByteArray(tel) + "\n");
    };

    QTest::newRow("national with punctuation") << jane("TEL:(555) 123-4567") << kJane << "Jane Doe";
    QTest::newRow("national with dots") << jane("TEL:555.123.4567") << kJane << "Jane Doe";
    QTest::newRow("international with punctuation")
        << jane("TEL;TYPE=HOME:+1 555-123-4567") << kJane << "Jane Doe";
    QTest::newRow("United Kingdom") << jane("TEL:+44 20 7946 0958") << "+442079460958"
                                    << "Jane Doe";
    QTest::newRow("another number") << jane("TEL:(555) 123-4568") << kJane << QString();
    QTest::newRow("same digits, another country")
        << jane("TEL:+44 555 123 4567") << kJane << QString();
    QTest::newRow("e-mail in another case")
        << jane("EMAIL;TYPE=INTERNET:Jane.Doe@Example.com") << "jane.doe@example.COM"
        << "Jane Doe";
    QTest::newRow("another e-mail")
        << jane("EMAIL:jane.doe@example.com") << "john.doe@example.com" << QString();
    QTest::newRow("vCard 4 tel URI")
        << card("VERSION:4.0\nFN:Jane Doe\nTEL;VALUE=uri:tel:+1-555-765-4321\n") << "+15557654321"
        << "Jane Doe";
    QTest::newRow("full name over nickname and organisation")
        << card("VERSION:3.0\nNICKNAME:JD\nORG:Acme\nFN:Jane Doe\nTEL:555-123-4567\n") << kJane
        << "Jane Doe";
    QTest::newRow("structured name over nickname")
        << card("VERSION:3.0\nN:Doe;Jane;;;\nNICKNAME:JD\nTEL:555-123-4567\n") << kJane
        << "Jane Doe";
    QTest::newRow("nickname without a name")
        << card("VERSION:3.0\nNICKNAME:JD,Janie\nTEL:555-123-4567\n") << kJane << "JD";
    QTest::newRow("organisation without a name")
        << card("VERSION:3.0\nORG:Acme Plumbing;Billing\nTEL:555-123-4567\n") << kJane
        << "Acme Plumbing";
    QTest::newRow("folded lines") << card("VERSION:3.0\nFN:Jane\n  Doe\nTEL:+1 555\n\t123 4567\n")
                                  << kJane << "Jane Doe";
}

void TestContacts::contactMatching()
{
    QFETCH(QByteArray, vcard);
    QFETCH(QString, address);
    QFETCH(QString, name);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(QDir(root.path()).mkpath("contacts/work"));
    QVERIFY(TestSupport::writeFile(root.filePath("contacts/work/card.vcf"), vcard));

    const ContactStore contacts({ root.filePath("contacts") }, "US");
    QCOMPARE(contacts.count(), 1);
    QCOMPARE(contacts.contactForDestinationId(address) != nullptr, !name.isEmpty());
    QCOMPARE(listedName(contacts, address), name.isEmpty() ? address : name);
}

void TestContacts::filesThatAreNotVCards_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<qint64>("size"); // grown to this size (sparse) when not 0
    QTest::addColumn<QString>("reason");

    static const char png[] = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x10";
    QTest::newRow("image") << QByteArray(png, sizeof png - 1) << qint64(0) << "binary data";
    QTest::newRow("plain text") << QByteArray("Shopping list:\nmilk\nTEL: call mum\n") << qint64(0)
                                << "no vCard in it";
    QTest::newRow("Latin-1 text") << QByteArray("Cr\xe8me br\xfbl\xe9\x65\n") << qint64(0)
                                  << "not UTF-8";
    QTest::newRow("empty") << QByteArray() << qint64(0) << "empty";
    QTest::newRow("larger than 16 MiB")
        << kJaneCard << qint64(16 * 1024 * 1024 + 1) << "larger than 16777216 bytes";
}

void TestContacts::filesThatAreNotVCards()
{
    QFETCH(QByteArray, contents);
    QFETCH(qint64, size);
    QFETCH(QString, reason);

    QTemporaryDir contacts;
    QVERIFY(contacts.isValid());
    QVERIFY(TestSupport::writeFile(contacts.filePath("good.vcf"), kJaneCard));
    const QString bad = contacts.filePath("bad.vcf");
    QVERIFY(TestSupport::writeFile(bad, contents));
    if (size > 0)
        QVERIFY(QFile::resize(bad, size));

    const qint64 logStart = TestSupport::logSize();
    const ContactStore store({ contacts.path() }, "US");
    QCOMPARE(store.count(), 1);
    QVERIFY(store.contactForDestinationId(kJane));

    QStringList naming = TestSupport::logLinesSince(logStart);
    naming.removeIf([&](const QString &line) { return !line.contains(bad); });
    QCOMPARE(naming.size(), 1);
    QVERIFY2(naming.first().endsWith(": " + reason), qPrintable(naming.first()));
}

void TestContacts::followsFiles_data()
{
    QTest::addColumn<Change>("change");
    QTest::newRow("file added") << Change::Add;
    QTest::newRow("file edited in place") << Change::EditInPlace;
    QTest::newRow("file removed") << Change::Remove;
    QTest::newRow("saved through a temporary file") << Change::ReplaceByRename;
    QTest::newRow("new subfolder") << Change::NewSubfolder;
    QTest::newRow("source folder made later") << Change::SourceCreatedLater;
    QTest::newRow("source file made later") << Change::FileSourceCreatedLater;
}

void TestContacts::followsFiles()
{
    QFETCH(Change, change);

    QTemporaryDir root;
    QVERIFY(root.isValid());
    const QDir dir(root.path());
    QString source = root.filePath("contacts");
    QVERIFY(dir.mkdir("contacts"));
    if (change == Change::EditInPlace || change == Change::Remove ||
        change == Change::ReplaceByRename)
        QVERIFY(TestSupport::writeFile(root.filePath("contacts/jane.vcf"), card("FN:Old\n")));
    if (change == Change::SourceCreatedLater)
        source = root.filePath("later/still/contacts");
    if (change == Change::FileSourceCreatedLater)
        source = root.filePath("later/jane.vcf");

    ContactStore store({ source }, "US");
    QSignalSpy reloaded(&store, &ContactStore::contactsReloaded);
    const QByteArray jane = card("FN:Jane Doe\nTEL:+1 555 123 4567\n");
    switch (change) {
    case Change::Add:
    case Change::EditInPlace:
        QVERIFY(TestSupport::writeFile(root.filePath("contacts/jane.vcf"), jane));
        break;
    case Change::Remove:
        QVERIFY(QFile::remove(root.filePath("contacts/jane.vcf")));
        break;
    case Change::ReplaceByRename:
        QVERIFY(TestSupport::writeFile(root.filePath("contacts/.jane.vcf.tmp"), jane));
        QVERIFY(std::rename(QFile::encodeName(root.filePath("contacts/.jane.vcf.tmp")),
                            QFile::encodeName(root.filePath("contacts/jane.vcf"))) == 0);
        break;
    case Change::NewSubfolder:
        QVERIFY(dir.mkpath("contacts/work/2026"));
        QVERIFY(TestSupport::writeFile(root.filePath("contacts/work/2026/jane.vcf"), jane));
        break;
    case Change::SourceCreatedLater:
        QVERIFY(dir.mkpath("later/still/contacts/deep"));
        QVERIFY(TestSupport::writeFile(root.filePath("later/still/contacts/deep/j.vcf"), jane));
        break;
    case Change::FileSourceCreatedLater:
        QVERIFY(dir.mkpath("later"));
        QVERIFY(TestSupport::writeFile(source, jane));
        break;
    }

    if (change == Change::Remove) {
        QTRY_COMPARE(store.count(), 0);
        return;
    }
    QTRY_VERIFY(store.contactForDestinationId(kJane));
    QCOMPARE(store.contactForDestinationId(kJane)->fullName(), "Jane Doe");
    QCOMPARE(store.count(), 1);
    QVERIFY(!reloaded.isEmpty());
}

void TestContacts::burstIsCoalesced()
{
    QTemporaryDir contacts;
    QVERIFY(contacts.isValid());
    ContactStore store({ contacts.path() }, "US");
    QSignalSpy reloaded(&store, &ContactStore::contactsReloaded);
    // A sync tool writing a batch, one card per file.
    constexpr int kFiles = 40;
    for (int i = 0; i < kFiles; ++i) {
        QVERIFY(TestSupport::writeFile(contacts.filePath(QString::number(i) + ".vcf"),
                                       card("FN:Person " + QByteArray::number(i) + "\n")));
    }
    QTRY_COMPARE(store.count(), kFiles);
    QVERIFY2(reloaded.count() < kFiles / 4, qPrintable(QString::number(reloaded.count())));
}

void TestContacts::destroyedWhileReloading()
{
    QTemporaryDir contacts;
    QVERIFY(contacts.isValid());
    QByteArray many;
    for (int i = 0; i < 4000; ++i)
        many += card("FN:Person " + QByteArray::number(i) + "\nTEL:+1 555 01" +
                     QByteArray::number(10000 + i) + "\n");
    QVERIFY(TestSupport::writeFile(contacts.filePath("many.vcf"), many));
    auto store = std::make_unique<ContactStore>(QStringList { contacts.path() }, "US");
    QVERIFY(TestSupport::writeFile(contacts.filePath("jane.vcf"), kJaneCard));

    // Gone while its reload reads the files; the reload's end then finds nobody to tell.
    QThreadPool *pool = QThreadPool::globalInstance();
    QVERIFY(QTest::qWaitFor([&] { return pool->activeThreadCount() > 0; }));
    store.reset();
    pool->waitForDone();
    QCoreApplication::processEvents();
}

void TestContacts::hostileInput()
{
    const QList<QByteArray> samples = { sample("android-samsung-2.1.vcf"),
                                        sample("iphone-icloud-3.0.vcf"),
                                        sample("google-contacts-3.0.vcf"),
                                        sample("nextcloud-4.0.vcf") };
    const QList<QByteArray> fragments = { ":",
                                          ";;;:",
                                          "\"",
                                          "FN;CHARSET=\"utf-8:x",
                                          "=",
                                          "TEL;ENCODING=QUOTED-PRINTABLE:=Z",
                                          "N;CHARSET=bogus:a;b",
                                          "PHOTO;ENCODING=b:",
                                          " folded orphan",
                                          "BEGIN:VCARD",
                                          "END:VCARD",
                                          "begin:vcard",
                                          "END:VCALENDAR",
                                          "\xff\xfe\x00",
                                          "FN;QUOTED-PRINTABLE:=",
                                          "=C3=",
                                          "==",
                                          "=\r\n",
                                          "\t",
                                          "item1.",
                                          "TEL;VALUE=uri:tel:",
                                          "EMAIL:mailto:",
                                          "IMPP:",
                                          "\xEF\xBB\xBF",
                                          "N:\\",
                                          "\\;\\,\\",
                                          "\r",
                                          "\n",
                                          "\r\n" };

    std::mt19937 random(20261122);
    const auto below = [&](qsizetype n) { return qsizetype(random() % quint32(n)); };
    for (int round = 0; round < 3000; ++round) {
        const QByteArray &whole = samples[below(samples.size())];
        // Cards ending before the damage must come through unchanged.
        const qsizetype cut = below(whole.size() + 1);
        const QByteArray intact = whole.left(cut);
        const qsizetype kept = intact.count("END:VCARD\r\n") + intact.count("END:VCARD\n");
        QByteArray input = intact;
        switch (round % 4) {
        case 0: // truncated
            break;
        case 1: // random binary
            for (qsizetype n = below(4096); n > 0; --n)
                input += char(random());
            break;
        case 2: // malformed lines, stray BEGIN and END, QP chains
            for (qsizetype n = below(200); n > 0; --n)
                input += fragments[below(fragments.size())];
            break;
        case 3: // a bit of the sample again with bytes changed
            QByteArray tail = whole.mid(below(whole.size()));
            for (qsizetype n = below(20); n > 0 && !tail.isEmpty(); --n)
                tail[below(tail.size())] = char(random());
            input += tail;
            break;
        }
        const QStringList expected = shownNames(VCardReader::read(whole).contacts).first(kept);
        const QStringList read = shownNames(VCardReader::read(input).contacts);
        QVERIFY2(read.first(std::min(kept, read.size())) == expected,
                 qPrintable(QStringLiteral("round %1").arg(round)));
    }

    // Lines of several megabytes, in a value that is read and in one that is skipped.
    const QByteArray huge(6 * 1024 * 1024, 'A');
    for (const QByteArray &head : { QByteArray("FN:"), QByteArray("PHOTO;ENCODING=b:"),
                                    QByteArray("FN;QUOTED-PRINTABLE:"), QByteArray() }) {
        const auto result = VCardReader::read(kJaneCard + "BEGIN:VCARD\r\n" + head + huge +
                                              "\r\nTEL:1\r\nEND:VCARD\r\n" + kJaneCard);
        QCOMPARE(result.contacts.size(), 3);
        QCOMPARE(shownName(result.contacts.last()), "Jane Doe");
    }
}

QTEST_GUILESS_MAIN(TestContacts)
#include "tst_contacts.moc"
