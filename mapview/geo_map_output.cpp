// TGeoMap: painting (the viewport, sources and appearance handed to RenderMapView, the widget's copy of
// AuxBmp, the device-resolution frame of high-density screens), and the forwarders of the
// output to the clipboard, a bitmap and a printer (map_output.h).
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
    TMapSources s;
    s.MapImgName = FImage.Name();
    s.GrafBmp = &FImage.Bitmap();
    for (std::size_t i = 0; i < s.PyramidLevels.size(); ++i)
        s.PyramidLevels[i] = FImage.PyramidLevel(static_cast<int>(i));
    s.CalibData = &FCalib.CalibData();
    s.Fit = &FCalib.Fit();
    s.LandMarks = &FLandMarks;
    s.Designing = ComponentState().Contains(csDesigning);
    // "Visible" is the control's own visibility, not whether a window shows it: a control nobody hid
    // draws its map even before its window appears (tests and off-screen rendering rely on that).
    s.Visible = !isHidden() || !testAttribute(Qt::WA_WState_ExplicitShowHide);
    return s;
}

TMapRenderEvents TGeoMap::RenderEvents()
{
    TMapRenderEvents e;
    if (OnBeforeRenderData)
        e.OnBeforeRenderData = [this](TCanvas& C) { OnBeforeRenderData(*this, C); };
    if (OnDrawLandmark)
        e.OnDrawLandmark = [this](bool& Handled, TCanvas& C, TPoint P, const TLandMark& L) {
            OnDrawLandmark(*this, Handled, C, P, L);
        };
    if (OnDataRendered)
        e.OnDataRendered = [this](TCanvas& C) { OnDataRendered(*this, C); };
    return e;
}

TMapViewport& TGeoMap::SizedView()
{
    FView.SetControlSize({width(), height()});
    FView.SetMapSize({FImage.Width(), FImage.Height()});
    return FView;
}

double TGeoMap::EffectivePixelRatio() const
{
    return FForcedPixelRatio > 0.0 ? FForcedPixelRatio : devicePixelRatioF();
}

void TGeoMap::ConstructInternalMapImg()
{
    // The renderer reads a snapshot of the calibration: a handler that edits the calibration while the
    // frame is drawn replaces the fit, never the copy the renderer reads.
    const TCalibFit fit = FCalib.Fit();
    const TCalibData data = FCalib.CalibData();
    TMapSources s = RenderSources();
    s.Fit = &fit;
    s.CalibData = &data;
    TMapRenderEvents events = RenderEvents();
    SizedView().SetPixelRatio(EffectivePixelRatio());
    const bool hiDpi = FView.PixelRatio() > 1.0;
    FMapOnlyValid = false;
    if (hiDpi) {
        // Keep what the frame looks like before anything is drawn over the map: the device-resolution
        // frame takes everything else from AuxBmp.
        auto user = std::move(events.OnBeforeRenderData);
        events.OnBeforeRenderData = [this, user](TCanvas& C) {
            // A deep copy: a shared picture would let row pointers the renderer keeps write into it.
            FMapOnly = TBitmap(C.Bitmap().Image().copy(0, 0, width(), height()));
            FMapOnlyValid = true;
            if (user)
                user(C);
        };
    }
    RenderMapView(FView, s, FLook, FAuxBmp, FCache, FRenderCaches.get(), events);
    FFrameBuilt = true;
    if (hiDpi)
        RenderDeviceFrame(FScreenBmp, FAuxBmp, FMapOnlyValid ? &FMapOnly : nullptr, FView, s, FLook);
}

void TGeoMap::Paint()
{
    if (FHoldPaint == 0)
        NoteViewChange();
    if (FSuppressPaint || FHoldPaint > 0)
        return;
    ConstructInternalMapImg();
    update();
}

const TBitmap& TGeoMap::ScreenFrame() const
{
    return EffectivePixelRatio() > 1.0 && !FScreenBmp.Empty() ? FScreenBmp : FAuxBmp;
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
    FView.SetControlSize({width(), height()});
    Guarded([this] { Paint(); });
}

void TGeoMap::showEvent(QShowEvent* Event)
{
    TCustomControl::showEvent(Event);
    Guarded([this] { Paint(); });
}

// ---- clipboard, bitmaps and printers (map_output.h) ---------------------------------------------------

void TGeoMap::CopyToClipboard()
{
    CopyBitmapToClipboard(ClipboardCopy(FAuxBmp, {width(), height()}));
}

TSize TGeoMap::FrameSize() const
{
    return FRenderingOutput ? FView.ControlSize() : TSize{width(), height()};
}

void TGeoMap::CopyToBMP(TBitmap& Bitmap, TPoint Position, double Scale, TSize Size)
{
    RenderOutput(Bitmap, nullptr, Position, Scale, Size);
}

void TGeoMap::RenderOutput(TBitmap& Bitmap, TBitmap* BareMap, TPoint Position, double Scale, TSize Size)
{
    if (!IsDrawableOutput(Scale, Size)) {
        Bitmap = TBitmap();
        return;
    }
    const TCalibFit fit = FCalib.Fit();
    const TCalibData data = FCalib.CalibData();
    TMapSources s = RenderSources();
    s.Fit = &fit;
    s.CalibData = &data;
    // The render handlers see the output as the view; paints are held meanwhile.
    THoldPaint hold(*this);
    TOutputViewScope outputView(FView, FRenderingOutput, TMapPixel(Position), Scale, Size);
    RenderMapOutput(Bitmap, BareMap, FView, s, FLook, FCache, FRenderCaches.get(), RenderEvents());
}

void TGeoMap::CopyEntireMapToClipboard(double Scale)
{
    TBitmap bmp;
    CopyToBMP(bmp, {0, 0}, Scale,
              {static_cast<std::int32_t>(std::nearbyint(MapWidth() * Scale)),
               static_cast<std::int32_t>(std::nearbyint(MapHeight() * Scale))});
    if (!bmp.Empty())
        CopyBitmapToClipboard(bmp);
}

namespace {

constexpr double ScreenDpi = 96.0;

}  // namespace

TOutputRenderer TGeoMap::OutputRenderer()
{
    return [this](TBitmap& Out, TBitmap* Bare, TMapPixel Position, double Scale, TSize Size) {
        RenderOutput(Out, Bare, Position.Point(), Scale, Size);
    };
}

TRect TGeoMap::CalcExtentsOfPrint(QPrinter& Printer, double Scale) const
{
    return PrintExtents(FView, Printer, Scale);
}

bool TGeoMap::PrintIt(QPrinter& Printer, double Scale)
{
    const TRect r = CalcExtentsOfPrint(Printer, Scale);
    QPainter painter;
    if (!painter.begin(&Printer))
        return false;
    DrawMapRect(painter, 0, 0, r, Scale, DevicePixelsPer(painter, ScreenDpi), OutputRenderer());
    return painter.end();
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TSize MapSize, double Scale)
{
    const TPoint tl = TopLeft();
    const TRect r{tl.X, tl.Y, tl.X + MapSize.cx, tl.Y + MapSize.cy};
    DrawMapRect(Painter, 0, 0, r, Scale, DevicePixelsPer(Painter, ScreenDpi), OutputRenderer());
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TRect MapRect, std::int32_t Dpi)
{
    CopyToOpenPrinter(Painter, TPoint{0, 0}, MapRect, Dpi);
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TPoint PagePos, TRect MapRect, std::int32_t Dpi)
{
    if (Dpi <= 0)
        return;
    DrawMapRect(Painter, PagePos.X, PagePos.Y, MapRect, 1.0, DevicePixelsPer(Painter, Dpi), OutputRenderer());
}

double TGeoMap::CopyEntireMapToOpenPrinter(QPainter& Painter, TRect Area, double MaxScale)
{
    return DrawEntireMap(Painter, Area, MaxScale, FView.MapSize(), RenderSources(), OutputRenderer());
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
