#include "TestSupport.h"
#include "toolkit/TableView.h"
#include "toolkit/TableViewCell.h"

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

// Numbered rows; every row but the first can be swiped to Delete.
class Rows : public TableViewDataSource, public TableViewDelegate
{
public:
    explicit Rows(TableView *table) : m_table(table) {}

    int numberOfRowsInSection(int) override { return count; }
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) override
    {
        const QString identifier = QString::number(indexPath.row); // one per row, as the list has
        auto *cell = static_cast<Cell *>(m_table->dequeueReusableCellWithIdentifier(identifier));
        if (!cell) {
            cell = new Cell(TableViewCell::Style::Subtitle, identifier, m_table->viewport());
            QObject::connect(cell->button, &QPushButton::clicked, [this] { ++buttonClicks; });
        }
        cell->button->setGeometry(320, 10, 30, 30);
        cell->keep = kept.contains(indexPath.row);
        return cell;
    }
    double heightForRowAtIndexPath(const IndexPath &) override { return height; }
    void didSelectRowAtIndexPath(const IndexPath &indexPath) override { selected << indexPath.row; }
    bool canEditRowAtIndexPath(const IndexPath &indexPath) override { return indexPath.row != 0; }

    TableView *m_table;
    int count = 200;
    double height = 54;
    QSet<int> kept;
    QList<int> selected;
    int buttonClicks = 0;
};

class TestTableView : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_table = std::make_unique<TableView>();
        m_rows = std::make_unique<Rows>(m_table.get());
        m_table->setDataSource(m_rows.get());
        m_table->setDelegate(m_rows.get());
        m_table->resize(375, 600);
        m_table->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_table.get()));
        m_table->reloadData();
    }

    void cleanup()
    {
        m_rows.reset();
        m_table.reset();
    }

    void pressThatMovesIsNoTap_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<QPoint>("by");
        QTest::addColumn<bool>("backToStart"); // let go where the press began
        QTest::addColumn<QString>("becomes");
        QTest::newRow("a tremble") << 1 << QPoint(-6, 6) << false << "tap";
        QTest::newRow("right") << 1 << QPoint(40, 0) << false << "nothing";
        QTest::newRow("left on a row that cannot be swiped")
            << 0 << QPoint(-60, 0) << false << "nothing";
        QTest::newRow("diagonal") << 1 << QPoint(25, -25) << false << "nothing";
        QTest::newRow("up, and back") << 1 << QPoint(0, -14) << true << "nothing";
        QTest::newRow("left") << 2 << QPoint(-120, 0) << false << "Delete";
    }

    void pressThatMovesIsNoTap()
    {
        QFETCH(int, row);
        QFETCH(QPoint, by);
        QFETCH(bool, backToStart);
        QFETCH(QString, becomes);
        const QPoint at(150, row * 54 + 27);
        QTest::mousePress(m_table->viewport(), Qt::LeftButton, {}, at);
        move(at + by / 2);
        move(at + by);
        QTest::mouseRelease(m_table->viewport(), Qt::LeftButton, {}, backToStart ? at : at + by);
        QTRY_VERIFY(settled());
        QCOMPARE(m_rows->selected, becomes == "tap" ? QList<int>({ row }) : QList<int>());
        QCOMPARE(m_table->rowShowingDelete(), becomes == "Delete" ? row : -1);
        QCOMPARE(m_table->deleteButton()->isVisible(), becomes == "Delete");

        // A tap while Delete shows only puts the row back.
        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 3 * 54 + 27));
        QCOMPARE(m_table->rowShowingDelete(), -1);
        QCOMPARE(m_rows->selected.size(), (becomes == "tap") + (becomes != "Delete"));
    }

    // A drag that starts on a cell's button scrolls the list and lets the button go. (A click on
    // a row's button is the button's alone: the list's own rows show that.)
    void dragFromAButtonScrolls()
    {
        auto *cell = static_cast<Cell *>(m_table->cellForRowAtIndexPath({ 0, 3 }));
        const QPoint on = cell->button->mapTo(m_table->viewport(), cell->button->rect().center());
        QTest::mousePress(cell->button, Qt::LeftButton);
        move(on - QPoint(0, 100));
        QTRY_VERIFY(m_table->verticalScrollBar()->value() > 0);
        QVERIFY(!cell->button->isDown());
        QTest::mouseRelease(cell->button, Qt::LeftButton, {}, cell->button->rect().center());
        QCOMPARE(m_rows->buttonClicks, 0);
    }

    void flickCarriesOnUntilAPress()
    {
        constexpr int kLag = 2; // the scroller keeps back a point or so of the drag's start
        QScrollBar *bar = m_table->verticalScrollBar();
        QPoint at(100, 500);
        QTest::mousePress(m_table->viewport(), Qt::LeftButton, {}, at);
        for (int step = 1; step <= 4; ++step) {
            at.ry() -= 50;
            move(at);
            // The list follows the finger on the scroller's next frame; the lift comes straight
            // after the last stroke, so that the finger is still fast.
            if (step < 4)
                QTRY_VERIFY(std::abs(bar->value() - (500 - at.y())) <= kLag);
        }
        QTest::mouseRelease(m_table->viewport(), Qt::LeftButton, {}, at);
        QVERIFY(m_table->isDecelerating());
        QTRY_VERIFY(bar->value() > 250);
        // A press on the moving list stops it, and taps nothing.
        QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 300));
        QVERIFY(settled());
        QVERIFY(m_rows->selected.isEmpty());
        // Rows under the moved list have cells.
        QVERIFY(m_table->cellForRowAtIndexPath(*m_table->indexPathForRowAtPoint(QPoint(10, 10))));
    }

    void pageKeysMoveAScreenOfRowsOfAnyHeight()
    {
        m_rows->height = 100; // six rows to the 600-point screen
        m_table->reloadData();
        m_table->setFocus();
        const QList<std::pair<Qt::Key, int>> presses = {
            { Qt::Key_PageDown, 6 }, { Qt::Key_PageDown, 12 },  { Qt::Key_PageUp, 6 },
            { Qt::Key_End, 199 },    { Qt::Key_PageDown, 199 }, { Qt::Key_Home, 0 },
        };
        for (const auto &[key, row] : presses) {
            QTest::keyClick(m_table.get(), key);
            QCOMPARE(m_table->focusedRow(), row);
            QVERIFY(m_table->cellForRowAtIndexPath({ 0, row })); // brought on screen
        }
    }

    void keptCellsComeBack_data()
    {
        QTest::addColumn<bool>("select");
        QTest::addColumn<bool>("keep");
        QTest::addColumn<bool>("comesBack");
        QTest::newRow("selected row") << true << false << true;
        QTest::newRow("cell that cannot be evicted") << false << true << true;
        QTest::newRow("any other row's cell is evicted") << false << false << false;
    }

    void keptCellsComeBack()
    {
        QFETCH(bool, select);
        QFETCH(bool, keep);
        QFETCH(bool, comesBack);
        m_rows->count = 3000;
        if (keep)
            m_rows->kept = { 2 };
        m_table->reloadData();
        if (select)
            QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 2 * 54 + 27));
        const QPointer<TableViewCell> cell = m_table->cellForRowAtIndexPath({ 0, 2 });
        QVERIFY(cell);
        // Only rows on screen have cells, the last one whole, and only so many wait for reuse.
        const int onScreen = m_table->viewport()->height() / 54 + 2;
        QVERIFY(m_table->visibleCells().size() <= onScreen);

        QScrollBar *bar = m_table->verticalScrollBar();
        for (int value = 0; value < bar->maximum(); value += bar->pageStep())
            bar->setValue(value);
        bar->setValue(bar->maximum());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(m_table->cellForRowAtIndexPath({ 0, 2999 })->geometry().bottom() <
                m_table->viewport()->height());
        QVERIFY(m_table->viewport()->findChildren<TableViewCell *>().size() <=
                onScreen + TableView::kMaxQueuedCells + 1);
        bar->setValue(0);
        QCOMPARE(!cell.isNull() && m_table->cellForRowAtIndexPath({ 0, 2 }) == cell, comesBack);
        QCOMPARE(cell.isNull(), !comesBack);
    }

private:
    void move(const QPoint &to) { TestSupport::dragTo(m_table->viewport(), to); }
    bool settled() const { return !m_table->isDragging() && !m_table->isDecelerating(); }
    std::unique_ptr<TableView> m_table;
    std::unique_ptr<Rows> m_rows;
};

QTEST_MAIN(TestTableView)
#include "tst_tableview.moc"
