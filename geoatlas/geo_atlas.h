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
//
// The registered maps and the choice among them are a TMapCatalogue (geomap/map_catalogue.h, no GUI),
// which the atlas owns and which Catalogue() shows.
//
// Qt signals: beside the std::function events, each event is also a signal (any number of listeners), and
// each property has a NOTIFY signal, emitted once when its value changes and not when it is set to the
// value it has. Signals are emitted when the state they report is final (after a failed load has put the
// map shown back, after a zoom has centred the place).
#pragma once

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/geomap/map_catalogue.h>
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/colors.h>
#include <qvgeo/platform/custom_control.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class QButtonGroup;
class QComboBox;
class QFrame;
class QToolButton;

namespace qv {

// Numbers of the atlas's cursors in the cursor registry (platform/cursors.h).
inline constexpr std::int32_t AtlasZoomCursor = 1000, AtlasHandCursor = 1001;
inline constexpr int AtlasButtonGroup = 999;

class TGeoAtlas;
using TAtlasNotifyEvent = std::function<void(TGeoAtlas& Sender)>;

class TGeoAtlas : public TCustomControl {
    Q_OBJECT
    Q_PROPERTY(bool CmdPanelVisible READ CmdPanelVisible WRITE SetCmdPanelVisible NOTIFY cmdPanelVisibleChanged)
    Q_PROPERTY(QColor MapOutlineColor READ QtMapOutlineColor WRITE setMapOutlineColor NOTIFY mapOutlineColorChanged)
    Q_PROPERTY(bool MapOutlineVisible READ MapOutlineVisible WRITE SetMapOutlineVisible NOTIFY mapOutlineVisibleChanged)
    Q_PROPERTY(double MinResDiff READ MinResDiff WRITE SetMinResDiff NOTIFY minResDiffChanged)
    Q_PROPERTY(int CurrentMap READ CurrentMap NOTIFY mapChanged DESIGNABLE false STORED false)
    Q_PROPERTY(int NumRegMaps READ NumRegMaps NOTIFY numRegMapsChanged DESIGNABLE false STORED false)

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
        return Index >= 1 && Index <= NumRegMaps() ? FCatalogue.FileName(Index) : std::string();
    }
    // The registered maps and the choice among them, read-only (registration goes through the atlas, which
    // keeps its list in step).
    const TMapCatalogue& Catalogue() const { return FCatalogue; }

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
    void SetMinResDiff(double Value);
    // The properties under the names a form compiled by uic calls ("set" + property name, Qt types).
    void setCmdPanelVisible(bool Value) { SetCmdPanelVisible(Value); }
    void setMapOutlineColor(const QColor& Value) { SetMapOutlineColor(FromQRgb(Value.rgb())); }
    void setMapOutlineVisible(bool Value) { SetMapOutlineVisible(Value); }
    void setMinResDiff(double Value) { SetMinResDiff(Value); }
    QFrame* CmdPanel() const { return FCPanel; }
    std::int32_t CurrentMap() const { return FCurrentMapIdx; }
    std::int32_t NumRegMaps() const { return FCatalogue.Count(); }
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

signals:
    // NOTIFY signals of the properties, with the new value.
    void cmdPanelVisibleChanged(bool Visible);
    void mapOutlineColorChanged(const QColor& Color);
    void mapOutlineVisibleChanged(bool Visible);
    void minResDiffChanged(double Percent);
    void mapChanged(int Index);  // CurrentMap
    void numRegMapsChanged(int Count);
    // A map was put into the view (SelectMap, a zoom, SelectBestMap, the list, the reselection after
    // UnregisterMap), the place centred where the operation centres; also when Index is the map shown
    // before, which has been loaded afresh. Not when the map could not be shown.
    void mapShown(int Index);
    // RegisterMap (or RegisterFolder, once a file) took a file: a new map or an update of map Index.
    void mapRegistered(int Index);
    // UnregisterMap removed map Index (the following maps have moved down).
    void mapUnregistered(int Index);
    // The events: after OnCBoxMapsChange (Index: CurrentMap then), OnZoomButClick, OnPointerButClick.
    void mapChosen(int Index);
    void zoomButtonClicked();
    void pointerButtonClicked();
    // After OnError (or the warning written in its place) for every error the atlas reports.
    void error(const QString& Message);

protected:
    void Resize() override;
    void ReportError(const std::exception& Error) override;

private:
    // What the MapOutlineColor property reads (Designer shows a colour picker).
    QColor QtMapOutlineColor() const { return ToQColor(FMapOLColor); }

    // After the catalogue took map Slot: the list refilled and the signals; CountBefore is NumRegMaps
    // before the registration.
    void Registered(std::int32_t Slot, std::int32_t CountBefore);
    void FillMapList();
    // SelectMap without its signals; Previous receives CurrentMap before the call.
    bool Show(std::int32_t Index, std::int32_t& Previous);
    bool ShowAndCentre(std::int32_t Index, double Lat, double Long);
    // mapChanged when CurrentMap is no longer Previous.
    void NotifyCurrentMap(std::int32_t Previous);
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
    // The registered maps (their number, the definitions numbered from 1, the names they were registered
    // with, which open the calibration files and find their images).
    TMapCatalogue FCatalogue;
    std::int32_t FCurrentMapIdx = 0;

    QButtonGroup* FButtons = nullptr;
};

}  // namespace qv
