// The two buttons of a row that act on it without selecting it: the read button shows the
// transcript in place of the name, the phone button offers to call the caller back.

#include "TableController.h"
#include "VTCell.h"
#include "app/Log.h"
#include "platform/AlertController.h"
#include "platform/Url.h"
#include "platform/View.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QTimer>

namespace {

// The transcript as UTF-8, or a null string when it is missing or not UTF-8.
QString readTranscript(const QString &path)
{
    // Only a regular file: opening a pipe named like a transcript would wait for a writer.
    if (!QFileInfo(path).isFile())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder(file.readAll());
    if (decoder.hasError())
        return {};
    return text;
}

// A text view lays a paragraph out whole, which for megabytes on one line takes seconds.
// For showing only, very long paragraphs are broken at a blank near every few thousand
// characters (or anywhere, when there is no blank): the reader view shows all the text
// without stalling the list.
QString forDisplay(const QString &text)
{
    constexpr qsizetype kParagraph = 4096;
    if (text.size() <= kParagraph)
        return text;
    QString shown;
    shown.reserve(text.size() + text.size() / kParagraph);
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = text.indexOf(u'\n', start);
        if (end < 0)
            end = text.size();
        if (end - start <= kParagraph) {
            shown += QStringView(text).mid(start, end - start + (end < text.size() ? 1 : 0));
            start = end + 1;
            continue;
        }
        qsizetype cut = text.lastIndexOf(u' ', start + kParagraph);
        if (cut <= start) {
            shown += QStringView(text).mid(start, kParagraph);
            shown += u'\n';
            start += kParagraph;
        } else {
            shown += QStringView(text).mid(start, cut - start);
            shown += u'\n';
            start = cut + 1;
        }
    }
    return shown;
}

} // namespace

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
        if (indexPath && selectedRowIndex != indexPath)
            didSelectRowAtIndexPath(*indexPath);

        // Read on every tap, in both directions.
        const QString text =
            readTranscript(QStringLiteral("%1/%2").arg(m_messagesDirectory, cell->textFile()));
        cell->setReaderText(text);
        cell->readerView()->setPlainText(forDisplay(text));

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
    if (!indexPath || indexPath->row >= entries.size())
        return;
    const QString address = entries.at(indexPath->row).address;
    if (address.isNull() || address == QLatin1String("PRIVATE"))
        return;

    auto *alert = AlertController::alertControllerWithTitle(QStringLiteral("Vantrel"),
                                                            QStringLiteral("Dial %1?").arg(address),
                                                            AlertController::Style::Alert);
    alert->addAction(AlertAction::actionWithTitle(
        QStringLiteral("Dial"), AlertAction::Style::Default, [address](const AlertAction &) {
            // The kind of the call plays no part: a FaceTime call from a number is called back by
            // phone.
            const QString scheme =
                address.contains(u'@') ? QStringLiteral("facetime-audio") : QStringLiteral("tel");
            // The address goes in as it is stored, unescaped; one that makes no URL dials nothing.
            if (const auto url = Url::urlWithString(QStringLiteral("%1://%2").arg(scheme, address)))
                Url::openURL(*url);
        }));
    alert->addAction(
        AlertAction::actionWithTitle(QStringLiteral("Cancel"), AlertAction::Style::Cancel));
    alert->presentIn(tableView(), true);
}
