#pragma once

#include "IndexPath.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QScroller>
#include <optional>
#include <vector>

class QAbstractButton;
class QPushButton;
class QTouchEvent;
class QVariantAnimation;
class TableView;
class TableViewCell;

// A row's height when the delegate gives none.
inline constexpr double kDefaultRowHeight = 44.0;
// How far past its top the list is pulled before it says so (pulledDown).
inline constexpr double kPullDownDistance = 50.0;

class TableViewDataSource
{
public:
    virtual ~TableViewDataSource() = default;
    virtual int numberOfSectionsInTableView() { return 1; }
    virtual int numberOfRowsInSection(int section) = 0;
    virtual TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) = 0;

    enum class EditingStyle
    {
        None = 0,
        Delete = 1,
        Insert = 2
    };
    // Rows that can be edited can be swiped left to reveal a Delete button.
    virtual bool canEditRowAtIndexPath(const IndexPath &) { return false; }
    virtual void commitEditingStyle(EditingStyle, const IndexPath &) {}
};

class TableViewDelegate
{
public:
    virtual ~TableViewDelegate() = default;
    virtual double heightForRowAtIndexPath(const IndexPath &) { return kDefaultRowHeight; }
    virtual void didSelectRowAtIndexPath(const IndexPath &) {}
    virtual void didDeselectRowAtIndexPath(const IndexPath &) {}
    virtual TableViewDataSource::EditingStyle editingStyleForRowAtIndexPath(const IndexPath &)
    {
        return TableViewDataSource::EditingStyle::Delete;
    }
};

// A list of rows of varying height in one section that creates cells only for the rows on
// screen. Cells that scroll away go to a queue per reuse identifier, from which the data
// source takes them again (dequeueReusableCellWithIdentifier). Height changes made between
// beginUpdates and endUpdates are animated.
//
// A tap selects a row; dragging scrolls, and a flick keeps scrolling and slows down (a
// QScroller on the viewport); a row that can be edited slides left under a horizontal drag
// (or the Delete key) to show Delete. A press that moves further than a tap may is never a tap.
// The mouse reaches the scroller through its gesture and the rows through mouse events. A
// finger's touches all come to the viewport, which feeds them to the scroller and the same
// tap and swipe handling; a tap on a button, or within a fingertip (kTouchReach) of a row's
// small control, presses that control instead, and a control that follows a finger itself
// (the scrub bar's knob) is handed the whole touch.
//
// The keyboard works as in desktop lists. The table is one Tab stop, on its focused row,
// outlined with a focus ring: Up and Down move the focused row, Enter or Space taps it,
// Escape closes a revealed Delete or else taps the selected row once more (which closes an
// open row) and leaves it deselected. Right and Left walk the focused row's own buttons
// (never Tab stops themselves); the controls a row puts after itself (an open row's player)
// follow the table in the Tab order.
//
// A cell whose row is selected, or that says it cannot be evicted, stays in the reuse queue
// past its limit and is handed back only to its own row.
class TableView : public QAbstractScrollArea
{
    Q_OBJECT
public:
    explicit TableView(QWidget *parent = nullptr);
    ~TableView() override;

    void setDataSource(TableViewDataSource *dataSource) { m_dataSource = dataSource; }
    void setDelegate(TableViewDelegate *delegate) { m_delegate = delegate; }

    // Forgets every row and asks the data source again.
    void reloadData();
    void beginUpdates();
    // Asks every row's height again and animates the rows to their new heights. When the
    // data source no longer counts the rows the table holds, the table reloads instead.
    void endUpdates();
    // Removes rows: the rows below close the gap, animated at endUpdates. Selection, focus and
    // cells move with their rows. Inside beginUpdates/endUpdates, the data source must answer
    // the new count by endUpdates.
    void deleteRowsAtIndexPaths(const QList<IndexPath> &indexPaths);
    bool isAnimatingHeights() const;

    int numberOfSections() const { return 1; }
    int numberOfRowsInSection(int section) const;

    // The on-screen cell of a row, or null when the row is off screen.
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) const;
    TableViewCell *dequeueReusableCellWithIdentifier(const QString &identifier);
    std::optional<IndexPath> indexPathForCell(const TableViewCell *cell) const;
    std::optional<IndexPath> indexPathForRowAtPoint(const QPoint &viewportPoint) const;
    QList<TableViewCell *> visibleCells() const;
    // The row's rectangle in content coordinates (the viewport scrolled to the top).
    QRect rectForRowAtIndexPath(const IndexPath &indexPath) const;

    // A finger or the mouse is moving the list.
    bool isDragging() const { return m_scroller->state() == QScroller::Dragging; }
    // The list moves on by itself after a flick (or springs back from past an end).
    bool isDecelerating() const { return m_scroller->state() == QScroller::Scrolling; }

    std::optional<IndexPath> indexPathForSelectedRow() const;
    QList<IndexPath> indexPathsForSelectedRows() const;
    void selectRowAtIndexPath(const IndexPath &indexPath, bool animated);
    void deselectRowAtIndexPath(const IndexPath &indexPath, bool animated);

    bool isEditing() const { return m_editing; }
    void setEditing(bool editing, bool animated);
    bool allowsMultipleSelectionDuringEditing() const { return m_multipleSelectionDuringEditing; }
    void setAllowsMultipleSelectionDuringEditing(bool allows)
    {
        m_multipleSelectionDuringEditing = allows;
    }

    void setBackgroundColor(const QColor &color);
    // Rows show round check marks while several can be chosen.
    bool showsSelectionMarks() const { return m_editing && m_multipleSelectionDuringEditing; }

    // The row that keyboard actions apply to, or -1.
    int focusedRow() const { return m_focusedRow; }
    void setFocusedRow(int row);
    void scrollToRowAtIndexPath(const IndexPath &indexPath);
    // What a tap on the row does: selection, and the delegate told, as from a finger.
    void userTappedRow(int row);

    // The row whose Delete button is showing, or -1; showing it for a row hides any other.
    int rowShowingDelete() const { return m_deleteRow; }
    void showDeleteForRow(int row);
    void hideDelete();
    QPushButton *deleteButton() const { return m_deleteButton; }

    // How far a finger's press may land from a small control and still press it, across: a
    // fingertip, in points.
    static constexpr int kTouchReach = 44;

    // Cells kept in the reuse queues at most, all identifiers together; the oldest go first,
    // except those of selected rows and those that cannot be evicted.
    static constexpr int kMaxQueuedCells = 48;

signals:
    // A finger or the mouse held the list down past its top (kPullDownDistance), once per
    // drag.
    void pulledDown();
    // Every time cells have been placed for a new scroll position, size or height.
    void didLayoutCells();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    bool event(QEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    bool focusNextPrevChild(bool next) override;

private:
    // The red button a left swipe reveals at a row's end.
    static constexpr int kDeleteButtonWidth = 82;

    void recomputeOffsets();
    void updateScrollRange();
    void layoutCells();
    void enqueue(TableViewCell *cell, int row);
    void evictQueuedCells();
    bool mustKeep(const TableViewCell *cell) const;
    int rowAtContentY(int y) const;
    // The row that Page Down (direction 1) or Page Up (-1) moves the focus to from row.
    int rowAPageFrom(int row, int direction) const;
    bool canShowDelete(int row);
    void setSwipeOffset(int row, int offset);
    void scrollerStateChanged(QScroller::State state);
    void pressAt(const QPoint &position);
    void dragTo(const QPoint &position);
    // A press let go at position; a tap on button clicks it rather than the row.
    void releaseAt(const QPoint &position, QAbstractButton *button = nullptr);
    bool touchEvent(QTouchEvent *event);
    // What a finger's press at point presses: a button under it, else the nearest of the
    // rows' touch targets within reach, else nothing (the row itself).
    QWidget *touchTargetAt(const QPointF &point) const;
    // Outlines the focused row while the table itself has the keyboard's focus.
    void updateFocusRing();
    // Puts the controls that rows place after themselves right after the table in the Tab order.
    void arrangeTabOrder();
    // The row of the on-screen cell that holds widget, or -1.
    int rowHolding(const QWidget *widget) const;
    // Right (+1) or Left (-1) from the focus, among the focused row and its own buttons.
    bool moveAmongRowControls(int step);
    void focusChanged(QWidget *now);

    TableViewDataSource *m_dataSource { nullptr };
    TableViewDelegate *m_delegate { nullptr };

    int m_rowCount { 0 };
    std::vector<double> m_heights;     // what is on screen, during an animation in between
    std::vector<double> m_fromHeights; // at the start of the running animation
    std::vector<double> m_toHeights;   // what the delegate asked for
    std::vector<int> m_offsets;        // top of each row, rounded; one more than rows
    QVariantAnimation *m_heightAnimation;
    int m_updateDepth { 0 };

    QMap<int, TableViewCell *> m_visibleCells; // by row
    QHash<QString, QList<TableViewCell *>> m_reuseQueues;
    QList<int> m_selectedRows;                      // in selection order
    QList<TableViewCell *> m_queueOrder;            // every queued cell, oldest first
    QHash<const TableViewCell *, int> m_queuedRows; // the row each queued cell last showed
    int m_loadingRow { -1 }; // the row the data source is asked a cell for, or -1

    bool m_editing { false };
    bool m_multipleSelectionDuringEditing { false };
    // What a press on the viewport has become: still maybe a tap, a scroll (moved by the
    // scroller), a swipe of one row, or a move that is none of these.
    enum class Drag
    {
        None,
        Pending,
        Scroll,
        Swipe,
        Moved
    };
    Drag m_drag { Drag::None };
    QPoint m_pressPosition;
    int m_swipeRow { -1 };
    QScroller *m_scroller;             // owned by Qt, destroyed with the viewport
    QPointer<QWidget> m_pressedWidget; // what the press the scroller saw last went to
    QPointer<QWidget> m_touchTarget;   // what the finger down now presses, if not a row
    bool m_touchHandedOn { false };    // the finger's touch goes on to m_touchTarget
    int m_focusedRow { -1 };
    // The focused row is outlined until a tap, and again once the keyboard is used.
    bool m_keyboardInUse { true };
    bool m_pulledDown { false }; // said already during this drag
    int m_deleteRow { -1 };
    QPushButton *m_deleteButton;
    QColor m_backgroundColor { Qt::transparent };
};
