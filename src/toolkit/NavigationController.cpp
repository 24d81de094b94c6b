#include "NavigationController.h"

#include "NavigationBar.h"
#include "SearchBar.h"
#include "Toolbar.h"
#include "ViewController.h"

#include <QVBoxLayout>

NavigationController::NavigationController(ViewController *root, QWidget *parent)
    : QWidget(parent), m_root(root), m_navigationBar(new NavigationBar(this)),
      m_toolbar(new Toolbar(this))
{
    root->m_navigationController = this;
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_navigationBar);
    layout->addWidget(root->view(), 1);
    layout->addWidget(m_toolbar);
    m_toolbar->hide();

    connect(root->navigationItem(), &NavigationItem::changed, this,
            &NavigationController::syncNavigationItems);
    connect(root, &ViewController::toolbarItemsChanged, this,
            &NavigationController::syncToolbarItems);
    syncNavigationItems();
    syncToolbarItems();
}

bool NavigationController::isToolbarHidden() const
{
    return m_toolbar->isHidden();
}

void NavigationController::setToolbarHidden(bool hidden, bool)
{
    m_toolbar->setHidden(hidden);
}

void NavigationController::syncNavigationItems()
{
    if (!m_root)
        return;
    m_navigationBar->setTitle(m_root->title());
    m_navigationBar->setItems(m_root->navigationItem()->leftBarButtonItem(),
                              m_root->navigationItem()->rightBarButtonItem());
    // The search bar goes right under the navigation bar; it shows and hides itself.
    if (SearchBar *search = m_root->navigationItem()->searchBar();
        search && search->parentWidget() != this) {
        static_cast<QVBoxLayout *>(layout())->insertWidget(1, search);
        search->setBarStyle(m_navigationBar->barStyle());
    }
}

void NavigationController::syncToolbarItems()
{
    if (m_root)
        m_toolbar->setItems(m_root->toolbarItems());
}
