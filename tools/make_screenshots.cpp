// Draws the pictures of the README: the demo list closed, with a row open, with a transcript
// shown, in edit mode, zipping three recordings and previewing their archive. The real
// application on the demo recordings, driven as a user would.
//
//   make_screenshots OUTPUT_DIR

#include "actions/VantrelFileZipper.h"
#include "app/DemoDirectory.h"
#include "app/VantrelApplication.h"
#include "list/TableController.h"
#include "toolkit/SearchBar.h"
#include "list/VTCell.h"
#include "toolkit/AlertController.h"
#include "toolkit/BarButtonItem.h"
#include "toolkit/Button.h"
#include "desktop/DocumentPreview.h"
#include "playback/VantrelPlayer.h"

#include <QFile>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QLineEdit>
#include <QTest>
#include <cstdio>

namespace {

bool save(QWidget *window, const QString &path)
{
    QTest::qWait(400); // let the row animation finish
    if (!window->grab().save(path)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("wrote %s\n", qPrintable(path));
    return true;
}

void tapRow(TableView *table, int row)
{
    const QRect rect = table->rectForRowAtIndexPath({ 0, row });
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {},
                      QPoint(rect.center().x(), rect.top() + 27));
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_screenshots OUTPUT_DIR\n");
        return 2;
    }
    const QString output = QString::fromLocal8Bit(argv[1]);
    QString error;
    const auto demo = DemoDirectory::create(&error);
    if (!demo) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    VantrelApplication application(argc, argv);
    application.setMessagesDirectory(demo->messagesDirectory());
    application.setContactsSource(demo->contactsPath());
    application.applicationDidFinishLaunching();
    QWidget *window = application.window();
    if (!QTest::qWaitForWindowExposed(window))
        return 1;
    TableView *table = application.tableController()->tableView();

    bool ok = save(window, output + "/list.png");
    tapRow(table, 1);
    // Playing at one and a half times its speed: the knob a couple of seconds along, the button
    // offering pause.
    VantrelPlayer *player = application.tableController()->playerController();
    if (!QTest::qWaitFor([&] { return player->playbackButton()->isVisible(); }))
        return 1;
    QTest::mouseClick(player->speedButton(), Qt::LeftButton);
    QTest::mouseClick(player->playbackButton(), Qt::LeftButton);
    QTest::qWait(1500);
    if (!player->isPlaying())
        std::fprintf(stderr, "the recording does not play: is an audio server running?\n");
    ok = save(window, output + "/playing-row.png") && ok;
    player->togglePlay();
    auto *cell = qobject_cast<VTCell *>(table->cellForRowAtIndexPath({ 0, 3 }));
    if (!cell)
        return 1;
    QTest::mouseClick(cell->readButton(), Qt::LeftButton);
    ok = save(window, output + "/transcript.png") && ok;
    QTest::mouseClick(cell->readButton(), Qt::LeftButton);

    // Searching: Ctrl+F, then a word that two of the transcripts hold.
    QTest::keySequence(window, QKeySequence::Find);
    QLineEdit *field = application.tableController()->searchBar()->field();
    QTest::keyClicks(field, QStringLiteral("call me"));
    if (!QTest::qWaitFor([&] { return application.tableController()->rowCount() == 2; }))
        std::fprintf(stderr, "the search did not find the transcripts\n");
    ok = save(window, output + "/search.png") && ok;
    QTest::keyClick(field, Qt::Key_Escape);

    // Edit mode with three recordings chosen.
    TableController *list = application.tableController();
    list->toggleEdit();
    for (const int row : { 0, 2, 3 })
        tapRow(table, row);
    ok = save(window, output + "/edit-mode.png") && ok;

    // Zipping them, slowed down so that the alert can be caught half-way.
    QTemporaryDir slow;
    const QString slowZip = slow.filePath("zip");
    QFile script(slowZip);
    if (!script.open(QIODevice::WriteOnly) ||
        script.write("#!/bin/sh\n/usr/bin/zip \"$@\" >/dev/null; sleep 1\n") < 0)
        return 1;
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    const QByteArray zipPath = QFile::encodeName(slowZip);
    VantrelFileZipper::zipExecutable = zipPath.constData();
    list->shareSelectedRequest(list->shareButton());
    const auto sheet = [window] { return window->findChild<AlertController *>(); };
    if (!sheet() || !sheet()->buttonForAction(QStringLiteral("Zip and Share")))
        return 1;
    QTest::mouseClick(sheet()->buttonForAction(QStringLiteral("Zip and Share")), Qt::LeftButton);
    if (!QTest::qWaitFor(
            [&] {
                return list->currentAlert() &&
                       list->currentAlert()->title().contains(QLatin1String("(1/3)"));
            },
            10000))
        return 1;
    ok = save(window, output + "/zip-progress.png") && ok;
    if (!QTest::qWaitFor([&] { return window->findChild<DocumentPreview *>() != nullptr; }, 10000))
        return 1;
    ok = save(window, output + "/archive-preview.png") && ok;
    VantrelFileZipper::zipExecutable = "/usr/bin/zip";
    // Done ends the preview, and the archive goes with it.
    if (auto *preview = window->findChild<DocumentPreview *>())
        QTest::mouseClick(preview->doneButton(), Qt::LeftButton);
    return ok ? 0 : 1;
}
