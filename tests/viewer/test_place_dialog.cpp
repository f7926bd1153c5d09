// The place of a reference point, typed or picked on another map of the bundled atlas through the
// viewer's own question.
#include "place_dialog.h"
#include "interaction_fixture.h"

#include <qvgeo/geodb/geo_text.h>

#include <QLabel>
#include <QWheelEvent>

#include <cmath>

namespace {

TEST(PlaceDialog, TypedPlacesInTheFormatsTheViewerShows)
{
    // Written by the core's formatter with hemisphere letters or a sign, read back to within the last
    // decimal written (half a unit of it, in degrees).
    const struct {
        qv::TDegreeFormat format;
        int decimals;
        double half;
    } formats[] = {{qv::dfDecimal, 6, 0.5e-6}, {qv::dfDegMin, 3, 0.5e-3 / 60}, {qv::dfDegMinSec, 1, 0.05 / 3600}};
    for (const auto& f : formats)
        for (const auto& [lat, lon] : {std::pair(48.2085, 16.3721), std::pair(-33.85678, -151.21529), std::pair(0.5, -0.25)}) {
            const std::string letters = qv::GeoLatitude(lat, f.format, f.decimals) + " " + qv::GeoLongitude(lon, f.format, f.decimals);
            const std::string signs = qv::DegreeToStr(lat, f.format, f.decimals) + ", " + qv::DegreeToStr(lon, f.format, f.decimals);
            for (const std::string& text : {letters, signs}) {
                double la = 0, lo = 0;
                QString error;
                ASSERT_TRUE(viewer::ParsePlace(QString::fromStdString(text), la, lo, error)) << text << ": " << error.toStdString();
                EXPECT_NEAR(la, lat, f.half * 1.01) << text;
                EXPECT_NEAR(lo, lon, f.half * 1.01) << text;
            }
        }
    for (const char* bad : {"", "48.2", "91 16", "48 180.5", "48\u00B060' 16", "48.5\u00B010' 16", "-48 S 16", "48 16 E x",
                            "48,5 16", "48 16\u00B05'61\""}) {
        double la = 0, lo = 0;
        QString error;
        EXPECT_TRUE(!viewer::ParsePlace(bad, la, lo, error) && !error.isEmpty()) << bad;
    }
}

using namespace viewer_test;
using PlaceDialogInViewer = TViewerFixture;

TEST_F(PlaceDialogInViewer, PickedOnAnotherMapTheClickedPixelsPlace)
{
    Select("austria.xml");
    // Each row: the map picked on, the click in it (control pixels), whether it is on the map image.
    const struct {
        const char* leaf;
        QPoint click;
        bool onImage;
    } picks[] = {{"vienna-region.xml", {211, 137}, true}, {"calib-vienna.xml", {333, 101}, true},
                 {"world.xml", {301, 95}, true},          {"world.xml", {301, 320}, false},
                 {"lower-austria.xml", {476, 50}, false}};
    for (const auto& p : picks) {
        qv::TMapCalibration truth, austria;  // read from the files, apart from the dialog's map
        truth.LoadCalDataFromXML((fs::path(Files.MapDir) / p.leaf).string(), "");
        austria.LoadCalDataFromXML((fs::path(Files.MapDir) / "austria.xml").string(), "");
        qv::TCoords expected, start;
        ASSERT_TRUE(austria.CalcPosition({400, 300}, start));  // where the question starts
        QTimer::singleShot(0, [&] {
            auto* d = qobject_cast<viewer::TPlaceDialog*>(QApplication::activeModalWidget());
            ASSERT_TRUE(d && QTest::qWaitForWindowExposed(d));
            double la = 0, lo = 0;
            EXPECT_TRUE(d->Place(la, lo) && std::hypot(la - start.Latit, lo - start.Longit) < 1e-6);
            EXPECT_EQ(d->MapBox()->count(), W->Atlas().NumRegMaps() - 1);
            EXPECT_EQ(d->MapBox()->findText("Austria"), -1);  // the map being calibrated
            const QString caption = QString::fromStdString(truth.CalibData().Caption);
            d->MapBox()->setCurrentIndex(d->MapBox()->findText(caption));
            QTest::mouseClick(&d->PickMap(), Qt::LeftButton, {}, p.click);
            const qv::TPoint px = d->PickMap().ControlToMapImage({p.click.x(), p.click.y()});
            EXPECT_TRUE(!p.onImage || truth.CalcPosition(px, expected));
            // The marker is drawn over the pixel picked (a cross through it), nothing where no place is.
            const qv::TPoint c = d->PickMap().MapImageToControl(px);
            const QRgb marker = d->PickMap().AuxBmp().Image().pixel(c.X + 4, c.Y) & 0xFFFFFF;
            EXPECT_EQ(marker == 0xFF00FFu, p.onImage) << p.leaf;
            EXPECT_EQ(d->MessageLabel()->text().startsWith("No place"), !p.onImage) << d->MessageLabel()->text().toStdString();
            d->accept();
        });
        double lat = 0, lon = 0;
        ASSERT_TRUE(W->AskPlace(400, 300, lat, lon));
        EXPECT_NEAR(lat, p.onImage ? expected.Latit : start.Latit, 1e-6) << p.leaf;
        EXPECT_NEAR(lon, p.onImage ? expected.Longit : start.Longit, 1e-6) << p.leaf;
    }

    // Bad text keeps OK disabled and says why; the keyboard reaches the text, the list (Alt+M) and the map.
    viewer::TPlaceDialog d(1, 2, std::nullopt, {{"Vienna region", (fs::path(Files.MapDir) / "vienna-region.xml").string()}}, W.get());
    d.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&d));
    EXPECT_FALSE(d.OkButton()->isEnabled());
    for (const auto& [text, ok] : {std::pair("48 16 E", true), std::pair("48 N 200 E", false), std::pair("48 N, 16 W", true)}) {
        d.PlaceEdit()->setText(text);
        EXPECT_EQ(d.OkButton()->isEnabled(), ok) << text;
        EXPECT_EQ(d.MessageLabel()->text().isEmpty(), ok) << text;
    }
    // Zoomed in with the wheel, a click still picks the place of the pixel under it.
    const double fit = d.PickMap().Magnification();
    QWheelEvent wheel({100, 80}, d.PickMap().mapToGlobal(QPointF(100, 80)), {}, {0, 120}, Qt::NoButton, {}, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&d.PickMap(), &wheel);
    ASSERT_GT(d.PickMap().Magnification(), fit);
    QTest::mouseClick(&d.PickMap(), Qt::LeftButton, {}, {150, 120});
    qv::TMapCalibration region;
    region.LoadCalDataFromXML((fs::path(Files.MapDir) / "vienna-region.xml").string(), "");
    qv::TCoords want, got;
    ASSERT_TRUE(region.CalcPosition(d.PickMap().ControlToMapImage({150, 120}), want) && d.Place(got.Latit, got.Longit));
    EXPECT_NEAR(got.Latit, want.Latit, 1e-6);
    EXPECT_NEAR(got.Longit, want.Longit, 1e-6);
    d.PlaceEdit()->setFocus();
    QTest::keyClick(&d, Qt::Key_M, Qt::AltModifier);
    EXPECT_EQ(QApplication::focusWidget(), d.MapBox());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), &d.PickMap());
}

}  // namespace
