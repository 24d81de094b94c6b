#pragma once

#include <QObject>
#include <QPointF>

class QWidget;

// A one-finger pan on a view, from a mouse drag or a touch: it begins once the point has
// moved a little way, changes with every move after that, and ends when released, or is
// cancelled when the touch is taken away or the view is hidden. Each of those is reported
// through `action`; a press that never moves far enough reports nothing.
class PanGestureRecognizer : public QObject
{
    Q_OBJECT
public:
    enum class State
    {
        Possible,
        Began,
        Changed,
        Ended,
        Cancelled
    };

    // Watches the view's mouse and touch input; owned by the view.
    explicit PanGestureRecognizer(QWidget *view);

    QWidget *view() const { return m_view; }
    State state() const { return m_state; }
    // The latest point, also after the pan has ended.
    QPointF locationInView(const QWidget *view) const;
    // Points per second, over the latest movement.
    QPointF velocityInView(const QWidget *view) const;

    // How far the point moves before a pan begins, in points: the phone's feel.
    static constexpr double kHysteresis = 10;

signals:
    void action(PanGestureRecognizer *recognizer);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void press(QPointF point, quint64 timestamp);
    void move(QPointF point, quint64 timestamp);
    void finish(State state);

    QWidget *m_view;
    State m_state = State::Possible;
    bool m_tracking = false;
    QPointF m_location;
    QPointF m_previous;
    quint64 m_previousTimestamp = 0;
    QPointF m_velocity;
};
