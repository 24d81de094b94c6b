#pragma once

#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>

struct pa_context;
struct pa_stream;
struct pa_threaded_mainloop;

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
        // The output device went away and the stream was moved, or the server is gone.
        std::function<void()> moved;
        std::function<void(const QString &reason)> failed;
    };

    // What the stream tells the server about itself, for the desktop's sound settings and a
    // phone's audio policy.
    static constexpr const char *kApplicationName = "Vantrel Plus";
    static constexpr const char *kApplicationId = "net.zorvath.vantrel";
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
    bool waitFor(const std::function<bool()> &ready, QString *error);
    QString serverError() const;

    pa_threaded_mainloop *m_loop { nullptr };
    pa_context *m_context { nullptr };
    pa_stream *m_stream { nullptr };
    Source m_source;
    Events m_events;
    std::int64_t m_flushedAtUsec { 0 }; // the stream's time at the last flush
    std::size_t m_frameBytes { 0 };
};
