// Pieces of RenderMapView shared by its source files: the control/map-pixel conversions of the view and
// the graticule, grid and calibration-point step.
#pragma once

#include <qvgeo/mapview/map_render.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qv::render_detail {

// Control pixels handed to the canvas stay within ±2^30, so that no pixel arithmetic downstream overflows
// for positions far outside the map; every pixel that can be seen is unchanged by the clamp.
inline std::int32_t ClampRound(double v)
{
    if (std::isnan(v))
        return 0;
    return static_cast<std::int32_t>(std::clamp(std::nearbyint(v), -1073741824.0, 1073741824.0));
}

// The view's two pixel conversions, rounded half to even: a map pixel to a control pixel and back.
struct TViewTransform {
    double Magnify = 1.0;
    TPoint TopLeft;

    TPoint MapImageToControl(TPoint P) const
    {
        return {ClampRound((double(P.X) - TopLeft.X) * Magnify), ClampRound((double(P.Y) - TopLeft.Y) * Magnify)};
    }
    TPoint ControlToMapImage(TPoint P) const
    {
        return {ClampRound(std::nearbyint(P.X / Magnify) + TopLeft.X),
                ClampRound(std::nearbyint(P.Y / Magnify) + TopLeft.Y)};
    }
};

// Step 8: graticule or UTM grid in ColorGraticule and the calibration points, as ShowGraticule and the
// fit's model select. Uses and changes the canvas's pen colour only.
void DrawGraticuleAndPoints(TCanvas& Canvas, const TMapRenderState& State, const TViewTransform& View);

}  // namespace qv::render_detail
