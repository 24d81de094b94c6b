#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <optional>

// The head of one vCard content line ("item1.TEL;TYPE=cell;TYPE=pref:", "N;CHARSET=UTF-8;
// QUOTED-PRINTABLE:", "TEL;VALUE=uri;TYPE=\"voice,cell\":") as versions 2.1, 3.0 and 4.0
// write it, and the reading of its value as text.
class VCardProperty
{
public:
    // Null when the line has no name or no colon outside quotes (an unterminated quote
    // leaves none). valueStart receives the offset just past that colon.
    static std::optional<VCardProperty> parse(QByteArrayView line, qsizetype *valueStart);

    // Upper case, without the group: "item1.tel" is "TEL".
    const QByteArray &name() const { return m_name; }
    bool isQuotedPrintable() const { return m_encoding == "QUOTED-PRINTABLE"; }
    // Inline binary data such as a photo (ENCODING=b in 3.0, BASE64 in 2.1).
    bool isBinary() const { return m_encoding == "B" || m_encoding == "BASE64"; }

    // The value as text: quoted-printable undone, then read in the charset named, else as
    // UTF-8, else as Windows-1252 (what phones and mail programs wrote before UTF-8). Null
    // when an escape is broken, the charset is unknown or the bytes are not in it.
    std::optional<QString> text(QByteArrayView value) const;

private:
    QByteArray m_name;
    QByteArray m_encoding; // upper case; empty when none is given
    QByteArray m_charset;
};
