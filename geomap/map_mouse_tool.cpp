// TMapMouseTool: panning, rubber bands, zoom windows, drag zoom, selection rectangles, landmark placement,
// the mouse box, wheel, pinch and keyboard navigation, each rule written once over a TMapViewport.
#include <qvgeo/geomap/map_mouse_tool.h>

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/support/math_services.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qv {

namespace {

bool IsPanMode(TMouseActMode M) { return M == maPan || M == maPanHoriz || M == maPanVert; }

// Magnifications reached by wheel and pinch stay within these (control pixels per map pixel).
constexpr double MinGestureMag = 1.0 / 1024.0, MaxGestureMag = 1024.0;

TControlPixel Clamped(TControlPixel P, std::int32_t Lo, std::int32_t W, std::int32_t H)
{
    return {std::clamp(P.X, Lo, std::max(W, Lo)), std::clamp(P.Y, Lo, std::max(H, Lo))};
}

}  // namespace

bool TMouseToolResult::ViewChanged() const
{
    return std::any_of(Events.begin(), Events.end(),
                       [](const TMouseToolEvent& e) { return e.Action == TMouseToolAction::Repaint; });
}

// ---- figures and states --------------------------------------------------------------------------------

void TMapMouseTool::XorFigure(TMouseFigureKind Kind, TControlPixel A, TControlPixel B, TMouseToolResult& R)
{
    // A figure without pixels (an empty box, a line to its own start) changes nothing, so it is not kept.
    if (Kind == mfLine ? A == B : (A.X == B.X || A.Y == B.Y))
        return;
    const TMouseFigure f{Kind, A, B};
    const auto it = std::find(FFigures.begin(), FFigures.end(), f);
    if (it != FFigures.end())
        FFigures.erase(it);
    else
        FFigures.push_back(f);
    R.Toggled.push_back(f);
}

void TMapMouseTool::SetBoxState(TMouseBoxState State, TMouseToolResult& R)
{
    if (FMouseBoxState == 2 && State != 2)
        XorFigure(mfBox, FMouseBox1, FMouseBox2, R);  // erase the feedback box
    FMouseBoxState = State;
    TMouseToolEvent e = Ev(TMouseToolAction::MouseBoxState);
    e.BoxState = State;
    R.Events.push_back(e);
}

bool TMapMouseTool::WithinTolerance(TControlPixel A, TControlPixel B) const
{
    return FHitTolerance > 0 && std::abs(std::int64_t{B.X} - A.X) <= FHitTolerance &&
           std::abs(std::int64_t{B.Y} - A.Y) <= FHitTolerance;
}

void TMapMouseTool::AssignState(const TMapMouseTool& Source)
{
    FMouseAction = Source.FMouseAction;
    FLButtonWasDown = Source.FLButtonWasDown;
    FZoomState = Source.FZoomState;
    FMouseBoxState = Source.FMouseBoxState;
    FMouseBox1 = Source.FMouseBox1;
    FMouseBox2 = Source.FMouseBox2;
    FWindAnchor = Source.FWindAnchor;
    FWindOldCorner = Source.FWindOldCorner;
    FMouseAnchor = Source.FMouseAnchor;
    FTopLeftAnchor = Source.FTopLeftAnchor;
}

TMouseToolResult TMapMouseTool::Abort()
{
    TMouseToolResult r;
    FZoomState = 0;
    FSelectRectOn = false;
    FRubberBandOn = false;
    FLButtonWasDown = false;
    FPinching = false;
    if (FMouseBoxState != 0)
        SetBoxState(0, r);
    if (!FFigures.empty()) {
        FFigures.clear();
        r.FiguresCleared = true;
    }
    return r;
}

// ---- mouse box -----------------------------------------------------------------------------------------

bool TMapMouseTool::BeginMouseBox()
{
    if (FMouseBoxState != 0)
        return false;
    FMouseBoxState = 1;
    return true;
}

bool TMapMouseTool::MouseBoxResult(std::int32_t& X1, std::int32_t& Y1, std::int32_t& X2, std::int32_t& Y2) const
{
    if (FMouseBoxState != 3)
        return false;
    X1 = std::min(FMouseBox1.X, FMouseBox2.X);
    X2 = std::max(FMouseBox1.X, FMouseBox2.X);
    Y1 = std::min(FMouseBox1.Y, FMouseBox2.Y);
    Y2 = std::max(FMouseBox1.Y, FMouseBox2.Y);
    return true;
}

TMouseToolResult TMapMouseTool::EndMouseBox()
{
    TMouseToolResult r;
    SetBoxState(0, r);
    return r;
}

// ---- press ---------------------------------------------------------------------------------------------

TMouseToolResult TMapMouseTool::Press(TToolButton Button, TToolShiftState Shift, TControlPixel P)
{
    return PressBody(Button, Shift, P, false);
}

TMouseToolResult TMapMouseTool::DoubleClick(TToolButton Button, TToolShiftState Shift, TControlPixel P)
{
    return PressBody(Button, Shift, P, true);
}

TMouseToolResult TMapMouseTool::PressBody(TToolButton Button, TToolShiftState Shift, TControlPixel P, bool Double)
{
    TMouseToolResult r;
    const TMapPixel click = FView.ControlToMapImage(P);
    FLastMClickPos = click;
    const bool left = Button == TToolButton::Left;
    const TSize c = FView.ControlSize();

    if (FMouseBoxState == 1) {
        if (Button == TToolButton::Right) {
            SetBoxState(0, r);
        } else {
            FMouseBox1 = FMouseBox2 = P;  // the first corner, and the corner last drawn
            SetBoxState(2, r);
        }
    }
    // Inclusive bounds: a press on the pixel just beyond the right or bottom edge still starts a window.
    if (FMouseAction == maZoomWindow && FZoomState == 0 && left && P.X >= 0 && P.X <= c.cx && P.Y >= 0 &&
        P.Y <= c.cy) {
        FZoomState = 1;
        FWindAnchor = FWindOldCorner = P;
    }
    if (FMouseAction == maSelectRect && left) {
        FWindAnchor = FWindOldCorner = P;
        FSelectRectOn = true;
        r.Events.push_back(Ev(TMouseToolAction::BeginRubberBand, click));
    }
    if (FMouseAction == maRubberBand && left) {
        if (Shift.Ctrl && FRubberBandOn) {
            r.Events.push_back(Ev(TMouseToolAction::ContinueRubberBand, click));
            // The segment drawn so far stays shown; the next one starts here. Its end moves here as well,
            // so that the next move does not erase a line that was never drawn.
            FRubberBAnchor = FRubberBandOld = P;
            return r;
        }
        FRubberBandOn = !FRubberBandOn;
        if (FRubberBandOn) {
            r.Events.push_back(Ev(TMouseToolAction::BeginRubberBand, click));
            FRubberBAnchor = FRubberBandOld = P;
        } else {
            XorFigure(mfLine, FRubberBAnchor, FRubberBandOld, r);
            // The segments finished with Ctrl-clicks belong to the band and go with it.
            if (std::erase_if(FFigures, [](const TMouseFigure& f) { return f.Kind == mfLine; }) > 0)
                r.FiguresCleared = true;
            r.Events.push_back(Ev(TMouseToolAction::EndRubberBand, click));
        }
    }
    if (FMouseAction == maLandMark && left && !Double) {
        TCoords where;
        if (FCalib.CalcPosition(click.Point(), where)) {
            TMouseToolEvent e = Ev(TMouseToolAction::AddLandMark, click);
            e.V[0] = where.Latit;
            e.V[1] = where.Longit;
            r.Events.push_back(e);
        }
    }
    return r;
}

// ---- move ----------------------------------------------------------------------------------------------

TMouseToolResult TMapMouseTool::Move(TToolShiftState Shift, TControlPixel P)
{
    TMouseToolResult r;
    FLastMMousePos = FView.ControlToMapImage(P);
    const TSize c = FView.ControlSize();

    if (FMouseBoxState == 2) {
        const TControlPixel q = Clamped(P, 1, c.cx, c.cy);
        XorFigure(mfBox, FMouseBox1, FMouseBox2, r);
        XorFigure(mfBox, FMouseBox1, q, r);
        FMouseBox2 = q;
    }

    if (IsPanMode(FMouseAction) || FMouseAction == maDragZoom) {
        if (!Shift.LeftHeld) {
            FLButtonWasDown = false;
        } else if (!FLButtonWasDown) {
            // The first move of a drag anchors it.
            FMouseAnchor = P;
            FTopLeftAnchor = FView.TopLeft();
            FLButtonWasDown = true;
        } else if (P.X >= 0 && P.X <= c.cx && P.Y >= 0 && P.Y <= c.cy) {
            DragMove(P, r);
        }
    } else if (FMouseAction == maRubberBand) {
        if (FRubberBandOn) {
            XorFigure(mfLine, FRubberBAnchor, FRubberBandOld, r);
            XorFigure(mfLine, FRubberBAnchor, P, r);
            FRubberBandOld = P;
        }
    } else if ((FMouseAction == maZoomWindow && FZoomState == 1) ||
               (FMouseAction == maSelectRect && FSelectRectOn && Shift.LeftHeld)) {
        const TMouseFigureKind kind = FMouseAction == maZoomWindow ? mfBox : mfDottedBox;
        const TControlPixel q = Clamped(P, 0, c.cx, c.cy);
        XorFigure(kind, FWindAnchor, FWindOldCorner, r);
        XorFigure(kind, FWindAnchor, q, r);
        FWindOldCorner = q;
    }
    return r;
}

void TMapMouseTool::DragMove(TControlPixel P, TMouseToolResult& R)
{
    if (FMouseAction != maDragZoom) {
        FView.PanFrom(FTopLeftAnchor, FMouseAnchor, P, FMouseAction != maPanVert, FMouseAction != maPanHoriz);
        if (FConfinePan)
            FView.Confine();
    } else {
        // Deliberately not re-anchored: holding the pointer away from the anchor keeps zooming. Dragging up
        // zooms in, down zooms out; sideways motion counts a twentieth as much.
        const TSize c = FView.ControlSize();
        const double factor = 1.0 - ((static_cast<double>(FMouseAnchor.X) - P.X) / c.cx * 0.05 -
                                     (static_cast<double>(FMouseAnchor.Y) - P.Y) / c.cy);
        if (factor > 0.0 && std::isfinite(factor))
            FView.ZoomAboutCentre(factor);
    }
    Add(R, TMouseToolAction::Repaint);
    Add(R, TMouseToolAction::ZoomPan);
}

// ---- release -------------------------------------------------------------------------------------------

TMouseToolResult TMapMouseTool::Release(TToolButton Button, TToolShiftState, TControlPixel P)
{
    TMouseToolResult r;
    if (FMouseBoxState == 2) {
        if (Button == TToolButton::Right) {
            SetBoxState(0, r);
        } else {
            XorFigure(mfBox, FMouseBox1, FMouseBox2, r);
            FMouseBox2 = P;
            FMouseBoxState = 3;  // the box is already erased
            TMouseToolEvent e = Ev(TMouseToolAction::MouseBoxState);
            e.BoxState = 3;
            r.Events.push_back(e);
        }
    }
    if (FMouseAction == maSelectRect && FSelectRectOn)
        ReleaseSelect(P, r);

    if (FMouseAction == maZoomWindow && FZoomState == 1) {
        XorFigure(mfBox, FWindAnchor, FWindOldCorner, r);
        FZoomState = 0;
        // The corner last drawn, not the release position, which may lie outside the control.
        if (!WithinTolerance(FWindAnchor, FWindOldCorner) && FView.ZoomToBox(FWindAnchor, FWindOldCorner)) {
            Add(r, TMouseToolAction::Repaint);
            Add(r, TMouseToolAction::ZoomPan);
        }
    }

    if (IsPanMode(FMouseAction) || FMouseAction == maDragZoom) {
        // Without hover moves (touch input) no button-less move would end the drag before the next one.
        if (Button == TToolButton::Left)
            FLButtonWasDown = false;
        Add(r, TMouseToolAction::PushView);
    }
    return r;
}

void TMapMouseTool::ReleaseSelect(TControlPixel P, TMouseToolResult& R)
{
    FSelectRectOn = false;
    XorFigure(mfDottedBox, FWindAnchor, FWindOldCorner, R);
    if (WithinTolerance(FWindAnchor, P))
        return;
    const TMapPixel p1 = FView.ControlToMapImage({std::min(FWindAnchor.X, P.X), std::min(FWindAnchor.Y, P.Y)});
    const TMapPixel p2 = FView.ControlToMapImage({std::max(FWindAnchor.X, P.X), std::max(FWindAnchor.Y, P.Y)});
    bool v1 = false, v2 = false, v3 = false, v4 = false;
    const double lat1 = FCalib.CalcLatitude(p1.X, p1.Y, v1), long1 = FCalib.CalcLongitude(p1.X, p1.Y, v2);
    const double lat2 = FCalib.CalcLatitude(p2.X, p2.Y, v3), long2 = FCalib.CalcLongitude(p2.X, p2.Y, v4);
    TMouseToolEvent e = Ev(TMouseToolAction::SelectRect);
    if (v1 && v2 && v3 && v4) {
        e.SelectKind = 1;
        e.V[0] = lat1, e.V[1] = long1, e.V[2] = lat2, e.V[3] = long2;
    } else {
        e.SelectKind = 0;
        e.V[0] = p1.X, e.V[1] = p1.Y, e.V[2] = p2.X, e.V[3] = p2.Y;
    }
    R.Events.push_back(e);
}

// ---- wheel, pinch and keys -----------------------------------------------------------------------------

void TMapMouseTool::ZoomAtPoint(double X, double Y, double Factor, TMouseToolResult& R)
{
    if (FView.MapSize().cx <= 0 || !(Factor > 0.0) || !std::isfinite(Factor))
        return;
    FView.ZoomAboutPoint(X, Y, std::clamp(FView.Magnify() * Factor, MinGestureMag, MaxGestureMag));
    if (FConfinePan)
        FView.Confine();
    Add(R, TMouseToolAction::Repaint);
    Add(R, TMouseToolAction::ZoomPan);
}

TMouseToolResult TMapMouseTool::Wheel(std::int32_t Delta, double X, double Y)
{
    TMouseToolResult r;
    if (Delta == 0 || FView.MapSize().cx <= 0)
        return r;
    ZoomAtPoint(X, Y, std::pow(1.25, Delta / 120.0), r);
    Add(r, TMouseToolAction::PushView);
    r.Handled = true;
    return r;
}

TMouseToolResult TMapMouseTool::Pinch(double X, double Y, double Factor)
{
    TMouseToolResult r;
    FPinching = true;
    ZoomAtPoint(X, Y, Factor, r);
    r.Handled = true;
    return r;
}

TMouseToolResult TMapMouseTool::PinchEnd(bool Always)
{
    TMouseToolResult r;
    if (FPinching || Always) {
        Add(r, TMouseToolAction::PushView);
        r.Handled = true;
    }
    FPinching = false;
    return r;
}

TMouseToolResult TMapMouseTool::Key(TMapKey Key, TToolShiftState)
{
    TMouseToolResult r;
    if (FView.MapSize().cx <= 0 || Key == TMapKey::Other)
        return r;
    const double mag = FView.Magnify();
    const TSize c = FView.ControlSize();
    const std::int32_t stepX = std::max(1, RoundSaturated(c.cx / mag / 8));
    const std::int32_t stepY = std::max(1, RoundSaturated(c.cy / mag / 8));
    const TMapPixel tl = FView.TopLeft();
    switch (Key) {
    case TMapKey::Left: FView.SetTopLeft({RoundSaturated(double(tl.X) - stepX), tl.Y}); break;
    case TMapKey::Right: FView.SetTopLeft({RoundSaturated(double(tl.X) + stepX), tl.Y}); break;
    case TMapKey::Up: FView.SetTopLeft({tl.X, RoundSaturated(double(tl.Y) - stepY)}); break;
    case TMapKey::Down: FView.SetTopLeft({tl.X, RoundSaturated(double(tl.Y) + stepY)}); break;
    case TMapKey::ZoomIn: FView.ZoomAboutCentre(1.25); break;
    case TMapKey::ZoomOut: FView.ZoomAboutCentre(1.0 / 1.25); break;
    case TMapKey::Home: FView.FitPage(); break;
    case TMapKey::Other: break;
    }
    // The whole map after Home is within the view already; a pan or zoom step is confined like a drag.
    if (Key != TMapKey::Home && FConfinePan)
        FView.Confine();
    Add(r, TMouseToolAction::Repaint);
    Add(r, TMouseToolAction::PushView);
    Add(r, TMouseToolAction::ZoomPan);
    r.Handled = true;
    return r;
}

}  // namespace qv
