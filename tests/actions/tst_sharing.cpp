#include "ListScreen.h"
#include "TestSupport.h"
#include "actions/RecordingFiles.h"
#include "actions/VantrelFileZipper.h"
#include "desktop/DocumentInteractionController.h"
#include "desktop/DocumentPreview.h"
#include "toolkit/AlertController.h"

#include <QDir>
#include <QFileDialog>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>
#include <sys/stat.h>

// Where the archive of the three recordings of each case goes.
const QString kArchive = "/tmp/Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip";

// Sharing recordings as a user does it: one straight to the share sheet, several packed into
// a dated archive under a progress alert; and what is left on disk afterwards.
class TestSharing : public QObject
{
    Q_OBJECT
private slots:
    // A mail program that reads its attachment only once it has started: the sheet is over
    // and the archive in /tmp gone by then.
    void initTestCase()
    {
        QVERIFY(TestSupport::writeProgram(
            m_home.filePath("bin/xdg-email"),
            QString("#!/bin/sh\nprintf '%s' \"$2\" > '%1'\n").arg(attached()).toUtf8()));
        qputenv("PATH", m_home.filePath("bin").toLocal8Bit() + ':' + qgetenv("PATH"));
        qputenv("XDG_CACHE_HOME", m_home.filePath("cache").toLocal8Bit());
    }

    void init()
    {
        VantrelFileZipper::zipExecutable = "/usr/bin/zip";
        QFile::remove(attached());
        m_screen = std::make_unique<ListScreen>();
        m_names = QStringList {
            m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07"),
            m_screen->addRecording("TEL", "PRIVATE", "14-Nov-2026-12-00-00"),
            // A caller's side that names itself as a shell would take apart: each name reaches
            // zip whole.
            m_screen->addRecording("TEL", "$HOME;rm *.caf \"q\" 'x'\nbreak",
                                   "14-Nov-2026-09-00-00"),
        };
    }

    void cleanup()
    {
        m_screen.reset();
        QFile::remove(kArchive);
        QDir(kArchive).removeRecursively();
    }

    // The dated name is met in the tests below; a recording without a date names its end by now.
    void undatedArchiveName()
    {
        const QDateTime now(QDate(2026, 11, 22), QTime(15, 4, 5), Qt::UTC);
        QCOMPARE(RecordingFiles::sharedArchivePath("Nov 14 2026 - 09:00:00", std::nullopt, now),
                 "/tmp/Vantrel-Nov 14 2026 - 09:00:00-2026-11-22 15:04:05 +0000.zip");
    }

    void zipsUnderProgressAlert_data()
    {
        QTest::addColumn<bool>("elsewhere");
        QTest::addColumn<bool>("quit"); // the program ends with a sheet's dialog up, else Done
        QTest::newRow("made in the runtime directory") << false << false;
        // From another file system the archive is copied to /tmp: the copy is as private.
        QTest::newRow("made on another file system, then quitting") << true << true;
    }

    void zipsUnderProgressAlert()
    {
        QFETCH(bool, elsewhere);
        QFETCH(bool, quit);
        const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
        const auto restore = qScopeGuard([&] { qputenv("XDG_RUNTIME_DIR", runtime); });
        QTemporaryDir folder("/dev/shm/vantrel-XXXXXX");
        struct stat inTmp = {}, inFolder = {};
        if (elsewhere &&
            (::stat("/tmp", &inTmp) != 0 || ::stat(qPrintable(folder.path()), &inFolder) != 0 ||
             inTmp.st_dev == inFolder.st_dev))
            QSKIP("no other file system here");
        if (elsewhere)
            qputenv("XDG_RUNTIME_DIR", folder.path().toLocal8Bit());
        ::umask(022); // as most users have it: zip alone would make an archive anybody can read
        // What a run cut short left: replaced, not added to.
        QVERIFY(TestSupport::writeFile(RecordingFiles::workingArchivePath(), "an older archive"));
        const qint64 logStart = TestSupport::logSize();
        shareRows({ 0, 1, 2 });
        QCOMPARE(alert()->title(), "Share 3 recordings?");
        QCOMPARE(alert()->message(), "Recordings will be compressed to a .zip file");
        QTest::mouseClick(alert()->buttonForAction("Zip and Share"), Qt::LeftButton);
        // Every text the progress alert takes, in order, also those replaced before a repaint.
        AlertController *progress = m_screen->list()->currentAlert();
        QStringList heard { progress->title(), progress->message() };
        connect(progress, &AlertController::titleChanged, this,
                [&](const QString &t) { heard << t; });
        connect(progress, &AlertController::messageChanged, this,
                [&](const QString &m) { heard << m; });

        // The preview of the dated archive, named last row first; edit mode is over.
        QTRY_VERIFY(m_screen->window()->findChild<DocumentPreview *>());
        QCOMPARE(heard,
                 QStringList({ "Compressing files: 0% (0/3)", "\nStarting...",
                               "\nCompression started...", "\nCurrent file:\n\n" + m_names[0],
                               "Compressing files: 33% (1/3)", "\nCurrent file:\n\n" + m_names[1],
                               "Compressing files: 66% (2/3)", "\nCurrent file:\n\n" + m_names[2],
                               "Compressing files: 100% (3/3)", "\nCompression finished." }));
        QTRY_VERIFY(!alert());
        QCOMPARE(TestSupport::fileMode(kArchive), 0600);
        // This process's lines: others may write to the same log meanwhile.
        const QStringList log = TestSupport::logLinesSince(logStart).filter(
            QString("[%1] ").arg(QCoreApplication::applicationPid()));
        QVERIFY2(log.filter(QRegularExpression("PD [1-9][0-9]* result 0$")).size() == 3 &&
                     log.filter("zip destination path " + RecordingFiles::workingArchivePath() +
                                ", path " + m_names[0])
                             .size() == 1,
                 qPrintable(log.join(u'\n')));
        QVERIFY(!QFile::exists(RecordingFiles::workingArchivePath()));
        QVERIFY(!m_screen->list()->isEditing());

        // Mailed: the preview still shows the archive, which goes with the preview.
        press("Share");
        press("Mail");
        QTRY_VERIFY(QFile::exists(attached()));
        QVERIFY(QFile::exists(kArchive));
        if (quit) {
            press("Share");
            press("Save a Copy…");
            QTRY_VERIFY(m_screen->window()->findChild<QFileDialog *>());
            m_screen.reset(); // as the program ends, on a closed window or a signal
            QVERIFY(!QFile::exists(kArchive));
        } else {
            press("Done");
            QTRY_VERIFY(!QFile::exists(kArchive));
            QCOMPARE(QDir(m_screen->messages()).entryList(QDir::Files).size(), 3);
        }
        QCOMPARE(TestSupport::zipMembers(QString::fromUtf8(TestSupport::readFile(attached()))),
                 QStringList(m_names).replaceInStrings("\n", "^J"));
    }

    void failedRunKeepsSelection()
    {
        VantrelFileZipper::zipExecutable = "/nonexistent/zip";
        shareRows({ 0, 2 });
        QTest::mouseClick(alert()->buttonForAction("Zip and Share"), Qt::LeftButton);
        QTRY_COMPARE(alert()->title(), "Compression failed!");
        QCOMPARE(alert()->message(), "\nCurrent file:\n\n" + m_names[2]);
        // Readable for two seconds, then gone; the selection waits for another try.
        QTRY_VERIFY_WITH_TIMEOUT(!alert(), 5000);
        QVERIFY(m_screen->list()->isEditing());
        QCOMPARE(m_screen->table()->indexPathsForSelectedRows().size(), 2);
        QVERIFY(!QFile::exists(RecordingFiles::workingArchivePath()));
    }

    void occupiedArchiveName()
    {
        // Something that cannot be replaced sits where the archive goes.
        QVERIFY(QDir().mkpath(kArchive + "/not yours"));
        shareRows({ 0, 1, 2 });
        QTest::mouseClick(alert()->buttonForAction("Zip and Share"), Qt::LeftButton);
        QTRY_COMPARE(alert() ? alert()->title() : QString(), "File preparation error.");
        QVERIFY(alert()->message().startsWith("An error occurred while accessing the zipped file"));
        QTest::mouseClick(alert()->buttonForAction("Okay"), Qt::LeftButton);
        QVERIFY(m_screen->window()->findChild<DocumentPreview *>());
        press("Done");
        QVERIFY(QFileInfo::exists(kArchive + "/not yours"));
    }

    void oneRecordingGoesToSheet()
    {
        // A Messages directory whose path holds ".zip": its recordings are still never removed.
        const QString messages = m_screen->root() + "/backup.zip.d/Messages";
        QVERIFY(QDir().mkpath(messages));
        QVERIFY(
            QFile::rename(m_screen->messages() + '/' + m_names[0], messages + '/' + m_names[0]));
        shareRows({ 0 }, messages);

        // Straight to the sheet, no question and no archive; edit mode is over.
        QVERIFY(alert());
        QVERIFY(alert()->title().contains(m_names[0]) || alert()->message().contains(m_names[0]));
        QVERIFY(!m_screen->list()->isEditing());
        press("Cancel");
        QTRY_VERIFY(!alert());
        QVERIFY(QFile::exists(messages + '/' + m_names[0]));
    }

private:
    AlertController *alert() const { return m_screen->alert(); }
    void press(const QString &name) { m_screen->press(name); }

    void shareRows(const QList<int> &rows, const QString &messages = {})
    {
        m_screen->open(messages);
        press("Edit");
        for (const int row : rows)
            m_screen->tapRow(row);
        press("Share");
    }

    QString attached() const { return m_home.filePath("attached"); }

    QTemporaryDir m_home;
    std::unique_ptr<ListScreen> m_screen;
    QStringList m_names;
};

QTEST_MAIN(TestSharing)
#include "tst_sharing.moc"
