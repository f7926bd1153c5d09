// The view's rules without a widget: the documented values of panning, zoom window, confinement, centring
// and the zoom history, and the pixel types' arithmetic.
#include <qvgeo/geomap/map_viewport.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace qv {
namespace {

TMapViewport View(TSize Control, TSize Map, double Mag = 1.0, TMapPixel TopLeft = {0, 0})
{
    TMapViewport v;
    v.SetControlSize(Control);
    v.SetMapSize(Map);
    v.SetMagnify(Mag);
    v.SetTopLeft(TopLeft);
    return v;
}

// Mixing the spaces must not compile; only the meaningful arithmetic exists.
static_assert(!std::is_convertible_v<TMapPixel, TControlPixel>);
static_assert(!std::is_convertible_v<TControlPixel, TMapPixel>);
static_assert(!std::is_convertible_v<TPoint, TMapPixel>);
static_assert(std::is_same_v<decltype(TMapPixel{} - TMapPixel{}), TMapOffset>);
template <class A, class B>
concept Addable = requires(A a, B b) { a + b; };
static_assert(Addable<TMapPixel, TMapOffset> && !Addable<TMapPixel, TControlOffset> && !Addable<TMapPixel, TMapPixel>);

TEST(MapViewport, PixelArithmeticWrapsInsteadOfOverflowing)
{
    const TMapPixel far{INT32_MAX, INT32_MIN};
    EXPECT_EQ((far + TMapOffset{1, -1}), (TMapPixel{INT32_MIN, INT32_MAX}));
    EXPECT_EQ((-TMapOffset{INT32_MIN, 5}), (TMapOffset{INT32_MIN, -5}));
    EXPECT_EQ((TMapPixel{3, 4} - TMapPixel{10, -2}), (TMapOffset{-7, 6}));
}

TEST(MapViewport, ConversionsRoundHalfToEven)
{
    const struct { double mag; TPoint in, toMap, toControl; } cases[] = {
        {2.0, {5, 7}, {12, 24}, {-10, -26}},   // 2.5 -> 2, 3.5 -> 4
        {0.5, {3, 5}, {16, 30}, {-4, -8}},     // (3-10)/2 = -3.5 -> -4, (5-20)/2 = -7.5 -> -8
        {4.0, {-2, 6}, {10, 22}, {-48, -56}},  // -0.5 -> -0
    };
    for (const auto& c : cases) {
        const TMapViewport v = View({500, 400}, {1000, 800}, c.mag, {10, 20});
        EXPECT_EQ(v.ControlToMapImage(TControlPixel(c.in)).Point(), c.toMap) << c.mag;
        EXPECT_EQ(v.MapImageToControl(TMapPixel(c.in)).Point(), c.toControl) << c.mag;
    }
    // Far outside the map the results saturate instead of wrapping.
    const TMapViewport v = View({500, 400}, {1000, 800}, 65536.0, {INT32_MIN, 0});
    EXPECT_EQ(v.MapImageToControl({INT32_MAX, 0}).X, INT32_MAX);
}

TEST(MapViewport, PanZoomWindowAndConfinement)
{
    TMapViewport v = View({500, 400}, {2000, 1000}, 2.0, {100, 100});
    // A drag by (-10, +20) control pixels at magnification 2 moves the top-left corner by (+5, -10).
    v.PanFrom(v.TopLeft(), {50, 50}, {60, 30}, true, true);
    EXPECT_EQ(v.TopLeft(), (TMapPixel{95, 110}));
    v.PanFrom({100, 100}, {50, 50}, {60, 30}, false, true);  // vertical only
    EXPECT_EQ(v.TopLeft(), (TMapPixel{95, 110}));

    // A box 200 map pixels wide and 50 high in a 500-pixel-wide control gives magnification 2.5.
    v = View({500, 400}, {2000, 1000}, 1.0, {0, 0});
    ASSERT_TRUE(v.ZoomToBox({300, 100}, {100, 150}));
    EXPECT_DOUBLE_EQ(v.Magnify(), 2.5);
    EXPECT_EQ(v.TopLeft(), (TMapPixel{100, 45}));  // centre (200, 125) minus (100, 80)
    EXPECT_FALSE(v.ZoomToBox({10, 10}, {90, 10}));   // no height: nothing changes
    EXPECT_DOUBLE_EQ(v.Magnify(), 2.5);

    // A map smaller than the control ends at (0, 0); a view past the right edge comes back to it.
    v = View({500, 400}, {300, 200}, 1.0, {40, -5});
    v.Confine();
    EXPECT_EQ(v.TopLeft(), (TMapPixel{0, 0}));
    v = View({500, 400}, {2000, 1000}, 1.0, {1800, 900});
    v.Confine();
    EXPECT_EQ(v.TopLeft(), (TMapPixel{1500, 600}));
    v.SetTopLeft({1500, 600});
    v.Confine();  // exactly at the edge: unchanged
    EXPECT_EQ(v.TopLeft(), (TMapPixel{1500, 600}));
}

TEST(MapViewport, CentreFitAndZoomAboutAPoint)
{
    TMapViewport v = View({500, 400}, {1000, 800});
    v.CentreOn({990, 10});
    EXPECT_EQ(v.TopLeft(), (TMapPixel{500, 0}));
    v.CentreOnWithin({250, 650});
    EXPECT_EQ(v.TopLeft(), (TMapPixel{0, 400}));
    ASSERT_TRUE(v.FitPage());
    EXPECT_DOUBLE_EQ(v.Magnify(), 0.5);
    EXPECT_EQ(v.TopLeft(), (TMapPixel{0, 0}));
    EXPECT_FALSE(View({500, 400}, {0, 0}).FitPage());

    v = View({500, 400}, {1000, 800}, 1.0, {100, 100});
    v.ZoomAboutPoint(100, 50, 2.0);  // map (200, 150) stays under (100, 50)
    EXPECT_EQ(v.TopLeft(), (TMapPixel{150, 125}));
    v = View({500, 400}, {1000, 800}, 1.0, {100, 100});
    v.ZoomAboutCentre(2.0);  // centre (350, 300) kept
    EXPECT_EQ(v.Centre(), (TMapPixel{350, 300}));
    EXPECT_EQ(v.TopLeft(), (TMapPixel{225, 200}));
    EXPECT_FALSE(v.SetMagnify(0.0));
    EXPECT_FALSE(v.SetMagnify(-1.0));
    v.SetMagnify(1e9);
    EXPECT_EQ(v.Magnify(), MaxMagnification);
}

TEST(MapViewport, ZoomHistoryIsARingOfSixteen)
{
    TMapViewport v;
    EXPECT_FALSE(v.RestoreView(-3));  // all zero on a fresh history: nothing changes
    for (int i = 1; i <= 17; ++i) {
        v.SetTopLeft({i, 0});
        v.PushView();
    }
    EXPECT_EQ(v.HistoryEntry(0).Left, 17);
    EXPECT_EQ(v.HistoryEntry(-15).Left, 2);  // the first push is lost
    EXPECT_EQ(v.HistoryEntry(1), TgmZoomStackEntry{});
    EXPECT_EQ(v.HistoryEntry(-16), TgmZoomStackEntry{});
    ASSERT_TRUE(v.RestoreView(-2));
    EXPECT_EQ(v.TopLeft(), (TMapPixel{15, 0}));
    EXPECT_EQ(v.HistoryPos(), 2);  // going back is not a pop
    v.ClearHistory();
    EXPECT_EQ(v.HistoryEntry(0), TgmZoomStackEntry{});
    EXPECT_EQ(v.HistoryPos(), 1);
}

}  // namespace
}  // namespace qv
