// The viewer's main window: the atlas of bundled maps, the geographic database drawn onto the maps,
// a status bar (position in degrees and UTM, map scale, magnification), a toolbar of mouse modes and the
// landmark layer, copy, export and print.
#pragma once

#include "atlas_data.h"
#include "calib_editor.h"
#include "landmark_dialog.h"
#include "place_dialog.h"

#include <qvgeo/geoatlas/geo_atlas.h>
#include <qvgeo/geodb/geodb.h>
#include <qvgeo/support/text.h>

#include <QMainWindow>

#include <functional>
#include <map>
#include <memory>
#include <string>

class QAction;
class QActionGroup;
class QLabel;
class QProgressDialog;

namespace viewer {

// Tool modes of the toolbar: the atlas's zoom click, the map view's own mouse modes, deleting and moving
// landmarks (a double click in either edits the landmark), calibration points.
enum class TTool { AtlasZoom, Pan, PanHoriz, PanVert, RubberBand, ZoomWindow, DragZoom, SelectRect, PlaceLandmark,
                   DeleteLandmark, CalibPoint, MoveLandmark };

class TViewerWindow : public QMainWindow {
    Q_OBJECT

public:
    // SettingsFile: an INI file where the window remembers the map folders and calibrations added to the
    // atlas, to register them again at the next start; empty: nothing is remembered.
    explicit TViewerWindow(const TAtlasFiles& Files, QWidget* Parent = nullptr, const QString& SettingsFile = {});
    ~TViewerWindow() override;

    qv::TGeoAtlas& Atlas() { return *FAtlas; }
    qv::TGeoMap& Map() { return FAtlas->MapView(); }
    // The registered map whose calibration file has this leaf name ("world.xml"); 0 when none has.
    std::int32_t MapNumber(const std::string& Leaf) const;
    void SetTool(TTool Tool);
    TTool Tool() const { return FTool; }
    QAction* ToolAction(TTool Tool) const;
    void SetDegreeFormat(qv::TDegreeFormat Format);
    // The status texts for the map-view pixel (X, Y) (control pixels); the labels are updated as well.
    QString PositionText(std::int32_t X, std::int32_t Y);
    QString UTMText(std::int32_t X, std::int32_t Y);
    QLabel* PositionLabel() const { return FPosLabel; }
    QLabel* UTMLabel() const { return FUTMLabel; }
    QLabel* ScaleLabel() const { return FScaleLabel; }
    void UpdatePointer(std::int32_t X, std::int32_t Y);
    void UpdateMapInfo();
    int DatabaseItemsDrawn() const { return FItemsDrawn; }
    // The visible landmark nearest to the map-view pixel (X, Y) within 10 pixels; 0 when there is none.
    std::int32_t LandmarkAt(std::int32_t X, std::int32_t Y);
    // Edits landmark Index in TLandmarkDialog (modal); false when cancelled or Index is not a landmark.
    bool EditLandmark(std::int32_t Index);
    // The catalogue the landmark editor offers; a catalogue opened in the editor replaces it.
    qv::TSymbolRepository& Symbols() { return FSymbols; }
    // Registers every calibration file of Folder with a progress dialog (a step a file; Cancel stops
    // between files) and shows the files that could not be taken in a (non-modal) report. Returns them.
    std::vector<qv::TAtlasFileProblem> AddMapFolder(const QString& Folder);
    // The last folder report, empty when every file was registered.
    QString FolderReport() const { return FFolderReport; }
    // Shows a BMP or JPEG image with no calibration (zero points, model equirect) in the calibration
    // editor and tool. False with the reason in Error (the map shown then stays).
    bool OpenImage(const QString& File, QString& Error);
    // The folders and single calibration files remembered in the settings, in the order added.
    QStringList RememberedFolders() const;
    QStringList RememberedMaps() const;
    bool LoadLandmarkFile(const QString& File);
    bool SaveLandmarkFile(const QString& File);
    bool ExportView(const QString& File);       // PNG or JPEG by the extension
    bool ExportWholeMap(const QString& File);
    bool PrintToPdf(const QString& File);
    // The georeferencing of the map shown, by File's extension: ".vrt" a VRT over the map image with
    // control points, ".txt"/".gcp" a control-point list, anything else a world file (affine models only;
    // a UTM one gets its ".prj" beside it). False with the reason in Error.
    bool ExportGeoref(const QString& File, QString& Error);
    // Reads a world file or (".txt"/".gcp") a control-point list for the image shown into the map's
    // calibration, fitted with Model; UTM takes the zone and hemisphere of the map's calibration. The
    // calibration editor shows the result. False with the reason in Error when the file cannot be read
    // (the calibration is then unchanged).
    bool ImportGeoref(const QString& File, qv::TCalibModel Model, QString& Error);
    TCalibEditor& CalibEditor() { return *FCalibEditor; }
    // Asks for the place of a clicked pixel in the calibration tool (degrees); false: cancelled. The
    // default shows a dialog; tests put their own answer here.
    std::function<bool(std::int32_t X, std::int32_t Y, double& Lat, double& Long)> AskPlace;
    // The same for a utm-calibrated map: metres, zone and hemisphere.
    std::function<bool(std::int32_t X, std::int32_t Y, TUTMPlace& Place)> AskUTMPlace;

private:
    void BuildActions();
    void DrawOverlays(qv::TCanvas& Canvas);
    void DrawDatabase(qv::TCanvas& Canvas);
    // The capitals of the country table on the world map: dots, and their names when magnified.
    void DrawCapitals(qv::TCanvas& Canvas);
    void MapMouseDown(qv::TMouseButton Button, std::int32_t X, std::int32_t Y);
    bool PixelToLatLong(std::int32_t X, std::int32_t Y, double& Lat, double& Long);
    // map_files.cpp: the calibration's questions and files, the atlas's remembered folders.
    void SetUpMapFiles();
    void AddCalibPointAt(qv::TPoint P);  // asks the place of map-image pixel P and adds the point
    void CalibrationSaved(const QString& File);
    void Remember(const char* Key, const QString& Path);
    void ShowCurrentInList();

    qv::TGeoAtlas* FAtlas = nullptr;
    qv::TGeoDB FDB{"viewer"};
    std::map<int, qv::TgdbPolygon> FPolygons;  // by record number, read once
    int FItemsDrawn = 0;
    qv::TDegreeFormat FDegFormat = qv::dfDegMinSec;
    TTool FTool = TTool::AtlasZoom;
    std::map<TTool, QAction*> FToolActions;
    QActionGroup* FToolGroup = nullptr;
    QLabel* FPosLabel = nullptr;
    QLabel* FUTMLabel = nullptr;
    QLabel* FScaleLabel = nullptr;
    QLabel* FMagLabel = nullptr;
    TCalibEditor* FCalibEditor = nullptr;
    qv::TSymbolRepository FSymbols;
    std::int32_t FDragged = 0;
    int FDraggedCalPoint = 0;  // the reference point being dragged (1-based), 0 when none
    std::unique_ptr<QProgressDialog> FLoadProgress;  // while a map image loads
    QString FFolderReport;  // the landmark being moved, 0 when none
    QString FSettingsFile;
    std::string FMapDir;  // the bundled maps' folder, registered at every start anyway
    int FPlaced = 0;
    qv::TPoint FPointer;  // the last pointer position in the map view, control pixels
};

// Renders the tour of views into OutDir (created): the world map, the Austria map with the database,
// the Vienna region with database and landmarks, the UTM map with its grid, a hand-made calibration
// with its residual vectors. Returns the files written.
std::vector<std::string> RenderTour(const TAtlasFiles& Files, const std::string& OutDir);

}  // namespace viewer
