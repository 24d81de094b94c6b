#include "TestSupport.h"
#include "core/ExceptionLog.h"

#include <QTest>
#include <dlfcn.h>
#include <functional>
#include <stdexcept>
#include <thread>
#include <unistd.h>

Q_DECLARE_METATYPE(std::function<void()>)

namespace {

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

class TestExceptionLog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void loggedBeforeAnyHandler_data();
    void loggedBeforeAnyHandler();
};

void TestExceptionLog::initTestCase()
{
    QVERIFY(vantrel::exceptionLogInstalled()); // before main
    void *library = ::dlopen(EXCEPTION_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    QVERIFY2(library, ::dlerror());
    throwAndCatchInside =
        reinterpret_cast<void (*)(const char *)>(::dlsym(library, "throwAndCatchInside"));
    QVERIFY(throwAndCatchInside);
}

void TestExceptionLog::loggedBeforeAnyHandler_data()
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
    row("second base", "(anonymous namespace)::Tagged REASON row 9", [] { throw Tagged("row 9"); });
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

void TestExceptionLog::loggedBeforeAnyHandler()
{
    QFETCH(QString, line);
    QFETCH(std::function<void()>, thrower);
    const qint64 before = TestSupport::logSize();
    // Other programs write to the same log; one write per line keeps a line whole.
    const QString own = QStringLiteral("tst_exceptionlog[%1] EXCEPTION WITH NAME ").arg(getpid());
    try {
        thrower(); // some are caught where they are thrown
    } catch (...) {
    }
    const QString logged = TestSupport::logLinesSince(before).join(u'\n');
    QCOMPARE(logged.count(own), 1);
    QVERIFY2(logged.contains(own + line), qPrintable(logged));
}

QTEST_GUILESS_MAIN(TestExceptionLog)
#include "tst_exceptionlog.moc"
