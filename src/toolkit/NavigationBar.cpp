#include "NavigationBar.h"

#include "BarButton.h"
#include "BarButtonItem.h"

namespace {
constexpr int kSideMargin = 8;
constexpr int kTitleFontSize = 17;
} // namespace

NavigationBar::NavigationBar(QWidget *parent)
    : Bar(Bar::Edge::Bottom, parent), m_title(new QLabel(this))
{
    QFont titleFont = font();
    titleFont.setPixelSize(kTitleFontSize);
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    m_title->setAlignment(Qt::AlignCenter);
    m_title->setTextFormat(Qt::PlainText);
    m_title->setStyleSheet(QStringLiteral("color: white;"));
    m_title->setAccessibleName(QStringLiteral("title"));
}

void NavigationBar::setTitle(const QString &title)
{
    m_title->setText(title);
    m_title->setAccessibleName(title);
    layoutItems();
}

void NavigationBar::setItems(BarButtonItem *left, BarButtonItem *right)
{
    const auto replace = [this](QPointer<BarButton> &button, BarButtonItem *item) {
        if (button && button->item() == item)
            return;
        if (button)
            button->deleteLater();
        button = item ? new BarButton(item, this) : nullptr;
        // The button decides its own visibility from the item's alpha; the connection goes
        // with the button, so an item shown again and again is laid out once per change.
        if (button)
            connect(item, &BarButtonItem::changed, button, [this] { layoutItems(); });
    };
    replace(m_leftButton, left);
    replace(m_rightButton, right);
    if (m_leftButton)
        m_leftButton->setTextAlignment(Qt::AlignLeft);
    if (m_rightButton)
        m_rightButton->setTextAlignment(Qt::AlignRight);
    layoutItems();
}

void NavigationBar::layoutItems()
{
    int left = kSideMargin;
    int right = width() - kSideMargin;
    if (m_leftButton) {
        const QSize size = m_leftButton->sizeHint();
        m_leftButton->setGeometry(kSideMargin, 0, size.width(), kHeight);
        left = m_leftButton->geometry().right() + 1;
    }
    if (m_rightButton) {
        const QSize size = m_rightButton->sizeHint();
        m_rightButton->setGeometry(width() - kSideMargin - size.width(), 0, size.width(), kHeight);
        right = m_rightButton->geometry().left();
    }
    // Centred on the bar, not on the space between the buttons, as long as it fits.
    const int half = qMax(0, qMin(width() / 2 - left, right - width() / 2));
    m_title->setGeometry(width() / 2 - half, 0, 2 * half, kHeight);
}

void NavigationBar::resizeEvent(QResizeEvent *)
{
    layoutItems();
}
