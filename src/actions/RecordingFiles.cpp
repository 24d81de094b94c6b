#include "RecordingFiles.h"

#include "core/Log.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace RecordingFiles {

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
