#include "ListScreen.h"

#include "TestSupport.h"
#include "app/Services.h"
#include "toolkit/AlertController.h"

#include <QAbstractButton>
#include <QDir>
#include <QLabel>
#include <QScrollBar>
#include <QTest>
#include <QVBoxLayout>

ListScreen::ListScreen()
{
    Services::install();
    QDir(m_root.path()).mkdir(QStringLiteral("Messages"));
    // Callers in the contacts are shown by name; everybody else by number.
    TestSupport::writeFile(m_root.filePath(QStringLiteral("contacts.vcf")),
                           "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Daniel Reyes\r\nN:Reyes;Daniel;;;\r\n"
                           "TEL;TYPE=CELL:(555) 123-4567\r\nEND:VCARD\r\n");
}

ListScreen::~ListScreen() = default;

QString ListScreen::addRecording(const QString &kind, const QString &address, const QString &time,
                                 const QByteArray &transcript)
{
    const QString name = TestSupport::recordingName(kind, address, time);
    TestSupport::writeFile(messages() + u'/' + name);
    if (!transcript.isNull())
        TestSupport::writeFile(
            messages() + u'/' + QString(name).replace(QLatin1String(".caf"), QLatin1String(".txt")),
            transcript);
    return name;
}

void ListScreen::open(const QString &directory, int width)
{
    m_window = std::make_unique<QWidget>();
    m_window->resize(width, 667);
    m_list = new TableController(directory.isNull() ? messages() : directory,
                                 m_root.filePath(QStringLiteral("contacts.vcf")), m_window.get());
    m_navigation = new RootViewController(m_list, m_window.get());
    auto *layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_navigation);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

VTCell *ListScreen::cell(int row) const
{
    return qobject_cast<VTCell *>(table()->cellForRowAtIndexPath({ 0, row }));
}

QStringList ListScreen::shownNames() const
{
    QStringList names;
    for (int row = 0; row < table()->numberOfRowsInSection(0); ++row) {
        const VTCell *shown = cell(row);
        names << (shown ? shown->textLabel()->text() : QStringLiteral("(off screen)"));
    }
    return names;
}

bool ListScreen::useSample(const QString &name)
{
    const QString path = messages() + u'/' + name;
    QFile::remove(path);
    return QFile::copy(TestSupport::samplesDirectory() + u'/' + name, path);
}

void ListScreen::tapRow(TableView *table, int row)
{
    const QRect rect = table->rectForRowAtIndexPath({ 0, row });
    const QPoint point(rect.center().x(), rect.top() + 27 - table->verticalScrollBar()->value());
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, point);
}

bool ListScreen::waitForHeights(const QList<int> &heights)
{
    const auto current = [&] {
        QList<int> rows;
        for (int row = 0; row < heights.size(); ++row)
            rows << table()->rectForRowAtIndexPath({ 0, row }).height();
        return rows;
    };
    return QTest::qWaitFor([&] { return !table()->isAnimatingHeights() && current() == heights; },
                           3000);
}

AlertController *ListScreen::alert() const
{
    for (AlertController *sheet : m_window->findChildren<AlertController *>()) {
        if (sheet->isVisible())
            return sheet;
    }
    return nullptr;
}

void ListScreen::press(const QString &name)
{
    for (QAbstractButton *button : m_window->findChildren<QAbstractButton *>()) {
        if (button->isVisible() && (button->accessibleName() == name || button->text() == name)) {
            QTest::mouseClick(button, Qt::LeftButton);
            return;
        }
    }
    QFAIL(qPrintable("no button " + name));
}
