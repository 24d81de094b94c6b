#include "AlertController.h"
#include "DesktopApplication.h"
#include "DocumentInteractionController.h"
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
const QString kPortalRequest = QStringLiteral("org.freedesktop.portal.Request");
// Copies go through memory in pieces of this size, whatever the file's.
constexpr qint64 kCopyChunk = 1 << 20;

// The portal places its chooser over our window when it can tell which one that is.
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
// How long a hand-over copy is kept: long enough for any program to have read it.
constexpr qint64 kHandOverKeepSeconds = 7 * 24 * 3600;
} // namespace

QString DocumentInteractionController::handedOverPath() const
{
    const QString path = filePath();
    if (!m_handsOverCopy || !QFileInfo(path).isFile())
        return path;
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                           QStringLiteral("/net.zorvath.vantrel/Shared");
    if (!QDir().mkpath(folder))
        return path;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const QFileInfo &old : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden)) {
        if (old.lastModified().secsTo(now) > kHandOverKeepSeconds)
            QFile::remove(old.absoluteFilePath());
    }
    const QString copy = folder + u'/' + QFileInfo(path).fileName();
    QFile::remove(copy);
    if (!QFile::copy(path, copy)) {
        mylog(QStringLiteral("VantrelLog : could not copy %1 to hand it over").arg(path));
        return path;
    }
    return copy;
}

void DocumentInteractionController::openWithDefaultApplication()
{
    const QString path = handedOverPath();
    if (!QFileInfo(path).isFile() || !openLocalFile(path))
        return endMenus(false);
    // The desktop does not say which application it chose; its default for the type is it.
    auto *query = new QProcess(this);
    m_query = query;
    const auto report = [this, query](const QString &application) {
        query->disconnect(this);
        query->deleteLater();
        // Reported from the event loop: the delegate may end this controller, and with it
        // the process object whose signal is being delivered.
        QMetaObject::invokeMethod(
            this, [this, application] { endMenus(true, application); }, Qt::QueuedConnection);
    };
    connect(query, &QProcess::finished, this,
            [query, report](int code, QProcess::ExitStatus status) {
                const bool answered = status == QProcess::NormalExit && code == 0;
                report(answered ? QString::fromLocal8Bit(query->readAllStandardOutput()).trimmed()
                                : QString());
            });
    connect(query, &QProcess::errorOccurred, this, [report](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            report(QString());
    });
    query->start(QStringLiteral("xdg-mime"),
                 { QStringLiteral("query"), QStringLiteral("default"), mimeType() });
}

void DocumentInteractionController::openWithChooser()
{
    m_openInMenuUp = true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    const int fd = bus.isConnected() ? ::open(QFile::encodeName(handedOverPath()).constData(),
                                              O_RDONLY | O_CLOEXEC)
                                     : -1;
    if (fd < 0)
        return showOpenInMenu(DesktopApplication::applicationsForMimeType(mimeType()));
    const QDBusUnixFileDescriptor descriptor(fd); // holds a duplicate
    ::close(fd);

    // The answer comes as a signal on a request object whose path is known beforehand, so that
    // it is listened for before it can be sent.
    static int requests = 0;
    const QString token = QStringLiteral("vantrel%1").arg(++requests);
    m_portalRequest = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
                          .arg(bus.baseService().mid(1).replace(u'.', u'_'), token);
    bus.connect(QString(), m_portalRequest, kPortalRequest, QStringLiteral("Response"), this,
                SLOT(portalResponse(uint, QVariantMap)));
    QDBusMessage call = QDBusMessage::createMethodCall(
        kPortal, QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.OpenURI"), QStringLiteral("OpenFile"));
    call << portalParentWindow(m_window) << QVariant::fromValue(descriptor)
         << QVariantMap { { QStringLiteral("ask"), true },
                          { QStringLiteral("handle_token"), token } };
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    m_portalCall = watcher;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        m_portalCall = nullptr;
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        QDBusConnection bus = QDBusConnection::sessionBus();
        const auto listen = [&](const QString &path, bool on) {
            if (on)
                bus.connect(QString(), path, kPortalRequest, QStringLiteral("Response"), this,
                            SLOT(portalResponse(uint, QVariantMap)));
            else
                bus.disconnect(QString(), path, kPortalRequest, QStringLiteral("Response"), this,
                               SLOT(portalResponse(uint, QVariantMap)));
        };
        if (reply.isError()) {
            // No portal on this desktop: our own menu of applications.
            listen(std::exchange(m_portalRequest, QString()), false);
            return showOpenInMenu(DesktopApplication::applicationsForMimeType(mimeType()));
        }
        // An older portal chooses the request's path itself.
        if (reply.value().path() != m_portalRequest) {
            listen(m_portalRequest, false);
            m_portalRequest = reply.value().path();
            listen(m_portalRequest, true);
        }
    });
}

void DocumentInteractionController::portalResponse(uint response, const QVariantMap &)
{
    if (m_portalRequest.isEmpty())
        return;
    QDBusConnection::sessionBus().disconnect(QString(), std::exchange(m_portalRequest, QString()),
                                             kPortalRequest, QStringLiteral("Response"), this,
                                             SLOT(portalResponse(uint, QVariantMap)));
    // 0: an application was chosen and started; 1: the user cancelled; 2: anything else.
    // Reported from the event loop, away from the bus's delivery to this object.
    QMetaObject::invokeMethod(
        this, [this, response] { endMenus(response == 0); }, Qt::QueuedConnection);
}

void DocumentInteractionController::saveCopy()
{
    if (!m_window)
        return endMenus(false);
    auto *dialog = new QFileDialog(m_window, tr("Save a Copy"), QDir::home().filePath(name()));
    dialog->setObjectName(QStringLiteral("SaveCopyDialog"));
    // Replacing is asked in our own sheet, and the dialog stays a sheet inside the window
    // rather than a window of its own.
    dialog->setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::DontConfirmOverwrite);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setWindowFlags(Qt::Widget);
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
    // leaves no half file and keeps the one it was to replace.
    QFile source(filePath());
    QSaveFile copy(destination);
    if (!source.open(QIODevice::ReadOnly))
        return alertThenEnd(tr("The copy could not be saved."), source.errorString());
    if (!copy.open(QIODevice::WriteOnly))
        return alertThenEnd(tr("The copy could not be saved."), copy.errorString());
    while (!source.atEnd()) {
        const QByteArray chunk = source.read(kCopyChunk);
        if (chunk.isEmpty() || copy.write(chunk) != chunk.size()) {
            copy.cancelWriting();
            return alertThenEnd(tr("The copy could not be saved."),
                                chunk.isEmpty() ? source.errorString() : copy.errorString());
        }
    }
    if (!copy.commit())
        return alertThenEnd(tr("The copy could not be saved."), copy.errorString());
    endMenus(false);
}

void DocumentInteractionController::alertThenEnd(const QString &title, const QString &message)
{
    if (!m_window)
        return endMenus(false);
    AlertController *alert =
        AlertController::alertControllerWithTitle(title, message, AlertController::Style::Alert);
    alert->addAction(AlertAction::actionWithTitle(tr("OK"), AlertAction::Style::Cancel,
                                                  [self = QPointer(this)](const AlertAction &) {
                                                      if (self) {
                                                          self->m_sheet = nullptr;
                                                          self->endMenus(false);
                                                      }
                                                  }));
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
