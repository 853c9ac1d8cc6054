// SPDX-License-Identifier: GPL-3.0-or-later
// Renders an SVG picture to a square PNG: render_svg_qt IN.svg OUT.png SIDE
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 4 || std::atoi(argv[3]) <= 0) {
        std::fprintf(stderr, "usage: render_svg_qt IN.svg OUT.png SIDE\n");
        return 2;
    }
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QGuiApplication application(argc, argv);
    QSvgRenderer renderer(QString::fromLocal8Bit(argv[1]));
    if (!renderer.isValid()) {
        std::fprintf(stderr, "render_svg_qt: cannot read %s\n", argv[1]);
        return 1;
    }
    const int side = std::atoi(argv[3]);
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    painter.end();
    if (!image.save(QString::fromLocal8Bit(argv[2]), "PNG")) {
        std::fprintf(stderr, "render_svg_qt: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
