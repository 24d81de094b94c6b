#pragma once

#include "AudioDecoder.h"
#include "TempoGraph.h"

#include <QString>
#include <QtGlobal>
#include <memory>
#include <vector>

// Changes the speed of decoded sound without changing its pitch: FFmpeg's atempo filter (a
// `TempoGraph` from its module) between the decoder and whoever plays. A voice at twice the
// speed is still the caller's voice, not a chipmunk's. At 1 it hands the frames on untouched,
// and the module is not loaded until another speed is first asked for. Not thread-safe; one
// thread drives it.
class TempoFilter
{
public:
    explicit TempoFilter(const AudioDecoder::OutputFormat &format);
    ~TempoFilter();
    TempoFilter(const TempoFilter &) = delete;
    TempoFilter &operator=(const TempoFilter &) = delete;

    // Starts over at the rate (1 is the recording's own speed), forgetting whatever it holds:
    // what comes in next is the start of a new stretch, as after a seek. False with the
    // reason in errorString() when the filter cannot be built.
    bool reset(double rate);
    double rate() const { return m_rate; }
    // Whether rates other than 1 can be played: the module is there. The first call loads it.
    static bool isAvailable();
    QString errorString() const { return m_error; }
    bool hasError() const { return !m_error.isEmpty(); }

    // Takes frames in the format given at construction.
    bool write(const void *data, qint64 frames);
    // Nothing more comes in: what the filter still holds comes out of read().
    bool finish();
    bool isFinished() const { return m_finished; }
    // Fills data with up to maxFrames frames at the new speed and answers how many; 0 when it
    // needs more input first, or at the end. data holds maxFrames * bytesPerFrame() bytes.
    qint64 read(void *data, qint64 maxFrames);
    // finish() was called and everything has been read.
    bool atEnd() const { return m_atEnd; }

private:
    bool fail(const QString &operation, const QString &reason);
    // Moves what the filter has made into m_pending.
    bool takeOutput();
    void dropRead();

    AudioDecoder::OutputFormat m_format;
    int m_frameBytes;
    double m_rate { 1 };
    std::unique_ptr<TempoGraph> m_graph; // none at the recording's own speed
    // Frames taken out of the filter (or handed through at 1) and not yet read.
    std::vector<char> m_pending;
    std::size_t m_pendingOffset { 0 };
    bool m_finished { false };
    bool m_drained { false }; // the filter has handed out all it will
    bool m_atEnd { false };
    QString m_error;
};
