#pragma once

#include "Bar.h"
#include "BarButton.h"

#include <QLabel>
#include <QPointer>

// The 44-point bar over a screen: its title centred, one item on each side.
class NavigationBar : public Bar
{
    Q_OBJECT
public:
    explicit NavigationBar(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    QString title() const { return m_fullTitle; }
    void setItems(BarButtonItem *left, BarButtonItem *right);

    BarButton *leftButton() const { return m_leftButton; }
    BarButton *rightButton() const { return m_rightButton; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void layoutItems();

    QLabel *m_title;
    QString m_fullTitle;
    QPointer<BarButton> m_leftButton;
    QPointer<BarButton> m_rightButton;
};
