#include "Url.h"

#include <QDesktopServices>
#include <QFile>
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

bool Url::canOpenURL(const Url &url)
{
    QProcess query;
    query.start(QStringLiteral("xdg-mime"), { QStringLiteral("query"), QStringLiteral("default"),
                                              QStringLiteral("x-scheme-handler/") + url.scheme() });
    if (!query.waitForFinished(2000) || query.exitCode() != 0)
        return false;
    return !query.readAllStandardOutput().trimmed().isEmpty();
}

void Url::canOpenURL(const Url &url, QObject *context, std::function<void(bool)> answer)
{
    auto *query = new QProcess(context);
    const auto finish = [query, answer = std::move(answer)](bool registered) {
        query->deleteLater();
        answer(registered);
    };
    QObject::connect(query, &QProcess::finished, context, [query, finish](int exitCode) {
        finish(exitCode == 0 && !query->readAllStandardOutput().trimmed().isEmpty());
    });
    QObject::connect(query, &QProcess::errorOccurred, context,
                     [finish](QProcess::ProcessError error) {
                         // A query that cannot start has no answer to wait for.
                         if (error == QProcess::FailedToStart)
                             finish(false);
                     });
    query->start(QStringLiteral("xdg-mime"),
                 { QStringLiteral("query"), QStringLiteral("default"),
                   QStringLiteral("x-scheme-handler/") + url.scheme() });
}

bool Url::openURL(const Url &url)
{
    if (const auto qurl = url.toQUrl(); qurl && QDesktopServices::openUrl(*qurl))
        return true;
    return QProcess::startDetached(QStringLiteral("xdg-open"), { url.toString() });
}
