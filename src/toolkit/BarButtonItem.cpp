#include "BarButtonItem.h"

BarButtonItem::BarButtonItem(const QString &title, Style style, QObject *parent)
    : QObject(parent), m_title(title), m_style(style)
{}

BarButtonItem::BarButtonItem(SystemItem, QObject *parent) : QObject(parent), m_flexibleSpace(true)
{}

BarButtonItem *BarButtonItem::withImage(const QString &imageName, Style style, QObject *parent)
{
    auto *item = new BarButtonItem(QString(), style, parent);
    item->m_imageName = imageName;
    return item;
}

void BarButtonItem::setTitle(const QString &title)
{
    if (m_title == title)
        return;
    m_title = title;
    emit changed();
}

void BarButtonItem::setImage(const QString &imageName)
{
    m_imageName = imageName;
    emit changed();
}

void BarButtonItem::setEnabled(bool enabled)
{
    if (m_enabled == enabled)
        return;
    m_enabled = enabled;
    emit changed();
}

void BarButtonItem::setViewAlpha(double alpha)
{
    if (m_viewAlpha == alpha)
        return;
    m_viewAlpha = alpha;
    emit changed();
}

void BarButtonItem::setAccessibleName(const QString &name)
{
    m_accessibleName = name;
    emit changed();
}

void BarButtonItem::setPossibleTitles(const QSet<QString> &titles)
{
    m_possibleTitles = titles;
    emit changed();
}

void BarButtonItem::trigger()
{
    if (m_enabled && !m_flexibleSpace)
        emit triggered(this);
}
