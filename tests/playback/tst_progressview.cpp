#include "playback/VantrelProgressView.h"

#include <QLabel>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QTest>
#include <cmath>
#include <memory>

// What the delegate heard, in order.
class Recorder : public VantrelProgressViewDelegate
{
public:
    void progressViewDidBeginScrubbing(VantrelProgressView *) override { calls << "begin"; }
    void progressViewDidScrubToCurrentTime(VantrelProgressView *, double seconds) override
    {
        calls << QStringLiteral("scrub %1").arg(seconds);
        seeks << seconds;
    }
    void progressViewDidEndScrubbing(VantrelProgressView *) override { calls << "end"; }
    QStringList calls;
    QList<double> seeks;
};

// The bar as the player places it on a 375-point screen. Its track is 160.5 points wide, so
// over a total of 160.5 s a point of track is a second.
const QRectF kPlayerFrame(56.5, 0, 375 - 114.5, 40);
constexpr double kTrack = 160.5;
const double kNone = qQNaN();
using Points = QList<QPoint>;

class TestProgressView : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void shownForTheTime_data();
    void shownForTheTime();
    void panSeeks_data();
    void panSeeks();
    void oneDirectionForEveryBar();
    void keysStepFiveSeconds_data();
    void keysStepFiveSeconds();
    void hiddenLabelsWidenTheTrack();

private:
    VantrelProgressView *makeBar(QWidget *container);
    QString text(const char *label) const { return m_bar->findChild<QLabel *>(label)->text(); }
    static QWidget *track(VantrelProgressView *bar) { return bar->findChild<QWidget *>("middle"); }
    // The bar alone, drawn over nothing.
    QImage drawn() const;
    // Where in the track, and how wide, the knob is drawn: the white in a row through its top.
    std::pair<double, int> drawnKnob() const;
    void mouse(VantrelProgressView *bar, QEvent::Type type, QPoint at);
    // Presses at the first point and moves through the others.
    void drag(const QString &device, const Points &points);
    void lift(const QString &device, QPoint at);
    // A pan to 5 s: once it has sought, every seek queued before it has arrived.
    void probe();

    std::unique_ptr<QPointingDevice> m_touchScreen { QTest::createTouchDevice() };
    std::unique_ptr<QWidget> m_container;
    VantrelProgressView *m_bar = nullptr;
    Recorder m_recorder;
    ulong m_timestamp = 1000;
};

VantrelProgressView *TestProgressView::makeBar(QWidget *container)
{
    auto *bar = new VantrelProgressView(kPlayerFrame, container);
    bar->setShowTimeLabels(true);
    bar->setDelegate(&m_recorder);
    bar->setFrame(kPlayerFrame);
    return bar;
}

void TestProgressView::init()
{
    m_container = std::make_unique<QWidget>();
    m_container->resize(375, 54);
    m_bar = makeBar(m_container.get());
    m_container->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_container.get()));
    m_recorder = Recorder();
}

void TestProgressView::shownForTheTime_data()
{
    QTest::addColumn<double>("total");
    QTest::addColumn<double>("current"); // none: only the total was given
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::addColumn<double>("knob"); // in the track
    // The knob at rest is 2.8 points wide: its half-width marks the start before playing.
    QTest::newRow("new recording") << 90.0 << kNone << "0:00"
                                   << "-1:30" << 1.4;
    QTest::newRow("back to the start") << 90.0 << 0.0 << "0:00"
                                       << "-1:90" << 0.0;
    QTest::newRow("empty recording") << 0.0 << kNone << "0:00"
                                     << "-0:00" << 1.4;
    QTest::newRow("empty recording played") << 0.0 << 0.0 << "0:00"
                                            << "0:00" << 1.4;
    QTest::newRow("just under an hour") << 3599.9 << kNone << "0:00"
                                        << "-59:59" << 1.4;
    QTest::newRow("an hour") << 3600.0 << kNone << "0:00:00"
                             << "-1:00:00" << 1.4;
    QTest::newRow("seconds truncated") << 45.7 << 10.9 << "0:10"
                                       << "-0:35" << kTrack * 10.9 / 45.7;
    QTest::newRow("under a second left") << 59.999 << 59.5 << "0:59"
                                         << "0:00" << kTrack * 59.5 / 59.999;
    QTest::newRow("remaining seconds as always read") << 90.0 << 10.0 << "0:10"
                                                      << "-1:80" << kTrack / 9;
    QTest::newRow("at the end") << 90.0 << 90.0 << "1:30"
                                << "0:60" << kTrack;
    QTest::newRow("past the end") << 90.0 << 95.5 << "1:35"
                                  << "0:55" << kTrack * 95.5 / 90;
    QTest::newRow("dragged just left of the track") << 60.0 << -0.4 << "0:00"
                                                    << "-1:60" << kTrack * -0.4 / 60;
    QTest::newRow("hours while playing") << 3725.0 << 65.0 << "0:01:05"
                                         << "-1:01:3720" << kTrack * 65 / 3725;
}

void TestProgressView::shownForTheTime()
{
    QFETCH(double, total);
    QFETCH(double, current);
    QFETCH(QString, left);
    QFETCH(QString, right);
    QFETCH(double, knob);
    m_bar->setTotalDuration(total);
    if (!std::isnan(current))
        m_bar->setCurrentTime(current);
    QCOMPARE(text("leftLabel"), left);
    QCOMPARE(text("rightLabel"), right);
    const auto [x, width] = drawnKnob();
    QVERIFY2(std::abs(x - knob) < 0.5, qPrintable(QString::number(x)));
    QVERIFY(width <= 4);
    // A screen reader hears both times.
    QVERIFY(m_bar->accessibleName().contains(left + " elapsed"));
    QVERIFY(m_bar->accessibleName().contains(right.mid(right.startsWith('-')) + " remaining"));
}

QImage TestProgressView::drawn() const
{
    QImage image(m_bar->size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    m_bar->render(&image, {}, {}, QWidget::DrawChildren);
    return image.convertToFormat(QImage::Format_ARGB32);
}

std::pair<double, int> TestProgressView::drawnKnob() const
{
    const QImage image = drawn();
    double sum = 0, weight = 0;
    int width = 0;
    for (int x = 0; x < image.width(); ++x) {
        const QColor pixel = image.pixelColor(x, track(m_bar)->y() + 8);
        if (pixel.red() > 250 && pixel.green() > 250 && pixel.blue() > 250) {
            sum += (x + 0.5) * pixel.alphaF();
            weight += pixel.alphaF();
            width += pixel.alphaF() > 0.5;
        }
    }
    return { weight > 0 ? sum / weight - track(m_bar)->x() : kNone, width };
}

void TestProgressView::mouse(VantrelProgressView *bar, QEvent::Type type, QPoint at)
{
    const bool move = type == QEvent::MouseMove;
    QMouseEvent event(type, at, track(bar)->mapToGlobal(at), move ? Qt::NoButton : Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, {});
    event.setTimestamp(m_timestamp += 16);
    QCoreApplication::sendEvent(track(bar), &event);
}

void TestProgressView::drag(const QString &device, const Points &points)
{
    QWidget *middle = track(m_bar);
    for (qsizetype i = 0; i < points.size(); ++i) {
        if (device == "mouse")
            mouse(m_bar, i == 0 ? QEvent::MouseButtonPress : QEvent::MouseMove, points[i]);
        else if (i == 0) // through the window: the knob on top must let the touch through
            QTest::touchEvent(middle, m_touchScreen.get()).press(0, points[i], middle);
        else
            QTest::touchEvent(middle, m_touchScreen.get()).move(0, points[i], middle);
        // Each drag step runs between inputs, as in use.
        QCoreApplication::processEvents();
    }
}

void TestProgressView::lift(const QString &device, QPoint at)
{
    if (device == "mouse")
        mouse(m_bar, QEvent::MouseButtonRelease, at);
    else
        QTest::touchEvent(track(m_bar), m_touchScreen.get()).release(0, at, track(m_bar));
}

void TestProgressView::probe()
{
    const qsizetype before = m_recorder.seeks.size();
    drag("mouse", { QPoint(150, 14), QPoint(20, 14), QPoint(5, 14) });
    lift("mouse", QPoint(5, 14));
    QTRY_COMPARE(m_recorder.seeks.size(), before + 1);
    QCOMPARE(m_recorder.seeks.takeLast(), 5.0);
}

void TestProgressView::panSeeks_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<Points>("points"); // in the track: the press, then each move
    QTest::addColumn<double>("seek");   // the last, or none
    // The knob starts at 60 s, 60 points into the track.
    QTest::newRow("mouse drag on the knob")
        << "mouse" << Points { { 60, 14 }, { 70, 15 }, { 90, 30 }, { 110, 14 } } << 110.0;
    QTest::newRow("touch pan from the knob, leftwards")
        << "touch" << Points { { 60, 14 }, { 45, 14 }, { 30, 2 }, { 10, 14 } } << 10.0;
    QTest::newRow("mouse to the left end")
        << "mouse" << Points { { 30, 14 }, { 15, 14 }, { -1, 14 } } << -1.0;
    QTest::newRow("mouse past the left end")
        << "mouse" << Points { { 30, 14 }, { 15, 14 }, { -2, 14 } } << kNone;
    QTest::newRow("touch past the right end")
        << "touch" << Points { { 140, 14 }, { 150, 14 }, { 160, 14 } } << kNone;
    QTest::newRow("mouse mostly down")
        << "mouse" << Points { { 60, 14 }, { 62, 30 }, { 90, 31 } } << kNone;
    QTest::newRow("touch mostly up, then sideways")
        << "touch" << Points { { 60, 20 }, { 64, 0 }, { 120, -4 } } << kNone;
}

void TestProgressView::panSeeks()
{
    QFETCH(QString, device);
    QFETCH(Points, points);
    QFETCH(double, seek);
    m_bar->setTotalDuration(kTrack);
    m_bar->setCurrentTime(60);

    drag(device, points);
    QCOMPARE(m_recorder.calls.value(0), "begin");
    QTRY_VERIFY(drawnKnob().second >= 20); // the full disc while scrubbing
    lift(device, points.last());
    QCOMPARE(m_recorder.calls.last(), "end");
    QTRY_VERIFY(drawnKnob().second <= 4);
    const double x = std::isnan(seek) ? 60 : seek;
    QVERIFY2(std::abs(drawnKnob().first - x) < 0.5, qPrintable(QString::number(x)));

    probe();
    if (std::isnan(seek)) {
        QCOMPARE(m_recorder.seeks, QList<double>());
        return;
    }
    QCOMPARE(m_recorder.seeks.last(), seek);
}

void TestProgressView::oneDirectionForEveryBar()
{
    // A second bar, scrubbed sideways while the first is panned downwards, does not seek.
    QWidget other;
    VantrelProgressView *second = makeBar(&other);
    second->setTotalDuration(kTrack);
    mouse(m_bar, QEvent::MouseButtonPress, QPoint(60, 14));
    mouse(m_bar, QEvent::MouseMove, QPoint(61, 40));
    mouse(second, QEvent::MouseButtonPress, QPoint(30, 14));
    mouse(second, QEvent::MouseMove, QPoint(60, 14));
    mouse(second, QEvent::MouseMove, QPoint(90, 14));
    mouse(second, QEvent::MouseButtonRelease, QPoint(90, 14));
    mouse(m_bar, QEvent::MouseButtonRelease, QPoint(61, 40));
    QCOMPARE(m_recorder.calls, QStringList({ "begin", "begin", "end", "end" }));
    m_bar->setTotalDuration(kTrack);
    probe();
    QCOMPARE(m_recorder.seeks, QList<double>());
}

void TestProgressView::keysStepFiveSeconds_data()
{
    QTest::addColumn<double>("total");
    QTest::addColumn<double>("current");
    QTest::addColumn<int>("key");
    QTest::addColumn<double>("seek"); // or none
    QTest::newRow("right") << kTrack << 20.0 << int(Qt::Key_Right) << 25.0;
    QTest::newRow("left near the start") << kTrack << 3.0 << int(Qt::Key_Left) << 0.0;
    QTest::newRow("right near the end") << kTrack << 158.0 << int(Qt::Key_Right) << kTrack;
    QTest::newRow("nothing loaded") << 0.0 << 0.0 << int(Qt::Key_Right) << kNone;
}

void TestProgressView::keysStepFiveSeconds()
{
    QFETCH(double, total);
    QFETCH(double, current);
    QFETCH(int, key);
    QFETCH(double, seek);
    m_bar->setTotalDuration(total);
    m_bar->setCurrentTime(current);
    QTest::keyClick(m_bar, Qt::Key(key));
    if (std::isnan(seek)) {
        QCOMPARE(m_recorder.calls, QStringList());
        return;
    }
    // The seek comes at once: the player restarts its timer at the end, after it.
    QCOMPARE(m_recorder.calls,
             QStringList({ "begin", QStringLiteral("scrub %1").arg(seek), "end" }));
    QVERIFY(std::abs(drawnKnob().first - seek) < 0.5);
}

void TestProgressView::hiddenLabelsWidenTheTrack()
{
    // The grey line through the middle of the bar, from where to where.
    const auto line = [this] {
        const QImage image = drawn();
        int first = -1, last = -1;
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, qRound(kPlayerFrame.height() * 0.5));
            if (pixel.alpha() > 0 && std::abs(pixel.red() - 128) <= 3 &&
                pixel.red() == pixel.blue())
                last = first < 0 ? (first = x) : x;
        }
        return std::pair(first, last + 1);
    };
    const double width = kPlayerFrame.width();
    QCOMPARE(line(), std::pair(50, qRound(50 + width - 100)));
    m_bar->setShowTimeLabels(false);
    QCOMPARE(line(), std::pair(50, qRound(50 + width - 100))); // until the next layout
    m_bar->setFrame(kPlayerFrame);
    QCOMPARE(line(), std::pair(5, qRound(5 + width - 10)));
}

QTEST_MAIN(TestProgressView)
#include "tst_progressview.moc"
