#include "Button.h"

#include "Images.h"

#include <QPainter>

Button::Button(QWidget *parent) : QAbstractButton(parent)
{
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
}

void Button::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    update();
    emit selectedChanged(selected);
}

void Button::setBackgroundImage(const QString &imageName, State state)
{
    m_images.insert(state, imageName);
    update();
}

void Button::setImageEdgeInsets(const QMargins &insets)
{
    m_imageInsets = insets;
    update();
}

void Button::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QString name = m_images.value(m_selected ? State::Selected : State::Normal);
    if (name.isEmpty())
        name = m_images.value(State::Normal);
    const QRect target = rect().marginsRemoved(m_imageInsets);
    if (isDown())
        painter.setOpacity(0.5);
    else if (!isEnabled())
        painter.setOpacity(0.35);
    if (!name.isEmpty())
        Images::imageNamed(name).paint(&painter, target);
    if (hasFocus()) {
        painter.setOpacity(0.7);
        painter.setPen(QPen(Qt::white, 1, Qt::DotLine));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    }
}
