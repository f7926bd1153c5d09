// TMapViewport: what a map view shows, without any widget. It holds the magnification (control pixels per
// map-image pixel), the map pixel at the control's top-left corner, the sizes of the control and of the
// map image, the device pixel ratio and the zoom history, and it is the one place where the view's rules
// are written: the two pixel conversions, confining the view to the map, centring, fitting and zooming
// about a point. The map widget owns one and translates its events into these calls; the renderer, the
// output functions and the mouse state machine read it.
//
// Rounding is to the nearest integer with ties to even; results that would leave the 32-bit range saturate
// (NaN gives 0), so a view far outside the map never overflows.
#pragma once

#include <qvgeo/support/geometry_types.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace qv {

// The range of the magnification. Every way of changing it ends inside it: a 4000-pixel control still
// shows a 260-million-pixel stretch of map at the smallest value, and a map pixel covers a 65536-pixel
// square at the largest, so no real use is cut off while a paint's arithmetic stays within 32-bit pixels.
inline constexpr double MinMagnification = 1.0 / 65536.0;
inline constexpr double MaxMagnification = 65536.0;
// Value limited to [MinMagnification, MaxMagnification]; NaN gives 1.
inline double ClampMagnification(double Value)
{
    return Value != Value ? 1.0 : std::clamp(Value, MinMagnification, MaxMagnification);
}

// A saved view: the top-left map pixel and the magnification. All zero means "no entry".
struct TgmZoomStackEntry {
    std::int32_t Left = 0;
    std::int32_t Top = 0;
    double MagF = 0.0;
    friend bool operator==(const TgmZoomStackEntry&, const TgmZoomStackEntry&) = default;
};

class TMapViewport {
public:
    // ---- state ----
    double Magnify() const { return FMagnify; }
    // Stored clamped to [MinMagnification, MaxMagnification]; false (nothing changed) for NaN, infinite and
    // non-positive values.
    bool SetMagnify(double Value);
    TMapPixel TopLeft() const { return FTopLeft; }
    void SetTopLeft(TMapPixel Value) { FTopLeft = Value; }
    // The control's size in control pixels (its logical size, before the device pixel ratio).
    TSize ControlSize() const { return FControl; }
    void SetControlSize(TSize Size) { FControl = Size; }
    // The map image's size in map pixels; 0 x 0 when there is no map.
    TSize MapSize() const { return FMap; }
    void SetMapSize(TSize Size) { FMap = Size; }
    bool HasMap() const { return FMap.cx > 0 && FMap.cy > 0; }
    // Device pixels per control pixel (1 on ordinary screens).
    double PixelRatio() const { return FPixelRatio; }
    void SetPixelRatio(double Value) { FPixelRatio = Value >= 1.0 && Value <= 8.0 ? Value : 1.0; }

    // ---- the two conversions ----
    // (Round(x / Magnify) + Left, Round(y / Magnify) + Top).
    TMapPixel ControlToMapImage(TControlPixel P) const;
    // (Round((x - Left) * Magnify), Round((y - Top) * Magnify)).
    TControlPixel MapImageToControl(TMapPixel P) const;
    // The map position (fractional map pixels) under a control position.
    double MapXAt(double ControlX) const { return FTopLeft.X + ControlX / FMagnify; }
    double MapYAt(double ControlY) const { return FTopLeft.Y + ControlY / FMagnify; }

    // ---- the view's rules ----
    // Half the view in map pixels, rounded: Round(control width / Magnify / 2), the same for the height.
    TMapOffset HalfView() const;
    // The map pixel at the view's centre: TopLeft + HalfView().
    TMapPixel Centre() const { return FTopLeft + HalfView(); }
    // Moves TopLeft so that the view does not run past the map's right or bottom edge, then not past its
    // left or top edge: background beyond the right or bottom shows only when the whole map is narrower
    // or lower than the view.
    void Confine();
    // TopLeft := P - HalfView(), then Confine.
    void CentreOn(TMapPixel P);
    // TopLeft := P - HalfView(), limited so that the view stays on the map where it can (left at most
    // map width - 2 x half width, at least 0; the same for top), without Confine's rounding.
    void CentreOnWithin(TMapPixel P);
    // The whole map in the control: Magnify := min(control width / map width, control height / map
    // height) (a control of no size gets the smallest magnification), TopLeft := (0, 0). False without a
    // map.
    bool FitPage();
    // Multiplies the magnification by Factor keeping the view's centre (Centre(), rounded half views before
    // and after).
    void ZoomAboutCentre(double Factor);
    // Sets the magnification to Mag keeping the map position under the control position (X, Y) there.
    void ZoomAboutPoint(double X, double Y, double Mag);
    // The zoom-window rule: the box between two control pixels fills the control, its longer side in map
    // pixels deciding the magnification, its centre becoming the view's centre. False (nothing changed)
    // when the box has no width or no height in map pixels.
    bool ZoomToBox(TControlPixel A, TControlPixel B);
    // The keyboard's pan step: a Parts-th of the view in map pixels, Round(control size / Magnify / Parts),
    // at least 1 in each axis.
    TMapOffset PanStep(double Parts) const;
    // TopLeft moved by D map pixels, saturating at the 32-bit range instead of wrapping (a view far out
    // keeps its place at the limit).
    void PanBy(TMapOffset D);
    // A pan drag: TopLeft := Anchor + Round((Press - Now) / Magnify) in the axes that move.
    void PanFrom(TMapPixel AnchorTopLeft, TControlPixel Press, TControlPixel Now, bool Horizontal, bool Vertical);

    // ---- the zoom history: a ring of 16 saved views ----
    // Writes the current view into the next slot (the oldest is overwritten without notice).
    void PushView();
    // n = 0 is the newest pushed view, -1 the one before ... -15; other n give an entry of zeros.
    TgmZoomStackEntry HistoryEntry(std::int32_t n) const;
    // Restores the view of HistoryEntry(n); false (nothing changed) for n outside -15..0 or an all-zero
    // entry. The history does not move: going back is not a pop.
    bool RestoreView(std::int32_t n);
    // All entries zero, the write position at slot 1.
    void ClearHistory();
    std::int32_t HistoryPos() const { return FZStackPoi; }  // the next slot to write, 1..16

private:
    double FMagnify = 1.0;
    TMapPixel FTopLeft;
    TSize FControl;
    TSize FMap;
    double FPixelRatio = 1.0;
    std::array<TgmZoomStackEntry, 16> FZoomStack{};
    std::int32_t FZStackPoi = 1;
};

}  // namespace qv
