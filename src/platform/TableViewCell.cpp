#include "TableViewCell.h"

#include <QPainter>

namespace {
// Points, as the phone's subtitle cells lay themselves out.
constexpr int kMargin = 15;
constexpr int kTextFontSize = 17;
constexpr int kDetailFontSize = 12;
constexpr int kTextHeight = 21;
constexpr int kDetailHeight = 15;
constexpr QColor kSeparatorColor {60, 60, 67, 90};
} // namespace

TableViewCell::TableViewCell(Style style, const QString &reuseIdentifier, QWidget *parent)
    : QWidget(parent), m_style(style), m_reuseIdentifier(reuseIdentifier),
      m_contentView(new QWidget(this)), m_textLabel(new QLabel(m_contentView)),
      m_detailTextLabel(new QLabel(m_contentView)), m_imageView(new QLabel(m_contentView)),
      m_separatorView(new QWidget(this))
{
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

void TableViewCell::resizeEvent(QResizeEvent *)
{
    layoutSubviews();
}

void TableViewCell::layoutSubviews()
{
    m_contentView->setGeometry(rect());
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
    m_separatorView->setGeometry(x, h - 1, width() - x, 1);
    m_separatorView->raise();
}

void TableViewCell::paintEvent(QPaintEvent *)
{
    if (m_backgroundColor.alpha() == 0)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), m_backgroundColor);
}
