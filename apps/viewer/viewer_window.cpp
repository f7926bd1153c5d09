#include "viewer_window.h"

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
    FAtlas = new qv::TGeoAtlas(this);
    setCentralWidget(FAtlas);
    for (const auto& p : FAtlas->RegisterFolder(Files.MapDir))
        statusBar()->showMessage(QString::fromStdString("not registered: " + p.File + ": " + p.Reason));
    FDB.SetGDBName(Files.DBName);

    qv::TGeoMap& map = Map();
    map.OnBeforeRenderData = [this](qv::TGeoMap&, qv::TCanvas& C) { DrawOverlays(C); };
    map.OnZoomPan = [this](qv::TGeoMap&) { UpdateMapInfo(); };
    FAtlas->OnMouseMove = [this](qv::TCustomControl&, qv::TShiftState, std::int32_t X, std::int32_t Y) {
        UpdatePointer(X, Y);
        if (FDraggedCalPoint > 0) {
            const qv::TPoint p = Map().ControlToMapImage({X, Y});
            FCalibEditor->MovePoint(FDraggedCalPoint, p.X, p.Y);
        }
        if (FDragged > 0) {
            double lat = 0, lon = 0;
            if (PixelToLatLong(X, Y, lat, lon)) {
                qv::TLandMark l = Map().GetLandMarkData(FDragged);
                l.Latitude = lat;
                l.Longitude = lon;
                Map().SetLandMarkData(FDragged, l);
                Map().Paint();
            }
        }
    };
    FAtlas->OnMouseDown = [this](qv::TCustomControl&, qv::TMouseButton B, qv::TShiftState, std::int32_t X,
                                 std::int32_t Y) { MapMouseDown(B, X, Y); };
    FAtlas->OnMouseUp = [this](qv::TCustomControl&, qv::TMouseButton, qv::TShiftState, std::int32_t X,
                               std::int32_t Y) {
        FDragged = 0;
        FDraggedCalPoint = 0;
        UpdateMapInfo();
        UpdatePointer(X, Y);
    };
    FAtlas->OnDblClick = [this](qv::TCustomControl&) {
        if (FTool != TTool::DeleteLandmark && FTool != TTool::MoveLandmark)
            return;
        // Asked after the event is handled, as for calibration points: no nested loop inside the handler.
        const std::int32_t k = LandmarkAt(FPointer.X, FPointer.Y);
        if (k > 0)
            QTimer::singleShot(0, this, [this, k] { EditLandmark(k); });
    };
    FAtlas->OnCBoxMapsChange = [this](qv::TGeoAtlas&) { UpdateMapInfo(); };
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
        if (On)
            FCalibEditor->Refresh();
        else
            Map().Paint();
    });
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
    SetUpMapFiles();

    // Start on the world map, the coarsest one.
    if (const std::int32_t world = MapNumber("world.xml"))
        FAtlas->SelectMap(world);
    SetTool(TTool::AtlasZoom);
    UpdateMapInfo();
    resize(1100, 760);
}

TViewerWindow::~TViewerWindow()
{
    // The child widgets outlive this object's own part (QWidget deletes them later): nothing of theirs
    // may call back into it, as hiding the dock or a last repaint would.
    disconnect(FCalibEditor, nullptr, this, nullptr);
    FCalibEditor->OnSaved = {};
    Map().OnBeforeRenderData = {};
    Map().OnZoomPan = {};
    Map().OnSelectRect = {};
    FAtlas->OnMouseMove = {};
    FAtlas->OnMouseDown = {};
    FAtlas->OnMouseUp = {};
    FAtlas->OnCBoxMapsChange = {};
    FAtlas->OnDblClick = {};
    Map().OnDataLoading = {};
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
    QMenu* file = menuBar()->addMenu("&File");
    file->addAction("Open &image to calibrate...", QKeySequence("Ctrl+I"), this, [this] {
        const QString f = QFileDialog::getOpenFileName(this, "Open an image to calibrate", {}, "Images (*.bmp *.jpg *.jpeg)");
        QString error;
        if (!f.isEmpty() && !OpenImage(f, error))
            QMessageBox::warning(this, "Open image", error);
    });
    file->addAction("&Open landmarks...", QKeySequence::Open, this, [this] {
        const QString f = QFileDialog::getOpenFileName(this, "Open landmarks", {}, "Landmarks (*.xml)");
        if (!f.isEmpty() && !LoadLandmarkFile(f))
            QMessageBox::warning(this, "Open landmarks", "No landmark set in " + f);
    });
    file->addAction("&Save landmarks...", QKeySequence::Save, this, [this] {
        const QString f = QFileDialog::getSaveFileName(this, "Save landmarks", "landmarks.xml", "Landmarks (*.xml)");
        if (!f.isEmpty() && !SaveLandmarkFile(f))
            QMessageBox::warning(this, "Save landmarks", "Cannot write " + f);
    });
    file->addAction("Add map &folder...", QKeySequence("Ctrl+Shift+O"), this, [this] {
        const QString d = QFileDialog::getExistingDirectory(this, "Add the calibrated maps of a folder");
        if (!d.isEmpty())
            AddMapFolder(d);
    });
    file->addSeparator();
    file->addAction("&Export view as image...", QKeySequence("Ctrl+E"), this, [this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export view", "view.png", "Images (*.png *.jpg)");
        if (!f.isEmpty() && !ExportView(f))
            QMessageBox::warning(this, "Export", "Cannot write " + f);
    });
    file->addAction("Export &whole map as image...", QKeySequence("Ctrl+Shift+E"), this, [this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export map", "map.png", "Images (*.png *.jpg)");
        if (!f.isEmpty() && !ExportWholeMap(f))
            QMessageBox::warning(this, "Export", "Cannot write " + f);
    });
    file->addAction("&Print to PDF...", QKeySequence::Print, this, [this] {
        const QString f = QFileDialog::getSaveFileName(this, "Print to PDF", "map.pdf", "PDF (*.pdf)");
        if (!f.isEmpty() && !PrintToPdf(f))
            QMessageBox::warning(this, "Print", "Cannot write " + f);
    });
    file->addSeparator();
    file->addAction("Export &georeferencing...", QKeySequence("Ctrl+Alt+G"), this, [this] {
        const QString f = QFileDialog::getSaveFileName(this, "Export georeferencing", "map.vrt",
                                                       "Raster VRT with control points (*.vrt);;World file (*.wld *.tfw *.jgw *.bpw);;"
                                                       "Control-point list (*.txt *.gcp)");
        QString error;
        if (!f.isEmpty() && !ExportGeoref(f, error))
            QMessageBox::warning(this, "Export georeferencing", error);
    });
    file->addAction("&Import georeferencing...", QKeySequence("Ctrl+Alt+I"), this, [this] {
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
    });
    file->addSeparator();
    file->addAction("&Quit", QKeySequence::Quit, this, &QWidget::close);

    QMenu* edit = menuBar()->addMenu("&Edit");
    edit->addAction("&Copy view", QKeySequence::Copy, this, [this] { Map().CopyToClipboard(); });
    edit->addAction("Copy &whole map", QKeySequence("Ctrl+Shift+C"), this, [this] { Map().CopyEntireMapToClipboard(); });

    QMenu* view = menuBar()->addMenu("&View");
    view->addAction("Zoom &in", QKeySequence::ZoomIn, this, [this] { Map().SetMagnification(Map().Magnification() * 1.25); });
    view->addAction("Zoom &out", QKeySequence::ZoomOut, this, [this] { Map().SetMagnification(Map().Magnification() / 1.25); });
    view->addAction("&Fit map", QKeySequence("Ctrl+0"), this, [this] { Map().ZoomFitPage(); });
    QAction* calib = FCalibEditor->toggleViewAction();
    calib->setShortcut(QKeySequence("Ctrl+K"));
    view->addAction(calib);
    QAction* grid = view->addAction("&Graticule / UTM grid", QKeySequence("Ctrl+G"));
    grid->setCheckable(true);
    grid->setChecked(true);
    connect(grid, &QAction::toggled, this, [this](bool On) {
        const bool utm = Map().Calibration().CalibData().Resolution > 0 && Map().UTMZone() > 0 &&
                         Map().Calibration().UTMZone() > 0;
        Map().SetShowGraticule(On ? (utm ? qv::sgUTMGrid : qv::sgLines) : qv::sgNone);
    });
    QMenu* fmt = view->addMenu("&Degree format");
    auto* fmtGroup = new QActionGroup(this);
    const std::pair<const char*, qv::TDegreeFormat> formats[] = {
        {"Decimal degrees", qv::dfDecimal}, {"Degrees, minutes", qv::dfDegMin}, {"Degrees, minutes, seconds", qv::dfDegMinSec}};
    int n = 1;
    for (const auto& [name, f] : formats) {
        QAction* a = fmt->addAction(name, QKeySequence(QString("Alt+%1").arg(n++)), this, [this, f = f] { SetDegreeFormat(f); });
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
                 {TTool::CalibPoint, "&Calibration point", "C"}};
    for (const auto& m : modes) {
        QAction* a = tools->addAction(m.name);
        a->setShortcut(QKeySequence(m.key));
        a->setCheckable(true);
        a->setIconText(QString(m.name).remove('&').section(' ', 0, 1));
        FToolGroup->addAction(a);
        bar->addAction(a);
        FToolActions[m.tool] = a;
        connect(a, &QAction::triggered, this, [this, t = m.tool] { SetTool(t); });
    }

    QMenu* lm = menuBar()->addMenu("&Landmarks");
    lm->addAction("&Edit...", QKeySequence("F2"), this, [this] {
        // The landmark under the pointer, else the last one.
        const std::int32_t k = LandmarkAt(FPointer.X, FPointer.Y);
        EditLandmark(k > 0 ? k : Map().NumLandMarks());
    });
    lm->addAction("Remove &last", QKeySequence::Undo, this, [this] { Map().RemoveLastLandMark(); });
    lm->addAction("Remove &all placed", QKeySequence("Ctrl+Shift+Del"), this, [this] { Map().RemoveAllLandMarks(kPlacedClass); });
    QMenu* classes = lm->addMenu("Show &classes");
    for (int c = 0; c < 4; ++c) {
        QAction* a = classes->addAction(QString("Class %1%2").arg(c).arg(c == 1 ? " (sights)" : c == 2 ? " (placed)" : ""));
        a->setShortcut(QKeySequence(QString("Ctrl+Alt+%1").arg(c)));
        a->setCheckable(true);
        a->setChecked(Map().GetClassVisibility(static_cast<std::uint8_t>(c)));
        connect(a, &QAction::toggled, this, [this, c](bool On) {
            Map().SetClassVisibility(static_cast<std::uint8_t>(c), On);
            Map().Paint();
        });
    }
}

void TViewerWindow::SetTool(TTool Tool)
{
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
        {TTool::CalibPoint, qv::maNone},       {TTool::MoveLandmark, qv::maNone}};
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
}

bool TViewerWindow::PixelToLatLong(std::int32_t X, std::int32_t Y, double& Lat, double& Long)
{
    const qv::TPoint p = Map().ControlToMapImage({X, Y});
    bool v1 = false, v2 = false;
    Lat = Map().CalcLatitude(p.X, p.Y, v1);
    Long = Map().CalcLongitude(p.X, p.Y, v2);
    return v1 && v2 && FAtlas->CurrentMap() > 0;
}

QString TViewerWindow::PositionText(std::int32_t X, std::int32_t Y)
{
    double lat = 0, lon = 0;
    if (!PixelToLatLong(X, Y, lat, lon))
        return "-";
    const int decimals = FDegFormat == qv::dfDecimal ? 5 : FDegFormat == qv::dfDegMin ? 3 : 1;
    const auto deg = [&](double v, char pos, char neg) {
        return QString::fromStdString(qv::DegreeToStr(std::fabs(v), FDegFormat, decimals)) + ' ' + QChar(v < 0 ? neg : pos);
    };
    return deg(lat, 'N', 'S') + "  " + deg(lon, 'E', 'W');
}

QString TViewerWindow::UTMText(std::int32_t X, std::int32_t Y)
{
    double lat = 0, lon = 0;
    if (!PixelToLatLong(X, Y, lat, lon))
        return "-";
    int zone = 0;
    char band = 0;
    qv::GeoToUTMZone(lat, lon, zone, band);
    double e = 0, n = 0;
    qv::LatLongToUTM(lat, lon, qv::gelWGS84, zone, e, n);
    if (zone == 0)
        return "UTM -";
    return QString("UTM %1%2 E %3 N %4").arg(zone).arg(QChar(band)).arg(e, 0, 'f', 0).arg(n, 0, 'f', 0);
}

void TViewerWindow::UpdatePointer(std::int32_t X, std::int32_t Y)
{
    FPointer = {X, Y};
    FPosLabel->setText(PositionText(X, Y));
    FUTMLabel->setText(UTMText(X, Y));
}

void TViewerWindow::UpdateMapInfo()
{
    const std::int32_t i = FAtlas->CurrentMap();
    double res = Map().CalibData().Resolution;
    if (res <= 0 && i > 0)
        res = FAtlas->GetMapDef(i).Resolution;
    const double mag = Map().Magnification();
    // At 96 pixels per inch one screen pixel is 0.0254 / 96 m; the map scale is ground per screen length.
    const double scale = res > 0 && mag > 0 ? res / mag / (0.0254 / 96.0) : 0;
    FScaleLabel->setText(i == 0 ? "no map"
                                : QString("%1: %2 m/px, 1:%3")
                                      .arg(QString::fromStdString(FAtlas->GetMapDef(i).Caption))
                                      .arg(res, 0, 'f', res < 100 ? 1 : 0)
                                      .arg(scale, 0, 'f', 0));
    FMagLabel->setText(QString("x%1").arg(mag, 0, 'f', 2));
}

void TViewerWindow::MapMouseDown(qv::TMouseButton Button, std::int32_t X, std::int32_t Y)
{
    FPointer = {X, Y};
    if (FTool == TTool::DeleteLandmark && Button == qv::mbLeft) {
        if (const std::int32_t k = LandmarkAt(X, Y))
            Map().RemoveLandMark(k);
    }
    if (FTool == TTool::MoveLandmark && Button == qv::mbLeft)
        FDragged = LandmarkAt(X, Y);
    if (FTool == TTool::CalibPoint && Button == qv::mbLeft && FCalibEditor->isVisible() &&
        (FDraggedCalPoint = FCalibEditor->PointAt(X, Y)) > 0)
        return;  // a press on a shown reference point drags it
    if (FTool == TTool::CalibPoint && Button == qv::mbLeft) {
        // The question waits until the press is handled: a dialog inside the map's mouse handler would
        // run a nested event loop in the middle of it.
        const qv::TPoint p = Map().ControlToMapImage({X, Y});
        QTimer::singleShot(0, this, [this, p] { AddCalibPointAt(p); });
    }
    if (FTool == TTool::PlaceLandmark) {
        // The view adds the landmark before this event; the next one gets the next caption.
        qv::TLandMark lm = Map().DefaultLandMark();
        lm.Caption.Text = "Mark " + std::to_string(++FPlaced + 1);
        Map().SetDefaultLandMark(lm);
    }
}

std::int32_t TViewerWindow::LandmarkAt(std::int32_t X, std::int32_t Y)
{
    std::int32_t best = 0;
    double bestD2 = 100.0;
    for (std::int32_t k = 1; k <= Map().NumLandMarks(); ++k) {
        const qv::TLandMark l = Map().GetLandMarkData(k);
        std::int32_t px = 0, py = 0;
        if (!Map().GetClassVisibility(l.ClassFlag) || !Map().CalcPixelCoords(l.Latitude, l.Longitude, px, py))
            continue;
        const qv::TPoint c = Map().MapImageToControl({px, py});
        const double d2 = double(c.X - X) * (c.X - X) + double(c.Y - Y) * (c.Y - Y);
        if (d2 <= bestD2)
            best = k, bestD2 = d2;
    }
    return best;
}

bool TViewerWindow::EditLandmark(std::int32_t Index)
{
    if (Index < 1 || Index > Map().NumLandMarks())
        return false;
    TLandmarkDialog dlg(FSymbols, Map().GetLandMarkData(Index), this);
    if (dlg.exec() != QDialog::Accepted)
        return false;
    FSymbols.Assign(dlg.Symbols());
    Map().SetLandMarkData(Index, dlg.Result());
    Map().Paint();
    return true;
}

void TViewerWindow::DrawOverlays(qv::TCanvas& C)
{
    if (FAtlas->CurrentMap() != 0 && FAtlas->CurrentMap() == MapNumber("world.xml"))
        DrawCapitals(C);
    DrawDatabase(C);
    if (FCalibEditor->isVisible()) {
        FCalibEditor->RefreshWhenStale();  // another map may have been loaded under the editor
        FCalibEditor->Draw(C);
    }
}

void TViewerWindow::DrawCapitals(qv::TCanvas& C)
{
    // Names only from 2x on (8 px a degree): below that Europe's capitals print over each other.
    const bool names = Map().Magnification() >= 2.0;
    C.Pen = qv::TPen{0x000000, 1};
    C.Brush = qv::TBrush{0x00D0FF, qv::bsSolid};  // amber: seen on sea, desert and forest alike
    C.Font = qv::TFont{};
    C.Font.Size = 8;
    C.Font.Color = 0xFFFFFF;
    for (const qv::TCountryData& c : qv::CountryData) {
        std::int32_t x = 0, y = 0;
        if (c.Capital.empty() || !Map().CalcPixelCoords(c.CapLat, c.CapLong, x, y))
            continue;
        const qv::TPoint p = Map().MapImageToControl({x, y});
        if (p.X < -100 || p.Y < -20 || p.X > Map().width() || p.Y > Map().height() + 20)
            continue;
        C.Ellipse(p.X - 2, p.Y - 2, p.X + 3, p.Y + 3);
        if (names) {
            C.Brush.Style = qv::bsClear;
            C.TextOut(p.X + 4, p.Y - 6, std::string(c.Capital));
            C.Brush.Style = qv::bsSolid;
        }
    }
}

void TViewerWindow::DrawDatabase(qv::TCanvas& C)
{
    FItemsDrawn = 0;
    if (!FDB.IsOpen() || FDB.NumEntries() == 0)
        return;
    // The geographic rectangle of the view, from its four corners (on a north-up map two would do).
    double latLo = 90, latHi = -90, lonLo = 180, lonHi = -180;
    bool any = false;
    for (const qv::TPoint p : {qv::TPoint{0, 0}, qv::TPoint{Map().width(), 0}, qv::TPoint{0, Map().height()},
                               qv::TPoint{Map().width(), Map().height()}}) {
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
        if (it == FPolygons.end())
            it = FPolygons.emplace(rec, FDB.RetrievePolygon(rec)).first;
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
    C.Font = qv::TFont{};
    C.Font.Size = 9;
    for (const auto& [p, name] : towns) {
        C.Ellipse(p.X - 3, p.Y - 3, p.X + 4, p.Y + 4);
        C.Brush.Style = qv::bsClear;
        C.TextOut(p.X + 6, p.Y - 7, name);
        C.Brush.Style = qv::bsSolid;
    }
}

bool TViewerWindow::LoadLandmarkFile(const QString& File)
{
    const bool ok = Map().LoadLandMarks(File.toStdString(), {});
    Map().Paint();
    return ok;
}

bool TViewerWindow::SaveLandmarkFile(const QString& File)
{
    try {
        Map().SaveLandmarks(File.toStdString(), kLandmarkSetId);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool TViewerWindow::ExportView(const QString& File)
{
    return Map().AuxBmp().Image().save(File);
}

bool TViewerWindow::ExportWholeMap(const QString& File)
{
    qv::TBitmap bmp;
    Map().CopyToBMP(bmp, {0, 0}, 1.0, {Map().MapWidth(), Map().MapHeight()});
    return bmp.Image().save(File);
}

bool TViewerWindow::PrintToPdf(const QString& File)
{
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(File);
    return Map().PrintIt(printer, 1.0);
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

}  // namespace viewer
