// TGeoMap: construction, the notices of its parts and its signals, properties, the map image, the view
// (magnification, zoom history, panning, pixel conversions: each a call to the TMapViewport member plus the
// repaint the operation documents), Assign and the synthetic empty maps. Painting and the output
// forwarders are in geo_map_output.cpp.
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


}  // namespace

TGeoMap::TGeoMap(QWidget* Parent) : TCustomControl(Parent), FRenderCaches(MakeMapRenderCaches())
{
    FCache.AntiAlias = FLook.AntiAlias;
    // The parts notify; the map repaints and signals. The question before an add or remove is the
    // application's (OnLandMarkAction), asked through the store.
    FCalib.SetChangeListener([this](unsigned What) { CalibrationChanged(What); });
    FLandMarks.SetChangeListener([this](unsigned What) { LandMarksChanged(What); });
    FLandMarks.LandMarkActionHook = [this](bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark) {
        if (OnLandMarkAction)
            OnLandMarkAction(*this, Allowed, Action, LandMark);
    };
    resize(500, 400);
    FView.SetControlSize({width(), height()});
    setFocusPolicy(Qt::StrongFocus);
    ClearZoomHistory();
    InitMouse();
    FAnnounced.Magnify = FView.Magnify();
    FAnnounced.TopLeft = TopLeft();
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
    const bool magnify = FView.Magnify() != FAnnounced.Magnify;
    if (!magnify && TopLeft() == FAnnounced.TopLeft && size == FAnnounced.ControlSize)
        return;
    // Recorded before emitting: a receiver that moves the view again is announced by its own call.
    FAnnounced.Magnify = FView.Magnify();
    FAnnounced.TopLeft = TopLeft();
    FAnnounced.ControlSize = size;
    if (magnify)
        emit magnificationChanged(FView.Magnify());
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
    const bool changed = Value != FLook.AntiAlias;
    FLook.AntiAlias = Value;
    Paint();
    if (changed)
        emit antiAliasChanged();
}

void TGeoMap::SetCacheMagLimit(double Value)
{
    if (std::isnan(Value))
        return;
    const double old = FLook.CacheMagLimit;
    FLook.CacheMagLimit = std::clamp(Value, 0.0, 2.0 / 3.0);
    if (2.0 / 3.0 > FView.Magnify())
        Paint();
    if (FLook.CacheMagLimit != old)
        emit cacheMagLimitChanged();
}

void TGeoMap::SetColorBackGnd(TColor Value)
{
    const bool changed = Value != FLook.ColorBackGnd;
    FLook.ColorBackGnd = Value;
    Paint();
    if (changed)
        emit colorBackGndChanged();
}

void TGeoMap::SetColorFrame(TColor Value)
{
    const bool changed = Value != FLook.ColorFrame;
    FLook.ColorFrame = Value;
    Paint();
    if (changed)
        emit colorFrameChanged();
}

void TGeoMap::SetColorGraticule(TColor Value)
{
    const bool changed = Value != FLook.ColorGraticule;
    FLook.ColorGraticule = Value;
    Paint();
    if (changed)
        emit colorGraticuleChanged();
}

void TGeoMap::SetColorCalibPoints(TColor Value)
{
    const bool changed = Value != FLook.ColorCalibPoints;
    FLook.ColorCalibPoints = Value;
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
    const bool changed = Value != FLook.EmptyMsg;
    FLook.EmptyMsg = Value;
    Paint();
    if (changed)
        emit emptyMsgChanged();
}

void TGeoMap::SetFrameStyle(TFrameStyle Value)
{
    if (Value == FLook.FrameStyle)
        return;
    FLook.FrameStyle = Value;
    Paint();
    emit frameStyleChanged();
}

void TGeoMap::SetGratLineDist(double Value)
{
    if (std::isnan(Value))
        return;
    const double old = FLook.GratLineDist;
    FLook.GratLineDist = std::clamp(Value, 0.0, 60.0);
    Paint();
    if (FLook.GratLineDist != old)
        emit gratLineDistChanged();
}

void TGeoMap::SetUTMGridDist(std::int32_t Value)
{
    const std::int32_t old = FLook.UTMGridDist;
    FLook.UTMGridDist = std::clamp<std::int32_t>(Value, 0, 10000000);
    Paint();
    if (FLook.UTMGridDist != old)
        emit utmGridDistChanged();
}

void TGeoMap::SetShowGraticule(TShowGrat Value)
{
    if (Value == FLook.ShowGraticule)
        return;
    FLook.ShowGraticule = Value;
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
    if (Value < 1001 || Value == FLook.LMRandSampleLimit)
        return;
    FLook.LMRandSampleLimit = Value;
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
    FView.SetMapSize({w, h});
    FView.SetTopLeft({0, 0});
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
        if (!FImage.Resample(Factor, FLook.AntiAlias))
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
    if (FHoldPaint == 0)
        NoteViewChange();
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
        FLandMarks.AssignLandMarks(Source.FLandMarks);
        // Colours, frame style, EmptyMsg, sample limit, graticule, anti-alias, cache limit.
        FLook = Source.FLook;
        // Image size, magnification, TopLeft and the zoom history with its write position (a position
        // without its entries would point into a different history); the control size stays this one's.
        const TSize control = FView.ControlSize();
        FView = Source.FView;
        FView.SetControlSize(control);
        FCalib.AssignCalibration(Source.FCalib);  // model, data, fit, removed points, FCalDatName
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
