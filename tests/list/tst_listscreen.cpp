#include "ListScreen.h"
#include "TestSupport.h"
#include "platform/BarButton.h"
#include "platform/NavigationBar.h"
#include "platform/View.h"

#include <QScrollBar>
#include <QTest>

// What the list shows of the Messages directory, and how it follows it.
class TestListScreen : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_screen = std::make_unique<ListScreen>(); }
    void cleanup() { m_screen.reset(); }
    void rowsShowCallersNewestFirst();
    void editButtonFollowsTheDirectory();
    void onlyRowsOnScreenHaveCells();
    void missingDirectoryGivesEmptyList();

private:
    QStringList visibleNames() const;
    BarButton *editButton() const { return m_screen->navigation()->navigationBar()->leftButton(); }
    std::unique_ptr<ListScreen> m_screen;
};

QStringList TestListScreen::visibleNames() const
{
    QStringList names;
    for (int row = 0; row < m_screen->list()->numberOfRowsInSection(0); ++row) {
        if (VTCell *cell = m_screen->cell(row))
            names << cell->textLabel()->text();
    }
    return names;
}

void TestListScreen::rowsShowCallersNewestFirst()
{
    m_screen->addRecording("TEL", "+15557654321", "09-Nov-2026-08-45-30");
    m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    m_screen->addRecording("TEL", "PRIVATE", "12-Nov-2026-11-20-03");
    m_screen->addRecording("FT", "someone@example.com", "not-a-time");
    m_screen->open();

    QCOMPARE(m_screen->navigation()->navigationBar()->title(), "Vantrel Plus");
    QCOMPARE(visibleNames(),
             QStringList({ "Daniel Reyes", "PRIVATE", "+15557654321", "someone@example.com" }));
    VTCell *first = m_screen->cell(0);
    QCOMPARE(first->detailTextLabel()->text(), "Nov 15 2026 - 22:10:07 - Telephony");
    QCOMPARE(first->height(), 54);
    const QImage row = first->grab().toImage();
    QLabel *name = first->textLabel();
    // White names on the dark list: the name's pixels include white ones.
    bool white = false;
    for (int x = name->x(); x < name->x() + 60 && !white; ++x)
        for (int y = name->y(); y < name->y() + name->height() && !white; ++y)
            white = qGray(row.pixel(x, y)) > 230;
    QVERIFY(white);
    QVERIFY(!first->imageView()->pixmap().isNull());
    QCOMPARE(m_screen->cell(3)->detailTextLabel()->text(), "(null) - FaceTime");
    // A withheld caller cannot be called back.
    QVERIFY(first->phoneButton()->isVisible());
    QVERIFY(!m_screen->cell(1)->phoneButton()->isVisible());
}

void TestListScreen::editButtonFollowsTheDirectory()
{
    m_screen->open();
    QVERIFY(editButton());
    QCOMPARE(editButton()->text(), "Edit");
    QCOMPARE(alpha(editButton()), 0.0);

    // Written by the recording side while the list is on screen: the watcher brings it in.
    const QString name = m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    QTRY_COMPARE(visibleNames(), QStringList({ "Daniel Reyes" }));
    QCOMPARE(alpha(editButton()), 1.0);

    QVERIFY(QFile::remove(m_screen->messages() + "/" + name));
    QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
    QCOMPARE(alpha(editButton()), 0.0);
    QVERIFY(visibleNames().isEmpty());
}

void TestListScreen::onlyRowsOnScreenHaveCells()
{
    const QDate first(2026, 1, 1);
    for (int day = 0; day < 300; ++day) {
        m_screen->addRecording("TEL", QStringLiteral("+1555%1").arg(day, 7, 10, QLatin1Char('0')),
                               QLocale::c().toString(first.addDays(day), "dd-MMM-yyyy") +
                                   "-12-00-00");
    }
    m_screen->open();
    TableView *table = m_screen->table();
    const int onScreen = table->viewport()->height() / 54 + 2;
    QVERIFY(table->visibleCells().size() <= onScreen);
    QVERIFY(m_screen->cell(0));

    // Scrolling through every row keeps only a bounded number of cells alive.
    for (int value = 0; value <= table->verticalScrollBar()->maximum(); value += 200)
        table->verticalScrollBar()->setValue(value);
    table->verticalScrollBar()->setValue(table->verticalScrollBar()->maximum());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(table->visibleCells().size() <= onScreen);
    QVERIFY(table->viewport()->findChildren<TableViewCell *>().size() <=
            onScreen + TableView::kMaxQueuedCells);
    QVERIFY(!m_screen->cell(0));
    VTCell *last = m_screen->cell(299);
    QVERIFY(last);
    QCOMPARE(last->textLabel()->text(), "+15550000000"); // the oldest sorts last
    QVERIFY(last->geometry().bottom() < table->viewport()->height());
}

void TestListScreen::missingDirectoryGivesEmptyList()
{
    m_screen->open(m_screen->root() + "/does-not-exist");
    QCOMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
    QCOMPARE(alpha(editButton()), 0.0);
    m_screen->list()->reloadEntries(true);
    QCOMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
}

QTEST_MAIN(TestListScreen)
#include "tst_listscreen.moc"
