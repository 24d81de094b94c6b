#pragma once

#include <QAbstractButton>
#include <QPointer>

class BarButtonItem;

// The flat button that a bar draws for a BarButtonItem: its title or glyph in white, grey
// when disabled, at the item's alpha.
class BarButton : public QAbstractButton
{
    Q_OBJECT
public:
    explicit BarButton(BarButtonItem *item, QWidget *parent = nullptr);

    BarButtonItem *item() const { return m_item; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void sync();

    QPointer<BarButtonItem> m_item;
};
