// The player as the listener meets it, on an audio server of the benchmark's own: how soon a
// press of play reaches the server, what playing costs the processor while the scrub bar
// asks the time every 10 ms, how soon a seek is refilled, and whether an hour needs more
// memory than a minute (it should not: the player streams).
#include "BenchData.h"
#include "BenchScreen.h"
#include "audio/AudioPlayer.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A press sounds at once when its first samples reach the server within this.
constexpr double kPressTargetMs = 100;
constexpr int kPresses = 30;
constexpr int kSeeks = 24;
constexpr auto kCpuWindow = 5s;      // evens out the server's bursts of requests
constexpr auto kKnobInterval = 10ms; // how often the scrub bar asks where playback is

QString minutePath, hourPath, aacPath;

double ms(Clock::duration d)
{
    return std::chrono::duration<double, std::milli>(d).count();
}

// Nearest rank: the value that fraction of the samples do not exceed.
double percentile(std::vector<double> samples, double fraction)
{
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size())))];
}

void spinFor(Clock::duration span)
{
    const Clock::time_point end = Clock::now() + span;
    spinUntil([&] { return Clock::now() >= end; });
}

// A server with the null sinks "speaker" (the default) and "earpiece" and nothing else
// playing on it, its state kept in `dir`; PULSE_SERVER points this process at it.
bool startSoundServer(QProcess &server, const QString &dir)
{
    const QString socket = dir + QLatin1String("/native");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir);
    server.setProcessEnvironment(environment);
    server.setStandardOutputFile(QProcess::nullDevice());
    server.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    server.start(QStringLiteral("pulseaudio"),
                 { "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit", "-n",
                   "--use-pid-file=no", "--log-level=error",
                   "--load=module-native-protocol-unix socket=" + socket + " auth-anonymous=1",
                   "--load=module-null-sink sink_name=speaker",
                   "--load=module-null-sink sink_name=earpiece" });
    qputenv("PULSE_SERVER", ("unix:" + socket).toUtf8());
    // It answers on the socket once all its modules are loaded.
    return server.waitForStarted() && spinUntil([&] { return QFileInfo::exists(socket); });
}

// A tone as the phone records it: mono, 8 kHz.
bool writeTone(const QString &path, int seconds, const char *codec)
{
    const QString tone = QStringLiteral("aevalsrc=0.5*sin(2*PI*440*t):s=8000:d=%1").arg(seconds);
    return QProcess::execute(QStringLiteral("ffmpeg"), { "-v", "error", "-y", "-f", "lavfi", "-i",
                                                         tone, "-c:a", codec, path }) == 0;
}

// Counts what the listener would have been told was a failure.
struct Watch : AudioPlayerDelegate
{
    int failures = 0;
    void audioPlayerDidFinishPlaying(AudioPlayer *, bool ok) override { failures += !ok; }
    void audioPlayerBeginInterruption(AudioPlayer *) override {}
    void audioPlayerBeginInterruption(AudioPlayer *, unsigned) override {}
    void audioPlayerEndInterruption(AudioPlayer *) override {}
    void audioPlayerDecodeErrorDidOccur(AudioPlayer *, const QString &) override { ++failures; }
};

// A player with its stream open and filled while paused, as an open row holds it before the
// press; null if it did not get there.
std::unique_ptr<AudioPlayer> readyPlayer(const QString &path, Watch &watch)
{
    auto player = std::make_unique<AudioPlayer>(path);
    player->setDelegate(&watch);
    if (!spinUntil([&] { return player->status() != AudioPlayer::Status::Loading; }) ||
        !player->prepareToPlay())
        return nullptr;
    // Filled once the server has taken nothing more for a while.
    qint64 last = -1;
    Clock::time_point since;
    spinUntil([&] {
        if (player->handedOverBytes() != last) {
            last = player->handedOverBytes();
            since = Clock::now();
        }
        return last > 0 && Clock::now() - since > 200ms;
    });
    return last > 0 && watch.failures == 0 ? std::move(player) : nullptr;
}

// Milliseconds from start until the server has taken more than `from` bytes; -1 if never.
double handoverMs(const AudioPlayer &player, qint64 from, Clock::time_point start)
{
    return spinUntil([&] { return player.handedOverBytes() > from; }) ? ms(Clock::now() - start)
                                                                      : -1;
}

// From play() on a fresh, filled player to the server taking more.
double pressMs(Watch &watch)
{
    const std::unique_ptr<AudioPlayer> player = readyPlayer(minutePath, watch);
    if (!player)
        return -1;
    const qint64 filled = player->handedOverBytes();
    const Clock::time_point start = Clock::now();
    return player->play() ? handoverMs(*player, filled, start) : -1;
}

// The floor under a press: play() wakes the player's own thread, and the press shows here
// only through polling. A bare thread woken the same way and seen by the same polling.
double threadWakeMs()
{
    std::mutex lock;
    std::condition_variable wake;
    int asked = 0; // the press to answer; -1 ends the thread
    std::atomic<int> answered = 0;
    std::thread worker([&] {
        std::unique_lock held(lock);
        for (int seen = 0; wake.wait(held, [&] { return asked != seen; }), asked >= 0;)
            answered = seen = asked;
    });
    const auto ask = [&](int press) {
        std::unique_lock held(lock);
        asked = press;
        held.unlock();
        wake.notify_one();
    };
    std::vector<double> samples;
    for (int press = 1; press <= kPresses; ++press) {
        const Clock::time_point start = Clock::now();
        ask(press);
        spinUntil([&] { return answered == press; });
        samples.push_back(ms(Clock::now() - start));
    }
    ask(-1);
    worker.join();
    return percentile(samples, 0.5);
}

void BM_PressToFirstSample(benchmark::State &state)
{
    // The first press on a sink nothing has played on: an idle null sink has rendered two
    // seconds of silence ahead, which a stream arriving later waits out.
    Watch watch;
    const double idleSink = pressMs(watch);
    // From here on a paused stream stays on the sink, as a phone's own sounds keep its
    // output awake: then the sink renders only as far ahead as its streams ask.
    const std::unique_ptr<AudioPlayer> awake = readyPlayer(hourPath, watch);
    spinFor(2500ms);
    std::vector<double> samples;
    for (auto _ : state) {
        samples.push_back(awake && idleSink >= 0 ? pressMs(watch) : -1);
        if (samples.back() < 0) {
            state.SkipWithError("a fresh player never reached the audio server");
            return;
        }
        state.SetIterationTime(samples.back() / 1e3);
    }
    const double median = percentile(samples, 0.5), floor = threadWakeMs();
    state.counters["median_ms"] = median;
    state.counters["p90_ms"] = percentile(samples, 0.9);
    state.counters["max_ms"] = percentile(samples, 1);
    state.counters["p90_x_target"] = percentile(samples, 0.9) / kPressTargetMs;
    state.counters["floor_ms"] = floor;
    state.counters["median_x_floor"] = median / floor;
    state.counters["idle_sink_ms"] = idleSink;
}
BENCHMARK(BM_PressToFirstSample)
    ->Iterations(kPresses)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

// Percent of one core the whole process used over the window, the event loop running the
// scrub bar's timer, which asks the player (if any) for the time.
double cpuPercent(const AudioPlayer *player)
{
    QTimer knob;
    knob.setTimerType(Qt::PreciseTimer);
    volatile double shown = 0;
    QObject::connect(&knob, &QTimer::timeout, [&] { shown = player ? player->currentTime() : 0; });
    const auto cpu = [] {
        rusage usage {};
        getrusage(RUSAGE_SELF, &usage);
        return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    QEventLoop loop;
    QTimer::singleShot(kCpuWindow, &loop, &QEventLoop::quit);
    knob.start(kKnobInterval);
    const double cpuStart = cpu();
    const Clock::time_point start = Clock::now();
    loop.exec();
    return 100 * (cpu() - cpuStart) / std::chrono::duration<double>(Clock::now() - start).count();
}

// Argument 0 plays the hour of A-law, 1 the minute of AAC.
void BM_CpuWhilePlaying(benchmark::State &state)
{
    for (auto _ : state) {
        const double idle = cpuPercent(nullptr);
        Watch watch;
        const auto player = readyPlayer(state.range(0) ? aacPath : hourPath, watch);
        const qint64 filled = player ? player->handedOverBytes() : 0;
        if (!player || !player->play() || handoverMs(*player, filled, Clock::now()) < 0) {
            state.SkipWithError("the player did not start");
            return;
        }
        const double playing = cpuPercent(player.get());
        if (watch.failures || !player->isPlaying()) {
            state.SkipWithError("playback stopped");
            return;
        }
        state.counters["playing_pct"] = playing;
        state.counters["idle_pct"] = idle;
        state.counters["x_idle"] = playing / std::max(idle, 0.01);
    }
    state.SetLabel(state.range(0) ? "AAC" : "A-law");
}
BENCHMARK(BM_CpuWhilePlaying)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);

// From a seek while playing to the first bytes of the new position with the server.
double seekMs(AudioPlayer &player, double seconds)
{
    player.play();
    if (handoverMs(player, player.handedOverBytes(), Clock::now()) < 0)
        return -1;
    spinFor(150ms); // playing steadily, the buffer full again
    // Old bytes the server took before the player's thread picked up the seek would count
    // too; at the server's pace of requests that window is rarely hit.
    const Clock::time_point start = Clock::now();
    const qint64 before = player.handedOverBytes();
    player.setCurrentTime(seconds);
    const double seek = handoverMs(player, before, start);
    player.pause();
    return seek;
}

// The peer is the same seek in a minute: a longer recording should cost nothing more.
void BM_SeekWhilePlaying(benchmark::State &state)
{
    Watch watch;
    const std::unique_ptr<AudioPlayer> hour = readyPlayer(hourPath, watch);
    const std::unique_ptr<AudioPlayer> minute = readyPlayer(minutePath, watch);
    std::vector<double> hourMs, minuteMs;
    for (auto _ : state) {
        // Spread over the whole recording, never twice in the same place.
        const int i = int(hourMs.size());
        hourMs.push_back(hour ? seekMs(*hour, std::fmod(37 + 1409.0 * i, 3590)) : -1);
        minuteMs.push_back(minute ? seekMs(*minute, std::fmod(3 + 23.0 * i, 55)) : -1);
        if (hourMs.back() < 0 || minuteMs.back() < 0 || watch.failures) {
            state.SkipWithError("a seek did not reach the audio server");
            return;
        }
        state.SetIterationTime(hourMs.back() / 1e3);
    }
    state.counters["median_ms"] = percentile(hourMs, 0.5);
    state.counters["max_ms"] = percentile(hourMs, 1);
    state.counters["minute_median_ms"] = percentile(minuteMs, 0.5);
    state.counters["x_minute"] = percentile(hourMs, 0.5) / percentile(minuteMs, 0.5);
}
BENCHMARK(BM_SeekWhilePlaying)->Iterations(kSeeks)->Unit(benchmark::kMillisecond)->UseManualTime();

// The process's peak resident memory in MB, 0 if unknown; `reset` first starts it over from
// what the process holds now, so that what ran before does not count.
double peakMb(bool reset)
{
    QFile refs(QStringLiteral("/proc/self/clear_refs"));
    if (reset && !(refs.open(QIODevice::WriteOnly) && refs.write("5") == 1 && refs.flush()))
        return 0;
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
    }
    return 0;
}

// Peak memory over three seconds of a minute, then over twenty stretches of an hour.
void BM_PeakMemory(benchmark::State &state)
{
    for (auto _ : state) {
        Watch watch;
        bool reset = peakMb(true) > 0;
        auto player = readyPlayer(minutePath, watch);
        if (player && player->play())
            spinFor(3s);
        const double minute = peakMb(false);
        player.reset();
        reset = peakMb(true) > 0 && reset;
        player = readyPlayer(hourPath, watch);
        for (int i = 0; player && i < 20; ++i) {
            player->setCurrentTime(std::fmod(11 + 997.0 * i, 3590));
            player->play();
            spinFor(150ms);
        }
        if (!player || watch.failures || !reset) {
            state.SkipWithError("the player did not play, or the peak could not be reset");
            return;
        }
        const double hour = peakMb(false);
        state.counters["minute_peak_MB"] = minute;
        state.counters["hour_peak_MB"] = hour;
        state.counters["x_minute"] = hour / minute;
    }
}
BENCHMARK(BM_PeakMemory)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    QCoreApplication application(argc, argv);
    QTemporaryDir dir;
    minutePath = dir.filePath(QStringLiteral("minute.caf"));
    hourPath = dir.filePath(QStringLiteral("hour.caf"));
    aacPath = dir.filePath(QStringLiteral("minute.m4a"));
    // Before the first player, which connects to whatever PULSE_SERVER names.
    QProcess server;
    if (!startSoundServer(server, dir.path()) || !writeTone(minutePath, 60, "pcm_alaw") ||
        !writeTone(hourPath, 3600, "pcm_alaw") || !writeTone(aacPath, 60, "aac")) {
        std::fprintf(stderr, "bench_playback: no audio server or no recordings (needs "
                             "pulseaudio and ffmpeg)\n");
        return 1;
    }
    const int status = BenchData::runBenchmarks(argc, argv);
    server.kill();
    server.waitForFinished();
    return status;
}
