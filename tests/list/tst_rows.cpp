#include "ListScreen.h"
#include "TestSupport.h"
#include "platform/AlertController.h"
#include "platform/BarButton.h"
#include "platform/NavigationBar.h"
#include "platform/NavigationController.h"
#include "platform/Toolbar.h"
#include "playback/VantrelPlayer.h"

#include <QAccessible>
#include <QDir>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>

// Stands in for the phone's dialer: a desktop application registered with xdg-mime as the
// handler of "tel" and "facetime-audio", which writes down every URL it is given.
class Dialer
{
public:
    Dialer()
    {
        QDir(m_home.path()).mkpath("data/applications");
        QDir(m_home.path()).mkpath("config");
        const QString script = m_home.filePath("dialer.sh");
        TestSupport::writeFile(
            script, QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$1\" >> %1\n").arg(log()).toUtf8());
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        TestSupport::writeFile(
            m_home.filePath("data/applications/vantrel-test-dialer.desktop"),
            QStringLiteral("[Desktop Entry]\nType=Application\nName=Dialer\nExec=%1 %u\n"
                           "MimeType=x-scheme-handler/tel;x-scheme-handler/facetime-audio;\n")
                .arg(script)
                .toUtf8());
        TestSupport::writeFile(
            m_home.filePath("config/mimeapps.list"),
            "[Default Applications]\nx-scheme-handler/tel=vantrel-test-dialer.desktop\n"
            "x-scheme-handler/facetime-audio=vantrel-test-dialer.desktop\n");
        qputenv("XDG_DATA_HOME", m_home.filePath("data").toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", m_home.filePath("config").toLocal8Bit());
        // xdg-open consults scheme handlers only inside a graphical session.
        qputenv("WAYLAND_DISPLAY", "vantrel-test");
    }
    QString log() const { return m_home.filePath("dialed.txt"); }
    QStringList dialed() const
    {
        QFile file(log());
        return file.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts)
                   : QStringList();
    }
    void clear() { QFile::remove(log()); }

private:
    QTemporaryDir m_home;
};

// Opening and closing rows, the transcript reader and calling back, as a user does them.
class TestRows : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup() { m_screen.reset(); }
    void tapsOpenSwitchAndCloseRows();
    void keyboardOpensAndClosesRows();
    void openRowKeepsItselfFarAway();
    void readButtonOnClosedRowWhileAnotherIsOpen();
    void transcriptThatCannotBeShown_data();
    void transcriptThatCannotBeShown();
    void dialing_data();
    void dialing();
    void reusedRowKeepsItsReadButton();
    void rowsReadThroughAccessibility();
    void editModeSelectsWithoutOpening();

private:
    AlertController *alert() const { return m_screen->window()->findChild<AlertController *>(); }
    std::unique_ptr<ListScreen> m_screen;
    std::unique_ptr<Dialer> m_dialer;
};

void TestRows::initTestCase()
{
    m_dialer = std::make_unique<Dialer>();
}

void TestRows::init()
{
    m_dialer->clear();
    m_screen = std::make_unique<ListScreen>();
    m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07",
                           "Hi, it's Daniel. Call me back.");
    m_screen->addRecording("TEL", "+15557654321", "14-Nov-2026-08-45-30",
                           "Your order is ready for pick-up.");
    m_screen->addRecording("TEL", "PRIVATE", "13-Nov-2026-11-20-03");
}

void TestRows::tapsOpenSwitchAndCloseRows()
{
    m_screen->open();
    m_screen->tapRow(0);
    QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));
    QCOMPARE(m_screen->list()->currentSelectedRowIndex()->row, 0);
    QVERIFY(m_screen->cell(0)->hasPlayer());
    QVERIFY(m_screen->cell(0)->isCurrentPlayerCell() ==
            false); // the tapped cell reports itself selected

    m_screen->tapRow(1);
    QVERIFY(m_screen->waitForHeights({ 54, 108, 54 }));
    QCOMPARE(m_screen->list()->currentSelectedRowIndex()->row, 1);
    QTRY_VERIFY(m_screen->cell(1)->hasPlayer());
    QTRY_VERIFY(!m_screen->cell(0)->hasPlayer());

    m_screen->tapRow(1);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
    QVERIFY(!m_screen->list()->currentSelectedRowIndex());
    QTRY_VERIFY(!m_screen->cell(1)->hasPlayer());

    // Closed and opened again before the controls are taken down: they stay.
    m_screen->tapRow(2);
    m_screen->tapRow(2);
    m_screen->tapRow(2);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 108 }));
    QTest::qWait(VantrelPlayer::kRemovalDelayMs * 2);
    QVERIFY(m_screen->cell(2)->hasPlayer());
}

void TestRows::keyboardOpensAndClosesRows()
{
    m_screen->open();
    TableView *table = m_screen->table();
    table->setFocus();
    QTest::keyClick(table, Qt::Key_Down);
    QCOMPARE(table->focusedRow(), 1);
    QVERIFY(m_screen->cell(1)->isKeyboardFocused());
    QTest::keyClick(table, Qt::Key_Return);
    QVERIFY(m_screen->waitForHeights({ 54, 108, 54 }));
    // Escape closes; pressed again, it never opens.
    for (int press = 0; press < 2; ++press) {
        QTest::keyClick(table, Qt::Key_Escape);
        QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
    }
    QTest::keyClick(table, Qt::Key_Up);
    QTest::keyClick(table, Qt::Key_Space);
    QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));

    // A row closed by a tap, and a row opened from its read button: Escape only closes.
    m_screen->tapRow(0);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
    QTest::keyClick(table, Qt::Key_Escape);
    QTest::qWait(50);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
    QTest::mouseClick(m_screen->cell(1)->readButton(), Qt::LeftButton);
    QVERIFY(m_screen->waitForHeights({ 54, 108, 54 }));
    QTest::keyClick(table, Qt::Key_Escape);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
}

void TestRows::openRowKeepsItselfFarAway()
{
    // Enough rows that scrolling to the end and back passes far more cells than are kept.
    for (int day = 1; day <= 28; ++day)
        for (int hour = 0; hour < 10; ++hour)
            m_screen->addRecording(
                "TEL", QStringLiteral("+1555%1").arg(day * 100 + hour, 7, 10, QLatin1Char('0')),
                QStringLiteral("%1-Oct-2026-%2-00-00")
                    .arg(day, 2, 10, QLatin1Char('0'))
                    .arg(hour, 2, 10, QLatin1Char('0')));
    m_screen->open();
    QTest::mouseClick(m_screen->cell(1)->readButton(), Qt::LeftButton);
    QVERIFY(m_screen->waitForHeights({ 54, 108 }));
    QTRY_VERIFY(m_screen->cell(1)->readerView()->isVisible());

    QScrollBar *bar = m_screen->table()->verticalScrollBar();
    for (int value = 0; value <= bar->maximum(); value += 100)
        bar->setValue(value);
    bar->setValue(bar->maximum());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    bar->setValue(0);

    QVERIFY(m_screen->waitForHeights({ 54, 108 }));
    VTCell *open = m_screen->cell(1);
    QCOMPARE(open->height(), 108);
    QVERIFY(open->readerView()->isVisible());
    QCOMPARE(open->readerView()->toPlainText(), "Your order is ready for pick-up.");
}

void TestRows::readButtonOnClosedRowWhileAnotherIsOpen()
{
    m_screen->open();
    m_screen->tapRow(0);
    QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));

    const qint64 logStart = TestSupport::logSize();
    VTCell *second = m_screen->cell(1);
    QVERIFY(second->readButton()->isVisible());
    QTest::mouseClick(second->readButton(), Qt::LeftButton);
    QVERIFY(m_screen->waitForHeights({ 54, 108, 54 }));
    QTRY_VERIFY(second->readerView()->isVisible());
    QCOMPARE(second->readerView()->toPlainText(), "Your order is ready for pick-up.");
    QVERIFY(!second->textLabel()->isVisible());
    QVERIFY(!second->hasPlayer());
    QTRY_VERIFY(!m_screen->cell(0)->hasPlayer());
    const QString log = TestSupport::logLinesSince(logStart).join(u'\n');
    QVERIFY(log.contains("did set button selected 1 for button <Button"));
    QVERIFY(log.contains("DID GET TARGET CELL <VTCell"));
    QVERIFY(log.contains("VantrelLog : CELL TEXT Your order is ready for pick-up."));

    // The second tap hides the transcript; the row stays open, without a player.
    QTest::mouseClick(second->readButton(), Qt::LeftButton);
    QTRY_VERIFY(second->textLabel()->isVisible());
    QVERIFY(!second->readerView()->isVisible());
    QVERIFY(m_screen->waitForHeights({ 54, 108, 54 }));
    QCOMPARE(m_screen->list()->currentSelectedRowIndex()->row, 1);
}

void TestRows::transcriptThatCannotBeShown_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<bool>("deleteFirst");
    QTest::addColumn<qsizetype>("shownAtLeast");
    QTest::newRow("deleted after listing") << QByteArray("gone") << true << qsizetype(0);
    QTest::newRow("not UTF-8") << QByteArray("caf\xe9 au lait") << false << qsizetype(0);
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe\x01", 4) << false << qsizetype(0);
    // Long enough to need breaking for display; the log gets it whole, on one line.
    QByteArray huge(256 * 1024, 'a');
    for (qsizetype i = 0; i < huge.size(); i += 9)
        huge[i] = ' ';
    QTest::newRow("256 kB on one line") << huge << false << qsizetype(huge.size());
}

void TestRows::transcriptThatCannotBeShown()
{
    QFETCH(QByteArray, contents);
    QFETCH(bool, deleteFirst);
    QFETCH(qsizetype, shownAtLeast);
    const QString name =
        m_screen->addRecording("TEL", "+15550001111", "16-Nov-2026-10-00-00", contents);
    m_screen->open();
    const QString transcript = m_screen->messages() + "/" + QString(name).replace(".caf", ".txt");
    if (deleteFirst) {
        // The list reloads; the row's own cell comes back still knowing its transcript.
        QVERIFY(QFile::remove(transcript));
        QTRY_VERIFY(!m_screen->list()->entryList().first().textFile);
    }

    VTCell *cell = m_screen->cell(0);
    const qint64 logStart = TestSupport::logSize();
    QTest::mouseClick(cell->readButton(), Qt::LeftButton);
    QTRY_VERIFY(cell->readerView()->isVisible());
    QVERIFY(m_screen->waitForHeights({ 108, 54, 54, 54 }));
    QCOMPARE(cell->readerText().size(), shownAtLeast);
    QVERIFY(cell->readerView()->document()->characterCount() > shownAtLeast);
    const QString expected = shownAtLeast ? QString::fromUtf8(contents) : QString("(null)");
    const QStringList lines = TestSupport::logLinesSince(logStart).filter("CELL TEXT ");
    QVERIFY(std::any_of(lines.cbegin(), lines.cend(), [&](const QString &line) {
        return line.endsWith("]: VantrelLog : CELL TEXT " + expected) ||
               line.endsWith("] VantrelLog : CELL TEXT " + expected);
    }));
}

void TestRows::dialing_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("url"); // empty: nothing is dialed
    QTest::newRow("telephone") << "TEL"
                               << "+15559876543"
                               << "Dial"
                               << "tel://+15559876543";
    QTest::newRow("handle") << "FT"
                            << "anna.berg@example.com"
                            << "Dial"
                            << "facetime-audio://anna.berg@example.com";
    QTest::newRow("FaceTime from a number") << "FT"
                                            << "+15552220199"
                                            << "Dial"
                                            << "tel://+15552220199";
    QTest::newRow("cancelled") << "TEL"
                               << "+15559876543"
                               << "Cancel"
                               << "";
    QTest::newRow("space makes no URL") << "TEL"
                                        << "555 123"
                                        << "Dial"
                                        << "";
    QTest::newRow("quote makes no URL") << "TEL"
                                        << "555\"123"
                                        << "Dial"
                                        << "";
}

void TestRows::dialing()
{
    QFETCH(QString, kind);
    QFETCH(QString, address);
    QFETCH(QString, button);
    QFETCH(QString, url);
    m_screen->addRecording(kind, address, "16-Nov-2026-10-00-00");
    m_screen->open();
    QTest::mouseClick(m_screen->cell(0)->phoneButton(), Qt::LeftButton);
    QVERIFY(alert());
    QCOMPARE(alert()->title(), "Vantrel");
    QCOMPARE(alert()->message(), QStringLiteral("Dial %1?").arg(address));
    QVERIFY(alert()->buttonForAction("Cancel"));
    QTest::mouseClick(alert()->buttonForAction(button), Qt::LeftButton);
    QTRY_VERIFY(!alert());
    if (url.isEmpty()) {
        QTest::qWait(300); // time enough for a handler to have been started
        QVERIFY(m_dialer->dialed().isEmpty());
    } else {
        QTRY_COMPARE(m_dialer->dialed(), QStringList({ url }));
    }
    QCOMPARE(m_screen->list()->currentSelectedRowIndex(), std::nullopt); // dialing selects nothing
}

void TestRows::reusedRowKeepsItsReadButton()
{
    m_screen->open();
    QVERIFY(m_screen->cell(0)->hasText());
    // A newer recording without a transcript takes row 0; the row's own cell comes back
    // from the reuse queue and keeps its read button, as rows always have.
    m_screen->addRecording("TEL", "+15550002222", "20-Nov-2026-10-00-00");
    QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), 4);
    QVERIFY(!m_screen->list()->entryList().first().textFile);
    QVERIFY(m_screen->cell(0)->hasText());
    QVERIFY(m_screen->cell(0)->readButton()->isVisible());
    QVERIFY(!m_screen->cell(3)->readButton()->isVisible());
}

void TestRows::rowsReadThroughAccessibility()
{
    m_screen->open();
    QAccessibleInterface *table = QAccessible::queryAccessibleInterface(m_screen->table());
    QCOMPARE(table->role(), QAccessible::List);
    QAccessibleInterface *row = QAccessible::queryAccessibleInterface(m_screen->cell(0));
    QCOMPARE(row->role(), QAccessible::ListItem);
    QCOMPARE(row->text(QAccessible::Name), "Daniel Reyes");
    QCOMPARE(row->text(QAccessible::Description), "Nov 15 2026 - 22:10:07 - Telephony");
    QAccessibleInterface *call =
        QAccessible::queryAccessibleInterface(m_screen->cell(0)->phoneButton());
    QCOMPARE(call->role(), QAccessible::Button);
    QCOMPARE(call->text(QAccessible::Name), "Call back Daniel Reyes");
    QVERIFY(
        QAccessible::queryAccessibleInterface(m_screen->cell(2)->readButton())->state().invisible);

    QCOMPARE(QAccessible::queryAccessibleInterface(
                 m_screen->navigation()->navigationBar()->rightButton())
                 ->text(QAccessible::Name),
             "Settings");

    // Every control a user can reach says what it is.
    for (QAbstractButton *button : m_screen->window()->findChildren<QAbstractButton *>()) {
        if (!button->isVisible())
            continue;
        QAccessibleInterface *control = QAccessible::queryAccessibleInterface(button);
        QVERIFY2(!control->text(QAccessible::Name).isEmpty(), button->metaObject()->className());
        QCOMPARE(control->role(), QAccessible::Button);
    }
}

void TestRows::editModeSelectsWithoutOpening()
{
    m_screen->open();
    NavigationBar *bar = m_screen->navigation()->navigationBar();
    QTest::mouseClick(bar->leftButton(), Qt::LeftButton);
    QTRY_COMPARE(bar->leftButton()->text(), "Select All");
    QCOMPARE(bar->rightButton()->text(), "Done");
    QVERIFY(!m_screen->navigation()->isToolbarHidden());
    QVERIFY(!m_screen->list()->trashButton()->isEnabled());

    m_screen->tapRow(0);
    QVERIFY(m_screen->waitForHeights({ 54, 54, 54 }));
    QVERIFY(m_screen->list()->trashButton()->isEnabled());
    QCOMPARE(bar->leftButton()->text(), "Select All");
    m_screen->tapRow(1);
    m_screen->tapRow(2);
    QCOMPARE(bar->leftButton()->text(), "Deselect All");

    QTest::mouseClick(bar->leftButton(), Qt::LeftButton);
    QCOMPARE(m_screen->table()->indexPathsForSelectedRows().size(), 0);
    QVERIFY(!m_screen->list()->shareButton()->isEnabled());

    QTest::mouseClick(bar->rightButton(), Qt::LeftButton);
    QTRY_COMPARE(bar->leftButton()->text(), "Edit");
    QVERIFY(m_screen->navigation()->isToolbarHidden());
}

QTEST_MAIN(TestRows)
#include "tst_rows.moc"
