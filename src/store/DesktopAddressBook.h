#pragma once

#include <QByteArrayList>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <memory>

// The desktop's own address books: Evolution Data Server, where GNOME Contacts and Phosh
// keep contacts. Followed only while its registry runs on the session bus; this program never
// starts it, so a desktop without it costs nothing at start-up. Everything arrives
// asynchronously on this object's thread (Qt runs GLib's main loop there).
class DesktopAddressBook : public QObject
{
    Q_OBJECT
public:
    static inline const QString kRegistryService =
        QStringLiteral("org.gnome.evolution.dataserver.Sources5");

    explicit DesktopAddressBook(QObject *parent = nullptr);
    ~DesktopAddressBook() override;

    // Every contact of every enabled address book, as vCard 3.0 text.
    QByteArrayList cards() const { return m_cards.values(); }

signals:
    // Contacts were added, changed or removed, or the address books came or went.
    void changed();

private:
    struct Books; // the GLib side, kept out of this header

    void open();
    void close();

    QDBusServiceWatcher m_watcher;
    std::unique_ptr<Books> m_books;
    QHash<QString, QByteArray> m_cards; // by address book and contact
    friend struct Books;
};
