#pragma once

#include "Entry.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <memory>
#include <vector>

// Finds recordings by what a person remembers of them: the caller's name, the number in
// whatever form it is typed ("555 123", "(555) 123-4567", "+1555123", or nationally with its
// leading 0), or words of the transcript. Letters match whatever their case.
//
// Transcripts are read on the thread pool, never on the caller's thread; they are found as
// they come in, and transcriptsRead says when more have come. What was read is kept while the
// search lives: the list makes one for each time its search field is shown.
class RecordingSearch : public QObject
{
    Q_OBJECT
public:
    // directory: the Messages directory, where the entries' transcripts are.
    explicit RecordingSearch(QString directory, QObject *parent = nullptr);
    ~RecordingSearch() override;

    // The text typed. A blank query finds every entry.
    void setQuery(const QString &query);
    QString query() const { return m_query; }
    bool isBlank() const { return m_folded.isEmpty(); }

    // The positions in entries of those the query finds, in their order. Typing on narrows
    // the previous answer instead of looking at every entry again, until the entries change
    // (say so with entriesChanged) or more transcripts come in.
    const std::vector<qsizetype> &find(const QList<Entry> &entries);
    void entriesChanged()
    {
        m_narrowable = false;
        m_indexed = false;
    }

    // Starts reading the transcripts of these entries that have not been read yet.
    void readTranscripts(const QList<Entry> &entries);

signals:
    // More transcripts have been read: the same query may find more.
    void transcriptsRead();

private:
    struct Mailbox;

    struct Caller
    {
        QString name;
        QString address;
    };
    bool matches(const Caller &caller) const;
    void index(const QList<Entry> &entries);
    void adopt(QHash<QString, QByteArray> texts);

    QString m_directory;
    QString m_query;
    QString m_folded;         // the query, trimmed and case-folded
    QByteArray m_foldedUtf8;  // the same, for searching transcripts as stored
    QString m_digits;         // the number typed, digits only; empty when it is no number
    QString m_nationalDigits; // the same without a leading trunk 0, if it has one
    QHash<QString, QByteArray> m_texts; // case-folded UTF-8, by transcript name
    // Recordings come from far fewer callers: each caller is matched once, and each entry
    // (by its position) is one of them.
    std::vector<Caller> m_callers;
    std::vector<int> m_callerOf;
    bool m_indexed { false };
    QSet<QString> m_requested;          // transcripts read or being read
    std::vector<qsizetype> m_found;
    QString m_foundFor; // the folded query m_found answers, and the numbers it looked for
    QString m_foundDigits;
    QString m_foundNational;
    bool m_narrowable { false };
    std::shared_ptr<Mailbox> m_mailbox;
};
