#pragma once

#include "Contact.h"

#include <QByteArray>
#include <QList>
#include <QString>

// Reads the contacts of a vCard file as phones, mail programs and servers export them:
// versions 2.1 (quoted-printable, charsets), 3.0 and 4.0, several cards per file.
//
// Damage costs as little as it can: a property that cannot be read is dropped alone, a card
// cut short by the end of the file keeps what it had. Only a file with no card in it at all
// is refused, with the reason.
class VCardReader
{
public:
    struct Result
    {
        QList<Contact> contacts;
        QString error; // empty when the file holds vCards
    };

    static Result read(const QByteArray &data);

private:
    struct CardBuilder;
    static Contact contactOf(const CardBuilder &card);
};
