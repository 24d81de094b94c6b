#pragma once

#include "BarButtonItem.h"
#include "SearchBar.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

class NavigationController;

// What a screen shows in the navigation bar above it.
class NavigationItem : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    BarButtonItem *leftBarButtonItem() const { return m_left; }
    void setLeftBarButtonItem(BarButtonItem *item);
    BarButtonItem *rightBarButtonItem() const { return m_right; }
    void setRightBarButtonItem(BarButtonItem *item);
    // A search bar shown under the navigation bar whenever it is not hidden itself.
    SearchBar *searchBar() const { return m_searchBar; }
    void setSearchBar(SearchBar *bar);

signals:
    void changed();

private:
    QPointer<BarButtonItem> m_left;
    QPointer<BarButtonItem> m_right;
    QPointer<SearchBar> m_searchBar;
};

// One screen: its view, made on first use, its navigation item, its toolbar items and its
// editing state. The view is handed to whoever shows it (a NavigationController), which then
// owns it as a widget.
class ViewController : public QObject
{
    Q_OBJECT
public:
    explicit ViewController(QObject *parent = nullptr);
    ~ViewController() override;

    QWidget *view();

    virtual QString title() const { return m_title; }
    void setTitle(const QString &title);

    NavigationItem *navigationItem() const { return m_navigationItem; }
    NavigationController *navigationController() const;

    QList<BarButtonItem *> toolbarItems() const;
    void setToolbarItems(const QList<BarButtonItem *> &items, bool animated);

    bool isEditing() const { return m_editing; }
    virtual void setEditing(bool editing, bool animated);

signals:
    void toolbarItemsChanged();

protected:
    // Makes the view; the default is a plain widget.
    virtual QWidget *loadView();
    virtual void viewDidLoad() {}

private:
    friend class NavigationController;
    QPointer<QWidget> m_view;
    QString m_title;
    NavigationItem *m_navigationItem;
    QPointer<QWidget> m_navigationController; // a NavigationController
    QList<QPointer<BarButtonItem>> m_toolbarItems;
    bool m_editing { false };
};
