#pragma once

#include "Bar.h"
#include "BarButton.h"

#include <QList>
#include <QPointer>

// The 44-point bar under a screen. Flexible spaces share the room left by the buttons.
class Toolbar : public Bar
{
    Q_OBJECT
public:
    explicit Toolbar(QWidget *parent = nullptr);

    void setItems(const QList<BarButtonItem *> &items);
    QList<BarButton *> buttons() const;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void layoutItems();

    QList<QPointer<BarButtonItem>> m_items;
    QList<QPointer<BarButton>> m_buttons; // null for flexible spaces
};
