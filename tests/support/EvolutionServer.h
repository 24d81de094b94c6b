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

    // Adds vCards to the built-in address book and answers their new uids, or saves vCards
    // that carry their uid over the contacts they name. Empty on failure, with a warning.
    QStringList add(const QByteArrayList &cards) { return save(cards, true); }
    bool modify(const QByteArray &card) { return !save({ card }, false).isEmpty(); }

private:
    QStringList save(const QByteArrayList &cards, bool added);

    QTemporaryDir m_home;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};
