#include "DocumentInteractionController.h"

#include "toolkit/AlertController.h"
#include "DesktopApplication.h"
#include "DocumentPreview.h"
#include "core/Log.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QFileDialog>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QPushButton>

std::unique_ptr<DocumentInteractionController>
DocumentInteractionController::interactionControllerWithURL(const QUrl &fileUrl)
{
    return std::unique_ptr<DocumentInteractionController>(
        new DocumentInteractionController(fileUrl));
}

DocumentInteractionController::DocumentInteractionController(const QUrl &url) : m_url(url) {}

DocumentInteractionController::~DocumentInteractionController()
{
    closeMenus();
    if (m_preview) {
        m_preview->hide();
        m_preview->deleteLater();
    }
}

AlertController *DocumentInteractionController::currentMenu() const
{
    return m_sheet;
}

DocumentPreview *DocumentInteractionController::preview() const
{
    return m_preview;
}

bool DocumentInteractionController::isShowing() const
{
    return m_preview || m_optionsMenuUp || m_openInMenuUp;
}

QString DocumentInteractionController::name() const
{
    return m_url.isLocalFile() ? QFileInfo(filePath()).fileName() : m_url.fileName();
}

QString DocumentInteractionController::mimeType() const
{
    return QMimeDatabase().mimeTypeForFile(filePath()).name();
}

bool DocumentInteractionController::presentOptionsMenuFromRect(const QRect &rect, QWidget *inView,
                                                               bool)
{
    if (!inView || m_optionsMenuUp || m_openInMenuUp)
        return false;
    m_window = inView->window();
    m_sourceRect = QRect(inView->mapTo(m_window, rect.topLeft()), rect.size());
    m_optionsMenuUp = true;
    showOptionsMenu();
    return true;
}

bool DocumentInteractionController::presentOpenInMenuFromRect(const QRect &rect, QWidget *inView,
                                                              bool)
{
    if (!inView || m_optionsMenuUp || m_openInMenuUp || !QFileInfo(filePath()).isFile())
        return false;
    const QList<DesktopApplication> applications =
        DesktopApplication::applicationsForMimeType(mimeType());
    if (applications.isEmpty())
        return false;
    m_window = inView->window();
    m_sourceRect = QRect(inView->mapTo(m_window, rect.topLeft()), rect.size());
    showOpenInMenu(applications);
    return true;
}

void DocumentInteractionController::showOptionsMenu()
{
    AlertController *sheet = AlertController::alertControllerWithTitle(
        name(), QString(), AlertController::Style::ActionSheet);
    const auto add = [&](const QString &title, void (DocumentInteractionController::*action)(),
                         AlertAction::Style style = AlertAction::Style::Default) {
        sheet->addAction(AlertAction::actionWithTitle(
            title, style, [self = QPointer(this), action](const AlertAction &) {
                if (self) {
                    self->m_sheet = nullptr;
                    (self.data()->*action)();
                }
            }));
    };
    add(tr("Open"), &DocumentInteractionController::openWithDefaultApplication);
    add(tr("Open With…"), &DocumentInteractionController::openWithChooser);
    add(tr("Save a Copy…"), &DocumentInteractionController::saveCopy);
    add(tr("Copy"), &DocumentInteractionController::copyToClipboard);
    add(tr("Show in Files"), &DocumentInteractionController::showInFiles);
    add(tr("Mail"), &DocumentInteractionController::mail);
    add(tr("Cancel"), &DocumentInteractionController::cancel, AlertAction::Style::Cancel);
    sheet->setSourceRect(m_sourceRect);
    m_sheet = sheet;
    sheet->presentIn(m_window, true);
}

void DocumentInteractionController::showOpenInMenu(const QList<DesktopApplication> &applications)
{
    m_openInMenuUp = true;
    const QString path = filePath();
    const bool readable = QFileInfo(path).isFile();
    const QString message = !readable ? tr("The file could not be read: %1").arg(path)
                            : applications.isEmpty()
                                ? tr("No application here opens “%1”.").arg(name())
                                : name();
    if (!readable || applications.isEmpty())
        mylog(QStringLiteral("VantrelLog : share sheet: %1")
                  .arg(!readable
                           ? QStringLiteral("%1 cannot be read").arg(path)
                           : QStringLiteral("no application opens %1 (%2)").arg(path, mimeType())));
    AlertController *sheet = AlertController::alertControllerWithTitle(
        tr("Open With"), message, AlertController::Style::ActionSheet);
    for (const DesktopApplication &application :
         readable ? applications : QList<DesktopApplication> {}) {
        sheet->addAction(AlertAction::actionWithTitle(
            application.name(), AlertAction::Style::Default,
            [self = QPointer(this), application](const AlertAction &) {
                if (!self)
                    return;
                self->m_sheet = nullptr;
                if (!application.launch(self->handedOverPath()))
                    return self->notOpened(QStringLiteral("%1 could not be started for %2")
                                               .arg(application.desktopId(), self->filePath()));
                self->endMenus(true, application.desktopId());
            }));
    }
    sheet->addAction(AlertAction::actionWithTitle(tr("Cancel"), AlertAction::Style::Cancel,
                                                  [self = QPointer(this)](const AlertAction &) {
                                                      if (self) {
                                                          self->m_sheet = nullptr;
                                                          self->endMenus(false);
                                                      }
                                                  }));
    sheet->setSourceRect(m_sourceRect);
    m_sheet = sheet;
    sheet->presentIn(m_window, true);
}

void DocumentInteractionController::dismissMenuAnimated(bool)
{
    endMenus(false);
}

void DocumentInteractionController::endMenus(bool sent, QString application)
{
    closeMenus();
    const bool openIn = std::exchange(m_openInMenuUp, false);
    const bool options = std::exchange(m_optionsMenuUp, false);
    if (m_preview)
        m_preview->setFocus(Qt::OtherFocusReason);
    // Each report may end this controller's life; nothing of it is touched after one that did.
    const QPointer<DocumentInteractionController> self(this);
    if (sent && (openIn || options) && m_delegate) {
        m_delegate->documentInteractionControllerDidEndSendingToApplication(this, application);
        if (!self)
            return;
    }
    if (openIn && m_delegate) {
        m_delegate->documentInteractionControllerDidDismissOpenInMenu(this);
        if (!self)
            return;
    }
    if (options && m_delegate)
        m_delegate->documentInteractionControllerDidDismissOptionsMenu(this);
}

void DocumentInteractionController::closeMenus()
{
    if (AlertController *sheet = std::exchange(m_sheet, nullptr))
        sheet->dismiss(false);
    if (QFileDialog *dialog = std::exchange(m_saveDialog, nullptr)) {
        dialog->disconnect(this);
        dialog->hide();
        dialog->deleteLater();
    }
    if (QDBusPendingCallWatcher *call = std::exchange(m_portalCall, nullptr)) {
        call->disconnect(this);
        call->deleteLater();
    }
    listenToPortalRequest(std::exchange(m_portalRequest, QString()), false);
    m_portalAnswer = nullptr;
}

bool DocumentInteractionController::presentPreviewAnimated(bool)
{
    if (m_preview || !m_delegate)
        return false;
    QWidget *over = m_delegate->documentInteractionControllerViewControllerForPreview(this);
    if (!over)
        return false;
    auto *preview = new DocumentPreview(filePath(), over->window());
    m_preview = preview;
    connect(preview, &DocumentPreview::doneClicked, this, [this] { dismissPreviewAnimated(true); });
    connect(preview, &DocumentPreview::shareClicked, this, [this, preview] {
        QPushButton *share = preview->shareButton();
        presentOptionsMenuFromRect(share->rect(), share, true);
    });
    preview->show();
    preview->raise();
    preview->setFocus(Qt::OtherFocusReason);
    return true;
}

void DocumentInteractionController::dismissPreviewAnimated(bool)
{
    DocumentPreview *preview = std::exchange(m_preview, nullptr);
    if (!preview)
        return;
    preview->hide();
    preview->deleteLater();
    if (m_delegate)
        m_delegate->documentInteractionControllerDidEndPreview(this);
}
