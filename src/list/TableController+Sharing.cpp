// Sharing: one selected recording goes to the share sheet as it is; several are packed into
// one dated zip archive under a progress alert, then previewed and passed on from there.

#include "TableController.h"
#include "actions/RecordingFiles.h"
#include "actions/RecordingSharer.h"
#include "core/Log.h"
#include "toolkit/AlertController.h"
#include "toolkit/BarButtonItem.h"
#include "desktop/PrivateFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

namespace {
// The share button sits at the lower left: sheets and popovers rise from there.
QRect shareAnchor(QWidget *view)
{
    return QRect(5, view->height() - 10, 40, 40);
}

QRect inWindow(QWidget *view, const QRect &rect)
{
    return QRect(view->mapTo(view->window(), rect.topLeft()), rect.size());
}

// How long "Compression failed!" stays readable before the alert goes.
constexpr int kFailureTitleMs = 2000;
} // namespace

void TableController::shareSelectedRequest(BarButtonItem *)
{
    const QList<IndexPath> selected = tableView()->indexPathsForSelectedRows();
    if (selected.size() == 1) {
        const int row = selected.last().row;
        if (row < 0 || row >= rowCount())
            return;
        // A missing file is offered all the same: the sheet tells what it cannot do with it.
        const QString path = recordingSharer->sourcePath(entryAt(row));
        DocumentInteractionController *controller =
            keepInteractionController(QUrl::fromLocalFile(path));
        controller->setUTI(QStringLiteral("public.video"));
        controller->presentOptionsMenuFromRect(shareAnchor(view()), view(), true);
        setEditing(false, true);
        return;
    }

    auto *alert = AlertController::alertControllerWithTitle(
        QStringLiteral("Share %1 recordings?").arg(int(selected.size())),
        QStringLiteral("Recordings will be compressed to a .zip file"),
        AlertController::Style::ActionSheet);
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Zip and Share"), AlertAction::Style::Default,
                                     [this](const AlertAction &) { shareSelected(); }));
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Cancel"), AlertAction::Style::Cancel));
    alert->setSourceRect(inWindow(view(), shareAnchor(view())));
    alert->presentIn(view(), true);
}

void TableController::shareSelected()
{
    QStringList files;
    for (const IndexPath &indexPath : tableView()->indexPathsForSelectedRows()) {
        if (indexPath.row >= 0 && indexPath.row < rowCount())
            files << recordingSharer->sourcePath(entryAt(indexPath.row));
    }
    zipFiles(files, RecordingFiles::workingArchivePath());
}

void TableController::zipFiles(const QStringList &files, const QString &outputZipFile)
{
    // No buttons: a run cannot be cancelled, and always ends in zipFinished.
    _currentAlert = AlertController::alertControllerWithTitle(
        QStringLiteral("Compressing files: 0% (0/%1)").arg(int(files.size())),
        QStringLiteral("\nStarting..."), AlertController::Style::Alert);
    _currentAlert->presentIn(view(), true);
    recordingSharer->zipFiles(files, outputZipFile);
}

void TableController::zippingDidStart()
{
    if (_currentAlert)
        _currentAlert->setMessage(QStringLiteral("\nCompression started..."));
}

void TableController::zipProgressUpdatedWithPercent(int percent, const QString &currentFilePath,
                                                    int currentIndex, int totalFiles)
{
    if (!_currentAlert)
        return;
    _currentAlert->setMessage(
        QStringLiteral("\nCurrent file:\n\n%1").arg(QFileInfo(currentFilePath).fileName()));
    _currentAlert->setTitle(RecordingSharer::progressTitle(percent, currentIndex, totalFiles));
}

void TableController::zippingDidFinishSuccessfully(bool success)
{
    if (success) {
        if (_currentAlert)
            _currentAlert->setMessage(QStringLiteral("\nCompression finished."));
        zipFinished(true);
        return;
    }
    // The message keeps its last text.
    if (_currentAlert)
        _currentAlert->setTitle(QStringLiteral("Compression failed!"));
    clearAlertOnMainThread(false);
}

void TableController::clearAlertOnMainThread(bool success)
{
    QTimer::singleShot(kFailureTitleMs, this, [this, success] { zipFinished(success); });
}

void TableController::zipFinished(bool success)
{
    const QString working = RecordingFiles::workingArchivePath();
    if (!success) {
        QFile::remove(working);
        if (_currentAlert)
            _currentAlert->dismiss(true);
        _currentAlert = nullptr;
        return;
    }

    const QList<IndexPath> selected = tableView()->indexPathsForSelectedRows();
    const auto dateOf = [this](const QList<IndexPath> &rows, bool last) -> std::optional<QString> {
        if (rows.isEmpty())
            return std::nullopt;
        const int row = last ? rows.last().row : rows.first().row;
        return row < rowCount() ? entryAt(row).dateString : std::nullopt;
    };
    const QString shared =
        RecordingFiles::sharedArchivePath(dateOf(selected, true), dateOf(selected, false));
    QFile::remove(shared);
    sharedArchives.insert(shared);
    // A rename where it can, a copy across file systems otherwise (the working archive lives
    // in the user's runtime folder, the shared one in /tmp); private to the user either way.
    const QString moveError = PrivateFiles::move(working, shared);
    const bool moved = moveError.isEmpty();
    if (!moved)
        mylog(QStringLiteral("cannot move the archive to share: %1").arg(moveError));

    if (_currentAlert)
        _currentAlert->dismiss(true);
    _currentAlert = nullptr;
    // The preview comes in every case, also on a path where nothing was moved; the error, if
    // any, shows over it.
    DocumentInteractionController *controller =
        keepInteractionController(QUrl::fromLocalFile(shared));
    // The archive goes when a sheet ends; what it is handed to reads it later.
    controller->setHandsOverCopy(true);
    controller->presentPreviewAnimated(true);
    if (!moved) {
        auto *alert = AlertController::alertControllerWithTitle(
            QStringLiteral("File preparation error."),
            QStringLiteral("An error occurred while accessing the zipped file in the temporary "
                           "directory. Please clean up your temporary directory (you may reboot "
                           "to do so) and try again."),
            AlertController::Style::Alert);
        alert->addAction(
            AlertAction::actionWithTitle(QStringLiteral("Okay"), AlertAction::Style::Default));
        alert->presentIn(view(), true);
    }
    setEditing(false, true);
    updateToolbarButtonsVisibility();
}

DocumentInteractionController *TableController::keepInteractionController(const QUrl &url)
{
    std::unique_ptr<DocumentInteractionController> controller =
        DocumentInteractionController::interactionControllerWithURL(url);
    controller->setDelegate(this);
    interactionControllers.push_back(std::move(controller));
    return interactionControllers.back().get();
}

void TableController::sheetMayHaveEnded(DocumentInteractionController *controller)
{
    // A menu opened from a preview ends before the preview does, and an action's file
    // chooser or question keeps its menu up: the archive and the controller stay until
    // nothing of the sheet is left.
    if (controller->isShowing())
        return;
    // Only an archive of this flow holds ".zip", and only one this screen made is removed: a
    // recording is never, whatever its name or folder holds. What it was handed to has a copy.
    const QString path = controller->URL().toLocalFile();
    if (RecordingFiles::isTemporaryArchive(path) && sharedArchives.remove(path))
        QFile::remove(path);
    for (auto it = interactionControllers.begin(); it != interactionControllers.end(); ++it) {
        if (it->get() == controller) {
            // The controller is still on the stack that called us: it goes once that returns,
            // or with this screen when the program ends first.
            DocumentInteractionController *released = it->release();
            interactionControllers.erase(it);
            released->setParent(this);
            released->deleteLater();
            return;
        }
    }
}

void TableController::removeSessionFiles()
{
    // Waits for a run under way, whose archive then goes too.
    recordingSharer.reset();
    // Sheets still up close without a word.
    interactionControllers.clear();
    for (const QString &archive : std::as_const(sharedArchives))
        QFile::remove(archive);
    sharedArchives.clear();
}

QWidget *TableController::documentInteractionControllerViewControllerForPreview(
    DocumentInteractionController *)
{
    return view();
}

void TableController::documentInteractionControllerDidEndPreview(
    DocumentInteractionController *controller)
{
    sheetMayHaveEnded(controller);
}

void TableController::documentInteractionControllerDidEndSendingToApplication(
    DocumentInteractionController *controller, const QString &)
{
    sheetMayHaveEnded(controller);
}

void TableController::documentInteractionControllerDidDismissOptionsMenu(
    DocumentInteractionController *controller)
{
    sheetMayHaveEnded(controller);
}

void TableController::documentInteractionControllerDidDismissOpenInMenu(
    DocumentInteractionController *controller)
{
    sheetMayHaveEnded(controller);
}
