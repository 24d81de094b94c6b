#include "TestSupport.h"
#include "core/Assert.h"
#include "core/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

class TestLog : public QObject
{
    Q_OBJECT
private slots:
    void header_data();
    void header();
    void lineIsHeaderBlankMessage();
    void messageIsDataNotFormat();
    void fallbackIsCreatedButStaysEmpty();
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

void TestLog::lineIsHeaderBlankMessage()
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

void TestLog::fallbackIsCreatedButStaysEmpty()
{
    // A directory in the log's place cannot be opened for appending, even by root.
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir("syslog"));
    const QString fallback = dir.filePath("tmp-syslog");
    vantrel::log::appendLine(dir.filePath("syslog").toLocal8Bit().constData(),
                             fallback.toStdString(), "lost");
    QVERIFY(QFileInfo::exists(fallback));
    QCOMPARE(QFileInfo(fallback).size(), 0);
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
    QVERIFY(std::any_of(lines.cbegin(), lines.cend(), [&](const QString &line) { return line.endsWith(own); }));
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
