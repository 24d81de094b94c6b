#pragma once

class QWidget;
class QString;

// What the player needs of the row it plays in: the view its controls go into and what the
// row knows of its recording. The list's cells provide it; the player knows no list.
class PlayerCell
{
public:
    virtual ~PlayerCell() = default;

    // The container in the row's lower half that takes the player's controls.
    virtual QWidget *playerView() const = 0;
    // The bare name of the recording in the Messages directory.
    virtual QString filePath() const = 0;
    virtual int fileSize() const = 0;
    virtual int fileDuration() const = 0;
};
