#include "DesktopAddressBook.h"

#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QSet>
#include <vector>

// GLib names a structure field "signals", which Qt has made a keyword.
#undef signals
#include <libebook/libebook.h>

namespace {
// Every contact: the query that matches any field holding the empty text.
constexpr const char *kEveryContact = "(contains \"x-evolution-any-field\" \"\")";
// How long a book that is still going online is waited for.
constexpr guint32 kConnectSeconds = 30;
} // namespace

// The registry, the books and their live views, all owned here; every callback is given
// this, and a cancelled call never reaches it.
struct DesktopAddressBook::Books
{
    DesktopAddressBook *owner;
    GCancellable *cancellable { g_cancellable_new() };
    ESourceRegistry *registry { nullptr };
    std::vector<EClient *> clients;
    std::vector<EBookClientView *> views;
    QSet<QString> opened; // the address books asked for, by uid

    explicit Books(DesktopAddressBook *book) : owner(book) {}
    ~Books()
    {
        g_cancellable_cancel(cancellable);
        for (EBookClientView *view : views) {
            g_signal_handlers_disconnect_by_data(view, this);
            e_book_client_view_stop(view, nullptr);
            g_object_unref(view);
        }
        for (EClient *client : clients)
            g_object_unref(client);
        if (registry) {
            g_signal_handlers_disconnect_by_data(registry, this);
            g_object_unref(registry);
        }
        g_object_unref(cancellable);
    }

    static bool failed(GError *error, const char *what)
    {
        if (!error)
            return false;
        if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
            mylog(QStringLiteral("ContactStore: desktop address book: %1: %2")
                      .arg(QLatin1String(what), QString::fromUtf8(error->message)));
        g_error_free(error);
        return true;
    }

    static void registryReady(GObject *, GAsyncResult *result, gpointer data)
    {
        GError *error = nullptr;
        ESourceRegistry *registry = e_source_registry_new_finish(result, &error);
        if (failed(error, "registry"))
            return;
        auto *books = static_cast<Books *>(data);
        books->registry = registry;
        // Books made or switched on later count too: the registry may still be creating the
        // built-in one as it answers, and people add books while the program runs.
        g_signal_connect(registry, "source-added", G_CALLBACK(sourceAppeared), books);
        g_signal_connect(registry, "source-enabled", G_CALLBACK(sourceAppeared), books);
        g_signal_connect(registry, "source-removed", G_CALLBACK(sourceGone), books);
        g_signal_connect(registry, "source-disabled", G_CALLBACK(sourceGone), books);
        GList *sources = e_source_registry_list_enabled(registry, E_SOURCE_EXTENSION_ADDRESS_BOOK);
        for (GList *item = sources; item; item = item->next)
            sourceAppeared(registry, E_SOURCE(item->data), books);
        g_list_free_full(sources, g_object_unref);
    }

    static void sourceAppeared(ESourceRegistry *registry, ESource *source, gpointer data)
    {
        auto *books = static_cast<Books *>(data);
        const QString uid = QString::fromUtf8(e_source_get_uid(source));
        if (!e_source_has_extension(source, E_SOURCE_EXTENSION_ADDRESS_BOOK) ||
            !e_source_registry_check_enabled(registry, source) || books->opened.contains(uid))
            return;
        books->opened.insert(uid);
        e_book_client_connect(source, kConnectSeconds, books->cancellable, bookReady, books);
    }

    static void sourceGone(ESourceRegistry *, ESource *source, gpointer data)
    {
        auto *books = static_cast<Books *>(data);
        const QString uid = QString::fromUtf8(e_source_get_uid(source));
        if (!books->opened.remove(uid))
            return;
        const QString prefix = uid + u'/';
        const auto gone = [&prefix](const QString &key) { return key.startsWith(prefix); };
        if (erase_if(books->owner->m_cards, [&gone](auto item) { return gone(item.key()); }) > 0)
            emit books->owner->changed();
    }

    static void bookReady(GObject *, GAsyncResult *result, gpointer data)
    {
        GError *error = nullptr;
        EClient *client = e_book_client_connect_finish(result, &error);
        if (failed(error, "connect"))
            return;
        auto *books = static_cast<Books *>(data);
        books->clients.push_back(client);
        e_book_client_get_view(E_BOOK_CLIENT(client), kEveryContact, books->cancellable, viewReady,
                               books);
    }

    static void viewReady(GObject *client, GAsyncResult *result, gpointer data)
    {
        GError *error = nullptr;
        EBookClientView *view = nullptr;
        e_book_client_get_view_finish(E_BOOK_CLIENT(client), result, &view, &error);
        if (failed(error, "view"))
            return;
        auto *books = static_cast<Books *>(data);
        books->views.push_back(view);
        g_signal_connect(view, "objects-added", G_CALLBACK(contactsChanged), books);
        g_signal_connect(view, "objects-modified", G_CALLBACK(contactsChanged), books);
        g_signal_connect(view, "objects-removed", G_CALLBACK(contactsRemoved), books);
        e_book_client_view_start(view, &error);
        failed(error, "start");
    }

    static void contactsChanged(EBookClientView *view, const GSList *contacts, gpointer data)
    {
        auto *books = static_cast<Books *>(data);
        for (const GSList *item = contacts; item; item = item->next) {
            EContact *contact = E_CONTACT(item->data);
            gchar *card = e_vcard_to_string(E_VCARD(contact), EVC_FORMAT_VCARD_30);
            const auto *uid =
                static_cast<const char *>(e_contact_get_const(contact, E_CONTACT_UID));
            // Ended as a file would end it: the last line complete.
            books->owner->m_cards.insert(sourceKey(view, uid), QByteArray(card) + "\r\n");
            g_free(card);
        }
        emit books->owner->changed();
    }

    static void contactsRemoved(EBookClientView *view, const GSList *uids, gpointer data)
    {
        auto *books = static_cast<Books *>(data);
        for (const GSList *item = uids; item; item = item->next)
            books->owner->m_cards.remove(sourceKey(view, static_cast<const char *>(item->data)));
        emit books->owner->changed();
    }

    // "source/contact": contacts of two books may share a uid.
    static QString sourceKey(EBookClientView *view, const char *uid)
    {
        EBookClient *client = e_book_client_view_ref_client(view);
        const QString key =
            QString::fromUtf8(e_source_get_uid(e_client_get_source(E_CLIENT(client)))) + u'/' +
            QString::fromUtf8(uid ? uid : "");
        g_object_unref(client);
        return key;
    }
};

DesktopAddressBook::DesktopAddressBook(QObject *parent)
    : QObject(parent), m_watcher(kRegistryService, QDBusConnection::sessionBus(),
                                 QDBusServiceWatcher::WatchForRegistration |
                                     QDBusServiceWatcher::WatchForUnregistration)
{
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this, &DesktopAddressBook::open);
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            &DesktopAddressBook::close);
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    if (!bus)
        return;
    // Asked, not activated: a desktop that does not run it is not made to.
    auto *ask = new QDBusPendingCallWatcher(
        bus->asyncCall(QStringLiteral("NameHasOwner"), kRegistryService), this);
    connect(ask, &QDBusPendingCallWatcher::finished, this, [this, ask] {
        ask->deleteLater();
        const QDBusPendingReply<bool> reply = *ask;
        if (reply.isValid() && reply.value())
            open();
    });
}

DesktopAddressBook::~DesktopAddressBook() = default;

void DesktopAddressBook::open()
{
    if (m_books)
        return;
    m_books = std::make_unique<Books>(this);
    e_source_registry_new(m_books->cancellable, Books::registryReady, m_books.get());
}

void DesktopAddressBook::close()
{
    m_books.reset();
    if (m_cards.isEmpty())
        return;
    m_cards.clear();
    emit changed();
}
