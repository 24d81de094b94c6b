// Packing recordings for sharing: VantrelFileZipper over 10 to 100 one-minute recordings, one
// zip process per file, beside the peer of one zip process given all the files at once and a
// floor of as many zip processes given nothing to do.
//
// Every process after the first reopens the archive and copies all it holds to a fresh one
// before adding its file, so the zipper's time should grow faster than the number of files,
// and the process starts alone should not explain it.
#include "BenchData.h"
#include "actions/VantrelFileZipper.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMostFiles = 100;
constexpr int kBaseFiles = 10; // growth is measured against this many, times N / 10

QStringList recordings; // full paths in the Messages directory, in name order
QString outputDirectory;
qint64 recordingBytes = 0;

// Ten-file medians of this run: the base the other counts are compared with.
std::optional<double> baseZipperMs, basePeerMs;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// A minute of something like a voice on a phone call, as the recording component leaves it:
// mono 8 kHz ALAC in CAF (ffmpeg's CAF writer takes no AAC). Voiced tones at syllable pace,
// a pause now and then, and line noise under it, so that it packs about as well as speech.
bool writeRecording(const QString &path)
{
    const QString voice =
        QStringLiteral("aevalsrc=(0.35*sin(2*PI*140*t)+0.2*sin(2*PI*560*t)+0.1*sin(2*PI*1330*t))"
                       "*(0.55+0.45*sin(2*PI*3.3*t))*gt(sin(2*PI*0.21*t)\\,-0.6):s=8000:d=60");
    const QString noise = QStringLiteral("anoisesrc=c=pink:r=8000:a=0.01:d=60:seed=7");
    // No argument holds a blank, so the command line splits on blanks.
    const QStringList arguments =
        QStringLiteral("-nostdin -v error -y -f lavfi -i %1 -f lavfi -i %2 -filter_complex "
                       "amix=inputs=2:normalize=0 -map_metadata -1 -fflags +bitexact "
                       "-flags:a +bitexact -ac 1 -sample_fmt s16p -c:a alac -f caf")
            .arg(voice, noise)
            .split(u' ');
    return QProcess::execute(QStringLiteral("ffmpeg"), arguments + QStringList { path }) == 0;
}

// zip reports every file it adds on standard output, which the benchmark's table shares.
class SilencedOutput
{
public:
    SilencedOutput()
    {
        std::fflush(stdout);
        std::fflush(stderr);
        const int null = open("/dev/null", O_WRONLY);
        for (int fd : { 1, 2 }) {
            m_saved[fd - 1] = dup(fd);
            dup2(null, fd);
        }
        close(null);
    }
    ~SilencedOutput()
    {
        for (int fd : { 1, 2 }) {
            dup2(m_saved[fd - 1], fd);
            close(m_saved[fd - 1]);
        }
    }
    SilencedOutput(const SilencedOutput &) = delete;
    SilencedOutput &operator=(const SilencedOutput &) = delete;

private:
    int m_saved[2] {};
};

// Runs /usr/bin/zip with these arguments and the empty environment the zipper gives it, and
// waits for it.
void runZip(const QStringList &arguments)
{
    std::vector<QByteArray> encoded { VantrelFileZipper::zipExecutable };
    for (const QString &argument : arguments)
        encoded.push_back(QFile::encodeName(argument));
    std::vector<char *> argv;
    for (QByteArray &argument : encoded)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    char *environment[] = { nullptr };
    pid_t pid = 0;
    if (posix_spawn(&pid, VantrelFileZipper::zipExecutable, nullptr, nullptr, argv.data(),
                    environment) == 0) {
        int status = 0;
        waitpid(pid, &status, 0);
    }
}

// The number of entries the archive's end record gives; -1 if it is no archive.
int archiveEntries(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < 22 || !file.seek(file.size() - 22))
        return -1;
    const QByteArray end = file.read(22);
    if (!end.startsWith(QByteArrayLiteral("PK\x05\x06")))
        return -1;
    return uchar(end[10]) | uchar(end[11]) << 8;
}

struct Silent : VantrelFileZipperDelegate
{
    void zippingDidStart() override {}
    void zipProgressUpdatedWithPercent(int, const QString &, int, int) override {}
    void zippingDidFinishSuccessfully(bool) override {}
};

// Argument: the number of recordings packed, the oldest by name first.
void BM_ZipRecordings(benchmark::State &state)
{
    const int files = int(state.range(0));
    const QStringList sources = recordings.mid(0, files);
    const QString ours = outputDirectory + QLatin1String("/zipper.zip");
    const QString peer = outputDirectory + QLatin1String("/by-hand.zip");
    const QString empty = outputDirectory + QLatin1String("/nothing.zip");
    VantrelFileZipper zipper(QFileInfo(recordings.first()).path());
    Silent delegate;
    QStringList peerArguments { QStringLiteral("-j"), peer };
    peerArguments += sources;

    std::vector<double> zipperMs, peerMs, spawnMs;
    for (auto _ : state) {
        bool packed = false;
        {
            const SilencedOutput silenced;
            // Each starts from no archive, as a share does.
            QFile::remove(ours);
            Clock::time_point start = Clock::now();
            packed = zipper.zipSourceFilePaths(sources, ours, false, &delegate);
            zipperMs.push_back(msSince(start));

            QFile::remove(peer);
            start = Clock::now();
            runZip(peerArguments);
            peerMs.push_back(msSince(start));

            start = Clock::now();
            for (int i = 0; i < files; ++i)
                runZip({ QStringLiteral("-j"), empty });
            spawnMs.push_back(msSince(start));
        }
        const bool complete = archiveEntries(ours) == files && archiveEntries(peer) == files;
        QFile::remove(ours);
        QFile::remove(peer);
        if (!packed || !complete) {
            state.SkipWithError("an archive is missing recordings");
            return;
        }
        state.SetIterationTime(zipperMs.back() / 1e3);
    }

    const double zipperMedian = median(zipperMs), peerMedian = median(peerMs);
    const double spawn = median(spawnMs);
    if (files == kBaseFiles) {
        baseZipperMs = zipperMedian;
        basePeerMs = peerMedian;
    }
    state.counters["per_file_ms"] = zipperMedian / files;
    state.counters["peer_ms"] = peerMedian;
    state.counters["x_peer"] = zipperMedian / peerMedian;
    // Beside N / 10 times the ten-file run: 1 when the time grows with the count alone.
    if (baseZipperMs && basePeerMs) {
        const double scale = double(files) / kBaseFiles;
        state.counters["x_linear"] = zipperMedian / (scale * *baseZipperMs);
        state.counters["peer_x_linear"] = peerMedian / (scale * *basePeerMs);
    }
    // How much of what the zipper spends beyond the peer the process starts account for; the
    // rest goes into copying the archive over, recopied_MB in all.
    state.counters["spawn_floor_ms"] = spawn;
    state.counters["spawn_share"] = spawn / std::max(zipperMedian - peerMedian, 1e-3);
    state.counters["recopied_MB"] =
        double(files) * (files - 1) / 2 * double(recordingBytes) / (1024.0 * 1024.0);
}
// The ten-file run comes first: the others are compared with it.
BENCHMARK(BM_ZipRecordings)
    ->Arg(kBaseFiles)
    ->Arg(25)
    ->Arg(50)
    ->Arg(kMostFiles)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    QCoreApplication application(argc, argv);
    // Realistic names over a Messages directory with transcripts beside some recordings; the
    // recordings themselves are one minute written once and copied under every name.
    const BenchData data(kMostFiles);
    const QString minute = data.root() + QLatin1String("/minute.caf");
    QTemporaryDir output;
    outputDirectory = output.path();
    QFile recording(minute);
    if (!data.isValid() || !output.isValid() ||
        !QFileInfo::exists(VantrelFileZipper::zipExecutable) || !writeRecording(minute) ||
        !recording.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr,
                     "bench_zip: no recordings or no zip (needs ffmpeg and /usr/bin/zip)\n");
        return 1;
    }
    const QByteArray bytes = recording.readAll();
    recordingBytes = bytes.size();
    const QDir messages(data.messagesDirectory());
    for (const QString &name :
         messages.entryList({ QStringLiteral("*.caf") }, QDir::Files, QDir::Name)) {
        recordings << messages.filePath(name);
        if (!BenchData::writeFile(recordings.last(), bytes))
            return 1;
    }
    if (recordings.size() != kMostFiles)
        return 1;
    // The first run also connects to the session bus to keep the screen awake; not measured.
    {
        const SilencedOutput silenced;
        Silent delegate;
        VantrelFileZipper(data.messagesDirectory())
            .zipSourceFilePaths(recordings.mid(0, 1), output.filePath(QStringLiteral("warm.zip")),
                                false, &delegate);
        QFile::remove(output.filePath(QStringLiteral("warm.zip")));
    }
    return BenchData::runBenchmarks(argc, argv);
}
