#pragma once

#include "Contact.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <memory>

class ContactIndex;
class ContactSourceWatcher;
class DesktopAddressBook;

// The address book: every contact of the vCard files it was given (see ContactIndex for how
// callers are matched), following those files while the program runs. When a file or folder
// among the sources changes, the contacts are read again in the background and the new
// index replaces the old one on this object's thread, between two turns of its event loop.
class ContactStore : public QObject
{
    Q_OBJECT
public:
    // The file or folder the user named (--contacts), else every ".vcf" under
    // $XDG_DATA_HOME/contacts and $XDG_DATA_HOME/kpeoplevcard; and in both cases the copy of
    // the desktop's own address books, which this store keeps up to date while it lives
    // (see DesktopAddressBook). Options are reserved (0).
    static std::unique_ptr<ContactStore> storeWithOptions(int options,
                                                          const QString &namedSource = {});
    static QStringList defaultSources(const QString &namedSource = {});

    // Region used to read numbers written without a country code: the territory of the
    // user's locale ("US" for en_US), or "ZZ" when the locale names none.
    static QString defaultRegion();

    // Loads every ".vcf" file among the sources (folders are searched recursively) before it
    // returns, then follows them; sources that do not exist yet are followed too. A file that
    // holds no vCard is skipped with a line in the diagnostic log. Without an event loop on
    // this thread the contacts stay as first read.
    explicit ContactStore(const QStringList &sources, const QString &region = defaultRegion());
    ~ContactStore() override;

    // The contact that owns this phone number or handle, or null. The contact stays valid
    // until the second replacement of the index, so at least until control returns to the
    // event loop.
    const Contact *contactForDestinationId(const QString &address) const;

    qsizetype count() const;

signals:
    // An index read again after the files changed has replaced the previous one.
    void contactsReloaded();

private:
    struct Mailbox;

    void startReload();
    void adopt(std::shared_ptr<const ContactIndex> index);

    QStringList m_sources;
    QString m_region;
    std::shared_ptr<const ContactIndex> m_index;
    std::shared_ptr<const ContactIndex> m_previousIndex; // keeps handed-out contacts alive
    std::unique_ptr<ContactSourceWatcher> m_watcher;
    std::shared_ptr<DesktopAddressBook> m_desktopBooks; // copied among the sources, if any
    std::shared_ptr<Mailbox> m_mailbox; // shared with the reload running in the background
    QTimer m_coalesce;                  // gathers a burst of changes into one reload
    bool m_reloading { false };
    bool m_reloadAgain { false }; // files changed while a reload was reading them
};
