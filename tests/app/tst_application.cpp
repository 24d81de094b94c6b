#include "TestSupport.h"
#include "app/VantrelApplication.h"
#include "list/TableController.h"
#include "platform/AudioSession.h"
#include "platform/Device.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QProcess>
#include <QTest>

// Listens on the session bus from a connection of its own, as the recording component would.
class BusSpy : public QObject
{
    Q_OBJECT
public:
    explicit BusSpy(QDBusConnection connection) : m_bus(connection)
    {
        m_bus.connect(QString(), "/net/zorvath/vantrel", "net.zorvath.vantrel", "appbecamevisible",
                      this, SLOT(visible()));
        m_bus.connect(QString(), "/net/zorvath/vantrel", "com.canonical.Unity.LauncherEntry",
                      "Update", this, SLOT(badge(QDBusMessage)));
    }
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

class TestApplication : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void launchPostsVisibleAndClearsBadge();
    void updateNotificationReloadsWithoutLeavingEditMode();
    void foregroundLeavesEditModeButFocusDoesNot();
    void proximityFollowsReceiverPlayback();
    void runsWithoutSessionBus();

private:
    VantrelApplication *app() { return VantrelApplication::sharedApplication(); }
    QString messages() const { return m_root.filePath("Messages"); }

    QTemporaryDir m_root;
    std::unique_ptr<BusSpy> m_spy;
};

void TestApplication::initTestCase()
{
    QVERIFY(QDBusConnection::sessionBus().isConnected());
    m_spy =
        std::make_unique<BusSpy>(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "spy"));
    QVERIFY(QDir(m_root.path()).mkdir("Messages"));
    QVERIFY(TestSupport::writeFile(
        messages() + "/" +
        TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07")));
    app()->setMessagesDirectory(messages());
    app()->applicationDidFinishLaunching();
}

void TestApplication::launchPostsVisibleAndClearsBadge()
{
    QTRY_COMPARE(m_spy->visibleCount, 1);
    QTRY_VERIFY(!m_spy->badgeCounts.isEmpty());
    QCOMPARE(m_spy->badgeCounts.first(), 0);
    QCOMPARE(app()->tableController()->entryList().size(), 1);
    QCOMPARE(app()->tableController()->title(), "Vantrel Plus");
}

void TestApplication::updateNotificationReloadsWithoutLeavingEditMode()
{
    // Swap in a new Messages directory: the watcher keeps watching the old one, so only the
    // notification can bring the new recording to the list.
    QVERIFY(QDir(m_root.path()).rename("Messages", "Old"));
    QVERIFY(QDir(m_root.path()).mkdir("Messages"));
    const QString newest =
        TestSupport::recordingName("FT", "anna@example.com", "16-Nov-2026-08-00-00");
    QVERIFY(TestSupport::writeFile(messages() + "/" + newest));
    QVERIFY(TestSupport::writeFile(
        messages() + "/" +
        TestSupport::recordingName("TEL", "+15550000001", "01-Nov-2026-08-00-00")));
    QTest::qWait(100);
    QCOMPARE(app()->tableController()->entryList().size(), 1);

    app()->tableController()->setEditing(true, false);
    const qsizetype badges = m_spy->badgeCounts.size();
    QProcess::execute("dbus-send", { "--session", "--type=signal", "/net/zorvath/vantrel",
                                     "net.zorvath.vantrel.updateApplicationTable" });
    QTRY_COMPARE(app()->tableController()->entryList().size(), 2);
    QCOMPARE(app()->tableController()->entryList().first().filename, newest);
    QTRY_VERIFY(m_spy->badgeCounts.size() > badges);
    QCOMPARE(m_spy->badgeCounts.last(), 0);
    QVERIFY(app()->tableController()->isEditing());
    QCOMPARE(m_spy->visibleCount, 1);
}

void TestApplication::foregroundLeavesEditModeButFocusDoesNot()
{
    TableController *list = app()->tableController();
    list->setEditing(true, false);
    const int visible = m_spy->visibleCount;

    app()->applicationStateDidChange(Qt::ApplicationInactive); // another window took the focus
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTest::qWait(100);
    QVERIFY(list->isEditing());
    QCOMPARE(m_spy->visibleCount, visible);

    app()->applicationStateDidChange(Qt::ApplicationHidden);
    app()->applicationStateDidChange(Qt::ApplicationActive);
    QTRY_COMPARE(m_spy->visibleCount, visible + 1);
    QVERIFY(!list->isEditing());
}

void TestApplication::proximityFollowsReceiverPlayback()
{
    AudioSession *session = AudioSession::sharedInstance();
    Device *device = Device::currentDevice();
    QCOMPARE(session->category(), AudioSession::AVAudioSessionCategoryPlayback);

    device->setProximityMonitoringEnabled(true);
    app()->audioRouteChanged(); // loudspeaker: off whatever the player does
    QVERIFY(!device->isProximityMonitoringEnabled());

    QVERIFY(session->setCategory(AudioSession::AVAudioSessionCategoryPlayAndRecord));
    device->setProximityMonitoringEnabled(true);
    emit session->routeChanged(); // the list's own rule reads a flag that is never set
    QVERIFY(!device->isProximityMonitoringEnabled());
    QVERIFY(session->setCategory(AudioSession::AVAudioSessionCategoryPlayback));
}

void TestApplication::runsWithoutSessionBus()
{
    QProcess vantrel;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    vantrel.setProcessEnvironment(environment);
    const QString shot = m_root.filePath("shot.png");
    vantrel.start(QStringLiteral(VANTREL_EXECUTABLE),
                  { "--messages-dir", messages(), "--screenshot", shot });
    QVERIFY(vantrel.waitForFinished(30000));
    QCOMPARE(vantrel.exitCode(), 0);
    QVERIFY(QImage(shot).width() > 0);
}

int main(int argc, char *argv[])
{
    VantrelApplication application(argc, argv);
    TestApplication test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_application.moc"
