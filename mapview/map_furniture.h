// Map furniture drawn by the view over the map: the values of the graticule or UTM grid lines where they
// meet the view's edges, a scale bar and a north arrow. Everything is drawn into the frame at each paint
// (not baked into the map image), so it stays put at the edges while the map pans and zooms, and it comes
// with every output drawn through RenderMapView (the copy to a bitmap, the print).
//
// Units: control pixels (origin top-left, y down); degrees for graticule values, metres for UTM values
// and lengths. Sizes are for output at 96 dpi, where a control pixel is a screen pixel; Scale enlarges
// everything for an output whose pixels are finer (a poster rendered at twice the density: Scale 2).
#pragma once

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/platform/canvas.h>
#include <qvgeo/support/text.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

struct TMapSources;
struct TMapAppearance;

enum TFurnitureCorner : std::uint8_t { fcTopLeft, fcTopRight, fcBottomLeft, fcBottomRight };

// All off by default: a view without furniture is drawn exactly as before.
struct TFurnitureOptions {
    // Labels where the lines of the graticule step meet the view's edges (only lines that are drawn are
    // labelled): degrees in DegreeFormat with N/S/E/W, or UTM eastings and northings in kilometres.
    bool GridLabels = false;
    TDegreeFormat DegreeFormat = dfDegMinSec;
    bool ScaleBar = false;
    TFurnitureCorner ScaleBarCorner = fcBottomLeft;
    bool NorthArrow = false;
    TFurnitureCorner NorthArrowCorner = fcTopRight;
    // Grid labels are written in the graticule's colour; the scale bar and the north arrow in Color.
    // Everything gets a halo of HaloColor so that it reads over any map.
    TColor Color = 0x000000;
    TColor HaloColor = 0xFFFFFF;
    std::int32_t FontSize = 8;  // points at 96 dpi
    double Scale = 1.0;         // size factor for text, bar and arrow; within 0.25..8
};

enum TMapEdge : std::uint8_t { meTop, meBottom, meLeft, meRight };
// What a grid label gives: a parallel's latitude, a meridian's longitude (degrees), a UTM line's northing
// or easting (metres).
enum TGridValue : std::uint8_t { gvLatitude, gvLongitude, gvNorthing, gvEasting };

struct TEdgeLabel {
    TMapEdge Edge = meTop;
    // Where the drawn line meets the edge, control pixels (fractional: between the line's pixels). The
    // edges are those of the map's part of the view: the view's own where the map fills it, the map's
    // where the view shows all of it, so that a map seen whole is labelled round its border.
    double X = 0.0, Y = 0.0;
    TGridValue Kind = gvLatitude;
    double Value = 0.0;
    std::string Text;
    TRect Box;  // the text's place inside the view, control pixels
};

// The labels that fit: one per crossing of a drawn line with an edge (see TEdgeLabel), in the order the lines are drawn,
// each placed inside the view against its edge, beside its line (right of it on the top and bottom edges,
// above it on the left and right ones) where the view allows; a label
// whose box would come within 2 pixels of a box already placed or of one of Reserved is left out.
// Canvas measures the text (its font is set and left changed).
std::vector<TEdgeLabel> PlaceGridLabels(TCanvas& Canvas, const TMapViewport& View, const TMapSources& Sources,
                                        const TMapAppearance& Look, const std::vector<TRect>& Reserved = {});

// The text of a grid value: degrees without sign and with " N", " S", " E" or " W" (none on the equator,
// the prime meridian and 180°), as many decimals of the format's last unit as the value needs (up to 6);
// UTM values in kilometres with the decimals the value needs (up to 3).
std::string GridValueText(TGridValue Kind, double Value, TDegreeFormat Format);

// Geodesic distance in metres on the fit's ellipsoid (iterative inverse solution, sub-millimetre for all
// but nearly antipodal points, where it returns NaN rather than a wrong length).
double EllipsoidDistance(double Lat1, double Long1, double Lat2, double Long2, double a, double b);

// The ground length of one control pixel along the row through the view's centre: the geodesic between the
// map positions of two pixels about 100 control pixels apart on that row, through the calibration's
// transforms. NaN when the view has no calibrated model or the positions cannot be had.
double MetresPerControlPixel(const TMapViewport& View, const TMapSources& Sources);

struct TScaleBar {
    bool Valid = false;
    double Metres = 0.0;  // a round length: 1, 2 or 5 times a power of ten
    double Pixels = 0.0;  // its length on the view, along a row
    std::string Text;     // "500 m", "2 km", "0.5 m"
};
// The longest round length not above MaxPixels control pixels at the view's centre.
TScaleBar MeasureScaleBar(const TMapViewport& View, const TMapSources& Sources, double MaxPixels);

// The direction of true north at the view's centre (increasing latitude along the meridian) as a unit
// vector in control pixels (y down: north up the screen is (0, -1)); false when it cannot be had.
bool NorthDirection(const TMapViewport& View, const TMapSources& Sources, double& DX, double& DY);

// The furniture Look.Furniture asks for, over the map of View.
void DrawMapFurniture(TCanvas& Canvas, const TMapViewport& View, const TMapSources& Sources,
                      const TMapAppearance& Look);

}  // namespace qv
