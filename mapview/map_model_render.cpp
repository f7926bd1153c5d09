// TMapModel: rendering AuxBmp from the viewport, the sources and the appearance (RenderMapView), the
// device-resolution frame of high-density screens, and the output to a bitmap and the clipboard
// (map_output.h).
#include <qvgeo/mapview/map_model.h>

#include <qvgeo/platform/clipboard.h>

#include <cmath>

namespace qv {

namespace {

constexpr double ScreenDpi = 96.0;  // a control pixel on paper

}  // namespace

TMapSources TMapModel::RenderSources() const
{
    TMapSources s;
    s.MapImgName = FImage.Name();
    s.GrafBmp = &FImage.Bitmap();
    for (std::size_t i = 0; i < s.PyramidLevels.size(); ++i)
        s.PyramidLevels[i] = FImage.PyramidLevel(static_cast<int>(i));
    s.Picture = FImage.TiledSource();
    s.CalibData = &FCalib.CalibData();
    s.Fit = &FCalib.Fit();
    s.LandMarks = &FLandMarks;
    s.Designing = false;
    s.Visible = true;
    return s;
}

TMapViewport& TMapModel::SizedView()
{
    FView.SetControlSize(DeviceSize());
    FView.SetMapSize({FImage.Width(), FImage.Height()});
    return FView;
}

double TMapModel::EffectivePixelRatio() const
{
    return FForcedPixelRatio > 0.0 ? FForcedPixelRatio : DevicePixelRatio();
}

void TMapModel::ConstructInternalMapImg()
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
        const TSize size = FView.ControlSize();
        events.OnBeforeRenderData = [this, user, size](TCanvas& C) {
            // A deep copy: a shared picture would let row pointers the renderer keeps write into it.
            FMapOnly = TBitmap(C.Bitmap().Image().copy(0, 0, size.cx, size.cy));
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

void TMapModel::Paint()
{
    if (FHoldPaint == 0)
        NoteViewChange();
    // No paint inside a paint's own long step (its progress events may run the event loop).
    if (FSuppressPaint || FHoldPaint > 0 || FLaterLoading)
        return;
    {
        TLaterStepScope step(*this);
        ConstructInternalMapImg();
    }
    RequestPaint();
}

const TBitmap& TMapModel::ScreenFrame() const
{
    return EffectivePixelRatio() > 1.0 && !FScreenBmp.Empty() ? FScreenBmp : FAuxBmp;
}

// ---- clipboard and bitmaps (map_output.h) --------------------------------------------------------------

void TMapModel::CopyToClipboard()
{
    CopyBitmapToClipboard(ClipboardCopy(FAuxBmp, DeviceSize()));
}

TSize TMapModel::FrameSize() const
{
    return FRenderingOutput ? FView.ControlSize() : DeviceSize();
}

void TMapModel::CopyToBMP(TBitmap& Bitmap, TPoint Position, double Scale, TSize Size)
{
    RenderOutput(Bitmap, nullptr, Position, Scale, Size);
}

void TMapModel::RenderOutput(TBitmap& Bitmap, TBitmap* BareMap, TPoint Position, double Scale, TSize Size)
{
    if (!IsDrawableOutput(Scale, Size)) {
        Bitmap = TBitmap();
        return;
    }
    // A tiled map has no whole picture in memory; nor may its output be larger than one.
    FImage.CheckCopySize(Size.cx, Size.cy);
    const TCalibFit fit = FCalib.Fit();
    const TCalibData data = FCalib.CalibData();
    TMapSources s = RenderSources();
    s.Fit = &fit;
    s.CalibData = &data;
    // The render handlers see the output as the view; paints are held meanwhile.
    THoldPaint hold(*this);
    TOutputViewScope outputView(FView, FRenderingOutput, TMapPixel(Position), Scale, Size);
    TLaterStepScope step(*this);
    RenderMapOutput(Bitmap, BareMap, FView, s, FLook, FCache, FRenderCaches.get(), RenderEvents());
}

void TMapModel::CopyEntireMapToClipboard(double Scale)
{
    TBitmap bmp;
    CopyToBMP(bmp, {0, 0}, Scale,
              {static_cast<std::int32_t>(std::nearbyint(MapWidth() * Scale)),
               static_cast<std::int32_t>(std::nearbyint(MapHeight() * Scale))});
    if (!bmp.Empty())
        CopyBitmapToClipboard(bmp);
}

TOutputRenderer TMapModel::OutputRenderer()
{
    return [this](TBitmap& Out, TBitmap* Bare, TMapPixel Position, double Scale, TSize Size) {
        RenderOutput(Out, Bare, Position.Point(), Scale, Size);
    };
}

// ---- printers and painters ----------------------------------------------------------------------------

TRect TMapModel::CalcExtentsOfPrint(QPrinter& Printer, double Scale) const
{
    return PrintExtents(FView, Printer, Scale);
}

void TMapModel::CopyToOpenPrinter(QPainter& Painter, TSize MapSize, double Scale)
{
    const TPoint tl = TopLeft();
    const TRect r{tl.X, tl.Y, tl.X + MapSize.cx, tl.Y + MapSize.cy};
    DrawMapRect(Painter, 0, 0, r, Scale, DevicePixelsPer(Painter, ScreenDpi), OutputRenderer());
}

void TMapModel::CopyToOpenPrinter(QPainter& Painter, TRect MapRect, std::int32_t Dpi)
{
    CopyToOpenPrinter(Painter, TPoint{0, 0}, MapRect, Dpi);
}

void TMapModel::CopyToOpenPrinter(QPainter& Painter, TPoint PagePos, TRect MapRect, std::int32_t Dpi)
{
    if (Dpi <= 0)
        return;
    DrawMapRect(Painter, PagePos.X, PagePos.Y, MapRect, 1.0, DevicePixelsPer(Painter, Dpi), OutputRenderer());
}

double TMapModel::CopyEntireMapToOpenPrinter(QPainter& Painter, TRect Area, double MaxScale)
{
    return DrawEntireMap(Painter, Area, MaxScale, FView.MapSize(), RenderSources(), OutputRenderer());
}

void TMapModel::SetLabelOptions(const TLabelOptions& Value)
{
    if (FLook.Labels == Value)
        return;
    FLook.Labels = Value;
    Paint();
}

double TMapModel::MetresPerPixel() const
{
    const TMapSources s = RenderSources();
    if (!s.Fit || s.Fit->Model() == cmUndefined || !FView.HasMap())
        return 0.0;
    return ViewMetresPerPixel(FView, *s.Fit);
}

}  // namespace qv
