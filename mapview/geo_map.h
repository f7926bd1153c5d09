// TGeoMap: the map view control. A QWidget that shows a raster map image at a magnification, scrolled so
// that a chosen map pixel sits at its top-left corner, calibrated to geographic coordinates and carrying
// landmarks. The map itself (image, view, appearance, calibration, landmarks, AuxBmp and every operation
// on them) is the TMapModel it inherits (map_model.h), usable without a widget; this header adds the
// widget: the published properties and their signals, the events with the control as their sender, Qt's
// input and painting, the cursors, MouseBox's loop and the printers.
//
// Units: control pixels (origin top-left, y down) for the view; map-image pixels for TopLeft and the map
// operations; degrees for positions; magnification is control pixels per map pixel.
//
// Beyond the control's classic behaviour (each off or invisible at its default):
// - Mouse: the landmark mode maLandMark, wheel zoom (WheelZoom, off by default), touchpad pinch zoom,
//   a hit tolerance for boxes that scales with the device pixel ratio (HitTolerance, 0 by default), the
//   cursor of the mode (ModeCursor); see the mouse section below.
#pragma once

#include <qvgeo/geomap/map_mouse_tool.h>
#include <qvgeo/mapview/map_model.h>
#include <qvgeo/platform/custom_control.h>

#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>


namespace qv {

class TModalLoop;
class TGeoMap;
using TRenderEvent = std::function<void(TGeoMap& Sender, TCanvas& Canvas)>;
using TDrawLandMarkEvent =
    std::function<void(TGeoMap& Sender, bool& Handled, TCanvas& Canvas, TPoint APoint, const TLandMark& LandMarkData)>;
using TLandMarkActionEvent =
    std::function<void(TGeoMap& Sender, bool& Allowed, TLandMarkAction Action, const TLandMark& LandMarkData)>;
using TMapImgRequestEvent = std::function<void(TGeoMap& Sender, std::string& FileName)>;
using TZoomPanEvent = std::function<void(TGeoMap& Sender)>;
// The selected box, its control-pixel corners first ordered (left <= right, top <= bottom):
// Kind 1: V1, V2 = latitude, longitude (degrees) of the top-left corner, V3, V4 = latitude, longitude of
//         the bottom-right corner; on a north-up map that is north, west, south, east.
// Kind 0: a corner could not be converted (no calibration, or outside the model's domain): V1, V2 = x, y
//         of the top-left corner and V3, V4 = x, y of the bottom-right corner, in map-image pixels.
using TSelectRectEvent =
    std::function<void(TGeoMap& Sender, std::int32_t Kind, double V1, double V2, double V3, double V4)>;
// The map-image pixel of the click.
using TOnRubberBandActionEvent = std::function<void(TGeoMap& Sender, std::int32_t X, std::int32_t Y)>;
// PercentDone 0..100; JPEG images report every batch of decoded rows, BMP images only the start and the end.
using TDataLoadingEvent = std::function<void(TGeoMap& Sender, TProgressStage Stage, std::int32_t PercentDone)>;
// The application's drawing onto a generated empty map (CreateEmptyMapInMemory, CreateAndLoadEmptyMap).
using TGeoMapDrawDataEvent = std::function<void(TGeoMap& Sender, TCanvas& Canvas, double LatMin, double LongMin,
                                                double LatMax, double LongMax, std::int32_t Width, std::int32_t Height)>;

class TGeoMap : public TCustomControl, public TMapModel {
    Q_OBJECT
    Q_PROPERTY(bool AllowPan READ AllowPan WRITE SetAllowPan NOTIFY allowPanChanged)
    Q_PROPERTY(bool AntiAlias READ AntiAlias WRITE SetAntiAlias NOTIFY antiAliasChanged)
    Q_PROPERTY(double CacheMagLimit READ CacheMagLimit WRITE SetCacheMagLimit NOTIFY cacheMagLimitChanged)
    Q_PROPERTY(QColor ColorBackGnd READ QtColorBackGnd WRITE setColorBackGnd NOTIFY colorBackGndChanged)
    Q_PROPERTY(QColor ColorFrame READ QtColorFrame WRITE setColorFrame NOTIFY colorFrameChanged)
    Q_PROPERTY(QColor ColorGraticule READ QtColorGraticule WRITE setColorGraticule NOTIFY colorGraticuleChanged)
    Q_PROPERTY(QColor ColorCalibPoints READ QtColorCalibPoints WRITE setColorCalibPoints NOTIFY colorCalibPointsChanged)
    Q_PROPERTY(QString EmptyMsg READ QtEmptyMsg WRITE setEmptyMsg NOTIFY emptyMsgChanged)
    Q_PROPERTY(EFrameStyle FrameStyle READ QtFrameStyle WRITE setFrameStyle NOTIFY frameStyleChanged)
    Q_PROPERTY(EShowGraticule ShowGraticule READ QtShowGraticule WRITE setShowGraticule NOTIFY showGraticuleChanged)
    Q_PROPERTY(EMouseAction MouseAction READ QtMouseAction WRITE setMouseAction NOTIFY mouseActionChanged)
    Q_PROPERTY(ECalibModel CalibModel READ QtCalibModel WRITE setCalibModel NOTIFY calibModelChanged)
    Q_PROPERTY(EHemisphere UTMHemisphere READ QtUTMHemisphere WRITE setUTMHemisphere NOTIFY utmHemisphereChanged)
    Q_PROPERTY(bool ConfinePanToMapImage READ ConfinePanToMapImage WRITE SetConfinePanToMapImage NOTIFY confinePanToMapImageChanged)
    Q_PROPERTY(double GratLineDist READ GratLineDist WRITE SetGratLineDist NOTIFY gratLineDistChanged)
    Q_PROPERTY(int UTMGridDist READ UTMGridDist WRITE SetUTMGridDist NOTIFY utmGridDistChanged)
    Q_PROPERTY(int UTMZone READ UTMZone WRITE SetUTMZone NOTIFY utmZoneChanged)
    Q_PROPERTY(double Magnification READ Magnification WRITE SetMagnification NOTIFY magnificationChanged)
    Q_PROPERTY(qint64 MaxMapPixels READ MaxMapPixels WRITE SetMaxMapPixels NOTIFY maxMapPixelsChanged)
    Q_PROPERTY(bool KeyboardNavigation READ KeyboardNavigation WRITE SetKeyboardNavigation NOTIFY keyboardNavigationChanged)
    Q_PROPERTY(bool WheelZoom READ WheelZoom WRITE SetWheelZoom NOTIFY wheelZoomChanged)
    Q_PROPERTY(bool PinchZoom READ PinchZoom WRITE SetPinchZoom NOTIFY pinchZoomChanged)
    Q_PROPERTY(int HitTolerance READ HitTolerance WRITE SetHitTolerance NOTIFY hitToleranceChanged)
    Q_PROPERTY(bool ModeCursor READ ModeCursor WRITE SetModeCursor NOTIFY modeCursorChanged)

public:
    // The enumerations of the published properties as Qt sees them (Designer shows them as choices): the
    // same names and ordinals as TFrameStyle, TShowGrat, TMouseActMode, TCalibModel and THemisphere, which
    // stay the types of the C++ API. Scoped, so that their names do not hide the originals in this class.
    enum class EFrameStyle : int { fsNone, fsLowered, fsRaised, fsFlat, fsSingleLowered, fsSingleRaised, fsEtched, fsBump };
    Q_ENUM(EFrameStyle)
    enum class EShowGraticule : int { sgNone, sgLines, sgPoints, sgPointsAndLines, sgUTMGrid, sgPointsAndUTMGrid };
    Q_ENUM(EShowGraticule)
    enum class EMouseAction : int {
        maNone = 0, maPan = 1, maPanHoriz = 2, maPanVert = 3, maRubberBand = 5, maZoomWindow = 7, maDragZoom = 9,
        maSelectRect = 16, maLandMark = 20
    };
    Q_ENUM(EMouseAction)
    enum class ECalibModel : int {
        cmParabolicIp, cmBiquadraticPn, cmConicConformal, cmMillerCylindrical, cmEquiRect, cmUTM, cmUndefined
    };
    Q_ENUM(ECalibModel)
    enum class EHemisphere : int { hemiNorth, hemiSouth };
    Q_ENUM(EHemisphere)

    explicit TGeoMap(QWidget* Parent = nullptr);
    ~TGeoMap() override;
    TGeoMap(const TGeoMap&) = delete;
    TGeoMap& operator=(const TGeoMap&) = delete;

    // Sets the component name of the control and of its calibration and landmark store (error messages).
    void SetName(const std::string& Name) override;

    // ---- published properties (the map's own are TMapModel's) ----
    void SetAllowPan(bool Value) { SetMouseAction(Value ? maPan : maNone); }
    void SetMouseAction(TMouseActMode Value);  // a plain store (and the mode's cursor, see ModeCursor)
    // The published properties under the names a form compiled by uic calls ("set" + property name, Qt
    // types): each only converts and calls the setter above it, whose rules (repaint, clamping) apply.
    // Programs use the C++ setters; these exist for Designer forms and property editors.
    void setColorBackGnd(const QColor& Value) { SetColorBackGnd(FromQRgb(Value.rgb())); }
    void setColorFrame(const QColor& Value) { SetColorFrame(FromQRgb(Value.rgb())); }
    void setColorGraticule(const QColor& Value) { SetColorGraticule(FromQRgb(Value.rgb())); }
    void setColorCalibPoints(const QColor& Value) { SetColorCalibPoints(FromQRgb(Value.rgb())); }
    void setEmptyMsg(const QString& Value) { SetEmptyMsg(Value.toStdString()); }
    void setFrameStyle(EFrameStyle Value) { SetFrameStyle(static_cast<TFrameStyle>(Value)); }
    void setShowGraticule(EShowGraticule Value) { SetShowGraticule(static_cast<TShowGrat>(Value)); }
    void setMouseAction(EMouseAction Value) { SetMouseAction(static_cast<TMouseActMode>(Value)); }
    void setCalibModel(ECalibModel Value) { SetCalibModel(static_cast<TCalibModel>(Value)); }
    void setUTMHemisphere(EHemisphere Value) { SetUTMHemisphere(static_cast<THemisphere>(Value)); }
    void setAllowPan(bool Value) { SetAllowPan(Value); }
    void setAntiAlias(bool Value) { SetAntiAlias(Value); }
    void setCacheMagLimit(double Value) { SetCacheMagLimit(Value); }
    void setConfinePanToMapImage(bool Value) { SetConfinePanToMapImage(Value); }
    void setGratLineDist(double Value) { SetGratLineDist(Value); }
    void setUTMGridDist(int Value) { SetUTMGridDist(Value); }
    void setUTMZone(int Value) { SetUTMZone(Value); }
    void setMagnification(double Value) { SetMagnification(Value); }
    void setMaxMapPixels(qint64 Value) { SetMaxMapPixels(Value); }
    void setKeyboardNavigation(bool Value) { SetKeyboardNavigation(Value); }
    void setWheelZoom(bool Value) { SetWheelZoom(Value); }
    void setPinchZoom(bool Value) { SetPinchZoom(Value); }
    void setHitTolerance(int Value) { SetHitTolerance(Value); }
    void setModeCursor(bool Value) { SetModeCursor(Value); }

    // ---- published events ----
    TOnRubberBandActionEvent OnBeginRubberBand, OnContinueRubberBand, OnEndRubberBand;
    // What the handler throws goes to OnError; the load goes on.
    TDataLoadingEvent OnDataLoading;
    TRenderEvent OnDataRendered, OnBeforeRenderData;
    TDrawLandMarkEvent OnDrawLandmark;
    TSelectRectEvent OnSelectRect;
    TMapImgRequestEvent OnMapImageRequest;
    TLandMarkActionEvent OnLandMarkAction;
    TZoomPanEvent OnZoomPan;

signals:
    // Qt signals beside the events above; any number of receivers may connect. The property signals
    // (NOTIFY) are emitted exactly when the property's value changes, never on a set that changes nothing.
    void allowPanChanged();
    void antiAliasChanged();
    void cacheMagLimitChanged();
    void colorBackGndChanged();
    void colorFrameChanged();
    void colorGraticuleChanged();
    void colorCalibPointsChanged();
    void emptyMsgChanged();
    void frameStyleChanged();
    void showGraticuleChanged();
    void mouseActionChanged();
    void calibModelChanged();
    void utmHemisphereChanged();
    void confinePanToMapImageChanged();
    void gratLineDistChanged();
    void utmGridDistChanged();
    void utmZoneChanged();
    void maxMapPixelsChanged();
    void keyboardNavigationChanged();
    void wheelZoomChanged();
    void pinchZoomChanged();
    void hitToleranceChanged();
    void modeCursorChanged();
    void magnificationChanged(double Magnification);
    // The top-left corner, the magnification or the control's size changed.
    void viewChanged();
    // Another image or calibration file was taken (SetMapImgName, SetMapBitMap, a calibration read or
    // switched, ResizeMap, Assign, Clear); once per operation, also when a failed switch was undone.
    void mapChanged();
    void landMarksChanged();
    // Points, model, fit, caption or UTM zone of the calibration changed.
    void calibrationChanged();
    // The pointer moved to another map pixel that the calibration converts (degrees).
    void mouseGeoPositionChanged(double Latitude, double Longitude);
    // Beside OnSelectRect, with the same values.
    void selectRect(int Kind, double V1, double V2, double V3, double V4);
    // Beside OnError: the message of an exception that a Qt event handler caught.
    void error(const QString& Message);

public:
    // Rebuilds AuxBmp at once (unless SuppressPaint) and schedules the widget's update.
    void Paint() override { TMapModel::Paint(); }
    // Adds the control's design mode and visibility to the model's sources.
    TMapSources RenderSources() const override;
    void DoZoomPanEvent();
    void DoSelectRectEvent(std::int32_t Kind, double V1, double V2, double V3, double V4);

    // ---- printers ----
    // Printing (the painter functions are TMapModel's): the map is rendered as on screen, Scale control
    // pixels per map pixel, and a control pixel is printed as 1/96 inch. The map region starts at TopLeft.
    // Begins a document on Printer, prints CalcExtentsOfPrint's region, ends it. False when the printer
    // cannot be opened.
    bool PrintIt(QPrinter& Printer, double Scale);
    // Begins a document on Printer and prints the whole map on its page by CopyEntireMapToOpenPrinter.
    // False when the printer cannot be opened or there is no map.
    bool PrintEntireMap(QPrinter& Printer, double MaxScale = 1.0);

    // Copies the whole state but the events (and the widget's own geometry) from Source and repaints.
    void Assign(const TGeoMap& Source);
    void AssignTo(TGeoMap& Dest) const { Dest.Assign(*this); }

    // ---- synthetic empty maps ----
    void CreateEmptyMapInMemory(double LatMin, double LongMin, double LatMax, double LongMax, double LatGratDist,
                                double LongGratDist, std::int32_t Width, std::int32_t Height, bool ShowGrat,
                                const TGeoMapDrawDataEvent& OnDrawData = {});
    void CreateAndLoadEmptyMap(const std::string& FName, double LatMin, double LongMin, double LatMax, double LongMax,
                               double LatGratDist, double LongGratDist, std::int32_t Width, std::int32_t Height,
                               const TGeoMapDrawDataEvent& OnDrawData = {});

    // ---- mouse (geo_map_mouse.cpp) ----
    // Lets the user press and release the mouse at two corners of a box, running a nested event loop
    // meanwhile (MouseAction is maNone until it returns). True with the box in control pixels, X1 <= X2 and
    // Y1 <= Y2, when completed; false when a right button, MouseBoxAbort or an exception in a mouse
    // handler ended it, or when a box is already being asked for. The control must outlive the call.
    bool MouseBox(std::int32_t& X1, std::int32_t& Y1, std::int32_t& X2, std::int32_t& Y2);
    // Touchpad pinch (a native zoom gesture or Qt's pinch gesture) zooms about the fingers, firing
    // OnZoomPan on every step and pushing the view on the zoom history when the gesture ends. On by default.
    bool PinchZoom() const { return FPinchZoom; }
    void SetPinchZoom(bool Value);
    // The cursor follows MouseAction (hand for panning, the zoom, window and selection cursors, a cross for
    // the rubber band and MouseBox, the landmark cursor). On by default; off leaves the cursor to the
    // application.
    bool ModeCursor() const { return FModeCursor; }
    void SetModeCursor(bool Value);

protected:
    // The mouse handlers. Each fires the matching On... event through TCustomControl's handler. When one of
    // them throws (an event handler, the calibration), the drag in progress is dropped (state idle, figures
    // erased, a running MouseBox ends with false) before the exception goes on; through Qt's events it
    // reaches OnError.
    void MouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y) override;
    void MouseMove(TShiftState Shift, std::int32_t X, std::int32_t Y) override;
    void MouseUp(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y) override;
    bool MouseWheel(TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos) override;
    bool event(QEvent* Event) override;
    void paintEvent(QPaintEvent* Event) override;
    void resizeEvent(QResizeEvent* Event) override;
    void showEvent(QShowEvent* Event) override;
    void keyPressEvent(QKeyEvent* Event) override;

private:
    // What the Q_PROPERTYs read: the published properties as QColor, QString and the E... enumerations.
    QColor QtColorBackGnd() const { return ToQColor(ColorBackGnd()); }
    QColor QtColorFrame() const { return ToQColor(ColorFrame()); }
    QColor QtColorGraticule() const { return ToQColor(ColorGraticule()); }
    QColor QtColorCalibPoints() const { return ToQColor(ColorCalibPoints()); }
    QString QtEmptyMsg() const { return QString::fromStdString(EmptyMsg()); }
    EFrameStyle QtFrameStyle() const { return static_cast<EFrameStyle>(FrameStyle()); }
    EShowGraticule QtShowGraticule() const { return static_cast<EShowGraticule>(ShowGraticule()); }
    EMouseAction QtMouseAction() const { return static_cast<EMouseAction>(MouseAction()); }
    ECalibModel QtCalibModel() const { return static_cast<ECalibModel>(CalibModel()); }
    EHemisphere QtUTMHemisphere() const { return static_cast<EHemisphere>(UTMHemisphere()); }

    // The model's way up: signals, the events with this control as the sender, the widget's size and ratio.
    void RequestPaint() override { update(); }
    void ViewMoved(bool MagnificationChanged) override
    {
        if (MagnificationChanged)
            emit magnificationChanged(Magnification());
        emit viewChanged();
    }
    void MapSwitched() override { emit mapChanged(); }
    void PropertyChanged(TMapProperty Property) override;
    void CalibrationNotice(unsigned What) override;
    void LandMarksNotice(unsigned What) override;
    bool AsksImageName() const override { return bool(OnMapImageRequest); }
    void AskImageName(std::string& FileName) override { OnMapImageRequest(*this, FileName); }
    void LoadProgress(TProgressStage Stage, std::int32_t Percent) override;  // its failures go to OnError
    void AskLandMark(bool& Allowed, TLandMarkAction Action, const TLandMark& LandMark) override;
    TMapRenderEvents RenderEvents() override;
    TSize DeviceSize() const override { return {width(), height()}; }
    double DevicePixelRatio() const override { return devicePixelRatioF(); }
    bool Loading() const override { return ComponentState().Contains(csLoading); }
    void ReportError(const std::exception& Error) override;  // error(), then OnError
    void InitMouse();
    void FiguresChanged(const TMouseToolResult& R) override;  // redraws the figures' areas
    void MouseToolEvent(const TMouseToolEvent& Event) override;
    // Runs Body; when it throws, the drag in progress is dropped before the exception goes on.
    template <class F>
    void DropOnThrow(F&& Body);
    void UpdateModeCursor();

    // Mouse, beyond the classic state.
    TModalLoop* FMouseBoxLoop = nullptr;  // the running MouseBox's loop
    bool FPinchZoom = true;
    bool FModeCursor = true;
};

// The Qt enumerations of TGeoMap's properties are converted by a cast: their ordinals must stay those of
// the C++ types.
static_assert(int(TGeoMap::EFrameStyle::fsBump) == fsBump && int(TGeoMap::EFrameStyle::fsLowered) == fsLowered);
static_assert(int(TGeoMap::EShowGraticule::sgPointsAndUTMGrid) == sgPointsAndUTMGrid);
static_assert(int(TGeoMap::EMouseAction::maSelectRect) == maSelectRect &&
              int(TGeoMap::EMouseAction::maLandMark) == maLandMark);
static_assert(int(TGeoMap::ECalibModel::cmUTM) == cmUTM && int(TGeoMap::ECalibModel::cmUndefined) == cmUndefined);
static_assert(int(TGeoMap::EHemisphere::hemiSouth) == hemiSouth);

}  // namespace qv
