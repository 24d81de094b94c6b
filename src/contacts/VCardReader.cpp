#include "VCardReader.h"

#include "VCardProperty.h"

#include <QStringDecoder>
#include <algorithm>
#include <optional>

namespace {

// A head folded over more lines than this is not one; joining further would only make a
// hostile file slow.
constexpr qsizetype kMaxFoldedHead = 4096;

// The physical lines of a file, each without its line break: CRLF, LF, or a lone CR as old
// Macintosh address books wrote.
class Lines
{
public:
    explicit Lines(QByteArrayView data) : m_data(data) {}

    bool atEnd() const { return m_position >= m_data.size(); }

    QByteArrayView peek()
    {
        if (m_peekedAt != m_position) {
            m_peekedAt = m_position;
            const char *begin = m_data.data() + m_position;
            const char *end = m_data.data() + m_data.size();
            const char *stop =
                std::find_if(begin, end, [](char c) { return c == '\n' || c == '\r'; });
            m_peeked = QByteArrayView(begin, stop - begin);
            m_next = (stop - m_data.data()) +
                     (stop == end                                            ? 0
                      : (*stop == '\r' && stop + 1 < end && stop[1] == '\n') ? 2
                                                                             : 1);
        }
        return m_peeked;
    }

    QByteArrayView next()
    {
        const QByteArrayView line = peek();
        m_position = m_next;
        return line;
    }

private:
    QByteArrayView m_data;
    qsizetype m_position { 0 };
    qsizetype m_peekedAt { -1 };
    QByteArrayView m_peeked;
    qsizetype m_next { 0 };
};

bool isBlank(QByteArrayView line)
{
    return std::all_of(line.begin(), line.end(), [](char c) { return c == ' ' || c == '\t'; });
}

// A line that continues the one before it.
bool isFold(QByteArrayView line)
{
    return !line.isEmpty() && (line.front() == ' ' || line.front() == '\t');
}

bool isCardBoundary(QByteArrayView line)
{
    line = line.trimmed();
    return line.compare("BEGIN:VCARD", Qt::CaseInsensitive) == 0 ||
           line.compare("END:VCARD", Qt::CaseInsensitive) == 0;
}

bool isBase64Text(QByteArrayView line)
{
    return std::all_of(line.begin(), line.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/' || c == '=' || c == ' ' || c == '\t';
    });
}

// The property's line ends in a quoted-printable soft line break: its value goes on in the
// next line, which 2.1 writers do not indent.
bool endsInSoftBreak(QByteArrayView line)
{
    line = line.trimmed();
    return line.endsWith('=');
}

void chopSoftBreak(QByteArray *value)
{
    while (value->endsWith(' ') || value->endsWith('\t'))
        value->chop(1);
    if (value->endsWith('='))
        value->chop(1);
}

// Takes the lines that continue a property's value (folded lines, quoted-printable soft line
// breaks, the rest of a 2.1 base64 block) and appends them to value when one is given.
void takeContinuation(Lines &lines, const VCardProperty &property, QByteArrayView first,
                      QByteArray *value)
{
    const bool quotedPrintable = property.isQuotedPrintable();
    QByteArrayView last = first;
    while (!lines.atEnd()) {
        const QByteArrayView next = lines.peek();
        const bool softBreak = quotedPrintable && endsInSoftBreak(last);
        if (isFold(next)) {
            if (value) {
                if (softBreak)
                    chopSoftBreak(value);
                value->append(next.sliced(1));
            }
        } else if (softBreak && !isBlank(next) && !isCardBoundary(next)) {
            if (value) {
                chopSoftBreak(value);
                value->append(next);
            }
        } else {
            break;
        }
        last = lines.next();
    }
    if (property.isBinary()) {
        // 2.1 ends a base64 block with an empty line, and some writers do not indent it.
        while (!lines.atEnd()) {
            const QByteArrayView next = lines.peek();
            if (!isBase64Text(next))
                break;
            lines.next();
            if (isBlank(next))
                break;
        }
    }
}

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
    qsizetype start = 0;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\') {
            ++i;
        } else if (value[i] == separator) {
            parts << unescaped(value.sliced(start, i - start));
            start = i + 1;
        }
    }
    parts << unescaped(value.sliced(std::min(start, value.size())));
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

// A URI value ("tel:+44-20-7946-0958;ext=12", "mailto:a@b.org") without its scheme and, for
// numbers, without the URI's parameters.
QString withoutScheme(const QString &value, QLatin1String scheme)
{
    if (!value.startsWith(scheme, Qt::CaseInsensitive))
        return value;
    QString rest = value.mid(scheme.size());
    if (scheme == QLatin1String("tel:"))
        rest.truncate(rest.indexOf(u';') < 0 ? rest.size() : rest.indexOf(u';'));
    return rest.trimmed();
}

bool isWanted(const QByteArray &name)
{
    return name == "FN" || name == "N" || name == "NICKNAME" || name == "ORG" || name == "TEL" ||
           name == "EMAIL" || name == "IMPP";
}

// UTF-16 files (as some desktop programs export) are read as the UTF-8 they hold; a UTF-8
// byte-order mark is dropped.
QByteArray withoutByteOrderMark(const QByteArray &data)
{
    if (data.startsWith("\xFF\xFE") || data.startsWith("\xFE\xFF")) {
        QStringDecoder decoder(data.startsWith("\xFF\xFE") ? QStringDecoder::Utf16LE
                                                           : QStringDecoder::Utf16BE);
        return QString(decoder(QByteArrayView(data).sliced(2))).toUtf8();
    }
    if (data.startsWith("\xEF\xBB\xBF"))
        return data.sliced(3);
    return data;
}

QString reasonForNoCard(const QByteArray &data)
{
    if (data.trimmed().isEmpty())
        return QStringLiteral("empty");
    if (data.contains('\0'))
        return QStringLiteral("binary data");
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(data);
    if (decoder.hasError())
        return QStringLiteral("not UTF-8");
    return QStringLiteral("no vCard in it");
}

} // namespace

struct VCardReader::CardBuilder
{
    QString fullName;
    QString composedName;
    QString given;
    QString family;
    QString nickname;
    QString organisation;
    QStringList phoneNumbers;
    QStringList handles;

    // The first of each name wins: 4.0 may give one per language, and the first is the one
    // the writer meant.
    void add(const QByteArray &name, const QString &value)
    {
        if (name == "FN") {
            if (fullName.isEmpty())
                fullName = unescaped(value).trimmed();
        } else if (name == "N") {
            if (!composedName.isEmpty() || !given.isEmpty() || !family.isEmpty())
                return;
            const QStringList n = components(value, u';');
            family = n.value(0).trimmed();
            given = n.value(1).trimmed();
            QStringList ordered;
            for (const QString &part :
                 { n.value(3), n.value(1), n.value(2), n.value(0), n.value(4) }) {
                if (!part.trimmed().isEmpty())
                    ordered << part.trimmed();
            }
            composedName = ordered.join(u' ');
        } else if (name == "NICKNAME") {
            if (nickname.isEmpty())
                nickname = components(value, u',').value(0).trimmed();
        } else if (name == "ORG") {
            if (organisation.isEmpty())
                organisation = components(value, u';').value(0).trimmed();
        } else if (name == "TEL") {
            const QString number = withoutScheme(unescaped(value).trimmed(), QLatin1String("tel:"));
            if (!number.isEmpty())
                phoneNumbers << number;
        } else if (name == "EMAIL") {
            const QString handle =
                withoutScheme(unescaped(value).trimmed(), QLatin1String("mailto:"));
            if (!handle.isEmpty())
                handles << handle;
        } else if (name == "IMPP") {
            QString handle = unescaped(value).trimmed();
            if (const qsizetype scheme = handle.indexOf(u':'); scheme >= 0)
                handle = handle.mid(scheme + 1).trimmed();
            if (!handle.isEmpty())
                handles << handle;
        }
    }
};

Contact VCardReader::contactOf(const CardBuilder &card)
{
    Contact contact;
    if (!card.fullName.isEmpty())
        contact.m_fullName = card.fullName;
    else if (!card.composedName.isEmpty())
        contact.m_fullName = card.composedName;
    if (!card.nickname.isEmpty())
        contact.m_displayName = card.nickname;
    else if (!card.organisation.isEmpty())
        contact.m_displayName = card.organisation;
    contact.m_initials =
        initialsOf(card.given, card.family,
                   contact.m_fullName.isNull() ? contact.m_displayName : contact.m_fullName);
    contact.m_phoneNumbers = card.phoneNumbers;
    contact.m_handles = card.handles;
    return contact;
}

VCardReader::Result VCardReader::read(const QByteArray &input)
{
    const QByteArray data = withoutByteOrderMark(input);
    Result result;
    std::optional<CardBuilder> card;
    bool sawCard = false;
    Lines lines(data);
    while (!lines.atEnd()) {
        QByteArrayView line = lines.next();
        // Files joined together keep the byte-order mark of each.
        if (line.startsWith("\xEF\xBB\xBF"))
            line = line.sliced(3);
        // A fold here continues a property already dropped.
        if (isBlank(line) || isFold(line))
            continue;

        // A head may itself be folded ("PHOTO;ENCODING=b;\r\n TYPE=JPEG:...").
        QByteArray joinedHead;
        qsizetype valueStart = 0;
        std::optional<VCardProperty> property = VCardProperty::parse(line, &valueStart);
        while (!property && line.size() < kMaxFoldedHead && isFold(lines.peek())) {
            QByteArray head = line.toByteArray();
            head.append(lines.next().sliced(1));
            joinedHead = std::move(head);
            line = joinedHead;
            property = VCardProperty::parse(line, &valueStart);
        }
        if (!property) {
            // Not a property: dropped with whatever continues it.
            while (isFold(lines.peek()))
                lines.next();
            continue;
        }

        const QByteArray &name = property->name();
        if (name == "BEGIN" || name == "END") {
            const bool isCard =
                line.sliced(valueStart).trimmed().compare("VCARD", Qt::CaseInsensitive) == 0;
            takeContinuation(lines, *property, line, nullptr);
            if (!isCard)
                continue;
            // A card left open by a damaged or nested one ends where the next begins.
            if (card)
                result.contacts << contactOf(*card);
            card.reset();
            if (name == "BEGIN") {
                card.emplace();
                sawCard = true;
            }
            continue;
        }
        if (!card || !isWanted(name) || property->isBinary()) {
            takeContinuation(lines, *property, line, nullptr);
            continue;
        }
        QByteArray value = line.sliced(valueStart).toByteArray();
        takeContinuation(lines, *property, line, &value);
        // A value that cannot be read (broken escape, unknown charset) loses that property
        // only, on purpose and without a log line: the rest of the card is good.
        if (const std::optional<QString> text = property->text(value))
            card->add(name, *text);
    }
    if (card)
        result.contacts << contactOf(*card);
    if (!sawCard)
        result.error = reasonForNoCard(input);
    return result;
}
