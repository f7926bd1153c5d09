// RenderMapView: one frame of a map view, step by step in the documented order.
//
// Choices where the drawing is left open:
// - The canvas of AuxBmp keeps its state between paints; each step sets the pen, brush and font it uses
//   (the empty-map message is written in the default font in ColorFrame, its background the brush of
//   ColorBackGnd), so a caption's rotated font never leaks into the next frame.
// - A stretched view (step 6.3) whose source rectangle reaches beyond the map's edges shows the background
//   there: destination columns and rows whose centre maps outside the image get ColorBackGnd instead of
//   repeated edge pixels.
// - Under cmUndefined there is no transform (CalcPixelCoords reports success without a pixel), so no
//   landmark has a place on the map: the landmark loop is skipped, OnDrawLandmark included. The random
//   sample needs the fit too.
// - Captions: see caption_sprites.h for the placement. Captions are drawn after their symbol; an empty
//   caption draws nothing.
// - The highlighted landmark is drawn wherever its pixel lies (clipped by the bitmap), without the strict
//   on-control test and without OnDrawLandmark; only its symbol is drawn again, not its caption.
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/mapview/map_labels_internal.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/mapview/map_render_internal.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/math_services.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace qv {

using render_detail::CanvasCoord;
using render_detail::CanvasPixel;

TMapRenderCachesPtr MakeMapRenderCaches() { return TMapRenderCachesPtr(std::make_unique<TMapRenderCaches>().release()); }
void TMapRenderCachesDeleter::operator()(TMapRenderCaches* Caches) const noexcept
{
    std::unique_ptr<TMapRenderCaches> owned(Caches);  // TMapRenderCaches is complete here
}

int MapPyramidLevel(const TImageSource& Picture, double Mag)
{
    const double need = static_cast<double>(Picture.Size().cx) * Mag;
    int k = 0;
    while (k + 1 < Picture.LevelCount() && static_cast<double>(Picture.LevelSize(k + 1).cx) >= need)
        ++k;
    return k;
}

TSize MapPictureSize(const TMapSources& Sources)
{
    if (Sources.GrafBmp && !Sources.GrafBmp->Empty())
        return {Sources.GrafBmp->Width(), Sources.GrafBmp->Height()};
    if (Sources.Picture)
        return Sources.Picture->Size();
    return {0, 0};
}

namespace render_detail {

TMapPicture MapPicture(const TMapSources& Sources)
{
    TMapPicture p;
    p.Name = Sources.MapImgName;
    if (Sources.GrafBmp && !Sources.GrafBmp->Empty()) {
        std::vector<TBitmap> halved;
        for (const TBitmap* level : Sources.PyramidLevels) {
            if (!level || level->Empty())
                break;
            halved.push_back(*level);
        }
        p.Own = std::make_unique<TBitmapPyramid>(*Sources.GrafBmp, halved);
        p.Levels = p.Own.get();
    } else if (Sources.Picture && Sources.Picture->Size().cx > 0 && Sources.Picture->Size().cy > 0) {
        p.Levels = Sources.Picture;
        p.Tiled = true;
    }
    return p;
}

TBitmap ReadLevelWindow(const TMapPicture& Picture, int Level, TRect Window)
{
    if (Picture.Tiled && std::int64_t{Window.Width()} * Window.Height() > MaxTiledReadPixels)
        throw EXELImageError("\"" + std::string(Picture.Name) + "\": no reduced level small enough for this view (" +
                             std::to_string(Window.Width()) + " x " + std::to_string(Window.Height()) +
                             " pixels to read)");
    return Picture.Levels->ReadWindow(Level, Window);
}

void StretchLevelWindow(TBitmap& Target, TRect Onto, const TMapPicture& Picture, int Level, TRect From,
                        TStretchMode Mode)
{
    const TSize size = Picture.Levels->LevelSize(Level);
    const TRect inside{std::max(From.Left, 0), std::max(From.Top, 0), std::min(From.Right, size.cx),
                       std::min(From.Bottom, size.cy)};
    if (inside.IsEmpty() || From.IsEmpty() || Onto.IsEmpty())
        return;
    if (Picture.Own) {
        // A picture in memory: the same pixels straight from the level, without copying the window first
        // (a reduced view of a large map would copy several view-sizes of pixels at every paint).
        Target.StretchRect(Onto, Picture.Own->Level(Level), From, Mode);
        return;
    }
    const TBitmap window = ReadLevelWindow(Picture, Level, inside);
    // The window's edge pixels are the level's: a source rectangle reaching beyond them reads them again.
    Target.StretchRect(Onto, window,
                       {From.Left - inside.Left, From.Top - inside.Top, From.Right - inside.Left,
                        From.Bottom - inside.Top},
                       Mode);
}

}  // namespace render_detail

namespace {

using render_detail::StretchLevelWindow;

// Fills the W x H window with the background except the rectangle Covered (clipped to the window).
void FillAround(TCanvas& C, TColor Colour, std::int32_t W, std::int32_t H, TRect Covered)
{
    Covered = {std::clamp(Covered.Left, 0, W), std::clamp(Covered.Top, 0, H), std::clamp(Covered.Right, 0, W),
               std::clamp(Covered.Bottom, 0, H)};
    if (Covered.IsEmpty())
        Covered = {0, 0, 0, 0};
    C.Brush = {Colour, bsSolid};
    C.FillRect({0, 0, W, Covered.Top});
    C.FillRect({0, Covered.Bottom, W, H});
    C.FillRect({0, Covered.Top, Covered.Left, Covered.Bottom});
    C.FillRect({Covered.Right, Covered.Top, W, Covered.Bottom});
}

// Steps 5 and 6: the background and the visible part of the map image, through the scaled-image cache
// when the view is reduced. The background is filled only where the image leaves the window uncovered:
// the pixels are those of filling everything first, without writing the frame twice.
void DrawBackgroundAndImage(const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look,
                            std::int32_t W, std::int32_t H, TBitmap& Aux, TMapImageCache& Cache)
{
    const double mag = View.Magnify();
    const TMapPixel topLeft = View.TopLeft();
    TCanvas& canvas = Aux.Canvas();
    const render_detail::TMapPicture picture = render_detail::MapPicture(S);
    if (!picture.Levels) {
        FillAround(canvas, Look.ColorBackGnd, W, H, {});
        return;
    }
    const TImageSource& levels = *picture.Levels;
    const TSize mapSize = levels.Size();
    const TStretchMode mode = Look.AntiAlias ? smHalftone : smColorOnColor;
    // A tiled map is large whatever its size: it is never scaled whole in one go.
    const bool large = picture.Tiled || std::int64_t{mapSize.cx} * mapSize.cy > LargeMapPixels;
    const std::int32_t cacheW = CanvasCoord(mapSize.cx * mag), cacheH = CanvasCoord(mapSize.cy * mag);
    // A large map whose cache would dwarf the view is stretched from its pyramid at every paint instead.
    const bool skipCache =
        large && std::int64_t{cacheW} * cacheH > MaxCacheViewRatio * std::int64_t{W} * H;
    if ((Cache.Mag != mag || Cache.AntiAlias != Look.AntiAlias) && mag < Look.CacheMagLimit && !skipCache) {
        // A halved copy of a big map gives the same picture from far fewer pixels (GrafBmp without one).
        // Read before the cache is touched: a read that fails leaves the cache as it was.
        const int level = MapPyramidLevel(levels, mag);
        const TSize levelSize = levels.LevelSize(level);
        const TBitmap from = render_detail::ReadLevelWindow(picture, level, {0, 0, levelSize.cx, levelSize.cy});
        Cache.Image.SetSize(cacheW, cacheH);
        Cache.Image.StretchRect({0, 0, Cache.Image.Width(), Cache.Image.Height()}, from,
                                {0, 0, from.Width(), from.Height()}, mode);
        Cache.Mag = mag;
        Cache.AntiAlias = Look.AntiAlias;
        ++Cache.CacheBuilds;
    }
    if (Cache.Mag == mag && !skipCache) {
        const std::int32_t x = CanvasCoord(topLeft.X * mag), y = CanvasCoord(topLeft.Y * mag);
        // The cache pixels [0, width) x [0, height) land at (-x, -y); the part of the W x H window beyond
        // AuxBmp cannot be seen, and CopyRect clips both sides.
        FillAround(canvas, Look.ColorBackGnd, W, H,
                   {-x, -y, Cache.Image.Width() - x, Cache.Image.Height() - y});
        Aux.CopyRect(0, 0, Cache.Image, {x, y, x + W, y + H});
        return;
    }
    const TRect src{topLeft.X, topLeft.Y, CanvasCoord(topLeft.X + W / mag), CanvasCoord(topLeft.Y + H / mag)};
    // Columns and rows whose centre falls outside the image show the background, not the edge pixels.
    // Destination pixel i samples source Start + (2i + 1)·SrcLen / (2·DstLen).
    auto inside = [](std::int32_t Start, std::int32_t SrcLen, std::int32_t DstLen, std::int32_t Limit,
                     std::int32_t& Lo, std::int32_t& Hi) {
        Lo = 0;
        Hi = DstLen;
        if (SrcLen <= 0 || DstLen <= 0)
            return;
        auto src = [&](std::int32_t i) { return Start + (2.0 * i + 1.0) * SrcLen / (2.0 * DstLen); };
        while (Lo < Hi && src(Lo) < 0)
            ++Lo;
        while (Hi > Lo && src(Hi - 1) >= Limit)
            --Hi;
    };
    std::int32_t x0, x1, y0, y1;
    inside(src.Left, src.Width(), W, mapSize.cx, x0, x1);
    inside(src.Top, src.Height(), H, mapSize.cy, y0, y1);
    const int level = large ? MapPyramidLevel(levels, mag) : 0;
    if (!picture.Tiled && (level == 0 || src.IsEmpty() || W <= 0 || H <= 0)) {
        Aux.StretchRect({0, 0, W, H}, *S.GrafBmp, src, mode);
    } else if (!src.IsEmpty() && W > 0 && H > 0) {
        // The map rectangle src spans the view; its level image starts and ends inside level pixels. Take
        // the whole level pixels around it and stretch them onto where they fall, which reaches up to a
        // level pixel (at most about one control pixel) beyond the view: StretchRect clips the left and top,
        // and what lands right of or below the W x H window is outside the picture.
        const double fx = levels.LevelScale(level), fy = levels.LevelScaleY(level);  // map per level pixel
        const double sx = W / double(src.Width()), sy = H / double(src.Height());  // control per map pixel
        const double l0 = std::floor(src.Left / fx), t0 = std::floor(src.Top / fy);
        const double l1 = std::ceil(src.Right / fx), t1 = std::ceil(src.Bottom / fy);
        const TRect from{CanvasCoord(l0), CanvasCoord(t0), CanvasCoord(l1), CanvasCoord(t1)};
        const TRect onto{CanvasCoord((l0 * fx - src.Left) * sx), CanvasCoord((t0 * fy - src.Top) * sy),
                         CanvasCoord((l1 * fx - src.Left) * sx), CanvasCoord((t1 * fy - src.Top) * sy)};
        StretchLevelWindow(Aux, onto, picture, level, from, mode);
    }
    ++Cache.DirectStretches;
    if (src.IsEmpty())
        x0 = x1 = y0 = y1 = 0;
    FillAround(canvas, Look.ColorBackGnd, W, H, {x0, y0, x1, y1});
}

// Step 9.1: the probability with which each landmark is drawn.
double SampleProbability(const TMapViewport& View, const TCalibFit& Fit, std::int32_t Limit,
                         const TLandMarkStore& Store)
{
    const std::int32_t n = Store.NumLandMarks();
    if (n <= Limit)
        return 1.0;
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    const std::array<TControlPixel, 4> corners = {TControlPixel{0, 0}, TControlPixel{0, H}, TControlPixel{W, H},
                                                  TControlPixel{W, 0}};  // TCorners order
    TCornerArray view{};
    for (std::size_t i = 0; i < 4; ++i) {
        const TMapPixel m = View.ControlToMapImage(corners[i]);
        bool valid = false;
        view[i].Latit = Fit.CalcLatitude(m.X, m.Y, valid);
        view[i].Longit = Fit.CalcLongitude(m.X, m.Y, valid);
    }
    std::int64_t inView = 0;
    for (const TLandMark& lm : Store.LandMarks()) {
        if (Store.GetClassVisibility(lm.ClassFlag) && PositionInMap(lm.Latitude, lm.Longitude, view))
            ++inView;
    }
    return inView > Limit ? double(Limit) / double(inView) : 1.0;
}

void DrawSymbol(TCanvas& Canvas, TMapRenderCaches* Caches, TPoint P, const TSymbolProperties& Props)
{
    if (Caches)
        Caches->Symbols.Draw(Canvas, P.X, P.Y, Props);
    else
        DrawLandMarkSymbolOnCanvas(Canvas, P.X, P.Y, Props.Kind, Props.FGColor, Props.BGColor, Props.Size,
                                   Props.Direction, Props.Length, Props.Transparent);
}

// Step 9: landmarks, OnDataRendered, the highlighted landmark.
void DrawLandMarks(const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look,
                   const TMapRenderEvents& Events, TCanvas& Canvas, TMapRenderCaches* Caches)
{
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    const TLandMarkStore* store = S.LandMarks;
    const bool placeable = store && S.Fit && S.Fit->Model() != cmUndefined;
    if (placeable && Look.Labels.Active()) {
        const double p = Look.Labels.Placement ? 1.0 : SampleProbability(View, *S.Fit, Look.LMRandSampleLimit, *store);
        render_detail::DrawLabelledLandMarks(View, S, Look, Events, Canvas, Caches, p);
    } else if (placeable) {
        const double p = SampleProbability(View, *S.Fit, Look.LMRandSampleLimit, *store);
        const auto all = store->LandMarks();
        for (std::size_t i = 0; i < all.size(); ++i) {
            const TLandMark& lm = all[i];
            if (!store->GetClassVisibility(lm.ClassFlag))
                continue;
            if (p < 1.0 && !(BRandom(1.0) < p))
                continue;
            TMapPixel m;
            if (!S.Fit->CalcPixelCoords(lm.Latitude, lm.Longitude, m.X, m.Y))
                continue;
            const TPoint c = CanvasPixel(View, m);
            if (Events.OnDrawLandmark) {
                bool handled = false;
                Events.OnDrawLandmark(handled, Canvas, c, lm);
                if (handled)
                    continue;
            }
            if (!(c.X > 0 && c.X < W && c.Y > 0 && c.Y < H))
                continue;
            DrawSymbol(Canvas, Caches, c, lm.SymbolProps);
            if (Caches)
                Caches->Captions.Draw(Canvas, c, lm.Caption, i);
            else
                DrawLandMarkCaption(Canvas, c, lm.Caption);
        }
    }
    if (Events.OnDataRendered)
        Events.OnDataRendered(Canvas);
    if (!placeable)
        return;
    const std::int32_t high = store->HighLM();
    if (high <= 0 || high > store->NumLandMarks())
        return;
    const TLandMark& lm = store->LandMarks()[static_cast<std::size_t>(high - 1)];
    TMapPixel m;
    if (!store->GetClassVisibility(lm.ClassFlag) || !S.Fit->CalcPixelCoords(lm.Latitude, lm.Longitude, m.X, m.Y))
        return;
    TSymbolProperties props = lm.SymbolProps;
    props.FGColor = store->HighLMColFG();
    props.BGColor = store->HighLMColBG();
    props.Transparent = store->HighLMTrans();
    DrawSymbol(Canvas, Caches, CanvasPixel(View, m), ScaledSymbol(props, Look.Labels.EffectiveScale()));
}

}  // namespace

void RenderMapView(const TMapViewport& View, const TMapSources& Sources, const TMapAppearance& Look,
                   TBitmap& AuxBmp, TMapImageCache& Cache, TMapRenderCaches* Caches, const TMapRenderEvents& Events)
{
    const std::int32_t W = std::max(0, View.ControlSize().cx), H = std::max(0, View.ControlSize().cy);
    // 1. AuxBmp only grows.
    if (H > AuxBmp.Height() || W > AuxBmp.Width())
        AuxBmp.SetSize(std::max(W, AuxBmp.Width()), std::max(H, AuxBmp.Height()));
    TCanvas& canvas = AuxBmp.Canvas();
    // 2. Solid pen in copy mode.
    canvas.Pen = TPen{};

    if (Sources.Designing || Sources.MapImgName.empty()) {
        // 3. The empty-map picture.
        canvas.Pen.Color = Look.ColorBackGnd;
        canvas.Brush = {Look.ColorBackGnd, bsSolid};
        canvas.Rectangle(0, 0, W, H);
        canvas.Font = TFont{};
        canvas.Font.Color = Look.ColorFrame;
        canvas.TextOut(10, 10, Look.EmptyMsg);
    } else if (Sources.Visible) {
        // 5. and 6. Background and the map image.
        try {
            DrawBackgroundAndImage(View, Sources, Look, W, H, AuxBmp, Cache);
        } catch (const EXELImageError& e) {
            // Only a tiled map reads a file while it paints. A file that went away or broke under the view
            // must not take the paint with it: the map area shows the background, the frame and everything
            // drawn over the map still come, and the failure is kept for the owner to report.
            if (!Sources.Picture || (Sources.GrafBmp && !Sources.GrafBmp->Empty()))
                throw;
            ++Cache.ReadFailures;
            Cache.LastReadError = e.what();
            FillAround(canvas, Look.ColorBackGnd, W, H, {});
        }
        // 7. The application's data under the graticule.
        if (Events.OnBeforeRenderData)
            Events.OnBeforeRenderData(canvas);
        // 8. Graticule or grid, calibration points.
        canvas.Pen = TPen{};
        render_detail::DrawGraticuleAndPoints(canvas, View, Sources, Look);
        // 9. Landmarks, OnDataRendered, the highlighted landmark.
        canvas.Pen = TPen{};
        DrawLandMarks(View, Sources, Look, Events, canvas, Caches);
        // 9b. Map furniture (none by default).
        DrawMapFurniture(canvas, View, Sources, Look);
    }
    // 10. The frame, for every picture.
    canvas.Pen = TPen{};
    DrawFrame(canvas, Look.FrameStyle, 0, 0, W - 1, H - 1, Look.ColWhiteLine, 0xC0C0C0, Look.ColGrayLine,
              Look.ColBlackLine);
}

void RenderDeviceFrame(TBitmap& Screen, const TBitmap& AuxBmp, const TBitmap* MapOnly, const TMapViewport& View,
                       const TMapSources& Sources, const TMapAppearance& Look)
{
    const double r = View.PixelRatio();
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    const double mag = View.Magnify();
    const TMapPixel tl = View.TopLeft();
    const std::int32_t mapW = View.MapSize().cx, mapH = View.MapSize().cy;
    const std::int32_t Wd = static_cast<std::int32_t>(std::ceil(W * r)), Hd = static_cast<std::int32_t>(std::ceil(H * r));
    if (Screen.Width() != Wd || Screen.Height() != Hd)
        Screen = TBitmap(Wd, Hd);
    Screen.Fill(Look.ColorBackGnd);
    const render_detail::TMapPicture picture = render_detail::MapPicture(Sources);
    if (MapOnly && picture.Levels && mapW > 0 && mapH > 0) {
        const TImageSource& levels = *picture.Levels;
        // The visible map rectangle, clipped to the image, in map pixels and in device pixels.
        const double x0 = std::max<double>(tl.X, 0.0), y0 = std::max<double>(tl.Y, 0.0);
        const double x1 = std::min<double>(tl.X + W / mag, mapW);
        const double y1 = std::min<double>(tl.Y + H / mag, mapH);
        if (x1 > x0 && y1 > y0) {
            const double k = mag * r;  // device pixels per map pixel
            // The smallest level that still has at least one pixel per device pixel.
            int level = 0;
            double scale = 1.0, scaleY = 1.0;
            for (int i = 1; i < levels.LevelCount(); ++i) {
                const TSize size = levels.LevelSize(i);
                const double ls = static_cast<double>(size.cx) / mapW;
                if (size.cx <= 0 || ls < k)
                    break;
                level = i;
                scale = ls;
                // A level reduced alike both ways (halved copies) is placed by one ratio; a file's reduced
                // level by its own ratio down.
                scaleY = levels.LevelScaleY(i) == levels.LevelScale(i) ? ls : static_cast<double>(size.cy) / mapH;
            }
            const TRect dst{static_cast<std::int32_t>(std::lround((x0 - tl.X) * k)),
                            static_cast<std::int32_t>(std::lround((y0 - tl.Y) * k)),
                            static_cast<std::int32_t>(std::lround((x1 - tl.X) * k)),
                            static_cast<std::int32_t>(std::lround((y1 - tl.Y) * k))};
            const TRect from{static_cast<std::int32_t>(std::floor(x0 * scale)), static_cast<std::int32_t>(std::floor(y0 * scaleY)),
                             static_cast<std::int32_t>(std::ceil(x1 * scale)), static_cast<std::int32_t>(std::ceil(y1 * scaleY))};
            try {
                StretchLevelWindow(Screen, dst, picture, level, from, Look.AntiAlias ? smHalftone : smColorOnColor);
            } catch (const EXELImageError&) {
                if (!picture.Tiled)
                    throw;
                // An unreadable tiled map shows the background here as in AuxBmp (which counted it).
            }
        }
    }
    // Everything drawn over the map (or the whole frame when there was no map) comes from AuxBmp, each
    // control pixel covering the device pixels whose centres it contains.
    std::vector<std::int32_t> xs(static_cast<std::size_t>(Wd));
    for (std::int32_t dx = 0; dx < Wd; ++dx)
        xs[static_cast<std::size_t>(dx)] = std::min(static_cast<std::int32_t>((dx + 0.5) / r), W - 1);
    for (std::int32_t dy = 0; dy < Hd; ++dy) {
        const std::int32_t y = std::min(static_cast<std::int32_t>((dy + 0.5) / r), H - 1);
        const std::uint32_t* aux = AuxBmp.ScanLine(y);
        const std::uint32_t* bare = MapOnly ? MapOnly->ScanLine(y) : nullptr;
        std::uint32_t* out = Screen.ScanLine(dy);
        for (std::int32_t dx = 0; dx < Wd; ++dx) {
            const std::int32_t x = xs[static_cast<std::size_t>(dx)];
            if (!bare || aux[x] != bare[x])
                out[dx] = aux[x];
        }
    }
}

}  // namespace qv
