// TGeoMap: construction, the model's notices turned into signals and events with the control as their
// sender, Assign and the synthetic empty maps with that sender. Painting and the printers are in
// geo_map_output.cpp, the mouse and the keyboard in geo_map_mouse.cpp.
#include <qvgeo/mapview/geo_map.h>

#include <array>

namespace qv {

TGeoMap::TGeoMap(QWidget* Parent) : TCustomControl(Parent)
{
    resize(500, 400);
    FView.SetControlSize({width(), height()});
    setFocusPolicy(Qt::StrongFocus);
    InitMouse();
    TakeAnnounced();
}

TGeoMap::~TGeoMap() = default;

// ---- notices and signals ------------------------------------------------------------------------------

void TGeoMap::CalibrationNotice(unsigned What)
{
    TMapModel::CalibrationNotice(What);
    emit calibrationChanged();
}

void TGeoMap::LandMarksNotice(unsigned What)
{
    TMapModel::LandMarksNotice(What);
    emit landMarksChanged();
}

void TGeoMap::PropertyChanged(TMapProperty Property)
{
    // In the order of TMapProperty. A std::array: GCC 12's bounds check misreads the index of a built-in
    // array of member pointers.
    static constexpr auto Signals = std::to_array<void (TGeoMap::*)()>({
        &TGeoMap::antiAliasChanged, &TGeoMap::cacheMagLimitChanged, &TGeoMap::colorBackGndChanged,
        &TGeoMap::colorFrameChanged, &TGeoMap::colorGraticuleChanged, &TGeoMap::colorCalibPointsChanged,
        &TGeoMap::confinePanToMapImageChanged, &TGeoMap::emptyMsgChanged, &TGeoMap::frameStyleChanged,
        &TGeoMap::gratLineDistChanged, &TGeoMap::utmGridDistChanged, &TGeoMap::showGraticuleChanged,
        &TGeoMap::maxMapPixelsChanged, &TGeoMap::wheelZoomChanged, &TGeoMap::hitToleranceChanged,
        &TGeoMap::keyboardNavigationChanged, &TGeoMap::calibModelChanged, &TGeoMap::utmZoneChanged,
        &TGeoMap::utmHemisphereChanged, &TGeoMap::mouseActionChanged, &TGeoMap::allowPanChanged});
    static_assert(Signals.size() == mpAllowPan + 1);
    (this->*Signals.at(static_cast<std::size_t>(Property)))();
}

void TGeoMap::LoadProgress(TProgressStage Stage, std::int32_t Percent)
{
    // The handler is the application's progress display: what it throws is reported and the load goes on,
    // so that the picture, the switch around it and the pgEnding a dialog waits for are not cut short.
    if (OnDataLoading)
        Guarded([&] { OnDataLoading(*this, Stage, Percent); });
}

void TGeoMap::AskLandMark(bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark)
{
    if (OnLandMarkAction)
        OnLandMarkAction(*this, Allowed, Action, LandMark);
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

void TGeoMap::ReportError(const std::exception& Error)
{
    emit error(QString::fromStdString(Error.what()));
    TCustomControl::ReportError(Error);
}

void TGeoMap::SetName(const std::string& Name)
{
    TCustomControl::SetName(Name);
    SetComponentName(Name);
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
    TMapModel::Assign(Source);
    emit landMarksChanged();
}

// ---- synthetic empty maps ------------------------------------------------------------------------------

namespace {

TOnDrawMapDataEvent WithSender(TGeoMap& Map, const TGeoMapDrawDataEvent& OnDrawData)
{
    if (!OnDrawData)
        return {};
    return [&Map, OnDrawData](TCanvas& C, double a, double b, double c, double d, std::int32_t w, std::int32_t h) {
        OnDrawData(Map, C, a, b, c, d, w, h);
    };
}

}  // namespace

void TGeoMap::CreateEmptyMapInMemory(double LatMin, double LongMin, double LatMax, double LongMax,
                                     double LatGratDist, double LongGratDist, std::int32_t Width,
                                     std::int32_t Height, bool ShowGrat, const TGeoMapDrawDataEvent& OnDrawData)
{
    TMapModel::CreateEmptyMapInMemory(LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width, Height,
                                      ShowGrat, WithSender(*this, OnDrawData));
}

void TGeoMap::CreateAndLoadEmptyMap(const std::string& FName, double LatMin, double LongMin, double LatMax,
                                    double LongMax, double LatGratDist, double LongGratDist, std::int32_t Width,
                                    std::int32_t Height, const TGeoMapDrawDataEvent& OnDrawData)
{
    TMapModel::CreateAndLoadEmptyMap(FName, LatMin, LongMin, LatMax, LongMax, LatGratDist, LongGratDist, Width,
                                     Height, WithSender(*this, OnDrawData));
}

}  // namespace qv
