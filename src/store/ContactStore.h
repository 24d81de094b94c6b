#pragma once

#include "Contact.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <deque>
#include <memory>
#include <optional>

// The address book: every contact of the vCard files it was given, indexed so that finding
// the contact for a caller costs one hash look-up whatever the number of contacts.
//
// Phone numbers match when they are the same number in another form: national or
// international, with or without punctuation ("(555) 123-4567" is "+15551234567" in the US).
// E-mail and messaging handles match without regard to letter case.
class ContactStore
{
public:
    // The file or folder named by VANTREL_CONTACTS, else every ".vcf" under
    // $XDG_DATA_HOME/contacts and $XDG_DATA_HOME/kpeoplevcard. Options are reserved (0).
    static std::unique_ptr<ContactStore> storeWithOptions(int options);
    static QStringList defaultSources();

    // Region used to read numbers written without a country code: the territory of the
    // user's locale ("US" for en_US), or "ZZ" when the locale names none.
    static QString defaultRegion();

    // Loads every ".vcf" file among the sources (folders are searched recursively). A file
    // that cannot be read as vCards is skipped with a line in the diagnostic log.
    explicit ContactStore(const QStringList &sources, const QString &region = defaultRegion());

    // The contact that owns this phone number or handle, or null.
    const Contact *contactForDestinationId(const QString &address) const;

    qsizetype count() const { return qsizetype(m_contacts.size()); }

private:
    struct PhoneKey
    {
        int countryCode { 0 }; // 0: written nationally and the region was unknown
        QString nationalNumber;
    };
    struct PhoneOwner
    {
        int countryCode { 0 };
        const Contact *contact { nullptr };
    };

    void loadFile(const QString &path);
    void add(const Contact &contact);
    std::optional<PhoneKey> phoneKey(const QString &text) const;

    QString m_region;
    std::deque<Contact> m_contacts; // a deque keeps the indexed addresses stable
    QHash<QString, QList<PhoneOwner>> m_byNationalNumber;
    QHash<QString, const Contact *> m_byHandle;
};
