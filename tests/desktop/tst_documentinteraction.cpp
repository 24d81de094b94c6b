#include "TestSupport.h"
#include "desktop/DocumentInteractionController.h"
#include "desktop/DocumentPreview.h"
#include "toolkit/AlertController.h"

#include <QClipboard>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDir>
#include <QFileDialog>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMimeData>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>

namespace {
using Controller = DocumentInteractionController;
const QString kPortal = "org.freedesktop.portal.Desktop";

// How a portal answers: a Response signal on the request object, once the call has returned.
QDBusObjectPath respond(const QVariantMap &options, uint response, const QVariantMap &results)
{
    const QString request = "/org/freedesktop/portal/desktop/request/" +
                            QDBusConnection::sessionBus().baseService().mid(1).replace('.', '_') +
                            "/" + options.value("handle_token").toString();
    QMetaObject::invokeMethod(
        qApp,
        [request, response, results] {
            QDBusMessage signal =
                QDBusMessage::createSignal(request, "org.freedesktop.portal.Request", "Response");
            QDBusConnection::sessionBus().send(signal << response << results);
        },
        Qt::QueuedConnection);
    return QDBusObjectPath(request);
}
} // namespace

// The portal's file chooser, answered as a user choosing a place in it would.
class FileChooserPortal : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.FileChooser")
public:
    explicit FileChooserPortal(QObject *parent) : QDBusAbstractAdaptor(parent) {}
    int answer = -1;
    QString chosen;    // where the user saves
    QString suggested; // the name the chooser offered

public slots:
    QDBusObjectPath SaveFile(const QString &, const QString &, const QVariantMap &options)
    {
        suggested = options.value("current_name").toString();
        return respond(options, uint(answer),
                       { { "uris", QStringList { QUrl::fromLocalFile(chosen).toString() } } });
    }
};

// The share sheet as a user meets it: what each action leaves on the clipboard, on disk and in
// the applications it starts, and the end events the list hears. The test also stands in for
// the desktop portal's chooser.
class TestDocumentInteraction : public QObject, public DocumentInteractionControllerDelegate
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.OpenURI")
public:
    QWidget *documentInteractionControllerViewControllerForPreview(Controller *) override
    {
        return m_window.get();
    }
    void documentInteractionControllerDidEndPreview(Controller *) override { record("preview"); }
    void documentInteractionControllerDidEndSendingToApplication(Controller *,
                                                                 const QString &app) override
    {
        record("sent to " + app);
    }
    void documentInteractionControllerDidDismissOptionsMenu(Controller *) override
    {
        record("options");
    }
    void documentInteractionControllerDidDismissOpenInMenu(Controller *) override
    {
        record("open-in");
    }

public slots:
    // The portal's OpenFile, answered as a user choosing in its chooser would; the file is
    // written down only when the user is asked for the application, not given the default.
    QDBusObjectPath OpenFile(const QString &, const QDBusUnixFileDescriptor &fd,
                             const QVariantMap &options)
    {
        const QString file = "/proc/self/fd/" + QString::number(fd.fileDescriptor());
        m_portal.opened = options.value("ask").toBool() ? QFile::symLinkTarget(file) : "unasked";
        return respond(options, uint(m_portal.answer), {});
    }

private slots:
    // Fake applications, each writing its arguments (NUL-separated) to a file beside it:
    // xdg-email first on PATH, two handlers of zip and cpio archives, one the default by
    // mimeapps.list, and one of tar archives that cannot start. GIO reads the environment once,
    // so every case lives in this one set of folders, told apart by file type.
    void initTestCase()
    {
        const QString script = "#!/bin/sh\nprintf '%s\\0' \"$@\" > \"$0.args\"\n";
        const QString entry = "[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n"
                              "MimeType=%3;\n";
        const QString archives = "application/zip;application/x-cpio";
        const QString bin = m_home.filePath("bin/");
        const QList<std::pair<QString, QString>> files = {
            { "bin/xdg-email", script },
            { "bin/archiver", script },
            { "bin/viewer", script },
            // Found and executable, but it cannot start.
            { "bin/broken", "#!/nonexistent/interpreter\n" },
            { "data/applications/vantrel-test-broken.desktop",
              entry.arg("Broken Viewer", bin + "broken %f", "application/x-tar") },
            { "data/applications/vantrel-test-archiver.desktop",
              entry.arg("Test Archiver", bin + "archiver %U", archives) },
            { "data/applications/vantrel-test-viewer.desktop",
              entry.arg("Other Viewer", '"' + bin + "viewer\" --view=%f", archives) },
            // A terminal program is never offered: there is no terminal to run it in.
            { "data/applications/vantrel-test-shell.desktop",
              entry.arg("Terminal Viewer", bin + "viewer %f", archives) + "Terminal=true\n" },
            // The index of types that update-desktop-database keeps, from which GIO learns them.
            { "data/applications/mimeinfo.cache",
              "[MIME Cache]\napplication/zip=vantrel-test-shell.desktop;"
              "vantrel-test-archiver.desktop;vantrel-test-viewer.desktop;\n"
              "application/x-cpio=vantrel-test-archiver.desktop;vantrel-test-viewer.desktop;\n"
              "application/x-tar=vantrel-test-broken.desktop;\n" },
            { "config/mimeapps.list",
              "[Default Applications]\napplication/zip=vantrel-test-archiver.desktop\n"
              "application/x-cpio=vantrel-test-archiver.desktop\n" },
            // What a desktop environment sets for its own sessions only.
            { "config/vantrel-mimeapps.list",
              "[Default Applications]\napplication/x-cpio=vantrel-test-viewer.desktop\n" }
        };
        for (const auto &[path, text] : files)
            QVERIFY(TestSupport::writeProgram(m_home.filePath(path), text.toUtf8()));
        qputenv("PATH", m_home.filePath("bin").toLocal8Bit() + ":" + qgetenv("PATH"));
        qputenv("XDG_DATA_HOME", m_home.filePath("data").toLocal8Bit());
        // The machine's own applications take no part; its MIME database does.
        QVERIFY(QDir().mkpath(m_home.filePath("empty")));
        QVERIFY(QFile::link("/usr/share/mime", m_home.filePath("empty/mime")));
        qputenv("XDG_DATA_DIRS", m_home.filePath("empty").toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", m_home.filePath("config").toLocal8Bit());
        qputenv("XDG_CURRENT_DESKTOP", "X-Other:Vantrel");
        // xdg-open consults desktop files only inside a graphical session.
        qputenv("WAYLAND_DISPLAY", "vantrel-test");
        m_chooser = new FileChooserPortal(this);
        QVERIFY(QDBusConnection::sessionBus().registerObject(
            "/org/freedesktop/portal/desktop", this,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAdaptors));
    }

    void init()
    {
        m_files = std::make_unique<QTemporaryDir>();
        for (const QString &args : QDir(m_home.filePath("bin")).entryList({ "*.args" }))
            QFile::remove(m_home.filePath("bin/" + args));
        m_window = std::make_unique<QWidget>();
        m_window->resize(375, 667);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_events.clear();
        m_releaseAt.clear();
        m_portal = {};
        m_chooser->answer = -1;
        m_chooser->suggested.clear();
    }

    void cleanup()
    {
        QDBusConnection::sessionBus().unregisterService(kPortal);
        m_controller.reset();
        m_window.reset();
    }

    void actions_data()
    {
        QTest::addColumn<QString>("name");     // null: no such file
        QTest::addColumn<QStringList>("taps"); // a button, "Escape", "beside" the sheet, "dismiss"
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QStringList>("started"); // program, then its arguments; %1: the path
        QTest::addColumn<int>("portal");          // the chooser's answer; -1: no portal
        QTest::addColumn<QString>("releaseAt");
        QTest::addColumn<QString>("said");   // by a menu on the way; %1: the file's name
        QTest::addColumn<QString>("logged"); // %1: the file's path
        const auto row = [](const char *tag, const QString &name, const QStringList &taps,
                            const QStringList &events, const QStringList &started = {},
                            int portal = -1, const QString &releaseAt = {},
                            const QString &said = {}, const QString &logged = {}) {
            QTest::newRow(tag) << name << taps << events << started << portal << releaseAt << said
                               << logged;
        };
        const QString archive = "Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip";
        const QString awkward = "Jane \"JD\" O'Neil – café\n2 recordings.zip";
        const QStringList both { "open-in", "options" };
        row("copy", awkward, { "Copy" }, { "options" });
        row("mail", awkward, { "Mail" }, { "options" }, { "xdg-email", "--attach", "%1" });
        row("mail, missing", {}, { "Mail" }, { "options" });
        row("open, the desktop's own default", "Nov 15 2026 - 22:10:07.cpio", { "Open" },
            { "sent to vantrel-test-viewer.desktop", "options" }, { "viewer", "--view=%1" });
        row("open, released when sent", archive, { "Open" },
            { "sent to vantrel-test-archiver.desktop" }, { "archiver", "%1" }, -1, "sent");
        row("open, missing", {}, { "Open", "Okay" }, { "options" });
        // Without a portal on the bus, Open With… lists the applications for the type itself.
        row("open with", awkward, { "Open With…", "Other Viewer" },
            QStringList { "sent to vantrel-test-viewer.desktop" } + both,
            { "viewer", "--view=%1" });
        row("open with, Escape, released", archive, { "Open With…", "Escape" }, { "open-in" }, {},
            -1, "open-in");
        row("portal, chosen", archive, { "Open With…" }, QStringList { "sent to " } + both, {}, 0);
        row("portal, cancelled", archive, { "Open With…" }, both, {}, 1);
        row("tap beside", archive, { "beside" }, { "options" });
        row("dismissed by the program", archive, { "dismiss" }, { "options" });
        row("Escape, released", archive, { "Escape" }, { "options" }, {}, -1, "options");

        // Whatever keeps a file from being opened, the window says so and the log says why.
        const QString base = "Nov 15 2026 - 22:10:07.";
        const QString nothing = "No application on this device could open “%1”.";
        const QString none = "no application opens %1 (application/x-7z-compressed)";
        const QString broken = "vantrel-test-broken.desktop could not be started for %1";
        row("open, nothing for the type", base + "7z", { "Open", "Okay" }, { "options" }, {}, -1,
            {}, nothing, none);
        row("open, the default cannot start", base + "tar", { "Open", "Okay" }, { "options" }, {},
            -1, {}, nothing, broken);
        row("open with, the chosen one cannot start", base + "tar",
            { "Open With…", "Broken Viewer", "Okay" }, both, {}, -1, {}, nothing, broken);
        row("portal opens nothing", base + "zip", { "Open With…", "Okay" }, both, {}, 2, {},
            nothing, "the desktop portal opened %1 with no application (2)");
        row("open with, nothing for the type", base + "7z", { "Open With…", "Cancel" }, both, {},
            -1, {}, "No application here opens “%1”.", none);
    }

    void actions()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, taps);
        QFETCH(QStringList, events);
        QFETCH(QStringList, started);
        QFETCH(int, portal);
        QFETCH(QString, releaseAt);
        QFETCH(QString, said);
        QFETCH(QString, logged);
        m_portal.answer = portal;
        QVERIFY(portal < 0 || QDBusConnection::sessionBus().registerService(kPortal));
        const QString path = name.isNull()    ? file("gone.zip", {})
                             : said.isEmpty() ? file(name)
                                              : file(name, "no magic here");
        m_releaseAt = releaseAt;
        const qint64 logStart = TestSupport::logSize();
        showMenu(path);
        walk(taps.mid(0, taps.size() - 1));
        // The menu before the last tap.
        QTRY_VERIFY(m_controller->currentMenu());
        AlertController *menu = m_controller->currentMenu();
        if (!said.isEmpty()) {
            QCOMPARE(menu->message(), said.arg(QFileInfo(path).fileName()));
            QVERIFY(m_events.isEmpty()); // the menus end once it has been read
        } else if (menu->title() == "Open With") {
            // The user's default first, no terminal program.
            QStringList titles;
            for (const AlertAction &action : menu->actions())
                titles << action.title();
            QCOMPARE(titles, QStringList({ "Test Archiver", "Other Viewer", "Cancel" }));
        }
        walk({ taps.last() });
        endsOnce(events);
        QVERIFY(logged.isEmpty() ||
                TestSupport::logLinesSince(logStart).join('\n').contains(logged.arg(path)));
        QCOMPARE(!m_controller, !releaseAt.isEmpty());

        // The path reaches a program as one argument, however many blanks and quotes it holds.
        started.replaceInStrings("%1", path);
        const QString args = m_home.filePath("bin/" + started.value(0) + ".args");
        if (!started.isEmpty())
            QTRY_COMPARE(
                QString::fromUtf8(TestSupport::readFile(args)).split(QChar(0), Qt::SkipEmptyParts),
                started.mid(1));
        QCOMPARE(QDir(m_home.filePath("bin")).entryList({ "*.args" }).size(),
                 started.isEmpty() ? 0 : 1);
        QCOMPARE(m_portal.opened, portal < 0 ? QString() : path);
        if (taps == QStringList { "Copy" }) { // as file managers put a copied file
            const QMimeData *copied = QGuiApplication::clipboard()->mimeData();
            const QByteArray uri = QUrl::fromLocalFile(path).toEncoded();
            QCOMPARE(copied->urls(), QList<QUrl> { QUrl::fromLocalFile(path) });
            QCOMPARE(copied->text(), QString::fromUtf8(uri));
            QCOMPARE(copied->data("x-special/gnome-copied-files"), "copy\n" + uri);
        }
    }

    void saveCopy_data()
    {
        QTest::addColumn<int>("chooser");      // the portal chooser's answer; -1: no portal
        QTest::addColumn<QByteArray>("older"); // what is at the destination first; null: nothing
        QTest::addColumn<QString>("answer"); // to the question whether to replace; null: not asked
        QTest::addColumn<QByteArray>("saved");
        const auto row = [](const char *tag, int chooser, const QByteArray &older,
                            const QString &answer, const QByteArray &saved) {
            QTest::newRow(tag) << chooser << older << answer << saved;
        };
        row("new file", -1, {}, {}, "recording");
        row("existing, kept", -1, "older", "Cancel", "older");
        row("existing, replaced", -1, "older", "Replace", "recording");
        // The desktop's chooser asks about replacing itself.
        row("portal, replacing", 0, "older", {}, "recording");
        row("portal, cancelled", 1, "older", {}, "older");
    }

    void saveCopy()
    {
        QFETCH(int, chooser);
        QFETCH(QByteArray, older);
        QFETCH(QString, answer);
        QFETCH(QByteArray, saved);
        QVERIFY(QDir(m_files->path()).mkdir("saved"));
        const QString destination = file("saved/Daniel's copy.caf", older);
        m_chooser->answer = chooser;
        m_chooser->chosen = destination;
        QVERIFY(chooser < 0 || QDBusConnection::sessionBus().registerService(kPortal));
        m_window->resize(360, 640); // as narrow as the program allows
        showMenu(file("Nov 15 2026 - 22:10:07.caf", "recording"));
        QTest::mouseClick(button("Save a Copy…"), Qt::LeftButton);
        if (chooser < 0) {
            // Once it is clear that no portal answers: the file dialog, inside the window and
            // dark as the window is.
            QTRY_VERIFY(m_window->findChild<QFileDialog *>());
            auto *dialog = m_window->findChild<QFileDialog *>();
            QVERIFY(dialog->isVisible() && !dialog->isWindow());
            QCOMPARE(dialog->geometry(), m_window->rect());
            const QImage shot = dialog->grab().toImage();
            QVERIFY2(qGray(shot.pixel(shot.width() / 2, shot.height() - 4)) < 64, "a light dialog");
            auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
            edit->setText(destination); // pasted
            QTest::keyClick(edit, Qt::Key_Return);
        }
        if (!answer.isNull()) {
            QTRY_VERIFY(button("Replace"));
            QVERIFY(m_events.isEmpty());
            QTest::mouseClick(button(answer), Qt::LeftButton);
        }
        endsOnce({ "options" });
        QCOMPARE(m_chooser->suggested, chooser < 0 ? QString() : "Nov 15 2026 - 22:10:07.caf");
        QTRY_VERIFY(!m_window->findChild<QFileDialog *>());
        QCOMPARE(TestSupport::readFile(destination), saved);
        QCOMPARE(QDir(m_files->filePath("saved")).entryList(QDir::Files),
                 QStringList { "Daniel's copy.caf" });
    }

    // A preview shows what the file holds, never a way to unpack it, and stays up through any
    // number of actions: its Share opens the sheet again each time, every action works, and
    // each menu's end is reported once, the preview's at Done or Escape.
    void preview_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("shown"); // %1: the file's path
        QTest::addColumn<QStringList>("taps");
        QTest::addColumn<QStringList>("events");
        const QString archive = "Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip";
        // Made by zip, as shared archives are, with a name that is not ASCII.
        const QStringList listing { "3 items", "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
                                    "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.txt",
                                    "msg-_FT-_søren.öberg@example.dk-_02-Nov-2026-18-30-12.caf" };
        const auto cancel = [](const char *end) { return QStringList { "Share", "Cancel", end }; };
        const QStringList once { "options", "preview" };
        QTest::newRow("recording") << "Daniel.caf" << QStringList { "Daniel.caf", "Length: 1:05" }
                                   << cancel("Escape") << once;
        QTest::newRow("missing") << "gone.caf" << QStringList { "The file could not be read: %1" }
                                 << cancel("Done") << once;
        QTest::newRow("damaged archive")
            << "damaged.zip"
            << QStringList { "The archive could not be read: Not a zip archive", "%1" }
            << cancel("Done") << once;
        QTest::newRow("Save a Copy…, Escape in the dialog, then Copy")
            << archive << listing
            << QStringList { "Share", "Save a Copy…", "Escape", "Share", "Copy", "Done" }
            << QStringList { "options", "options", "preview" };
    }

    void preview()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, shown);
        QFETCH(QStringList, taps);
        QFETCH(QStringList, events);
        QGuiApplication::clipboard()->clear();
        const QString path = m_files->filePath(name);
        if (name == "damaged.zip") {
            QVERIFY(TestSupport::writeFile(path, "PK but no archive"));
        } else if (name.endsWith(".zip")) {
            QDir members(m_files->filePath("members"));
            for (const QString &member : shown.mid(1))
                QVERIFY(TestSupport::writeFile(members.filePath(member)));
            QProcess zip;
            zip.setWorkingDirectory(members.path());
            zip.start("/usr/bin/zip", QStringList { "-q", path } + shown.mid(1));
            QVERIFY(zip.waitForFinished() && zip.exitCode() == 0);
        } else if (name == "Daniel.caf") { // as phones record: Core Audio Format, 65 seconds
            QVERIFY(TestSupport::ffmpeg({ "-f", "lavfi", "-i", "anullsrc=r=8000:cl=mono", "-t",
                                          "65", "-c:a", "pcm_s16le", "-f", "caf", path }));
        }
        m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
        m_controller->setDelegate(this);
        m_controller->setHandsOverCopy(true);
        QVERIFY(m_controller->presentPreviewAnimated(true));
        DocumentPreview *preview = m_controller->preview();
        QVERIFY(preview->isVisible());
        QCOMPARE(preview->geometry(), m_window->rect());
        QTRY_COMPARE(preview->lines(), shown.replaceInStrings("%1", path));
        walk(taps);
        endsOnce(events);
        QTRY_VERIFY(!m_window->findChild<DocumentPreview *>());
        QCOMPARE(QFile::exists(path), name != "gone.caf");

        // What was copied is a file that stays, however the sheet ended: a copy of the archive
        // that only its owner can read.
        const QMimeData *pasted = QGuiApplication::clipboard()->mimeData();
        const QList<QUrl> urls = pasted ? pasted->urls() : QList<QUrl>();
        QCOMPARE(urls.size(), taps.count("Copy"));
        if (!urls.isEmpty()) {
            const QString handedOver = urls.first().toLocalFile();
            QVERIFY(handedOver != path);
            m_controller.reset();
            QCOMPARE(TestSupport::readFile(handedOver), TestSupport::readFile(path));
            QCOMPARE(TestSupport::fileMode(handedOver), 0600);
        }
    }

private:
    // Taps as a user makes them, each once what it lands on is there: a button of the sheet in
    // front by its title, the preview's "Share" and "Done", "Escape" on the file dialog, the
    // sheet or the preview, whichever is in front, "beside" the sheet, or "dismiss" by the
    // program.
    void walk(const QStringList &taps)
    {
        qsizetype shares = 0;
        QString previous;
        for (const QString &tap : taps) {
            DocumentPreview *preview = m_controller->preview();
            if (tap == "Share") {
                // Once the menu of the Share before has ended.
                QTRY_COMPARE(m_events.count("options"), shares);
                ++shares;
                QTest::mouseClick(preview->shareButton(), Qt::LeftButton);
                QVERIFY(m_controller->currentMenu());
                // Never a way to unpack, and every control says what it is.
                const QRegularExpression unpack("extract|unpack|unzip|contents",
                                                QRegularExpression::CaseInsensitiveOption);
                for (QAbstractButton *control : m_window->findChildren<QAbstractButton *>()) {
                    QVERIFY2(!control->text().contains(unpack), qPrintable(control->text()));
                    QVERIFY(!control->isVisible() || !control->accessibleName().isEmpty());
                }
            } else if (tap == "Done") {
                QTest::mouseClick(preview->doneButton(), Qt::LeftButton);
            } else if (tap == "dismiss") {
                m_controller->dismissMenuAnimated(true);
            } else if (tap == "Escape" || tap == "beside") {
                // In the file dialog that Save a Copy… opens once no portal has answered.
                if (previous == "Save a Copy…")
                    QTRY_VERIFY(m_window->findChild<QFileDialog *>());
                QTRY_VERIFY(preview || m_controller->currentMenu());
                QWidget *dialog = m_window->findChild<QFileDialog *>();
                QWidget *menu = m_controller->currentMenu();
                if (tap == "beside")
                    QTest::mouseClick(menu, Qt::LeftButton, {}, QPoint(180, 20));
                else
                    QTest::keyClick(dialog ? dialog : menu ? menu : preview, Qt::Key_Escape);
            } else {
                QTRY_VERIFY(button(tap));
                QTest::mouseClick(button(tap), Qt::LeftButton);
            }
            previous = tap;
        }
    }
    // Each menu's end, and the preview's, is reported once: not later, nor when the program
    // dismisses what is gone.
    void endsOnce(const QStringList &events)
    {
        QTRY_COMPARE(m_events, events);
        QVERIFY(!m_controller || !m_controller->isShowing());
        QCoreApplication::processEvents();
        if (m_controller) {
            m_controller->dismissMenuAnimated(true);
            m_controller->dismissPreviewAnimated(true);
        }
        QCOMPARE(m_events, events);
    }
    // Writes down every end event, and releases the controller at the one it is told to.
    void record(const QString &event)
    {
        m_events << event;
        if (!m_releaseAt.isEmpty() && event.startsWith(m_releaseAt))
            m_controller.reset();
    }
    // An empty zip archive unless told otherwise; null contents: no file.
    QString file(const QString &name,
                 const QByteArray &contents = QByteArray("PK\x05\x06", 4) + QByteArray(18, 0))
    {
        const QString path = m_files->filePath(name);
        if (!contents.isNull())
            TestSupport::writeFile(path, contents);
        return path;
    }
    void showMenu(const QString &path)
    {
        m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
        m_controller->setDelegate(this);
        QVERIFY(m_controller->presentOptionsMenuFromRect({ 5, 617, 40, 40 }, m_window.get(), true));
    }
    QPushButton *button(const QString &title) const
    {
        AlertController *menu = m_controller ? m_controller->currentMenu() : nullptr;
        return menu ? menu->buttonForAction(title) : nullptr;
    }

    QTemporaryDir m_home;
    std::unique_ptr<QTemporaryDir> m_files;
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<Controller> m_controller;
    QString m_releaseAt;
    QStringList m_events;
    FileChooserPortal *m_chooser { nullptr };
    struct
    {
        int answer = -1;
        QString opened;
    } m_portal;
};

QTEST_MAIN(TestDocumentInteraction)
#include "tst_documentinteraction.moc"
