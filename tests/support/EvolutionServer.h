#pragma once

#include <QByteArrayList>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <vector>

// A real Evolution Data Server, GNOME's and Phosh's address book, on this process's session
// bus with folders of its own, written to through its own client library as GNOME Contacts
// writes. Stopped when this goes.
class EvolutionServer
{
public:
    ~EvolutionServer();

    // Starts the source registry, then the address-book factory; answers what went wrong,
    // or nothing.
    QString start();

    // Adds vCards to the built-in address book and answers their new uids; saves vCards that
    // carry their uid over the contacts they name; removes contacts by uid. Empty or false on
    // failure, with a warning.
    QStringList add(const QByteArrayList &cards) { return change(Change::Add, cards); }
    bool modify(const QByteArray &card) { return !change(Change::Modify, { card }).isEmpty(); }
    bool remove(const QString &uid) { return !change(Change::Remove, { uid.toUtf8() }).isEmpty(); }

private:
    enum class Change
    {
        Add,
        Modify,
        Remove
    };
    QStringList change(Change change, const QByteArrayList &items);

    QTemporaryDir m_home;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};
