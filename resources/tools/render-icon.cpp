// Draws the scalable launcher icon as the PNG sizes that docks, launchers and phone shells
// ask for, when they cannot or will not read SVG: render-icon SVG SIZE PNG.
#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char **argv)
{
    // Drawing into an image needs no display, so no window system is asked for.
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    bool sized = false;
    const int size = arguments.value(2).toInt(&sized);
    QSvgRenderer svg(arguments.value(1));
    if (arguments.size() != 4 || !sized || size <= 0 || !svg.isValid()) {
        std::fprintf(stderr, "usage: render-icon SVG SIZE PNG\n");
        return 2;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    svg.render(&painter);
    painter.end();
    return image.save(arguments.value(3)) ? 0 : 1;
}
