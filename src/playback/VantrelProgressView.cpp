#include "VantrelProgressView.h"

#include "TimeText.h"
#include "toolkit/Label.h"
#include "toolkit/PanGestureRecognizer.h"
#include "toolkit/View.h"

#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QTimer>
#include <QVariantAnimation>
#include <algorithm>
#include <cmath>

namespace {
// The knob's disc, in points, at full size.
constexpr double kKnobSize = 28;
// At rest the knob is a thin upright tick; it grows to the full disc while the user scrubs.
const QSizeF kKnobRestScale(0.1, 0.6);
const QSizeF kKnobFullScale(1, 1);
// Quick enough to keep up with the finger that grabs the knob.
constexpr int kKnobAnimationMs = 150;
// The seek follows its drag step after this long.
constexpr int kScrubCallbackDelayMs = 75;
// The time labels: small light grey text, one line high.
constexpr double kLabelHeight = 14.5;
constexpr double kLabelFontSize = 12;
constexpr double kLabelTextWhite = 0.664062;
// Labels and line are drawn a little translucent, so that they sit back behind the knob.
constexpr double kDimmedAlpha = 0.85;
constexpr double kLineHeight = 3;
// The phone's standard light grey (the line as built) and grey (the line once laid out).
constexpr double kLightGrey = 2.0 / 3.0;
constexpr double kGrey = 0.5;
// Far beyond any screen: positions are held inside it so that rounding stays defined.
constexpr double kFarAway = 1e6;

// The direction of the pan in progress, one for every bar in the process: a second bar cannot
// be scrubbed while one is. Deliberate; it is how the bar has always behaved.
enum PanDirection
{
    None = 0,
    Up = 1,
    Down = 2,
    Left = 3,
    Right = 4
};
PanDirection s_panDirection = None;

// What a screen reader meets: a slider over the recording's seconds, whose value it can set.
class SliderInterface : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit SliderInterface(VantrelProgressView *bar) : QAccessibleWidget(bar, QAccessible::Slider)
    {}
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface *>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text kind) const override
    {
        if (kind == QAccessible::Value)
            return bar()->elapsedText();
        return QAccessibleWidget::text(kind);
    }
    QVariant currentValue() const override { return bar()->currentTime(); }
    void setCurrentValue(const QVariant &value) override { bar()->scrubTo(value.toDouble()); }
    QVariant maximumValue() const override { return bar()->totalDuration(); }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return VantrelProgressView::kKeyStep; }

private:
    VantrelProgressView *bar() const { return static_cast<VantrelProgressView *>(widget()); }
};

QAccessibleInterface *sliderFactory(const QString &, QObject *object)
{
    if (auto *bar = qobject_cast<VantrelProgressView *>(object))
        return new SliderInterface(bar);
    return nullptr;
}

int pixel(double value)
{
    return qRound(std::clamp(value, -kFarAway, kFarAway));
}

// The widget geometry of a frame in points: edges rounded alike, so neighbours meet.
QRect pixels(const QRectF &frame)
{
    return QRect(QPoint(pixel(frame.left()), pixel(frame.top())),
                 QPoint(pixel(frame.right()) - 1, pixel(frame.bottom()) - 1));
}

void setBackground(QWidget *view, const QColor &color)
{
    QPalette palette = view->palette();
    palette.setColor(QPalette::Window, color);
    view->setPalette(palette);
    view->setAutoFillBackground(color.alpha() > 0);
}
} // namespace

// The knob: a white disc drawn at its scale around its centre. It lies in the track but is
// the bar's child, so that a full disc at either end of the track is drawn whole.
class VantrelProgressView::Knob : public QWidget
{
public:
    Knob(QWidget *track, QWidget *parent) : QWidget(parent), m_track(track)
    {
        setObjectName(QStringLiteral("knob"));
        // Touches on it are the track's.
        setAttribute(Qt::WA_TransparentForMouseEvents);
        // Only a finger that the list hands over lands here (the knob is never under one):
        // it grabs the track, as it would on the knob itself.
        setAttribute(Qt::WA_AcceptTouchEvents);
        m_animation.setDuration(kKnobAnimationMs);
        m_animation.setEasingCurve(QEasingCurve::InOutCubic);
        QObject::connect(&m_animation, &QVariantAnimation::valueChanged, this,
                         [this](const QVariant &value) {
                             m_shownScale = value.toSizeF();
                             update();
                         });
    }

    // Its centre in the track's coordinates.
    QPointF center() const { return m_center; }
    void setCenter(QPointF center, QPointF trackOrigin)
    {
        // A position that is no number (a time over a total of 0) leaves the knob in place.
        if (std::isfinite(center.x()) && std::isfinite(center.y()))
            m_center = center;
        m_origin = trackOrigin + m_center - QPointF(kKnobSize, kKnobSize) * 0.5;
        // One point spare on each side for the disc's soft edge.
        setGeometry(pixels(QRectF(m_origin, QSizeF(kKnobSize, kKnobSize)).adjusted(-1, -1, 1, 1)));
        update();
    }

    // The box around the disc as scaled, in the track's coordinates.
    QRectF frame() const
    {
        const QSizeF size = QSizeF(kKnobSize * m_scale.width(), kKnobSize * m_scale.height());
        return QRectF(m_center - QPointF(size.width(), size.height()) * 0.5, size);
    }

    // The scale takes effect at once; the drawing follows over the animation.
    void setScale(QSizeF scale, bool animated)
    {
        m_scale = scale;
        m_animation.stop();
        if (!animated) {
            m_shownScale = scale;
            update();
            return;
        }
        m_animation.setStartValue(m_shownScale);
        m_animation.setEndValue(scale);
        m_animation.start();
    }

protected:
    bool event(QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::TouchBegin:
        case QEvent::TouchUpdate:
        case QEvent::TouchEnd:
        case QEvent::TouchCancel:
            QCoreApplication::sendEvent(m_track, event);
            return true;
        default:
            return QWidget::event(event);
        }
    }

    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        painter.translate(m_origin - QPointF(pos()) + QPointF(kKnobSize, kKnobSize) * 0.5);
        painter.scale(m_shownScale.width(), m_shownScale.height());
        painter.drawEllipse(QPointF(0, 0), kKnobSize * 0.5, kKnobSize * 0.5);
    }

private:
    QWidget *m_track;
    QPointF m_center;
    QPointF m_origin; // of the full disc, in the bar's coordinates
    QSizeF m_scale = kKnobFullScale;
    QSizeF m_shownScale = kKnobFullScale;
    QVariantAnimation m_animation;
};

void VantrelProgressView::installAccessibility()
{
    static const bool installed = [] {
        QAccessible::installFactory(sliderFactory);
        return true;
    }();
    Q_UNUSED(installed);
}

VantrelProgressView::VantrelProgressView(const QRectF &frame, QWidget *parent)
    : QWidget(parent), m_frame(frame)
{
    setGeometry(pixels(frame));
    setFocusPolicy(Qt::StrongFocus);
    const double width = frame.width();
    const double cy = frame.height() * 0.5;

    leftLabel = new Label(this);
    leftLabel->setObjectName(QStringLiteral("leftLabel"));
    m_leftFrame = QRectF(0, cy - kLabelHeight * 0.5, maxLabelWidth, kLabelHeight);
    leftLabel->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    QPalette labelPalette = leftLabel->palette();
    labelPalette.setColor(QPalette::WindowText,
                          QColor::fromRgbF(kLabelTextWhite, kLabelTextWhite, kLabelTextWhite));
    leftLabel->setPalette(labelPalette);
    QFont labelFont = leftLabel->font();
    labelFont.setPixelSize(int(kLabelFontSize));
    leftLabel->setFont(labelFont);

    middle = new QWidget(this);
    middle->setObjectName(QStringLiteral("middle"));
    m_middleFrame = QRectF(maxLabelWidth + labelDistance, cy - kKnobSize * 0.5,
                           width - (maxLabelWidth + (maxLabelWidth + labelDistance)), kKnobSize);

    line = new QWidget(middle);
    line->setObjectName(QStringLiteral("line"));
    m_lineFrame = QRectF(0, m_middleFrame.height() * 0.5 - 1, m_middleFrame.width(), kLineHeight);
    setBackground(line, QColor::fromRgbF(kLightGrey, kLightGrey, kLightGrey));

    knob = new Knob(middle, this);
    knob->setScale(kKnobRestScale, false);
    knob->setCenter(QPointF(15 + kKnobSize * 0.5, 0), m_middleFrame.topLeft());

    m_pan = new PanGestureRecognizer(middle);
    connect(m_pan, &PanGestureRecognizer::action, this, &VantrelProgressView::panned);
    // After the pan's own: a click or tap that never became a pan seeks to where it landed.
    middle->installEventFilter(this);

    rightLabel = new Label(this);
    rightLabel->setObjectName(QStringLiteral("rightLabel"));
    m_rightFrame = QRectF(width - (maxLabelWidth + labelDistance), cy - kLabelHeight * 0.5,
                          maxLabelWidth, kLabelHeight);
    rightLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    rightLabel->setPalette(labelPalette);
    rightLabel->setFont(labelFont);

    setAlpha(leftLabel, kDimmedAlpha);
    setAlpha(rightLabel, kDimmedAlpha);
    setAlpha(line, kDimmedAlpha);

    leftLabel->setGeometry(pixels(m_leftFrame));
    middle->setGeometry(pixels(m_middleFrame));
    line->setGeometry(pixels(m_lineFrame));
    rightLabel->setGeometry(pixels(m_rightFrame));
    setTexts(QStringLiteral("0:00"), QStringLiteral("-0:00"));
}

VantrelProgressView::~VantrelProgressView()
{
    // A bar that goes away mid-pan must not leave its direction to every other bar.
    disconnect(m_pan, nullptr, this, nullptr);
    if (m_pan->state() == PanGestureRecognizer::State::Began ||
        m_pan->state() == PanGestureRecognizer::State::Changed)
        s_panDirection = None;
}

void VantrelProgressView::setTotalDuration(double seconds)
{
    _totalDuration = seconds;
    setTexts(TimeText::startElapsed(seconds), TimeText::startRemaining(seconds));
    placeKnob(_currentTime == 0 ? knob->frame().width() * 0.5
                                : m_middleFrame.width() * (_currentTime / _totalDuration));
    layoutSubviews();
}

void VantrelProgressView::setCurrentTime(double seconds)
{
    const bool changed = _currentTime != seconds;
    _currentTime = seconds;
    if (changed && QAccessible::isActive()) {
        QAccessibleValueChangeEvent valueChange(this, seconds);
        QAccessible::updateAccessibility(&valueChange);
    }
    // This tests the total where setTotalDuration tests the position; both are relied on.
    placeKnob(_totalDuration == 0 ? knob->frame().width() * 0.5
                                  : m_middleFrame.width() * (_currentTime / _totalDuration));
    setTexts(TimeText::elapsed(_currentTime, _totalDuration),
             TimeText::remaining(_currentTime, _totalDuration));
}

QWidget *VantrelProgressView::grip() const
{
    return knob;
}

QString VantrelProgressView::elapsedText() const
{
    return leftLabel->text();
}

void VantrelProgressView::setShowTimeLabels(bool show)
{
    _showTimeLabels = show;
    const double width = show ? maxLabelWidth : 0;
    m_leftFrame.setWidth(width);
    m_rightFrame.setWidth(width);
}

void VantrelProgressView::setFrame(const QRectF &frame)
{
    const bool resized = frame.width() != m_frame.width();
    m_frame = frame;
    setGeometry(pixels(frame));
    layoutSubviews();
    // A bar made wider or narrower (its window resized) keeps the knob at the same time.
    if (resized && _totalDuration > 0)
        placeKnob(m_middleFrame.width() * (_currentTime / _totalDuration));
}

void VantrelProgressView::layoutSubviews()
{
    // Qt never resizes children by itself: nothing to switch off here.
    const double width = m_frame.width();
    const double height = m_frame.height();
    m_rightFrame.moveLeft(width - m_rightFrame.width());
    m_middleFrame = QRectF(m_leftFrame.width() + labelDistance, height * 0.5 - kKnobSize * 0.5,
                           width - (labelDistance + (labelDistance + m_leftFrame.width())) -
                               m_rightFrame.width(),
                           kKnobSize);
    m_lineFrame = QRectF(0, m_middleFrame.height() * 0.5 - 1, m_middleFrame.width(), kLineHeight);

    leftLabel->setGeometry(pixels(m_leftFrame));
    rightLabel->setGeometry(pixels(m_rightFrame));
    middle->setGeometry(pixels(m_middleFrame));
    line->setGeometry(pixels(m_lineFrame));
    knob->setCenter(QPointF(knob->center().x(), m_middleFrame.height() * 0.5),
                    m_middleFrame.topLeft());

    setBackground(middle, Qt::transparent);
    setBackground(line, QColor::fromRgbF(kGrey, kGrey, kGrey));
}

void VantrelProgressView::panned(PanGestureRecognizer *recognizer)
{
    switch (recognizer->state()) {
    case PanGestureRecognizer::State::Began:
        knob->setScale(kKnobFullScale, true);
        if (s_panDirection == None) {
            const QPointF velocity = recognizer->velocityInView(recognizer->view());
            if (std::abs(velocity.y()) > std::abs(velocity.x()))
                s_panDirection = velocity.y() > 0 ? Down : Up;
            else
                s_panDirection = velocity.x() > 0 ? Right : Left;
        }
        if (_delegate)
            _delegate->progressViewDidBeginScrubbing(this);
        break;
    case PanGestureRecognizer::State::Changed:
        // A pan that set off up or down moves nothing: it was meant for the list.
        if (s_panDirection == Left || s_panDirection == Right)
            dragged(recognizer);
        break;
    case PanGestureRecognizer::State::Ended:
    case PanGestureRecognizer::State::Cancelled:
        knob->setScale(kKnobRestScale, true);
        s_panDirection = None;
        if (_delegate)
            _delegate->progressViewDidEndScrubbing(this);
        break;
    case PanGestureRecognizer::State::Possible:
        break;
    }
}

void VantrelProgressView::dragged(PanGestureRecognizer *recognizer)
{
    // The step reads the point when it runs, after the input that queued it.
    QMetaObject::invokeMethod(
        this,
        [this, recognizer = QPointer<PanGestureRecognizer>(recognizer)] {
            if (!recognizer)
                return;
            const double x = recognizer->locationInView(middle).x();
            const double y = knob->center().y();
            const double k = knob->frame().width() * 0.5;
            const double c = x + k;
            const double lower = (m_middleFrame.x() - m_frame.x()) + labelDistance + k;
            const double upper =
                labelDistance + (m_middleFrame.x() + m_middleFrame.width() - m_frame.x()) + k;
            // Beyond the ends the step is dropped, not held at the end: the bar always did so.
            if (c < lower || c > upper)
                return;
            knob->setCenter(QPointF(c, y), m_middleFrame.topLeft());
            const double t = x / m_middleFrame.width() * _totalDuration;
            setCurrentTime(t);
            if (!_delegate)
                return;
            QTimer::singleShot(kScrubCallbackDelayMs, this, [this, t] {
                if (_delegate)
                    _delegate->progressViewDidScrubToCurrentTime(this, t);
            });
        },
        Qt::QueuedConnection);
}

bool VantrelProgressView::event(QEvent *event)
{
    const bool handled = QWidget::event(event);
    // Placed into another view: lay out for it, as the bar does when it moves to a superview.
    if (event->type() == QEvent::ParentChange)
        layoutSubviews();
    return handled;
}

void VantrelProgressView::keyPressEvent(QKeyEvent *event)
{
    // The keys of a slider: Page Up adds, as on a horizontal slider.
    double target = qQNaN();
    switch (event->key()) {
    case Qt::Key_Left:
        target = _currentTime - kKeyStep;
        break;
    case Qt::Key_Right:
        target = _currentTime + kKeyStep;
        break;
    case Qt::Key_PageDown:
        target = _currentTime - kPageStep;
        break;
    case Qt::Key_PageUp:
        target = _currentTime + kPageStep;
        break;
    case Qt::Key_Home:
        target = 0;
        break;
    case Qt::Key_End:
        target = _totalDuration;
        break;
    default:
        break;
    }
    if (std::isnan(target) || (event->modifiers() & ~Qt::KeypadModifier)) {
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
    scrubTo(target);
}

void VantrelProgressView::scrubTo(double seconds)
{
    if (!(_totalDuration > 0))
        return;
    // One step is a whole scrub, as a slider's is: begin, seek at once, end.
    const double t = std::clamp(seconds, 0.0, _totalDuration);
    if (_delegate)
        _delegate->progressViewDidBeginScrubbing(this);
    setCurrentTime(t);
    if (_delegate) {
        _delegate->progressViewDidScrubToCurrentTime(this, t);
        _delegate->progressViewDidEndScrubbing(this);
    }
}

bool VantrelProgressView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != middle)
        return QWidget::eventFilter(watched, event);
    const auto type = event->type();
    const bool press = type == QEvent::MouseButtonPress || type == QEvent::TouchBegin;
    const bool release = type == QEvent::MouseButtonRelease || type == QEvent::TouchEnd;
    if (type == QEvent::TouchCancel)
        m_clickStart = QPointF(qQNaN(), qQNaN());
    if (!press && !release)
        return QWidget::eventFilter(watched, event);
    auto *pointer = static_cast<QPointerEvent *>(event);
    if (pointer->pointCount() == 0)
        return QWidget::eventFilter(watched, event);
    // From the screen, as the pan reads it: a touch may be handed on from nearby.
    const QPointF at = middle->mapFromGlobal(pointer->point(0).globalPosition());
    if (press) {
        m_clickStart = at;
    } else if (!std::isnan(m_clickStart.x())) {
        const QPointF moved = at - std::exchange(m_clickStart, QPointF(qQNaN(), qQNaN()));
        // Further than this the press became a pan, which seeks for itself.
        if (std::hypot(moved.x(), moved.y()) < PanGestureRecognizer::kHysteresis &&
            m_middleFrame.width() > 0)
            scrubTo(at.x() / m_middleFrame.width() * _totalDuration);
    }
    return QWidget::eventFilter(watched, event);
}

void VantrelProgressView::paintEvent(QPaintEvent *)
{
    if (!hasFocus())
        return;
    // Where the keys go: a ring around the track, as a focused slider shows.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
    painter.drawRoundedRect(m_middleFrame.adjusted(-2, 1, 2, -1), 6, 6);
}

void VantrelProgressView::placeKnob(double centreX)
{
    knob->setCenter(QPointF(centreX, m_middleFrame.height() * 0.5), m_middleFrame.topLeft());
}

void VantrelProgressView::setTexts(const QString &left, const QString &right)
{
    if (left == leftLabel->text() && right == rightLabel->text())
        return;
    leftLabel->setText(left);
    rightLabel->setText(right);
    // A screen reader hears both times with what the bar is for.
    const QString remaining = right.startsWith(u'-') ? right.mid(1) : right;
    setAccessibleName(
        QStringLiteral("Playback position, %1 elapsed, %2 remaining").arg(left, remaining));
}
