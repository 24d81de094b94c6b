#pragma once

#include "BarButton.h"

#include <QList>
#include <QPointer>
#include <QWidget>

// The 44-point bar under a screen. Flexible spaces share the room left by the buttons.
class Toolbar : public QWidget
{
    Q_OBJECT
public:
    static constexpr int kHeight = 44;
    explicit Toolbar(QWidget *parent = nullptr);

    void setBarStyle(int style);
    int barStyle() const { return m_barStyle; }
    void setItems(const QList<BarButtonItem *> &items);
    QList<BarButton *> buttons() const;

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void layoutItems();

    int m_barStyle { 1 };
    QList<QPointer<BarButtonItem>> m_items;
    QList<QPointer<BarButton>> m_buttons; // null for flexible spaces
};
