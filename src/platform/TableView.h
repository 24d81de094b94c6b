#pragma once

#include "IndexPath.h"

#include <QAbstractScrollArea>
#include <QHash>
#include <QList>
#include <QMap>
#include <QPointer>
#include <optional>
#include <vector>

class QVariantAnimation;
class TableView;
class TableViewCell;

class TableViewDataSource
{
public:
    virtual ~TableViewDataSource() = default;
    virtual int numberOfSectionsInTableView() { return 1; }
    virtual int numberOfRowsInSection(int section) = 0;
    virtual TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) = 0;
};

class TableViewDelegate
{
public:
    virtual ~TableViewDelegate() = default;
    virtual double heightForRowAtIndexPath(const IndexPath &) { return 44.0; }
    virtual void didSelectRowAtIndexPath(const IndexPath &) {}
    virtual void didDeselectRowAtIndexPath(const IndexPath &) {}
};

// A list of rows of varying height in one section that creates cells only for the rows on
// screen. Cells that scroll away go to a queue per reuse identifier, from which the data
// source takes them again (dequeueReusableCellWithIdentifier). Height changes made between
// beginUpdates and endUpdates are animated.
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
    // Asks every row's height again and animates the rows to their new heights.
    void endUpdates();
    bool isAnimatingHeights() const;

    int numberOfSections() const { return 1; }
    int numberOfRowsInSection(int section) const;

    // The on-screen cell of a row, or null when the row is off screen.
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) const;
    TableViewCell *dequeueReusableCellWithIdentifier(const QString &identifier);
    std::optional<IndexPath> indexPathForCell(const TableViewCell *cell) const;
    std::optional<IndexPath> indexPathForRowAtPoint(const QPoint &viewportPoint) const;
    QList<TableViewCell *> visibleCells() const;
    QList<IndexPath> indexPathsForVisibleRows() const;
    // The row's rectangle in content coordinates (the viewport scrolled to the top).
    QRect rectForRowAtIndexPath(const IndexPath &indexPath) const;

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

signals:
    // Every time cells have been placed for a new scroll position, size or height.
    void didLayoutCells();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    bool viewportEvent(QEvent *event) override;

private:
    void recomputeOffsets();
    void updateScrollRange();
    void layoutCells();
    void enqueue(TableViewCell *cell);
    int rowAtContentY(int y) const;
    void userTappedRow(int row);

    TableViewDataSource *m_dataSource {nullptr};
    TableViewDelegate *m_delegate {nullptr};

    int m_rowCount {0};
    std::vector<double> m_heights;     // what is on screen, during an animation in between
    std::vector<double> m_fromHeights; // at the start of the running animation
    std::vector<double> m_toHeights;   // what the delegate asked for
    std::vector<int> m_offsets;        // top of each row, rounded; one more than rows
    QVariantAnimation *m_heightAnimation;
    int m_updateDepth {0};

    QMap<int, TableViewCell *> m_visibleCells; // by row
    QHash<QString, QList<TableViewCell *>> m_reuseQueues;
    QList<int> m_selectedRows; // in selection order

    bool m_editing {false};
    bool m_multipleSelectionDuringEditing {false};
    QPoint m_pressPosition;
    bool m_pressed {false};
    QColor m_backgroundColor {Qt::transparent};
};
