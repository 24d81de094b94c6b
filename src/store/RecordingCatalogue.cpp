#include "RecordingCatalogue.h"

#include "RecordingName.h"
#include "contacts/ContactStore.h"

#include <QFile>
#include <QHash>
#include <QStringBuilder>
#include <QStringDecoder>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace {

struct DirCloser
{
    void operator()(DIR *dir) const { closedir(dir); }
};

// Reads the names of one directory in listing order.
class Listing
{
public:
    explicit Listing(const QByteArray &directory)
        : m_dir(opendir(directory.constData())), m_openError(m_dir ? 0 : errno)
    {}

    // Why the directory could not be opened; 0 when it was, or when it is simply not there.
    int openError() const { return m_openError == ENOENT ? 0 : m_openError; }

    // The next name that ends in "caf", both as the file system has it and read as UTF-8, or
    // false at the end. A name that is not UTF-8 cannot be written back as a path of the same
    // name, so it cannot be a recording the list could play or delete: it is left out. A
    // leading byte-order mark is kept: it is part of the name.
    bool next(QByteArrayView &bytes, QString &name)
    {
        while (const dirent *item = m_dir ? readdir(m_dir.get()) : nullptr) {
            bytes = QByteArrayView(item->d_name);
            if (!bytes.endsWith("caf"))
                continue;
            m_decoder.resetState();
            name = m_decoder(bytes);
            if (!m_decoder.hasError())
                return true;
        }
        return false;
    }

private:
    std::unique_ptr<DIR, DirCloser> m_dir;
    int m_openError;
    QStringDecoder m_decoder { QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom };
};

// Whether a recording has its transcript, a file that is not a directory. The path is built
// in one buffer: ".caf" and ".txt" are the same length, and ASCII, so replacing one with the
// other in the bytes names the same file as in the text.
class TranscriptProbe
{
public:
    explicit TranscriptProbe(const QByteArray &directory)
        : m_path(directory + '/'), m_prefix(m_path.size())
    {}

    bool exists(QByteArrayView recording)
    {
        m_path.truncate(m_prefix);
        m_path.append(recording);
        const std::string_view name(m_path.constData() + m_prefix, std::size_t(recording.size()));
        for (std::size_t at = name.find(".caf"); at != std::string_view::npos;
             at = name.find(".caf", at + 4))
            std::memcpy(m_path.data() + m_prefix + qsizetype(at), ".txt", 4);
        struct stat info
        {
        };
        return ::stat(m_path.constData(), &info) == 0 && !S_ISDIR(info.st_mode);
    }

private:
    QByteArray m_path;
    qsizetype m_prefix;
};

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

// The entry of one listed name, or nothing when the name is not a recording's.
std::optional<Entry> makeEntry(QByteArrayView bytes, const QString &fileName,
                               TranscriptProbe &transcripts, const ContactStore *contacts,
                               DisplayTimes &times)
{
    const auto fields = RecordingName::fields(fileName);
    if (!fields)
        return std::nullopt;

    Entry entry;
    // A name without ".caf" (one ending in "caf" alone) is its own transcript name, and so is
    // paired with itself; the reader then finds no UTF-8 text in it. Kept as it always was.
    if (transcripts.exists(bytes))
        entry.textFile = RecordingName::transcriptName(fileName);
    entry.filename = fileName;
    entry.type = RecordingName::callType(fields->kind);
    entry.address = fields->address.toString();
    if (const auto date = RecordingName::parseTime(fields->time)) {
        entry.date = *date;
        const QString shown = times.format(*date);
        if (!shown.isNull())
            entry.dateString = shown;
    }
    entry.name = entry.address;
    if (const Contact *contact =
            contacts ? contacts->contactForDestinationId(entry.address) : nullptr) {
        // The full name wins over the display name when the contact has both.
        if (!contact->displayName().isNull())
            entry.name = contact->displayName();
        if (!contact->fullName().isNull())
            entry.name = contact->fullName();
    }
    return entry;
}

} // namespace

RecordingCatalogue::RecordingCatalogue(const ContactStore *contacts, QLocale displayLocale)
    : m_contacts(contacts), m_displayLocale(std::move(displayLocale))
{}

std::optional<Entry> RecordingCatalogue::entryForFile(const QString &directory,
                                                      const QString &fileName) const
{
    TranscriptProbe transcripts(QFile::encodeName(directory));
    DisplayTimes times(m_displayLocale);
    return makeEntry(QFile::encodeName(fileName), fileName, transcripts, m_contacts, times);
}

QList<Entry> RecordingCatalogue::entries(const QString &directory, QString *error) const
{
    const QByteArray path = QFile::encodeName(directory);
    Listing listing(path);
    if (error)
        *error =
            listing.openError() ? QString::fromLocal8Bit(strerror(listing.openError())) : QString();
    TranscriptProbe transcripts(path);
    DisplayTimes times(m_displayLocale);
    QList<Entry> result;
    QByteArrayView bytes;
    QString fileName;
    while (listing.next(bytes, fileName)) {
        if (auto entry = makeEntry(bytes, fileName, transcripts, m_contacts, times))
            result.append(std::move(*entry));
    }
    sort(result);
    return result;
}

void RecordingCatalogue::sort(QList<Entry> &entries)
{
    // compareElements is not a strict ordering: an undated entry compares as later than
    // nothing, yet a dated one before 2001 compares as earlier than it, so a general sort
    // driven by it may leave dated entries out of order. This order agrees with every answer
    // of compareElements that its answer with the operands swapped does not contradict:
    // newest first, entries of the same time in listing order, the undated last in listing
    // order. Each date becomes an instant once; comparing local times converts every time.
    struct Key
    {
        qint64 instant;
        qsizetype index;
        bool dated;
    };
    std::vector<Key> keys;
    keys.reserve(std::size_t(entries.size()));
    Instants instants;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const auto &date = entries[i].date;
        keys.push_back({ date ? instants.of(*date) : 0, i, date.has_value() });
    }
    std::stable_sort(keys.begin(), keys.end(), [](const Key &a, const Key &b) {
        return a.dated != b.dated ? a.dated : a.instant > b.instant;
    });
    // Entries move into place along the cycles of the permutation: no second list.
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (keys[std::size_t(i)].index == i)
            continue;
        Entry held = std::move(entries[i]);
        for (qsizetype at = i;;) {
            const qsizetype from = keys[std::size_t(at)].index;
            keys[std::size_t(at)].index = at;
            if (from == i) {
                entries[at] = std::move(held);
                break;
            }
            entries[at] = std::move(entries[from]);
            at = from;
        }
    }
}
