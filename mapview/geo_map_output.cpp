// TGeoMap: painting (the model's AuxBmp or device-resolution frame copied onto the widget with the mouse
// figures over it), the widget's size pushed into the model, and the printers (map_output.h).
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/mapview/map_output.h>

#include <qvgeo/platform/clipboard.h>
#include <qvgeo/support/math_services.h>

#include <QPainter>
#include <QPrinter>

#include <algorithm>
#include <cmath>

namespace qv {

// ---- painting ------------------------------------------------------------------------------------------

TMapSources TGeoMap::RenderSources() const
{
    TMapSources s = TMapModel::RenderSources();
    s.Designing = ComponentState().Contains(csDesigning);
    // "Visible" is the control's own visibility, not whether a window shows it: a control nobody hid
    // draws its map even before its window appears (tests and off-screen rendering rely on that).
    s.Visible = !isHidden() || !testAttribute(Qt::WA_WState_ExplicitShowHide);
    return s;
}

void TGeoMap::paintEvent(QPaintEvent*)
{
    const std::int32_t W = width(), H = height();
    if (!FSuppressPaint && (!FFrameBuilt || FAuxBmp.Width() < W || FAuxBmp.Height() < H))
        Guarded([this] { ConstructInternalMapImg(); });
    QPainter painter(this);
    const double r = EffectivePixelRatio();
    const bool hiDpi = r > 1.0 && !FScreenBmp.Empty();
    // The mouse figures go over the frame in exclusive-or for the copy and come off again right after it
    // (the same drawing twice restores every pixel), so the frame is never re-rendered for a figure.
    TBitmap& frame = hiDpi ? FScreenBmp : FAuxBmp;
    const bool figures = !FMouse.Figures().empty();
    if (figures)
        DrawMouseFigures(frame, hiDpi ? r : 1.0);
    if (hiDpi)
        painter.drawImage(QRectF(0, 0, W, H), FScreenBmp.Image(),
                          QRectF(0, 0, FScreenBmp.Width(), FScreenBmp.Height()));
    else
        painter.drawImage(QPoint(0, 0), FAuxBmp.Image(), QRect(0, 0, W, H));
    if (figures)
        DrawMouseFigures(frame, hiDpi ? r : 1.0);
}

void TGeoMap::resizeEvent(QResizeEvent* Event)
{
    TCustomControl::resizeEvent(Event);
    Guarded([this] { SetControlSize({width(), height()}); });
}

void TGeoMap::showEvent(QShowEvent* Event)
{
    TCustomControl::showEvent(Event);
    Guarded([this] { Paint(); });
}

// ---- printers (map_output.h) ---------------------------------------------------------------------------

namespace {

constexpr double ScreenDpi = 96.0;

}  // namespace

bool TGeoMap::PrintIt(QPrinter& Printer, double Scale)
{
    const TRect r = CalcExtentsOfPrint(Printer, Scale);
    QPainter painter;
    if (!painter.begin(&Printer))
        return false;
    DrawMapRect(painter, 0, 0, r, Scale, DevicePixelsPer(painter, ScreenDpi), OutputRenderer());
    return painter.end();
}

bool TGeoMap::PrintEntireMap(QPrinter& Printer, double MaxScale)
{
    if (MapWidth() <= 0 || MapHeight() <= 0)
        return false;
    QPainter painter;
    if (!painter.begin(&Printer))
        return false;
    // The painter's origin is the printable area's corner; its size is the device's.
    const double scale = CopyEntireMapToOpenPrinter(painter, {0, 0, Printer.width(), Printer.height()}, MaxScale);
    return painter.end() && scale > 0.0;
}

}  // namespace qv
