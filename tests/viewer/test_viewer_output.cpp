// The viewer's exports and print, with its overlays at the output's scale.
#include "interaction_fixture.h"

#include <QPageLayout>
#include <QPrinter>
#include <QProcess>
#include <QStandardPaths>

#include <cmath>

namespace {

class ViewerOutputTest : public viewer_test::TViewerFixture {
protected:
    void SetUp() override
    {
        TViewerFixture::SetUp();
        W->resize(600, 450);  // smaller than the maps: an export must not stop at the view
        QCoreApplication::processEvents();
    }
    // The whole map shown (Map, when given, selected first) exported at scale 1.
    QImage WholeMap(const char* Map = nullptr)
    {
        if (Map)
            W->Atlas().SelectMap(W->MapNumber(Map));
        W->Map().ZoomFitPage();
        EXPECT_NE(W->Map().Magnification(), 1.0);  // the view is not at the export's scale
        EXPECT_TRUE(W->ExportWholeMap(Out("whole.png")));
        return QImage(Out("whole.png"));
    }
    QPoint MapPixel(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(W->Map().CalcPixelCoords(Lat, Long, x, y));
        return {x, y};
    }
    QString Out(const char* Name) { return QString::fromStdString((Dir / Name).string()); }
};

TEST_F(ViewerOutputTest, WholeMapCarriesTheOverlaysAtItsOwnScale)
{
    // Filled dots centred on their places: capitals amber, database towns black.
    const struct {
        const char* map;
        double lat, lon;
        QRgb colour;
    } marks[] = {{"world.xml", -35.2835, 149.1281, 0xFFD000}, {"world.xml", -15.794, -47.883, 0xFFD000},
                 {"austria.xml", 47.0707, 15.4395, 0x000000}, {"austria.xml", 48.3069, 14.2858, 0x000000}};
    for (const auto& m : marks) {
        const QImage img = WholeMap(m.map);
        ASSERT_EQ(img.size(), QSize(W->Map().MapWidth(), W->Map().MapHeight()));
        const QPoint p = MapPixel(m.lat, m.lon);
        for (const QPoint d : {QPoint(0, 0), QPoint(-1, -1), QPoint(1, 1)})
            EXPECT_EQ(img.pixel(p + d) & 0xFFFFFF, m.colour) << m.map << " " << m.lat << ", " << m.lon;
    }
}

TEST_F(ViewerOutputTest, WholeMapCarriesTheReferencePointsAndVectorsAtItsScale)
{
    W->Atlas().SelectMap(W->MapNumber("austria.xml"));
    const qv::TCalibFit truth = W->Map().Calibration().Fit();
    viewer::TCalibEditor& ed = W->CalibEditor();
    ed.show();
    ed.ClearPoints();
    ed.SetModel(qv::cmEquiRect);
    // Places where the map's own fit puts them, the sixth typed 0.05 degrees too far north.
    const QPoint pixels[] = {{60, 60}, {700, 80}, {380, 300}, {90, 520}, {650, 500}, {420, 420}};
    for (int i = 0; i < 6; ++i) {
        bool v1 = false, v2 = false;
        const double lat = truth.CalcLatitude(pixels[i].x(), pixels[i].y(), v1) + (i == 5 ? 0.05 : 0.0);
        ASSERT_TRUE(ed.AddPoint(pixels[i].x(), pixels[i].y(), lat, truth.CalcLongitude(pixels[i].x(), pixels[i].y(), v2)));
    }
    ASSERT_EQ(ed.Residuals().Worst, 6);
    const QImage img = WholeMap();
    // The worst point's red ring of radius 6, and its vector: (Dx, Dy) times the exaggeration at scale 1.
    int ring = 0;
    for (int y = -8; y <= 8; ++y)
        for (int x = -8; x <= 8; ++x)
            ring += (img.pixel(pixels[5] + QPoint(x, y)) & 0xFFFFFF) == 0xFF0000u && std::hypot(x, y) > 4;
    EXPECT_GT(ring, 20);
    const qv::TQuadResidual& q = ed.Residuals().Quads[5];
    const double k = ed.Exaggeration();
    ASSERT_GT(std::hypot(q.Dx * k, q.Dy * k), 20.0);
    const auto along = [&](double f) { return img.pixel(pixels[5] + QPoint(int(std::lround(q.Dx * k * f)), int(std::lround(q.Dy * k * f)))) & 0xFFFFFF; };
    EXPECT_EQ(along(0.6), 0xFF0000u);
    EXPECT_NE(along(1.4), 0xFF0000u);
}

TEST_F(ViewerOutputTest, ExportedViewIsExactlyTheView)
{
    W->resize(1000, 720);
    W->Atlas().SelectMap(W->MapNumber("calib-vienna.xml"));
    W->Map().SetMagnification(0.25);  // the map in the view's corner, background around it
    W->Map().SetTopLeft({0, 0});
    const struct {
        QSize window;
        double ratio;
    } views[] = {{{600, 400}, 0.0}, {{700, 500}, 2.0}, {{500, 380}, 1.5}};  // the window shrinks
    for (const auto& v : views) {
        W->resize(v.window);
        W->Map().SetForcedPixelRatio(v.ratio);
        QCoreApplication::processEvents();
        ASSERT_TRUE(W->ExportView(Out("view.png")));
        const QImage img(Out("view.png"));
        const double r = v.ratio > 0 ? v.ratio : 1.0;
        const QSize size(int(std::ceil(W->Map().width() * r)), int(std::ceil(W->Map().height() * r)));
        ASSERT_EQ(img.size(), size) << v.ratio;
        EXPECT_TRUE(img == W->Map().ScreenFrame().Image().copy(QRect(QPoint(), size)).convertToFormat(img.format()));
        for (const QPoint p : {QPoint(size.width() - 6, size.height() - 6), QPoint(size.width() - 6, size.height() / 2)})
            EXPECT_EQ(img.pixel(p), qRgb(0xC0, 0xC0, 0xC0)) << v.ratio;  // background, not the frame of a larger view
    }
    // JPEG as well, by the name's suffix.
    ASSERT_TRUE(W->ExportView(Out("view.jpg")));
    EXPECT_EQ(QImage(Out("view.jpg")).size(), QImage(Out("view.png")).size());
}

TEST_F(ViewerOutputTest, PdfPageHoldsTheWholeMap)
{
    if (QStandardPaths::findExecutable("pdftoppm").isEmpty())
        GTEST_SKIP() << "pdftoppm (poppler-utils) renders the page back";
    W->Atlas().SelectMap(W->MapNumber("calib-vienna.xml"));
    const int mw = W->Map().MapWidth(), mh = W->Map().MapHeight();
    ASSERT_TRUE(W->PrintToPdf(Out("map.pdf")));
    QProcess p;
    p.start("pdftoppm", {"-r", "96", "-png", "-singlefile", Out("map.pdf"), Out("page")});
    ASSERT_TRUE(p.waitForFinished(60000) && p.exitCode() == 0);
    const QImage page(Out("page.png"));
    // Where the map belongs: centred in the printable area, 96 map pixels an inch or smaller to fit.
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    const QRectF area = printer.pageLayout().paintRect(QPageLayout::Inch);
    const double scale = std::min({1.0, area.width() * 96 / mw, area.height() * 96 / mh});
    ASSERT_LT(scale, 1.0);  // this map is wider than the page at 96 pixels an inch
    const QRectF map(area.left() * 96 + (area.width() * 96 - mw * scale) / 2,
                     area.top() * 96 + (area.height() * 96 - mh * scale) / 2, mw * scale, mh * scale);
    // Everything not white: the map's lines and overlays reach its edges, nothing lies outside it.
    QRect ink;
    for (int y = 0; y < page.height(); ++y)
        for (int x = 0; x < page.width(); ++x)
            if (qGray(page.pixel(x, y)) < 200)
                ink |= QRect(x, y, 1, 1);
    EXPECT_NEAR(ink.left(), map.left(), 3);
    EXPECT_NEAR(ink.top(), map.top(), 3);
    EXPECT_NEAR(ink.right() + 1, map.right(), 3);
    EXPECT_NEAR(ink.bottom() + 1, map.bottom(), 3);
    // The database town of Vienna, a black dot, at its place on the printed map.
    const QPoint wien = MapPixel(48.2082, 16.3738);
    EXPECT_LT(qGray(page.pixel(int(map.left() + (wien.x() + 0.5) * scale), int(map.top() + (wien.y() + 0.5) * scale))), 80);
}

}  // namespace
