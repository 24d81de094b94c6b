#include "RecordingFiles.h"

#include "core/Log.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringDecoder>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace RecordingFiles {

std::optional<QString> stringByRemovingPercentEscapes(const QString &text)
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

QString joined(const QString &messagesDirectory, const QString &name)
{
    return QStringLiteral("%1/%2").arg(messagesDirectory, name);
}

std::optional<QString> unescapedPathInside(const QString &messagesDirectory, const QString &name)
{
    // The directory is taken as it is; only the name, which comes from the directory's own
    // listing or a recorder, is decoded, and it must still name one entry of the directory.
    const std::optional<QString> bare = stringByRemovingPercentEscapes(name);
    if (!bare || bare->isEmpty() || *bare == QLatin1String(".") || *bare == QLatin1String("..") ||
        bare->contains(u'/') || bare->contains(QChar(0)))
        return std::nullopt;
    return joined(messagesDirectory, *bare);
}

bool isTemporaryArchive(const QString &path)
{
    return path.contains(QLatin1String(".zip"));
}

QString workingArchivePath()
{
    const std::string directory = vantrel::log::temporaryDirectory();
    vantrel::log::ensurePrivateDirectory(directory);
    return QStringLiteral("%1/.vt-multi.zip").arg(QString::fromStdString(directory));
}

QString sharedArchivePath(const std::optional<QString> &lastDateString,
                          const std::optional<QString> &firstDateString, const QDateTime &now)
{
    const QString nowText = now.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    return QStringLiteral("/tmp/Vantrel-%1-%2.zip")
        .arg(lastDateString.value_or(nowText), firstDateString.value_or(nowText));
}

QString removeFile(const QString &path)
{
    const QByteArray bytes = QFile::encodeName(path);
    // unlink removes a symbolic link itself and refuses a folder: a recording's row can
    // never take a folder's contents, or a link's target, with it.
    if (::unlink(bytes.constData()) == 0)
        return QString();
    const int error = errno;
    return QStringLiteral("remove %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error)));
}

} // namespace RecordingFiles
