#include "TestSupport.h"

#include "core/Log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMouseEvent>
#include <QProcess>
#include <QSize>
#include <QTest>
#include <QWidget>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

bool TestSupport::writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(contents) == contents.size();
}

bool TestSupport::writeProgram(const QString &path, const QByteArray &contents)
{
    return writeFile(path, contents) &&
           QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
}

bool TestSupport::run(const QDir &root, const QString &commands, const QByteArray &written)
{
    for (const QString &command : commands.split(u';', Qt::SkipEmptyParts)) {
        const QStringList words = command.split(u' ', Qt::SkipEmptyParts);
        const QString &verb = words.value(0);
        const bool option = words.value(1).startsWith(u'-');
        const QString path = root.filePath(words.value(option ? 2 : 1));
        QFile file(path);
        bool done = false;
        if (verb == "mkdir")
            done = option ? QDir().mkpath(path) : QDir().mkdir(path);
        else if (verb == "write")
            done = writeFile(path, written);
        else if (verb == "append")
            done = file.open(QIODevice::Append) && file.write("more") == 4;
        else if (verb == "chmod")
            done = file.setPermissions(QFile::ReadOwner);
        else if (verb == "rm")
            done = option ? QDir(path).removeRecursively() : QFile::remove(path);
        else if (verb == "mv") // rename(2): over what is there, as an editor saves
            done = std::rename(QFile::encodeName(path).constData(),
                               QFile::encodeName(root.filePath(words.value(2))).constData()) == 0;
        if (!done)
            return false;
    }
    return true;
}

QByteArray TestSupport::readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestSupport::dragTo(QWidget *widget, const QPoint &to)
{
    QMouseEvent move(QEvent::MouseMove, to, widget->mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     {});
    QCoreApplication::sendEvent(widget, &move);
}

bool TestSupport::draws(QWidget *widget, const QRect &area,
                        const std::function<bool(const QColor &)> &matches)
{
    const QImage image = widget->grab(area).toImage();
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (matches(image.pixelColor(x, y)))
                return true;
    return false;
}

QString TestSupport::recordingName(const QString &kind, const QString &address, const QString &time)
{
    return QStringLiteral("msg-_%1-_%2-_%3.caf").arg(kind, address, time);
}

qint64 TestSupport::logSize()
{
    return QFileInfo(QString::fromLatin1(vantrel::log::kLogPath)).size();
}

QStringList TestSupport::logLinesSince(qint64 offset)
{
    QFile log(QString::fromLatin1(vantrel::log::kLogPath));
    if (!log.open(QIODevice::ReadOnly) || !log.seek(offset))
        return {};
    return QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

QString TestSupport::samplesDirectory()
{
    return qEnvironmentVariable("VANTREL_SAMPLES");
}

int TestSupport::fileMode(const QString &path)
{
    struct stat status
    {
    };
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return int(status.st_mode & 07777);
}

QString TestSupport::output(const QString &program, const QStringList &arguments,
                            const QProcessEnvironment &environment, bool *ok)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000);
    if (ok)
        *ok = finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return QString::fromUtf8(process.readAllStandardOutput());
}

bool TestSupport::ffmpeg(const QStringList &arguments)
{
    bool ok = false;
    output("ffmpeg", QStringList { "-hide_banner", "-loglevel", "error", "-y" } + arguments,
           QProcessEnvironment::systemEnvironment(), &ok);
    return ok;
}

bool TestSupport::writeTone(const QString &path, double seconds, const QString &hz,
                            const QStringList &encoding)
{
    return ffmpeg(
        QStringList { "-f", "lavfi", "-i",
                      QString("aevalsrc=0.5*sin(2*PI*%1*t):s=8000:d=%2").arg(hz).arg(seconds) } +
        encoding + QStringList { path });
}

QStringList TestSupport::zipMembers(const QString &archive)
{
    bool ok = false;
    const QString listed =
        output("unzip", { "-Z1", archive }, QProcessEnvironment::systemEnvironment(), &ok);
    return ok ? listed.split('\n', Qt::SkipEmptyParts) : QStringList { "(no archive)" };
}

QString TestSupport::startXServer(QProcess &server, const QSize &pixels)
{
    const QString display = ':' + QString::number(90 + ::getpid() % 800);
    server.start("Xvfb", { display, "-screen", "0",
                           QStringLiteral("%1x%2x24").arg(pixels.width()).arg(pixels.height()),
                           "-nolisten", "tcp" });
    const QString socket = "/tmp/.X11-unix/X" + display.mid(1);
    if (!server.waitForStarted() || !QTest::qWaitFor([&] { return QFileInfo::exists(socket); }, 10000))
        return {};
    return display;
}
