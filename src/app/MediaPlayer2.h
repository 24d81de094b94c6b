#pragma once

#include <QDBusObjectPath>
#include <QObject>
#include <QPointer>
#include <QVariantMap>
#include <functional>

struct Entry;
class VantrelPlayer;

// The application as an MPRIS 2 media player on the session bus
// ("org.mpris.MediaPlayer2.vantrel"), so that media keys, the desktop's media panel and a
// phone's lock screen drive the same player as the buttons of the open row, and the row
// follows them. With no row open it has nothing loaded. There is one recording at a time:
// no track list, no next or previous.
class MediaPlayer2 : public QObject
{
    Q_OBJECT
public:
    static inline const QString kServiceName = QStringLiteral("org.mpris.MediaPlayer2.vantrel");
    static inline const QString kObjectPath = QStringLiteral("/org/mpris/MediaPlayer2");

    // The recording loaded in the player, or null when none is.
    using NowPlaying = std::function<const Entry *()>;

    // Registers on the session bus; without one it does nothing.
    MediaPlayer2(VantrelPlayer *player, NowPlaying nowPlaying, QObject *parent = nullptr);
    ~MediaPlayer2() override;

    // The root interface.
    void raise();
    void quit();

    // The player interface; positions in microseconds.
    QString playbackStatus() const;
    QVariantMap metadata() const;
    qlonglong position() const;
    bool canPlay() const;
    void play();
    void pause();
    void playPause();
    void stop();
    void seek(qlonglong offset);
    void setPosition(const QDBusObjectPath &trackId, qlonglong position);
    // The speed of the row's player, which holds for the next recording too; 1 is the
    // recording's own. A rate outside the range is ignored and 0 pauses, as the interface
    // says; any other plays at the nearest speed the row's speed button offers.
    double rate() const;
    void setRate(double rate);
    static constexpr double kMinimumRate = 1.0;
    static constexpr double kMaximumRate = 2.0;

signals:
    void seeked(qlonglong position);
    // A media panel asked to see the player's window.
    void raiseRequested();

private:
    VantrelPlayer *player() const;
    // The recording in the player while it can play, else null.
    const Entry *loaded() const;
    QDBusObjectPath trackId() const;
    // Tells the bus which of the player's properties changed, and their new values.
    void announce();

    QPointer<VantrelPlayer> m_player;
    NowPlaying m_nowPlaying;
    bool m_registered { false };
    QVariantMap m_announced; // the values last told, so only changes are sent
};
