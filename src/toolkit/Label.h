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

// Text on as many lines as it needs, as a dialog's message reads: lines break between words,
// and a word longer than a whole line (a file name, an e-mail address) breaks where it must.
// The breaking is the text layout's; text() is what is drawn, character for character, and
// what screen readers read.
class WrappingLabel : public QLabel
{
    Q_OBJECT
public:
    explicit WrappingLabel(const QString &text, QWidget *parent = nullptr);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    // Lays the text out into lines of the given width; answers their height.
    qreal layOut(class QTextLayout &layout, qreal width) const;
};
