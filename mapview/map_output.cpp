// Output of a map view: bitmaps at a scale of their own, the clipboard's copy, printing.
#include <qvgeo/mapview/map_output.h>

#include <qvgeo/mapview/map_render_internal.h>

#include <QPaintDevice>
#include <QPainter>
#include <QPrinter>

#include <algorithm>
#include <cmath>

namespace qv {

namespace {

constexpr double ScreenDpi = 96.0;

}  // namespace

bool IsDrawableOutput(double Scale, TSize Size)
{
    return Size.cx > 0 && Size.cy > 0 && Scale > 0.0 && std::isfinite(Scale);
}

void RenderMapOutput(TBitmap& Out, TBitmap* BareMap, const TMapViewport& View, const TMapSources& Sources,
                     const TMapAppearance& Look, TMapImageCache& ViewCache, TMapRenderCaches* Caches,
                     TMapRenderEvents Events)
{
    const TSize size = View.ControlSize();
    TMapSources sources = Sources;
    sources.Visible = true;  // an output is drawn whether or not the control is shown
    if (BareMap) {
        *BareMap = TBitmap();
        auto user = std::move(Events.OnBeforeRenderData);
        Events.OnBeforeRenderData = [BareMap, size, user](TCanvas& C) {
            // A deep copy: a shared picture would let row pointers the renderer keeps write into it.
            *BareMap = TBitmap(C.Bitmap().Image().copy(0, 0, size.cx, size.cy));
            if (user)
                user(C);
        };
    }
    TBitmap out;
    // The view's cache serves when it was made at this scale; otherwise a cache of its own, dropped after.
    if (ViewCache.Mag == View.Magnify() && ViewCache.AntiAlias == Look.AntiAlias) {
        RenderMapView(View, sources, Look, out, ViewCache, Caches, Events);
    } else {
        TMapImageCache cache;
        RenderMapView(View, sources, Look, out, cache, Caches, Events);
    }
    if (out.Width() != size.cx || out.Height() != size.cy) {
        TBitmap cut(size.cx, size.cy);
        cut.CopyRect(0, 0, out, {0, 0, size.cx, size.cy});
        out = std::move(cut);
    }
    Out = std::move(out);
}

TOutputViewScope::TOutputViewScope(TMapViewport& View, bool& Active, TMapPixel TopLeft, double Scale, TSize Size)
    : FView(View), FActive(Active), FSavedTopLeft(View.TopLeft()), FSavedMagnify(View.Magnify()),
      FSavedSize(View.ControlSize()), FSavedActive(Active)
{
    FView.SetTopLeft(TopLeft);
    FView.SetMagnify(Scale);
    FView.SetControlSize(Size);
    FActive = true;
}

TOutputViewScope::~TOutputViewScope()
{
    FView.SetTopLeft(FSavedTopLeft);
    FView.SetMagnify(FSavedMagnify);
    FView.SetControlSize(FSavedSize);
    FActive = FSavedActive;
}

TBitmap ClipboardCopy(const TBitmap& AuxBmp, TSize Control)
{
    const std::int32_t W = Control.cx, H = Control.cy;
    TBitmap bmp(W, H);
    bmp.CopyRect(0, 0, AuxBmp, {0, 0, W - 2, H - 2});
    TCanvas& c = bmp.Canvas();
    c.Pen = TPen{};
    const TPoint path[] = {{1, 1}, {W - 2, 1}, {W - 2, H - 2}, {1, H - 2}, {1, 1}};
    c.Polyline(path);
    return bmp;
}

// ---- printing ------------------------------------------------------------------------------------------

double DevicePixelsPer(QPainter& Painter, double Dpi)
{
    const QPaintDevice* d = Painter.device();
    return (d && d->logicalDpiX() > 0 ? d->logicalDpiX() : ScreenDpi) / Dpi;
}

void DrawMapRect(QPainter& Painter, double DevX, double DevY, TRect MapRect, double RenderScale,
                 double DevPerPixel, const TOutputRenderer& Render)
{
    if (MapRect.IsEmpty() || !(RenderScale > 0.0))
        return;
    TBitmap bmp;
    Render(bmp, nullptr, {MapRect.Left, MapRect.Top}, RenderScale,
           {std::max(1, static_cast<std::int32_t>(std::lround(MapRect.Width() * RenderScale))),
            std::max(1, static_cast<std::int32_t>(std::lround(MapRect.Height() * RenderScale)))});
    if (bmp.Empty())
        return;
    Painter.save();
    Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    Painter.drawImage(QRectF(QPointF(DevX, DevY), QSizeF(bmp.Width() * DevPerPixel, bmp.Height() * DevPerPixel)),
                      bmp.Image());
    Painter.restore();
}

TRect PrintExtents(const TMapViewport& View, QPrinter& Printer, double Scale)
{
    if (!(Scale > 0.0))
        return {};
    const QRectF page = Printer.pageLayout().paintRect(QPageLayout::Inch);
    const double w = page.width() * ScreenDpi / Scale, h = page.height() * ScreenDpi / Scale;
    const TMapPixel tl = View.TopLeft();
    TRect r{std::max(tl.X, 0), std::max(tl.Y, 0),
            static_cast<std::int32_t>(std::min<double>(tl.X + std::floor(w), View.MapSize().cx)),
            static_cast<std::int32_t>(std::min<double>(tl.Y + std::floor(h), View.MapSize().cy))};
    if (r.IsEmpty())
        return {};
    return r;
}

double DrawEntireMap(QPainter& Painter, TRect Area, double MaxScale, TSize MapSize, const TMapSources& Sources,
                     const TOutputRenderer& Render)
{
    const std::int32_t mapW = MapSize.cx, mapH = MapSize.cy;
    if (mapW <= 0 || mapH <= 0 || Area.IsEmpty() || !(MaxScale > 0.0) || !std::isfinite(MaxScale))
        return 0.0;
    const double dev = DevicePixelsPer(Painter, ScreenDpi);  // device pixels per rendered pixel
    const double scale = std::min({MaxScale, Area.Width() / (mapW * dev), Area.Height() / (mapH * dev)});
    // The map's exact extent on the device; the rendered bitmap has whole pixels and is stretched onto it,
    // which keeps the right and bottom edges inside the area whichever way its size rounds.
    const QSizeF size(mapW * scale * dev, mapH * scale * dev);
    const QPointF pos(Area.Left + (Area.Width() - size.width()) / 2, Area.Top + (Area.Height() - size.height()) / 2);
    TBitmap bmp, bare;
    Render(bmp, &bare, {0, 0}, scale,
           {std::max(1, static_cast<std::int32_t>(std::lround(mapW * scale))),
            std::max(1, static_cast<std::int32_t>(std::lround(mapH * scale)))});
    if (bmp.Empty())
        return 0.0;
    Painter.save();
    const render_detail::TMapPicture picture = render_detail::MapPicture(Sources);
    if (bare.Width() != bmp.Width() || bare.Height() != bmp.Height() || !picture.Levels) {
        Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
        Painter.drawImage(QRectF(pos, size), bmp.Image());
        Painter.restore();
        return scale;
    }
    // A printer has many more dots than the 96 an inch the map was rendered at: the map image goes to the
    // device at its own resolution (from the smallest pyramid level, or tiled map level, that still has a
    // pixel per device pixel), and only what the rendering drew over it (graticule, landmarks, the
    // application's data, the frame) is laid on top at the rendered resolution, each of its pixels a crisp
    // 1/96-inch square. A drawn pixel that happens to equal the map under it is left to the map, which
    // shows the same colour.
    const double k = scale * dev;  // device pixels per map pixel
    const TImageSource& levels = *picture.Levels;
    int level = 0;
    for (int i = 1; i < levels.LevelCount(); ++i) {
        if (static_cast<double>(levels.LevelSize(i).cx) / mapW < k)
            break;
        level = i;
    }
    const TSize levelSize = levels.LevelSize(level);
    // The whole level: a halved copy in memory is shared, a tiled map's level is read by its tiles.
    const TBitmap src = render_detail::ReadLevelWindow(picture, level, {0, 0, levelSize.cx, levelSize.cy});
    Painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    Painter.drawImage(QRectF(pos, size), src.Image(), QRectF(0, 0, src.Width(), src.Height()));
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

}  // namespace qv
