#pragma once

#include <QString>
#include <QtGlobal>
#include <atomic>
#include <memory>
#include <vector>

// Decodes one recording, in any container and codec FFmpeg reads, to interleaved PCM at a rate
// and channel count the caller fixes. Streams: it holds at most one decoded frame beyond what
// the caller asked for, however long the file. Not thread-safe; one thread drives it.
class AudioDecoder
{
public:
    enum class SampleFormat
    {
        Int16,
        Float
    };
    struct OutputFormat
    {
        int sampleRate = 48000;
        int channels = 2;
        SampleFormat sampleFormat = SampleFormat::Int16;
        int bytesPerFrame() const;
    };
    // What the level meters answer for silence, as a phone's player does.
    static constexpr double SilenceDecibels = -160.0;

    AudioDecoder() : AudioDecoder(OutputFormat {}) {}
    explicit AudioDecoder(const OutputFormat &format);
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder &) = delete;
    AudioDecoder &operator=(const AudioDecoder &) = delete;

    // Opens a file and answers whether it has an audio stream that can be decoded; on failure
    // errorString() says why. Closes whatever was open before.
    bool open(const QString &path);
    void close();
    bool isOpen() const;
    // A flag another thread may raise to cut short an open() that reads a slow or huge file;
    // that open() then fails as cancelled. The flag must outlive the decoder.
    void setAbortFlag(const std::atomic<bool> *flag) { m_abort = flag; }
    QString path() const { return m_path; }
    // The last failure: the operation, the path and the reason.
    QString errorString() const { return m_error; }
    OutputFormat outputFormat() const { return m_format; }

    // Length in seconds: what the header states, checked at open against where the decoded audio
    // ends; counted by decoding when the container states none.
    double duration() const { return m_duration; }
    // Time in seconds of the next frame read() will answer.
    double position() const;
    // Moves so that the next read() starts at seconds (clamped to the recording).
    bool seek(double seconds);

    // Fills data with up to maxFrames interleaved frames and answers how many; fewer only at the
    // end or on an error (then hasError()). data holds maxFrames * bytesPerFrame() bytes.
    qint64 read(void *data, qint64 maxFrames);
    bool atEnd() const { return m_atEnd; }
    bool hasError() const { return !m_error.isEmpty(); }

    // Levels of the frames the last read() answered, in decibels of full scale per channel.
    double peakPowerForChannel(int channel) const;
    double averagePowerForChannel(int channel) const;

private:
    struct Codec;
    bool fail(const QString &operation, const QString &reason);
    bool openStream();
    bool countDuration();
    // Decodes to the end and answers the output frames that made.
    qint64 countFrames();
    bool configureResampler(const struct AVFrame *frame);
    // Decodes and converts the next frame into m_pending; false at the end or on an error.
    bool decodeMore();
    bool convert(const struct AVFrame *frame);
    void measure(const void *data, qint64 frames);

    OutputFormat m_format;
    const std::atomic<bool> *m_abort = nullptr;
    QString m_path;
    QString m_error;
    std::unique_ptr<Codec> m_codec;
    double m_duration = 0;
    // Output frames from the start of the recording to the next one read() answers.
    qint64 m_outputFrame = 0;
    // Output frames still to drop before the seek target is reached.
    qint64 m_toDrop = 0;
    bool m_atEnd = false;
    bool m_flushing = false;
    std::vector<unsigned char> m_pending;
    size_t m_pendingOffset = 0;
    std::vector<double> m_peak;
    std::vector<double> m_average;
};
