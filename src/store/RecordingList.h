#pragma once

#include "Entry.h"

#include <QByteArrayList>
#include <QList>
#include <QLocale>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

class ContactStore;

// The recordings of one Messages directory as the list shows them, newest first, kept
// current change by change. A change costs work in proportion to what changed: a recording
// already listed is not parsed, dated or matched to a contact again, and a name the directory
// watcher reports is looked at on its own. Whatever the sequence of reloads and updates, the
// entries are exactly those a fresh list would read from the directory as it stands.
//
// The order is newest first; recordings of the same second, and the undated (which go last),
// follow their file names, so that the order never depends on how the directory happens to
// list them.
class RecordingList
{
public:
    // contacts may be null (every caller then shows as its address). Dates are shown in
    // displayLocale; they are read in the process's time zone.
    RecordingList(QString directory, const ContactStore *contacts,
                  QLocale displayLocale = QLocale());
    ~RecordingList();
    RecordingList(const RecordingList &) = delete;
    RecordingList &operator=(const RecordingList &) = delete;

    const QList<Entry> &entries() const { return m_entries; }

    // Why the directory could not be read at the last reload; empty when it was read, or
    // when it is simply not there (which lists nothing).
    const QString &error() const { return m_error; }

    // Lists the whole directory again, pairing each recording with its transcript from the
    // same listing. Answers the entries that were not listed before, newest first.
    QList<Entry> reload();

    // Looks again at these names of the directory only, as the file system spells them: each
    // may be a recording or a transcript that came, went or was renamed. Answers the entries
    // that were not listed before, newest first.
    QList<Entry> update(const QByteArrayList &names);

    // Drops these rows without looking at the directory: their files were just removed, and
    // the watcher's report of it follows.
    void forget(const QList<int> &rows);

    // The address book changed: every caller is matched again at the next reload or update.
    void contactsChanged() { m_contactsChanged = true; }

    // The entry a listed name would have, or nothing when the name is not a recording's.
    std::optional<Entry> entryForFile(const QString &fileName);

    // Newest first, as the list orders its entries; see the class.
    static void sort(QList<Entry> &entries);

private:
    class Reading;

    void matchCallersAgain();
    std::optional<qsizetype> indexOf(const QString &fileName);
    qsizetype lowerBound(qint64 key, const QString &fileName) const;
    void insert(QList<Entry> &arrivals, std::vector<qint64> &keys);
    void remove(const std::vector<bool> &keep);
    bool recordingExists(const QByteArray &name) const;
    bool hasTranscript(QByteArrayView recording) const;

    QString m_directory;
    QByteArray m_path; // the directory as the file system spells it, with a final '/'
    const ContactStore *m_contacts { nullptr };
    std::unique_ptr<Reading> m_reading; // what formatting and dating keep between calls
    QList<Entry> m_entries;
    std::vector<qint64> m_keys; // each entry's instant, kUndated for none; with m_entries
    QString m_error;
    bool m_contactsChanged { false };
};
