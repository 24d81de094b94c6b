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
    view->setProperty(kAlphaProperty, value);
    view->setAttribute(Qt::WA_TransparentForMouseEvents, value == 0.0);
    if (value >= 1.0) {
        // An effect costs a render pass per paint: none at all for the common, opaque case.
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
