#include "PrivateSoundServer.h"
#include "SoundMonitor.h"
#include "TestSupport.h"
#include "app/NewRecordingNotifier.h"
#include "app/VantrelApplication.h"
#include "list/TableController.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/AlertController.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QRegularExpression>
#include <QTest>

// A notification server as the desktop runs one, on a connection of its own: it keeps what
// it is asked to show, and the test presses the notifications' buttons.
class FakeNotifications : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    FakeNotifications() : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "fake"))
    {
        m_bus.registerObject("/org/freedesktop/Notifications", this,
                             QDBusConnection::ExportAllSlots);
        // The dock's view: the launcher badge's count.
        m_bus.connect(QString(), "/net/zorvath/vantrel", "com.canonical.Unity.LauncherEntry",
                      "Update", this, SLOT(badge(QDBusMessage)));
    }
    ~FakeNotifications() override { QDBusConnection::disconnectFromBus("fake"); }
    bool run(bool on)
    {
        return on ? m_bus.registerService("org.freedesktop.Notifications")
                  : m_bus.unregisterService("org.freedesktop.Notifications");
    }
    void press(uint id, const QString &action)
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            "/org/freedesktop/Notifications", "org.freedesktop.Notifications", "ActionInvoked");
        signal << id << action;
        m_bus.send(signal);
    }
    QStringList shown; // "summary|body|actions"
    qint64 badgeCount { -1 };

public slots:
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
                const QStringList &actions, const QVariantMap &, int)
    {
        shown << summary + '|' + body + '|' + actions.join(',');
        return uint(shown.size());
    }
    QStringList GetCapabilities() { return { "actions", "body" }; }
    void CloseNotification(uint) {}
    void badge(const QDBusMessage &message)
    {
        badgeCount =
            qdbus_cast<QVariantMap>(message.arguments().value(1)).value("count").toLongLong();
    }

private:
    QDBusConnection m_bus;
};

// New recordings announced to the desktop while the window is elsewhere, and the
// notifications' buttons acting on the real application.
class TestNotifications : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_sound.start());
        QVERIFY(QDir().mkpath(m_root.filePath("Messages")));
        m_tone = m_root.filePath("tone.caf");
        QVERIFY(TestSupport::writeTone(m_tone, 20, "440", { "-c:a", "pcm_s16le" }));
        arrive("+15550000001", "10-Nov-2026-08-00-00"); // there before launch: never announced

        QVERIFY(m_server.run(true));
        VantrelApplication *app = VantrelApplication::sharedApplication();
        app->setMessagesDirectory(m_root.filePath("Messages"));
        app->applicationDidFinishLaunching();
        QVERIFY(QTest::qWaitForWindowExposed(app->window()));
        m_elsewhere.show();
        m_elsewhere.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&m_elsewhere));
        m_logStart = TestSupport::logSize();
    }

    void arrivalsWhileAwayAreAnnounced()
    {
        // A burst: one notification each, in the order they came (with how many are unheard by
        // then, which depends on whether the two came in one event).
        arrive("+15551234567", "15-Nov-2026-22-10-07");
        arrive("PRIVATE", "15-Nov-2026-22-11-00");
        QTRY_COMPARE(
            QStringList(m_server.shown)
                .replaceInStrings(QRegularExpression("\n[23] unheard recordings"), ""),
            QStringList({ "New voicemail|+15551234567, 10:10 PM|play,Play,call-back,Call back",
                          "New voicemail|PRIVATE, 10:11 PM|play,Play,call-back,Call back" }));

        // The badge counts what nobody has listened to: the recording there before launch too.
        QCOMPARE(m_server.badgeCount, 3);

        // No server: nothing shown, said once in the log however many arrive, and still counted.
        QVERIFY(m_server.run(false));
        arrive("+15557654321", "16-Nov-2026-09-00-00");
        arrive("+15557654322", "16-Nov-2026-09-01-00");
        QTRY_COMPARE(m_server.badgeCount, 5);
        // The second one's turn comes a pace after the first's.
        QTest::qWait(2 * NewRecordingNotifier::kPaceMs);
        QVERIFY(m_server.run(true));
        arrive("+15557654323", "16-Nov-2026-09-02-00");
        // Shown only after the answers to the two before it, on the same connection.
        QTRY_COMPARE(m_server.shown.size(), 3);
        QCOMPARE(logLines().size(), 1);

        // With the window in front, nothing is announced or counted.
        QWidget *window = VantrelApplication::sharedApplication()->window();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window));
        arrive("+15557654324", "16-Nov-2026-09-03-00");
        QTRY_COMPARE(list()->entryList().size(), 7);
        m_elsewhere.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&m_elsewhere));
        arrive("+15557654325", "16-Nov-2026-09-04-00");
        QTRY_COMPARE(m_server.shown.size(), 4);
        // Like the badge, it counts what nobody has listened to.
        QCOMPARE(m_server.shown.last(), "New voicemail|+15557654325, 9:04 AM\n8 unheard "
                                        "recordings|play,Play,call-back,Call back");
        QCOMPARE(m_server.badgeCount, 8);
    }

    void playAndCallBackFromNotification()
    {
        SoundMonitor speaker("speaker");
        const QString name = arrive("+15559876543", "17-Nov-2026-12-00-00");
        QTRY_VERIFY(!m_server.shown.isEmpty() && m_server.shown.last().contains("+15559876543"));
        const uint id = uint(m_server.shown.size());

        // Play: the window comes to the front with that row open and playing.
        m_server.press(id, "play");
        QWidget *window = VantrelApplication::sharedApplication()->window();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTRY_VERIFY(list()->playerController()->isPlaying());
        QCOMPARE(list()->entryList().at(list()->currentSelectedRowIndex()->row).filename, name);
        QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));

        // Call back asks, as the row's green button does.
        m_server.press(id, "call-back");
        QTRY_VERIFY(window->findChild<AlertController *>());
        QCOMPARE(window->findChild<AlertController *>()->message(), "Dial +15559876543?");
    }

private:
    static TableController *list()
    {
        return VantrelApplication::sharedApplication()->tableController();
    }

    QString arrive(const QString &address, const QString &time)
    {
        const QString name = TestSupport::recordingName("TEL", address, time);
        QFile::copy(m_tone, m_root.filePath("Messages/" + name));
        return name;
    }

    QStringList logLines() const
    {
        return TestSupport::logLinesSince(m_logStart)
            .filter(QString("[%1] ").arg(QCoreApplication::applicationPid()))
            .filter("no notification shown");
    }

    PrivateSoundServer m_sound;
    QTemporaryDir m_root;
    FakeNotifications m_server;
    QWidget m_elsewhere; // another window, which has the focus
    QString m_tone;
    qint64 m_logStart { 0 };
};

int main(int argc, char *argv[])
{
    VantrelApplication application(argc, argv);
    TestNotifications test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_notifications.moc"
