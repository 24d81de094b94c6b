#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <memory>

class TableViewCell;

// The one playback controller: it owns the playback controls and moves them into the row
// that is opened for playing. The list asks it to take the controls down from a row with
// destroyPlayer before a row is opened, closed or rebuilt.
//
// The controls container is made here and is empty: the play button, scrub bar and speaker
// switch are built into it, and the audio player created, when a row is set up for playing.
// Until then nothing plays and isPlaying answers false.
class VantrelPlayer : public QObject
{
    Q_OBJECT
public:
    explicit VantrelPlayer(QObject *parent = nullptr);
    ~VantrelPlayer() override;

    // The last player made, or null; never makes one.
    static VantrelPlayer *sharedInstance();

    bool isPlaying() const { return false; }
    QWidget *container() const { return m_container.get(); }

    // Takes the controls out of whichever row holds them. The cell is not consulted.
    void destroyPlayer(TableViewCell *cell);

private:
    // Owned here while it is in no row; a row's player view holds it while it is shown.
    std::unique_ptr<QWidget> m_container;
};
