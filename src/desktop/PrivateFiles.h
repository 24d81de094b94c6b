#pragma once

#include <QString>

class QIODevice;

// Files that hold voicemails outside the Messages directory: readable and writable by their
// owner only from the moment they have a name, never reached through a symbolic link.
namespace PrivateFiles {

// Writes source's bytes to the open destination, in pieces of a bounded size whatever the
// file's. Answers an empty text on success, else what went wrong.
QString copyContents(const QString &source, QIODevice &destination);

// Copies source to destination, a name that must be free (a file or link there is an error):
// the new file is made with mode 0600 and then filled. Answers an empty text on success, else
// what went wrong; a copy that failed is removed.
QString copy(const QString &source, const QString &destination);

// Moves source, which sits in a folder private to this user, to destination, replacing a file
// there: it is made private where it is, then renamed, or copied across file systems and
// removed. Answers an empty text on success, else what went wrong.
QString move(const QString &source, const QString &destination);

} // namespace PrivateFiles
