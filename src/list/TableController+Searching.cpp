// The list's search: the field under the navigation bar, and the rows it finds.
#include "TableController.h"

#include "toolkit/TableView.h"

#include <QLineEdit>
#include <QScrollBar>

void TableController::beginSearch()
{
    if (!m_search) {
        m_search = std::make_unique<RecordingSearch>(_messagesDirectory);
        connect(m_search.get(), &RecordingSearch::transcriptsRead, this,
                &TableController::transcriptsRead);
        // Read now, in the background, so that the transcripts are there by the time a word
        // is typed.
        m_search->readTranscripts(entryList());
    }
    m_searchBar->begin();
}

void TableController::endSearch()
{
    stopFiltering();
    {
        const QSignalBlocker quiet(m_searchBar);
        m_searchBar->setText(QString());
    }
    m_searchBar->hide();
    // What was read for it goes with it; the next search reads the transcripts as they are then.
    m_search.reset();
    tableView()->setFocus(Qt::OtherFocusReason);
}

void TableController::searchTextChanged(const QString &text)
{
    if (!m_search)
        return;
    m_search->setQuery(text);
    if (m_search->isBlank()) {
        stopFiltering();
        return;
    }
    const QSet<QString> chosen = chosenRecordings();
    if (!m_shownRows) {
        m_openBeforeSearch = openEntry() ? openEntry()->filename : QString();
        m_scrollBeforeSearch = tableView()->verticalScrollBar()->value();
    }
    // Rows are indices into what is shown: the open row closes before they change.
    if (selectedRowIndex)
        closeOpenRow();
    findAgain();
    showRows(chosen);
    tableView()->verticalScrollBar()->setValue(0);
}

void TableController::findAgain()
{
    m_shownRows = m_search->find(entryList());
}

void TableController::transcriptsRead()
{
    if (!m_shownRows)
        return;
    // An open row stays where it is: what the new transcripts find shows at the next key.
    if (selectedRowIndex)
        return;
    const QSet<QString> chosen = chosenRecordings();
    findAgain();
    showRows(chosen);
}

void TableController::stopFiltering()
{
    if (!m_shownRows)
        return;
    const QSet<QString> chosen = chosenRecordings();
    if (selectedRowIndex)
        closeOpenRow();
    m_shownRows.reset();
    showRows(chosen);
    tableView()->verticalScrollBar()->setValue(m_scrollBeforeSearch);
    // The row that was open before the search opens again, as a tap would open it.
    if (!isEditing() && !m_openBeforeSearch.isEmpty()) {
        for (int row = 0; row < rowCount(); ++row) {
            if (entryAt(row).filename == m_openBeforeSearch) {
                tableView()->userTappedRow(row);
                break;
            }
        }
    }
    m_openBeforeSearch.clear();
}
