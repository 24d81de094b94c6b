#include "AlertController.h"

#include "Button.h"
#include "Label.h"

#include <QApplication>
#include <QBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <algorithm>

namespace {
constexpr int kAlertWidth = 270;
constexpr int kSheetMargin = 8;
constexpr int kPadWidth = 768;
constexpr int kPopoverWidth = 320;
const QColor kDim { 0, 0, 0, 110 };
const QColor kPanel { 44, 44, 46 }; // opaque: nothing of the list shows through
const QColor kTint { 10, 132, 255 };
const QColor kDestructive { 255, 69, 58 };

QString buttonStyle(AlertAction::Style style)
{
    const QColor color = style == AlertAction::Style::Destructive ? kDestructive : kTint;
    return QStringLiteral(
               "QPushButton { color: %1; background: transparent; border: none;"
               " border-top: 1px solid rgba(255,255,255,40); font-size: 17px; %2 padding: 11px; }"
               "QPushButton:pressed { background: rgba(255,255,255,25); }"
               "QPushButton:focus { background: rgba(255,255,255,18); border: 2px solid %3;"
               " border-radius: 10px; padding: 9px; }")
        .arg(color.name(),
             style == AlertAction::Style::Cancel ? QStringLiteral("font-weight: 600;") : QString(),
             kFocusRingColor.name());
}
} // namespace

AlertController *AlertController::alertControllerWithTitle(const QString &title,
                                                           const QString &message,
                                                           Style preferredStyle)
{
    return new AlertController(title, message, preferredStyle);
}

AlertController::AlertController(const QString &title, const QString &message, Style style)
    : m_title(title), m_message(message), m_style(style)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setFocusPolicy(Qt::StrongFocus);
    setObjectName(QStringLiteral("AlertController"));
    setAccessibleName(title);
    setAccessibleDescription(message);
}

AlertController *AlertController::alertWithOkay(const QString &title, const QString &message,
                                                AlertAction::Handler okay)
{
    AlertController *alert = alertControllerWithTitle(title, message, Style::Alert);
    alert->addAction(AlertAction::actionWithTitle(QStringLiteral("Okay"),
                                                  AlertAction::Style::Cancel, std::move(okay)));
    return alert;
}

void AlertController::addAction(const AlertAction &action)
{
    m_actions.append(action);
}

void AlertController::setTitle(const QString &title)
{
    m_title = title;
    setAccessibleName(title);
    if (m_titleLabel) {
        m_titleLabel->setText(title);
        m_titleLabel->setVisible(!title.isEmpty());
        placePanel();
    }
    emit titleChanged(title);
}

void AlertController::setMessage(const QString &message)
{
    m_message = message;
    setAccessibleDescription(message);
    if (m_messageLabel) {
        m_messageLabel->setText(message);
        m_messageLabel->setVisible(!message.isEmpty());
        placePanel();
    }
    emit messageChanged(message);
}

void AlertController::build()
{
    m_panel = new QWidget(this);
    m_panel->setObjectName(QStringLiteral("AlertPanel"));
    m_panel->setAttribute(Qt::WA_StyledBackground);
    m_panel->setStyleSheet(QStringLiteral("#AlertPanel { background: %1; border-radius: 13px; }")
                               .arg(kPanel.name(QColor::HexArgb)));
    auto *layout = new QVBoxLayout(m_panel);
    layout->setContentsMargins(0, 16, 0, 0);
    layout->setSpacing(2);

    m_titleLabel = new WrappingLabel(m_title, m_panel);
    m_titleLabel->setObjectName(QStringLiteral("AlertTitle"));
    m_titleLabel->setAlignment(Qt::AlignCenter);
    m_titleLabel->setStyleSheet(
        QStringLiteral("color: white; font-size: 17px; font-weight: 600; padding: 0 16px;"));
    m_titleLabel->setVisible(!m_title.isEmpty());
    layout->addWidget(m_titleLabel);
    m_messageLabel = new WrappingLabel(m_message, m_panel);
    m_messageLabel->setObjectName(QStringLiteral("AlertMessage"));
    m_messageLabel->setAlignment(Qt::AlignCenter);
    m_messageLabel->setStyleSheet(
        QStringLiteral("color: white; font-size: 13px; padding: 0 16px 16px 16px;"));
    m_messageLabel->setVisible(!m_message.isEmpty());
    layout->addWidget(m_messageLabel);

    // Two actions of an alert sit side by side, as on the phone; otherwise one under another.
    QBoxLayout *buttons = (m_style == Style::Alert && m_actions.size() == 2)
                              ? static_cast<QBoxLayout *>(new QHBoxLayout)
                              : static_cast<QBoxLayout *>(new QVBoxLayout);
    buttons->setSpacing(0);
    layout->addLayout(buttons);
    for (int i = 0; i < m_actions.size(); ++i) {
        auto *button = new QPushButton(m_actions[i].title(), m_panel);
        button->setStyleSheet(buttonStyle(m_actions[i].style()));
        button->setAccessibleName(m_actions[i].title());
        button->setAutoDefault(false);
        button->setCursor(Qt::PointingHandCursor);
        connect(button, &QPushButton::clicked, this, [this, i] { choose(i); });
        buttons->addWidget(button);
        m_buttons << button;
    }
}

QPushButton *AlertController::buttonForAction(const QString &title) const
{
    for (QPushButton *button : m_buttons) {
        if (button->text() == title)
            return button;
    }
    return nullptr;
}

void AlertController::presentIn(QWidget *over, bool)
{
    QWidget *window = over->window();
    m_returnFocus = QApplication::focusWidget();
    setParent(window);
    build();
    window->installEventFilter(this);
    setGeometry(window->rect());
    placePanel();
    show();
    raise();
    setFocus(Qt::OtherFocusReason);
    // A question that destroys something waits on Cancel: Enter or Space alone never
    // answers it, the destructive action has to be chosen. Others offer their first action.
    const int focused = hasDestructiveAction() ? cancelIndex() : 0;
    if (focused >= 0 && focused < m_buttons.size())
        m_buttons.at(focused)->setFocus(Qt::OtherFocusReason);
}

int AlertController::cancelIndex() const
{
    for (int i = 0; i < m_actions.size(); ++i) {
        if (m_actions[i].style() == AlertAction::Style::Cancel)
            return i;
    }
    return -1;
}

bool AlertController::hasDestructiveAction() const
{
    return std::any_of(m_actions.cbegin(), m_actions.cend(), [](const AlertAction &action) {
        return action.style() == AlertAction::Style::Destructive;
    });
}

void AlertController::placePanel()
{
    const int width = this->width();
    const bool popover =
        m_style == Style::ActionSheet && width >= kPadWidth && m_sourceRect.isValid();
    const int panelWidth = m_style == Style::Alert ? qMin(kAlertWidth, width - 2 * kSheetMargin)
                           : popover               ? kPopoverWidth
                                                   : width - 2 * kSheetMargin;
    m_panel->setFixedWidth(panelWidth);
    // A new title or message is measured now, not at the next turn of the event loop.
    QLayout *layout = m_panel->layout();
    layout->invalidate();
    m_panel->resize(panelWidth, layout->hasHeightForWidth()
                                    ? layout->totalHeightForWidth(panelWidth)
                                    : layout->totalSizeHint().height());
    const QSize size = m_panel->size();
    QPoint topLeft;
    if (m_style == Style::Alert)
        topLeft = QPoint((width - size.width()) / 2, (height() - size.height()) / 2);
    else if (popover)
        topLeft = QPoint(qBound(kSheetMargin, m_sourceRect.center().x() - size.width() / 2,
                                width - size.width() - kSheetMargin),
                         qBound(kSheetMargin, m_sourceRect.top() - size.height() - kSheetMargin,
                                height() - size.height()));
    else
        topLeft = QPoint(kSheetMargin, height() - size.height() - kSheetMargin);
    m_panel->move(topLeft);
}

void AlertController::dismiss(bool)
{
    if (parentWidget())
        parentWidget()->removeEventFilter(this);
    hide();
    // The keyboard goes back to where it was when the question came.
    if (m_returnFocus && m_returnFocus->isVisible())
        m_returnFocus->setFocus(Qt::OtherFocusReason);
    emit dismissed();
    close(); // deletes the sheet once control returns to the event loop
}

void AlertController::choose(int index)
{
    if (m_done || index < 0 || index >= m_actions.size())
        return;
    m_done = true;
    const AlertAction action = m_actions[index];
    dismiss(true);
    if (action.handler())
        action.handler()(action);
}

bool AlertController::focusNextPrevChild(bool next)
{
    // Tab goes round the sheet's own buttons: nothing under the sheet can be reached.
    const int count = int(m_buttons.size());
    if (count == 0)
        return true;
    int at = 0;
    while (at < count && !m_buttons[at]->hasFocus())
        ++at;
    const int to = at == count ? 0 : (at + (next ? 1 : count - 1)) % count;
    m_buttons[to]->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
    return true;
}

bool AlertController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize) {
        setGeometry(parentWidget()->rect());
        placePanel();
    }
    return QWidget::eventFilter(watched, event);
}

void AlertController::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        return choose(cancelIndex());
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        // The focused button if there is one; else Cancel where the question destroys
        // something, and the first other action where it only asks.
        for (int i = 0; i < m_buttons.size(); ++i) {
            if (m_buttons[i]->hasFocus())
                return choose(i);
        }
        if (hasDestructiveAction())
            return choose(cancelIndex());
        for (int i = 0; i < m_actions.size(); ++i) {
            if (m_actions[i].style() != AlertAction::Style::Cancel)
                return choose(i);
        }
        return;
    }
    QWidget::keyPressEvent(event);
}

void AlertController::mousePressEvent(QMouseEvent *event)
{
    // A tap beside an action sheet cancels it; an alert waits for an answer.
    if (m_style == Style::ActionSheet &&
        !m_panel->geometry().contains(event->position().toPoint()))
        choose(cancelIndex());
    event->accept();
}

void AlertController::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), kDim);
}
