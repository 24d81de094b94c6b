#pragma once

#include <QString>

// A recording's transcript: UTF-8 text beside the recording, read afresh every time it is
// shown.
namespace Transcript {

// The text of the file, or a null string when it is missing, not a regular file or not UTF-8.
QString read(const QString &path);

// The text as a text view can lay out without stalling: paragraphs longer than a few
// thousand characters are broken at a blank (or anywhere, when there is none). For showing
// only; what was read is kept as it is.
QString forDisplay(const QString &text);

} // namespace Transcript
