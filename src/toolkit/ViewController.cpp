#include "ViewController.h"

#include "BarButtonItem.h"
#include "NavigationController.h"

void NavigationItem::setLeftBarButtonItem(BarButtonItem *item)
{
    m_left = item;
    emit changed();
}

void NavigationItem::setRightBarButtonItem(BarButtonItem *item)
{
    m_right = item;
    emit changed();
}

void NavigationItem::setSearchBar(SearchBar *bar)
{
    m_searchBar = bar;
    emit changed();
}

ViewController::ViewController(QObject *parent)
    : QObject(parent), m_navigationItem(new NavigationItem(this))
{}

ViewController::~ViewController() = default;

QWidget *ViewController::view()
{
    if (!m_view) {
        m_view = loadView();
        viewDidLoad();
    }
    return m_view;
}

QWidget *ViewController::loadView()
{
    return new QWidget;
}

void ViewController::setTitle(const QString &title)
{
    m_title = title;
}

QList<BarButtonItem *> ViewController::toolbarItems() const
{
    QList<BarButtonItem *> items;
    for (const auto &item : m_toolbarItems) {
        if (item)
            items << item;
    }
    return items;
}

void ViewController::setToolbarItems(const QList<BarButtonItem *> &items, bool)
{
    m_toolbarItems.clear();
    for (BarButtonItem *item : items)
        m_toolbarItems << item;
    emit toolbarItemsChanged();
}

void ViewController::setEditing(bool editing, bool)
{
    m_editing = editing;
}

NavigationController *ViewController::navigationController() const
{
    return static_cast<NavigationController *>(m_navigationController.data());
}
