#include "Label.h"

#include <QPainter>
#include <QStyle>

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
