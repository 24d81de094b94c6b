#include "RecordingCatalogue.h"

#include "RecordingName.h"
#include "store/ContactStore.h"

#include <QFile>
#include <QStringDecoder>
#include <algorithm>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

namespace {

struct DirCloser
{
    void operator()(DIR *dir) const { closedir(dir); }
};

// Names in listing order. A name that is not UTF-8 cannot be written back as a path of the
// same name, so it cannot be a recording the list could play or delete: it is left out.
QStringList listDirectory(const QString &directory)
{
    QStringList names;
    std::unique_ptr<DIR, DirCloser> dir(opendir(QFile::encodeName(directory).constData()));
    if (!dir)
        return names;
    QStringDecoder decoder(QStringDecoder::Utf8);
    while (const dirent *item = readdir(dir.get())) {
        const char *name = item->d_name;
        if ((name[0] == '.' && name[1] == '\0') ||
            (name[0] == '.' && name[1] == '.' && name[2] == '\0'))
            continue;
        decoder.resetState();
        QString decoded = decoder(QByteArrayView(name));
        if (!decoder.hasError())
            names << decoded;
    }
    return names;
}

bool isFileNotDirectory(const QString &path)
{
    struct stat info
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 && !S_ISDIR(info.st_mode);
}

} // namespace

RecordingCatalogue::RecordingCatalogue(const ContactStore *contacts, QLocale displayLocale)
    : m_contacts(contacts), m_displayLocale(std::move(displayLocale))
{}

std::optional<Entry> RecordingCatalogue::entryForFile(const QString &directory,
                                                      const QString &fileName) const
{
    const auto name = RecordingName::parse(fileName);
    if (!name)
        return std::nullopt;

    Entry entry;
    // A name without ".caf" (one ending in "caf" alone) is its own transcript name, and so is
    // paired with itself; the reader then finds no UTF-8 text in it. Kept as it always was.
    const QString transcript = RecordingName::transcriptName(fileName);
    if (isFileNotDirectory(QStringLiteral("%1/%2").arg(directory, transcript)))
        entry.textFile = transcript;
    entry.filename = fileName;
    entry.type = RecordingName::callType(name->kind);
    entry.address = name->address;
    if (const auto date = RecordingName::parseTime(name->time)) {
        entry.date = *date;
        const QString shown = RecordingName::displayTime(*date, m_displayLocale);
        if (!shown.isNull())
            entry.dateString = shown;
    }
    entry.name = name->address;
    if (const Contact *contact =
            m_contacts ? m_contacts->contactForDestinationId(name->address) : nullptr) {
        // The full name wins over the display name when the contact has both.
        if (!contact->displayName().isNull())
            entry.name = contact->displayName();
        if (!contact->fullName().isNull())
            entry.name = contact->fullName();
    }
    return entry;
}

QList<Entry> RecordingCatalogue::entries(const QString &directory) const
{
    QList<Entry> result;
    for (const QString &fileName : listDirectory(directory)) {
        if (auto entry = entryForFile(directory, fileName))
            result.append(std::move(*entry));
    }
    sort(result);
    return result;
}

void RecordingCatalogue::sort(QList<Entry> &entries)
{
    // A stable merge sort: the comparator is deliberately not a strict ordering (it never
    // answers "same"), and a merge sort stays well-behaved with it where a quicksort need not.
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        return compareElements(a, b, nullptr) == ComparisonResult::OrderedAscending;
    });
}
