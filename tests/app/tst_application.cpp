#include "ListScreen.h"
#include "TestSupport.h"
#include "app/VantrelApplication.h"
#include "audio/AudioSession.h"
#include "list/TableController.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/Button.h"
#include "toolkit/TableView.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QMetaMethod>
#include <QPointingDevice>
#include <QProcess>
#include <QProximitySensor>
#include <QSensorBackend>
#include <QSensorManager>
#include <QStandardPaths>
#include <QTest>
#include <csignal>

// A proximity sensor as a phone reports it, for machines without one: registered with Qt
// Sensors as the default backend, so the program's own QProximitySensor reads it.
class FakeProximity : public QSensorBackend
{
public:
    explicit FakeProximity(QSensor *sensor) : QSensorBackend(sensor)
    {
        setReading<QProximityReading>(&m_reading);
        addDataRate(1, 10);
        current = this;
    }
    ~FakeProximity() override { current = nullptr; }
    void start() override { running = true; }
    void stop() override { running = false; }
    void report(bool near)
    {
        m_reading.setClose(near);
        m_reading.setTimestamp(quint64(QDateTime::currentMSecsSinceEpoch()) * 1000);
        newReadingAvailable();
    }
    static bool isOn() { return current && current->running; }

    static inline FakeProximity *current = nullptr;
    bool running = false;

private:
    QProximityReading m_reading;
};

class FakeProximityFactory : public QSensorBackendFactory
{
public:
    QSensorBackend *createBackend(QSensor *sensor) override { return new FakeProximity(sensor); }
};

// Listens on the session bus from a connection of its own, as the recording component would.
class BusSpy : public QObject
{
    Q_OBJECT
public:
    BusSpy() : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "spy"))
    {
        m_bus.connect(QString(), "/net/zorvath/vantrel", "net.zorvath.vantrel", "appbecamevisible",
                      this, SLOT(visible()));
        m_bus.connect(QString(), "/net/zorvath/vantrel", "com.canonical.Unity.LauncherEntry",
                      "Update", this, SLOT(badge(QDBusMessage)));
        m_bus.connect(QString(), "/net/zorvath/vantrel", "net.zorvath.vantrel", "testmarker", this,
                      SLOT(marker()));
    }
    ~BusSpy() override { QDBusConnection::disconnectFromBus("spy"); }
    int visibleCount { 0 };
    QList<qint64> badgeCounts;
    int markers { 0 };

    // Whether everything the application posted so far has arrived: a marker posted on the
    // application's own connection arrives after it.
    bool caughtUp()
    {
        const int expected = markers + 1;
        QDBusConnection::sessionBus().send(QDBusMessage::createSignal(
            "/net/zorvath/vantrel", "net.zorvath.vantrel", "testmarker"));
        return QTest::qWaitFor([&] { return markers == expected; });
    }

public slots:
    void visible() { ++visibleCount; }
    void marker() { ++markers; }
    void badge(const QDBusMessage &message)
    {
        const QVariantMap properties = qdbus_cast<QVariantMap>(message.arguments().value(1));
        badgeCounts << properties.value("count").toLongLong();
    }

private:
    QDBusConnection m_bus;
};

// The application as it is launched, on a Messages directory with two recordings. Each test
// function runs in a process of its own (see main), so each starts from a fresh launch.
class TestApplication : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_root->path()).mkdir("Messages"));
        for (const char *time : { "15-Nov-2026-22-10-07", "14-Nov-2026-09-00-00" })
            QVERIFY(TestSupport::writeFile(
                messages() + "/" + TestSupport::recordingName("TEL", "+15551234567", time)));
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        m_spy = std::make_unique<BusSpy>();
        app()->setMessagesDirectory(messages());
        app()->applicationDidFinishLaunching();
        QVERIFY(QTest::qWaitForWindowExposed(app()->window()));
    }

    void cleanupTestCase()
    {
        m_spy.reset();
        m_root.reset();
    }

    void launchPostsVisibleAndClearsBadge()
    {
        QTRY_COMPARE(m_spy->visibleCount, 1);
        QTRY_VERIFY(!m_spy->badgeCounts.isEmpty());
        QCOMPARE(m_spy->badgeCounts.first(), 0);
        QCOMPARE(list()->tableView()->numberOfRowsInSection(0), 2);
        QCOMPARE(app()->window()->windowTitle(), "Vantrel Plus");
        // The first activation is "active" only: the recording side hears "visible" once.
        QTRY_COMPARE(app()->applicationState(), Qt::ApplicationActive);
        QVERIFY(m_spy->caughtUp());
        QCOMPARE(m_spy->visibleCount, 1);
    }

    void comingBack_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("reloads");
        QTest::addColumn<bool>("foreground");
        QTest::newRow("another window takes the focus and gives it back")
            << "focus" << false << false;
        QTest::newRow("the window was hidden") << "hidden" << true << true;
        QTest::newRow("suspended on a phone") << "suspended" << true << true;
        QTest::newRow("the recording component asks for a fresh list") << "update" << true << false;
    }

    void comingBack()
    {
        QFETCH(QString, how);
        QFETCH(bool, reloads);
        QFETCH(bool, foreground);
        QVERIFY(m_spy->caughtUp());
        const int visible = m_spy->visibleCount;
        const qsizetype badges = m_spy->badgeCounts.size();
        // A reload clears the badge and closes the open row; only the foreground leaves edit mode
        // and tells the recording side. A mere return of the focus changes nothing.
        list()->setEditing(false, false); // whatever a failed row before left
        tapFirstRow();
        QTRY_COMPARE(firstRowHeight(), 108);
        leaveAndComeBack(how);
        QTRY_COMPARE(firstRowHeight(), reloads ? 54 : 108);
        QCOMPARE(list()->currentSelectedRowIndex().has_value(), !reloads);
        list()->setEditing(true, false);
        leaveAndComeBack(how);
        QTRY_COMPARE(m_spy->badgeCounts.size(), badges + (reloads ? 2 : 0));
        QVERIFY(m_spy->caughtUp());
        QCOMPARE(list()->isEditing(), !foreground);
        QCOMPARE(m_spy->visibleCount, visible + (foreground ? 2 : 0));
        QCOMPARE(m_spy->badgeCounts.count(0), m_spy->badgeCounts.size());
    }

    void proximityFollowsReceiverPlayback()
    {
        static FakeProximityFactory factory;
        QSensorManager::registerBackend(QProximitySensor::sensorType, "vantrel.fake", &factory);
        QSensorManager::setDefaultBackend(QProximitySensor::sensorType, "vantrel.fake");
        const QString newest =
            messages() + "/" +
            TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
        QVERIFY(TestSupport::writeTone(newest, 60));
        tapFirstRow();
        VantrelPlayer *player = list()->playerController();
        QTRY_VERIFY(player->playbackButton()->isVisible());

        // Playing on the loudspeaker, or only switching to the ear, leaves the sensor off;
        // playing to the ear turns it on.
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
        QVERIFY(!FakeProximity::isOn());
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
        QTest::mouseClick(player->speakerButton(), Qt::LeftButton);
        QVERIFY(!FakeProximity::isOn());
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
        QVERIFY(FakeProximity::isOn());

        // The phone at the ear: the screen goes black and a cheek's touch on the pause button
        // does nothing; away from the ear, both come back.
        QWidget *window = app()->window();
        const auto lit = [&] {
            return TestSupport::draws(window, window->rect(),
                                      [](const QColor &colour) { return colour.value() > 40; });
        };
        const auto touchPause = [&] {
            static QPointingDevice *screen = QTest::createTouchDevice();
            const QPoint at =
                player->playbackButton()->mapTo(window, player->playbackButton()->rect().center());
            QTest::touchEvent(window, screen).press(0, at, window);
            QTest::touchEvent(window, screen).release(0, at, window);
            QTest::qWait(100);
        };
        QVERIFY(lit());
        FakeProximity::current->report(true);
        QTRY_VERIFY(!lit());
        touchPause();
        QCOMPARE(player->playbackButton()->accessibleName(), "Pause");
        FakeProximity::current->report(false);
        QTRY_VERIFY(lit());
        touchPause();
        QTRY_COMPARE(player->playbackButton()->accessibleName(), "Play");
        QVERIFY(!FakeProximity::isOn());
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
        QVERIFY(FakeProximity::isOn());

        // A route change turns it off until the playing state next changes.
        emit AudioSession::sharedInstance()->routeChanged();
        QVERIFY(!FakeProximity::isOn());
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton); // pause
        QVERIFY(!FakeProximity::isOn());
        QTest::mouseClick(player->playbackButton(), Qt::LeftButton); // play
        QVERIFY(FakeProximity::isOn());
        // Closing the row takes the player down, and the sensor with it.
        tapFirstRow();
        QVERIFY(!FakeProximity::isOn());
    }

    void stoppedFromOutsideItLeavesNoFiles_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM, as a session's end sends it") << int(SIGTERM);
        QTest::newRow("SIGINT, as Ctrl+C in its terminal") << int(SIGINT);
    }

    void stoppedFromOutsideItLeavesNoFiles()
    {
        QFETCH(int, signal);
        QTemporaryDir temporary;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TMPDIR", temporary.path());
        QProcess vantrel;
        vantrel.setProcessEnvironment(environment);
        const int shown = m_spy->visibleCount;
        vantrel.start(QStringLiteral(VANTREL_EXECUTABLE), { "--demo" });
        // Up once it has told the recording component that it is visible.
        QTRY_VERIFY_WITH_TIMEOUT(m_spy->visibleCount > shown, 30000);
        QCOMPARE(QDir(temporary.path()).entryList({ "vantrel-demo-*" }, QDir::Dirs).size(), 1);

        ::kill(pid_t(vantrel.processId()), signal);
        QVERIFY(vantrel.waitForFinished(10000));
        QCOMPARE(vantrel.exitStatus(), QProcess::NormalExit);
        QCOMPARE(vantrel.exitCode(), 0);
        QCOMPARE(QDir(temporary.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void aDesktopKnowsTheWindowByItsAppId()
    {
        // The real program on a real X server, read from outside as a window manager reads it: the
        // class docks match to the desktop file, and a minimum size that lets a desktop user
        // narrow the window to the narrowest phone's width and no further.
        if (QStandardPaths::findExecutable("Xvfb").isEmpty() ||
            QStandardPaths::findExecutable("xprop").isEmpty())
            QSKIP("Xvfb and xprop (packages xvfb, x11-utils) are needed; scripts/setup.sh installs "
                  "them");
        QProcess xvfb;
        const QString display = TestSupport::startXServer(xvfb, QSize(1280, 800));
        QVERIFY(!display.isEmpty());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display);
        environment.insert("QT_QPA_PLATFORM", "xcb");
        // Under AddressSanitizer: libxkbcommon-x11 reads the X server's keymap names with strndup
        // from buffers that do not end in a NUL, which strict string checks report as an overflow
        // inside that library; everything else stays checked.
        if (environment.contains("ASAN_OPTIONS"))
            environment.insert("ASAN_OPTIONS",
                               environment.value("ASAN_OPTIONS")
                                   .replace("strict_string_checks=1", "strict_string_checks=0"));
        QProcess vantrel;
        vantrel.setProcessEnvironment(environment);
        vantrel.start(QStringLiteral(VANTREL_EXECUTABLE), { "--messages-dir", messages() });
        // The id of the window titled "Vantrel Plus" that has a class (Qt's own helper windows
        // share the title but have none), once it is there.
        const auto findWindow = [&] {
            const QString tree = TestSupport::output("xwininfo", { "-root", "-tree" }, environment);
            for (const QString &line : tree.split('\n')) {
                if (line.contains("\"Vantrel Plus\": (\""))
                    return line.trimmed().section(' ', 0, 0);
            }
            return QString();
        };
        // A loaded machine (two test programs and their servers on two cores) can take long.
        QString window;
        QTRY_VERIFY_WITH_TIMEOUT(!(window = findWindow()).isEmpty(), 60000);
        QCOMPARE(TestSupport::output("xprop", { "-id", window, "WM_CLASS" }, environment).trimmed(),
                 "WM_CLASS(STRING) = \"net.zorvath.vantrel\", \"net.zorvath.vantrel\"");
        const QString hints =
            TestSupport::output("xprop", { "-id", window, "WM_NORMAL_HINTS" }, environment);
        QVERIFY2(hints.contains("program specified minimum size: 360 by 320"), qPrintable(hints));
        QVERIFY2(!hints.contains("maximum size"), qPrintable(hints));
        ::kill(pid_t(vantrel.processId()), SIGTERM);
        QVERIFY(vantrel.waitForFinished(10000));
        QCOMPARE(vantrel.exitCode(), 0);
        xvfb.terminate();
        QVERIFY(xvfb.waitForFinished(10000));
    }

private:
    static VantrelApplication *app() { return VantrelApplication::sharedApplication(); }
    static TableController *list() { return app()->tableController(); }
    QString messages() const { return m_root->filePath("Messages"); }
    static void tapFirstRow() { ListScreen::tapRow(list()->tableView(), 0); }
    static int firstRowHeight()
    {
        return list()->tableView()->rectForRowAtIndexPath({ 0, 0 }).height();
    }

    static void leaveAndComeBack(const QString &how)
    {
        if (how == "update") {
            // From another process, as the recording component posts it.
            QProcess::execute("dbus-send", { "--session", "--type=signal", "/net/zorvath/vantrel",
                                             "net.zorvath.vantrel.updateApplicationTable" });
            return;
        }
        if (how == "hidden")
            app()->window()->hide();
        app()->applicationStateDidChange(how == "suspended" ? Qt::ApplicationSuspended
                                                            : Qt::ApplicationInactive);
        if (how == "hidden")
            app()->window()->show();
        app()->applicationStateDidChange(Qt::ApplicationActive);
    }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<BusSpy> m_spy;
};

// Without test function names, runs each test function in a process of its own: an
// application is launched once per process, as it is in use.
int main(int argc, char *argv[])
{
    if (argc == 1) {
        const QMetaObject &tests = TestApplication::staticMetaObject;
        int failed = 0;
        for (int i = tests.methodOffset(); i < tests.methodCount(); ++i) {
            const QMetaMethod method = tests.method(i);
            const QByteArray name = method.name();
            if (method.methodType() != QMetaMethod::Slot || name.endsWith("_data") ||
                name.endsWith("TestCase"))
                continue;
            failed += QProcess::execute(QString::fromLocal8Bit(argv[0]),
                                        { QString::fromLatin1(name) }) != 0;
        }
        return failed;
    }
    VantrelApplication application(argc, argv);
    TestApplication test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_application.moc"
