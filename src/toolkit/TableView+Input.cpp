// How the table answers a person: taps, drags and swipes of the mouse and of a finger (with
// QScroller sharing the presses), the keyboard, and where the keyboard focus is.
#include "TableView.h"
#include "TableViewCell.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QTouchEvent>
#include <cmath>

namespace {
// A press that moves further than this, in any direction, is not a tap.
constexpr int kTapSlop = 10;
// Far outside any widget: where a press that became a scroll is let go, so that nothing
// under it takes it for a click.
constexpr QPointF kFarAway { -QWIDGETSIZE_MAX, -QWIDGETSIZE_MAX };
} // namespace

void TableView::userTappedRow(int row)
{
    const IndexPath tapped { 0, row };
    if (m_editing && m_multipleSelectionDuringEditing) {
        if (m_selectedRows.contains(row)) {
            deselectRowAtIndexPath(tapped, false);
            if (m_delegate)
                m_delegate->didDeselectRowAtIndexPath(tapped);
        } else {
            selectRowAtIndexPath(tapped, false);
            if (m_delegate)
                m_delegate->didSelectRowAtIndexPath(tapped);
        }
        return;
    }
    // Single selection: the row that loses the selection hears of it first.
    const QList<int> previous = m_selectedRows;
    for (const int other : previous) {
        if (other == row)
            continue;
        deselectRowAtIndexPath({ 0, other }, false);
        if (m_delegate)
            m_delegate->didDeselectRowAtIndexPath({ 0, other });
    }
    selectRowAtIndexPath(tapped, false);
    if (m_delegate)
        m_delegate->didSelectRowAtIndexPath(tapped);
}

void TableView::setFocusedRow(int row)
{
    m_focusedRow = m_rowCount == 0 ? -1 : qBound(0, row, m_rowCount - 1);
    if (m_focusedRow >= 0)
        scrollToRowAtIndexPath({ 0, m_focusedRow });
    updateFocusRing();
}

void TableView::updateFocusRing()
{
    const bool shown = hasFocus() && m_keyboardInUse;
    for (auto it = m_visibleCells.cbegin(); it != m_visibleCells.cend(); ++it)
        it.value()->setKeyboardFocused(shown && it.key() == m_focusedRow);
}

int TableView::rowHolding(const QWidget *widget) const
{
    for (auto it = m_visibleCells.cbegin(); it != m_visibleCells.cend(); ++it) {
        if (it.value()->isAncestorOf(widget))
            return it.key();
    }
    return -1;
}

void TableView::focusChanged(QWidget *now)
{
    // A row's button or player control that takes the focus (by Tab, say) makes its row the
    // focused one, so that Up and Down go on from there.
    if (!now || now == this || !isAncestorOf(now))
        return;
    if (const int row = rowHolding(now); row >= 0 && row != m_focusedRow) {
        m_focusedRow = row;
        scrollToRowAtIndexPath({ 0, row });
    }
    updateFocusRing();
}

void TableView::arrangeTabOrder()
{
    QWidget *previous = this;
    for (TableViewCell *cell : std::as_const(m_visibleCells)) {
        for (QWidget *control : cell->followingControls()) {
            setTabOrder(previous, control);
            previous = control;
        }
    }
}

bool TableView::focusNextPrevChild(bool next)
{
    // Tab from one of a row's own buttons goes on as from its row: to what follows the table.
    QWidget *focus = QApplication::focusWidget();
    if (focus && focus != this && isAncestorOf(focus) && focus->focusPolicy() == Qt::NoFocus)
        setFocus(Qt::OtherFocusReason);
    return QAbstractScrollArea::focusNextPrevChild(next);
}

int TableView::rowAPageFrom(int row, int direction) const
{
    if (m_rowCount == 0)
        return -1;
    row = qBound(0, row, m_rowCount - 1);
    // The row a screen's height away, whatever the rows' heights; at least the next one.
    const int y = m_offsets[size_t(row)] + direction * viewport()->height();
    const int paged = rowAtContentY(qBound(0, y, qMax(0, m_offsets.back() - 1)));
    return paged == row ? row + direction : paged;
}

bool TableView::moveAmongRowControls(int step)
{
    const TableViewCell *cell = m_visibleCells.value(m_focusedRow);
    if (!cell)
        return false;
    QList<QWidget *> stops { this };
    for (QWidget *control : cell->rowControls()) {
        if (control->isVisible() && control->isEnabled())
            stops << control;
    }
    const int at = stops.indexOf(QApplication::focusWidget());
    if (at < 0)
        return false; // a control after the row (the scrub bar) keeps its own arrows
    const int to = at + step;
    if (to < 0 || to >= stops.size())
        return true;
    stops.at(to)->setFocus(step > 0 ? Qt::TabFocusReason : Qt::BacktabFocusReason);
    return true;
}

bool TableView::canShowDelete(int row)
{
    if (m_editing || !m_dataSource || row < 0 || row >= m_rowCount ||
        !m_dataSource->canEditRowAtIndexPath({ 0, row }))
        return false;
    return !m_delegate || m_delegate->editingStyleForRowAtIndexPath({ 0, row }) ==
                              TableViewDataSource::EditingStyle::Delete;
}

void TableView::setSwipeOffset(int row, int offset)
{
    if (TableViewCell *cell = m_visibleCells.value(row))
        cell->setSwipeOffset(offset);
}

void TableView::showDeleteForRow(int row)
{
    if (!canShowDelete(row))
        return;
    if (m_deleteRow != row)
        hideDelete();
    m_deleteRow = row;
    setSwipeOffset(row, -kDeleteButtonWidth);
    layoutCells();
}

void TableView::hideDelete()
{
    if (m_deleteRow < 0)
        return;
    setSwipeOffset(m_deleteRow, 0);
    m_deleteRow = -1;
    m_deleteButton->hide();
}

void TableView::scrollerStateChanged(QScroller::State state)
{
    // Once the scroller moves the list the press is no tap, and no row stays slid open.
    if (state != QScroller::Dragging) {
        if (state != QScroller::Pressed)
            m_pressedWidget.clear();
        return;
    }
    if (m_drag == Drag::Swipe)
        setSwipeOffset(m_swipeRow, m_deleteRow == m_swipeRow ? -kDeleteButtonWidth : 0);
    if (m_drag != Drag::None)
        m_drag = Drag::Scroll;
    hideDelete();
    // The scroller now takes the moves and the release: a widget in a cell that took the press
    // (a button, say) is let go now, far away, so that it neither stays down nor clicks. It is
    // handed the release directly: through the application the scroller would see it too and
    // end the drag.
    QWidget *pressed = m_pressedWidget.data();
    m_pressedWidget.clear();
    if (pressed && pressed != viewport()) {
        QMouseEvent release(QEvent::MouseButtonRelease, pressed->mapFromGlobal(kFarAway), kFarAway,
                            kFarAway, Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
        static_cast<QObject *>(pressed)->event(&release);
    }
}

void TableView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    pressAt(event->position().toPoint());
    event->accept();
}

void TableView::pressAt(const QPoint &position)
{
    if (m_keyboardInUse) {
        m_keyboardInUse = false;
        updateFocusRing();
    }
    // A press that reaches the list while it moves (the scroller lets one through when its
    // speed has just reached zero) stops it and is not a tap either.
    const bool moving = isDragging() || isDecelerating();
    if (moving)
        m_scroller->stop();
    m_drag = moving ? Drag::Scroll : Drag::Pending;
    m_pressPosition = position;
}

void TableView::dragTo(const QPoint &position)
{
    const QPoint delta = position - m_pressPosition;
    if (m_drag == Drag::Pending &&
        (std::abs(delta.x()) > kTapSlop || std::abs(delta.y()) > kTapSlop)) {
        const auto row = indexPathForRowAtPoint(m_pressPosition);
        if (std::abs(delta.x()) > std::abs(delta.y()) && delta.x() < 0 && row &&
            canShowDelete(row->row)) {
            if (m_deleteRow != row->row)
                hideDelete();
            m_drag = Drag::Swipe;
            m_swipeRow = row->row;
        } else {
            // Vertical moves are the scroller's; any other is simply no tap.
            m_drag = Drag::Moved;
        }
    }
    if (m_drag == Drag::Swipe) {
        const int start = m_deleteRow == m_swipeRow ? -kDeleteButtonWidth : 0;
        setSwipeOffset(m_swipeRow, qBound(-kDeleteButtonWidth, start + delta.x(), 0));
    }
}

void TableView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_drag != Drag::None)
        dragTo(event->position().toPoint());
}

void TableView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        releaseAt(event->position().toPoint());
}

void TableView::releaseAt(const QPoint &position, QAbstractButton *button)
{
    if (m_drag == Drag::None)
        return;
    // The scroller may have held back the moves in between: the release alone still tells
    // how far the press went.
    if (m_drag == Drag::Pending || m_drag == Drag::Swipe)
        dragTo(position);
    const Drag drag = m_drag;
    m_drag = Drag::None;

    if (drag == Drag::Swipe) {
        const TableViewCell *cell = m_visibleCells.value(m_swipeRow);
        if (cell && cell->swipeOffset() <= -kDeleteButtonWidth / 2)
            showDeleteForRow(m_swipeRow);
        else if (m_deleteRow == m_swipeRow)
            hideDelete();
        else
            setSwipeOffset(m_swipeRow, 0);
        return;
    }
    if (drag != Drag::Pending)
        return;
    // A finger's tap on a button, or close by a small one, is that button's, as a click on it.
    if (button) {
        button->setDown(false);
        button->click();
        return;
    }
    // A tap while Delete shows only puts the row back.
    if (m_deleteRow >= 0) {
        hideDelete();
        return;
    }
    if (const auto indexPath = indexPathForRowAtPoint(position)) {
        setFocusedRow(indexPath->row);
        userTappedRow(indexPath->row);
    }
}

QWidget *TableView::touchTargetAt(const QPointF &point) const
{
    for (QWidget *widget = viewport()->childAt(point.toPoint()); widget && widget != viewport();
         widget = widget->parentWidget()) {
        if (auto *button = qobject_cast<QAbstractButton *>(widget))
            return button->isEnabled() ? button : nullptr;
    }
    QWidget *nearest = nullptr;
    double distance = kTouchReach;
    for (const TableViewCell *cell : m_visibleCells) {
        for (QWidget *control : cell->touchTargets()) {
            // Only a button, or a control that takes touches, can be handed one: any other
            // would pass it back up to the viewport.
            if (!control->isVisible() || !control->isEnabled() ||
                !(qobject_cast<QAbstractButton *>(control) ||
                  control->testAttribute(Qt::WA_AcceptTouchEvents)))
                continue;
            const QPointF off =
                point - control->mapTo(viewport(), QRectF(control->rect()).center());
            if (std::abs(off.x()) > kTouchReach / 2.0 || std::abs(off.y()) > kTouchReach / 2.0)
                continue;
            if (const double away = std::hypot(off.x(), off.y()); away < distance) {
                distance = away;
                nearest = control;
            }
        }
    }
    return nearest;
}

bool TableView::touchEvent(QTouchEvent *event)
{
    event->accept();
    if (event->points().isEmpty())
        return true;
    // Only the first finger counts; the list has nothing for a second one.
    const QEventPoint &finger = event->points().first();
    // Mapped from the screen: a touch that began on a child arrives in its coordinates.
    const QPointF at = viewport()->mapFromGlobal(finger.globalPosition());
    const QEvent::Type type = event->type();
    const bool last = type == QEvent::TouchEnd || type == QEvent::TouchCancel;
    if (type == QEvent::TouchBegin) {
        m_touchTarget = touchTargetAt(at);
        m_touchHandedOn = m_touchTarget && !qobject_cast<QAbstractButton *>(m_touchTarget);
    }
    if (m_touchHandedOn) {
        // A fresh point, so that the control holding it takes no grab of the finger, which
        // stays the viewport's until it lifts.
        const QEventPoint point(finger.id(), finger.state(), finger.scenePosition(),
                                finger.globalPosition());
        QTouchEvent handed(type, event->pointingDevice(), event->modifiers(), { point });
        handed.setTimestamp(event->timestamp());
        if (m_touchTarget)
            QCoreApplication::sendEvent(m_touchTarget, &handed);
        if (last) {
            m_touchHandedOn = false;
            m_touchTarget.clear();
        }
        return true;
    }
    switch (type) {
    case QEvent::TouchBegin:
        // The scroller first, as with the mouse's gesture: a press on a moving list catches it.
        m_scroller->handleInput(QScroller::InputPress, at, event->timestamp());
        m_pressedWidget.clear(); // no widget took this press: none is let go of later
        pressAt(at.toPoint());
        break;
    case QEvent::TouchUpdate:
        m_scroller->handleInput(QScroller::InputMove, at, event->timestamp());
        if (m_drag != Drag::None)
            dragTo(at.toPoint());
        break;
    case QEvent::TouchEnd:
        m_scroller->handleInput(QScroller::InputRelease, at, event->timestamp());
        releaseAt(at.toPoint(), qobject_cast<QAbstractButton *>(m_touchTarget));
        break;
    default: // the system took the finger away: nothing it did counts
        if (m_drag == Drag::Swipe)
            setSwipeOffset(m_swipeRow, m_deleteRow == m_swipeRow ? -kDeleteButtonWidth : 0);
        m_drag = Drag::None;
        if (m_scroller->state() == QScroller::Pressed || isDragging())
            m_scroller->stop();
        break;
    }
    // A button shows itself pressed while the finger on it may still tap.
    if (auto *button = qobject_cast<QAbstractButton *>(m_touchTarget))
        button->setDown(m_drag == Drag::Pending);
    if (last)
        m_touchTarget.clear();
    return true;
}

void TableView::keyPressEvent(QKeyEvent *event)
{
    m_keyboardInUse = true;

    // Keys that a row's control let through (it reached the table from inside a cell): the
    // arrows walk the row's buttons or move to another row, which takes the focus back.
    const bool fromControl = !hasFocus();
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Right:
        if (!moveAmongRowControls(event->key() == Qt::Key_Right ? 1 : -1))
            event->ignore();
        return;
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
    case Qt::Key_Escape:
        if (fromControl)
            setFocus(Qt::OtherFocusReason);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        // A control that did not take these (the scrub bar) does not open or close its row.
        if (fromControl) {
            event->ignore();
            return;
        }
        break;
    default:
        break;
    }
    switch (event->key()) {
    case Qt::Key_Down:
        setFocusedRow(m_focusedRow + 1);
        break;
    case Qt::Key_Up:
        setFocusedRow(m_focusedRow < 0 ? 0 : m_focusedRow - 1);
        break;
    case Qt::Key_PageDown:
        setFocusedRow(rowAPageFrom(m_focusedRow, 1));
        break;
    case Qt::Key_PageUp:
        setFocusedRow(rowAPageFrom(m_focusedRow, -1));
        break;
    case Qt::Key_Home:
        setFocusedRow(0);
        break;
    case Qt::Key_End:
        setFocusedRow(m_rowCount - 1);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        if (m_deleteRow >= 0 && m_deleteRow == m_focusedRow)
            m_deleteButton->click();
        else if (m_focusedRow >= 0)
            userTappedRow(m_focusedRow);
        break;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        showDeleteForRow(m_focusedRow);
        break;
    case Qt::Key_Escape:
        if (m_deleteRow >= 0) {
            hideDelete();
        } else if (!m_editing && !m_selectedRows.isEmpty()) {
            // A second tap closes the open row; the row is left deselected, so that the next
            // Escape finds nothing to close and never opens it again.
            const int row = m_selectedRows.first();
            userTappedRow(row);
            deselectRowAtIndexPath({ 0, row }, false);
        } else {
            event->ignore();
        }
        break;
    default:
        QAbstractScrollArea::keyPressEvent(event);
    }
}

void TableView::focusInEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusInEvent(event);
    if (m_focusedRow < 0 && m_rowCount > 0)
        m_focusedRow = 0;
    if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason)
        m_keyboardInUse = true;
    updateFocusRing();
}

void TableView::focusOutEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusOutEvent(event);
    updateFocusRing();
}
