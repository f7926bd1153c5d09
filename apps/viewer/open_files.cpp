// Files given to the viewer by File → Open or dropped onto its window: each goes where its kind says, a
// folder to the atlas, a calibration to the atlas and the view, landmarks and waypoints to the landmark
// layer, a picture to the view (with its own georeferencing, or ready for the calibration editor).
#include "map_files.h"
#include "viewer_window.h"

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/landmark_exchange.h>
#endif
#include <qvgeo/support/text.h>

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMessageBox>
#include <QMimeData>
#include <QStatusBar>
#include <QUrl>

#include <filesystem>
#include <fstream>

namespace viewer {

namespace fs = std::filesystem;

TPathKind KindOfPath(const std::string& Path)
{
    std::error_code ec;
    if (fs::is_directory(Path, ec))
        return TPathKind::Folder;
    if (!fs::is_regular_file(Path, ec))
        return TPathKind::Missing;
    const std::string ext = qv::LowerCase(fs::path(Path).extension().string());
    if (ext == ".gpx" || ext == ".kml" || ext == ".kmz" || ext == ".gpkg" || ext == ".geojson" || ext == ".json")
        return TPathKind::Waypoints;
    if (ext == ".xml") {
        // The header line of either family comes within the first lines (after a declaration and a comment).
        std::ifstream f(Path, std::ios::binary);
        std::string line;
        for (int n = 0; n < 50 && std::getline(f, line); ++n) {
            if (line.find("<gmlandmarks") != std::string::npos)
                return TPathKind::Landmarks;
            if (line.find("<geomap") != std::string::npos)
                return TPathKind::Calibration;
        }
        return TPathKind::Calibration;  // the calibration reader says what is wrong with it
    }
    return TPathKind::Picture;
}

void TViewerWindow::dragEnterEvent(QDragEnterEvent* Event)
{
    if (Event->mimeData()->hasUrls()) {
        for (const QUrl& url : Event->mimeData()->urls())
            if (url.isLocalFile()) {
                Event->acceptProposedAction();
                return;
            }
    }
    Event->ignore();
}

void TViewerWindow::dropEvent(QDropEvent* Event)
{
    QStringList files;
    for (const QUrl& url : Event->mimeData()->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    Event->acceptProposedAction();
    // Dropped while Qt delivers the drop: a modal question of OpenPaths must not run inside it.
    QMetaObject::invokeMethod(this, [this, files] { Guard([&] { OpenPaths(files); }); }, Qt::QueuedConnection);
}

int TViewerWindow::OpenPaths(const QStringList& Paths)
{
    int opened = 0;
    QStringList problems;
    for (const QString& path : Paths) {
        QString error;
        bool ok = false;
        switch (KindOfPath(path.toStdString())) {
        case TPathKind::Missing:
            error = QString("%1 does not exist").arg(path);
            break;
        case TPathKind::Folder:
            AddMapFolder(path);
            ok = true;
            break;
        case TPathKind::Calibration:
            ok = OpenCalibrationFile(path, error);
            break;
        case TPathKind::Landmarks:
            if (!ConfirmReplaceLandmarks())
                break;
            ok = LoadLandmarkFile(path);
            if (!ok)
                error = "No landmark set in " + path;
            break;
        case TPathKind::Waypoints:
            ok = ImportWaypoints(path, error);
            break;
        case TPathKind::Picture:
            if (!ConfirmLeaveMap())
                break;
            ok = OpenImage(path, error);
            break;
        }
        if (ok)
            ++opened;
        else if (!error.isEmpty())
            problems << error;
    }
    if (!problems.isEmpty()) {
        FLastError = problems.join('\n');
        statusBar()->showMessage(problems.first(), 10000);
        // Not modal: a drop of many files reports once, beside the window, without holding the drop up.
        auto* box = new QMessageBox(QMessageBox::Warning, "Open", FLastError, QMessageBox::Close, this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setModal(false);
        box->show();
    }
    return opened;
}

bool TViewerWindow::ImportWaypoints(const QString& File, QString& Error)
{
#if !QVGEO_WITH_GDAL
    Error = QString("%1: this build reads no waypoint files (built without GDAL)").arg(File);
    return false;
#else
    if (!ConfirmReplaceLandmarks())
        return false;
    qv::TGeoMap& map = Map();
    qv::TLandMarkImportOptions options;
    options.Symbols = &FSymbols;
    options.Template = map.DefaultLandMark();
    qv::TLandMarkImportReport report;
    std::vector<qv::TLandMark> marks;
    try {
        marks = qv::ImportLandMarks(File.toStdString(), options, report);
    } catch (const std::exception& e) {
        Error = QString::fromStdString(e.what());
        return false;
    }
    {
        // One picture for the whole set, however many waypoints it has.
        const bool held = map.SuppressPaint();
        map.SetSuppressPaint(true);
        try {
            map.RemoveAllLandMarks();
            for (const qv::TLandMark& m : marks)
                if (const std::int32_t i = map.AddLandMark(m.Latitude, m.Longitude, m.Altitude); i > 0)
                    map.SetLandMarkData(i, m);
        } catch (...) {
            map.SetSuppressPaint(held);
            throw;
        }
        map.SetSuppressPaint(held);
    }
    map.Paint();
    // Not our landmark file: Quit must not write over it, and closing asks where to save them.
    FLandmarkFile.clear();
    const std::int64_t skipped = report.Features - report.Imported;
    statusBar()->showMessage(QString("%1: %2 landmarks%3").arg(File).arg(report.Imported)
                                 .arg(skipped > 0 ? QString(", %1 features skipped").arg(skipped) : QString()),
                             10000);
    return true;
#endif
}

bool TViewerWindow::OpenCalibrationFile(const QString& File, QString& Error)
{
    const QString path = QString::fromStdString(fs::absolute(File.toStdString()).lexically_normal().string());
    const std::int32_t before = FAtlas->NumRegMaps();
    if (!FAtlas->RegisterMap(path.toStdString())) {
        Error = QString("%1 is not a calibration the atlas can take").arg(File);
        return false;
    }
    Remember(kMapsKey, path);
    if (!ConfirmLeaveMap())
        return true;  // registered; the map shown stays
    const std::string key = qv::LowerCase(path.toStdString());
    for (std::int32_t i = 1; i <= FAtlas->NumRegMaps(); ++i)
        if (FAtlas->GetMapDef(i).MapFName == key && FAtlas->SelectMap(i)) {
            FOpenedImage.clear();
            Map().ZoomFitPage();
            break;
        }
    ShowCurrentInList();
    UpdateMapInfo();
    statusBar()->showMessage(QString("%1: %2").arg(File, FAtlas->NumRegMaps() > before ? "registered" : "updated"), 10000);
    return true;
}

}  // namespace viewer
