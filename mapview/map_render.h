// The map view's picture: RenderMapView draws one frame of a map view into its screen bitmap (AuxBmp),
// in the fixed order the map control documents — background, the visible part of the map image (through
// the scaled-image cache), the application's data, graticule or UTM grid, calibration points, landmarks
// with symbols and captions, the highlighted landmark, the map furniture when asked for (map_furniture.h),
// the frame. It reads a TMapViewport (what is seen), the sources (image, calibration, landmarks) and the
// appearance; TGeoMap owns them and calls it from Paint, its output functions (map_output.h), geotool,
// tests and benchmarks call it without a widget.
//
// Units: control pixels (origin top-left, y down) for the view; map-image pixels for TopLeft; degrees for
// positions; Magnify is control pixels per map pixel.
#pragma once

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_furniture.h>
#include <qvgeo/mapview/map_labels.h>
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/canvas.h>
#include <qvgeo/platform/frame.h>
#include <qvgeo/platform/image_source.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace qv {

// What the graticule step draws. Ordinals are those of the published ShowGraticule property.
enum TShowGrat : std::uint8_t { sgNone, sgLines, sgPoints, sgPointsAndLines, sgUTMGrid, sgPointsAndUTMGrid };

// Images above this many pixels (the documented size limit, which users may raise) count as large: the
// map control keeps a pyramid of halved copies for them, and the renderer may draw them without the
// scaled cache. Images within it are drawn exactly by the documented cache rule.
inline constexpr std::int64_t LargeMapPixels = 3000000;
// On a large map the scaled cache is not built when it would hold more than this many times the view's
// pixels: a 100-megapixel map at magnification 0.39 would need a 15-megapixel cache for a 2-megapixel
// view. Building reads a pyramid level up to 4 times the cache's size, so the limit keeps a zoom step near
// the cost of a direct stretch (at 4 times the view it would be up to 16 view-sizes of pixels).
inline constexpr std::int64_t MaxCacheViewRatio = 2;

// The scaled copy of the map image kept between paints, and the counters tests use to see the cache rule
// at work. Magnification 0 means "no valid cache"; the map control invalidates it on image load/resize.
struct TMapImageCache {
    TBitmap Image;              // FImgCache
    double Mag = 0.0;           // FCacheMag
    bool AntiAlias = true;      // FCacheAA
    std::uint64_t CacheBuilds = 0;     // times the whole map was scaled into Image
    // Paints that stretched the visible rectangle from the map image or, on a large map, a pyramid level.
    std::uint64_t DirectStretches = 0;
    // Paints of a tiled map whose source could not be read (the map area then shows the background), and
    // the reader's message of the last one.
    std::uint64_t ReadFailures = 0;
    std::string LastReadError;
    void Invalidate() { Mag = 0.0; }
};

// How the view is drawn: the published appearance properties of the map control, kept together so that
// the control holds them as one member and hands them to the renderer as they are.
struct TMapAppearance {
    TColor ColorBackGnd = 0xC0C0C0, ColorFrame = 0x000000, ColorGraticule = 0xFF0000, ColorCalibPoints = 0x0000FF;
    TColor ColBlackLine = 0x000000, ColGrayLine = 0x808080, ColWhiteLine = 0xFFFFFF;
    TFrameStyle FrameStyle = static_cast<TFrameStyle>(1);
    std::string EmptyMsg = "GeoMap: empty";
    TShowGrat ShowGraticule = sgNone;
    double GratLineDist = 0.0;      // degrees, 0 = automatic
    std::int32_t UTMGridDist = 0;   // metres, 0 = automatic
    bool AntiAlias = true;
    double CacheMagLimit = 2.0 / 3.0;
    std::int32_t LMRandSampleLimit = 20000;
    // Grid labels at the view's edges, scale bar, north arrow: drawn after the landmarks, under the frame.
    TFurnitureOptions Furniture;
    // Collision-free captions, declutter by scale, halos, symbol and caption scale (map_labels.h); all off
    // by default, and then landmarks are drawn as documented.
    TLabelOptions Labels;
};

// What a view shows: the map image and its pyramid, the calibration, the landmarks. The pointers must stay
// valid for the call; a null calibration or landmark store draws no graticule or landmarks.
struct TMapSources {
    std::string_view MapImgName;         // empty: the empty-map picture
    const TBitmap* GrafBmp = nullptr;    // the map image at its own size
    // Copies of GrafBmp halved 1, 2, 3 and 4 times (2x2 averages, sizes rounded up), or null. The map
    // control makes them only for images above 3 000 000 pixels (a limit users may raise), so a map within
    // the documented limit has none and is drawn exactly as documented. When rebuilding the scaled cache
    // (step 6.1), stretch all of the level MapPyramidLevel picks into it instead of all of GrafBmp: the
    // same picture, from up to 256 times fewer pixels. A large map's direct stretch uses them too (see
    // RenderMapView). The renderer reads GrafBmp and these through a TBitmapPyramid sharing their pixels.
    std::array<const TBitmap*, 4> PyramidLevels{};
    // A map held tiled (GrafBmp null or empty): the picture read by window and level, usually through a
    // TTileCache. It is drawn as a large map is, from the level with a pixel per control pixel, reading
    // only the window the view needs.
    const TImageSource* Picture = nullptr;
    const TCalibData* CalibData = nullptr;
    const TCalibFit* Fit = nullptr;      // the fitted model (its Model is the map's CalibModel)
    const TLandMarkStore* LandMarks = nullptr;
    bool Designing = false;              // component state "designing": the empty-map picture
    bool Visible = true;
};

// The render events, called with AuxBmp's canvas; the map control binds itself as the sender. APoint is
// the landmark's control pixel (as the canvas receives it: within +-2^30).
struct TMapRenderEvents {
    std::function<void(TCanvas& Canvas)> OnBeforeRenderData;
    std::function<void(bool& Handled, TCanvas& Canvas, TPoint APoint, const TLandMark& LandMarkData)> OnDrawLandmark;
    std::function<void(TCanvas& Canvas)> OnDataRendered;
};

// The level of Picture to draw from at magnification Mag: the smallest level that still has at least as
// many pixels across as the scaled map (width x Mag); 0 for the picture itself. Map coordinates go to the
// level's by dividing by its LevelScale across and LevelScaleY down (exactly 2^k for halved copies, any
// ratio for a file's own reduced levels).
int MapPyramidLevel(const TImageSource& Picture, double Mag);

// The map image's size: GrafBmp's when it holds a picture, else Picture's (a tiled map), else 0 x 0.
TSize MapPictureSize(const TMapSources& Sources);

// Caches that live as long as the map view and make repeated paints cheap: symbol sprites and caption
// sprites (keyed by text, font, colours and direction). Their output is pixel-identical to drawing directly.
// The class stays incomplete outside the renderer, so the pointer's deleter is a function the renderer
// defines (a plain std::unique_ptr would need the complete type wherever an owner is destroyed).
class TMapRenderCaches;
struct TMapRenderCachesDeleter {
    void operator()(TMapRenderCaches* Caches) const noexcept;
};
using TMapRenderCachesPtr = std::unique_ptr<TMapRenderCaches, TMapRenderCachesDeleter>;
TMapRenderCachesPtr MakeMapRenderCaches();

// Draws one frame of View (its control size W x H, magnification and top-left map pixel) into AuxBmp
// (grown, never shrunk, to at least W x H) following the documented steps; Cache is used and updated by
// the cache rule. Caches may be null (everything drawn directly). Needs no widget: only what QImage's text
// drawing needs (a QGuiApplication, the offscreen platform will do).
//
// The cache rule on a large map (above LargeMapPixels, or held tiled; smaller maps follow the documented
// rule exactly):
// below CacheMagLimit the whole map is scaled into the cache as usual, unless that cache would hold more
// than MaxCacheViewRatio times the view's pixels; then, as above CacheMagLimit, the visible rectangle is
// stretched straight onto the view, from the pyramid level MapPyramidLevel picks rather than from GrafBmp
// (only the level's window under the view is read: a tiled map reads just the tiles it needs).
// The level's rectangle is whole level pixels around the visible one, placed where those pixels fall on
// the view (half a control pixel at most from the exact place), so the picture stays under the graticule
// and landmarks. Averaging 2^k x 2^k blocks first softens detail finer than a control pixel slightly.
void RenderMapView(const TMapViewport& View, const TMapSources& Sources, const TMapAppearance& Look,
                   TBitmap& AuxBmp, TMapImageCache& Cache, TMapRenderCaches* Caches = nullptr,
                   const TMapRenderEvents& Events = {});

// The frame of a high-density screen (View's PixelRatio above 1, fractional ratios included): Screen
// becomes ceil(W x ratio) x ceil(H x ratio) device pixels whose map image is stretched from the map itself
// (from the smallest pyramid level, or tiled map level, with a pixel per device pixel, reading only the
// visible window), and everything drawn over the map
// (graticule, landmarks, events, frame) is taken from AuxBmp, the W x H picture RenderMapView drew: a
// device pixel shows its control pixel wherever AuxBmp differs there from MapOnly (AuxBmp as it stood
// before anything was drawn over the map). Without MapOnly the whole frame comes from AuxBmp.
void RenderDeviceFrame(TBitmap& Screen, const TBitmap& AuxBmp, const TBitmap* MapOnly, const TMapViewport& View,
                       const TMapSources& Sources, const TMapAppearance& Look);

}  // namespace qv
