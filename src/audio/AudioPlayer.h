#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <memory>

class AudioPlayer;

// Where a player's sound goes, as the audio session hands it over.
struct AudioRoute
{
    // The audio server's name of the output to play on; empty for the server's default.
    QString output;
    // Every output the server has now.
    QStringList outputs;
    // A call is under way on the sound server.
    bool callActive { false };
};

// What a player tells whoever plays with it; every call arrives on the thread that made the
// player, never during a call into the player.
class AudioPlayerDelegate
{
public:
    virtual ~AudioPlayerDelegate() = default;
    // The end was heard (successfully), or playback could not go on (not successfully). The
    // player is paused at the start again.
    virtual void audioPlayerDidFinishPlaying(AudioPlayer *player, bool successfully) = 0;
    // Something else took the sound: the server suspended or corked the stream (a call on a
    // phone), its output device went away, or the server did. The player keeps playing
    // until it is paused; the end of the interruption follows when the sound is back.
    virtual void audioPlayerBeginInterruption(AudioPlayer *player) = 0;
    virtual void audioPlayerBeginInterruption(AudioPlayer *player, unsigned options) = 0;
    virtual void audioPlayerEndInterruption(AudioPlayer *player) = 0;
    // A damaged stretch of the file, or an audio server that cannot play it.
    virtual void audioPlayerDecodeErrorDidOccur(AudioPlayer *player, const QString &error) = 0;
};

// Plays one recording through the audio server: FFmpeg decodes it on a thread of the
// player's own into a quarter second of buffer, and a libpulse stream takes from that buffer
// as the server asks. Streams: memory stays the same for a minute or an hour.
//
// The file is opened on the player's thread, so that a slow or huge file never holds up the
// caller: loaded() says when it is known whether it plays. Every call is made, and every
// delegate call and signal arrives, on the thread that made the player.
class AudioPlayer : public QObject
{
    Q_OBJECT
public:
    enum class Status
    {
        Loading,
        Ready,
        Failed
    };

    // Starts opening the file at the path; loaded() follows.
    explicit AudioPlayer(const QString &path, QObject *parent = nullptr);
    ~AudioPlayer() override;

    QString path() const { return m_path; }
    Status status() const { return m_status; }
    // Why the file cannot be played: the operation, the path and the reason.
    QString errorString() const { return m_error; }

    AudioPlayerDelegate *delegate() const { return m_delegate; }
    void setDelegate(AudioPlayerDelegate *delegate) { m_delegate = delegate; }

    // Connects to the audio server and fills the buffer, so that play() sounds at once.
    // Answers false when the file cannot be played.
    bool prepareToPlay();
    // Answers false when the file cannot be played; the audio server's answer comes later,
    // and a refusal reaches the delegate as a decode error and an unsuccessful finish.
    bool play();
    void pause();
    // Pauses and lets go of the audio server; the position stays.
    void stop();
    bool isPlaying() const { return m_playing; }

    // Seconds; 0 until loaded.
    double duration() const { return m_duration; }
    // What the listener hears now, the server's latency included.
    double currentTime() const;
    // Seeks; nothing from before the seek is heard after it.
    void setCurrentTime(double seconds);

    // How fast the recording plays: 1 at its own speed, 2 at twice that, the voice at its own
    // pitch either way; held between kMinimumRate and kMaximumRate. A change is heard at
    // once, from where the listener is. Times stay the recording's own seconds.
    double rate() const { return m_rate; }
    void setRate(double rate);
    static constexpr double kMinimumRate = 0.5;
    static constexpr double kMaximumRate = 2.0;
    // Whether a rate other than 1 can play: false when the speed module is missing. The first
    // call loads the module.
    static bool canChangeRate();

    bool isMeteringEnabled() const { return m_meteringEnabled; }
    void setMeteringEnabled(bool enabled) { m_meteringEnabled = enabled; }
    // Takes the levels of what is being played for the two calls below.
    void updateMeters();
    // Decibels of full scale; -160 for silence, a channel it lacks or metering switched off.
    double averagePowerForChannel(int channel) const;
    double peakPowerForChannel(int channel) const;

    // Where the sound goes from now on: handed over by the audio session, at first and at
    // each change. Until then the player plays on the server's default output.
    void setRoute(const AudioRoute &route);

    // The audio server's name of the output the stream plays on, empty while there is none.
    QString outputName() const;
    // Bytes of sound handed to the audio server since the player was made; safe to ask from
    // any thread, for measuring how soon play() reaches the server.
    qint64 handedOverBytes() const;

signals:
    // Once, when the file turned out playable (status() Ready) or not (Failed).
    void loaded(bool ok);

private:
    struct Engine;
    void didLoad(bool ok, double duration, const QString &error);
    void didOpenOutput(bool ok, const QString &error);
    void didHearTheEnd(int generation, bool successfully);
    void didLoseOutput(const QString &reason);
    void didMove(const QString &sinkName);
    void setInterrupted(bool interrupted);
    void followCall(bool active);
    void followRoute();
    bool hasOutput(const QString &name) const { return m_route.outputs.contains(name); }
    void noticeLostOutput();
    void requestOutput();
    // Has the decoding thread start again at seconds, at the current rate.
    void seekEngine(double seconds);

    QString m_path;
    AudioRoute m_route;
    bool m_routed { false };
    Status m_status { Status::Loading };
    QString m_error;
    AudioPlayerDelegate *m_delegate { nullptr };
    double m_duration { 0 };
    bool m_playing { false };
    bool m_outputRequested { false };
    bool m_outputOpen { false };
    bool m_interrupted { false };
    bool m_interruptedByCall { false }; // the interruption began with a call seen while paused
    bool m_meteringEnabled { false };
    // Where the listener was at the last seek; what has been heard since is added, times the
    // rate: every change of rate is a seek, so one rate holds from the last seek on.
    double m_seekBase { 0 };
    double m_rate { 1 };
    int m_generation { 0 };
    QString m_sink;     // the output asked for; empty for the server's default
    QString m_lostSink; // the output that went away while the stream played on it
    std::vector<double> m_average;
    std::vector<double> m_peak;
    // Tries the audio server again while it is away and the player was playing.
    QTimer m_reconnect;
    std::unique_ptr<Engine> m_engine;
};
