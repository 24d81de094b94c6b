#pragma once

#include "PulseConnection.h"

#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>

struct pa_proplist;
struct pa_stream;

// One playback stream on the audio server (PulseAudio, or PipeWire's PulseAudio server),
// through libpulse's asynchronous API on a thread of its own. It plays interleaved signed
// 16-bit samples that it pulls from a source whenever the server asks for more, with a
// requested latency of about 50 ms, so that sound starts at once.
//
// The source and the event callbacks run on the server thread: they must be quick, and
// whoever needs them on another thread posts them there.
class PulseOutput
{
public:
    // Fills up to `bytes` bytes (whole frames) and answers how many it filled; 0 when nothing
    // is ready yet (the server then plays silence until the next request), or at the end.
    using Source = std::function<std::size_t(char *buffer, std::size_t bytes)>;

    struct Events
    {
        // The server suspended or corked the stream (a call on a phone), or let it go on.
        std::function<void(bool suspended)> suspendedChanged;
        // The server asks the stream to pause or to go on: a phone's audio policy corks media
        // while a call rings.
        std::function<void(bool cork)> corkRequested;
        // The stream now plays on another sink: one it was moved to, or where the server
        // rescued it when its device went away.
        std::function<void(const QString &sinkName)> moved;
        // The stream is gone: its device went away with nowhere to go, or the server did.
        std::function<void(const QString &reason)> failed;
    };

    static constexpr int kLatencyMs = 50;

    PulseOutput() = default;
    ~PulseOutput();
    PulseOutput(const PulseOutput &) = delete;
    PulseOutput &operator=(const PulseOutput &) = delete;

    // Connects to the server and makes a corked stream on the named sink (the default sink
    // when empty). Answers false with the reason when there is no server or it refuses.
    bool open(int sampleRate, int channels, const QString &sinkName, const QString &mediaRole,
              Source source, Events events, QString *error);
    void close();
    bool isOpen() const { return m_stream != nullptr; }

    // Plays (uncorks) or pauses (corks) the stream.
    void setPlaying(bool playing);
    // Drops what the server holds but has not played, as after a seek.
    void flush();
    // The source has samples again after it answered 0: they are written at once, as far as
    // the server has room, rather than at its next request.
    void sourceReady();
    // Plays what the stream holds even if it is less than the server waits for before it
    // starts, and calls done on the server thread once all of it has been heard. A flush
    // forgets the request.
    void drain(std::function<void()> done);
    // Moves the stream to another sink while it plays; false when there is no such sink.
    bool moveToSink(const QString &sinkName);
    // The sink the stream plays on now.
    QString sinkName() const;

    // Microseconds of sound the listener has heard since the stream started or was last
    // flushed: what was written, less what still waits in the server and the device.
    std::int64_t playedMicroseconds() const;

private:
    static void contextStateChanged(pa_context *context, void *self);
    static void streamStateChanged(pa_stream *stream, void *self);
    static void streamWritable(pa_stream *stream, std::size_t bytes, void *self);
    static void streamSuspended(pa_stream *stream, void *self);
    static void streamMoved(pa_stream *stream, void *self);
    static void streamEvent(pa_stream *stream, const char *name, pa_proplist *, void *self);
    static void streamRestarted(pa_stream *stream, int success, void *self);
    static void streamDrained(pa_stream *stream, int success, void *self);
    // With the server thread's lock held, or on that thread.
    void notePlayed() const;
    bool waitFor(const std::function<bool()> &ready, QString *error);
    QString serverError() const;

    PulseConnection m_connection;
    pa_stream *m_stream { nullptr };
    Source m_source;
    Events m_events;
    std::int64_t m_timeBase { 0 }; // the stream's time after the last flush; -1 until known
    int m_pendingRestarts { 0 }; // flushes and corks the server has not answered
    bool m_corked { true };
    mutable std::int64_t m_lastPlayedUsec { 0 };
    std::size_t m_frameBytes { 0 };
    std::function<void()> m_drained; // the pending drain's answer, until a flush
    bool m_streamReady { false }; // failures before it are open()'s to report
    bool m_streamFailed { false };
};
