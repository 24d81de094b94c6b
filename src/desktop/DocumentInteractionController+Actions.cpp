#include "toolkit/AlertController.h"
#include "DesktopApplication.h"
#include "DocumentInteractionController.h"
#include "PrivateFiles.h"
#include "core/Log.h"

#include <QClipboard>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>
#include <fcntl.h>
#include <unistd.h>

namespace {
const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kPortalRequest = QStringLiteral("org.freedesktop.portal.Request");
// The portal's answers in a Response signal.
constexpr uint kPortalDone = 0;
constexpr uint kPortalCancelled = 1;
// From this width on a window is pad-sized, with room for the file dialog's places.
constexpr int kWideWindow = 768;
// How long a hand-over copy is kept: long enough for any program to have read it.
constexpr qint64 kHandOverKeepSeconds = 7 * 24 * 3600;

// The portal places its dialogs over our window when it can tell which one that is.
QString portalParentWindow(QWidget *window)
{
    if (window && QGuiApplication::platformName() == QLatin1String("xcb"))
        return QStringLiteral("x11:%1").arg(window->winId(), 0, 16);
    return QString();
}
// Through Qt where the platform opens documents, else through xdg-open with the path as one
// argument (platforms such as offscreen and eglfs open only URLs of other schemes).
bool openLocalFile(const QString &path)
{
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path)) ||
           QProcess::startDetached(QStringLiteral("xdg-open"), { path });
}
// The window's dark look, for a dialog that Qt draws itself.
QPalette darkPalette()
{
    const QColor background(28, 28, 30);
    const QColor field(44, 44, 46);
    const QColor button(58, 58, 60);
    const QColor quiet(142, 142, 147);
    const QColor tint(10, 132, 255);
    QPalette palette;
    for (const QPalette::ColorGroup group : { QPalette::Active, QPalette::Inactive }) {
        palette.setColor(group, QPalette::Window, background);
        palette.setColor(group, QPalette::WindowText, Qt::white);
        palette.setColor(group, QPalette::Base, field);
        palette.setColor(group, QPalette::AlternateBase, background);
        palette.setColor(group, QPalette::Text, Qt::white);
        palette.setColor(group, QPalette::Button, button);
        palette.setColor(group, QPalette::ButtonText, Qt::white);
        palette.setColor(group, QPalette::Highlight, tint);
        palette.setColor(group, QPalette::HighlightedText, Qt::white);
        palette.setColor(group, QPalette::PlaceholderText, quiet);
        palette.setColor(group, QPalette::ToolTipBase, field);
        palette.setColor(group, QPalette::ToolTipText, Qt::white);
    }
    palette.setColor(QPalette::Disabled, QPalette::Window, background);
    palette.setColor(QPalette::Disabled, QPalette::Base, background);
    palette.setColor(QPalette::Disabled, QPalette::Button, background);
    for (const QPalette::ColorRole role :
         { QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::PlaceholderText })
        palette.setColor(QPalette::Disabled, role, quiet);
    return palette;
}
} // namespace

QString DocumentInteractionController::handedOverPath()
{
    const QString path = filePath();
    if (!m_handsOverCopy || !QFileInfo(path).isFile())
        return path;
    if (!m_handOverCopy.isEmpty() && QFileInfo(m_handOverCopy).isFile())
        return m_handOverCopy;
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                           QStringLiteral("/net.zorvath.vantrel/Shared");
    if (!QDir().mkpath(folder) ||
        !QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return path;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const QFileInfo &old : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden)) {
        if (old.lastModified().secsTo(now) > kHandOverKeepSeconds)
            QFile::remove(old.absoluteFilePath());
    }
    // An older copy of the same name was handed out by an earlier sheet: what received it
    // keeps the file it opened.
    const QString copy = folder + u'/' + QFileInfo(path).fileName();
    QFile::remove(copy);
    if (const QString error = PrivateFiles::copy(path, copy); !error.isEmpty()) {
        mylog(
            QStringLiteral("VantrelLog : could not copy %1 to hand it over: %2").arg(path, error));
        return path;
    }
    m_handOverCopy = copy;
    return copy;
}

void DocumentInteractionController::askPortal(const QString &interface, const QString &method,
                                              QVariantList arguments, QVariantMap options,
                                              PortalAnswer answered,
                                              const std::function<void()> &unavailable)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return unavailable();
    // The answer comes as a signal on a request object whose path is known beforehand, so that
    // it is listened for before it can be sent.
    static int requests = 0;
    const QString token = QStringLiteral("vantrel%1").arg(++requests);
    m_portalRequest = QStringLiteral("%1/request/%2/%3")
                          .arg(kPortalPath, bus.baseService().mid(1).replace(u'.', u'_'), token);
    m_portalAnswer = std::move(answered);
    listenToPortalRequest(m_portalRequest, true);
    options.insert(QStringLiteral("handle_token"), token);
    QDBusMessage call = QDBusMessage::createMethodCall(kPortal, kPortalPath, interface, method);
    call.setArguments(arguments << options);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    m_portalCall = watcher;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, unavailable] {
        watcher->deleteLater();
        m_portalCall = nullptr;
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            mylog(QStringLiteral("VantrelLog : no desktop portal answered: %1")
                      .arg(reply.error().message()));
            listenToPortalRequest(std::exchange(m_portalRequest, QString()), false);
            m_portalAnswer = nullptr;
            return unavailable();
        }
        // An older portal chooses the request's path itself.
        if (reply.value().path() != m_portalRequest) {
            listenToPortalRequest(m_portalRequest, false);
            m_portalRequest = reply.value().path();
            listenToPortalRequest(m_portalRequest, true);
        }
    });
}

void DocumentInteractionController::listenToPortalRequest(const QString &path, bool listen)
{
    if (path.isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (listen)
        bus.connect(QString(), path, kPortalRequest, QStringLiteral("Response"), this,
                    SLOT(portalResponse(uint, QVariantMap)));
    else
        bus.disconnect(QString(), path, kPortalRequest, QStringLiteral("Response"), this,
                       SLOT(portalResponse(uint, QVariantMap)));
}

void DocumentInteractionController::portalResponse(uint response, const QVariantMap &results)
{
    if (m_portalRequest.isEmpty() || !m_portalAnswer)
        return;
    listenToPortalRequest(std::exchange(m_portalRequest, QString()), false);
    // Answered from the event loop, away from the bus's delivery to this object; the answer
    // may end the menus, which forget the one that is running.
    QMetaObject::invokeMethod(
        this,
        [answer = std::exchange(m_portalAnswer, nullptr), response, results] {
            answer(response, results);
        },
        Qt::QueuedConnection);
}

void DocumentInteractionController::openWithDefaultApplication()
{
    const QString path = filePath();
    if (!QFileInfo(path).isFile())
        return tellThenEnd(tr("“%1” could not be read.").arg(name()),
                           QStringLiteral("%1 cannot be read").arg(path));
    // The user's default for the type comes first.
    const QList<DesktopApplication> applications =
        DesktopApplication::applicationsForMimeType(mimeType());
    if (applications.isEmpty())
        return notOpened(QStringLiteral("no application opens %1 (%2)").arg(path, mimeType()));
    const DesktopApplication &application = applications.first();
    if (!application.launch(handedOverPath()))
        return notOpened(
            QStringLiteral("%1 could not be started for %2").arg(application.desktopId(), path));
    endMenus(true, application.desktopId());
}

void DocumentInteractionController::openWithChooser()
{
    m_openInMenuUp = true;
    const auto ownMenu = [this] {
        showOpenInMenu(DesktopApplication::applicationsForMimeType(mimeType()));
    };
    const int fd = ::open(QFile::encodeName(handedOverPath()).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return ownMenu();
    const QDBusUnixFileDescriptor descriptor(fd); // holds a duplicate
    ::close(fd);
    askPortal(
        QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenFile"),
        { portalParentWindow(m_window), QVariant::fromValue(descriptor) },
        { { QStringLiteral("ask"), true } },
        [this](uint response, const QVariantMap &) {
            if (response == kPortalDone || response == kPortalCancelled)
                return endMenus(response == kPortalDone);
            notOpened(QStringLiteral("the desktop portal opened %1 with no application (%2)")
                          .arg(filePath())
                          .arg(response));
        },
        ownMenu);
}

void DocumentInteractionController::notOpened(const QString &reason)
{
    tellThenEnd(tr("No application on this device could open “%1”.").arg(name()), reason);
}

void DocumentInteractionController::tellThenEnd(const QString &message, const QString &reason)
{
    mylog(QStringLiteral("VantrelLog : share sheet: %1").arg(reason));
    alertThenEnd(QStringLiteral("Vantrel"), message);
}

void DocumentInteractionController::saveCopy()
{
    if (!m_window)
        return endMenus(false);
    // The desktop's own chooser where a portal offers one: it asks before replacing a file.
    QVariantMap options { { QStringLiteral("current_name"), name() },
                          { QStringLiteral("modal"), true } };
    options.insert(QStringLiteral("current_folder"),
                   QFile::encodeName(QDir::homePath()).append('\0'));
    askPortal(
        QStringLiteral("org.freedesktop.portal.FileChooser"), QStringLiteral("SaveFile"),
        { portalParentWindow(m_window), tr("Save a Copy") }, options,
        [this](uint response, const QVariantMap &results) {
            if (response == kPortalCancelled)
                return endMenus(false);
            const QString destination =
                QUrl(results.value(QStringLiteral("uris")).toStringList().value(0)).toLocalFile();
            if (response != kPortalDone || destination.isEmpty()) {
                mylog(QStringLiteral("VantrelLog : the desktop portal chose no file to save "
                                     "%1 to (%2)")
                          .arg(filePath())
                          .arg(response));
                return alertThenEnd(tr("The copy could not be saved."),
                                    tr("The desktop chose no place for it."));
            }
            saveCopyTo(destination, true);
        },
        [this] { saveCopyWithDialog(); });
}

void DocumentInteractionController::saveCopyWithDialog()
{
    if (!m_window)
        return endMenus(false);
    auto *dialog = new QFileDialog(m_window, tr("Save a Copy"), QDir::home().filePath(name()));
    dialog->setObjectName(QStringLiteral("SaveCopyDialog"));
    // Replacing is asked in our own sheet, and the dialog stays a sheet inside the window
    // rather than a window of its own, in the window's look.
    dialog->setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::DontConfirmOverwrite);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setWindowFlags(Qt::Widget);
    dialog->setPalette(darkPalette());
    dialog->setAutoFillBackground(true);
    // The places beside the folder would take a third of a phone-wide window and leave the
    // names cut short; the "Look in" list above reaches the same places.
    if (QWidget *places = dialog->findChild<QWidget *>(QStringLiteral("sidebar")))
        places->setVisible(m_window->width() >= kWideWindow);
    dialog->setMinimumSize(0, 0);
    dialog->setGeometry(m_window->rect());
    m_saveDialog = dialog;
    connect(dialog, &QDialog::finished, dialog, &QObject::deleteLater);
    connect(dialog, &QFileDialog::fileSelected, this,
            [this](const QString &destination) { saveCopyTo(destination, false); });
    connect(dialog, &QDialog::rejected, this, [this] { endMenus(false); });
    dialog->show();
    dialog->raise();
    dialog->setFocus(Qt::OtherFocusReason);
}

void DocumentInteractionController::saveCopyTo(const QString &destination, bool replace)
{
    m_saveDialog = nullptr;
    const QFileInfo target(destination);
    if (target.absoluteFilePath() == QFileInfo(filePath()).absoluteFilePath())
        return endMenus(false);
    if (!replace && target.exists()) {
        AlertController *alert = AlertController::alertControllerWithTitle(
            tr("“%1” already exists.").arg(target.fileName()), tr("Do you want to replace it?"),
            AlertController::Style::Alert);
        alert->addAction(AlertAction::actionWithTitle(tr("Cancel"), AlertAction::Style::Cancel,
                                                      [self = QPointer(this)](const AlertAction &) {
                                                          if (self) {
                                                              self->m_sheet = nullptr;
                                                              self->endMenus(false);
                                                          }
                                                      }));
        alert->addAction(
            AlertAction::actionWithTitle(tr("Replace"), AlertAction::Style::Destructive,
                                         [self = QPointer(this), destination](const AlertAction &) {
                                             if (self) {
                                                 self->m_sheet = nullptr;
                                                 self->saveCopyTo(destination, true);
                                             }
                                         }));
        m_sheet = alert;
        alert->presentIn(m_window, true);
        return;
    }
    // Written beside the destination and renamed over it at the end, so that a failed copy
    // leaves no half file and keeps the one it was to replace. The user chose where it goes,
    // and the folder's usual mode applies.
    // A file the desktop's chooser granted inside a sandbox has no folder to write beside it
    // in: written in place then.
    QSaveFile copy(destination);
    copy.setDirectWriteFallback(true);
    if (!copy.open(QIODevice::WriteOnly))
        return alertThenEnd(tr("The copy could not be saved."), copy.errorString());
    if (const QString error = PrivateFiles::copyContents(filePath(), copy); !error.isEmpty()) {
        copy.cancelWriting();
        mylog(QStringLiteral("VantrelLog : could not save a copy: %1").arg(error));
        return alertThenEnd(tr("The copy could not be saved."), error);
    }
    if (!copy.commit())
        return alertThenEnd(tr("The copy could not be saved."), copy.errorString());
    endMenus(false);
}

void DocumentInteractionController::alertThenEnd(const QString &title, const QString &message)
{
    if (!m_window)
        return endMenus(false);
    AlertController *alert = AlertController::alertWithOkay(
        title, message, [self = QPointer(this)](const AlertAction &) {
            if (self) {
                self->m_sheet = nullptr;
                self->endMenus(false);
            }
        });
    m_sheet = alert;
    alert->presentIn(m_window, true);
}

void DocumentInteractionController::copyToClipboard()
{
    // As file managers put a copied file: a URI list, the URI as text, and GNOME's own form.
    const QUrl url = m_handsOverCopy ? QUrl::fromLocalFile(handedOverPath()) : m_url;
    const QByteArray uri = url.toEncoded();
    auto *data = new QMimeData;
    data->setUrls({ url });
    data->setText(QString::fromUtf8(uri));
    data->setData(QStringLiteral("x-special/gnome-copied-files"), "copy\n" + uri);
    QGuiApplication::clipboard()->setMimeData(data);
    endMenus(false);
}

void DocumentInteractionController::showInFiles()
{
    const QString shown = handedOverPath();
    const QString folder = QFileInfo(shown).absolutePath();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        call << QStringList { QString::fromUtf8(QUrl::fromLocalFile(shown).toEncoded()) }
             << QString();
        // The answer may come after this controller is gone; handling it needs nothing of it.
        auto *watcher =
            new QDBusPendingCallWatcher(bus.asyncCall(call), QCoreApplication::instance());
        connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [folder, watcher] {
            if (watcher->isError())
                openLocalFile(folder);
            watcher->deleteLater();
        });
    } else {
        openLocalFile(folder);
    }
    endMenus(false);
}

void DocumentInteractionController::mail()
{
    const QString path = handedOverPath();
    // xdg-email refuses a missing attachment; there is nothing to send.
    if (QFileInfo(path).isFile() &&
        !QProcess::startDetached(QStringLiteral("xdg-email"), { QStringLiteral("--attach"), path }))
        mylog(QStringLiteral("VantrelLog : could not start xdg-email"));
    endMenus(false);
}
