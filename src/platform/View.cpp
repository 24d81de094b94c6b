#include "View.h"

#include <QGraphicsOpacityEffect>
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
