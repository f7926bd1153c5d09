// TMapRenderCaches in full, for code that looks at what was cached (tests, benchmarks); owners hold it
// through TMapRenderCachesPtr and need only map_render.h. RenderMapView fills both caches as it draws.
#pragma once

#include <qvgeo/mapview/caption_sprites.h>
#include <qvgeo/mapview/landmark_symbols.h>
#include <qvgeo/mapview/map_labels.h>
#include <qvgeo/mapview/map_render.h>

namespace qv {

class TMapRenderCaches {
public:
    TSymbolSpriteCache Symbols;
    TCaptionSpriteCache Captions;
    TLabelCache Labels;
};

}  // namespace qv
