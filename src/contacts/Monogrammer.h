#pragma once

#include <QColor>
#include <QHash>
#include <QPixmap>

class Contact;

// Draws the round caller pictures of the list: a disc with the contact's initials knocked
// out of it, or a silhouette when there is no contact to draw.
class Monogrammer
{
public:
    Monogrammer(int style, qreal diameter);

    void setTextColor(const QColor &color) { m_textColor = color; }
    void setBackgroundColor(const QColor &color) { m_backgroundColor = color; }
    void setTextKnockout(bool knockout) { m_textKnockout = knockout; }

    // The contact's monogram; a null pixmap when the contact has no initials to draw.
    // isContactImage is set to false: contacts carry no photographs here.
    QPixmap monogramForContact(const Contact *contact, bool *isContactImage);
    QPixmap silhouetteMonogram();

private:
    QPixmap disc(const QString &initials);
    qreal devicePixelRatio() const;

    int m_style { 1 };
    qreal m_diameter { 40 };
    QColor m_textColor { Qt::white };
    QColor m_backgroundColor { Qt::lightGray };
    bool m_textKnockout { false };
    // Rows of the same caller share one picture; an empty key is the silhouette.
    QHash<QString, QPixmap> m_cache;
};
