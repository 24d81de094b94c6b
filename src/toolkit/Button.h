#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QHash>
#include <QMargins>
#include <QString>

// A custom button with a selected state and an image for each state, drawn to fill the
// button, and its text (setText) centred over the image in white, in the button's font.
// Target actions are Qt connections to clicked() (a tap released inside).
class Button : public QAbstractButton
{
    Q_OBJECT
public:
    enum class State
    {
        Normal = 0,
        Selected = 4
    };

    explicit Button(QWidget *parent = nullptr);

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

    // An image by name (see Images) for the state; a state without one shows Normal's.
    void setBackgroundImage(const QString &imageName, State state);

    // The same, drawn inside the insets: a glyph smaller than the area that takes the tap.
    void setImage(const QString &imageName, State state) { setBackgroundImage(imageName, state); }
    void setImageEdgeInsets(const QMargins &insets);

    // The button's state has changed from outside; lays it out again (kept for callers that
    // ask a button to refresh after changing its selection).
    void layoutSubviews() { update(); }

    QSize sizeHint() const override { return { 33, 29 }; }

signals:
    void selectedChanged(bool selected);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    bool m_selected { false };
    QHash<State, QString> m_images;
    QMargins m_imageInsets;
};

// Where the keyboard is: a solid ring in the accent colour, drawn inside around, as the
// desktop draws a focused control (never a dotted rectangle).
inline const QColor kFocusRingColor { 53, 132, 228 };
constexpr double kFocusRingWidth = 2;
void drawFocusRing(QPainter *painter, const QRectF &around, double radius = 6);

inline size_t qHash(Button::State state, size_t seed = 0)
{
    return ::qHash(int(state), seed);
}
