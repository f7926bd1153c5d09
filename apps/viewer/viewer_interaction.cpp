// TViewerWindow: the map interaction. The mouse in each tool (dragging landmarks and reference points,
// placing landmarks, the measuring rubber band), the status bar, keyboard and wheel zoom, refitting on
// resize, the graticule of each map, landmark classes, the exception barrier and the question about
// unsaved changes when the window closes.
#include "guard.h"
#include "viewer_window.h"

#if defined(QVGEO_WITH_OPENCV)
#include "graticule_dock.h"
#endif

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/support/date_time.h>

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QCursor>
#include <QDateTime>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QMouseEvent>
#include <QStatusBar>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>

namespace viewer {

namespace {

// A press or a pointer this close to a landmark's point (control pixels) is on the landmark.
constexpr double kLandmarkHitPixels = 10.0;
// Zoom steps of the keyboard and the View menu; the wheel's steps are the map's own.
constexpr double kMinMag = 1.0 / 1024.0, kMaxMag = 1024.0;

// The reference points and model of a calibration, as text: two calibrations with the same fingerprint
// place every pixel alike. Printed rather than compared field by field so that a NaN read from a file
// equals itself.
std::string CalibrationFingerprint(const qv::TMapCalibration& C)
{
    const qv::TCalibData& d = C.CalibData();
    std::ostringstream s;
    s.imbue(std::locale::classic());
    s.precision(17);
    s << int(C.CalibModel()) << ' ' << d.UTMZone << ' ' << d.UTMSouth << ' ' << int(d.Ellipsoid) << '\n';
    for (int i = 0; i < qv::ValidCalQuads(d); ++i) {
        const qv::TCalQuad& q = d.CalQuads[std::size_t(i)];
        s << q.Latitude << ' ' << q.Longitude << ' ' << q.MapX << ' ' << q.MapY << '\n';
    }
    for (int i = 0; i < qv::ValidCalLines(d); ++i) {
        const qv::TCalibLine& l = d.CalLines[std::size_t(i)];
        s << int(l.LineType) << ' ' << l.LineValue << ':';
        for (int k = 0; k < std::clamp(l.NumPoints, 0, qv::MaxCalLinePoints); ++k)
            s << ' ' << l.CalPoints[std::size_t(k)].X << ',' << l.CalPoints[std::size_t(k)].Y;
        s << '\n';
    }
    return s.str();
}

std::string LandmarkText(const qv::TGeoMap& Map)
{
    std::ostringstream s;
    Map.WriteLandMarksToOpenXMLFile(s, false, "snapshot");
    return s.str();
}

std::string Base36(std::uint64_t V)
{
    std::string s;
    do {
        s.insert(s.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[V % 36]);
        V /= 36;
    } while (V > 0);
    return s;
}

// Holds the map's painting for a scope and paints once at its end (unless it was held before).
class THoldPaint {
public:
    explicit THoldPaint(qv::TGeoMap& Map) : FMap(Map), FWasHeld(Map.SuppressPaint()) { FMap.SetSuppressPaint(true); }
    ~THoldPaint() { FMap.SetSuppressPaint(FWasHeld); }
    THoldPaint(const THoldPaint&) = delete;
    THoldPaint& operator=(const THoldPaint&) = delete;

private:
    qv::TGeoMap& FMap;
    bool FWasHeld;
};

}  // namespace

// ---- set-up and the barrier ----------------------------------------------------------------------------

void TViewerWindow::InitInteraction()
{
    qv::TGeoMap& map = Map();
    // Off in the control by default; a map viewer's user expects the wheel to zoom about the pointer.
    map.SetWheelZoom(true);
    FMeasureLabel = new QLabel(this);
    statusBar()->addPermanentWidget(FMeasureLabel);
    // What the controls catch in their own handlers comes here instead of going to the log.
    const auto report = [this](const std::exception& E) { ReportError(QString::fromUtf8(E.what())); };
    FAtlas->OnError = report;
    FAtlas->OnMapChanging = [this](qv::TGeoAtlas&, std::int32_t) {
        bool leave = false;  // a failing question keeps the map and its changes
        Guard([&] { leave = ConfirmLeaveMap(); });
        if (!leave)
            Map().setFocus();  // as after a choice: the keys pan the map, not walk the list into the question
        return leave;
    };
    map.OnError = report;
    map.OnBeginRubberBand = [this](qv::TGeoMap&, std::int32_t X, std::int32_t Y) { BandEvent(0, X, Y); };
    map.OnContinueRubberBand = [this](qv::TGeoMap&, std::int32_t X, std::int32_t Y) { BandEvent(1, X, Y); };
    map.OnEndRubberBand = [this](qv::TGeoMap&, std::int32_t X, std::int32_t Y) { BandEvent(2, X, Y); };
    map.OnResize = [this](qv::TCustomControl&) { MapResized(); };
    // A click of the place tool where the calibration gives no place on earth (far off the image, or a
    // fit gone wrong) places nothing rather than a landmark no map can show.
    map.OnLandMarkAction = [this](qv::TGeoMap&, bool& Allowed, qv::TLandMarkAction Action, const qv::TLandMark& L) {
        if (Action == qv::lmaAdd && FTool == TTool::PlaceLandmark && !OnEarth(L.Latitude, L.Longitude)) {
            Allowed = false;
            ReportError("No place on earth here: no landmark placed");
        }
    };
    FMapSize = map.size();
    map.installEventFilter(this);
    // The keys pan and zoom the map from the start, without a click on it first.
    FAtlas->setFocusProxy(&map);
    map.setFocus();
    connect(FCalibEditor, &TCalibEditor::FileSynced, this, [this](const QString& File) {
        Guard([&] {
            FCalibFile = File;
            TakeCalibrationSnapshot();
        });
    });
    AskSaveFile = [this](const QString& Title, const QString& Suggested, const QString& Filter) {
        return QFileDialog::getSaveFileName(this, Title, Suggested, Filter);
    };
}

void TViewerWindow::ReportError(const QString& Message)
{
    FLastError = Message;
    statusBar()->showMessage("Error: " + Message, 15000);
}

void TViewerWindow::Guard(const std::function<void()>& Body)
{
    RunGuarded(Body, [this](const QString& Message) { ReportError(Message); });
}

bool TViewerWindow::event(QEvent* Event)
{
    // Covers the window's own events and the calls queued to it (timers with this window as context).
    try {
        return QMainWindow::event(Event);
    } catch (...) {
        ReportCurrentException([this](const QString& Message) { ReportError(Message); });
        return true;
    }
}

bool TViewerWindow::eventFilter(QObject* Watched, QEvent* Event)
{
    if (Watched == &Map() && Event->type() == QEvent::MouseButtonPress) {
        Guard([&] {
            const auto* e = static_cast<QMouseEvent*>(Event);
            if (e->button() != Qt::LeftButton)
                return;
            FBandPress = {static_cast<std::int32_t>(e->position().x()), static_cast<std::int32_t>(e->position().y())};
            // Before the map adds the landmark of this press from its template.
            if (FTool == TTool::PlaceLandmark) {
                FCountBeforePress = Map().NumLandMarks();
                PrepareLandmarkTemplate();
            }
        });
    }
    return QMainWindow::eventFilter(Watched, Event);
}

// ---- the mouse -----------------------------------------------------------------------------------------

void TViewerWindow::MapMouseDown(qv::TMouseButton Button, qv::TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    FPointer = {X, Y};
    // Each press decides afresh what a drag moves: the object under it in the tool now chosen, or nothing.
    // A drag whose release never came (a dialog opened meanwhile takes it) ends here.
    FDragged = 0;
    FDraggedCalPoint = 0;
    FDraggedGratPoint = 0;
    if (Button == qv::mbLeft && Shift.Contains(qv::ssDouble) && FTool == TTool::DeleteLandmark)
        RestoreJustDeleted();  // the first press of a double click asked for an edit, not a deletion
    FJustDeleted.reset();
    if (Button != qv::mbLeft || Shift.Contains(qv::ssDouble))
        return;  // the press of a double click opens the editor (MapDblClick) and starts nothing
    switch (FTool) {
    case TTool::DeleteLandmark:
        if (const std::int32_t k = LandmarkAt(X, Y)) {
            FJustDeleted = std::pair(k, Map().GetLandMarkData(k));
            Map().RemoveLandMark(k);
        }
        break;
    case TTool::MoveLandmark: FDragged = LandmarkAt(X, Y); break;
    case TTool::CalibPoint: {
        if (FCalibEditor->isVisible() && (FDraggedCalPoint = FCalibEditor->PointAt(X, Y)) > 0)
            break;  // a press on a shown reference point drags it
        // The question waits until the press is handled: a dialog inside the map's mouse handler would
        // run a nested event loop in the middle of it.
        const qv::TPoint p = Map().ControlToMapImage({X, Y});
        QTimer::singleShot(0, this, [this, p] { Guard([&] { AddCalibPointAt(p); }); });
        break;
    }
#if defined(QVGEO_WITH_OPENCV)
    case TTool::GraticulePoint:
        if (FGratDock->isVisible()) {
            FDraggedGratPoint = FGratDock->PointAt(X, Y);  // a press on a proposed crossing selects and drags it
            FGratDock->Select(FDraggedGratPoint);
        }
        break;
#endif
    case TTool::PlaceLandmark:
        // The map has added the landmark of this press (or refused: no calibration at the pixel).
        if (Map().NumLandMarks() > FCountBeforePress)
            ++FPlaced;
        break;
    default: break;
    }
}

void TViewerWindow::MapMouseMove(qv::TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    UpdatePointer(X, Y);
    if (!Shift.Contains(qv::ssLeft)) {
        // A drag lives only while the button is held.
        FDragged = 0;
        FDraggedCalPoint = 0;
        FDraggedGratPoint = 0;
    }
#if defined(QVGEO_WITH_OPENCV)
    if (FDraggedGratPoint > 0) {
        const qv::TPoint p = Map().ControlToMapImage({X, Y});
        FGratDock->MovePoint(FDraggedGratPoint, p.X, p.Y);
    }
#endif
    if (FDraggedCalPoint > 0) {
        const qv::TPoint p = Map().ControlToMapImage({X, Y});
        FCalibEditor->MovePoint(FDraggedCalPoint, p.X, p.Y);
    }
    double lat = 0, lon = 0;
    if (FDragged > 0 && FDragged <= Map().NumLandMarks() && PixelToLatLong(X, Y, lat, lon)) {
        qv::TLandMark l = Map().GetLandMarkData(FDragged);
        l.Latitude = lat;
        l.Longitude = lon;
        Map().SetLandMarkData(FDragged, l);
    }
    if (FBand.Active() && Map().RubberBandOn() && PixelToLatLong(X, Y, lat, lon))
        FMeasureLabel->setText(FBand.Text(lat, lon));
}

void TViewerWindow::MapMouseUp(std::int32_t X, std::int32_t Y)
{
    FDragged = 0;
    FDraggedCalPoint = 0;
    FDraggedGratPoint = 0;
    // The band is drawn by dragging as well as by clicks: a release away from the press ends it there,
    // a release on the spot leaves it following the pointer until the next click.
    if (FTool == TTool::RubberBand && Map().RubberBandOn() &&
        (QPoint(X, Y) - QPoint(FBandPress.X, FBandPress.Y)).manhattanLength() >= QApplication::startDragDistance()) {
        double lat = 0, lon = 0;
        if (FBand.Active() && PixelToLatLong(X, Y, lat, lon))
            FMeasureLabel->setText(FBand.Text(lat, lon));
        EndBand();
    }
    UpdateMapInfo();
    UpdatePointer(X, Y);
}

void TViewerWindow::RestoreJustDeleted()
{
    if (!FJustDeleted)
        return;
    // Back at its number, so that the list, and the file it is saved to, are as before the press: removing
    // moved the last landmark into its number, which goes back to the end.
    const auto [k, data] = *FJustDeleted;
    FJustDeleted.reset();
    const std::int32_t last = Map().AddLandMark(data.Latitude, data.Longitude, data.Altitude);
    if (last < k)
        return;  // refused (0): nothing to put back into
    if (last > k)
        Map().SetLandMarkData(last, Map().GetLandMarkData(k));
    Map().SetLandMarkData(k, data);
    Map().Paint();
}

void TViewerWindow::MapDblClick()
{
    if (FTool != TTool::DeleteLandmark && FTool != TTool::MoveLandmark)
        return;
    // Asked after the event is handled, as for calibration points: no nested loop inside the handler.
    const std::int32_t k = LandmarkAt(FPointer.X, FPointer.Y);
    if (k > 0)
        QTimer::singleShot(0, this, [this, k] { Guard([&] { EditLandmark(k); }); });
}

void TViewerWindow::BandEvent(int Kind, std::int32_t MapX, std::int32_t MapY)
{
    if (Map().MouseAction() != qv::maRubberBand)
        return;  // the selection rectangle begins with the same event
    qv::TCoords c;
    const bool placed = HasCalibration() && Map().Calibration().CalcPosition({MapX, MapY}, c) && OnEarth(c.Latit, c.Longit);
    if (Kind == 0) {
        FBandView = ViewKey();
        if (!placed) {
            FBand.End();
            FMeasureLabel->setText("no calibration to measure on");
            return;
        }
        const qv::TGeoEllipsoid e = Map().CalibData().Ellipsoid;
        FBand.Begin(c.Latit, c.Longit, e < qv::NumGeoEllipsoids ? e : qv::gelWGS84);
        FMeasureLabel->setText(FBand.Text(c.Latit, c.Longit));
    } else if (placed && FBand.Active()) {
        if (Kind == 1) {
            FBand.Leg(c.Latit, c.Longit);
        } else {
            FMeasureLabel->setText(FBand.Text(c.Latit, c.Longit));
            FBand.End();
        }
    }
}

void TViewerWindow::EndBand()
{
    if (Map().RubberBandOn())
        Map().CancelMouseOperation();
    FBand.End();
}

// ---- the status bar ------------------------------------------------------------------------------------

bool TViewerWindow::HasCalibration() const
{
    const qv::TMapCalibration& c = FAtlas->MapView().Calibration();
    const qv::TCalibModel model = c.CalibModel();
    if (model == qv::cmUndefined || FAtlas->MapView().MapWidth() <= 0)
        return false;
    const qv::TCalibData& d = c.CalibData();
    int points = 0;
    if (model == qv::cmParabolicIp) {
        for (int i = 0; i < qv::ValidCalLines(d); ++i)
            points += std::clamp(d.CalLines[std::size_t(i)].NumPoints, 0, qv::MaxCalLinePoints);
    } else {
        points = qv::ValidCalQuads(d);
    }
    return points >= qv::MinCalibPoints(model);
}

QString TViewerWindow::PositionText(std::int32_t X, std::int32_t Y)
{
    if (Map().MapWidth() > 0 && !HasCalibration())
        return "no calibration";
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
        return HasCalibration() ? "-" : QString();
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

std::int32_t TViewerWindow::ShownAtlasMap() const
{
    // The atlas still counts the map shown before an image was opened as its current one.
    return !FOpenedImage.empty() && FAtlas->MapView().MapImgName() == FOpenedImage ? 0 : FAtlas->CurrentMap();
}

void TViewerWindow::UpdateMapInfo()
{
    const std::int32_t i = ShownAtlasMap();
    const double mag = Map().Magnification();
    FMagLabel->setText(QString("x%1").arg(mag, 0, 'f', 2));
    if (Map().MapWidth() <= 0) {
        FScaleLabel->setText("no map");
        return;
    }
    QString caption = QString::fromStdString(Map().MapCaption());
    if (caption.isEmpty())
        caption = i > 0 ? QString::fromStdString(FAtlas->GetMapDef(i).Caption)
                        : QFileInfo(QString::fromStdString(Map().MapImgName())).fileName();
    if (!HasCalibration()) {
        FScaleLabel->setText(caption + ": no calibration");
        return;
    }
    double res = Map().CalibData().Resolution;
    if (res <= 0 && i > 0)
        res = FAtlas->GetMapDef(i).Resolution;
    // At 96 pixels per inch one screen pixel is 0.0254 / 96 m; the map scale is ground per screen length.
    const double scale = res > 0 && mag > 0 ? res / mag / (0.0254 / 96.0) : 0;
    FScaleLabel->setText(QString("%1: %2 m/px, 1:%3").arg(caption).arg(res, 0, 'f', res < 100 ? 1 : 0).arg(scale, 0, 'f', 0));
}

// ---- the view ------------------------------------------------------------------------------------------

TViewerWindow::TViewKey TViewerWindow::ViewKey() const
{
    const qv::TGeoMap& m = FAtlas->MapView();
    return {FAtlas->CurrentMap(), m.MapImgName(), m.Calibration().CalibModel(), m.TopLeft(), m.Magnification()};
}

void TViewerWindow::ViewRendered()
{
    const TViewKey now = ViewKey();
    // The band's figure is in control pixels: after a pan, a zoom or another map it marks other places.
    if (Map().RubberBandOn() && !(now == FBandView))
        EndBand();
    const bool otherMap = now.Map != FShownView.Map || now.Image != FShownView.Image;
    if (otherMap)
        TakeCalibrationSnapshot();  // a map just loaded is as its file has it
    if (otherMap || now.Model != FShownView.Model) {
        // The grid's kind follows the model; setting it repaints, which must wait until this frame is done.
        // Queued calls are delivered before the repaint this frame has asked for, so the grid is on the
        // first frame the screen shows.
        QMetaObject::invokeMethod(this, [this] {
            Guard([this] {
                RestoreParabolicModel();
                ApplyGraticule();
                ApplyReadableMap();  // the landmarks' scale range is the new map's
            });
        }, Qt::QueuedConnection);
    }
    // The map moved, changed or was calibrated otherwise under a pointer that stayed: its place is another.
    if (!(now == FShownView))
        UpdatePointer(FPointer.X, FPointer.Y);
    FShownView = now;
    UpdateMapInfo();
}

void TViewerWindow::RestoreParabolicModel()
{
    // The map's calibration reader takes "parabolicip" for an undefined model; a map calibrated from its
    // own graticule lines (Tools > Detect graticule) is shown with the model its file names.
    if (Map().Calibration().CalibModel() != qv::cmUndefined || qv::ValidCalLines(Map().CalibData()) < 4)
        return;
    const std::string file = FAtlas->MapFileName(FAtlas->CurrentMap());
    qv::TCalibData d;
    qv::TCalibModel m = qv::cmUndefined;
    if (file.empty() || !qv::ParseCalibData(file, "", d, m) || m != qv::cmParabolicIp)
        return;
    Map().SetCalibModel(qv::cmParabolicIp);
    TakeCalibrationSnapshot();  // as its file has it: nothing to save
}

void TViewerWindow::ApplyGraticule()
{
    qv::TShowGrat g = qv::sgNone;
    // The map draws a UTM grid on UTM-calibrated maps only and graticule lines on the others.
    if (FGridAction && FGridAction->isChecked())
        g = Map().Calibration().CalibModel() == qv::cmUTM ? qv::sgUTMGrid : qv::sgLines;
    // The map's own automatic spacing is the largest power of ten within the extent: 360 meridians on a
    // world map. A dozen lines or fewer across the map's longer extent read better.
    const qv::TCornerArray& c = Map().CalibData().Corners;
    double latLo = 90, latHi = -90, lonLo = 180, lonHi = -180;
    for (const qv::TCoords& k : c) {
        latLo = std::min(latLo, k.Latit), latHi = std::max(latHi, k.Latit);
        lonLo = std::min(lonLo, k.Longit), lonHi = std::max(lonHi, k.Longit);
    }
    const double extent = std::max(latHi - latLo, lonHi - lonLo);
    double step = 0.0;  // the map's automatic rule, for an extent that is not known
    if (std::isfinite(extent) && extent > 0) {
        static constexpr double steps[] = {0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60};
        step = steps[std::size(steps) - 1];
        for (double s : steps)
            if (extent / s <= 12.0) {
                step = s;
                break;
            }
    }
    const THoldPaint hold(Map());
    Map().SetGratLineDist(step);
    Map().SetShowGraticule(g);
}

void TViewerWindow::ZoomAboutCentre(double Factor)
{
    qv::TGeoMap& m = Map();
    if (m.MapWidth() <= 0 || m.MapHeight() <= 0)
        return;
    const double mag = m.Magnification();
    const double to = std::clamp(mag * Factor, kMinMag, kMaxMag);
    // The map point at the view's centre, in fractional map pixels, stays there.
    const double cx = m.TopLeft().X + m.width() / mag / 2.0, cy = m.TopLeft().Y + m.height() / mag / 2.0;
    {
        THoldPaint hold(m);
        m.SetMagnification(to);
        m.SetTopLeft({static_cast<std::int32_t>(std::lround(cx - m.width() / to / 2.0)),
                      static_cast<std::int32_t>(std::lround(cy - m.height() / to / 2.0))});
        if (m.ConfinePanToMapImage())
            m.PanMapToFillWindow();
    }
    m.ZoomStateOnStack();
    m.DoZoomPanEvent();
}

void TViewerWindow::FitMap()
{
    Map().ZoomFitPage();
    Map().ZoomStateOnStack();
    Map().DoZoomPanEvent();
}

void TViewerWindow::MapResized()
{
    const QSize before = FMapSize;
    FMapSize = Map().size();
    const std::int32_t w = Map().MapWidth(), h = Map().MapHeight();
    if (w <= 0 || h <= 0 || before.isEmpty())
        return;
    // At fit for the old size (what ZoomFitPage made of it): fit again for the new one.
    const double fit = std::min(static_cast<double>(before.width()) / w, static_cast<double>(before.height()) / h);
    if (Map().TopLeft() == qv::TPoint{0, 0} && std::fabs(Map().Magnification() - fit) <= 1e-9 * fit)
        Map().ZoomFitPage();
}

// ---- landmarks -----------------------------------------------------------------------------------------

std::int32_t TViewerWindow::LandmarkAt(std::int32_t X, std::int32_t Y)
{
    std::int32_t best = 0;
    double bestD2 = kLandmarkHitPixels * kLandmarkHitPixels;
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
    FDragged = 0;  // the dialog takes the release of a press that began a drag
    TLandmarkDialog dlg(FSymbols, Map().GetLandMarkData(Index), this);
    if (dlg.exec() != QDialog::Accepted)
        return false;
    FSymbols.Assign(dlg.Symbols());
    Map().SetLandMarkData(Index, dlg.Result());
    Map().Paint();
    return true;
}

bool TViewerWindow::EditLandmarkUnderPointer()
{
    // Where the pointer is now: the last move the map saw may be long past, or over another widget.
    const QPoint p = Map().mapFromGlobal(QCursor::pos());
    const std::int32_t k = Map().rect().contains(p) ? LandmarkAt(p.x(), p.y()) : 0;
    if (k == 0) {
        statusBar()->showMessage("No landmark under the pointer", 5000);
        return false;
    }
    return EditLandmark(k);
}

void TViewerWindow::PrepareLandmarkTemplate()
{
    qv::TLandMark lm = Map().DefaultLandMark();
    lm.Caption.Text = "Mark " + std::to_string(FPlaced + 1);
    lm.Identifier = NewLandmarkIdentifier();
    // Local time in whole seconds: what the landmark file keeps, so a saved landmark reads back equal.
    const QDateTime now = QDateTime::currentDateTime();
    double t = 0.0;
    if (qv::TryEncodeDateTime(now.date().year(), now.date().month(), now.date().day(), now.time().hour(),
                              now.time().minute(), now.time().second(), t))
        lm.Time = t;
    Map().SetDefaultLandMark(lm);
}

std::string TViewerWindow::NewLandmarkIdentifier() const
{
    // From the clock, so that landmarks placed in different sessions differ too, and bumped past every
    // identifier the map holds. 9 characters for the next few thousand years (the field takes 15).
    std::set<std::string, std::less<>> used;
    for (const qv::TLandMark& l : FAtlas->MapView().LandMarkStore().LandMarks())
        used.insert(l.Identifier);
    for (auto v = static_cast<std::uint64_t>(QDateTime::currentMSecsSinceEpoch());; ++v) {
        std::string id = "v" + Base36(v);
        if (!used.contains(id))
            return id;
    }
}

void TViewerWindow::BuildClassMenu(QMenu* Menu)
{
    FClassMenu = Menu;
    Menu->addAction("Show &all classes", this, [this] {
        Guard([this] {
            // Each change of a class repaints: held, one frame instead of up to 256 (a third of a second).
            THoldPaint hold(Map());
            for (int c = 0; c < 256; ++c)
                Map().SetClassVisibility(static_cast<std::uint8_t>(c), true);
        });
    });
    Menu->addSeparator();
    // Classes 0 to 9 have keys; any other class shows up here while landmarks use it or it is hidden.
    for (int c = 0; c < 10; ++c) {
        QAction* a = Menu->addAction(QString("Class %1").arg(c));
        a->setShortcut(QKeySequence(QString("Ctrl+Alt+%1").arg(c)));
        a->setCheckable(true);
        a->setData(c);
    }
    connect(Menu, &QMenu::aboutToShow, this, [this] { Guard([this] { RefreshClassMenu(); }); });
    connect(Menu, &QMenu::triggered, this, [this](QAction* A) {
        Guard([&] {
            if (!A->data().isValid())
                return;
            Map().SetClassVisibility(static_cast<std::uint8_t>(A->data().toInt()), A->isChecked());
            Map().Paint();
        });
    });
    RefreshClassMenu();
}

void TViewerWindow::RefreshClassMenu()
{
    std::array<int, 256> count{};
    for (const qv::TLandMark& l : Map().LandMarkStore().LandMarks())
        ++count[l.ClassFlag];
    std::set<int> listed;
    for (QAction* a : FClassMenu->actions()) {
        if (!a->data().isValid())
            continue;
        const int c = a->data().toInt();
        if (c >= 10 && count[std::size_t(c)] == 0 && Map().GetClassVisibility(static_cast<std::uint8_t>(c))) {
            FClassMenu->removeAction(a);
            a->deleteLater();
            continue;
        }
        listed.insert(c);
    }
    for (int c = 10; c < 256; ++c) {
        if (listed.contains(c) || (count[std::size_t(c)] == 0 && Map().GetClassVisibility(static_cast<std::uint8_t>(c))))
            continue;
        QAction* a = FClassMenu->addAction(QString("Class %1").arg(c));
        a->setCheckable(true);
        a->setData(c);
    }
    for (QAction* a : FClassMenu->actions()) {
        if (!a->data().isValid())
            continue;
        const int c = a->data().toInt();
        const char* name = c == 1 ? " sights" : c == 2 ? " placed" : "";
        a->setText(QString("Class %1 (%2%3)").arg(c).arg(count[std::size_t(c)]).arg(name));
        a->setChecked(Map().GetClassVisibility(static_cast<std::uint8_t>(c)));
    }
}

// ---- unsaved changes -----------------------------------------------------------------------------------

void TViewerWindow::TakeLandmarkSnapshot()
{
    FLandmarkSnapshot = LandmarkText(Map());
}

void TViewerWindow::TakeCalibrationSnapshot()
{
    FCalibSnapshot = CalibrationFingerprint(Map().Calibration());
    FCalibSnapshotMap = {FAtlas->CurrentMap(), Map().MapImgName()};
}

bool TViewerWindow::LandmarksModified() const
{
    return LandmarkText(FAtlas->MapView()) != FLandmarkSnapshot;
}

bool TViewerWindow::CalibrationModified()
{
    // Another map shown since the snapshot without a frame drawn (a hidden window): it is as loaded.
    if (FCalibSnapshotMap != std::pair(FAtlas->CurrentMap(), Map().MapImgName()))
        TakeCalibrationSnapshot();
    return CalibrationFingerprint(Map().Calibration()) != FCalibSnapshot;
}

void TViewerWindow::closeEvent(QCloseEvent* Event)
{
    bool close = false;
    Guard([&] { close = ConfirmClose(); });
    if (close)
        Event->accept();
    else
        Event->ignore();
}

bool TViewerWindow::ConfirmClose()
{
    const bool landmarks = LandmarksModified(), calibration = CalibrationModified();
    if (!landmarks && !calibration)
        return true;
    const QString what = landmarks && calibration ? "the landmarks and to the calibration of the map shown"
                         : landmarks              ? "the landmarks"
                                                  : "the calibration of the map shown";
    return AskToSave("Quit", "There are unsaved changes to " + what + ".", "Save them before quitting?", landmarks,
                     calibration);
}

bool TViewerWindow::AskToSave(const QString& Title, const QString& Text, const QString& Question, bool Landmarks,
                              bool Calibration)
{
    QMessageBox box(QMessageBox::Warning, Title, Text, QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    box.setInformativeText(Question);
    box.setDefaultButton(QMessageBox::Save);
    box.setEscapeButton(QMessageBox::Cancel);
    const int answer = box.exec();
    if (answer == QMessageBox::Discard)
        return true;
    return answer == QMessageBox::Save && SaveChanges(Landmarks, Calibration);
}

bool TViewerWindow::ConfirmLeaveMap()
{
    // Only the map shown has a calibration in the view: one replaced unsaved is lost.
    return !CalibrationModified() ||
           AskToSave("Switch map", "There are unsaved changes to the calibration of the map shown.",
                     "Save them before another map replaces it?", false, true);
}

bool TViewerWindow::ConfirmReplaceLandmarks()
{
    return !LandmarksModified() || AskToSave("Open landmarks", "There are unsaved changes to the landmarks.",
                                             "Save them before other landmarks replace them?", true, false);
}

bool TViewerWindow::SaveChanges(bool Landmarks, bool Calibration)
{
    if (Landmarks) {
        QString f = FLandmarkFile;
        if (f.isEmpty())
            f = AskSaveFile("Save landmarks", "landmarks.xml", "Landmarks (*.xml)");
        if (f.isEmpty())
            return false;
        if (!SaveLandmarkFile(f)) {
            ReportError("cannot write the landmarks to " + f);
            return false;
        }
    }
    if (Calibration) {
        // Asked every time: the map's own calibration file may hold other calibrations or be shared.
        QString suggested = FCalibFile;
        if (suggested.isEmpty() && ShownAtlasMap() == 0 && !Map().MapImgName().empty()) {
            const std::filesystem::path image = Map().MapImgName();  // an opened image: beside it, named after it
            suggested = QString::fromStdString((image.parent_path() / image.stem()).string() + ".xml");
        }
        if (suggested.isEmpty())
            suggested = QString::fromStdString(FAtlas->MapFileName(ShownAtlasMap()));
        const QString f = AskSaveFile("Save calibration", suggested.isEmpty() ? "calibration.xml" : suggested,
                                      "Calibration (*.xml)");
        if (f.isEmpty())
            return false;
        if (!FCalibEditor->SaveFile(f)) {
            ReportError("cannot write the calibration to " + f);
            return false;
        }
        FCalibFile = f;
        TakeCalibrationSnapshot();
    }
    return true;
}

}  // namespace viewer
