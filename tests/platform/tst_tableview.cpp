#include "platform/AlertController.h"
#include "platform/TableView.h"
#include "platform/TableViewCell.h"

#include <QPushButton>
#include <QScrollBar>
#include <QTest>

// A plain list of numbered rows whose rows can be deleted.
class Rows : public TableViewDataSource, public TableViewDelegate
{
public:
    explicit Rows(TableView *table, int count) : m_table(table), count(count) {}

    int numberOfRowsInSection(int) override { return count; }
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) override
    {
        TableViewCell *cell = m_table->dequeueReusableCellWithIdentifier("row");
        if (!cell)
            cell = new TableViewCell(TableViewCell::Style::Subtitle, "row", m_table->viewport());
        cell->textLabel()->setText(QString::number(indexPath.row));
        return cell;
    }
    double heightForRowAtIndexPath(const IndexPath &) override { return 54; }
    void didSelectRowAtIndexPath(const IndexPath &indexPath) override { selected << indexPath.row; }
    bool canEditRowAtIndexPath(const IndexPath &) override { return true; }
    void commitEditingStyle(EditingStyle style, const IndexPath &indexPath) override
    {
        if (style == EditingStyle::Delete)
            deleted << indexPath.row;
    }

    TableView *m_table;
    int count;
    QList<int> selected;
    QList<int> deleted;
};

class TestTableView : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void swipeLeftRevealsDelete();
    void deleteKeyRevealsDeleteOnFocusedRow();
    void dragScrollsAndFlickCarriesOn();
    void alertAnswersKeys_data();
    void alertAnswersKeys();

private:
    // Presses, moves in steps and lets go, after resting restMs at the end.
    void drag(const QPoint &from, const QPoint &to, int steps, int msPerStep, int restMs = 0);
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

void TestTableView::drag(const QPoint &from, const QPoint &to, int steps, int msPerStep, int restMs)
{
    QWidget *viewport = m_table->viewport();
    QTest::mousePress(viewport, Qt::LeftButton, {}, from);
    for (int step = 1; step <= steps; ++step) {
        const QPoint at = from + (to - from) * step / steps;
        QMouseEvent move(QEvent::MouseMove, at, viewport->mapToGlobal(at), Qt::NoButton,
                         Qt::LeftButton, {});
        QTest::qWait(msPerStep);
        QCoreApplication::sendEvent(viewport, &move);
    }
    QTest::qWait(restMs);
    QTest::mouseRelease(viewport, Qt::LeftButton, {}, to);
}

void TestTableView::swipeLeftRevealsDelete()
{
    const QPoint row2(300, 2 * 54 + 27);
    drag(row2, row2 - QPoint(150, 0), 5, 10);
    QCOMPARE(m_table->rowShowingDelete(), 2);
    QVERIFY(m_table->deleteButton()->isVisible());
    QVERIFY(m_rows->selected.isEmpty()); // a swipe is no tap

    // A tap elsewhere only puts the row back.
    QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, QPoint(100, 27));
    QCOMPARE(m_table->rowShowingDelete(), -1);
    QVERIFY(m_rows->selected.isEmpty());

    drag(row2, row2 - QPoint(150, 0), 5, 10);
    QTest::mouseClick(m_table->deleteButton(), Qt::LeftButton);
    QCOMPARE(m_rows->deleted, QList<int>({ 2 }));
    QCOMPARE(m_table->rowShowingDelete(), -1);
}

void TestTableView::deleteKeyRevealsDeleteOnFocusedRow()
{
    m_table->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_table.get()));
    m_table->setFocus();
    QCOMPARE(m_table->focusedRow(), 0);
    QTest::keyClick(m_table.get(), Qt::Key_Down);
    QTest::keyClick(m_table.get(), Qt::Key_Delete);
    QCOMPARE(m_table->rowShowingDelete(), 1);
    QTest::keyClick(m_table.get(), Qt::Key_Escape);
    QCOMPARE(m_table->rowShowingDelete(), -1);
    QTest::keyClick(m_table.get(), Qt::Key_Delete);
    QTest::keyClick(m_table.get(), Qt::Key_Return);
    QCOMPARE(m_rows->deleted, QList<int>({ 1 }));
}

void TestTableView::dragScrollsAndFlickCarriesOn()
{
    QScrollBar *bar = m_table->verticalScrollBar();
    // A drag moves the list with the finger; resting before letting go stops it there.
    drag(QPoint(100, 500), QPoint(100, 300), 10, 20, 150);
    QCOMPARE(bar->value(), 200);
    QTest::qWait(100);
    QCOMPARE(bar->value(), 200);
    QVERIFY(m_rows->selected.isEmpty());

    // A quick one carries on after the release and slows down to a stop.
    drag(QPoint(100, 500), QPoint(100, 300), 4, 10);
    const int released = bar->value();
    QTRY_VERIFY(bar->value() > released + 200);
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const int before = bar->value();
            QTest::qWait(50);
            return bar->value() == before;
        }(),
        10000);
    // Rows under the moving list still get cells.
    QVERIFY(m_table->cellForRowAtIndexPath(*m_table->indexPathForRowAtPoint(QPoint(10, 10))));
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
