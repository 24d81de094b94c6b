#include "Toolbar.h"

#include "BarButton.h"
#include "BarButtonItem.h"

namespace {
constexpr int kSideMargin = 8;
}

Toolbar::Toolbar(QWidget *parent) : Bar(Bar::Edge::Top, parent) {}

void Toolbar::setItems(const QList<BarButtonItem *> &items)
{
    for (const auto &button : std::as_const(m_buttons)) {
        if (button)
            button->deleteLater();
    }
    m_items.clear();
    m_buttons.clear();
    for (BarButtonItem *item : items) {
        m_items << item;
        // A button decides its own visibility from its item's alpha.
        m_buttons << (item->isFlexibleSpace() ? nullptr : new BarButton(item, this));
    }
    layoutItems();
}

QList<BarButton *> Toolbar::buttons() const
{
    QList<BarButton *> result;
    for (const auto &button : m_buttons) {
        if (button)
            result << button;
    }
    return result;
}

void Toolbar::layoutItems()
{
    int fixed = 0;
    int flexible = 0;
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        if (m_buttons[i])
            fixed += m_buttons[i]->sizeHint().width();
        else
            ++flexible;
    }
    const int room = qMax(0, width() - 2 * kSideMargin - fixed);
    int x = kSideMargin;
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        if (!m_buttons[i]) {
            x += flexible ? room / flexible : 0;
            continue;
        }
        const int w = m_buttons[i]->sizeHint().width();
        m_buttons[i]->setGeometry(x, 0, w, kHeight);
        x += w;
    }
}

void Toolbar::resizeEvent(QResizeEvent *)
{
    layoutItems();
}
