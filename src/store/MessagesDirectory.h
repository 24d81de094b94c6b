#pragma once

#include <QString>
#include <optional>

// The Messages directory, and every path inside it, formed and checked in one place.
//
// A name as the list stores it (straight from the directory's listing, or from a recorder)
// is joined as "%@/%@", as the recording component forms its own paths: that is what the
// player opens and the reader reads. What a delete or a share touches is checked as well: the
// name with its percent escapes removed must still name one entry directly inside.
class MessagesDirectory
{
public:
    explicit MessagesDirectory(QString path) : m_path(std::move(path)) {}

    QString path() const { return m_path; }

    // "%@/%@" of the directory and the name, nothing decoded or checked.
    QString filePath(const QString &name) const;
    // The file a name stands for once its percent escapes are removed, when that is a file
    // directly inside: nothing for a malformed escape, or for a name that would then be empty,
    // ".", "..", or hold a "/" or a NUL (which would reach outside the directory).
    std::optional<QString> checkedFilePath(const QString &name) const;
    // The name a path formed by filePath() holds, or nothing for a path outside.
    std::optional<QString> nameOf(const QString &path) const;
    // Whether a stored name is one entry of the directory as it stands: not empty, ".", ".."
    // and without a "/".
    static bool namesOneEntry(const QString &name);

    // "%XX" sequences decoded. A "%" not followed by two hex digits, or a result that is not
    // UTF-8, gives nothing.
    static std::optional<QString> stringByRemovingPercentEscapes(const QString &text);

private:
    QString m_path;
};
