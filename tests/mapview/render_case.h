// A map view for rendering tests: the viewport, sources, appearance and events that RenderMapView takes,
// kept together so that a test sets what it varies and renders the rest at the defaults.
#pragma once

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_render.h>

namespace qv {

struct TRenderCase {
    TMapViewport View;
    TMapSources Src;
    TMapAppearance Look;
    TMapRenderEvents Events;
};

inline void Render(const TRenderCase& C, TBitmap& Aux, TMapImageCache& Cache, TMapRenderCaches* Caches)
{
    RenderMapView(C.View, C.Src, C.Look, Aux, Cache, Caches, C.Events);
}

}  // namespace qv
