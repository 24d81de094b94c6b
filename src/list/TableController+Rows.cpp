// The list's rows: how a cell is filled from its entry, how tall each row is, and what a
// tap on a row does. One row at a time is open (108 points, with the player or the
// transcript in it); selectedRowIndex remembers which.

#include "TableController.h"
#include "VTCell.h"
#include "core/Log.h"
#include "toolkit/View.h"
#include "playback/VantrelPlayer.h"

#include <QAccessible>

namespace {
// A palette, not a style sheet: style sheets cost more than the rest of a cell's filling.
void setTextColor(QLabel *label, const QColor &color)
{
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, color);
    label->setPalette(palette);
}

const QColor kCellBackground { 0, 0, 0, 3 }; // black at alpha 0.01: drawn, yet not seen
} // namespace

int TableController::numberOfRowsInSection(int)
{
    return int(rowCount());
}

TableViewCell *TableController::cellForRowAtIndexPath(const IndexPath &indexPath)
{
    // One identifier per row: a row gets back its own cell, with whatever player or
    // transcript state it had. What the cell shows of a recording is set from the entry every
    // time, since the recording at a row changes whenever one arrives or goes above it.
    const QString identifier =
        QStringLiteral("%1-%2").arg(QLatin1String("VANTREL")).arg(indexPath.row);
    auto *cell = qobject_cast<VTCell *>(tableView()->dequeueReusableCellWithIdentifier(identifier));
    if (!cell)
        cell =
            new VTCell(TableViewCell::Style::Subtitle, identifier, this, tableView()->viewport());
    if (indexPath.row < 0 || indexPath.row >= rowCount())
        return cell;

    const Entry &entry = entryAt(indexPath.row);
    // A transcript open here belongs to the recording that sat in this row before, or to one
    // that has lost its transcript: never shown under another caller's name.
    if (cell->filePath() != entry.filename || !entry.textFile)
        cell->closeTranscript();
    cell->textLabel()->setText(entry.name);
    cell->setHasText(entry.textFile.has_value());
    setAlpha(cell->readButton(), cell->hasText() ? 1.0 : 0.0);
    cell->setTextFile(entry.textFile.value_or(QString()));
    cell->detailTextLabel()->setText(entry.detailText());
    const Contact *contact = existingContactForAddress(entry.address);
    setAlpha(cell->phoneButton(), entry.address == QLatin1String("PRIVATE") ? 0.0 : 1.0);
    cell->imageView()->setPixmap(imageForContact(contact));
    cell->setSelectionTintColor(Qt::white);
    mylog(QStringLiteral("dict in cell %1").arg(entry.description()));
    cell->setPlayerDuration(entry.duration.value_or(0.0));
    cell->setFilePath(entry.filename);
    if (!selectedBackgroundView) {
        selectedBackgroundView = std::make_unique<QWidget>();
        selectedBackgroundView->setGeometry(cell->geometry());
        selectedBackgroundView->setAutoFillBackground(false); // clear
    }
    cell->setSelectedBackgroundView(selectedBackgroundView.get());
    cell->setBackgroundColor(kCellBackground);
    setTextColor(cell->textLabel(), Qt::white);
    setTextColor(cell->detailTextLabel(), Qt::lightGray);

    cell->setAccessibleName(entry.name);
    const bool unheard = !m_heard->isHeard(entry.filename);
    cell->setUnheard(unheard);
    // The dot said in words, first, as a screen reader meets the row.
    cell->setAccessibleDescription(unheard ? QStringLiteral("unheard, %1").arg(entry.detailText())
                                           : entry.detailText());
    cell->phoneButton()->setAccessibleName(QStringLiteral("Call back %1").arg(entry.name));
    cell->layoutSubviews();
    return cell;
}

double TableController::heightForRowAtIndexPath(const IndexPath &indexPath)
{
    // Rows are compared by number only, whatever their section.
    return selectedRowIndex && selectedRowIndex->row == indexPath.row ? kOpenRowHeight
                                                                      : kClosedRowHeight;
}

void TableController::didSelectRowAtIndexPath(const IndexPath &indexPath)
{
    TableView *table = tableView();
    if (table->isEditing())
        updateToolbarButtonsVisibility();

    auto *cell = qobject_cast<VTCell *>(table->cellForRowAtIndexPath(indexPath));
    if (cell) {
        // The row is about to change size and contents: screen readers re-read it.
        QAccessibleEvent layoutChanged(cell, QAccessible::LocationChanged);
        QAccessible::updateAccessibility(&layoutChanged);
    }
    setCurrentPlayerIndexPath(cell && cell->isSelected() ? std::nullopt : std::optional(indexPath));

    // Whatever else happens, the player comes down first.
    _playerController->destroyPlayer(cell);

    if (isEditing())
        return; // a tap in edit mode only selects, for the bulk actions

    // The row that was open closes, or gives way to this one: its transcript goes with it, so
    // that no transcript is ever squeezed into a closed row.
    closeOpenRowTranscript();
    if (selectedRowIndex && selectedRowIndex->row == indexPath.row) {
        selectedRowIndex.reset();
        // The table's selection follows the open row, so that Escape, which taps the selected
        // row, only ever closes a row.
        table->deselectRowAtIndexPath(indexPath, false);
    } else {
        selectedRowIndex = indexPath;
        // A row opened from its read button shows the transcript, not the player.
        if (cell && !cell->readButton()->isSelected())
            _playerController->setupPlayerForCell(cell);
    }

    table->beginUpdates();
    table->endUpdates();

    if (indexPath.row > 0) {
        if (TableViewCell *above =
                table->cellForRowAtIndexPath({ indexPath.section, indexPath.row - 1 }))
            above->separatorView()->setHidden(false);
    }
}

void TableController::didDeselectRowAtIndexPath(const IndexPath &)
{
    if (tableView()->isEditing())
        updateToolbarButtonsVisibility();
    // Only forgotten: the player stays up and heights stay until the next selection, which
    // follows at once when another row was tapped. The open row's transcript closes now.
    closeOpenRowTranscript();
    selectedRowIndex.reset();
}

void TableController::closeOpenRowTranscript()
{
    if (!selectedRowIndex)
        return;
    if (auto *open = qobject_cast<VTCell *>(tableView()->cellForRowAtIndexPath(*selectedRowIndex)))
        open->closeTranscript();
}

void TableController::setCurrentPlayerIndexPath(const std::optional<IndexPath> &indexPath)
{
    TableView *table = tableView();
    auto *current =
        indexPath ? qobject_cast<VTCell *>(table->cellForRowAtIndexPath(*indexPath)) : nullptr;
    const int section = indexPath ? indexPath->section : 0;
    for (int row = 0; row < table->numberOfRowsInSection(section); ++row) {
        if (auto *cell = qobject_cast<VTCell *>(table->cellForRowAtIndexPath({ section, row })))
            cell->setIsCurrentPlayerCell(false);
    }
    if (current)
        current->setIsCurrentPlayerCell(true);
}
