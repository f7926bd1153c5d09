// The viewer's exports and print: the view as it is shown, the whole map with everything drawn over it
// (capitals, database towns, reference points and their residual vectors) where the calibration puts it
// at the export's scale, and a PDF page that holds the whole map.
#include "viewer_window.h"

#include <QApplication>
#include <QColor>
#include <QImage>
#include <QPageLayout>
#include <QPrinter>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

namespace fs = std::filesystem;
using viewer::TViewerWindow;

namespace {

class ViewerOutputTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Dir = fs::temp_directory_path() / ("qvgeo-viewer-output-" + std::to_string(QCoreApplication::applicationPid()));
        Files = viewer::PrepareBundledAtlas((Dir / "data").string(), QVGEO_SOURCE_DIR "/data/samples");
    }
    static void TearDownTestSuite() { fs::remove_all(Dir); }
    void SetUp() override
    {
        W = std::make_unique<TViewerWindow>(Files);
        W->resize(1000, 720);
        W->show();
        QCoreApplication::processEvents();
    }
    void Show(const char* Map)
    {
        W->Atlas().SelectMap(W->MapNumber(Map));
        W->Map().ZoomFitPage();
        W->Map().Paint();
    }
    QPoint MapPixel(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(W->Map().CalcPixelCoords(Lat, Long, x, y));
        return {x, y};
    }
    QString Out(const char* Name) { return QString::fromStdString((Dir / Name).string()); }

    static inline fs::path Dir;
    static inline viewer::TAtlasFiles Files;
    std::unique_ptr<TViewerWindow> W;
};

TEST_F(ViewerOutputTest, WholeMapCarriesTheOverlaysAtItsOwnScale)
{
    // Marks the viewer draws over the map, each a filled dot centred on its place: capitals amber on the
    // world map, database towns black on Austria's.
    const struct {
        const char* map;
        double lat, lon;
        QRgb colour;
    } marks[] = {
        {"world.xml", -35.2835, 149.1281, 0xFFD000},  // Canberra
        {"world.xml", -15.794, -47.883, 0xFFD000},    // Brasília
        {"austria.xml", 47.0707, 15.4395, 0x000000},  // Graz
        {"austria.xml", 48.3069, 14.2858, 0x000000},  // Linz
    };
    // A view much smaller than the maps: what lies outside it must still be drawn in the export.
    W->resize(600, 450);
    QCoreApplication::processEvents();
    for (const auto& m : marks) {
        SCOPED_TRACE(::testing::Message() << m.map << " " << m.lat << ", " << m.lon);
        Show(m.map);
        ASSERT_NE(W->Map().Magnification(), 1.0);  // the view is not at the export's scale
        ASSERT_TRUE(W->ExportWholeMap(Out("whole.png")));
        const QImage img(Out("whole.png"));
        ASSERT_EQ(img.size(), QSize(W->Map().MapWidth(), W->Map().MapHeight()));
        const QPoint p = MapPixel(m.lat, m.lon);
        for (const QPoint d : {QPoint(0, 0), QPoint(-1, -1), QPoint(1, 1)})
            EXPECT_EQ(img.pixel(p + d) & 0xFFFFFF, m.colour) << d.x() << ", " << d.y();
    }
}

TEST_F(ViewerOutputTest, WholeMapCarriesTheReferencePointsAndVectorsAtItsScale)
{
    Show("austria.xml");
    const qv::TCalibFit truth = W->Map().Calibration().Fit();
    viewer::TCalibEditor& ed = W->CalibEditor();
    ed.show();
    ed.ClearPoints();
    ed.SetModel(qv::cmEquiRect);
    // Five places where the map's own fit puts them, the sixth typed 0.05 degrees too far north.
    const QPoint pixels[] = {{60, 60}, {700, 80}, {380, 300}, {90, 520}, {650, 500}, {420, 420}};
    for (int i = 0; i < 6; ++i) {
        bool v1 = false, v2 = false;
        const double lat = truth.CalcLatitude(pixels[i].x(), pixels[i].y(), v1) + (i == 5 ? 0.05 : 0.0);
        const double lon = truth.CalcLongitude(pixels[i].x(), pixels[i].y(), v2);
        ASSERT_TRUE(v1 && v2 && ed.AddPoint(pixels[i].x(), pixels[i].y(), lat, lon));
    }
    ASSERT_EQ(ed.Residuals().Worst, 6);
    W->Map().SetMagnification(0.5);
    W->Map().SetTopLeft({0, 0});
    W->Map().Paint();
    ASSERT_TRUE(W->ExportWholeMap(Out("calib.png")));
    const QImage img(Out("calib.png"));
    // Each point's ring (radius 6) around its pixel, at scale 1.
    const auto ring = [&](QPoint c, QRgb colour) {
        int n = 0;
        for (int y = -8; y <= 8; ++y)
            for (int x = -8; x <= 8; ++x)
                n += (img.pixel(c + QPoint(x, y)) & 0xFFFFFF) == colour;
        return n;
    };
    for (int i = 0; i < 5; ++i)
        EXPECT_GT(ring(pixels[i], 0x000080), 20) << i;  // navy
    EXPECT_GT(ring(pixels[5], 0xFF0000), 20);  // red
    // The worst point's vector: (Dx, Dy) times the exaggeration at the export's scale of 1, and no farther.
    const qv::TQuadResidual& q = ed.Residuals().Quads[5];
    const double k = ed.Exaggeration();
    ASSERT_GT(std::hypot(q.Dx * k, q.Dy * k), 20.0);
    const QPoint along = pixels[5] + QPoint(int(std::lround(q.Dx * k * 0.6)), int(std::lround(q.Dy * k * 0.6)));
    const QPoint beyond = pixels[5] + QPoint(int(std::lround(q.Dx * k * 1.4)), int(std::lround(q.Dy * k * 1.4)));
    EXPECT_EQ(img.pixel(along) & 0xFFFFFF, 0xFF0000u);
    EXPECT_NE(img.pixel(beyond) & 0xFFFFFF, 0xFF0000u);
}

TEST_F(ViewerOutputTest, ExportedViewIsExactlyTheView)
{
    Show("calib-vienna.xml");
    // The map a quarter of its size in the view's corner: the rest of the view is background.
    W->Map().SetMagnification(0.25);
    W->Map().SetTopLeft({0, 0});
    W->Map().Paint();
    const struct {
        QSize window;
        double ratio;
    } views[] = {{{1000, 720}, 0.0}, {{600, 400}, 0.0}, {{700, 500}, 2.0}, {{500, 380}, 1.5}};
    for (const auto& v : views) {
        SCOPED_TRACE(::testing::Message() << v.window.width() << " x " << v.window.height() << " ratio " << v.ratio);
        W->resize(v.window);
        W->Map().SetForcedPixelRatio(v.ratio);
        QCoreApplication::processEvents();
        W->Map().Paint();
        ASSERT_TRUE(W->ExportView(Out("view.png")));
        const QImage img(Out("view.png"));
        const double r = v.ratio > 0 ? v.ratio : 1.0;
        const QSize size(int(std::ceil(W->Map().width() * r)), int(std::ceil(W->Map().height() * r)));
        ASSERT_EQ(img.size(), size);
        const QImage& shown = W->Map().ScreenFrame().Image();
        EXPECT_TRUE(img == shown.copy(0, 0, size.width(), size.height()).convertToFormat(img.format()));
        // Background where the view shows no map, up to the frame's lines at the very edge.
        const QRgb back = QColor(0xC0, 0xC0, 0xC0).rgb();
        for (const QPoint p : {QPoint(size.width() - 6, size.height() - 6), QPoint(size.width() - 6, size.height() / 2),
                               QPoint(size.width() / 2, size.height() - 6)})
            EXPECT_EQ(img.pixel(p), back) << p.x() << ", " << p.y();
    }
}

// The page of a PDF as pixels at 96 an inch; empty when the file cannot be rendered here.
QImage RenderPdfPage(const QString& Pdf, const QString& Stem)
{
    QProcess p;
    p.start("pdftoppm", {"-r", "96", "-png", "-singlefile", Pdf, Stem});
    if (!p.waitForFinished(60000) || p.exitCode() != 0)
        return {};
    return QImage(Stem + ".png");
}

TEST_F(ViewerOutputTest, PdfPageHoldsTheWholeMap)
{
    if (QStandardPaths::findExecutable("pdftoppm").isEmpty())
        GTEST_SKIP() << "pdftoppm (poppler-utils) renders the page back";
    Show("calib-vienna.xml");
    const int mw = W->Map().MapWidth(), mh = W->Map().MapHeight();
    ASSERT_TRUE(W->PrintToPdf(Out("map.pdf")));
    const QImage page = RenderPdfPage(Out("map.pdf"), Out("page"));
    ASSERT_FALSE(page.isNull());
    // Where the map belongs: centred in the printable area, at 96 map pixels an inch or smaller to fit.
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    const QRectF area = printer.pageLayout().paintRect(QPageLayout::Inch);
    const QRectF full = printer.pageLayout().fullRect(QPageLayout::Inch);
    ASSERT_NEAR(page.width(), full.width() * 96, 2);
    const double scale = std::min({1.0, area.width() * 96 / mw, area.height() * 96 / mh});
    ASSERT_LT(scale, 1.0);  // this map is wider than the page at 96 pixels an inch
    const QRectF map(area.left() * 96 + (area.width() * 96 - mw * scale) / 2,
                     area.top() * 96 + (area.height() * 96 - mh * scale) / 2, mw * scale, mh * scale);
    // Everything not white on the page: the map's lines and overlays reach its right and bottom edges,
    // and nothing is printed outside it.
    QRect ink;
    for (int y = 0; y < page.height(); ++y)
        for (int x = 0; x < page.width(); ++x)
            if (QColor(page.pixel(x, y)).lightness() < 200)
                ink |= QRect(x, y, 1, 1);
    EXPECT_NEAR(ink.left(), map.left(), 3);
    EXPECT_NEAR(ink.top(), map.top(), 3);
    EXPECT_NEAR(ink.right() + 1, map.right(), 3);
    EXPECT_NEAR(ink.bottom() + 1, map.bottom(), 3);
    // The database town of Vienna, a black dot, at its place on the printed map.
    const QPoint wien = MapPixel(48.2082, 16.3738);
    const QPoint at(int(map.left() + (wien.x() + 0.5) * scale), int(map.top() + (wien.y() + 0.5) * scale));
    EXPECT_LT(QColor(page.pixel(at)).lightness(), 80) << at.x() << ", " << at.y();
}

}  // namespace
