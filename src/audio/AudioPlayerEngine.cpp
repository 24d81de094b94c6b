#include "AudioPlayerEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <pthread.h>

std::size_t AudioPlayer::Engine::pull(char *data, std::size_t bytes)
{
    const std::lock_guard held(lock);
    if (seeking || ringSize == 0) {
        starved = !endOfFile;
        return 0;
    }
    const std::size_t count = std::min(bytes, ringSize);
    const std::size_t first = std::min(count, ring.size() - ringStart);
    std::memcpy(data, ring.data() + ringStart, first);
    std::memcpy(data + first, ring.data(), count - first);
    ringStart = (ringStart + count) % ring.size();
    ringSize -= count;
    handedOver.fetch_add(qint64(count), std::memory_order_relaxed);
    // The server asks once for what it has room for: the rest is written when decoded.
    starved = count < bytes && !endOfFile;
    if (ringSize == 0 && endOfFile)
        allHandedOver = true;
    wake.notify_one();
    return count;
}

void AudioPlayer::Engine::run(const QString &path)
{
    pthread_setname_np(pthread_self(), "vantrel-decode");
    const bool ok = decoder.open(path);
    const double duration = decoder.duration();
    const QString error = decoder.errorString();
    post([p = player, ok, duration, error] { p->didLoad(ok, duration, error); });
    if (!ok)
        return;

    std::unique_lock held(lock);
    for (;;) {
        wake.wait(held, [&] {
            return quit || openRequested || moveRequested || seekRequested ||
                   playing != playingApplied || (allHandedOver && !drainAsked) ||
                   (prepared && output && !endOfFile && ring.size() - ringSize >= kChunkFrames * 4);
        });
        if (quit)
            return;
        if (openRequested) {
            openRequested = false;
            openOutput(openSink, held);
        } else if (seekRequested) {
            // The buffer and the server both forget the old position before any of the new
            // one is decoded, and the server is told nothing until both have.
            seekRequested = false;
            const int target = generation;
            const double seconds = seekTarget;
            const double speed = rate;
            ringSize = 0;
            seeking = true;
            endOfFile = decodeFailed = allHandedOver = drainAsked = false;
            // The server asks for what a flush dropped only once, maybe before any of it is
            // decoded: what is decoded is offered at once.
            starved = true;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->flush();
            }
            decoder.seek(seconds);
            // A new speed starts here too: the filter forgets the stretch it was in the
            // middle of, which belonged to the old position.
            tempo.reset(speed);
            heardGeneration = target;
            held.lock();
            seeking = false;
        } else if (playing != playingApplied) {
            const bool play = playing;
            playingApplied = play;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->setPlaying(play);
            }
            held.lock();
        } else if (moveRequested) {
            moveRequested = false;
            const QString sink = moveSink;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->moveToSink(sink);
            }
            held.lock();
        } else if (allHandedOver && !drainAsked) {
            drainAsked = true;
            const int target = generation;
            const bool successfully = !decodeFailed;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->drain([this, target, successfully] {
                        post([p = player, target, successfully] {
                            p->didHearTheEnd(target, successfully);
                        });
                    });
            }
            held.lock();
        } else {
            decodeChunk(held);
        }
    }
}

void AudioPlayer::Engine::openOutput(const QString &sink, std::unique_lock<std::mutex> &held)
{
    held.unlock();
    PulseOutput::Events events;
    events.suspendedChanged = [this](bool suspended) {
        post([p = player, suspended] { p->setInterrupted(suspended); });
    };
    events.corkRequested = [this](bool cork) {
        post([p = player, cork] { p->setInterrupted(cork); });
    };
    events.moved = [this](const QString &name) { post([p = player, name] { p->didMove(name); }); };
    events.failed = [this](const QString &reason) {
        post([p = player, reason] { p->didLoseOutput(reason); });
    };
    auto opened = std::make_unique<PulseOutput>();
    QString error;
    const bool ok = opened->open(
        kFormat.sampleRate, kFormat.channels, sink, QString::fromLatin1(kMediaRole),
        [this](char *data, std::size_t bytes) { return pull(data, bytes); }, std::move(events),
        &error);
    std::unique_ptr<PulseOutput> old;
    {
        const std::lock_guard out(outputLock);
        old = std::exchange(output, ok ? std::move(opened) : nullptr);
    }
    old.reset(); // closes the server connection it had, off the lock
    held.lock();
    playingApplied = false; // a new stream starts paused
    post([p = player, ok, error] { p->didOpenOutput(ok, error); });
}

void AudioPlayer::Engine::decodeChunk(std::unique_lock<std::mutex> &held)
{
    const int chunkGeneration = generation;
    held.unlock();
    char chunk[kChunkFrames * 4];
    const qint64 frames = readAtRate(chunk);
    const bool atEnd = tempo.atEnd() || tempo.hasError();
    QString error;
    if (decoder.hasError())
        error = decoder.errorString();
    else if (tempo.hasError())
        error = QStringLiteral("play %1: %2").arg(decoder.path(), tempo.errorString());
    std::vector<double> averages(kFormat.channels), peaks(kFormat.channels);
    for (int channel = 0; channel < kFormat.channels; ++channel) {
        averages[channel] = decoder.averagePowerForChannel(channel);
        peaks[channel] = decoder.peakPowerForChannel(channel);
    }
    held.lock();
    // A seek asked while this was decoded makes it old audio.
    if (chunkGeneration != generation || seekRequested)
        return;
    const std::size_t bytes = std::size_t(frames) * 4;
    const std::size_t end = (ringStart + ringSize) % ring.size();
    const std::size_t first = std::min(bytes, ring.size() - end);
    std::memcpy(ring.data() + end, chunk, first);
    std::memcpy(ring.data(), chunk + first, bytes - first);
    ringSize += bytes;
    average = std::move(averages);
    peak = std::move(peaks);
    if (atEnd) {
        endOfFile = true;
        decodeFailed = !error.isEmpty();
        allHandedOver = ringSize == 0;
        if (decodeFailed)
            post([p = player, error] {
                if (p->m_delegate)
                    p->m_delegate->audioPlayerDecodeErrorDidOccur(p, error);
            });
    }
    if (std::exchange(starved, false)) {
        held.unlock();
        {
            const std::lock_guard out(outputLock);
            if (output)
                output->sourceReady();
        }
        held.lock();
    }
}

qint64 AudioPlayer::Engine::readAtRate(char *chunk)
{
    char decoded[kChunkFrames * 4];
    for (;;) {
        const qint64 frames = tempo.read(chunk, kChunkFrames);
        if (frames > 0 || tempo.atEnd() || tempo.hasError())
            return frames;
        // At twice the speed two chunks of the recording make one of sound; the filter also
        // holds back a little at the start of each stretch.
        const qint64 read = decoder.read(decoded, kChunkFrames);
        tempo.write(decoded, read);
        if (read == 0 || decoder.atEnd() || decoder.hasError())
            tempo.finish();
    }
}
