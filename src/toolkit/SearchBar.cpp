#include "SearchBar.h"

#include "Button.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>

namespace {
constexpr int kSideMargin = 8;
constexpr int kFieldHeight = 32;
constexpr int kFontSize = 16;
} // namespace

SearchBar::SearchBar(QWidget *parent) : Bar(Bar::Edge::Bottom, parent), m_field(new QLineEdit(this))
{
    setObjectName(QStringLiteral("SearchBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(kSideMargin, 0, kSideMargin, 0);
    layout->addWidget(m_field);
    m_field->setFixedHeight(kFieldHeight);
    m_field->setClearButtonEnabled(true);
    m_field->setAccessibleName(QStringLiteral("Search"));
    QFont font = m_field->font();
    font.setPixelSize(kFontSize);
    m_field->setFont(font);
    // The phone's dark search field: a grey pill with white text and a grey placeholder, and
    // the same focus ring as every other control.
    m_field->setStyleSheet(QStringLiteral("QLineEdit { background: rgb(44, 44, 46); color: white;"
                                          " border: 2px solid transparent; border-radius: 10px;"
                                          " padding: 0 6px; selection-background-color: %1; }"
                                          " QLineEdit:focus { border-color: %1; }")
                               .arg(kFocusRingColor.name()));
    QPalette palette = m_field->palette();
    palette.setColor(QPalette::PlaceholderText, QColor(142, 142, 147));
    m_field->setPalette(palette);
    m_field->installEventFilter(this);
    connect(m_field, &QLineEdit::textChanged, this, &SearchBar::textChanged);
}

QString SearchBar::text() const
{
    return m_field->text();
}

void SearchBar::setText(const QString &text)
{
    m_field->setText(text);
}

void SearchBar::setPlaceholderText(const QString &text)
{
    m_field->setPlaceholderText(text);
}

void SearchBar::begin()
{
    show();
    m_field->setFocus(Qt::ShortcutFocusReason);
    m_field->selectAll();
}

bool SearchBar::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_field && event->type() == QEvent::KeyPress) {
        switch (static_cast<QKeyEvent *>(event)->key()) {
        case Qt::Key_Escape:
            emit dismissed();
            return true;
        case Qt::Key_Down:
        case Qt::Key_Return:
        case Qt::Key_Enter:
            emit resultsRequested();
            return true;
        default:
            break;
        }
    }
    return Bar::eventFilter(watched, event);
}
