#pragma once

#include <QByteArrayList>
#include <QString>
#include <functional>

// The desktop's address books as the module that reads them hands them to the store. The
// module links Evolution Data Server's client library and is loaded only where that server
// runs, so that a desktop without it never loads the library at all.
class DesktopBooks
{
public:
    // Called on the thread that opened the books, from GLib's main loop (which Qt runs).
    struct Listener
    {
        std::function<void()> changed;               // contacts or books came, changed or went
        std::function<void(const QString &)> failed; // a book could not be read
    };

    virtual ~DesktopBooks() = default;

    // Every contact of every enabled address book, as vCard 3.0 text, in a steady order.
    virtual QByteArrayList cards() const = 0;
};

// The module's one entry point, found by this name. Region is the country whose numbers may
// be written without a country code ("US"), or "ZZ" for none.
using OpenDesktopBooks = DesktopBooks *(*)(DesktopBooks::Listener listener, const QString &region);
inline constexpr char kOpenDesktopBooks[] = "vantrel_open_desktop_books";
