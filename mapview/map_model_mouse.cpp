// TMapModel: the state of the mouse and the keyboard. The rules live in TMapMouseTool, which works on the
// model's viewport; here its results become repaints, pushes on the zoom history and landmarks, and what
// only a device can do (its figures' areas redrawn, the application's events) goes up by the hooks.
#include <qvgeo/mapview/map_model.h>

#include <qvgeo/support/math_services.h>

#include <algorithm>

namespace qv {

void TMapModel::SetKeyboardNavigation(bool Value)
{
    const bool changed = Value != FKeyboardNavigation;
    FKeyboardNavigation = Value;
    if (changed)
        PropertyChanged(mpKeyboardNavigation);
}

void TMapModel::SetWheelZoom(bool Value)
{
    const bool changed = Value != FWheelZoom;
    FWheelZoom = Value;
    if (changed)
        PropertyChanged(mpWheelZoom);
}

void TMapModel::SetHitTolerance(std::int32_t Value)
{
    const std::int32_t old = FHitTolerance;
    FHitTolerance = std::max<std::int32_t>(Value, 0);
    if (FHitTolerance != old)
        PropertyChanged(mpHitTolerance);
}

std::int32_t TMapModel::EffectiveHitTolerance() const
{
    return RoundSaturated(FHitTolerance * EffectivePixelRatio());
}

TMapMouseTool& TMapModel::MouseTool()
{
    SizedView();
    FMouse.SetConfinePan(FConfinePan);
    return FMouse;
}

void TMapModel::RaiseMouseResult(const TMouseToolResult& R)
{
    FiguresChanged(R);
    for (const TMouseToolEvent& e : R.Events) {
        switch (e.Action) {
        case TMouseToolAction::Repaint: Paint(); break;
        case TMouseToolAction::PushView: ZoomStateOnStack(); break;
        case TMouseToolAction::AddLandMark:
            FLandMarks.AddLandMark(e.V[0], e.V[1], FLandMarks.DefaultLandMark().Altitude);
            break;
        default: MouseToolEvent(e); break;
        }
    }
}

void TMapModel::ToolPress(TToolButton Button, TToolShiftState Shift, TControlPixel P, bool Double)
{
    TMapMouseTool& tool = MouseTool();
    RaiseMouseResult(Double ? tool.DoubleClick(Button, Shift, P) : tool.Press(Button, Shift, P));
}

void TMapModel::ToolRelease(TToolButton Button, TToolShiftState Shift, TControlPixel P)
{
    // Only a release measures boxes; the device's pixel ratio is asked for then, not on every move.
    TMapMouseTool& tool = MouseTool();
    tool.SetHitTolerance(EffectiveHitTolerance());
    RaiseMouseResult(tool.Release(Button, Shift, P));
}

bool TMapModel::ToolWheel(std::int32_t Delta, TPoint P)
{
    if (!FWheelZoom)
        return false;
    const TMouseToolResult r = MouseTool().Wheel(Delta, P.X, P.Y);
    RaiseMouseResult(r);
    return r.Handled;
}

bool TMapModel::ToolPinchEnd(bool Gesture)
{
    const TMouseToolResult r = MouseTool().PinchEnd(Gesture);
    RaiseMouseResult(r);
    return r.Handled;
}

TCursor TMapModel::ModeCursorShape() const
{
    switch (FMouse.Mode()) {
    case maPan:
    case maPanHoriz:
    case maPanVert: return crGeoHand;
    case maRubberBand: return crCross;
    case maZoomWindow: return crGeoZoomWindow;
    case maDragZoom: return crGeoZoom;
    case maSelectRect: return crGeoSelect;
    case maLandMark: return crGeoLandMark;
    default: return crDefault;
    }
}

void TMapModel::MouseBoxAbort()
{
    RaiseMouseResult(FMouse.EndMouseBox());
}

void TMapModel::DrawMouseFigures(TBitmap& Frame, double Ratio) const
{
    TCanvas& c = Frame.Canvas();
    const TPen pen = c.Pen;
    const TBrush brush = c.Brush;
    const auto s = [Ratio](std::int32_t v) { return Ratio == 1.0 ? v : RoundSaturated(v * Ratio); };
    c.Brush.Style = bsClear;
    for (const TMouseFigure& f : FMouse.Figures()) {
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

double TMapModel::GetLastMClickLatitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLatitude(FMouse.LastClick().X, FMouse.LastClick().Y, valid);
    return valid ? v : 0.0;
}

double TMapModel::GetLastMClickLongitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLongitude(FMouse.LastClick().X, FMouse.LastClick().Y, valid);
    return valid ? v : 0.0;
}

}  // namespace qv
