#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QStringView>
#include <optional>

// The four fields of a recording's file name: "msg" "-_" kind "-_" address "-_" time ".caf".
struct RecordingName
{
    QString kind;
    QString address;
    QString time;

    // The fields of a bare file name, or nothing when the name is not a recording's: it must
    // end in "caf", and with its extension removed split on "-_" into exactly four parts of
    // which the first is "msg".
    static std::optional<RecordingName> parse(const QString &fileName);

    // The same three fields as views into fileName, for reading a directory of names without
    // copying fields that are only looked at.
    struct Fields
    {
        QStringView kind;
        QStringView address;
        QStringView time;
    };
    static std::optional<Fields> fields(QStringView fileName);

    // The transcript paired with a recording: every ".caf" in the name becomes ".txt".
    static QString transcriptName(const QString &fileName);

    // "TEL" reads "Telephony", "FT" reads "FaceTime"; any other kind reads as it stands.
    static QString callType(QStringView kind);

    // The call time "dd-MMM-yyyy-HH-mm-ss" (English month names) in the process's time zone,
    // or nothing when the field does not read as one.
    static std::optional<QDateTime> parseTime(QStringView field);

    // The call time as the list shows it, "MMM dd yyyy - HH:mm:ss" in the given locale.
    static QString displayTime(const QDateTime &date, const QLocale &locale);
};
