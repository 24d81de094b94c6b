#pragma once

#include <QList>
#include <QString>
#include <memory>

struct _GAppInfo;

// An application installed on the desktop, as GIO knows it from its .desktop file, and the
// means to hand it a file without a shell in between.
class DesktopApplication
{
public:
    // The applications for files of mimeType or of a type it derives from, as GIO ranks them
    // from the desktop files and mimeapps.list files of XDG_DATA_HOME, XDG_DATA_DIRS and
    // XDG_CONFIG_HOME: the user's default first. Applications that need a terminal are left out.
    // GIO reads those variables once, at its first use, and learns the types an application
    // opens from each folder's mimeinfo.cache, as update-desktop-database keeps it.
    static QList<DesktopApplication> applicationsForMimeType(const QString &mimeType);

    // The file's name under applications/, with "-" for "/": "org.gnome.Totem.desktop".
    QString desktopId() const;
    QString name() const;

    // Starts the application on path, detached, in the home directory; answers whether it
    // started.
    bool launch(const QString &path) const;

private:
    explicit DesktopApplication(_GAppInfo *info);

    std::shared_ptr<_GAppInfo> m_info;
};
