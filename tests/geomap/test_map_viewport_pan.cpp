// The viewport's keyboard pan: its step and the saturating move.
#include <qvgeo/geomap/map_viewport.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace qv {
namespace {

TEST(MapViewportPan, StepIsAnEighthOfTheViewAtLeastOnePixel)
{
    const struct { TSize control; double mag; TMapOffset step; } cases[] = {
        {{800, 400}, 1.0, {100, 50}},
        {{800, 400}, 2.0, {50, 25}},
        {{500, 300}, 0.5, {125, 75}},
        {{100, 20}, 1.0, {12, 2}},       // 12.5 -> 12, 2.5 -> 2: ties to even
        {{4, 4}, 8.0, {1, 1}},           // a sixteenth of a pixel: still one
        {{0, 0}, 1.0, {1, 1}},
    };
    for (const auto& c : cases) {
        TMapViewport v;
        v.SetControlSize(c.control);
        v.SetMagnify(c.mag);
        EXPECT_EQ(v.PanStep(8), c.step) << c.control.cx << " at " << c.mag;
    }
}

TEST(MapViewportPan, MovesSaturateAtTheLimits)
{
    const struct { TMapPixel from; TMapOffset by; TMapPixel to; } cases[] = {
        {{10, 20}, {-15, 5}, {-5, 25}},
        {{INT32_MAX - 3, 0}, {10, 0}, {INT32_MAX, 0}},
        {{0, INT32_MIN + 2}, {0, -7}, {0, INT32_MIN}},
        {{INT32_MIN, INT32_MAX}, {INT32_MAX, INT32_MIN}, {-1, -1}},
    };
    for (const auto& c : cases) {
        TMapViewport v;
        v.SetTopLeft(c.from);
        v.PanBy(c.by);
        EXPECT_EQ(v.TopLeft(), c.to) << c.from.X << ", " << c.from.Y;
    }
}

}  // namespace
}  // namespace qv
