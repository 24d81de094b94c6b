#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// Helpers shared by the tests: a temporary Messages directory per test and files in it.
namespace TestSupport {

// Writes a file (creating it) and answers whether all of it was written.
bool writeFile(const QString &path, const QByteArray &contents = QByteArray("x"));

// A recording's bare name for the fields given.
QString recordingName(const QString &kind, const QString &address, const QString &time);

// The lines of the diagnostic log written since offset (in bytes).
QStringList logLinesSince(qint64 offset);
qint64 logSize();

// The permission bits of a file as ls shows them, such as 0600; -1 when there is none.
int fileMode(const QString &path);

// The demo samples of the source tree.
QString samplesDirectory();

} // namespace TestSupport
