// The module that follows Evolution Data Server, where GNOME Contacts and Phosh keep contacts.
// It alone links the server's client library; the program loads it only once the server's
// registry is on the bus.

#include "contacts/DesktopBooks.h"

#include <QMap>
#include <algorithm>
#include <iterator>
#include <map>
#include <vector>

// GLib names a structure field "signals", which Qt has made a keyword.
#undef signals
#include <libebook/libebook.h>

namespace {

// Every contact: the query that matches any field holding the empty text.
constexpr const char *kEveryContact = "(contains \"x-evolution-any-field\" \"\")";
// Books are not waited for until they are online: a book still reaching its server already
// serves the contacts it holds, and its live view brings the rest. (A wait would also hang on
// a local book whose "connected" report raced past the client.)
constexpr guint32 kDoNotWaitForConnected = guint32(-1);

// The registry, the books and their live views, all owned here. Every callback is given this
// object, and the calls still under way are cancelled before it goes, so none reaches it after.
class EvolutionBooks final : public DesktopBooks
{
public:
    EvolutionBooks(Listener listener, const QString &region)
        : m_listener(std::move(listener)), m_region(region.toUtf8())
    {
        e_source_registry_new(m_cancellable, registryReady, this);
    }
    ~EvolutionBooks() override;

    QByteArrayList cards() const override { return m_cards.values(); }

private:
    static EvolutionBooks *self(gpointer data) { return static_cast<EvolutionBooks *>(data); }
    static bool cancelled(GError *error);
    bool failed(GError *error, const char *what);
    // One address book: asked for, then connected, then followed through its view.
    struct Book
    {
        EClient *client { nullptr };
        EBookClientView *view { nullptr };
        bool complete { false }; // the view's first report has ended
    };
    static QString bookUid(EClient *client);
    static QString bookUid(EBookClientView *view);
    Book *findBook(const QString &uid);
    void close(Book &book);
    QByteArray card(EContact *contact) const;

    static void registryReady(GObject *, GAsyncResult *result, gpointer data);
    static void sourceAppeared(ESourceRegistry *registry, ESource *source, gpointer data);
    static void sourceGone(ESourceRegistry *, ESource *source, gpointer data);
    static void bookReady(GObject *, GAsyncResult *result, gpointer data);
    static void viewReady(GObject *client, GAsyncResult *result, gpointer data);
    static void contactsSaved(EBookClientView *view, const GSList *contacts, gpointer data);
    static void contactsRemoved(EBookClientView *view, const GSList *uids, gpointer data);
    static void viewComplete(EBookClientView *view, const GError *, gpointer data);
    void reportChange(const QString &uid);

    Listener m_listener;
    QByteArray m_region;               // numbers written nationally are read as of this country
    QMap<QString, QByteArray> m_cards; // by "book/contact": two books may share a contact uid
    std::map<QString, Book> m_books;   // by the address book's uid
    GCancellable *m_cancellable { g_cancellable_new() };
    ESourceRegistry *m_registry { nullptr };
};

EvolutionBooks::~EvolutionBooks()
{
    g_cancellable_cancel(m_cancellable);
    for (auto &[uid, book] : m_books)
        close(book);
    if (m_registry) {
        g_signal_handlers_disconnect_by_data(m_registry, this);
        g_object_unref(m_registry);
    }
    g_object_unref(m_cancellable);
}

// A cancelled call's object may already be gone: nothing of it is touched then.
bool EvolutionBooks::cancelled(GError *error)
{
    if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
        return false;
    g_error_free(error);
    return true;
}

bool EvolutionBooks::failed(GError *error, const char *what)
{
    if (!error)
        return false;
    m_listener.failed(
        QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromUtf8(error->message)));
    g_error_free(error);
    return true;
}

QString EvolutionBooks::bookUid(EClient *client)
{
    return QString::fromUtf8(e_source_get_uid(e_client_get_source(client)));
}

QString EvolutionBooks::bookUid(EBookClientView *view)
{
    EBookClient *client = e_book_client_view_ref_client(view);
    const QString uid = bookUid(E_CLIENT(client));
    g_object_unref(client);
    return uid;
}

EvolutionBooks::Book *EvolutionBooks::findBook(const QString &uid)
{
    const auto found = m_books.find(uid);
    return found == m_books.end() ? nullptr : &found->second;
}

void EvolutionBooks::close(Book &book)
{
    if (book.view) {
        g_signal_handlers_disconnect_by_data(book.view, this);
        e_book_client_view_stop(book.view, nullptr);
        g_object_unref(book.view);
    }
    if (book.client)
        g_object_unref(book.client);
    book = Book();
}

// The contact as the copy holds it, which is read before every first frame, so it holds only
// what names and reaches a person: no photos, notes or addresses. Its numbers are in
// international form wherever they can be read in the user's country, which is matched
// without libphonenumber's full parse of each one. A number that cannot be read stays as it
// was written.
QByteArray EvolutionBooks::card(EContact *contact) const
{
    static constexpr const char *kKept[] = { EVC_FN,  EVC_N,     EVC_NICKNAME, EVC_ORG,
                                             EVC_TEL, EVC_EMAIL, "IMPP" };
    EVCard *copy = E_VCARD(e_contact_duplicate(contact));
    std::vector<EVCardAttribute *> dropped;
    for (GList *item = e_vcard_get_attributes(copy); item; item = item->next) {
        auto *attribute = static_cast<EVCardAttribute *>(item->data);
        const char *name = e_vcard_attribute_get_name(attribute);
        if (std::none_of(std::begin(kKept), std::end(kKept), [name](const char *kept) {
                return g_ascii_strcasecmp(name, kept) == 0;
            })) {
            dropped.push_back(attribute);
            continue;
        }
        e_vcard_attribute_remove_params(attribute);
        if (g_ascii_strcasecmp(name, EVC_TEL) != 0)
            continue;
        gchar *written = e_vcard_attribute_get_value(attribute);
        EPhoneNumber *number =
            written ? e_phone_number_from_string(written, m_region.constData(), nullptr) : nullptr;
        if (number) {
            gchar *international = e_phone_number_to_string(number, E_PHONE_NUMBER_FORMAT_E164);
            e_vcard_attribute_remove_values(attribute);
            e_vcard_attribute_add_value(attribute, international);
            g_free(international);
            e_phone_number_free(number);
        }
        g_free(written);
    }
    for (EVCardAttribute *attribute : dropped)
        e_vcard_remove_attribute(copy, attribute);
    gchar *text = e_vcard_to_string(copy, EVC_FORMAT_VCARD_30);
    // Ended as a file would end it: the last line complete.
    const QByteArray card = QByteArray(text) + "\r\n";
    g_free(text);
    g_object_unref(copy);
    return card;
}

void EvolutionBooks::registryReady(GObject *, GAsyncResult *result, gpointer data)
{
    GError *error = nullptr;
    ESourceRegistry *registry = e_source_registry_new_finish(result, &error);
    if (cancelled(error))
        return;
    EvolutionBooks *books = self(data);
    if (books->failed(error, "registry"))
        return;
    books->m_registry = registry;
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

void EvolutionBooks::sourceAppeared(ESourceRegistry *registry, ESource *source, gpointer data)
{
    EvolutionBooks *books = self(data);
    const QString uid = QString::fromUtf8(e_source_get_uid(source));
    if (!e_source_has_extension(source, E_SOURCE_EXTENSION_ADDRESS_BOOK) ||
        !e_source_registry_check_enabled(registry, source) || books->findBook(uid))
        return;
    books->m_books.emplace(uid, Book());
    e_book_client_connect(source, kDoNotWaitForConnected, books->m_cancellable, bookReady, books);
}

void EvolutionBooks::sourceGone(ESourceRegistry *, ESource *source, gpointer data)
{
    EvolutionBooks *books = self(data);
    const QString uid = QString::fromUtf8(e_source_get_uid(source));
    Book *book = books->findBook(uid);
    if (!book)
        return;
    // Its view goes with it: a switched-off book sends nothing more.
    books->close(*book);
    books->m_books.erase(uid);
    const QString prefix = uid + u'/';
    if (erase_if(books->m_cards, [&prefix](auto item) { return item.key().startsWith(prefix); }) >
        0)
        books->m_listener.changed();
}

void EvolutionBooks::bookReady(GObject *, GAsyncResult *result, gpointer data)
{
    GError *error = nullptr;
    EClient *client = e_book_client_connect_finish(result, &error);
    if (cancelled(error))
        return;
    EvolutionBooks *books = self(data);
    if (books->failed(error, "connect"))
        return;
    Book *book = books->findBook(bookUid(client));
    // Removed while it was connecting, or connected twice by a quick removal and return.
    if (!book || book->client) {
        g_object_unref(client);
        return;
    }
    book->client = client;
    e_book_client_get_view(E_BOOK_CLIENT(client), kEveryContact, books->m_cancellable, viewReady,
                           books);
}

void EvolutionBooks::viewReady(GObject *client, GAsyncResult *result, gpointer data)
{
    GError *error = nullptr;
    EBookClientView *view = nullptr;
    e_book_client_get_view_finish(E_BOOK_CLIENT(client), result, &view, &error);
    if (cancelled(error))
        return;
    EvolutionBooks *books = self(data);
    if (books->failed(error, "view"))
        return;
    Book *book = books->findBook(bookUid(E_CLIENT(client)));
    if (!book || book->client != E_CLIENT(client) || book->view) {
        g_object_unref(view);
        return;
    }
    book->view = view;
    // The view's first report holds every contact the book has already.
    g_signal_connect(view, "objects-added", G_CALLBACK(contactsSaved), books);
    g_signal_connect(view, "objects-modified", G_CALLBACK(contactsSaved), books);
    g_signal_connect(view, "objects-removed", G_CALLBACK(contactsRemoved), books);
    g_signal_connect(view, "complete", G_CALLBACK(viewComplete), books);
    e_book_client_view_start(view, &error);
    books->failed(error, "start");
}

void EvolutionBooks::contactsSaved(EBookClientView *view, const GSList *contacts, gpointer data)
{
    EvolutionBooks *books = self(data);
    const QString book = bookUid(view);
    for (const GSList *item = contacts; item; item = item->next) {
        EContact *contact = E_CONTACT(item->data);
        const auto *uid = static_cast<const char *>(e_contact_get_const(contact, E_CONTACT_UID));
        books->m_cards.insert(book + u'/' + QString::fromUtf8(uid), books->card(contact));
    }
    books->reportChange(book);
}

void EvolutionBooks::contactsRemoved(EBookClientView *view, const GSList *uids, gpointer data)
{
    EvolutionBooks *books = self(data);
    const QString book = bookUid(view);
    for (const GSList *item = uids; item; item = item->next)
        books->m_cards.remove(book + u'/' +
                              QString::fromUtf8(static_cast<const char *>(item->data)));
    books->reportChange(book);
}

void EvolutionBooks::viewComplete(EBookClientView *view, const GError *, gpointer data)
{
    EvolutionBooks *books = self(data);
    if (Book *book = books->findBook(bookUid(view)))
        book->complete = true;
    books->m_listener.changed();
}

// A book's first report comes in batches: it counts once it is whole, so that a half-read
// book never takes names away from the list.
void EvolutionBooks::reportChange(const QString &uid)
{
    if (const Book *book = findBook(uid); book && book->complete)
        m_listener.changed();
}

} // namespace

extern "C" Q_DECL_EXPORT DesktopBooks *vantrel_open_desktop_books(DesktopBooks::Listener listener,
                                                                  const QString &region)
{
    static_assert(std::is_same_v<decltype(&vantrel_open_desktop_books), OpenDesktopBooks>);
    return new EvolutionBooks(std::move(listener), region);
}
