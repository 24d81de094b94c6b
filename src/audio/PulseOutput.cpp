#include "PulseOutput.h"

#include <pulse/pulseaudio.h>
#include <pulse/thread-mainloop.h>

#include <utility>

namespace {

// Holds the server thread's lock for a scope: every call into the context or the stream
// from another thread needs it.
class LoopLock
{
public:
    explicit LoopLock(pa_threaded_mainloop *loop) : m_loop(loop)
    {
        if (m_loop)
            pa_threaded_mainloop_lock(m_loop);
    }
    ~LoopLock()
    {
        if (m_loop)
            pa_threaded_mainloop_unlock(m_loop);
    }
    LoopLock(const LoopLock &) = delete;
    LoopLock &operator=(const LoopLock &) = delete;

private:
    pa_threaded_mainloop *m_loop;
};

struct Proplist
{
    Proplist() : list(pa_proplist_new()) {}
    ~Proplist() { pa_proplist_free(list); }
    Proplist(const Proplist &) = delete;
    Proplist &operator=(const Proplist &) = delete;
    void set(const char *key, const QString &value)
    {
        pa_proplist_sets(list, key, value.toUtf8().constData());
    }
    pa_proplist *list;
};

// The answer of one asynchronous request the caller waits for.
struct Outcome
{
    pa_threaded_mainloop *loop;
    bool done { false };
    bool success { false };
};

void succeeded(pa_context *, int success, void *outcome)
{
    auto *result = static_cast<Outcome *>(outcome);
    result->success = success != 0;
    result->done = true;
    pa_threaded_mainloop_signal(result->loop, 0);
}

} // namespace

PulseOutput::~PulseOutput()
{
    close();
}

QString PulseOutput::serverError() const
{
    return QString::fromUtf8(pa_strerror(m_connection.context ? pa_context_errno(m_connection.context) : PA_ERR_UNKNOWN));
}

bool PulseOutput::waitFor(const std::function<bool()> &ready, QString *error)
{
    // Called with the lock held; the server thread signals on every state change.
    for (;;) {
        const pa_context_state_t context = pa_context_get_state(m_connection.context);
        if (!PA_CONTEXT_IS_GOOD(context)) {
            if (error)
                *error =
                    QStringLiteral("cannot connect to the audio server: %1").arg(serverError());
            return false;
        }
        if (m_stream && !PA_STREAM_IS_GOOD(pa_stream_get_state(m_stream))) {
            if (error)
                *error =
                    QStringLiteral("the audio server refused the stream: %1").arg(serverError());
            return false;
        }
        if (ready())
            return true;
        pa_threaded_mainloop_wait(m_connection.loop);
    }
}

bool PulseOutput::open(int sampleRate, int channels, const QString &sinkName,
                       const QString &mediaRole, Source source, Events events, QString *error)
{
    close();
    m_source = std::move(source);
    m_events = std::move(events);
    const pa_sample_spec spec { PA_SAMPLE_S16LE, uint32_t(sampleRate), uint8_t(channels) };
    if (!pa_sample_spec_valid(&spec)) {
        if (error)
            *error =
                QStringLiteral("cannot play %1 channels at %2 Hz").arg(channels).arg(sampleRate);
        return false;
    }
    m_frameBytes = pa_frame_size(&spec);

    if (!m_connection.open(&PulseOutput::contextStateChanged, nullptr, this, error)) {
        close();
        return false;
    }
    bool opened = false;
    {
        const LoopLock lock(m_connection.loop);
        opened =
            waitFor([this] { return pa_context_get_state(m_connection.context) == PA_CONTEXT_READY; }, error);
        if (opened) {
            Proplist media;
            media.set(PA_PROP_MEDIA_ROLE, mediaRole);
            media.set(PA_PROP_MEDIA_NAME, QStringLiteral("Voicemail"));
            m_stream =
                pa_stream_new_with_proplist(m_connection.context, "Voicemail", &spec, nullptr, media.list);
            pa_stream_set_state_callback(m_stream, &PulseOutput::streamStateChanged, this);
            pa_stream_set_write_callback(m_stream, &PulseOutput::streamWritable, this);
            pa_stream_set_suspended_callback(m_stream, &PulseOutput::streamSuspended, this);
            pa_stream_set_moved_callback(m_stream, &PulseOutput::streamMoved, this);
            pa_stream_set_event_callback(m_stream, &PulseOutput::streamEvent, this);
            // Keeps what was heard known up to the moment a stream dies with its server.
            pa_stream_set_latency_update_callback(
                m_stream, [](pa_stream *, void *self) {
                    static_cast<PulseOutput *>(self)->notePlayed();
                }, this);

            pa_buffer_attr buffer {};
            buffer.maxlength = uint32_t(-1);
            buffer.tlength = uint32_t(pa_usec_to_bytes(kLatencyMs * PA_USEC_PER_MSEC, &spec));
            buffer.prebuf = uint32_t(-1);
            buffer.minreq = uint32_t(-1);
            buffer.fragsize = uint32_t(-1);
            const auto flags =
                pa_stream_flags_t(PA_STREAM_START_CORKED | PA_STREAM_INTERPOLATE_TIMING |
                                  PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY);
            const QByteArray sink = sinkName.toUtf8();
            opened =
                pa_stream_connect_playback(m_stream,
                                           sinkName.isEmpty() ? nullptr : sink.constData(), &buffer,
                                           flags, nullptr, nullptr) == 0 &&
                waitFor([this] { return pa_stream_get_state(m_stream) == PA_STREAM_READY; }, error);
            m_streamReady = opened;
        }
    }
    if (!opened)
        close();
    return opened;
}

void PulseOutput::close()
{
    m_connection.close([this] {
        if (!m_stream)
            return;
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_set_write_callback(m_stream, nullptr, nullptr);
        pa_stream_set_suspended_callback(m_stream, nullptr, nullptr);
        pa_stream_set_moved_callback(m_stream, nullptr, nullptr);
        pa_stream_set_event_callback(m_stream, nullptr, nullptr);
        pa_stream_set_latency_update_callback(m_stream, nullptr, nullptr);
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
        m_stream = nullptr;
    });
    m_timeBase = 0;
    m_pendingRestarts = 0;
    m_corked = true;
    m_lastPlayedUsec = 0;
    m_drained = nullptr;
    m_streamFailed = false;
    m_streamReady = false;
}

void PulseOutput::setPlaying(bool playing)
{
    const LoopLock lock(m_connection.loop);
    if (!m_stream)
        return;
    // What was heard stays put while corked; the clock starts again from there.
    notePlayed();
    m_corked = !playing;
    m_timeBase = -1;
    if (pa_operation *operation =
            pa_stream_cork(m_stream, playing ? 0 : 1, &PulseOutput::streamRestarted, this)) {
        ++m_pendingRestarts;
        pa_operation_unref(operation);
    }
}

void PulseOutput::flush()
{
    const LoopLock lock(m_connection.loop);
    if (!m_stream)
        return;
    m_timeBase = -1;
    m_lastPlayedUsec = 0;
    if (pa_operation *operation = pa_stream_flush(m_stream, &PulseOutput::streamRestarted, this)) {
        ++m_pendingRestarts;
        pa_operation_unref(operation);
    }
    // A drain asked before the flush would otherwise answer for audio that was dropped.
    m_drained = nullptr;
}

void PulseOutput::drain(std::function<void()> done)
{
    const LoopLock lock(m_connection.loop);
    if (!m_stream)
        return;
    m_drained = std::move(done);
    if (pa_operation *operation = pa_stream_drain(m_stream, &PulseOutput::streamDrained, this))
        pa_operation_unref(operation);
}

void PulseOutput::sourceReady()
{
    // Never from the server thread itself: its lock may not be taken there.
    const LoopLock lock(m_connection.loop);
    if (!m_stream)
        return;
    const std::size_t room = pa_stream_writable_size(m_stream);
    if (room != std::size_t(-1) && room > 0)
        streamWritable(m_stream, room, this);
}

bool PulseOutput::moveToSink(const QString &sinkName)
{
    const LoopLock lock(m_connection.loop);
    if (!m_stream)
        return false;
    Outcome outcome { m_connection.loop };
    pa_operation *operation =
        pa_context_move_sink_input_by_name(m_connection.context, pa_stream_get_index(m_stream),
                                           sinkName.toUtf8().constData(), &succeeded, &outcome);
    if (!operation)
        return false;
    while (!outcome.done && pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
        pa_threaded_mainloop_wait(m_connection.loop);
    pa_operation_unref(operation);
    return outcome.success;
}

QString PulseOutput::sinkName() const
{
    const LoopLock lock(m_connection.loop);
    const char *name = m_stream ? pa_stream_get_device_name(m_stream) : nullptr;
    return name ? QString::fromUtf8(name) : QString();
}

std::int64_t PulseOutput::playedMicroseconds() const
{
    const LoopLock lock(m_connection.loop);
    notePlayed();
    return m_lastPlayedUsec;
}

void PulseOutput::notePlayed() const
{
    pa_usec_t now = 0;
    // Until the server has answered the last flush, nothing of the new position was heard.
    if (!m_stream || m_corked || m_timeBase < 0 || pa_stream_get_time(m_stream, &now) != 0)
        return;
    m_lastPlayedUsec = std::max(m_lastPlayedUsec, std::int64_t(now) - m_timeBase);
}

void PulseOutput::streamRestarted(pa_stream *stream, int, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (--output->m_pendingRestarts > 0)
        return;
    // The stream's clock is not to be trusted across a flush or a cork: a sink that renders
    // far ahead takes back at a flush what it had not played, and the clock runs back by as
    // much; a corked stream's clock may run on. What was heard goes on from the time the
    // server states once it has done as asked.
    if (pa_operation *operation = pa_stream_update_timing_info(
            stream,
            [](pa_stream *stream, int, void *self) {
                auto *output = static_cast<PulseOutput *>(self);
                pa_usec_t now = 0;
                if (output->m_pendingRestarts == 0 && output->m_timeBase < 0 &&
                    pa_stream_get_time(stream, &now) == 0)
                    output->m_timeBase = std::int64_t(now) - output->m_lastPlayedUsec;
            },
            self))
        pa_operation_unref(operation);
}

void PulseOutput::contextStateChanged(pa_context *context, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    const pa_context_state_t state = pa_context_get_state(context);
    if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && output->m_stream &&
        !std::exchange(output->m_streamFailed, true) && output->m_events.failed)
        output->m_events.failed(
            QStringLiteral("the audio server went away: %1")
                .arg(QString::fromUtf8(pa_strerror(pa_context_errno(context)))));
    pa_threaded_mainloop_signal(output->m_connection.loop, 0);
}

void PulseOutput::streamStateChanged(pa_stream *stream, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    // A stream that fails while the server lives lost its device; the context reports the
    // server going away itself.
    if (output->m_streamReady && !PA_STREAM_IS_GOOD(pa_stream_get_state(stream)) &&
        !output->m_streamFailed &&
        pa_context_get_state(output->m_connection.context) == PA_CONTEXT_READY) {
        output->m_streamFailed = true;
        if (output->m_events.failed)
            output->m_events.failed(
                QStringLiteral("the audio server dropped the stream: %1").arg(output->serverError()));
    }
    pa_threaded_mainloop_signal(output->m_connection.loop, 0);
}

void PulseOutput::streamDrained(pa_stream *, int success, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (success && output->m_drained)
        std::exchange(output->m_drained, nullptr)();
}

void PulseOutput::streamEvent(pa_stream *, const char *name, pa_proplist *, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (!output->m_events.corkRequested)
        return;
    if (qstrcmp(name, PA_STREAM_EVENT_REQUEST_CORK) == 0)
        output->m_events.corkRequested(true);
    else if (qstrcmp(name, PA_STREAM_EVENT_REQUEST_UNCORK) == 0)
        output->m_events.corkRequested(false);
}

void PulseOutput::streamWritable(pa_stream *stream, std::size_t bytes, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (!output->m_source || bytes < output->m_frameBytes)
        return;
    void *data = nullptr;
    std::size_t room = bytes;
    if (pa_stream_begin_write(stream, &data, &room) < 0 || !data)
        return;
    room -= room % output->m_frameBytes;
    const std::size_t filled = output->m_source(static_cast<char *>(data), room);
    if (filled == 0) {
        pa_stream_cancel_write(stream);
        return;
    }
    pa_stream_write(stream, data, filled - filled % output->m_frameBytes, nullptr, 0,
                    PA_SEEK_RELATIVE);
}

void PulseOutput::streamSuspended(pa_stream *stream, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (output->m_events.suspendedChanged)
        output->m_events.suspendedChanged(pa_stream_is_suspended(stream) == 1);
}

void PulseOutput::streamMoved(pa_stream *stream, void *self)
{
    auto *output = static_cast<PulseOutput *>(self);
    if (output->m_events.moved)
        output->m_events.moved(QString::fromUtf8(pa_stream_get_device_name(stream)));
}
