#include "EvolutionServer.h"
#include "ListScreen.h"
#include "TestSupport.h"
#include "contacts/ContactStore.h"
#include "contacts/DesktopAddressBook.h"
#include "contacts/VCardReader.h"
#include "store/RecordingCatalogue.h"
#include "toolkit/Label.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QStringEncoder>
#include <QTest>
#include <QThreadPool>
#include <random>

namespace {

// One vCard around the given properties, with the line breaks the format asks for.
QByteArray card(const QByteArray &properties)
{
    return QByteArray("BEGIN:VCARD\n" + properties + "END:VCARD\n").replace("\n", "\r\n");
}

const QByteArray kJaneCard = card("VERSION:3.0\nFN:Jane Doe\nTEL;TYPE=CELL:(555) 123-4567\n");

// Each contact read as "name | number or handle | ...", with the name the list shows: the
// full name, else the display name.
QStringList described(const QList<Contact> &contacts)
{
    QStringList lines;
    for (const Contact &c : contacts)
        lines << (QStringList { c.fullName().isNull() ? c.displayName() : c.fullName() } +
                  c.phoneNumbers() + c.handles())
                     .join(" | ");
    return lines;
}

// What the list shows for the caller of each "address: ..." line, "address: name [monogram]",
// read through the recording catalogue as the list reads it.
QStringList shownFor(const ContactStore &store, const QStringList &lines)
{
    QTemporaryDir messages;
    QStringList shown;
    for (const QString &line : lines) {
        const QString address = line.section(u':', 0, 0);
        const QString file = TestSupport::recordingName("TEL", address, "15-Nov-2026-22-10-07");
        TestSupport::writeFile(messages.filePath(file));
        const auto entry = RecordingCatalogue(&store).entryForFile(messages.path(), file);
        const Contact *contact = store.contactForDestinationId(address);
        shown << QStringLiteral("%1: %2 [%3]")
                     .arg(address, entry ? entry->name : "?", contact ? contact->initials() : "");
    }
    return shown;
}

} // namespace

class TestContacts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // This program's own cache, where it keeps its copy of the desktop's address book.
        qputenv("XDG_CACHE_HOME", m_cache.path().toUtf8());
    }

    void samples_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("cards");
        QTest::addColumn<QStringList>("shown"); // for callers, as shownFor gives it
        const auto row = [](const char *file, int cards, const QStringList &shown) {
            QTest::newRow(file) << file << cards << shown;
        };

        // Numbers in every form, grouped and custom types, e-mail in another case, soft-broken
        // names, names in several languages, a card after a photo, a nameless card; callers who are
        // nobody.
        row("android-samsung-2.1.vcf", 3,
            { "+46701234567: Sören Öberg [SÖ]", "Soren.Oberg@example.se: Sören Öberg [SÖ]",
              "+15552013344: María José Núñez [MN]", "+15559090000: +15559090000 []" });
        row("iphone-icloud-3.0.vcf", 3,
            { "+33612345678: Amélie Fontaine [AF]", "+15553037788: Amélie Fontaine [AF]",
              "AMELIE@boulangerie-fontaine.fr: Amélie Fontaine [AF]",
              "amelie.fontaine: Amélie Fontaine [AF]",
              "+353871234567: Dr. Liam Patrick O'Connor, Jr. [LO]",
              "+15557654321: Northwind Dental; Downtown [ND]" });
        row("google-contacts-3.0.vcf", 4,
            { "+15554041212: Hannah Lee [HL]", "+15557770100: Acme Plumbing & Heating [AH]",
              "coach.d@gmail.com: Coach [C]", "+15554041213: +15554041213 []",
              "+445554041212: +445554041212 []", "hannah.lee@gmail.org: hannah.lee@gmail.org []" });
        row("nextcloud-4.0.vcf", 2,
            { "+442079460958: Oliver Hughes [OH]", "+442079460000: Oliver Hughes [OH]",
              "oliver@jabber.example.org: Oliver Hughes [OH]", "+819012345678: 山田 太郎 [太山]" });
    }

    void samples()
    {
        QFETCH(QString, file);
        QFETCH(int, cards);
        QFETCH(QStringList, shown);
        const ContactStore store({ QFINDTESTDATA("exports/" + file) }, "US");
        QCOMPARE(store.count(), cards);
        QCOMPARE(shownFor(store, shown), shown);
    }

    void readerForms_data()
    {
        QTest::addColumn<QByteArray>("vcf");
        QTest::addColumn<QStringList>("read"); // every contact, as described() gives it

        const QString jane = "Jane Doe";
        const QString janeWithNumber = "Jane Doe | +1 555 123 4567";
        const QString janeCard = "Jane Doe | (555) 123-4567"; // kJaneCard
        const auto row = [](const char *tag, const QByteArray &vcf, const QStringList &read) {
            QTest::newRow(tag) << vcf << read;
        };

        row("QP soft break, continuation indented",
            card("FN;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:J=C3=BCr=\n =67en\n"), { "Jürgen" });
        row("Windows-1252 bytes", card("FN;CHARSET=windows-1252:Zo\xeb \x93Z\x94\n"),
            { "Zoë “Z”" });
        row("2.1 bare QUOTED-PRINTABLE in Latin-1",
            card("FN;CHARSET=ISO-8859-1;QUOTED-PRINTABLE:Fran=E7ois\n"), { "François" });
        row("undeclared Windows-1252", card("FN:Ren\xe9\x65 Roy\n"), { "Renée Roy" });
        row("lower case, mixed line breaks and folds",
            "begin:vcard\r\nfn:Jane\r\n\t Doe\ntel;type=cell:+1 555\n  123 4567\rend:vcard\n",
            { janeWithNumber });
        row("byte-order marks", "\xEF\xBB\xBF" + kJaneCard + "\xEF\xBB\xBF" + kJaneCard,
            { janeCard, janeCard });
        row("UTF-16",
            QStringEncoder(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom)(kJaneCard),
            { janeCard });
        row("tel: URI",
            card("FN:Jane Doe\nTEL;VALUE=uri;TYPE=\"voice,cell\":tel:+1-555-123-4567;ext=1\n"),
            { "Jane Doe | +1-555-123-4567" });
        row("folded heads and unindented 2.1 base64",
            card("PHOTO;ENCODING=b;\n TYPE=JPEG:/9j/4AAQ\n AAAA\nLOGO;ENCODING=BASE64;GIF:R0lGOD\n"
                 "lhAQABAIAAAP\n\nFN:Jane Doe\nTEL;TYPE=CELL;\n TYPE=VOICE:1\n"),
            { "Jane Doe | 1" });
        row("structured name over nickname", card("N:Doe;Jane;;;\nNICKNAME:JD\n"), { jane });
        row("nickname over organisation", card("NICKNAME:JD,Janie\nORG:Acme\n"), { "JD" });
        row("organisation without a name", card("ORG:Acme Plumbing;Billing\n"),
            { "Acme Plumbing" });

        // Damage costs the property alone: the first name that can be read wins.
        row("values that cannot be read",
            card("FN;ENCODING=QUOTED-PRINTABLE:J=ZZane\nFN;CHARSET=x-unheard-of:Jane\n"
                 "FN;CHARSET=UTF-8:Jan\xe9\nN:Doe;Jane\n"),
            { jane });
        row("lines that are no property",
            card("FN:Jane Doe\nnot a property\nTEL;TYPE=\"cell:+1 555 000 0000\nTEL:+1 555 123 "
                 "4567\n"),
            { janeWithNumber });
        row("no END:VCARD at the end", kJaneCard + "BEGIN:VCARD\nFN:Cut Short\nTEL:7",
            { janeCard, "Cut Short | 7" });
        row("nested and stray BEGIN and END",
            "END:VCARD\nBEGIN:VCARD\nFN:A\nBEGIN:VCARD\nFN:B\nEND:VCARD\nEND:VCARD\nFN:outside\n"
            "BEGIN:VCALENDAR\nEND:VCALENDAR\n",
            { "A", "B" });
    }

    void readerForms()
    {
        QFETCH(QByteArray, vcf);
        QFETCH(QStringList, read);
        QCOMPARE(described(VCardReader::read(vcf).contacts), read);
    }

    void filesThatAreNotVCards_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<qint64>("size"); // grown to this size (sparse) when not 0
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *tag, const QByteArray &contents, qint64 size,
                            const char *reason) {
            QTest::newRow(tag) << contents << size << reason;
        };
        row("image", QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16), 0, "binary data");
        row("plain text", "Shopping list:\nTEL: call mum\n", 0, "no vCard in it");
        row("Latin-1 text", "Cr\xe8me br\xfbl\xe9\x65\n", 0, "not UTF-8");
        row("empty", "", 0, "empty");
        row("larger than 16 MiB", kJaneCard, 16 * 1024 * 1024 + 1, "larger than 16777216 bytes");
    }

    void filesThatAreNotVCards()
    {
        QFETCH(QByteArray, contents);
        QFETCH(qint64, size);
        QFETCH(QString, reason);
        QTemporaryDir contacts;
        QVERIFY(TestSupport::writeFile(contacts.filePath("good.vcf"), kJaneCard));
        const QString bad = contacts.filePath("bad.vcf");
        QVERIFY(TestSupport::writeFile(bad, contents));
        QVERIFY(size == 0 || QFile::resize(bad, size));

        const qint64 logStart = TestSupport::logSize();
        const ContactStore store({ contacts.path() }, "US");
        QCOMPARE(store.count(), 1);
        const QStringList naming = TestSupport::logLinesSince(logStart).filter(bad);
        QVERIFY2(naming.size() == 1 && naming.first().endsWith(": " + reason),
                 qPrintable(naming.join(u'\n')));
    }

    void followsFiles_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("before"); // commands run before the store starts; another card
        QTest::addColumn<QString>("change"); // stages split by '|', each once the last was read
        QTest::addColumn<int>("count");      // of contacts then, all Jane

        const auto row = [](const char *tag, const char *source, const char *before,
                            const char *change, int count) {
            QTest::newRow(tag) << source << before << change << count;
        };
        row("file edited in place", "contacts", "write contacts/jane.vcf",
            "write contacts/jane.vcf", 1);
        row("file removed", "contacts", "write contacts/jane.vcf", "rm contacts/jane.vcf", 0);
        row("saved through a temporary file", "contacts", "write contacts/jane.vcf",
            "write contacts/.jane.vcf.tmp;mv contacts/.jane.vcf.tmp contacts/jane.vcf", 1);
        row("new subfolder", "contacts", "", "mkdir -p contacts/a/b|write contacts/a/b/j.vcf", 1);
        row("source folder made later", "a/b/contacts", "",
            "mkdir -p a/b/contacts/c|write a/b/contacts/c/j.vcf", 1);
        row("source file made later", "later/jane.vcf", "", "mkdir later;write later/jane.vcf", 1);
        QString batch; // as a sync tool writes, one card a file
        for (int i = 0; i < 40; ++i)
            batch += QStringLiteral("write contacts/%1.vcf;").arg(i);
        row("a batch of 40 files", "contacts", "", qPrintable(batch), 40);
    }

    void followsFiles()
    {
        QFETCH(QString, source);
        QFETCH(QString, before);
        QFETCH(QString, change);
        QFETCH(int, count);
        QTemporaryDir root;
        QVERIFY(TestSupport::run(root.path(), "mkdir contacts;" + before, card("FN:Old\n")));
        ContactStore store({ root.filePath(source) }, "US");
        QSignalSpy reloaded(&store, &ContactStore::contactsReloaded);

        const QStringList stages = change.split(u'|');
        for (qsizetype i = 0; i < stages.size(); ++i)
            QVERIFY(TestSupport::run(root.path(), stages[i], kJaneCard) &&
                    (i + 1 == stages.size() || reloaded.wait()));

        QTRY_COMPARE(store.count(), count);
        QTRY_COMPARE(store.contactForDestinationId("+15551234567") != nullptr, count > 0);
        // Read again at least once, and changes that come together not one by one.
        QVERIFY2(!reloaded.isEmpty() && reloaded.count() < 10,
                 qPrintable(QString::number(reloaded.count())));
    }

    void destroyedWhileReloading()
    {
        QTemporaryDir contacts;
        QVERIFY(TestSupport::writeFile(contacts.filePath("many.vcf"),
                                       card("FN:Person\nTEL:+1 555 010 0000\n").repeated(4000)));
        auto store = std::make_unique<ContactStore>(QStringList { contacts.path() }, "US");
        QVERIFY(TestSupport::writeFile(contacts.filePath("jane.vcf"), kJaneCard));

        // Gone while its reload reads the files; the reload's end then finds nobody to tell.
        QThreadPool *pool = QThreadPool::globalInstance();
        QVERIFY(QTest::qWaitFor([&] { return pool->activeThreadCount() > 0; }));
        store.reset();
        pool->waitForDone();
        QCoreApplication::processEvents();
    }

    void hostileInput()
    {
        QList<QByteArray> samples;
        for (const QString &name : QDir(QFINDTESTDATA("exports")).entryList({ "*.vcf" })) {
            QFile file(QFINDTESTDATA("exports/" + name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            samples << file.readAll();
        }
        // Malformed lines, stray BEGIN and END, quoted-printable chains, parts of folds and heads.
        static const char kFragments[] =
            ":|;;;:|\"|FN;CHARSET=\"utf-8:x|=|TEL;ENCODING=QUOTED-PRINTABLE:=Z|N;CHARSET=bogus:a;b|"
            "PHOTO;ENCODING=b:| folded orphan|BEGIN:VCARD|END:VCARD|begin:vcard|END:VCALENDAR|"
            "\xff\xfe\0|FN;QUOTED-PRINTABLE:=|=C3=|==|=\r\n|\t|item1.|TEL;VALUE=uri:tel:|"
            "EMAIL:mailto:|IMPP:|\xEF\xBB\xBF|N:\\|\\;\\,\\|\r|\n|\r\n";
        const QList<QByteArray> fragments =
            QByteArray(kFragments, sizeof kFragments - 1).split('|');

        std::mt19937 random(20261122);
        const auto below = [&](qsizetype n) { return qsizetype(random() % quint32(n)); };
        for (int round = 0; round < 3000; ++round) {
            const QByteArray &whole = samples[below(samples.size())];
            // Cut short, then random bytes, fragments or a bit of the sample with bytes changed.
            QByteArray input = whole.left(below(whole.size() + 1));
            // Cards ending before the damage must come through unchanged.
            const qsizetype kept = input.count("END:VCARD\r\n") + input.count("END:VCARD\n");
            const int mode = round % 4;
            for (qsizetype n = mode == 1 ? below(4096) : mode == 2 ? below(200) : 0; n > 0; --n)
                input +=
                    mode == 1 ? QByteArray(1, char(random())) : fragments[below(fragments.size())];
            QByteArray tail = mode == 3 ? whole.mid(below(whole.size())) : QByteArray();
            for (qsizetype n = below(20); n > 0 && !tail.isEmpty(); --n)
                tail[below(tail.size())] = char(random());
            input += tail;
            const QStringList expected = described(VCardReader::read(whole).contacts).first(kept);
            const QStringList read = described(VCardReader::read(input).contacts);
            QVERIFY2(read.first(std::min(kept, read.size())) == expected,
                     qPrintable(QStringLiteral("round %1").arg(round)));
        }
    }

    // GNOME's and Phosh's address book: a real Evolution Data Server on the test's own bus, with
    // data of its own, and contacts written through its own client library.
    void withoutItOldCopyGoes()
    {
        // A desktop that ran it once and no longer does: the copy left from then names the caller
        // only until the program finds nothing on the bus, and the server is never started.
        const QString number = "+15557654321";
        QVERIFY(TestSupport::writeFile(DesktopAddressBook::copyPath(),
                                       "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Marta Lindqvist\r\nTEL:" +
                                           number.toUtf8() + "\r\nEND:VCARD\r\n"));
        ListScreen screen;
        screen.addRecording("TEL", number, "15-Nov-2026-22-10-07");
        screen.open();
        QCOMPARE(screen.cell(0)->textLabel()->text(), "Marta Lindqvist");
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(DesktopAddressBook::copyPath()), 10000);
        QVERIFY(reloadShows(screen, number));
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(
            DesktopAddressBook::kRegistryService));
    }

    void callersFoundAndFollowed()
    {
        EvolutionServer server;
        const QString problem = server.start();
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
        auto screen = std::make_unique<ListScreen>();
        const QString number = "+15550102233";
        screen->addRecording("TEL", number, "15-Nov-2026-22-10-07");
        screen->open();
        QCOMPARE(screen->cell(0)->textLabel()->text(), number);

        // Written as GNOME Contacts writes it: the number in its national form, a name with
        // quotes, a note with a line break.
        const QByteArray card =
            "BEGIN:VCARD\nVERSION:3.0\nFN:%1\nN:Natarajan;Priya;;;\n"
            "TEL;TYPE=CELL:(555) 010-2233\nNOTE:Landlord\\nback door\n%2END:VCARD";
        const QStringList uids =
            server.add({ QString(card).arg("Priya \"Pri\" Natarajan", "").toUtf8() });
        QCOMPARE(uids.size(), 1);
        // The address book follows in the background; a reload of the list after that (the
        // recording component's request, say) shows the name in the row.
        QVERIFY(reloadShows(*screen, "Priya \"Pri\" Natarajan"));

        // Renamed in the address book: the list follows.
        QVERIFY(server.modify(QString(card).arg("Priya N. Rao", "UID:" + uids[0] + "\n").toUtf8()));
        QVERIFY(reloadShows(*screen, "Priya N. Rao"));

        // The next start has the name in its first frame, before the server is asked; the copy
        // of other people's numbers is for this user's eyes only.
        screen = std::make_unique<ListScreen>();
        screen->addRecording("TEL", number, "15-Nov-2026-22-10-07");
        screen->open();
        QCOMPARE(screen->cell(0)->textLabel()->text(), "Priya N. Rao");
        QCOMPARE(QFile::permissions(DesktopAddressBook::copyPath()) & 0x0077, 0);

        // Deleted in the address book, the last of its contacts: the caller is a number again.
        QVERIFY(server.remove(uids[0]));
        QVERIFY(reloadShows(*screen, number));
    }

private:
    // Reloads the list, as the recording component's request would, until its row shows name.
    static bool reloadShows(const ListScreen &screen, const QString &name)
    {
        QElapsedTimer sinceReload;
        sinceReload.start();
        return QTest::qWaitFor(
            [&] {
                if (sinceReload.elapsed() > 250) {
                    screen.list()->reloadEntries(true);
                    sinceReload.restart();
                }
                return screen.cell(0)->textLabel()->text() == name;
            },
            30000);
    }

    QTemporaryDir m_cache;
};

QTEST_MAIN(TestContacts)
#include "tst_contacts.moc"
