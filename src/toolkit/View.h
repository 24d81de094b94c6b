#pragma once

#include <QString>

class QWidget;

// A view's alpha: 0 hides the view but keeps its place and lets input pass it by; values in
// between draw it translucent; 1 draws it plainly.
void setAlpha(QWidget *view, double alpha);
double alpha(const QWidget *view);

// "<Class: 0x...; frame = (x y; w h); name = ...>": how a view reads in the diagnostic log.
QString viewDescription(const QWidget *view);

class QAbstractScrollArea;

// Thin scroll bars drawn over the area's right edge, as a modern Linux app's lists show
// them, instead of a desktop bar with arrow buttons that takes its own strip of the area.
void useOverlayScrollBars(QAbstractScrollArea *area);
