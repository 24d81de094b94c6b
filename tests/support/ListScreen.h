#pragma once

#include "app/RootViewController.h"
#include "list/TableController.h"
#include "list/VTCell.h"

#include <QTemporaryDir>

class AlertController;
#include <QWidget>
#include <memory>

// The list screen as the application builds it (a TableController inside a
// RootViewController in a phone-sized window), on a temporary Messages directory.
class ListScreen
{
public:
    ListScreen();
    ~ListScreen();

    QString messages() const { return m_root.filePath(QStringLiteral("Messages")); }
    QString root() const { return m_root.path(); }

    // Writes a recording (and its transcript when given) and answers its bare name.
    QString addRecording(const QString &kind, const QString &address, const QString &time,
                         const QByteArray &transcript = QByteArray());

    // Builds and shows the screen over directory (the Messages directory by default), in a
    // window of the given width (a phone's 375 points by default).
    void open(const QString &directory = QString(), int width = 375);

    TableController *list() const { return m_list; }
    RootViewController *navigation() const { return m_navigation; }
    QWidget *window() const { return m_window.get(); }
    TableView *table() const { return m_list->tableView(); }
    VTCell *cell(int row) const;
    // The caller's name each row shows, in order; "(off screen)" for a row without a cell.
    QStringList shownNames() const;
    // Replaces a recording with the demo sample of that name, which plays.
    bool useSample(const QString &name);
    // A tap in the middle of a row's upper half, where a user would tap it.
    void tapRow(int row) { tapRow(table(), row); }
    static void tapRow(TableView *table, int row);
    // The row heights once the animation has ended.
    bool waitForHeights(const QList<int> &heights);
    // The alert or sheet showing now; one just answered may linger until it is deleted.
    AlertController *alert() const;
    // Clicks the visible button a screen reader calls name, or that shows it as its text.
    void press(const QString &name);

private:
    QTemporaryDir m_root;
    std::unique_ptr<QWidget> m_window;
    TableController *m_list { nullptr };
    RootViewController *m_navigation { nullptr };
};
