#include "VCardReader.h"

#include <QStringDecoder>
#include <optional>

namespace {

QString unescaped(QStringView value)
{
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size()) {
            const QChar next = value[++i];
            out += (next == u'n' || next == u'N') ? QChar(u'\n') : next;
        } else {
            out += value[i];
        }
    }
    return out;
}

// Splits a structured value on the separators that are not escaped.
QStringList components(QStringView value, QChar separator)
{
    QStringList parts;
    QString current;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size()) {
            current += value[i];
            current += value[++i];
        } else if (value[i] == separator) {
            parts << unescaped(current);
            current.clear();
        } else {
            current += value[i];
        }
    }
    parts << unescaped(current);
    return parts;
}

QString firstLetter(const QString &word)
{
    for (const QChar c : word) {
        if (c.isLetterOrNumber())
            return QString(c).toUpper();
    }
    return {};
}

QString initialsOf(const QString &given, const QString &family, const QString &fallbackName)
{
    QString initials = firstLetter(given) + firstLetter(family);
    if (!initials.isEmpty())
        return initials;
    const QStringList words = fallbackName.split(u' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return {};
    initials = firstLetter(words.first());
    if (words.size() > 1)
        initials += firstLetter(words.last());
    return initials;
}

QString withoutScheme(const QString &value, QLatin1String scheme)
{
    return value.startsWith(scheme, Qt::CaseInsensitive) ? value.mid(scheme.size()) : value;
}

struct CardBuilder
{
    QString fullName;
    QString composedName;
    QString given;
    QString family;
    QString nickname;
    QString organisation;
    QStringList phoneNumbers;
    QStringList handles;
};

} // namespace

VCardReader::Result VCardReader::read(const QByteArray &data)
{
    if (data.contains('\0'))
        return { {}, QStringLiteral("binary data") };
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder(data);
    if (decoder.hasError())
        return { {}, QStringLiteral("not UTF-8") };

    // Unfold continued lines: a line break followed by one blank or tab joins the lines.
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1String("\n "), QString());
    text.replace(QLatin1String("\n\t"), QString());

    Result result;
    std::optional<CardBuilder> card;
    int lineNumber = 0;
    for (QStringView line : QStringView(text).split(u'\n')) {
        ++lineNumber;
        if (line.endsWith(u'\r'))
            line.chop(1);
        if (line.trimmed().isEmpty())
            continue;
        const auto malformed = [&](const char *what) {
            return Result {
                {}, QStringLiteral("%1 at line %2").arg(QLatin1String(what)).arg(lineNumber)
            };
        };

        // The name part ends at the first colon that is not inside a quoted parameter.
        qsizetype colon = -1;
        bool inQuotes = false;
        for (qsizetype i = 0; i < line.size(); ++i) {
            if (line[i] == u'"')
                inQuotes = !inQuotes;
            else if (line[i] == u':' && !inQuotes) {
                colon = i;
                break;
            }
        }
        if (colon <= 0)
            return malformed("line without a property");
        QStringView head = line.left(colon);
        const QStringView value = line.mid(colon + 1);
        QStringView name = head.left(head.indexOf(u';') < 0 ? head.size() : head.indexOf(u';'));
        if (const qsizetype dot = name.lastIndexOf(u'.'); dot >= 0)
            name = name.mid(dot + 1); // drop the group prefix ("item1.TEL")
        const QString property = name.toString().toUpper();

        if (property == QLatin1String("BEGIN")) {
            if (value.compare(QLatin1String("VCARD"), Qt::CaseInsensitive) != 0)
                return malformed("unexpected BEGIN");
            if (card)
                return malformed("nested BEGIN:VCARD");
            card.emplace();
            continue;
        }
        if (!card)
            return malformed("property outside a card");
        if (property == QLatin1String("END")) {
            Contact contact;
            const CardBuilder &b = *card;
            if (!b.fullName.trimmed().isEmpty())
                contact.m_fullName = b.fullName.trimmed();
            else if (!b.composedName.isEmpty())
                contact.m_fullName = b.composedName;
            if (!b.nickname.isEmpty())
                contact.m_displayName = b.nickname;
            else if (!b.organisation.isEmpty())
                contact.m_displayName = b.organisation;
            contact.m_initials = initialsOf(b.given, b.family,
                                            contact.m_fullName.isNull() ? contact.m_displayName
                                                                        : contact.m_fullName);
            contact.m_phoneNumbers = b.phoneNumbers;
            contact.m_handles = b.handles;
            result.contacts << contact;
            card.reset();
            continue;
        }

        CardBuilder &b = *card;
        if (property == QLatin1String("FN")) {
            b.fullName = unescaped(value);
        } else if (property == QLatin1String("N")) {
            const QStringList n = components(value, u';');
            b.family = n.value(0).trimmed();
            b.given = n.value(1).trimmed();
            QStringList ordered;
            for (const QString &part :
                 { n.value(3), n.value(1), n.value(2), n.value(0), n.value(4) }) {
                if (!part.trimmed().isEmpty())
                    ordered << part.trimmed();
            }
            b.composedName = ordered.join(u' ');
        } else if (property == QLatin1String("NICKNAME")) {
            b.nickname = components(value, u',').value(0).trimmed();
        } else if (property == QLatin1String("ORG")) {
            b.organisation = components(value, u';').value(0).trimmed();
        } else if (property == QLatin1String("TEL")) {
            const QString number = withoutScheme(unescaped(value).trimmed(), QLatin1String("tel:"));
            if (!number.isEmpty())
                b.phoneNumbers << number;
        } else if (property == QLatin1String("EMAIL")) {
            const QString handle =
                withoutScheme(unescaped(value).trimmed(), QLatin1String("mailto:"));
            if (!handle.isEmpty())
                b.handles << handle;
        } else if (property == QLatin1String("IMPP")) {
            QString handle = unescaped(value).trimmed();
            if (const qsizetype scheme = handle.indexOf(u':'); scheme >= 0)
                handle = handle.mid(scheme + 1);
            if (!handle.isEmpty())
                b.handles << handle;
        }
    }
    if (card)
        return { {}, QStringLiteral("card without END:VCARD") };
    if (result.contacts.isEmpty())
        return { {}, QStringLiteral("no vCard in it") };
    return result;
}
