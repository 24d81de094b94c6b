#include "BarButton.h"

#include "Bar.h"
#include "BarButtonItem.h"
#include "Images.h"
#include "View.h"

#include <QFontMetrics>
#include <QPainter>

namespace {
constexpr int kImageSize = 28;
constexpr int kPadding = 8;
constexpr int kFontSize = 17;
} // namespace

BarButton::BarButton(BarButtonItem *item, QWidget *parent) : QAbstractButton(parent), m_item(item)
{
    QFont titleFont = font();
    titleFont.setPixelSize(kFontSize);
    if (item->style() == BarButtonItem::Style::Done)
        titleFont.setWeight(QFont::DemiBold);
    setFont(titleFont);
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    connect(this, &QAbstractButton::clicked, item, &BarButtonItem::trigger);
    connect(item, &BarButtonItem::changed, this, &BarButton::sync);
    sync();
}

void BarButton::setTextAlignment(Qt::Alignment alignment)
{
    m_alignment = alignment;
    update();
}

void BarButton::sync()
{
    if (!m_item)
        return;
    setText(m_item->title());
    setEnabled(m_item->isEnabled());
    setAccessibleName(m_item->accessibleName());
    setAlpha(this, m_item->viewAlpha());
    updateGeometry();
    update();
}

QSize BarButton::sizeHint() const
{
    if (!m_item || !m_item->imageName().isEmpty())
        return { kImageSize + 2 * kPadding, Bar::kHeight };
    const QFontMetrics metrics(font());
    int width = metrics.horizontalAdvance(m_item->title());
    for (const QString &title : m_item->possibleTitles())
        width = qMax(width, metrics.horizontalAdvance(title));
    return { width + 2 * kPadding, Bar::kHeight };
}

int BarButton::paintedWidth() const
{
    if (!m_item || !m_item->imageName().isEmpty() || m_alignment == Qt::AlignCenter)
        return sizeHint().width();
    return qMin(sizeHint().width(),
                QFontMetrics(font()).horizontalAdvance(m_item->title()) + 2 * kPadding);
}

void BarButton::paintEvent(QPaintEvent *)
{
    if (!m_item)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(0.35);
    else if (isDown())
        painter.setOpacity(0.5);
    if (!m_item->imageName().isEmpty()) {
        const QRect target((width() - kImageSize) / 2, (height() - kImageSize) / 2, kImageSize,
                           kImageSize);
        Images::imageNamed(m_item->imageName()).paint(&painter, target);
    } else {
        painter.setPen(Qt::white);
        painter.setFont(font());
        painter.drawText(rect().adjusted(kPadding, 0, -kPadding, 0), m_alignment | Qt::AlignVCenter,
                         m_item->title());
    }
    if (hasFocus()) {
        painter.setOpacity(0.6);
        painter.setPen(QPen(Qt::white, 1, Qt::DotLine));
        painter.drawRoundedRect(rect().adjusted(2, 6, -2, -6), 4, 4);
    }
}
