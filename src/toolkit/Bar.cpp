#include "Bar.h"

#include <QPainter>

Bar::Bar(Edge hairline, QWidget *parent) : QWidget(parent), m_hairline(hairline)
{
    setFixedHeight(kHeight);
}

void Bar::setBarStyle(int style)
{
    m_barStyle = style;
    update();
}

void Bar::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), m_barStyle == 1 ? QColor(0, 0, 0, 235) : QColor(247, 247, 247, 235));
    const int y = m_hairline == Edge::Top ? 0 : height() - 1;
    painter.fillRect(0, y, width(), 1, QColor(255, 255, 255, 40));
}
