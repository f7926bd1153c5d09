// TGeoAtlas: a control that holds up to 200 calibrated maps (calibration files naming a raster image) and
// shows one of them at a time in an embedded TGeoMap. In zoom mode a left click on the map switches to the
// next finer map that covers the clicked place, any other button to the next coarser one, and the place is
// centred. A command panel on top carries a pointer button, a zoom button and a drop-down list of the
// registered maps; the outlines of the other registered maps are drawn over the map shown.
//
// Units: resolutions in metres per map pixel (larger is coarser); positions in degrees; MinResDiff in
// percent. Maps are numbered from 1; 0 means none.
//
// File names: a map is identified by its calibration file name in lower case (registering "Wien.xml" and
// "wien.xml" gives one entry, and TMapDefinition.MapFName holds the lower-case form), but the file is opened
// by the name it was registered with, so that it opens on a case-sensitive file system. Map images are
// looked for beside their calibration file; since the calibration reader lower-cases the image name it
// finds, an image whose exact name is missing there is matched case-insensitively within that directory.
//
// Beyond the classic control: RegisterFolder registers every calibration file of a folder and reports
// each one that could not be taken; SelectBestMap picks the map for a place and a wanted resolution without
// a click; outlines follow the view's magnification (the classic shift by the view's top-left pixel is
// the same at magnification 1, and misplaces them at any other).
#pragma once

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/colors.h>
#include <qvgeo/platform/custom_control.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class QButtonGroup;
class QComboBox;
class QFrame;
class QToolButton;

namespace qv {

// One registered map.
struct TMapDefinition {
    std::string MapFName;  // full path of the calibration file, lower case
    std::string Caption;
    double Resolution = 0.0;  // metres per pixel; larger is coarser
    TCornerArray Corners{};   // TCorners order: top-left, bottom-left, bottom-right, top-right
};

inline constexpr std::int32_t MaxAtlasMaps = 200;
// Numbers of the atlas's cursors in the cursor registry (platform/cursors.h).
inline constexpr std::int32_t AtlasZoomCursor = 1000, AtlasHandCursor = 1001;
inline constexpr int AtlasButtonGroup = 999;

// A calibration file RegisterFolder could not register, and why.
struct TAtlasFileProblem {
    std::string File;    // the path as found in the folder
    std::string Reason;  // one line of text
    friend bool operator==(const TAtlasFileProblem&, const TAtlasFileProblem&) = default;
};

class TGeoAtlas;
using TAtlasNotifyEvent = std::function<void(TGeoAtlas& Sender)>;

class TGeoAtlas : public TCustomControl {
    Q_OBJECT
    Q_PROPERTY(bool CmdPanelVisible READ CmdPanelVisible WRITE SetCmdPanelVisible)
    Q_PROPERTY(QColor MapOutlineColor READ QtMapOutlineColor WRITE setMapOutlineColor)
    Q_PROPERTY(bool MapOutlineVisible READ MapOutlineVisible WRITE SetMapOutlineVisible)
    Q_PROPERTY(double MinResDiff READ MinResDiff WRITE SetMinResDiff)

public:
    // 480 x 320 at (100, 50); the panel (height 33) with its buttons and list; the map view below it; the
    // cursors 1000 and 1001 registered.
    explicit TGeoAtlas(QWidget* Parent = nullptr);
    ~TGeoAtlas() override;
    TGeoAtlas(const TGeoAtlas&) = delete;
    TGeoAtlas& operator=(const TGeoAtlas&) = delete;

    // Parses the calibration file and adds it, or updates the entry of the same lower-case name; refills
    // the list, selects nothing, leaves the view alone. False (nothing changed) when the file cannot be
    // read, holds no calibration, is malformed, or when it is new and 200 maps are registered already.
    bool RegisterMap(const std::string& MapFName);
    // Removes map Index (1..NumRegMaps, others ignored); the following maps move down one number. When it
    // was the map selected in the list, the map that moved into its number is selected.
    void UnregisterMap(std::int32_t Index);
    // Loads map Index into the view; the list shows it when the calibration loaded. False for a number
    // outside 1..NumRegMaps or a file that holds no calibration (any more). A map calibrated by points
    // alone counts as loaded although the view's reader returns false for it (its result is the fit of
    // graticule lines, of which such a map has none). When the map cannot be shown (its image is not a
    // readable picture, exceeds the size limit, or its load was cancelled), the result is false, the error
    // goes to OnError, and the view, the list and CurrentMap stay on the map shown before. The same holds
    // for a map chosen in the list.
    bool SelectMap(std::int32_t Index);
    // Switches to the coarsest registered map at (Lat, Long) that is finer than CurrentResolution by more
    // than MinResDiff percent (lowest number on ties) and centres the place. False when there is none, or
    // when that map cannot be shown (SelectMap): the view then stays as it was.
    bool ZoomIn(double CurrentLat, double CurrentLong, double CurrentResolution);
    // Switches to the finest map at (Lat, Long) that is coarser than CurrentResolution (lowest number on
    // ties) and centres the place. False when there is none or it cannot be shown, as for ZoomIn.
    bool ZoomOut(double CurrentLat, double CurrentLong, double CurrentResolution);
    // A copy of slot Index (1..200); an empty definition outside that range. Slots above NumRegMaps keep
    // what they last held.
    TMapDefinition GetMapDef(std::int32_t Index) const;
    TMapDefinition Maps(std::int32_t Index) const { return GetMapDef(Index); }
    // The calibration file of map Index as it was registered, its case kept (MapFName is lower-cased and
    // names no file on a case-sensitive file system when the path has capitals); empty outside
    // 1..NumRegMaps.
    std::string MapFileName(std::int32_t Index) const
    {
        return Index >= 1 && Index <= FNumRegMaps ? FOpenNames[static_cast<std::size_t>(Index - 1)] : std::string();
    }

    // Registers every "*.xml" file of Folder (not its subfolders), in name order. Returns one entry for each
    // file that was not registered; an empty result means all were. A folder that cannot be listed gives
    // one entry naming the folder. Progress, when set, is called before each file with the files done so
    // far and their number, and once more with both equal at the end; false stops the registration there
    // (the files not reached are neither registered nor reported).
    std::vector<TAtlasFileProblem> RegisterFolder(const std::string& Folder,
                                                  const std::function<bool(std::int32_t Done, std::int32_t Total)>& Progress = {});
    // Shows the map for a place at a wanted resolution (metres per pixel) and centres the place: the
    // coarsest map covering it whose resolution is at most Resolution, or, when every covering map is
    // coarser, the finest of them; lowest number on ties. False when no map covers the place.
    bool SelectBestMap(double Lat, double Long, double Resolution);

    // ---- properties ----
    bool CmdPanelVisible() const;
    void SetCmdPanelVisible(bool Value);
    TColor MapOutlineColor() const { return FMapOLColor; }
    void SetMapOutlineColor(TColor Value);  // repaints the view
    bool MapOutlineVisible() const { return FMapOLVisible; }
    void SetMapOutlineVisible(bool Value);  // repaints the view
    double MinResDiff() const { return FMinResDiff; }
    void SetMinResDiff(double Value) { FMinResDiff = Value; }
    // The properties under the names a form compiled by uic calls ("set" + property name, Qt types).
    void setCmdPanelVisible(bool Value) { SetCmdPanelVisible(Value); }
    void setMapOutlineColor(const QColor& Value) { SetMapOutlineColor(FromQRgb(Value.rgb())); }
    void setMapOutlineVisible(bool Value) { SetMapOutlineVisible(Value); }
    void setMinResDiff(double Value) { SetMinResDiff(Value); }
    QFrame* CmdPanel() const { return FCPanel; }
    std::int32_t CurrentMap() const { return FCurrentMapIdx; }
    std::int32_t NumRegMaps() const { return FNumRegMaps; }
    QComboBox* MapSelector() const { return FCboxMaps; }
    QToolButton* PointerButton() const { return FSBPoint; }
    QToolButton* ZoomButton() const { return FSBZoom; }
    // The embedded map view (for its display properties; its mouse, click, rendering and image events
    // belong to the atlas).
    TGeoMap& MapView() { return *FGeoMap; }
    const TGeoMap& MapView() const { return *FGeoMap; }

    // ---- events (OnMouseDown, OnMouseMove, OnMouseUp, OnClick, OnDblClick are TCustomControl's) ----
    TAtlasNotifyEvent OnZoomButClick, OnPointerButClick, OnCBoxMapsChange;
    // Asked before the user's choice in the list or a zoom click replaces the map shown with map Index;
    // false keeps the map shown (and the list names it again). Not asked by SelectMap, ZoomIn, ZoomOut
    // or SelectBestMap called from code, nor when the choice is the map shown.
    std::function<bool(TGeoAtlas& Sender, std::int32_t Index)> OnMapChanging;

protected:
    void Resize() override;

private:
    // What the MapOutlineColor property reads (Designer shows a colour picker).
    QColor QtMapOutlineColor() const { return ToQColor(FMapOLColor); }

    // The parse-and-store of RegisterMap; Reason says why it returned false.
    bool RegisterMapReport(const std::string& MapFName, std::string& Reason);
    void FillMapList();
    // The map ZoomIn (Finer) or ZoomOut would take; 0 for none.
    std::int32_t ChooseFiner(double Lat, double Long, double CurrentResolution, double MinStep) const;
    std::int32_t ChooseCoarser(double Lat, double Long, double CurrentResolution) const;
    bool ShowAndCentre(std::int32_t Index, double Lat, double Long);
    bool LoadMap(std::int32_t Index);  // LoadCalDataFromXML of map Index; false on failure, never raises
    void ButtonClicked(QToolButton* Button);
    void ListChosen(int Line);
    bool MayLeave(std::int32_t Index);  // OnMapChanging's answer for a switch to map Index
    // Where a paint hold reports what the paint at its end throws: OnError.
    std::function<void(const std::exception&)> HoldReport();
    void MapMouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y);
    void DrawOutlines(TCanvas& Canvas);
    void ImageRequest(std::string& FileName) const;
    void LayoutChildren();

    // Fields in the documented order; the child widgets belong to the atlas through Qt's parent chain.
    TGeoMap* FGeoMap = nullptr;
    QFrame* FCPanel = nullptr;
    QToolButton* FSBZoom = nullptr;
    QToolButton* FSBPoint = nullptr;
    QComboBox* FCboxMaps = nullptr;
    TColor FMapOLColor = 0xFF0000;  // blue
    bool FMapOLVisible = true;
    double FMinResDiff = 10.0;
    std::int32_t FNumRegMaps = 0;
    std::array<TMapDefinition, MaxAtlasMaps> FRegMaps{};
    std::int32_t FCurrentMapIdx = 0;

    // The names the maps were registered with (case kept), slot for slot beside FRegMaps: used to open
    // the calibration file and to find its images.
    std::array<std::string, MaxAtlasMaps> FOpenNames{};
    QButtonGroup* FButtons = nullptr;
};

}  // namespace qv
