#include "EvolutionServer.h"
#include "ListScreen.h"
#include "TestSupport.h"
#include "contacts/DesktopAddressBook.h"
#include "toolkit/Label.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QTest>

// GNOME's and Phosh's address book: a real Evolution Data Server on the test's own bus, with
// data of its own, and contacts written through its own client library.
class TestDesktopContacts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // This program's own cache, where it keeps its copy of the address book.
        qputenv("XDG_CACHE_HOME", m_cache.path().toUtf8());
    }

    void withoutItOldCopyGoes()
    {
        // A desktop that ran it once and no longer does: the copy left from then names the caller
        // only until the program finds nothing on the bus, and the server is never started.
        const QString number = "+15557654321";
        QVERIFY(QDir().mkpath(QFileInfo(DesktopAddressBook::copyPath()).path()));
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

QTEST_MAIN(TestDesktopContacts)
#include "tst_desktopcontacts.moc"
