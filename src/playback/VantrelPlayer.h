#pragma once

#include "store/MessagesDirectory.h"
#include "audio/AudioPlayer.h"
#include "playback/VantrelProgressView.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QElapsedTimer>
#include <QTimer>
#include <array>
#include <memory>

class Button;
class PlayerCell;
class QLabel;

// The one playback controller: it owns one set of playback controls (play/pause, the scrub
// bar, the speed, the speaker switch and an error banner, in one container) and moves that set into
// whichever row is opened for playing. The list calls destroyPlayer on the previous row
// first, then setupPlayerForCell on the new one. It plays one recording at a time.
//
// The recording is opened on the player's own thread, so a slow or huge file never holds up
// the list: the controls, or the banner, land in the row once it is known which.
class VantrelPlayer : public QObject, public AudioPlayerDelegate, public VantrelProgressViewDelegate
{
    Q_OBJECT
public:
    explicit VantrelPlayer(const QString &messagesDirectory, QObject *parent = nullptr);
    ~VantrelPlayer() override;

    // The last player made while it lives, or null; never makes one.
    static VantrelPlayer *sharedInstance();

    bool isPlaying() const;
    AudioPlayer *player() const { return m_player.get(); }
    VantrelProgressView *progressView() const { return m_progressView; }
    Button *playbackButton() const { return m_playbackButton; }
    Button *speakerButton() const { return m_speakerButton; }
    Button *speedButton() const { return m_speedButton; }
    QWidget *container() const { return m_container; }
    QWidget *errorView() const { return _errorView; }
    QString errorText() const;
    // Full path of the recording last set up.
    QString urlString() const { return m_urlString; }

    // Loads the row's recording and puts the controls, or the error banner, into the row's
    // player view.
    void setupPlayerForCell(PlayerCell *cell);
    // Stops and lets go of the recording and takes the controls out of the row a moment
    // later, once the row has begun to close. The cell is not consulted.
    void destroyPlayer(PlayerCell *cell);

    void togglePlay();
    // Whether a recording is open in a row and ready to play.
    bool hasRecording() const { return m_player && m_loaded; }
    // Moves playback to seconds, as a drag of the knob that ends there does; the scrub bar
    // follows.
    void seekTo(double seconds);
    void toggleSpeaker(Button *button);

    // The speeds the speed button offers, slowest first: the recording's own, and faster with
    // the voice at its own pitch.
    static constexpr std::array<double, 3> kRates { 1.0, 1.5, 2.0 };
    // The speed recordings play at; the choice holds for every recording opened after it.
    double rate() const { return m_rate; }
    // Plays at the offered speed nearest to rate, from where the listener is.
    void setRate(double rate);
    // The speed button: the next offered speed, and the slowest after the fastest.
    void cycleRate();
    // Brings the timer, the play button and the route in step with the playing state.
    void handlePlaybackStateChanged();
    void updateScrubber();
    // Decibels of what plays on the channel; nothing in the application asks.
    double audioLevelForChannel(int channel);

    // The audio player's delegate.
    void audioPlayerDidFinishPlaying(AudioPlayer *player, bool successfully) override;
    void audioPlayerBeginInterruption(AudioPlayer *player) override;
    void audioPlayerBeginInterruption(AudioPlayer *player, unsigned options) override;
    void audioPlayerEndInterruption(AudioPlayer *player) override;
    void audioPlayerDecodeErrorDidOccur(AudioPlayer *player, const QString &error) override;

    // The scrub bar's delegate.
    void progressViewDidBeginScrubbing(VantrelProgressView *view) override;
    void progressViewDidScrubToCurrentTime(VantrelProgressView *view, double seconds) override;
    void progressViewDidEndScrubbing(VantrelProgressView *view) override;

    // How long the controls stay in a closing row.
    static constexpr int kRemovalDelayMs = 50;
    // How long an opening row takes to grow before the scrub bar lays itself out.
    static constexpr int kLayoutDelayMs = 175;
    static constexpr int kScrubberIntervalMs = 10;
    // Listened to this long, a recording has been heard.
    static constexpr int kHeardAfterMs = 3000;

    static inline const QString kEmptyFileText =
        QStringLiteral("Failed to load. File is empty (0 bytes)");
    static inline const QString kReadErrorText = QStringLiteral("Failed to load. File read error.");
    static inline const QString kMissingFileText =
        QStringLiteral("Failed to load. File is missing.");
    // Play was pressed with no sound server to play on; the controls come back with one.
    static inline const QString kNoOutputText = QStringLiteral("No sound output is available.");
    // Another speed was asked for and the program's speed module is not installed.
    static inline const QString kNoSpeedText =
        QStringLiteral("The speed module is not installed.");

signals:
    // The playing state changed or the player came down: the application applies its
    // proximity rule.
    void audioRouteChanged();
    // A recording was opened or let go of, or started, paused or finished playing.
    void playbackChanged();
    // Playback jumped to seconds: a seek, a scrub, or the end going back to the start.
    void seeked(double seconds);
    // The recording of this bare name has been listened to for a few seconds, or to its end.
    void recordingHeard(const QString &fileName);
    void rateChanged(double rate);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // The recording at urlString, opening; null when the text is not a URL.
    std::unique_ptr<AudioPlayer> makePlayer() const;
    void didLoadForCell(bool ok, QPointer<QWidget> playerView, int fileSize, int fileDuration);
    void didLoadForPlay(bool ok);
    QTimer *scheduleScrubberTimer();
    void invalidateTimer();
    void tellHeard();
    void resetErrorView();
    // Covers the open row's controls with the banner, saying that nothing can sound.
    // Shows the red banner with the text in place of the open row's controls.
    void showBanner(const QString &text);
    // The sound server's outputs changed: a row told there was none gets its controls back.
    void outputChanged();
    void updateAccessibleNames();
    // Places the controls in a row of the given width.
    void layoutControls(int width);
    static QRectF progressFrameForWidth(int width);
    static QRect speakerFrameForWidth(int width);
    static QRect speedFrameForWidth(int width);

    bool _playerWasPlaying { false }; // never reset: any interruption's end resumes
    bool m_loaded { false };          // the open row's recording has opened
    QRect bounds;
    QWidget *_errorView; // in the container's place; a child of the shelf or a player view
    QLabel *_errorLabel;

    MessagesDirectory m_messagesDirectory;
    QString m_urlString;
    QString m_recordingName;      // the bare name of the recording set up
    QElapsedTimer m_sinceTick;    // the listening counted so far, and since when
    qint64 m_listenedMs { 0 };
    bool m_heardTold { false };
    std::unique_ptr<AudioPlayer> m_player;
    // Holds the controls and the banner while they are in no row. A row's player view holds
    // them while they are shown; a row that goes away hands them back here.
    std::unique_ptr<QWidget> m_shelf;
    QWidget *m_container; // a child of the shelf or of a row's player view
    VantrelProgressView *m_progressView;
    Button *m_playbackButton;
    Button *m_speakerButton;
    Button *m_speedButton;
    double m_rate { kRates.front() };
    // The scrubber timer while audio plays; a timer replaced while it runs keeps running.
    QPointer<QTimer> m_playerTimer;
    QTimer m_removal;
};
