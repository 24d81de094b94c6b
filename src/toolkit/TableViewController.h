#pragma once

#include "TableView.h"
#include "ViewController.h"

// A screen whose view is a TableView, and which is its table's delegate.
class TableViewController : public ViewController, public TableViewDelegate
{
    Q_OBJECT
public:
    explicit TableViewController(QObject *parent = nullptr);

    TableView *tableView();
    void setEditing(bool editing, bool animated) override;

protected:
    QWidget *loadView() override;
};
