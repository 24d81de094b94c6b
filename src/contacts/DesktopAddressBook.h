#pragma once

#include "DesktopBooks.h"

#include <QByteArray>
#include <QDBusServiceWatcher>
#include <QFutureWatcher>
#include <QObject>
#include <QTimer>
#include <memory>
#include <optional>

// The desktop's own address books: Evolution Data Server, where GNOME Contacts and Phosh keep
// contacts. While its registry runs on the session bus, every contact is kept copied as vCard
// text into one file of this program's cache, which the contact stores read among their
// sources: the names are in the list's first frame, and a change reaches the list as any
// changed vCard file does. This program never starts the server; the module that talks to it
// is loaded only where it runs, after start-up, so a desktop without it pays nothing.
class DesktopAddressBook : public QObject
{
    Q_OBJECT
public:
    static inline const QString kRegistryService =
        QStringLiteral("org.gnome.evolution.dataserver.Sources5");

    // "$XDG_CACHE_HOME/net.zorvath.vantrel/desktop-contacts.vcf", readable by its owner only.
    static QString copyPath();

    // The one follower of this thread, kept while anyone holds it: the list keeps two
    // contact stores, and one set of views on the server serves both.
    static std::shared_ptr<DesktopAddressBook> shared();

    explicit DesktopAddressBook(QObject *parent = nullptr);
    ~DesktopAddressBook() override;

private:
    void askForRegistry();
    void open();
    void follow();
    void close();
    void writeCopy();

    QDBusServiceWatcher m_watcher;
    QFutureWatcher<OpenDesktopBooks> m_module; // the module, loaded on a worker thread
    std::unique_ptr<DesktopBooks> m_books;
    QTimer m_settle;                     // start-up first
    QTimer m_write;                      // gathers a burst of changes into one rewrite of the copy
    std::optional<QByteArray> m_written; // what the copy holds, once known
    bool m_wanted { false };             // the registry is on the bus
    bool m_loading { false };            // the module is being loaded
};
