#pragma once

#include "MediaPlayer2.h"

#include <QDBusAbstractAdaptor>
#include <QStringList>

// The two faces of MediaPlayer2 on the bus, as the MPRIS 2 interfaces name their members.

// org.mpris.MediaPlayer2
class MprisRootAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ canQuit)
    Q_PROPERTY(bool CanRaise READ canRaise)
    Q_PROPERTY(bool HasTrackList READ hasTrackList)
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes)
public:
    explicit MprisRootAdaptor(MediaPlayer2 *player) : QDBusAbstractAdaptor(player), m_player(player)
    {}
    bool canQuit() const { return true; }
    bool canRaise() const { return true; }
    bool hasTrackList() const { return false; }
    QString identity() const { return QStringLiteral("Vantrel Plus"); }
    QString desktopEntry() const { return QStringLiteral("net.zorvath.vantrel"); }
    QStringList supportedUriSchemes() const { return {}; }
    QStringList supportedMimeTypes() const { return {}; }

public slots:
    void Raise() { m_player->raise(); }
    void Quit() { m_player->quit(); }

private:
    MediaPlayer2 *m_player;
};

// org.mpris.MediaPlayer2.Player
class MprisPlayerAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(double Rate READ rate WRITE setRate)
    Q_PROPERTY(double MinimumRate READ minimumRate)
    Q_PROPERTY(double MaximumRate READ maximumRate)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(bool CanGoNext READ no)
    Q_PROPERTY(bool CanGoPrevious READ no)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ canPlay)
    Q_PROPERTY(bool CanSeek READ canPlay)
    Q_PROPERTY(bool CanControl READ yes)
public:
    explicit MprisPlayerAdaptor(MediaPlayer2 *player);
    QString playbackStatus() const { return m_player->playbackStatus(); }
    double rate() const { return m_player->rate(); }
    void setRate(double rate) { m_player->setRate(rate); }
    double minimumRate() const { return MediaPlayer2::kMinimumRate; }
    double maximumRate() const { return MediaPlayer2::kMaximumRate; }
    // The sound settings keep the volume.
    double volume() const { return 1.0; }
    void setVolume(double) {}
    QVariantMap metadata() const { return m_player->metadata(); }
    qlonglong position() const { return m_player->position(); }
    bool canPlay() const { return m_player->canPlay(); }
    bool yes() const { return true; }
    bool no() const { return false; }

public slots:
    void Next() {}
    void Previous() {}
    void Play() { m_player->play(); }
    void Pause() { m_player->pause(); }
    void PlayPause() { m_player->playPause(); }
    void Stop() { m_player->stop(); }
    void Seek(qlonglong offset) { m_player->seek(offset); }
    void SetPosition(const QDBusObjectPath &trackId, qlonglong position)
    {
        m_player->setPosition(trackId, position);
    }
    void OpenUri(const QString &) {}

signals:
    void Seeked(qlonglong position);

private:
    MediaPlayer2 *m_player;
};
