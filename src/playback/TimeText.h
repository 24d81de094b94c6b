#pragma once

#include <QString>

// The scrub bar's time texts. Times count whole seconds, truncated toward zero; a recording
// under an hour long shows "m:ss" on both sides, a longer one "h:mm:ss".
namespace TimeText {

// Whole seconds of a time; a time that is no number reads as 0.
int wholeSeconds(double seconds);

// The elapsed text before playback, for a recording of this length.
QString startElapsed(double totalDuration);
// The remaining text before playback: the length with a leading "-".
QString startRemaining(double totalDuration);

// The elapsed text at a position.
QString elapsed(double currentTime, double totalDuration);
// The remaining text at a position, "-" first while any whole second remains. Its seconds
// field is the total less the elapsed seconds within the minute (90 s at 10 s reads "-1:80"):
// deliberate, the bar has always read so.
QString remaining(double currentTime, double totalDuration);

} // namespace TimeText
