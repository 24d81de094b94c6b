#include "RecordingList.h"

#include "RecordingName.h"
#include "contacts/ContactStore.h"

#include <QFile>
#include <QHash>
#include <QSet>
#include <QStringBuilder>
#include <QStringDecoder>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <numeric>
#include <sys/stat.h>

namespace {

// The sort key of an entry without a date: after every dated one.
constexpr qint64 kUndated = std::numeric_limits<qint64>::min();

// A transcript name with more ".txt" than this could belong to too many recordings to try
// each (every ".txt" may have been a ".caf"): the directory is listed again instead.
constexpr int kMostTranscriptMarks = 8;

// Up to this many arrivals are put in place one by one; more are merged into a new list.
constexpr qsizetype kMostInsertions = 64;

struct DirCloser
{
    void operator()(DIR *dir) const { closedir(dir); }
};

// Whether a name is listed before another: newer first, then by file name; the undated last.
// compareElements is no strict ordering (an undated entry compares as later than anything,
// yet a dated one before 2001 as earlier than it), so no general sort can be driven by it;
// this order agrees with each of its answers that the answer with the operands swapped does
// not contradict.
bool listedBefore(qint64 key, const QString &name, qint64 otherKey, const QString &otherName)
{
    return key != otherKey ? key > otherKey : name < otherName;
}

// A transcript's name: every ".caf" of the recording's name, from the given byte on, becomes
// ".txt". Both are ASCII and of one length, so the bytes change in place and name the same
// file as the text would.
void makeTranscriptName(QByteArray &name, qsizetype from = 0)
{
    for (qsizetype at = name.indexOf(".caf", from); at >= 0; at = name.indexOf(".caf", at + 4))
        std::memcpy(name.data() + at, ".txt", 4);
}

// The entry's transcript as the directory now has it, touching the entry only if it changed:
// an entry written to is copied when the list is shared.
void setTranscript(QList<Entry> &entries, qsizetype at, bool present)
{
    const Entry &entry = entries.at(at);
    if (present == entry.textFile.has_value())
        return;
    if (present)
        entries[at].textFile = RecordingName::transcriptName(entry.filename);
    else
        entries[at].textFile.reset();
}

// "MMM dd yyyy - HH:mm:ss" in one locale, joined from pieces that the locale formats only
// once each: month names and years, and the two-digit numbers. The locale formats such a
// pattern field by field, so the joined pieces read exactly as the whole pattern would,
// while formatting every recording's time in full costs a quarter of a directory read.
class DisplayTimes
{
public:
    explicit DisplayTimes(const QLocale &locale) : m_locale(locale) {}

    QString format(const QDateTime &date)
    {
        const QDate day = date.date();
        auto known = m_days.constFind(day.toJulianDay());
        if (known == m_days.cend()) {
            known = m_days.insert(day.toJulianDay(), monthName(day) % u' ' % twoDigits(day.day()) %
                                                         u' ' % year(day.year()));
        }
        const QTime time = date.time();
        return *known % QLatin1String(" - ") % twoDigits(time.hour()) % u':' %
               twoDigits(time.minute()) % u':' % twoDigits(time.second());
    }

private:
    const QString &monthName(QDate day)
    {
        QString &name = m_monthNames[day.year() * 12 + day.month() - 1];
        if (name.isNull())
            name = m_locale.toString(QDate(day.year(), day.month(), 1), u"MMM");
        return name;
    }

    const QString &year(int year)
    {
        QString &text = m_years[year];
        if (text.isNull())
            text = m_locale.toString(QDate(year, 1, 1), u"yyyy");
        return text;
    }

    const QString &twoDigits(int value)
    {
        QString &digits = m_numbers[std::size_t(value)];
        if (digits.isNull())
            digits = m_locale.toString(QTime(0, value), u"mm");
        return digits;
    }

    const QLocale &m_locale;
    QHash<qint64, QString> m_days;
    QHash<int, QString> m_monthNames;
    QHash<int, QString> m_years;
    std::array<QString, 60> m_numbers;
};

// Instants of dates, for sorting. Asking a local date for its instant runs the C library's
// full conversion from local time, which costs more than everything else the catalogue does
// per recording; the offset from UTC of the previous date on the same side of daylight
// saving time is almost always right, and checking it takes the cheaper conversion the other
// way. Only when the local time it gives reads back exactly, on that same side, is it taken;
// otherwise (a change of offset, a date outside the years where the C library is plainly
// used) the date works its instant out itself, and its offset is tried next.
class Instants
{
public:
    qint64 of(const QDateTime &date)
    {
        if (date.timeSpec() != Qt::LocalTime)
            return date.toMSecsSinceEpoch();
        const QDate day = date.date();
        const QTime time = date.time();
        const qint64 wall =
            (day.toJulianDay() - kUnixEpochDay) * kMSecsPerDay + time.msecsSinceStartOfDay();
        const bool summer = date.isDaylightTime();
        if (m_known[summer] && day.year() >= kFirstYear && day.year() <= kLastYear) {
            const qint64 guess = wall - m_offset[summer];
            const std::time_t seconds = std::time_t(guess / 1000);
            std::tm local {};
            if (guess % 1000 == time.msec() && localtime_r(&seconds, &local) &&
                local.tm_year == day.year() - 1900 && local.tm_mon == day.month() - 1 &&
                local.tm_mday == day.day() && local.tm_hour == time.hour() &&
                local.tm_min == time.minute() && local.tm_sec == time.second() &&
                (local.tm_isdst > 0) == summer)
                return guess;
        }
        const qint64 instant = date.toMSecsSinceEpoch();
        m_offset[summer] = wall - instant;
        m_known[summer] = true;
        return instant;
    }

private:
    static constexpr qint64 kUnixEpochDay = 2440588; // the Julian day of 1970-01-01
    static constexpr qint64 kMSecsPerDay = 86400000;
    // Years well inside the range of a 32-bit time, where dates are converted by the C
    // library alone.
    static constexpr int kFirstYear = 1971;
    static constexpr int kLastYear = 2037;

    // By whether daylight saving time is in force.
    std::array<qint64, 2> m_offset {};
    std::array<bool, 2> m_known {};
};


// Sorts entries and their keys together, newest first, in place: entries move along the cycles
// of the permutation, so no second list is made.
void sortNewestFirst(QList<Entry> &entries, std::vector<qint64> &keys)
{
    std::vector<qsizetype> order(std::size_t(entries.size()));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return listedBefore(keys[std::size_t(a)], entries.at(a).filename, keys[std::size_t(b)],
                            entries.at(b).filename);
    });
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (order[std::size_t(i)] == i)
            continue;
        Entry held = std::move(entries[i]);
        const qint64 heldKey = keys[std::size_t(i)];
        for (qsizetype at = i;;) {
            const qsizetype from = order[std::size_t(at)];
            order[std::size_t(at)] = at;
            if (from == i) {
                entries[at] = std::move(held);
                keys[std::size_t(at)] = heldKey;
                break;
            }
            entries[at] = std::move(entries[from]);
            keys[std::size_t(at)] = keys[std::size_t(from)];
            at = from;
        }
    }
}

} // namespace

// What dating and formatting keep between two calls: month names, years and days already
// formatted, and the offsets from UTC last seen.
class RecordingList::Reading
{
public:
    Reading(const ContactStore *contacts, const QLocale &locale)
        : m_contacts(contacts), m_locale(locale), m_times(m_locale)
    {}

    std::optional<Entry> makeEntry(const QString &fileName, bool transcript)
    {
        const auto fields = RecordingName::fields(fileName);
        if (!fields)
            return std::nullopt;
        Entry entry;
        // A name without ".caf" (one ending in "caf" alone) is its own transcript name, and so
        // is paired with itself; the reader then finds no UTF-8 text in it. Kept as it always
        // was.
        if (transcript)
            entry.textFile = RecordingName::transcriptName(fileName);
        entry.filename = fileName;
        entry.type = RecordingName::callType(fields->kind);
        entry.address = fields->address.toString();
        if (const auto date = RecordingName::parseTime(fields->time)) {
            entry.date = *date;
            const QString shown = m_times.format(*date);
            if (!shown.isNull())
                entry.dateString = shown;
        }
        entry.name = callerName(entry.address);
        return entry;
    }

    QString callerName(const QString &address) const
    {
        const Contact *contact = m_contacts ? m_contacts->contactForDestinationId(address) : nullptr;
        if (!contact)
            return address;
        // The full name wins over the display name when the contact has both.
        if (!contact->fullName().isNull())
            return contact->fullName();
        if (!contact->displayName().isNull())
            return contact->displayName();
        return address;
    }

    qint64 keyOf(const std::optional<QDateTime> &date)
    {
        return date ? m_instants.of(*date) : kUndated;
    }

    // The key a name would be listed under, without making its entry.
    std::optional<qint64> keyOf(const QString &fileName)
    {
        const auto fields = RecordingName::fields(fileName);
        if (!fields)
            return std::nullopt;
        return keyOf(RecordingName::parseTime(fields->time));
    }

private:
    const ContactStore *m_contacts;
    QLocale m_locale;
    DisplayTimes m_times;
    Instants m_instants;
};

RecordingList::RecordingList(QString directory, const ContactStore *contacts,
                             QLocale displayLocale)
    : m_directory(std::move(directory)), m_path(QFile::encodeName(m_directory) + '/'),
      m_contacts(contacts), m_reading(std::make_unique<Reading>(contacts, displayLocale))
{}

RecordingList::~RecordingList() = default;

QList<Entry> RecordingList::reload()
{
    if (m_contactsChanged)
        matchCallersAgain();

    QHash<QStringView, qsizetype> known;
    known.reserve(m_entries.size());
    for (qsizetype i = 0; i < m_entries.size(); ++i)
        known.insert(m_entries.at(i).filename, i);
    std::vector<bool> keep(std::size_t(m_entries.size()), false);

    // One pass over the listing marks the recordings already listed, keeps the names of the
    // others, and every name that may be a transcript with its type as the listing gives it.
    // Each name is read into one buffer first, so that a name already listed costs no copy.
    // A name that is not UTF-8 cannot be written back as a path of the same name, so it
    // cannot be a recording the list could play or delete, nor the transcript of one: it is
    // left out. A leading byte-order mark is kept: it is part of the name.
    const std::unique_ptr<DIR, DirCloser> dir(opendir(m_path.constData()));
    const int openError = dir || errno == ENOENT ? 0 : errno;
    m_error = openError ? QString::fromLocal8Bit(strerror(openError)) : QString();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    QString buffer;
    QList<QString> unlisted;
    QHash<QString, unsigned char> transcripts;
    while (const dirent *item = dir ? readdir(dir.get()) : nullptr) {
        const QByteArrayView bytes(item->d_name);
        const bool recording = bytes.endsWith("caf");
        const bool transcript =
            bytes.contains(".txt") || (recording && !bytes.contains(".caf"));
        if (!recording && !transcript)
            continue;
        decoder.resetState();
        buffer.resize(bytes.size());
        const QChar *end = decoder.appendToBuffer(buffer.data(), bytes);
        if (decoder.hasError())
            continue;
        const QStringView name(buffer.constData(), end - buffer.constData());
        if (transcript)
            transcripts.insert(name.toString(), item->d_type);
        if (!recording)
            continue;
        if (const auto at = known.constFind(name); at != known.cend())
            keep[std::size_t(*at)] = true;
        else
            unlisted.append(name.toString());
    }
    known.clear();

    // Whether the listing holds a recording's transcript: a file, or a link to one.
    const auto paired = [&](const QString &name) {
        buffer.resize(name.size());
        std::copy(name.cbegin(), name.cend(), buffer.begin());
        for (qsizetype at = buffer.indexOf(QLatin1String(".caf")); at >= 0;
             at = buffer.indexOf(QLatin1String(".caf"), at + 4))
            buffer.replace(at, 4, QLatin1String(".txt"));
        const auto found = transcripts.constFind(buffer);
        if (found == transcripts.cend() || *found == DT_DIR)
            return false;
        return *found == DT_LNK || *found == DT_UNKNOWN ? hasTranscript(QFile::encodeName(name))
                                                        : true;
    };
    remove(keep);
    for (qsizetype i = 0; i < m_entries.size(); ++i)
        setTranscript(m_entries, i, paired(m_entries.at(i).filename));
    QList<Entry> arrivals;
    arrivals.reserve(unlisted.size());
    std::vector<qint64> keys;
    keys.reserve(std::size_t(unlisted.size()));
    for (const QString &name : std::as_const(unlisted)) {
        if (auto entry = m_reading->makeEntry(name, paired(name))) {
            keys.push_back(m_reading->keyOf(entry->date));
            arrivals.append(std::move(*entry));
        }
    }
    unlisted.clear();
    insert(arrivals, keys);
    return arrivals;
}

QList<Entry> RecordingList::update(const QByteArrayList &names)
{
    if (m_contactsChanged)
        matchCallersAgain();

    // The recordings the names may concern: a name ending in "caf" is one, and a name may be
    // the transcript of any recording whose ".caf" became its ".txt".
    QSet<QString> concerned;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    for (const QByteArray &bytes : names) {
        decoder.resetState();
        const QString name = decoder(bytes);
        if (decoder.hasError())
            continue;
        if (name.endsWith(QLatin1String("caf")))
            concerned.insert(name);
        std::vector<qsizetype> marks;
        for (qsizetype at = name.indexOf(QLatin1String(".txt")); at >= 0;
             at = name.indexOf(QLatin1String(".txt"), at + 4))
            marks.push_back(at);
        if (marks.size() > std::size_t(kMostTranscriptMarks))
            return reload();
        for (unsigned chosen = 1; chosen < (1u << marks.size()); ++chosen) {
            QString recording = name;
            for (std::size_t i = 0; i < marks.size(); ++i) {
                if (chosen & (1u << i))
                    recording.replace(marks[i], 4, QLatin1String(".caf"));
            }
            if (recording.endsWith(QLatin1String("caf")) &&
                RecordingName::transcriptName(recording) == name)
                concerned.insert(recording);
        }
    }

    std::vector<bool> keep(std::size_t(m_entries.size()), true);
    bool removing = false;
    QList<Entry> arrivals;
    std::vector<qint64> keys;
    for (const QString &name : std::as_const(concerned)) {
        const QByteArray bytes = QFile::encodeName(name);
        const std::optional<qsizetype> at = indexOf(name);
        if (!recordingExists(bytes)) {
            if (at) {
                keep[std::size_t(*at)] = false;
                removing = true;
            }
            continue;
        }
        if (at) {
            setTranscript(m_entries, *at, hasTranscript(bytes));
        } else if (auto entry = m_reading->makeEntry(name, hasTranscript(bytes))) {
            keys.push_back(m_reading->keyOf(entry->date));
            arrivals.append(std::move(*entry));
        }
    }
    if (removing)
        remove(keep);
    insert(arrivals, keys);
    return arrivals;
}

void RecordingList::forget(const QList<int> &rows)
{
    std::vector<bool> keep(std::size_t(m_entries.size()), true);
    for (const int row : rows) {
        if (row >= 0 && row < m_entries.size())
            keep[std::size_t(row)] = false;
    }
    remove(keep);
}

std::optional<Entry> RecordingList::entryForFile(const QString &fileName)
{
    return m_reading->makeEntry(fileName, hasTranscript(QFile::encodeName(fileName)));
}

void RecordingList::sort(QList<Entry> &entries)
{
    std::vector<qint64> keys;
    keys.reserve(std::size_t(entries.size()));
    Reading reading(nullptr, QLocale::c());
    for (const Entry &entry : std::as_const(entries))
        keys.push_back(reading.keyOf(entry.date));
    sortNewestFirst(entries, keys);
}

void RecordingList::matchCallersAgain()
{
    m_contactsChanged = false;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        QString name = m_reading->callerName(m_entries.at(i).address);
        if (name != m_entries.at(i).name)
            m_entries[i].name = std::move(name);
    }
}

qsizetype RecordingList::lowerBound(qint64 key, const QString &fileName) const
{
    qsizetype low = 0, high = m_entries.size();
    while (low < high) {
        const qsizetype middle = low + (high - low) / 2;
        if (listedBefore(m_keys[std::size_t(middle)], m_entries.at(middle).filename, key,
                         fileName))
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

std::optional<qsizetype> RecordingList::indexOf(const QString &fileName)
{
    const std::optional<qint64> key = m_reading->keyOf(fileName);
    if (!key)
        return std::nullopt;
    const qsizetype at = lowerBound(*key, fileName);
    if (at < m_entries.size() && m_entries.at(at).filename == fileName)
        return at;
    return std::nullopt;
}

void RecordingList::insert(QList<Entry> &arrivals, std::vector<qint64> &keys)
{
    if (arrivals.isEmpty())
        return;
    sortNewestFirst(arrivals, keys);
    if (m_entries.isEmpty()) {
        // The list shares the arrivals' entries: nothing is copied.
        m_entries = arrivals;
        m_keys = std::move(keys);
        return;
    }
    if (arrivals.size() <= kMostInsertions) {
        for (qsizetype i = 0; i < arrivals.size(); ++i) {
            const qsizetype at = lowerBound(keys[std::size_t(i)], arrivals.at(i).filename);
            m_entries.insert(at, arrivals.at(i));
            m_keys.insert(m_keys.begin() + at, keys[std::size_t(i)]);
        }
        return;
    }
    QList<Entry> merged;
    merged.reserve(m_entries.size() + arrivals.size());
    std::vector<qint64> mergedKeys;
    mergedKeys.reserve(m_keys.size() + keys.size());
    qsizetype from = 0;
    for (qsizetype i = 0; i < arrivals.size(); ++i) {
        const qint64 key = keys[std::size_t(i)];
        while (from < m_entries.size() &&
               listedBefore(m_keys[std::size_t(from)], m_entries.at(from).filename, key,
                            arrivals.at(i).filename)) {
            merged.append(std::move(m_entries[from]));
            mergedKeys.push_back(m_keys[std::size_t(from)]);
            ++from;
        }
        merged.append(arrivals.at(i));
        mergedKeys.push_back(key);
    }
    for (; from < m_entries.size(); ++from) {
        merged.append(std::move(m_entries[from]));
        mergedKeys.push_back(m_keys[std::size_t(from)]);
    }
    m_entries = std::move(merged);
    m_keys = std::move(mergedKeys);
}

void RecordingList::remove(const std::vector<bool> &keep)
{
    qsizetype kept = 0;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        if (!keep[std::size_t(i)])
            continue;
        if (kept != i) {
            m_entries[kept] = std::move(m_entries[i]);
            m_keys[std::size_t(kept)] = m_keys[std::size_t(i)];
        }
        ++kept;
    }
    if (kept == m_entries.size())
        return;
    m_entries.resize(kept);
    m_keys.resize(std::size_t(kept));
}

bool RecordingList::recordingExists(const QByteArray &name) const
{
    // Whatever the listing would show under that name: a link is listed even when broken.
    struct stat info
    {
    };
    return ::lstat((m_path + name).constData(), &info) == 0;
}

bool RecordingList::hasTranscript(QByteArrayView recording) const
{
    QByteArray path = m_path;
    path.append(recording);
    makeTranscriptName(path, m_path.size());
    struct stat info
    {
    };
    return ::stat(path.constData(), &info) == 0 && !S_ISDIR(info.st_mode);
}
