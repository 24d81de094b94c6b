#pragma once

#include <QDateTime>
#include <QString>
#include <optional>

// The archives made of recordings, and removing a recording's files. Plain functions: the
// rules that decide which file a delete or a share touches are tested without a screen.
namespace RecordingFiles {

// Whether a path is a temporary archive of the share flow: it holds ".zip" anywhere.
bool isTemporaryArchive(const QString &path);

// The archive being written during a run: "%@/.vt-multi.zip" of the application's temporary
// directory, which is made (private to this user) when missing.
QString workingArchivePath();

// "/tmp/Vantrel-%@-%@.zip" from the date texts of the last and the first selected recording;
// a missing date reads as the time now, as the phone's date description prints it.
QString sharedArchivePath(const std::optional<QString> &lastDateString,
                          const std::optional<QString> &firstDateString,
                          const QDateTime &now = QDateTime::currentDateTime());

// Removes one file or symbolic link (never what a link points at, never a folder). Answers
// an empty text on success, else what went wrong: the operation, the path and the reason.
QString removeFile(const QString &path);

} // namespace RecordingFiles
