#pragma once

#include <QLabel>

// A one-line label as the phone draws one: text wider than the label ends in "…", and line
// breaks inside the text (a name typed with a newline) read as blanks. text() stays whole,
// for screen readers and for whoever reads it back.
class Label : public QLabel
{
    Q_OBJECT
public:
    using QLabel::QLabel;

    // What is drawn for the label's current width.
    QString shownText() const;

protected:
    void paintEvent(QPaintEvent *event) override;
};
