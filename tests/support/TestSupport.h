#pragma once

#include <QByteArray>
#include <QDir>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>

class QColor;
class QProcess;
class QSize;
class QPoint;
class QRect;
class QWidget;

// Helpers shared by the tests: a temporary Messages directory per test and files in it.
namespace TestSupport {

// Writes a file (creating it and its folders) and answers whether all of it was written.
bool writeFile(const QString &path, const QByteArray &contents = QByteArray("x"));
// The same, for a program (or a desktop file) that only its owner may read and run.
bool writeProgram(const QString &path, const QByteArray &contents);
// Runs commands on the files under root, with no turn of the event loop in between: "mkdir
// [-p] P", "write P" (with written), "append P", "chmod P" (to read-only), "rm [-r] P" and
// "mv A B" (over what is at B), joined by ';'. Answers whether every one succeeded.
bool run(const QDir &root, const QString &commands, const QByteArray &written = "x");
// All of a file; null when it cannot be read.
QByteArray readFile(const QString &path);

// Moves the mouse over widget to a point with the left button held, which QTest's own move
// does not tell.
void dragTo(QWidget *widget, const QPoint &to);
// Whether any pixel of the area of widget, as it draws itself, has a colour that matches.
bool draws(QWidget *widget, const QRect &area, const std::function<bool(const QColor &)> &matches);

// A recording's bare name for the fields given.
QString recordingName(const QString &kind, const QString &address, const QString &time);

// The lines of the diagnostic log written since offset (in bytes).
QStringList logLinesSince(qint64 offset);
qint64 logSize();

// The permission bits of a file as ls shows them, such as 0600; -1 when there is none.
int fileMode(const QString &path);

// The demo samples of the source tree.
QString samplesDirectory();

// Starts an X server (Xvfb) with one screen of pixels on a display of this process's own, and
// answers the display (":N") once the server takes connections; empty if it does not.
QString startXServer(QProcess &server, const QSize &pixels);

// What a program prints on its standard output, run in environment until it ends (two minutes
// at the most); ok tells whether it ended with status 0.
QString output(const QString &program, const QStringList &arguments,
               const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment(),
               bool *ok = nullptr);
// Runs the ffmpeg tool, quiet and overwriting; answers whether it succeeded.
bool ffmpeg(const QStringList &arguments);
// A tone of hz (an expression of t) for seconds at path, in A-law unless encoding says
// otherwise, as the ffmpeg tool makes it fresh.
bool writeTone(const QString &path, double seconds, const QString &hz = "440",
               const QStringList &encoding = { "-c:a", "pcm_alaw" });

// The member names of a zip archive as unzip lists them, one per line; a name holding a
// newline is listed with "^J" in its place, as unzip prints control characters.
QStringList zipMembers(const QString &archive);

} // namespace TestSupport
