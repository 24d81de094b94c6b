#include "ListScreen.h"
#include "PrivateSoundServer.h"
#include "SoundMonitor.h"
#include "TestSupport.h"
#include "app/VantrelApplication.h"
#include "list/TableController.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/Button.h"
#include "toolkit/Label.h"
#include "toolkit/TableView.h"

#include <QDBusConnection>
#include <QDir>
#include <QProcess>
#include <QTest>

// The media keys' and panels' view of the application: the real playerctl client on the
// test's own session bus, against the real application playing to a sound server of its own.
class TestMpris : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void controlsAndScreenFollowEachOther();
    void theSpeedFromAPanel();

public slots:
    void seeked(qlonglong position) { m_seeked << position; }
    void propertiesChanged(const QString &, const QVariantMap &changed, const QStringList &)
    {
        if (changed.contains("Rate"))
            m_rates << changed.value("Rate").toDouble();
    }

private:
    static TableController *list()
    {
        return VantrelApplication::sharedApplication()->tableController();
    }
    static VantrelPlayer *player() { return list()->playerController(); }
    // Runs a client of the bus without blocking the event loop, which answers it; its output
    // and errors, trimmed.
    static QString run(const QString &program, const QStringList &arguments);
    static QString playerctl(const QStringList &arguments)
    {
        return run("playerctl", QStringList { "--player=vantrel" } + arguments);
    }
    static void tapFirstRow() { ListScreen::tapRow(list()->tableView(), 0); }
    // Reads and writes a property of the player as any client on the bus does (dbus-send):
    // the value read, or the error.
    static QString busProperty(const QString &name, const QString &setTo = QString());

    PrivateSoundServer m_sound;
    QTemporaryDir m_root;
    QList<qlonglong> m_seeked;
    QList<double> m_rates; // as the bus announced them
};

void TestMpris::initTestCase()
{
    QVERIFY(m_sound.start());
    const QString messages = m_root.filePath("Messages");
    QVERIFY(QDir().mkpath(messages));
    // Half a minute at 440 Hz, then half a minute at 880 Hz: where playback is can be heard.
    QVERIFY(TestSupport::writeTone(
        messages + '/' + TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07"),
        60, "if(lt(t\\,30)\\,440\\,880)", { "-c:a", "pcm_s16le" }));
    QVERIFY(QDBusConnection::sessionBus().connect(QString(), "/org/mpris/MediaPlayer2",
                                                  "org.mpris.MediaPlayer2.Player", "Seeked", this,
                                                  SLOT(seeked(qlonglong))));
    QVERIFY(QDBusConnection::sessionBus().connect(
        QString(), "/org/mpris/MediaPlayer2", "org.freedesktop.DBus.Properties",
        "PropertiesChanged", this, SLOT(propertiesChanged(QString, QVariantMap, QStringList))));
    VantrelApplication *app = VantrelApplication::sharedApplication();
    app->setMessagesDirectory(messages);
    app->applicationDidFinishLaunching();
    QVERIFY(QTest::qWaitForWindowExposed(app->window()));
}

QString TestMpris::run(const QString &program, const QStringList &arguments)
{
    QProcess client;
    client.start(program, arguments);
    if (!QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, 10000))
        return "(" + program + " hangs)";
    return QString::fromUtf8(client.readAllStandardOutput() + client.readAllStandardError())
        .trimmed();
}

void TestMpris::controlsAndScreenFollowEachOther()
{
    // Nothing loaded without an open row: nothing to play, no title, no next recording.
    playerctl({ "play" });
    QCOMPARE(playerctl({ "status" }), "Stopped");
    QCOMPARE(playerctl({ "metadata", "title" }), "No player could handle this command");
    QCOMPARE(playerctl({ "next" }), "No player could handle this command");

    SoundMonitor speaker("speaker");
    tapFirstRow();
    QTRY_VERIFY(player()->playbackButton()->isVisible());
    QTRY_COMPARE(playerctl({ "metadata", "--format", "{{title}}|{{artist}}|{{mpris:length}}" }),
                 "+15551234567|Nov 15 2026 - 22:10:07 - Telephony|60000000");
    QVERIFY(playerctl({ "metadata", "xesam:url" }).startsWith("file:///"));
    QCOMPARE(playerctl({ "status" }), "Paused");

    // The media key: the row's button turns to pause, and the sound comes.
    playerctl({ "play-pause" });
    QTRY_VERIFY(player()->playbackButton()->isSelected());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    QCOMPARE(playerctl({ "status" }), "Playing");

    // A panel's slider: the knob, the time labels and the sound move.
    m_seeked.clear();
    playerctl({ "position", "40" });
    QTRY_COMPARE(m_seeked, QList<qlonglong>({ 40000000 }));
    QVERIFY2(speaker.hears(880), qPrintable(speaker.description()));
    QVERIFY2(player()->progressView()->accessibleName().contains(", 0:4"),
             qPrintable(player()->progressView()->accessibleName()));
    playerctl({ "position", "5-" });
    QVERIFY2(speaker.hears(880), qPrintable(speaker.description()));
    QTRY_COMPARE(m_seeked.size(), 2);
    QVERIFY(qAbs(m_seeked.last() - 35000000) < 1000000);

    // The on-screen button is heard by the panel.
    QTest::mouseClick(player()->playbackButton(), Qt::LeftButton);
    QCOMPARE(playerctl({ "status" }), "Paused");
    QVERIFY2(speaker.hearsSilence(), qPrintable(speaker.description()));
    playerctl({ "play" });
    QTRY_VERIFY(player()->playbackButton()->isSelected());
    playerctl({ "stop" });
    QTRY_VERIFY(!player()->playbackButton()->isSelected());
    QCOMPARE(playerctl({ "position" }), "0.000000");

    // Closing the row unloads it and takes its controls away.
    tapFirstRow();
    QTRY_COMPARE(playerctl({ "status" }), "Stopped");
    QTRY_VERIFY(!player()->playbackButton()->isVisible());
    QCOMPARE(playerctl({ "metadata", "title" }), "No player could handle this command");
}

QString TestMpris::busProperty(const QString &name, const QString &setTo)
{
    const QString method = setTo.isNull() ? "Get" : "Set";
    QStringList arguments { "--session", "--print-reply", "--dest=org.mpris.MediaPlayer2.vantrel",
                            "/org/mpris/MediaPlayer2" };
    arguments << "org.freedesktop.DBus.Properties." + method
              << "string:org.mpris.MediaPlayer2.Player"
              << "string:" + name;
    if (!setTo.isNull())
        arguments << "variant:double:" + setTo;
    // "   variant       double 1.5" after the header line, which alone follows a Set.
    const QString reply = run("dbus-send", arguments);
    if (reply.contains("variant"))
        return reply.split(' ', Qt::SkipEmptyParts).last();
    return reply.startsWith("method return") ? QString() : reply;
}

void TestMpris::theSpeedFromAPanel()
{
    // The panel's range is what the row offers: from the recording's own speed to twice it.
    QCOMPARE(busProperty("MinimumRate"), "1");
    QCOMPARE(busProperty("MaximumRate"), "2");
    QCOMPARE(busProperty("Rate"), "1");

    // The row's button shows the speed asked, which the row's sound follows as it does the
    // button's own; for rates it does not offer, the nearest, or nothing outside the range.
    tapFirstRow();
    QTRY_VERIFY(player()->speedButton()->isVisible());
    m_rates.clear();
    const QList<std::pair<QString, QString>> asked {
        { "2", "2×" },   { "1.3", "1.5×" }, { "1.2", "1×" }, { "5", "1×" },
        { "0.5", "1×" }, { "-1", "1×" },    { "1.9", "2×" },
    };
    for (const auto &[rate, shown] : asked) {
        QCOMPARE(busProperty("Rate", rate), QString());
        QTRY_COMPARE(player()->speedButton()->text(), shown);
        QCOMPARE(busProperty("Rate"), QString(shown).remove("×"));
    }
    QCOMPARE(m_rates, (QList<double> { 2, 1.5, 1, 2 }));

    // The row's own button is heard by the panel, and 0 pauses as the interface asks.
    QTest::mouseClick(player()->speedButton(), Qt::LeftButton);
    QTRY_COMPARE(m_rates.last(), 1.0);
    playerctl({ "play" });
    QTRY_VERIFY(player()->playbackButton()->isSelected());
    QCOMPARE(busProperty("Rate", "0"), QString());
    QTRY_VERIFY(!player()->playbackButton()->isSelected());
    QCOMPARE(playerctl({ "status" }), "Paused");
    QCOMPARE(player()->speedButton()->text(), "1×");
    tapFirstRow();
    QTRY_COMPARE(playerctl({ "status" }), "Stopped");
}

int main(int argc, char *argv[])
{
    VantrelApplication application(argc, argv);
    TestMpris test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_mpris.moc"
