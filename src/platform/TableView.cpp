#include "TableView.h"

#include "Accessibility.h"
#include "TableViewCell.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QVariantAnimation>
#include <algorithm>
#include <cmath>

namespace {
// The phone animates row heights over about a third of a second.
constexpr int kHeightAnimationMs = 300;
// A press that moves further than this is a drag, not a tap.
constexpr int kTapSlop = 10;
// Flicks: speed lost per second (as a fraction), and the speed below which scrolling stops.
constexpr double kFlickFriction = 0.95;
constexpr double kFlickMinimumSpeed = 20.0;
constexpr int kFlickIntervalMs = 16;
// Only the last moments of a drag decide the speed of the flick that follows it.
constexpr qint64 kFlickSampleWindowMs = 100;
constexpr qint64 kFlickRestMs = 50;
constexpr int kDeleteButtonWidth = 82;
} // namespace

TableView::TableView(QWidget *parent)
    : QAbstractScrollArea(parent), m_heightAnimation(new QVariantAnimation(this)),
      m_flickTimer(new QTimer(this)),
      m_deleteButton(new QPushButton(QStringLiteral("Delete"), viewport()))
{
    Accessibility::install();
    m_flickTimer->setInterval(kFlickIntervalMs);
    m_flickTimer->setTimerType(Qt::PreciseTimer);
    connect(m_flickTimer, &QTimer::timeout, this, &TableView::flickStep);
    m_deleteButton->hide();
    m_deleteButton->setFocusPolicy(Qt::NoFocus);
    m_deleteButton->setAccessibleName(QStringLiteral("Delete"));
    m_deleteButton->setStyleSheet(
        QStringLiteral("QPushButton { background: rgb(255,59,48); color: white;"
                       " border: none; font-size: 17px; }"));
    connect(m_deleteButton, &QPushButton::clicked, this, [this] {
        const int row = m_deleteRow;
        hideDelete();
        if (m_dataSource && row >= 0 && row < m_rowCount)
            m_dataSource->commitEditingStyle(TableViewDataSource::EditingStyle::Delete, { 0, row });
    });
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setFocusPolicy(Qt::StrongFocus);
    verticalScrollBar()->setSingleStep(20);
    viewport()->setAutoFillBackground(false);
    // Touches reach the drag and flick below as the mouse events Qt makes of them, so a
    // finger and a mouse scroll the list the same way.

    m_heightAnimation->setDuration(kHeightAnimationMs);
    // Starts quickly, so that a tapped row moves in the very next frame, and settles softly.
    m_heightAnimation->setEasingCurve(QEasingCurve::OutCubic);
    m_heightAnimation->setStartValue(0.0);
    m_heightAnimation->setEndValue(1.0);
    connect(m_heightAnimation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &value) {
                const double progress = value.toDouble();
                for (size_t row = 0; row < m_heights.size(); ++row)
                    m_heights[row] =
                        m_fromHeights[row] + (m_toHeights[row] - m_fromHeights[row]) * progress;
                recomputeOffsets();
                updateScrollRange();
                layoutCells();
            });
}

TableView::~TableView() = default;

void TableView::setBackgroundColor(const QColor &color)
{
    m_backgroundColor = color;
    viewport()->update();
}

int TableView::numberOfRowsInSection(int section) const
{
    return section == 0 ? m_rowCount : 0;
}

void TableView::reloadData()
{
    m_heightAnimation->stop();
    const auto visible = m_visibleCells;
    for (TableViewCell *cell : visible)
        enqueue(cell);
    m_visibleCells.clear();
    m_selectedRows.clear();
    hideDelete();

    m_rowCount = m_dataSource ? qMax(0, m_dataSource->numberOfRowsInSection(0)) : 0;
    m_toHeights.assign(size_t(m_rowCount), 44.0);
    if (m_delegate) {
        for (int row = 0; row < m_rowCount; ++row)
            m_toHeights[size_t(row)] = m_delegate->heightForRowAtIndexPath({ 0, row });
    }
    m_heights = m_toHeights;
    m_fromHeights = m_toHeights;
    if (m_focusedRow >= m_rowCount || (m_focusedRow < 0 && hasFocus()))
        m_focusedRow = m_rowCount - 1 < 0 ? -1 : qMin(qMax(m_focusedRow, 0), m_rowCount - 1);
    recomputeOffsets();
    updateScrollRange();
    layoutCells();
}

void TableView::beginUpdates()
{
    ++m_updateDepth;
}

void TableView::endUpdates()
{
    if (m_updateDepth > 0 && --m_updateDepth > 0)
        return;
    std::vector<double> heights(size_t(m_rowCount), 44.0);
    if (m_delegate) {
        for (int row = 0; row < m_rowCount; ++row)
            heights[size_t(row)] = m_delegate->heightForRowAtIndexPath({ 0, row });
    }
    if (heights == m_toHeights && !m_heightAnimation->state())
        return;
    m_heightAnimation->stop();
    m_fromHeights = m_heights;
    m_toHeights = std::move(heights);
    m_heightAnimation->start();
}

bool TableView::isAnimatingHeights() const
{
    return m_heightAnimation->state() == QAbstractAnimation::Running;
}

void TableView::recomputeOffsets()
{
    m_offsets.resize(m_heights.size() + 1);
    double top = 0;
    m_offsets[0] = 0;
    for (size_t row = 0; row < m_heights.size(); ++row) {
        top += m_heights[row];
        m_offsets[row + 1] = int(std::lround(top));
    }
}

void TableView::updateScrollRange()
{
    const int contentHeight = m_offsets.empty() ? 0 : m_offsets.back();
    QScrollBar *bar = verticalScrollBar();
    bar->setPageStep(viewport()->height());
    bar->setRange(0, qMax(0, contentHeight - viewport()->height()));
}

int TableView::rowAtContentY(int y) const
{
    // The last row whose top is at or above y.
    const auto it = std::upper_bound(m_offsets.begin(), m_offsets.end() - 1, y);
    return int(std::distance(m_offsets.begin(), it)) - 1;
}

void TableView::layoutCells()
{
    const int top = verticalScrollBar()->value();
    const int bottom = top + viewport()->height();
    int first = 0;
    int last = -1;
    if (m_rowCount > 0 && viewport()->height() > 0) {
        first = qBound(0, rowAtContentY(top), m_rowCount - 1);
        last = qBound(0, rowAtContentY(qMax(top, bottom - 1)), m_rowCount - 1);
    }

    for (auto it = m_visibleCells.begin(); it != m_visibleCells.end();) {
        if (it.key() < first || it.key() > last) {
            enqueue(it.value());
            it = m_visibleCells.erase(it);
        } else {
            ++it;
        }
    }

    const int width = viewport()->width();
    for (int row = first; row <= last; ++row) {
        TableViewCell *cell = m_visibleCells.value(row);
        if (!cell && m_dataSource) {
            cell = m_dataSource->cellForRowAtIndexPath({ 0, row });
            if (!cell)
                continue;
            if (cell->parentWidget() != viewport())
                cell->setParent(viewport());
            m_visibleCells.insert(row, cell);
            cell->setSelected(m_selectedRows.contains(row));
            cell->setKeyboardFocused(row == m_focusedRow && hasFocus() && m_keyboardInUse);
            cell->setSwipeOffset(row == m_deleteRow ? -kDeleteButtonWidth : 0);
        }
        if (!cell)
            continue;
        cell->setGeometry(0, m_offsets[size_t(row)] - top, width,
                          m_offsets[size_t(row) + 1] - m_offsets[size_t(row)]);
        cell->show();
    }
    if (m_deleteRow >= 0 && m_visibleCells.contains(m_deleteRow)) {
        const QRect row = m_visibleCells.value(m_deleteRow)->geometry();
        m_deleteButton->setGeometry(row.right() + 1 - kDeleteButtonWidth, row.top(),
                                    kDeleteButtonWidth, row.height());
        m_deleteButton->show();
        m_deleteButton->raise();
    } else {
        m_deleteButton->hide();
    }
    emit didLayoutCells();
}

void TableView::enqueue(TableViewCell *cell)
{
    cell->hide();
    cell->setSelected(false);
    cell->setKeyboardFocused(false);
    cell->setSwipeOffset(0);
    m_reuseQueues[cell->reuseIdentifier()].append(cell);
    m_queueOrder.append(cell);
    // Identifiers may be many (one per row, say): past the limit the oldest cells go, so a
    // long scroll does not keep a cell for every row it passed.
    while (m_queueOrder.size() > kMaxQueuedCells) {
        TableViewCell *oldest = m_queueOrder.takeFirst();
        auto queue = m_reuseQueues.find(oldest->reuseIdentifier());
        queue->removeOne(oldest);
        if (queue->isEmpty())
            m_reuseQueues.erase(queue);
        oldest->deleteLater();
    }
}

TableViewCell *TableView::dequeueReusableCellWithIdentifier(const QString &identifier)
{
    auto queue = m_reuseQueues.find(identifier);
    if (queue == m_reuseQueues.end() || queue->isEmpty())
        return nullptr;
    TableViewCell *cell = queue->takeLast();
    if (queue->isEmpty())
        m_reuseQueues.erase(queue);
    m_queueOrder.removeOne(cell);
    cell->prepareForReuse();
    return cell;
}

TableViewCell *TableView::cellForRowAtIndexPath(const IndexPath &indexPath) const
{
    return indexPath.section == 0 ? m_visibleCells.value(indexPath.row) : nullptr;
}

std::optional<IndexPath> TableView::indexPathForCell(const TableViewCell *cell) const
{
    for (auto it = m_visibleCells.cbegin(); it != m_visibleCells.cend(); ++it) {
        if (it.value() == cell)
            return IndexPath { 0, it.key() };
    }
    return std::nullopt;
}

std::optional<IndexPath> TableView::indexPathForRowAtPoint(const QPoint &point) const
{
    const int y = point.y() + verticalScrollBar()->value();
    if (m_rowCount == 0 || y < 0 || y >= m_offsets.back())
        return std::nullopt;
    return IndexPath { 0, rowAtContentY(y) };
}

QList<TableViewCell *> TableView::visibleCells() const
{
    return m_visibleCells.values();
}

QRect TableView::rectForRowAtIndexPath(const IndexPath &indexPath) const
{
    if (indexPath.section != 0 || indexPath.row < 0 || indexPath.row >= m_rowCount)
        return {};
    const auto row = size_t(indexPath.row);
    return QRect(0, m_offsets[row], viewport()->width(), m_offsets[row + 1] - m_offsets[row]);
}

std::optional<IndexPath> TableView::indexPathForSelectedRow() const
{
    if (m_selectedRows.isEmpty())
        return std::nullopt;
    return IndexPath { 0, *std::min_element(m_selectedRows.cbegin(), m_selectedRows.cend()) };
}

QList<IndexPath> TableView::indexPathsForSelectedRows() const
{
    QList<int> rows = m_selectedRows;
    std::sort(rows.begin(), rows.end());
    QList<IndexPath> paths;
    for (const int row : rows)
        paths << IndexPath { 0, row };
    return paths;
}

void TableView::selectRowAtIndexPath(const IndexPath &indexPath, bool animated)
{
    if (indexPath.section != 0 || indexPath.row < 0 || indexPath.row >= m_rowCount)
        return;
    const bool multiple = m_editing && m_multipleSelectionDuringEditing;
    if (!multiple) {
        for (const int row : std::as_const(m_selectedRows)) {
            if (TableViewCell *cell = m_visibleCells.value(row))
                cell->setSelected(false, animated);
        }
        m_selectedRows.clear();
    }
    if (!m_selectedRows.contains(indexPath.row))
        m_selectedRows.append(indexPath.row);
    if (TableViewCell *cell = m_visibleCells.value(indexPath.row))
        cell->setSelected(true, animated);
}

void TableView::deselectRowAtIndexPath(const IndexPath &indexPath, bool animated)
{
    if (indexPath.section != 0)
        return;
    m_selectedRows.removeAll(indexPath.row);
    if (TableViewCell *cell = m_visibleCells.value(indexPath.row))
        cell->setSelected(false, animated);
}

void TableView::setEditing(bool editing, bool)
{
    if (m_editing == editing)
        return;
    m_editing = editing;
    // Leaving or entering edit mode starts from an empty selection.
    for (const int row : std::as_const(m_selectedRows)) {
        if (TableViewCell *cell = m_visibleCells.value(row))
            cell->setSelected(false);
    }
    m_selectedRows.clear();
}

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

void TableView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    updateScrollRange();
    layoutCells();
}

void TableView::scrollContentsBy(int, int)
{
    // Cells are placed from the scroll position, not moved as pixels.
    layoutCells();
}

bool TableView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Paint && m_backgroundColor.alpha() > 0) {
        QPainter painter(viewport());
        painter.fillRect(viewport()->rect(), m_backgroundColor);
        return true;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

void TableView::setFocusedRow(int row)
{
    row = m_rowCount == 0 ? -1 : qBound(0, row, m_rowCount - 1);
    if (TableViewCell *old = m_visibleCells.value(m_focusedRow))
        old->setKeyboardFocused(false);
    m_focusedRow = row;
    if (row < 0)
        return;
    scrollToRowAtIndexPath({ 0, row });
    if (TableViewCell *cell = m_visibleCells.value(row))
        cell->setKeyboardFocused(hasFocus() && m_keyboardInUse);
}

void TableView::scrollToRowAtIndexPath(const IndexPath &indexPath)
{
    const QRect row = rectForRowAtIndexPath(indexPath);
    if (row.isNull())
        return;
    QScrollBar *bar = verticalScrollBar();
    if (row.top() < bar->value())
        bar->setValue(row.top());
    else if (row.bottom() >= bar->value() + viewport()->height())
        bar->setValue(row.bottom() + 1 - viewport()->height());
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

void TableView::flickStep()
{
    const double dt = kFlickIntervalMs / 1000.0;
    m_flickVelocity *= std::pow(1.0 - kFlickFriction, dt);
    m_flickPosition += m_flickVelocity * dt;
    QScrollBar *bar = verticalScrollBar();
    bar->setValue(int(std::lround(m_flickPosition)));
    if (std::abs(m_flickVelocity) < kFlickMinimumSpeed || bar->value() == bar->minimum() ||
        bar->value() == bar->maximum())
        m_flickTimer->stop();
}

void TableView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    if (m_keyboardInUse) {
        m_keyboardInUse = false;
        if (TableViewCell *cell = m_visibleCells.value(m_focusedRow))
            cell->setKeyboardFocused(false);
    }
    // A touch on a moving list stops it and is not a tap.
    const bool wasFlicking = m_flickTimer->isActive();
    m_flickTimer->stop();
    m_drag = wasFlicking ? Drag::Scroll : Drag::Pending;
    m_pressPosition = event->position().toPoint();
    m_pressScrollValue = verticalScrollBar()->value();
    m_dragClock.start();
    m_dragSamples = { { 0, m_pressPosition.y() } };
    event->accept();
}

void TableView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_drag == Drag::None)
        return;
    const QPoint position = event->position().toPoint();
    const QPoint delta = position - m_pressPosition;
    if (m_drag == Drag::Pending) {
        if (std::abs(delta.y()) > kTapSlop && std::abs(delta.y()) >= std::abs(delta.x())) {
            m_drag = Drag::Scroll;
            hideDelete();
        } else if (delta.x() < -kTapSlop) {
            const auto row = indexPathForRowAtPoint(m_pressPosition);
            if (row && canShowDelete(row->row)) {
                if (m_deleteRow != row->row)
                    hideDelete();
                m_drag = Drag::Swipe;
                m_swipeRow = row->row;
            }
        }
    }
    if (m_drag == Drag::Scroll) {
        verticalScrollBar()->setValue(m_pressScrollValue - delta.y());
        m_dragSamples.append({ m_dragClock.elapsed(), position.y() });
        while (m_dragSamples.size() > 2 &&
               m_dragSamples.last().first - m_dragSamples.first().first > kFlickSampleWindowMs)
            m_dragSamples.removeFirst();
    } else if (m_drag == Drag::Swipe) {
        const int start = m_deleteRow == m_swipeRow ? -kDeleteButtonWidth : 0;
        setSwipeOffset(m_swipeRow, qBound(-kDeleteButtonWidth, start + delta.x(), 0));
    }
}

void TableView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || m_drag == Drag::None)
        return;
    const Drag drag = m_drag;
    m_drag = Drag::None;
    const QPoint position = event->position().toPoint();

    if (drag == Drag::Scroll) {
        // A finger that rested before it was lifted throws nothing.
        const auto &first = m_dragSamples.first();
        const auto &last = m_dragSamples.last();
        const qint64 span = last.first - first.first;
        if (span > 0 && m_dragClock.elapsed() - last.first <= kFlickRestMs) {
            m_flickVelocity = -(last.second - first.second) * 1000.0 / double(span);
            m_flickPosition = verticalScrollBar()->value();
            if (std::abs(m_flickVelocity) > kFlickMinimumSpeed * 5)
                m_flickTimer->start();
        }
        return;
    }
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

void TableView::keyPressEvent(QKeyEvent *event)
{
    m_keyboardInUse = true;
    const int page = qMax(1, viewport()->height() / 54);
    switch (event->key()) {
    case Qt::Key_Down:
        setFocusedRow(m_focusedRow + 1);
        break;
    case Qt::Key_Up:
        setFocusedRow(m_focusedRow < 0 ? 0 : m_focusedRow - 1);
        break;
    case Qt::Key_PageDown:
        setFocusedRow(m_focusedRow + page);
        break;
    case Qt::Key_PageUp:
        setFocusedRow(m_focusedRow - page);
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
        if (m_deleteRow >= 0)
            hideDelete();
        else if (!m_editing && !m_selectedRows.isEmpty())
            userTappedRow(m_selectedRows.first()); // a second tap closes the open row
        else
            event->ignore();
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
    if (TableViewCell *cell = m_visibleCells.value(m_focusedRow))
        cell->setKeyboardFocused(m_keyboardInUse);
}

void TableView::focusOutEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusOutEvent(event);
    if (TableViewCell *cell = m_visibleCells.value(m_focusedRow))
        cell->setKeyboardFocused(false);
}
