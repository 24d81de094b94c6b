#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// An application installed on the desktop, as its .desktop file describes it, and the means
// to hand it a file without a shell in between.
class DesktopApplication
{
public:
    // The applications that say they open files of mimeType or of a type it derives from, from
    // XDG_DATA_HOME and XDG_DATA_DIRS, as mimeapps.list files add, remove and rank them: the
    // user's default first. Applications that need a terminal are left out.
    static QList<DesktopApplication> applicationsForMimeType(const QString &mimeType);
    // The application of a .desktop file, if it is one that can be run here.
    static std::optional<DesktopApplication> fromFile(const QString &desktopId,
                                                      const QString &path);

    // The file's name under applications/, with "-" for "/": "org.gnome.Totem.desktop".
    QString desktopId() const { return m_desktopId; }
    QString name() const { return m_name; }
    QStringList mimeTypes() const { return m_mimeTypes; }

    // The program and its arguments that open path: the Exec line unquoted, its file and URL
    // codes replaced by the path as one argument each (or the path appended when it has none).
    QStringList commandForFile(const QString &path) const;
    // Starts the command detached, in the home directory; answers whether it started.
    bool launch(const QString &path) const;

private:
    QString m_desktopId;
    QString m_file;
    QString m_name;
    QString m_icon;
    QString m_exec;
    QStringList m_mimeTypes;
};
