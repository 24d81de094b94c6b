#include "TestSupport.h"
#include "core/ExceptionLog.h"
#include "core/Log.h"

#include <QDir>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <dlfcn.h>
#include <functional>
#include <pwd.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

Q_DECLARE_METATYPE(std::function<void()>)

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

struct Plain
{
    int code { 7 };
};

// A std::exception that is not the first base: its what() lies away from the object's start.
struct Tagged : Plain, std::runtime_error
{
    using std::runtime_error::runtime_error;
};

const char kLibraryReason[] = "contact \"Ann O'Neil\" unreadable\nat line 2";

void (*throwAndCatchInside)(const char *) = nullptr;

} // namespace

// Where the diagnostic log goes, what a line of it holds, and the line every exception leaves.
class TestLog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(vantrel::exceptionLogInstalled()); // before main
        void *library = ::dlopen(EXCEPTION_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        QVERIFY2(library, ::dlerror());
        throwAndCatchInside =
            reinterpret_cast<void (*)(const char *)>(::dlsym(library, "throwAndCatchInside"));
        QVERIFY(throwAndCatchInside);
    }

    void whatLandsWhere_data()
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

    void whatLandsWhere()
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
                                     QFile::encodeName(folderPath + "/syslog").toStdString(),
                                     message);
        }

        const QByteArray contents = TestSupport::readFile(logPath);
        if (log.isEmpty()) {
            const QString header =
                QStringLiteral(R"([A-Z][a-z]{2} \d{1,2} \d\d:\d\d:\d\d tst_log\[%1\] )")
                    .arg(getpid());
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

    void temporaryDirectoryPlace()
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

    void exceptionsLoggedBeforeAnyHandler_data()
    {
        QTest::addColumn<QString>("line"); // what follows "EXCEPTION WITH NAME "
        QTest::addColumn<std::function<void()>>("thrower");
        const auto row = [](const char *tag, const QString &line, std::function<void()> thrower) {
            QTest::newRow(tag) << line << thrower;
        };
        row("caught inside a library opened later",
            QStringLiteral("std::runtime_error REASON ") + kLibraryReason,
            [] { throwAndCatchInside(kLibraryReason); });
        row("int", "int REASON (null)", [] { throw 404; });
        row("second base", "(anonymous namespace)::Tagged REASON row 9",
            [] { throw Tagged("row 9"); });
        row("installed again", "std::out_of_range REASON 100% %1 %s", [] {
            vantrel::installExceptionLog();
            vantrel::installExceptionLog();
            throw std::out_of_range("100% %1 %s");
        });
        row("another thread", "std::bad_alloc REASON std::bad_alloc", [] {
            std::thread([] {
                try {
                    throw std::bad_alloc();
                } catch (const std::bad_alloc &) {
                }
            }).join();
        });
    }

    void exceptionsLoggedBeforeAnyHandler()
    {
        QFETCH(QString, line);
        QFETCH(std::function<void()>, thrower);
        const qint64 before = TestSupport::logSize();
        // Other programs write to the same log; one write per line keeps a line whole.
        const QString own = QStringLiteral("tst_log[%1] EXCEPTION WITH NAME ").arg(getpid());
        try {
            thrower(); // some are caught where they are thrown
        } catch (...) {
        }
        const QString logged = TestSupport::logLinesSince(before).join(u'\n');
        QCOMPARE(logged.count(own), 1);
        QVERIFY2(logged.contains(own + line), qPrintable(logged));
    }
};

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
