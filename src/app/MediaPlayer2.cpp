#include "MediaPlayer2.h"

#include "MprisAdaptors.h"
#include "audio/AudioPlayer.h"
#include "playback/VantrelPlayer.h"
#include "store/Entry.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QUrl>

namespace {
constexpr double kMicroseconds = 1e6;
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
// A panel offers what the row's speed button offers.
static_assert(MediaPlayer2::kMinimumRate == VantrelPlayer::kRates.front() &&
              MediaPlayer2::kMaximumRate == VantrelPlayer::kRates.back());
} // namespace

MprisPlayerAdaptor::MprisPlayerAdaptor(MediaPlayer2 *player)
    : QDBusAbstractAdaptor(player), m_player(player)
{
    connect(player, &MediaPlayer2::seeked, this, &MprisPlayerAdaptor::Seeked);
}

MediaPlayer2::MediaPlayer2(VantrelPlayer *player, NowPlaying nowPlaying, QObject *parent)
    : QObject(parent), m_player(player), m_nowPlaying(std::move(nowPlaying))
{
    new MprisRootAdaptor(this);
    new MprisPlayerAdaptor(this);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    m_registered = bus.registerObject(kObjectPath, this) && bus.registerService(kServiceName);
    if (VantrelPlayer *vantrelPlayer = m_player) {
        connect(vantrelPlayer, &VantrelPlayer::playbackChanged, this, &MediaPlayer2::announce);
        connect(vantrelPlayer, &VantrelPlayer::rateChanged, this, &MediaPlayer2::announce);
        connect(vantrelPlayer, &VantrelPlayer::seeked, this,
                [this](double seconds) { emit seeked(qlonglong(seconds * kMicroseconds)); });
    }
    announce();
}

MediaPlayer2::~MediaPlayer2()
{
    if (!m_registered)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(kServiceName);
    bus.unregisterObject(kObjectPath);
}

VantrelPlayer *MediaPlayer2::player() const
{
    return m_player;
}

const Entry *MediaPlayer2::loaded() const
{
    return canPlay() ? m_nowPlaying() : nullptr;
}

void MediaPlayer2::raise()
{
    emit raiseRequested();
}

void MediaPlayer2::quit()
{
    QCoreApplication::quit();
}

bool MediaPlayer2::canPlay() const
{
    return player() && player()->hasRecording();
}

QString MediaPlayer2::playbackStatus() const
{
    if (!canPlay())
        return QStringLiteral("Stopped");
    return player()->isPlaying() ? QStringLiteral("Playing") : QStringLiteral("Paused");
}

QDBusObjectPath MediaPlayer2::trackId() const
{
    const Entry *entry = loaded();
    if (!entry)
        return QDBusObjectPath(QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack"));
    // A path element may hold only letters, digits and "_": the name's digest stands for it.
    const QByteArray digest =
        QCryptographicHash::hash(entry->filename.toUtf8(), QCryptographicHash::Sha1);
    return QDBusObjectPath(QStringLiteral("/net/zorvath/vantrel/recording/r") +
                           QString::fromLatin1(digest.toHex()));
}

QVariantMap MediaPlayer2::metadata() const
{
    QVariantMap data { { QStringLiteral("mpris:trackid"), QVariant::fromValue(trackId()) } };
    const Entry *loadedEntry = loaded();
    if (!loadedEntry)
        return data;
    const Entry &entry = *loadedEntry;
    // What the row shows: the caller's name (or address), then the date and the kind.
    data.insert(QStringLiteral("xesam:title"), entry.name.isEmpty() ? entry.address : entry.name);
    data.insert(QStringLiteral("xesam:artist"), QStringList { entry.detailText() });
    data.insert(QStringLiteral("xesam:genre"), QStringList { entry.type });
    if (entry.date)
        data.insert(QStringLiteral("xesam:contentCreated"), entry.date->toString(Qt::ISODate));
    data.insert(QStringLiteral("mpris:length"),
                qlonglong(player()->player()->duration() * kMicroseconds));
    data.insert(QStringLiteral("xesam:url"),
                QUrl::fromLocalFile(player()->urlString()).toString(QUrl::FullyEncoded));
    return data;
}

qlonglong MediaPlayer2::position() const
{
    return canPlay() ? qlonglong(player()->player()->currentTime() * kMicroseconds) : 0;
}

void MediaPlayer2::play()
{
    if (canPlay() && !player()->isPlaying())
        player()->togglePlay();
}

void MediaPlayer2::pause()
{
    if (canPlay() && player()->isPlaying())
        player()->togglePlay();
}

void MediaPlayer2::playPause()
{
    if (canPlay())
        player()->togglePlay();
}

void MediaPlayer2::stop()
{
    pause();
    if (canPlay())
        player()->seekTo(0);
}

void MediaPlayer2::seek(qlonglong offset)
{
    if (!canPlay())
        return;
    const double to = player()->player()->currentTime() + double(offset) / kMicroseconds;
    // Past the end would go to the next recording, and there is none.
    if (to > player()->player()->duration())
        return;
    player()->seekTo(qMax(0.0, to));
}

void MediaPlayer2::setPosition(const QDBusObjectPath &track, qlonglong to)
{
    if (!canPlay() || track != trackId() || to < 0 ||
        double(to) / kMicroseconds > player()->player()->duration())
        return;
    player()->seekTo(double(to) / kMicroseconds);
}

double MediaPlayer2::rate() const
{
    return player() ? player()->rate() : 1.0;
}

void MediaPlayer2::setRate(double rate)
{
    if (rate == 0) {
        pause();
        return;
    }
    if (player() && rate >= kMinimumRate && rate <= kMaximumRate)
        player()->setRate(rate);
}

void MediaPlayer2::announce()
{
    if (!m_registered)
        return;
    const QVariantMap now {
        { QStringLiteral("PlaybackStatus"), playbackStatus() },
        { QStringLiteral("Metadata"), metadata() },
        { QStringLiteral("CanPlay"), canPlay() },
        { QStringLiteral("CanPause"), canPlay() },
        { QStringLiteral("CanSeek"), canPlay() },
        { QStringLiteral("Rate"), rate() },
    };
    QVariantMap changed;
    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        if (m_announced.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    }
    m_announced = now;
    if (changed.isEmpty())
        return;
    QDBusMessage signal =
        QDBusMessage::createSignal(kObjectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                   QStringLiteral("PropertiesChanged"));
    signal << kPlayerInterface << changed << QStringList();
    QDBusConnection::sessionBus().send(signal);
}
