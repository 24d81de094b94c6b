#include "Toolbar.h"

#include "BarButton.h"
#include "BarButtonItem.h"

#include <QPainter>

namespace {
constexpr int kSideMargin = 8;
}

Toolbar::Toolbar(QWidget *parent) : QWidget(parent)
{
    setFixedHeight(kHeight);
}

void Toolbar::setBarStyle(int style)
{
    m_barStyle = style;
    update();
}

void Toolbar::setItems(const QList<BarButtonItem *> &items)
{
    for (const auto &button : std::as_const(m_buttons)) {
        if (button)
            button->deleteLater();
    }
    m_items.clear();
    m_buttons.clear();
    for (BarButtonItem *item : items) {
        m_items << item;
        BarButton *button = item->isFlexibleSpace() ? nullptr : new BarButton(item, this);
        if (button)
            button->show();
        m_buttons << button;
    }
    layoutItems();
}

QList<BarButton *> Toolbar::buttons() const
{
    QList<BarButton *> result;
    for (const auto &button : m_buttons) {
        if (button)
            result << button;
    }
    return result;
}

void Toolbar::layoutItems()
{
    int fixed = 0;
    int flexible = 0;
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        if (m_buttons[i])
            fixed += m_buttons[i]->sizeHint().width();
        else
            ++flexible;
    }
    const int room = qMax(0, width() - 2 * kSideMargin - fixed);
    int x = kSideMargin;
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        if (!m_buttons[i]) {
            x += flexible ? room / flexible : 0;
            continue;
        }
        const int w = m_buttons[i]->sizeHint().width();
        m_buttons[i]->setGeometry(x, 0, w, kHeight);
        x += w;
    }
}

void Toolbar::resizeEvent(QResizeEvent *)
{
    layoutItems();
}

void Toolbar::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), m_barStyle == 1 ? QColor(0, 0, 0, 235) : QColor(247, 247, 247, 235));
    painter.fillRect(0, 0, width(), 1, QColor(255, 255, 255, 40));
}
