#include "View.h"

#include <QAbstractScrollArea>
#include <QCoreApplication>
#include <QGraphicsOpacityEffect>
#include <QPointer>
#include <QProxyStyle>
#include <QScrollBar>
#include <QStyleFactory>
#include <QVariant>
#include <QWidget>

namespace {
constexpr const char *kAlphaProperty = "vantrelAlpha";
}

void setAlpha(QWidget *view, double value)
{
    if (!view)
        return;
    value = qBound(0.0, value, 1.0);
    // Laid out on every row shown: nothing to do is the common case.
    const QVariant current = view->property(kAlphaProperty);
    if (current.isValid() && current.toDouble() == value && view->isHidden() == (value == 0.0))
        return;
    view->setProperty(kAlphaProperty, value);
    // Hidden rather than drawn clear: it keeps its geometry (nothing here is in a layout that
    // would close the gap), takes no input or focus, and screen readers skip it.
    view->setVisible(value > 0.0);
    if (value >= 1.0 || value == 0.0) {
        // An effect costs a render pass per paint: none for the common, opaque case.
        view->setGraphicsEffect(nullptr);
        return;
    }
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(view->graphicsEffect());
    if (!effect) {
        effect = new QGraphicsOpacityEffect(view);
        view->setGraphicsEffect(effect);
    }
    effect->setOpacity(value);
}

double alpha(const QWidget *view)
{
    if (!view)
        return 0.0;
    const QVariant value = view->property(kAlphaProperty);
    return value.isValid() ? value.toDouble() : 1.0;
}

QString viewDescription(const QWidget *view)
{
    if (!view)
        return QStringLiteral("(null)");
    const QRect frame = view->geometry();
    QString description = QStringLiteral("<%1: %2; frame = (%3 %4; %5 %6)")
                              .arg(QLatin1String(view->metaObject()->className()),
                                   QStringLiteral("0x%1").arg(quintptr(view), 0, 16))
                              .arg(frame.x())
                              .arg(frame.y())
                              .arg(frame.width())
                              .arg(frame.height());
    if (!view->objectName().isEmpty())
        description += QStringLiteral("; name = %1").arg(view->objectName());
    if (alpha(view) < 1.0)
        description += QStringLiteral("; alpha = %1").arg(alpha(view));
    return description + QLatin1Char('>');
}

namespace {
// The desktop's own scroll bar drawing (Fusion, Qt's default on Linux), told that its bars are
// transient: they lie over the content, show a thin slider while the list moves or the pointer
// is near, and widen under it.
class OverlayScrollBarStyle : public QProxyStyle
{
public:
    OverlayScrollBarStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *answer) const override
    {
        if (hint == SH_ScrollBar_Transient)
            return 1;
        return QProxyStyle::styleHint(hint, option, widget, answer);
    }
};
} // namespace

void useOverlayScrollBars(QAbstractScrollArea *area)
{
    static QPointer<QStyle> style;
    if (!style) {
        style = new OverlayScrollBarStyle;
        style->setParent(QCoreApplication::instance()); // goes with the application
    }
    for (QScrollBar *bar : { area->verticalScrollBar(), area->horizontalScrollBar() }) {
        bar->setStyle(style);
        // A light slider on the dark list.
        QPalette palette = bar->palette();
        palette.setColor(QPalette::WindowText, Qt::white);
        palette.setColor(QPalette::Text, Qt::white);
        bar->setPalette(palette);
    }
}
