#include "Accessibility.h"

#include "AlertController.h"
#include "TableView.h"
#include "TableViewCell.h"

#include <QAccessibleWidget>

namespace {

class CellInterface : public QAccessibleWidget
{
public:
    explicit CellInterface(TableViewCell *cell) : QAccessibleWidget(cell, QAccessible::ListItem) {}

    QString text(QAccessible::Text kind) const override
    {
        auto *cell = static_cast<TableViewCell *>(widget());
        if (kind == QAccessible::Name && cell->accessibleName().isEmpty())
            return cell->textLabel()->text();
        if (kind == QAccessible::Description && cell->accessibleDescription().isEmpty())
            return cell->detailTextLabel()->text();
        return QAccessibleWidget::text(kind);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        auto *cell = static_cast<TableViewCell *>(widget());
        state.selectable = true;
        state.selected = cell->isSelected();
        state.focused = cell->isKeyboardFocused();
        return state;
    }
};

QAccessibleInterface *factory(const QString &, QObject *object)
{
    if (auto *cell = qobject_cast<TableViewCell *>(object))
        return new CellInterface(cell);
    if (auto *table = qobject_cast<TableView *>(object))
        return new QAccessibleWidget(table, QAccessible::List);
    if (auto *alert = qobject_cast<AlertController *>(object))
        return new QAccessibleWidget(alert, QAccessible::Dialog);
    return nullptr;
}

} // namespace

void Accessibility::install()
{
    static const bool installed = [] {
        QAccessible::installFactory(factory);
        return true;
    }();
    Q_UNUSED(installed);
}
