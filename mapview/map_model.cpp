// TMapModel: construction, the notices of its parts, the properties' rules, the map image, the view
// (magnification, zoom history, panning, pixel conversions: each a call to the TMapViewport member plus the
// repaint the operation documents), Assign and the synthetic empty maps. Rendering and the output are in
// map_model_render.cpp, the loading of a calibration with its image in map_model_load.cpp.
#include <qvgeo/mapview/map_model.h>

#include <qvgeo/support/text.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace qv {

TMapModel::TMapModel() : FRenderCaches(MakeMapRenderCaches())
{
    FCache.AntiAlias = FLook.AntiAlias;
    // The parts notify; the model repaints and passes the notice up. The question before an add or remove
    // is the application's, asked through the store.
    FCalib.SetChangeListener([this](unsigned What) { CalibrationChanged(What); });
    FLandMarks.SetChangeListener([this](unsigned What) { LandMarksNotice(What); });
    FLandMarks.LandMarkActionHook = [this](bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark) {
        AskLandMark(Allowed, Action, LandMark);
    };
    ClearZoomHistory();
    TakeAnnounced();
}

TMapModel::~TMapModel() { FImage.DropLaterProgress(this); }

bool TMapModel::LaterProgress(std::int64_t Done, std::int64_t Total)
{
    // A step of the picture's source inside a paint (a huge scan's tiled copy): the load events report it
    // as a load, and CancelLoading stops it. Once cancelled at one magnification it is not started again
    // by the next paint there: the view shows the background where the finer level would be.
    if (!FLaterLoading) {
        if (FLaterDeclinedAt == Magnification())
            return false;
        FLaterLoading = true;
        FImage.ResetCancel();
        LoadProgress(pgStarting, 0);
    }
    const std::int32_t percent =
        Total > 0 ? static_cast<std::int32_t>(std::clamp<std::int64_t>(Done * 100 / Total, 0, 100)) : 0;
    LoadProgress(pgRunning, percent);
    const bool go = !FImage.LoadingCancelled();
    if (!go) {
        FLaterDeclinedAt = Magnification();
        EndLaterLoading();
    }
    return go;
}

TMapModel::TLaterStepScope::~TLaterStepScope()
{
    // A step may report in several stages, each from 0 to all: it ends with the drawing that needed it.
    try {
        FModel.EndLaterLoading();
    } catch (...) {  // the handler's failure was the load events' to report; nothing may leave a destructor
    }
}

void TMapModel::EndLaterLoading()
{
    if (!FLaterLoading)
        return;
    FLaterLoading = false;
    LoadProgress(pgEnding, 100);
}

void TMapModel::CalibrationChanged(unsigned What)
{
    if (FInSwitch)
        FSwitchTouched = true;
    CalibrationNotice(What);
    if (CalibModel() != FAnnounced.CalibModel) {
        FAnnounced.CalibModel = CalibModel();
        PropertyChanged(mpCalibModel);
    }
    if (UTMZone() != FAnnounced.UTMZone) {
        FAnnounced.UTMZone = UTMZone();
        PropertyChanged(mpUTMZone);
    }
    if (UTMHemisphere() != FAnnounced.Hemisphere) {
        FAnnounced.Hemisphere = UTMHemisphere();
        PropertyChanged(mpUTMHemisphere);
    }
}

void TMapModel::TakeAnnounced()
{
    FAnnounced.Magnify = FView.Magnify();
    FAnnounced.TopLeft = TopLeft();
    FAnnounced.ControlSize = DeviceSize();
    FAnnounced.CalibModel = CalibModel();
    FAnnounced.UTMZone = UTMZone();
    FAnnounced.Hemisphere = UTMHemisphere();
}

void TMapModel::NoteViewChange()
{
    const TSize size = DeviceSize();
    const bool magnify = FView.Magnify() != FAnnounced.Magnify;
    if (!magnify && TopLeft() == FAnnounced.TopLeft && size == FAnnounced.ControlSize)
        return;
    // Recorded before reporting: a hook that moves the view again is reported by its own call.
    FAnnounced.Magnify = FView.Magnify();
    FAnnounced.TopLeft = TopLeft();
    FAnnounced.ControlSize = size;
    ViewMoved(magnify);
}

bool TMapModel::NotePointer(TPoint ControlPixel, TCoords& C)
{
    const TPoint p = ControlToMapImage(ControlPixel);
    const bool over = p.X >= 0 && p.Y >= 0 && p.X < FImage.Width() && p.Y < FImage.Height() &&
                      CalibModel() != cmUndefined && FCalib.CalcPosition(p, C);
    if (!over || (FAnnounced.MouseOverMap && p == FAnnounced.MouseMapPixel)) {
        FAnnounced.MouseOverMap = over;
        return false;
    }
    FAnnounced.MouseOverMap = true;
    FAnnounced.MouseMapPixel = p;
    return true;
}

void TMapModel::CalibrationNotice(unsigned What)
{
    // The caption is not drawn: writing it does not repaint.
    if (What != ccCaption)
        Paint();
}

void TMapModel::LandMarksNotice(unsigned)
{
    Paint();
}

void TMapModel::SetComponentName(const std::string& Name)
{
    FCalib.SetComponentName(Name);
    FLandMarks.SetComponentName(Name);
    FImage.SetComponentName(Name);
}

// ---- properties ----------------------------------------------------------------------------------------

template <class T>
void TMapModel::StoreAndPaint(T& Field, T Value, TMapProperty Property)
{
    const bool changed = !(Field == Value);
    Field = std::move(Value);
    Paint();
    if (changed)
        PropertyChanged(Property);
}

void TMapModel::SetAntiAlias(bool Value)
{
    StoreAndPaint(FLook.AntiAlias, Value, mpAntiAlias);
}

void TMapModel::SetCacheMagLimit(double Value)
{
    if (std::isnan(Value))
        return;
    const double old = FLook.CacheMagLimit;
    FLook.CacheMagLimit = std::clamp(Value, 0.0, 2.0 / 3.0);
    if (2.0 / 3.0 > FView.Magnify())
        Paint();
    if (FLook.CacheMagLimit != old)
        PropertyChanged(mpCacheMagLimit);
}

void TMapModel::SetColorBackGnd(TColor Value)
{
    StoreAndPaint(FLook.ColorBackGnd, Value, mpColorBackGnd);
}

void TMapModel::SetColorFrame(TColor Value)
{
    StoreAndPaint(FLook.ColorFrame, Value, mpColorFrame);
}

void TMapModel::SetColorGraticule(TColor Value)
{
    StoreAndPaint(FLook.ColorGraticule, Value, mpColorGraticule);
}

void TMapModel::SetColorCalibPoints(TColor Value)
{
    StoreAndPaint(FLook.ColorCalibPoints, Value, mpColorCalibPoints);
}

void TMapModel::SetConfinePanToMapImage(bool Value)
{
    const bool changed = Value != FConfinePan;
    FConfinePan = Value;
    if (Value)
        PanMapToFillWindow();
    if (changed)
        PropertyChanged(mpConfinePanToMapImage);
}

void TMapModel::SetEmptyMsg(const std::string& Value)
{
    StoreAndPaint(FLook.EmptyMsg, std::string(Value), mpEmptyMsg);
}

void TMapModel::SetFrameStyle(TFrameStyle Value)
{
    if (Value == FLook.FrameStyle)
        return;
    FLook.FrameStyle = Value;
    Paint();
    PropertyChanged(mpFrameStyle);
}

void TMapModel::SetGratLineDist(double Value)
{
    if (std::isnan(Value))
        return;
    StoreAndPaint(FLook.GratLineDist, std::clamp(Value, 0.0, 60.0), mpGratLineDist);
}

void TMapModel::SetUTMGridDist(std::int32_t Value)
{
    StoreAndPaint(FLook.UTMGridDist, std::clamp<std::int32_t>(Value, 0, 10000000), mpUTMGridDist);
}

void TMapModel::SetFurniture(const TFurnitureOptions& Value)
{
    FLook.Furniture = Value;
    Paint();
}

void TMapModel::SetShowGraticule(TShowGrat Value)
{
    if (Value == FLook.ShowGraticule)
        return;
    FLook.ShowGraticule = Value;
    Paint();
    PropertyChanged(mpShowGraticule);
}

void TMapModel::SetMaxMapPixels(std::int64_t Value)
{
    const std::int64_t old = FImage.MaxPixels();
    FImage.SetMaxPixels(Value);
    if (FImage.MaxPixels() != old)
        PropertyChanged(mpMaxMapPixels);
}

void TMapModel::SetForcedPixelRatio(double Value)
{
    FForcedPixelRatio = (Value >= 1.0 && Value <= 8.0) ? Value : 0.0;
    Paint();
}

void TMapModel::SetControlSize(TSize Size)
{
    FView.SetControlSize(Size);
    Paint();
}

void TMapModel::SetSuppressPaint(bool Value)
{
    const bool changed = Value != FSuppressPaint;
    FSuppressPaint = Value;
    if (changed && !Value)
        Paint();
}

void TMapModel::SetRandSampleLimit(std::int32_t Value)
{
    if (Value < 1001 || Value == FLook.LMRandSampleLimit)
        return;
    FLook.LMRandSampleLimit = Value;
    Paint();
}

// ---- the map image -------------------------------------------------------------------------------------

void TMapModel::PushImageToCalibration()
{
    FCalib.SetImageName(FImage.Name());
    FCalib.SetImageSize(FImage.Width(), FImage.Height());
}

void TMapModel::SetMapImgName(const std::string& Name)
{
    // The calibration reader lower-cases the name; CreateAndLoadEmptyMap means the file it just wrote.
    LoadImage((!FImageNameFix.empty() && Name == LowerCase(FImageNameFix)) ? FImageNameFix : Name);
}

void TMapModel::OpenRaster(const std::string& FileName)
{
    LoadImage(FileName, true, true);
}

void TMapModel::SetMapSource(std::shared_ptr<const TImageSource> Source, const std::string& Name)
{
    FCache.Invalidate();
    FImage.TakeSource(std::move(Source), Name);
    if (FImage.Tiled()) {
        TakeNewImage();
        return;
    }
    PushImageToCalibration();
    Paint();
    AnnounceMapChange();
}

void TMapModel::LoadImage(const std::string& Name, bool AnyType, bool Explicit)
{
    TMapImage::TLoadEvents events;
    if (AsksImageName())
        events.Request = [this](std::string& FileName) { AskImageName(FileName); };
    events.Progress = [this](TProgressStage Stage, std::int32_t Percent) { LoadProgress(Stage, Percent); };
    events.BesideFile = FReadingCalFile;
    events.CheckHeaderFirst = FInSwitch;
    events.MissingIsError = Explicit;
    const std::uint64_t generation = FImage.Generation();
    TMapImage::TLoadResult result = TMapImage::lrCancelled;
    try {
        result = AnyType ? FImage.Open(Name, events) : FImage.Load(Name, events);
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
        FLaterDeclinedAt = -1.0;
        FImage.SetLaterProgress(this, [this](std::int64_t Done, std::int64_t Total) { return LaterProgress(Done, Total); });
        TakeNewImage();
        return;
    }
}

void TMapModel::AnnounceMapChange()
{
    if (FInSwitch)
        FSwitchTouched = true;  // the switch announces once at its end
    else
        MapSwitched();
}

void TMapModel::TakeNewImage()
{
    PushImageToCalibration();
    const std::int32_t w = FImage.Width(), h = FImage.Height();
    if (std::int64_t{w} * h > DefaultMaxMapPixels) {
        const TSize device = DeviceSize();
        FAuxBmp.SetSize(device.cx, device.cy);  // a screen image of the whole map would only waste memory
    } else {
        FAuxBmp.SetSize(w, h);
    }
    FView.SetMapSize({w, h});
    FView.SetTopLeft({0, 0});
    // A tiled picture (a scan too large to hold) is first shown whole: its reduced levels are at hand,
    // while its own pixels at the old magnification may first need a long step (a huge JPEG's tiled copy).
    if (FImage.Tiled())
        SizedView().FitPage();
    Paint();
    AnnounceMapChange();
}

void TMapModel::SetMapBitMap(const TBitmap& Bitmap)
{
    FCache.Invalidate();
    FImage.Assign(Bitmap);  // the copy stays in GrafBmp when the size check refuses it
    TakeNewImage();
}

bool TMapModel::RenameMapImg(const std::string& NewName)
{
    if (!FImage.Rename(NewName))
        return false;
    PushImageToCalibration();
    return true;
}

void TMapModel::SaveMap(const std::string& FileName, std::string_view Comment)
{
    FImage.CheckSavable();  // before anything is renamed or written
    FImage.SetName(StripExtension(StripPath(FileName)) + ".jpg");
    PushImageToCalibration();
    FCalib.SaveCalDataAsXML(StripExtension(FileName) + ".xml", Comment);
    const std::filesystem::path dir = std::filesystem::path(FileName).parent_path();
    FImage.SaveJPEG((dir / FImage.Name()).string());
}

void TMapModel::ResizeMap(std::int32_t Size)
{
    const std::int32_t longer = std::max(FImage.Width(), FImage.Height());
    if (longer > 0)
        ResizeMap(static_cast<double>(Size) / longer);
}

void TMapModel::ResizeMap(double Factor)
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

void TMapModel::Clear()
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

void TMapModel::SetMagnification(double Value)
{
    if (FView.SetMagnify(Value))
        Paint();
}

void TMapModel::SetTopLeft(TPoint Value)
{
    FView.SetTopLeft(TMapPixel(Value));
    Paint();
}

void TMapModel::ZoomStateOnStack()
{
    if (!Loading())
        FView.PushView();
}

TgmZoomStackEntry TMapModel::GetZoomStackEntry(std::int32_t n) const
{
    return FView.HistoryEntry(n);
}

void TMapModel::ZoomHistory(std::int32_t n)
{
    if (FView.RestoreView(n))
        Paint();
}

void TMapModel::ClearZoomHistory()
{
    FView.ClearHistory();
    ZoomStateOnStack();
}

void TMapModel::PanMapToFillWindow()
{
    SizedView().Confine();
    if (FHoldPaint == 0)
        NoteViewChange();
}

void TMapModel::BringMapPixelToCenter(TPoint P)
{
    SizedView().CentreOn(TMapPixel(P));
    Paint();
}

void TMapModel::BringLocationToCenter(double Lat, double Long)
{
    TMapPixel p;
    if (!FCalib.CalcPixelCoords(Lat, Long, p.X, p.Y))
        return;
    SizedView().CentreOnWithin(p);
    Paint();
}

void TMapModel::ZoomFitPage()
{
    // A control of no width or height (an atlas lower than its panel) gets the smallest magnification, not 0.
    if (SizedView().FitPage())
        SetTopLeft({0, 0});
}

TPoint TMapModel::ControlToMapImage(TPoint P) const
{
    return FView.ControlToMapImage(TControlPixel(P)).Point();
}

TPoint TMapModel::MapImageToControl(TPoint P) const
{
    return FView.MapImageToControl(TMapPixel(P)).Point();
}

// ---- Assign --------------------------------------------------------------------------------------------

std::vector<TMapProperty> TMapModel::CopyModel(const TMapModel& Source)
{
    const TMapAppearance look = FLook;
    const bool confine = FConfinePan, keys = FKeyboardNavigation;
    const std::int64_t maxPixels = FImage.MaxPixels();
    const TMouseActMode mode = MouseAction();
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
    const std::string name = FCalib.ComponentName();
    FCalib.AssignCalibration(Source.FCalib);  // model, data, fit, removed points, FCalDatName
    FMouse.AssignState(Source.FMouse);  // mode, drag anchors, zoom window, mouse box
    FKeyboardNavigation = Source.FKeyboardNavigation;
    FConfinePan = Source.FConfinePan;
    // Name, size, picture, pyramid and the size limit; the component name stays this map's.
    FImage = Source.FImage;
    FImage.SetComponentName(name);
    // The calibration's settings are reported by its notice.
    std::vector<TMapProperty> changed;
    const auto note = [&changed](bool Differs, TMapProperty Property) {
        if (Differs)
            changed.push_back(Property);
    };
    note(look.AntiAlias != FLook.AntiAlias, mpAntiAlias);
    note(look.CacheMagLimit != FLook.CacheMagLimit, mpCacheMagLimit);
    note(look.ColorBackGnd != FLook.ColorBackGnd, mpColorBackGnd);
    note(look.ColorFrame != FLook.ColorFrame, mpColorFrame);
    note(look.ColorGraticule != FLook.ColorGraticule, mpColorGraticule);
    note(look.ColorCalibPoints != FLook.ColorCalibPoints, mpColorCalibPoints);
    note(confine != FConfinePan, mpConfinePanToMapImage);
    note(look.EmptyMsg != FLook.EmptyMsg, mpEmptyMsg);
    note(look.FrameStyle != FLook.FrameStyle, mpFrameStyle);
    note(look.GratLineDist != FLook.GratLineDist, mpGratLineDist);
    note(look.UTMGridDist != FLook.UTMGridDist, mpUTMGridDist);
    note(look.ShowGraticule != FLook.ShowGraticule, mpShowGraticule);
    note(maxPixels != FImage.MaxPixels(), mpMaxMapPixels);
    note(keys != FKeyboardNavigation, mpKeyboardNavigation);
    note(mode != MouseAction(), mpMouseAction);
    note((mode == maPan) != AllowPan(), mpAllowPan);
    return changed;
}

void TMapModel::Assign(const TMapModel& Source)
{
    if (&Source == this)
        return;
    std::vector<TMapProperty> changed;
    {
        THoldPaint hold(*this);
        changed = CopyModel(Source);
    }
    Paint();
    for (const TMapProperty p : changed)
        PropertyChanged(p);
    MapSwitched();
}

// ---- synthetic empty maps ------------------------------------------------------------------------------

namespace {

TEmptyMapRequest EmptyRequest(double LatMin, double LongMin, double LatMax, double LongMax, double LatGratDist,
                              double LongGratDist, std::int32_t Width, std::int32_t Height, bool ShowGrat,
                              const TOnDrawMapDataEvent& OnDrawData)
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
    r.OnDrawData = OnDrawData;
    return r;
}

}  // namespace

void TMapModel::CreateEmptyMapInMemory(double LatMin, double LongMin, double LatMax, double LongMax,
                                       double LatGratDist, double LongGratDist, std::int32_t Width,
                                       std::int32_t Height, bool ShowGrat, const TOnDrawMapDataEvent& OnDrawData)
{
    TBitmap bmp;
    TCalibData cal;
    GenerateEmptyMap(EmptyRequest(LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width, Height,
                                  ShowGrat, OnDrawData),
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

void TMapModel::CreateAndLoadEmptyMap(const std::string& FName, double LatMin, double LongMin, double LatMax,
                                      double LongMax, double LatGratDist, double LongGratDist, std::int32_t Width,
                                      std::int32_t Height, const TOnDrawMapDataEvent& OnDrawData)
{
    const TEmptyMapFiles files = WriteEmptyMapFiles(
        FName, EmptyRequest(LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width, Height, true,
                            OnDrawData),
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
