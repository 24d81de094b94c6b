#pragma once

// The part of the player that its decoding thread and the audio server's thread share: the
// decoding thread itself and the ring of decoded sound between it and the server's stream.
// Private to the player.

#include "AudioDecoder.h"
#include "AudioPlayer.h"
#include "PulseOutput.h"
#include "TempoFilter.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// The part of the player that its decoding thread and the audio server's thread share.
// Locks are taken in one order only: outputLock, then the server's own lock (inside
// PulseOutput), then lock; the server's thread holds its lock when it takes lock.
struct AudioPlayer::Engine
{
    // What the stream carries: the server converts to whatever the device wants.
    static constexpr AudioDecoder::OutputFormat kFormat { 48000, 2,
                                                          AudioDecoder::SampleFormat::Int16 };
    // Decoded ahead of the listener: enough to ride out a busy moment of the machine, small
    // enough that memory never depends on the recording's length.
    static constexpr std::size_t kBufferBytes = std::size_t(kFormat.sampleRate) / 4 * 4;
    static constexpr qint64 kChunkFrames = 1024;
    // A phone's audio policy treats media streams as music: it corks them for a call.
    static constexpr const char *kMediaRole = "music";

    explicit Engine(AudioPlayer *owner) : player(owner) { decoder.setAbortFlag(&abort); }

    // Runs on the server thread whenever it wants samples.
    std::size_t pull(char *data, std::size_t bytes);
    void run(const QString &path);
    void openOutput(const QString &sink, std::unique_lock<std::mutex> &held);
    void decodeChunk(std::unique_lock<std::mutex> &held);
    // Fills chunk with up to kChunkFrames frames at the listener's speed; fewer only at the
    // end or on an error.
    qint64 readAtRate(char *chunk);
    template <typename Call> void post(Call call)
    {
        QMetaObject::invokeMethod(player, std::move(call), Qt::QueuedConnection);
    }

    AudioPlayer *player;              // only for posting to; touched on its own thread
    AudioDecoder decoder { kFormat }; // the decoding thread's alone
    TempoFilter tempo { kFormat };    // the same: between the decoder and the ring
    std::atomic<bool> abort { false };
    std::atomic<qint64> handedOver { 0 };
    std::thread thread;

    // Guards the output's existence against the player's time queries.
    mutable std::mutex outputLock;
    std::unique_ptr<PulseOutput> output;

    // Everything below is guarded by lock.
    std::mutex lock;
    std::condition_variable wake;
    bool quit { false };
    bool prepared { false }; // decode ahead from now on
    bool openRequested { false };
    QString openSink;
    bool moveRequested { false };
    QString moveSink;
    bool playing { false };        // what the stream should be doing
    bool playingApplied { false }; // what it was last told
    bool seekRequested { false };
    double seekTarget { 0 };
    double rate { 1 };                      // the speed from the seek asked for on
    int generation { 0 };                   // of the last seek asked for
    std::atomic<int> heardGeneration { 0 }; // of the last seek the stream was flushed for
    bool seeking { false };
    bool endOfFile { false };
    bool decodeFailed { false };
    bool allHandedOver { false }; // the end of the file is with the server
    bool drainAsked { false };
    bool starved { false };
    std::vector<char> ring = std::vector<char>(kBufferBytes);
    std::size_t ringStart { 0 };
    std::size_t ringSize { 0 };
    std::vector<double> average =
        std::vector<double>(kFormat.channels, AudioDecoder::SilenceDecibels);
    std::vector<double> peak = std::vector<double>(kFormat.channels, AudioDecoder::SilenceDecibels);
};
