// The two buttons of a row that act on it without selecting it: the read button shows the
// transcript in place of the name, the phone button offers to call the caller back.

#include "TableController.h"

#include <algorithm>
#include "VTCell.h"
#include "core/Log.h"
#include "store/MessagesDirectory.h"
#include "toolkit/AlertController.h"
#include "core/Url.h"
#include "desktop/UrlOpening.h"
#include "toolkit/View.h"
#include "playback/VantrelPlayer.h"
#include "store/Transcript.h"

#include <QTimer>

void TableController::readerViewTapped(Button *button)
{
    // Deferred: runs after the button has finished handling its own touch.
    QTimer::singleShot(0, this, [this, button = QPointer<Button>(button)] {
        if (!button)
            return;
        button->setSelected(!button->isSelected());
        button->layoutSubviews();
        mylog(QStringLiteral("did set button selected %1 for button %2")
                  .arg(button->isSelected() ? 1 : 0)
                  .arg(viewDescription(button)));

        auto *cell = qobject_cast<VTCell *>(
            button->parentWidget() ? button->parentWidget()->parentWidget() : nullptr);
        mylog(QStringLiteral("DID GET TARGET CELL %1").arg(viewDescription(cell)));
        if (!cell)
            return;

        // A cell that is not in the table (scrolled away meanwhile) has no row to open.
        const std::optional<IndexPath> indexPath = tableView()->indexPathForCell(cell);
        if (indexPath && selectedRowIndex != indexPath) {
            // Outside edit mode, selected in the table as a tap would select it, so that the
            // row's next tap, or Escape, closes it.
            if (!isEditing())
                tableView()->selectRowAtIndexPath(*indexPath, false);
            didSelectRowAtIndexPath(*indexPath);
        }

        // Read on every tap, in both directions.
        const QString text =
            Transcript::read(MessagesDirectory(_messagesDirectory).filePath(cell->textFile()));
        cell->setReaderText(text);
        cell->readerView()->setPlainText(Transcript::forDisplay(text));

        QTextBrowser *reader = cell->readerView();
        reader->setGeometry(reader->x(), reader->y(), cell->phoneButton()->x() - reader->x() - 5,
                            reader->height());

        const bool reading = button->isSelected();
        setAlpha(reader, reading ? 1.0 : 0.0);
        setAlpha(cell->textLabel(), reading ? 0.0 : 1.0);
        setAlpha(cell->detailTextLabel(), reading ? 0.0 : 1.0);

        mylog(QStringLiteral("VantrelLog : %1")
                  .arg(QStringLiteral("CELL TEXT %1")
                           .arg(text.isNull() ? QStringLiteral("(null)") : text)));
    });
}

void TableController::dialButtonTapped(Button *button)
{
    auto *cell = qobject_cast<VTCell *>(
        button && button->parentWidget() ? button->parentWidget()->parentWidget() : nullptr);
    const std::optional<IndexPath> indexPath =
        cell ? tableView()->indexPathForCell(cell) : std::nullopt;
    if (!indexPath || indexPath->row >= rowCount())
        return;
    offerCallBack(entryAt(indexPath->row).address);
}

void TableController::offerCallBack(const QString &address)
{
    if (address.isNull() || address == QLatin1String("PRIVATE"))
        return;

    auto *alert = AlertController::alertControllerWithTitle(QStringLiteral("Vantrel"),
                                                            QStringLiteral("Dial %1?").arg(address),
                                                            AlertController::Style::Alert);
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Dial"), AlertAction::Style::Default,
                                     [this, address](const AlertAction &) { dial(address); }));
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Cancel"), AlertAction::Style::Cancel));
    alert->presentIn(tableView(), true);
}

void TableController::dial(const QString &address)
{
    // The kind of the call plays no part: a FaceTime call from a number is called back by phone.
    const QString scheme =
        address.contains(u'@') ? QStringLiteral("facetime-audio") : QStringLiteral("tel");
    // The address goes in as it is stored, unescaped.
    const QString text = QStringLiteral("%1://%2").arg(scheme, address);
    const auto url = Url::urlWithString(text);
    if (!url) {
        mylog(QStringLiteral("call back: \"%1\" is not an address that can be dialed").arg(text));
        tellUser(QStringLiteral("This caller's address cannot be dialed."));
        return;
    }
    // Asked without waiting: the answer comes from xdg-mime.
    UrlOpening::canOpenURL(*url, this, [this, url = *url](bool registered) {
        if (registered && UrlOpening::openURL(url))
            return;
        mylog(QStringLiteral("call back: %1 %2")
                  .arg(url.toString(), registered
                                           ? QStringLiteral("could not be handed on")
                                           : QStringLiteral("has no handler for its scheme")));
        tellUser(QStringLiteral("No application on this device can place the call."));
    });
}

bool TableController::playRecording(const QString &filename)
{
    // A recording the search hides is shown with all the others.
    if (m_shownRows && std::none_of(m_shownRows->cbegin(), m_shownRows->cend(),
                                    [&](qsizetype at) { return entryList().at(at).filename == filename; }))
        endSearch();
    int row = -1;
    for (int i = 0; i < rowCount() && row < 0; ++i) {
        if (entryAt(i).filename == filename)
            row = i;
    }
    if (row < 0)
        return false;
    if (isEditing())
        setEditing(false, false);
    TableView *table = tableView();
    table->scrollToRowAtIndexPath({ 0, row });
    if (!selectedRowIndex || selectedRowIndex->row != row)
        table->userTappedRow(row);
    VantrelPlayer *player = _playerController.get();
    // Plays if the row that is open is still this recording's.
    const auto play = [this, player, filename] {
        if (selectedRowIndex && selectedRowIndex->row < rowCount() &&
            entryAt(selectedRowIndex->row).filename == filename && player->hasRecording() &&
            !player->isPlaying())
            player->togglePlay();
    };
    if (player->hasRecording()) {
        play();
        return true;
    }
    // The recording opens on the player's thread: it plays at the player's next change, which
    // is its opening, unless something else happened first.
    pendingPlay = std::make_unique<QObject>();
    connect(player, &VantrelPlayer::playbackChanged, pendingPlay.get(), [this, play] {
        // Once only, and let go before playing: starting to play changes the player again.
        if (!pendingPlay)
            return;
        pendingPlay.release()->deleteLater();
        play();
    });
    return true;
}
