#include "NavigationBar.h"

#include "BarButton.h"
#include "BarButtonItem.h"

#include <QFontMetrics>

namespace {
constexpr int kSideMargin = 8;
constexpr int kTitleFontSize = 17;
// Room for the antialiased edge of the last letter, which its advance does not count.
constexpr int kTitleSlack = 2;
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
    m_fullTitle = title;
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
    // The buttons keep the width of their longest possible title, so that the bar does not
    // jump when "Edit" becomes "Select All"; the title may use whatever they leave unpainted.
    int left = kSideMargin;
    int right = width() - kSideMargin;
    if (m_leftButton) {
        const QSize size = m_leftButton->sizeHint();
        m_leftButton->setGeometry(kSideMargin, 0, size.width(), kHeight);
        left = kSideMargin + m_leftButton->paintedWidth();
    }
    if (m_rightButton) {
        const QSize size = m_rightButton->sizeHint();
        m_rightButton->setGeometry(width() - kSideMargin - size.width(), 0, size.width(), kHeight);
        right = width() - kSideMargin - m_rightButton->paintedWidth();
    }
    // Centred on the bar as long as it fits there; else in the room between the buttons, and
    // shortened with an ellipsis only when even that is too narrow (a phone held upright at a
    // large scale), never cut off mid-letter.
    const QFontMetrics metrics(m_title->font());
    const int wanted = metrics.horizontalAdvance(m_fullTitle) + kTitleSlack;
    const int half = qMax(0, qMin(width() / 2 - left, right - width() / 2));
    QRect area(width() / 2 - half, 0, 2 * half, kHeight);
    if (wanted > area.width())
        area = QRect(left, 0, qMax(0, right - left), kHeight);
    m_title->setGeometry(area);
    m_title->setText(metrics.elidedText(m_fullTitle, Qt::ElideRight, area.width() - kTitleSlack));
}

void NavigationBar::resizeEvent(QResizeEvent *)
{
    layoutItems();
}
