// Readable landmarks: captions placed so that they never overprint each other or another landmark's
// symbol, classes shown only within a range of magnification, halos around caption text, and one scale
// factor for symbols and caption fonts. Everything here is off in a default TLabelOptions, and then the map
// draws its landmarks exactly as it always has.
//
// Placement. Each landmark whose class is visible and whose class range holds the magnification gets a
// symbol box (its symbol's pixels with their one-pixel halo) and, when it has a caption, up to nine
// candidate caption boxes tried in order: the caption's own anchor (dx, dy, alignments, direction, as the
// map always places it), then right of the symbol, left, above, below, and the four diagonal corners
// (captions turned by a direction other than 0 have only their own anchor). Landmarks are taken by
// priority: ClassPriority of their class (higher first), then the lower class number, then, when
// TagIsPriority, the higher Tag, then the lower number in the store. A caption takes the first candidate
// that covers no caption placed before it and no symbol but its own; a caption that fits nowhere is left
// out and its symbol stays. Boxes include the halo.
//
// Stable while panning: placement works in the map image scaled by the magnification (a landmark's place
// there is floor(map pixel x magnification)), not in the view, over every landmark of the store and not
// just those in view, so at one magnification what is placed and where does not depend on the pan. Boxes
// there are kept one pixel apart, which absorbs the view's rounding (a control point is the scaled place
// minus the view's offset, rounded: two landmarks' relative positions move by at most one pixel), so
// boxes placed apart are apart on the screen too. The result is kept until the magnification, the options
// or the landmarks change; a pan only looks it up. When the scaled landmarks spread over more than
// LabelDomainPixels in either direction, placement covers a square of that size around the view, fixed to
// a lattice of half its size, so a pan keeps it until the view's centre crosses a lattice line, and
// landmarks in the view are at least a quarter of it away from its edges.
//
// Scale. Scale multiplies symbol sizes and lengths, caption font sizes and caption offsets (rounded to
// whole pixels and points), for high-density screens and readable maps.
#pragma once

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/platform/canvas.h>

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace qv {

// Magnifications (control pixels per map pixel) at which a class shows: Min <= magnification < Max. The
// half-open range lets one class hand over to another at a single magnification without both showing.
struct TMagRange {
    double Min = 0.0;
    double Max = std::numeric_limits<double>::infinity();
    bool Holds(double Mag) const { return Mag >= Min && Mag < Max; }
    bool operator==(const TMagRange&) const = default;
};

struct TLabelOptions {
    bool Placement = false;          // collision-free captions
    double Scale = 1.0;              // symbols and caption fonts; taken within [0.25, 8]
    std::int32_t HaloWidth = 0;      // pixels of outline around caption text, 0 = none; at most 8
    TColor HaloColor = 0xFFFFFF;     // usually the map's background
    bool TagIsPriority = false;      // the landmark's Tag ranks captions within a class (higher first)
    std::array<std::int32_t, 256> ClassPriority{};  // higher first
    std::array<TMagRange, 256> ClassRange{};        // where each class shows
    bool operator==(const TLabelOptions&) const = default;

    // Whether anything differs from the map's plain drawing.
    bool Active() const;
    double EffectiveScale() const;
    std::int32_t EffectiveHalo() const;
};

// Placed landmarks span at most this many pixels of the scaled map either way.
inline constexpr std::int64_t LabelDomainPixels = 65536;

// A landmark as the view shows it: its number in the store (0-based), control point, symbol box and, when
// its caption was placed, the caption's text origin and box (control pixels, right and bottom exclusive).
struct TPlacedLandMark {
    std::int32_t Index = 0;
    TPoint Point;
    TRect SymbolBox;
    bool CaptionPlaced = false;
    std::int32_t Candidate = -1;  // 0 = the caption's own anchor
    TPoint CaptionOrigin;
    TRect CaptionBox;
};

// Caption extents, priorities, scaled positions and the placement of the last magnification, kept between
// paints; and sprites of haloed captions.
class TLabelCache {
public:
    TLabelCache();
    TLabelCache(const TLabelCache&) = delete;
    TLabelCache& operator=(const TLabelCache&) = delete;
    ~TLabelCache();
    std::uint64_t Placements() const;  // times a placement was computed (tests see a pan reuse one)
    struct TImpl;
    TImpl& Impl() { return *FImpl; }

private:
    std::unique_ptr<TImpl> FImpl;
};

// The landmarks of Store that View shows under Options, with their boxes: those whose class is visible and
// holds the magnification and whose control point lies strictly inside the view (as the map draws them),
// in the store's order. Without Placement every caption sits at its own anchor.
std::vector<TPlacedLandMark> PlaceLandMarks(const TMapViewport& View, const TLandMarkStore& Store,
                                            const TCalibFit& Fit, const TLabelOptions& Options, TLabelCache& Cache);

// The symbol's pixels at P, with its halo, as DrawLandMarkSymbolOnCanvas draws them (right and bottom
// exclusive).
TRect SymbolBox(TPoint P, const TSymbolProperties& Props);
// The caption boxes (halo included) tried for a caption of the given text extent beside a symbol box Sym,
// both relative to the landmark's control point, in the order they are tried. The first, the caption's
// own anchor, may lie a pixel off where the point's parity rounds it.
std::vector<TRect> CaptionCandidateBoxes(const TLMTextProperties& Caption, TSize Extent, const TRect& Sym,
                                         std::int32_t Halo, bool Placement);
// Props with sizes multiplied by Scale; a caption's font size and offsets likewise.
TSymbolProperties ScaledSymbol(const TSymbolProperties& Props, double Scale);
TLMTextProperties ScaledCaption(const TLMTextProperties& Caption, double Scale);

// Draws Caption's text at its top-left Origin (CaptionOrigin's result), first outlined by Halo pixels of
// HaloColor (every pixel within Halo of a text or background pixel, a round pen), then the text as
// DrawLandMarkCaption draws it. Halo 0 draws exactly what DrawLandMarkCaption draws.
void DrawHaloCaption(TCanvas& Canvas, TPoint Origin, const TLMTextProperties& Caption, std::int32_t Halo,
                     TColor HaloColor, TLabelCache* Cache = nullptr);

// The map's scale at the view's centre: metres of ground per control pixel (the mean of the scale along a
// row and down a column, from the calibration's transform, on the WGS 84 ellipsoid's radii of curvature),
// and the scale denominator on a screen of Dpi pixels per inch. 0 when the fit cannot place the centre.
double ViewMetresPerPixel(const TMapViewport& View, const TCalibFit& Fit);
inline double ScaleDenominator(double MetresPerPixel, double Dpi = 96.0)
{
    return Dpi > 0 ? MetresPerPixel / (0.0254 / Dpi) : 0.0;
}

}  // namespace qv
