#pragma once

#include <QWidget>

// What the navigation bar and the toolbar share: 44 points high, and drawn in a bar style
// (1, black: near-opaque black with a faint hairline towards the content).
class Bar : public QWidget
{
    Q_OBJECT
public:
    static constexpr int kHeight = 44;
    enum class Edge
    {
        Top,
        Bottom
    };

    Bar(Edge hairline, QWidget *parent = nullptr);

    void setBarStyle(int style);
    int barStyle() const { return m_barStyle; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int m_barStyle { 1 };
    Edge m_hairline;
};
