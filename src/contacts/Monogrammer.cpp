#include "Monogrammer.h"

#include "contacts/Contact.h"

#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

Monogrammer::Monogrammer(int style, qreal diameter) : m_style(style), m_diameter(diameter) {}

qreal Monogrammer::devicePixelRatio() const
{
    return qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
}

QPixmap Monogrammer::monogramForContact(const Contact *contact, bool *isContactImage)
{
    if (isContactImage)
        *isContactImage = false;
    if (!contact || contact->initials().isEmpty())
        return {};
    return disc(contact->initials());
}

QPixmap Monogrammer::silhouetteMonogram()
{
    return disc(QString());
}

QPixmap Monogrammer::disc(const QString &initials)
{
    if (const auto cached = m_cache.constFind(initials); cached != m_cache.cend())
        return *cached;

    const qreal ratio = devicePixelRatio();
    QPixmap pixmap(QSize(qCeil(m_diameter * ratio), qCeil(m_diameter * ratio)));
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);

    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds(0, 0, m_diameter, m_diameter);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_backgroundColor);
    painter.drawEllipse(bounds);

    QPainterPath figure;
    if (initials.isEmpty()) {
        // Head and shoulders, cut by the disc's edge.
        const qreal d = m_diameter;
        figure.addEllipse(QPointF(d * 0.5, d * 0.38), d * 0.17, d * 0.17);
        QPainterPath shoulders;
        shoulders.addEllipse(QPointF(d * 0.5, d * 0.98), d * 0.34, d * 0.34);
        QPainterPath clip;
        clip.addEllipse(bounds);
        figure = figure.united(shoulders.intersected(clip));
    } else {
        QFont font;
        font.setPixelSize(qRound(m_diameter * 0.4));
        font.setWeight(QFont::Medium);
        figure.addText(0, 0, font, initials);
        const QRectF text = figure.boundingRect();
        figure.translate(bounds.center() - text.center());
    }
    if (m_textKnockout) {
        // The figure is cut out of the disc, then filled with the text colour so that it
        // reads on any background.
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.fillPath(figure, Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    }
    painter.fillPath(figure, m_textColor);
    painter.end();

    m_cache.insert(initials, pixmap);
    return pixmap;
}
