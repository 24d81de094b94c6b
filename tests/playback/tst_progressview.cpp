#include "playback/VantrelProgressView.h"

#include <QAccessible>
#include <QLabel>
#include <QPointingDevice>
#include <QTest>
#include <cmath>
#include <memory>

// What the delegate heard, in order, and the times it was asked to seek to, to the millisecond.
class Recorder : public VantrelProgressViewDelegate
{
public:
    void progressViewDidBeginScrubbing(VantrelProgressView *) override { calls << "begin"; }
    void progressViewDidScrubToCurrentTime(VantrelProgressView *, double seconds) override
    {
        calls << "scrub";
        seeks << std::round(seconds * 1000) / 1000;
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
using Seeks = QList<double>;

struct Shown
{
    double total;
    double current; // none: only the total was given
    QString left, right;
    double knob;    // in the track
    int key = 0;    // pressed then, if any
    Seeks seeks {}; // asked of the delegate
};
Q_DECLARE_METATYPE(Shown)

class TestProgressView : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { VantrelProgressView::installAccessibility(); }
    void init()
    {
        m_container = std::make_unique<QWidget>();
        m_container->resize(375, 54);
        m_bar = new VantrelProgressView(kPlayerFrame, m_container.get());
        m_bar->setShowTimeLabels(true); // as the player shows it
        m_bar->setDelegate(&m_recorder);
        m_bar->setFrame(kPlayerFrame);
        m_container->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_container.get()));
        m_recorder = Recorder();
    }

    void showsTheTime_data()
    {
        QTest::addColumn<Shown>("shown");
        const auto row = [](const char *name, const Shown &shown) { QTest::newRow(name) << shown; };
        // The knob at rest is 2.8 points wide: its half-width marks the start before playing.
        row("back to the start", { 90, 0, "0:00", "-1:90", 0 });
        row("empty recording", { 0, kNone, "0:00", "-0:00", 1.4 });
        row("empty recording played", { 0, 0, "0:00", "0:00", 1.4 });
        row("just under an hour", { 3599.9, kNone, "0:00", "-59:59", 1.4 });
        row("an hour", { 3600, kNone, "0:00:00", "-1:00:00", 1.4 });
        row("seconds truncated", { 45.7, 10.9, "0:10", "-0:35", kTrack * 10.9 / 45.7 });
        row("under a second left", { 59.999, 59.5, "0:59", "0:00", kTrack * 59.5 / 59.999 });
        row("at the end", { 90, 90, "1:30", "0:60", kTrack });
        row("past the end", { 90, 95.5, "1:35", "0:55", kTrack * 95.5 / 90 });
        row("dragged just left of the track", { 60, -0.4, "0:00", "-1:60", kTrack * -0.4 / 60 });
        row("hours while playing", { 3725, 65, "0:01:05", "-1:01:3720", kTrack * 65 / 3725 });
        // Left and Right step by 5 s, within the recording.
        row("Right", { kTrack, 20, "0:25", "-2:135", 25, Qt::Key_Right, { 25 } });
        row("Left near the start", { kTrack, 3, "0:00", "-2:160", 0, Qt::Key_Left, { 0 } });
        row("Right near the end",
            { kTrack, 158, "2:40", "0:120", kTrack, Qt::Key_Right, { kTrack } });
        row("Right with nothing loaded", { 0, 0, "0:00", "0:00", 1.4, Qt::Key_Right });
        // Page Up and Page Down by 30 s, Home and End to the ends: a slider's keys.
        row("Page Up", { kTrack, 20, "0:50", "-1:110", 50, Qt::Key_PageUp, { 50 } });
        row("End", { kTrack, 20, "2:40", "0:120", kTrack, Qt::Key_End, { kTrack } });
        row("Home", { kTrack, 60, "0:00", "-2:160", 0, Qt::Key_Home, { 0 } });
    }
    void showsTheTime()
    {
        QFETCH(Shown, shown);
        m_bar->setTotalDuration(shown.total);
        if (!std::isnan(shown.current))
            m_bar->setCurrentTime(shown.current);
        if (shown.key)
            QTest::keyClick(m_bar, Qt::Key(shown.key));
        const QString left = shown.left, right = shown.right;
        QCOMPARE(m_bar->findChild<QLabel *>("leftLabel")->text(), left);
        QCOMPARE(m_bar->findChild<QLabel *>("rightLabel")->text(), right);
        const auto [x, width] = drawnKnob();
        QVERIFY2(std::abs(x - shown.knob) < 0.5 && width <= 4, qPrintable(QString::number(x)));
        // A screen reader hears both times, without the sign.
        QCOMPARE(m_bar->accessibleName(),
                 QStringLiteral("Playback position, %1 elapsed, %2 remaining")
                     .arg(left, right.mid(right.startsWith('-'))));
        // A key's seek comes at once: the player restarts its timer at the end, after it.
        QCOMPARE(m_recorder.seeks, shown.seeks);
        QCOMPARE(m_recorder.calls,
                 shown.seeks.isEmpty() ? QStringList() : QStringList({ "begin", "scrub", "end" }));
    }

    void panSeeks_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<Points>("points"); // in the track: the press, then each move
        QTest::addColumn<Seeks>("seeks");
        const auto row = [](const char *name, const char *device, const Points &points,
                            const Seeks &seeks) {
            QTest::newRow(name) << device << points << seeks;
        };
        // From the knob at 60 s: a pan begins 10 points from the press, then every move seeks,
        // and so does lifting a finger.
        row("mouse drag on the knob", "mouse", { { 60, 14 }, { 70, 15 }, { 90, 30 }, { 110, 14 } },
            { 90, 110 });
        row("touch pan from the knob, leftwards", "touch",
            { { 60, 14 }, { 45, 14 }, { 30, 2 }, { 10, 14 } }, { 30, 10, 10 });
        // Each step reads where the pointer is when it runs.
        row("mouse faster than the bar", "mouse at once",
            { { 60, 14 }, { 80, 14 }, { 100, 14 }, { 120, 14 } }, { 120, 120 });
        row("mouse to the left end", "mouse", { { 30, 14 }, { 15, 14 }, { -1, 14 } }, { -1 });
        row("mouse past the left end", "mouse", { { 30, 14 }, { 15, 14 }, { -2, 14 } }, {});
        row("touch past the right end", "touch", { { 140, 14 }, { 150, 14 }, { 160, 14 } }, {});
        // A tap away from the knob seeks there, even from a finger that wobbles a little.
        row("click on the track", "mouse", { { 100, 14 } }, { 100 });
        row("tap on the track", "touch", { { 100, 14 } }, { 100 });
        row("a finger that wobbles", "touch", { { 100, 14 }, { 104, 17 } }, { 104 });
        row("mouse mostly down", "mouse", { { 60, 14 }, { 62, 30 }, { 90, 31 } }, {});
        row("touch mostly up, then sideways", "touch", { { 60, 20 }, { 64, 0 }, { 120, -4 } }, {});
    }
    void panSeeks()
    {
        QFETCH(QString, device);
        QFETCH(Points, points);
        QFETCH(Seeks, seeks);
        m_bar->setTotalDuration(kTrack);
        m_bar->setCurrentTime(60);
        const bool tap = (points.last() - points.first()).manhattanLength() < 10;
        drag(m_bar, device, points);
        if (!tap)
            QTRY_VERIFY(drawnKnob().second >= 20); // the full disc while scrubbing
        lift(m_bar, device, points.last());
        if (tap)
            QCOMPARE(m_recorder.seeks, seeks); // at once
        QTRY_VERIFY(drawnKnob().second <= 4);
        const double x = seeks.isEmpty() ? 60 : seeks.last();
        QVERIFY2(std::abs(drawnKnob().first - x) < 0.5, qPrintable(QString::number(x)));

        probe();
        QCOMPARE(m_recorder.seeks, seeks << 5);
        m_recorder.calls.removeAll("scrub"); // each comes 75 ms after its step, among these
        QCOMPARE(m_recorder.calls, QStringList({ "begin", "end", "begin", "end" }));
    }

    void aScreenReaderMeetsASlider()
    {
        m_bar->setTotalDuration(kTrack);
        m_bar->setCurrentTime(20);
        QAccessibleInterface *bar = QAccessible::queryAccessibleInterface(m_bar);
        QCOMPARE(bar->role(), QAccessible::Slider);
        QAccessibleValueInterface *value = bar->valueInterface();
        QVERIFY(value);
        QCOMPARE(value->maximumValue().toDouble(), kTrack);
        QCOMPARE(value->currentValue().toDouble(), 20.0);
        QCOMPARE(bar->text(QAccessible::Value), "0:20");
        // Setting it seeks, as a key does.
        value->setCurrentValue(90.0);
        QCOMPARE(m_recorder.seeks, Seeks { 90 });
        QCOMPARE(m_bar->findChild<QLabel *>("leftLabel")->text(), "1:30");
        QCOMPARE(value->currentValue().toDouble(), 90.0);

        // A wider bar (its window made wider) keeps the knob at its time.
        m_container->resize(1200, 54);
        m_bar->setFrame(QRectF(56.5, 0, 1200 - 114.5, 40));
        const double width = track(m_bar)->width();
        QVERIFY2(std::abs(drawnKnob().first - width * 90 / kTrack) < 1,
                 qPrintable(QString::number(width)));
    }

private:
    static QWidget *track(VantrelProgressView *bar) { return bar->findChild<QWidget *>("middle"); }
    // Where in the track, and how wide, the knob is drawn: the white in a row through its top.
    std::pair<double, int> drawnKnob() const
    {
        QImage image(m_bar->size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        m_bar->render(&image, {}, {}, QWidget::DrawChildren);
        image = image.convertToFormat(QImage::Format_ARGB32);
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
    // Presses on the track at the first point and moves through the others, the event loop
    // running after each unless the device is "at once".
    void drag(VantrelProgressView *bar, const QString &device, const Points &points)
    {
        for (qsizetype i = 0; i < points.size(); ++i) {
            if (device == "touch") // through the window: the knob on top must let it through
                i == 0
                    ? QTest::touchEvent(track(bar), m_touch.get()).press(0, points[i], track(bar))
                    : QTest::touchEvent(track(bar), m_touch.get()).move(0, points[i], track(bar));
            else
                i == 0 ? QTest::mousePress(track(bar), Qt::LeftButton, {}, points[i])
                       : QTest::mouseMove(track(bar), points[i]);
            if (device != "mouse at once")
                QCoreApplication::processEvents();
        }
    }
    void lift(VantrelProgressView *bar, const QString &device, QPoint at)
    {
        if (device == "touch")
            QTest::touchEvent(track(bar), m_touch.get()).release(0, at, track(bar));
        else
            QTest::mouseRelease(track(bar), Qt::LeftButton, {}, at);
    }
    // A pan to 5 s: once it has sought, every seek queued before it has arrived.
    void probe()
    {
        drag(m_bar, "mouse", { QPoint(150, 14), QPoint(20, 14), QPoint(5, 14) });
        lift(m_bar, "mouse", QPoint(5, 14));
        QTRY_VERIFY(m_recorder.seeks.endsWith(5.0));
    }

    std::unique_ptr<QPointingDevice> m_touch { QTest::createTouchDevice() };
    std::unique_ptr<QWidget> m_container;
    VantrelProgressView *m_bar = nullptr;
    Recorder m_recorder;
};

QTEST_MAIN(TestProgressView)
#include "tst_progressview.moc"
