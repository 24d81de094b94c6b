#include "ListScreen.h"
#include "TestSupport.h"
#include "platform/Label.h"
#include "store/ContactStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#undef signals // GLib names a structure field so
#include <libebook/libebook.h>

// GNOME's and Phosh's address book: a real Evolution Data Server on the test's own bus, with
// data of its own, and contacts written through its own client library as GNOME Contacts
// writes them.
class TestDesktopContacts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void withoutItOnlyFilesServe();
    void callersFoundAndFollowed();

private:
    bool startServer();
    EContact *save(EContact *contact, bool added);

    QTemporaryDir m_home;
    std::vector<std::unique_ptr<QProcess>> m_server;
    EBookClient *m_book { nullptr };
};

void TestDesktopContacts::initTestCase()
{
    for (const char *folder : { "config", "data", "cache" })
        QVERIFY(QDir().mkpath(m_home.filePath(folder)));
}

void TestDesktopContacts::cleanupTestCase()
{
    if (m_book)
        g_object_unref(m_book);
    for (auto &process : m_server) {
        process->terminate();
        if (!process->waitForFinished(3000))
            process->kill();
        process->waitForFinished();
    }
}

bool TestDesktopContacts::startServer()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CONFIG_HOME", m_home.filePath("config"));
    environment.insert("XDG_DATA_HOME", m_home.filePath("data"));
    environment.insert("XDG_CACHE_HOME", m_home.filePath("cache"));
    environment.insert("GSETTINGS_BACKEND", "memory");
    // The registry first: the factory would otherwise have the bus start one of its own,
    // with the user's real folders.
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    for (const auto &[program, name] :
         { std::pair { "/usr/libexec/evolution-source-registry",
                       "org.gnome.evolution.dataserver.Sources5" },
           std::pair { "/usr/libexec/evolution-addressbook-factory",
                       "org.gnome.evolution.dataserver.AddressBook10" } }) {
        auto &process = m_server.emplace_back(std::make_unique<QProcess>());
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(program, {});
        if (!process->waitForStarted() ||
            !QTest::qWaitFor(
                [bus, name = QString(name)] { return bus->isServiceRegistered(name).value(); },
                20000))
            return false;
    }
    return true;
}

// Adds or changes a contact in the server's own address book; answers it as stored.
EContact *TestDesktopContacts::save(EContact *contact, bool added)
{
    GError *error = nullptr;
    if (!m_book) {
        ESourceRegistry *registry = e_source_registry_new_sync(nullptr, &error);
        if (!registry)
            qFatal("registry: %s", error->message);
        ESource *source = e_source_registry_ref_builtin_address_book(registry);
        m_book = E_BOOK_CLIENT(e_book_client_connect_sync(source, 30, nullptr, &error));
        g_object_unref(source);
        g_object_unref(registry);
        if (!m_book)
            qFatal("address book: %s", error->message);
    }
    gchar *uid = nullptr;
    const bool ok = added ? e_book_client_add_contact_sync(
                                m_book, contact, E_BOOK_OPERATION_FLAG_NONE, &uid, nullptr, &error)
                          : e_book_client_modify_contact_sync(
                                m_book, contact, E_BOOK_OPERATION_FLAG_NONE, nullptr, &error);
    if (!ok)
        qFatal("saving a contact: %s", error->message);
    if (uid) {
        e_contact_set(contact, E_CONTACT_UID, uid);
        g_free(uid);
    }
    return contact;
}

void TestDesktopContacts::withoutItOnlyFilesServe()
{
    // Nothing runs it on this bus yet: the store is ready at once, from its files alone, and
    // the server is not started on its behalf.
    const QString file = m_home.filePath("contacts.vcf");
    QVERIFY(TestSupport::writeFile(file, "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Daniel Reyes\r\n"
                                         "TEL:+15551234567\r\nEND:VCARD\r\n"));
    ContactStore store({ file });
    QCOMPARE(store.count(), 1);
    QCOMPARE(QDBusConnection::sessionBus()
                 .interface()
                 ->isServiceRegistered("org.gnome.evolution.dataserver.Sources5")
                 .value(),
             false);
}

void TestDesktopContacts::callersFoundAndFollowed()
{
    QVERIFY(startServer());
    ListScreen screen;
    const QString number = "+15550102233";
    screen.addRecording("TEL", number, "15-Nov-2026-22-10-07");
    screen.open();
    QCOMPARE(screen.cell(0)->textLabel()->text(), number);

    // Written as GNOME Contacts writes it: the number in its national form.
    EContact *contact = e_contact_new_from_vcard(
        "BEGIN:VCARD\nVERSION:3.0\nFN:Priya Natarajan\nN:Natarajan;Priya;;;\n"
        "TEL;TYPE=CELL:(555) 010-2233\nEND:VCARD");
    save(contact, true);
    // The address book follows in the background; a reload of the list after that (the
    // recording component's request, say) shows the name in the row.
    const auto reloadShows = [&](const QString &name) {
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
    };
    QVERIFY(reloadShows("Priya Natarajan"));

    // Renamed in the address book: the list follows.
    e_contact_set(contact, E_CONTACT_FULL_NAME, "Priya N. Rao");
    save(contact, false);
    QVERIFY(reloadShows("Priya N. Rao"));
    g_object_unref(contact);
}

QTEST_MAIN(TestDesktopContacts)
#include "tst_desktopcontacts.moc"
