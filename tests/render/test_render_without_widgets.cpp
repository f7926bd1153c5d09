// Rendering a map without any widget: the process has a QGuiApplication (text needs one) and no
// QApplication, the map is a calibration, an image and a landmark store read from the bundled files, and
// RenderMapView draws it from a viewport. The pictures must be those the map control paints for the same
// views (tests/data/render, written from the control's AuxBmp; tests/mapview checks that the control still
// paints them).
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_output.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/image_files.h>

#include <QGuiApplication>

#include <gtest/gtest.h>

#include <fstream>

#include <string>

namespace qv {
namespace {

const std::string Samples = std::string(QVGEO_SOURCE_DIR) + "/data/samples/";

// The Vienna map of one calibration id, read as geotool reads it: no control anywhere.
struct TPlainMap {
    TMapCalibration Calib;
    TBitmap Image;
    std::string ImageName;
    TLandMarkStore LandMarks;

    explicit TPlainMap(const std::string& Id)
    {
        // The reader's two steps with the image loaded between them, as an owner does.
        std::ifstream f(Samples + "calib-vienna.xml", std::ios::binary);
        EXPECT_TRUE(Calib.ReadCalibrationRecord(f, Id).Found);
        ImageName = Calib.CalibData().MapFName;
        LoadBMP(Image, Samples + ImageName);
        Calib.SetImageName(ImageName);
        Calib.SetImageSize(Image.Width(), Image.Height());
        Calib.FinishReading();
        EXPECT_TRUE(LandMarks.LoadLandMarks(Samples + "landmarks-vienna.xml", ""));
    }
    TMapSources Sources() const
    {
        TMapSources s;
        s.MapImgName = ImageName;
        s.GrafBmp = &Image;
        s.CalibData = &Calib.CalibData();
        s.Fit = &Calib.Fit();
        s.LandMarks = &LandMarks;
        return s;
    }
};

std::int64_t DifferentPixels(const TBitmap& A, const TBitmap& B)
{
    if (A.Width() != B.Width() || A.Height() != B.Height())
        return -1;
    std::int64_t n = 0;
    for (std::int32_t y = 0; y < A.Height(); ++y)
        for (std::int32_t x = 0; x < A.Width(); ++x)
            n += (A.Pixel(x, y) & 0xFFFFFF) != (B.Pixel(x, y) & 0xFFFFFF);
    return n;
}

TEST(RenderWithoutWidgets, CalibratedMapWithLandmarksAndGridIsWhatTheControlPaints)
{
    ASSERT_NE(QCoreApplication::instance(), nullptr);
    EXPECT_FALSE(QCoreApplication::instance()->inherits("QApplication"));
    const struct {
        const char* id;
        TShowGrat grat;
        double mag;
        TMapPixel topLeft;
        const char* reference;
    } views[] = {
        {"geo", sgPointsAndLines, 0.5, {20, 10}, "vienna-geo-050.png"},     // reduced: the scaled cache
        {"utm", sgPointsAndUTMGrid, 1.25, {300, 200}, "vienna-utm-125.png"},  // enlarged: a stretch
    };
    for (const auto& v : views) {
        const TPlainMap map(v.id);
        ASSERT_FALSE(map.Image.Empty()) << v.id;
        ASSERT_GT(map.LandMarks.NumLandMarks(), 0) << v.id;
        TMapViewport view;
        view.SetControlSize({240, 180});
        view.SetMapSize({map.Image.Width(), map.Image.Height()});
        view.SetMagnify(v.mag);
        view.SetTopLeft(v.topLeft);
        TMapAppearance look;
        look.ShowGraticule = v.grat;
        TBitmap reference;
        LoadPNG(reference, std::string(QVGEO_TEST_DATA) + "/render/" + v.reference);
        TBitmap aux;
        TMapImageCache cache;
        RenderMapView(view, map.Sources(), look, aux, cache);
        EXPECT_EQ(DifferentPixels(aux, reference), 0) << v.id;
        // The output path gives the same picture, of exactly the output's size.
        TBitmap out;
        TMapImageCache outCache;
        RenderMapOutput(out, nullptr, view, map.Sources(), look, outCache, nullptr, {});
        EXPECT_EQ(DifferentPixels(out, reference), 0) << v.id;
        // A second paint of the same view through the cache built by the first changes nothing.
        RenderMapView(view, map.Sources(), look, aux, cache);
        EXPECT_EQ(DifferentPixels(aux, reference), 0) << v.id;
    }
}

}  // namespace
}  // namespace qv

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
