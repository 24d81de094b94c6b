#include "TestSupport.h"
#include "core/Assert.h"
#include "core/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Permission bits of path itself (a link is not followed), or -1 when there is nothing there.
int modeOf(const QString &path)
{
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return status.st_mode & 07777;
}

// Hands path to the user "nobody"; answers false where this process may not (not root).
bool giveToNobody(const QString &path)
{
    const passwd *nobody = ::getpwnam("nobody");
    return nobody &&
           ::lchown(QFile::encodeName(path).constData(), nobody->pw_uid, nobody->pw_gid) == 0;
}

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestLog : public QObject
{
    Q_OBJECT
private slots:
    void header_data();
    void header();
    void lineIsHeaderBlankMessageInOwnersFile();
    void messageIsDataNotFormat();
    void unopenableLogOpensFallback_data();
    void unopenableLogOpensFallback();
    void fallbackFolderMustBePrivate_data();
    void fallbackFolderMustBePrivate();
    void temporaryDirectoryPlace_data();
    void temporaryDirectoryPlace();
    void mylogAppendsToSystemLog();
    void dumpASBDWritesNineLines();
    void dumpASBDRefusesNull();
};

void TestLog::header_data()
{
    QTest::addColumn<int>("month");
    QTest::addColumn<int>("day");
    QTest::addColumn<int>("hour");
    QTest::addColumn<int>("minute");
    QTest::addColumn<int>("second");
    QTest::addColumn<QString>("expected");
    QTest::newRow("day unpadded, time padded")
        << 10 << 5 << 9 << 7 << 3 << "Nov 5 09:07:03 vantrel[42]";
    QTest::newRow("two-digit day") << 0 << 31 << 23 << 59 << 59 << "Jan 31 23:59:59 vantrel[42]";
    QTest::newRow("midnight") << 11 << 1 << 0 << 0 << 0 << "Dec 1 00:00:00 vantrel[42]";
}

void TestLog::header()
{
    QFETCH(int, month);
    QFETCH(int, day);
    QFETCH(int, hour);
    QFETCH(int, minute);
    QFETCH(int, second);
    QFETCH(QString, expected);
    std::tm local {};
    local.tm_mon = month;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    QCOMPARE(QString::fromStdString(vantrel::log::lineHeader(local, "vantrel", 42)), expected);
}

void TestLog::lineIsHeaderBlankMessageInOwnersFile()
{
    QTemporaryDir dir;
    const QString log = dir.filePath("syslog");
    vantrel::log::appendLine(log.toLocal8Bit().constData(), dir.filePath("fallback").toStdString(),
                             "first");
    vantrel::log::appendLine(log.toLocal8Bit().constData(), dir.filePath("fallback").toStdString(),
                             "second");
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    QCOMPARE(lines.size(), 3); // two lines, each ending in a line feed
    const QRegularExpression pattern(
        QStringLiteral(R"(^[A-Z][a-z]{2} \d{1,2} \d\d:\d\d:\d\d tst_log\[%1\] first$)")
            .arg(getpid()));
    QVERIFY2(pattern.match(lines[0]).hasMatch(), qPrintable(lines[0]));
    QVERIFY(lines[1].endsWith(QLatin1String("] second")));
    QVERIFY(lines[2].isEmpty());
    // Phone numbers, names and transcripts: for the owner's eyes only.
    QCOMPARE(modeOf(log), 0600);
}

void TestLog::messageIsDataNotFormat()
{
    QTemporaryDir dir;
    const QString log = dir.filePath("syslog");
    const char *message = "100% %s %d %n %1 done";
    vantrel::log::appendLine(log.toLocal8Bit().constData(), dir.filePath("fallback").toStdString(),
                             message);
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().endsWith(QByteArray("] ") + message + '\n'));
}

void TestLog::unopenableLogOpensFallback_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::newRow("a folder in its place") << "folder";
    QTest::newRow("link to a file") << "link";
    QTest::newRow("link to nowhere") << "dangling link";
    QTest::newRow("another user's file") << "foreign";
}

void TestLog::unopenableLogOpensFallback()
{
    QFETCH(QString, obstacle);
    QTemporaryDir dir;
    const QString log = dir.filePath("syslog");
    const QString target = dir.filePath("target");
    const QString fallback = dir.filePath("private/syslog");
    if (obstacle == "folder") {
        // Cannot be opened for appending, even by root.
        QVERIFY(QDir(dir.path()).mkdir("syslog"));
    } else if (obstacle == "link") {
        QVERIFY(TestSupport::writeFile(target, "kept\n"));
        QVERIFY(QFile::link(target, log));
    } else if (obstacle == "dangling link") {
        QVERIFY(QFile::link(target, log));
    } else {
        QVERIFY(TestSupport::writeFile(log, "kept\n"));
        if (!giveToNobody(log))
            QSKIP("only root can hand a file to another user");
    }

    vantrel::log::appendLine(QFile::encodeName(log).constData(), fallback.toStdString(),
                             "+15551234567");

    QCOMPARE(contentsOf(obstacle == "foreign" ? log : target),
             obstacle == "folder" || obstacle == "dangling link" ? QByteArray() : "kept\n");
    if (obstacle == "dangling link")
        QVERIFY(!QFileInfo::exists(target));
    QVERIFY(QFileInfo::exists(fallback));
    QCOMPARE(QFileInfo(fallback).size(), 0);
    QCOMPARE(modeOf(fallback), 0600);
    QCOMPARE(modeOf(dir.filePath("private")), 0700);
}

void TestLog::fallbackFolderMustBePrivate_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<bool>("opened");
    QTest::newRow("own folder") << "own" << true;
    QTest::newRow("link to an own folder") << "link" << false;
    QTest::newRow("another user's folder") << "foreign" << false;
}

void TestLog::fallbackFolderMustBePrivate()
{
    QFETCH(QString, folder);
    QFETCH(bool, opened);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir("syslog")); // the log cannot be opened
    QVERIFY(QDir(dir.path()).mkdir("real"));
    const QString real = dir.filePath("real");
    const QString fallbackFolder = folder == "link" ? dir.filePath("link") : real;
    if (folder == "link")
        QVERIFY(QFile::link(real, fallbackFolder));
    if (folder == "foreign" && !giveToNobody(real))
        QSKIP("only root can hand a folder to another user");

    vantrel::log::appendLine(QFile::encodeName(dir.filePath("syslog")).constData(),
                             (fallbackFolder + "/syslog").toStdString(), "lost");

    QCOMPARE(QFileInfo::exists(real + "/syslog"), opened);
}

void TestLog::temporaryDirectoryPlace_data()
{
    QTest::addColumn<QByteArray>("runtimeDirectory"); // "<unset>": no runtime directory
    QTest::addColumn<QString>("expected");            // "RUNTIME" stands for the given one
    const QString tmp = QStringLiteral("/tmp/net.zorvath.vantrel-%1").arg(::geteuid());
    QTest::newRow("runtime directory") << QByteArray("RUNTIME") << "RUNTIME/net.zorvath.vantrel";
    QTest::newRow("none") << QByteArray("<unset>") << tmp;
    QTest::newRow("relative") << QByteArray("run/user") << tmp;
}

void TestLog::temporaryDirectoryPlace()
{
    QFETCH(QByteArray, runtimeDirectory);
    QFETCH(QString, expected);
    QTemporaryDir runtime;
    QTemporaryDir blocked;
    QVERIFY(QDir(blocked.path()).mkdir("syslog"));
    const bool wasSet = qEnvironmentVariableIsSet("XDG_RUNTIME_DIR");
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    const auto restore = qScopeGuard([&] {
        if (wasSet)
            qputenv("XDG_RUNTIME_DIR", saved);
        else
            qunsetenv("XDG_RUNTIME_DIR");
    });
    if (runtimeDirectory == "<unset>")
        qunsetenv("XDG_RUNTIME_DIR");
    else
        qputenv("XDG_RUNTIME_DIR", runtimeDirectory.replace("RUNTIME", runtime.path().toUtf8()));
    expected.replace("RUNTIME", runtime.path());
    const bool existed = QFileInfo::exists(expected);
    const auto cleanUp = qScopeGuard([&] {
        if (!existed)
            QDir(expected).removeRecursively();
    });

    vantrel::log::appendLine(QFile::encodeName(blocked.filePath("syslog")).constData(),
                             vantrel::log::fallbackPath(), "lost");

    QCOMPARE(modeOf(expected), 0700);
    QCOMPARE(QFileInfo(expected).ownerId(), ::geteuid());
    QVERIFY(QFileInfo(expected + "/syslog").isFile());
}

void TestLog::mylogAppendsToSystemLog()
{
    const qint64 before = TestSupport::logSize();
    const QString token =
        QStringLiteral("tst_log %1 %2").arg(getpid()).arg(QDateTime::currentMSecsSinceEpoch());
    mylog(token);
    // Other tests write to the same log at the same time: find this process's line.
    const QString own = QStringLiteral("[%1] %2").arg(getpid()).arg(token);
    const QStringList lines = TestSupport::logLinesSince(before);
    QVERIFY(std::any_of(lines.cbegin(), lines.cend(),
                        [&](const QString &line) { return line.endsWith(own); }));
}

void TestLog::dumpASBDWritesNineLines()
{
    AudioStreamBasicDescription description;
    description.mSampleRate = 8000;
    description.mFormatID = 0x6c70636d; // 'lpcm', read in memory order on this processor
    description.mFormatFlags = 12;
    description.mBytesPerPacket = 2;
    description.mFramesPerPacket = 1;
    description.mBytesPerFrame = 2;
    description.mChannelsPerFrame = 1;
    description.mBitsPerChannel = 16;
    const qint64 before = TestSupport::logSize();
    dumpASBD(&description);
    QStringList lines = TestSupport::logLinesSince(before);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const QString &line) {
                                   return !line.contains(QLatin1String("[") +
                                                         QString::number(getpid()) + "]");
                               }),
                lines.end());
    QCOMPARE(lines.size(), 9);
    const QStringList expected = { "VantrelLog : mSampleRate         8000.000000",
                                   "VantrelLog : mFormatID           mcpl",
                                   "VantrelLog : mFormatFlags        12",
                                   "VantrelLog : mBytesPerPacket     2",
                                   "VantrelLog : mFramesPerPacket    1",
                                   "VantrelLog : mBytesPerFrame      2",
                                   "VantrelLog : mChannelsPerFrame   1",
                                   "VantrelLog : mBitsPerChannel     16",
                                   "VantrelLog : mReserved           0" };
    for (int i = 0; i < 9; ++i)
        QVERIFY2(lines[i].endsWith(QLatin1Char(' ') + expected[i]), qPrintable(lines[i]));
}

void TestLog::dumpASBDRefusesNull()
{
    try {
        dumpASBD(nullptr);
        QFAIL("no exception");
    } catch (const vantrel::InternalInconsistencyException &exception) {
        QCOMPARE(QString::fromUtf8(exception.what()),
                 "Invalid parameter not satisfying: NULL != asbd");
    }
}

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
