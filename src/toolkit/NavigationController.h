#pragma once

#include <QPointer>
#include <QWidget>

class NavigationBar;
class Toolbar;
class ViewController;

// A screen under a navigation bar, with a toolbar below it that is hidden unless asked for.
// The bar shows the screen's title and navigation items, the toolbar its toolbar items.
class NavigationController : public QWidget
{
    Q_OBJECT
public:
    explicit NavigationController(ViewController *rootViewController, QWidget *parent = nullptr);

    NavigationBar *navigationBar() const { return m_navigationBar; }
    Toolbar *toolbar() const { return m_toolbar; }

    bool isToolbarHidden() const;
    void setToolbarHidden(bool hidden, bool animated);

private:
    void syncNavigationItems();
    void syncToolbarItems();

    QPointer<ViewController> m_root;
    NavigationBar *m_navigationBar;
    Toolbar *m_toolbar;
};
