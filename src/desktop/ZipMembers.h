#pragma once

#include <QString>
#include <QStringList>

// The members of a zip archive, read from its central directory alone: nothing is unpacked.
struct ZipMembers
{
    QStringList names;
    // Why the archive could not be read; empty when it was.
    QString error;
    bool isValid() const { return error.isEmpty(); }
};

// Names as stored, in the order of the central directory: UTF-8 where the entry's flag says so
// or an Info-ZIP Unicode path field vouches for it; code page 437 from archivers on DOS and
// Windows file systems; from other systems UTF-8 where the bytes are UTF-8, else code page 437.
// Reads archives of any size (zip64 included) without reading their contents.
ZipMembers zipMemberNames(const QString &path);
