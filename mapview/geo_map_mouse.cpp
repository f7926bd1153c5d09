// TGeoMap: the mouse. Panning, rubber bands, zoom windows, drag zoom, selection rectangles, landmark
// placement and the modal MouseBox, with their exclusive-or feedback figures; beyond those the wheel and
// pinch zoom, the hit tolerance and the mode's cursor.
//
// The handlers work in control pixels (X, Y as Qt delivers them, floored) and keep their positions in the
// documented fields. Feedback figures are not drawn here: XorFigure toggles a figure in FFigures and
// schedules an update, and paintEvent draws the figures over the frame in exclusive-or, so that a pan is
// the only thing that re-renders the map while the mouse moves.
#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/cursors.h>
#include <qvgeo/platform/message_pump.h>

#include <QGestureEvent>
#include <QNativeGestureEvent>
#include <QPinchGesture>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace qv {

namespace {

// Round half to even, saturated to the 32-bit range (NaN gives 0): the calibration's own rounding.
inline std::int32_t RoundI(double V) { return calib_detail::RoundPixelSaturated(V); }

bool IsPanMode(TMouseActMode M) { return M == maPan || M == maPanHoriz || M == maPanVert; }

// Magnifications reached by wheel and pinch stay within these (control pixels per map pixel).
constexpr double MinGestureMag = 1.0 / 1024.0, MaxGestureMag = 1024.0;

}  // namespace

void TGeoMap::InitMouse()
{
    SetPinchZoom(FPinchZoom);
    UpdateModeCursor();
}

// ---- properties ----------------------------------------------------------------------------------------

void TGeoMap::SetMouseAction(TMouseActMode Value)
{
    FMouseAction = Value;
    UpdateModeCursor();
}

void TGeoMap::SetPinchZoom(bool Value)
{
    FPinchZoom = Value;
    if (Value)
        grabGesture(Qt::PinchGesture);
    else
        ungrabGesture(Qt::PinchGesture);
}

void TGeoMap::SetModeCursor(bool Value)
{
    FModeCursor = Value;
    if (Value)
        UpdateModeCursor();
    else
        unsetCursor();
}

void TGeoMap::UpdateModeCursor()
{
    if (!FModeCursor)
        return;
    TCursor c = crDefault;
    if (FMouseBoxLoop) {
        c = crCross;
    } else {
        switch (FMouseAction) {
        case maPan:
        case maPanHoriz:
        case maPanVert: c = crGeoHand; break;
        case maRubberBand: c = crCross; break;
        case maZoomWindow: c = crGeoZoomWindow; break;
        case maDragZoom: c = crGeoZoom; break;
        case maSelectRect: c = crGeoSelect; break;
        case maLandMark: c = crGeoLandMark; break;
        default: break;
        }
    }
    setCursor(GetCursor(c));
}

std::int32_t TGeoMap::EffectiveHitTolerance() const
{
    return RoundI(FHitTolerance * EffectivePixelRatio());
}

// ---- feedback figures ----------------------------------------------------------------------------------

void TGeoMap::XorFigure(TMouseFigureKind Kind, std::int32_t X1, std::int32_t Y1, std::int32_t X2, std::int32_t Y2)
{
    // A figure without pixels (an empty box, a line to its own start) changes nothing, so it is not kept.
    if (Kind == mfLine ? (X1 == X2 && Y1 == Y2) : (X1 == X2 || Y1 == Y2))
        return;
    const TMouseFigure f{Kind, {X1, Y1}, {X2, Y2}};
    // Exclusive-or: a figure drawn while it is shown comes off, otherwise it goes on.
    const auto it = std::find(FFigures.begin(), FFigures.end(), f);
    if (it != FFigures.end())
        FFigures.erase(it);
    else
        FFigures.push_back(f);
    const QRect box = QRect(QPoint(X1, Y1), QPoint(X2, Y2)).normalized().adjusted(-1, -1, 1, 1);
    update(box);
}

void TGeoMap::DrawMouseFigures(TBitmap& Frame, double Ratio) const
{
    TCanvas& c = Frame.Canvas();
    const TPen pen = c.Pen;
    const TBrush brush = c.Brush;
    const auto s = [Ratio](std::int32_t v) { return Ratio == 1.0 ? v : RoundI(v * Ratio); };
    c.Brush.Style = bsClear;
    for (const TMouseFigure& f : FFigures) {
        c.Pen = TPen{0xFFFFFF, 1, f.Kind == mfDottedBox ? psDot : psSolid, pmXor};
        if (f.Kind == mfLine) {
            c.MoveTo(s(f.A.X), s(f.A.Y));
            c.LineTo(s(f.B.X), s(f.B.Y));
        } else {
            c.Rectangle(s(f.A.X), s(f.A.Y), s(f.B.X), s(f.B.Y));
        }
    }
    c.Pen = pen;
    c.Brush = brush;
}

// ---- mouse box -----------------------------------------------------------------------------------------

void TGeoMap::SetMouseBoxState(TMouseBoxState State)
{
    if (FMouseBoxState == 2 && State != 2)
        XorFigure(mfBox, FMouseBoxX1, FMouseBoxY1, FMouseBoxX2, FMouseBoxY2);  // erase the feedback box
    FMouseBoxState = State;
    if ((State == 0 || State == 3) && FMouseBoxLoop)
        FMouseBoxLoop->Quit();
}

bool TGeoMap::MouseBox(std::int32_t& X1, std::int32_t& Y1, std::int32_t& X2, std::int32_t& Y2)
{
    if (FMouseBoxLoop || FMouseBoxState != 0)
        return false;
    const TMouseActMode saved = FMouseAction;
    TModalLoop loop;
    FMouseBoxLoop = &loop;
    SetMouseAction(maNone);
    FMouseBoxState = 1;
    loop.Run();  // the handlers and MouseBoxAbort quit it when the state reaches 3 or 0
    FMouseBoxLoop = nullptr;
    const bool done = FMouseBoxState == 3;
    if (done) {
        X1 = std::min(FMouseBoxX1, FMouseBoxX2);
        X2 = std::max(FMouseBoxX1, FMouseBoxX2);
        Y1 = std::min(FMouseBoxY1, FMouseBoxY2);
        Y2 = std::max(FMouseBoxY1, FMouseBoxY2);
    }
    SetMouseBoxState(0);
    SetMouseAction(saved);
    return done;
}

void TGeoMap::MouseBoxAbort()
{
    SetMouseBoxState(0);
}

// ---- the handlers --------------------------------------------------------------------------------------

void TGeoMap::ResetMouseState()
{
    FZoomState = 0;
    FSelectRectOn = false;
    FRubberBandOn = false;
    FLButtonWasDown = false;
    FPinching = false;
    if (FMouseBoxState != 0)
        SetMouseBoxState(0);
    if (!FFigures.empty()) {
        FFigures.clear();
        update();
    }
}

void TGeoMap::MouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    try {
        MouseDownBody(Button, Shift, X, Y);
    } catch (...) {
        ResetMouseState();
        throw;
    }
}

void TGeoMap::MouseMove(TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    try {
        MouseMoveBody(Shift, X, Y);
    } catch (...) {
        ResetMouseState();
        throw;
    }
}

void TGeoMap::MouseUp(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    try {
        MouseUpBody(Button, Shift, X, Y);
    } catch (...) {
        ResetMouseState();
        throw;
    }
}

void TGeoMap::MouseDownBody(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    const TPoint click = ControlToMapImage({X, Y});
    FLastMClickPosX = click.X;
    FLastMClickPosY = click.Y;

    if (FMouseBoxState == 1) {
        if (Button == mbRight) {
            SetMouseBoxState(0);
        } else {
            FMouseBoxX1 = FMouseBoxX2 = X;  // the first corner, and the corner last drawn
            FMouseBoxY1 = FMouseBoxY2 = Y;
            SetMouseBoxState(2);
        }
    }
    // Inclusive bounds: a press on the pixel just beyond the right or bottom edge still starts a window.
    if (FMouseAction == maZoomWindow && FZoomState == 0 && Button == mbLeft && X >= 0 && X <= width() && Y >= 0 &&
        Y <= height()) {
        FZoomState = 1;
        FWindAnchorX = FWindOldCornerX = X;
        FWindAnchorY = FWindOldCornerY = Y;
    }
    if (FMouseAction == maSelectRect && Button == mbLeft) {
        FWindAnchorX = FWindOldCornerX = X;
        FWindAnchorY = FWindOldCornerY = Y;
        FSelectRectOn = true;
        if (OnBeginRubberBand)
            OnBeginRubberBand(*this, click.X, click.Y);
    }
    if (FMouseAction == maRubberBand && Button == mbLeft) {
        if (Shift.Contains(ssCtrl) && FRubberBandOn) {
            if (OnContinueRubberBand)
                OnContinueRubberBand(*this, click.X, click.Y);
            // The segment drawn so far stays shown; the next one starts here. Its end moves here as well,
            // so that the next move does not erase a line that was never drawn.
            FRubberBAnchorX = FRubberBandOldX = X;
            FRubberBAnchorY = FRubberBandOldY = Y;
            TCustomControl::MouseDown(Button, Shift, X, Y);
            return;
        }
        FRubberBandOn = !FRubberBandOn;
        if (FRubberBandOn) {
            if (OnBeginRubberBand)
                OnBeginRubberBand(*this, click.X, click.Y);
            FRubberBAnchorX = FRubberBandOldX = X;
            FRubberBAnchorY = FRubberBandOldY = Y;
        } else {
            XorFigure(mfLine, FRubberBAnchorX, FRubberBAnchorY, FRubberBandOldX, FRubberBandOldY);
            // The segments finished with Ctrl-clicks belong to the band and go with it.
            std::erase_if(FFigures, [](const TMouseFigure& f) { return f.Kind == mfLine; });
            update();
            if (OnEndRubberBand)
                OnEndRubberBand(*this, click.X, click.Y);
        }
    }
    if (FMouseAction == maLandMark && Button == mbLeft && !Shift.Contains(ssDouble)) {
        TCoords where;
        if (FCalib.CalcPosition(click, where))
            FLandMarks.AddLandMark(where.Latit, where.Longit, FLandMarks.DefaultLandMark().Altitude);
    }
    TCustomControl::MouseDown(Button, Shift, X, Y);
}

void TGeoMap::MouseMoveBody(TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    const TPoint at = ControlToMapImage({X, Y});
    FLastMMousePosX = at.X;
    FLastMMousePosY = at.Y;
    const std::int32_t W = width(), H = height();

    if (FMouseBoxState == 2) {
        const std::int32_t x = std::clamp(X, 1, std::max(W, 1)), y = std::clamp(Y, 1, std::max(H, 1));
        XorFigure(mfBox, FMouseBoxX1, FMouseBoxY1, FMouseBoxX2, FMouseBoxY2);
        XorFigure(mfBox, FMouseBoxX1, FMouseBoxY1, x, y);
        FMouseBoxX2 = x;
        FMouseBoxY2 = y;
    }

    const bool left = Shift.Contains(ssLeft);
    if (IsPanMode(FMouseAction) || FMouseAction == maDragZoom) {
        if (!left) {
            FLButtonWasDown = false;
        } else if (!FLButtonWasDown) {
            // The first move of a drag anchors it.
            MouseAnchorX = X;
            MouseAnchorY = Y;
            FTopLeftXAnchor = TopLeft().X;
            FTopLeftYAnchor = TopLeft().Y;
            FLButtonWasDown = true;
        } else if (X >= 0 && X <= W && Y >= 0 && Y <= H) {
            if (FMouseAction != maDragZoom) {
                SizedView().PanFrom({FTopLeftXAnchor, FTopLeftYAnchor}, {MouseAnchorX, MouseAnchorY}, {X, Y},
                                    FMouseAction != maPanVert, FMouseAction != maPanHoriz);
                if (FConfinePan)
                    PanMapToFillWindow();
            } else {
                // Deliberately not re-anchored: holding the pointer away from the anchor keeps zooming.
                const double factor = 1.0 - ((static_cast<double>(MouseAnchorX) - X) / W * 0.05 -
                                             (static_cast<double>(MouseAnchorY) - Y) / H);
                if (factor > 0.0 && std::isfinite(factor))
                    SizedView().ZoomAboutCentre(factor);
            }
            Paint();
            DoZoomPanEvent();
        }
    } else if (FMouseAction == maRubberBand) {
        if (FRubberBandOn) {
            XorFigure(mfLine, FRubberBAnchorX, FRubberBAnchorY, FRubberBandOldX, FRubberBandOldY);
            XorFigure(mfLine, FRubberBAnchorX, FRubberBAnchorY, X, Y);
            FRubberBandOldX = X;
            FRubberBandOldY = Y;
        }
    } else if ((FMouseAction == maZoomWindow && FZoomState == 1) ||
               (FMouseAction == maSelectRect && FSelectRectOn && left)) {
        const TMouseFigureKind kind = FMouseAction == maZoomWindow ? mfBox : mfDottedBox;
        const std::int32_t x = std::clamp(X, 0, std::max(W, 0)), y = std::clamp(Y, 0, std::max(H, 0));
        XorFigure(kind, FWindAnchorX, FWindAnchorY, FWindOldCornerX, FWindOldCornerY);
        XorFigure(kind, FWindAnchorX, FWindAnchorY, x, y);
        FWindOldCornerX = x;
        FWindOldCornerY = y;
    }
    TCustomControl::MouseMove(Shift, X, Y);
}

void TGeoMap::MouseUpBody(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    TCustomControl::MouseUp(Button, Shift, X, Y);

    if (FMouseBoxState == 2) {
        if (Button == mbRight) {
            SetMouseBoxState(0);
        } else {
            XorFigure(mfBox, FMouseBoxX1, FMouseBoxY1, FMouseBoxX2, FMouseBoxY2);
            FMouseBoxX2 = X;
            FMouseBoxY2 = Y;
            FMouseBoxState = 3;  // the box is already erased
            if (FMouseBoxLoop)
                FMouseBoxLoop->Quit();
        }
    }
    const std::int32_t tol = EffectiveHitTolerance();
    const auto withinTolerance = [tol](std::int32_t X1, std::int32_t Y1, std::int32_t X2, std::int32_t Y2) {
        return tol > 0 && std::abs(X2 - X1) <= tol && std::abs(Y2 - Y1) <= tol;
    };

    if (FMouseAction == maSelectRect && FSelectRectOn) {
        FSelectRectOn = false;
        XorFigure(mfDottedBox, FWindAnchorX, FWindAnchorY, FWindOldCornerX, FWindOldCornerY);
        if (!withinTolerance(FWindAnchorX, FWindAnchorY, X, Y)) {
            const TPoint p1 = ControlToMapImage({std::min(FWindAnchorX, X), std::min(FWindAnchorY, Y)});
            const TPoint p2 = ControlToMapImage({std::max(FWindAnchorX, X), std::max(FWindAnchorY, Y)});
            bool v1 = false, v2 = false, v3 = false, v4 = false;
            const double lat1 = FCalib.CalcLatitude(p1.X, p1.Y, v1), long1 = FCalib.CalcLongitude(p1.X, p1.Y, v2);
            const double lat2 = FCalib.CalcLatitude(p2.X, p2.Y, v3), long2 = FCalib.CalcLongitude(p2.X, p2.Y, v4);
            if (v1 && v2 && v3 && v4)
                DoSelectRectEvent(1, lat1, long1, lat2, long2);
            else
                DoSelectRectEvent(0, p1.X, p1.Y, p2.X, p2.Y);
        }
    }

    if (FMouseAction == maZoomWindow && FZoomState == 1) {
        XorFigure(mfBox, FWindAnchorX, FWindAnchorY, FWindOldCornerX, FWindOldCornerY);
        FZoomState = 0;
        if (!withinTolerance(FWindAnchorX, FWindAnchorY, FWindOldCornerX, FWindOldCornerY) &&
            SizedView().ZoomToBox({FWindAnchorX, FWindAnchorY}, {FWindOldCornerX, FWindOldCornerY})) {
            Paint();
            DoZoomPanEvent();
        }
    }

    if (IsPanMode(FMouseAction) || FMouseAction == maDragZoom) {
        // Without hover moves (touch input) no button-less move would end the drag before the next one.
        if (Button == mbLeft)
            FLButtonWasDown = false;
        ZoomStateOnStack();
    }
}

// ---- wheel and pinch -----------------------------------------------------------------------------------

void TGeoMap::ZoomAtPoint(double X, double Y, double Factor)
{
    if (MapWidth() <= 0 || !(Factor > 0.0) || !std::isfinite(Factor))
        return;
    // The map point under (X, Y), kept there.
    SizedView().ZoomAboutPoint(X, Y, std::clamp(Magnification() * Factor, MinGestureMag, MaxGestureMag));
    if (FConfinePan)
        PanMapToFillWindow();
    Paint();
    DoZoomPanEvent();
}

bool TGeoMap::MouseWheel(TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos)
{
    if (TCustomControl::MouseWheel(Shift, WheelDelta, MousePos))
        return true;
    if (!FWheelZoom || WheelDelta == 0 || MapWidth() <= 0)
        return false;
    ZoomAtPoint(MousePos.X, MousePos.Y, std::pow(1.25, WheelDelta / 120.0));
    ZoomStateOnStack();
    return true;
}

bool TGeoMap::event(QEvent* Event)
{
    if (Event->type() == QEvent::NativeGesture && FPinchZoom) {
        const auto* g = static_cast<QNativeGestureEvent*>(Event);
        if (g->gestureType() == Qt::ZoomNativeGesture) {
            // value() is the change of scale since the last event: 0.1 means 10 % larger.
            FPinching = true;
            Guarded([&] { ZoomAtPoint(g->position().x(), g->position().y(), 1.0 + g->value()); });
            Event->accept();
            return true;
        }
        if (g->gestureType() == Qt::EndNativeGesture && FPinching) {
            FPinching = false;
            Guarded([&] { ZoomStateOnStack(); });
            Event->accept();
            return true;
        }
    }
    if (Event->type() == QEvent::Gesture && FPinchZoom) {
        auto* ge = static_cast<QGestureEvent*>(Event);
        if (auto* pinch = static_cast<QPinchGesture*>(ge->gesture(Qt::PinchGesture))) {
            if (pinch->changeFlags() & QPinchGesture::ScaleFactorChanged) {
                const QPointF c = mapFromGlobal(pinch->centerPoint());
                Guarded([&] { ZoomAtPoint(c.x(), c.y(), pinch->scaleFactor()); });
            }
            if (pinch->state() == Qt::GestureFinished || pinch->state() == Qt::GestureCanceled)
                Guarded([&] { ZoomStateOnStack(); });
            ge->accept(pinch);
            return true;
        }
    }
    return TCustomControl::event(Event);
}

}  // namespace qv
