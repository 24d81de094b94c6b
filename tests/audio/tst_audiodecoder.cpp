#include "TestSupport.h"
#include "audio/AudioDecoder.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>
#include <map>
#include <sys/stat.h>

using Sample = AudioDecoder::SampleFormat;

namespace {

// 440 Hz for the first second, 1 kHz for the second, so that a seek shows where it landed;
// made fresh each run by the ffmpeg command line tool.
bool makeTones(const QStringList &encoding, const QString &path)
{
    return TestSupport::ffmpeg(
        QStringList { "-f", "lavfi", "-i",
                      "aevalsrc=0.5*sin(2*PI*if(lt(t\\,1)\\,440\\,1000)*t):s=48000:d=2" } +
        encoding + QStringList { path });
}

// Wraps FFmpeg's ADTS stream of AAC-LC, mono at 44.1 kHz, in CAF as a phone records it: this
// FFmpeg cannot write that. The 'kuki' chunk holds the MPEG-4 descriptor of that setup, 'pakt'
// each packet's size and the encoder's 1024 frames of priming, so the length is framesWritten.
QByteArray aacInCaf(const QByteArray &adts, qint64 framesWritten)
{
    QByteArray packets, sizes, pakt, caf("caff\0\1\0\0", 8);
    qint32 count = 0;
    for (qsizetype at = 0, size; at + 7 <= adts.size(); at += 7 + size, ++count) {
        const auto byte = [&](int i) { return quint8(adts[at + i]); };
        size = ((byte(3) & 3) << 11 | byte(4) << 3 | byte(5) >> 5) - 7; // past a 7-byte header
        packets += adts.mid(at + 7, size);
        if (size >= 128) // in 7-bit digits, high first
            sizes += char(0x80 | size >> 7);
        sizes += char(size & 0x7F);
    }
    const auto chunk = [&caf](const char *type, const QByteArray &contents) {
        caf += type;
        QDataStream(&caf, QIODevice::Append) << qint64(contents.size()); // big-endian, as CAF is
        caf += contents;
    };
    // 44.1 kHz, 'aac ', AAC-LC, packets of any size holding 1024 frames each, one channel.
    chunk("desc", QByteArray::fromHex("40e5888000000000 61616320 00000002 00000000 00000400"
                                      "00000001 00000000"));
    chunk("kuki", QByteArray::fromHex("00000000 0319 000000 0411 4015 0000000000000000000000"
                                      "0502 1208 060102"));
    QDataStream(&pakt, QIODevice::WriteOnly) << qint64(count) << framesWritten << qint32(1024)
                                             << qint32(count * 1024 - 1024 - framesWritten);
    chunk("pakt", pakt + sizes);
    chunk("data", QByteArray(4, '\0') + packets); // no edits
    return caf;
}

// Everything the decoder answers from here on, as floats of its first channel.
QVector<float> readAll(AudioDecoder &decoder, qint64 maxFrames = 1 << 30)
{
    const AudioDecoder::OutputFormat format = decoder.outputFormat();
    QVector<float> samples;
    QByteArray chunk(4096 * format.bytesPerFrame(), Qt::Uninitialized);
    for (qint64 frames = 4096; frames == 4096 && maxFrames > 0; maxFrames -= frames) {
        frames = decoder.read(chunk.data(), std::min<qint64>(4096, maxFrames));
        for (qint64 i = 0; i < frames * format.channels; i += format.channels)
            samples.append(format.sampleFormat == Sample::Float
                               ? reinterpret_cast<const float *>(chunk.constData())[i]
                               : reinterpret_cast<const qint16 *>(chunk.constData())[i] / 32768.f);
    }
    return samples;
}

// The times of a tone's upward zero crossings, in seconds.
QVector<double> crossings(const QVector<float> &samples, int rate)
{
    QVector<double> times;
    for (qsizetype i = 1; i < samples.size(); ++i)
        if (samples[i - 1] < 0 && samples[i] >= 0)
            times.append(double(i) / rate);
    return times;
}

// When the tones turn from 440 Hz to 1 kHz after from: the start of the first period shorter
// than either tone could make alone; -1 when there is none.
double turnAfter(const QVector<double> &crossings, double from)
{
    for (qsizetype i = 1; i < crossings.size(); ++i)
        if (crossings[i - 1] >= from && crossings[i] - crossings[i - 1] < 0.0015)
            return crossings[i - 1];
    return -1;
}

// By how many frames, -2 to 2, what was read after a seek to frame at lies ahead of the whole
// recording read through: the shift that matches best, past the 50 ms a restarted codec takes
// to settle.
int shiftOf(const QVector<float> &piece, const QVector<float> &whole, qsizetype at, int rate)
{
    std::map<double, int> shifts; // by their squared difference
    for (int shift = -2; shift <= 2; ++shift) {
        double sum = 0;
        for (qsizetype i = rate / 20; i < piece.size(); ++i)
            sum += std::pow(piece[i] - whole.value(at + shift + i), 2);
        shifts[sum] = shift;
    }
    return shifts.begin()->second;
}

} // namespace

class TestAudioDecoder : public QObject
{
    Q_OBJECT
private slots:
    void decodesEachCodec_data()
    {
        QTest::addColumn<QStringList>("encoding");
        QTest::addColumn<int>("outputRate");
        QTest::addColumn<int>("outputChannels");
        QTest::addColumn<double>("slack"); // seconds a codec may add to the length
        // Seconds of encoder priming that the container cannot declare, heard before the recording.
        QTest::addColumn<double>("lead");
        const auto row = [](const char *name, const char *codec, const char *rate,
                            const char *format, int outputRate, int outputChannels,
                            double slack = 0.001, double lead = 0) {
            QTest::newRow(name) << QStringList { "-c:a", codec, "-ar", rate, "-f", format }
                                << outputRate << outputChannels << slack << lead;
        };
        row("PCM s16be", "pcm_s16be", "8000", "caf", 48000, 2);
        row("PCM float", "pcm_f32le", "44100", "caf", 48000, 1);
        row("A-law", "pcm_alaw", "8000", "caf", 44100, 2);
        row("mu-law", "pcm_mulaw", "8000", "caf", 8000, 1);
        row("IMA4", "adpcm_ima_qt", "8000", "caf", 48000, 2);
        row("ALAC", "alac", "8000", "caf", 16000, 1);
        // FFmpeg writes Opus into CAF without declaring the encoder's 6.5 ms look-ahead.
        row("Opus", "libopus", "48000", "caf", 48000, 2, 0.021, 0.0065);
        row("AAC", "aac", "44100", "adts", 48000, 2); // then wrapped in CAF
        row("AAC in .m4a named .caf", "aac", "44100", "ipod", 48000, 2);
        row("WAV named .caf", "pcm_s16le", "22050", "wav", 8000, 1);
        // ADTS states no length, so it is counted, priming included.
        row("bare AAC named .caf", "aac", "16000", "adts", 16000, 1, 0.13, 0.064);
    }

    void decodesEachCodec()
    {
        QFETCH(QStringList, encoding);
        QFETCH(int, outputRate);
        QFETCH(int, outputChannels);
        QFETCH(double, slack);
        QFETCH(double, lead);
        const QString path = file(QStringLiteral("%1.caf").arg(QTest::currentDataTag()));
        QVERIFY(makeTones(encoding, path));
        if (QTest::currentDataTag() == QLatin1String("AAC"))
            QVERIFY(TestSupport::writeFile(path, aacInCaf(TestSupport::readFile(path), 2 * 44100)));

        AudioDecoder decoder({ outputRate, outputChannels, Sample::Float });
        QVERIFY2(decoder.open(path), qPrintable(decoder.errorString()));
        QVERIFY2(decoder.duration() > 1.999 && decoder.duration() < 2.0 + slack,
                 qPrintable(QString::number(decoder.duration())));
        const QVector<float> all = readAll(decoder);
        QVERIFY(decoder.atEnd() && !decoder.hasError());
        QCOMPARE_LE(std::abs(all.size() - decoder.duration() * outputRate), 1);
        // The tones turn where made, so the decoded audio starts where the recording does.
        QCOMPARE_LT(std::abs(turnAfter(crossings(all, outputRate), 0.9) - 1.0 - lead), 0.005);

        // A seek into each tone plays it from the very frame asked for, metered at its level. (At
        // these times each AAC packet starts within a third of a 48 kHz frame of a whole one.)
        for (const auto &[at, hz] : { std::pair { 1.3, 1000 }, std::pair { 0.6, 440 } }) {
            QVERIFY(decoder.seek(at));
            QCOMPARE(decoder.position(), at);
            const QVector<float> after = readAll(decoder, outputRate * 3 / 10);
            QCOMPARE(decoder.position(), at + 0.3);
            QCOMPARE_LT(std::abs(crossings(after, outputRate).size() / 0.3 - hz), hz / 10.0);
            QCOMPARE(shiftOf(after, all, qRound(at * outputRate), outputRate), 0);
            const double peak = 20 * std::log10(0.5) - (outputChannels == 2 ? 3.0 : 0.0);
            for (int channel = 0; channel < outputChannels; ++channel) {
                QCOMPARE_LT(std::abs(decoder.peakPowerForChannel(channel) - peak), 1.5);
                QCOMPARE_LT(std::abs(decoder.averagePowerForChannel(channel) - (peak - 3.0)), 1.5);
            }
        }
    }

    void refusesOrSurvivesBrokenFiles_data()
    {
        QTest::addColumn<QString>("setup"); // a file, or what else stands at the path or befalls it
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("reason"); // of the failure to open; none: it may open
        const auto row = [](const char *name, const char *setup, const QByteArray &contents,
                            const char *reason = "") {
            QTest::newRow(name) << QString(setup) << contents << QString(reason);
        };
        // The tones with the contents of a chunk overwritten from offset on.
        const auto patched = [](QByteArray caf, const char *chunk, int offset, const char *hex) {
            const QByteArray bytes = QByteArray::fromHex(hex);
            return caf.replace(caf.indexOf(chunk) + 12 + offset, bytes.size(), bytes);
        };
        QImage picture(16, 16, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QVERIFY(picture.save(file("picture.png")));
        for (const char *codec : { "pcm_s16le", "alac" }) // the tones at 8 kHz in CAF, to spoil
            QVERIFY(makeTones({ "-c:a", codec, "-ar", "8000", "-f", "caf" }, file(codec)));
        const QByteArray pcm = TestSupport::readFile(file("pcm_s16le")),
                         alac = TestSupport::readFile(file("alac"));

        row("missing", "missing", {}, "No such file or directory");
        row("zero bytes", "file", {}, "the file is empty (0 bytes)");
        row("directory named like a recording", "folder", {}, "Is a directory");
        row("fifo named .caf", "fifo", {}, "not a regular file");
        row("text named .caf", "file", "Call me back about Tuesday.\nThanks, Dan\n", "not audio");
        row("picture named .caf", "file", TestSupport::readFile(file("picture.png")),
            "no audio stream");
        row("header cut short", "file", pcm.left(24), "not audio");
        row("unknown codec", "file", patched(pcm, "desc", 8, "7a7a7a7a"),
            "unsupported audio codec (zzzz)");
        row("sample rate not a number", "file", patched(pcm, "desc", 0, "7ff8000000000000"));
        row("zero bytes per packet", "file", patched(pcm, "desc", 16, "00000000"));
        row("audio data larger than any file", "file",
            patched(pcm, "data", -8, "4000000000000000"));
        row("packet table of 2^62 frames", "file", patched(alac, "pakt", 8, "4000000000000000"));
        row("packet sizes past the end", "file", patched(alac, "pakt", 24, "ffffffffffffff7f"));
        row("deleted while open", "delete", alac);
        row("truncated while open", "truncate", alac);
        row("garbage written in the middle while open", "garble", alac);
    }

    void refusesOrSurvivesBrokenFiles()
    {
        QFETCH(QString, setup);
        QFETCH(QByteArray, contents);
        QFETCH(QString, reason);
        const QString path = file(QStringLiteral("%1.caf").arg(QTest::currentDataTag()));
        if (setup == "folder")
            QVERIFY(QDir().mkpath(path));
        else if (setup == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (setup != "missing")
            QVERIFY(TestSupport::writeFile(path, contents));

        AudioDecoder decoder({ 8000, 1, Sample::Int16 });
        char buffer[64];
        if (!decoder.open(path)) {
            const QString error = decoder.errorString();
            const QString start = QStringLiteral("Cannot open \"%1\": %2").arg(path, reason);
            QVERIFY2(error.startsWith(reason.isEmpty() ? "Cannot " : start) && error.contains(path),
                     qPrintable(error));
            QVERIFY(!decoder.isOpen() && !decoder.seek(1));
            QCOMPARE(decoder.read(buffer, 8), 0);
            return;
        }
        QVERIFY2(reason.isEmpty(), "opened");
        QVERIFY2(decoder.duration() >= 0 && decoder.duration() <= 2.0,
                 qPrintable(QString::number(decoder.duration())));
        qsizetype frames = readAll(decoder, 4000).size();
        const qsizetype size = contents.size();
        QByteArray garbage = contents.mid(size / 2, size / 4);
        std::reverse(garbage.begin(), garbage.end());
        if (setup == "delete")
            QVERIFY(QFile::remove(path));
        if (setup == "truncate")
            QVERIFY(TestSupport::writeFile(path, contents.left(size / 3)));
        if (setup == "garble")
            QVERIFY(TestSupport::writeFile(path, contents.left(size / 2) + garbage +
                                                     contents.mid(size * 3 / 4)));
        // Whatever is left is read to an end or an error, never past the length, and seeking works.
        frames += readAll(decoder).size();
        QVERIFY(decoder.atEnd() || decoder.hasError());
        QCOMPARE_LE(frames, qsizetype(decoder.duration() * 8000) + 1);
        if (decoder.seek(decoder.duration() / 2))
            readAll(decoder);
        QVERIFY(decoder.atEnd() || decoder.hasError());
    }

private:
    QString file(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestAudioDecoder)
#include "tst_audiodecoder.moc"
