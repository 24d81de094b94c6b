#pragma once

#include <QString>
#include <QStringList>

// One person from the address book, as much of a vCard as the list needs. Names are null
// (not merely empty) when the card does not have them.
class Contact
{
public:
    // FN, else the name composed from N.
    QString fullName() const { return m_fullName; }
    // NICKNAME, else the organisation.
    QString displayName() const { return m_displayName; }
    // One or two letters for the monogram: given and family name where the card has them.
    QString initials() const { return m_initials; }

    QStringList phoneNumbers() const { return m_phoneNumbers; }
    // E-mail and messaging handles.
    QStringList handles() const { return m_handles; }

private:
    friend class VCardReader;
    QString m_fullName;
    QString m_displayName;
    QString m_initials;
    QStringList m_phoneNumbers;
    QStringList m_handles;
};
