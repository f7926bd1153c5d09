// TMapViewport: the view's rules, each written once.
#include <qvgeo/geomap/map_viewport.h>

#include <qvgeo/support/math_services.h>

#include <cmath>

namespace qv {


bool TMapViewport::SetMagnify(double Value)
{
    if (!(Value > 0.0) || !std::isfinite(Value))
        return false;
    FMagnify = ClampMagnification(Value);
    return true;
}

TMapPixel TMapViewport::ControlToMapImage(TControlPixel P) const
{
    // The quotient is rounded before the scroll position is added: a control pixel lands on the map pixel
    // whose rounded offset it is, as the classic control computed it.
    return {RoundSaturated(RoundSaturated(P.X / FMagnify) + static_cast<double>(FTopLeft.X)),
            RoundSaturated(RoundSaturated(P.Y / FMagnify) + static_cast<double>(FTopLeft.Y))};
}

TControlPixel TMapViewport::MapImageToControl(TMapPixel P) const
{
    return {RoundSaturated((static_cast<double>(P.X) - FTopLeft.X) * FMagnify),
            RoundSaturated((static_cast<double>(P.Y) - FTopLeft.Y) * FMagnify)};
}

TMapOffset TMapViewport::HalfView() const
{
    return {RoundSaturated(FControl.cx / FMagnify / 2), RoundSaturated(FControl.cy / FMagnify / 2)};
}

void TMapViewport::Confine()
{
    const double visW = FControl.cx / FMagnify, visH = FControl.cy / FMagnify;
    if (FTopLeft.X > FMap.cx - visW)
        FTopLeft.X = RoundSaturated(FMap.cx - visW);
    if (FTopLeft.Y > FMap.cy - visH)
        FTopLeft.Y = RoundSaturated(FMap.cy - visH);
    FTopLeft.X = std::max(FTopLeft.X, 0);
    FTopLeft.Y = std::max(FTopLeft.Y, 0);
}

void TMapViewport::CentreOn(TMapPixel P)
{
    const TMapOffset h = HalfView();
    FTopLeft = {RoundSaturated(P.X - static_cast<double>(h.DX)), RoundSaturated(P.Y - static_cast<double>(h.DY))};
    Confine();
}

void TMapViewport::CentreOnWithin(TMapPixel P)
{
    const TMapOffset h = HalfView();
    const double hx = h.DX, hy = h.DY;
    const double left = std::max(std::min(P.X - hx, FMap.cx - 2 * hx), 0.0);
    const double top = std::max(std::min(P.Y - hy, FMap.cy - 2 * hy), 0.0);
    FTopLeft = {RoundSaturated(left), RoundSaturated(top)};
}

bool TMapViewport::FitPage()
{
    if (!HasMap())
        return false;
    FMagnify = ClampMagnification(std::min(static_cast<double>(FControl.cx) / FMap.cx,
                                           static_cast<double>(FControl.cy) / FMap.cy));
    FTopLeft = {0, 0};
    return true;
}

void TMapViewport::ZoomAboutCentre(double Factor)
{
    const TMapOffset before = HalfView();
    const double cx = static_cast<double>(FTopLeft.X) + before.DX, cy = static_cast<double>(FTopLeft.Y) + before.DY;
    FMagnify = ClampMagnification(FMagnify * Factor);
    const TMapOffset after = HalfView();
    FTopLeft = {RoundSaturated(cx - after.DX), RoundSaturated(cy - after.DY)};
}

void TMapViewport::ZoomAboutPoint(double X, double Y, double Mag)
{
    const double mx = MapXAt(X), my = MapYAt(Y);
    FMagnify = ClampMagnification(Mag);
    FTopLeft = {RoundSaturated(mx - X / FMagnify), RoundSaturated(my - Y / FMagnify)};
}

bool TMapViewport::ZoomToBox(TControlPixel A, TControlPixel B)
{
    const TMapPixel p1 = ControlToMapImage({std::min(A.X, B.X), std::min(A.Y, B.Y)});
    const TMapPixel p2 = ControlToMapImage({std::max(A.X, B.X), std::max(A.Y, B.Y)});
    // 64-bit sides: map pixels near the 32-bit limits must not overflow.
    const std::int64_t dx = std::int64_t{p2.X} - p1.X, dy = std::int64_t{p2.Y} - p1.Y;
    if (dx == 0 || dy == 0)
        return false;
    // The box's longer side in map pixels decides, whatever the control's shape.
    FMagnify = ClampMagnification(dx > dy ? FControl.cx / static_cast<double>(dx)
                                          : FControl.cy / static_cast<double>(dy));
    FTopLeft = {RoundSaturated((static_cast<double>(p1.X) + p2.X - FControl.cx / FMagnify) / 2),
                RoundSaturated((static_cast<double>(p1.Y) + p2.Y - FControl.cy / FMagnify) / 2)};
    return true;
}

TMapOffset TMapViewport::PanStep(double Parts) const
{
    return {std::max(1, RoundSaturated(FControl.cx / FMagnify / Parts)),
            std::max(1, RoundSaturated(FControl.cy / FMagnify / Parts))};
}

void TMapViewport::PanBy(TMapOffset D)
{
    FTopLeft = {RoundSaturated(static_cast<double>(FTopLeft.X) + D.DX),
                RoundSaturated(static_cast<double>(FTopLeft.Y) + D.DY)};
}

void TMapViewport::PanFrom(TMapPixel AnchorTopLeft, TControlPixel Press, TControlPixel Now, bool Horizontal,
                           bool Vertical)
{
    if (Horizontal)
        FTopLeft.X = RoundSaturated(AnchorTopLeft.X + static_cast<double>(RoundSaturated((double(Press.X) - Now.X) / FMagnify)));
    if (Vertical)
        FTopLeft.Y = RoundSaturated(AnchorTopLeft.Y + static_cast<double>(RoundSaturated((double(Press.Y) - Now.Y) / FMagnify)));
}

void TMapViewport::PushView()
{
    FZoomStack[static_cast<std::size_t>(FZStackPoi - 1)] = {FTopLeft.X, FTopLeft.Y, FMagnify};
    FZStackPoi = FZStackPoi == 16 ? 1 : FZStackPoi + 1;
}

TgmZoomStackEntry TMapViewport::HistoryEntry(std::int32_t n) const
{
    if (n < -15 || n > 0)
        return {};
    std::int32_t slot = FZStackPoi + n - 1;
    if (slot < 1)
        slot += 16;
    return FZoomStack[static_cast<std::size_t>(slot - 1)];
}

bool TMapViewport::RestoreView(std::int32_t n)
{
    if (n < -15 || n > 0)
        return false;
    const TgmZoomStackEntry e = HistoryEntry(n);
    if (e.Left == 0 && e.Top == 0 && e.MagF == 0.0)
        return false;
    FTopLeft = {e.Left, e.Top};
    FMagnify = ClampMagnification(e.MagF);
    return true;
}

void TMapViewport::ClearHistory()
{
    FZoomStack.fill({});
    FZStackPoi = 1;
}

}  // namespace qv
