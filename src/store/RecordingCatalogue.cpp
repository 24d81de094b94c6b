#include "RecordingCatalogue.h"

#include "RecordingList.h"

RecordingCatalogue::RecordingCatalogue(const ContactStore *contacts, QLocale displayLocale)
    : m_contacts(contacts), m_displayLocale(std::move(displayLocale))
{}

std::optional<Entry> RecordingCatalogue::entryForFile(const QString &directory,
                                                      const QString &fileName) const
{
    return RecordingList(directory, m_contacts, m_displayLocale).entryForFile(fileName);
}

QList<Entry> RecordingCatalogue::entries(const QString &directory, QString *error) const
{
    RecordingList list(directory, m_contacts, m_displayLocale);
    list.reload();
    if (error)
        *error = list.error();
    return list.entries();
}

void RecordingCatalogue::sort(QList<Entry> &entries)
{
    RecordingList::sort(entries);
}
