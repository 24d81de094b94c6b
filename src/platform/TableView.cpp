#include "TableView.h"

#include "TableViewCell.h"

#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QScroller>
#include <QVariantAnimation>
#include <algorithm>
#include <cmath>

namespace {
// The phone animates row heights over about a third of a second.
constexpr int kHeightAnimationMs = 300;
// A press that moves further than this is a drag, not a tap.
constexpr int kTapSlop = 10;
} // namespace

TableView::TableView(QWidget *parent)
    : QAbstractScrollArea(parent), m_heightAnimation(new QVariantAnimation(this))
{
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setFocusPolicy(Qt::StrongFocus);
    verticalScrollBar()->setSingleStep(20);
    viewport()->setAutoFillBackground(false);
    QScroller::grabGesture(viewport(), QScroller::TouchGesture);

    m_heightAnimation->setDuration(kHeightAnimationMs);
    m_heightAnimation->setEasingCurve(QEasingCurve::InOutQuad);
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

    m_rowCount = m_dataSource ? qMax(0, m_dataSource->numberOfRowsInSection(0)) : 0;
    m_toHeights.assign(size_t(m_rowCount), 44.0);
    if (m_delegate) {
        for (int row = 0; row < m_rowCount; ++row)
            m_toHeights[size_t(row)] = m_delegate->heightForRowAtIndexPath({0, row});
    }
    m_heights = m_toHeights;
    m_fromHeights = m_toHeights;
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
            heights[size_t(row)] = m_delegate->heightForRowAtIndexPath({0, row});
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
            cell = m_dataSource->cellForRowAtIndexPath({0, row});
            if (!cell)
                continue;
            if (cell->parentWidget() != viewport())
                cell->setParent(viewport());
            m_visibleCells.insert(row, cell);
            cell->setSelected(m_selectedRows.contains(row));
        }
        if (!cell)
            continue;
        cell->setGeometry(0, m_offsets[size_t(row)] - top, width,
                          m_offsets[size_t(row) + 1] - m_offsets[size_t(row)]);
        cell->show();
    }
    emit didLayoutCells();
}

void TableView::enqueue(TableViewCell *cell)
{
    cell->hide();
    cell->setSelected(false);
    m_reuseQueues[cell->reuseIdentifier()].append(cell);
}

TableViewCell *TableView::dequeueReusableCellWithIdentifier(const QString &identifier)
{
    auto queue = m_reuseQueues.find(identifier);
    if (queue == m_reuseQueues.end() || queue->isEmpty())
        return nullptr;
    TableViewCell *cell = queue->takeLast();
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
            return IndexPath {0, it.key()};
    }
    return std::nullopt;
}

std::optional<IndexPath> TableView::indexPathForRowAtPoint(const QPoint &point) const
{
    const int y = point.y() + verticalScrollBar()->value();
    if (m_rowCount == 0 || y < 0 || y >= m_offsets.back())
        return std::nullopt;
    return IndexPath {0, rowAtContentY(y)};
}

QList<TableViewCell *> TableView::visibleCells() const
{
    return m_visibleCells.values();
}

QList<IndexPath> TableView::indexPathsForVisibleRows() const
{
    QList<IndexPath> paths;
    for (const int row : m_visibleCells.keys())
        paths << IndexPath {0, row};
    return paths;
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
    return IndexPath {0, *std::min_element(m_selectedRows.cbegin(), m_selectedRows.cend())};
}

QList<IndexPath> TableView::indexPathsForSelectedRows() const
{
    QList<int> rows = m_selectedRows;
    std::sort(rows.begin(), rows.end());
    QList<IndexPath> paths;
    for (const int row : rows)
        paths << IndexPath {0, row};
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
    const IndexPath tapped {0, row};
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
        deselectRowAtIndexPath({0, other}, false);
        if (m_delegate)
            m_delegate->didDeselectRowAtIndexPath({0, other});
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

void TableView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressed = true;
        m_pressPosition = event->position().toPoint();
    }
    event->accept();
}

void TableView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_pressed)
        return;
    m_pressed = false;
    const QPoint position = event->position().toPoint();
    if ((position - m_pressPosition).manhattanLength() > kTapSlop)
        return;
    if (const auto indexPath = indexPathForRowAtPoint(position))
        userTappedRow(indexPath->row);
}
