#include "TableController.h"

#include "VTCell.h"
#include "actions/RecordingSharer.h"
#include "core/Log.h"
#include "audio/AudioSession.h"
#include "toolkit/BarButtonItem.h"
#include "desktop/Device.h"
#include "toolkit/NavigationBar.h"
#include "toolkit/NavigationController.h"
#include "desktop/NotifyCenter.h"
#include "toolkit/TableViewCell.h"
#include "toolkit/Toolbar.h"
#include "core/Url.h"
#include "desktop/UrlOpening.h"
#include "toolkit/View.h"
#include "playback/VantrelPlayer.h"
#include "contacts/ContactStore.h"

#include <QEvent>
#include <QLabel>
#include <QShortcut>

namespace {
constexpr double kMonogramDiameter = 40.0;
constexpr int kMonogramStyle = 1;
constexpr int kEmptyStateMargin = 24;
constexpr int kEmptyStateFontSize = 17;
const QColor kQuietText { 142, 142, 147 }; // grey on black, as a list's empty state reads
// Dark enough that white initials on it read at better than 4:1, light enough to stand out
// from the black list.
const QColor kMonogramGrey { 120, 120, 128 };
} // namespace

TableController::TableController(const QString &messagesDirectory,
                                 const QString &contactsSource, QObject *parent)
    : TableViewController(parent), _messagesDirectory(messagesDirectory),
      m_contactsSource(contactsSource)
{
    seekOffset = -1;

    monogrammer = std::make_unique<Monogrammer>(kMonogramStyle, kMonogramDiameter);
    monogrammer->setTextColor(Qt::white);
    monogrammer->setBackgroundColor(kMonogramGrey);
    monogrammer->setTextKnockout(true);

    // The directory is watched whenever it exists: when it is missing at launch, or removed
    // and made again, the list goes live as soon as it is there again.
    directoryFollower = std::make_unique<MessagesDirectoryFollower>(_messagesDirectory, this);

    m_heard = std::make_unique<HeardRecordings>(_messagesDirectory);
    getEntries();

    _playerController = std::make_unique<VantrelPlayer>(_messagesDirectory);
    connect(_playerController.get(), &VantrelPlayer::recordingHeard, this,
            &TableController::recordingHeard);

    recordingSharer = std::make_unique<RecordingSharer>(_messagesDirectory);
    connect(recordingSharer.get(), &RecordingSharer::zippingStarted, this,
            &TableController::zippingDidStart);
    connect(recordingSharer.get(), &RecordingSharer::progressUpdated, this,
            &TableController::zipProgressUpdatedWithPercent);
    connect(recordingSharer.get(), &RecordingSharer::zippingFinished, this,
            &TableController::zippingDidFinishSuccessfully);

    _shareButton =
        BarButtonItem::withImage(QStringLiteral("share"), BarButtonItem::Style::Plain, this);
    _shareButton->setObjectName(QStringLiteral("share"));
    _shareButton->setAccessibleName(QStringLiteral("Share"));
    _shareButton->setEnabled(false);
    _trashButton =
        BarButtonItem::withImage(QStringLiteral("trash"), BarButtonItem::Style::Plain, this);
    _trashButton->setObjectName(QStringLiteral("trash"));
    _trashButton->setAccessibleName(QStringLiteral("Delete"));
    _trashButton->setEnabled(false);
    connect(_trashButton, &BarButtonItem::triggered, this, &TableController::deleteSelectedRequest);
    connect(_shareButton, &BarButtonItem::triggered, this, &TableController::shareSelectedRequest);
    auto *flexibleSpace = new BarButtonItem(BarButtonItem::SystemItem::FlexibleSpace, this);
    setToolbarItems({ _shareButton, flexibleSpace, _trashButton }, false);
}

TableController::~TableController()
{
    // The program ends with this screen, also when it is stopped by a signal.
    removeSessionFiles();
}

void TableController::viewDidLoad()
{
    TableView *table = tableView();
    table->setAllowsMultipleSelectionDuringEditing(true);
    table->setDataSource(this);
    table->setAccessibleName(QStringLiteral("Recordings"));
    // The list has the keyboard from the start, on its first row, as a desktop list does.
    table->setFocus(Qt::OtherFocusReason);

    if (NavigationController *navigation = navigationController()) {
        navigation->toolbar()->setBarStyle(1);
        navigation->navigationBar()->setBarStyle(1);
    }

    auto *edit = new BarButtonItem(QStringLiteral("Edit"), BarButtonItem::Style::Plain, this);
    edit->setObjectName(QStringLiteral("Edit"));
    edit->setPossibleTitles(kLeftItemTitles);
    connect(edit, &BarButtonItem::triggered, this, &TableController::toggleEdit);
    navigationItem()->setLeftBarButtonItem(edit);

    settingsButton =
        BarButtonItem::withImage(QStringLiteral("Settings"), BarButtonItem::Style::Plain, this);
    settingsButton->setObjectName(QStringLiteral("Settings"));
    settingsButton->setAccessibleName(QStringLiteral("Settings"));
    connect(settingsButton, &BarButtonItem::triggered, this, &TableController::openSettings);
    navigationItem()->setRightBarButtonItem(settingsButton);

    // Hidden until Ctrl+F, or until the list is pulled down past its top.
    m_searchBar = new SearchBar;
    m_searchBar->setPlaceholderText(QStringLiteral("Search"));
    m_searchBar->hide();
    navigationItem()->setSearchBar(m_searchBar);
    connect(m_searchBar, &SearchBar::textChanged, this, &TableController::searchTextChanged);
    connect(m_searchBar, &SearchBar::dismissed, this, &TableController::endSearch);
    connect(m_searchBar, &SearchBar::resultsRequested, table,
            [table] { table->setFocus(Qt::OtherFocusReason); });
    auto *find = new QShortcut(QKeySequence::Find, table);
    find->setContext(Qt::WindowShortcut);
    connect(find, &QShortcut::activated, this, &TableController::beginSearch);
    connect(table, &TableView::pulledDown, this, &TableController::beginSearch);

    if (rowCount() == 0)
        edit->setViewAlpha(0.0);
    table->reloadData();
    updateEmptyState();
}

BarButtonItem *TableController::editButton() const
{
    return navigationItem()->leftBarButtonItem();
}

QList<Entry> TableController::getEntries()
{
    // Rows are indices into the list being replaced: the open row closes first.
    if (selectedRowIndex)
        closeOpenRow();

    if (!m_recordings) {
        entriesContactStore = ContactStore::storeWithOptions(0, m_contactsSource);
        m_recordings = std::make_unique<RecordingList>(_messagesDirectory, entriesContactStore.get());
        // Names change with the address book at the next read, as they always have.
        connect(entriesContactStore.get(), &ContactStore::contactsReloaded, this,
                [this] { m_recordings->contactsChanged(); });
    }
    const std::optional<QByteArrayList> changed = std::exchange(m_changedNames, std::nullopt);
    QList<Entry> arrived = changed ? m_recordings->update(*changed) : m_recordings->reload();
    if (m_search) {
        m_search->entriesChanged();
        m_search->readTranscripts(entryList());
    }
    if (m_shownRows)
        findAgain();
    const QString error = m_recordings->error();
    if (error != std::exchange(_listError, error) && !error.isEmpty())
        mylog(QStringLiteral("cannot read the Messages directory %1: %2")
                  .arg(_messagesDirectory, error));
    return arrived;
}

void TableController::updateEmptyState()
{
    TableView *table = tableView();
    if (!_emptyStateLabel) {
        _emptyStateLabel = new QLabel(table);
        _emptyStateLabel->setObjectName(QStringLiteral("EmptyState"));
        _emptyStateLabel->setAlignment(Qt::AlignCenter);
        _emptyStateLabel->setWordWrap(true);
        _emptyStateLabel->setMargin(kEmptyStateMargin);
        _emptyStateLabel->setAttribute(Qt::WA_TransparentForMouseEvents);
        QFont font = _emptyStateLabel->font();
        font.setPixelSize(kEmptyStateFontSize);
        _emptyStateLabel->setFont(font);
        QPalette palette = _emptyStateLabel->palette();
        palette.setColor(QPalette::WindowText, kQuietText);
        _emptyStateLabel->setPalette(palette);
        // Stays over the middle of the list, whatever size the window takes.
        table->viewport()->installEventFilter(this);
    }
    _emptyStateLabel->setText(
        m_shownRows                ? QStringLiteral("No recordings match your search")
        : _listError.isEmpty() ? QStringLiteral("No voicemails")
                               : QStringLiteral("The voicemail folder cannot be read.\n%1")
                                     .arg(_messagesDirectory));
    _emptyStateLabel->setGeometry(table->viewport()->geometry());
    _emptyStateLabel->setVisible(rowCount() == 0);
    _emptyStateLabel->raise();
}

bool TableController::eventFilter(QObject *watched, QEvent *event)
{
    // The type first: the table must not be asked while it is being destroyed, and no resize
    // comes then.
    if (event->type() == QEvent::Resize && _emptyStateLabel && watched == tableView()->viewport())
        _emptyStateLabel->setGeometry(tableView()->viewport()->geometry());
    return TableViewController::eventFilter(watched, event);
}

void TableController::tellUser(const QString &message)
{
    AlertController::alertWithOkay(QStringLiteral("Vantrel"), message)
        ->presentIn(tableView(), true);
}

void TableController::closeOpenRow()
{
    TableView *table = tableView();
    const std::optional<IndexPath> selected = table->indexPathForSelectedRow();
    // The cell on screen, if any: it is the one that holds the controls.
    _playerController->destroyPlayer(
        selected ? qobject_cast<VTCell *>(table->cellForRowAtIndexPath(*selected)) : nullptr);
    selectedRowIndex.reset();
    if (selected)
        table->deselectRowAtIndexPath(*selected, false);
    table->beginUpdates();
    table->endUpdates();
}

void TableController::reloadEntries(bool refresh)
{
    if (selectedRowIndex) {
        TableViewCell *cell = tableView()->cellForRowAtIndexPath(*selectedRowIndex);
        selectedRowIndex.reset();
        setCurrentPlayerIndexPath(std::nullopt);
        _playerController->destroyPlayer(qobject_cast<VTCell *>(cell));
    }
    const QSet<QString> chosen = refresh ? chosenRecordings() : QSet<QString>();
    const QList<Entry> arrived = getEntries();
    if (refresh)
        showRows(chosen);
    else
        updateListStates();
    emit entriesReloaded();
    if (!arrived.isEmpty())
        emit recordingsArrived(arrived);
}

QSet<QString> TableController::chosenRecordings()
{
    // In edit mode the same recordings stay selected, wherever the new rows put them: a
    // question about them may be open, and its answer acts on the selection.
    QSet<QString> names;
    if (isEditing()) {
        for (const IndexPath &indexPath : tableView()->indexPathsForSelectedRows()) {
            if (indexPath.row < rowCount())
                names.insert(entryAt(indexPath.row).filename);
        }
    }
    return names;
}

void TableController::showRows(const QSet<QString> &chosen)
{
    TableView *table = tableView();
    table->reloadData();
    for (int row = 0; row < rowCount() && !chosen.isEmpty(); ++row) {
        if (chosen.contains(entryAt(row).filename))
            table->selectRowAtIndexPath({ 0, row }, false);
    }
    table->beginUpdates();
    table->endUpdates();
    if (isEditing())
        updateToolbarButtonsVisibility();
    updateListStates();
}

void TableController::updateListStates()
{
    if (BarButtonItem *edit = editButton())
        edit->setViewAlpha(rowCount() == 0 ? 0.0 : 1.0);
    updateEmptyState();
}

void TableController::directoryDidChange(VTDirectoryWatcher *watcher)
{
    // Only the names the watcher saw change are looked at, when it knows them.
    if (watcher) {
        VTDirectoryWatcher::Changes changes = watcher->takeChanges();
        if (!changes.everything)
            m_changedNames = std::move(changes.names);
    }
    reloadEntries(true);
}

void TableController::recordingHeard(const QString &fileName)
{
    m_heard->markHeard(fileName, entryList());
    for (TableViewCell *visible : tableView()->visibleCells()) {
        auto *cell = qobject_cast<VTCell *>(visible);
        if (cell && cell->filePath() == fileName) {
            cell->setUnheard(false);
            cell->setAccessibleDescription(cell->detailTextLabel()->text());
        }
    }
    emit unheardCountChanged();
}

qsizetype TableController::unheardCount() const
{
    return m_heard->unheardCount(entryList());
}

const Contact *TableController::existingContactForAddress(const QString &address)
{
    if (!addressContactStore)
        addressContactStore = ContactStore::storeWithOptions(0, m_contactsSource);
    return addressContactStore->contactForDestinationId(address);
}

QPixmap TableController::imageForContact(const Contact *contact)
{
    bool isContactImage = false;
    const QPixmap monogram = monogrammer->monogramForContact(contact, &isContactImage);
    return monogram.isNull() ? monogrammer->silhouetteMonogram() : monogram;
}

void TableController::audioRouteChanged()
{
    // Reads this screen's own playing flag, which nothing sets: every route change switches
    // proximity monitoring off until the player's next change of state turns it on again.
    const bool receiver = AudioSession::sharedInstance()->category() ==
                          AudioSession::AVAudioSessionCategoryPlayAndRecord;
    Device::currentDevice()->setProximityMonitoringEnabled(receiver && _playerRunning);
}

void TableController::toggleSpeaker(Button *button)
{
    const bool wasLoud =
        AudioSession::sharedInstance()->category() == AudioSession::AVAudioSessionCategoryPlayback;
    AudioSession::sharedInstance()->setCategory(
        wasLoud ? AudioSession::AVAudioSessionCategoryPlayAndRecord
                : AudioSession::AVAudioSessionCategoryPlayback);
    if (button)
        button->setSelected(!wasLoud);
}

void TableController::openSettings()
{
    static const QString kOpenSettings = QStringLiteral("net.zorvath.vantrel.openSettings");
    const auto url = Url::urlWithString(QStringLiteral("prefs:root=Vantrel%20Plus"));
    if (!url) {
        NotifyCenter::notify_post(kOpenSettings);
        return;
    }
    // Asking the desktop for a handler takes a process: the screen goes on meanwhile.
    UrlOpening::canOpenURL(*url, this, [url = *url](bool canOpen) {
        // No settings application here: the recording component shows its settings instead.
        if (!canOpen || !UrlOpening::openURL(url))
            NotifyCenter::notify_post(kOpenSettings);
    });
}
