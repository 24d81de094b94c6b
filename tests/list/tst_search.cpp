// Finding a recording: Ctrl+F (or a pull on the list, which tst_touch makes) shows the search
// field, and what is typed there leaves the rows whose caller, number or transcript holds it.
#include "ListScreen.h"
#include "TestSupport.h"
#include "toolkit/AlertController.h"
#include "toolkit/SearchBar.h"

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>

class TestSearch : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_screen = std::make_unique<ListScreen>();
        // Daniel Reyes is in the address book as (555) 123-4567.
        m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07",
                               "Hi, it's Daniel. Call me about the INVOICE, please.\n");
        m_screen->addRecording("TEL", "+442079460958", "15-Nov-2026-21-00-00");
        m_screen->addRecording("FT", "amara@example.com", "14-Nov-2026-09-30-00");
        m_screen->addRecording("TEL", "+15559870000", "13-Nov-2026-17-45-00",
                               "Your dentist appointment has moved to Thursday.\n");
        // Older calls from strangers, enough to scroll.
        for (int day = 1; day <= 20; ++day)
            m_screen->addRecording(
                "TEL", QStringLiteral("+1202555%1").arg(day, 4, 10, QChar('0')),
                QStringLiteral("%1-Oct-2026-10-00-00").arg(day, 2, 10, QChar('0')));
        m_screen->open();
    }

    void cleanup() { m_screen.reset(); }

    void findsWhatIsTyped_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("found");
        const QStringList daniel { "Daniel Reyes" };
        QTest::newRow("a name, in any case") << "dANIEL" << daniel;
        QTest::newRow("part of a number") << "555 123" << daniel;
        QTest::newRow("a number as written at home") << "(555) 123-4567" << daniel;
        QTest::newRow("a number with its country") << "+1555123" << daniel;
        QTest::newRow("a British number written nationally")
            << "020 7946 0958" << QStringList { "+442079460958" };
        QTest::newRow("a handle") << "AMARA@" << QStringList { "amara@example.com" };
        // Transcripts are read in the background: they are found once read.
        QTest::newRow("a word of a transcript") << "invoice" << daniel;
        QTest::newRow("words of another")
            << "Dentist Appointment" << QStringList { "+15559870000" };
        QTest::newRow("nothing") << "zebra" << QStringList {};
    }

    void findsWhatIsTyped()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, found);
        search(typed);
        QTRY_COMPARE(m_screen->shownNames(), found);
        auto *empty = m_screen->table()->findChild<QLabel *>(QStringLiteral("EmptyState"));
        QCOMPARE(empty && empty->isVisible(), found.isEmpty());
        if (found.isEmpty())
            QCOMPARE(empty->text(), QStringLiteral("No recordings match your search"));
    }

    void escapeBringsTheListBackAsItWas()
    {
        // A row open far down the list.
        TableView *table = m_screen->table();
        table->verticalScrollBar()->setValue(54 * 12);
        const int scrolled = table->verticalScrollBar()->value();
        const int row = 14;
        ListScreen::tapRow(table, row);
        QTRY_VERIFY(m_screen->cell(row) && m_screen->cell(row)->hasPlayer());
        const QString open = m_screen->cell(row)->textLabel()->text();

        search("daniel");
        QTRY_COMPARE(m_screen->shownNames(), QStringList { "Daniel Reyes" });
        QTest::keyClick(field(), Qt::Key_Escape);
        QVERIFY(!field()->isVisible());
        QCOMPARE(table->numberOfRowsInSection(0), 24);
        QCOMPARE(table->verticalScrollBar()->value(), scrolled);
        QTRY_VERIFY(m_screen->cell(row) && m_screen->cell(row)->hasPlayer());
        QCOMPARE(m_screen->cell(row)->textLabel()->text(), open);
        QVERIFY(table->hasFocus());

        // Clearing the field does the same, and the field stays for the next search.
        search("amara");
        QTRY_COMPARE(m_screen->shownNames(), QStringList { "amara@example.com" });
        field()->clear();
        QCOMPARE(table->numberOfRowsInSection(0), 24);
        QVERIFY(field()->isVisible());
    }

    void editModeActsOnWhatIsFound()
    {
        search("555 123");
        QTRY_COMPARE(m_screen->shownNames(), QStringList { "Daniel Reyes" });
        // Recordings arriving during the search show up when they match, and only then.
        m_screen->addRecording("TEL", "+15550000001", "16-Nov-2026-09-00-00");
        const QString older = m_screen->addRecording("TEL", "+15551234567", "01-Sep-2026-12-00-00");
        QTRY_COMPARE(m_screen->shownNames(), (QStringList { "Daniel Reyes", "Daniel Reyes" }));
        m_screen->press(QStringLiteral("Edit"));
        m_screen->press(QStringLiteral("Select All"));
        m_screen->press(QStringLiteral("Delete"));
        QVERIFY(m_screen->alert());
        QCOMPARE(m_screen->alert()->title(), QStringLiteral("Delete 2 voicemails?"));
        QTest::mouseClick(m_screen->alert()->buttonForAction("Delete"), Qt::LeftButton);
        // Daniel's two recordings and his transcript are gone, and nothing else.
        const QStringList left = QDir(m_screen->messages()).entryList(QDir::Files);
        QCOMPARE(left.size(), 24 + 2 + 2 - 3); // recordings, transcripts, arrivals, deleted
        QVERIFY(!left.contains(older));
        QVERIFY(!left.contains(
            TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07")));
        QCOMPARE(m_screen->shownNames(), QStringList {});
        QTest::keyClick(field(), Qt::Key_Escape);
        QCOMPARE(m_screen->table()->numberOfRowsInSection(0), 24);
    }

private:
    QLineEdit *field() const { return m_screen->list()->searchBar()->field(); }

    void search(const QString &text)
    {
        QTest::keySequence(m_screen->window(), QKeySequence::Find);
        QVERIFY(field()->isVisible());
        QVERIFY(field()->hasFocus());
        // The transcripts are read as the field opens, and a person is slower to type: each key
        // then narrows what the one before found.
        QTest::keyClicks(field(), QStringLiteral("thursday"));
        QTRY_COMPARE(m_screen->table()->numberOfRowsInSection(0), 1);
        field()->clear();
        QTest::keyClicks(field(), text);
    }

    std::unique_ptr<ListScreen> m_screen;
};

QTEST_MAIN(TestSearch)
#include "tst_search.moc"
