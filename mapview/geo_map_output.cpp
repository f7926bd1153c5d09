// TGeoMap: painting (the render state handed to RenderMapView, the widget's copy of AuxBmp, the
// device-resolution frame of high-density screens), the keyboard, and output to the clipboard, a bitmap
// and a printer.
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/clipboard.h>
#include <qvgeo/support/math_services.h>

#include <QPaintDevice>
#include <QPainter>
#include <QPrinter>

#include <algorithm>
#include <cmath>

namespace qv {

// ---- painting ------------------------------------------------------------------------------------------

void TGeoMap::FillRenderState(TMapRenderState& State, std::int32_t W, std::int32_t H, TPoint TopLeft,
                              double Magnify)
{
    State.Width = W;
    State.Height = H;
    State.Designing = ComponentState().Contains(csDesigning);
    // "Visible" is the control's own visibility, not whether a window shows it: a control nobody hid
    // draws its map even before its window appears (tests and off-screen rendering rely on that).
    State.Visible = !isHidden() || !testAttribute(Qt::WA_WState_ExplicitShowHide);
    State.MapImgName = FImage.Name();
    State.GrafBmp = &FImage.Bitmap();
    for (std::size_t i = 0; i < FImage.Pyramid().size(); ++i)
        State.PyramidLevels[i] = FImage.PyramidLevel(static_cast<int>(i));
    State.Magnify = Magnify;
    State.TopLeft = TopLeft;
    State.AntiAlias = FAntiAlias;
    State.CacheMagLimit = FCacheMagLimit;
    State.ColorBackGnd = FColorBakGnd;
    State.ColorFrame = FFrameColor;
    State.ColorGraticule = FColorGratLine;
    State.ColorCalibPoints = FColorGratPoints;
    State.ColBlackLine = FColBlackLine;
    State.ColGrayLine = FColGrayLine;
    State.ColWhiteLine = FColWhiteLine;
    State.FrameStyle = FFrameStyle;
    State.EmptyMsg = FEmptyMsg;
    State.ShowGraticule = FShowGrat;
    State.GratLineDist = FGratLineDist;
    State.UTMGridDist = FUTMGridDist;
    State.CalibData = &FCalib.CalibData();
    State.Fit = &FCalib.Fit();
    State.LandMarks = &FLandMarks;
    State.LMRandSampleLimit = FLMRandSampleLimit;
    if (OnBeforeRenderData)
        State.OnBeforeRenderData = [this](TCanvas& C) { OnBeforeRenderData(*this, C); };
    if (OnDrawLandmark)
        State.OnDrawLandmark = [this](bool& Handled, TCanvas& C, TPoint P, const TLandMark& L) {
            OnDrawLandmark(*this, Handled, C, P, L);
        };
    if (OnDataRendered)
        State.OnDataRendered = [this](TCanvas& C) { OnDataRendered(*this, C); };
}

double TGeoMap::EffectivePixelRatio() const
{
    return FForcedPixelRatio > 0.0 ? FForcedPixelRatio : devicePixelRatioF();
}

void TGeoMap::ConstructInternalMapImg()
{
    // The state is filled from a snapshot of the calibration: a handler that edits the calibration while
    // the frame is drawn replaces the fit, never the copy the renderer reads.
    const TCalibFit fit = FCalib.Fit();
    const TCalibData data = FCalib.CalibData();
    TMapRenderState s;
    FillRenderState(s, width(), height(), FTopLeft, FMagnify);
    s.Fit = &fit;
    s.CalibData = &data;
    const bool hiDpi = EffectivePixelRatio() > 1.0;
    FMapOnlyValid = false;
    if (hiDpi) {
        // Keep what the frame looks like before anything is drawn over the map: the device-resolution
        // frame takes everything else from AuxBmp.
        auto user = std::move(s.OnBeforeRenderData);
        s.OnBeforeRenderData = [this, user](TCanvas& C) {
            // A deep copy: a shared picture would let row pointers the renderer keeps write into it.
            FMapOnly = TBitmap(C.Bitmap().Image().copy(0, 0, width(), height()));
            FMapOnlyValid = true;
            if (user)
                user(C);
        };
    }
    RenderMapView(s, FAuxBmp, FCache, FRenderCaches.get());
    FFrameBuilt = true;
    if (hiDpi)
        BuildScreenFrame();
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

void TGeoMap::BuildScreenFrame()
{
    const double r = EffectivePixelRatio();
    const std::int32_t W = width(), H = height();
    const std::int32_t Wd = static_cast<std::int32_t>(std::ceil(W * r)), Hd = static_cast<std::int32_t>(std::ceil(H * r));
    if (FScreenBmp.Width() != Wd || FScreenBmp.Height() != Hd)
        FScreenBmp = TBitmap(Wd, Hd);
    FScreenBmp.Fill(FColorBakGnd);
    if (FMapOnlyValid && !FImage.Bitmap().Empty()) {
        // The visible map rectangle, clipped to the image, in map pixels and in device pixels.
        const double x0 = std::max<double>(FTopLeft.X, 0.0), y0 = std::max<double>(FTopLeft.Y, 0.0);
        const double x1 = std::min<double>(FTopLeft.X + W / FMagnify, FImage.Width());
        const double y1 = std::min<double>(FTopLeft.Y + H / FMagnify, FImage.Height());
        if (x1 > x0 && y1 > y0) {
            const double k = FMagnify * r;  // device pixels per map pixel
            // The smallest pyramid level that still has at least one pixel per device pixel.
            const TBitmap* src = &FImage.Bitmap();
            double scale = 1.0;
            for (const TBitmap& level : FImage.Pyramid()) {
                const double ls = static_cast<double>(level.Width()) / FImage.Width();
                if (level.Empty() || ls < k)
                    break;
                src = &level;
                scale = ls;
            }
            const TRect dst{static_cast<std::int32_t>(std::lround((x0 - FTopLeft.X) * k)),
                            static_cast<std::int32_t>(std::lround((y0 - FTopLeft.Y) * k)),
                            static_cast<std::int32_t>(std::lround((x1 - FTopLeft.X) * k)),
                            static_cast<std::int32_t>(std::lround((y1 - FTopLeft.Y) * k))};
            const TRect from{static_cast<std::int32_t>(std::floor(x0 * scale)), static_cast<std::int32_t>(std::floor(y0 * scale)),
                             static_cast<std::int32_t>(std::ceil(x1 * scale)), static_cast<std::int32_t>(std::ceil(y1 * scale))};
            FScreenBmp.StretchRect(dst, *src, from, FAntiAlias ? smHalftone : smColorOnColor);
        }
    }
    // Everything drawn over the map (or the whole frame when there was no map) comes from AuxBmp, each
    // control pixel covering the device pixels whose centres it contains.
    std::vector<std::int32_t> xs(static_cast<std::size_t>(Wd));
    for (std::int32_t dx = 0; dx < Wd; ++dx)
        xs[static_cast<std::size_t>(dx)] = std::min(static_cast<std::int32_t>((dx + 0.5) / r), W - 1);
    for (std::int32_t dy = 0; dy < Hd; ++dy) {
        const std::int32_t y = std::min(static_cast<std::int32_t>((dy + 0.5) / r), H - 1);
        const std::uint32_t* aux = FAuxBmp.ScanLine(y);
        const std::uint32_t* bare = FMapOnlyValid ? FMapOnly.ScanLine(y) : nullptr;
        std::uint32_t* out = FScreenBmp.ScanLine(dy);
        for (std::int32_t dx = 0; dx < Wd; ++dx) {
            const std::int32_t x = xs[static_cast<std::size_t>(dx)];
            if (!bare || aux[x] != bare[x])
                out[dx] = aux[x];
        }
    }
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
    Guarded([this] { Paint(); });
}

void TGeoMap::showEvent(QShowEvent* Event)
{
    TCustomControl::showEvent(Event);
    Guarded([this] { Paint(); });
}

// ---- clipboard and bitmaps -----------------------------------------------------------------------------

void TGeoMap::CopyToClipboard()
{
    const std::int32_t W = width(), H = height();
    TBitmap bmp(W, H);
    bmp.CopyRect(0, 0, FAuxBmp, {0, 0, W - 2, H - 2});
    TCanvas& c = bmp.Canvas();
    c.Pen = TPen{};
    const TPoint path[] = {{1, 1}, {W - 2, 1}, {W - 2, H - 2}, {1, H - 2}, {1, 1}};
    c.Polyline(path);
    CopyBitmapToClipboard(bmp);
}

namespace {

// The view of a map while CopyToBMP renders: TopLeft, magnification and frame size are the output's, and
// paints are held. The destructor puts the view back whatever the handlers did to it meanwhile.
class TOutputView {
public:
    TOutputView(TPoint& TopLeft, double& Magnify, TSize& FrameSize, int& HoldPaint, TPoint OutTopLeft,
                double OutMagnify, TSize OutSize)
        : FTopLeft(TopLeft), FMagnify(Magnify), FFrameSize(FrameSize), FHoldPaint(HoldPaint),
          FSavedTopLeft(TopLeft), FSavedMagnify(Magnify), FSavedSize(FrameSize)
    {
        FTopLeft = OutTopLeft;
        FMagnify = OutMagnify;
        FFrameSize = OutSize;
        ++FHoldPaint;
    }
    ~TOutputView()
    {
        FTopLeft = FSavedTopLeft;
        FMagnify = FSavedMagnify;
        FFrameSize = FSavedSize;
        --FHoldPaint;
    }
    TOutputView(const TOutputView&) = delete;
    TOutputView& operator=(const TOutputView&) = delete;

private:
    TPoint& FTopLeft;
    double& FMagnify;
    TSize& FFrameSize;
    int& FHoldPaint;
    const TPoint FSavedTopLeft;
    const double FSavedMagnify;
    const TSize FSavedSize;
};

}  // namespace

TSize TGeoMap::FrameSize() const
{
    return FOutputSize.cx > 0 ? FOutputSize : TSize{width(), height()};
}

void TGeoMap::CopyToBMP(TBitmap& Bitmap, TPoint Position, double Scale, TSize Size)
{
    RenderOutput(Bitmap, nullptr, Position, Scale, Size);
}

void TGeoMap::RenderOutput(TBitmap& Bitmap, TBitmap* BareMap, TPoint Position, double Scale, TSize Size)
{
    if (Size.cx <= 0 || Size.cy <= 0 || !(Scale > 0.0) || !std::isfinite(Scale)) {
        Bitmap = TBitmap();
        return;
    }
    const TCalibFit fit = FCalib.Fit();
    const TCalibData data = FCalib.CalibData();
    TMapRenderState s;
    FillRenderState(s, Size.cx, Size.cy, Position, Scale);
    s.Fit = &fit;
    s.CalibData = &data;
    s.Visible = true;
    if (BareMap) {
        *BareMap = TBitmap();
        auto user = std::move(s.OnBeforeRenderData);
        s.OnBeforeRenderData = [BareMap, Size, user](TCanvas& C) {
            // A deep copy, as for the screen's device-resolution frame.
            *BareMap = TBitmap(C.Bitmap().Image().copy(0, 0, Size.cx, Size.cy));
            if (user)
                user(C);
        };
    }
    TBitmap out;
    {
        // The view's cache serves when it was made at this scale; otherwise a cache of its own, dropped
        // after. It is looked at before the output view replaces the magnification.
        const bool viewCache = FCache.Mag == Scale && FCache.AntiAlias == FAntiAlias;
        TOutputView outputView(FTopLeft, FMagnify, FOutputSize, FHoldPaint, Position, Scale, Size);
        if (viewCache) {
            RenderMapView(s, out, FCache, FRenderCaches.get());
        } else {
            TMapImageCache cache;
            RenderMapView(s, out, cache, FRenderCaches.get());
        }
    }
    if (out.Width() != Size.cx || out.Height() != Size.cy) {
        TBitmap cut(Size.cx, Size.cy);
        cut.CopyRect(0, 0, out, {0, 0, Size.cx, Size.cy});
        out = std::move(cut);
    }
    Bitmap = std::move(out);
}

void TGeoMap::CopyEntireMapToClipboard(double Scale)
{
    TBitmap bmp;
    CopyToBMP(bmp, {0, 0}, Scale,
              {static_cast<std::int32_t>(std::nearbyint(FImage.Width() * Scale)),
               static_cast<std::int32_t>(std::nearbyint(FImage.Height() * Scale))});
    if (!bmp.Empty())
        CopyBitmapToClipboard(bmp);
}

// ---- printing ------------------------------------------------------------------------------------------

namespace {

constexpr double ScreenDpi = 96.0;

// Renders MapRect at RenderScale and draws it at DevPos, DevPerPixel device pixels per rendered pixel.
void DrawRendered(TGeoMap& Map, QPainter& Painter, QPointF DevPos, TRect MapRect, double RenderScale, double DevPerPixel)
{
    if (MapRect.IsEmpty() || !(RenderScale > 0.0))
        return;
    TBitmap bmp;
    Map.CopyToBMP(bmp, {MapRect.Left, MapRect.Top}, RenderScale,
                  {std::max(1, static_cast<std::int32_t>(std::lround(MapRect.Width() * RenderScale))),
                   std::max(1, static_cast<std::int32_t>(std::lround(MapRect.Height() * RenderScale)))});
    if (bmp.Empty())
        return;
    Painter.save();
    Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    Painter.drawImage(QRectF(DevPos, QSizeF(bmp.Width() * DevPerPixel, bmp.Height() * DevPerPixel)), bmp.Image());
    Painter.restore();
}

double DeviceDpi(QPainter& Painter)
{
    const QPaintDevice* d = Painter.device();
    return d && d->logicalDpiX() > 0 ? d->logicalDpiX() : ScreenDpi;
}

}  // namespace

TRect TGeoMap::CalcExtentsOfPrint(QPrinter& Printer, double Scale) const
{
    if (!(Scale > 0.0))
        return {};
    const QRectF page = Printer.pageLayout().paintRect(QPageLayout::Inch);
    const double w = page.width() * ScreenDpi / Scale, h = page.height() * ScreenDpi / Scale;
    TRect r{std::max(FTopLeft.X, 0), std::max(FTopLeft.Y, 0),
            static_cast<std::int32_t>(std::min<double>(FTopLeft.X + std::floor(w), FImage.Width())),
            static_cast<std::int32_t>(std::min<double>(FTopLeft.Y + std::floor(h), FImage.Height()))};
    if (r.IsEmpty())
        return {};
    return r;
}

bool TGeoMap::PrintIt(QPrinter& Printer, double Scale)
{
    const TRect r = CalcExtentsOfPrint(Printer, Scale);
    QPainter painter;
    if (!painter.begin(&Printer))
        return false;
    DrawRendered(*this, painter, QPointF(0, 0), r, Scale, DeviceDpi(painter) / ScreenDpi);
    return painter.end();
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TSize MapSize, double Scale)
{
    const TRect r{FTopLeft.X, FTopLeft.Y, FTopLeft.X + MapSize.cx, FTopLeft.Y + MapSize.cy};
    DrawRendered(*this, Painter, QPointF(0, 0), r, Scale, DeviceDpi(Painter) / ScreenDpi);
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TRect MapRect, std::int32_t Dpi)
{
    CopyToOpenPrinter(Painter, TPoint{0, 0}, MapRect, Dpi);
}

void TGeoMap::CopyToOpenPrinter(QPainter& Painter, TPoint PagePos, TRect MapRect, std::int32_t Dpi)
{
    if (Dpi <= 0)
        return;
    DrawRendered(*this, Painter, QPointF(PagePos.X, PagePos.Y), MapRect, 1.0, DeviceDpi(Painter) / Dpi);
}

double TGeoMap::CopyEntireMapToOpenPrinter(QPainter& Painter, TRect Area, double MaxScale)
{
    if (FImage.Width() <= 0 || FImage.Height() <= 0 || Area.IsEmpty() || !(MaxScale > 0.0) || !std::isfinite(MaxScale))
        return 0.0;
    const double dev = DeviceDpi(Painter) / ScreenDpi;  // device pixels per rendered pixel
    const double scale = std::min({MaxScale, Area.Width() / (FImage.Width() * dev), Area.Height() / (FImage.Height() * dev)});
    // The map's exact extent on the device; the rendered bitmap has whole pixels and is stretched onto it,
    // which keeps the right and bottom edges inside the area whichever way its size rounds.
    const QSizeF size(FImage.Width() * scale * dev, FImage.Height() * scale * dev);
    const QPointF pos(Area.Left + (Area.Width() - size.width()) / 2, Area.Top + (Area.Height() - size.height()) / 2);
    TBitmap bmp, bare;
    RenderOutput(bmp, &bare, {0, 0}, scale,
                 {std::max(1, static_cast<std::int32_t>(std::lround(FImage.Width() * scale))),
                  std::max(1, static_cast<std::int32_t>(std::lround(FImage.Height() * scale)))});
    if (bmp.Empty())
        return 0.0;
    Painter.save();
    if (bare.Width() != bmp.Width() || bare.Height() != bmp.Height() || FImage.Bitmap().Empty()) {
        Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
        Painter.drawImage(QRectF(pos, size), bmp.Image());
        Painter.restore();
        return scale;
    }
    // A printer has many more dots than the 96 an inch the map was rendered at: the map image goes to the
    // device at its own resolution (from the smallest pyramid level that still has a pixel per device
    // pixel), and only what the rendering drew over it (graticule, landmarks, the application's data, the
    // frame) is laid on top at the rendered resolution, each of its pixels a crisp 1/96-inch square. A
    // drawn pixel that happens to equal the map under it is left to the map, which shows the same colour.
    const double k = scale * dev;  // device pixels per map pixel
    const TBitmap* src = &FImage.Bitmap();
    for (const TBitmap& level : FImage.Pyramid()) {
        if (level.Empty() || static_cast<double>(level.Width()) / FImage.Width() < k)
            break;
        src = &level;
    }
    Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    Painter.drawImage(QRectF(pos, size), src->Image(), QRectF(0, 0, src->Width(), src->Height()));
    QImage over(bmp.Width(), bmp.Height(), QImage::Format_ARGB32);
    for (std::int32_t y = 0; y < bmp.Height(); ++y) {
        const std::uint32_t* drawn = bmp.ScanLine(y);
        const std::uint32_t* map = bare.ScanLine(y);
        auto* line = reinterpret_cast<QRgb*>(over.scanLine(y));
        for (std::int32_t x = 0; x < bmp.Width(); ++x)
            line[x] = drawn[x] != map[x] ? drawn[x] | 0xFF000000u : 0u;
    }
    Painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    Painter.drawImage(QRectF(pos, size), over);
    Painter.restore();
    return scale;
}

bool TGeoMap::PrintEntireMap(QPrinter& Printer, double MaxScale)
{
    if (FImage.Width() <= 0 || FImage.Height() <= 0)
        return false;
    QPainter painter;
    if (!painter.begin(&Printer))
        return false;
    // The painter's origin is the printable area's corner; its size is the device's.
    const double scale = CopyEntireMapToOpenPrinter(painter, {0, 0, Printer.width(), Printer.height()}, MaxScale);
    return painter.end() && scale > 0.0;
}

}  // namespace qv
