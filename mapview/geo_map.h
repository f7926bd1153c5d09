// TGeoMap: the map view control. A QWidget that shows a raster map image at a magnification, scrolled so
// that a chosen map pixel sits at its top-left corner, calibrated to geographic coordinates by its
// TMapCalibration member and carrying the landmarks of its TLandMarkStore member. This header holds the
// control's state (image, magnification, zoom history, panning, pixel conversions), its published
// properties and events, the operations delegated to the calibration and the landmark store, and the output
// of the map to the clipboard, a bitmap and a printer. The view's state and rules are its TMapViewport
// member (map_viewport.h), the appearance properties its TMapAppearance member; the drawing itself is
// RenderMapView (map_render.h) and the output's work is map_output.h, both usable without the control.
//
// Units: control pixels (origin top-left, y down) for the view; map-image pixels for TopLeft and the map
// operations; degrees for positions; magnification is control pixels per map pixel.
//
// Beyond the control's classic behaviour (each off or invisible at its default):
// - MaxMapPixels: the image size limit, 3 000 000 pixels by default, may be raised (up to 2^31 - 1). For an
//   image above 3 000 000 pixels the control keeps a pyramid of halved copies (2x2 averages, made once per
//   image) from which the renderer builds its scaled cache, so a zoom change on a 100-megapixel map costs
//   about what it costs on a small one. Where that cache would still hold more than twice the view's
//   pixels, no cache is built: each paint stretches the visible rectangle from the smallest level that
//   still has a pixel per control pixel (also the source of the direct stretch above CacheMagLimit, which
//   is GrafBmp itself there). Images within 3 000 000 pixels have no pyramid and are drawn exactly as
//   before, by the documented cache rule.
// - High-density screens: with a device pixel ratio above 1 (fractional ratios included) the widget shows
//   a frame at device resolution whose map image is stretched from the map itself; everything drawn over the
//   map (graticule, landmarks, events, frame) is taken from AuxBmp, which stays the documented W x H
//   picture. At ratio 1 the widget shows AuxBmp unchanged.
// - Keyboard (property KeyboardNavigation, on by default): arrow keys pan by an eighth of the view, '+' and
//   '-' zoom by 1.25 about the view's centre, Home is ZoomFitPage; each step fires OnZoomPan and is pushed
//   on the zoom history.
// - Mouse: the landmark mode maLandMark, wheel zoom (WheelZoom, off by default), touchpad pinch zoom,
//   a hit tolerance for boxes that scales with the device pixel ratio (HitTolerance, 0 by default), the
//   cursor of the mode (ModeCursor); see the mouse section below.
#pragma once

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/map_mouse_tool.h>
#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/map_image.h>
#include <qvgeo/mapview/map_output.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/colors.h>
#include <qvgeo/platform/custom_control.h>
#include <qvgeo/platform/frame.h>

#include <QString>
#include <QVariant>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QPainter;
class QPrinter;

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

// The documented image size limit; the default of MaxMapPixels and the size above which a pyramid is kept.
inline constexpr std::int64_t DefaultMaxMapPixels = LargeMapPixels;

class TGeoMap : public TCustomControl {
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

    // ---- published properties ----
    bool AllowPan() const { return FMouse.Mode() == maPan; }
    void SetAllowPan(bool Value) { SetMouseAction(Value ? maPan : maNone); }
    bool AntiAlias() const { return FLook.AntiAlias; }
    void SetAntiAlias(bool Value);
    TCalibModel CalibModel() const { return FCalib.CalibModel(); }
    void SetCalibModel(TCalibModel Value) { FCalib.SetCalibModel(Value); }
    double CacheMagLimit() const { return FLook.CacheMagLimit; }
    void SetCacheMagLimit(double Value);  // clamped to [0, 2/3]
    TColor ColorBackGnd() const { return FLook.ColorBackGnd; }
    void SetColorBackGnd(TColor Value);
    TColor ColorFrame() const { return FLook.ColorFrame; }  // the colour of the empty-map message
    void SetColorFrame(TColor Value);
    TColor ColorGraticule() const { return FLook.ColorGraticule; }
    void SetColorGraticule(TColor Value);
    TColor ColorCalibPoints() const { return FLook.ColorCalibPoints; }
    void SetColorCalibPoints(TColor Value);
    bool ConfinePanToMapImage() const { return FConfinePan; }
    void SetConfinePanToMapImage(bool Value);  // true confines at once, without a repaint
    const std::string& EmptyMsg() const { return FLook.EmptyMsg; }
    void SetEmptyMsg(const std::string& Value);
    TFrameStyle FrameStyle() const { return FLook.FrameStyle; }
    void SetFrameStyle(TFrameStyle Value);
    double GratLineDist() const { return FLook.GratLineDist; }
    void SetGratLineDist(double Value);  // degrees, clamped to [0, 60]; 0 = automatic
    std::int32_t UTMGridDist() const { return FLook.UTMGridDist; }
    void SetUTMGridDist(std::int32_t Value);  // metres, clamped to [0, 10000000]; 0 = automatic
    std::int32_t UTMZone() const { return FCalib.UTMZone(); }
    void SetUTMZone(std::int32_t Value) { FCalib.SetUTMZone(Value); }  // 1..60, others ignored
    THemisphere UTMHemisphere() const { return FCalib.UTMHemisphere(); }
    void SetUTMHemisphere(THemisphere Value) { FCalib.SetUTMHemisphere(Value); }
    TMouseActMode MouseAction() const { return FMouse.Mode(); }
    void SetMouseAction(TMouseActMode Value);  // a plain store (and the mode's cursor, see ModeCursor)
    TShowGrat ShowGraticule() const { return FLook.ShowGraticule; }
    void SetShowGraticule(TShowGrat Value);
    // Image size limit in pixels (width x height); at least 1, at most 2^31 - 1.
    std::int64_t MaxMapPixels() const { return FImage.MaxPixels(); }
    void SetMaxMapPixels(std::int64_t Value);
    bool KeyboardNavigation() const { return FKeyboardNavigation; }
    void SetKeyboardNavigation(bool Value);
    // Device pixel ratio used for the screen frame; 0 (the default) takes the widget's own.
    double ForcedPixelRatio() const { return FForcedPixelRatio; }
    void SetForcedPixelRatio(double Value);

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
    // ---- the map image (a TMapImage; each operation that changes it pushes the image's name and size
    // into the calibration, moves the view where documented, repaints and emits mapChanged) ----
    const std::string& MapImgName() const { return FImage.Name(); }
    // Loads a map image: OnMapImageRequest may change the name that is loaded, FMapImgName takes the name
    // passed in. Without a request handler, while a calibration file is being read (LoadCalDataFromXML,
    // SetCalDatName), a name that names no file is looked for beside that file, letter case ignored
    // (FindImageBeside), since the reader lower-cases it. ".jpg"/".jpeg" and ".bmp" load; any other
    // existing file keeps the previous picture but takes the name. A missing file empties the map without
    // an error. A load that starts sends OnDataLoading pgStarting and always ends with pgEnding, also when
    // it fails. Raises EXELGeoMapError when the picture exceeds MaxMapPixels, or "Cannot load map image "
    // followed by the reader's message ("\"<file>\": not a JPEG file", "... corrupt JPEG data: ...") when
    // the file is not a readable image of its type. A failed or cancelled load changes nothing: picture,
    // name, size, position and what the view shows stay as they were.
    void SetMapImgName(const std::string& Name);
    // Asks the JPEG load in progress to stop: called from OnDataLoading (for instance when its progress
    // dialog was cancelled), the decoder stops after its current batch of rows, OnDataLoading gets
    // pgEnding with the percent reached, and the map stays as it was before the load; a calibration being
    // read with it is not taken either (LoadCalDataFromXML returns false). Each load starts uncancelled;
    // BMP loads report no rows and cannot be stopped.
    void CancelLoading() { FImage.CancelLoading(); }
    void SetMapBitMap(const TBitmap& Bitmap);  // the name becomes "$unknown$"
    bool RenameMapImg(const std::string& NewName);
    // Writes the calibration (".xml", naming the image without a directory) and the image (".jpg").
    void SaveMap(const std::string& FileName, std::string_view Comment);
    std::int32_t MapWidth() const { return FImage.Width(); }
    std::int32_t MapHeight() const { return FImage.Height(); }
    const TBitmap& GrafBmp() const { return FImage.Bitmap(); }
    const TMapImage& MapImage() const { return FImage; }
    // Resamples the map so that its longer side becomes Size pixels.
    void ResizeMap(std::int32_t Size);
    // Resamples the map by Factor and scales the calibration points with it.
    void ResizeMap(double Factor);
    // Halved copies of the map image (only for images above 3 000 000 pixels); null beyond the last.
    const TBitmap* PyramidLevel(int Level) const { return FImage.PyramidLevel(Level); }

    // ---- view ----
    double Magnification() const { return FView.Magnify(); }
    // TopLeft is kept. Clamped to [MinMagnification, MaxMagnification]; NaN, infinite and non-positive
    // values are ignored.
    void SetMagnification(double Value);
    TPoint TopLeft() const { return FView.TopLeft().Point(); }
    void SetTopLeft(TPoint Value);  // no confinement
    void ZoomStateOnStack();
    TgmZoomStackEntry GetZoomStackEntry(std::int32_t n) const;  // n = -15..0, 0 the newest
    void ZoomHistory(std::int32_t n);
    void ClearZoomHistory();
    void PanMapToFillWindow();  // no repaint
    void BringMapPixelToCenter(TPoint P);
    void BringLocationToCenter(double Lat, double Long);
    void ZoomFitPage();
    // Ties round to even.
    TPoint ControlToMapImage(TPoint P) const;
    TPoint MapImageToControl(TPoint P) const;
    bool IsPositionWithinMap(double Lat, double Long) const { return FCalib.IsPositionWithinMap(Lat, Long); }
    const std::string& MapCaption() const { return FCalib.MapCaption(); }
    void SetMapCaption(std::string Value) { FCalib.SetMapCaption(std::move(Value)); }  // no repaint
    bool SuppressPaint() const { return FSuppressPaint; }
    void SetSuppressPaint(bool Value);
    std::int32_t RandSampleLimit() const { return FLook.LMRandSampleLimit; }
    void SetRandSampleLimit(std::int32_t Value);  // taken only when >= 1001
    double GetLastMClickLatitude() const;
    double GetLastMClickLongitude() const;
    void DoZoomPanEvent();
    void DoSelectRectEvent(std::int32_t Kind, double V1, double V2, double V3, double V4);

    // ---- rendering and output ----
    // Rebuilds AuxBmp at once (unless SuppressPaint) and schedules the widget's update.
    void Paint() override;
    void ConstructInternalMapImg();
    const TBitmap& AuxBmp() const { return FAuxBmp; }
    const TMapImageCache& ImageCache() const { return FCache; }
    // What the view shows and how it is drawn, as RenderMapView takes them (read-only: the setters above
    // change them, with the repaint and the events they document).
    const TMapViewport& Viewport() const { return FView; }
    const TMapAppearance& Appearance() const { return FLook; }
    // The map image, its pyramid, the calibration and the landmarks as RenderMapView takes them; valid
    // until the next change of the map.
    TMapSources RenderSources() const;
    // The frame the widget shows: AuxBmp at ratio 1, the device-resolution frame above 1.
    const TBitmap& ScreenFrame() const;
    double EffectivePixelRatio() const;
    void CopyToClipboard();
    // Renders the map region whose top-left map pixel is Position, at Scale control pixels per map pixel,
    // into a bitmap of Size pixels: everything the view draws (image, events, graticule, landmarks,
    // frame), the view itself untouched.
    // While it renders, the render events see the output as the view: TopLeft, Magnification,
    // MapImageToControl and ControlToMapImage answer for the output bitmap and FrameSize is its size, so
    // an application that draws its data in OnBeforeRenderData or OnDataRendered through them puts it on
    // the same places of the map in the output as on screen. Symbols, captions and lines keep their size in
    // output pixels: the output looks like the view at that magnification. The view is restored afterwards
    // (also when a handler raises) and is not repainted meanwhile.
    void CopyToBMP(TBitmap& Bitmap, TPoint Position, double Scale, TSize Size);
    // The size of the frame being drawn, in its pixels: the control's size, or the output bitmap's while
    // CopyToBMP renders. Render handlers clip and cull with it rather than with the widget's size.
    TSize FrameSize() const;
    // The whole map at Scale.
    void CopyEntireMapToClipboard(double Scale = 1.0);
    // Printing: the map is rendered as on screen, Scale control pixels per map pixel, and a control pixel is
    // printed as 1/96 inch. The map region starts at the view's TopLeft.
    // The map pixels that fit on the printer's page at Scale, from TopLeft, clipped to the map.
    TRect CalcExtentsOfPrint(QPrinter& Printer, double Scale) const;
    // Begins a document on Printer, prints CalcExtentsOfPrint's region, ends it. False when the printer
    // cannot be opened.
    bool PrintIt(QPrinter& Printer, double Scale);
    // Onto a painter already open on a printer (or any paint device), at the painter's origin:
    // MapSize map pixels from TopLeft at Scale;
    void CopyToOpenPrinter(QPainter& Painter, TSize MapSize, double Scale);
    // the map rectangle MapRect at Dpi map pixels per inch;
    void CopyToOpenPrinter(QPainter& Painter, TRect MapRect, std::int32_t Dpi);
    // the same at PagePos (device pixels of the painter) instead of the origin.
    void CopyToOpenPrinter(QPainter& Painter, TPoint PagePos, TRect MapRect, std::int32_t Dpi);
    // The whole map inside Area (device pixels of the painter), rendered as on screen at the largest scale
    // not above MaxScale at which it fits, a control pixel printed as 1/96 inch as in PrintIt: symbols,
    // captions and lines keep their screen size on paper while the map shrinks to the page. The map image
    // itself is drawn at the device's resolution, so a fine scan stays sharp on paper. Centred in Area.
    // Returns the scale used, 0 when nothing was drawn (no map, an empty area).
    double CopyEntireMapToOpenPrinter(QPainter& Painter, TRect Area, double MaxScale = 1.0);
    // Begins a document on Printer and prints the whole map on its page by CopyEntireMapToOpenPrinter.
    // False when the printer cannot be opened or there is no map.
    bool PrintEntireMap(QPrinter& Printer, double MaxScale = 1.0);

    // Copies the whole state but the events (and the widget's own geometry) from Source and repaints.
    void Assign(const TGeoMap& Source);
    void AssignTo(TGeoMap& Dest) const { Dest.Assign(*this); }

    // ---- calibration (TMapCalibration) ----
    TMapCalibration& Calibration() { return FCalib; }
    const TMapCalibration& Calibration() const { return FCalib; }
    const TCalibData& CalibData() const { return FCalib.CalibData(); }
    bool AddCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y)
    {
        return FCalib.AddCalibPoint(LineKind, LineValue, x, y);
    }
    bool AddCalibPoint(double Lat, double Long, std::int32_t x, std::int32_t y) { return FCalib.AddCalibPoint(Lat, Long, x, y); }
    bool AddCalibPoint(double Northing, double Easting, std::int32_t Zone, THemisphere Hemisphere, std::int32_t x,
                       std::int32_t y)
    {
        return FCalib.AddCalibPoint(Northing, Easting, Zone, Hemisphere, x, y);
    }
    bool RemoveCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y)
    {
        return FCalib.RemoveCalibPoint(LineKind, LineValue, x, y);
    }
    bool RemoveCalibPoint(std::int32_t x, std::int32_t y) { return FCalib.RemoveCalibPoint(x, y); }
    void RestoreLastDeletedCalPoint() { FCalib.RestoreLastDeletedCalPoint(); }
    void ClearCalibData() { FCalib.ClearCalibData(); }
    // Calibration cleared, model undefined, image name and caption emptied, the image dropped.
    void Clear();
    void RecalcCalibration() { FCalib.RecalcCalibration(); }
    void CalibQuality(double& QualX, double& QualY) const { FCalib.CalibQuality(QualX, QualY); }
    double CalcLatitude(std::int32_t x, std::int32_t y, bool& Valid) const { return FCalib.CalcLatitude(x, y, Valid); }
    double CalcLongitude(std::int32_t x, std::int32_t y, bool& Valid) const { return FCalib.CalcLongitude(x, y, Valid); }
    bool CalcPixelCoords(double Lat, double Long, std::int32_t& x, std::int32_t& y) const
    {
        return FCalib.CalcPixelCoords(Lat, Long, x, y);
    }
    bool CalcPixelCoordsUTM(double Northing, double Easting, std::int32_t& x, std::int32_t& y) const
    {
        return FCalib.CalcPixelCoordsUTM(Northing, Easting, x, y);
    }
    void CalcExtentsAndResolution() { FCalib.CalcExtentsAndResolution(); }
    void WriteCalDataToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id)
    {
        FCalib.WriteCalDataToOpenXMLFile(F, WithHeader, Id);
    }
    void SaveCalDataAsXML(const std::string& FName, std::string_view Id) { FCalib.SaveCalDataAsXML(FName, Id); }
    void SaveCalDataAsXML(std::ostream& Stream, std::string_view Id) { FCalib.SaveCalDataAsXML(Stream, Id); }
    // Reading a calibration switches the map as one step: when the reader or the image load raises, or the
    // image load is cancelled, the calibration, the image and the view (position, magnification) are put
    // back as they were, the map repaints once, and the exception goes on (a cancel returns false).
    bool ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id);
    bool LoadCalDataFromXML(const std::string& FName, std::string_view Id);
    bool LoadCalDataFromXML(std::istream& Stream, std::string_view Id) { return ReadCalDataFromOpenXMLFile(Stream, Id); }
    void SetCalDatName(const std::string& FName);
    const std::string& CalDatName() const { return FCalib.CalDatName(); }

    // ---- landmarks (TLandMarkStore) ----
    TLandMarkStore& LandMarkStore() { return FLandMarks; }
    const TLandMarkStore& LandMarkStore() const { return FLandMarks; }
    std::int32_t NumLandMarks() const { return FLandMarks.NumLandMarks(); }
    std::int32_t AddLandMark(double Lat, double Long, double Alt) { return FLandMarks.AddLandMark(Lat, Long, Alt); }
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Ident, double Time)
    {
        return FLandMarks.AddLandMark(Lat, Long, Alt, Ident, Time);
    }
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Caption, std::int32_t Size, TColor Color)
    {
        return FLandMarks.AddLandMark(Lat, Long, Alt, Caption, Size, Color);
    }
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Ident, double Time,
                             std::string_view Caption, std::int32_t Size, TColor Color)
    {
        return FLandMarks.AddLandMark(Lat, Long, Alt, Ident, Time, Caption, Size, Color);
    }
    std::int32_t AddLandMark(double Lat, double Long, double Alt, TLandMarkElement Kind, std::uint8_t ClassFlag,
                             std::string_view Ident, double Time, std::int32_t Tag, TColor FGColor, TColor BGColor,
                             std::int32_t Size, bool Transparent, std::int32_t Direction, std::int32_t Length)
    {
        return FLandMarks.AddLandMark(Lat, Long, Alt, Kind, ClassFlag, Ident, Time, Tag, FGColor, BGColor, Size,
                                      Transparent, Direction, Length);
    }
    std::int32_t FindLandMark(double Lat, double Long, std::int32_t Class) const { return FLandMarks.FindLandMark(Lat, Long, Class); }
    std::int32_t RemoveLandMark(double Lat, double Long, std::int32_t Class) { return FLandMarks.RemoveLandMark(Lat, Long, Class); }
    std::int32_t RemoveLandMark(double Lat, double Long, std::int32_t Class, double Distance)
    {
        return FLandMarks.RemoveLandMark(Lat, Long, Class, Distance);
    }
    std::int32_t RemoveLandMark(const TRectDouble& Rect, std::int32_t Class) { return FLandMarks.RemoveLandMark(Rect, Class); }
    std::int32_t RemoveLandMark(std::int32_t Index) { return FLandMarks.RemoveLandMark(Index); }
    std::int32_t RemoveLastLandMark() { return FLandMarks.RemoveLastLandMark(); }
    std::int32_t RemoveAllLandMarks(std::uint8_t Class) { return FLandMarks.RemoveAllLandMarks(Class); }
    void RemoveAllLandMarks() { FLandMarks.RemoveAllLandMarks(); }
    TLandMark GetLandMarkData(std::int32_t Index) const { return FLandMarks.GetLandMarkData(Index); }
    void SetLandMarkData(std::int32_t Index, const TLandMark& Data) { FLandMarks.SetLandMarkData(Index, Data); }
    const TLandMark& DefaultLandMark() const { return FLandMarks.DefaultLandMark(); }
    void SetDefaultLandMark(const TLandMark& LandMark) { FLandMarks.SetDefaultLandMark(LandMark); }
    bool GetClassVisibility(std::uint8_t Class) const { return FLandMarks.GetClassVisibility(Class); }
    void SetClassVisibility(std::uint8_t Class, bool Visible) { FLandMarks.SetClassVisibility(Class, Visible); }
    std::int32_t HighLM() const { return FLandMarks.HighLM(); }
    void SetHighLM(std::int32_t Index) { FLandMarks.SetHighLM(Index); }
    void SetHighLightProperties(TColor FG, TColor BG, bool Transparent) { FLandMarks.SetHighLightProperties(FG, BG, Transparent); }
    bool LoadLandMarks(const std::string& FName, std::string_view Id) { return FLandMarks.LoadLandMarks(FName, Id); }
    void SaveLandmarks(const std::string& FName, std::string_view Id) const { FLandMarks.SaveLandmarks(FName, Id); }
    bool ReadLandMarksFromOpenXMLFile(std::istream& F, std::string_view Id) { return FLandMarks.ReadLandMarksFromOpenXMLFile(F, Id); }
    void WriteLandMarksToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id) const
    {
        FLandMarks.WriteLandMarksToOpenXMLFile(F, WithHeader, Id);
    }

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
    void MouseBoxAbort();
    // Drops whatever the mouse has begun: a rubber band, zoom window, selection box, pan or drag-zoom drag
    // ends without its end events, its figures are erased, a running MouseBox ends with false. For an
    // application whose view changes under a figure (a keyboard pan, another map): the figure's control
    // pixels would no longer mark the map pixels it was drawn over.
    void CancelMouseOperation() { ResetMouseState(); }
    // Wheel zoom about the pointer: 1.25 times per notch (120 units), the map pixel under the pointer
    // kept under it; each wheel event is pushed on the zoom history and fires OnZoomPan. Only when
    // OnMouseWheel left the event unhandled. Off by default (the wheel then only fires OnMouseWheel).
    bool WheelZoom() const { return FWheelZoom; }
    void SetWheelZoom(bool Value);
    // Touchpad pinch (a native zoom gesture or Qt's pinch gesture) zooms about the fingers, firing
    // OnZoomPan on every step and pushing the view on the zoom history when the gesture ends. On by default.
    bool PinchZoom() const { return FPinchZoom; }
    void SetPinchZoom(bool Value);
    // A zoom window or selection box whose sides are both at most this many pixels counts as a click: the
    // zoom only ends, OnSelectRect is not called. Given in control pixels for a device pixel ratio of 1 and
    // multiplied by the ratio (rounded), since pen and touch input on high-density screens lands less
    // exactly; 0 (the default) keeps every box.
    std::int32_t HitTolerance() const { return FHitTolerance; }
    void SetHitTolerance(std::int32_t Value);
    std::int32_t EffectiveHitTolerance() const;
    // The cursor follows MouseAction (hand for panning, the zoom, window and selection cursors, a cross for
    // the rubber band and MouseBox, the landmark cursor). On by default; off leaves the cursor to the
    // application.
    bool ModeCursor() const { return FModeCursor; }
    void SetModeCursor(bool Value);

    // The exclusive-or feedback figures currently shown over the frame (TMouseFigure); figures stay over
    // the frame across repaints until the mouse operation that drew them erases them.
    const std::vector<TMouseFigure>& MouseFigures() const { return FMouse.Figures(); }
    // Draws the figures onto Frame in exclusive-or, coordinates multiplied by Ratio; a second call restores it.
    void DrawMouseFigures(TBitmap& Frame, double Ratio) const;

    // ---- mouse state (read by the mouse handlers) ----
    TZoomState ZoomState() const { return FMouse.ZoomState(); }
    TMouseBoxState MouseBoxState() const { return FMouse.MouseBoxState(); }
    bool RubberBandOn() const { return FMouse.RubberBandOn(); }
    bool SelectRectOn() const { return FMouse.SelectRectOn(); }
    // Map-image pixels of the last press and of the last move.
    TPoint LastMClickPos() const { return FMouse.LastClick().Point(); }
    void SetLastMClickPos(TPoint P) { FMouse.SetLastClick(TMapPixel(P)); }
    TPoint LastMMousePos() const { return FMouse.LastMove().Point(); }
    std::int32_t ZStackPoi() const { return FView.HistoryPos(); }

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

    // The notices of the calibration and the landmark store: repaint (not for a caption alone) and signals.
    void CalibrationChanged(unsigned What);
    void LandMarksChanged(unsigned What);
    // Emits magnificationChanged and viewChanged when magnification, top-left corner or control size
    // differ from what was last announced; the one place the view signals come from.
    void NoteViewChange();
    // Emits mouseGeoPositionChanged when the pointer (control pixel) is over another map pixel of the
    // image that the calibration converts.
    void NotePointer(TPoint ControlPixel);
    // Emits the NOTIFY signal of every property whose value differs from Before (PropertyValues()).
    std::vector<QVariant> PropertyValues() const;
    void NotifyChangedProperties(const std::vector<QVariant>& Before);
    void ReportError(const std::exception& Error) override;  // error(), then OnError
    // The image's name and size pushed into the calibration: the only way the calibration learns them.
    void PushImageToCalibration();
    // SetMapImgName without the name fix of CreateAndLoadEmptyMap.
    void LoadImage(const std::string& Name);
    void NotifyLoading(TProgressStage Stage, std::int32_t Percent);  // OnDataLoading, its failures to OnError
    // Everything a map switch may change, to put back when it fails (geo_map_load.cpp).
    struct TViewSnapshot;
    std::unique_ptr<TViewSnapshot> SaveView() const;
    void RestoreView(TViewSnapshot& Snapshot);
    // Runs Read (a calibration read that may load an image) as one switch: see ReadCalDataFromOpenXMLFile.
    bool SwitchMap(const std::string& CalFile, const std::function<bool()>& Read);
    // The calibration reader's two steps with the image it names loaded between them (by this map);
    // the file form returns false when the file does not open.
    bool ReadCalibrationAndImage(std::istream& F, std::string_view Id);
    bool ReadCalibrationFile(const std::string& FName, std::string_view Id);
    // mapChanged, or within a switch a note for the switch to announce once.
    void AnnounceMapChange();
    // After a new picture was accepted: the size pushed into the calibration and the viewport, AuxBmp,
    // TopLeft (0, 0), repaint, mapChanged.
    void TakeNewImage();
    // The render events bound to this map as the sender.
    TMapRenderEvents RenderEvents();
    // CopyToBMP; with BareMap, also the frame as it stood before anything was drawn over the map.
    void RenderOutput(TBitmap& Bitmap, TBitmap* BareMap, TPoint Position, double Scale, TSize Size);
    TOutputRenderer OutputRenderer();  // RenderOutput, for the printing functions
    // The viewport with the control's current size and the image's size (a hidden widget is resized
    // without a resize event).
    TMapViewport& SizedView();
    void InitMouse();
    // The tool with the view and the confinement of this moment (the mouse's only way in).
    TMapMouseTool& MouseTool();
    // Takes the tool's view, redraws the figures' areas and raises the tool's events in their order.
    void RaiseMouseResult(const TMouseToolResult& R);
    // Runs Body; when it throws, the drag in progress is dropped before the exception goes on.
    template <class F>
    void DropOnThrow(F&& Body);
    void ResetMouseState();
    void UpdateModeCursor();
    void RaiseError(std::string_view Text) const;

    // The view state, in the documented order where it has one.
    TBitmap FAuxBmp;
    TMapImageCache FCache;  // FImgCache, FCacheMag, FCacheAA
    // FCacheMagLimit, the colours, FFrameStyle, FEmptyMsg, FLMRandSampleLimit, FShowGrat, FAntiAlias,
    // FGratLineDist, FUTMGridDist.
    TMapAppearance FLook;
    // FMagnify, FTopLeft, the image size (FMapImgWidth, FMapImgHeight), the control size, the zoom
    // history (FZoomStack, FZStackPoi).
    TMapViewport FView;
    bool FSuppressPaint = false;
    bool FConfinePan = true;
    TMapCalibration FCalib;      // FCalibData, FCalibModel, the fitted sets, FCalDatName
    TLandMarkStore FLandMarks;   // FNumLandMarks, FLandMarks, FDefaultLM, FLMClassVisible, FHighLM...
    TMapImage FImage;  // GrafBmp, FMapImgName, the image size; the pyramid; the size limit

    // Beyond the classic state.
    bool FKeyboardNavigation = true;
    double FForcedPixelRatio = 0.0;
    TMapRenderCachesPtr FRenderCaches;
    TBitmap FMapOnly;       // AuxBmp as it stood before OnBeforeRenderData (ratio above 1 only)
    TBitmap FScreenBmp;     // the device-resolution frame (ratio above 1 only)
    bool FMapOnlyValid = false;
    bool FFrameBuilt = false;
    int FHoldPaint = 0;         // > 0 while an operation repaints once at its end
    // Holds painting back for a scope; the operation paints once at its end (also when it throws).
    class THoldPaint {
    public:
        explicit THoldPaint(TGeoMap& Map) : FCounter(Map.FHoldPaint) { ++FCounter; }
        ~THoldPaint() { --FCounter; }
        THoldPaint(const THoldPaint&) = delete;
        THoldPaint& operator=(const THoldPaint&) = delete;

    private:
        int& FCounter;
    };
    bool FRenderingOutput = false;  // CopyToBMP is rendering: FView is the output's
    // A name the calibration reader lower-cased, and the file it stands for (CreateAndLoadEmptyMap).
    std::string FImageNameFix;
    // The calibration file being read (images are looked for beside it), and whether its image load was
    // cancelled.
    std::string FReadingCalFile;
    bool FLoadCancelled = false;
    bool FInSwitch = false;  // inside a map switch, which puts everything back when its image fails
    bool FSwitchTouched = false;  // the calibration or the image changed within the current switch
    // Mouse, beyond the classic state.
    // The mouse's state machine works on FView; its state (mode, drags, rubber band, boxes, figures) is the
    // classic FZoomState, FMouseBoxState, FWindAnchorX ... and FLButtonWasDown.
    TMapMouseTool FMouse{FView, FCalib};
    TModalLoop* FMouseBoxLoop = nullptr;  // the running MouseBox's loop
    bool FWheelZoom = false;
    bool FPinchZoom = true;
    std::int32_t FHitTolerance = 0;
    bool FModeCursor = true;
    // What the signals last announced.
    struct TAnnounced {
        double Magnify = 1.0;
        TPoint TopLeft;
        TSize ControlSize;
        TCalibModel CalibModel = cmUndefined;
        std::int32_t UTMZone = -1;
        THemisphere Hemisphere = hemiNorth;
        TPoint MouseMapPixel{-1, -1};
        bool MouseOverMap = false;
    } FAnnounced;
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
