#include "Url.h"

#include <QDesktopServices>
#include <QProcess>

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

} // namespace

std::optional<QUrl> Url::urlWithString(const QString &text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!isUrlCharacter(text[i]))
            return std::nullopt;
        if (text[i] == u'%' && (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])))
            return std::nullopt;
    }
    QUrl url(text, QUrl::TolerantMode);
    if (!url.isValid())
        return std::nullopt;
    return url;
}

bool Url::canOpenURL(const QUrl &url)
{
    if (url.scheme().isEmpty())
        return false;
    QProcess query;
    query.start(QStringLiteral("xdg-mime"), {QStringLiteral("query"), QStringLiteral("default"),
                                             QStringLiteral("x-scheme-handler/") + url.scheme()});
    if (!query.waitForFinished(2000) || query.exitCode() != 0)
        return false;
    return !query.readAllStandardOutput().trimmed().isEmpty();
}

bool Url::openURL(const QUrl &url)
{
    return QDesktopServices::openUrl(url);
}
