#pragma once

#include "BarButton.h"

#include <QLabel>
#include <QPointer>
#include <QWidget>

// The 44-point bar over a screen: its title centred, one item on each side.
class NavigationBar : public QWidget
{
    Q_OBJECT
public:
    static constexpr int kHeight = 44;
    explicit NavigationBar(QWidget *parent = nullptr);

    void setBarStyle(int style);
    int barStyle() const { return m_barStyle; }
    void setTitle(const QString &title);
    QString title() const { return m_title->text(); }
    void setItems(BarButtonItem *left, BarButtonItem *right);

    BarButton *leftButton() const { return m_leftButton; }
    BarButton *rightButton() const { return m_rightButton; }

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void layoutItems();

    int m_barStyle { 1 };
    QLabel *m_title;
    QPointer<BarButton> m_leftButton;
    QPointer<BarButton> m_rightButton;
};
