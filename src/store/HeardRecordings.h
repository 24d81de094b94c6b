#pragma once

#include "Entry.h"

#include <QList>
#include <QString>
#include <QtGlobal>
#include <vector>

// Which recordings of one Messages directory have been heard, remembered across starts in a
// small file of the program's own: "$XDG_DATA_HOME/net.zorvath.vantrel/heard/" and a digest
// of the directory's path, never inside the Messages directory.
//
// A recording is known by a 64-bit digest of its file name: one renamed is a new recording,
// and each write keeps only the recordings still listed, so neither a rename nor a delete
// leaves anything behind. A file that is missing, or damaged in any way, means that nothing
// has been heard yet.
class HeardRecordings
{
public:
    // Reads what was heard in the Messages directory at this path; the file is in folder
    // (the default one when empty).
    explicit HeardRecordings(const QString &messagesDirectory, const QString &folder = {});

    QString path() const { return m_path; }
    bool isHeard(const QString &fileName) const;
    // Remembers a recording as heard and writes the file at once, keeping only what is listed.
    void markHeard(const QString &fileName, const QList<Entry> &listed);
    qsizetype unheardCount(const QList<Entry> &entries) const;

private:
    static quint64 digest(const QString &text);
    void read();
    void write(const QList<Entry> &listed);

    QString m_path;
    std::vector<quint64> m_heard; // sorted
};
