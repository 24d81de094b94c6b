#include "VantrelPlayer.h"

#include "PlayerCell.h"
#include "platform/Screen.h"

#include <QEvent>

namespace {
QPointer<VantrelPlayer> s_sharedPlayer;
constexpr double kContainerHeight = 53.5;
} // namespace

VantrelPlayer::VantrelPlayer(const QString &messagesDirectory, QObject *parent)
    : QObject(parent), m_messagesDirectory(messagesDirectory), m_shelf(std::make_unique<QWidget>()),
      m_container(new QWidget(m_shelf.get()))
{
    const QRect bounds = Screen::mainScreenBounds();
    m_container->setGeometry(0, 0, bounds.width(), qRound(kContainerHeight));
    m_container->setObjectName(QStringLiteral("PlayerControls"));
    m_container->installEventFilter(this);

    m_removal.setSingleShot(true);
    m_removal.setInterval(kRemovalDelayMs);
    connect(&m_removal, &QTimer::timeout, this, [this] { m_container->setParent(m_shelf.get()); });
    s_sharedPlayer = this;
}

VantrelPlayer::~VantrelPlayer()
{
    // The controls go with the player, wherever they are shown.
    m_container->removeEventFilter(this);
    m_container->setParent(m_shelf.get());
}

VantrelPlayer *VantrelPlayer::sharedInstance()
{
    return s_sharedPlayer;
}

bool VantrelPlayer::eventFilter(QObject *watched, QEvent *event)
{
    // A row that goes away while it shows the controls hands them back parentless.
    if (watched == m_container && event->type() == QEvent::ParentChange && !m_container->parent())
        m_container->setParent(m_shelf.get());
    return QObject::eventFilter(watched, event);
}

void VantrelPlayer::setupPlayerForCell(PlayerCell *cell)
{
    // A row closed and opened again in quick succession keeps its controls.
    m_removal.stop();
    if (!cell)
        return;
    m_urlString = cell->filePath().isNull()
                      ? QString()
                      : QStringLiteral("%1/%2").arg(m_messagesDirectory, cell->filePath());
    m_container->setParent(cell->playerView());
    m_container->setGeometry(0, 0, cell->playerView()->width(), qRound(kContainerHeight));
    m_container->show();
}

void VantrelPlayer::destroyPlayer(PlayerCell *)
{
    m_removal.start();
}
