#include "Label.h"

#include <QPainter>
#include <QStyle>
#include <QTextLayout>
#include <cmath>

QString Label::shownText() const
{
    QString line = text();
    for (QChar &c : line) {
        if (c == u'\n' || c == u'\r' || c == u'\t' || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = u' ';
    }
    return fontMetrics().elidedText(line, Qt::ElideRight, contentsRect().width());
}

void Label::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(), int(alignment()), palette(), isEnabled(),
                          shownText(), foregroundRole());
}

WrappingLabel::WrappingLabel(const QString &text, QWidget *parent) : QLabel(text, parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
}

qreal WrappingLabel::layOut(QTextLayout &layout, qreal width) const
{
    // Line breaks in the text start new lines, as QLabel draws them.
    QString shown = text();
    shown.replace(u'\n', QChar::LineSeparator);
    layout.setText(shown);
    layout.setFont(font());
    QTextOption option(alignment() & Qt::AlignHorizontal_Mask);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    qreal height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += line.height();
    }
    layout.endLayout();
    return height;
}

int WrappingLabel::heightForWidth(int width) const
{
    const QMargins margins = contentsMargins();
    QTextLayout layout;
    const qreal text = layOut(layout, qMax(1, width - margins.left() - margins.right()));
    return int(std::ceil(text)) + margins.top() + margins.bottom();
}

QSize WrappingLabel::sizeHint() const
{
    const int width = QLabel::sizeHint().width();
    return { width, heightForWidth(width) };
}

QSize WrappingLabel::minimumSizeHint() const
{
    return { 0, heightForWidth(qMax(1, width())) };
}

void WrappingLabel::paintEvent(QPaintEvent *)
{
    const QRect area = contentsRect();
    QTextLayout layout;
    const qreal height = layOut(layout, area.width());
    QPainter painter(this);
    painter.setPen(palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled,
                                   foregroundRole()));
    qreal top = area.top();
    if (alignment() & Qt::AlignVCenter)
        top += (area.height() - height) / 2;
    layout.draw(&painter, QPointF(area.left(), top));
}
