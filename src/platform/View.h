#pragma once

class QWidget;

// A view's alpha: 0 hides the view but keeps its place and lets input pass it by; values in
// between draw it translucent; 1 draws it plainly.
void setAlpha(QWidget *view, double alpha);
double alpha(const QWidget *view);
