#include "DesktopAddressBook.h"

#include "ContactStore.h"
#include "core/Log.h"
#include "core/Module.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDir>
#include <QFileInfo>
#include <QPromise>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThreadPool>

namespace {

constexpr const char *kModuleName = "vantrel-evolution";
// The first frame, drawn from the copy, comes before the module and the server's answers.
constexpr int kSettleMilliseconds = 1000;
// Long enough to take a book's first report, which comes in batches, as one.
constexpr int kWriteMilliseconds = 300;

// The module's entry, loaded once: the library under it registers types with GLib for good.
OpenDesktopBooks moduleEntry()
{
    static const auto entry = reinterpret_cast<OpenDesktopBooks>(Module::resolve(
        kModuleName, kOpenDesktopBooks, QStringLiteral("ContactStore: desktop address book")));
    return entry;
}

} // namespace

QString DesktopAddressBook::copyPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QLatin1String("/net.zorvath.vantrel/desktop-contacts.vcf");
}

std::shared_ptr<DesktopAddressBook> DesktopAddressBook::shared()
{
    // Not owning: the follower goes with the last store that used it, before the application.
    thread_local std::weak_ptr<DesktopAddressBook> current;
    std::shared_ptr<DesktopAddressBook> book = current.lock();
    if (!book) {
        book = std::make_shared<DesktopAddressBook>();
        current = book;
    }
    return book;
}

DesktopAddressBook::DesktopAddressBook(QObject *parent)
    : QObject(parent), m_watcher(kRegistryService, QDBusConnection::sessionBus(),
                                 QDBusServiceWatcher::WatchForRegistration |
                                     QDBusServiceWatcher::WatchForUnregistration)
{
    // Delivered here, on this object's thread, and never after it is gone.
    connect(&m_module, &QFutureWatcher<OpenDesktopBooks>::finished, this,
            &DesktopAddressBook::follow);
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this, &DesktopAddressBook::open);
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            &DesktopAddressBook::close);
    m_write.setSingleShot(true);
    m_write.setInterval(kWriteMilliseconds);
    connect(&m_write, &QTimer::timeout, this, &DesktopAddressBook::writeCopy);
    m_settle.setSingleShot(true);
    connect(&m_settle, &QTimer::timeout, this, &DesktopAddressBook::askForRegistry);
    m_settle.start(kSettleMilliseconds);
}

DesktopAddressBook::~DesktopAddressBook() = default;

void DesktopAddressBook::askForRegistry()
{
    QDBusConnectionInterface *bus = m_watcher.connection().interface();
    if (!bus)
        return;
    // Asked, not activated: a desktop that does not run it is not made to.
    auto *ask = new QDBusPendingCallWatcher(
        bus->asyncCall(QStringLiteral("NameHasOwner"), kRegistryService), this);
    connect(ask, &QDBusPendingCallWatcher::finished, this, [this, ask] {
        ask->deleteLater();
        const QDBusPendingReply<bool> reply = *ask;
        if (!reply.isValid())
            return;
        if (reply.value())
            open();
        else if (!m_wanted && QFile::exists(copyPath()))
            // A desktop that no longer runs it: its old contacts no longer name callers.
            QFile::remove(copyPath());
    });
}

void DesktopAddressBook::open()
{
    m_wanted = true;
    if (m_books || m_loading)
        return;
    // The module and the dozen libraries under it load on a worker thread: the list, which
    // may be drawing just now, does not wait for them.
    m_loading = true;
    auto loaded = std::make_shared<QPromise<OpenDesktopBooks>>();
    m_module.setFuture(loaded->future());
    QThreadPool::globalInstance()->start([loaded] {
        loaded->start();
        loaded->addResult(moduleEntry());
        loaded->finish();
    });
}

void DesktopAddressBook::follow()
{
    m_loading = false;
    const OpenDesktopBooks openBooks = m_module.result();
    // The registry may have left while the module was loading.
    if (!openBooks || !m_wanted || m_books)
        return;
    m_books.reset(openBooks(
        { [this] {
             // Not restarted by later changes: a steady stream of them still gets written.
             if (!m_write.isActive())
                 m_write.start();
         },
          [](const QString &problem) {
              mylog(QStringLiteral("ContactStore: desktop address book: %1").arg(problem));
          } },
        ContactStore::defaultRegion()));
}

void DesktopAddressBook::close()
{
    // The copy stays: the registry leaves as the session ends, and the next start should
    // still find the names.
    m_wanted = false;
    m_write.stop();
    m_books.reset();
}

void DesktopAddressBook::writeCopy()
{
    if (!m_books)
        return;
    const QByteArray cards = m_books->cards().join();
    // Every start reports every contact again: an unchanged copy is not rewritten, so the
    // stores do not read it again for nothing.
    if (m_written == cards)
        return;
    if (!m_written) {
        QFile old(copyPath());
        if (old.open(QIODevice::ReadOnly) && old.readAll() == cards) {
            m_written = cards;
            return;
        }
    }
    QDir().mkpath(QFileInfo(copyPath()).path());
    QSaveFile copy(copyPath());
    // Other people's phone numbers: for this user's eyes only.
    if (!copy.open(QIODevice::WriteOnly) ||
        !copy.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        copy.write(cards) != cards.size() || !copy.commit()) {
        mylog(QStringLiteral("ContactStore: desktop address book: cannot write %1: %2")
                  .arg(copyPath(), copy.errorString()));
        return;
    }
    m_written = cards;
}
