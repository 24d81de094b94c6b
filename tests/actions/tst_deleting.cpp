#include "ListScreen.h"
#include "TestSupport.h"
#include "actions/RecordingDeleter.h"
#include "toolkit/AlertController.h"
#include "toolkit/NavigationBar.h"
#include "toolkit/Toolbar.h"

#include <QApplication>
#include <QDir>
#include <QPushButton>
#include <QTest>

// Deleting recordings as a user does it, against real files; and the rule that decides which
// file a name may remove, without a screen.
class TestDeleting : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_screen = std::make_unique<ListScreen>();
        m_names.clear();
        for (int day = 19; day >= 15; --day)
            m_names << m_screen->addRecording("TEL", "+1555000" + QString::number(day * 11),
                                              QString("%1-Nov-2026-10-00-00").arg(day),
                                              day % 2 ? "transcript" : QByteArray());
    }

    void cleanup() { m_screen.reset(); }

    void removesOnlyWhatWasChosen_data()
    {
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QStringList>("left");
        QTest::addColumn<bool>("removed");
        const auto row = [](const char *tag, const QStringList &present, const QString &chosen,
                            const QStringList &left, bool removed) {
            QTest::newRow(tag) << present << chosen << left << removed;
        };
        const QString caller = "msg-_TEL-_x-_d";
        row("transcript goes too", { caller + ".caf", caller + ".txt" }, caller + ".caf", {}, true);
        row(".caf twice", { "a.caf.caf", "a.txt.txt", "a.caf.txt" }, "a.caf.caf", { "a.caf.txt" },
            true);
        const QString shell = "it's \"$HOME\"; rm *\n.caf";
        row("shell characters", { shell }, shell, {}, true);
        // The name as listed is the file; a decoded name that differs is some other file.
        row("escape decoded", { "a%41.caf" }, "a%41.caf", { "a%41.caf" }, false);
        row("escape names another recording", { "a b.caf", "a%20b.caf" }, "a%20b.caf",
            { "a b.caf", "a%20b.caf" }, false);
        row("bad escape", { "50%off.caf" }, "50%off.caf", { "50%off.caf" }, false);
        row("escape to bytes that are no text", {}, "%FF.caf", {}, false);
        row("escaped slash", {}, "..%2Fsecret.caf", {}, false);
        row("escaped parent", {}, "%2E%2E", {}, false);
        row("folder", { "dir.caf/inner" }, "dir.caf", { "dir.caf" }, false);
        row("link, not what it points to", {}, "link.caf", {}, true);
    }

    void removesOnlyWhatWasChosen()
    {
        QFETCH(QStringList, present);
        QFETCH(QString, chosen);
        QFETCH(QStringList, left);
        QFETCH(bool, removed);
        QTemporaryDir root;
        const QString messages = root.filePath("Messages");
        QVERIFY(QDir().mkpath(messages));
        for (const QString &name : present)
            QVERIFY(TestSupport::writeFile(messages + '/' + name));
        // What a decoded "../secret.caf" would reach, and a link from inside to it.
        QVERIFY(TestSupport::writeFile(root.filePath("secret.caf")));
        QVERIFY(QFile::link(root.filePath("secret.caf"), messages + "/link.caf"));
        if (chosen != "link.caf")
            left << "link.caf";

        Entry entry;
        entry.filename = chosen;
        const RecordingDeleter deleter(messages);
        const qint64 logStart = TestSupport::logSize();
        QCOMPARE(deleter.removePaths(deleter.pathsToRemove({ entry })), removed);
        QCOMPARE(TestSupport::logLinesSince(logStart).filter("delete error ").size(),
                 removed ? 0 : 1);
        left.sort();
        QCOMPARE(onDisk(messages), left);
        QVERIFY(QFile::exists(root.filePath("secret.caf")));
    }

    void trashDeletesSelection_data()
    {
        QTest::addColumn<QList<int>>("rows");
        QTest::addColumn<QString>("question");
        QTest::addColumn<bool>("stillEditing");
        QTest::addColumn<bool>("arriving"); // a recording arrives while the question is open
        QTest::newRow("one, without asking") << QList<int> { 1 } << QString() << true << false;
        QTest::newRow("three of five, one arriving")
            << QList<int> { 0, 2, 4 } << "Delete 3 voicemails?" << true << true;
        QTest::newRow("all") << QList<int> { 0, 1, 2, 3, 4 } << "Delete 5 voicemails?" << false
                             << false;
    }

    void trashDeletesSelection()
    {
        QFETCH(QList<int>, rows);
        QFETCH(QString, question);
        QFETCH(bool, stillEditing);
        QFETCH(bool, arriving);
        m_screen->open();
        selectRows(rows);
        press("Delete");
        QStringList expected = m_names;
        for (const int row : rows)
            expected.removeOne(m_names[row]);
        if (!question.isEmpty()) {
            QVERIFY(alert());
            QCOMPARE(alert()->title(), question);
            QCOMPARE(alert()->message(), "This action cannot be undone");
            if (arriving) {
                // It lands on top of the list, and stays: what goes is what was chosen.
                expected.prepend(
                    m_screen->addRecording("TEL", "+15559999", "21-Nov-2026-10-00-00"));
                QTRY_COMPARE(m_screen->table()->numberOfRowsInSection(0), 6);
            }
            QTest::mouseClick(alert()->buttonForAction("Delete"), Qt::LeftButton);
        }
        QTRY_COMPARE(onDisk().filter(".caf"), QStringList(expected.crbegin(), expected.crend()));
        QCOMPARE(m_screen->table()->numberOfRowsInSection(0), expected.size());
        for (int row = 0; row < expected.size(); ++row)
            QCOMPARE(m_screen->list()->entryList().at(row).filename, expected[row]);
        QCOMPARE(m_screen->navigation()->navigationBar()->leftButton()->text(),
                 stillEditing ? "Select All" : "Edit");
        if (stillEditing) {
            press("Done");
            QTRY_COMPARE(m_screen->navigation()->navigationBar()->leftButton()->text(), "Edit");
            QVERIFY(m_screen->navigation()->isToolbarHidden());
        }
    }

    void failedRemovalKeepsRows()
    {
        // A folder with a recording's name cannot be removed as a recording.
        const QString folder =
            TestSupport::recordingName("TEL", "+15550001", "20-Nov-2026-10-00-00");
        QVERIFY(QDir(m_screen->messages()).mkpath(folder + "/kept"));
        m_screen->open();
        selectRows({ 0, 1, 2 });
        press("Delete");
        QTest::mouseClick(alert()->buttonForAction("Delete"), Qt::LeftButton);

        QVERIFY(alert());
        QCOMPARE(alert()->title(), "Vantrel");
        QCOMPARE(
            alert()->message(),
            "The selected voicemails could not be deleted because some of them contain illegal "
            "characters in the filename. You will have to delete them manually from " +
                m_screen->messages() + " directory.");
        // What could go is gone already.
        QVERIFY(QFileInfo::exists(m_screen->messages() + '/' + folder + "/kept"));
        QVERIFY(!onDisk().contains(m_names[0]) && !onDisk().contains(m_names[1]));
        QTest::mouseClick(alert()->buttonForAction("Okay"), Qt::LeftButton);
        // The directory's change brings the list up to date: the folder and three others.
        QTRY_COMPARE(m_screen->table()->numberOfRowsInSection(0), 4);
    }

    // The keyboard's way to a row's Delete (a finger's swipe is met in the touch test).
    void deleteKeyOnARow()
    {
        m_screen->open();
        TableView *table = m_screen->table();
        table->setFocus();
        // An open row offers no Delete.
        m_screen->tapRow(0);
        QVERIFY(m_screen->waitForHeights({ 108, 54 }));
        QTest::keyClick(table, Qt::Key_Delete);
        QVERIFY(!table->deleteButton()->isVisible());
        m_screen->tapRow(0);
        QVERIFY(m_screen->waitForHeights({ 54, 54 }));

        // Escape puts Delete away, opening nothing; Return takes it.
        QTest::keyClick(table, Qt::Key_Delete);
        QTRY_VERIFY(table->deleteButton()->isVisible());
        QTest::keyClick(table, Qt::Key_Escape);
        QVERIFY(!table->deleteButton()->isVisible());
        QVERIFY(m_screen->waitForHeights({ 54, 54 }));
        QTest::keyClick(table, Qt::Key_Delete);
        QTRY_VERIFY(table->deleteButton()->isVisible());
        QTest::keyClick(table, Qt::Key_Return);
        QTRY_VERIFY(!onDisk().contains(m_names[0]));
        QVERIFY(!onDisk().contains(QString(m_names[0]).replace(".caf", ".txt")));
        QCOMPARE(m_screen->list()->entryList().at(0).filename, m_names[1]);
    }

    void deletingTakesADeliberateChoice_data()
    {
        QTest::addColumn<QList<int>>("keys"); // pressed where the keyboard's focus is
        QTest::addColumn<bool>("deletes");
        QTest::newRow("Enter") << QList<int> { Qt::Key_Return } << false;
        QTest::newRow("Space") << QList<int> { Qt::Key_Space } << false;
        QTest::newRow("Tab to Delete, Enter") << QList<int> { Qt::Key_Tab, Qt::Key_Return } << true;
        QTest::newRow("Shift+Tab to Delete, Space")
            << QList<int> { Qt::Key_Backtab, Qt::Key_Space } << true;
    }

    void deletingTakesADeliberateChoice()
    {
        QFETCH(QList<int>, keys);
        QFETCH(bool, deletes);
        m_screen->open();
        QVERIFY(QTest::qWaitForWindowActive(m_screen->window()));
        // Rows chosen with the keyboard, from the first row that has it at the start.
        TableView *table = m_screen->table();
        QCOMPARE(QApplication::focusWidget(), table);
        press("Edit");
        for (const Qt::Key key : { Qt::Key_Down, Qt::Key_Space, Qt::Key_Down, Qt::Key_Space })
            QTest::keyClick(table, key);
        press("Delete");
        QVERIFY(alert());
        QCOMPARE(QApplication::focusWidget(), alert()->buttonForAction("Cancel"));
        for (const int key : keys)
            QTest::keyClick(QApplication::focusWidget(), Qt::Key(key));
        QTRY_VERIFY(!alert());
        QCOMPARE(onDisk().filter(".caf").size(), deletes ? 3 : 5);
        if (!deletes) {
            QCOMPARE(m_screen->table()->indexPathsForSelectedRows().size(), 2);
            return;
        }
        // The keyboard goes on from the row that took the last deleted row's place.
        QCOMPARE(QApplication::focusWidget(), table);
        QCOMPARE(m_screen->list()->entryList().at(1).filename, m_names[3]);
        QTRY_VERIFY(m_screen->cell(1) && m_screen->cell(1)->isKeyboardFocused());
        for (int row = 0; row < 3; ++row)
            QCOMPARE(m_screen->cell(row)->isKeyboardFocused(), row == 1);
    }

private:
    QStringList onDisk(const QString &folder = {}) const
    {
        return QDir(folder.isNull() ? m_screen->messages() : folder)
            .entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    }
    AlertController *alert() const { return m_screen->alert(); }
    void press(const QString &name) { m_screen->press(name); }

    void selectRows(const QList<int> &rows)
    {
        press("Edit");
        QVERIFY(!m_screen->list()->trashButton()->isEnabled());
        NavigationBar *bar = m_screen->navigation()->navigationBar();
        const auto title = [bar] { return bar->leftButton()->text(); };
        // Every row: the way a user selects them all, after changing their mind once.
        if (rows.size() == m_names.size()) {
            press("Select All");
            QCOMPARE(title(), "Deselect All");
            press("Deselect All");
            QVERIFY(!m_screen->list()->shareButton()->isEnabled());
            press("Select All");
            QVERIFY(m_screen->list()->shareButton()->isEnabled());
            return;
        }
        // Rows tapped in edit mode are chosen, never opened.
        for (const int row : rows)
            m_screen->tapRow(row);
        QVERIFY(m_screen->waitForHeights(QList<int>(m_names.size(), 54)));
        QCOMPARE(title(), "Select All");
        // Each chosen row, and only those, shows a filled check mark at its left.
        for (int row = 0; row < m_names.size(); ++row)
            QCOMPARE(
                TestSupport::draws(m_screen->cell(row), QRect(12, 15, 26, 26),
                                   [](const QColor &c) { return c.blue() > 200 && c.red() < 80; }),
                rows.contains(row));
    }

    std::unique_ptr<ListScreen> m_screen;
    QStringList m_names; // newest first, as the rows show them
};

QTEST_MAIN(TestDeleting)
#include "tst_deleting.moc"
