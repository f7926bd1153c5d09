#include "viewer_window.h"

#if defined(QVGEO_WITH_OPENCV)
#include "graticule_dock.h"
#endif

#include "overlay_labels.h"

#include "guard.h"
#include "place_dialog.h"

#include <qvgeo/geobasics/countries.h>
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/georef_export.h>

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPrinter>
#include <QProgressDialog>
#include <QStatusBar>
#include <QToolBar>
#include <QTimer>
#include <QToolButton>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace viewer {

namespace {

constexpr std::uint8_t kPlacedClass = 2;  // landmarks placed in the viewer; the samples use class 1
constexpr const char* kLandmarkSetId = "sights";

// Control-point lists go by these extensions; a world file's own extension varies with the image
// (".tfw", ".jgw", ".bpw", ".wld"), so it is what remains.
bool IsGCPListName(const QString& File)
{
    const QString ext = QFileInfo(File).suffix().toLower();
    return ext == "txt" || ext == "gcp";
}

void WriteTextFile(const std::string& File, const std::string& Text)
{
    std::ofstream out(File, std::ios::binary | std::ios::trunc);
    out << Text;
    out.close();
    if (!out)
        throw std::runtime_error("cannot write \"" + File + "\"");
}

}  // namespace

TViewerWindow::TViewerWindow(const TAtlasFiles& Files, QWidget* Parent, const QString& SettingsFile)
    : QMainWindow(Parent), FSettingsFile(SettingsFile), FMapDir(Files.MapDir)
{
    setWindowTitle("qvgeo viewer");
    setAcceptDrops(true);  // files and folders dropped on the window open by their kind (open_files.cpp)
    FAtlas = new qv::TGeoAtlas(this);
    setCentralWidget(FAtlas);
    for (const auto& p : FAtlas->RegisterFolder(Files.MapDir))
        statusBar()->showMessage(QString::fromStdString("not registered: " + p.File + ": " + p.Reason));
    FDB.SetGDBName(Files.DBName);

    qv::TGeoMap& map = Map();
    // A paint may come from a destructor (the atlas's paint hold) or from code outside any guard: a failing
    // overlay is reported and the frame goes on without it.
    map.OnBeforeRenderData = [this](qv::TGeoMap&, qv::TCanvas& C) { Guard([&] { DrawOverlays(C); }); };
    map.OnZoomPan = [this](qv::TGeoMap&) { Guard([this] { UpdateMapInfo(); }); };
    FAtlas->OnMouseMove = [this](qv::TCustomControl&, qv::TShiftState S, std::int32_t X, std::int32_t Y) {
        MapMouseMove(S, X, Y);
    };
    FAtlas->OnMouseDown = [this](qv::TCustomControl&, qv::TMouseButton B, qv::TShiftState S, std::int32_t X,
                                 std::int32_t Y) { MapMouseDown(B, S, X, Y); };
    FAtlas->OnMouseUp = [this](qv::TCustomControl&, qv::TMouseButton, qv::TShiftState, std::int32_t X,
                               std::int32_t Y) { MapMouseUp(X, Y); };
    FAtlas->OnDblClick = [this](qv::TCustomControl&) { MapDblClick(); };
    FAtlas->OnCBoxMapsChange = [this](qv::TGeoAtlas&) {
        Guard([this] {
            FOpenedImage.clear();  // a map of the atlas replaced an opened image
            UpdateMapInfo();
            Map().setFocus();  // the keys pan the map again, not walk the list
        });
    };
    map.OnDataLoading = [this](qv::TGeoMap& M, qv::TProgressStage Stage, std::int32_t Percent) {
        if (Stage == qv::pgStarting) {
            FLoadProgress = std::make_unique<QProgressDialog>("Loading the map image...", "Cancel", 0, 100, this);
            FLoadProgress->setWindowModality(Qt::WindowModal);
            FLoadProgress->setMinimumDuration(400);  // small images load without a flash
            return;
        }
        if (!FLoadProgress)
            return;
        if (Stage == qv::pgEnding) {
            const bool cancelled = FLoadProgress->wasCanceled();
            FLoadProgress.reset();
            if (cancelled)
                statusBar()->showMessage("Loading the map image was cancelled", 10000);
            return;
        }
        FLoadProgress->setValue(Percent);
        PumpProgressEvents(*FLoadProgress);
        if (FLoadProgress->wasCanceled())
            M.CancelLoading();
    };
    map.OnSelectRect = [this](qv::TGeoMap&, std::int32_t Kind, double V1, double V2, double V3, double V4) {
        statusBar()->showMessage(
            Kind == 1 ? QString("selected: N %1 W %2 S %3 E %4").arg(V1, 0, 'f', 5).arg(V2, 0, 'f', 5).arg(V3, 0, 'f', 5).arg(V4, 0, 'f', 5)
                      : QString("selected pixels (%1, %2) - (%3, %4)").arg(V1).arg(V2).arg(V3).arg(V4),
            10000);
    };

    // The template of placed landmarks: a red filled circle with a caption below it.
    qv::TLandMark lm = map.DefaultLandMark();
    lm.ClassFlag = kPlacedClass;
    lm.SymbolProps.Kind = qv::lmCircle;
    lm.SymbolProps.Size = 6;
    lm.SymbolProps.FGColor = 0x000080;
    lm.SymbolProps.BGColor = 0x0000FF;
    lm.Caption.Text = "Mark 1";
    lm.Caption.Size = 9;
    lm.Caption.FontName = "DejaVu Sans";
    lm.Caption.Transparent = true;
    lm.Caption.HAlignment = qv::haCenter;
    map.SetDefaultLandMark(lm);
    map.LoadLandMarks(Files.LandmarkFile, kLandmarkSetId);
    FSymbols.SetComponentName("viewer");
    FSymbols.LoadFromFile(Files.SymbolFile, {});  // without it the editor keeps each landmark's symbol

    FPosLabel = new QLabel(this);
    FUTMLabel = new QLabel(this);
    FScaleLabel = new QLabel(this);
    FMagLabel = new QLabel(this);
    for (QLabel* l : {FPosLabel, FUTMLabel, FScaleLabel, FMagLabel})
        statusBar()->addPermanentWidget(l);
    FCalibEditor = new TCalibEditor(map, this);
    addDockWidget(Qt::RightDockWidgetArea, FCalibEditor);
    FCalibEditor->hide();
    connect(FCalibEditor, &QDockWidget::visibilityChanged, this, [this](bool On) {
        Guard([&] {
            if (On)
                FCalibEditor->Refresh();
            else
                Map().Paint();
        });
    });
#if defined(QVGEO_WITH_OPENCV)
    FGratDock = new TGraticuleDock(map, this);
    addDockWidget(Qt::RightDockWidgetArea, FGratDock);
    tabifyDockWidget(FCalibEditor, FGratDock);  // one tall panel each: the points list and the proposals
    FGratDock->hide();
    FGratDock->OnApplied = [this] {
        FCalibEditor->show();
        FCalibEditor->raise();
        FCalibEditor->Refresh();
    };
    connect(FGratDock, &QDockWidget::visibilityChanged, this, [this](bool) { Guard([this] { Map().Paint(); }); });
#endif
    AskPlace = [this](std::int32_t X, std::int32_t Y, double& Lat, double& Long) {
        std::optional<qv::TCoords> start;
        if (qv::TCoords c; Map().Calibration().CalcPosition({X, Y}, c))
            start = c;
        std::vector<TPlaceMap> others;  // the map being calibrated is no help in finding its own place
        for (std::int32_t i = 1; i <= FAtlas->NumRegMaps(); ++i)
            if (i != FAtlas->CurrentMap())
                others.push_back({QString::fromStdString(FAtlas->GetMapDef(i).Caption), FAtlas->MapFileName(i)});
        TPlaceDialog dlg(X, Y, start, std::move(others), this);
        return dlg.exec() == QDialog::Accepted && dlg.Place(Lat, Long);
    };
    BuildActions();
    InitInteraction();
    SetUpMapFiles();

    // Start on the world map, the coarsest one.
    if (const std::int32_t world = MapNumber("world.xml"))
        FAtlas->SelectMap(world);
    SetTool(TTool::AtlasZoom);
    FLandmarkFile = QString::fromStdString(Files.LandmarkFile);
    TakeLandmarkSnapshot();
    TakeCalibrationSnapshot();
    FShownView = ViewKey();
    ApplyGraticule();
    ApplyReadableMap();
    UpdateMapInfo();
    resize(1100, 760);
}

TViewerWindow::~TViewerWindow()
{
    // The child widgets outlive this object's own part (QWidget deletes them later): nothing of theirs
    // may call back into it, as hiding the dock or a last repaint would.
    disconnect(FCalibEditor, nullptr, this, nullptr);
    FCalibEditor->OnSaved = {};
    if (FGratDock) {
        disconnect(FGratDock, nullptr, this, nullptr);
        FGratDock->OnApplied = {};
    }
    Map().OnBeforeRenderData = {};
    Map().OnZoomPan = {};
    Map().OnSelectRect = {};
    FAtlas->OnMouseMove = {};
    FAtlas->OnMouseDown = {};
    FAtlas->OnMouseUp = {};
    FAtlas->OnCBoxMapsChange = {};
    FAtlas->OnDblClick = {};
    FAtlas->OnError = {};
    FAtlas->OnMapChanging = {};
    Map().OnDataLoading = {};
    Map().OnError = {};
    Map().OnResize = {};
    Map().OnBeginRubberBand = {};
    Map().OnContinueRubberBand = {};
    Map().OnEndRubberBand = {};
    Map().removeEventFilter(this);
}

std::int32_t TViewerWindow::MapNumber(const std::string& Leaf) const
{
    for (std::int32_t i = 1; i <= FAtlas->NumRegMaps(); ++i)
        if (std::filesystem::path(FAtlas->GetMapDef(i).MapFName).filename() == Leaf)
            return i;
    return 0;
}

void TViewerWindow::BuildActions()
{
    // Every action's body runs guarded: a failure is reported, never thrown into Qt.
    const auto guarded = [this](std::function<void()> Body) { return [this, Body] { Guard(Body); }; };
    QMenu* file = menuBar()->addMenu("&File");
    file->addAction("Open &image or map...", QKeySequence("Ctrl+I"), this, guarded([this] {
        const QStringList files = QFileDialog::getOpenFileNames(
            this, "Open images, maps, calibrations, landmarks or waypoints", {},
            "Maps and images (*.bmp *.jpg *.jpeg *.png *.tif *.tiff *.jp2 *.j2k *.webp *.gif *.map *.points *.xml);;"
            "Waypoints (*.gpx *.kml *.kmz *.gpkg *.geojson *.json);;All files (*)");
        OpenPaths(files);
    }));
    file->addAction("&Open landmarks...", QKeySequence::Open, this, guarded([this] {
        if (!ConfirmReplaceLandmarks())
            return;
        const QString f = QFileDialog::getOpenFileName(this, "Open landmarks", {}, "Landmarks (*.xml)");
        if (!f.isEmpty() && !LoadLandmarkFile(f))
            QMessageBox::warning(this, "Open landmarks", "No landmark set in " + f);
    }));
    file->addAction("&Save landmarks...", QKeySequence::Save, this, guarded([this] {
        const QString f = QFileDialog::getSaveFileName(this, "Save landmarks", "landmarks.xml", "Landmarks (*.xml)");
        if (!f.isEmpty() && !SaveLandmarkFile(f))
            QMessageBox::warning(this, "Save landmarks", "Cannot write " + f);
    }));
    file->addAction("Add map &folder...", QKeySequence("Ctrl+Shift+O"), this, guarded([this] {
        const QString d = QFileDialog::getExistingDirectory(this, "Add the calibrated maps of a folder");
        if (!d.isEmpty())
            AddMapFolder(d);
    }));
    file->addSeparator();
    file->addAction("&Export view as image...", QKeySequence("Ctrl+E"), this, guarded([this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export view", "view.png", "Images (*.png *.jpg)");
        if (!f.isEmpty() && !ExportView(f))
            QMessageBox::warning(this, "Export", "Cannot write " + f);
    }));
    file->addAction("Export &whole map as image...", QKeySequence("Ctrl+Shift+E"), this, guarded([this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export map", "map.png", "Images (*.png *.jpg)");
        if (!f.isEmpty() && !ExportWholeMap(f))
            QMessageBox::warning(this, "Export", "Cannot write " + f);
    }));
    file->addAction("&Print to PDF...", QKeySequence::Print, this, guarded([this] {
        const QString f = QFileDialog::getSaveFileName(this, "Print to PDF", "map.pdf", "PDF (*.pdf)");
        if (!f.isEmpty() && !PrintToPdf(f))
            QMessageBox::warning(this, "Print", "Cannot write " + f);
    }));
    file->addSeparator();
    file->addAction("Export &georeferencing...", QKeySequence("Ctrl+Alt+G"), this, guarded([this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export georeferencing", "map.vrt",
                                                       "Raster VRT with control points (*.vrt);;World file (*.wld *.tfw *.jgw *.bpw);;"
                                                       "Control-point list (*.txt *.gcp)");
        QString error;
        if (!f.isEmpty() && !ExportGeoref(f, error))
            QMessageBox::warning(this, "Export georeferencing", error);
    }));
    file->addAction("&Import georeferencing...", QKeySequence("Ctrl+Alt+I"), this, guarded([this] {
        const QString f = QFileDialog::getOpenFileName(this, "Import georeferencing for the image shown", {},
                                                       "World file (*.wld *.tfw *.jgw *.bpw);;Control-point list (*.txt *.gcp);;All files (*)");
        if (f.isEmpty())
            return;
        // A world file is affine: equirect or UTM; control points fit any of the editor's models.
        std::vector<qv::TCalibModel> models;
        if (IsGCPListName(f))
            models.assign(std::begin(TCalibEditor::Models), std::end(TCalibEditor::Models));
        else
            models = {qv::cmEquiRect};
        if (Map().Calibration().UTMZone() > 0)
            models.push_back(qv::cmUTM);
        QStringList names;
        for (qv::TCalibModel m : models)
            names << QString::fromUtf8(qv::CalibModelKeywords[m].data(), int(qv::CalibModelKeywords[m].size()));
        bool ok = false;
        const QString name = QInputDialog::getItem(this, "Import georeferencing", "Model", names, 0, false, &ok);
        QString error;
        if (ok && !ImportGeoref(f, models[std::size_t(names.indexOf(name))], error))
            QMessageBox::warning(this, "Import georeferencing", error);
    }));
    file->addSeparator();
    file->addAction("&Quit", QKeySequence::Quit, this, guarded([this] { close(); }));

    QMenu* edit = menuBar()->addMenu("&Edit");
    edit->addAction("&Copy view", QKeySequence::Copy, this, guarded([this] {
        RenderOutput([this] {
            Map().CopyToClipboard();
            return true;
        });
    }));
    edit->addAction("Copy &whole map", QKeySequence("Ctrl+Shift+C"), this, guarded([this] {
        RenderOutput([this] {
            Map().CopyEntireMapToClipboard();
            return true;
        });
    }));

    QMenu* view = menuBar()->addMenu("&View");
    view->addAction("Zoom &in", QKeySequence::ZoomIn, this, guarded([this] { ZoomAboutCentre(1.25); }));
    view->addAction("Zoom &out", QKeySequence::ZoomOut, this, guarded([this] { ZoomAboutCentre(1.0 / 1.25); }));
    view->addAction("&Fit map", QKeySequence("Ctrl+0"), this, guarded([this] { FitMap(); }));
    QAction* calib = FCalibEditor->toggleViewAction();
    calib->setShortcut(QKeySequence("Ctrl+K"));
    view->addAction(calib);
    // On from the start; each map shown gets the kind its model draws (ApplyGraticule).
    FGridAction = view->addAction("&Graticule / UTM grid", QKeySequence("Ctrl+G"));
    FGridAction->setCheckable(true);
    FGridAction->setChecked(true);
    connect(FGridAction, &QAction::toggled, this, guarded([this] { ApplyGraticule(); }));
    // The readable map, on from the start: each toggle repaints.
    const auto toggle = [&](const char* Text, const char* Keys, bool& Flag) {
        QAction* a = view->addAction(Text, QKeySequence(Keys));
        a->setCheckable(true);
        a->setChecked(Flag);
        connect(a, &QAction::toggled, this, guarded([this, &Flag, a] {
            Flag = a->isChecked();
            ApplyReadableMap();
        }));
        FReadableActions.push_back(a);
        return a;
    };
    FLabelsAction = toggle("Readable &labels", "Ctrl+Shift+L", FReadableLabels);
    toggle("Grid labels at the &edges", "Ctrl+Shift+G", FGridLabels);
    toggle("&Scale bar", "Ctrl+Shift+B", FScaleBar);
    toggle("&North arrow", "Ctrl+Shift+N", FNorthArrow);
    QMenu* fmt = view->addMenu("&Degree format");
    auto* fmtGroup = new QActionGroup(this);
    const std::pair<const char*, qv::TDegreeFormat> formats[] = {
        {"Decimal degrees", qv::dfDecimal}, {"Degrees, minutes", qv::dfDegMin}, {"Degrees, minutes, seconds", qv::dfDegMinSec}};
    int n = 1;
    for (const auto& [name, f] : formats) {
        QAction* a = fmt->addAction(name, QKeySequence(QString("Alt+%1").arg(n++)), this, guarded([this, f = f] { SetDegreeFormat(f); }));
        a->setCheckable(true);
        a->setChecked(f == FDegFormat);
        fmtGroup->addAction(a);
    }

    QMenu* tools = menuBar()->addMenu("&Tools");
    QToolBar* bar = addToolBar("Mouse modes");
    FToolGroup = new QActionGroup(this);
    const struct {
        TTool tool;
        const char* name;
        const char* key;
    } modes[] = {{TTool::AtlasZoom, "Atlas &zoom (left: finer map, right: coarser)", "Z"},
                 {TTool::Pan, "&Pan", "P"},
                 {TTool::PanHoriz, "Pan &horizontally", "H"},
                 {TTool::PanVert, "Pan &vertically", "V"},
                 {TTool::RubberBand, "&Rubber band", "R"},
                 {TTool::ZoomWindow, "Zoom &window", "W"},
                 {TTool::DragZoom, "&Drag zoom", "D"},
                 {TTool::SelectRect, "&Select rectangle", "S"},
                 {TTool::PlaceLandmark, "Place &landmark", "L"},
                 {TTool::DeleteLandmark, "D&elete landmark", "X"},
                 {TTool::MoveLandmark, "&Move landmark", "M"},
                 {TTool::CalibPoint, "&Calibration point", "C"},
                 {TTool::GraticulePoint, "&Graticule point (select, drag)", "G"}};
    for (const auto& m : modes) {
        QAction* a = tools->addAction(m.name);
        a->setShortcut(QKeySequence(m.key));
        a->setCheckable(true);
        a->setIconText(QString(m.name).remove('&').section(' ', 0, 1));
        FToolGroup->addAction(a);
        bar->addAction(a);
        FToolActions[m.tool] = a;
        connect(a, &QAction::triggered, this, guarded([this, t = m.tool] { SetTool(t); }));
    }
    tools->addSeparator();
    QAction* detect = tools->addAction("Detect &graticule", QKeySequence("Ctrl+Shift+D"), this,
                                       guarded([this] { DetectGraticule(); }));
    detect->setEnabled(FGratDock != nullptr);

    QMenu* lm = menuBar()->addMenu("&Landmarks");
    lm->addAction("&Edit...", QKeySequence("F2"), this, guarded([this] { EditLandmarkUnderPointer(); }));
    lm->addAction("Remove &last", QKeySequence::Undo, this, guarded([this] { Map().RemoveLastLandMark(); }));
    lm->addAction("Remove &all placed", QKeySequence("Ctrl+Shift+Del"), this,
                  guarded([this] { Map().RemoveAllLandMarks(kPlacedClass); }));
    BuildClassMenu(lm->addMenu("Show &classes"));
}

void TViewerWindow::SetTool(TTool Tool)
{
    // Nothing of the last tool's drag goes on in the new one.
    FDragged = 0;
    FDraggedCalPoint = 0;
    FDraggedGratPoint = 0;
    if (Tool != TTool::RubberBand)
        EndBand();
    FTool = Tool;
    if (QAction* a = ToolAction(Tool))
        a->setChecked(true);
    if (Tool == TTool::AtlasZoom) {
        FAtlas->ZoomButton()->click();
        return;
    }
    FAtlas->PointerButton()->click();  // leaves the map in pan mode
    static const std::map<TTool, qv::TMouseActMode> modes = {
        {TTool::Pan, qv::maPan},           {TTool::PanHoriz, qv::maPanHoriz},     {TTool::PanVert, qv::maPanVert},
        {TTool::RubberBand, qv::maRubberBand}, {TTool::ZoomWindow, qv::maZoomWindow}, {TTool::DragZoom, qv::maDragZoom},
        {TTool::SelectRect, qv::maSelectRect}, {TTool::PlaceLandmark, qv::maLandMark}, {TTool::DeleteLandmark, qv::maNone},
        {TTool::CalibPoint, qv::maNone},       {TTool::MoveLandmark, qv::maNone}, {TTool::GraticulePoint, qv::maNone}};
    Map().SetMouseAction(modes.at(Tool));
}

QAction* TViewerWindow::ToolAction(TTool Tool) const
{
    const auto it = FToolActions.find(Tool);
    return it == FToolActions.end() ? nullptr : it->second;
}

void TViewerWindow::SetDegreeFormat(qv::TDegreeFormat Format)
{
    FDegFormat = Format;
    UpdatePointer(FPointer.X, FPointer.Y);  // the status bar shows the new format at once
    ApplyReadableMap();                     // and the grid labels at the edges
}

void TViewerWindow::SetReadableMap(bool On)
{
    for (QAction* a : FReadableActions)
        a->setChecked(On);
}

void TViewerWindow::ApplyReadableMap()
{
    qv::TGeoMap& map = Map();
    qv::TLabelOptions labels;
    if (FReadableLabels) {
        labels.Placement = true;
        labels.HaloWidth = 1;
        labels.HaloColor = 0xFFFFFF;
        // Landmarks are places in a town: shown from MaxLandmarkMetresPerPixel of ground a control pixel
        // down, so that a city's landmarks are not one blot on a map of a country or the world. The range
        // is in magnifications of this map: its metres per map pixel over the limit.
        const double resolution = map.CalibData().Resolution;
        if (resolution > 0)
            for (qv::TMagRange& r : labels.ClassRange)
                r.Min = resolution / MaxLandmarkMetresPerPixel;
    }
    qv::TFurnitureOptions furniture = map.Furniture();
    furniture.GridLabels = FGridLabels;
    furniture.ScaleBar = FScaleBar;
    furniture.NorthArrow = FNorthArrow;
    furniture.DegreeFormat = FDegFormat;
    const bool held = map.SuppressPaint();
    map.SetSuppressPaint(true);
    map.SetLabelOptions(labels);
    map.SetFurniture(furniture);
    map.SetSuppressPaint(held);
    map.Paint();
}

bool TViewerWindow::PixelToLatLong(std::int32_t X, std::int32_t Y, double& Lat, double& Long)
{
    if (!HasCalibration())
        return false;
    const qv::TPoint p = Map().ControlToMapImage({X, Y});
    bool v1 = false, v2 = false;
    Lat = Map().CalcLatitude(p.X, p.Y, v1);
    Long = Map().CalcLongitude(p.X, p.Y, v2);
    // Far beyond the map the calibration extrapolates past the poles and round the globe: no place lies
    // past a pole (a landmark dragged there would be saved so), a longitude past 180 is the one it wraps to.
    if (!v1 || !v2 || !std::isfinite(Lat) || !std::isfinite(Long) || std::fabs(Lat) > 90.0)
        return false;
    Long = qv::WrapLongitude(Long);
    return FAtlas->CurrentMap() > 0;
}

void TViewerWindow::DrawOverlays(qv::TCanvas& C)
{
    // An output's frame shows the map at the output's position and scale: the view stays as it was.
    if (!FRenderingOutput)
        ViewRendered();
    if (ShownAtlasMap() != 0 && ShownAtlasMap() == MapNumber("world.xml"))
        DrawCapitals(C);
    DrawDatabase(C);
    if (FCalibEditor->isVisible()) {
        FCalibEditor->RefreshWhenStale();  // another map may have been loaded under the editor
        FCalibEditor->Draw(C);
    }
#if defined(QVGEO_WITH_OPENCV)
    if (FGratDock->isVisible())
        FGratDock->Draw(C);
#endif
}

namespace {

// Names beside their dots (of half size R): placed without overlap and haloed when Readable, else each at
// the fixed Offset from its dot, as the plain map writes them.
template <class TNamedPoints>
void DrawNames(qv::TCanvas& C, const TNamedPoints& Names, const qv::TFont& Font, int R, bool Readable,
               qv::TColor Halo, qv::TPoint Offset)
{
    if (Readable) {
        TOverlayLabels labels(C, Font, 1, Halo);
        for (const auto& [p, name] : Names)
            labels.Reserve({p.X - R, p.Y - R, p.X + R + 1, p.Y + R + 1});
        for (const auto& [p, name] : Names)
            labels.Place(p, R, std::string(name));
        return;
    }
    C.Font = Font;
    C.Brush.Style = qv::bsClear;
    for (const auto& [p, name] : Names)
        C.TextOut(p.X + Offset.X, p.Y + Offset.Y, std::string(name));
    C.Brush.Style = qv::bsSolid;
}

}  // namespace

void TViewerWindow::DrawCapitals(qv::TCanvas& C)
{
    // Names only from 2x on (8 px a degree): below that there is room for few of them anyway.
    const bool names = Map().Magnification() >= 2.0;
    // The frame being drawn: the view, or an export or print of the map at its own scale.
    const qv::TSize frame = Map().FrameSize();
    std::vector<std::pair<qv::TPoint, std::string_view>> shown;
    for (const qv::TCountryData& c : qv::CountryData) {
        std::int32_t x = 0, y = 0;
        if (c.Capital.empty() || !Map().CalcPixelCoords(c.CapLat, c.CapLong, x, y))
            continue;
        const qv::TPoint p = Map().MapImageToControl({x, y});
        if (p.X < -100 || p.Y < -20 || p.X > frame.cx + 100 || p.Y > frame.cy + 20)
            continue;
        shown.emplace_back(p, c.Capital);
    }
    C.Pen = qv::TPen{0x000000, 1};
    C.Brush = qv::TBrush{0x00D0FF, qv::bsSolid};  // amber: seen on sea, desert and forest alike
    for (const auto& [p, name] : shown)
        C.Ellipse(p.X - 2, p.Y - 2, p.X + 3, p.Y + 3);
    if (!names)
        return;
    // White names: with readable labels on, a dark halo keeps them apart from bright land and ice, and a
    // name that would print over another name or dot is left out (in table order, first come first placed).
    qv::TFont font;
    font.Size = 8;
    font.Color = 0xFFFFFF;
    DrawNames(C, shown, font, 3, FReadableLabels, 0x202020, {4, -6});
}

void TViewerWindow::DrawDatabase(qv::TCanvas& C)
{
    FItemsDrawn = 0;
    if (!FDB.IsOpen() || FDB.NumEntries() == 0)
        return;
    // A regional database on a map of the world is a smudge: drawn only where the view is finer than
    // MaxDatabaseMetresPerPixel (the map's own scale at the view's centre, whatever the model).
    if (FReadableLabels) {
        const double mpp = Map().MetresPerPixel();
        if (mpp <= 0 || mpp > MaxDatabaseMetresPerPixel)
            return;
    }
    // The geographic rectangle of the frame being drawn (the view, or an export or print of the map), from
    // its four corners (on a north-up map two would do).
    double latLo = 90, latHi = -90, lonLo = 180, lonHi = -180;
    bool any = false;
    const qv::TSize frame = Map().FrameSize();
    for (const qv::TPoint p : {qv::TPoint{0, 0}, qv::TPoint{frame.cx, 0}, qv::TPoint{0, frame.cy},
                               qv::TPoint{frame.cx, frame.cy}}) {
        double lat = 0, lon = 0;
        if (PixelToLatLong(p.X, p.Y, lat, lon)) {
            any = true;
            latLo = std::min(latLo, lat), latHi = std::max(latHi, lat);
            lonLo = std::min(lonLo, lon), lonHi = std::max(lonHi, lon);
        }
    }
    if (!any)
        return;
    const auto toControl = [this](double lat, double lon, qv::TPoint& out) {
        std::int32_t x = 0, y = 0;
        if (!Map().CalcPixelCoords(lat, lon, x, y))
            return false;
        out = Map().MapImageToControl({x, y});
        return true;
    };
    std::vector<std::pair<qv::TPoint, std::string>> towns;
    for (int rec : FDB.SearchData(latLo, lonLo, latHi, lonHi)) {
        const qv::TgdbData d = FDB.GetSumdata(rec);
        ++FItemsDrawn;
        if (d.ItemKind == qv::gitTown || d.ItemKind == qv::gitCity) {
            qv::TPoint p;
            if (toControl((d.LatLow + d.LatHigh) / 2.0, (d.LongLow + d.LongHigh) / 2.0, p))
                towns.emplace_back(p, d.Name);
            continue;
        }
        auto it = FPolygons.find(rec);
        if (it == FPolygons.end()) {
            // A record that cannot be read (a damaged data file) is said once and drawn as nothing.
            qv::TgdbPolygon polygon;
            RunGuarded([&] { polygon = FDB.RetrievePolygon(rec); }, [this](const QString& M) { ReportError(M); });
            it = FPolygons.emplace(rec, std::move(polygon)).first;
        }
        std::vector<qv::TPoint> pts;
        for (const qv::TSCoords& s : it->second) {
            qv::TPoint p;
            if (toControl(s.Latit, s.Longit, p))
                pts.push_back(p);
        }
        if (pts.size() < 2)
            continue;
        switch (d.ItemKind) {
        case qv::gitBorder: C.Pen = qv::TPen{0x800080, 3, qv::psSolid}; break;  // purple
        case qv::gitLake: C.Pen = qv::TPen{0xC06000, 1}; break;
        case qv::gitRiver: C.Pen = qv::TPen{0xE08000, 2}; break;                 // blue
        case qv::gitRoad: C.Pen = qv::TPen{0x0060E0, 2}; break;                  // orange
        default: C.Pen = qv::TPen{0x008000, 1, qv::psDash}; break;              // routes green
        }
        if (d.ItemKind == qv::gitLake) {
            C.Brush = qv::TBrush{0xF0C080, qv::bsSolid};
            C.Polygon(pts);
        } else {
            if (d.ItemKind == qv::gitBorder)
                pts.push_back(pts.front());
            C.Polyline(pts);
        }
    }
    C.Pen = qv::TPen{0x000000, 1};
    C.Brush = qv::TBrush{0x000000, qv::bsSolid};
    for (const auto& [p, name] : towns)
        C.Ellipse(p.X - 3, p.Y - 3, p.X + 4, p.Y + 4);
    qv::TFont font;
    font.Size = 9;
    DrawNames(C, towns, font, 4, FReadableLabels, 0xFFFFFF, {6, -7});
}

bool TViewerWindow::LoadLandmarkFile(const QString& File)
{
    const bool ok = Map().LoadLandMarks(File.toStdString(), {});
    Map().Paint();
    if (ok) {
        FLandmarkFile = File;
        TakeLandmarkSnapshot();
    }
    return ok;
}

bool TViewerWindow::SaveLandmarkFile(const QString& File)
{
    try {
        Map().SaveLandmarks(File.toStdString(), kLandmarkSetId);
    } catch (const std::exception&) {
        return false;
    }
    FLandmarkFile = File;
    TakeLandmarkSnapshot();
    return true;
}

bool TViewerWindow::ExportView(const QString& File)
{
    // AuxBmp only grows: after the window shrank it still holds older, larger frames beyond the view.
    // On a high-density screen the view shows its device-resolution frame, which is what is written.
    const qv::TBitmap& frame = Map().ScreenFrame();
    const double r = &frame == &Map().AuxBmp() ? 1.0 : Map().EffectivePixelRatio();
    const int w = static_cast<int>(std::ceil(Map().width() * r)), h = static_cast<int>(std::ceil(Map().height() * r));
    return frame.Image().copy(0, 0, std::min(w, frame.Width()), std::min(h, frame.Height())).save(File);
}

bool TViewerWindow::ExportWholeMap(const QString& File)
{
    // Map pixel for pixel; everything drawn over the map (landmarks, the database, capitals, the
    // reference points and their residual vectors) at that scale, each symbol at its screen size.
    qv::TBitmap bmp;
    RenderOutput([&] {
        Map().CopyToBMP(bmp, {0, 0}, 1.0, {Map().MapWidth(), Map().MapHeight()});
        return true;
    });
    return !bmp.Empty() && bmp.Image().save(File);
}

bool TViewerWindow::RenderOutput(const std::function<bool()>& Render)
{
    const bool outer = std::exchange(FRenderingOutput, true);
    bool done = false;
    try {
        done = Render();
    } catch (...) {
        FRenderingOutput = outer;
        throw;
    }
    FRenderingOutput = outer;
    UpdateMapInfo();
    return done;
}

bool TViewerWindow::PrintToPdf(const QString& File)
{
    // The whole map on the page: map pixel for pixel at 96 a inch when it fits, reduced to fit otherwise.
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(File);
    return RenderOutput([&] { return Map().PrintEntireMap(printer, 1.0); });
}

bool TViewerWindow::ExportGeoref(const QString& File, QString& Error)
{
    try {
        const qv::TMapCalibration& cal = Map().Calibration();
        if (FAtlas->CurrentMap() == 0 || cal.CalibModel() == qv::cmUndefined)
            throw std::runtime_error("the map shown has no calibration");
        std::ostringstream text;
        const std::string out = File.toStdString();
        if (QFileInfo(File).suffix().toLower() == "vrt") {
            // The map keeps the name as the calibration gives it; the file is where the map found it.
            std::string image = Map().MapImgName();
            if (Map().OnMapImageRequest)
                Map().OnMapImageRequest(Map(), image);
            qv::TImageBands bands;
            if (!qv::ReadImageBands(image, bands))
                throw std::runtime_error("\"" + image + "\" is not a BMP or JPEG image");
            // Named relative to the VRT when it can be, so that both can move together.
            namespace fs = std::filesystem;
            const fs::path abs = fs::absolute(image);
            const fs::path rel = abs.lexically_relative(fs::absolute(out).parent_path());
            qv::WriteGeoRefVRT(text, cal, qv::CalibGCPs(cal), rel.empty() ? abs.string() : rel.generic_string(), !rel.empty(),
                               bands);
        } else if (IsGCPListName(File)) {
            qv::WriteGCPList(text, cal, qv::CalibGCPs(cal));
        } else {
            const bool utm = cal.CalibModel() == qv::cmUTM;
            qv::WriteWorldFile(text, qv::CalibWorldFile(cal), utm);
            // A world file has no place for its coordinate system: the zone's metres go into a ".prj".
            if (utm)
                WriteTextFile(std::filesystem::path(out).replace_extension(".prj").string(),
                              qv::UTMWKT(cal.UTMZone(), cal.UTMHemisphere() == qv::hemiSouth, cal.CalibData().Ellipsoid) + "\n");
        }
        WriteTextFile(out, text.str());
        return true;
    } catch (const std::exception& e) {
        Error = QString::fromStdString(e.what());
        return false;
    }
}

bool TViewerWindow::ImportGeoref(const QString& File, qv::TCalibModel Model, QString& Error)
{
    try {
        const std::int32_t w = Map().MapWidth(), h = Map().MapHeight();
        if (w <= 0 || h <= 0)
            throw std::runtime_error("no map image is shown");
        const qv::TCalibData& cur = Map().CalibData();
        if (Model == qv::cmUTM && (cur.UTMZone < 1 || cur.UTMZone > 60))
            throw std::runtime_error("the utm model needs the UTM zone of the map's calibration");
        std::ifstream in(File.toStdString());
        if (!in)
            throw std::runtime_error("cannot open \"" + File.toStdString() + "\"");
        std::string error;
        qv::TCalibData d;
        if (IsGCPListName(File)) {
            std::vector<qv::TGroundControlPoint> gcps;
            if (!qv::ReadGCPList(in, gcps, error))
                throw std::runtime_error(error);
            qv::GCPsToCalib(gcps, d);
            d.UTMZone = Model == qv::cmUTM ? cur.UTMZone : 0;
            d.UTMSouth = Model == qv::cmUTM && cur.UTMSouth;
        } else {
            qv::TWorldFile wf;
            if (!qv::ReadWorldFile(in, wf, error))
                throw std::runtime_error(error);
            d = qv::WorldFileToCalib(wf, w, h, Model, Model == qv::cmUTM ? cur.UTMZone : -1, cur.UTMSouth);
        }
        d.MapFName = cur.MapFName;
        d.Caption = cur.Caption;
        d.Ellipsoid = cur.Ellipsoid;
        Map().Calibration().LoadCalibData(d, Model);
        Map().CalcExtentsAndResolution();
    } catch (const std::exception& e) {
        Error = QString::fromStdString(e.what());
        return false;
    }
    FCalibEditor->show();
    FCalibEditor->Refresh();
    return true;
}

bool TViewerWindow::DetectGraticule()
{
#if defined(QVGEO_WITH_OPENCV)
    FGratDock->show();
    FGratDock->raise();
    SetTool(TTool::GraticulePoint);
    return FGratDock->Detect();
#else
    ReportError("this viewer was built without the graticule finder");
    return false;
#endif
}

}  // namespace viewer
