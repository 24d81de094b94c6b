#include "VantrelPlayer.h"

#include "PlayerCell.h"
#include "platform/Screen.h"

namespace {
VantrelPlayer *s_sharedPlayer = nullptr;
constexpr double kContainerHeight = 53.5;
} // namespace

VantrelPlayer::VantrelPlayer(const QString &messagesDirectory, QObject *parent)
    : QObject(parent), m_messagesDirectory(messagesDirectory),
      m_ownedContainer(std::make_unique<QWidget>())
{
    const QRect bounds = Screen::mainScreenBounds();
    m_container = m_ownedContainer.get();
    m_container->setGeometry(0, 0, bounds.width(), qRound(kContainerHeight));
    m_container->setObjectName(QStringLiteral("PlayerControls"));

    m_removal.setSingleShot(true);
    m_removal.setInterval(kRemovalDelayMs);
    connect(&m_removal, &QTimer::timeout, this, [this] {
        if (m_container && m_container->parentWidget()) {
            m_container->setParent(nullptr);
            m_ownedContainer.reset(m_container);
        }
    });
    s_sharedPlayer = this;
}

VantrelPlayer::~VantrelPlayer()
{
    if (s_sharedPlayer == this)
        s_sharedPlayer = nullptr;
}

VantrelPlayer *VantrelPlayer::sharedInstance()
{
    return s_sharedPlayer;
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
    if (!m_container) {
        // The row that held the controls went away with them: make a fresh set.
        m_ownedContainer = std::make_unique<QWidget>();
        m_container = m_ownedContainer.get();
        m_container->setObjectName(QStringLiteral("PlayerControls"));
    }
    m_ownedContainer.release(); // the player view owns it from here
    m_container->setParent(cell->playerView());
    m_container->setGeometry(0, 0, cell->playerView()->width(), qRound(kContainerHeight));
    m_container->show();
}

void VantrelPlayer::destroyPlayer(PlayerCell *)
{
    m_removal.start();
}
