#include "PanGestureRecognizer.h"

#include <QMouseEvent>
#include <QTouchEvent>
#include <QWidget>
#include <cmath>

PanGestureRecognizer::PanGestureRecognizer(QWidget *view) : QObject(view), m_view(view)
{
    view->setAttribute(Qt::WA_AcceptTouchEvents);
    view->installEventFilter(this);
}

QPointF PanGestureRecognizer::locationInView(const QWidget *view) const
{
    if (!view || view == m_view)
        return m_location;
    return view->mapFromGlobal(m_view->mapToGlobal(m_location));
}

QPointF PanGestureRecognizer::velocityInView(const QWidget *) const
{
    // Views here are only moved, never scaled or turned: a velocity reads the same in all.
    return m_velocity;
}

bool PanGestureRecognizer::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_view)
        return false;
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton)
            return false;
        press(mouse->position(), mouse->timestamp());
        return true;
    }
    case QEvent::MouseMove: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (!m_tracking || !(mouse->buttons() & Qt::LeftButton))
            return false;
        move(mouse->position(), mouse->timestamp());
        return true;
    }
    case QEvent::MouseButtonRelease:
        if (!m_tracking || static_cast<QMouseEvent *>(event)->button() != Qt::LeftButton)
            return false;
        finish(State::Ended);
        return true;
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd: {
        auto *touch = static_cast<QTouchEvent *>(event);
        if (touch->points().isEmpty())
            return false;
        // From the screen: a touch handed on from nearby (a finger that landed close to a
        // small control) holds positions in the coordinates of the view it first reached.
        const QPointF point = m_view->mapFromGlobal(touch->points().first().globalPosition());
        if (event->type() == QEvent::TouchBegin)
            press(point, touch->timestamp());
        else if (m_tracking)
            move(point, touch->timestamp());
        if (event->type() == QEvent::TouchEnd && m_tracking)
            finish(State::Ended);
        event->accept();
        return true;
    }
    case QEvent::TouchCancel:
    case QEvent::Hide:
        if (m_tracking)
            finish(State::Cancelled);
        return false;
    default:
        return false;
    }
}

void PanGestureRecognizer::press(QPointF point, quint64 timestamp)
{
    m_tracking = true;
    m_state = State::Possible;
    m_location = m_previous = point;
    m_previousTimestamp = timestamp;
    m_velocity = QPointF();
}

void PanGestureRecognizer::move(QPointF point, quint64 timestamp)
{
    m_location = point;
    if (m_state == State::Possible) {
        const QPointF moved = point - m_previous;
        if (std::hypot(moved.x(), moved.y()) < kHysteresis)
            return;
    }
    // Input that took no time counts as a millisecond: its direction still counts.
    const double seconds =
        timestamp > m_previousTimestamp ? (timestamp - m_previousTimestamp) / 1000.0 : 0.001;
    m_velocity = (point - m_previous) / seconds;
    m_previous = point;
    m_previousTimestamp = timestamp;
    m_state = m_state == State::Possible ? State::Began : State::Changed;
    emit action(this);
}

void PanGestureRecognizer::finish(State state)
{
    m_tracking = false;
    if (m_state == State::Possible)
        return;
    m_state = state;
    emit action(this);
    m_state = State::Possible;
}
