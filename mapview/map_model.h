// TMapModel: the map view without its widget. It holds what the view shows and how (the viewport, the
// appearance, the map image, the calibration, the landmark store), the picture it draws (AuxBmp and the
// caches behind it) and the operations on them, each with the repaint it documents. Nothing here needs a
// widget: a TMapModel alone loads a calibration with its image, takes a view and renders AuxBmp, which is
// how tests and command-line tools draw maps. TGeoMap inherits it and adds the widget; the model speaks
// upward only through the protected virtual functions at the end, whose defaults suit a model on its own
// (AuxBmp rendered at once, nothing asked, nothing announced).
//
// Units: control pixels (origin top-left, y down) for the view; map-image pixels for TopLeft and the map
// operations; degrees for positions; magnification is control pixels per map pixel.
//
// Beyond the classic behaviour (each off or invisible at its default):
// - MaxMapPixels: the image size limit, 3 000 000 pixels by default, may be raised (up to 2^31 - 1). For an
//   image above 3 000 000 pixels the model keeps a pyramid of halved copies (2x2 averages, made once per
//   image) from which the renderer builds its scaled cache, so a zoom change on a 100-megapixel map costs
//   about what it costs on a small one. Where that cache would still hold more than twice the view's
//   pixels, no cache is built: each paint stretches the visible rectangle from the smallest level that
//   still has a pixel per control pixel (also the source of the direct stretch above CacheMagLimit, which
//   is GrafBmp itself there). Images within 3 000 000 pixels have no pyramid and are drawn exactly as
//   before, by the documented cache rule.
// - Tiled maps (OpenRaster, SetMapSource): a picture too large to hold is read by window from its file's
//   levels through a tile cache as the view needs it; there is no GrafBmp, and MaxMapPixels does not apply
//   to it (it is about memory) but to the whole bitmaps an operation would make of it.
// - Keyboard (property KeyboardNavigation, on by default): arrow keys pan by an eighth of the view, '+' and
//   '-' zoom by 1.25 about the view's centre, Home is ZoomFitPage; each step fires OnZoomPan and is pushed
//   on the zoom history.
// - High-density screens: with a device pixel ratio above 1 (fractional ratios included) the widget shows
//   a frame at device resolution whose map image is stretched from the map itself; everything drawn over the
//   map (graticule, landmarks, events, frame) is taken from AuxBmp, which stays the documented W x H
//   picture. At ratio 1 the widget shows AuxBmp unchanged.
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
#include <qvgeo/platform/cursors.h>
#include <qvgeo/platform/frame.h>

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

// The documented image size limit; the default of MaxMapPixels and the size above which a pyramid is kept.
inline constexpr std::int64_t DefaultMaxMapPixels = LargeMapPixels;

// The properties whose change the model reports upward (PropertyChanged): each is reported exactly when a
// setter changed its value, never on a set that changes nothing.
enum TMapProperty : int {
    mpAntiAlias, mpCacheMagLimit, mpColorBackGnd, mpColorFrame, mpColorGraticule, mpColorCalibPoints,
    mpConfinePanToMapImage, mpEmptyMsg, mpFrameStyle, mpGratLineDist, mpUTMGridDist, mpShowGraticule,
    mpMaxMapPixels, mpWheelZoom, mpHitTolerance, mpKeyboardNavigation, mpCalibModel, mpUTMZone, mpUTMHemisphere, mpMouseAction, mpAllowPan
};

class TMapModel {
public:
    TMapModel();
    virtual ~TMapModel();
    TMapModel(const TMapModel&) = delete;
    TMapModel& operator=(const TMapModel&) = delete;

    // The component name used in the error messages of the image, the calibration and the landmark store.
    void SetComponentName(const std::string& Name);

    // ---- appearance and view properties ----
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
    TShowGrat ShowGraticule() const { return FLook.ShowGraticule; }
    void SetShowGraticule(TShowGrat Value);
    // Grid labels at the view's edges, scale bar, north arrow (all off by default); repaints.
    const TFurnitureOptions& Furniture() const { return FLook.Furniture; }
    void SetFurniture(const TFurnitureOptions& Value);
    // Image size limit in pixels (width x height); at least 1, at most 2^31 - 1.
    std::int64_t MaxMapPixels() const { return FImage.MaxPixels(); }
    void SetMaxMapPixels(std::int64_t Value);
    // Device pixel ratio used for the screen frame; 0 (the default) takes the device's own.
    double ForcedPixelRatio() const { return FForcedPixelRatio; }
    void SetForcedPixelRatio(double Value);
    // The size of the view in control pixels (a widget pushes its own size here); repaints.
    void SetControlSize(TSize Size);

    // ---- the map image (a TMapImage; each operation that changes it pushes the image's name and size
    // into the calibration, moves the view where documented, repaints and announces the map change) ----
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
    // Opens a map image of any type explicitly (TMapImage::Open): BMP and JPEG within MaxMapPixels decode
    // as SetMapImgName decodes them (without its rule for other types); any other raster GDAL reads, and
    // larger BMP and JPEG pictures, open through GDAL: read whole within MaxMapPixels, else kept tiled —
    // read by window through a tile cache as the view needs it, with no GrafBmp, exempt from MaxMapPixels.
    // Request handler, OnDataLoading and CancelLoading as for SetMapImgName; the calibration takes the
    // name and size. Raises "Cannot load map image \"<file>\": no such file" for a missing file, the
    // reader's message for an unreadable one; a failed or cancelled open changes nothing.
    // Reading a calibration loads its image this way when the image is neither BMP nor JPEG (a GeoTIFF, a
    // PNG, a huge scan) and GDAL is built in; BMP and JPEG images of a calibration load as documented.
    //
    // Whole-map operations on a tiled map: output, export, printing and the high-density frame read the
    // level that fits; CopyToBMP and CopyEntireMapToClipboard raise "Cannot copy map image, maximum of
    // <limit> pixels exceeded (size of copy is <W> x <H>)" for a bitmap above MaxMapPixels; SaveMap raises
    // "Cannot save map image, ..." above MaxMapPixels (below it the picture is read whole and written);
    // ResizeMap makes a whole picture from the level that fits when the result is within MaxMapPixels;
    // SetMapBitMap, Assign, RenameMapImg, CopyToClipboard and a map switch work as for a whole picture.
    void OpenRaster(const std::string& FileName);
    // Shows Source (a picture read by window: a server's, a generated one) as a tiled map named Name, as
    // OpenRaster shows a file too large to hold; no OnDataLoading. A source without pixels empties the map.
    void SetMapSource(std::shared_ptr<const TImageSource> Source, const std::string& Name);
    void SetMapBitMap(const TBitmap& Bitmap);  // the name becomes "$unknown$"
    bool RenameMapImg(const std::string& NewName);
    // Writes the calibration (".xml", naming the image without a directory) and the image (".jpg").
    void SaveMap(const std::string& FileName, std::string_view Comment);
    std::int32_t MapWidth() const { return FImage.Width(); }
    std::int32_t MapHeight() const { return FImage.Height(); }
    const TBitmap& GrafBmp() const { return FImage.Bitmap(); }  // empty for a tiled map
    bool MapTiled() const { return FImage.Tiled(); }
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

    // ---- rendering and output ----
    // Rebuilds AuxBmp at once (unless SuppressPaint or held) and asks for the device's update.
    virtual void Paint();
    void ConstructInternalMapImg();
    const TBitmap& AuxBmp() const { return FAuxBmp; }
    const TMapImageCache& ImageCache() const { return FCache; }
    // What the view shows and how it is drawn, as RenderMapView takes them (read-only: the setters above
    // change them, with the repaint and the events they document).
    const TMapViewport& Viewport() const { return FView; }
    const TMapAppearance& Appearance() const { return FLook; }
    // Collision-free captions, declutter by scale, halos and scale of symbols and captions (map_labels.h);
    // a change repaints.
    const TLabelOptions& LabelOptions() const { return FLook.Labels; }
    void SetLabelOptions(const TLabelOptions& Value);
    // The map's scale at the view's centre, for drawers that choose what to show by it (in
    // OnBeforeRenderData say): metres of ground per control pixel, and the scale denominator on a screen of
    // Dpi pixels per inch. 0 without a calibrated map. While CopyToBMP renders they answer for the output.
    double MetresPerPixel() const;
    double ScaleDenominator(double Dpi = 96.0) const { return qv::ScaleDenominator(MetresPerPixel(), Dpi); }
    // The map image, its pyramid, the calibration and the landmarks as RenderMapView takes them; valid
    // until the next change of the map.
    virtual TMapSources RenderSources() const;
    // The frame a device shows: AuxBmp at ratio 1, the device-resolution frame above 1.
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
    // Onto printers and painters (map_output.h; the widget opens the printer): the map is rendered as on
    // screen, Scale control pixels per map pixel, and a control pixel is printed as 1/96 inch.
    // The map pixels that fit on the printer's page at Scale, from TopLeft, clipped to the map.
    TRect CalcExtentsOfPrint(QPrinter& Printer, double Scale) const;
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

    // Copies the whole model (image, view, appearance, calibration, landmarks, mouse state) from Source
    // and repaints, then reports each property that changed and the map switch; the control size and the
    // component name stay this one's.
    void Assign(const TMapModel& Source);

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

    // ---- mouse and keyboard state (map_model_mouse.cpp; the widget translates its events for the tool) ----
    bool AllowPan() const { return FMouse.Mode() == maPan; }
    TMouseActMode MouseAction() const { return FMouse.Mode(); }
    bool KeyboardNavigation() const { return FKeyboardNavigation; }
    void SetKeyboardNavigation(bool Value);
    // Wheel zoom about the pointer: 1.25 times per notch (120 units), the map pixel under the pointer
    // kept under it; each wheel event is pushed on the zoom history and fires OnZoomPan. Only when
    // OnMouseWheel left the event unhandled. Off by default (the wheel then only fires OnMouseWheel).
    bool WheelZoom() const { return FWheelZoom; }
    void SetWheelZoom(bool Value);
    // A zoom window or selection box whose sides are both at most this many pixels counts as a click: the
    // zoom only ends, OnSelectRect is not called. Given in control pixels for a device pixel ratio of 1 and
    // multiplied by the ratio (rounded), since pen and touch input on high-density screens lands less
    // exactly; 0 (the default) keeps every box.
    std::int32_t HitTolerance() const { return FHitTolerance; }
    void SetHitTolerance(std::int32_t Value);
    std::int32_t EffectiveHitTolerance() const;
    // Drops whatever the mouse has begun: a rubber band, zoom window, selection box, pan or drag-zoom drag
    // ends without its end events, its figures are erased, a running MouseBox ends with false. For an
    // application whose view changes under a figure (a keyboard pan, another map): the figure's control
    // pixels would no longer mark the map pixels it was drawn over.
    void CancelMouseOperation() { ResetMouseState(); }
    void MouseBoxAbort();
    // Input in the tool's terms, raised as the tool reports it (a device translates its events into these).
    void ToolPress(TToolButton Button, TToolShiftState Shift, TControlPixel P, bool Double);
    void ToolMove(TToolShiftState Shift, TControlPixel P) { RaiseMouseResult(MouseTool().Move(Shift, P)); }
    void ToolRelease(TToolButton Button, TToolShiftState Shift, TControlPixel P);
    // Whether Key navigates (KeyboardNavigation on, a map loaded, one of the tool's keys); ToolKey runs it.
    bool NavigatesBy(TMapKey Key) const { return FKeyboardNavigation && FImage.Width() > 0 && Key != TMapKey::Other; }
    void ToolKey(TMapKey Key, TToolShiftState Shift) { RaiseMouseResult(MouseTool().Key(Key, Shift)); }
    // Wheel zoom (when WheelZoom is on) and pinch steps; true when the tool took the event.
    bool ToolWheel(std::int32_t Delta, TPoint P);
    void ToolPinch(double X, double Y, double Scale) { RaiseMouseResult(MouseTool().Pinch(X, Y, Scale)); }
    bool ToolPinchEnd(bool Gesture);
    // The cursor of MouseAction: hand for panning, the zoom, window and selection cursors, a cross for the
    // rubber band, the landmark cursor.
    TCursor ModeCursorShape() const;
    double GetLastMClickLatitude() const;
    double GetLastMClickLongitude() const;
    // The exclusive-or feedback figures currently shown over the frame (TMouseFigure); figures stay over
    // the frame across repaints until the mouse operation that drew them erases them.
    const std::vector<TMouseFigure>& MouseFigures() const { return FMouse.Figures(); }
    // Draws the figures onto Frame in exclusive-or, coordinates multiplied by Ratio; a second call restores it.
    void DrawMouseFigures(TBitmap& Frame, double Ratio) const;

    TZoomState ZoomState() const { return FMouse.ZoomState(); }
    TMouseBoxState MouseBoxState() const { return FMouse.MouseBoxState(); }
    bool RubberBandOn() const { return FMouse.RubberBandOn(); }
    bool SelectRectOn() const { return FMouse.SelectRectOn(); }
    // Map-image pixels of the last press and of the last move.
    TPoint LastMClickPos() const { return FMouse.LastClick().Point(); }
    void SetLastMClickPos(TPoint P) { FMouse.SetLastClick(TMapPixel(P)); }
    TPoint LastMMousePos() const { return FMouse.LastMove().Point(); }
    std::int32_t ZStackPoi() const { return FView.HistoryPos(); }


    // ---- synthetic empty maps ----
    void CreateEmptyMapInMemory(double LatMin, double LongMin, double LatMax, double LongMax, double LatGratDist,
                                double LongGratDist, std::int32_t Width, std::int32_t Height, bool ShowGrat,
                                const TOnDrawMapDataEvent& OnDrawData = {});
    void CreateAndLoadEmptyMap(const std::string& FName, double LatMin, double LongMin, double LatMax, double LongMax,
                               double LatGratDist, double LongGratDist, std::int32_t Width, std::int32_t Height,
                               const TOnDrawMapDataEvent& OnDrawData = {});

protected:
    // ---- the way up: what a device (the widget) adds; the defaults are those of a model on its own ----
    // AuxBmp was rebuilt: the device should show it.
    virtual void RequestPaint() {}
    // Magnification, top-left corner or size differ from what was last reported (checked at each repaint
    // asked for, held or not, and after PanMapToFillWindow); reported before the hook runs, so that a hook
    // that moves the view again is reported by its own call.
    virtual void ViewMoved(bool /*MagnificationChanged*/) {}
    // Another image or calibration file was taken; once per operation, also for an undone switch.
    virtual void MapSwitched() {}
    virtual void PropertyChanged(TMapProperty) {}
    // The notices of the calibration and the landmark store (their change bits); the defaults repaint
    // (not for a caption alone, which is not drawn).
    virtual void CalibrationNotice(unsigned What);
    virtual void LandMarksNotice(unsigned What);
    // The image request: AsksImageName says whether anyone may rename an image before it loads (without
    // that, a name is looked for beside the calibration file being read).
    virtual bool AsksImageName() const { return false; }
    virtual void AskImageName(std::string&) {}
    virtual void LoadProgress(TProgressStage, std::int32_t) {}
    // The picture source's later long step (TMapImage::SetLaterProgress), reported as a load.
    bool LaterProgress(std::int64_t Done, std::int64_t Total);
    void EndLaterLoading();
    // Ends such a step (pgEnding) when the drawing that started it is done.
    struct TLaterStepScope {
        TMapModel& FModel;
        explicit TLaterStepScope(TMapModel& Model) : FModel(Model) {}
        ~TLaterStepScope();
        TLaterStepScope(const TLaterStepScope&) = delete;
        TLaterStepScope& operator=(const TLaterStepScope&) = delete;
    };
    // The question before a landmark is added or removed.
    virtual void AskLandMark(bool&, TLandMarkAction, const TLandMark&) {}
    virtual TMapRenderEvents RenderEvents() { return {}; }
    // The mouse tool's figures toggled or cleared (R.Toggled, R.FiguresCleared), and each of its events
    // that is not the model's own (a repaint, a push on the history, a landmark added), in their order.
    virtual void FiguresChanged(const TMouseToolResult&) {}
    virtual void MouseToolEvent(const TMouseToolEvent&) {}
    // The device's size in control pixels at this moment and its pixel ratio (a hidden widget is resized
    // without telling anyone); true while a form is being loaded (views are not pushed on the history).
    virtual TSize DeviceSize() const { return FView.ControlSize(); }
    virtual double DevicePixelRatio() const { return 1.0; }
    virtual bool Loading() const { return false; }

    // Takes the present view and calibration settings as reported (a device that sized itself).
    void TakeAnnounced();
    // True when the pointer (control pixel) is over another map pixel of the image than last time and the
    // calibration converts it; C is its position.
    bool NotePointer(TPoint ControlPixel, TCoords& C);
    // Everything but the control size and the component name, without a repaint (Assign); returns the
    // properties whose values changed.
    std::vector<TMapProperty> CopyModel(const TMapModel& Source);
    // The viewport with the device's current size and the image's size.
    TMapViewport& SizedView();
    // CopyToBMP; with BareMap, also the frame as it stood before anything was drawn over the map.
    void RenderOutput(TBitmap& Bitmap, TBitmap* BareMap, TPoint Position, double Scale, TSize Size);
    TOutputRenderer OutputRenderer();  // RenderOutput, for the printing functions
    // The tool with the view and the confinement of this moment (the mouse's only way in).
    TMapMouseTool& MouseTool();
    // Takes the tool's view, and raises the tool's figure changes and events in their order.
    void RaiseMouseResult(const TMouseToolResult& R);
    void ResetMouseState() { RaiseMouseResult(FMouse.Abort()); }

    // Holds painting back for a scope; the operation paints once at its end (also when it throws).
    class THoldPaint {
    public:
        explicit THoldPaint(TMapModel& Map) : FCounter(Map.FHoldPaint) { ++FCounter; }
        ~THoldPaint() { --FCounter; }
        THoldPaint(const THoldPaint&) = delete;
        THoldPaint& operator=(const THoldPaint&) = delete;

    private:
        int& FCounter;
    };

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
    bool FLaterLoading = false;      // a later step of the picture's source is under way
    double FLaterDeclinedAt = -1.0;  // the magnification at which the user cancelled one; -1: none
    TMapImage FImage;  // GrafBmp, FMapImgName, the image size; the pyramid; the size limit
    int FHoldPaint = 0;         // > 0 while an operation repaints once at its end
    // The mouse's state machine works on FView; its state (mode, drags, rubber band, boxes, figures) is the
    // classic FZoomState, FMouseBoxState, FWindAnchorX ... and FLButtonWasDown.
    TMapMouseTool FMouse{FView, FCalib};
    bool FKeyboardNavigation = true;
    bool FWheelZoom = false;
    std::int32_t FHitTolerance = 0;

private:
    // The rule of the plain appearance setters: store, repaint (whether or not the value changed, as the
    // setters document), and report the property only when its value changed.
    template <class T>
    void StoreAndPaint(T& Field, T Value, TMapProperty Property);
    void CalibrationChanged(unsigned What);
    // ViewMoved when the view differs from what was last reported; the one place it comes from.
    void NoteViewChange();
    // The image's name and size pushed into the calibration: the only way the calibration learns them.
    void PushImageToCalibration();
    // SetMapImgName without the name fix of CreateAndLoadEmptyMap.
    void LoadImage(const std::string& Name, bool AnyType = false, bool Explicit = false);
    // Everything a map switch may change, to put back when it fails (map_model_load.cpp).
    struct TViewSnapshot;
    std::unique_ptr<TViewSnapshot> SaveView() const;
    void RestoreView(TViewSnapshot& Snapshot);
    // Runs Read (a calibration read that may load an image) as one switch: see ReadCalDataFromOpenXMLFile.
    bool SwitchMap(const std::string& CalFile, const std::function<bool()>& Read);
    // The calibration reader's two steps with the image it names loaded between them (by this map);
    // the file form returns false when the file does not open.
    bool ReadCalibrationAndImage(std::istream& F, std::string_view Id);
    bool ReadCalibrationFile(const std::string& FName, std::string_view Id);
    // MapSwitched, or within a switch a note for the switch to announce once.
    void AnnounceMapChange();
    // After a new picture was accepted: the size pushed into the calibration and the viewport, AuxBmp,
    // TopLeft (0, 0), repaint, the map change announced.
    void TakeNewImage();

    double FForcedPixelRatio = 0.0;
    TMapRenderCachesPtr FRenderCaches;
    TBitmap FMapOnly;       // AuxBmp as it stood before OnBeforeRenderData (ratio above 1 only)
    bool FMapOnlyValid = false;
    bool FRenderingOutput = false;  // CopyToBMP is rendering: FView is the output's
    // A name the calibration reader lower-cased, and the file it stands for (CreateAndLoadEmptyMap).
    std::string FImageNameFix;
    // The calibration file being read (images are looked for beside it), and whether its image load was
    // cancelled.
    std::string FReadingCalFile;
    bool FLoadCancelled = false;
    bool FInSwitch = false;  // inside a map switch, which puts everything back when its image fails
    bool FSwitchTouched = false;  // the calibration or the image changed within the current switch
    // What was last reported upward.
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

protected:
    bool FFrameBuilt = false;  // AuxBmp was rendered at least once
    TBitmap FScreenBmp;        // the device-resolution frame (ratio above 1 only)
};

}  // namespace qv
