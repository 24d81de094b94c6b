#include "ListScreen.h"
#include "TestSupport.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/AlertController.h"
#include "toolkit/SearchBar.h"

#include <QDir>
#include <QLineEdit>
#include <QPointingDevice>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextBrowser>

// The list under a finger: Qt's own touch events from a touch screen, never a mouse.
class TestTouch : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        // The demo recordings, which play, then older ones enough to fill three screens.
        m_screen = std::make_unique<ListScreen>();
        const QDir samples(TestSupport::samplesDirectory());
        for (const QString &name : samples.entryList({ "msg-*" }))
            QVERIFY(QFile::copy(samples.filePath(name), m_screen->messages() + '/' + name));
        for (int day = 1; day <= 28; ++day)
            m_screen->addRecording(
                "TEL", QStringLiteral("+1555000%1").arg(day, 4, 10, QChar('0')),
                QStringLiteral("%1-Jan-2025-09-00-00").arg(day, 2, 10, QChar('0')));
        m_screen->open();
    }

    void cleanup() { m_screen.reset(); }

    // A long press is a slow tap: it opens and closes the row, and nothing is deleted, shared or
    // asked. (A quick tap opens the row for every small control's case below.)
    void aLongPressIsASlowTap()
    {
        const QStringList files = QDir(m_screen->messages()).entryList(QDir::Files);
        touch({ QPoint(100, 27) }, nullptr, 1500);
        QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));
        QTRY_VERIFY(player()->playbackButton()->isVisible());
        QVERIFY(!m_screen->alert() && !table()->deleteButton()->isVisible());
        touch({ QPoint(100, 27) }, nullptr, 1500);
        QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
        QTRY_VERIFY(!player()->playbackButton()->isVisible());
        QVERIFY(!m_screen->alert() && !table()->deleteButton()->isVisible());
        QCOMPARE(QDir(m_screen->messages()).entryList(QDir::Files), files);
    }

    void aDragScrollsAndTapsNothing()
    {
        const int top = drawn(5).top();
        QList<QPoint> path;
        for (int y = 400; y >= 200; y -= 10)
            path << QPoint(100, y);
        touch(path, nullptr, 300); // held still before lifting: no flick
        QVERIFY2(drawn(5).top() <= top - 150, qPrintable(QString::number(drawn(5).top())));
        QCOMPARE(viewport()->width(), table()->width()); // the scroll bar lies over the rows
        for (const TableViewCell *cell : table()->visibleCells())
            QVERIFY(cell->height() == 54 && !static_cast<const VTCell *>(cell)->hasPlayer());
    }

    // A pull at the top of the list shows the search field, and opens nothing.
    void aPullAtTheTopShowsTheSearchField()
    {
        QList<QPoint> path;
        for (int y = 60; y <= 260; y += 10)
            path << QPoint(150, y);
        touch(path);
        QLineEdit *field = m_screen->list()->searchBar()->field();
        QTRY_VERIFY(field->isVisible());
        QVERIFY(field->hasFocus());
        QVERIFY(!m_screen->list()->openEntry());
    }

    void aFlickCoastsAndBouncesAtTheEnd_data()
    {
        QTest::addColumn<bool>("down"); // towards the last row, else towards the first
        QTest::newRow("to the end") << true;
        QTest::newRow("back to the start") << false;
    }

    void aFlickCoastsAndBouncesAtTheEnd()
    {
        QFETCH(bool, down);
        const int rows = table()->numberOfRowsInSection(0);
        const int end = down ? rows - 1 : 0;
        // From some way off the end, as a user who scrolled there: the drag below covers most of
        // the way, and even the slow flick of a busy machine coasts the rest and past the end.
        QScrollBar *bar = table()->verticalScrollBar();
        bar->setValue(down ? bar->maximum() - 360 : 360);
        const int anyRow = table()->indexPathForRowAtPoint(QPoint(10, 300))->row;
        const int viewTop = viewport()->mapTo(m_screen->window(), QPoint()).y();
        const QRect window(0, viewTop, 375, table()->height());
        // At rest, the end row lies against its edge of the list.
        const auto edge = [&] {
            return down ? drawn(end).bottom() - window.bottom() : drawn(end).top() - window.top();
        };
        QList<QPoint> path;
        for (int i = 0; i <= 5; ++i)
            path << QPoint(200, down ? 500 - 60 * i : 150 + 60 * i);
        touch(path);
        const QRect lifted = drawn(anyRow);
        // The list moves on by itself, runs past its end and springs back to it.
        bool moved = false, past = false;
        QVERIFY(QTest::qWaitFor(
            [&] {
                moved = moved || drawn(anyRow) != lifted;
                if (m_screen->cell(end))
                    past = past || (down ? edge() < 0 : edge() > 0);
                return moved && past && m_screen->cell(end) && edge() == 0;
            },
            10000));
    }

    void aLeftSwipeRevealsDelete()
    {
        const QString name = m_screen->cell(1)->filePath();
        QVERIFY(QFile::exists(m_screen->messages() + '/' + name));
        touch({ QPoint(300, 81), QPoint(270, 82), QPoint(220, 82), QPoint(180, 83) });
        QPushButton *button = table()->deleteButton();
        QTRY_VERIFY(button->isVisible());
        QCOMPARE(QRect(button->mapTo(viewport(), QPoint()), button->size()).top(), 54);
        QCOMPARE(button->height(), 54);
        QCOMPARE(m_screen->cell(1)->height(), 54); // a swipe is no tap
        touch({ button->rect().center() }, button);
        QTRY_VERIFY(!QFile::exists(m_screen->messages() + '/' + name));
        QTRY_VERIFY(m_screen->cell(1)->filePath() != name);
    }

    void smallControlsTakeAFingertip_data()
    {
        QTest::addColumn<QString>("control");
        // From its middle: inside a fingertip, outside its drawing.
        QTest::addColumn<QPoint>("offset");
        for (const QString control :
             { "call back", "transcript", "play", "speed", "loudspeaker", "knob" }) {
            for (const QPoint offset :
                 { QPoint(0, -21), QPoint(0, 21), QPoint(-21, 0), QPoint(21, 0) }) {
                // Beside the knob a tap seeks there; the speed is drawn as wide as a fingertip.
                if (offset.x() && (control == "knob" || control == "speed"))
                    continue;
                QTest::addRow("%s %+d,%+d", qPrintable(control), offset.x(), offset.y())
                    << control << offset;
            }
        }
    }

    void smallControlsTakeAFingertip()
    {
        QFETCH(QString, control);
        QFETCH(QPoint, offset);
        touch({ QPoint(100, 27) });
        QTRY_VERIFY(player()->playbackButton()->isVisible());
        VTCell *row = m_screen->cell(0);
        QTRY_VERIFY(row->hasPlayer());
        QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));
        const QHash<QString, QWidget *> controls = {
            { "call back", row->phoneButton() },
            { "transcript", row->readButton() },
            { "play", player()->playbackButton() },
            { "speed", player()->speedButton() },
            { "loudspeaker", player()->speakerButton() },
            { "knob", player()->progressView()->findChild<QWidget *>("knob") },
        };
        QWidget *target = controls.value(control);
        const QPoint at =
            target->mapTo(viewport(), QRectF(target->rect()).center()).toPoint() + offset;
        if (control == "knob") {
            touch({ at, at + QPoint(15, 0), at + QPoint(80, 0) });
            QTRY_VERIFY(player()->progressView()->elapsedText() != "0:00");
        } else {
            QVERIFY(!QRect(target->mapTo(viewport(), QPoint()), target->size()).contains(at));
            touch({ at });
        }
        if (control == "call back")
            QTRY_VERIFY(m_screen->alert() && m_screen->alert()->message().startsWith("Dial "));
        else if (control == "transcript")
            QTRY_VERIFY(row->readerView()->isVisible());
        else if (control == "play")
            QTRY_COMPARE(player()->playbackButton()->accessibleName(), "Pause");
        else if (control == "speed")
            QTRY_COMPARE(player()->speedButton()->accessibleName(), "Playback speed, 1.5×");
        else if (control == "loudspeaker")
            QTRY_COMPARE(player()->speakerButton()->accessibleName(), "Loudspeaker, off");
        // A press that went to a control never taps the row under it: the row stays open.
        QCOMPARE(row->height(), 108);
    }

private:
    TableView *table() const { return m_screen->table(); }
    QWidget *viewport() const { return table()->viewport(); }
    VantrelPlayer *player() const { return m_screen->list()->playerController(); }
    // Where a row is drawn, in the window.

    QRect drawn(int row) const
    {
        QWidget *cell = m_screen->cell(row);
        return cell ? QRect(cell->mapTo(m_screen->window(), QPoint()), cell->size()) : QRect();
    }

    // Puts a finger down at the first point (in widget), moves it through the others, one
    // frame apart, and lifts it at the last; with hold, it rests there hold ms first.

    void touch(const QList<QPoint> &points, QWidget *widget = nullptr, int hold = 0)
    {
        widget = widget ? widget : viewport();
        QTest::touchEvent(m_screen->window(), m_finger.get()).press(0, points.first(), widget);
        // A finger that does not rest lifts while it moves, as a flick does: the last point is
        // reached by the lift itself, one frame on, so a busy machine slows the flick but never
        // turns it into a finger that stopped before lifting.
        const QList<QPoint> moves = hold ? points.mid(1) : points.mid(1, points.size() - 2);
        for (const QPoint &point : moves) {
            QTest::qWait(16);
            QTest::touchEvent(m_screen->window(), m_finger.get()).move(0, point, widget);
        }
        QTest::qWait(hold ? hold : 16);
        QTest::touchEvent(m_screen->window(), m_finger.get()).release(0, points.last(), widget);
    }

    std::unique_ptr<QPointingDevice> m_finger { QTest::createTouchDevice() };
    std::unique_ptr<ListScreen> m_screen;
};

QTEST_MAIN(TestTouch)
#include "tst_touch.moc"
