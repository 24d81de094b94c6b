#include "Url.h"

#include <QFile>

namespace {

bool isHex(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

// Unreserved, reserved and "%" of RFC 3986.
bool isUrlCharacter(QChar c)
{
    if (c.unicode() >= 128)
        return false;
    const char ch = char(c.unicode());
    if ((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9'))
        return true;
    return QByteArrayView("-._~:/?#[]@!$&'()*+,;=%").contains(ch);
}

bool isScheme(QStringView scheme)
{
    if (scheme.isEmpty() || !scheme[0].isLetter())
        return false;
    for (const QChar c : scheme) {
        if (!(c.isLetterOrNumber() || c == u'+' || c == u'-' || c == u'.'))
            return false;
    }
    return true;
}

} // namespace

std::optional<Url> Url::urlWithString(const QString &text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!isUrlCharacter(text[i]))
            return std::nullopt;
        if (text[i] == u'%' && (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])))
            return std::nullopt;
    }
    if (text.isEmpty())
        return std::nullopt;
    // A relative reference, such as a bare path, is a URL too; its first segment holds no
    // colon, or the colon would have made it a scheme.
    const qsizetype colon = text.indexOf(u':');
    const qsizetype slash = text.indexOf(u'/');
    const bool relative = colon < 0 || (slash >= 0 && slash < colon);
    if (!relative && !isScheme(QStringView(text).left(colon)))
        return std::nullopt;
    return Url(text);
}

QString Url::scheme() const
{
    const qsizetype colon = m_text.indexOf(u':');
    const qsizetype slash = m_text.indexOf(u'/');
    if (colon < 0 || (slash >= 0 && slash < colon))
        return QString();
    return m_text.left(colon);
}

QString Url::fileSystemPath() const
{
    const QString scheme = this->scheme();
    if (!scheme.isEmpty() && scheme.compare(QLatin1String("file"), Qt::CaseInsensitive) != 0)
        return QString();
    QString path = scheme.isEmpty() ? m_text : m_text.mid(scheme.size() + 1);
    if (path.startsWith(QLatin1String("//"))) {
        path = path.mid(2);
        path = path.mid(path.indexOf(u'/') < 0 ? path.size() : path.indexOf(u'/'));
    }
    path.truncate(std::min(path.indexOf(u'?') < 0 ? path.size() : path.indexOf(u'?'),
                           path.indexOf(u'#') < 0 ? path.size() : path.indexOf(u'#')));
    return QFile::decodeName(QByteArray::fromPercentEncoding(path.toLatin1()));
}

std::optional<QUrl> Url::toQUrl() const
{
    const QUrl url(m_text, QUrl::TolerantMode);
    if (!url.isValid() || url.toString(QUrl::FullyEncoded) != m_text)
        return std::nullopt;
    return url;
}
