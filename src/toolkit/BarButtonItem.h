#pragma once

#include <QObject>
#include <QSet>
#include <QString>

// A button in a navigation bar or toolbar: a title or a named glyph, a target action (the
// triggered signal), an enabled state and the alpha of its view. Bars draw it; the item
// only holds what they draw.
class BarButtonItem : public QObject
{
    Q_OBJECT
public:
    enum class Style
    {
        Plain = 0,
        Bordered = 1,
        Done = 2
    };
    enum class SystemItem
    {
        FlexibleSpace = 5
    };

    BarButtonItem(const QString &title, Style style, QObject *parent = nullptr);
    BarButtonItem(SystemItem systemItem, QObject *parent = nullptr);
    static BarButtonItem *withImage(const QString &imageName, Style style,
                                    QObject *parent = nullptr);

    QString title() const { return m_title; }
    void setTitle(const QString &title);
    QString imageName() const { return m_imageName; }
    void setImage(const QString &imageName);
    Style style() const { return m_style; }
    bool isFlexibleSpace() const { return m_flexibleSpace; }

    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled);

    // The alpha of the item's view (0 hides it in place; see setAlpha).
    double viewAlpha() const { return m_viewAlpha; }
    void setViewAlpha(double alpha);

    // What a screen reader calls the button; by default its title.
    QString accessibleName() const
    {
        return m_accessibleName.isEmpty() ? m_title : m_accessibleName;
    }
    void setAccessibleName(const QString &name);

    // Titles the button may show; its width fits the widest, so it does not jump.
    QSet<QString> possibleTitles() const { return m_possibleTitles; }
    void setPossibleTitles(const QSet<QString> &titles);

    // What the bar's button calls when tapped; sends triggered(this) when enabled.
    void trigger();

signals:
    void triggered(BarButtonItem *sender);
    void changed();

private:
    QString m_title;
    QString m_imageName;
    QString m_accessibleName;
    Style m_style { Style::Plain };
    bool m_flexibleSpace { false };
    bool m_enabled { true };
    double m_viewAlpha { 1.0 };
    QSet<QString> m_possibleTitles;
};
