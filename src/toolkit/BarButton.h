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
    // How much of the button, from its aligned side, its current title or glyph covers.
    int paintedWidth() const;
    // Where a title sits when the button is wider than it (possible titles).
    void setTextAlignment(Qt::Alignment alignment);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void sync();

    QPointer<BarButtonItem> m_item;
    Qt::Alignment m_alignment { Qt::AlignCenter };
};
