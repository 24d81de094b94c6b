#include "TestSupport.h"
#include "core/Log.h"

#include <QDir>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <pwd.h>
#include <unistd.h>

namespace {

// Puts what a row names at path: a "folder", a "link to a file" or "link to a folder" (the
// target at path.real), a "dangling link", or a "foreign file" or "foreign folder" of nobody's.
bool place(const QString &path, const QString &what)
{
    const bool link = what.startsWith("link") || what == "dangling link";
    const QString at = link ? path + ".real" : path;
    const passwd *nobody = ::getpwnam("nobody");
    return (what.endsWith("file") ? TestSupport::writeFile(at, "kept\n")
                                  : !what.endsWith("folder") || QDir().mkdir(at)) &&
           (!link || QFile::link(at, path)) &&
           (!what.startsWith("foreign") ||
            (nobody &&
             ::lchown(QFile::encodeName(path).constData(), nobody->pw_uid, nobody->pw_gid) == 0));
}

} // namespace

class TestLog : public QObject
{
    Q_OBJECT
private slots:
    void whatLandsWhere_data();
    void whatLandsWhere();
    void temporaryDirectoryPlace();
};

void TestLog::whatLandsWhere_data()
{
    QTest::addColumn<QString>("log");    // what stands in the log's place
    QTest::addColumn<QString>("folder"); // what stands in the fallback folder's place
    QTest::addColumn<bool>("fallback");  // whether the fallback log is then made
    const auto row = [](const char *tag, const char *log, const char *folder, bool fallback) {
        QTest::newRow(tag) << log << folder << fallback;
    };
    row("own log", "", "", false);
    row("folder as the log", "folder", "", true);
    row("log links to a file", "link to a file", "", true);
    row("log links nowhere", "dangling link", "", true);
    row("another user's log", "foreign file", "", true);
    row("own fallback folder", "folder", "folder", true);
    row("fallback folder is a link", "folder", "link to a folder", false);
    row("another user's fallback folder", "folder", "foreign folder", false);
}

void TestLog::whatLandsWhere()
{
    QFETCH(QString, log);
    QFETCH(QString, folder);
    QFETCH(bool, fallback);
    if ((log + folder).contains("foreign") && ::geteuid() != 0)
        QSKIP("only root can hand a file to another user");
    QTemporaryDir dir;
    const QString logPath = dir.filePath("syslog");
    const QString folderPath = dir.filePath("private");
    QVERIFY(place(logPath, log) && place(folderPath, folder));
    const char *formatLike = "100% %s %d %n %1 done"; // data, never a format

    for (const char *message : { "+15551234567", formatLike }) {
        vantrel::log::appendLine(QFile::encodeName(logPath).constData(),
                                 QFile::encodeName(folderPath + "/syslog").toStdString(), message);
    }

    const QByteArray contents = TestSupport::readFile(logPath);
    if (log.isEmpty()) {
        const QString header =
            QStringLiteral(R"([A-Z][a-z]{2} \d{1,2} \d\d:\d\d:\d\d tst_log\[%1\] )").arg(getpid());
        const QRegularExpression lines("^" + header + R"(\+15551234567\n)" + header +
                                       QRegularExpression::escape(formatLike) + "\n$");
        QVERIFY2(lines.match(QString::fromUtf8(contents)).hasMatch(), contents.constData());
        QCOMPARE(TestSupport::fileMode(logPath), 0600); // phone numbers, names and transcripts
    } else {
        // Nothing written through a link or into another's file, nothing made at the target.
        QCOMPARE(contents, log.endsWith("file") ? "kept\n" : QByteArray());
    }
    QCOMPARE(TestSupport::fileMode(QDir(folderPath).canonicalPath() + "/syslog"),
             fallback ? 0600 : -1);
    if (folder.isEmpty())
        QCOMPARE(TestSupport::fileMode(folderPath), fallback ? 0700 : -1);
}

void TestLog::temporaryDirectoryPlace()
{
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    const auto restore = qScopeGuard([&] { qputenv("XDG_RUNTIME_DIR", saved); });
    qputenv("XDG_RUNTIME_DIR", "/run/user/7");
    QCOMPARE(QString::fromStdString(vantrel::log::fallbackPath()),
             "/run/user/7/net.zorvath.vantrel/syslog");
    qputenv("XDG_RUNTIME_DIR", "run/user"); // not absolute: no runtime directory
    QCOMPARE(QString::fromStdString(vantrel::log::fallbackPath()),
             QStringLiteral("/tmp/net.zorvath.vantrel-%1/syslog").arg(::geteuid()));
}

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
