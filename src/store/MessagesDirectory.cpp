#include "MessagesDirectory.h"

#include <QRegularExpression>
#include <QStringDecoder>

QString MessagesDirectory::filePath(const QString &name) const
{
    return QStringLiteral("%1/%2").arg(m_path, name);
}

std::optional<QString> MessagesDirectory::checkedFilePath(const QString &name) const
{
    // The directory is taken as it is; only the name, which comes from the directory's own
    // listing or a recorder, is decoded, and it must still name one entry of the directory.
    const std::optional<QString> bare = stringByRemovingPercentEscapes(name);
    if (!bare || !namesOneEntry(*bare) || bare->contains(QChar(0)))
        return std::nullopt;
    return filePath(*bare);
}

std::optional<QString> MessagesDirectory::nameOf(const QString &path) const
{
    const QString prefix = m_path + u'/';
    if (!path.startsWith(prefix))
        return std::nullopt;
    return path.mid(prefix.size());
}

bool MessagesDirectory::namesOneEntry(const QString &name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(u'/');
}

std::optional<QString> MessagesDirectory::stringByRemovingPercentEscapes(const QString &text)
{
    static const QRegularExpression malformed(QStringLiteral("%(?![0-9A-Fa-f]{2})"));
    if (text.contains(malformed))
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder(QByteArray::fromPercentEncoding(text.toUtf8()));
    if (decoder.hasError())
        return std::nullopt;
    return decoded;
}
