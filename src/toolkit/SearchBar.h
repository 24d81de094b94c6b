#pragma once

#include "Bar.h"

class QLineEdit;

// A search field in a bar of its own, under a navigation bar: a rounded field with a
// placeholder, a clear button, and the keys people expect of one. Escape (or clearing it and
// leaving it) dismisses it; Down and Enter hand the keyboard on to what it searches.
class SearchBar : public Bar
{
    Q_OBJECT
public:
    explicit SearchBar(QWidget *parent = nullptr);

    QLineEdit *field() const { return m_field; }
    QString text() const;
    void setText(const QString &text);
    void setPlaceholderText(const QString &text);

    // Shows the bar and gives its field the keyboard, its text chosen so that typing replaces it.
    void begin();

signals:
    void textChanged(const QString &text);
    // Escape in the field: the search is over.
    void dismissed();
    // Down or Enter in the field: the keyboard goes to the results.
    void resultsRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QLineEdit *m_field;
};
