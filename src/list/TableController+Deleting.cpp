// Deleting recordings: every selected one from the trash button, or one row swiped away.

#include "TableController.h"
#include "actions/RecordingDeleter.h"
#include "store/RecordingName.h"
#include "toolkit/AlertController.h"
#include "toolkit/BarButtonItem.h"
#include "toolkit/View.h"

#include <QFile>
#include <algorithm>

namespace {
// The trash button sits at the lower right: on a pad the question points there.
QRect trashAnchor(QWidget *view)
{
    const QRect rect(view->width() - 30, view->height() - 10, 40, 40);
    return QRect(view->mapTo(view->window(), rect.topLeft()), rect.size());
}
} // namespace

void TableController::deleteSelectedRequest(BarButtonItem *sender)
{
    const QList<IndexPath> selected = tableView()->indexPathsForSelectedRows();
    if (selected.size() < 2) {
        deleteSelected(sender);
        return;
    }
    auto *alert = AlertController::alertControllerWithTitle(
        QStringLiteral("Delete %1 voicemails?").arg(int(selected.size())),
        QStringLiteral("This action cannot be undone"), AlertController::Style::ActionSheet);
    const QPointer<BarButtonItem> button(sender);
    alert->addAction(AlertAction::actionWithTitle(
        QStringLiteral("Delete"), AlertAction::Style::Destructive,
        [this, button](const AlertAction &) { deleteSelected(button); }));
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Cancel"), AlertAction::Style::Cancel));
    alert->setSourceRect(trashAnchor(tableView()));
    alert->presentIn(tableView(), true);
}

void TableController::deleteSelected(BarButtonItem *)
{
    TableView *table = tableView();
    // The selection is read now, when the answer comes: a reload while the question was
    // open keeps the same recordings selected, whatever rows they moved to.
    QList<IndexPath> selected = table->indexPathsForSelectedRows();
    const int selectedCount = int(selected.size());
    const int shownRows = rowCount();

    QList<Entry> entriesToRemove;
    QList<int> rowsToRemove;
    for (const IndexPath &indexPath : std::as_const(selected)) {
        if (indexPath.row < 0 || indexPath.row >= rowCount())
            continue;
        entriesToRemove << entryAt(indexPath.row);
        rowsToRemove << indexPath.row;
    }
    const RecordingDeleter deleter(_messagesDirectory);
    const QStringList paths = deleter.pathsToRemove(entriesToRemove);

    table->beginUpdates();
    const bool removedAll = deleter.removePaths(paths);
    if (removedAll) {
        table->deleteRowsAtIndexPaths(selected);
        QList<int> recordings;
        for (const int row : std::as_const(rowsToRemove))
            recordings << int(recordingIndex(row));
        m_recordings->forget(recordings);
        if (m_search)
            m_search->entriesChanged();
        if (m_shownRows)
            findAgain();
    }
    // Otherwise rows and entries stay until the directory is read again: the files that
    // could go are gone already, and the list catches up with them then.
    table->endUpdates();

    if (selectedCount == shownRows || rowCount() == 0)
        setEditing(false, true);
    // The keyboard goes on from the row that took the deleted row's place, not from the
    // question or the button that asked it.
    table->setFocus(Qt::OtherFocusReason);

    if (!removedAll)
        tellUser(QStringLiteral("The selected voicemails could not be deleted because some of "
                                "them contain illegal characters in the filename. You will have "
                                "to delete them manually from %1 directory.")
                     .arg(_messagesDirectory));
}

void TableController::commitEditingStyle(TableViewDataSource::EditingStyle style,
                                         const IndexPath &indexPath)
{
    if (style != TableViewDataSource::EditingStyle::Delete || indexPath.row < 0 ||
        indexPath.row >= rowCount())
        return;
    const Entry entry = entryAt(indexPath.row);
    TableView *table = tableView();
    table->beginUpdates();
    RecordingDeleter(_messagesDirectory).removeSilently(entry);
    table->deleteRowsAtIndexPaths({ indexPath });
    // The recording is looked at again: one whose file survived comes back.
    m_changedNames = QByteArrayList { QFile::encodeName(entry.filename),
                                      QFile::encodeName(RecordingName::transcriptName(entry.filename)) };
    reloadEntries(false);
    table->endUpdates();
}
