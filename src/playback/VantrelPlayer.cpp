#include "VantrelPlayer.h"

#include "platform/Screen.h"

namespace {
VantrelPlayer *s_sharedPlayer = nullptr;
constexpr double kContainerHeight = 53.5;
} // namespace

VantrelPlayer::VantrelPlayer(QObject *parent)
    : QObject(parent), m_container(std::make_unique<QWidget>())
{
    const QRect bounds = Screen::mainScreenBounds();
    m_container->setGeometry(0, 0, bounds.width(), qRound(kContainerHeight));
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

void VantrelPlayer::destroyPlayer(TableViewCell *)
{
    m_container->setParent(nullptr);
}
