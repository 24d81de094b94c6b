#pragma once

#include "toolkit/AlertController.h"
#include "desktop/DocumentInteractionController.h"
#include "contacts/Monogrammer.h"
#include "toolkit/TableViewController.h"
#include "store/Entry.h"
#include "store/HeardRecordings.h"
#include "store/RecordingList.h"
#include "store/RecordingSearch.h"
#include "toolkit/SearchBar.h"
#include "store/MessagesDirectoryFollower.h"
#include "store/VTDirectoryWatcher.h"

#include <QList>
#include <QPointer>
#include <QSet>
#include <memory>
#include <optional>
#include <vector>

class BarButtonItem;
class Button;
class Contact;
class ContactStore;
class RecordingSharer;
class VantrelPlayer;
class VTCell;
class QLabel;

// The list screen: one row per recording in the Messages directory, newest first. It watches
// the directory and rebuilds the whole list whenever it changes.
class TableController : public TableViewController,
                        public TableViewDataSource,
                        public VTDirectoryWatcherDelegate,
                        public DocumentInteractionControllerDelegate
{
    Q_OBJECT
public:
    static constexpr double kClosedRowHeight = 54.0;
    static constexpr double kOpenRowHeight = 108.0;
    // The left item's titles; the item is as wide as the widest, so it never jumps.
    static inline const QSet<QString> kLeftItemTitles = { QStringLiteral("Edit"),
                                                          QStringLiteral("Select All"),
                                                          QStringLiteral("Deselect All") };

    // contactsSource: the vCard file or folder the user named, or empty for the desktop's own.
    explicit TableController(const QString &messagesDirectory, const QString &contactsSource = {},
                             QObject *parent = nullptr);
    ~TableController() override;

    QString title() const override { return QStringLiteral("Vantrel Plus"); }
    // Portrait (1) only.
    bool shouldAutorotateToInterfaceOrientation(int orientation) const { return orientation == 1; }

    QString messagesDirectory() const { return _messagesDirectory; }
    // Every recording, newest first.
    const QList<Entry> &entryList() const { return m_recordings->entries(); }
    // The rows: every recording, or those a search finds.
    int rowCount() const
    {
        return m_shownRows ? int(m_shownRows->size()) : int(m_recordings->entries().size());
    }
    const Entry &entryAt(int row) const { return m_recordings->entries().at(recordingIndex(row)); }
    qsizetype recordingIndex(int row) const { return m_shownRows ? (*m_shownRows)[std::size_t(row)] : row; }
    SearchBar *searchBar() const { return m_searchBar; }
    // The recordings listed that nobody has listened to yet.
    qsizetype unheardCount() const;
    std::optional<IndexPath> currentSelectedRowIndex() const { return selectedRowIndex; }
    // The entry of the open row, or null while no row is open.
    const Entry *openEntry() const
    {
        return selectedRowIndex && selectedRowIndex->row < rowCount()
                   ? &entryAt(selectedRowIndex->row)
                   : nullptr;
    }
    BarButtonItem *editButton() const;
    BarButtonItem *shareButton() const { return _shareButton; }
    BarButtonItem *trashButton() const { return _trashButton; }

    VantrelPlayer *playerController() const { return _playerController.get(); }
    QString lastPlayerFilePath() const { return _lastPlayerFilePath; }
    void setLastPlayerFilePath(const QString &path) { _lastPlayerFilePath = path; }

    // Rebuilds entries from the directory; closes an open row first, since rows are indices.
    // Reads the directory again, or only the names the watcher reported; answers the
    // recordings that were not listed before.
    QList<Entry> getEntries();
    // Edit mode's chosen recordings, by file name.
    QSet<QString> chosenRecordings();
    // Shows the rows afresh, choosing these recordings again in edit mode.
    void showRows(const QSet<QString> &chosen);
    // The Edit button and the empty list's sentence, for the rows shown.
    void updateListStates();

    // Searching: Ctrl+F or pulling the list down shows the search field; what is typed
    // filters the rows; Escape, or clearing the field, shows every recording again with the
    // open row and the scroll position as they were before.
    void beginSearch();
    void endSearch();
    void searchTextChanged(const QString &text);
    void findAgain();
    void transcriptsRead();
    void stopFiltering();
    // Closes the open player, re-reads the directory and, when refresh is set, redraws the table.
    void reloadEntries(bool refresh);

    const Contact *existingContactForAddress(const QString &address);
    QPixmap imageForContact(const Contact *contact);

    // Marks the on-screen cell of indexPath as the current player cell and every other
    // on-screen cell as not; with no index path, clears the mark everywhere.
    void setCurrentPlayerIndexPath(const std::optional<IndexPath> &indexPath);

    // Shows or hides the transcript of the button's row, in the next turn of the event loop,
    // opening the row first when it is not the open one.
    void readerViewTapped(Button *button);
    // Offers to call the caller of the button's row back.
    void dialButtonTapped(Button *button);
    // The same offer for a recording's address: "Dial %1?", unless there is none to call.
    void offerCallBack(const QString &address);
    // Hands the call to whatever places calls, or says that nothing here can.
    void dial(const QString &address);
    // Brings the recording's row on screen, opens it as a tap would and plays it once it has
    // opened; leaves edit mode first. Answers whether the recording is in the list.
    bool playRecording(const QString &filename);

    // Edit mode: multiple selection, "Select All" on the left, "Done" on the right and the
    // share and trash toolbar below. Entering it closes an open player first.
    void setEditing(bool editing, bool animated) override;
    void updateToolbarButtonsVisibility();

    // Data source and delegate of the table.
    int numberOfSectionsInTableView() override { return 1; }
    int numberOfRowsInSection(int section) override;
    TableViewCell *cellForRowAtIndexPath(const IndexPath &indexPath) override;
    double heightForRowAtIndexPath(const IndexPath &indexPath) override;
    void didSelectRowAtIndexPath(const IndexPath &indexPath) override;
    void didDeselectRowAtIndexPath(const IndexPath &indexPath) override;
    TableViewDataSource::EditingStyle
    editingStyleForRowAtIndexPath(const IndexPath &indexPath) override;
    // Rows are never reordered; the table has no reordering to ask it.
    bool canMoveRowAtIndexPath(const IndexPath &) const { return false; }
    // Every row can be swiped; whether Delete shows is the editing style's call.
    bool canEditRowAtIndexPath(const IndexPath &) override { return true; }
    // A swiped row's Delete: removes its recording and transcript, silently, and reads the
    // list again.
    void commitEditingStyle(TableViewDataSource::EditingStyle style,
                            const IndexPath &indexPath) override;

    void directoryDidChange(VTDirectoryWatcher *watcher) override;
    void recordingHeard(const QString &fileName);

signals:
    // The entries were read again from the directory.
    void entriesReloaded();
    // Recordings that were not listed before the read just done, newest first.
    void recordingsArrived(const QList<Entry> &entries);
    // A recording has been heard.
    void unheardCountChanged();

public:
    // The share sheet's previews show over this screen; the end of the last of a sheet's
    // menus and preview removes the archive it showed, never a recording.
    QWidget *
    documentInteractionControllerViewControllerForPreview(DocumentInteractionController *) override;
    void
    documentInteractionControllerDidEndPreview(DocumentInteractionController *controller) override;
    void documentInteractionControllerDidEndSendingToApplication(
        DocumentInteractionController *controller, const QString &application) override;
    void documentInteractionControllerDidDismissOptionsMenu(
        DocumentInteractionController *controller) override;
    void documentInteractionControllerDidDismissOpenInMenu(
        DocumentInteractionController *controller) override;

    // The progress alert of the run under way, or of the last one until the next run.
    AlertController *currentAlert() const { return _currentAlert; }

public slots:
    // Output devices changed: proximity monitoring follows the receiver rule with this
    // screen's own playing flag.
    void audioRouteChanged();
    // The same loudspeaker switch as the player's; no control of this screen is wired to it.
    void toggleSpeaker(Button *button);
    void toggleEdit();
    void toggleSelectAll(BarButtonItem *sender);
    void openSettings();
    // The trash button: deletes the selected recordings, asking first when there are two or
    // more.
    void deleteSelectedRequest(BarButtonItem *sender);
    void deleteSelected(BarButtonItem *sender);
    // The share button: one recording goes to the share sheet; several are confirmed, then
    // zipped under a progress alert into a dated archive that is previewed.
    void shareSelectedRequest(BarButtonItem *sender);
    void shareSelected();
    void zipFiles(const QStringList &files, const QString &outputZipFile);
    // A run's reports, in the order the archiver made them.
    void zippingDidStart();
    void zipProgressUpdatedWithPercent(int percent, const QString &currentFilePath,
                                       int currentIndex, int totalFiles);
    void zippingDidFinishSuccessfully(bool success);
    // Ends a failed run after the failure title has been readable for a while.
    void clearAlertOnMainThread(bool success);
    void zipFinished(bool success);

protected:
    void viewDidLoad() override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // The open row is closing or giving way: its transcript, if shown, gives way to its name.
    void closeOpenRowTranscript();
    // A "Vantrel" alert with the message and "Okay": how the list says that something failed.
    void tellUser(const QString &message);
    // What stands in the middle of a list without rows: that there are no voicemails, or that
    // the Messages directory cannot be read.
    void updateEmptyState();
    // Takes the player down from the table's selected row, forgets the open row, deselects
    // it and lets the row shrink back.
    void closeOpenRow();
    // A share sheet for url, kept until one of its ends lets it go.
    DocumentInteractionController *keepInteractionController(const QUrl &url);
    // Called at each end a sheet reports: once nothing of it is up, its archive is removed and
    // the controller let go.
    void sheetMayHaveEnded(DocumentInteractionController *controller);
    // Every file made for this session, at its end: the archive of a run under way and those
    // of sheets still up.
    void removeSessionFiles();

    // Fields keep the list's own names: a leading underscore for a field behind an accessor,
    // none for the others.
    QString _messagesDirectory;
    QString m_contactsSource;
    int64_t seekOffset { -1 }; // set at construction and never read; kept as it always was
    // The entries, newest first, kept current by what the directory watcher reports.
    std::unique_ptr<RecordingList> m_recordings;
    // What the watcher saw change, for the next read; none when it does not know.
    std::optional<QByteArrayList> m_changedNames;
    std::unique_ptr<HeardRecordings> m_heard;
    QPointer<SearchBar> m_searchBar;
    std::unique_ptr<RecordingSearch> m_search; // while the search field shows
    // The positions in the entries of the rows shown while a query filters them.
    std::optional<std::vector<qsizetype>> m_shownRows;
    // The open recording and the scroll position when filtering began, to go back to.
    QString m_openBeforeSearch;
    int m_scrollBeforeSearch { 0 };
    QString _listError; // why the Messages directory could not be read, or empty
    QPointer<QLabel> _emptyStateLabel;
    std::unique_ptr<Monogrammer> monogrammer;
    std::optional<IndexPath> selectedRowIndex;
    bool _playerRunning { false }; // never set: the route handler always reads false
    QPointer<BarButtonItem> _trashButton;
    QPointer<BarButtonItem> _shareButton;
    QPointer<BarButtonItem> settingsButton;
    QString _lastPlayerFilePath; // nothing sets it: kept with its accessors, as it always was
    std::unique_ptr<VantrelPlayer> _playerController;
    // Given to every cell as its selected background: clear, so selection shows nothing.
    std::unique_ptr<QWidget> selectedBackgroundView;

    // The catalogue and the cells each look callers up in an address book of their own,
    // kept for the life of the list; the directory follower likewise lives as long as it.
    std::unique_ptr<ContactStore> entriesContactStore;
    std::unique_ptr<ContactStore> addressContactStore;
    std::unique_ptr<MessagesDirectoryFollower> directoryFollower;

    QPointer<AlertController> _currentAlert;
    std::unique_ptr<RecordingSharer> recordingSharer;
    std::vector<std::unique_ptr<DocumentInteractionController>> interactionControllers;
    // Listens for the opening of a recording asked to play, until the player's next change.
    std::unique_ptr<QObject> pendingPlay;
    // The archives this screen made and has not removed yet: only these are ever removed.
    QSet<QString> sharedArchives;
};
