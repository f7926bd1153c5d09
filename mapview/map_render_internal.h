// Pieces of RenderMapView shared by its source files: the one clamp of control pixels handed to the canvas,
// and the graticule, grid and calibration-point step.
#pragma once

#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/bitmap_pyramid.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>

namespace qv::render_detail {

// A control-pixel coordinate (or a coordinate of a bitmap laid over the view: the scaled cache, a
// stretch's rectangles) as the canvas and bitmap calls receive it: rounded half to even and kept within
// +-2^30, so that no pixel arithmetic downstream (a rectangle's width, a pen's end point plus its width)
// overflows for positions far outside the map. Every pixel that can be seen is unchanged by the clamp.
inline std::int32_t CanvasCoord(double v)
{
    if (std::isnan(v))
        return 0;
    return static_cast<std::int32_t>(std::clamp(std::nearbyint(v), -1073741824.0, 1073741824.0));
}

// A map pixel's control pixel by the viewport's conversion, for the canvas.
inline TPoint CanvasPixel(const TMapViewport& View, TMapPixel P)
{
    const TControlPixel c = View.MapImageToControl(P);
    return {CanvasCoord(c.X), CanvasCoord(c.Y)};
}

// The map image of a view as levels read by window: the tiled Picture, or GrafBmp and its pyramid seen
// through a TBitmapPyramid that shares their pixels. Levels is null when there is no picture.
struct TMapPicture {
    const TImageSource* Levels = nullptr;
    bool Tiled = false;
    std::string_view Name;  // for messages
    std::unique_ptr<TBitmapPyramid> Own;
};
TMapPicture MapPicture(const TMapSources& Sources);

// The most pixels one read of a tiled map may ask for (512 MiB): a picture without reduced levels seen
// whole would otherwise be read whole, however large.
inline constexpr std::int64_t MaxTiledReadPixels = std::int64_t{1} << 27;

// Window of Level. For a tiled map above MaxTiledReadPixels, raises EXELImageError "\"<name>\": no
// reduced level small enough for this view (<W> x <H> pixels to read)" instead of reading.
TBitmap ReadLevelWindow(const TMapPicture& Picture, int Level, TRect Window);

// Stretches From (level pixels of Level, possibly beyond the level's edges) onto Onto of Target, reading
// only the part of From inside the level. The pixels are those of stretching the whole level bitmap:
// source pixels beyond the edges read as the nearest edge pixel in both. Nothing is drawn when From misses
// the level.
void StretchLevelWindow(TBitmap& Target, TRect Onto, const TMapPicture& Picture, int Level, TRect From,
                        TStretchMode Mode);

// The families of the graticule step's lines: a parallel's value is its latitude, a meridian's its
// longitude (degrees), a UTM grid line's its northing or easting (metres).
enum TGridFamily : std::uint8_t { gfLatitude, gfLongitude, gfNorthing, gfEasting };

// Receives the graticule step's lines as they are drawn: Begin for each line, then its points in canvas
// pixels in drawing order, Valid false where the pen lifts (P is then meaningless).
class TGridLineSink {
public:
    virtual ~TGridLineSink() = default;
    virtual void Begin(TGridFamily Family, double Value) = 0;
    virtual void Point(bool Valid, TPoint P) = 0;
};

// The lines the graticule step draws for Look.ShowGraticule and the fit's model, handed to Sink (a
// parabolic line's value is NaN when the fit has more lines than the record).
void TraceGridLines(TGridLineSink& Sink, const TMapViewport& View, const TMapSources& Sources,
                    const TMapAppearance& Look);

// Step 8: graticule or UTM grid in ColorGraticule and the calibration points, as ShowGraticule and the
// fit's model select. Uses and changes the canvas's pen colour only.
void DrawGraticuleAndPoints(TCanvas& Canvas, const TMapViewport& View, const TMapSources& Sources,
                            const TMapAppearance& Look);

}  // namespace qv::render_detail
