#pragma once

#include <QColor>
#include <QLabel>
#include <QPointer>
#include <QString>
#include <QWidget>

// A row of a TableView. The subtitle style shows an image on the left, a text label and a
// smaller detail label under it. Subclasses place their own views in contentView() and
// adjust the layout in layoutSubviews().
class TableViewCell : public QWidget
{
    Q_OBJECT
public:
    enum class Style
    {
        Default = 0,
        Value1 = 1,
        Value2 = 2,
        Subtitle = 3
    };

    TableViewCell(Style style, const QString &reuseIdentifier, QWidget *parent = nullptr);

    QString reuseIdentifier() const { return m_reuseIdentifier; }
    QWidget *contentView() const { return m_contentView; }
    QLabel *textLabel() const { return m_textLabel; }
    QLabel *detailTextLabel() const { return m_detailTextLabel; }
    QLabel *imageView() const { return m_imageView; }
    // The hairline under the row; cells always draw it unless it is hidden on purpose.
    QWidget *separatorView() const { return m_separatorView; }

    bool isSelected() const { return m_selected; }
    virtual void setSelected(bool selected, bool animated = false);

    void setBackgroundColor(const QColor &color);
    QColor backgroundColor() const { return m_backgroundColor; }

    // What is drawn under a selected cell: the background of this view, which may be shared
    // by many cells (it is not shown itself). Without one, selection is drawn in grey.
    void setSelectedBackgroundView(QWidget *view);
    QWidget *selectedBackgroundView() const { return m_selectedBackgroundView; }
    void setSelectionTintColor(const QColor &color) { m_selectionTintColor = color; }
    QColor selectionTintColor() const { return m_selectionTintColor; }

    // The keyboard's row is outlined.
    void setKeyboardFocused(bool focused);
    bool isKeyboardFocused() const { return m_keyboardFocused; }

    // In edit mode with several rows chosen at once, the content moves right to make room
    // for a round check mark, filled while the row is selected.
    void setShowsSelectionMark(bool shows);
    bool showsSelectionMark() const { return m_showsSelectionMark; }
    static constexpr int kSelectionMarkWidth = 38;

    // How far the content is slid left to show the Delete button behind it.
    void setSwipeOffset(int offset);
    int swipeOffset() const { return m_swipeOffset; }

    // Places the subviews for the current size; runs on every resize.
    virtual void layoutSubviews();
    // Called by the table before the cell is handed out again from its reuse queue.
    virtual void prepareForReuse() {}
    // False while the cell holds something its row must find again (a player's controls,
    // say): the table then keeps it off screen past its queue limit and hands it back only
    // to that row.
    virtual bool canBeEvicted() const { return true; }

    // The row's own buttons, left to right, that Left and Right reach while the row has the
    // keyboard; they are never Tab stops of their own. Only those shown count.
    virtual QList<QWidget *> rowControls() const { return {}; }
    // Controls that come right after the row in the Tab order (an open row's player), first
    // to last. Only those shown count.
    virtual QList<QWidget *> followingControls() const { return {}; }
    // What a finger can press in the row: each takes a press anywhere within a fingertip of
    // its middle (see TableView), however small it is drawn. The row's own buttons and the
    // controls after it, unless a cell names others.
    virtual QList<QWidget *> touchTargets() const { return rowControls() + followingControls(); }

signals:
    // The row's controls came or went; the table puts them in their place in the Tab order.
    void controlsChanged();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    Style m_style;
    QString m_reuseIdentifier;
    QWidget *m_contentView;
    QLabel *m_textLabel;
    QLabel *m_detailTextLabel;
    QLabel *m_imageView;
    QWidget *m_separatorView;
    QColor m_backgroundColor { Qt::transparent };
    QPointer<QWidget> m_selectedBackgroundView;
    QColor m_selectionTintColor;
    bool m_selected { false };
    bool m_keyboardFocused { false };
    bool m_showsSelectionMark { false };
    int m_swipeOffset { 0 };
};
