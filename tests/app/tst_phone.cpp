#include "PhoneCompositor.h"
#include "TestSupport.h"

#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The logical size of the phones below: a 720x1440 screen at scale 2, 1080x2160 at scale 3.
constexpr QSize kPhone(360, 720);
constexpr int kWaitMilliseconds = 20000;

// What a screen shows of an image: transparent parts let the compositor's black through.
QImage shown(const QImage &image)
{
    QImage screen(image.size(), QImage::Format_RGB32);
    screen.fill(Qt::black);
    QPainter(&screen).drawImage(0, 0, image);
    return screen;
}

// The share of pixels that differ plainly (not by a shade of antialiasing) between two screens.
double differingShare(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return 1.0;
    const QImage x = shown(a), y = shown(b);
    qint64 differing = 0;
    for (int row = 0; row < x.height(); ++row) {
        const auto *p = reinterpret_cast<const QRgb *>(x.constScanLine(row));
        const auto *q = reinterpret_cast<const QRgb *>(y.constScanLine(row));
        for (int column = 0; column < x.width(); ++column) {
            const int step = std::max({ std::abs(qRed(p[column]) - qRed(q[column])),
                                        std::abs(qGreen(p[column]) - qGreen(q[column])),
                                        std::abs(qBlue(p[column]) - qBlue(q[column])) });
            differing += step > 48;
        }
    }
    return double(differing) / (double(x.width()) * x.height());
}

// How crisp the edges in an area are: the sum of squared brightness steps between
// neighbouring pixels. An edge one pixel wide counts its whole step squared; the same edge
// enlarged from fewer pixels is spread over several smaller steps and counts far less.
double edgeEnergy(const QImage &image, const QRect &area)
{
    const QImage gray = shown(image).copy(area).convertToFormat(QImage::Format_Grayscale8);
    double energy = 0;
    for (int row = 0; row + 1 < gray.height(); ++row) {
        const uchar *line = gray.constScanLine(row), *below = gray.constScanLine(row + 1);
        for (int column = 0; column + 1 < gray.width(); ++column) {
            const double across = line[column + 1] - line[column],
                         down = below[column] - line[column];
            energy += across * across + down * down;
        }
    }
    return energy;
}

// Where an area is inked: the bounds of its bright pixels, in points of a screen at scale.
QRectF ink(const QImage &image, const QRect &area, int scale)
{
    const QImage gray = shown(image).copy(area).convertToFormat(QImage::Format_Grayscale8);
    QRect bounds;
    for (int row = 0; row < gray.height(); ++row) {
        const uchar *line = gray.constScanLine(row);
        for (int column = 0; column < gray.width(); ++column) {
            if (line[column] > 128)
                bounds |= QRect(column, row, 1, 1);
        }
    }
    return QRectF(QPointF(bounds.topLeft()) / scale, QSizeF(bounds.size()) / scale);
}

} // namespace

// The real program on Phosh's compositor, as on a Linux phone held upright at scale 2 and 3.
class TestPhone : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void onAPhone_data();
    void onAPhone();

private:
    // The demo's first screen as the program draws it offscreen at a size and scale.
    QImage drawnOffscreen(const QSize &size, int scale);

    QTemporaryDir m_folder;
    int m_shots = 0;
};

void TestPhone::initTestCase()
{
    if (const QString missing = PhoneCompositor::missingPrograms(); !missing.isEmpty())
        QSKIP(qPrintable(QStringLiteral("%1 missing (packages phoc, grim, wlr-randr, "
                                        "libwlroots-examples; scripts/setup.sh installs them)")
                             .arg(missing)));
}

QImage TestPhone::drawnOffscreen(const QSize &size, int scale)
{
    const QString path = m_folder.filePath(QString::number(++m_shots) + ".png");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("QT_SCALE_FACTOR", QString::number(scale));
    bool drawn = false;
    TestSupport::output(VANTREL_EXECUTABLE,
                        { "--demo", "--size", QString("%1x%2").arg(size.width()).arg(size.height()),
                          "--screenshot", path },
                        environment, &drawn);
    return drawn ? QImage(path) : QImage();
}

void TestPhone::onAPhone_data()
{
    QTest::addColumn<int>("scale");
    QTest::newRow("scale 2") << 2;
    QTest::newRow("scale 3") << 3;
}

void TestPhone::onAPhone()
{
    QFETCH(int, scale);
    PhoneCompositor phone(kPhone * scale, scale);
    const QString failure = phone.start();
    QVERIFY2(failure.isEmpty(), qPrintable(failure));

    QProcess vantrel;
    vantrel.setProcessEnvironment(phone.environment());
    vantrel.setProcessChannelMode(QProcess::ForwardedChannels);
    vantrel.start(QStringLiteral(VANTREL_EXECUTABLE), { QStringLiteral("--demo") });
    QVERIFY(vantrel.waitForStarted());

    // The shell knows the window by the app id its launcher entry is named for, and gives it
    // the whole screen.
    QTRY_VERIFY_WITH_TIMEOUT(
        phone.windows().value(0).startsWith("title=Vantrel Plus app_id=net.zorvath.vantrel "),
        kWaitMilliseconds);
    QVERIFY2(phone.windows().value(0).contains(" maximized "),
             qPrintable(phone.windows().value(0)));

    // What the phone shows is what the program draws at that size and scale: nothing moved,
    // cut or left over by the compositor's own sizing.
    const QImage upright = drawnOffscreen(kPhone, scale);
    QVERIFY(!upright.isNull());
    QImage screen;
    QTRY_VERIFY_WITH_TIMEOUT(differingShare(screen = phone.capture(), upright) < 0.002,
                             kWaitMilliseconds);

    // Drawn whole and at the screen's own pixels, not enlarged from fewer: the title, a
    // monogram, the call glyph and the gear each reach as far as at scale 1, and have edges as
    // crisp.
    const QImage small = drawnOffscreen(kPhone, 1);
    QVERIFY(!small.isNull());
    const QList<std::pair<const char *, QRect>> parts = {
        { "title", QRect(110, 8, 140, 28) },
        { "monogram", QRect(14, 47, 44, 46) }, // right of the unheard dot
        { "call glyph", QRect(272, 50, 36, 36) },
        { "gear", QRect(314, 6, 34, 34) },
    };
    for (const auto &[part, area] : parts) {
        const QRect pixels(area.topLeft() * scale, area.size() * scale);
        const double crispness = edgeEnergy(screen, pixels) / (scale * edgeEnergy(small, area));
        QVERIFY2(crispness > 0.7, qPrintable(QStringLiteral("%1: %2").arg(part).arg(crispness)));
        const QRectF whole = ink(small, area, 1), drawn = ink(screen, pixels, scale);
        const QMarginsF slack(1, 1, 1, 1);
        QString inked;
        QDebug(&inked) << part << "inked over" << drawn << "points, at scale 1 over" << whole;
        QVERIFY2(drawn.marginsAdded(slack).contains(whole) &&
                     whole.marginsAdded(slack).contains(drawn),
                 qPrintable(inked));
    }

    // The whole title, as on a screen with room to spare around it.
    const QImage wide = drawnOffscreen(QSize(2 * kPhone.width(), kPhone.height()), scale);
    QVERIFY(!wide.isNull());
    const QRect title = parts.first().second;
    QCOMPARE(
        ink(screen, QRect(title.topLeft() * scale, title.size() * scale), scale).size(),
        ink(wide,
            QRect((title.topLeft() + QPoint(kPhone.width() / 2, 0)) * scale, title.size() * scale),
            scale)
            .size());

    // Turned on its side, the phone's screen is wider than tall: the list fills it as drawn at
    // that size, in the same upright layout.
    QVERIFY(phone.rotate(90));
    const QImage turned = drawnOffscreen(kPhone.transposed(), scale);
    QVERIFY(!turned.isNull());
    QTRY_VERIFY_WITH_TIMEOUT(differingShare(phone.capture(), turned) < 0.002, kWaitMilliseconds);

    // Closed from the shell (a swipe in Phosh's overview), it ends cleanly.
    QVERIFY(phone.closeFirstWindow());
    QVERIFY(vantrel.waitForFinished(kWaitMilliseconds));
    QCOMPARE(vantrel.exitStatus(), QProcess::NormalExit);
    QCOMPARE(vantrel.exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestPhone)
#include "tst_phone.moc"
