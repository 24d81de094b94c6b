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

// Names in the order of the central directory, read by libzip: UTF-8 where the entry's flag says
// so or an Info-ZIP Unicode path field vouches for it, else UTF-8 where the bytes are UTF-8 and
// code page 437 where they are not. Archives of any size (zip64 included) are listed without
// reading their contents.
ZipMembers zipMemberNames(const QString &path);
