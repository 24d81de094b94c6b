#pragma once

#include "store/Entry.h"
#include "store/MessagesDirectory.h"

#include <QList>
#include <QString>
#include <QStringList>

// Removes recordings, and their transcripts, from the Messages directory: the files of the
// entries it is given and nothing else. A name that would reach outside the directory, or a
// folder, is never removed; a symbolic link is removed as a link.
class RecordingDeleter
{
public:
    explicit RecordingDeleter(QString messagesDirectory)
        : m_messagesDirectory(std::move(messagesDirectory))
    {}

    // The paths a bulk delete removes, in order: each recording "%@/%@" with its name as
    // stored, followed by its transcript when one exists now.
    QStringList pathsToRemove(const QList<Entry> &entries) const;

    // Removes every path, each with its name's percent escapes removed, and goes on after a
    // failure; each failure is logged as "delete error %@". Answers whether all went.
    bool removePaths(const QStringList &paths) const;

    // The swipe's removal: the recording under its name as stored and its transcript when
    // present. Failures are neither reported nor logged: the list is read again afterwards.
    void removeSilently(const Entry &entry) const;

private:
    // The transcript path of a recording path, when a file (not a folder) is there.
    bool hasTranscriptFile(const QString &transcriptPath) const;

    MessagesDirectory m_messagesDirectory;
};
