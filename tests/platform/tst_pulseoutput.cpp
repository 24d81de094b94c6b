#include "SoundMonitor.h"
#include "platform/PulseOutput.h"

#include <QProcess>
#include <QTest>
#include <atomic>
#include <cmath>

namespace {

constexpr int kRate = 44100;

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
        SoundMonitor speaker("speaker");
        QVERIFY2(speaker.hearsSilence(), qPrintable(speaker.description()));
        output.setPlaying(true);
        QVERIFY2(speaker.hears(440), qPrintable(speaker.description()));
    }
    QVERIFY(output.playedMicroseconds() > 100'000);

    // Held to the ear: the same stream goes on in the earpiece, and the loudspeaker falls silent.
    QVERIFY(output.moveToSink("earpiece"));
    QCOMPARE(output.sinkName(), "earpiece");
    SoundMonitor earpiece("earpiece");
    SoundMonitor speaker("speaker");
    QVERIFY2(earpiece.hears(440), qPrintable(earpiece.description()));
    QVERIFY2(speaker.hearsSilence(), qPrintable(speaker.description()));
    QVERIFY(!output.moveToSink("no-such-sink"));

    // Paused again: what was on its way drains, then nothing.
    output.setPlaying(false);
    QVERIFY2(earpiece.hearsSilence(), qPrintable(earpiece.description()));
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
