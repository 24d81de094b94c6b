#include "TestSupport.h"
#include "app/VantrelApplication.h"
#include "list/TableController.h"
#include "list/VTCell.h"
#include "platform/AudioSession.h"
#include "platform/Button.h"
#include "platform/Device.h"
#include "platform/TableView.h"
#include "playback/VantrelPlayer.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QMetaMethod>
#include <QProcess>
#include <QScrollBar>
#include <QTest>

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
    }
    ~BusSpy() override { QDBusConnection::disconnectFromBus("spy"); }
    int visibleCount { 0 };
    QList<qint64> badgeCounts;

public slots:
    void visible() { ++visibleCount; }
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
    void initTestCase();
    void cleanupTestCase();
    void launchPostsVisibleAndClearsBadge();
    void updateNotificationReloadsWithoutLeavingEditMode();
    void foregroundLeavesEditModeButFocusDoesNot();
    void proximityFollowsReceiverPlayback();
    void exitsQuietly_data();
    void exitsQuietly();

private:
    static VantrelApplication *app() { return VantrelApplication::sharedApplication(); }
    static TableController *list() { return app()->tableController(); }
    QString messages() const { return m_root->filePath("Messages"); }
    void tapFirstRow();
    bool firstRowOpen() const;
    // Posts the recording component's request for a fresh list, from another process.
    static void postUpdate();

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<BusSpy> m_spy;
};

void TestApplication::initTestCase()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir(m_root->path()).mkdir("Messages"));
    for (const char *time : { "15-Nov-2026-22-10-07", "14-Nov-2026-09-00-00" })
        QVERIFY(TestSupport::writeFile(messages() + "/" +
                                       TestSupport::recordingName("TEL", "+15551234567", time)));
    QVERIFY(QDBusConnection::sessionBus().isConnected());
    m_spy = std::make_unique<BusSpy>();
    app()->setMessagesDirectory(messages());
    app()->applicationDidFinishLaunching();
    QVERIFY(QTest::qWaitForWindowExposed(app()->window()));
}

void TestApplication::cleanupTestCase()
{
    m_spy.reset();
    m_root.reset();
}

void TestApplication::tapFirstRow()
{
    TableView *table = list()->tableView();
    const QRect row = table->rectForRowAtIndexPath({ 0, 0 });
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {},
                      QPoint(row.center().x(), row.top() + 27));
}

bool TestApplication::firstRowOpen() const
{
    return list()->tableView()->rectForRowAtIndexPath({ 0, 0 }).height() == 108 &&
           !list()->tableView()->isAnimatingHeights();
}

void TestApplication::proximityFollowsReceiverPlayback()
{
    const QString newest = messages() + "/" +
                           TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", { "-hide_banner", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                             "sine=f=440:r=8000:d=60", "-c:a", "pcm_alaw", "-f", "caf", newest });
    QVERIFY(ffmpeg.waitForFinished(60000) && ffmpeg.exitCode() == 0);
    tapFirstRow();
    VantrelPlayer *player = list()->playerController();
    QTRY_VERIFY(player->playbackButton()->isVisible());
    Device *device = Device::currentDevice();

    // The speaker button alone leaves the sensor off; playing to the ear turns it on.
    QTest::mouseClick(player->speakerButton(), Qt::LeftButton);
    QVERIFY(!device->isProximityMonitoringEnabled());
    QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
    QVERIFY(device->isProximityMonitoringEnabled());
    // A route change turns it off until the playing state next changes.
    emit AudioSession::sharedInstance()->routeChanged();
    QVERIFY(!device->isProximityMonitoringEnabled());
    QTest::mouseClick(player->playbackButton(), Qt::LeftButton); // pause
    QVERIFY(!device->isProximityMonitoringEnabled());
    QTest::mouseClick(player->playbackButton(), Qt::LeftButton); // play
    QVERIFY(device->isProximityMonitoringEnabled());
    // Closing the row takes the player down, and the sensor with it.
    tapFirstRow();
    QVERIFY(!device->isProximityMonitoringEnabled());
}

void TestApplication::postUpdate()
{
    QProcess::execute("dbus-send", { "--session", "--type=signal", "/net/zorvath/vantrel",
                                     "net.zorvath.vantrel.updateApplicationTable" });
}

void TestApplication::launchPostsVisibleAndClearsBadge()
{
    QTRY_COMPARE(m_spy->visibleCount, 1);
    QTRY_VERIFY(!m_spy->badgeCounts.isEmpty());
    QCOMPARE(m_spy->badgeCounts.first(), 0);
    QCOMPARE(list()->tableView()->numberOfRowsInSection(0), 2);
    QCOMPARE(app()->window()->windowTitle(), "Vantrel Plus");
    // The first activation is "active" only: the recording side hears "visible" once.
    QTRY_COMPARE(app()->applicationState(), Qt::ApplicationActive);
    QTest::qWait(50);
    QCOMPARE(m_spy->visibleCount, 1);
}

void TestApplication::updateNotificationReloadsWithoutLeavingEditMode()
{
    // Outside edit mode, the reload closes the open row.
    tapFirstRow();
    QTRY_VERIFY(firstRowOpen());
    qsizetype badges = m_spy->badgeCounts.size();
    postUpdate();
    QTRY_VERIFY(m_spy->badgeCounts.size() > badges);
    QCOMPARE(m_spy->badgeCounts.last(), 0);
    QTRY_COMPARE(list()->tableView()->rectForRowAtIndexPath({ 0, 0 }).height(), 54);

    // In edit mode, the list is reloaded and stays in edit mode.
    list()->setEditing(true, false);
    badges = m_spy->badgeCounts.size();
    postUpdate();
    QTRY_VERIFY(m_spy->badgeCounts.size() > badges);
    QVERIFY(list()->isEditing());
    QCOMPARE(m_spy->visibleCount, 1);
}

void TestApplication::foregroundLeavesEditModeButFocusDoesNot()
{
    QTRY_COMPARE(m_spy->visibleCount, 1);
    tapFirstRow();
    QTRY_VERIFY(firstRowOpen());

    // Another window takes the focus and gives it back: nothing is reloaded, the row stays open.
    app()->applicationStateDidChange(Qt::ApplicationInactive);
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTest::qWait(100);
    QVERIFY(firstRowOpen());
    list()->setEditing(true, false);
    app()->applicationStateDidChange(Qt::ApplicationInactive);
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTest::qWait(100);
    QVERIFY(list()->isEditing());
    QCOMPARE(m_spy->visibleCount, 1);

    // Back from a hidden window: "foreground", then "active", once.
    app()->window()->hide();
    app()->applicationStateDidChange(Qt::ApplicationInactive);
    app()->window()->show();
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTRY_COMPARE(m_spy->visibleCount, 2);
    QVERIFY(!list()->isEditing());

    // Back from suspension on a phone: the same, and the open row closes with the reload.
    list()->setEditing(false, false);
    tapFirstRow();
    QTRY_VERIFY(firstRowOpen());
    app()->applicationStateDidChange(Qt::ApplicationSuspended);
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTRY_COMPARE(m_spy->visibleCount, 3);
    QTRY_COMPARE(list()->tableView()->rectForRowAtIndexPath({ 0, 0 }).height(), 54);
}

void TestApplication::exitsQuietly_data()
{
    QTest::addColumn<bool>("sessionBus");
    QTest::newRow("on a session bus") << true;
    QTest::newRow("without a session bus") << false;
}

void TestApplication::exitsQuietly()
{
    // The real program, from launch to exit: it draws its first screen and ends with status 0
    // and not one warning.
    QFETCH(bool, sessionBus);
    QProcess vantrel;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!sessionBus)
        environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    vantrel.setProcessEnvironment(environment);
    const QString shot = m_root->filePath("shot.png");
    vantrel.start(QStringLiteral(VANTREL_EXECUTABLE),
                  { "--messages-dir", messages(), "--screenshot", shot });
    QVERIFY(vantrel.waitForFinished(30000));
    QCOMPARE(vantrel.exitStatus(), QProcess::NormalExit);
    QCOMPARE(QString::fromLocal8Bit(vantrel.readAllStandardError()), QString());
    QCOMPARE(vantrel.exitCode(), 0);
    QVERIFY(QImage(shot).width() > 0);
}

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
