// TGeoMap: construction, the model's notices turned into signals and events with the control as their
// sender, Assign and the synthetic empty maps with that sender. Painting and the printers are in
// geo_map_output.cpp, the mouse and the keyboard in geo_map_mouse.cpp.
#include <qvgeo/mapview/geo_map.h>

#include <QMetaProperty>

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
    // In the order of TMapProperty.
    static constexpr void (TGeoMap::*Signals[])() = {
        &TGeoMap::antiAliasChanged, &TGeoMap::cacheMagLimitChanged, &TGeoMap::colorBackGndChanged,
        &TGeoMap::colorFrameChanged, &TGeoMap::colorGraticuleChanged, &TGeoMap::colorCalibPointsChanged,
        &TGeoMap::confinePanToMapImageChanged, &TGeoMap::emptyMsgChanged, &TGeoMap::frameStyleChanged,
        &TGeoMap::gratLineDistChanged, &TGeoMap::utmGridDistChanged, &TGeoMap::showGraticuleChanged,
        &TGeoMap::maxMapPixelsChanged, &TGeoMap::wheelZoomChanged, &TGeoMap::hitToleranceChanged,
        &TGeoMap::keyboardNavigationChanged, &TGeoMap::calibModelChanged, &TGeoMap::utmZoneChanged,
        &TGeoMap::utmHemisphereChanged};
    static_assert(std::size(Signals) == mpUTMHemisphere + 1);
    (this->*Signals[Property])();
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
    const std::vector<QVariant> before = PropertyValues();
    {
        THoldPaint hold(*this);
        CopyModel(Source);
    }
    Paint();
    NotifyChangedProperties(before);
    emit mapChanged();
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
