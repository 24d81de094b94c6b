#pragma once

#include "Contact.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <atomic>
#include <deque>
#include <optional>
#include <string>

// Every contact of a set of vCard files, read once and indexed so that finding the contact
// for a caller costs one hash look-up whatever the number of contacts. Never changes once
// built, so it may be built on one thread and read on another.
//
// Phone numbers match when they are the same number in another form: national or
// international, with or without punctuation ("(555) 123-4567" is "+15551234567" in the US).
// E-mail and messaging handles match without regard to letter case.
class ContactIndex
{
public:
    // Reads every ".vcf" file among the sources (folders are searched recursively). A file
    // that holds no vCard is skipped with one line in the diagnostic log. Stops between files
    // once cancelled is set, leaving the index incomplete.
    ContactIndex(const QStringList &sources, const QString &region,
                 const std::atomic<bool> *cancelled = nullptr);

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
    void index();
    std::optional<PhoneKey> phoneKey(const QString &text) const;

    std::string m_region;           // as libphonenumber takes it
    std::deque<Contact> m_contacts; // a deque keeps the indexed addresses stable
    QHash<QString, QList<PhoneOwner>> m_byNationalNumber;
    QHash<QString, const Contact *> m_byHandle;
};
