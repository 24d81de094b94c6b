#include "Accessibility.h"

#include "AlertController.h"
#include "TableView.h"
#include "TableViewCell.h"

#include <QAbstractButton>
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

    // The row's own buttons are actions of the row too, by their names, so that a screen
    // reader offers them on the row itself.
    QStringList actionNames() const override
    {
        QStringList names = QAccessibleWidget::actionNames();
        for (const QAbstractButton *button : rowButtons())
            names << button->accessibleName();
        return names;
    }

    void doAction(const QString &name) override
    {
        for (QAbstractButton *button : rowButtons()) {
            if (button->accessibleName() == name)
                return button->click();
        }
        QAccessibleWidget::doAction(name);
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

private:
    QList<QAbstractButton *> rowButtons() const
    {
        QList<QAbstractButton *> buttons;
        for (QWidget *control : static_cast<TableViewCell *>(widget())->rowControls()) {
            auto *button = qobject_cast<QAbstractButton *>(control);
            if (button && button->isVisible() && button->isEnabled() &&
                !button->accessibleName().isEmpty())
                buttons << button;
        }
        return buttons;
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
