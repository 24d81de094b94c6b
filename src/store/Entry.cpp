#include "Entry.h"

#include <QStringList>
#include <QTimeZone>
#include <cstdlib>

namespace {

// Strings print bare only when they hold nothing but these characters; anything else is
// quoted with backslash escapes, so a file name with quotes or line breaks stays on one line.
bool printsBare(const QString &text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        const ushort u = c.unicode();
        const bool safe = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') ||
                          (u >= '0' && u <= '9') || u == '_' || u == '.' || u == '$' || u == '/';
        if (!safe)
            return false;
    }
    return true;
}

QString quoted(const QString &text)
{
    if (printsBare(text))
        return text;
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"':
            out += QLatin1String("\\\"");
            break;
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        default:
            out += c;
        }
    }
    out += u'"';
    return out;
}

// Seconds since 2001-01-01 00:00:00 UTC: what a missing date answers when it is asked for
// its time, so a dated entry compared against an undated one is measured against that.
const QDateTime &referenceDate()
{
    static const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return reference;
}

// With its offset from UTC, as the phone prints a date: 2026-11-15T22:10:07-05:00, and
// 2026-11-15T22:10:07+00:00 in UTC, where an ISO date would say "Z".
QString withOffset(const QDateTime &date)
{
    const int offset = date.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return QStringLiteral("%1%2%3:%4")
        .arg(date.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")), offset < 0 ? u"-" : u"+")
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

QString Entry::description() const
{
    QStringList pairs;
    pairs << QStringLiteral("address = %1").arg(quoted(address));
    if (date)
        pairs << QStringLiteral("date = %1").arg(withOffset(*date));
    if (dateString)
        pairs << QStringLiteral("dateString = %1").arg(quoted(*dateString));
    if (duration)
        pairs << QStringLiteral("duration = %1").arg(*duration);
    pairs << QStringLiteral("filename = %1").arg(quoted(filename));
    pairs << QStringLiteral("name = %1").arg(quoted(name));
    if (textFile)
        pairs << QStringLiteral("textFile = %1").arg(quoted(*textFile));
    pairs << QStringLiteral("type = %1").arg(quoted(type));
    return QLatin1Char('{') + pairs.join(QLatin1String("; ")) + QLatin1Char('}');
}

QString Entry::detailText() const
{
    return QStringLiteral("%1 - %2").arg(dateString.value_or(QStringLiteral("(null)")), type);
}

ComparisonResult compareElements(const Entry &a, const Entry &b, void *)
{
    if (a.date && *a.date > b.date.value_or(referenceDate()))
        return ComparisonResult::OrderedAscending;
    return ComparisonResult::OrderedDescending;
}
