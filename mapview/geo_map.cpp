// TGeoMap: construction, the notices of its parts and its signals, properties, the map image, the view
// (magnification, zoom history, panning, pixel conversions), Assign and the synthetic empty maps.
// Rendering and output are in geo_map_output.cpp.
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/text.h>

#include <QMetaProperty>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

namespace qv {

namespace {

// Round half to even, saturated to the 32-bit range (NaN gives 0): the calibration's own rounding.
inline std::int32_t RoundI(double V) { return RoundSaturated(V); }

}  // namespace

TGeoMap::TGeoMap(QWidget* Parent) : TCustomControl(Parent), FRenderCaches(MakeMapRenderCaches())
{
    FCache.AntiAlias = FAntiAlias;
    // The parts notify; the map repaints and signals. The question before an add or remove is the
    // application's (OnLandMarkAction), asked through the store.
    FCalib.SetChangeListener([this](unsigned What) { CalibrationChanged(What); });
    FLandMarks.SetChangeListener([this](unsigned What) { LandMarksChanged(What); });
    FLandMarks.LandMarkActionHook = [this](bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark) {
        if (OnLandMarkAction)
            OnLandMarkAction(*this, Allowed, Action, LandMark);
    };
    resize(500, 400);
    setFocusPolicy(Qt::StrongFocus);
    ClearZoomHistory();
    InitMouse();
    FAnnounced.Magnify = FMagnify;
    FAnnounced.TopLeft = FTopLeft;
    FAnnounced.ControlSize = {width(), height()};
    FAnnounced.CalibModel = CalibModel();
    FAnnounced.UTMZone = UTMZone();
    FAnnounced.Hemisphere = UTMHemisphere();
}

TGeoMap::~TGeoMap() = default;

// ---- notices and signals ------------------------------------------------------------------------------

void TGeoMap::CalibrationChanged(unsigned What)
{
    // The caption is not drawn: writing it does not repaint.
    if (What != ccCaption)
        Paint();
    if (FInSwitch)
        FSwitchTouched = true;
    emit calibrationChanged();
    if (CalibModel() != FAnnounced.CalibModel) {
        FAnnounced.CalibModel = CalibModel();
        emit calibModelChanged();
    }
    if (UTMZone() != FAnnounced.UTMZone) {
        FAnnounced.UTMZone = UTMZone();
        emit utmZoneChanged();
    }
    if (UTMHemisphere() != FAnnounced.Hemisphere) {
        FAnnounced.Hemisphere = UTMHemisphere();
        emit utmHemisphereChanged();
    }
}

void TGeoMap::LandMarksChanged(unsigned)
{
    Paint();
    emit landMarksChanged();
}

void TGeoMap::NoteViewChange()
{
    const TSize size{width(), height()};
    const bool magnify = FMagnify != FAnnounced.Magnify;
    if (!magnify && FTopLeft == FAnnounced.TopLeft && size == FAnnounced.ControlSize)
        return;
    // Recorded before emitting: a receiver that moves the view again is announced by its own call.
    FAnnounced.Magnify = FMagnify;
    FAnnounced.TopLeft = FTopLeft;
    FAnnounced.ControlSize = size;
    if (magnify)
        emit magnificationChanged(FMagnify);
    emit viewChanged();
}

void TGeoMap::NotePointer(TPoint ControlPixel)
{
    const TPoint p = ControlToMapImage(ControlPixel);
    TCoords c;
    const bool over = p.X >= 0 && p.Y >= 0 && p.X < FImage.Width() && p.Y < FImage.Height() &&
                      CalibModel() != cmUndefined && FCalib.CalcPosition(p, c);
    if (!over || (FAnnounced.MouseOverMap && p == FAnnounced.MouseMapPixel)) {
        FAnnounced.MouseOverMap = over;
        return;
    }
    FAnnounced.MouseOverMap = true;
    FAnnounced.MouseMapPixel = p;
    emit mouseGeoPositionChanged(c.Latit, c.Longit);
}

std::vector<QVariant> TGeoMap::PropertyValues() const
{
    const QMetaObject* mo = metaObject();
    std::vector<QVariant> values;
    for (int i = TGeoMap::staticMetaObject.propertyOffset(); i < mo->propertyCount(); ++i)
        values.push_back(mo->property(i).read(this));
    return values;
}

void TGeoMap::NotifyChangedProperties(const std::vector<QVariant>& Before)
{
    const QMetaObject* mo = metaObject();
    const int first = TGeoMap::staticMetaObject.propertyOffset();
    for (int i = first; i < mo->propertyCount() && std::size_t(i - first) < Before.size(); ++i) {
        const QMetaProperty p = mo->property(i);
        // Magnification and the calibration's properties have their own announcements.
        if (!p.hasNotifySignal() || p.notifySignal().parameterCount() > 0 ||
            p.read(this) == Before[static_cast<std::size_t>(i - first)])
            continue;
        if (p.notifySignal() == QMetaMethod::fromSignal(&TGeoMap::calibModelChanged) ||
            p.notifySignal() == QMetaMethod::fromSignal(&TGeoMap::utmZoneChanged) ||
            p.notifySignal() == QMetaMethod::fromSignal(&TGeoMap::utmHemisphereChanged))
            continue;
        p.notifySignal().invoke(this, Qt::DirectConnection);
    }
}

void TGeoMap::ReportError(const std::exception& Error)
{
    emit error(QString::fromStdString(Error.what()));
    TCustomControl::ReportError(Error);
}

void TGeoMap::SetName(const std::string& Name)
{
    TCustomControl::SetName(Name);
    FCalib.SetComponentName(Name);
    FLandMarks.SetComponentName(Name);
    FImage.SetComponentName(Name);
}

void TGeoMap::RaiseError(std::string_view Text) const
{
    throw EXELGeoMapError(ComponentMessage(Name(), Text));
}

// ---- properties ----------------------------------------------------------------------------------------

void TGeoMap::SetAntiAlias(bool Value)
{
    const bool changed = Value != FAntiAlias;
    FAntiAlias = Value;
    Paint();
    if (changed)
        emit antiAliasChanged();
}

void TGeoMap::SetCacheMagLimit(double Value)
{
    if (std::isnan(Value))
        return;
    const double old = FCacheMagLimit;
    FCacheMagLimit = std::clamp(Value, 0.0, 2.0 / 3.0);
    if (2.0 / 3.0 > FMagnify)
        Paint();
    if (FCacheMagLimit != old)
        emit cacheMagLimitChanged();
}

void TGeoMap::SetColorBackGnd(TColor Value)
{
    const bool changed = Value != FColorBakGnd;
    FColorBakGnd = Value;
    Paint();
    if (changed)
        emit colorBackGndChanged();
}

void TGeoMap::SetColorFrame(TColor Value)
{
    const bool changed = Value != FFrameColor;
    FFrameColor = Value;
    Paint();
    if (changed)
        emit colorFrameChanged();
}

void TGeoMap::SetColorGraticule(TColor Value)
{
    const bool changed = Value != FColorGratLine;
    FColorGratLine = Value;
    Paint();
    if (changed)
        emit colorGraticuleChanged();
}

void TGeoMap::SetColorCalibPoints(TColor Value)
{
    const bool changed = Value != FColorGratPoints;
    FColorGratPoints = Value;
    Paint();
    if (changed)
        emit colorCalibPointsChanged();
}

void TGeoMap::SetConfinePanToMapImage(bool Value)
{
    const bool changed = Value != FConfinePan;
    FConfinePan = Value;
    if (Value)
        PanMapToFillWindow();
    if (changed)
        emit confinePanToMapImageChanged();
}

void TGeoMap::SetEmptyMsg(const std::string& Value)
{
    const bool changed = Value != FEmptyMsg;
    FEmptyMsg = Value;
    Paint();
    if (changed)
        emit emptyMsgChanged();
}

void TGeoMap::SetFrameStyle(TFrameStyle Value)
{
    if (Value == FFrameStyle)
        return;
    FFrameStyle = Value;
    Paint();
    emit frameStyleChanged();
}

void TGeoMap::SetGratLineDist(double Value)
{
    if (std::isnan(Value))
        return;
    const double old = FGratLineDist;
    FGratLineDist = std::clamp(Value, 0.0, 60.0);
    Paint();
    if (FGratLineDist != old)
        emit gratLineDistChanged();
}

void TGeoMap::SetUTMGridDist(std::int32_t Value)
{
    const std::int32_t old = FUTMGridDist;
    FUTMGridDist = std::clamp<std::int32_t>(Value, 0, 10000000);
    Paint();
    if (FUTMGridDist != old)
        emit utmGridDistChanged();
}

void TGeoMap::SetShowGraticule(TShowGrat Value)
{
    if (Value == FShowGrat)
        return;
    FShowGrat = Value;
    Paint();
    emit showGraticuleChanged();
}

void TGeoMap::SetMaxMapPixels(std::int64_t Value)
{
    const std::int64_t old = FImage.MaxPixels();
    FImage.SetMaxPixels(Value);
    if (FImage.MaxPixels() != old)
        emit maxMapPixelsChanged();
}

void TGeoMap::SetKeyboardNavigation(bool Value)
{
    const bool changed = Value != FKeyboardNavigation;
    FKeyboardNavigation = Value;
    if (changed)
        emit keyboardNavigationChanged();
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
    if (Value < 1001 || Value == FLMRandSampleLimit)
        return;
    FLMRandSampleLimit = Value;
    Paint();
}

// ---- the map image -------------------------------------------------------------------------------------

void TGeoMap::PushImageToCalibration()
{
    FCalib.SetImageName(FImage.Name());
    FCalib.SetImageSize(FImage.Width(), FImage.Height());
}

void TGeoMap::SetMapImgName(const std::string& Name)
{
    // The calibration reader lower-cases the name; CreateAndLoadEmptyMap means the file it just wrote.
    LoadImage((!FImageNameFix.empty() && Name == LowerCase(FImageNameFix)) ? FImageNameFix : Name);
}

void TGeoMap::LoadImage(const std::string& Name)
{
    TMapImage::TLoadEvents events;
    if (OnMapImageRequest)
        events.Request = [this](std::string& FileName) { OnMapImageRequest(*this, FileName); };
    events.Progress = [this](TProgressStage Stage, std::int32_t Percent) { NotifyLoading(Stage, Percent); };
    events.BesideFile = FReadingCalFile;
    events.CheckHeaderFirst = FInSwitch;
    const std::uint64_t generation = FImage.Generation();
    TMapImage::TLoadResult result = TMapImage::lrCancelled;
    try {
        result = FImage.Load(Name, events);
    } catch (...) {
        // An over-size picture was taken before the check refused it: the scaled copy is of the old one.
        if (FImage.Generation() != generation)
            FCache.Invalidate();
        throw;
    }
    switch (result) {
    case TMapImage::lrCancelled:
        FLoadCancelled = true;
        return;
    case TMapImage::lrMissing:
        FCache.Invalidate();
        PushImageToCalibration();
        Paint();
        AnnounceMapChange();
        return;
    case TMapImage::lrTaken:
        FCache.Invalidate();
        TakeNewImage();
        return;
    }
}

void TGeoMap::AnnounceMapChange()
{
    if (FInSwitch)
        FSwitchTouched = true;  // the switch announces once at its end
    else
        emit mapChanged();
}

void TGeoMap::TakeNewImage()
{
    PushImageToCalibration();
    const std::int32_t w = FImage.Width(), h = FImage.Height();
    if (std::int64_t{w} * h > DefaultMaxMapPixels)
        FAuxBmp.SetSize(width(), height());  // a screen image of the whole map would only waste memory
    else
        FAuxBmp.SetSize(w, h);
    FTopLeft = {0, 0};
    Paint();
    AnnounceMapChange();
}

void TGeoMap::SetMapBitMap(const TBitmap& Bitmap)
{
    FCache.Invalidate();
    FImage.Assign(Bitmap);  // the copy stays in GrafBmp when the size check refuses it
    TakeNewImage();
}

bool TGeoMap::RenameMapImg(const std::string& NewName)
{
    if (!FImage.Rename(NewName))
        return false;
    PushImageToCalibration();
    return true;
}

void TGeoMap::SaveMap(const std::string& FileName, std::string_view Comment)
{
    FImage.SetName(StripExtension(StripPath(FileName)) + ".jpg");
    PushImageToCalibration();
    FCalib.SaveCalDataAsXML(StripExtension(FileName) + ".xml", Comment);
    const std::filesystem::path dir = std::filesystem::path(FileName).parent_path();
    FImage.SaveJPEG((dir / FImage.Name()).string());
}

void TGeoMap::ResizeMap(std::int32_t Size)
{
    const std::int32_t longer = std::max(FImage.Width(), FImage.Height());
    if (longer > 0)
        ResizeMap(static_cast<double>(Size) / longer);
}

void TGeoMap::ResizeMap(double Factor)
{
    {
        THoldPaint hold(*this);
        if (!FImage.Resample(Factor, FAntiAlias))
            return;
        FCache.Invalidate();
        // The new size is in place before the refit, so that the corners are those of the resized image.
        PushImageToCalibration();
        FCalib.ScaleCalibPoints(Factor);
    }
    TakeNewImage();
}

void TGeoMap::Clear()
{
    {
        THoldPaint hold(*this);
        FCalib.Clear();
        FImage.Drop();
        FCache.Invalidate();
        PushImageToCalibration();
    }
    Paint();
    AnnounceMapChange();
}

// ---- view ----------------------------------------------------------------------------------------------

void TGeoMap::SetMagnification(double Value)
{
    if (!(Value > 0.0) || !std::isfinite(Value))
        return;
    FMagnify = ClampMagnification(Value);
    Paint();
}

void TGeoMap::SetTopLeft(TPoint Value)
{
    FTopLeft = Value;
    Paint();
}

void TGeoMap::ZoomStateOnStack()
{
    if (ComponentState().Contains(csLoading))
        return;
    FZoomStack[FZStackPoi - 1] = {FTopLeft.X, FTopLeft.Y, FMagnify};
    FZStackPoi = FZStackPoi == 16 ? 1 : FZStackPoi + 1;
}

TgmZoomStackEntry TGeoMap::GetZoomStackEntry(std::int32_t n) const
{
    if (n < -15 || n > 0)
        return {};
    std::int32_t slot = FZStackPoi + n - 1;
    if (slot < 1)
        slot += 16;
    return FZoomStack[slot - 1];
}

void TGeoMap::ZoomHistory(std::int32_t n)
{
    if (n < -15 || n > 0)
        return;
    const TgmZoomStackEntry e = GetZoomStackEntry(n);
    if (e.Left == 0 && e.Top == 0 && e.MagF == 0.0)
        return;
    FTopLeft = {e.Left, e.Top};
    FMagnify = ClampMagnification(e.MagF);
    Paint();
}

void TGeoMap::ClearZoomHistory()
{
    FZoomStack.fill({});
    FZStackPoi = 1;
    ZoomStateOnStack();
}

void TGeoMap::PanMapToFillWindow()
{
    const double visW = width() / FMagnify, visH = height() / FMagnify;
    if (FTopLeft.X > FImage.Width() - visW)
        FTopLeft.X = RoundI(FImage.Width() - visW);
    if (FTopLeft.Y > FImage.Height() - visH)
        FTopLeft.Y = RoundI(FImage.Height() - visH);
    FTopLeft.X = std::max(FTopLeft.X, 0);
    FTopLeft.Y = std::max(FTopLeft.Y, 0);
    if (FHoldPaint == 0)
        NoteViewChange();
}

void TGeoMap::BringMapPixelToCenter(TPoint P)
{
    FTopLeft = {RoundI(P.X - static_cast<double>(RoundI(width() / FMagnify / 2))),
                RoundI(P.Y - static_cast<double>(RoundI(height() / FMagnify / 2)))};
    PanMapToFillWindow();
    Paint();
}

void TGeoMap::BringLocationToCenter(double Lat, double Long)
{
    std::int32_t x = 0, y = 0;
    if (!FCalib.CalcPixelCoords(Lat, Long, x, y))
        return;
    const double hx = RoundI(width() / FMagnify / 2), hy = RoundI(height() / FMagnify / 2);
    double left = x - hx, top = y - hy;
    left = std::max(std::min(left, FImage.Width() - 2 * hx), 0.0);
    top = std::max(std::min(top, FImage.Height() - 2 * hy), 0.0);
    FTopLeft = {RoundI(left), RoundI(top)};
    Paint();
}

void TGeoMap::ZoomFitPage()
{
    if (FImage.Width() <= 0 || FImage.Height() <= 0)
        return;
    // A control of no width or height (an atlas lower than its panel) gets the smallest magnification, not 0.
    FMagnify = ClampMagnification(
        std::min(static_cast<double>(width()) / FImage.Width(), static_cast<double>(height()) / FImage.Height()));
    SetTopLeft({0, 0});
}

TPoint TGeoMap::ControlToMapImage(TPoint P) const
{
    return {RoundI(RoundI(P.X / FMagnify) + static_cast<double>(FTopLeft.X)),
            RoundI(RoundI(P.Y / FMagnify) + static_cast<double>(FTopLeft.Y))};
}

TPoint TGeoMap::MapImageToControl(TPoint P) const
{
    return {RoundI((static_cast<double>(P.X) - FTopLeft.X) * FMagnify),
            RoundI((static_cast<double>(P.Y) - FTopLeft.Y) * FMagnify)};
}

double TGeoMap::GetLastMClickLatitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLatitude(FMouse.LastClick().X, FMouse.LastClick().Y, valid);
    return valid ? v : 0.0;
}

double TGeoMap::GetLastMClickLongitude() const
{
    bool valid = false;
    const double v = FCalib.CalcLongitude(FMouse.LastClick().X, FMouse.LastClick().Y, valid);
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
    emit selectRect(Kind, V1, V2, V3, V4);
}

// ---- Assign --------------------------------------------------------------------------------------------

void TGeoMap::Assign(const TGeoMap& Source)
{
    if (&Source == this)
        return;
    const std::vector<QVariant> before = PropertyValues();
    {
        THoldPaint hold(*this);
        FAuxBmp = Source.FAuxBmp;
        FCache = Source.FCache;
        FCacheMagLimit = Source.FCacheMagLimit;
        FLandMarks.AssignLandMarks(Source.FLandMarks);
        FColorBakGnd = Source.FColorBakGnd;
        FFrameStyle = Source.FFrameStyle;
        FFrameColor = Source.FFrameColor;
        FColorGratLine = Source.FColorGratLine;
        FColorGratPoints = Source.FColorGratPoints;
        FColBlackLine = Source.FColBlackLine;
        FColGrayLine = Source.FColGrayLine;
        FColWhiteLine = Source.FColWhiteLine;
        FEmptyMsg = Source.FEmptyMsg;
        FLMRandSampleLimit = Source.FLMRandSampleLimit;
        FMagnify = Source.FMagnify;
        FShowGrat = Source.FShowGrat;
        FTopLeft = Source.FTopLeft;
        FCalib.AssignCalibration(Source.FCalib);  // model, data, fit, removed points, FCalDatName
        FAntiAlias = Source.FAntiAlias;
        FGratLineDist = Source.FGratLineDist;
        FUTMGridDist = Source.FUTMGridDist;
        // The history's entries travel with its write position: a position without its entries would
        // point into a different history.
        FZoomStack = Source.FZoomStack;
        FZStackPoi = Source.FZStackPoi;
        FMouse.AssignState(Source.FMouse);  // mode, drag anchors, zoom window, mouse box
        FConfinePan = Source.FConfinePan;
        FKeyboardNavigation = Source.FKeyboardNavigation;
        // Name, size, picture, pyramid and the size limit; the component name stays this map's.
        const std::string name = Name();
        FImage = Source.FImage;
        FImage.SetComponentName(name);
    }
    Paint();
    NotifyChangedProperties(before);
    emit mapChanged();
    emit landMarksChanged();
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
        const auto batch = FCalib.Batch();
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
            ReadCalibrationFile(files.CalibFile, EmptyMapCalibId);
        } catch (...) {
            FImageNameFix.clear();
            throw;
        }
        FImageNameFix.clear();
    }
    Paint();
}

}  // namespace qv
