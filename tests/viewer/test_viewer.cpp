// The viewer driven as a user would: zoom clicks through the atlas, the status bar, the calibration
// editor, georeferencing, cancelled long work and the tour's pictures.
#include "interaction_fixture.h"

#include <QImage>
#include <QLabel>
#include <QProgressDialog>
#include <QStatusBar>

#include <qvgeo/geobasics/transverse_mercator.h>

#include <cmath>
#include <fstream>
#include <set>
#include <sstream>

namespace {

using namespace viewer_test;

class ViewerTest : public TViewerFixture {};

TEST_F(ViewerTest, ZoomClicksWalkTheAtlasAndTheStatusBarFollows)
{
    ASSERT_EQ(Shown(), "world.xml");
    // Left clicks on Vienna go one map finer each time, a right click one coarser.
    const struct {
        Qt::MouseButton button;
        const char* expected;
    } steps[] = {{Qt::LeftButton, "austria.xml"},       {Qt::LeftButton, "lower-austria.xml"},
                 {Qt::LeftButton, "vienna-region.xml"}, {Qt::LeftButton, "calib-vienna.xml"},
                 {Qt::LeftButton, "calib-vienna.xml"},  {Qt::RightButton, "vienna-region.xml"}};
    for (const auto& s : steps) {
        QTest::mouseClick(&W->Map(), s.button, {}, At(kWienLat, kWienLong));
        EXPECT_EQ(Shown(), s.expected);
    }
    EXPECT_NE(W->ScaleLabel()->text().indexOf("Vienna region: 79."), -1) << W->ScaleLabel()->text().toStdString();

    // The pointer over Vienna: degrees in the chosen format, UTM zone 33, band U, and the projected
    // metres of the place (GeographicLib's GeoConvert -u: 601938 E, 5340385 N), to 60 m since the pointer
    // sits on the nearest whole pixel of about 79 m.
    const struct {
        qv::TDegreeFormat format;
        const char* lat;
        const char* lon;
    } formats[] = {{qv::dfDecimal, "48.20", "16.37"}, {qv::dfDegMin, "48\u00B012.", "16\u00B022."},
                   {qv::dfDegMinSec, "48\u00B012'", "16\u00B022'"}};
    QTest::mouseMove(&W->Map(), At(kWienLat, kWienLong));
    for (const auto& f : formats) {
        W->SetDegreeFormat(f.format);
        const QString pos = W->PositionLabel()->text();
        EXPECT_TRUE(pos.contains(QString::fromUtf8(f.lat)) && pos.contains(QString::fromUtf8(f.lon)) && pos.contains(" N") &&
                    pos.contains(" E"))
            << pos.toStdString();
    }
    const QStringList utm = W->UTMLabel()->text().split(' ');
    ASSERT_EQ(utm.size(), 6) << W->UTMLabel()->text().toStdString();
    EXPECT_EQ(utm[1], "33U");
    EXPECT_NEAR(utm[3].toDouble(), 601938, 60);
    EXPECT_NEAR(utm[5].toDouble(), 5340385, 60);
}

TEST_F(ViewerTest, WorldMapIsTheEarthWithItsCapitals)
{
    ASSERT_EQ(Shown(), "world.xml");
    ASSERT_EQ(W->Map().MapWidth(), 1440);
    W->Map().ZoomFitPage();
    W->Map().SetShowGraticule(qv::sgNone);  // the sampled places lie on graticule lines
    W->Map().Paint();
    // The picture sits where its calibration says: ocean, desert and ice at their places (a map turned
    // upside down or shifted by half the globe puts land on the Pacific).
    const QImage& img = W->Map().AuxBmp().Image();
    const auto rgb = [&](double lat, double lon) { return QColor(img.pixel(At(lat, lon))); };
    const QColor pacific = rgb(0, -150), sahara = rgb(23, 12), antarctica = rgb(-85, 60);
    EXPECT_GT(pacific.blue(), pacific.red() + 30);
    EXPECT_GT(sahara.red(), sahara.blue() + 30);
    EXPECT_GT(antarctica.lightness(), 200);
    // Brasília (15.794 S, 47.883 W): an amber dot; its name only from magnification 2 on.
    const auto whiteRightOf = [&](QPoint p) {
        int n = 0;
        for (int y = p.y() - 6; y <= p.y() + 6; ++y)
            for (int x = p.x() + 4; x <= p.x() + 50; ++x)
                n += (img.pixel(x, y) & 0xFFFFFF) == 0xFFFFFF;
        return n;
    };
    EXPECT_EQ(img.pixel(At(-15.794, -47.883)) & 0xFFFFFF, 0xFFD000u);
    EXPECT_EQ(whiteRightOf(At(-15.794, -47.883)), 0);
    W->Map().SetMagnification(2);
    W->Map().BringLocationToCenter(-15.794, -47.883);
    W->Map().Paint();
    EXPECT_EQ(img.pixel(At(-15.794, -47.883)) & 0xFFFFFF, 0xFFD000u);
    EXPECT_GT(whiteRightOf(At(-15.794, -47.883)), 20);
}

TEST_F(ViewerTest, DatabaseItemsAreDrawnWhereTheyAre)
{
    W->Atlas().SelectMap(W->MapNumber("austria.xml"));
    W->Map().ZoomFitPage();
    W->Map().Paint();
    EXPECT_EQ(W->DatabaseItemsDrawn(), 18);  // every feature of the sample lies in Austria's view
    // A town is a black dot of 7 pixels centred on its place, its name to the right; Graz has nothing
    // else drawn near it, so the dot is black 2 pixels either side and not 5 pixels away.
    const QPoint g = At(kGrazLat, kGrazLong);
    const QImage& img = W->Map().AuxBmp().Image();
    for (int dx : {-2, 0, 2})
        EXPECT_EQ(img.pixel(g + QPoint(dx, 0)) & 0xFFFFFF, 0x000000u) << dx;
    for (const QPoint d : {QPoint(-5, 0), QPoint(5, 0), QPoint(0, -5), QPoint(0, 5)})
        EXPECT_NE(img.pixel(g + d) & 0xFFFFFF, 0x000000u) << d.x() << ' ' << d.y();
    // The view narrowed to the Vienna region's corner meets fewer items.
    W->Atlas().SelectMap(W->MapNumber("calib-vienna.xml"));
    W->Map().Paint();
    EXPECT_GT(W->DatabaseItemsDrawn(), 0);
    EXPECT_LT(W->DatabaseItemsDrawn(), 18);
}

TEST_F(ViewerTest, CalibrationEditorFindsTheMistypedPoint)
{
    W->Atlas().SelectMap(W->MapNumber("austria.xml"));
    W->Map().ZoomFitPage();
    // The generated map is linear in latitude and longitude, so the equirect model fits the places its
    // own fit gives exactly; the sixth place is typed 0.05 degrees (5.6 km, 8 pixels) too far north.
    const qv::TCalibFit truth = W->Map().Calibration().Fit();
    int asked = 0;
    W->AskPlace = [&](std::int32_t X, std::int32_t Y, double& Lat, double& Long) {
        bool v1 = false, v2 = false;
        Lat = truth.CalcLatitude(X, Y, v1) + (++asked == 6 ? 0.05 : 0.0);
        Long = truth.CalcLongitude(X, Y, v2);
        return v1 && v2;
    };
    viewer::TCalibEditor& ed = W->CalibEditor();
    ed.show();
    ed.ClearPoints();
    ed.SetModel(qv::cmEquiRect);
    QTest::keyClick(W.get(), Qt::Key_C);
    ASSERT_EQ(W->Tool(), viewer::TTool::CalibPoint);
    const QPoint clicks[] = {{60, 60}, {700, 80}, {380, 300}, {90, 520}, {650, 500}, {420, 420}};
    for (int i = 0; i < 6; ++i) {
        // The pixel clicked, taken before the click: the dock's width follows its texts, and the map, at
        // fit, refits to the room left.
        const qv::TPoint clicked = W->Map().ControlToMapImage({clicks[i].x(), clicks[i].y()});
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, clicks[i]);
        QCoreApplication::processEvents();  // the place is asked for after the press
        ASSERT_EQ(qv::ValidCalQuads(W->Map().CalibData()), i + 1);
        const qv::TCalQuad& added = W->Map().CalibData().CalQuads[std::size_t(i)];
        EXPECT_EQ((qv::TPoint{added.MapX, added.MapY}), clicked);
        if (i == 2) {  // three points fix the three coefficients: nothing is checked yet
            EXPECT_FALSE(ed.WarningText().isEmpty());
        }
        if (i == 4) {
            EXPECT_TRUE(ed.WarningText().isEmpty()) << ed.WarningText().toStdString();
            EXPECT_LT(ed.Residuals().RmsPixels, 0.01);
        }
    }
    const qv::TCalibResiduals& r = ed.Residuals();
    EXPECT_EQ(r.Worst, 6);
    EXPECT_GT(r.RmsPixels, 1.0);
    EXPECT_NE(ed.SummaryText().indexOf("worst point 6"), -1) << ed.SummaryText().toStdString();
    // The worst point's residual vector is drawn in red, from its pixel along (Dx, Dy) times the
    // exaggeration and the magnification, and no farther.
    W->Map().SetMagnification(0.5);
    W->Map().SetTopLeft({0, 0});
    W->Map().Paint();
    const qv::TQuadResidual& q = r.Quads[5];
    const qv::TCalQuad& c = W->Map().CalibData().CalQuads[5];
    const qv::TPoint p = W->Map().MapImageToControl({c.MapX, c.MapY});
    const double k = 0.6 * ed.Exaggeration() * W->Map().Magnification();
    const QPoint along(p.X + int(std::lround(q.Dx * k)), p.Y + int(std::lround(q.Dy * k)));
    EXPECT_GT(std::hypot(q.Dx * k, q.Dy * k), 10.0);
    EXPECT_EQ(W->Map().AuxBmp().Image().pixel(along) & 0xFFFFFF, 0xFF0000u);
    const QPoint beyond(p.X + int(std::lround(q.Dx * k * 2.2)), p.Y + int(std::lround(q.Dy * k * 2.2)));
    EXPECT_NE(W->Map().AuxBmp().Image().pixel(beyond) & 0xFFFFFF, 0xFF0000u);

    // Saved and opened again, the points and so the verdict are the same.
    const QString f = QString::fromStdString((Dir / "calib.xml").string());
    ASSERT_TRUE(ed.SaveFile(f));
    ed.ClearPoints();
    ASSERT_TRUE(ed.OpenFile(f, "viewer"));
    EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), 6);
    EXPECT_EQ(ed.Residuals().Worst, 6);
    EXPECT_FALSE(ed.OpenFile(QString::fromStdString(Files.LandmarkFile), {}));  // not a calibration
    EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), 6);

    // Dragging point 6 onto the pixel of the place typed for it repairs the fit, live: while the button is
    // still down the residuals follow the pointer. The press grabs the point and asks for no new one.
    const qv::TCalQuad q6 = W->Map().CalibData().CalQuads[5];
    std::int32_t tx = 0, ty = 0;
    ASSERT_TRUE(truth.CalcPixelCoords(q6.Latitude, q6.Longitude, tx, ty));
    const qv::TPoint from = W->Map().MapImageToControl({q6.MapX, q6.MapY}), to = W->Map().MapImageToControl({tx, ty});
    ASSERT_GT(ed.Residuals().RmsPixels, 1.0);
    QTest::mousePress(&W->Map(), Qt::LeftButton, {}, QPoint(from.X + 3, from.Y - 2));
    QTest::mouseMove(&W->Map(), QPoint(to.X, to.Y));
    EXPECT_LT(ed.Residuals().RmsPixels, 0.5);  // a control pixel is 2 image pixels at this magnification
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, QPoint(to.X, to.Y));
    QCoreApplication::processEvents();
    EXPECT_EQ(asked, 6);
    ASSERT_EQ(qv::ValidCalQuads(W->Map().CalibData()), 6);
    const qv::TCalQuad& moved = W->Map().CalibData().CalQuads[5];
    EXPECT_EQ((qv::TPoint{moved.MapX, moved.MapY}), W->Map().ControlToMapImage(to));
    EXPECT_EQ(std::pair(moved.Latitude, moved.Longitude), std::pair(q6.Latitude, q6.Longitude));

    // Three points on one row: the warning names the spread, whatever the fit says.
    ed.ClearPoints();
    ed.SetModel(qv::cmEquiRect);
    for (int x : {100, 400, 700})
        ed.AddPoint(x, 300, 47.5, 9.4 + x * 0.01);
    EXPECT_EQ(ed.Residuals().Diagnosis, qv::cdgCollinearPoints);
    EXPECT_FALSE(ed.WarningText().isEmpty());
}

TEST_F(ViewerTest, GeoreferencingLeavesAndComesBack)
{
    W->Atlas().SelectMap(W->MapNumber("calib-vienna.xml"));
    ASSERT_EQ(W->Map().Calibration().CalibModel(), qv::cmUTM);
    const qv::TCalibFit fit = W->Map().Calibration().Fit();
    const int pixels[][2] = {{0, 0}, {799, 0}, {370, 599}};
    QString error;
    // The world file: six numbers that map the centre of pixel (x, y) to the zone-33 metres of the place
    // the map's fit gives it; the zone goes into the ".prj" beside it.
    const fs::path wld = Dir / "vienna.bpw", vrt = Dir / "vienna.vrt", gcp = Dir / "vienna.gcp";
    ASSERT_TRUE(W->ExportGeoref(QString::fromStdString(wld.string()), error)) << error.toStdString();
    std::istringstream in(ReadText(wld));
    std::vector<double> v;
    for (double x = 0; in >> x;)
        v.push_back(x);
    ASSERT_EQ(v.size(), 6u);
    EXPECT_NE(ReadText(Dir / "vienna.prj").find("32633"), std::string::npos);
    for (const auto& p : pixels) {
        bool v1 = false, v2 = false;
        double e = 0, n = 0;
        int zone = 33;
        qv::LatLongToUTM(fit.CalcLatitude(p[0], p[1], v1), fit.CalcLongitude(p[0], p[1], v2), qv::gelWGS84, zone, e, n);
        EXPECT_NEAR(v[0] * p[0] + v[2] * p[1] + v[4], e, 0.01);
        EXPECT_NEAR(v[1] * p[0] + v[3] * p[1] + v[5], n, 0.01);
    }
    // The VRT names the image beside it and holds the six reference points, pixel centres at +0.5.
    ASSERT_TRUE(W->ExportGeoref(QString::fromStdString(vrt.string()), error)) << error.toStdString();
    const std::string x = ReadText(vrt);
    EXPECT_NE(x.find("calib-vienna.bmp</SourceFilename>"), std::string::npos) << x;
    EXPECT_NE(x.find("<GCP Id=\"6\" Pixel=\"280.5\" Line=\"200.5\" X=\"599500\" Y=\"5341500\""), std::string::npos) << x;
    EXPECT_EQ(x.find("<GCP Id=\"7\""), std::string::npos);
    ASSERT_TRUE(W->ExportGeoref(QString::fromStdString(gcp.string()), error)) << error.toStdString();

    // Each imported again replaces the reference points (4 corners from the world file, the 6 points from
    // the list) and gives the same places; a file that is neither leaves the calibration as it was.
    for (const fs::path& f : {wld, gcp}) {
        ASSERT_TRUE(W->ImportGeoref(QString::fromStdString(f.string()), qv::cmUTM, error)) << error.toStdString();
        EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), f == wld ? 4 : 6);
        for (const auto& p : pixels) {
            bool v1 = false, v2 = false, v3 = false, v4 = false;
            EXPECT_NEAR(W->Map().CalcLatitude(p[0], p[1], v1), fit.CalcLatitude(p[0], p[1], v2), 1e-7) << f;
            EXPECT_NEAR(W->Map().CalcLongitude(p[0], p[1], v3), fit.CalcLongitude(p[0], p[1], v4), 1e-7) << f;
        }
    }
    EXPECT_FALSE(W->ImportGeoref(QString::fromStdString(Files.LandmarkFile), qv::cmUTM, error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), 6);
}

// Presses Cancel in the first progress dialog under Parent whose value has reached At; polled at each
// pass through the event loop that the long work makes.
class TCanceller {
public:
    TCanceller(QWidget* Parent, int At)
    {
        QObject::connect(&FTimer, &QTimer::timeout, [this, Parent, At] {
            for (QProgressDialog* d : Parent->findChildren<QProgressDialog*>())
                if (d->value() >= At && !d->wasCanceled()) {
                    d->cancel();
                    FTimer.stop();
                    Cancelled = true;
                }
        });
        FTimer.start(0);
    }
    bool Cancelled = false;

private:
    QTimer FTimer;
};

TEST_F(ViewerTest, LongWorkIsCancelled)
{
    // A 2.7-megapixel JPEG cancelled at 30 percent leaves the map shown before; loaded again, whole.
    const fs::path jpg = fs::path(Files.MapDir) / "progress-test.jpg";
    ASSERT_TRUE(QImage(1500, 1800, QImage::Format_RGB32).save(QString::fromStdString(jpg.string()), "JPEG", 80));
    const std::int32_t shownWidth = W->Map().MapWidth();
    const std::string shownName = W->Map().MapImgName();
    ASSERT_NE(shownWidth, 1500);
    {
        TCanceller c(W.get(), 30);
        W->Map().SetMapImgName(jpg.string());
        EXPECT_TRUE(c.Cancelled);
    }
    EXPECT_EQ(W->Map().MapWidth(), shownWidth);
    EXPECT_EQ(W->Map().MapImgName(), shownName);
    EXPECT_NE(W->statusBar()->currentMessage().indexOf("cancelled"), -1);
    W->Map().SetMapImgName(jpg.string());
    EXPECT_EQ(W->Map().MapWidth(), 1500);
    fs::remove(jpg);

    // A conic fit cancelled in its fifth round keeps the equirect fit; uncancelled it is taken.
    W->Atlas().SelectMap(W->MapNumber("austria.xml"));
    viewer::TCalibEditor& ed = W->CalibEditor();
    ASSERT_TRUE(ed.SetModel(qv::cmEquiRect));
    const qv::TCalibFit fit = W->Map().Calibration().Fit();
    bool v1 = false, v2 = false;
    {
        TCanceller c(&ed, 5);
        EXPECT_FALSE(ed.SetModel(qv::cmConicConformal));
        EXPECT_TRUE(c.Cancelled);
    }
    EXPECT_EQ(W->Map().Calibration().CalibModel(), qv::cmEquiRect);
    EXPECT_EQ(W->Map().CalcLatitude(123, 456, v1), fit.CalcLatitude(123, 456, v2));
    EXPECT_TRUE(ed.SetModel(qv::cmConicConformal));
    EXPECT_EQ(W->Map().Calibration().CalibModel(), qv::cmConicConformal);

    // A folder of four maps and a broken file: all taken and the broken one reported; cancelled after
    // three files, the two maps among them and the broken one.
    for (const char* sub : {"all", "part"}) {
        const fs::path d = Dir / "folder" / sub;
        fs::create_directories(d);
        std::ofstream(d / "0-broken.xml") << "<geomap";
        for (const char* m : {"austria", "lower-austria", "vienna-region", "world"})
            fs::copy_file(fs::path(Files.MapDir) / (std::string(m) + ".xml"), d / (std::string("1-") + m + ".xml"));
    }
    const std::int32_t n = W->Atlas().NumRegMaps();
    auto problems = W->AddMapFolder(QString::fromStdString((Dir / "folder" / "all").string()));
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(fs::path(problems[0].File).filename(), "0-broken.xml");
    EXPECT_EQ(W->Atlas().NumRegMaps(), n + 4);
    EXPECT_NE(W->FolderReport().indexOf("0-broken.xml: "), -1) << W->FolderReport().toStdString();
    TCanceller c(W.get(), 3);
    problems = W->AddMapFolder(QString::fromStdString((Dir / "folder" / "part").string()));
    EXPECT_TRUE(c.Cancelled);
    EXPECT_EQ(problems.size(), 1u);
    EXPECT_EQ(W->Atlas().NumRegMaps(), n + 6);
    EXPECT_NE(W->FolderReport().indexOf("cancelled"), -1);
}

TEST_F(ViewerTest, TourWritesSixRealPictures)
{
    W.reset();
    const auto files = viewer::RenderTour(Files, (Dir / "tour").string());
    ASSERT_EQ(files.size(), 6u);
    for (const auto& f : files) {
        const QImage img(QString::fromStdString(f));
        ASSERT_FALSE(img.isNull()) << f;
        EXPECT_GE(img.width(), 800);
        EXPECT_GE(img.height(), 600);
        // The map area (below the toolbars, above the status bar) holds many colours, not a blank.
        std::set<QRgb> colours;
        for (int y = 120; y < img.height() - 40; y += 3)
            for (int x = 0; x < img.width(); x += 3)
                colours.insert(img.pixel(x, y));
        EXPECT_GE(colours.size(), 6u) << f;
    }
}

}  // namespace
