// Opening the maps people have, as a user does: pictures with and without georeferencing through the
// Open path and dropped onto the window, a folder of them added to the atlas (nothing written into it),
// waypoints dropped onto the map, and files that are not what their names say.
#include "interaction_fixture.h"

#if QVGEO_WITH_GDAL

#include "map_files.h"

#include <qvgeo/gdalio/landmark_exchange.h>

#include <QMessageBox>
#include <QMimeData>
#include <QStatusBar>
#include <QUrl>

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cstdlib>

namespace {

using namespace viewer_test;

// A W x H RGB GeoTIFF (or PNG when Geo is false) with a north-up geotransform in WGS 84 degrees: the
// top-left corner of the picture at (Long0, Lat0), Step degrees a pixel.
void WritePicture(const fs::path& File, int W, int H, bool Geo, double Long0 = 15.0, double Lat0 = 48.0,
                  double Step = 0.001)
{
    GDALAllRegister();
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDataset* ds = mem->Create("", W, H, 3, GDT_Byte, nullptr);
    std::vector<GByte> row(static_cast<std::size_t>(W) * H);
    for (int b = 1; b <= 3; ++b) {
        for (int i = 0; i < W * H; ++i)
            row[std::size_t(i)] = GByte((i * (b + 2)) & 255);
        ASSERT_EQ(ds->GetRasterBand(b)->RasterIO(GF_Write, 0, 0, W, H, row.data(), W, H, GDT_Byte, 0, 0, nullptr), CE_None);
    }
    if (Geo) {
        double gt[6] = {Long0, Step, 0, Lat0, 0, -Step};
        ds->SetGeoTransform(gt);
        OGRSpatialReference srs;
        srs.importFromEPSG(4326);
        ds->SetSpatialRef(&srs);
    }
    GDALDriver* out = GetGDALDriverManager()->GetDriverByName(Geo ? "GTiff" : "PNG");
    GDALClose(out->CreateCopy(File.string().c_str(), ds, false, nullptr, nullptr, nullptr));
    GDALClose(ds);
}

class OpenFilesTest : public TViewerFixture {
protected:
    void SetUp() override
    {
        TViewerFixture::SetUp();
        // The georeferenced pictures' calibrations go to the user's cache folder: the test's own here.
        Cache = Dir / "cache";
        setenv("XDG_CACHE_HOME", Cache.string().c_str(), 1);
    }
    void TearDown() override
    {
        unsetenv("XDG_CACHE_HOME");
        TViewerFixture::TearDown();
    }
    // Drops Files onto the window as a file manager does, and lets the queued opening run.
    void Drop(const QStringList& Paths)
    {
        auto* mime = new QMimeData;
        QList<QUrl> urls;
        for (const QString& p : Paths)
            urls << QUrl::fromLocalFile(p);
        mime->setUrls(urls);
        const QPoint at(W->width() / 2, W->height() / 2);
        QDragEnterEvent enter(at, Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(W.get(), &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent drop(QPointF(at), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(W.get(), &drop);
        QCoreApplication::processEvents();
        delete mime;
    }
    fs::path Cache;
};

TEST_F(OpenFilesTest, KindsOfPaths)
{
    fs::create_directories(Dir / "k");
    const auto write = [&](const char* Leaf, const char* Text) {
        std::ofstream(Dir / "k" / Leaf) << Text;
        return (Dir / "k" / Leaf).string();
    };
    const struct {
        std::string path;
        viewer::TPathKind kind;
    } cases[] = {
        {(Dir / "k").string(), viewer::TPathKind::Folder},
        {(Dir / "k" / "none.tif").string(), viewer::TPathKind::Missing},
        {write("a.xml", "<?xml version=\"1.0\"?>\n<gmlandmarks sig=\"Quorvanta\" id=\"1\">\n"), viewer::TPathKind::Landmarks},
        {write("b.XML", "<!-- c -->\n<geomap sig=\"Quorvanta\" id=\"1\">\n"), viewer::TPathKind::Calibration},
        {write("c.GPX", "<gpx/>"), viewer::TPathKind::Waypoints},
        {write("d.geojson", "{}"), viewer::TPathKind::Waypoints},
        {write("e.tif", "x"), viewer::TPathKind::Picture},
        {write("f.map", "x"), viewer::TPathKind::Picture},
    };
    for (const auto& c : cases)
        EXPECT_EQ(viewer::KindOfPath(c.path), c.kind) << c.path;
}

TEST_F(OpenFilesTest, AGeoTiffOpensCalibratedAtItsOwnPlaces)
{
    const fs::path tif = Dir / "Scan Wien.tif";
    WritePicture(tif, 400, 300, true);
    EXPECT_EQ(W->OpenPaths({QString::fromStdString(tif.string())}), 1) << W->LastError().toStdString();
    qv::TGeoMap& map = W->Map();
    EXPECT_EQ(map.MapWidth(), 400);
    EXPECT_EQ(map.MapHeight(), 300);
    EXPECT_EQ(map.Calibration().CalibModel(), qv::cmEquiRect);
    // The centre of pixel (x, y) lies at the geotransform's (x + 0.5, y + 0.5).
    for (const auto& [x, y] : {std::pair(0, 0), std::pair(399, 0), std::pair(123, 287), std::pair(200, 150)}) {
        qv::TCoords c;
        ASSERT_TRUE(map.Calibration().CalcPosition({x, y}, c));
        const double lat = c.Latit, lon = c.Longit;
        EXPECT_NEAR(lon, 15.0 + (x + 0.5) * 0.001, 1e-9) << x << "," << y;
        EXPECT_NEAR(lat, 48.0 - (y + 0.5) * 0.001, 1e-9) << x << "," << y;
    }
    EXPECT_NE(W->statusBar()->currentMessage().indexOf("georeferenced"), -1) << W->statusBar()->currentMessage().toStdString();
    EXPECT_NE(W->Tool(), viewer::TTool::CalibPoint);  // nothing to click: the map is calibrated
}

TEST_F(OpenFilesTest, APictureWithoutGeoreferencingWaitsForTheEditor)
{
    const fs::path png = Dir / "plain.png";
    WritePicture(png, 120, 80, false);
    Drop({QString::fromStdString(png.string())});
    EXPECT_EQ(W->Map().MapWidth(), 120);
    EXPECT_EQ(W->Map().CalibData().NumCalQuads, 0);
    EXPECT_EQ(W->Tool(), viewer::TTool::CalibPoint);
    EXPECT_TRUE(W->CalibEditor().isVisible());
}

TEST_F(OpenFilesTest, BrokenAndMissingFilesAreReportedAndTheMapStays)
{
    const fs::path fake = Dir / "fake.tif";
    std::ofstream(fake) << "this is no picture\n";
    const std::string before = W->Map().MapImgName();
    EXPECT_EQ(W->OpenPaths({QString::fromStdString(fake.string()), QString::fromStdString((Dir / "gone.png").string())}), 0);
    EXPECT_EQ(W->Map().MapImgName(), before);
    EXPECT_NE(W->LastError().indexOf("fake.tif cannot be shown"), -1) << W->LastError().toStdString();
    EXPECT_NE(W->LastError().indexOf("gone.png does not exist"), -1) << W->LastError().toStdString();
}

TEST_F(OpenFilesTest, AFolderOfPicturesBecomesMapsWithoutAFileWrittenIntoIt)
{
    const fs::path folder = Dir / "scans";
    fs::create_directories(folder);
    WritePicture(folder / "North.tif", 300, 200, true, 14.0, 49.0, 0.002);
    WritePicture(folder / "south.tif", 300, 200, true, 14.0, 48.6, 0.002);
    WritePicture(folder / "sketch.png", 50, 40, false);
    const auto before = Snapshot(folder);
    const std::int32_t maps = W->Atlas().NumRegMaps();
    const auto problems = W->AddMapFolder(QString::fromStdString(folder.string()));
    EXPECT_EQ(W->Atlas().NumRegMaps(), maps + 2);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(fs::path(problems[0].File).filename(), "sketch.png");
    EXPECT_EQ(Snapshot(folder), before);  // the user's folder is as it was
    // The atlas shows the northern scan at a place only it covers, through the calibration in the cache.
    std::int32_t north = 0;
    for (std::int32_t i = 1; i <= W->Atlas().NumRegMaps(); ++i)
        if (fs::path(W->Atlas().GetMapDef(i).MapFName).filename() == "north.xml")
            north = i;
    ASSERT_GT(north, 0);
    EXPECT_EQ(W->Atlas().GetMapDef(north).MapFName.rfind(qv::LowerCase(Cache.string()), 0), 0u) << W->Atlas().GetMapDef(north).MapFName;
    ASSERT_TRUE(W->Atlas().SelectMap(north));
    EXPECT_EQ(W->Map().MapWidth(), 300);
    qv::TCoords c;
    ASSERT_TRUE(W->Map().Calibration().CalcPosition({100, 50}, c));
    EXPECT_NEAR(c.Longit, 14.0 + 100.5 * 0.002, 1e-6);  // the calibration file keeps 5 decimals: 1e-6 is enough
    EXPECT_NEAR(c.Latit, 49.0 - 50.5 * 0.002, 1e-6);
}

TEST_F(OpenFilesTest, WaypointsDroppedOnTheWindowReplaceTheLandmarks)
{
    std::vector<qv::TLandMark> marks(3, qv::DefaultLandMarkRecord());
    const double places[3][2] = {{48.2085, 16.3721}, {47.0707, 15.4395}, {47.8095, 13.0550}};
    for (int i = 0; i < 3; ++i) {
        marks[std::size_t(i)].Latitude = places[i][0];
        marks[std::size_t(i)].Longitude = places[i][1];
        marks[std::size_t(i)].Caption.Text = "Stop " + std::to_string(i + 1);
    }
    const fs::path gpx = Dir / "trip.gpx";
    qv::ExportLandMarks(marks, gpx.string(), qv::lffGPX);
    W->Map().AddLandMark(10.0, 10.0, 0.0);
    // The question about the unsaved landmark: discard them.
    AnswerNextModal<QMessageBox>([](QMessageBox& Box) { Box.button(QMessageBox::Discard)->click(); });
    Drop({QString::fromStdString(gpx.string())});
    ASSERT_TRUE(WaitFor([&] { return W->Map().NumLandMarks() == 3; })) << W->LastError().toStdString();
    for (int i = 0; i < 3; ++i) {
        const qv::TLandMark& m = W->Map().LandMarkStore().LandMarks()[std::size_t(i)];
        EXPECT_NEAR(m.Latitude, places[i][0], 1e-9);
        EXPECT_EQ(m.Caption.Text, "Stop " + std::to_string(i + 1));
    }
    EXPECT_TRUE(W->LandmarksModified());  // imported, not yet saved in a landmark file
}

}  // namespace

#endif  // QVGEO_WITH_GDAL
