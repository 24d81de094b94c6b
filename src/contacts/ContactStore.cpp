#include "ContactStore.h"

#include "ContactIndex.h"
#include "ContactSourceWatcher.h"
#include "DesktopAddressBook.h"

#include <QAbstractEventDispatcher>
#include <QLocale>
#include <QMutex>
#include <QStandardPaths>
#include <QThreadPool>

namespace {

// Long enough to gather an editor's save (write a temporary file, rename it over the old
// one) or a sync tool's batch into one reload, short enough to feel immediate.
constexpr int kCoalesceMilliseconds = 150;

} // namespace

// What a background reload may touch: never the store itself, which may be gone by the time
// the reload ends.
struct ContactStore::Mailbox
{
    QMutex mutex;
    ContactStore *owner { nullptr }; // null once the store is being destroyed
    std::atomic<bool> cancelled { false };

    // Called by the store as it goes: the reload stops, and its result is dropped.
    void close()
    {
        const QMutexLocker lock(&mutex);
        owner = nullptr;
        cancelled.store(true);
    }

    void deliver(std::shared_ptr<const ContactIndex> index)
    {
        const QMutexLocker lock(&mutex);
        if (!owner)
            return;
        // Queued to the store's thread; dropped unread if the store goes before it runs.
        QMetaObject::invokeMethod(
            owner, [store = owner, index = std::move(index)] { store->adopt(index); },
            Qt::QueuedConnection);
    }
};

std::unique_ptr<ContactStore> ContactStore::storeWithOptions(int, const QString &namedSource)
{
    auto store = std::make_unique<ContactStore>(defaultSources(namedSource));
    if (QAbstractEventDispatcher::instance())
        store->m_desktopBooks = DesktopAddressBook::shared();
    return store;
}

QStringList ContactStore::defaultSources(const QString &namedSource)
{
    if (!namedSource.isEmpty())
        return { namedSource, DesktopAddressBook::copyPath() };
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return { dataHome + QLatin1String("/contacts"), dataHome + QLatin1String("/kpeoplevcard"),
             DesktopAddressBook::copyPath() };
}

QString ContactStore::defaultRegion()
{
    const QLocale::Territory territory = QLocale::system().territory();
    if (territory == QLocale::AnyTerritory || territory == QLocale::World)
        return QStringLiteral("ZZ");
    return QLocale::territoryToCode(territory);
}

ContactStore::ContactStore(const QStringList &sources, const QString &region)
    : m_sources(sources), m_region(region), m_mailbox(std::make_shared<Mailbox>())
{
    m_mailbox->owner = this;
    // Watching starts before the first reading, so that no change falls between the two.
    if (QAbstractEventDispatcher::instance()) {
        m_watcher = std::make_unique<ContactSourceWatcher>(sources);
        m_coalesce.setSingleShot(true);
        m_coalesce.setInterval(kCoalesceMilliseconds);
        connect(&m_coalesce, &QTimer::timeout, this, &ContactStore::startReload);
        connect(m_watcher.get(), &ContactSourceWatcher::sourcesChanged, this, [this] {
            // Not restarted by later changes: a steady stream of them still reloads.
            if (!m_coalesce.isActive())
                m_coalesce.start();
        });
    }
    m_index = std::make_shared<const ContactIndex>(sources, region);
}

ContactStore::~ContactStore()
{
    m_mailbox->close();
}

const Contact *ContactStore::contactForDestinationId(const QString &address) const
{
    return m_index->contactForDestinationId(address);
}

qsizetype ContactStore::count() const
{
    return m_index->count();
}

void ContactStore::startReload()
{
    if (m_reloading) {
        m_reloadAgain = true;
        return;
    }
    m_reloading = true;
    QThreadPool::globalInstance()->start(
        [mailbox = m_mailbox, sources = m_sources, region = m_region] {
            auto index = std::make_shared<const ContactIndex>(sources, region, &mailbox->cancelled);
            mailbox->deliver(std::move(index));
        });
}

void ContactStore::adopt(std::shared_ptr<const ContactIndex> index)
{
    m_previousIndex = std::exchange(m_index, std::move(index));
    m_reloading = false;
    if (m_reloadAgain) {
        m_reloadAgain = false;
        startReload();
    }
    // Last: a receiver may destroy the store.
    emit contactsReloaded();
}
