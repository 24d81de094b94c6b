#pragma once

#include "Contact.h"

#include <QByteArray>
#include <QList>
#include <QString>

// Reads the contacts of a vCard 3.0 or 4.0 file. A file that is binary, not UTF-8 or not
// made of well-formed BEGIN:VCARD ... END:VCARD blocks is refused whole, with the reason.
class VCardReader
{
public:
    struct Result
    {
        QList<Contact> contacts;
        QString error; // empty when the file was read
    };

    static Result read(const QByteArray &data);
};
