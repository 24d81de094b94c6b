#include "TestSupport.h"
#include "platform/AlertController.h"
#include "platform/DocumentInteractionController.h"
#include "platform/DocumentPreview.h"

#include <QClipboard>
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

// Writes down every end event, and releases the controller at the one it is told to.
class Recorder : public DocumentInteractionControllerDelegate
{
public:
    QWidget *documentInteractionControllerViewControllerForPreview(Controller *) override
    {
        return over;
    }
    void documentInteractionControllerDidEndPreview(Controller *) override
    {
        record("preview ended");
    }
    void documentInteractionControllerDidEndSendingToApplication(Controller *,
                                                                 const QString &app) override
    {
        record("sent to " + app);
    }
    void documentInteractionControllerDidDismissOptionsMenu(Controller *) override
    {
        record("options dismissed");
    }
    void documentInteractionControllerDidDismissOpenInMenu(Controller *) override
    {
        record("open-in dismissed");
    }
    void record(const QString &event)
    {
        events << event;
        if (!releaseAt.isEmpty() && event.startsWith(releaseAt))
            owner->reset();
    }

    QWidget *over = nullptr;
    std::unique_ptr<Controller> *owner = nullptr;
    QString releaseAt;
    QStringList events;
};

// Stands in for the desktop portal: answers OpenFile as a user choosing in its chooser would.
class FakePortal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.OpenURI")
public:
    uint response = 0;
    QString openedPath;
    QVariantMap options;
public slots:
    QDBusObjectPath OpenFile(const QString &, const QDBusUnixFileDescriptor &fd,
                             const QVariantMap &options)
    {
        openedPath =
            QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(fd.fileDescriptor()));
        this->options = options;
        const QDBusObjectPath request(
            "/org/freedesktop/portal/desktop/request/" +
            QDBusConnection::sessionBus().baseService().mid(1).replace('.', '_') + "/" +
            options.value("handle_token").toString());
        QMetaObject::invokeMethod(
            this,
            [this, request] {
                QDBusMessage signal = QDBusMessage::createSignal(
                    request.path(), "org.freedesktop.portal.Request", "Response");
                signal << response << QVariantMap();
                QDBusConnection::sessionBus().send(signal);
            },
            Qt::QueuedConnection);
        return request;
    }
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace

// The share sheet as a user meets it: what each action leaves on the clipboard, on disk and in
// the applications it starts, and the end events the list hears.
class TestDocumentInteraction : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void copyAndMail_data();
    void copyAndMail();
    void opening_data();
    void opening();
    void openWithPortal_data();
    void openWithPortal();
    void closingReportsOnce_data();
    void closingReportsOnce();
    void saveCopy_data();
    void saveCopy();
    void preview_data();
    void preview();

private:
    void showMenu();
    QPushButton *button(const QString &title) const;
    QStringList arguments(const QString &file) const;
    // An empty zip archive unless told otherwise; null contents: no file.
    QString file(const QString &name, const QByteArray &contents = QByteArray("PK\x05\x06", 4) +
                                                                   QByteArray(18, 0)) const;

    QTemporaryDir m_home;
    std::unique_ptr<QTemporaryDir> m_files;
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<Controller> m_controller;
    Recorder m_recorder;
};

// Fake applications, each writing its arguments (NUL-separated) to a file: xdg-email first on
// PATH, and two handlers of zip archives, one of them the default through mimeapps.list.
void TestDocumentInteraction::initTestCase()
{
    const auto script = [&](const QString &name) {
        return "#!/bin/sh\nprintf '%s\\0' \"$@\" > " + m_home.filePath(name + ".args") + "\n";
    };
    const auto application = [&](const QString &name, const QString &exec) {
        return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + exec +
               "\nMimeType=application/zip;\n";
    };
    const QList<std::pair<QString, QString>> files = {
        { "bin/xdg-email", script("mail") },
        { "bin/archiver", script("archiver") },
        { "bin/viewer", script("viewer") },
        { "data/applications/vantrel-test-archiver.desktop",
          application("Test Archiver", m_home.filePath("bin/archiver") + " %U") },
        { "data/applications/vantrel-test-viewer.desktop",
          application("Other Viewer", "\"" + m_home.filePath("bin/viewer") + "\" --view=%f") },
        { "config/mimeapps.list",
          "[Default Applications]\napplication/zip=vantrel-test-archiver.desktop\n" },
    };
    for (const auto &[path, text] : files) {
        QVERIFY(QDir().mkpath(QFileInfo(m_home.filePath(path)).path()));
        QVERIFY(TestSupport::writeFile(m_home.filePath(path), text.toUtf8()));
        QVERIFY(QFile::setPermissions(m_home.filePath(path), QFile::ReadOwner | QFile::ExeOwner));
    }
    qputenv("PATH", m_home.filePath("bin").toLocal8Bit() + ":" + qgetenv("PATH"));
    qputenv("XDG_DATA_HOME", m_home.filePath("data").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", m_home.filePath("config").toLocal8Bit());
    // xdg-open consults desktop files only inside a graphical session.
    qputenv("WAYLAND_DISPLAY", "vantrel-test");
}

void TestDocumentInteraction::init()
{
    m_files = std::make_unique<QTemporaryDir>();
    for (const char *name : { "mail", "archiver", "viewer" })
        QFile::remove(m_home.filePath(QString(name) + ".args"));
    m_window = std::make_unique<QWidget>();
    m_window->resize(375, 667);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_recorder = Recorder();
    m_recorder.over = m_window.get();
    m_recorder.owner = &m_controller;
}

void TestDocumentInteraction::cleanup()
{
    m_controller.reset();
    m_window.reset();
}

QString TestDocumentInteraction::file(const QString &name, const QByteArray &contents) const
{
    const QString path = m_files->filePath(name);
    if (!contents.isNull())
        TestSupport::writeFile(path, contents);
    return path;
}

void TestDocumentInteraction::showMenu()
{
    m_controller->setDelegate(&m_recorder);
    QVERIFY(m_controller->presentOptionsMenuFromRect(QRect(5, 617, 40, 40), m_window.get(), true));
}

QPushButton *TestDocumentInteraction::button(const QString &title) const
{
    for (AlertController *sheet : m_window->findChildren<AlertController *>()) {
        if (sheet->isVisible() && sheet->buttonForAction(title))
            return sheet->buttonForAction(title);
    }
    return nullptr;
}

QStringList TestDocumentInteraction::arguments(const QString &program) const
{
    const QByteArray args = contents(m_home.filePath(program + ".args"));
    return QString::fromUtf8(args).split(QChar(0), Qt::SkipEmptyParts);
}

void TestDocumentInteraction::copyAndMail_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("exists");
    QTest::newRow("shared archive")
        << "Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip" << true;
    QTest::newRow("quotes") << "Jane \"JD\" O'Neil – café.caf" << true;
    QTest::newRow("newline") << "two\nlines.caf" << true;
    QTest::newRow("missing") << "msg-_TEL-_PRIVATE-_04-Nov-2026-11-20-03.caf" << false;
}

void TestDocumentInteraction::copyAndMail()
{
    QFETCH(QString, name);
    QFETCH(bool, exists);
    const QString path = file(name, exists ? QByteArray("x") : QByteArray());
    m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
    showMenu();
    QVERIFY(button("Copy"));
    QCOMPARE(button("Copy")->accessibleName(), "Copy");
    QTest::mouseClick(button("Copy"), Qt::LeftButton);
    const QMimeData *copied = QGuiApplication::clipboard()->mimeData();
    QCOMPARE(copied->urls(), QList<QUrl> { QUrl::fromLocalFile(path) });
    QCOMPARE(copied->urls().first().toLocalFile(), path);
    const QByteArray uri = QUrl::fromLocalFile(path).toEncoded();
    QVERIFY(!uri.contains(' ') && !uri.contains('\n') && !uri.contains('"'));
    QCOMPARE(copied->text(), QString::fromUtf8(uri));
    QCOMPARE(copied->data("x-special/gnome-copied-files"), "copy\n" + uri);
    QCOMPARE(m_recorder.events, QStringList { "options dismissed" });

    showMenu();
    QTest::mouseClick(button("Mail"), Qt::LeftButton);
    if (exists)
        QTRY_COMPARE(arguments("mail"), QStringList({ "--attach", path }));
    QCOMPARE(m_recorder.events, QStringList({ "options dismissed", "options dismissed" }));
    QVERIFY(exists || arguments("mail").isEmpty());
}

void TestDocumentInteraction::opening_data()
{
    QTest::addColumn<QString>("name"); // null: no such file
    QTest::addColumn<QStringList>("taps");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments"); // %1: the file's path
    const QString archive = "Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip";
    const QString awkward = "Jane \"JD\" O'Neil\n2 recordings.zip";
    const QStringList dismissed { "open-in dismissed", "options dismissed" };
    QTest::newRow("default") << archive << QStringList { "Open" }
                             << QStringList { "sent to vantrel-test-archiver.desktop",
                                              "options dismissed" }
                             << "archiver" << QStringList { "%1" };
    QTest::newRow("default, missing")
        << QString() << QStringList { "Open" } << QStringList { "options dismissed" } << "archiver"
        << QStringList();
    // Without a portal on the bus, Open With… lists the applications for the type itself.
    QTest::newRow("other") << awkward << QStringList { "Open With…", "Other Viewer" }
                           << QStringList { "sent to vantrel-test-viewer.desktop" } + dismissed
                           << "viewer" << QStringList { "--view=%1" };
    QTest::newRow("other, cancelled") << awkward << QStringList { "Open With…", "Cancel" }
                                      << dismissed << "viewer" << QStringList();
}

void TestDocumentInteraction::opening()
{
    QFETCH(QString, name);
    QFETCH(QStringList, taps);
    QFETCH(QStringList, events);
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    const QString path = name.isNull() ? file("gone.zip", {}) : file(name);
    m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
    showMenu();
    for (const QString &tap : taps) {
        QTRY_VERIFY(button(tap));
        if (tap == "Cancel") {
            // The user's default for the type comes first.
            QStringList titles;
            for (const AlertAction &action : m_controller->currentMenu()->actions())
                titles << action.title();
            QCOMPARE(titles, QStringList({ "Test Archiver", "Other Viewer", "Cancel" }));
        }
        QTest::mouseClick(button(tap), Qt::LeftButton);
    }
    QTRY_COMPARE(m_recorder.events, events);
    QTRY_COMPARE(this->arguments(program), arguments.replaceInStrings("%1", path));
}

void TestDocumentInteraction::openWithPortal_data()
{
    QTest::addColumn<uint>("response");
    QTest::addColumn<QStringList>("events");
    QTest::newRow("chosen") << 0u
                            << QStringList { "sent to ", "open-in dismissed", "options dismissed" };
    QTest::newRow("cancelled") << 1u << QStringList { "open-in dismissed", "options dismissed" };
}

void TestDocumentInteraction::openWithPortal()
{
    QFETCH(uint, response);
    QFETCH(QStringList, events);
    FakePortal portal;
    portal.response = response;
    QDBusConnection bus = QDBusConnection::sessionBus();
    QVERIFY(bus.registerObject("/org/freedesktop/portal/desktop", &portal,
                               QDBusConnection::ExportAllSlots));
    QVERIFY(bus.registerService("org.freedesktop.portal.Desktop"));
    const QString path = file("Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip");
    m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
    showMenu();
    QTest::mouseClick(button("Open With…"), Qt::LeftButton);
    QTRY_COMPARE(m_recorder.events, events);
    QCOMPARE(portal.openedPath, path);
    QCOMPARE(portal.options.value("ask"), true);
    QVERIFY(!button("Other Viewer"));
    bus.unregisterService("org.freedesktop.portal.Desktop");
    bus.unregisterObject("/org/freedesktop/portal/desktop");
}

void TestDocumentInteraction::closingReportsOnce_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<QString>("releaseAt");
    for (const char *how : { "Escape", "Cancel", "tap beside", "dismissMenuAnimated" })
        QTest::newRow(how) << how << QString();
    QTest::newRow("released at the report") << "Escape"
                                            << "options dismissed";
    QTest::newRow("released at open-in report") << "open-in Escape"
                                                << "open-in dismissed";
}

void TestDocumentInteraction::closingReportsOnce()
{
    QFETCH(QString, how);
    QFETCH(QString, releaseAt);
    m_recorder.releaseAt = releaseAt;
    m_controller =
        Controller::interactionControllerWithURL(QUrl::fromLocalFile(file("Jane Doe.zip")));
    showMenu();
    QStringList expected { "options dismissed" };
    if (how.startsWith("open-in")) {
        QTest::mouseClick(button("Open With…"), Qt::LeftButton);
        QTRY_VERIFY(button("Other Viewer"));
        expected = QStringList { "open-in dismissed" };
    }
    AlertController *sheet = m_controller->currentMenu();
    if (how.endsWith("Escape"))
        QTest::keyClick(sheet, Qt::Key_Escape);
    else if (how == "Cancel")
        QTest::mouseClick(button("Cancel"), Qt::LeftButton);
    else if (how == "tap beside")
        QTest::mouseClick(sheet, Qt::LeftButton, {}, QPoint(180, 20));
    else
        m_controller->dismissMenuAnimated(true);
    QCOMPARE(m_recorder.events, expected);
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    QCOMPARE(m_recorder.events, expected);
    QCOMPARE(!m_controller, !releaseAt.isEmpty());
    if (m_controller)
        m_controller->dismissMenuAnimated(true);
    QCOMPARE(m_recorder.events, expected);
}

void TestDocumentInteraction::saveCopy_data()
{
    QTest::addColumn<bool>("existing");
    QTest::addColumn<QString>("answer"); // to the question whether to replace
    QTest::addColumn<QByteArray>("saved");
    QTest::newRow("new file") << false << QString() << QByteArray("recording");
    QTest::newRow("existing, kept") << true << "Cancel" << QByteArray("older");
    QTest::newRow("existing, replaced") << true << "Replace" << QByteArray("recording");
}

void TestDocumentInteraction::saveCopy()
{
    QFETCH(bool, existing);
    QFETCH(QString, answer);
    QFETCH(QByteArray, saved);
    const QString source = file("Nov 15 2026 - 22:10:07.caf", "recording");
    QDir().mkpath(m_files->filePath("saved"));
    const QString destination = file("saved/Daniel's copy.caf", existing ? "older" : QByteArray());
    m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(source));
    showMenu();
    QTest::mouseClick(button("Save a Copy…"), Qt::LeftButton);
    auto *dialog = m_window->findChild<QFileDialog *>();
    QVERIFY(dialog && dialog->isVisible() && !dialog->isWindow());
    auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
    name->setText(destination); // pasted
    QTest::keyClick(name, Qt::Key_Return);
    if (existing) {
        QTRY_VERIFY(button("Replace"));
        QVERIFY(m_recorder.events.isEmpty());
        QCOMPARE(contents(destination), "older");
        QTest::mouseClick(button(answer), Qt::LeftButton);
    }
    QTRY_COMPARE(m_recorder.events, QStringList { "options dismissed" });
    QCOMPARE(contents(destination), saved);
    QCOMPARE(QDir(m_files->filePath("saved")).entryList(QDir::Files),
             QStringList { "Daniel's copy.caf" });
}

void TestDocumentInteraction::preview_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("close");
    QTest::addColumn<QStringList>("shown"); // %1: the file's path
    const QStringList recordings { "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
                                   "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.txt",
                                   "msg-_FT-_anna.berg@example.com-_02-Nov-2026-18-30-12.caf" };
    QTest::newRow("archive") << "Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip"
                             << "Done" << (QStringList { "3 items" } + recordings);
    QTest::newRow("recording") << "Daniel.wav"
                               << "Escape" << QStringList { "Daniel.wav", "Length: 1:05" };
    QTest::newRow("missing") << "gone.caf"
                             << "Done" << QStringList { "The file could not be read: %1" };
}

void TestDocumentInteraction::preview()
{
    QFETCH(QString, name);
    QFETCH(QString, close);
    QFETCH(QStringList, shown);
    const QString path = m_files->filePath(name);
    if (name.endsWith(".zip")) {
        QProcess zip;
        zip.setWorkingDirectory(TestSupport::samplesDirectory());
        zip.start("/usr/bin/zip", QStringList { "-q", path } + shown.mid(1));
        QVERIFY(zip.waitForFinished() && zip.exitCode() == 0);
    } else if (name.endsWith(".wav")) {
        // 65 seconds of 8 kHz, 16-bit mono silence.
        const quint32 bytes = 65 * 8000 * 2;
        const quint32 header[] = { 36 + bytes,  0x45564157, 0x20746d66, 16,
                                   1 | 1 << 16, 8000,       16000,      2 | 16 << 16 };
        QByteArray wav("RIFF");
        wav.append(reinterpret_cast<const char *>(header), sizeof header);
        wav.append("data").append(reinterpret_cast<const char *>(&bytes), 4);
        wav.append(QByteArray(bytes, '\0'));
        QVERIFY(TestSupport::writeFile(path, wav));
    }
    m_controller = Controller::interactionControllerWithURL(QUrl::fromLocalFile(path));
    m_controller->setDelegate(&m_recorder);
    QVERIFY(m_controller->presentPreviewAnimated(true));
    DocumentPreview *preview = m_controller->preview();
    QVERIFY(preview->isVisible());
    QCOMPARE(preview->geometry(), m_window->rect());
    QTRY_COMPARE(preview->lines(), shown.replaceInStrings("%1", path));
    // Never a way to unpack: not in the preview, not in the share sheet it opens.
    const QRegularExpression unpack("extract|unpack|unzip|contents",
                                    QRegularExpression::CaseInsensitiveOption);
    QTest::mouseClick(preview->shareButton(), Qt::LeftButton);
    for (QAbstractButton *control : m_window->findChildren<QAbstractButton *>()) {
        QVERIFY2(!control->text().contains(unpack), qPrintable(control->text()));
        QVERIFY(!control->isVisible() || !control->accessibleName().isEmpty());
    }
    QTest::mouseClick(button("Cancel"), Qt::LeftButton);
    QCOMPARE(m_recorder.events, QStringList { "options dismissed" });
    if (close == "Escape")
        QTest::keyClick(preview, Qt::Key_Escape);
    else
        QTest::mouseClick(preview->doneButton(), Qt::LeftButton);
    QCOMPARE(m_recorder.events, QStringList({ "options dismissed", "preview ended" }));
    QTRY_VERIFY(!m_window->findChild<DocumentPreview *>());
}

QTEST_MAIN(TestDocumentInteraction)
#include "tst_documentinteraction.moc"
