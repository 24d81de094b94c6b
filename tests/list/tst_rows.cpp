#include "ListScreen.h"
#include "TestSupport.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/AlertController.h"
#include "toolkit/NavigationBar.h"
#include "toolkit/NavigationController.h"

#include <QAccessible>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDir>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

namespace {
const QByteArray kHandlers = "[Default Applications]\n"
                             "x-scheme-handler/tel=vantrel-test-dialer.desktop\n"
                             "x-scheme-handler/facetime-audio=vantrel-test-dialer.desktop\n";
using CallInterfaces = QMap<QString, QVariantMap>;
using CallObjects = QMap<QDBusObjectPath, CallInterfaces>;

// Whether the keyboard's ring is drawn around widget: its colour on the left edge.
bool ringDrawn(QWidget *widget)
{
    return TestSupport::draws(widget, QRect(0, widget->height() / 2, 5, 1), [](const QColor &seen) {
        return std::abs(seen.red() - kFocusRingColor.red()) < 24 &&
               std::abs(seen.green() - kFocusRingColor.green()) < 24 &&
               std::abs(seen.blue() - kFocusRingColor.blue()) < 24;
    });
}
} // namespace

// Opening and closing rows, the transcript reader and calling back, as a user does them.
class TestRows : public QObject
{
    Q_OBJECT
private slots:
    // Stands in for the phone's dialer: a desktop application registered with xdg-mime as the
    // handler of "tel" and "facetime-audio", which writes down every URL it is given.
    void initTestCase()
    {
        const QString script = m_dialer.filePath("dialer.sh");
        const QList<std::pair<QString, QString>> files = {
            { script,
              "#!/bin/sh\nprintf '%s\\n' \"$1\" >> " + m_dialer.filePath("dialed.txt") + "\n" },
            { m_dialer.filePath("data/applications/vantrel-test-dialer.desktop"),
              "[Desktop Entry]\nType=Application\nName=Dialer\nExec=" + script +
                  " %u\nMimeType=x-scheme-handler/tel;x-scheme-handler/facetime-audio;\n" },
            { m_dialer.filePath("config/mimeapps.list"), kHandlers },
        };
        for (const auto &[path, text] : files)
            QVERIFY(TestSupport::writeProgram(path, text.toUtf8()));
        if (qEnvironmentVariableIsSet("XDG_DATA_DIRS")) // unset is not the same as empty to all
            m_systemData = qgetenv("XDG_DATA_DIRS");
        // xdg-open consults scheme handlers only inside a graphical session.
        qputenv("WAYLAND_DISPLAY", "vantrel-test");
        QVERIFY(QDBusConnection::sessionBus().connect(QString(), "/net/zorvath/vantrel",
                                                      "net.zorvath.vantrel", "openSettings", this,
                                                      SLOT(settingsRequested())));
    }

    void init()
    {
        QFile::remove(m_dialer.filePath("dialed.txt"));
        // The stand-in and the system's packages, whatever the test before put in their place.
        qputenv("XDG_DATA_HOME", m_dialer.filePath("data").toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", m_dialer.filePath("config").toLocal8Bit());
        m_systemData ? qputenv("XDG_DATA_DIRS", *m_systemData) : qunsetenv("XDG_DATA_DIRS");
        QVERIFY(TestSupport::writeFile(m_dialer.filePath("config/mimeapps.list"), kHandlers));
        m_settingsRequests = 0;
        m_screen = std::make_unique<ListScreen>();
        m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07",
                               "Hi, it's Daniel. Call me back.");
        m_screen->addRecording("TEL", "+15557654321", "14-Nov-2026-08-45-30",
                               "Your order is ready for pick-up.");
        m_screen->addRecording("TEL", "PRIVATE", "13-Nov-2026-11-20-03");
    }

    void cleanup() { m_screen.reset(); }

    void keyboardReachesEachControlOnce()
    {
        // The first row's recording can be played: its player shows its controls.
        QVERIFY(m_screen->useSample(
            TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07")));
        m_screen->open();
        QVERIFY(QTest::qWaitForWindowActive(m_screen->window()));
        TableView *table = m_screen->table();
        const auto focus = [] { return QApplication::focusWidget(); };
        // At the start the first row has the keyboard, and shows it.
        VTCell *first = m_screen->cell(0);
        QCOMPARE(focus(), table);
        QVERIFY(ringDrawn(first));

        // Right and Left walk the focused row's own buttons, only those shown; Up and Down move
        // between rows from anywhere in a row. The ring goes round the button that has the
        // keyboard, else round the table's row, and nowhere else.
        VTCell *last = m_screen->cell(2); // a private caller: no call-back, no transcript
        const QList<std::tuple<Qt::Key, QWidget *, QWidget *>> walk = {
            { Qt::Key_Right, first->phoneButton(), first->phoneButton() },
            { Qt::Key_Right, first->readButton(), first->readButton() },
            { Qt::Key_Right, first->readButton(), first->readButton() },
            { Qt::Key_Left, first->phoneButton(), first->phoneButton() },
            { Qt::Key_Left, table, first },
            { Qt::Key_Left, table, first },
            { Qt::Key_Right, first->phoneButton(), first->phoneButton() },
            { Qt::Key_Down, table, m_screen->cell(1) },
            { Qt::Key_Down, table, last },
            { Qt::Key_Right, table, last },
            { Qt::Key_Home, table, first },
            { Qt::Key_Right, first->phoneButton(), first->phoneButton() },
        };
        for (const auto &[key, focused, ringed] : walk) {
            QTest::keyClick(focus(), key);
            QCOMPARE(focus(), focused);
            QVERIFY(ringDrawn(ringed));
            QVERIFY(ringed == first || !ringDrawn(first));
        }
        // A row's button does what a click does.
        QTest::keyClick(focus(), Qt::Key_Return);
        QTRY_VERIFY(alert());
        QCOMPARE(alert()->message(), "Dial +15551234567?");
        QTest::keyClick(focus(), Qt::Key_Escape);
        QTRY_VERIFY(!alert());
        QCOMPARE(focus(), first->phoneButton());

        // The table is one Tab stop; the open row's player comes right after it, play first, left
        // to right, and nothing else inside the list is ever a stop.
        QTest::keyClick(focus(), Qt::Key_Left);
        QTest::keyClick(table, Qt::Key_Return);
        QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));
        const VantrelPlayer *player = m_screen->list()->playerController();
        QTRY_VERIFY(first->followingControls().size() == 4);
        QWidgetList stops;
        for (int press = 0; press < 20 && (stops.isEmpty() || focus() != table); ++press) {
            QTest::keyClick(focus(), Qt::Key_Tab);
            stops << focus();
        }
        QCOMPARE(stops.last(), table);
        QCOMPARE(stops.mid(0, 4), (QWidgetList { player->playbackButton(), player->progressView(),
                                                 player->speedButton(), player->speakerButton() }));
        for (QWidget *stop : stops.mid(4, stops.size() - 5))
            QVERIFY2(!table->isAncestorOf(stop), qPrintable(stop->objectName()));
        // Shift+Tab goes back the same way.
        QTest::keyClick(focus(), Qt::Key_Backtab);
        QCOMPARE(focus(), stops.at(stops.size() - 2));
    }

    void readingTranscripts_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("shown"); // null: nothing, and "(null)" in the log
        QTest::addColumn<QString>("then");  // read again, or how the row is closed
        const QByteArray text = "Call me back.";
        QTest::newRow("text, read again") << text << QString(text) << "read again";
        QTest::newRow("not UTF-8, a tap on the row")
            << QByteArray("caf\xe9 au lait") << QString() << "tap";
        // Long enough to need breaking for display; the log gets it whole, on one line.
        QByteArray huge(256 * 1024, 'a');
        for (qsizetype i = 0; i < huge.size(); i += 9)
            huge[i] = ' ';
        QTest::newRow("256 kB on one line, Escape")
            << huge << QString::fromLatin1(huge) << "Escape";
        QTest::newRow("text, a tap on another row") << text << QString(text) << "another";
    }

    void readingTranscripts()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, shown);
        QFETCH(QString, then);
        m_screen->addRecording("TEL", "+15550001111", "16-Nov-2026-10-00-00", contents);
        m_screen->open();
        // Read on a closed row while another is open with its player: the row opens to read.
        m_screen->tapRow(1);
        QVERIFY(m_screen->waitForHeights({ 54, 108, 54, 54 }));
        VTCell *cell = m_screen->cell(0);
        const qint64 logStart = TestSupport::logSize();
        QTest::mouseClick(cell->readButton(), Qt::LeftButton);
        QVERIFY(m_screen->waitForHeights({ 108, 54, 54, 54 }));
        QTRY_VERIFY(cell->readerView()->isVisible());
        QVERIFY(!cell->textLabel()->isVisible());
        QVERIFY(!cell->hasPlayer());
        QTRY_VERIFY(!m_screen->cell(1)->hasPlayer());
        QCOMPARE(cell->readerText(), shown);
        // A transcript longer than the row scrolls, its scroll bar over the text.
        QVERIFY(contents.size() < 1000 || cell->readerView()->verticalScrollBar()->maximum() > 0);
        QCOMPARE(cell->readerView()->viewport()->width(), cell->readerView()->width());
        QVERIFY(cell->readerView()->document()->characterCount() > shown.size());
        const QString log = TestSupport::logLinesSince(logStart).join(u'\n') + u'\n';
        QVERIFY(log.contains("did set button selected 1 for button <Button"));
        QVERIFY(log.contains("DID GET TARGET CELL <VTCell"));
        QVERIFY(
            log.contains(" VantrelLog : CELL TEXT " + (shown.isNull() ? "(null)" : shown) + "\n"));

        if (then == "read again") // the row stays open, without a player
            QTest::mouseClick(cell->readButton(), Qt::LeftButton);
        else if (then == "Escape") // twice: the second finds no open row, and opens none
            for (int press = 0; press < 2; ++press)
                QTest::keyClick(m_screen->table(), Qt::Key_Escape);
        else
            m_screen->tapRow(then == "tap" ? 0 : 1);
        QVERIFY(m_screen->waitForHeights(then == "read again" ? QList<int> { 108, 54, 54, 54 }
                                         : then == "another"  ? QList<int> { 54, 108, 54, 54 }
                                                              : QList<int> { 54, 54, 54, 54 }));
        // The row shows its name and date again, not two lines of transcript.
        QTRY_VERIFY(cell->textLabel()->isVisible() && cell->detailTextLabel()->isVisible());
        QVERIFY(!cell->readerView()->isVisible());
        QVERIFY(!cell->readButton()->isSelected());
    }

    void dialing_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("answer"); // a button of the alert, or a key
        QTest::addColumn<QString>("url");    // empty: nothing is dialed
        QTest::addColumn<QString>("told");   // what the window says afterwards
        const auto row = [](const char *tag, const char *kind, const char *address,
                            const char *answer, const char *url, const char *told = "") {
            QTest::newRow(tag) << QString(kind) << QString(address) << QString(answer)
                               << QString(url) << QString(told);
        };
        row("telephone", "TEL", "+15559876543", "Dial", "tel://+15559876543");
        const char *handle = "maximilian.alexander.featherstonehaugh-worthington@example.com";
        row("handle longer than a line", "FT", handle, "Dial",
            qPrintable(QStringLiteral("facetime-audio://") + handle));
        row("FaceTime from a number", "FT", "+15552220199", "Dial", "tel://+15552220199");
        row("Enter dials", "TEL", "+15559876543", "Enter", "tel://+15559876543");
        row("Escape cancels", "TEL", "+15559876543", "Escape", "");
        const char *undialable = "This caller's address cannot be dialed.";
        row("space makes no URL", "TEL", "555 123", "Dial", "", undialable);
        row("quote makes no URL", "TEL", "555\"123", "Dial", "", undialable);
        row("no application places calls", "TEL", "+15559876543", "Dial", "",
            "No application on this device can place the call.");
    }

    void dialing()
    {
        QFETCH(QString, kind);
        QFETCH(QString, address);
        QFETCH(QString, answer);
        QFETCH(QString, url);
        QFETCH(QString, told);
        const bool noDialer =
            QTest::currentDataTag() == QLatin1String("no application places calls");
        if (noDialer) {
            // Nothing on the machine says it takes the schemes: neither the user nor the
            // system's packages (a phone's dialer may be installed).
            qputenv("XDG_DATA_HOME", m_dialer.filePath("nowhere").toLocal8Bit());
            qputenv("XDG_DATA_DIRS", m_dialer.filePath("nowhere").toLocal8Bit());
        }
        m_screen->addRecording(kind, address, "16-Nov-2026-10-00-00");
        m_screen->open();
        const qint64 logStart = TestSupport::logSize();
        // When nothing is to be dialed, Daniel (row 1) is dialed next: a dial handed on before his
        // would come to the dialer first.
        for (int row = 0; row < (url.isEmpty() && !noDialer ? 2 : 1); ++row) {
            QTest::mouseClick(m_screen->cell(row)->phoneButton(), Qt::LeftButton);
            QVERIFY(alert());
            QCOMPARE(alert()->title(), "Vantrel");
            const QString question = "Dial " + (row ? QString("+15551234567") : address) + "?";
            // Read exactly as shown, the address unbroken by hidden marks; it breaks across lines
            // to stay inside the panel, which stays inside the window.
            auto *message = alert()->findChild<QLabel *>("AlertMessage");
            QCOMPARE(QAccessible::queryAccessibleInterface(message)->text(QAccessible::Name),
                     question);
            QCOMPARE(message->text(), question);
            const QWidget *panel = alert()->findChild<QWidget *>("AlertPanel");
            QVERIFY(m_screen->window()->rect().contains(
                QRect(panel->mapTo(m_screen->window(), QPoint()), panel->size())));
            QVERIFY(message->height() >= message->heightForWidth(message->width()));
            if (!row && (answer == "Enter" || answer == "Escape"))
                QTest::keyClick(alert(), answer == "Enter" ? Qt::Key_Return : Qt::Key_Escape);
            else
                QTest::mouseClick(alert()->buttonForAction(row ? "Dial" : answer), Qt::LeftButton);
            if (!row && !told.isEmpty()) {
                // Said in the window, and why in the log.
                QTRY_VERIFY(alert() && alert()->message() == told);
                QTest::mouseClick(alert()->buttonForAction("Okay"), Qt::LeftButton);
                QVERIFY(TestSupport::logLinesSince(logStart).join('\n').contains("call back: "));
            }
            QTRY_VERIFY(!alert());
        }
        QTRY_COMPARE(dialed(), noDialer        ? QStringList()
                               : url.isEmpty() ? QStringList("tel://+15551234567")
                                               : QStringList(url));
        QVERIFY(!m_screen->list()->currentSelectedRowIndex()); // dialing selects nothing
    }

    // The dialer that Linux phones run (GNOME Calls, Phosh's), as Debian installs it: registered
    // for "tel" by its own desktop file, and with the stand-in modem its own tests use. The call
    // it places, as it lists it on the bus, is to the recording's number.
    void aPhonesOwnDialerCallsTheCaller()
    {
        if (QStandardPaths::findExecutable("gnome-calls").isEmpty() ||
            QStandardPaths::findExecutable("Xvfb").isEmpty())
            QSKIP("gnome-calls and Xvfb (packages gnome-calls, xvfb) are needed; scripts/setup.sh "
                  "installs them");
        qDBusRegisterMetaType<CallInterfaces>();
        qDBusRegisterMetaType<CallObjects>();
        // Only what the system's packages register: no stand-in.
        qputenv("XDG_DATA_HOME", m_dialer.filePath("nowhere").toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", m_dialer.filePath("nowhere").toLocal8Bit());
        QProcess xvfb;
        const QString display = TestSupport::startXServer(xvfb, QSize(720, 1440));
        QVERIFY(!display.isEmpty());
        qputenv("DISPLAY", display.toLocal8Bit());
        qputenv("GDK_BACKEND", "x11");
        qputenv("GSETTINGS_BACKEND", "memory");
        QProcess calls;
        calls.setStandardOutputFile(QProcess::nullDevice());
        calls.setStandardErrorFile(QProcess::nullDevice());
        calls.start("gnome-calls", { "--daemon", "--provider=dummy" });
        const auto stop = qScopeGuard([&] {
            calls.terminate();
            calls.waitForFinished();
            xvfb.terminate();
            xvfb.waitForFinished();
            qunsetenv("DISPLAY");
            qunsetenv("GDK_BACKEND");
        });
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        QTRY_VERIFY_WITH_TIMEOUT(bus->isServiceRegistered("org.gnome.Calls").value(), 20000);

        m_screen->addRecording("TEL", "+442079460958", "16-Nov-2026-10-00-00");
        m_screen->open();
        QTest::mouseClick(m_screen->cell(0)->phoneButton(), Qt::LeftButton);
        QVERIFY(alert());
        QTest::mouseClick(alert()->buttonForAction("Dial"), Qt::LeftButton);
        QTRY_VERIFY(!alert());
        const auto placed = [] {
            const QDBusReply<CallObjects> reply =
                QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
                    "org.gnome.Calls", "/org/gnome/Calls", "org.freedesktop.DBus.ObjectManager",
                    "GetManagedObjects"));
            QStringList numbers;
            for (const CallInterfaces &interfaces : reply.value())
                numbers << interfaces.value("org.gnome.Calls.Call").value("Id").toString();
            return numbers;
        };
        QTRY_COMPARE_WITH_TIMEOUT(placed(), QStringList("+442079460958"), 20000);
    }

    void rowsShowOnlyTheirOwnTranscripts_data()
    {
        QTest::addColumn<QString>("change"); // file commands in the Messages directory
        QTest::addColumn<int>("rows");
        QTest::addColumn<bool>("editing");
        const auto name = [](const char *address, const char *time, const char *suffix = ".caf") {
            return TestSupport::recordingName("TEL", address, time).replace(".caf", suffix);
        };
        const QString arrival = "write " + name("+15550002222", "20-Nov-2026-10-00-00");
        const QString secondsWords = name("+15557654321", "14-Nov-2026-08-45-30", ".txt");
        QTest::newRow("a recording arrives at the top") << arrival << 6 << false;
        QTest::newRow("a row in the middle is deleted")
            << "rm " + name("+15557654321", "14-Nov-2026-08-45-30") + ";rm " + secondsWords << 4
            << false;
        QTest::newRow("a transcript appears")
            << "write " + name("PRIVATE", "13-Nov-2026-11-20-03", ".txt") << 5 << false;
        QTest::newRow("the open transcript goes") << "rm " + secondsWords << 5 << false;
        QTest::newRow("a recording arrives in edit mode") << arrival << 6 << true;
    }

    // After any change of the list, each row on screen offers the transcript of its own recording
    // and nobody else's: its read button shows only when its recording has one, and what shows in
    // it, left open or opened afresh, is that file's text.
    void rowsShowOnlyTheirOwnTranscripts()
    {
        QFETCH(QString, change);
        QFETCH(int, rows);
        QFETCH(bool, editing);
        // Newest first: Daniel (transcript), +15557654321 (transcript), PRIVATE (none), and these.
        m_screen->addRecording("TEL", "+15550003333", "12-Nov-2026-09-00-00", "Words of 3333.");
        m_screen->addRecording("TEL", "+15550004444", "11-Nov-2026-09-00-00");
        m_screen->open();
        // The reader is left open on the second row, as a person reading it would leave it.
        QTest::mouseClick(m_screen->cell(1)->readButton(), Qt::LeftButton);
        QTRY_VERIFY(m_screen->cell(1)->readerView()->isVisible());

        const QString messages = m_screen->messages();
        QSignalSpy reloaded(m_screen->list(), &TableController::entriesReloaded);
        if (editing)
            m_screen->press("Edit");
        QVERIFY(TestSupport::run(QDir(messages), change, "Words of the change."));
        QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), rows);
        QTRY_VERIFY(!reloaded.isEmpty());

        // Each row as drawn, against the directory as it is on disk.
        QStringList recordings = QDir(messages).entryList({ "*.caf" });
        std::sort(recordings.begin(), recordings.end(), [](const QString &a, const QString &b) {
            return a.section("-_", 3) > b.section("-_", 3); // all on different days of one month
        });
        QCOMPARE(recordings.size(), rows);
        for (int row = 0; row < rows; ++row) {
            VTCell *cell = m_screen->cell(row);
            QVERIFY(cell);
            const QString address = recordings.at(row).section("-_", 2, 2);
            if (address != "+15551234567") // Daniel is named from the contacts
                QCOMPARE(cell->textLabel()->text(), address);
            QFile transcript(messages + u'/' + QString(recordings.at(row)).replace(".caf", ".txt"));
            const bool hasTranscript = transcript.open(QIODevice::ReadOnly);
            const QString words = QString::fromUtf8(transcript.readAll());
            QVERIFY2(cell->readButton()->isVisible() == hasTranscript, qPrintable(address));
            if (cell->readerView()->isVisible())
                QCOMPARE(cell->readerView()->toPlainText(), words);
            if (!hasTranscript || editing)
                continue;
            // Opened afresh, and closed again, the reader shows this row's own words.
            if (!cell->readerView()->isVisible()) {
                QTest::mouseClick(cell->readButton(), Qt::LeftButton);
                QTRY_VERIFY(cell->readerView()->isVisible());
                QCOMPARE(cell->readerView()->toPlainText(), words);
            }
            QTest::mouseClick(cell->readButton(), Qt::LeftButton);
            QTRY_VERIFY(!cell->readerView()->isVisible());
        }
    }

    void rowsReadThroughAccessibility()
    {
        m_screen->open();
        const auto accessible = &QAccessible::queryAccessibleInterface;
        QCOMPARE(accessible(m_screen->table())->role(), QAccessible::List);
        QAccessibleInterface *row = accessible(m_screen->cell(0));
        QCOMPARE(row->role(), QAccessible::ListItem);
        QCOMPARE(row->text(QAccessible::Name), "Daniel Reyes");
        QCOMPARE(row->text(QAccessible::Description),
                 "unheard, Nov 15 2026 - 22:10:07 - Telephony");
        QCOMPARE(accessible(m_screen->cell(0)->phoneButton())->text(QAccessible::Name),
                 "Call back Daniel Reyes");

        // Every control a user can reach says what it is.
        for (QAbstractButton *button : m_screen->window()->findChildren<QAbstractButton *>()) {
            if (!button->isVisible())
                continue;
            QVERIFY2(!accessible(button)->text(QAccessible::Name).isEmpty(),
                     button->metaObject()->className());
            QCOMPARE(accessible(button)->role(), QAccessible::Button);
        }

        // The row's own buttons are actions of the row, only those shown, and they act.
        QCOMPARE(
            accessible(m_screen->cell(2))->actionInterface()->actionNames().contains("Transcript"),
            false);
        row->actionInterface()->doAction("Transcript");
        QVERIFY(m_screen->waitForHeights({ 108, 54, 54 }));
        QTRY_VERIFY(m_screen->cell(0)->readerView()->isVisible());
        QCOMPARE(m_screen->cell(0)->readerView()->toPlainText(), "Hi, it's Daniel. Call me back.");
    }

    void settingsButton_data()
    {
        QTest::addColumn<bool>("settingsApplication");
        QTest::newRow("a settings application opens the pane") << true;
        QTest::newRow("none: the recording component is asked") << false;
    }

    void settingsButton()
    {
        QFETCH(bool, settingsApplication);
        // The stand-in dialer takes the settings scheme too, when told to.
        if (settingsApplication)
            QVERIFY(TestSupport::writeFile(
                m_dialer.filePath("config/mimeapps.list"),
                kHandlers + "x-scheme-handler/prefs=vantrel-test-dialer.desktop\n"));
        m_screen->open();
        QTest::mouseClick(m_screen->navigation()->navigationBar()->rightButton(), Qt::LeftButton);
        QTRY_COMPARE(dialed().size() + m_settingsRequests, 1); // one way, and only one
        QCOMPARE(dialed(),
                 settingsApplication ? QStringList { "prefs:root=Vantrel%20Plus" } : QStringList());
    }

public slots:
    void settingsRequested() { ++m_settingsRequests; }

private:
    AlertController *alert() const { return m_screen->alert(); }

    QStringList dialed() const
    {
        return QString::fromUtf8(TestSupport::readFile(m_dialer.filePath("dialed.txt")))
            .split(u'\n', Qt::SkipEmptyParts);
    }

    std::unique_ptr<ListScreen> m_screen;
    QTemporaryDir m_dialer;
    std::optional<QByteArray> m_systemData;
    int m_settingsRequests { 0 };
};

QTEST_MAIN(TestRows)
#include "tst_rows.moc"
