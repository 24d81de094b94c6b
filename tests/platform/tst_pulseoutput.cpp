#include "platform/PulseOutput.h"

#include <QProcess>
#include <QTest>
#include <atomic>
#include <cmath>

namespace {

constexpr int kRate = 44100;

// What a sink plays, as its monitor records it (parec, as any recorder would hear it).
class Monitor
{
public:
    explicit Monitor(const QString &sink)
    {
        m_parec.start("parec", { "--device=" + sink + ".monitor", "--format=s16le", "--rate=8000",
                                 "--channels=1", "--raw", "--latency-msec=20" });
    }
    ~Monitor()
    {
        m_parec.kill();
        m_parec.waitForFinished();
    }
    // The last quarter second of a second recorded from now: its level in dB below full scale, and
    // its pitch from the zero crossings.
    bool listen()
    {
        // What was recorded before this moment is not listened to.
        QCoreApplication::processEvents();
        m_parec.readAllStandardOutput();
        m_samples.clear();
        return QTest::qWaitFor(
            [&] {
                m_samples += m_parec.readAllStandardOutput();
                return m_samples.size() >= 2 * 8000;
            },
            5000);
    }
    double level() const
    {
        double sum = 0;
        const auto window = tail();
        for (const qint16 sample : window)
            sum += double(sample) * sample;
        return 10 * std::log10(std::max(sum / double(window.size()), 1e-9) / (32768.0 * 32768.0));
    }
    double pitch() const
    {
        const auto window = tail();
        int crossings = 0;
        for (qsizetype i = 1; i < window.size(); ++i)
            crossings += (window[i - 1] < 0) != (window[i] < 0);
        return crossings / 2.0 / (double(window.size()) / 8000);
    }

private:
    QList<qint16> tail() const
    {
        const qsizetype count = m_samples.size() / 2;
        QList<qint16> samples(2000);
        std::memcpy(samples.data(), m_samples.constData() + 2 * (count - 2000), 2 * 2000);
        return samples;
    }
    QProcess m_parec;
    QByteArray m_samples;
};

// A sine tone for as long as it is asked.
struct Tone
{
    explicit Tone(double frequency) : frequency(frequency) {}
    std::size_t fill(char *buffer, std::size_t bytes)
    {
        auto *samples = reinterpret_cast<qint16 *>(buffer);
        for (std::size_t i = 0; i < bytes / 2; ++i, ++frame)
            samples[i] = qint16(12000 * std::sin(2 * M_PI * frequency * double(frame) / kRate));
        return bytes;
    }
    double frequency;
    std::int64_t frame { 0 };
};

} // namespace

class TestPulseOutput : public QObject
{
    Q_OBJECT
private slots:
    void playsOnTheSinkAndMovesToAnother();
    void namesItselfToTheServer();
    void noServerIsAnError();
};

void TestPulseOutput::playsOnTheSinkAndMovesToAnother()
{
    Tone tone(440);
    PulseOutput output;
    QString error;
    QVERIFY2(output.open(
                 kRate, 1, "speaker", "music",
                 [&](char *buffer, std::size_t bytes) { return tone.fill(buffer, bytes); }, {},
                 &error),
             qPrintable(error));
    {
        // Opened paused: nothing sounds until it plays.
        Monitor speaker("speaker");
        QVERIFY(speaker.listen());
        QVERIFY2(speaker.level() < -60, qPrintable(QString::number(speaker.level())));
        output.setPlaying(true);
        QVERIFY(speaker.listen());
        QVERIFY2(speaker.level() > -20, qPrintable(QString::number(speaker.level())));
        QVERIFY2(std::abs(speaker.pitch() - 440) < 15,
                 qPrintable(QString::number(speaker.pitch())));
    }
    QVERIFY(output.playedMicroseconds() > 100'000);

    // Held to the ear: the same stream goes on in the earpiece, and the loudspeaker falls silent.
    QVERIFY(output.moveToSink("earpiece"));
    QCOMPARE(output.sinkName(), "earpiece");
    Monitor earpiece("earpiece");
    Monitor speaker("speaker");
    QVERIFY(earpiece.listen());
    QVERIFY(speaker.listen());
    QVERIFY2(earpiece.level() > -20, qPrintable(QString::number(earpiece.level())));
    QVERIFY2(speaker.level() < -60, qPrintable(QString::number(speaker.level())));
    QVERIFY(!output.moveToSink("no-such-sink"));

    // Paused again: what was on its way drains in the first moments of a second's listening.
    output.setPlaying(false);
    QVERIFY(earpiece.listen());
    QVERIFY2(earpiece.level() < -60, qPrintable(QString::number(earpiece.level())));
}

void TestPulseOutput::namesItselfToTheServer()
{
    Tone tone(440);
    PulseOutput output;
    QVERIFY(output.open(
        kRate, 1, "speaker", "phone",
        [&](char *buffer, std::size_t bytes) { return tone.fill(buffer, bytes); }, {}, nullptr));
    QProcess pactl;
    pactl.start("pactl", { "list", "sink-inputs" });
    QVERIFY(pactl.waitForFinished());
    const QString inputs = QString::fromUtf8(pactl.readAllStandardOutput());
    QVERIFY2(inputs.contains("application.name = \"Vantrel Plus\""), qPrintable(inputs));
    QVERIFY(inputs.contains("application.icon_name = \"net.zorvath.vantrel\""));
    QVERIFY(inputs.contains("media.role = \"phone\""));
}

void TestPulseOutput::noServerIsAnError()
{
    qputenv("PULSE_SERVER", "unix:/nonexistent/native");
    PulseOutput output;
    QString error;
    QVERIFY(!output.open(kRate, 1, QString(), "music", {}, {}, &error));
    QVERIFY2(error.startsWith("cannot connect to the audio server: "), qPrintable(error));
    QVERIFY(!output.isOpen());
}

QTEST_GUILESS_MAIN(TestPulseOutput)
#include "tst_pulseoutput.moc"
