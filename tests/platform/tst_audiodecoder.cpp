#include "TestSupport.h"
#include "platform/AudioDecoder.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <cmath>

using Format = AudioDecoder::OutputFormat;
using Sample = AudioDecoder::SampleFormat;

namespace {

// Runs the ffmpeg command line tool; the recordings under test are made fresh each run.
bool ffmpeg(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("ffmpeg"),
                  QStringList { "-hide_banner", "-loglevel", "error", "-y" } + arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
        qWarning() << "ffmpeg" << arguments << process.readAllStandardError();
        return false;
    }
    return true;
}

// 440 Hz for the first second, 1 kHz for the second, so that a seek shows where it landed.
const QString TwoTones = QStringLiteral("aevalsrc=0.5*sin(2*PI*if(lt(t\\,1)\\,440\\,1000)*t):"
                                        "s=48000:d=2");

bool make(const QString &source, const QStringList &encoding, const QString &path)
{
    return ffmpeg(QStringList { "-f", "lavfi", "-i", source } + encoding + QStringList { path });
}

// Wraps AAC-LC, mono at 44.1 kHz, from an ADTS stream in CAF as a phone records it: this
// FFmpeg cannot write that. The 'kuki' chunk holds the MPEG-4 descriptor of that setup, 'pakt'
// each packet's size and the encoder's 1024 frames of priming, so the length is framesWritten.
QByteArray aacInCaf(const QByteArray &adts, qint64 framesWritten)
{
    QList<QByteArray> packets;
    QByteArray sizes;
    for (qsizetype at = 0; at + 7 <= adts.size();) {
        const auto byte = [&](int i) { return quint8(adts[at + i]); };
        const int length = (byte(3) & 3) << 11 | byte(4) << 3 | byte(5) >> 5;
        const int header = (byte(1) & 1) ? 7 : 9;
        if (byte(0) != 0xFF || length <= header || at + length > adts.size())
            break;
        packets.append(adts.mid(at + header, length - header));
        QByteArray digits; // 7 bits a byte, most significant first
        for (int size = length - header; digits.isEmpty() || size > 0; size >>= 7)
            digits.prepend(char((size & 0x7F) | (digits.isEmpty() ? 0 : 0x80)));
        sizes += digits;
        at += length;
    }
    QByteArray caf;
    QDataStream out(&caf, QIODevice::WriteOnly); // big-endian, as CAF is
    out.setFloatingPointPrecision(QDataStream::DoublePrecision);
    const auto chunk = [&](const char *type, const QByteArray &contents) {
        out.writeRawData(type, 4);
        out << qint64(contents.size());
        out.writeRawData(contents.constData(), int(contents.size()));
    };
    out.writeRawData("caff\0\1\0\0", 8);
    QByteArray desc;
    QDataStream(&desc, QIODevice::WriteOnly)
        << 44100.0 << quint32(0x61616320) << quint32(2) << quint32(0) << quint32(1024) << quint32(1)
        << quint32(0);
    chunk("desc", desc);
    chunk("kuki", QByteArray::fromHex("00000000 0319 000000 0411 4015 0000000000000000000000"
                                      "0502 1208 060102"));
    QByteArray pakt;
    const qint64 priming = 1024;
    QDataStream(&pakt, QIODevice::WriteOnly)
        << qint64(packets.size()) << framesWritten << qint32(priming)
        << qint32(packets.size() * 1024 - priming - framesWritten);
    chunk("pakt", pakt + sizes);
    chunk("data", QByteArray(4, '\0') + packets.join()); // no edits
    return caf;
}

// Everything the decoder answers from here on, as floats of its first channel.
QVector<float> readAll(AudioDecoder &decoder, qint64 maxFrames = 1 << 30)
{
    const Format format = decoder.outputFormat();
    QVector<float> samples;
    QByteArray chunk(4096 * format.bytesPerFrame(), Qt::Uninitialized);
    while (maxFrames > 0) {
        const qint64 frames = decoder.read(chunk.data(), std::min<qint64>(4096, maxFrames));
        for (qint64 i = 0; i < frames; ++i) {
            const qint64 at = i * format.channels;
            samples.append(format.sampleFormat == Sample::Float
                               ? reinterpret_cast<const float *>(chunk.constData())[at]
                               : reinterpret_cast<const qint16 *>(chunk.constData())[at] / 32768.f);
        }
        maxFrames -= frames;
        if (frames < 4096 && maxFrames > 0)
            break;
    }
    return samples;
}

// The frequency of a tone from its upward zero crossings.
double frequencyOf(const QVector<float> &samples, int rate)
{
    int crossings = 0;
    for (qsizetype i = 1; i < samples.size(); ++i)
        crossings += samples[i - 1] < 0 && samples[i] >= 0;
    return samples.isEmpty() ? 0 : crossings * double(rate) / samples.size();
}

// When two tones turn from 440 Hz to 1 kHz, in seconds: the start of the first period shorter
// than either tone could make alone after from seconds; -1 when there is none.
double changeAt(const QVector<float> &samples, int rate, double from = 0)
{
    double last = -1;
    for (qsizetype i = qsizetype(from * rate) + 1; i < samples.size(); ++i) {
        if (!(samples[i - 1] < 0 && samples[i] >= 0))
            continue;
        const double at = double(i) / rate;
        if (last >= 0 && at - last < 0.0015)
            return last;
        last = at;
    }
    return -1;
}

} // namespace

class TestAudioDecoder : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY2(m_dir.isValid(), "no temporary directory"); }

    void decodesEachCodec_data();
    void decodesEachCodec();
    void reportsWhyItFails_data();
    void reportsWhyItFails();
    void survivesHostileFiles_data();
    void survivesHostileFiles();
    void decodesTheDemoRecordings();

private:
    QString file(const QString &name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

void TestAudioDecoder::decodesEachCodec_data()
{
    QTest::addColumn<QStringList>("encoding");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("outputRate");
    QTest::addColumn<int>("outputChannels");
    QTest::addColumn<double>("slack"); // seconds a codec may add to the length
    // Seconds of encoder priming that the container cannot declare, heard before the recording.
    QTest::addColumn<double>("lead");

    const auto row = [](const char *name, const char *codec, const char *rate, const char *format,
                        int outputRate, int outputChannels, double slack = 0.001, double lead = 0) {
        QTest::newRow(name) << QStringList { "-c:a", codec, "-ar", rate, "-f", format }
                            << QStringLiteral("%1.caf").arg(name).replace(' ', '-') << outputRate
                            << outputChannels << slack << lead;
    };
    row("PCM s16le", "pcm_s16le", "8000", "caf", 8000, 1);
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

void TestAudioDecoder::decodesEachCodec()
{
    QFETCH(QStringList, encoding);
    QFETCH(QString, name);
    QFETCH(int, outputRate);
    QFETCH(int, outputChannels);
    QFETCH(double, slack);
    QFETCH(double, lead);
    QVERIFY(make(TwoTones, encoding, file(name)));
    if (name == "AAC.caf") {
        QFile adts(file(name));
        QVERIFY(adts.open(QIODevice::ReadOnly));
        QVERIFY(TestSupport::writeFile(file(name), aacInCaf(adts.readAll(), 2 * 44100)));
    }

    AudioDecoder decoder({ outputRate, outputChannels, Sample::Float });
    QVERIFY2(decoder.open(file(name)), qPrintable(decoder.errorString()));
    QVERIFY2(decoder.duration() > 1.999 && decoder.duration() < 2.0 + slack,
             qPrintable(QString::number(decoder.duration())));

    const QVector<float> all = readAll(decoder);
    QVERIFY(decoder.atEnd());
    QVERIFY(!decoder.hasError());
    QVERIFY2(std::abs(all.size() - decoder.duration() * outputRate) <= 1,
             qPrintable(QString::number(all.size())));
    const auto window = [&](double from, double to) {
        return all.mid(qsizetype(from * outputRate), qsizetype((to - from) * outputRate));
    };
    QCOMPARE_LT(std::abs(frequencyOf(window(0.2, 0.9), outputRate) - 440), 8);
    QCOMPARE_LT(std::abs(frequencyOf(window(1.1, 1.9), outputRate) - 1000), 15);
    // The tones turn where they were made to, so the decoded audio starts where the recording does.
    QCOMPARE_LT(std::abs(changeAt(all, outputRate, 0.9) - 1.0 - lead), 0.005);

    // A seek into each tone plays that tone at once, with nothing of the other before it.
    for (const auto &[at, hz] : { std::pair { 1.3, 1000 }, std::pair { 0.4, 440 } }) {
        QVERIFY(decoder.seek(at));
        QCOMPARE(decoder.position(), at);
        const QVector<float> after = readAll(decoder, outputRate / 2);
        QCOMPARE(after.size(), outputRate / 2);
        QCOMPARE_LT(std::abs(frequencyOf(after, outputRate) - hz), hz / 40.0);
        QCOMPARE(decoder.position(), at + 0.5);
    }
    // A seek lands exactly, whatever the codec's packets: the turn is 0.1 s into what follows.
    QVERIFY(decoder.seek(0.9));
    const QVector<float> turn = readAll(decoder, outputRate / 5);
    QCOMPARE_LT(std::abs(changeAt(turn, outputRate) - 0.1 - lead), 0.005);
    // A full-scale-ish tone meters near its level on every channel; nothing read is silence.
    QVERIFY(decoder.seek(0.5));
    QByteArray chunk(outputRate / 10 * decoder.outputFormat().bytesPerFrame(), Qt::Uninitialized);
    QCOMPARE(decoder.read(chunk.data(), outputRate / 10), outputRate / 10);
    const double expectedPeak = 20 * std::log10(0.5) - (outputChannels == 2 ? 3.0 : 0.0);
    for (int channel = 0; channel < outputChannels; ++channel) {
        QCOMPARE_LT(std::abs(decoder.peakPowerForChannel(channel) - expectedPeak), 1.5);
        QCOMPARE_LT(std::abs(decoder.averagePowerForChannel(channel) - (expectedPeak - 3.0)), 1.5);
    }
    QCOMPARE(decoder.read(chunk.data(), 0), 0);
    QCOMPARE(decoder.averagePowerForChannel(0), AudioDecoder::SilenceDecibels);
}

void TestAudioDecoder::reportsWhyItFails_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reason");

    const auto row = [](const char *name, const char *file, const char *reason) {
        QTest::newRow(name) << QString(file) << QString(reason);
    };
    row("missing", "missing.caf", "No such file or directory");
    row("zero bytes", "empty.caf", "the file is empty (0 bytes)");
    row("directory named like a recording", "folder.caf", "Is a directory");
    row("text named .caf", "text.caf", "not audio");
    row("picture named .caf", "picture.caf", "no audio stream");
    row("unknown codec", "unknown-codec.caf", "unsupported audio codec (zzzz)");
    row("header cut short", "cut.caf", "not audio");
    row("fifo named .caf", "fifo.caf", "not a regular file");
}

void TestAudioDecoder::reportsWhyItFails()
{
    QFETCH(QString, name);
    QFETCH(QString, reason);
    const QString path = file(name);
    QVERIFY(make(TwoTones, { "-c:a", "pcm_s16le", "-f", "caf" }, file("pcm.caf")));
    QFile source(file("pcm.caf"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QByteArray pcm = source.readAll();
    if (name == "empty.caf")
        QVERIFY(TestSupport::writeFile(path, {}));
    if (name == "folder.caf")
        QVERIFY(QDir(m_dir.path()).mkpath(name));
    if (name == "text.caf")
        QVERIFY(TestSupport::writeFile(path, "Call me back about Tuesday.\nThanks, Dan\n"));
    if (name == "picture.caf")
        QVERIFY(ffmpeg({ "-f", "lavfi", "-i", "color=red:s=16x16", "-frames:v", "1", "-f", "image2",
                         "-c:v", "png", path }));
    if (name == "unknown-codec.caf") // the format of the 'desc' chunk, right after the header
        QVERIFY(TestSupport::writeFile(path, pcm.left(28) + "zzzz" + pcm.mid(32)));
    if (name == "cut.caf")
        QVERIFY(TestSupport::writeFile(path, pcm.left(24)));
    if (name == "fifo.caf")
        QVERIFY(QProcess::execute("mkfifo", { path }) == 0);

    AudioDecoder decoder;
    QVERIFY(!decoder.open(path));
    QVERIFY(!decoder.isOpen());
    QCOMPARE(decoder.errorString(), QStringLiteral("Cannot open \"%1\": ").arg(path) +
                                        decoder.errorString().section(": ", 1));
    QVERIFY2(decoder.errorString().contains(reason), qPrintable(decoder.errorString()));
    char buffer[64];
    QCOMPARE(decoder.read(buffer, 8), 0);
    QVERIFY(!decoder.seek(1));
}

void TestAudioDecoder::survivesHostileFiles_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<QByteArray>("chunk"); // whose contents are overwritten before opening
    QTest::addColumn<int>("offset");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("whileOpen"); // what happens to the file after opening

    const auto row = [](const char *name, const char *codec, const char *chunk, int offset,
                        const char *hex, const char *whileOpen = "") {
        QTest::newRow(name) << codec << QByteArray(chunk) << offset << QByteArray::fromHex(hex)
                            << whileOpen;
    };
    row("sample rate not a number", "pcm_s16le", "desc", 0, "7ff8000000000000");
    row("sample rate almost zero", "pcm_s16le", "desc", 0, "0000000000000001");
    row("zero bytes per packet", "pcm_s16le", "desc", 16, "00000000");
    row("audio data larger than any file", "pcm_s16le", "data", -8, "4000000000000000");
    row("packet table of 2^62 frames", "alac", "pakt", 8, "4000000000000000");
    row("packet table of 2^62 packets", "alac", "pakt", 0, "4000000000000000");
    row("packet sizes past the end", "alac", "pakt", 24, "ffffffffffffff7f");
    row("deleted while open", "alac", "", 0, "", "delete");
    row("replaced by text while open", "alac", "", 0, "", "replace");
    row("truncated while open", "alac", "", 0, "", "truncate");
    row("garbage written in the middle while open", "alac", "", 0, "", "garble");
}

void TestAudioDecoder::survivesHostileFiles()
{
    QFETCH(QString, codec);
    QFETCH(QByteArray, chunk);
    QFETCH(int, offset);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, whileOpen);
    const QString path = file("hostile.caf");
    QVERIFY(make(TwoTones, { "-c:a", codec, "-ar", "8000", "-f", "caf" }, path));
    QFile caf(path);
    QVERIFY(caf.open(QIODevice::ReadWrite));
    const QByteArray contents = caf.readAll();
    if (!chunk.isEmpty()) {
        QVERIFY(caf.seek(contents.indexOf(chunk) + 12 + offset));
        caf.write(bytes);
    }
    caf.close();

    AudioDecoder decoder({ 8000, 1, Sample::Int16 });
    if (!decoder.open(path)) {
        QVERIFY2(decoder.errorString().startsWith("Cannot ") &&
                     decoder.errorString().contains(QStringLiteral(" \"%1\": ").arg(path)),
                 qPrintable(decoder.errorString()));
        return;
    }
    QVERIFY2(decoder.duration() >= 0 && decoder.duration() <= 2.0,
             qPrintable(QString::number(decoder.duration())));
    qsizetype frames = readAll(decoder, 4000).size();
    if (whileOpen == "delete" || whileOpen == "replace")
        QVERIFY(caf.remove());
    if (whileOpen == "replace")
        QVERIFY(TestSupport::writeFile(path, "not a recording any more"));
    if (whileOpen == "truncate")
        QVERIFY(caf.resize(contents.size() / 3));
    if (whileOpen == "garble") {
        QVERIFY(caf.open(QIODevice::ReadWrite) && caf.seek(contents.size() / 2));
        for (int i = 0; i < contents.size() / 4; ++i)
            caf.putChar(char(i * 7919 % 251));
        caf.close();
    }
    // Whatever is left is read to an end or an error, never past the length, and seeking works.
    frames += readAll(decoder).size();
    QVERIFY(decoder.atEnd() || decoder.hasError());
    QVERIFY(frames <= qsizetype(decoder.duration() * 8000) + 1);
    if (decoder.seek(decoder.duration() / 2))
        readAll(decoder);
    QVERIFY(decoder.atEnd() || decoder.hasError());
}

void TestAudioDecoder::decodesTheDemoRecordings()
{
    const QDir samples(TestSupport::samplesDirectory());
    const QStringList names = samples.entryList({ "*.caf" });
    QCOMPARE(names.size(), 8);
    for (const QString &name : names) {
        AudioDecoder decoder({ 48000, 2, Sample::Int16 });
        QVERIFY2(decoder.open(samples.filePath(name)), qPrintable(decoder.errorString()));
        QCOMPARE_GT(decoder.duration(), 1.0);
        const QVector<float> all = readAll(decoder);
        QVERIFY2(!decoder.hasError(), qPrintable(decoder.errorString()));
        QCOMPARE_LT(std::abs(all.size() / 48000.0 - decoder.duration()), 0.05);
        const float loudest = std::abs(*std::max_element(
            all.begin(), all.end(), [](float a, float b) { return std::abs(a) < std::abs(b); }));
        QCOMPARE_GT(loudest, 0.05f); // a voice, not silence
    }
}

QTEST_GUILESS_MAIN(TestAudioDecoder)
#include "tst_audiodecoder.moc"
