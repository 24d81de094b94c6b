#include "PrivateFiles.h"

#include <QFile>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace PrivateFiles {

namespace {
// Copies go through memory in pieces of this size, whatever the file's.
constexpr qint64 kChunk = 1 << 20;
constexpr QFile::Permissions kOwnerOnly = QFile::ReadOwner | QFile::WriteOwner;

QString failure(const QString &operation, const QString &path, const QString &reason)
{
    return QStringLiteral("%1 %2: %3").arg(operation, path, reason);
}
} // namespace

QString copyContents(const QString &source, QIODevice &destination)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("read"), source, from.errorString());
    while (!from.atEnd()) {
        const QByteArray chunk = from.read(kChunk);
        if (chunk.isEmpty())
            return failure(QStringLiteral("read"), source, from.errorString());
        if (destination.write(chunk) != chunk.size())
            return failure(QStringLiteral("write"), QStringLiteral("the copy"),
                           destination.errorString());
    }
    return QString();
}

QString copy(const QString &source, const QString &destination)
{
    // NewOnly is O_CREAT | O_EXCL: the mode applies from the start, and a link planted at the
    // name is refused rather than followed.
    QFile to(destination);
    if (!to.open(QIODevice::WriteOnly | QIODevice::NewOnly, kOwnerOnly))
        return failure(QStringLiteral("create"), destination, to.errorString());
    QString error = copyContents(source, to);
    if (error.isEmpty() && !to.flush())
        error = failure(QStringLiteral("write"), destination, to.errorString());
    to.close();
    if (!error.isEmpty())
        QFile::remove(destination);
    return error;
}

QString move(const QString &source, const QString &destination)
{
    // Still inside its private folder, where nobody else can open it in the meantime.
    if (!QFile::setPermissions(source, kOwnerOnly))
        return failure(QStringLiteral("protect"), source, QStringLiteral("cannot change its mode"));
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(destination);
    if (std::rename(from.constData(), to.constData()) == 0)
        return QString();
    const int error = errno;
    if (error != EXDEV)
        return failure(QStringLiteral("move"), source,
                       QString::fromLocal8Bit(std::strerror(error)));
    // Another file system: a private copy under the new name, then the original goes.
    QFile::remove(destination);
    const QString copied = copy(source, destination);
    if (copied.isEmpty())
        QFile::remove(source);
    return copied;
}

} // namespace PrivateFiles
