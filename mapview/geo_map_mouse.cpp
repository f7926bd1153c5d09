// TGeoMap: mouse and keyboard input. The rules live in TMapMouseTool; here Qt's events become the tool's
// events, and what the tool reports becomes the control's handlers, repaints and figure updates. Beyond
// that this unit runs MouseBox's nested loop, the pinch gestures and the mode's cursor.
//
// Feedback figures are not drawn here: the tool keeps the figures shown, each change schedules an update
// of its area, and paintEvent draws them over the frame in exclusive-or, so that a pan is the only thing
// that re-renders the map while the mouse moves.
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/cursors.h>
#include <qvgeo/platform/message_pump.h>
#include <qvgeo/support/math_services.h>

#include <QGestureEvent>
#include <QKeyEvent>
#include <QNativeGestureEvent>
#include <QPinchGesture>

namespace qv {

namespace {

TToolButton ToolButton(TMouseButton B)
{
    return B == mbRight ? TToolButton::Right : B == mbMiddle ? TToolButton::Middle : TToolButton::Left;
}

TToolShiftState ToolShift(TShiftState S)
{
    return {S.Contains(ssShift), S.Contains(ssAlt), S.Contains(ssCtrl), S.Contains(ssLeft)};
}

TMapKey MapKey(int QtKey)
{
    switch (QtKey) {
    case Qt::Key_Left: return TMapKey::Left;
    case Qt::Key_Right: return TMapKey::Right;
    case Qt::Key_Up: return TMapKey::Up;
    case Qt::Key_Down: return TMapKey::Down;
    case Qt::Key_Plus:
    case Qt::Key_Equal: return TMapKey::ZoomIn;
    case Qt::Key_Minus: return TMapKey::ZoomOut;
    case Qt::Key_Home: return TMapKey::Home;
    default: return TMapKey::Other;
    }
}

}  // namespace

void TGeoMap::InitMouse()
{
    SetPinchZoom(FPinchZoom);
    UpdateModeCursor();
}

// ---- properties ----------------------------------------------------------------------------------------

void TGeoMap::SetMouseAction(TMouseActMode Value)
{
    const TMouseActMode old = MouseAction();
    const bool oldPan = AllowPan();
    FMouse.SetMode(Value);
    UpdateModeCursor();
    if (Value != old)
        emit mouseActionChanged();
    if (AllowPan() != oldPan)
        emit allowPanChanged();
}

void TGeoMap::SetPinchZoom(bool Value)
{
    const bool changed = Value != FPinchZoom;
    FPinchZoom = Value;
    if (Value)
        grabGesture(Qt::PinchGesture);
    else
        ungrabGesture(Qt::PinchGesture);
    if (changed)
        emit pinchZoomChanged();
}

void TGeoMap::SetModeCursor(bool Value)
{
    const bool changed = Value != FModeCursor;
    FModeCursor = Value;
    if (Value)
        UpdateModeCursor();
    else
        unsetCursor();
    if (changed)
        emit modeCursorChanged();
}

void TGeoMap::UpdateModeCursor()
{
    if (!FModeCursor)
        return;
    setCursor(GetCursor(FMouseBoxLoop ? crCross : ModeCursorShape()));
}

void TGeoMap::FiguresChanged(const TMouseToolResult& R)
{
    for (const TMouseFigure& f : R.Toggled)
        update(QRect(QPoint(f.A.X, f.A.Y), QPoint(f.B.X, f.B.Y)).normalized().adjusted(-1, -1, 1, 1));
    if (R.FiguresCleared)
        update();
}

void TGeoMap::MouseToolEvent(const TMouseToolEvent& E)
{
    const auto band = [this](const TOnRubberBandActionEvent& Handler, TMapPixel P) {
        if (Handler)
            Handler(*this, P.X, P.Y);
    };
    switch (E.Action) {
    case TMouseToolAction::ZoomPan: DoZoomPanEvent(); break;
    case TMouseToolAction::BeginRubberBand: band(OnBeginRubberBand, E.Pixel); break;
    case TMouseToolAction::ContinueRubberBand: band(OnContinueRubberBand, E.Pixel); break;
    case TMouseToolAction::EndRubberBand: band(OnEndRubberBand, E.Pixel); break;
    case TMouseToolAction::SelectRect: DoSelectRectEvent(E.SelectKind, E.V[0], E.V[1], E.V[2], E.V[3]); break;
    case TMouseToolAction::MouseBoxState:
        if ((E.BoxState == 0 || E.BoxState == 3) && FMouseBoxLoop)
            FMouseBoxLoop->Quit();
        break;
    default: break;
    }
}

// ---- the tool ------------------------------------------------------------------------------------------

template <class F>
void TGeoMap::DropOnThrow(F&& Body)
{
    try {
        Body();
    } catch (...) {
        ResetMouseState();
        throw;
    }
}

// ---- mouse box -----------------------------------------------------------------------------------------

bool TGeoMap::MouseBox(std::int32_t& X1, std::int32_t& Y1, std::int32_t& X2, std::int32_t& Y2)
{
    if (FMouseBoxLoop || !FMouse.BeginMouseBox())
        return false;
    // The tool waits for the first corner; the mode is none until the box is done.
    const TMouseActMode saved = FMouse.Mode();
    TModalLoop loop;
    FMouseBoxLoop = &loop;
    SetMouseAction(maNone);
    loop.Run();  // the handlers and MouseBoxAbort quit it when the state reaches 3 or 0
    FMouseBoxLoop = nullptr;
    const bool done = FMouse.MouseBoxResult(X1, Y1, X2, Y2);
    RaiseMouseResult(FMouse.EndMouseBox());
    SetMouseAction(saved);
    return done;
}

// ---- the handlers --------------------------------------------------------------------------------------

void TGeoMap::MouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    DropOnThrow([&] {
        ToolPress(ToolButton(Button), ToolShift(Shift), {X, Y}, Shift.Contains(ssDouble));
        TCustomControl::MouseDown(Button, Shift, X, Y);
    });
}

void TGeoMap::MouseMove(TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    DropOnThrow([&] {
        ToolMove(ToolShift(Shift), {X, Y});
        TCustomControl::MouseMove(Shift, X, Y);
        TCoords c;
        if (NotePointer({X, Y}, c))
            emit mouseGeoPositionChanged(c.Latit, c.Longit);
    });
}

void TGeoMap::MouseUp(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    DropOnThrow([&] {
        TCustomControl::MouseUp(Button, Shift, X, Y);
        ToolRelease(ToolButton(Button), ToolShift(Shift), {X, Y});
    });
}

void TGeoMap::keyPressEvent(QKeyEvent* Event)
{
    const TMapKey key = MapKey(Event->key());
    if (!NavigatesBy(key)) {
        TCustomControl::keyPressEvent(Event);
        return;
    }
    Event->accept();
    const TToolShiftState shift = ToolShift(ShiftStateOf(Event->modifiers(), Qt::NoButton));
    Guarded([&] { ToolKey(key, shift); });
}

// ---- wheel and pinch -----------------------------------------------------------------------------------

bool TGeoMap::MouseWheel(TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos)
{
    return TCustomControl::MouseWheel(Shift, WheelDelta, MousePos) || ToolWheel(WheelDelta, MousePos);
}

bool TGeoMap::event(QEvent* Event)
{
    if (Event->type() == QEvent::NativeGesture && FPinchZoom) {
        const auto* g = static_cast<QNativeGestureEvent*>(Event);
        if (g->gestureType() == Qt::ZoomNativeGesture) {
            // value() is the change of scale since the last event: 0.1 means 10 % larger.
            Guarded([&] { ToolPinch(g->position().x(), g->position().y(), 1.0 + g->value()); });
            Event->accept();
            return true;
        }
        if (g->gestureType() == Qt::EndNativeGesture) {
            bool ended = false;
            Guarded([&] { ended = ToolPinchEnd(false); });
            if (ended) {
                Event->accept();
                return true;
            }
        }
    }
    if (Event->type() == QEvent::Gesture && FPinchZoom) {
        auto* ge = static_cast<QGestureEvent*>(Event);
        if (auto* pinch = static_cast<QPinchGesture*>(ge->gesture(Qt::PinchGesture))) {
            if (pinch->changeFlags() & QPinchGesture::ScaleFactorChanged) {
                const QPointF c = mapFromGlobal(pinch->centerPoint());
                Guarded([&] { ToolPinch(c.x(), c.y(), pinch->scaleFactor()); });
            }
            if (pinch->state() == Qt::GestureFinished || pinch->state() == Qt::GestureCanceled)
                Guarded([&] { ToolPinchEnd(true); });
            ge->accept(pinch);
            return true;
        }
    }
    return TCustomControl::event(Event);
}

}  // namespace qv
