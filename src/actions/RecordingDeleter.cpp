#include "RecordingDeleter.h"

#include "RecordingFiles.h"
#include "core/Log.h"
#include "store/RecordingName.h"

#include <QFile>
#include <QSet>
#include <sys/stat.h>

QStringList RecordingDeleter::pathsToRemove(const QList<Entry> &entries) const
{
    QStringList paths;
    for (const Entry &entry : entries) {
        paths << m_messagesDirectory.filePath(entry.filename);
        const QString transcript =
            m_messagesDirectory.filePath(RecordingName::transcriptName(entry.filename));
        if (hasTranscriptFile(transcript))
            paths << transcript;
    }
    return paths;
}

bool RecordingDeleter::removePaths(const QStringList &paths) const
{
    const QSet<QString> chosen(paths.cbegin(), paths.cend());
    bool failed = false;
    for (const QString &path : paths) {
        // Only a name inside the Messages directory is decoded, and only a file that was
        // chosen is removed: a name like "a%20b.caf" never takes another recording "a b.caf"
        // with it.
        const std::optional<QString> name = m_messagesDirectory.nameOf(path);
        const std::optional<QString> target =
            name ? m_messagesDirectory.checkedFilePath(*name) : std::nullopt;
        QString error;
        if (!target)
            error = QStringLiteral("remove %1: the name does not name a file of the Messages "
                                   "directory once its percent escapes are removed")
                        .arg(path);
        else if (*target != path && !chosen.contains(*target))
            error = QStringLiteral("remove %1: its percent escapes name another file, %2")
                        .arg(path, *target);
        else
            error = RecordingFiles::removeFile(*target);
        if (!error.isEmpty()) {
            mylog(QStringLiteral("delete error %1").arg(error));
            failed = true;
        }
    }
    return !failed;
}

void RecordingDeleter::removeSilently(const Entry &entry) const
{
    // A stored name comes from the directory's own listing, so it is one entry of it; a name
    // given otherwise that would leave the directory is simply not removed.
    if (MessagesDirectory::namesOneEntry(entry.filename))
        RecordingFiles::removeFile(m_messagesDirectory.filePath(entry.filename));
    const QString transcriptName = RecordingName::transcriptName(entry.filename);
    const QString transcript = m_messagesDirectory.filePath(transcriptName);
    if (MessagesDirectory::namesOneEntry(transcriptName) && hasTranscriptFile(transcript))
        RecordingFiles::removeFile(transcript);
}

bool RecordingDeleter::hasTranscriptFile(const QString &transcriptPath) const
{
    struct stat info
    {
    };
    return ::lstat(QFile::encodeName(transcriptPath).constData(), &info) == 0 &&
           !S_ISDIR(info.st_mode);
}
