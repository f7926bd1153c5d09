// TGeoMap's mouse on real (hidden) widgets driven by QTest and synthetic events: zoom windows, pans, drag
// zoom, MouseBox in its nested loop, selection rectangles, rubber bands, the exclusive-or figures on the
// widget's own frame, landmark placement, exceptions, wheel and pinch zoom, tolerance and cursors.
#include <qvgeo/mapview/geo_map.h>

#include <QNativeGestureEvent>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <tuple>

namespace {

using namespace qv;
constexpr auto L = Qt::LeftButton;

// 40..50 N, 10..20 E over 1000 x 800 pixels, no margin: pixel (x, y) is (50 - y/80, 10 + x/100).
void Calibrated(TGeoMap& M) { M.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false); }

// A move without buttons (QTest moves the system cursor for those, which the offscreen platform ignores).
void Hover(TGeoMap& M, int X, int Y)
{
    QMouseEvent e(QEvent::MouseMove, QPointF(X, Y), M.mapToGlobal(QPointF(X, Y)), Qt::NoButton, Qt::NoButton, {});
    QApplication::sendEvent(&M, &e);
}

void Send(TGeoMap& M, QEvent&& E) { QApplication::sendEvent(&M, &E); }

void Drag(TGeoMap& M, QPoint From, QPoint To, Qt::KeyboardModifiers K = {})
{
    QTest::mousePress(&M, L, K, From);
    QTest::mouseMove(&M, From);  // the first move of a drag is its anchor
    QTest::mouseMove(&M, To);
    QTest::mouseRelease(&M, L, K, To);
}

TEST(GeoMapMouse, ZoomWindow)
{
    // A 500 x 400 control at magnification 1 from (0, 0); 200 x 50 map pixels give 500 / 200 = 2.5 and the
    // box's centre (200, 125) becomes the view's centre.
    struct { QPoint a, b; double mag; TPoint tl; int events; } cases[] = {
        {{100, 100}, {300, 150}, 2.5, {100, 45}, 1},
        {{300, 150}, {100, 100}, 2.5, {100, 45}, 1},  // dragged the other way
        {{100, 100}, {150, 300}, 2.0, {0, 100}, 1},   // the taller side decides
        {{100, 100}, {300, 100}, 1.0, {0, 0}, 0},     // zero height only ends the zoom
        {{501, 10}, {300, 200}, 1.0, {0, 0}, 0},      // a press outside starts nothing
        {{500, 0}, {300, 100}, 2.5, {300, -30}, 1},   // the edges are inside (TopLeft not confined)
    };
    for (const auto& c : cases) {
        TGeoMap m;
        Calibrated(m);
        m.SetMouseAction(maZoomWindow);
        int events = 0;
        m.OnZoomPan = [&](TGeoMap&) { ++events; };
        const auto poi = m.ZStackPoi();
        Drag(m, c.a, c.b);
        EXPECT_EQ(std::tuple(m.Magnification(), m.TopLeft(), events), std::tuple(c.mag, c.tl, c.events)) << c.a.x();
        EXPECT_TRUE(m.ZoomState() == 0 && m.MouseFigures().empty());
        EXPECT_EQ(m.ZStackPoi(), poi);  // zoom windows are not pushed
    }
}

TEST(GeoMapMouse, PanAndDragZoom)
{
    struct { TMouseActMode mode; double mag; QPoint d; TPoint tl; } cases[] = {
        {maPan, 2.0, {-10, 20}, {305, 290}},  {maPanHoriz, 2.0, {-10, 20}, {305, 300}},
        {maPanVert, 2.0, {-10, 20}, {300, 290}}, {maPanHoriz, 1.0, {0, 30}, {300, 300}},
        {maPan, 1.0, {7, -3}, {293, 303}},
        // 1 - (0 / 500 * 0.05 - 40 / 400) = 1.1 about the centre (550, 500): 500 / 1.1 / 2 = 227.3.
        {maDragZoom, 1.0, {0, -40}, {323, 318}},
    };
    for (const auto& c : cases) {
        TGeoMap m;
        Calibrated(m);
        m.SetMagnification(c.mag);
        m.SetTopLeft({300, 300});
        m.SetMouseAction(c.mode);
        int events = 0;
        m.OnZoomPan = [&](TGeoMap&) { ++events; };
        const auto poi = m.ZStackPoi();
        QTest::mousePress(&m, L, {}, {250, 200});
        QTest::mouseMove(&m, {250, 200});
        QTest::mouseMove(&m, QPoint(250, 200) + c.d);
        QTest::mouseMove(&m, {600, 200});  // outside: ignored
        QTest::mouseRelease(&m, L, {}, QPoint(250, 200) + c.d);
        EXPECT_EQ(std::tuple(m.TopLeft(), events, m.ZStackPoi()), std::tuple(c.tl, 1, poi + 1)) << int(c.mode);
        EXPECT_EQ(m.GetZoomStackEntry(0), (TgmZoomStackEntry{c.tl.X, c.tl.Y, m.Magnification()}));
        // A new drag right after (no hover move between, as with touch input) anchors afresh.
        Drag(m, {100, 100}, {100, 100});
        EXPECT_EQ(m.TopLeft(), c.tl);
    }
}

TEST(GeoMapMouse, MouseBoxRunsItsOwnLoop)
{
    TGeoMap m;
    m.SetMouseAction(maZoomWindow);
    std::int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    QTimer::singleShot(0, &m, [&] { QTest::mousePress(&m, Qt::RightButton, {}, {20, 20}); });
    EXPECT_FALSE(m.MouseBox(x1, y1, x2, y2));
    QTimer::singleShot(0, &m, [&] {
        QTest::mousePress(&m, L, {}, {300, 50});
        QTest::mouseMove(&m, {120, 200});
        EXPECT_TRUE(m.MouseFigures().size() == 1 && m.MouseAction() == maNone);
        QTest::mouseRelease(&m, L, {}, {120, 200});
    });
    ASSERT_TRUE(m.MouseBox(x1, y1, x2, y2));
    EXPECT_EQ((std::array{x1, y1, x2, y2}), (std::array{120, 50, 300, 200}));
    EXPECT_TRUE(m.MouseFigures().empty());
    QTimer::singleShot(0, &m, [&] { QTest::mousePress(&m, L, {}, {30, 30}); QTest::mouseMove(&m, {90, 90}); m.MouseBoxAbort(); });
    EXPECT_FALSE(m.MouseBox(x1, y1, x2, y2));
    EXPECT_TRUE(m.MouseFigures().empty() && m.MouseAction() == maZoomWindow && m.MouseBoxState() == 0);
}

TEST(GeoMapMouse, SelectRectangleAndRubberBand)
{
    for (bool calibrated : {true, false}) {
        TGeoMap m;
        if (calibrated)
            Calibrated(m);
        else
            m.SetMapBitMap(TBitmap(1000, 800));
        m.SetMouseAction(maSelectRect);
        std::vector<double> got;
        m.OnSelectRect = [&](TGeoMap&, std::int32_t k, double a, double b, double c, double d) {
            got = {double(k), a, b, c, d};
            for (double& v : got)
                v = std::round(v * 1e9) / 1e9;  // degrees to a nanodegree
        };
        Drag(m, {300, 240}, {100, 80});
        EXPECT_EQ(got, (calibrated ? std::vector<double>{1, 49, 11, 47, 13} : std::vector<double>{0, 100, 80, 300, 240}));
    }
    TGeoMap m;
    m.SetMagnification(2.0);
    m.SetTopLeft({100, 100});
    m.SetMouseAction(maRubberBand);
    std::string log;
    const auto rec = [&](char k) { return [&log, k](TGeoMap&, std::int32_t x, std::int32_t y) { log += k + std::to_string(x) + "," + std::to_string(y) + " "; }; };
    m.OnBeginRubberBand = rec('B');
    m.OnContinueRubberBand = rec('C');
    m.OnEndRubberBand = rec('E');
    QTest::mouseClick(&m, L, {}, {10, 11});  // 11 / 2 = 5.5 rounds to 6
    Hover(m, 60, 40);
    QTest::mouseClick(&m, L, Qt::ControlModifier, {60, 40});
    Hover(m, 90, 90);
    EXPECT_EQ(m.MouseFigures().size(), 2u);  // the finished segment and the running one
    EXPECT_EQ(m.LastMMousePos(), (TPoint{145, 145}));
    QTest::mouseClick(&m, L, {}, {90, 90});
    EXPECT_EQ(log, "B105,106 C130,120 E145,145 ");
    EXPECT_EQ(m.LastMClickPos(), (TPoint{145, 145}));
    EXPECT_TRUE(!m.RubberBandOn() && m.MouseFigures().empty());
}

TEST(GeoMapMouse, ExclusiveOrFiguresOnTheFrame)
{
    TGeoMap m;
    Calibrated(m);
    const QImage before = m.grab().toImage();
    const TBitmap aux = m.AuxBmp();
    m.SetMouseAction(maZoomWindow);
    QTest::mousePress(&m, L, {}, {50, 50});
    QTest::mouseMove(&m, {150, 120});
    const QImage during = m.grab().toImage();
    for (int y = 0; y < before.height(); ++y)
        for (int x = 0; x < before.width(); ++x) {
            const bool onBox = (x >= 50 && x < 150 && (y == 50 || y == 119)) || (y >= 50 && y < 120 && (x == 50 || x == 149));
            const QRgb want = onBox ? before.pixel(x, y) ^ 0xFFFFFFu : before.pixel(x, y);
            ASSERT_EQ(during.pixel(x, y), want) << x << "," << y;
        }
    EXPECT_TRUE(m.AuxBmp().Image() == aux.Image());  // the map is not redrawn for a figure
    // The same box drawn again (erased) restores the frame; a dotted selection box the same way.
    QTest::mouseMove(&m, {50, 50});
    EXPECT_TRUE(m.grab().toImage() == before);
    m.SetMouseAction(maSelectRect);
    Drag(m, {20, 20}, {200, 180});
    EXPECT_TRUE(m.grab().toImage() == before);
}

TEST(GeoMapMouse, LandMarksExceptionsAndExtras)
{
    TGeoMap m;
    Calibrated(m);
    m.SetTopLeft({100, 80});  // the click at (100, 80) is map pixel (200, 160): 48 N, 12 E
    m.SetMouseAction(maLandMark);
    bool allow = false;
    m.OnLandMarkAction = [&](TGeoMap&, bool& Allowed, TLandMarkAction, const TLandMark&) { Allowed = allow; };
    QTest::mouseClick(&m, L, {}, {100, 80});
    EXPECT_EQ(m.NumLandMarks(), 0);
    allow = true;
    QTest::mouseClick(&m, L, {}, {100, 80});
    ASSERT_EQ(m.NumLandMarks(), 1);
    EXPECT_NEAR(m.GetLandMarkData(1).Latitude, 48.0, 1e-9);
    EXPECT_NEAR(m.GetLandMarkData(1).Longitude, 12.0, 1e-9);
    EXPECT_EQ(m.GetLandMarkData(1).SymbolProps.Kind, m.DefaultLandMark().SymbolProps.Kind);

    // A throwing handler mid-drag: the error reaches OnError, the drag is dropped.
    std::string error;
    m.OnError = [&](const std::exception& e) { error = e.what(); };
    m.SetMouseAction(maZoomWindow);
    m.OnMouseMove = [](TCustomControl&, TShiftState, std::int32_t, std::int32_t) { throw std::runtime_error("boom"); };
    QTest::mousePress(&m, L, {}, {10, 10});
    QTest::mouseMove(&m, {60, 60});
    EXPECT_EQ(error, "boom");
    EXPECT_TRUE(m.ZoomState() == 0 && m.MouseFigures().empty());
    QTest::mouseRelease(&m, L, {}, {60, 60});
    EXPECT_EQ(m.Magnification(), 1.0);
    m.OnMouseMove = nullptr;

    // Tolerance 3 at ratio 2: boxes up to 6 x 6 control pixels are clicks.
    m.SetForcedPixelRatio(2.0);
    m.SetHitTolerance(3);
    Drag(m, {10, 10}, {16, 16});
    EXPECT_EQ(m.Magnification(), 1.0);
    Drag(m, {10, 10}, {17, 17});
    EXPECT_EQ(m.Magnification(), 400.0 / 7);  // a square box: the height decides

    // Wheel (off by default) and pinch zoom about the pointer: map pixel (300, 380) stays at (100, 80).
    for (bool wheel : {false, true}) {
        m.SetMagnification(1.0);
        m.SetTopLeft({200, 300});
        m.SetWheelZoom(wheel);
        Send(m, QWheelEvent({100, 80}, m.mapToGlobal(QPointF(100, 80)), {}, {0, 120}, Qt::NoButton, {}, Qt::NoScrollPhase, false));
        EXPECT_EQ(std::pair(m.Magnification(), m.TopLeft()), (wheel ? std::pair(1.25, TPoint{220, 316}) : std::pair(1.0, TPoint{200, 300})));
    }
    m.SetMagnification(1.0);
    m.SetTopLeft({200, 300});
    const auto poi = m.ZStackPoi();
    for (auto type : {Qt::ZoomNativeGesture, Qt::EndNativeGesture})
        Send(m, QNativeGestureEvent(type, QPointingDevice::primaryPointingDevice(), 2, {100, 80}, {100, 80},
                                    m.mapToGlobal(QPointF(100, 80)), 0.25, {}));
    EXPECT_EQ(std::tuple(m.Magnification(), m.TopLeft(), m.ZStackPoi()), std::tuple(1.25, TPoint{220, 316}, poi + 1));

    // Cursors follow the mode.
    m.SetMouseAction(maRubberBand);
    EXPECT_EQ(m.cursor().shape(), Qt::CrossCursor);
    m.SetMouseAction(maPan);
    EXPECT_EQ(m.cursor().shape(), Qt::BitmapCursor);
    m.SetModeCursor(false);
    EXPECT_EQ(m.cursor().shape(), Qt::ArrowCursor);
}

}  // namespace
