// TGeoMap: construction, hooks, properties, the map image, the view (magnification, zoom history,
// panning, pixel conversions: each a call to the TMapViewport member plus the repaint the operation
// documents), Assign and the synthetic empty maps. Painting and the output forwarders are in
// geo_map_output.cpp.
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/text.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

namespace qv {

namespace {

bool IsFile(const std::string& Name)
{
    std::error_code ec;
    return !Name.empty() && std::filesystem::is_regular_file(Name, ec);
}

}  // namespace

TGeoMap::TGeoMap(QWidget* Parent) : TCustomControl(Parent), FRenderCaches(MakeMapRenderCaches())
{
    FCache.AntiAlias = FLook.AntiAlias;
    InstallHooks();
    resize(500, 400);
    FView.SetControlSize({width(), height()});
    setFocusPolicy(Qt::StrongFocus);
    ClearZoomHistory();
    InitMouse();
}

TGeoMap::~TGeoMap() = default;

void TGeoMap::InstallHooks()
{
    FCalib.ImageSizeHook = [this](std::int32_t& W, std::int32_t& H) {
        W = FView.MapSize().cx;
        H = FView.MapSize().cy;
    };
    FCalib.ImageNameHook = [this] { return FMapImgName; };
    FCalib.LoadImageHook = [this](const std::string& Name) { LoadImageFromHook(Name); };
    FCalib.RepaintHook = [this] { Paint(); };
    FLandMarks.LandMarkActionHook = [this](bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark) {
        if (OnLandMarkAction)
            OnLandMarkAction(*this, Allowed, Action, LandMark);
    };
    FLandMarks.RepaintHook = [this] { Paint(); };
}

void TGeoMap::SetName(const std::string& Name)
{
    TCustomControl::SetName(Name);
    FCalib.SetComponentName(Name);
    FLandMarks.SetComponentName(Name);
}

void TGeoMap::RaiseError(std::string_view Text) const
{
    throw EXELGeoMapError(ComponentMessage(Name(), Text));
}

// ---- properties ----------------------------------------------------------------------------------------

void TGeoMap::SetAntiAlias(bool Value)
{
    FLook.AntiAlias = Value;
    Paint();
}

void TGeoMap::SetCacheMagLimit(double Value)
{
    if (std::isnan(Value))
        return;
    FLook.CacheMagLimit = std::clamp(Value, 0.0, 2.0 / 3.0);
    if (2.0 / 3.0 > FView.Magnify())
        Paint();
}

void TGeoMap::SetColorBackGnd(TColor Value)
{
    FLook.ColorBackGnd = Value;
    Paint();
}

void TGeoMap::SetColorFrame(TColor Value)
{
    FLook.ColorFrame = Value;
    Paint();
}

void TGeoMap::SetColorGraticule(TColor Value)
{
    FLook.ColorGraticule = Value;
    Paint();
}

void TGeoMap::SetColorCalibPoints(TColor Value)
{
    FLook.ColorCalibPoints = Value;
    Paint();
}

void TGeoMap::SetConfinePanToMapImage(bool Value)
{
    FConfinePan = Value;
    if (Value)
        PanMapToFillWindow();
}

void TGeoMap::SetEmptyMsg(const std::string& Value)
{
    FLook.EmptyMsg = Value;
    Paint();
}

void TGeoMap::SetFrameStyle(TFrameStyle Value)
{
    if (Value == FLook.FrameStyle)
        return;
    FLook.FrameStyle = Value;
    Paint();
}

void TGeoMap::SetGratLineDist(double Value)
{
    if (std::isnan(Value))
        return;
    FLook.GratLineDist = std::clamp(Value, 0.0, 60.0);
    Paint();
}

void TGeoMap::SetUTMGridDist(std::int32_t Value)
{
    FLook.UTMGridDist = std::clamp<std::int32_t>(Value, 0, 10000000);
    Paint();
}

void TGeoMap::SetShowGraticule(TShowGrat Value)
{
    if (Value == FLook.ShowGraticule)
        return;
    FLook.ShowGraticule = Value;
    Paint();
}

void TGeoMap::SetMaxMapPixels(std::int64_t Value)
{
    FMaxMapPixels = std::clamp<std::int64_t>(Value, 1, std::numeric_limits<std::int32_t>::max());
}

void TGeoMap::SetKeyboardNavigation(bool Value)
{
    FKeyboardNavigation = Value;
}

void TGeoMap::SetForcedPixelRatio(double Value)
{
    FForcedPixelRatio = (Value >= 1.0 && Value <= 8.0) ? Value : 0.0;
    Paint();
}

void TGeoMap::SetSuppressPaint(bool Value)
{
    const bool changed = Value != FSuppressPaint;
    FSuppressPaint = Value;
    if (changed && !Value)
        Paint();
}

void TGeoMap::SetRandSampleLimit(std::int32_t Value)
{
    if (Value < 1001 || Value == FLook.LMRandSampleLimit)
        return;
    FLook.LMRandSampleLimit = Value;
    Paint();
}

// ---- the map image -------------------------------------------------------------------------------------

void TGeoMap::LoadImageFromHook(const std::string& Name)
{
    if (!Name.empty()) {
        SetMapImgName(Name);
        return;
    }
    FMapImgName.clear();
    FView.SetMapSize({0, 0});
    FCache.Invalidate();
    Paint();
}

void TGeoMap::CheckMapSize(std::int64_t W, std::int64_t H) const
{
    if (W * H > FMaxMapPixels)
        RaiseError("Cannot use map image, maximum of " + std::to_string(FMaxMapPixels) +
                   " pixels exceeded (size of map is " + std::to_string(W) + " x " + std::to_string(H) + ")");
}

void TGeoMap::SetMapImgName(const std::string& Name)
{
    const std::string passed = (!FImageNameFix.empty() && Name == LowerCase(FImageNameFix)) ? FImageNameFix : Name;
    std::string load = passed;
    if (OnMapImageRequest)
        OnMapImageRequest(*this, load);
    else if (!FReadingCalFile.empty() && !IsFile(load))
        load = FindImageBeside(FReadingCalFile, load);
    if (!IsFile(load)) {
        FCache.Invalidate();
        FMapImgName.clear();
        FView.SetMapSize({0, 0});
        Paint();
        return;
    }
    const std::string ext = LowerCase(std::filesystem::path(load).extension().string());
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".bmp") {
        // Decoded aside: until the new picture has passed every check, the map keeps the one it shows.
        TBitmap picture;
        if (!LoadPicture(picture, load, ext == ".bmp")) {
            FLoadCancelled = true;
            return;
        }
        // An over-size picture is still taken into GrafBmp before the check refuses it, as documented;
        // name, size and view keep their old values. A map switch puts the old picture back.
        FGrafBmp = std::move(picture);
        FPyramidStale = true;
        FCache.Invalidate();
        CheckMapSize(FGrafBmp.Width(), FGrafBmp.Height());
    } else {
        // Any other type loads nothing: the previous picture is checked and shown under the new name.
        CheckMapSize(FGrafBmp.Width(), FGrafBmp.Height());
    }
    FCache.Invalidate();
    TakeNewImage(passed);
}

void TGeoMap::TakeNewImage(const std::string& Name)
{
    FMapImgName = Name;
    FView.SetMapSize({FGrafBmp.Width(), FGrafBmp.Height()});
    if (std::int64_t{MapWidth()} * MapHeight() > DefaultMaxMapPixels)
        FAuxBmp.SetSize(width(), height());  // a screen image of the whole map would only waste memory
    else
        FAuxBmp.SetSize(MapWidth(), MapHeight());
    if (FPyramidStale)
        BuildPyramid();
    FView.SetTopLeft({0, 0});
    Paint();
}

void TGeoMap::SetMapBitMap(const TBitmap& Bitmap)
{
    // The copy stays in GrafBmp when the size check refuses it, as with a picture loaded by name.
    FCache.Invalidate();
    FGrafBmp = Bitmap;
    FPyramidStale = true;
    CheckMapSize(FGrafBmp.Width(), FGrafBmp.Height());
    TakeNewImage("$unknown$");
}

bool TGeoMap::RenameMapImg(const std::string& NewName)
{
    const std::string reduced = StripExtension(StripPath(ReduceStringToFN83CompliantChars(NewName)));
    if (FMapImgName.empty() || reduced.empty() || !IsFile(FMapImgName))
        return false;
    const std::filesystem::path current(FMapImgName);
    const std::filesystem::path target = current.parent_path() / (reduced + current.extension().string());
    std::error_code ec;
    std::filesystem::rename(current, target, ec);
    if (ec)
        return false;
    FMapImgName = target.string();
    return true;
}

void TGeoMap::SaveMap(const std::string& FileName, std::string_view Comment)
{
    FMapImgName = StripExtension(StripPath(FileName)) + ".jpg";
    FCalib.SaveCalDataAsXML(StripExtension(FileName) + ".xml", Comment);
    const std::filesystem::path dir = std::filesystem::path(FileName).parent_path();
    SaveJPEG(FGrafBmp, (dir / FMapImgName).string());
}

void TGeoMap::ResizeMap(std::int32_t Size)
{
    const std::int32_t longer = std::max(MapWidth(), MapHeight());
    if (longer > 0)
        ResizeMap(static_cast<double>(Size) / longer);
}

void TGeoMap::ResizeMap(double Factor)
{
    const std::int32_t w = FGrafBmp.Width(), h = FGrafBmp.Height();
    const std::int32_t nw = RoundSaturated(w * Factor), nh = RoundSaturated(h * Factor);
    if (!(Factor > 0.0) || nw < 1 || nh < 1 || std::int64_t{nw} * nh > FMaxMapPixels)
        return;
    FCache.Invalidate();
    {
        THoldPaint hold(*this);
        TBitmap resized(nw, nh);
        resized.StretchRect({0, 0, nw, nh}, FGrafBmp, {0, 0, w, h}, FLook.AntiAlias ? smHalftone : smColorOnColor);
        FGrafBmp = std::move(resized);
        FPyramidStale = true;
        // The new size is in place before the refit, so that the corners are those of the resized image.
        FView.SetMapSize({nw, nh});
        FCalib.ScaleCalibPoints(Factor);
    }
    TakeNewImage(FMapImgName);
}

const TBitmap* TGeoMap::PyramidLevel(int Level) const
{
    if (Level < 0 || Level >= static_cast<int>(FPyramid.size()) || FPyramid[Level].Empty())
        return nullptr;
    return &FPyramid[Level];
}

namespace {

// Source halved: each pixel the rounded mean of a 2 x 2 block (of the pixels that exist at the right and
// bottom edges of an odd size).
TBitmap Halve(const TBitmap& Src)
{
    const std::int32_t w = Src.Width(), h = Src.Height();
    const std::int32_t hw = (w + 1) / 2, hh = (h + 1) / 2;
    TBitmap out(hw, hh);
    for (std::int32_t y = 0; y < hh; ++y) {
        const std::uint32_t* r0 = Src.ScanLine(2 * y);
        const std::uint32_t* r1 = Src.ScanLine(std::min(2 * y + 1, h - 1));
        std::uint32_t* d = out.ScanLine(y);
        for (std::int32_t x = 0; x < hw; ++x) {
            const std::int32_t x0 = 2 * x, x1 = std::min(2 * x + 1, w - 1);
            const std::uint32_t p[4] = {r0[x0], r0[x1], r1[x0], r1[x1]};
            std::uint32_t rb = 0, g = 0;
            for (std::uint32_t v : p) {
                rb += v & 0x00FF00FFu;  // red and blue side by side: 4 x 255 fits in 10 bits each
                g += v & 0x0000FF00u;
            }
            rb = ((rb + 0x00020002u) >> 2) & 0x00FF00FFu;
            g = ((g + 0x00000200u) >> 2) & 0x0000FF00u;
            d[x] = 0xFF000000u | rb | g;
        }
    }
    return out;
}

}  // namespace

void TGeoMap::BuildPyramid()
{
    for (TBitmap& level : FPyramid)
        level = TBitmap();
    FPyramidStale = false;
    if (std::int64_t{FGrafBmp.Width()} * FGrafBmp.Height() <= DefaultMaxMapPixels)
        return;
    const TBitmap* from = &FGrafBmp;
    for (TBitmap& level : FPyramid) {
        if (from->Width() < 2 || from->Height() < 2)
            break;
        level = Halve(*from);
        from = &level;
    }
}

// ---- view (TMapViewport) ------------------------------------------------------------------------------

void TGeoMap::SetMagnification(double Value)
{
    if (FView.SetMagnify(Value))
        Paint();
}

void TGeoMap::SetTopLeft(TPoint Value)
{
    FView.SetTopLeft(TMapPixel(Value));
    Paint();
}

void TGeoMap::ZoomStateOnStack()
{
    if (!ComponentState().Contains(csLoading))
        FView.PushView();
}

TgmZoomStackEntry TGeoMap::GetZoomStackEntry(std::int32_t n) const
{
    return FView.HistoryEntry(n);
}

void TGeoMap::ZoomHistory(std::int32_t n)
{
    if (FView.RestoreView(n))
        Paint();
}

void TGeoMap::ClearZoomHistory()
{
    FView.ClearHistory();
    ZoomStateOnStack();
}

void TGeoMap::PanMapToFillWindow()
{
    SizedView().Confine();
}

void TGeoMap::BringMapPixelToCenter(TPoint P)
{
    SizedView().CentreOn(TMapPixel(P));
    Paint();
}

void TGeoMap::BringLocationToCenter(double Lat, double Long)
{
    TMapPixel p;
    if (!FCalib.CalcPixelCoords(Lat, Long, p.X, p.Y))
        return;
    SizedView().CentreOnWithin(p);
    Paint();
}

void TGeoMap::ZoomFitPage()
{
    // A control of no width or height (an atlas lower than its panel) gets the smallest magnification, not 0.
    if (SizedView().FitPage())
        SetTopLeft({0, 0});
}

TPoint TGeoMap::ControlToMapImage(TPoint P) const
{
    return FView.ControlToMapImage(TControlPixel(P)).Point();
}

TPoint TGeoMap::MapImageToControl(TPoint P) const
{
    return FView.MapImageToControl(TMapPixel(P)).Point();
}

double TGeoMap::GetLastMClickLatitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLatitude(FLastMClickPosX, FLastMClickPosY, valid);
    return valid ? v : 0.0;
}

double TGeoMap::GetLastMClickLongitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLongitude(FLastMClickPosX, FLastMClickPosY, valid);
    return valid ? v : 0.0;
}

void TGeoMap::DoZoomPanEvent()
{
    if (OnZoomPan)
        OnZoomPan(*this);
}

void TGeoMap::DoSelectRectEvent(std::int32_t Kind, double V1, double V2, double V3, double V4)
{
    if (OnSelectRect)
        OnSelectRect(*this, Kind, V1, V2, V3, V4);
}

// ---- Assign --------------------------------------------------------------------------------------------

void TGeoMap::Assign(const TGeoMap& Source)
{
    if (&Source == this)
        return;
    {
        THoldPaint hold(*this);
        FAuxBmp = Source.FAuxBmp;
        FCache = Source.FCache;
        FLandMarks.AssignLandMarks(Source.FLandMarks);
        // Colours, frame style, EmptyMsg, sample limit, graticule, anti-alias, cache limit.
        FLook = Source.FLook;
        FLButtonWasDown = Source.FLButtonWasDown;
        FMapImgName = Source.FMapImgName;
        // Image size, magnification, TopLeft and the zoom history with its write position (a position
        // without its entries would point into a different history); the control size stays this one's.
        const TSize control = FView.ControlSize();
        FView = Source.FView;
        FView.SetControlSize(control);
        FZoomState = Source.FZoomState;
        FMouseBoxState = Source.FMouseBoxState;
        FMouseBoxX1 = Source.FMouseBoxX1;
        FMouseBoxX2 = Source.FMouseBoxX2;
        FMouseBoxY1 = Source.FMouseBoxY1;
        FMouseBoxY2 = Source.FMouseBoxY2;
        FWindOldCornerX = Source.FWindOldCornerX;
        FWindOldCornerY = Source.FWindOldCornerY;
        FWindAnchorX = Source.FWindAnchorX;
        FWindAnchorY = Source.FWindAnchorY;
        FCalib.AssignCalibration(Source.FCalib);  // model, data, fit, removed points, FCalDatName
        FTopLeftXAnchor = Source.FTopLeftXAnchor;
        FTopLeftYAnchor = Source.FTopLeftYAnchor;
        MouseAnchorX = Source.MouseAnchorX;
        MouseAnchorY = Source.MouseAnchorY;
        FMouseAction = Source.FMouseAction;
        FConfinePan = Source.FConfinePan;
        FMaxMapPixels = Source.FMaxMapPixels;
        FKeyboardNavigation = Source.FKeyboardNavigation;
        FGrafBmp = Source.FGrafBmp;
        FPyramid = Source.FPyramid;
        FPyramidStale = Source.FPyramidStale;
    }
    Paint();
}

// ---- synthetic empty maps ------------------------------------------------------------------------------

namespace {

TEmptyMapRequest EmptyRequest(TGeoMap& Map, double LatMin, double LongMin, double LatMax, double LongMax,
                              double LatGratDist, double LongGratDist, std::int32_t Width, std::int32_t Height,
                              bool ShowGrat, const TGeoMapDrawDataEvent& OnDrawData)
{
    TEmptyMapRequest r;
    r.LatMin = LatMin;
    r.LongMin = LongMin;
    r.LatMax = LatMax;
    r.LongMax = LongMax;
    r.LatGratDist = LatGratDist;
    r.LongGratDist = LongGratDist;
    r.Width = Width;
    r.Height = Height;
    r.ShowGrat = ShowGrat;
    if (OnDrawData)
        r.OnDrawData = [&Map, OnDrawData](TCanvas& C, double a, double b, double c, double d, std::int32_t w,
                                          std::int32_t h) { OnDrawData(Map, C, a, b, c, d, w, h); };
    return r;
}

}  // namespace

void TGeoMap::CreateEmptyMapInMemory(double LatMin, double LongMin, double LatMax, double LongMax,
                                     double LatGratDist, double LongGratDist, std::int32_t Width,
                                     std::int32_t Height, bool ShowGrat, const TGeoMapDrawDataEvent& OnDrawData)
{
    TBitmap bmp;
    TCalibData cal;
    GenerateEmptyMap(EmptyRequest(*this, LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width,
                                  Height, ShowGrat, OnDrawData),
                     bmp, cal);
    {
        THoldPaint hold(*this);
        SetMapBitMap(bmp);
        cal.MapFName = "$unknown$";
        FCalib.LoadCalibData(cal, cmEquiRect);
        FCalib.RecalcCalibration();
    }
    Paint();
}

void TGeoMap::CreateAndLoadEmptyMap(const std::string& FName, double LatMin, double LongMin, double LatMax,
                                    double LongMax, double LatGratDist, double LongGratDist, std::int32_t Width,
                                    std::int32_t Height, const TGeoMapDrawDataEvent& OnDrawData)
{
    const TEmptyMapFiles files = WriteEmptyMapFiles(
        FName, EmptyRequest(*this, LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width, Height,
                            true, OnDrawData),
        ".bmp");
    {
        THoldPaint hold(*this);
        // The calibration reader lower-cases the image name it finds; the file just written is meant.
        FImageNameFix = files.ImageFile;
        try {
            FCalib.LoadCalDataFromXML(files.CalibFile, EmptyMapCalibId);
        } catch (...) {
            FImageNameFix.clear();
            throw;
        }
        FImageNameFix.clear();
    }
    Paint();
}

}  // namespace qv
