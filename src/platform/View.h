#pragma once

#include <QString>

class QWidget;

// A view's alpha: 0 hides the view but keeps its place and lets input pass it by; values in
// between draw it translucent; 1 draws it plainly.
void setAlpha(QWidget *view, double alpha);
double alpha(const QWidget *view);

// "<Class: 0x...; frame = (x y; w h); name = ...>": how a view reads in the diagnostic log.
QString viewDescription(const QWidget *view);
