#include "audio/AudioDecoder.h"

#include "core/Log.h"

#include <QDataStream>
#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/stat.h>

namespace {

// Consecutive packets the codec may reject before a damaged file counts as undecodable; a
// few bad packets in a long recording are skipped as players do.
constexpr int MaxRejectedPackets = 64;
// Opus needs 80 ms of audio before a seek target to converge (RFC 7845); not all containers say.
constexpr int64_t OpusPrerollSamples = 3840;
// How much of the end is decoded at open to find where the audio stops: more than the longest
// packet of the codecs phones use (ALAC's 4096 frames at 8 kHz last half a second).
constexpr double TailSeconds = 1.0;
// A header claiming a longer recording is damaged, and its length counts as unknown; it also
// keeps frame arithmetic far from overflowing.
constexpr double LongestCredibleSeconds = 1e7;

QString reasonFor(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

QString systemReason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// What a CAF file's own header states: its length in seconds (0 when it states none) and the
// encoder's priming frames at the start, which this FFmpeg does not skip.
struct CafLength
{
    double seconds = 0;
    qint64 primingFrames = 0;
};

CafLength cafLength(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.read(8).left(4) != "caff")
        return {};
    QDataStream in(&file); // big-endian, as CAF is
    in.setFloatingPointPrecision(QDataStream::DoublePrecision);
    double rate = 0;
    quint32 bytesPerPacket = 0;
    quint32 framesPerPacket = 0;
    double fromData = 0;
    while (in.status() == QDataStream::Ok && !file.atEnd()) {
        const QByteArray type = file.read(4);
        qint64 size = 0;
        in >> size;
        const qint64 start = file.pos();
        if (type == "desc") {
            quint32 format = 0;
            quint32 flags = 0;
            in >> rate >> format >> flags >> bytesPerPacket >> framesPerPacket;
        } else if (type == "pakt" && rate > 0) {
            qint64 packets = 0;
            qint64 validFrames = 0;
            qint32 priming = 0;
            in >> packets >> validFrames >> priming;
            if (validFrames > 0)
                return { double(validFrames) / rate, std::max<qint64>(priming, 0) };
        } else if (type == "data" && rate > 0 && bytesPerPacket > 0) {
            const qint64 bytes = (size < 0 ? file.size() - start : size) - 4; // less the edit count
            fromData = double(bytes / bytesPerPacket) * framesPerPacket / rate;
        }
        if (size < 0 || size > file.size() - start || in.status() != QDataStream::Ok ||
            !file.seek(start + size))
            break;
    }
    return { fromData, 0 };
}

} // namespace

struct AudioDecoder::Codec
{
    AVFormatContext *format = nullptr;
    AVCodecContext *context = nullptr;
    SwrContext *resampler = nullptr;
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int stream = -1;
    // Stream time of the recording's first sample: later containers may not start at zero.
    int64_t origin = 0;
    // What the resampler was set up for; a stream may change format mid-way.
    int inputFormat = -1;
    int inputRate = 0;
    AVChannelLayout inputLayout {};
    AVChannelLayout outputLayout {};
    // Output frame the next decoded frame's timestamp is matched against, after open or seek.
    qint64 syncTarget = 0;
    bool needsSync = true;
    int rejectedPackets = 0;

    ~Codec()
    {
        swr_free(&resampler);
        avcodec_free_context(&context);
        avformat_close_input(&format);
        av_packet_free(&packet);
        av_frame_free(&frame);
        av_channel_layout_uninit(&inputLayout);
        av_channel_layout_uninit(&outputLayout);
    }
    AVStream *audio() const { return format->streams[stream]; }
};

int AudioDecoder::OutputFormat::bytesPerFrame() const
{
    return channels * (sampleFormat == SampleFormat::Float ? int(sizeof(float)) : 2);
}

namespace {

// FFmpeg's own warnings are a developer's business: they go to the diagnostic log, never to
// the terminal of the user who started the program.
void logFromFFmpeg(void *context, int level, const char *format, va_list arguments)
{
    if (level > av_log_get_level())
        return;
    char line[1024];
    int printPrefix = 1;
    av_log_format_line2(context, level, format, arguments, line, sizeof line, &printPrefix);
    QString text = QString::fromUtf8(line).trimmed();
    if (!text.isEmpty())
        mylog(QStringLiteral("VantrelLog : %1").arg(text));
}

} // namespace

AudioDecoder::AudioDecoder(const OutputFormat &format) : m_format(format)
{
    static const bool quiet = [] {
        av_log_set_level(AV_LOG_WARNING);
        av_log_set_callback(&logFromFFmpeg);
        return true;
    }();
    Q_UNUSED(quiet);
    m_format.channels = std::clamp(m_format.channels, 1, 8);
    m_format.sampleRate = std::clamp(m_format.sampleRate, 8000, 384000);
    close();
}

AudioDecoder::~AudioDecoder() = default;

bool AudioDecoder::isOpen() const
{
    return m_codec != nullptr;
}

void AudioDecoder::close()
{
    m_codec.reset();
    m_duration = 0;
    m_outputFrame = 0;
    m_toDrop = 0;
    m_atEnd = false;
    m_flushing = false;
    m_pending.clear();
    m_pendingOffset = 0;
    m_peak.assign(size_t(m_format.channels), SilenceDecibels);
    m_average.assign(size_t(m_format.channels), SilenceDecibels);
}

bool AudioDecoder::fail(const QString &operation, const QString &reason)
{
    m_error = QStringLiteral("Cannot %1 \"%2\": %3").arg(operation, m_path, reason);
    return false;
}

bool AudioDecoder::open(const QString &path)
{
    close();
    m_path = path;
    m_error.clear();
    // Checked first because FFmpeg would block on a pipe and say little about the rest.
    const QByteArray name = QFile::encodeName(path);
    struct stat info = {};
    if (::stat(name.constData(), &info) != 0)
        return fail(QStringLiteral("open"), systemReason(errno));
    if (S_ISDIR(info.st_mode))
        return fail(QStringLiteral("open"), systemReason(EISDIR));
    if (!S_ISREG(info.st_mode))
        return fail(QStringLiteral("open"), QStringLiteral("not a regular file"));
    if (info.st_size == 0)
        return fail(QStringLiteral("open"), QStringLiteral("the file is empty (0 bytes)"));

    m_codec = std::make_unique<Codec>();
    if (!m_codec->packet || !m_codec->frame) {
        m_codec.reset();
        return fail(QStringLiteral("open"), reasonFor(AVERROR(ENOMEM)));
    }
    if (!openStream() || !countDuration()) {
        m_codec.reset();
        return false;
    }
    return true;
}

bool AudioDecoder::openStream()
{
    Codec &c = *m_codec;
    const QByteArray name = QFile::encodeName(m_path);
    c.format = avformat_alloc_context();
    if (!c.format)
        return fail(QStringLiteral("open"), reasonFor(AVERROR(ENOMEM)));
    if (m_abort) {
        c.format->interrupt_callback.callback = [](void *flag) -> int {
            return static_cast<const std::atomic<bool> *>(flag)->load(std::memory_order_relaxed);
        };
        c.format->interrupt_callback.opaque = const_cast<std::atomic<bool> *>(m_abort);
    }
    int result = avformat_open_input(&c.format, name.constData(), nullptr, nullptr);
    if (result == AVERROR_INVALIDDATA)
        return fail(QStringLiteral("open"),
                    QStringLiteral("not audio (%1)").arg(reasonFor(result)));
    if (result < 0)
        return fail(QStringLiteral("open"), reasonFor(result));
    // Codec parameters some containers leave to the first packets; a failure here still leaves
    // what the header said, which the checks below judge.
    avformat_find_stream_info(c.format, nullptr);

    const AVCodec *decoder = nullptr;
    result = av_find_best_stream(c.format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (result == AVERROR_STREAM_NOT_FOUND)
        return fail(QStringLiteral("open"), QStringLiteral("no audio stream"));
    if (result == AVERROR_DECODER_NOT_FOUND || (result >= 0 && !decoder)) {
        const AVStream *stream = nullptr;
        for (unsigned i = 0; i < c.format->nb_streams; ++i)
            if (c.format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
                stream = c.format->streams[i];
        QString codec = QStringLiteral("unknown");
        if (stream && stream->codecpar->codec_id != AV_CODEC_ID_NONE)
            codec = QString::fromLatin1(avcodec_get_name(stream->codecpar->codec_id));
        else if (stream && stream->codecpar->codec_tag) {
            char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
            av_fourcc_make_string(tag, stream->codecpar->codec_tag);
            codec = QString::fromLatin1(tag);
        }
        return fail(QStringLiteral("open"),
                    QStringLiteral("unsupported audio codec (%1)").arg(codec));
    }
    if (result < 0)
        return fail(QStringLiteral("open"), reasonFor(result));
    c.stream = result;
    for (unsigned i = 0; i < c.format->nb_streams; ++i)
        if (int(i) != c.stream)
            c.format->streams[i]->discard = AVDISCARD_ALL;

    c.context = avcodec_alloc_context3(decoder);
    if (!c.context)
        return fail(QStringLiteral("open"), reasonFor(AVERROR(ENOMEM)));
    result = avcodec_parameters_to_context(c.context, c.audio()->codecpar);
    if (result >= 0) {
        c.context->pkt_timebase = c.audio()->time_base;
        result = avcodec_open2(c.context, decoder, nullptr);
    }
    if (result < 0)
        return fail(QStringLiteral("open"),
                    QStringLiteral("cannot decode %1 (%2)")
                        .arg(QString::fromLatin1(decoder->name), reasonFor(result)));
    if (c.audio()->start_time != AV_NOPTS_VALUE && c.audio()->start_time > 0)
        c.origin = c.audio()->start_time;
    av_channel_layout_default(&c.outputLayout, m_format.channels);
    return true;
}

bool AudioDecoder::countDuration()
{
    Codec &c = *m_codec;
    const AVStream *stream = c.audio();
    // An estimate from the bit rate can be off by seconds, so it counts as unknown.
    const bool estimated = c.format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    double stated = 0;
    if (std::strcmp(c.format->iformat->name, "caf") == 0) {
        const CafLength caf = cafLength(m_path);
        stated = caf.seconds;
        // AAC and Opus start with the encoder's priming, which the packet table declares and
        // this FFmpeg does not skip; the recording begins after it.
        const AVCodecParameters *codec = stream->codecpar;
        const qint64 priming =
            codec->codec_id == AV_CODEC_ID_AAC || codec->codec_id == AV_CODEC_ID_OPUS
                ? caf.primingFrames
                : 0;
        if (priming > 0 && codec->sample_rate > 0 && codec->initial_padding == 0 && c.origin == 0)
            c.origin =
                av_rescale_q(priming, AVRational { 1, codec->sample_rate }, stream->time_base);
    } else if (!estimated && stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        stated = double(stream->duration) * av_q2d(stream->time_base);
    else if (!estimated && c.format->duration != AV_NOPTS_VALUE && c.format->duration > 0)
        stated = double(c.format->duration) / AV_TIME_BASE;

    if (!(stated < LongestCredibleSeconds))
        stated = 0;
    // Muxers may count whole packets where the last is partly filled, so the end is found by
    // decoding the last stretch; a header promising more than the file holds leads to counting.
    if (stated > 0) {
        const double from = std::max(0.0, stated - TailSeconds);
        m_duration = stated;
        if (!seek(from))
            return false;
        const qint64 frames = countFrames();
        if (hasError())
            return false;
        if (frames > 0) {
            m_duration = std::min(stated, from + double(frames) / m_format.sampleRate);
            return seek(0);
        }
    }
    // Counting from the start: exact for every codec, and memory stays flat as in playback.
    m_duration = 0;
    if (!seek(0))
        return false;
    const qint64 frames = countFrames();
    if (hasError())
        return false;
    m_duration = double(frames) / m_format.sampleRate;
    return seek(0);
}

qint64 AudioDecoder::countFrames()
{
    qint64 frames = 0;
    while (decodeMore()) {
        frames += qint64(m_pending.size() - m_pendingOffset) / m_format.bytesPerFrame();
        if (m_abort && m_abort->load(std::memory_order_relaxed)) {
            fail(QStringLiteral("open"), QStringLiteral("cancelled"));
            break;
        }
    }
    m_pending.clear();
    m_pendingOffset = 0;
    return frames;
}

double AudioDecoder::position() const
{
    return double(m_outputFrame) / m_format.sampleRate;
}

bool AudioDecoder::seek(double seconds)
{
    if (!isOpen())
        return false;
    Codec &c = *m_codec;
    if (!std::isfinite(seconds))
        seconds = 0;
    seconds = std::clamp(seconds, 0.0, std::max(m_duration, 0.0));
    const AVStream *stream = c.audio();
    int64_t target =
        av_rescale_q(llround(seconds * AV_TIME_BASE), AV_TIME_BASE_Q, stream->time_base) + c.origin;
    // Codecs such as Opus need some audio before the target to settle; it is decoded, then dropped.
    int64_t preroll = stream->codecpar->seek_preroll;
    if (stream->codecpar->codec_id == AV_CODEC_ID_OPUS)
        preroll = std::max<int64_t>(preroll, OpusPrerollSamples);
    if (preroll > 0 && stream->codecpar->sample_rate > 0)
        target -= av_rescale_q(preroll, AVRational { 1, stream->codecpar->sample_rate },
                               stream->time_base);
    target = std::max(target, c.origin);
    int result = av_seek_frame(c.format, c.stream, target, AVSEEK_FLAG_BACKWARD);
    if (result < 0) // Some demuxers only find their way back to the start; decoding then drops.
        result = av_seek_frame(c.format, c.stream, c.origin, AVSEEK_FLAG_BACKWARD);
    if (result < 0)
        return fail(QStringLiteral("seek in"), reasonFor(result));
    avcodec_flush_buffers(c.context);
    swr_free(&c.resampler); // drops what it buffered of the old position
    c.syncTarget = llround(seconds * m_format.sampleRate);
    c.needsSync = true;
    c.rejectedPackets = 0;
    m_outputFrame = c.syncTarget;
    m_toDrop = 0;
    m_pending.clear();
    m_pendingOffset = 0;
    m_atEnd = false;
    m_flushing = false;
    m_error.clear();
    return true;
}

qint64 AudioDecoder::read(void *data, qint64 maxFrames)
{
    const int frameBytes = m_format.bytesPerFrame();
    auto *out = static_cast<unsigned char *>(data);
    qint64 done = 0;
    // Decoders pad their last frame; what lies past the stated length is not part of the recording.
    const qint64 end = m_duration > 0 ? llround(m_duration * m_format.sampleRate) : INT64_MAX;
    while (isOpen() && done < maxFrames) {
        const qint64 wanted = std::min(maxFrames - done, end - (m_outputFrame + done));
        if (wanted <= 0) {
            m_atEnd = true;
            break;
        }
        const size_t available = m_pending.size() - m_pendingOffset;
        if (available > 0) {
            const size_t bytes = std::min(available, size_t(wanted) * frameBytes);
            std::memcpy(out + done * frameBytes, m_pending.data() + m_pendingOffset, bytes);
            m_pendingOffset += bytes;
            done += qint64(bytes) / frameBytes;
            continue;
        }
        if (m_atEnd || hasError() || !decodeMore())
            break;
    }
    m_outputFrame += done;
    measure(data, done);
    return done;
}

bool AudioDecoder::decodeMore()
{
    Codec &c = *m_codec;
    m_pending.clear();
    m_pendingOffset = 0;
    for (;;) {
        int result = avcodec_receive_frame(c.context, c.frame);
        if (result == 0) {
            c.rejectedPackets = 0;
            const bool converted = convert(c.frame);
            av_frame_unref(c.frame);
            if (!converted)
                return false;
            if (m_pendingOffset < m_pending.size())
                return true;
            continue;
        }
        if (result == AVERROR_EOF) {
            if (c.resampler && !convert(nullptr))
                return false;
            if (m_pendingOffset < m_pending.size())
                return true;
            m_atEnd = true;
            return false;
        }
        if (result != AVERROR(EAGAIN)) {
            if (++c.rejectedPackets > MaxRejectedPackets)
                return fail(QStringLiteral("decode"), reasonFor(result));
            continue;
        }
        if (m_flushing) { // a drained codec that still asks for input has nothing more
            m_atEnd = true;
            return false;
        }
        result = av_read_frame(c.format, c.packet);
        if (result == AVERROR_EOF) {
            avcodec_send_packet(c.context, nullptr);
            m_flushing = true;
            continue;
        }
        if (result < 0)
            return fail(QStringLiteral("read"), reasonFor(result));
        if (c.packet->stream_index == c.stream) {
            result = avcodec_send_packet(c.context, c.packet);
            if (result < 0 && result != AVERROR(EAGAIN) &&
                ++c.rejectedPackets > MaxRejectedPackets) {
                av_packet_unref(c.packet);
                return fail(QStringLiteral("decode"), reasonFor(result));
            }
        }
        av_packet_unref(c.packet);
    }
}

bool AudioDecoder::configureResampler(const AVFrame *frame)
{
    Codec &c = *m_codec;
    AVChannelLayout layout {};
    if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame->ch_layout.nb_channels == 0)
        av_channel_layout_default(&layout, std::max(frame->ch_layout.nb_channels, 1));
    else
        av_channel_layout_copy(&layout, &frame->ch_layout);
    if (c.resampler && frame->format == c.inputFormat && frame->sample_rate == c.inputRate &&
        av_channel_layout_compare(&layout, &c.inputLayout) == 0) {
        av_channel_layout_uninit(&layout);
        return true;
    }
    swr_free(&c.resampler);
    av_channel_layout_uninit(&c.inputLayout);
    c.inputLayout = layout;
    c.inputFormat = frame->format;
    c.inputRate = frame->sample_rate;
    const AVSampleFormat output =
        m_format.sampleFormat == SampleFormat::Float ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S16;
    int result = swr_alloc_set_opts2(&c.resampler, &c.outputLayout, output, m_format.sampleRate,
                                     &c.inputLayout, AVSampleFormat(frame->format),
                                     frame->sample_rate, 0, nullptr);
    if (result >= 0)
        result = swr_init(c.resampler);
    if (result < 0) {
        swr_free(&c.resampler);
        return fail(QStringLiteral("decode"),
                    QStringLiteral("cannot convert its audio (%1)").arg(reasonFor(result)));
    }
    return true;
}

bool AudioDecoder::convert(const AVFrame *frame)
{
    Codec &c = *m_codec;
    if (frame && (frame->nb_samples <= 0 || frame->sample_rate <= 0))
        return true;
    if (frame && !configureResampler(frame))
        return false;
    if (frame && c.needsSync) {
        // The first frame after a seek starts at or before the target; what lies before is dropped.
        c.needsSync = false;
        const int64_t pts = frame->best_effort_timestamp;
        if (pts != AV_NOPTS_VALUE) {
            const double start = (double(pts) - double(c.origin)) * av_q2d(c.audio()->time_base);
            const double behind = double(c.syncTarget) / m_format.sampleRate - start;
            m_toDrop = behind > 0
                           ? llround(std::min(behind, LongestCredibleSeconds) * m_format.sampleRate)
                           : 0;
        }
    }
    const int capacity = swr_get_out_samples(c.resampler, frame ? frame->nb_samples : 0);
    if (capacity <= 0)
        return true;
    m_pending.resize(size_t(capacity) * m_format.bytesPerFrame());
    uint8_t *out = m_pending.data();
    const int converted =
        swr_convert(c.resampler, &out, capacity,
                    frame ? const_cast<const uint8_t **>(frame->extended_data) : nullptr,
                    frame ? frame->nb_samples : 0);
    if (converted < 0)
        return fail(QStringLiteral("decode"), reasonFor(converted));
    m_pending.resize(size_t(converted) * m_format.bytesPerFrame());
    const qint64 dropped = std::min<qint64>(m_toDrop, converted);
    m_toDrop -= dropped;
    m_pendingOffset = size_t(dropped) * m_format.bytesPerFrame();
    return true;
}

void AudioDecoder::measure(const void *data, qint64 frames)
{
    const int channels = m_format.channels;
    m_peak.assign(size_t(channels), SilenceDecibels);
    m_average.assign(size_t(channels), SilenceDecibels);
    if (frames <= 0)
        return;
    const bool isFloat = m_format.sampleFormat == SampleFormat::Float;
    const auto *floats = static_cast<const float *>(data);
    const auto *shorts = static_cast<const int16_t *>(data);
    const auto decibels = [](double level) {
        return level > 0 ? std::max(20.0 * std::log10(level), SilenceDecibels) : SilenceDecibels;
    };
    for (int channel = 0; channel < channels; ++channel) {
        double peak = 0;
        double sumOfSquares = 0;
        for (qint64 i = 0; i < frames; ++i) {
            const qint64 at = i * channels + channel;
            const double sample = isFloat ? double(floats[at]) : shorts[at] / 32768.0;
            peak = std::max(peak, std::abs(sample));
            sumOfSquares += sample * sample;
        }
        m_peak[size_t(channel)] = decibels(peak);
        m_average[size_t(channel)] = decibels(std::sqrt(sumOfSquares / double(frames)));
    }
}

double AudioDecoder::peakPowerForChannel(int channel) const
{
    return channel >= 0 && size_t(channel) < m_peak.size() ? m_peak[size_t(channel)]
                                                           : SilenceDecibels;
}

double AudioDecoder::averagePowerForChannel(int channel) const
{
    return channel >= 0 && size_t(channel) < m_average.size() ? m_average[size_t(channel)]
                                                              : SilenceDecibels;
}
