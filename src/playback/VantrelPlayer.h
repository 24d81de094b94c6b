#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <memory>

class PlayerCell;

// The one playback controller: it owns one set of playback controls in a container and
// moves that container into whichever row is opened for playing. The list calls
// destroyPlayer on the previous row first, then setupPlayerForCell on the new one.
//
// The container is empty as yet: the play button, scrub bar, speaker switch and the audio
// player itself are built into it when playback lands. Until then an opened row shows the
// empty container in its lower half, nothing plays and isPlaying answers false.
class VantrelPlayer : public QObject
{
    Q_OBJECT
public:
    explicit VantrelPlayer(const QString &messagesDirectory, QObject *parent = nullptr);
    ~VantrelPlayer() override;

    // The last player made while it lives, or null; never makes one.
    static VantrelPlayer *sharedInstance();

    bool isPlaying() const { return false; }
    QWidget *container() const { return m_container; }
    // Full path of the recording last set up.
    QString urlString() const { return m_urlString; }

    // Puts the controls into the cell's player view.
    void setupPlayerForCell(PlayerCell *cell);
    // Takes the controls down from whichever row holds them, a moment later, once the row
    // has begun to close. The cell is not consulted.
    void destroyPlayer(PlayerCell *cell);

    // How long the controls stay in a closing row.
    static constexpr int kRemovalDelayMs = 50;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QString m_messagesDirectory;
    QString m_urlString;
    // Holds the controls while they are in no row. A row's player view holds them while they
    // are shown; a row that goes away hands them back here.
    std::unique_ptr<QWidget> m_shelf;
    QWidget *m_container; // a child of the shelf or of a row's player view
    QTimer m_removal;
};
