// Output of a map view beyond the screen: a rendering into a bitmap of its own size and scale, the
// clipboard's copy of the screen image, and printing. Each works from a viewport and the sources that
// RenderMapView takes; the map control forwards its documented output operations here, binding its render
// events and holding its view while an output is drawn.
//
// Units: control pixels of the output (an output's "control" is its bitmap); map-image pixels for
// positions and rectangles of the map; a rendered pixel is printed as 1/96 inch unless a resolution is
// given.
#pragma once

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/bitmap.h>

#include <functional>

class QPainter;
class QPrinter;

namespace qv {

// Whether an output of Size pixels at Scale control pixels per map pixel can be drawn at all (a positive
// size, a positive finite scale).
bool IsDrawableOutput(double Scale, TSize Size);

// Draws View (the output's viewport: its control size is the bitmap's size) into Out, exactly View's
// control size. ViewCache, the screen's scaled-image cache, serves when it was made at View's
// magnification and anti-alias state; otherwise a cache of the output's own is made and dropped. With
// BareMap, also the picture as it stood before anything was drawn over the map (OnBeforeRenderData's
// moment), the same size.
void RenderMapOutput(TBitmap& Out, TBitmap* BareMap, const TMapViewport& View, const TMapSources& Sources,
                     const TMapAppearance& Look, TMapImageCache& ViewCache, TMapRenderCaches* Caches,
                     TMapRenderEvents Events);

// The view of a map while an output renders: the output's TopLeft, scale and size are put into View (the
// render handlers see the output as the view) and Active is set; the destructor puts those three and Active
// back whatever the handlers did to them meanwhile (also when one raised). What else they changed (a new
// image, the history) stays.
class TOutputViewScope {
public:
    TOutputViewScope(TMapViewport& View, bool& Active, TMapPixel TopLeft, double Scale, TSize Size);
    ~TOutputViewScope();
    TOutputViewScope(const TOutputViewScope&) = delete;
    TOutputViewScope& operator=(const TOutputViewScope&) = delete;

private:
    TMapViewport& FView;
    bool& FActive;
    const TMapPixel FSavedTopLeft;
    const double FSavedMagnify;
    const TSize FSavedSize;
    const bool FSavedActive;
};

// The clipboard's copy of the screen image: Control's size, AuxBmp's area (0, 0)-(W - 2, H - 2) and a
// black line through (1, 1), (W - 2, 1), (W - 2, H - 2), (1, H - 2) back to (1, 1).
TBitmap ClipboardCopy(const TBitmap& AuxBmp, TSize Control);

// How an output is drawn for printing: the map from Position at Scale into Out of Size pixels, with the
// bare map as RenderMapOutput gives it when BareMap is not null. The map control passes its CopyToBMP,
// so that its render events see each printed piece as the view.
using TOutputRenderer =
    std::function<void(TBitmap& Out, TBitmap* BareMap, TMapPixel Position, double Scale, TSize Size)>;

// The map pixels that fit on the printer's page at Scale (a control pixel printed as 1/96 inch), from
// View's TopLeft, clipped to the map; empty when nothing fits.
TRect PrintExtents(const TMapViewport& View, QPrinter& Printer, double Scale);
// Renders MapRect at RenderScale and draws it at DevPos (device pixels of the painter), DevPerPixel device
// pixels per rendered pixel.
void DrawMapRect(QPainter& Painter, double DevX, double DevY, TRect MapRect, double RenderScale,
                 double DevPerPixel, const TOutputRenderer& Render);
// Device pixels of the painter per rendered pixel when a rendered pixel is 1/Dpi inch (Dpi 96 for screen
// pixels).
double DevicePixelsPer(QPainter& Painter, double Dpi);
// The whole map (MapSize map pixels, Sources' image and pyramid) inside Area, as TGeoMap's
// CopyEntireMapToOpenPrinter documents; the scale used, 0 when nothing was drawn.
double DrawEntireMap(QPainter& Painter, TRect Area, double MaxScale, TSize MapSize, const TMapSources& Sources,
                     const TOutputRenderer& Render);

}  // namespace qv
