#include "ListScreen.h"
#include "TestSupport.h"
#include "platform/BarButton.h"
#include "platform/Label.h"
#include "platform/NavigationBar.h"
#include "platform/View.h"

#include <QDir>
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
    void longTextsEndBeforeTheButtons_data();
    void longTextsEndBeforeTheButtons();
    void onlyRowsOnScreenHaveCells();
    void missingDirectoryGivesEmptyList();

private:
    QStringList visibleNames() const;
    BarButton *editButton() const { return m_screen->navigation()->navigationBar()->leftButton(); }
    // Whether "Edit" is drawn in the bar, and whether a click where it stands enters edit mode.
    bool editDrawn() const;
    bool clickOnEditEntersEditMode();
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

bool TestListScreen::editDrawn() const
{
    // The bar is black; "Edit" is white text in its left quarter.
    NavigationBar *bar = m_screen->navigation()->navigationBar();
    const QImage image = bar->grab(QRect(0, 0, bar->width() / 4, bar->height())).toImage();
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qGray(image.pixel(x, y)) > 200)
                return true;
    return false;
}

bool TestListScreen::clickOnEditEntersEditMode()
{
    NavigationBar *bar = m_screen->navigation()->navigationBar();
    QTest::mouseClick(bar->childAt(20, bar->height() / 2) ? bar->childAt(20, bar->height() / 2)
                                                          : static_cast<QWidget *>(bar),
                      Qt::LeftButton, {}, QPoint(20, bar->height() / 2));
    const bool editing = m_screen->list()->isEditing();
    if (editing)
        m_screen->list()->setEditing(false, false);
    return editing;
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
    // An empty list at launch: no "Edit" is drawn, and a click where it would be does nothing.
    m_screen->open();
    QVERIFY(!editDrawn());
    QVERIFY(!clickOnEditEntersEditMode());

    // Written by the recording side while the list is on screen: the watcher brings it in.
    const QString name = m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    QTRY_COMPARE(visibleNames(), QStringList({ "Daniel Reyes" }));
    QVERIFY(editDrawn());
    QCOMPARE(editButton()->text(), "Edit");
    QVERIFY(clickOnEditEntersEditMode());

    QVERIFY(QFile::remove(m_screen->messages() + "/" + name));
    QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
    QVERIFY(!editDrawn());
    QVERIFY(!clickOnEditEntersEditMode());
    QVERIFY(visibleNames().isEmpty());

    // Edit mode and back, many times over, on an empty list: still nothing to click.
    for (int i = 0; i < 20; ++i)
        m_screen->list()->setEditing(i % 2 == 0, false);
    QVERIFY(!editDrawn());
}

void TestListScreen::longTextsEndBeforeTheButtons_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("address");
    QTest::newRow("a phone, 375 points") << 375 << "+15551234567";
    QTest::newRow("a Linux phone, 360 points") << 360 << "+15551234567";
    QTest::newRow("a handle longer than the row")
        << 360 << "maximilian.alexander.featherstonehaugh-worthington@example.com";
}

void TestListScreen::longTextsEndBeforeTheButtons()
{
    QFETCH(int, width);
    QFETCH(QString, address);
    TestSupport::writeFile(
        m_screen->root() + "/contacts.vcf",
        "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Maximilian Alexander \"Max\" Featherstonehaugh-"
        "Worthington\\nof Leamington Spa\r\nTEL:+15551234567\r\nEND:VCARD\r\n");
    m_screen->addRecording("FaceTimeAudioGroupCall", address, "09-Nov-2026-08-45-30");
    m_screen->open(QString(), width);

    VTCell *cell = m_screen->cell(0);
    QVERIFY(cell);
    const int phone = cell->phoneButton()->geometry().left();
    for (QLabel *label : { cell->textLabel(), cell->detailTextLabel() }) {
        const auto *line = qobject_cast<Label *>(label);
        QVERIFY(line);
        QVERIFY2(label->geometry().right() < phone, qPrintable(label->text()));
        // Cut short with an ellipsis, on one line; screen readers still get the whole text.
        QVERIFY2(line->shownText().endsWith(QChar(0x2026)), qPrintable(line->shownText()));
        QVERIFY(!line->shownText().contains(u'\n'));
        QVERIFY(label->fontMetrics().horizontalAdvance(line->shownText()) <= label->width());
    }
    QVERIFY(cell->accessibleName().size() > cell->textLabel()->width() / 4);
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
    // The recording side has not made its directory yet: an empty list, which goes live as
    // soon as the directory is there, and follows it when it is removed and made again.
    const QString later = m_screen->root() + "/later/Messages";
    m_screen->open(later);
    QCOMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
    QVERIFY(!editDrawn());

    QVERIFY(QDir().mkpath(later));
    const QString name = TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    QVERIFY(TestSupport::writeFile(later + "/" + name));
    QTRY_COMPARE(visibleNames(), QStringList({ "Daniel Reyes" }));
    QVERIFY(editDrawn());

    QVERIFY(QDir(later).removeRecursively());
    QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), 0);
    QVERIFY(QDir().mkpath(later));
    QVERIFY(TestSupport::writeFile(
        later + "/" + TestSupport::recordingName("FT", "+15557654321", "16-Nov-2026-08-00-00")));
    QTRY_COMPARE(visibleNames(), QStringList({ "+15557654321" }));
}

QTEST_MAIN(TestListScreen)
#include "tst_listscreen.moc"
