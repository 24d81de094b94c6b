#include "TableViewController.h"

TableViewController::TableViewController(QObject *parent) : ViewController(parent) {}

TableView *TableViewController::tableView()
{
    return static_cast<TableView *>(view());
}

QWidget *TableViewController::loadView()
{
    auto *table = new TableView;
    table->setDelegate(this);
    return table;
}

void TableViewController::setEditing(bool editing, bool animated)
{
    ViewController::setEditing(editing, animated);
    tableView()->setEditing(editing, animated);
}
