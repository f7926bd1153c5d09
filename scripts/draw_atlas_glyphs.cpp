// Draws the atlas's button glyphs (geoatlas/glyphs/POINTR.png, ZOOMIN.png and their @2x versions) from
// the vector shapes below, on a 16 x 16 grid. The PNGs are committed; run this only to change them:
//   g++ -std=c++20 -fPIC scripts/draw_atlas_glyphs.cpp $(pkg-config --cflags --libs Qt6Gui) -o /tmp/glyphs
//   QT_QPA_PLATFORM=offscreen /tmp/glyphs geoatlas/glyphs
// Strokes of odd width sit on pixel centres (x.5) so that the 1x glyph stays sharp.
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QString>

namespace {

const QColor kInk(0x20, 0x20, 0x20);

void Pointer(QPainter& p)
{
    QPainterPath arrow;
    arrow.moveTo(4.5, 1.5);
    arrow.lineTo(4.5, 13.5);
    arrow.lineTo(7.5, 10.5);
    arrow.lineTo(9.5, 14.5);
    arrow.lineTo(11.5, 13.5);
    arrow.lineTo(9.5, 9.5);
    arrow.lineTo(13.5, 9.5);
    arrow.closeSubpath();
    p.setPen(QPen(kInk, 1.0, Qt::SolidLine, Qt::RoundCap, Qt::MiterJoin));
    p.setBrush(Qt::white);
    p.drawPath(arrow);
}

void ZoomIn(QPainter& p)
{
    // The handle first, so that the rim covers its inner end.
    p.setPen(QPen(kInk, 3.0, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(10.5, 10.5), QPointF(14.0, 14.0));
    p.setPen(QPen(kInk, 1.5));
    p.setBrush(QColor(0xE8, 0xF2, 0xFF));
    p.drawEllipse(QPointF(6.5, 6.5), 5.0, 5.0);
    p.setPen(QPen(QColor(0x10, 0x60, 0x10), 2.0, Qt::SolidLine, Qt::FlatCap));
    p.drawLine(QPointF(3.5, 6.5), QPointF(9.5, 6.5));
    p.drawLine(QPointF(6.5, 3.5), QPointF(6.5, 9.5));
}

void Write(const QString& Dir, const QString& Name, void (*Draw)(QPainter&))
{
    for (int scale : {1, 2}) {
        QImage img(16 * scale, 16 * scale, QImage::Format_ARGB32_Premultiplied);
        img.fill(Qt::transparent);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        p.scale(scale, scale);
        Draw(p);
        p.end();
        img.save(Dir + "/" + Name + (scale == 2 ? "@2x.png" : ".png"));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    Write(dir, "POINTR", Pointer);
    Write(dir, "ZOOMIN", ZoomIn);
    return 0;
}
