#include "Button.h"

#include "Images.h"

#include <QKeyEvent>
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
    if (!text().isEmpty()) {
        painter.setPen(Qt::white);
        painter.drawText(target, Qt::AlignCenter, text());
    }
    if (hasFocus()) {
        painter.setOpacity(1.0);
        drawFocusRing(&painter, rect());
    }
}

void Button::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // Enter presses a focused button, as in GTK and Qt dialogs.
        event->accept();
        animateClick();
        return;
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
        // The arrows belong to what holds the button (a list's row moves focus among its own
        // buttons), not to Qt's walk along the whole window's focus chain.
        event->ignore();
        return;
    default:
        QAbstractButton::keyPressEvent(event);
    }
}

void drawFocusRing(QPainter *painter, const QRectF &around, double radius)
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setBrush(Qt::NoBrush);
    painter->setPen(QPen(kFocusRingColor, kFocusRingWidth));
    const double inset = kFocusRingWidth / 2;
    painter->drawRoundedRect(around.adjusted(inset, inset, -inset, -inset), radius, radius);
    painter->restore();
}
