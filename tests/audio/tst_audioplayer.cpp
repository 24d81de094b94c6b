#include "PrivateSoundServer.h"
#include "SoundMonitor.h"
#include "TestSupport.h"
#include "audio/AudioPlayer.h"
#include "audio/AudioSession.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>

namespace {

// Writes down what the player tells, in order, and plays along as the application's player
// does: it pauses when interrupted and plays again when the interruption ends.
struct Listener : AudioPlayerDelegate
{
    void audioPlayerDidFinishPlaying(AudioPlayer *, bool successfully) override
    {
        calls << (successfully ? "finished" : "failed");
    }
    void audioPlayerBeginInterruption(AudioPlayer *player) override
    {
        calls << "begin interruption";
        player->pause();
    }
    void audioPlayerBeginInterruption(AudioPlayer *player, unsigned) override
    {
        audioPlayerBeginInterruption(player);
    }
    void audioPlayerEndInterruption(AudioPlayer *player) override
    {
        calls << "end interruption";
        player->play();
    }
    void audioPlayerDecodeErrorDidOccur(AudioPlayer *, const QString &error) override
    {
        calls << "error " + error;
    }
    QStringList calls;
};

} // namespace

class TestAudioPlayer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void interruptions_data();
    void interruptions();
    void aPlayingStreamIsNamedAndOutlivesItsFile();

private:
    // A player of the file, loaded, with the listener as its delegate.
    std::unique_ptr<AudioPlayer> load(const QString &path);

    PrivateSoundServer m_server;
    QTemporaryDir m_dir;
    QString m_tone; // 440 Hz for 1.5 s
    QString m_long; // 440 Hz for a minute
    Listener m_listener;
};

void TestAudioPlayer::initTestCase()
{
    QVERIFY(m_server.start());
    m_tone = m_dir.filePath("tone.caf");
    m_long = m_dir.filePath("long.caf");
    QVERIFY(TestSupport::writeTone(m_tone, 1.5, "440", { "-c:a", "pcm_s16le" }));
    QVERIFY(TestSupport::writeTone(m_long, 60));
    // The session reads the server's outputs before the first test routes anything.
    QVERIFY(QTest::qWaitFor([] { return AudioSession::sharedInstance()->hasOutput("earpiece"); }));
}

void TestAudioPlayer::init()
{
    m_listener.calls.clear();
    AudioSession::sharedInstance()->setCategory(AudioSession::AVAudioSessionCategoryPlayback);
}

std::unique_ptr<AudioPlayer> TestAudioPlayer::load(const QString &path)
{
    auto player = std::make_unique<AudioPlayer>(path);
    AudioSession::sharedInstance()->attach(player.get());
    player->setDelegate(&m_listener);
    QSignalSpy loaded(player.get(), &AudioPlayer::loaded);
    if (!loaded.wait(5000) || !loaded.first().first().toBool())
        return nullptr;
    player->prepareToPlay();
    return player;
}

void TestAudioPlayer::interruptions_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("sink"); // where it plays
    QTest::newRow("the server suspends the device") << "suspend"
                                                    << "speaker";
    QTest::newRow("the receiver is unplugged") << "unplug"
                                               << "earpiece";
    QTest::newRow("the server goes away") << "server"
                                          << "speaker";
}

void TestAudioPlayer::interruptions()
{
    QFETCH(QString, what);
    QFETCH(QString, sink);
    if (what == "suspend" && PrivateSoundServer::isPipeWire())
        QSKIP("PipeWire does not suspend a sink while a stream plays to it");
    if (sink == "earpiece")
        AudioSession::sharedInstance()->setCategory(
            AudioSession::AVAudioSessionCategoryPlayAndRecord);
    const auto player = load(m_long);
    QVERIFY(player);
    player->play();
    QTRY_COMPARE(player->outputName(), sink);
    QVERIFY(SoundMonitor(sink).hears(440));

    // (A call corking the music is met through the row's controls, in the player's test.)
    if (what == "suspend")
        QVERIFY(m_server.pactl({ "suspend-sink", sink, "1" }));
    else if (what == "unplug")
        QVERIFY(m_server.removeSink(sink));
    else
        m_server.stop();
    QTRY_VERIFY2(m_listener.calls.contains("begin interruption"),
                 qPrintable(m_listener.calls.join('|')));
    QVERIFY(!player->isPlaying());
    const double pausedAt = player->currentTime();
    QVERIFY2(pausedAt > 0.1, qPrintable(QString::number(pausedAt)));
    if (what == "unplug") {
        // Nothing plays where the server took the stream in the meantime.
        SoundMonitor speaker("speaker");
        QVERIFY(speaker.hearsSilence());
    }

    if (what == "suspend")
        QVERIFY(m_server.pactl({ "suspend-sink", sink, "0" }));
    else if (what == "unplug")
        QVERIFY(m_server.addSink(sink, "Earpiece"));
    else
        QVERIFY(m_server.start());
    QTRY_VERIFY_WITH_TIMEOUT(m_listener.calls.endsWith("end interruption"), 15000);
    QVERIFY(player->isPlaying());
    QTRY_COMPARE(player->outputName(), sink);
    SoundMonitor monitor(sink);
    QVERIFY2(monitor.hears(440), qPrintable(monitor.description()));
    // It goes on from where it stopped.
    QVERIFY2(std::abs(player->currentTime() - pausedAt) < 1.5,
             qPrintable(QString("%1 after %2").arg(player->currentTime()).arg(pausedAt)));
}

void TestAudioPlayer::aPlayingStreamIsNamedAndOutlivesItsFile()
{
    // The recorder replaces a file by renaming a new one over it; a person deletes one.
    const QString path = m_dir.filePath("replaced.caf");
    QVERIFY(QFile::copy(m_long, path));
    const auto player = load(path);
    QVERIFY(player);
    SoundMonitor speaker("speaker");
    player->play();
    QVERIFY(speaker.hears(440));
    // What the desktop's sound settings and a phone's audio policy see of the stream.
    QString inputs;
    QVERIFY(m_server.pactl({ "list", "sink-inputs" }, &inputs));
    QVERIFY2(inputs.contains("application.name = \"Vantrel Plus\""), qPrintable(inputs));
    QVERIFY(inputs.contains("application.icon_name = \"net.zorvath.vantrel\""));
    QVERIFY(inputs.contains("media.role = \"music\""));
    const QString other = m_dir.filePath("other.caf");
    QVERIFY(QFile::copy(m_tone, other));
    QVERIFY(std::rename(qPrintable(other), qPrintable(path)) == 0);
    QVERIFY(speaker.hears(440));
    QVERIFY(QFile::remove(path));
    player->setCurrentTime(30);
    QVERIFY(speaker.hears(440));
    QVERIFY(player->isPlaying());
    QVERIFY2(m_listener.calls.isEmpty(), qPrintable(m_listener.calls.join('|')));
}

QTEST_GUILESS_MAIN(TestAudioPlayer)
#include "tst_audioplayer.moc"
