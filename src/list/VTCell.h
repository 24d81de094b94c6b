#pragma once

#include "playback/PlayerCell.h"
#include "toolkit/Button.h"
#include "toolkit/TableViewCell.h"

#include <QPointer>
#include <QTextBrowser>

class TableController;

// One recording in the list: the caller's monogram, name and "date - kind", a read button
// when there is a transcript, a call-back button, the transcript view that takes the name's
// place when it is read, and the player view into which the player puts its controls when
// the row is opened. The cell only lays itself out and carries state; which row is open is
// the list's business.
class VTCell : public TableViewCell, public PlayerCell
{
    Q_OBJECT
public:
    // The buttons send their actions to target, the list.
    VTCell(Style style, const QString &reuseIdentifier, TableController *target,
           QWidget *parent = nullptr);
    ~VTCell() override;

    Button *readButton() const { return m_readButton; }
    Button *phoneButton() const { return m_phoneButton; }

    // A recording never listened to shows a dot beside its row.
    bool isUnheard() const;
    void setUnheard(bool unheard);

    bool hasText() const { return m_hasText; }
    void setHasText(bool hasText) { m_hasText = hasText; }
    // A mark only: this row was last made the current player row.
    bool isCurrentPlayerCell() const { return m_isCurrentPlayerCell; }
    void setIsCurrentPlayerCell(bool current) { m_isCurrentPlayerCell = current; }
    int fileDuration() const override { return m_fileDuration; }
    void setFileDuration(int duration) { m_fileDuration = duration; }
    int fileSize() const override { return m_fileSize; }
    void setFileSize(int size) { m_fileSize = size; }
    QString textFile() const { return m_textFile; }
    void setTextFile(const QString &textFile) { m_textFile = textFile; }
    // The transcript view, made on first use.
    QTextBrowser *readerView() const;
    QString readerText() const { return m_readerText; }
    void setReaderText(const QString &text) { m_readerText = text; }
    QWidget *playerView() const override { return m_playerView; }
    double playerDuration() const { return m_playerDuration; }
    void setPlayerDuration(double duration) { m_playerDuration = duration; }
    // The bare name of the recording in the Messages directory.
    QString filePath() const override { return m_filePath; }
    void setFilePath(const QString &filePath) { m_filePath = filePath; }

    // Puts the name back in place of a transcript shown here and forgets its text: the row
    // is about to show another recording, or this one's transcript is gone.
    void closeTranscript();

    // Whether the player view holds the player's controls.
    bool hasPlayer() const;
    // The cell that holds the player's controls stays until its row comes back for it.
    bool canBeEvicted() const override { return !hasPlayer(); }

    void layoutSubviews() override;
    // Call back, then the transcript's button, when shown.
    QList<QWidget *> rowControls() const override;
    // The player's controls while this row holds them, left to right: play first.
    QList<QWidget *> followingControls() const override;
    // The row's buttons and its player's, and the scrub bar's knob rather than the whole bar.
    QList<QWidget *> touchTargets() const override;

    static constexpr QSize kButtonSize { 33, 29 };

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    Button *m_readButton;
    Button *m_phoneButton;
    mutable QPointer<QTextBrowser> m_readerView;
    QWidget *m_playerView;
    bool m_hasText { false };
    QWidget *m_unheardDot;
    bool m_isCurrentPlayerCell { false };
    int m_fileDuration { 0 };
    int m_fileSize { 0 };
    QString m_textFile;
    QString m_readerText;
    double m_playerDuration { 0 };
    QString m_filePath;
    bool m_layoutPending { false };
};
