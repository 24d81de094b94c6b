#include "EvolutionServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QTest>
#include <future>

#undef signals // GLib names a structure field so
#include <libebook/libebook.h>

namespace {

// A server takes its name within this even on a loaded machine.
constexpr int kStartMilliseconds = 20000;
// Saving 1,000 contacts in one call takes a few seconds.
constexpr int kSaveMilliseconds = 60000;

} // namespace

EvolutionServer::~EvolutionServer()
{
    for (auto &process : m_processes) {
        process->terminate();
        if (!process->waitForFinished(3000))
            process->kill();
        process->waitForFinished();
    }
}

QString EvolutionServer::start()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString &folder :
         { QStringLiteral("CONFIG"), QStringLiteral("DATA"), QStringLiteral("CACHE") }) {
        const QString path = m_home.filePath(folder.toLower());
        QDir().mkpath(path);
        environment.insert(QStringLiteral("XDG_%1_HOME").arg(folder), path);
    }
    environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    // The registry first: the factory would otherwise have the bus start one of its own, with
    // the user's real folders.
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    for (const auto &[program, name] :
         { std::pair { "/usr/libexec/evolution-source-registry",
                       "org.gnome.evolution.dataserver.Sources5" },
           std::pair { "/usr/libexec/evolution-addressbook-factory",
                       "org.gnome.evolution.dataserver.AddressBook10" } }) {
        auto &process = m_processes.emplace_back(std::make_unique<QProcess>());
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(QString::fromLatin1(program), {});
        if (!process->waitForStarted())
            return QStringLiteral("cannot start %1: %2").arg(program, process->errorString());
        if (!QTest::qWaitFor(
                [&] { return bus->isServiceRegistered(QString::fromLatin1(name)).value(); },
                kStartMilliseconds))
            return QStringLiteral("%1 did not take its name on the bus").arg(program);
    }
    return {};
}

// On a thread with its own main context, since the library's calls wait on one, while this
// thread's keeps running the program under test.
QStringList EvolutionServer::change(Change change, const QByteArrayList &items)
{
    QString failure;
    auto saved = std::async(std::launch::async, [&] {
        QStringList uids;
        GMainContext *context = g_main_context_new();
        g_main_context_push_thread_default(context);
        GError *error = nullptr;
        ESourceRegistry *registry = e_source_registry_new_sync(nullptr, &error);
        ESource *source = registry ? e_source_registry_ref_builtin_address_book(registry) : nullptr;
        // Not waiting for "online": a local book is, and the wait can miss its report.
        EClient *book =
            source ? e_book_client_connect_sync(source, guint32(-1), nullptr, &error) : nullptr;
        GSList *contacts = nullptr;
        GSList *removed = nullptr;
        for (const QByteArray &item : items) {
            if (change == Change::Remove)
                removed = g_slist_append(removed, g_strdup(item.constData()));
            else
                contacts = g_slist_append(contacts, e_contact_new_from_vcard(item.constData()));
        }
        GSList *newUids = nullptr;
        if (book && change == Change::Add &&
            e_book_client_add_contacts_sync(E_BOOK_CLIENT(book), contacts,
                                            E_BOOK_OPERATION_FLAG_NONE, &newUids, nullptr,
                                            &error)) {
            for (const GSList *uid = newUids; uid; uid = uid->next)
                uids << QString::fromUtf8(static_cast<const char *>(uid->data));
        } else if (book && change == Change::Modify &&
                   e_book_client_modify_contacts_sync(E_BOOK_CLIENT(book), contacts,
                                                      E_BOOK_OPERATION_FLAG_NONE, nullptr,
                                                      &error)) {
            uids << QStringLiteral("saved");
        } else if (book && change == Change::Remove &&
                   e_book_client_remove_contacts_sync(
                       E_BOOK_CLIENT(book), removed, E_BOOK_OPERATION_FLAG_NONE, nullptr, &error)) {
            uids << QStringLiteral("removed");
        }
        if (error)
            failure = QString::fromUtf8(error->message);
        g_clear_error(&error);
        g_slist_free_full(newUids, g_free);
        g_slist_free_full(contacts, g_object_unref);
        g_slist_free_full(removed, g_free);
        for (gpointer object : { gpointer(book), gpointer(source), gpointer(registry) })
            if (object)
                g_object_unref(object);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
        return uids;
    });
    // This thread's events keep flowing meanwhile: the program under test may run on it.
    if (!QTest::qWaitFor(
            [&] { return saved.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
            kSaveMilliseconds)) {
        qWarning("saving contacts: no answer from the address book");
        return {};
    }
    const QStringList uids = saved.get();
    if (!failure.isEmpty())
        qWarning("saving contacts: %s", qPrintable(failure));
    return uids;
}
