#include "TestSupport.h"
#include "app/RootViewController.h"
#include "list/TableController.h"
#include "platform/BarButton.h"
#include "platform/NavigationBar.h"
#include "platform/TableViewCell.h"
#include "platform/View.h"

#include <QDir>
#include <QScrollBar>
#include <QTest>
#include <QVBoxLayout>

// The list screen as the application shows it, on a temporary Messages directory.
class TestListScreen : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void rowsShowCallersNewestFirst();
    void editButtonFollowsTheDirectory();
    void onlyRowsOnScreenHaveCells();
    void missingDirectoryGivesEmptyList();

private:
    void open(const QString &directory);
    QString messages() const { return m_root->filePath("Messages"); }
    void addRecording(const QString &kind, const QString &address, const QString &time)
    {
        QVERIFY(TestSupport::writeFile(messages() + "/" +
                                       TestSupport::recordingName(kind, address, time)));
    }
    QStringList visibleNames() const;
    BarButton *editButton() const { return m_root_view->navigationBar()->leftButton(); }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<QWidget> m_window;
    TableController *m_list {nullptr};
    RootViewController *m_root_view {nullptr};
};

void TestListScreen::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir(m_root->path()).mkdir("Messages"));
    QVERIFY(TestSupport::writeFile(
        m_root->filePath("contacts.vcf"),
        "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Daniel Reyes\r\nN:Reyes;Daniel;;;\r\n"
        "TEL;TYPE=CELL:(555) 123-4567\r\nEND:VCARD\r\n"));
    qputenv("VANTREL_CONTACTS", m_root->filePath("contacts.vcf").toLocal8Bit());
}

void TestListScreen::open(const QString &directory)
{
    m_window = std::make_unique<QWidget>();
    m_window->resize(375, 667);
    m_list = new TableController(directory, m_window.get());
    m_root_view = new RootViewController(m_list, m_window.get());
    auto *layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_root_view);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestListScreen::cleanup()
{
    m_window.reset();
    m_root.reset();
}

QStringList TestListScreen::visibleNames() const
{
    QStringList names;
    for (int row = 0; row < m_list->numberOfRowsInSection(0); ++row) {
        if (TableViewCell *cell = m_list->tableView()->cellForRowAtIndexPath({0, row}))
            names << cell->textLabel()->text();
    }
    return names;
}

void TestListScreen::rowsShowCallersNewestFirst()
{
    addRecording("TEL", "+15557654321", "09-Nov-2026-08-45-30");
    addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    addRecording("TEL", "PRIVATE", "12-Nov-2026-11-20-03");
    addRecording("FT", "someone@example.com", "not-a-time");
    open(messages());

    QCOMPARE(m_root_view->navigationBar()->title(), "Vantrel Plus");
    QCOMPARE(visibleNames(),
             QStringList({"Daniel Reyes", "PRIVATE", "+15557654321", "someone@example.com"}));
    TableViewCell *first = m_list->tableView()->cellForRowAtIndexPath({0, 0});
    QCOMPARE(first->detailTextLabel()->text(), "Nov 15 2026 - 22:10:07 - Telephony");
    QCOMPARE(first->height(), 54);
    QVERIFY(!first->imageView()->pixmap().isNull());
    QCOMPARE(m_list->tableView()->cellForRowAtIndexPath({0, 3})->detailTextLabel()->text(),
             "(null) - FaceTime");
    QCOMPARE(first->accessibleName(), "Daniel Reyes");
}

void TestListScreen::editButtonFollowsTheDirectory()
{
    open(messages());
    QVERIFY(editButton());
    QCOMPARE(editButton()->text(), "Edit");
    QCOMPARE(alpha(editButton()), 0.0);

    // Written by the recording side while the list is on screen: the watcher brings it in.
    addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
    QTRY_COMPARE(visibleNames(), QStringList({"Daniel Reyes"}));
    QCOMPARE(alpha(editButton()), 1.0);

    QVERIFY(
        QFile::remove(messages() + "/" +
                      TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07")));
    QTRY_COMPARE(m_list->numberOfRowsInSection(0), 0);
    QCOMPARE(alpha(editButton()), 0.0);
    QVERIFY(visibleNames().isEmpty());
}

void TestListScreen::onlyRowsOnScreenHaveCells()
{
    const QDate first(2026, 1, 1);
    for (int day = 0; day < 300; ++day) {
        addRecording("TEL", QStringLiteral("+1555%1").arg(day, 7, 10, QLatin1Char('0')),
                     QLocale::c().toString(first.addDays(day), "dd-MMM-yyyy") + "-12-00-00");
    }
    open(messages());
    TableView *table = m_list->tableView();
    const int onScreen = table->viewport()->height() / 54 + 2;
    QVERIFY(table->visibleCells().size() <= onScreen);
    QVERIFY(table->cellForRowAtIndexPath({0, 0}));

    table->verticalScrollBar()->setValue(table->verticalScrollBar()->maximum());
    QVERIFY(table->visibleCells().size() <= onScreen);
    QVERIFY(!table->cellForRowAtIndexPath({0, 0}));
    TableViewCell *last = table->cellForRowAtIndexPath({0, 299});
    QVERIFY(last);
    QCOMPARE(last->textLabel()->text(), "+15550000000"); // the oldest sorts last
    QVERIFY(last->geometry().bottom() < table->viewport()->height());
}

void TestListScreen::missingDirectoryGivesEmptyList()
{
    open(m_root->filePath("does-not-exist"));
    QCOMPARE(m_list->numberOfRowsInSection(0), 0);
    QCOMPARE(alpha(editButton()), 0.0);
    m_list->reloadEntries(true);
    QCOMPARE(m_list->numberOfRowsInSection(0), 0);
}

QTEST_MAIN(TestListScreen)
#include "tst_listscreen.moc"
