#include "VantrelPlayer.h"

#include "PlayerCell.h"
#include "core/Log.h"
#include "audio/AudioSession.h"
#include "toolkit/Button.h"
#include "toolkit/Screen.h"
#include "core/Url.h"
#include "toolkit/View.h"

#include <QEvent>
#include <algorithm>
#include <QLabel>
#include <QLocale>
#include <cmath>

namespace {
QPointer<VantrelPlayer> s_sharedPlayer;
constexpr double kContainerHeight = 53.5;
constexpr int kSpeakerInset = 7;
// The speed's pill is as tall as the speaker's disc and wide enough for "1.5×". A finger
// just left of the speaker's frame is nearer the speaker than the speed: the gap keeps it
// off the speed button, so it reaches the speaker as before.
constexpr int kSpeedWidth = 44;
constexpr int kSpeedGap = 2;
constexpr int kSpeedInset = 1;
constexpr int kSpeedFontSize = 12;

bool isLoud()
{
    return AudioSession::sharedInstance()->category() ==
           AudioSession::AVAudioSessionCategoryPlayback;
}
} // namespace

VantrelPlayer::VantrelPlayer(const QString &messagesDirectory, QObject *parent)
    : QObject(parent), m_messagesDirectory(messagesDirectory), m_shelf(std::make_unique<QWidget>())
{
    // Controls made for a phone-wide row; they follow the row's width once placed in one.
    bounds = Screen::mainScreenBounds();
    const int width = bounds.width();
    AudioSession::sharedInstance()->setCategory(AudioSession::AVAudioSessionCategoryPlayback);
    // Children are clipped to their parent, as the container's contents must be.
    m_container = new QWidget(m_shelf.get());
    m_container->setObjectName(QStringLiteral("PlayerControls"));
    m_container->setGeometry(0, 0, width, qRound(kContainerHeight));
    m_container->installEventFilter(this);
    // The scrub bar between the play button and the speaker, with both times shown.
    const QRectF progressFrame = progressFrameForWidth(width);
    m_progressView = new VantrelProgressView(progressFrame, m_container);
    m_progressView->setShowTimeLabels(true);
    m_progressView->setDelegate(this);
    m_progressView->setFrame(progressFrame);
    // Play, showing pause while the recording plays.
    m_playbackButton = new Button(m_container);
    m_playbackButton->setObjectName(QStringLiteral("PlayButton"));
    m_playbackButton->setGeometry(8, 0, 40, 40);
    m_playbackButton->setImage(QStringLiteral("play"), Button::State::Normal);
    m_playbackButton->setImage(QStringLiteral("pause"), Button::State::Selected);
    connect(m_playbackButton, &Button::clicked, this, &VantrelPlayer::togglePlay);
    // The loudspeaker switch, on while the sound goes to the loudspeaker.
    m_speakerButton = new Button(m_container);
    m_speakerButton->setObjectName(QStringLiteral("SpeakerButton"));
    m_speakerButton->setGeometry(speakerFrameForWidth(width));
    m_speakerButton->setImage(QStringLiteral("speaker"), Button::State::Normal);
    m_speakerButton->setImage(QStringLiteral("speaker-selected"), Button::State::Selected);
    connect(m_speakerButton, &Button::clicked, this, [this] { toggleSpeaker(m_speakerButton); });
    m_speakerButton->setImageEdgeInsets(
        QMargins(kSpeakerInset, kSpeakerInset, kSpeakerInset, kSpeakerInset));
    m_speakerButton->setSelected(isLoud());
    // The speed, between the scrub bar and the speaker: its text says how fast it plays.
    m_speedButton = new Button(m_container);
    m_speedButton->setObjectName(QStringLiteral("SpeedButton"));
    m_speedButton->setGeometry(speedFrameForWidth(width));
    m_speedButton->setImage(QStringLiteral("speed"), Button::State::Normal);
    m_speedButton->setImageEdgeInsets(
        QMargins(kSpeedInset, kSpeakerInset, kSpeedInset, kSpeakerInset));
    QFont speedFont = m_speedButton->font();
    speedFont.setPixelSize(kSpeedFontSize);
    m_speedButton->setFont(speedFont);
    connect(m_speedButton, &Button::clicked, this, &VantrelPlayer::cycleRate);
    // The red banner that takes the controls' place when a recording cannot be played.
    _errorView = new QWidget(m_container);
    _errorView->setObjectName(QStringLiteral("PlayerError"));
    _errorView->setGeometry(m_container->geometry());
    _errorLabel = new QLabel(_errorView);
    _errorLabel->setGeometry(_errorView->geometry());
    QFont font = _errorLabel->font();
    font.setPixelSize(15);
    _errorLabel->setFont(font);
    _errorLabel->setStyleSheet(QStringLiteral("color: red;"));
    _errorLabel->setAlignment(Qt::AlignCenter);
    setAlpha(_errorView, 0);
    _errorView->installEventFilter(this);

    for (Button *button : { m_playbackButton, m_speakerButton })
        connect(button, &Button::selectedChanged, this, &VantrelPlayer::updateAccessibleNames);
    setRate(m_rate);
    updateAccessibleNames();

    connect(AudioSession::sharedInstance(), &AudioSession::outputChanged, this,
            &VantrelPlayer::outputChanged);

    m_removal.setSingleShot(true);
    m_removal.setInterval(kRemovalDelayMs);
    connect(&m_removal, &QTimer::timeout, this, [this] { m_container->setParent(m_shelf.get()); });
    s_sharedPlayer = this;
}

VantrelPlayer::~VantrelPlayer()
{
    // The controls go with the player, wherever they are shown.
    m_player.reset();
    for (QWidget *view : { m_container, _errorView }) {
        view->removeEventFilter(this);
        view->setParent(m_shelf.get());
    }
}

VantrelPlayer *VantrelPlayer::sharedInstance()
{
    return s_sharedPlayer;
}

bool VantrelPlayer::isPlaying() const
{
    return m_player && m_player->isPlaying();
}

QString VantrelPlayer::errorText() const
{
    return _errorLabel->text();
}

QRectF VantrelPlayer::progressFrameForWidth(int width)
{
    return QRectF(56.5, 0, width - 114.5 - kSpeedGap - kSpeedWidth, 40);
}

QRect VantrelPlayer::speakerFrameForWidth(int width)
{
    return QRect(width - 50, 0, 40, 40);
}

QRect VantrelPlayer::speedFrameForWidth(int width)
{
    return QRect(speakerFrameForWidth(width).left() - kSpeedGap - kSpeedWidth, 0, kSpeedWidth, 40);
}

void VantrelPlayer::layoutControls(int width)
{
    if (m_progressView->frame() != progressFrameForWidth(width))
        m_progressView->setFrame(progressFrameForWidth(width));
    m_speakerButton->setGeometry(speakerFrameForWidth(width));
    m_speedButton->setGeometry(speedFrameForWidth(width));
}

bool VantrelPlayer::eventFilter(QObject *watched, QEvent *event)
{
    // A row that goes away while it shows the controls or the banner hands them back
    // parentless.
    auto *view = qobject_cast<QWidget *>(watched);
    if ((view == m_container || view == _errorView) && event->type() == QEvent::ParentChange &&
        !view->parent())
        view->setParent(m_shelf.get());
    // A row as wide as the window, whatever width that is: the speaker keeps to the right
    // edge and the scrub bar takes what lies between.
    if (view == m_container && event->type() == QEvent::Resize)
        layoutControls(m_container->width());
    if (view == _errorView && event->type() == QEvent::Resize)
        _errorLabel->setGeometry(_errorView->rect());
    return QObject::eventFilter(watched, event);
}

void VantrelPlayer::updateAccessibleNames()
{
    // What a screen reader says is what pressing does, and the speaker's state.
    m_playbackButton->setAccessibleName(m_playbackButton->isSelected() ? QStringLiteral("Pause")
                                                                       : QStringLiteral("Play"));
    m_speakerButton->setAccessibleName(m_speakerButton->isSelected()
                                           ? QStringLiteral("Loudspeaker, on")
                                           : QStringLiteral("Loudspeaker, off"));
    m_speedButton->setAccessibleName(
        QStringLiteral("Playback speed, %1").arg(m_speedButton->text()));
}

std::unique_ptr<AudioPlayer> VantrelPlayer::makePlayer() const
{
    // The path is read as URL text, not as a file name: a name holding a character that URLs
    // do not allow, such as a blank, cannot be opened.
    const auto url = Url::urlWithString(m_urlString);
    const QString path = url ? url->fileSystemPath() : QString();
    if (path.isEmpty())
        return nullptr;
    auto player = std::make_unique<AudioPlayer>(path);
    player->setRate(m_rate);
    AudioSession::sharedInstance()->attach(player.get());
    player->setMeteringEnabled(true);
    return player;
}

void VantrelPlayer::showBanner(const QString &text)
{
    QWidget *playerView = m_container->parentWidget();
    if (!playerView || playerView == m_shelf.get())
        return;
    _errorLabel->setText(text);
    _errorView->setParent(playerView);
    _errorView->setGeometry(m_container->geometry());
    setAlpha(_errorView, 1);
    _errorView->show();
    m_container->hide();
}

void VantrelPlayer::outputChanged()
{
    if (_errorLabel->text() != kNoOutputText ||
        AudioSession::sharedInstance()->outputName().isEmpty())
        return;
    resetErrorView();
    m_container->show();
}

void VantrelPlayer::resetErrorView()
{
    setAlpha(_errorView, 0);
    _errorLabel->clear();
    _errorView->setParent(m_shelf.get());
}

void VantrelPlayer::setupPlayerForCell(PlayerCell *cell)
{
    // A row closed and opened again in quick succession keeps its controls.
    m_removal.stop();
    if (!cell)
        return;
    const QString filePath = cell->filePath();
    resetErrorView();
    m_urlString =
        filePath.isNull() ? QString() : m_messagesDirectory.filePath(filePath);
    m_recordingName = filePath;
    m_listenedMs = 0;
    m_heardTold = false;
    // The recording opens on the player's thread; the row learns which way it went.
    m_player = makePlayer();
    const QPointer<QWidget> playerView = cell->playerView();
    const int fileSize = cell->fileSize();
    const int fileDuration = cell->fileDuration();
    if (!m_player) {
        didLoadForCell(false, playerView, fileSize, fileDuration);
        return;
    }
    connect(m_player.get(), &AudioPlayer::loaded, this,
            [this, playerView, fileSize, fileDuration](bool ok) {
                didLoadForCell(ok, playerView, fileSize, fileDuration);
            });
}

void VantrelPlayer::didLoadForCell(bool ok, QPointer<QWidget> playerView, int fileSize,
                                   int fileDuration)
{
    // Whatever the reason, a recording that does not open shows the banner, worded by what
    // the row knows of its file.
    if (!ok) {
        if (m_player)
            m_player.release()->deleteLater(); // it is still telling of its failure
        setAlpha(_errorView, 1);
        _errorLabel->setText(fileSize == 0 || fileDuration == 0 ? kEmptyFileText : kReadErrorText);
        if (playerView) {
            _errorView->setParent(playerView);
            _errorView->show();
        }
        return;
    }
    m_loaded = true;
    m_player->setMeteringEnabled(true);
    m_player->setDelegate(this);
    m_player->prepareToPlay();
    m_progressView->setTotalDuration(m_player->duration());
    emit playbackChanged();
    if (!playerView)
        return;
    m_container->setParent(playerView);
    m_container->setGeometry(0, 0, playerView->width(), qRound(kContainerHeight));
    m_container->show();
    // By then the row has finished growing, and the scrub bar takes its final width.
    QTimer::singleShot(kLayoutDelayMs, m_progressView,
                       [view = m_progressView] { view->layoutSubviews(); });
}

void VantrelPlayer::togglePlay()
{
    // After destroyPlayer, the recording last set up is opened again.
    if (!m_player) {
        m_player = makePlayer();
        if (!m_player) {
            didLoadForPlay(false);
            return;
        }
        connect(m_player.get(), &AudioPlayer::loaded, this, &VantrelPlayer::didLoadForPlay);
        m_player->setDelegate(this);
    }
    if (m_player->isPlaying())
        m_player->pause();
    else
        m_player->play();
    handlePlaybackStateChanged();
}

void VantrelPlayer::didLoadForPlay(bool ok)
{
    if (ok)
        return;
    // The banner is shown wherever it is; it is not put into a row here.
    if (m_player)
        m_player.release()->deleteLater();
    setAlpha(_errorView, 1);
    _errorLabel->setText(kMissingFileText);
}

QTimer *VantrelPlayer::scheduleScrubberTimer()
{
    m_sinceTick.start();
    auto *timer = new QTimer(this);
    timer->setTimerType(Qt::PreciseTimer);
    timer->setInterval(kScrubberIntervalMs);
    connect(timer, &QTimer::timeout, this, &VantrelPlayer::updateScrubber);
    timer->start();
    return timer;
}

void VantrelPlayer::invalidateTimer()
{
    if (m_playerTimer) {
        m_playerTimer->stop();
        m_playerTimer->deleteLater();
    }
    m_playerTimer = nullptr;
}

void VantrelPlayer::handlePlaybackStateChanged()
{
    const bool playing = isPlaying();
    // A timer already running is left to run beside the new one.
    if (playing) {
        _playerWasPlaying = true;
        m_playerTimer = scheduleScrubberTimer();
    } else {
        invalidateTimer();
    }
    m_playbackButton->setSelected(playing);
    emit audioRouteChanged();
    emit playbackChanged();
}

void VantrelPlayer::seekTo(double seconds)
{
    if (!hasRecording())
        return;
    const double to = qBound(0.0, seconds, m_player->duration());
    m_player->setCurrentTime(to);
    m_progressView->setCurrentTime(to);
    emit seeked(to);
}

void VantrelPlayer::updateScrubber()
{
    m_progressView->setCurrentTime(m_player ? m_player->currentTime() : 0);
    // The time spent playing, a tick at a time; a machine that stalls counts no more than
    // a tick's worth of a stall.
    m_listenedMs += std::min<qint64>(m_sinceTick.restart(), 10 * kScrubberIntervalMs);
    if (m_listenedMs >= kHeardAfterMs)
        tellHeard();
}

void VantrelPlayer::tellHeard()
{
    if (!std::exchange(m_heardTold, true) && !m_recordingName.isEmpty())
        emit recordingHeard(m_recordingName);
}

double VantrelPlayer::audioLevelForChannel(int channel)
{
    if (!m_player)
        return 0;
    m_player->updateMeters();
    return m_player->averagePowerForChannel(channel);
}

void VantrelPlayer::toggleSpeaker(Button *button)
{
    const bool wasLoud = isLoud();
    AudioSession::sharedInstance()->setCategory(
        wasLoud ? AudioSession::AVAudioSessionCategoryPlayAndRecord
                : AudioSession::AVAudioSessionCategoryPlayback);
    if (button)
        button->setSelected(!wasLoud);
}

void VantrelPlayer::setRate(double rate)
{
    const auto nearest =
        std::min_element(kRates.cbegin(), kRates.cend(), [rate](double a, double b) {
            return std::abs(a - rate) < std::abs(b - rate);
        });
    // Closing the row takes the banner away; the row opens again at the speed it had.
    if (*nearest != 1 && !AudioPlayer::canChangeRate()) {
        showBanner(kNoSpeedText);
        return;
    }
    const bool changed = *nearest != m_rate;
    m_rate = *nearest;
    m_speedButton->setText(QLocale().toString(m_rate) + QChar(0x00D7)); // "1.5×"
    updateAccessibleNames();
    if (m_player)
        m_player->setRate(m_rate);
    if (changed)
        emit rateChanged(m_rate);
}

void VantrelPlayer::cycleRate()
{
    const auto next = std::upper_bound(kRates.cbegin(), kRates.cend(), m_rate);
    setRate(next != kRates.cend() ? *next : kRates.front());
}

void VantrelPlayer::progressViewDidBeginScrubbing(VantrelProgressView *)
{
    // The sound goes on while the knob is dragged.
    invalidateTimer();
}

void VantrelPlayer::progressViewDidScrubToCurrentTime(VantrelProgressView *, double seconds)
{
    if (!m_player)
        return;
    m_player->setCurrentTime(seconds);
    emit seeked(seconds);
}

void VantrelPlayer::progressViewDidEndScrubbing(VantrelProgressView *)
{
    if (isPlaying())
        m_playerTimer = scheduleScrubberTimer();
}

void VantrelPlayer::audioPlayerDidFinishPlaying(AudioPlayer *, bool successfully)
{
    // The sound server could not be reached (the reason is in the log already): the row says
    // so, rather than offering a play button that only springs back.
    if (!successfully && AudioSession::sharedInstance()->outputName().isEmpty())
        showBanner(kNoOutputText);
    if (successfully)
        tellHeard();
    m_progressView->setCurrentTime(0);
    handlePlaybackStateChanged();
    m_playbackButton->setSelected(false);
    emit audioRouteChanged();
    emit seeked(0);
}

void VantrelPlayer::audioPlayerBeginInterruption(AudioPlayer *player)
{
    player->pause();
    handlePlaybackStateChanged();
}

void VantrelPlayer::audioPlayerBeginInterruption(AudioPlayer *player, unsigned)
{
    audioPlayerBeginInterruption(player);
}

void VantrelPlayer::audioPlayerEndInterruption(AudioPlayer *player)
{
    if (!_playerWasPlaying)
        return;
    player->play();
    handlePlaybackStateChanged();
}

void VantrelPlayer::audioPlayerDecodeErrorDidOccur(AudioPlayer *, const QString &error)
{
    if (!error.isEmpty())
        mylog(QStringLiteral("ERROR:%1").arg(error));
}

void VantrelPlayer::destroyPlayer(PlayerCell *)
{
    resetErrorView();
    if (m_player)
        m_player->stop();
    invalidateTimer();
    emit audioRouteChanged();
    m_player.reset();
    m_loaded = false;
    // Nothing is looked up: the row is not needed to take the controls down.
    m_removal.start();
    m_playbackButton->setSelected(false);
    m_progressView->setCurrentTime(0);
    emit playbackChanged();
}
