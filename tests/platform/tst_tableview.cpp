#include "platform/AlertController.h"
#include "platform/TableView.h"
#include "platform/TableViewCell.h"

#include <QPushButton>
#include <QScrollBar>
#include <QSet>
#include <QTest>

// A cell with a button of its own, which may say it must be kept.
class Cell : public TableViewCell
{
public:
    using TableViewCell::TableViewCell;
    bool canBeEvicted() const override { return !keep; }
    bool keep = false;
    QPushButton *button = new QPushButton(QStringLiteral("i"), contentView());
};

// A plain list of numbered rows, most of which can be deleted.
class Rows : public TableViewDataSource, public TableViewDelegate
{
public:
    explicit Rows(TableView *table, int count) : m_table(table), count(count) {}

    int numberOfRowsInSection(int) override { return count; }
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) override
    {
        const QString identifier = perRowIdentifiers ? QString::number(indexPath.row) : "row";
        auto *cell = static_cast<Cell *>(m_table->dequeueReusableCellWithIdentifier(identifier));
        if (!cell) {
            cell = new Cell(TableViewCell::Style::Subtitle, identifier, m_table->viewport());
            QObject::connect(cell->button, &QPushButton::clicked, [this] { ++buttonClicks; });
        }
        cell->textLabel()->setText(QString::number(indexPath.row));
        cell->button->setGeometry(320, 10, 30, 30);
        cell->keep = kept.contains(indexPath.row);
        return cell;
    }
    double heightForRowAtIndexPath(const IndexPath &) override { return 54; }
    void didSelectRowAtIndexPath(const IndexPath &indexPath) override { selected << indexPath.row; }
    void didDeselectRowAtIndexPath(const IndexPath &indexPath) override
    {
        deselected << indexPath.row;
    }
    bool canEditRowAtIndexPath(const IndexPath &indexPath) override
    {
        return !notEditable.contains(indexPath.row);
    }
    void commitEditingStyle(EditingStyle style, const IndexPath &indexPath) override
    {
        if (style == EditingStyle::Delete)
            deleted << indexPath.row;
    }

    TableView *m_table;
    int count;
    bool perRowIdentifiers = false;
    QSet<int> notEditable { 0 };
    QSet<int> kept;
    QList<int> selected, deselected, deleted;
    int buttonClicks = 0;
};

class TestTableView : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void swipeLeftRevealsDelete();
    void pressThatMovesIsNoTap_data();
    void pressThatMovesIsNoTap();
    void buttonInCellTakesItsClick();
    void dragAndFlick_data();
    void dragAndFlick();
    void keysRevealDeleteAndEscapeNeverOpens();
    void keptCellsComeBack_data();
    void keptCellsComeBack();
    void alertAnswersKeys_data();
    void alertAnswersKeys();

private:
    void move(const QPoint &to);
    // Presses, moves in steps and lets go.
    void drag(const QPoint &from, const QPoint &to, int steps);
    bool settled() const { return !m_table->isDragging() && !m_table->isDecelerating(); }
    std::unique_ptr<TableView> m_table;
    std::unique_ptr<Rows> m_rows;
};

void TestTableView::init()
{
    m_table = std::make_unique<TableView>();
    m_rows = std::make_unique<Rows>(m_table.get(), 200);
    m_table->setDataSource(m_rows.get());
    m_table->setDelegate(m_rows.get());
    m_table->resize(375, 600);
    m_table->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_table.get()));
    m_table->reloadData();
}

void TestTableView::cleanup()
{
    m_rows.reset();
    m_table.reset();
}

void TestTableView::move(const QPoint &to)
{
    QWidget *viewport = m_table->viewport();
    QMouseEvent move(QEvent::MouseMove, to, viewport->mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     {});
    QCoreApplication::sendEvent(viewport, &move);
}

void TestTableView::drag(const QPoint &from, const QPoint &to, int steps)
{
    QTest::mousePress(m_table->viewport(), Qt::LeftButton, {}, from);
    for (int step = 1; step <= steps; ++step)
        move(from + (to - from) * step / steps);
    QTest::mouseRelease(m_table->viewport(), Qt::LeftButton, {}, to);
}

void TestTableView::swipeLeftRevealsDelete()
{
    const QPoint row2(250, 2 * 54 + 27);
    drag(row2, row2 - QPoint(150, 0), 5);
    QCOMPARE(m_table->rowShowingDelete(), 2);
    QVERIFY(m_table->deleteButton()->isVisible());
    QVERIFY(m_rows->selected.isEmpty()); // a swipe is no tap

    // A tap elsewhere only puts the row back.
    QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 54 + 27));
    QCOMPARE(m_table->rowShowingDelete(), -1);
    QVERIFY(m_rows->selected.isEmpty());

    drag(row2, row2 - QPoint(150, 0), 5);
    QTest::mouseClick(m_table->deleteButton(), Qt::LeftButton);
    QCOMPARE(m_rows->deleted, QList<int>({ 2 }));
    QCOMPARE(m_table->rowShowingDelete(), -1);
}

void TestTableView::pressThatMovesIsNoTap_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QPoint>("by");
    QTest::addColumn<bool>("tap");
    QTest::newRow("still") << 1 << QPoint(0, 0) << true;
    QTest::newRow("a tremble") << 1 << QPoint(-6, 6) << true;
    QTest::newRow("right") << 1 << QPoint(40, 0) << false;
    QTest::newRow("left on a row that cannot be swiped") << 0 << QPoint(-60, 0) << false;
    QTest::newRow("diagonal") << 1 << QPoint(25, -25) << false;
    QTest::newRow("up, and back") << 1 << QPoint(0, -14) << false;
}

void TestTableView::pressThatMovesIsNoTap()
{
    QFETCH(int, row);
    QFETCH(QPoint, by);
    QFETCH(bool, tap);
    const QPoint at(150, row * 54 + 27);
    QTest::mousePress(m_table->viewport(), Qt::LeftButton, {}, at);
    move(at + by / 2);
    move(at + by);
    // Only where the press went matters, not where it ends.
    QTest::mouseRelease(m_table->viewport(), Qt::LeftButton, {},
                        by == QPoint(0, -14) ? at : at + by);
    QTRY_VERIFY(settled());
    QCOMPARE(m_rows->selected, tap ? QList<int>({ row }) : QList<int>());
    QCOMPARE(m_table->rowShowingDelete(), -1);
}

void TestTableView::buttonInCellTakesItsClick()
{
    auto *cell = static_cast<Cell *>(m_table->cellForRowAtIndexPath({ 0, 3 }));
    QTest::mouseClick(cell->button, Qt::LeftButton);
    QCOMPARE(m_rows->buttonClicks, 1);
    QVERIFY(m_rows->selected.isEmpty());

    // A drag that starts on the button scrolls the list and lets the button go.
    const QPoint on = cell->button->mapTo(m_table->viewport(), cell->button->rect().center());
    QTest::mousePress(cell->button, Qt::LeftButton);
    move(on - QPoint(0, 100));
    QTRY_VERIFY(m_table->verticalScrollBar()->value() > 0);
    QVERIFY(!cell->button->isDown());
    QTest::mouseRelease(cell->button, Qt::LeftButton, {}, cell->button->rect().center());
    QCOMPARE(m_rows->buttonClicks, 1);
}

void TestTableView::dragAndFlick_data()
{
    QTest::addColumn<bool>("flick");
    QTest::newRow("a drag that rests before the lift stops with the finger") << false;
    QTest::newRow("a flick carries on until a press stops it") << true;
}

void TestTableView::dragAndFlick()
{
    QFETCH(bool, flick);
    constexpr int kLag = 2; // the scroller keeps back a point or so of the drag's start
    QScrollBar *bar = m_table->verticalScrollBar();
    QPoint at(100, 500);
    QTest::mousePress(m_table->viewport(), Qt::LeftButton, {}, at);
    for (int step = 1; step <= 4; ++step) {
        at.ry() -= 50;
        move(at);
        // The list follows the finger on the scroller's next frame; the lift of a flick
        // comes straight after the last stroke.
        if (!flick || step < 4)
            QTRY_VERIFY(std::abs(bar->value() - (500 - at.y())) <= kLag);
    }
    if (!flick)
        QTest::qWait(150); // the finger holds still: the scroller forgets its speed
    QTest::mouseRelease(m_table->viewport(), Qt::LeftButton, {}, at);
    QCOMPARE(m_table->isDecelerating(), flick);
    if (flick) {
        QTRY_VERIFY(bar->value() > 250);
        // A press on the moving list stops it, and taps nothing.
        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 300));
        QVERIFY(settled());
    }
    const int stoppedAt = bar->value();
    QTRY_VERIFY(settled());
    QVERIFY(std::abs(bar->value() - (flick ? stoppedAt : 200)) <= kLag);
    QVERIFY(m_rows->selected.isEmpty());
    // Rows under the moved list have cells.
    QVERIFY(m_table->cellForRowAtIndexPath(*m_table->indexPathForRowAtPoint(QPoint(10, 10))));
}

void TestTableView::keysRevealDeleteAndEscapeNeverOpens()
{
    m_table->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_table.get()));
    m_table->setFocus();
    QCOMPARE(m_table->focusedRow(), 0);
    QTest::keyClick(m_table.get(), Qt::Key_Down);
    QTest::keyClick(m_table.get(), Qt::Key_Delete);
    QCOMPARE(m_table->rowShowingDelete(), 1);
    QTest::keyClick(m_table.get(), Qt::Key_Escape); // only hides Delete
    QCOMPARE(m_table->rowShowingDelete(), -1);
    QVERIFY(m_rows->selected.isEmpty());

    // Escape taps the selected row once (closing it) and leaves it deselected.
    QTest::keyClick(m_table.get(), Qt::Key_Return);
    QTest::keyClick(m_table.get(), Qt::Key_Escape);
    QCOMPARE(m_rows->selected, QList<int>({ 1, 1 }));
    QVERIFY(!m_table->indexPathForSelectedRow());
    QVERIFY(m_rows->deselected.isEmpty());
    QTest::keyClick(m_table.get(), Qt::Key_Escape);
    QCOMPARE(m_rows->selected, QList<int>({ 1, 1 }));

    QTest::keyClick(m_table.get(), Qt::Key_Delete);
    QTest::keyClick(m_table.get(), Qt::Key_Return);
    QCOMPARE(m_rows->deleted, QList<int>({ 1 }));
}

void TestTableView::keptCellsComeBack_data()
{
    QTest::addColumn<bool>("perRowIdentifiers");
    QTest::addColumn<bool>("select");
    QTest::addColumn<bool>("keep");
    QTest::addColumn<bool>("comesBack");
    QTest::newRow("selected row") << true << true << false << true;
    QTest::newRow("selected row, identifier shared by all rows") << false << true << false << true;
    QTest::newRow("cell that cannot be evicted") << true << false << true << true;
    QTest::newRow("any other row's cell is evicted") << true << false << false << false;
}

void TestTableView::keptCellsComeBack()
{
    QFETCH(bool, perRowIdentifiers);
    QFETCH(bool, select);
    QFETCH(bool, keep);
    QFETCH(bool, comesBack);
    m_rows->count = 3000;
    m_rows->perRowIdentifiers = perRowIdentifiers;
    if (keep)
        m_rows->kept = { 2 };
    m_table->reloadData();
    if (select)
        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 2 * 54 + 27));
    const QPointer<TableViewCell> cell = m_table->cellForRowAtIndexPath({ 0, 2 });
    QVERIFY(cell);

    QScrollBar *bar = m_table->verticalScrollBar();
    for (int value = 0; value < bar->maximum(); value += bar->pageStep())
        bar->setValue(value);
    bar->setValue(bar->maximum());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    bar->setValue(0);
    QCOMPARE(!cell.isNull() && m_table->cellForRowAtIndexPath({ 0, 2 }) == cell, comesBack);
    QCOMPARE(cell.isNull(), !comesBack);
}

void TestTableView::alertAnswersKeys_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("chosen");
    QTest::newRow("Escape cancels") << int(Qt::Key_Escape) << "Cancel";
    QTest::newRow("Enter takes the first other action") << int(Qt::Key_Return) << "Dial";
}

void TestTableView::alertAnswersKeys()
{
    QFETCH(int, key);
    QFETCH(QString, chosen);
    QString answer;
    auto *alert = AlertController::alertControllerWithTitle("Vantrel", "Dial 1?",
                                                            AlertController::Style::Alert);
    alert->addAction(
        AlertAction::actionWithTitle("Dial", AlertAction::Style::Default,
                                     [&](const AlertAction &action) { answer = action.title(); }));
    alert->addAction(
        AlertAction::actionWithTitle("Cancel", AlertAction::Style::Cancel,
                                     [&](const AlertAction &action) { answer = action.title(); }));
    alert->presentIn(m_table.get(), false);
    QPointer<AlertController> guard(alert);
    QVERIFY(alert->isVisible());
    QTest::keyClick(alert, Qt::Key(key));
    QCOMPARE(answer, chosen);
    QTRY_VERIFY(!guard);
}

QTEST_MAIN(TestTableView)
#include "tst_tableview.moc"
