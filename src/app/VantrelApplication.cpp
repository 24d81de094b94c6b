#include "VantrelApplication.h"

#include "MediaPlayer2.h"
#include "NewRecordingNotifier.h"
#include "RootViewController.h"
#include "Services.h"
#include "list/TableController.h"
#include "audio/AudioSession.h"
#include "desktop/Device.h"
#include "desktop/LauncherBadge.h"
#include "desktop/NotifyCenter.h"
#include "toolkit/Screen.h"
#include "playback/VantrelPlayer.h"

#include <QEvent>
#include <QVBoxLayout>
#include <QWindow>

namespace {
const QColor kDarkBackground { 28, 28, 30 };
constexpr QSize kMinimumWindowSize { 360, 320 };
} // namespace

VantrelApplication::VantrelApplication(int &argc, char **argv) : QApplication(argc, argv)
{
    // The app id everywhere: WM_CLASS's class on X11 (its instance comes from main's "-name"),
    // the app id on Wayland, matching the desktop file, so docks show the name and icon.
    setApplicationName(QStringLiteral("net.zorvath.vantrel"));
    setApplicationDisplayName(QStringLiteral("Vantrel Plus"));
    setDesktopFileName(QStringLiteral("net.zorvath.vantrel"));
    setOrganizationDomain(QStringLiteral("zorvath.net"));
    setApplicationVersion(QStringLiteral(VANTREL_VERSION));
    connect(this, &QGuiApplication::applicationStateChanged, this,
            &VantrelApplication::applicationStateDidChange);
}

VantrelApplication::~VantrelApplication() = default;

VantrelApplication *VantrelApplication::sharedApplication()
{
    return qobject_cast<VantrelApplication *>(QCoreApplication::instance());
}

void VantrelApplication::applicationDidFinishLaunching()
{
    Services::install();

    // Tell the recording side at once; the list does not exist yet, so leaving edit mode
    // does nothing.
    appBecameForeground();

    // And again at every return to the foreground.
    connect(this, &VantrelApplication::willEnterForeground, this,
            &VantrelApplication::appBecameForeground);

    // The window, see-through where a compositor draws it.
    _window = std::make_unique<QWidget>();
    _window->setWindowTitle(QStringLiteral("Vantrel Plus"));
    _window->setObjectName(QStringLiteral("VantrelWindow"));
    // A phone's size to start with; on a desktop it can be made wider, or narrower down to
    // the narrowest phones, and the rows follow.
    _window->resize(Screen::mainScreenBounds().size());
    if (Screen::isPhone()) {
        // The phone's shell gives the window the whole screen, less its on-screen keyboard,
        // and has its own way to close it: a title bar would only take rows from the list,
        // and a minimum size would push the list under the keyboard or off a turned screen.
        _window->setWindowFlag(Qt::FramelessWindowHint);
    } else {
        _window->setMinimumSize(kMinimumWindowSize);
    }
    applyBackgroundStyle();
    _window->installEventFilter(this);

    // The list of recordings, read from the Messages directory now.
    _tableController = std::make_unique<TableController>(m_messagesDirectory, m_contactsSource);

    // The player asks for the proximity rule at every change of its playing state.
    connect(_tableController->playerController(), &VantrelPlayer::audioRouteChanged, this,
            &VantrelApplication::audioRouteChanged);

    // The list's own route handler.
    connect(AudioSession::sharedInstance(), &AudioSession::routeChanged, _tableController.get(),
            &TableController::audioRouteChanged);

    // The list under its navigation bar fills the window.
    _viewController = new RootViewController(_tableController.get(), _window.get());
    auto *layout = new QVBoxLayout(_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_viewController);
    Device::currentDevice()->setWindow(_window.get());
    _window->show();
    TableController *list = _tableController.get();
    m_mediaPlayer = std::make_unique<MediaPlayer2>(list->playerController(),
                                                   [list] { return list->openEntry(); });
    connect(m_mediaPlayer.get(), &MediaPlayer2::raiseRequested, this,
            &VantrelApplication::raiseWindow);
    m_notifier = std::make_unique<NewRecordingNotifier>(_window.get(),
                                                        [list] { return list->unheardCount(); });
    connect(list, &TableController::recordingsArrived, m_notifier.get(),
            &NewRecordingNotifier::recordingsArrived);
    connect(m_notifier.get(), &NewRecordingNotifier::playRequested, this,
            [this](const QString &filename) {
                raiseWindow();
                _tableController->playRecording(filename);
            });
    connect(m_notifier.get(), &NewRecordingNotifier::callBackRequested, this,
            [this](const QString &address) {
                raiseWindow();
                _tableController->offerCallBack(address);
            });
    _window->activateWindow();

    // Each time the application becomes active the list is read again.
    connect(this, &VantrelApplication::didBecomeActive, this,
            &VantrelApplication::reloadEntriesInTable);

    // Whatever arrived while it was closed has been seen now.
    LauncherBadge::setApplicationIconBadgeNumber(0);

    // The recording component asks for a fresh list by name.
    NotifyCenter::addObserver(QStringLiteral("net.zorvath.vantrel.updateApplicationTable"), this,
                              SLOT(updateCallback()));

    // Playback, not recording: the loudspeaker is the default route.
    AudioSession::sharedInstance()->setCategory(AudioSession::AVAudioSessionCategoryPlayback);
}

void VantrelApplication::applyBackgroundStyle()
{
    // Only Wayland guarantees a compositor; elsewhere a see-through window could show garbage,
    // so it gets the dark background the see-through style would have shown over a wallpaper.
    const bool composited = platformName() == QLatin1String("wayland");
    if (composited) {
        _window->setAttribute(Qt::WA_TranslucentBackground);
        return;
    }
    QPalette palette = _window->palette();
    palette.setColor(QPalette::Window, kDarkBackground);
    _window->setPalette(palette);
    _window->setAutoFillBackground(true);
}

void VantrelApplication::raiseWindow()
{
    if (!_window)
        return;
    _window->showNormal();
    _window->raise();
    _window->activateWindow();
}

void VantrelApplication::appBecameForeground()
{
    NotifyCenter::notify_post(QStringLiteral("net.zorvath.vantrel.appbecamevisible"));
    if (_tableController)
        _tableController->setEditing(false, false);
}

void VantrelApplication::reloadEntriesInTable()
{
    LauncherBadge::setApplicationIconBadgeNumber(0);
    if (_tableController)
        _tableController->reloadEntries(true);
}

void VantrelApplication::updateCallback()
{
    if (VantrelApplication *application = sharedApplication())
        application->reloadEntriesInTable();
}

void VantrelApplication::audioRouteChanged()
{
    const bool receiver = AudioSession::sharedInstance()->category() ==
                          AudioSession::AVAudioSessionCategoryPlayAndRecord;
    // The player is asked only in receiver mode.
    const bool enable =
        receiver && VantrelPlayer::sharedInstance() && VantrelPlayer::sharedInstance()->isPlaying();
    Device::currentDevice()->setProximityMonitoringEnabled(enable);
}

void VantrelApplication::applicationStateDidChange(Qt::ApplicationState state)
{
    if (state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended) {
        m_wentToBackground = true;
        return;
    }
    if (state == Qt::ApplicationActive)
        cameBack();
}

void VantrelApplication::cameBack()
{
    // The first activation after launch is "active" only. Coming back from a hidden or
    // minimised window, or from suspension, is "foreground" and then "active". A mere return
    // of keyboard focus is neither: the process never stopped and the watcher kept the list
    // current, so the open row and edit mode stay as the user left them.
    if (!m_hasBeenActive) {
        m_hasBeenActive = true;
        m_wentToBackground = false;
        emit didBecomeActive();
        return;
    }
    if (!m_wentToBackground)
        return;
    m_wentToBackground = false;
    emit willEnterForeground();
    emit didBecomeActive();
}

bool VantrelApplication::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == _window.get() && m_hasBeenActive) {
        switch (event->type()) {
        case QEvent::Hide:
            m_wentToBackground = true;
            break;
        case QEvent::WindowStateChange:
            if (_window->isMinimized())
                m_wentToBackground = true;
            else if (applicationState() == Qt::ApplicationActive)
                cameBack(); // restored while the application kept the focus
            break;
        case QEvent::Show:
            if (applicationState() == Qt::ApplicationActive)
                cameBack();
            break;
        default:
            break;
        }
    }
    return QApplication::eventFilter(watched, event);
}
