#include "ListScreen.h"
#include "PrivateSoundServer.h"
#include "SoundMonitor.h"
#include "TestSupport.h"
#include "audio/AudioSession.h"
#include "playback/PlayerCell.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/Button.h"

#include <QApplication>
#include <QDBusConnection>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>

namespace {

// The phone's call-audio daemon, as far as the player uses it: its speaker switch.
class CallAudioDaemon : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mobian_project.CallAudio")
public:
    QList<bool> switched;
public slots:
    bool EnableSpeaker(bool enable)
    {
        switched << enable;
        return true;
    }
};

// A row as the player sees it, with the sizes a list could give it.
struct Row : PlayerCell
{
    QWidget *playerView() const override { return view.get(); }
    QString filePath() const override { return name; }
    int fileSize() const override { return size; }
    int fileDuration() const override { return duration; }
    std::unique_ptr<QWidget> view = std::make_unique<QWidget>();
    QString name;
    int size = 0;
    int duration = 0;
};

void click(QWidget *button)
{
    QTest::mouseClick(button, Qt::LeftButton, {}, button->rect().center());
}

} // namespace

// The inline player as a listener meets it: the row's controls, what the sinks play, and the
// banners of recordings that do not open.
class TestPlayer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(m_server.start()); }
    void cleanup();
    void playsScrubsToTheEndAndAgain();
    void speakerButtonMovesTheSound_data();
    void speakerButtonMovesTheSound();
    void bannersForRecordingsThatDoNotOpen_data();
    void bannersForRecordingsThatDoNotOpen();
    void theListGoesOnWhileAnHourLongRecordingOpens();
    void playWithoutASoundServerSaysSo();
    void aCallInterruptsPlayback();
    void theSpeedGoesRoundIsHeardAtOnceAndHoldsForTheNextRecording();

private:
    // Opens the list over one recording of the given length and taps its row open.
    VantrelPlayer *openRow(double seconds, const QString &hz = "440");

    PrivateSoundServer m_server;
    std::unique_ptr<ListScreen> m_screen;
};

void TestPlayer::cleanup()
{
    m_screen.reset();
    // A test that stopped the server and failed before starting it again does not take the
    // next ones with it.
    if (!m_server.pactl({ "info" }))
        QVERIFY(m_server.start());
    AudioSession::sharedInstance()->setCategory(AudioSession::AVAudioSessionCategoryPlayback);
}

VantrelPlayer *TestPlayer::openRow(double seconds, const QString &hz)
{
    m_screen = std::make_unique<ListScreen>();
    const QString name = TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    if (!TestSupport::writeTone(m_screen->messages() + '/' + name, seconds, hz))
        return nullptr;
    m_screen->open();
    m_screen->tapRow(0);
    VantrelPlayer *player = m_screen->list()->playerController();
    // The controls land in the row once the recording has opened.
    if (!QTest::qWaitFor([&] { return player->playbackButton()->isVisible(); }))
        return nullptr;
    return player;
}

void TestPlayer::playsScrubsToTheEndAndAgain()
{
    // 440 Hz for ten seconds, then 1 kHz for two.
    VantrelPlayer *player = openRow(12, "if(lt(t\\,10)\\,440\\,1000)");
    QVERIFY(player);
    // Closed and opened again before the controls leave, the row keeps them.
    m_screen->tapRow(0);
    m_screen->tapRow(0);
    QTest::qWait(VantrelPlayer::kRemovalDelayMs * 4);
    QTRY_VERIFY(player->playbackButton()->isVisible());
    QVERIFY(m_screen->cell(0)->playerView()->isAncestorOf(player->playbackButton()));
    QCOMPARE(player->playbackButton()->accessibleName(), "Play");
    QCOMPARE(player->speakerButton()->accessibleName(), "Loudspeaker, on");
    SoundMonitor speaker("speaker");
    VantrelProgressView *bar = player->progressView();
    click(player->playbackButton());
    QCOMPARE(player->playbackButton()->accessibleName(), "Pause");
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    // The knob and the times follow what is heard.
    QTRY_VERIFY(bar->currentTime() > 0.2);
    QVERIFY2(bar->accessibleName().startsWith("Playback position, 0:0"),
             qPrintable(bar->accessibleName()));

    // Right on the keyboard, as on a slider, twice: ten seconds on, only the second tone sounds.
    bar->setFocus();
    QTest::keyClick(bar, Qt::Key_Right);
    QTest::keyClick(bar, Qt::Key_Right);
    QVERIFY2(speaker.hears(1000), qPrintable(speaker.description()));
    QTRY_VERIFY2(bar->currentTime() > 10, qPrintable(QString::number(bar->currentTime())));

    // Back to the start while paused: nothing sounds, and play goes on from there.
    click(player->playbackButton());
    QTest::keyClick(bar, Qt::Key_Home);
    QVERIFY(speaker.hearsSilence());
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    QVERIFY2(bar->currentTime() < 10, qPrintable(QString::number(bar->currentTime())));

    // At the end the knob goes home and stays there, and the button offers play again.
    QTest::keyClick(bar, Qt::Key_Right);
    QTest::keyClick(bar, Qt::Key_Right);
    QTRY_COMPARE_WITH_TIMEOUT(player->playbackButton()->accessibleName(), "Play", 6000);
    QCOMPARE(bar->currentTime(), 0.0);
    QTest::qWait(50);
    QCOMPARE(bar->currentTime(), 0.0);
    QVERIFY(speaker.hearsSilence());
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
}

void TestPlayer::speakerButtonMovesTheSound_data()
{
    QTest::addColumn<bool>("daemon");
    QTest::addColumn<QString>("atTheEar"); // the sink that plays with the loudspeaker off
    QTest::newRow("to the earpiece's sink") << false << "earpiece";
    // The daemon switches the phone's own output; the stream stays where it is.
    QTest::newRow("through the phone's call-audio daemon") << true << "speaker";
}

void TestPlayer::speakerButtonMovesTheSound()
{
    QFETCH(bool, daemon);
    QFETCH(QString, atTheEar);
    CallAudioDaemon callAudio;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (daemon)
        QVERIFY(bus.registerObject("/org/mobian_project/CallAudio", &callAudio,
                                   QDBusConnection::ExportAllSlots) &&
                bus.registerService("org.mobian_project.CallAudio"));
    const auto unregister = qScopeGuard([&] {
        bus.unregisterService("org.mobian_project.CallAudio");
        bus.unregisterObject("/org/mobian_project/CallAudio");
    });
    VantrelPlayer *player = openRow(60);
    QVERIFY(player);
    SoundMonitor speaker("speaker");
    SoundMonitor ear(atTheEar);
    click(player->playbackButton());
    QVERIFY(speaker.hears(440));

    click(player->speakerButton());
    QCOMPARE(player->speakerButton()->accessibleName(), "Loudspeaker, off");
    QVERIFY2(ear.hears(440), qPrintable(ear.description()));
    QVERIFY2(daemon || speaker.hearsSilence(), qPrintable(speaker.description()));
    QVERIFY(player->isPlaying());

    click(player->speakerButton());
    QCOMPARE(player->speakerButton()->accessibleName(), "Loudspeaker, on");
    QVERIFY(speaker.hears(440));
    QVERIFY(daemon || SoundMonitor("earpiece").hearsSilence());
    QTRY_COMPARE(callAudio.switched, (daemon ? QList<bool> { false, true } : QList<bool>()));
}

void TestPlayer::bannersForRecordingsThatDoNotOpen_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("size"); // what the row knows of its file
    QTest::addColumn<int>("duration");
    QTest::addColumn<QString>("banner");
    QTest::newRow("empty file") << QByteArray() << 0 << 0 << VantrelPlayer::kEmptyFileText;
    QTest::newRow("a row that knows no length")
        << QByteArray("not audio") << 9 << 0 << VantrelPlayer::kEmptyFileText;
    QTest::newRow("text named .caf")
        << QByteArray("Call me back\n") << 13 << 4 << VantrelPlayer::kReadErrorText;
}

void TestPlayer::bannersForRecordingsThatDoNotOpen()
{
    QFETCH(QByteArray, contents);
    QFETCH(int, size);
    QFETCH(int, duration);
    QFETCH(QString, banner);
    QTemporaryDir messages;
    Row row;
    row.name = "msg-_TEL-_555-_15-Nov-2026-22-10-07.caf";
    row.size = size;
    row.duration = duration;
    QVERIFY(TestSupport::writeFile(messages.filePath(row.name), contents));
    VantrelPlayer player(messages.path());
    player.setupPlayerForCell(&row);
    // The banner alone is shown, in red, where the controls would be.
    QTRY_VERIFY(row.view->isAncestorOf(player.errorView()));
    QCOMPARE(player.errorText(), banner);
    QVERIFY(!row.view->isAncestorOf(player.playbackButton()));

    // Play pressed after the row came down, with the file gone: the third banner.
    player.destroyPlayer(&row);
    QVERIFY(!row.view->isAncestorOf(player.errorView()));
    QFile::remove(messages.filePath(row.name));
    player.togglePlay();
    QTRY_COMPARE(player.errorText(), VantrelPlayer::kMissingFileText);
    QVERIFY(!player.isPlaying());
    QVERIFY(!player.playbackButton()->isSelected());
}

void TestPlayer::theListGoesOnWhileAnHourLongRecordingOpens()
{
    // An hour of MP3 without a header that states its length, renamed .caf: its length is
    // found by decoding all of it.
    m_screen = std::make_unique<ListScreen>();
    const QString hour = TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    const QString minute =
        TestSupport::recordingName("TEL", "+15557654321", "14-Nov-2026-09-00-00");
    QVERIFY(TestSupport::writeTone(
        m_screen->messages() + '/' + hour, 3600, "1000",
        { "-c:a", "libmp3lame", "-b:a", "16k", "-write_xing", "0", "-f", "mp3" }));
    QVERIFY(TestSupport::writeTone(m_screen->messages() + '/' + minute, 60));
    m_screen->open();
    VantrelPlayer *player = m_screen->list()->playerController();

    // The row opens to its full height while the recording is still being measured.
    m_screen->tapRow(0);
    QVERIFY(m_screen->waitForHeights({ 108, 54 }));
    QVERIFY(!player->playbackButton()->isVisible());

    // Another row chosen meanwhile plays at once, and the first one's answer never lands.
    m_screen->tapRow(1);
    QTRY_VERIFY(player->playbackButton()->isVisible());
    QVERIFY(m_screen->cell(1)->playerView()->isAncestorOf(player->playbackButton()));
    SoundMonitor speaker("speaker");
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    QVERIFY(m_screen->waitForHeights({ 54, 108 }));
    QVERIFY(!m_screen->cell(0)->playerView()->isAncestorOf(player->errorView()));
}

void TestPlayer::playWithoutASoundServerSaysSo()
{
    m_server.stop();
    VantrelPlayer *player = openRow(2);
    QVERIFY(player);
    const qint64 logStart = TestSupport::logSize();
    click(player->playbackButton());
    // The row says it, where the controls were; the log says why.
    QTRY_VERIFY(player->errorView()->isVisible());
    QCOMPARE(player->errorText(), "No sound output is available.");
    QVERIFY(m_screen->cell(0)->playerView()->isAncestorOf(player->errorView()));
    QVERIFY(!player->playbackButton()->isVisible());
    QVERIFY(TestSupport::logLinesSince(logStart).join('\n').contains(
        "cannot connect to the audio server"));

    // With a sound server back, the controls are back and play.
    QVERIFY(m_server.start());
    QTRY_VERIFY_WITH_TIMEOUT(player->playbackButton()->isVisible(), 10000);
    QVERIFY(!player->errorView()->isVisible());
    SoundMonitor speaker("speaker");
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
}

// A phone's sound server corks music while a stream of the phone role plays (a call): the
// row pauses for the call and plays on when the call is over; once anything has played, also
// when it was paused before the call, kept so deliberately.
void TestPlayer::aCallInterruptsPlayback()
{
    if (PrivateSoundServer::isPipeWire())
        QSKIP("PipeWire's PulseAudio server has no module-role-cork: a call there asks no other "
              "stream to cork");
    VantrelPlayer *player = openRow(30);
    QVERIFY(player);
    SoundMonitor speaker("speaker");
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    QVERIFY(m_server.pactl({ "load-module", "module-role-cork" }));
    for (const bool pausedFirst : { false, true }) {
        if (pausedFirst) {
            click(player->playbackButton());
            QCOMPARE(player->playbackButton()->accessibleName(), "Play");
        }
        QProcess call;
        call.setStandardInputFile("/dev/zero");
        call.start("pacat", { "--playback", "--raw", "--property=media.role=phone" });
        QVERIFY(call.waitForStarted());
        // A paused row shows nothing new: the call is known once the session has seen it.
        QTRY_VERIFY(AudioSession::sharedInstance()->callActive());
        QCOMPARE(player->playbackButton()->accessibleName(), "Play");
        QVERIFY(speaker.hearsSilence());

        call.kill();
        call.waitForFinished();
        QTRY_COMPARE_WITH_TIMEOUT(player->playbackButton()->accessibleName(), "Pause", 10000);
        SoundMonitor after("speaker");
        QVERIFY2(after.hears(440), qPrintable(after.description()));
    }
    QVERIFY(m_server.pactl({ "unload-module", "module-role-cork" }));
}

void TestPlayer::theSpeedGoesRoundIsHeardAtOnceAndHoldsForTheNextRecording()
{
    // Two recordings of four seconds at 440 Hz, then four at 1 kHz.
    m_screen = std::make_unique<ListScreen>();
    for (const char *time : { "15-Nov-2026-22-10-07", "14-Nov-2026-09-00-00" })
        QVERIFY(TestSupport::writeTone(m_screen->messages() + '/' +
                                           TestSupport::recordingName("TEL", "+15551234567", time),
                                       8, "if(lt(t\\,4)\\,440\\,1000)", { "-c:a", "pcm_s16le" }));
    m_screen->open();
    m_screen->tapRow(0);
    VantrelPlayer *player = m_screen->list()->playerController();
    VantrelProgressView *bar = player->progressView();
    Button *speed = player->speedButton();
    QTRY_VERIFY(speed->isVisible());

    // Reached with Tab from the scrub bar, pressed by Space, Enter and mouse alike: from the
    // recording's own speed each press the next one, and after the fastest the first again.
    bar->setFocus(Qt::TabFocusReason);
    QTest::keyClick(bar, Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), speed);
    const auto press = [&](Qt::Key key, const QString &shown) {
        if (key == Qt::Key_unknown)
            click(speed);
        else
            QTest::keyClick(QApplication::focusWidget(), key);
        QTRY_COMPARE(speed->text(), shown);
        QCOMPARE(speed->accessibleName(), "Playback speed, " + shown);
    };
    press(Qt::Key_Space, "1.5×");
    press(Qt::Key_Return, "2×");
    press(Qt::Key_unknown, "1×");

    // Two and a half seconds at the recording's own speed, then one and a half times as fast:
    // the rest of the first tone takes two thirds of its time, nothing heard twice or skipped.
    SoundMonitor speaker("speaker");
    QVERIFY(speaker.record());
    click(player->playbackButton());
    QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    QTRY_VERIFY_WITH_TIMEOUT(bar->currentTime() > 2.5, 10000);
    const double changedAt = bar->currentTime();
    press(Qt::Key_unknown, "1.5×");
    QVERIFY2(speaker.hears(1000, 10000), qPrintable(speaker.description()));
    // However long that takes: the sound heard decides, not the clock.
    QTRY_VERIFY_WITH_TIMEOUT(bar->currentTime() > 6, 20000);
    click(player->playbackButton());
    QVERIFY(speaker.hearsSilence());
    const double first = speaker.secondsOfTone(440);
    const double second = speaker.secondsOfTone(1000);
    const double expected = changedAt + (4 - changedAt) / 1.5;
    const double shown = bar->currentTime();
    qInfo("changed at %.2f s: %.2f s of 440 Hz (%.2f expected), %.2f s of 1 kHz, the bar at %.2f s",
          changedAt, first, expected, second, shown);
    QVERIFY2(std::abs(first - expected) < 0.4, qPrintable(speaker.recordingDescription()));
    // The scrub bar and its times still count the recording's own seconds, elapsed and
    // remaining adding up to its 8 s; as a screen reader reads them.
    QVERIFY2(std::abs(shown - (4 + second * 1.5)) < 0.3,
             qPrintable(QString("%1 s shown, %2").arg(shown).arg(speaker.recordingDescription())));
    const QRegularExpressionMatch times =
        QRegularExpression("^Playback position, 0:(\\d\\d) elapsed, 0:(\\d\\d) remaining$")
            .match(bar->accessibleName());
    QVERIFY2(times.hasMatch(), qPrintable(bar->accessibleName()));
    QVERIFY2(std::abs(times.captured(1).toInt() - shown) <= 1, qPrintable(bar->accessibleName()));
    QCOMPARE(times.captured(1).toInt() + times.captured(2).toInt(), 8);

    // The next recording opened plays at the speed chosen last, to its end: each tone is over
    // in two seconds of sound.
    press(Qt::Key_unknown, "2×");
    m_screen->tapRow(1);
    QTRY_VERIFY(m_screen->cell(1)->playerView()->isAncestorOf(speed) && speed->isVisible());
    QCOMPARE(speed->text(), "2×");
    QVERIFY(speaker.record());
    click(player->playbackButton());
    QTRY_COMPARE_WITH_TIMEOUT(player->playbackButton()->accessibleName(), "Play", 10000);
    QVERIFY(speaker.hearsSilence());
    for (const double hz : { 440, 1000 }) {
        const double heard = speaker.secondsOfTone(hz);
        QVERIFY2(std::abs(heard - 2) < 0.3,
                 qPrintable(QString("%1 s at %2 Hz").arg(heard).arg(hz)));
    }
}

QTEST_MAIN(TestPlayer)
#include "tst_player.moc"
