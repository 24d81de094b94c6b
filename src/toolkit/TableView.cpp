#include "TableView.h"

#include "TableViewCell.h"
#include "View.h"

#include <QApplication>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QScrollEvent>
#include <QScrollPrepareEvent>
#include <QScrollerProperties>
#include <QTouchEvent>
#include <QVariantAnimation>
#include <algorithm>
#include <cmath>

namespace {
// The phone animates row heights over about a third of a second.
constexpr int kHeightAnimationMs = 300;
} // namespace

TableView::TableView(QWidget *parent)
    : QAbstractScrollArea(parent), m_heightAnimation(new QVariantAnimation(this)),
      m_scroller(QScroller::scroller(viewport())),
      m_deleteButton(new QPushButton(QStringLiteral("Delete"), viewport()))
{
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
    useOverlayScrollBars(this);
    setFocusPolicy(Qt::StrongFocus);
    verticalScrollBar()->setSingleStep(20);
    viewport()->setAutoFillBackground(false);

    // The mouse drives the scroller through its gesture. A widget holds one scroller gesture
    // at a time, so a finger's touches, which the viewport takes itself, are fed to the same
    // scroller by hand (touchEvent): taken, they never come back as mouse events that would
    // tap or scroll a second time.
    QScroller::grabGesture(viewport(), QScroller::LeftMouseButtonGesture);
    viewport()->setAttribute(Qt::WA_AcceptTouchEvents);
    // The overlay scroll bar is the mouse's: a finger on its strip reaches the row beneath, as
    // on a phone, where the bar only shows where the list is.
    setAttribute(Qt::WA_AcceptTouchEvents);
    QScrollerProperties properties = m_scroller->scrollerProperties();
    // Presses go at once to what is under them (a cell's buttons, a swipe, a tap): the
    // scroller's delayed presses reach Qt 6.4 widgets at the wrong place. Once the press
    // becomes a scroll it is let go far away (scrollerStateChanged).
    properties.setScrollMetric(QScrollerProperties::MousePressEventDelay, 0.0);
    // Any press on a moving list stops it, however slowly it moves, and is not a tap.
    properties.setScrollMetric(QScrollerProperties::MaximumClickThroughVelocity, 0.0);
    properties.setScrollMetric(QScrollerProperties::HorizontalOvershootPolicy,
                               QVariant::fromValue(QScrollerProperties::OvershootAlwaysOff));
    // Always, as phone lists do: a short list can still be pulled down for its search.
    properties.setScrollMetric(QScrollerProperties::VerticalOvershootPolicy,
                               QVariant::fromValue(QScrollerProperties::OvershootAlwaysOn));
    m_scroller->setScrollerProperties(properties);
    connect(m_scroller, &QScroller::stateChanged, this, &TableView::scrollerStateChanged);

    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget *, QWidget *now) { focusChanged(now); });

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

TableView::~TableView()
{
    // The focus leaves the table only in QWidget's own destructor, when it is no table any
    // more: it must not hear of that.
    disconnect(qApp, &QApplication::focusChanged, this, nullptr);
}

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
    m_scroller->stop();
    m_selectedRows.clear();
    for (auto it = m_visibleCells.cbegin(); it != m_visibleCells.cend(); ++it)
        enqueue(it.value(), -1); // the rows may be others now
    m_visibleCells.clear();
    evictQueuedCells();
    hideDelete();

    m_rowCount = m_dataSource ? qMax(0, m_dataSource->numberOfRowsInSection(0)) : 0;
    m_toHeights.assign(size_t(m_rowCount), kDefaultRowHeight);
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
    // Rows removed or added behind the table's back (a reload of the list between a removal
    // and its end): what the data source says wins.
    if (m_dataSource && m_dataSource->numberOfRowsInSection(0) != m_rowCount) {
        reloadData();
        return;
    }
    std::vector<double> heights(size_t(m_rowCount), kDefaultRowHeight);
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

void TableView::deleteRowsAtIndexPaths(const QList<IndexPath> &indexPaths)
{
    QList<int> gone;
    for (const IndexPath &path : indexPaths) {
        if (path.section == 0 && path.row >= 0 && path.row < m_rowCount && !gone.contains(path.row))
            gone.append(path.row);
    }
    if (gone.isEmpty())
        return;
    std::sort(gone.begin(), gone.end());
    beginUpdates();
    hideDelete();
    m_heightAnimation->stop();
    m_swipeRow = -1;
    const auto newRow = [&gone](int row) {
        if (row < 0 || gone.contains(row))
            return -1;
        return row - int(std::lower_bound(gone.cbegin(), gone.cend(), row) - gone.cbegin());
    };

    QMap<int, TableViewCell *> visible;
    for (auto it = m_visibleCells.cbegin(); it != m_visibleCells.cend(); ++it) {
        if (const int row = newRow(it.key()); row >= 0)
            visible.insert(row, it.value());
        else
            enqueue(it.value(), -1);
    }
    m_visibleCells = visible;
    for (auto it = m_queuedRows.begin(); it != m_queuedRows.end(); ++it)
        it.value() = newRow(it.value());
    QList<int> selected;
    for (const int row : std::as_const(m_selectedRows)) {
        if (const int moved = newRow(row); moved >= 0)
            selected.append(moved);
    }
    m_selectedRows = selected;

    // A removed row's height is given, for the animation, to the row above it (or below, at
    // the top), so the gap closes where the row was.
    std::vector<double> heights;
    double carried = 0;
    for (int row = 0; row < m_rowCount; ++row) {
        const double height = m_heights[size_t(row)];
        if (!gone.contains(row)) {
            heights.push_back(height + carried);
            carried = 0;
        } else if (!heights.empty()) {
            heights.back() += height;
        } else {
            carried += height;
        }
    }
    m_rowCount -= int(gone.size());
    m_heights = heights;
    m_fromHeights = heights;
    m_toHeights = heights;
    // A focused row that went leaves the focus to the row that took its place.
    if (m_focusedRow >= 0) {
        const int below =
            int(std::lower_bound(gone.cbegin(), gone.cend(), m_focusedRow) - gone.cbegin());
        m_focusedRow = m_rowCount == 0 ? -1 : qMin(m_focusedRow - below, m_rowCount - 1);
    }
    updateFocusRing();
    recomputeOffsets();
    updateScrollRange();
    if (m_rowCount == 0)
        layoutCells();
    // Heights asked anew at the end differ from these placeholders, so the gap animates shut.
    m_toHeights.assign(m_heights.size(), -1.0);
    endUpdates();
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
    // A moving list learns of rows growing or going under it.
    if (m_scroller->state() != QScroller::Inactive)
        m_scroller->resendPrepareEvent();
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

    bool enqueued = false;
    for (auto it = m_visibleCells.begin(); it != m_visibleCells.end();) {
        if (it.key() < first || it.key() > last) {
            enqueue(it.value(), it.key());
            it = m_visibleCells.erase(it);
            enqueued = true;
        } else {
            ++it;
        }
    }
    if (enqueued)
        evictQueuedCells();

    const int width = viewport()->width();
    for (int row = first; row <= last; ++row) {
        TableViewCell *cell = m_visibleCells.value(row);
        if (!cell && m_dataSource) {
            m_loadingRow = row;
            cell = m_dataSource->cellForRowAtIndexPath({ 0, row });
            m_loadingRow = -1;
            if (!cell)
                continue;
            if (cell->parentWidget() != viewport())
                cell->setParent(viewport());
            m_visibleCells.insert(row, cell);
            connect(cell, &TableViewCell::controlsChanged, this, &TableView::arrangeTabOrder,
                    Qt::UniqueConnection);
            cell->setSelected(m_selectedRows.contains(row));
            cell->setShowsSelectionMark(showsSelectionMarks());
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

void TableView::enqueue(TableViewCell *cell, int row)
{
    cell->hide();
    cell->setSelected(false);
    cell->setKeyboardFocused(false);
    cell->setSwipeOffset(0);
    m_reuseQueues[cell->reuseIdentifier()].append(cell);
    m_queueOrder.append(cell);
    m_queuedRows.insert(cell, row);
}

bool TableView::mustKeep(const TableViewCell *cell) const
{
    // A selected row's cell holds what the open row shows (its player, its transcript).
    const int row = m_queuedRows.value(cell, -1);
    return !cell->canBeEvicted() || (row >= 0 && m_selectedRows.contains(row));
}

void TableView::evictQueuedCells()
{
    // Identifiers may be many (one per row, say): past the limit the oldest cells go, so a
    // long scroll does not keep a cell for every row it passed.
    for (int i = 0; m_queueOrder.size() > kMaxQueuedCells && i < m_queueOrder.size();) {
        TableViewCell *cell = m_queueOrder.at(i);
        if (mustKeep(cell)) {
            ++i;
            continue;
        }
        m_queueOrder.removeAt(i);
        m_queuedRows.remove(cell);
        auto queue = m_reuseQueues.find(cell->reuseIdentifier());
        queue->removeOne(cell);
        if (queue->isEmpty())
            m_reuseQueues.erase(queue);
        cell->deleteLater();
    }
}

TableViewCell *TableView::dequeueReusableCellWithIdentifier(const QString &identifier)
{
    auto queue = m_reuseQueues.find(identifier);
    if (queue == m_reuseQueues.end())
        return nullptr;
    // The row's own cell first; else the newest one no other row holds on to.
    TableViewCell *cell = nullptr;
    for (auto it = queue->crbegin(); it != queue->crend(); ++it) {
        const int row = m_queuedRows.value(*it, -1);
        if (m_loadingRow >= 0 && row == m_loadingRow) {
            cell = *it;
            break;
        }
        if (!cell && !mustKeep(*it))
            cell = *it;
    }
    if (!cell)
        return nullptr;
    queue->removeOne(cell);
    if (queue->isEmpty())
        m_reuseQueues.erase(queue);
    m_queueOrder.removeOne(cell);
    m_queuedRows.remove(cell);
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
    for (TableViewCell *cell : std::as_const(m_visibleCells))
        cell->setShowsSelectionMark(showsSelectionMarks());
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

bool TableView::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel:
        return touchEvent(static_cast<QTouchEvent *>(event));
    default:
        return QAbstractScrollArea::event(event);
    }
}

bool TableView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Scroll) {
        // Held down past the top, as a phone list is pulled to show what sits above it.
        const auto *scroll = static_cast<QScrollEvent *>(event);
        if (scroll->scrollState() == QScrollEvent::ScrollStarted)
            m_pulledDown = false;
        if (!m_pulledDown && isDragging() && scroll->contentPos().y() <= 0 &&
            -scroll->overshootDistance().y() >= kPullDownDistance) {
            m_pulledDown = true;
            emit pulledDown();
        }
    }
    if (event->type() == QEvent::ScrollPrepare) {
        // Sent on every press the scroller sees, before the press reaches any widget.
        const QPoint start = static_cast<QScrollPrepareEvent *>(event)->startPos().toPoint();
        QWidget *child = viewport()->childAt(start);
        m_pressedWidget = child ? child : viewport();
    }
    switch (event->type()) {
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel:
        return touchEvent(static_cast<QTouchEvent *>(event));
    default:
        break;
    }
    if (event->type() == QEvent::Paint && m_backgroundColor.alpha() > 0) {
        QPainter painter(viewport());
        painter.fillRect(viewport()->rect(), m_backgroundColor);
        return true;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

void TableView::scrollToRowAtIndexPath(const IndexPath &indexPath)
{
    const QRect row = rectForRowAtIndexPath(indexPath);
    if (row.isNull())
        return;
    if (isDecelerating())
        m_scroller->stop();
    QScrollBar *bar = verticalScrollBar();
    if (row.top() < bar->value())
        bar->setValue(row.top());
    else if (row.bottom() >= bar->value() + viewport()->height())
        bar->setValue(row.bottom() + 1 - viewport()->height());
}
