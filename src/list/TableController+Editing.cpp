// Edit mode: the table selects several rows at once, the navigation bar holds a select-all
// toggle and "Done", and the toolbar's share and trash buttons follow the selection.

#include "TableController.h"
#include "VTCell.h"
#include "toolkit/BarButtonItem.h"
#include "toolkit/NavigationController.h"
#include "toolkit/Toolbar.h"
#include "playback/VantrelPlayer.h"

void TableController::toggleEdit()
{
    setEditing(!isEditing(), true);
}

void TableController::setEditing(bool editing, bool animated)
{
    if (editing && selectedRowIndex)
        closeOpenRow();

    TableViewController::setEditing(editing, animated);

    auto *left = new BarButtonItem(editing ? QStringLiteral("Select All") : QStringLiteral("Edit"),
                                   BarButtonItem::Style::Plain, this);
    left->setObjectName(editing ? QStringLiteral("SelectAll") : QStringLiteral("Edit"));
    if (editing)
        connect(left, &BarButtonItem::triggered, this, &TableController::toggleSelectAll);
    else
        connect(left, &BarButtonItem::triggered, this, &TableController::toggleEdit);
    left->setPossibleTitles(kLeftItemTitles);
    BarButtonItem *previousLeft = navigationItem()->leftBarButtonItem();
    navigationItem()->setLeftBarButtonItem(left);
    if (previousLeft)
        previousLeft->deleteLater();

    NavigationController *navigation = navigationController();
    if (editing) {
        if (navigation) {
            navigation->toolbar()->setBarStyle(1);
            navigation->setToolbarHidden(false, animated);
        }
        auto *done = new BarButtonItem(QStringLiteral("Done"), BarButtonItem::Style::Done, this);
        done->setObjectName(QStringLiteral("Done"));
        connect(done, &BarButtonItem::triggered, this, &TableController::toggleEdit);
        navigationItem()->setRightBarButtonItem(done);
    } else {
        if (navigation)
            navigation->setToolbarHidden(true, animated);
        BarButtonItem *previousRight = navigationItem()->rightBarButtonItem();
        navigationItem()->setRightBarButtonItem(settingsButton);
        if (previousRight && previousRight != settingsButton)
            previousRight->deleteLater();
    }

    left->setViewAlpha(numberOfRowsInSection(0) == 0 ? 0.0 : 1.0);
    updateToolbarButtonsVisibility();
}

void TableController::toggleSelectAll(BarButtonItem *sender)
{
    // The title decides the direction, not what is selected.
    const bool selectAll = sender->title() != QLatin1String("Deselect All");
    sender->setTitle(selectAll ? QStringLiteral("Deselect All") : QStringLiteral("Select All"));
    TableView *table = tableView();
    for (int section = 0; section < numberOfSectionsInTableView(); ++section) {
        for (int row = 0; row < numberOfRowsInSection(section); ++row) {
            if (selectAll)
                table->selectRowAtIndexPath({ section, row }, false);
            else
                table->deselectRowAtIndexPath({ section, row }, false);
        }
    }
    updateToolbarButtonsVisibility();
}

void TableController::updateToolbarButtonsVisibility()
{
    TableView *table = tableView();
    const bool anySelected = table->indexPathForSelectedRow().has_value();
    _trashButton->setEnabled(anySelected);
    _shareButton->setEnabled(anySelected);
    if (isEditing()) {
        const bool all = _shareButton->isEnabled() && table->indexPathsForSelectedRows().size() ==
                                                          table->numberOfRowsInSection(0);
        if (BarButtonItem *left = navigationItem()->leftBarButtonItem())
            left->setTitle(all ? QStringLiteral("Deselect All") : QStringLiteral("Select All"));
    }
}

TableViewDataSource::EditingStyle
TableController::editingStyleForRowAtIndexPath(const IndexPath &indexPath)
{
    // A row cannot be swiped away while its player is open.
    auto *cell = qobject_cast<VTCell *>(tableView()->cellForRowAtIndexPath(indexPath));
    return cell && cell->hasPlayer() ? TableViewDataSource::EditingStyle::None
                                     : TableViewDataSource::EditingStyle::Delete;
}
