// TMapRenderCaches in full, for the owner of a map view's caches (its destructor needs the complete type)
// and for tests that look at what was cached. RenderMapView fills both caches as it draws.
#pragma once

#include <qvgeo/geomap/view/caption_sprites.h>
#include <qvgeo/geomap/view/landmark_symbols.h>
#include <qvgeo/geomap/view/map_render.h>

namespace qv {

class TMapRenderCaches {
public:
    TSymbolSpriteCache Symbols;
    TCaptionSpriteCache Captions;
};

}  // namespace qv
