#include "DocumentPreview.h"

#include "audio/AudioDecoder.h"
#include "toolkit/Label.h"
#include "ZipMembers.h"

#include <QBoxLayout>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMimeDatabase>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QThreadPool>

namespace {
// The height of the phone's navigation bar, which the sheet's own bar matches.
constexpr int kBarHeight = 44;
const QColor kBackground { 28, 28, 30 };
const QColor kBar { 0, 0, 0 };
const QColor kTint { 10, 132, 255 };

QPushButton *barButton(const QString &title, QWidget *parent)
{
    auto *button = new QPushButton(title, parent);
    button->setAccessibleName(title);
    button->setAutoDefault(false);
    button->setCursor(Qt::PointingHandCursor);
    button->setStyleSheet(QStringLiteral("QPushButton { color: %1; background: transparent;"
                                         " border: none; font-size: 17px; padding: 0 12px; }"
                                         "QPushButton:pressed { color: white; }")
                              .arg(kTint.name()));
    return button;
}

QString lengthText(double seconds)
{
    const qint64 total = qRound64(seconds);
    const QString minutesSeconds =
        QStringLiteral("%1:%2").arg((total / 60) % 60).arg(total % 60, 2, 10, QLatin1Char('0'));
    return total >= 3600
               ? QStringLiteral("%1:%2").arg(total / 3600).arg(minutesSeconds, 5, QLatin1Char('0'))
               : minutesSeconds;
}
// A phone's recording: Core Audio Format, which the shared MIME database may not know.
bool isCoreAudioFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(4) == "caff";
}
} // namespace

DocumentPreview::DocumentPreview(const QString &path, QWidget *window) : QWidget(window)
{
    const QFileInfo info(path);
    setObjectName(QStringLiteral("DocumentPreview"));
    setAccessibleName(info.fileName());
    setFocusPolicy(Qt::StrongFocus);

    auto *bar = new QWidget(this);
    bar->setFixedHeight(kBarHeight);
    auto *barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(0, 0, 0, 0);
    m_done = barButton(tr("Done"), bar);
    m_share = barButton(tr("Share"), bar);
    auto *title = new Label(info.fileName(), bar);
    title->setTextFormat(Qt::PlainText);
    title->setAlignment(Qt::AlignCenter);
    title->setStyleSheet(QStringLiteral("color: white; font-size: 17px; font-weight: 600;"));
    title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    barLayout->addWidget(m_done);
    barLayout->addWidget(title, 1);
    barLayout->addWidget(m_share);
    connect(m_done, &QPushButton::clicked, this, &DocumentPreview::doneClicked);
    connect(m_share, &QPushButton::clicked, this, &DocumentPreview::shareClicked);

    m_summary = new QLabel(this);
    m_summary->setTextFormat(Qt::PlainText);
    m_summary->setWordWrap(true);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_summary->setStyleSheet(QStringLiteral("color: white; font-size: 15px; padding: 16px;"));
    m_members = new QListWidget(this);
    m_members->setSelectionMode(QAbstractItemView::NoSelection);
    // Recording names are long: each shows its start and its end, on one line.
    m_members->setTextElideMode(Qt::ElideMiddle);
    m_members->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_members->setAccessibleName(tr("Contents"));
    m_members->setStyleSheet(QStringLiteral("QListWidget { color: white; background: transparent;"
                                            " border: none; font-size: 15px; padding: 0 12px; }"));
    m_members->hide();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(bar);
    layout->addWidget(m_summary);
    layout->addWidget(m_members, 1);
    layout->addStretch();

    const QMimeType type = QMimeDatabase().mimeTypeForFile(info);
    if (!info.isFile() || !info.isReadable())
        m_summary->setText(tr("The file could not be read: %1").arg(path));
    else if (type.inherits(QStringLiteral("application/zip")))
        showArchive(path);
    else if (type.name().startsWith(u"audio/") || type.name().startsWith(u"video/") ||
             isCoreAudioFile(path))
        showRecording(path);
    else
        m_summary->setText(info.fileName() + u'\n' + type.comment() + u'\n' +
                           QLocale().formattedDataSize(info.size()));

    window->installEventFilter(this);
    setGeometry(window->rect());
}

DocumentPreview::~DocumentPreview()
{
    m_abort->store(true);
}

void DocumentPreview::showArchive(const QString &path)
{
    const ZipMembers archive = zipMemberNames(path);
    if (!archive.isValid()) {
        m_summary->setText(tr("The archive could not be read: %1\n%2").arg(archive.error, path));
        return;
    }
    m_summary->setText(archive.names.size() == 1 ? tr("1 item")
                                                 : tr("%1 items").arg(archive.names.size()));
    m_members->addItems(archive.names);
    m_members->show();
}

void DocumentPreview::showRecording(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    m_summary->setText(name + u'\n' + tr("Length: …"));
    // A file that states no length is decoded to its end to find one: off the main thread.
    QThreadPool::globalInstance()->start(
        [path, name, abort = m_abort, label = QPointer<QLabel>(m_summary)]() mutable {
            AudioDecoder decoder;
            decoder.setAbortFlag(abort.get());
            const QString length = decoder.open(path)
                                       ? tr("Length: %1").arg(lengthText(decoder.duration()))
                                       : tr("Length unknown: %1").arg(decoder.errorString());
            if (QCoreApplication *application = QCoreApplication::instance())
                QMetaObject::invokeMethod(
                    application,
                    [label = std::move(label), text = name + u'\n' + length] {
                        if (label)
                            label->setText(text);
                    },
                    Qt::QueuedConnection);
        });
}

QStringList DocumentPreview::lines() const
{
    QStringList lines = m_summary->text().split(u'\n');
    for (int i = 0; i < m_members->count(); ++i)
        lines << m_members->item(i)->text();
    return lines;
}

bool DocumentPreview::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

void DocumentPreview::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        return emit doneClicked();
    QWidget::keyPressEvent(event);
}

void DocumentPreview::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), kBackground);
    painter.fillRect(QRect(0, 0, width(), kBarHeight), kBar);
}
