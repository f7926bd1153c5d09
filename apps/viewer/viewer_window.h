// The viewer's main window: the atlas of bundled maps, the geographic database drawn onto the maps,
// a status bar (position in degrees and UTM, map scale, magnification, the rubber band's distance and
// bearing), a toolbar of mouse modes and the landmark layer, copy, export and print.
//
// Every handler of an event, action or timer runs through Guard: a failure is reported in the status bar
// (LastError) and never reaches Qt's event loop. The window remembers the landmarks and the calibration as
// they were last loaded or saved and asks before closing over changes to them.
#pragma once

#include "atlas_data.h"
#include "calib_editor.h"
#include "landmark_dialog.h"
#include "measure.h"
#include "place_dialog.h"

#include <qvgeo/geoatlas/geo_atlas.h>
#include <qvgeo/geodb/geodb.h>
#include <qvgeo/support/text.h>

#include <QMainWindow>

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

class QAction;
class QActionGroup;
class QDragEnterEvent;
class QDropEvent;
class QLabel;
class QMenu;
class QProgressDialog;

namespace viewer {

// Whether a calibration's answer is a place a landmark or a measurement can stand on: finite, latitude
// within ±90°, longitude within ±360° (a map across the date line may count on past 180°). A calibration
// extrapolates beyond its image without limit and says the result is valid.
inline bool OnEarth(double Lat, double Long) { return std::fabs(Lat) <= 90.0 && std::fabs(Long) <= 360.0; }

// Tool modes of the toolbar: the atlas's zoom click, the map view's own mouse modes, deleting and moving
// landmarks (a double click in either edits the landmark), calibration points.
enum class TTool { AtlasZoom, Pan, PanHoriz, PanVert, RubberBand, ZoomWindow, DragZoom, SelectRect, PlaceLandmark,
                   DeleteLandmark, CalibPoint, MoveLandmark, GraticulePoint };

class TGraticuleDock;

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
    // The readable map (View menu, all on from the start): landmark captions placed without overlap and
    // with halos and shown only where the view is finer than MaxLandmarkMetresPerPixel, capitals and towns
    // named the same way, the database drawn only where the view is finer than MaxDatabaseMetresPerPixel
    // (neither on the world map); grid labels at the view's edges, a scale bar,
    // a north arrow. Off, the map is drawn as TGeoMap draws it by default.
    static constexpr double MaxDatabaseMetresPerPixel = 2000.0;
    static constexpr double MaxLandmarkMetresPerPixel = 2000.0;
    bool ReadableLabels() const { return FReadableLabels; }
    QAction* ReadableLabelsAction() const { return FLabelsAction; }
    // All four on or off, as their menu entries would.
    void SetReadableMap(bool On);
    void ApplyReadableMap();
    // The status texts for the map-view pixel (X, Y) (control pixels); the labels are updated as well.
    QString PositionText(std::int32_t X, std::int32_t Y);
    QString UTMText(std::int32_t X, std::int32_t Y);
    QLabel* PositionLabel() const { return FPosLabel; }
    QLabel* UTMLabel() const { return FUTMLabel; }
    QLabel* ScaleLabel() const { return FScaleLabel; }
    QLabel* MagLabel() const { return FMagLabel; }
    // The rubber band's measure: distance and bearing of the leg being drawn (and the total of a band of
    // several legs); it keeps the last measure once the band ends.
    QLabel* MeasureLabel() const { return FMeasureLabel; }
    void UpdatePointer(std::int32_t X, std::int32_t Y);
    void UpdateMapInfo();
    int DatabaseItemsDrawn() const { return FItemsDrawn; }
    // Whether the map shown has a calibration that gives positions: a model and at least as many reference
    // points as it needs (a map whose points were all cleared has none, although its model stays).
    bool HasCalibration() const;
    // The visible landmark nearest to the map-view pixel (X, Y) within the hit tolerance of 10 control
    // pixels; 0 when there is none.
    std::int32_t LandmarkAt(std::int32_t X, std::int32_t Y);
    // Edits landmark Index in TLandmarkDialog (modal); false when cancelled or Index is not a landmark.
    bool EditLandmark(std::int32_t Index);
    // Edits the landmark under the mouse pointer (F2); a message when there is none.
    bool EditLandmarkUnderPointer();
    // Zooms by Factor keeping the map pixel at the view's centre (the View menu and its keys).
    void ZoomAboutCentre(double Factor);
    void FitMap();
    // Changes since the landmarks were last loaded or saved, and since the map's calibration was loaded
    // (with its map, or from a file in the calibration editor) or saved.
    bool LandmarksModified() const;
    bool CalibrationModified();
    // The file the landmarks were last loaded from or saved to; Quit saves them there.
    QString LandmarkFile() const { return FLandmarkFile; }
    // The last failure a handler reported (also shown in the status bar); empty when none.
    QString LastError() const { return FLastError; }
    // Runs Body; an exception is reported (status bar, LastError) instead of going on.
    void Guard(const std::function<void()>& Body);
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
    // Opens each file or folder by its kind (KindOfPath): a folder is added to the atlas, a calibration
    // file registered and shown, a landmark file or waypoints loaded into the landmark layer, a picture
    // shown. What a file dropped on the window does. Files that fail are reported together (status bar,
    // LastError, a non-modal message). Returns how many were opened.
    int OpenPaths(const QStringList& Paths);
    // Registers a calibration file with the atlas (remembered in the settings) and shows its map.
    bool OpenCalibrationFile(const QString& File, QString& Error);
    // Replaces the landmarks by the waypoints (points) of a GPX, KML, GeoPackage or GeoJSON file.
    bool ImportWaypoints(const QString& File, QString& Error);
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
    // Tools -> Detect graticule: shows the graticule dock and searches the map shown (false: nothing found
    // or no image; the dock says why). Null and false in a build without the graticule finder.
    bool DetectGraticule();
    TGraticuleDock* GraticuleDock() { return FGratDock; }
    // Asks for the place of a clicked pixel in the calibration tool (degrees); false: cancelled. The
    // default shows a dialog; tests put their own answer here.
    std::function<bool(std::int32_t X, std::int32_t Y, double& Lat, double& Long)> AskPlace;
    // Asks for a file to save to (Title, a suggested name, a filter); empty: cancelled. The default shows a
    // file dialog; tests put their own answer here.
    std::function<QString(const QString& Title, const QString& Suggested, const QString& Filter)> AskSaveFile;

protected:
    bool event(QEvent* Event) override;
    void closeEvent(QCloseEvent* Event) override;
    bool eventFilter(QObject* Watched, QEvent* Event) override;
    void dragEnterEvent(QDragEnterEvent* Event) override;
    void dropEvent(QDropEvent* Event) override;
    // The same for a utm-calibrated map: metres, zone and hemisphere.
    std::function<bool(std::int32_t X, std::int32_t Y, TUTMPlace& Place)> AskUTMPlace;

private:
    void BuildActions();
    void DrawOverlays(qv::TCanvas& Canvas);
    void DrawDatabase(qv::TCanvas& Canvas);
    // The capitals of the country table on the world map: dots, and their names when magnified.
    void DrawCapitals(qv::TCanvas& Canvas);
    bool PixelToLatLong(std::int32_t X, std::int32_t Y, double& Lat, double& Long);
    // map_files.cpp: the calibration's questions and files, the atlas's remembered folders.
    void SetUpMapFiles();
    void AddCalibPointAt(qv::TPoint P);  // asks the place of map-image pixel P and adds the point
    void CalibrationSaved(const QString& File);
    void Remember(const char* Key, const QString& Path);
    void ShowCurrentInList();

    // ---- map interaction (viewer_interaction.cpp) ----
    void InitInteraction();
    void MapMouseDown(qv::TMouseButton Button, qv::TShiftState Shift, std::int32_t X, std::int32_t Y);
    void MapMouseMove(qv::TShiftState Shift, std::int32_t X, std::int32_t Y);
    void MapMouseUp(std::int32_t X, std::int32_t Y);
    void MapDblClick();
    // Puts back the landmark the last press of the delete tool removed (the first press of a double click).
    void RestoreJustDeleted();
    // Before the map shown is replaced: asks whether to save unsaved calibration changes; false: stay.
    bool ConfirmLeaveMap();
    // The same before a landmark file replaces landmarks with unsaved changes.
    bool ConfirmReplaceLandmarks();
    // Save, Discard or Cancel over unsaved changes; true when the caller may go on (saved or discarded).
    bool AskToSave(const QString& Title, const QString& Text, const QString& Question, bool Landmarks, bool Calibration);
    // The atlas map shown; 0 while an image opened to calibrate is shown in its place.
    std::int32_t ShownAtlasMap() const;
    // Runs an export, print or copy: the frames it renders are not the view's (the status bar, the rubber
    // band and the map-change checks ignore them). Render's result.
    bool RenderOutput(const std::function<bool()>& Render);
    void ReportError(const QString& Message);
    // Called by every frame the map renders: the status bar, and what follows a change of map or view.
    void ViewRendered();
    void ApplyGraticule();
    void RestoreParabolicModel();
    void MapResized();
    // The template of the next placed landmark: the time now, a new identifier, the next caption.
    void PrepareLandmarkTemplate();
    std::string NewLandmarkIdentifier() const;
    void BandEvent(int Kind, std::int32_t MapX, std::int32_t MapY);
    void EndBand();
    void BuildClassMenu(QMenu* Menu);
    void RefreshClassMenu();
    void TakeLandmarkSnapshot();
    void TakeCalibrationSnapshot();
    bool ConfirmClose();
    bool SaveChanges(bool Landmarks, bool Calibration);

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
    TGraticuleDock* FGratDock = nullptr;
    int FDraggedGratPoint = 0;  // the proposed graticule crossing being dragged (1-based), 0 when none
    qv::TSymbolRepository FSymbols;
    std::int32_t FDragged = 0;  // the landmark being moved, 0 when none
    // The landmark the last press of the delete tool removed, with its number; until the next press.
    std::optional<std::pair<std::int32_t, qv::TLandMark>> FJustDeleted;
    int FDraggedCalPoint = 0;  // the reference point being dragged (1-based), 0 when none
    std::unique_ptr<QProgressDialog> FLoadProgress;  // while a map image loads
    QString FFolderReport;
    QString FSettingsFile;
    std::string FMapDir;  // the bundled maps' folder, registered at every start anyway
    int FPlaced = 0;                     // landmarks placed so far (their captions count on)
    std::int32_t FCountBeforePress = 0;  // landmarks before the press in the placing tool
    qv::TPoint FPointer;  // the last pointer position in the map view, control pixels

    // Map interaction state.
    QLabel* FMeasureLabel = nullptr;
    QAction* FGridAction = nullptr;
    QAction* FLabelsAction = nullptr;
    std::vector<QAction*> FReadableActions;
    bool FReadableLabels = true, FGridLabels = true, FScaleBar = true, FNorthArrow = true;
    QMenu* FClassMenu = nullptr;
    TBandMeasure FBand;
    qv::TPoint FBandPress;  // control pixel of the press that began or continued the band
    // What was shown when the band began; the band's figure ends when the view changes under it.
    struct TViewKey {
        std::int32_t Map = 0;
        std::string Image;
        qv::TCalibModel Model = qv::cmUndefined;
        qv::TPoint TopLeft;
        double Magnify = 0.0;
        bool operator==(const TViewKey&) const = default;
    };
    TViewKey ViewKey() const;
    TViewKey FBandView, FShownView;
    QSize FMapSize;  // the map view's size before the last resize
    QString FLastError;
    QString FLandmarkFile, FCalibFile;
    bool FRenderingOutput = false;
    std::string FOpenedImage;  // the image of the last Open image, as the map names it; empty: none
    std::string FLandmarkSnapshot, FCalibSnapshot;
    std::pair<std::int32_t, std::string> FCalibSnapshotMap;  // the map and image the calibration snapshot is of
};

// Renders the tour of views into OutDir (created): the world map, the Austria map with the database,
// the Vienna region with database and landmarks, the UTM map with its grid, a hand-made calibration
// with its residual vectors, Europe's capitals on the world map at x5.6. Returns the files written.
// Readable false: with the readable map off (View menu), as TGeoMap draws by default.
std::vector<std::string> RenderTour(const TAtlasFiles& Files, const std::string& OutDir, bool Readable = true);

}  // namespace viewer
