#include "TableViewCell.h"

#include "Button.h"
#include "Label.h"

#include <QPainter>

namespace {
// Points, as the phone's subtitle cells lay themselves out.
constexpr int kMargin = 15;
constexpr int kTextFontSize = 17;
constexpr int kDetailFontSize = 12;
constexpr int kTextHeight = 21;
constexpr int kDetailHeight = 15;
constexpr QColor kSeparatorColor { 84, 84, 88 };
constexpr QColor kMarkColor { 10, 132, 255 };
} // namespace

TableViewCell::TableViewCell(Style style, const QString &reuseIdentifier, QWidget *parent)
    : QWidget(parent), m_style(style), m_reuseIdentifier(reuseIdentifier),
      m_contentView(new QWidget(this)), m_textLabel(new Label(m_contentView)),
      m_detailTextLabel(new Label(m_contentView)), m_imageView(new QLabel(m_contentView)),
      m_separatorView(new QWidget(this))
{
    // A cell is a surface of its own: its labels draw in the window text colour, not in the
    // text colour of the scroll view's viewport they would otherwise inherit.
    setBackgroundRole(QPalette::Window);
    QFont textFont = font();
    textFont.setPixelSize(kTextFontSize);
    m_textLabel->setFont(textFont);
    QFont detailFont = font();
    detailFont.setPixelSize(kDetailFontSize);
    m_detailTextLabel->setFont(detailFont);
    m_detailTextLabel->setVisible(m_style == Style::Subtitle);
    m_textLabel->setTextFormat(Qt::PlainText);
    m_detailTextLabel->setTextFormat(Qt::PlainText);

    m_separatorView->setAutoFillBackground(true);
    QPalette separator = m_separatorView->palette();
    separator.setColor(QPalette::Window, kSeparatorColor);
    m_separatorView->setPalette(separator);
}

void TableViewCell::setSelected(bool selected, bool)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    update();
}

void TableViewCell::setBackgroundColor(const QColor &color)
{
    m_backgroundColor = color;
    update();
}

void TableViewCell::setSelectedBackgroundView(QWidget *view)
{
    m_selectedBackgroundView = view;
    update();
}

void TableViewCell::setKeyboardFocused(bool focused)
{
    if (m_keyboardFocused == focused)
        return;
    m_keyboardFocused = focused;
    update();
}

void TableViewCell::setShowsSelectionMark(bool shows)
{
    if (m_showsSelectionMark == shows)
        return;
    m_showsSelectionMark = shows;
    layoutSubviews();
    update();
}

void TableViewCell::setSwipeOffset(int offset)
{
    if (m_swipeOffset == offset)
        return;
    m_swipeOffset = offset;
    layoutSubviews();
}

void TableViewCell::resizeEvent(QResizeEvent *)
{
    layoutSubviews();
}

void TableViewCell::layoutSubviews()
{
    const int indent = m_showsSelectionMark ? kSelectionMarkWidth : 0;
    m_contentView->setGeometry(rect().adjusted(indent, 0, 0, 0).translated(m_swipeOffset, 0));
    const int h = height();
    int x = kMargin;
    const QPixmap image = m_imageView->pixmap();
    if (!image.isNull()) {
        const QSize size = (QSizeF(image.size()) / image.devicePixelRatio()).toSize();
        m_imageView->setGeometry(x, (h - size.height()) / 2, size.width(), size.height());
        x += size.width() + kMargin;
    } else {
        m_imageView->setGeometry(x, h / 2, 0, 0);
    }
    const int textWidth = qMax(0, m_contentView->width() - x - kMargin);
    if (m_style == Style::Subtitle) {
        const int top = (h - kTextHeight - kDetailHeight) / 2;
        m_textLabel->setGeometry(x, top, textWidth, kTextHeight);
        m_detailTextLabel->setGeometry(x, top + kTextHeight, textWidth, kDetailHeight);
    } else {
        m_textLabel->setGeometry(x, (h - kTextHeight) / 2, textWidth, kTextHeight);
    }
    m_separatorView->setGeometry(indent + x, h - 1, width() - indent - x, 1);
    m_separatorView->raise();
}

void TableViewCell::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (m_swipeOffset < 0)
        painter.fillRect(rect(), Qt::black); // under the content that slid away
    else if (m_backgroundColor.alpha() > 0)
        painter.fillRect(rect(), m_backgroundColor);
    if (m_selected) {
        const QColor selected = m_selectedBackgroundView
                                    ? m_selectedBackgroundView->palette().color(QPalette::Window)
                                    : QColor(128, 128, 128, 90);
        if (!m_selectedBackgroundView || m_selectedBackgroundView->autoFillBackground())
            painter.fillRect(rect(), selected);
    }
    if (m_showsSelectionMark) {
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF mark(kMargin - 2, (height() - 22) / 2.0, 22, 22);
        if (m_selected) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(kMarkColor);
            painter.drawEllipse(mark);
            painter.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            const QPointF tick[] = { mark.topLeft() + QPointF(6, 11.5),
                                     mark.topLeft() + QPointF(9.5, 15),
                                     mark.topLeft() + QPointF(16, 7.5) };
            painter.drawPolyline(tick, 3);
        } else {
            painter.setPen(QPen(kSeparatorColor.lighter(150), 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(mark.adjusted(0.75, 0.75, -0.75, -0.75));
        }
    }
    if (m_keyboardFocused)
        drawFocusRing(&painter, QRectF(rect()).adjusted(2, 1, -2, -1));
}
