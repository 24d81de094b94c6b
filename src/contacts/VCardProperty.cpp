#include "VCardProperty.h"

#include <QList>
#include <QStringDecoder>
#include <algorithm>
#include <array>

namespace {

// 2.1 writes the encoding as a bare parameter ("TEL;CELL;QUOTED-PRINTABLE:").
bool isEncodingName(QByteArrayView upper)
{
    return upper == "QUOTED-PRINTABLE" || upper == "BASE64" || upper == "8BIT" || upper == "7BIT";
}

bool isNameCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

QByteArray unquoted(QByteArrayView value)
{
    value = value.trimmed();
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.sliced(1, value.size() - 2);
    return value.toByteArray();
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

std::optional<QByteArray> fromQuotedPrintable(QByteArrayView in)
{
    QByteArray out;
    out.reserve(in.size());
    for (qsizetype i = 0; i < in.size(); ++i) {
        if (in[i] != '=') {
            out += in[i];
            continue;
        }
        // A last "=" (with transport padding after it) is a soft line break into nothing.
        if (in.sliced(i + 1).trimmed().isEmpty())
            break;
        const int high = i + 2 < in.size() ? hexValue(in[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(in[i + 2]) : -1;
        if (low < 0)
            return std::nullopt;
        out += char(high * 16 + low);
        i += 2;
    }
    return out;
}

bool isAscii(QByteArrayView bytes)
{
    for (const char c : bytes) {
        if (uchar(c) >= 0x80)
            return false;
    }
    return true;
}

// Windows-1252 differs from Latin-1 only in 0x80-0x9F; the five bytes it leaves undefined keep
// their Latin-1 meaning, as browsers read them.
QString fromWindows1252(QByteArrayView bytes)
{
    static constexpr std::array<char16_t, 32> kHigh = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
    };
    QString out(bytes.size(), Qt::Uninitialized);
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const uchar c = uchar(bytes[i]);
        out[i] = (c >= 0x80 && c < 0xA0) ? QChar(kHigh[c - 0x80]) : QChar(c);
    }
    return out;
}

std::optional<QString> fromUtf8(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

// Files labelled Latin-1 or ASCII are in practice Windows-1252, as on the web.
bool isWindows1252Name(const QByteArray &lower)
{
    return lower == "iso-8859-1" || lower == "iso8859-1" || lower == "latin1" ||
           lower == "latin-1" || lower == "windows-1252" || lower == "cp1252" ||
           lower == "us-ascii" || lower == "ascii";
}

} // namespace

std::optional<VCardProperty> VCardProperty::parse(QByteArrayView line, qsizetype *valueStart)
{
    // The head ends at the first colon outside a quoted parameter value.
    qsizetype colon = -1;
    bool inQuotes = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line[i] == '"') {
            inQuotes = !inQuotes;
        } else if (line[i] == ':' && !inQuotes) {
            colon = i;
            break;
        }
    }
    if (colon < 0)
        return std::nullopt;

    VCardProperty property;
    qsizetype start = 0;
    bool first = true;
    inQuotes = false;
    for (qsizetype i = 0; i <= colon; ++i) {
        if (i < colon && line[i] == '"')
            inQuotes = !inQuotes;
        if (i < colon && (line[i] != ';' || inQuotes))
            continue;
        const QByteArrayView part = line.sliced(start, i - start).trimmed();
        start = i + 1;
        if (first) {
            first = false;
            if (part.isEmpty() || !std::all_of(part.begin(), part.end(), isNameCharacter))
                return std::nullopt;
            property.m_name = part.sliced(part.lastIndexOf('.') + 1).toByteArray().toUpper();
            if (property.m_name.isEmpty())
                return std::nullopt;
            continue;
        }
        const qsizetype equals = part.indexOf('=');
        if (equals < 0) {
            const QByteArray bare = part.toByteArray().toUpper();
            if (isEncodingName(bare))
                property.m_encoding = bare;
            continue; // otherwise a type, as 2.1 writes them ("TEL;CELL;PREF:")
        }
        const QByteArray key = part.first(equals).trimmed().toByteArray().toUpper();
        if (key == "ENCODING")
            property.m_encoding = unquoted(part.sliced(equals + 1)).toUpper();
        else if (key == "CHARSET")
            property.m_charset = unquoted(part.sliced(equals + 1));
    }
    *valueStart = colon + 1;
    return property;
}

std::optional<QString> VCardProperty::text(QByteArrayView value) const
{
    QByteArray decoded;
    if (isQuotedPrintable()) {
        auto bytes = fromQuotedPrintable(value);
        if (!bytes)
            return std::nullopt;
        decoded = std::move(*bytes);
        value = decoded;
    } else if (isBinary()) {
        return std::nullopt;
    }

    const QByteArray charset = m_charset.trimmed().toLower();
    if (charset.isEmpty() || charset == "utf-8" || charset == "utf8" ||
        isWindows1252Name(charset)) {
        if (isAscii(value))
            return QString::fromLatin1(value);
        if (isWindows1252Name(charset))
            return fromWindows1252(value);
        if (auto text = fromUtf8(value))
            return text;
        if (!charset.isEmpty())
            return std::nullopt;
        return fromWindows1252(value);
    }
    QStringDecoder decoder(charset.constData(), QStringDecoder::Flag::Stateless);
    if (!decoder.isValid())
        return std::nullopt;
    QString text = decoder(value);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}
