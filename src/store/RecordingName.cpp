#include "RecordingName.h"

#include <algorithm>
#include <array>

namespace {

// A path extension starts at the last dot of the name, unless that dot begins the name.
QStringView deletingPathExtension(QStringView name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 ? name.left(dot) : name;
}

// Reads 1 to maxDigits decimal digits at pos; the fixed pattern is read the way the POSIX
// date parser reads it, where a numeric field ends at the next non-digit.
std::optional<int> readNumber(QStringView text, qsizetype &pos, int maxDigits)
{
    int value = 0;
    int digits = 0;
    while (pos < text.size() && digits < maxDigits && text[pos].isDigit() &&
           text[pos].unicode() < 128) {
        value = value * 10 + (text[pos].unicode() - '0');
        ++pos;
        ++digits;
    }
    if (digits == 0)
        return std::nullopt;
    return value;
}

bool readLiteral(QStringView text, qsizetype &pos, QChar literal)
{
    if (pos >= text.size() || text[pos] != literal)
        return false;
    ++pos;
    return true;
}

// English month abbreviations in any letter case. Only ASCII letters can spell one: no other
// character lowercases to a letter of these names.
std::optional<int> readMonth(QStringView text, qsizetype &pos)
{
    static constexpr std::array<const char *, 12> months = { "jan", "feb", "mar", "apr",
                                                             "may", "jun", "jul", "aug",
                                                             "sep", "oct", "nov", "dec" };
    if (pos + 3 > text.size())
        return std::nullopt;
    char candidate[3];
    for (int i = 0; i < 3; ++i) {
        const char16_t c = text[pos + i].unicode();
        if (c >= 128)
            return std::nullopt;
        candidate[i] = char(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    for (int i = 0; i < 12; ++i) {
        if (std::equal(candidate, candidate + 3, months[i])) {
            pos += 3;
            return i + 1;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<RecordingName> RecordingName::parse(const QString &fileName)
{
    const auto parts = fields(fileName);
    if (!parts)
        return std::nullopt;
    return RecordingName { parts->kind.toString(), parts->address.toString(),
                           parts->time.toString() };
}

std::optional<RecordingName::Fields> RecordingName::fields(QStringView fileName)
{
    if (!fileName.endsWith(QLatin1String("caf")))
        return std::nullopt;
    // Split on "-_" as a string split would, without making a list: a scan for the hyphen,
    // which a general substring search costs several times more for.
    const QStringView stem = deletingPathExtension(fileName);
    std::array<QStringView, 4> parts;
    qsizetype count = 0;
    qsizetype start = 0;
    for (qsizetype i = 0; i + 1 < stem.size(); ++i) {
        if (stem[i] != u'-' || stem[i + 1] != u'_')
            continue;
        if (count == 3)
            return std::nullopt;
        parts[count++] = stem.sliced(start, i - start);
        start = i + 2;
        ++i;
    }
    parts[count++] = stem.sliced(start);
    if (count != 4 || parts[0] != QLatin1String("msg"))
        return std::nullopt;
    return Fields { parts[1], parts[2], parts[3] };
}

QString RecordingName::transcriptName(const QString &fileName)
{
    return QString(fileName).replace(QLatin1String(".caf"), QLatin1String(".txt"));
}

QString RecordingName::callType(QStringView kind)
{
    if (kind == QLatin1String("FT"))
        return QStringLiteral("FaceTime");
    if (kind == QLatin1String("TEL"))
        return QStringLiteral("Telephony");
    return kind.toString();
}

std::optional<QDateTime> RecordingName::parseTime(QStringView field)
{
    // Hand-read rather than through a general date parser: the list reads one such field per
    // recording, thousands at a time, and the pattern never changes.
    qsizetype pos = 0;
    const auto day = readNumber(field, pos, 2);
    if (!day || !readLiteral(field, pos, u'-'))
        return std::nullopt;
    const auto month = readMonth(field, pos);
    if (!month || !readLiteral(field, pos, u'-'))
        return std::nullopt;
    const auto year = readNumber(field, pos, 4);
    if (!year || !readLiteral(field, pos, u'-'))
        return std::nullopt;
    const auto hour = readNumber(field, pos, 2);
    if (!hour || !readLiteral(field, pos, u'-'))
        return std::nullopt;
    const auto minute = readNumber(field, pos, 2);
    if (!minute || !readLiteral(field, pos, u'-'))
        return std::nullopt;
    const auto second = readNumber(field, pos, 2);
    if (!second || pos != field.size())
        return std::nullopt;

    const QDate date(*year, *month, *day);
    const QTime time(*hour, *minute, *second);
    if (*year == 0 || !date.isValid() || !time.isValid())
        return std::nullopt;
    QDateTime local(date, time, Qt::LocalTime);
    if (!local.isValid())
        return std::nullopt;
    return local;
}

QString RecordingName::displayTime(const QDateTime &date, const QLocale &locale)
{
    return locale.toString(date, QStringLiteral("MMM dd yyyy - HH:mm:ss"));
}
