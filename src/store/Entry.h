#pragma once

#include <QDateTime>
#include <QString>
#include <QtGlobal>
#include <optional>

// One recording as the list knows it. Keys that the record may lack are optionals: a
// recording without a transcript has no "textFile", one whose time field does not parse
// has neither "date" nor "dateString", and "duration" is never filled by the catalogue.
struct Entry
{
    QString filename;
    std::optional<QString> textFile;
    QString type;
    QString address;
    std::optional<QDateTime> date;
    std::optional<QString> dateString;
    QString name;
    std::optional<double> duration;

    // The record's keys and values in key order on one line, as the log shows it:
    // {address = "+15551234567"; date = 2026-11-15T22:10:07-05:00; ...; type = Telephony}
    QString description() const;

    // "date - kind" as a row's detail line shows it; a missing date reads "(null)".
    QString detailText() const;
};

// Every member may be moved in memory as plain bytes, so lists grow and reorder without
// moving member by member.
Q_DECLARE_TYPEINFO(Entry, Q_RELOCATABLE_TYPE);

enum class ComparisonResult
{
    OrderedAscending = -1,
    OrderedSame = 0,
    OrderedDescending = 1
};

// Newest first. Deliberately never answers OrderedSame, and an entry without a date on the
// left goes after whatever it is compared with: recordings of the same second, or without
// a date, keep no defined order among themselves.
ComparisonResult compareElements(const Entry &a, const Entry &b, void *context);
