#pragma once

#include "Entry.h"

#include <QList>
#include <QLocale>
#include <QString>

class ContactStore;

// Reads the Messages directory into entries once, newest first: lists the directory, keeps the
// names that are recordings, pairs each with its transcript, reads its call time and finds
// its caller in the address book. Never writes to the directory. A list that follows the
// directory keeps a RecordingList instead, which reads only what changed.
class RecordingCatalogue
{
public:
    // contacts may be null (every caller then shows as its address). Dates are shown in
    // displayLocale; they are read in the process's time zone.
    explicit RecordingCatalogue(const ContactStore *contacts, QLocale displayLocale = QLocale());

    // A missing or unreadable directory gives an empty list; for one that is there but cannot
    // be read, error (when given) says why. It is left empty otherwise.
    QList<Entry> entries(const QString &directory, QString *error = nullptr) const;

    // The entry for one listed name, or nothing when the name is not a recording's.
    std::optional<Entry> entryForFile(const QString &directory, const QString &fileName) const;

    // Sorts in place, newest first as compareElements orders entries wherever its answers
    // agree both ways round; the undated go last. Entries of the same time, and the undated,
    // follow their file names.
    static void sort(QList<Entry> &entries);

private:
    const ContactStore *m_contacts { nullptr };
    QLocale m_displayLocale;
};
