#pragma once

#include <QPointF>
#include <QRectF>
#include <QWidget>

class Label;
class PanGestureRecognizer;
class VantrelProgressView;

// Told of the user's scrubbing; each call has a default that does nothing.
class VantrelProgressViewDelegate
{
public:
    virtual ~VantrelProgressViewDelegate() = default;
    virtual void progressViewDidBeginScrubbing(VantrelProgressView *) {}
    virtual void progressViewDidScrubToCurrentTime(VantrelProgressView *, double) {}
    virtual void progressViewDidEndScrubbing(VantrelProgressView *) {}
};

// The inline player's scrub bar: elapsed time on the left, remaining time on the right and
// between them a track with a knob at the current position. Dragging anywhere on the track
// (mouse or touch) seeks, and so does a click on it; so do the keys of a slider: Left and
// Right by five seconds, Page Down and Page Up by thirty, Home and End to either end. Screen
// readers meet a slider over the recording's seconds. Frames are in points with fractions,
// as the player places them; the widget's own geometry is their rounding.
class VantrelProgressView : public QWidget
{
    Q_OBJECT
public:
    // A screen reader meets the bar as a slider with a value: installed once at start-up.
    static void installAccessibility();

    explicit VantrelProgressView(const QRectF &frame, QWidget *parent = nullptr);
    ~VantrelProgressView() override;

    double totalDuration() const { return _totalDuration; }
    void setTotalDuration(double seconds);
    double currentTime() const { return _currentTime; }
    void setCurrentTime(double seconds);

    // What a finger grabs to scrub: the knob, whose middle is where it stands on the track.
    // A touch it is handed goes on to the track.
    QWidget *grip() const;

    // The elapsed time as the bar shows it.
    QString elapsedText() const;

    bool showTimeLabels() const { return _showTimeLabels; }
    // Applied at the next layout.
    void setShowTimeLabels(bool show);

    VantrelProgressViewDelegate *delegate() const { return _delegate; }
    void setDelegate(VantrelProgressViewDelegate *delegate) { _delegate = delegate; }

    QRectF frame() const { return m_frame; }
    void setFrame(const QRectF &frame);
    void layoutSubviews();

    void panned(PanGestureRecognizer *recognizer);
    void dragged(PanGestureRecognizer *recognizer);

    // A whole scrub to seconds (held inside the recording) at once: begin, seek, end, as one
    // key press or click does. Nothing happens before a recording is loaded.
    void scrubTo(double seconds);

    // How far one press of Left or Right moves, in seconds; Page Up and Page Down further.
    static constexpr double kKeyStep = 5;
    static constexpr double kPageStep = 30;

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    class Knob;

    void placeKnob(double centreX);
    void setTexts(const QString &left, const QString &right);

    double _totalDuration = 0;
    double _currentTime = 0;
    Label *leftLabel = nullptr;
    Label *rightLabel = nullptr;
    QWidget *middle = nullptr;
    Knob *knob = nullptr;
    QWidget *line = nullptr;
    VantrelProgressViewDelegate *_delegate = nullptr;
    double labelDistance = 5;  // between a label and the track
    double maxLabelWidth = 45; // of each label while shown
    bool _showTimeLabels = false;

    QRectF m_frame; // in the parent, in points
    // The subviews' frames in points: the bar's in the bar, the line's in the track.
    QRectF m_leftFrame, m_rightFrame, m_middleFrame, m_lineFrame;
    PanGestureRecognizer *m_pan = nullptr;
    QPointF m_clickStart { qQNaN(), qQNaN() }; // a press on the track, until its release
};
