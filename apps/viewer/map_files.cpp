// The viewer's map files: an image opened to be calibrated, calibrations saved by the editor and
// registered with the atlas at once, folders of maps added to the atlas, and the folders and files the
// window remembers in its settings to register them again at the next start.
#include "map_files.h"

#include "viewer_window.h"

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/support/text.h>

#include <QComboBox>
#include <QDialog>
#include <QMessageBox>
#include <QProgressDialog>
#include <QSettings>
#include <QSignalBlocker>
#include <QStatusBar>

#include <algorithm>
#include <filesystem>
#include <set>

namespace viewer {

namespace fs = std::filesystem;

namespace {


// The leaf of an image name as a calibration file gives it: a Windows path ("c:\maps\wien.bmp") is
// as likely there as a bare name, and readers look for the leaf beside the file.
std::string ImageLeaf(const std::string& Name)
{
    const auto slash = Name.find_last_of("/\\");
    return qv::LowerCase(slash == std::string::npos ? Name : Name.substr(slash + 1));
}

QString Absolute(const QString& Path)
{
    return QString::fromStdString(fs::absolute(Path.toStdString()).lexically_normal().string());
}

}  // namespace

QString MapCountText(std::int64_t N)
{
    return N == 1 ? QString("1 map") : QString("%1 maps").arg(N);
}

std::vector<qv::TAtlasFileProblem> UncalibratedImages(const std::string& Folder)
{
    std::vector<qv::TAtlasFileProblem> found;
    std::set<std::string> named;
    std::vector<fs::path> images;
    std::error_code ec;
    for (fs::directory_iterator it(Folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code fe;
        if (!it->is_regular_file(fe))
            continue;
        const fs::path& p = it->path();
        if (IsPictureName(p.string())) {
            images.push_back(p);
        } else if (qv::LowerCase(p.extension().string()) == ".xml") {
            // The file's first calibration, the one the atlas registers; a file that cannot be read names
            // no image (and is reported by the registration).
            qv::TCalibData d;
            qv::TCalibModel m = qv::cmUndefined;
            try {
                if (qv::ParseCalibData(p.string(), "", d, m))
                    named.insert(ImageLeaf(d.MapFName));
            } catch (const std::exception&) {
            }
        }
    }
    std::sort(images.begin(), images.end());
    for (const fs::path& p : images)
        if (!named.count(qv::LowerCase(p.filename().string())))
            found.push_back({p.string(), "an image without a calibration (File > Open image or map calibrates it)"});
    return found;
}

std::string ReplaceFirstCalibration(const std::string& Old, const std::string& DefaultId,
                                    const std::function<std::string(const std::string& Id, bool WithHeader)>& Write)
{
    // Line starts of Old; a last line without its line end counts as a line.
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < Old.size();) {
        starts.push_back(i);
        const std::size_t nl = Old.find('\n', i);
        i = nl == std::string::npos ? Old.size() : nl + 1;
    }
    starts.push_back(Old.size());
    const auto line = [&](std::size_t k) { return qv::LowerCase(Old.substr(starts[k], starts[k + 1] - starts[k])); };
    const std::size_t n = starts.size() - 1;
    std::size_t header = 0;
    while (header < n && !(line(header).find("<geomap") != std::string::npos && line(header).find("quorvanta") != std::string::npos))
        ++header;
    if (header == n)
        return Write(DefaultId, true);
    std::size_t end = header;
    while (end + 1 < n && line(end).find("</geomap>") == std::string::npos)
        ++end;
    // The id as the file spells it (the readers compare ids without case, a user's eye does not).
    const std::string head = Old.substr(starts[header], starts[header + 1] - starts[header]);
    std::string id;
    if (const auto at = qv::LowerCase(head).find(" id=\""); at != std::string::npos) {
        const auto close = head.find('"', at + 5);
        id = head.substr(at + 5, close == std::string::npos ? std::string::npos : close - at - 5);
    }
    const std::size_t first = header > 0 && line(header - 1).find("<!--") != std::string::npos ? header - 1 : header;
    std::string block = Write(id, false);
    block.erase(0, block.find_first_not_of('\n'));  // the writer's empty line before the comment is in Old already
    return Old.substr(0, starts[first]) + block + Old.substr(starts[end + 1]);
}

void TViewerWindow::SetUpMapFiles()
{
    // An image opened by its full path is loaded from there; every other name is the atlas's to find
    // beside the calibration of the map it shows.
    Map().OnMapImageRequest = [atlas = Map().OnMapImageRequest](qv::TGeoMap& M, std::string& Name) {
        std::error_code ec;
        if (fs::path(Name).is_absolute() && fs::is_regular_file(Name, ec))
            return;
        if (atlas)
            atlas(M, Name);
    };
    AskUTMPlace = [this](std::int32_t X, std::int32_t Y, TUTMPlace& Place) {
        const qv::TMapCalibration& cal = Map().Calibration();
        const bool first = qv::ValidCalQuads(cal.CalibData()) == 0;
        std::optional<TUTMPlace> start;
        if (cal.UTMZone() >= 1 && cal.UTMZone() <= 60)
            start = TUTMPlace{0, 0, cal.UTMZone(), cal.UTMHemisphere()};
        TUTMPlaceDialog dlg(X, Y, start, first, this);
        return dlg.exec() == QDialog::Accepted && dlg.Place(Place);
    };
    FCalibEditor->OnSaved = [this](const QString& File) { CalibrationSaved(File); };

    if (FSettingsFile.isEmpty())
        return;
    int problems = 0;
    for (const QString& d : RememberedFolders())
        problems += static_cast<int>(FAtlas->RegisterFolder(d.toStdString()).size());
    for (const QString& f : RememberedMaps())
        problems += FAtlas->RegisterMap(f.toStdString()) ? 0 : 1;
    if (problems > 0)
        statusBar()->showMessage(QString("%1 of the remembered map files could not be registered").arg(problems), 10000);
}

QStringList TViewerWindow::RememberedFolders() const
{
    return FSettingsFile.isEmpty() ? QStringList() : QSettings(FSettingsFile, QSettings::IniFormat).value(kFoldersKey).toStringList();
}

QStringList TViewerWindow::RememberedMaps() const
{
    return FSettingsFile.isEmpty() ? QStringList() : QSettings(FSettingsFile, QSettings::IniFormat).value(kMapsKey).toStringList();
}

void TViewerWindow::Remember(const char* Key, const QString& Path)
{
    if (FSettingsFile.isEmpty())
        return;
    const QString path = Absolute(Path);
    const QString folder = QString::fromStdString(fs::path(path.toStdString()).parent_path().string());
    const QString bundled = Absolute(QString::fromStdString(FMapDir));
    // The bundled maps come back at every start, and a file in a remembered folder comes back with it.
    if (path == bundled || (Key == kMapsKey && (folder == bundled || RememberedFolders().contains(folder))))
        return;
    QSettings s(FSettingsFile, QSettings::IniFormat);
    QStringList list = s.value(Key).toStringList();
    if (list.contains(path))
        return;
    list << path;
    s.setValue(Key, list);
    s.sync();
}

void TViewerWindow::ShowCurrentInList()
{
    // Registering refills the list with no line chosen; it names the map shown again, and none for an
    // image that is no map of the atlas.
    const QSignalBlocker block(FAtlas->MapSelector());
    FAtlas->MapSelector()->setCurrentIndex(FAtlas->CurrentMap() - 1);
}

std::vector<qv::TAtlasFileProblem> TViewerWindow::AddMapFolder(const QString& Folder)
{
    QProgressDialog dlg("Registering maps...", "Cancel", 0, 1, this);
    dlg.setWindowModality(Qt::WindowModal);
    dlg.setMinimumDuration(400);
    bool cancelled = false;
    const std::int32_t before = FAtlas->NumRegMaps();
    auto problems = FAtlas->RegisterFolder(Folder.toStdString(), [&](std::int32_t Done, std::int32_t Total) {
        dlg.setMaximum(std::max(Total, 1));
        dlg.setValue(Done);
        PumpProgressEvents(dlg);
        cancelled = dlg.wasCanceled();
        return !cancelled;
    });
    ShowCurrentInList();
    std::error_code ec;
    if (!cancelled && fs::is_directory(Folder.toStdString(), ec)) {
        Remember(kFoldersKey, Folder);
        // Pictures without a calibration file of ours: those with their own georeferencing become maps
        // through a calibration written into the cache folder; the rest wait for the editor.
        std::set<std::string> taken;  // pictures a ".map" file of the folder already brought
        auto uncalibrated = UncalibratedImages(Folder.toStdString());
        // ".map" files first: the pictures they name are theirs, not uncalibrated.
        std::stable_partition(uncalibrated.begin(), uncalibrated.end(), [](const qv::TAtlasFileProblem& P) {
            return qv::LowerCase(fs::path(P.File).extension().string()) == ".map";
        });
        dlg.setLabelText("Reading georeferencing...");
        dlg.setMaximum(static_cast<int>(uncalibrated.size()));
        int done = 0;
        for (auto& p : uncalibrated) {
            dlg.setValue(done++);
            PumpProgressEvents(dlg);
            if (dlg.wasCanceled()) {
                cancelled = true;
                break;
            }
            if (taken.count(p.File))
                continue;
            std::string problem;
            const std::optional<TFoundGeoRef> geo = FindGeoRef(p.File, problem);
            if (!geo) {
                if (!problem.empty())
                    p.Reason = "its georeferencing cannot be used: " + problem;
                if (qv::LowerCase(fs::path(p.File).extension().string()) != ".map")
                    problems.push_back(std::move(p));
                continue;
            }
            try {
#if QVGEO_WITH_GDAL
                taken.insert(geo->Image);
#endif
                if (!FAtlas->RegisterMap(CacheCalibrationOf(*geo, ViewerCacheDir())))
                    problems.push_back({p.File, "its georeferencing gives no map the atlas can take"});
            } catch (const std::exception& e) {
                problems.push_back({p.File, e.what()});
            }
        }
        ShowCurrentInList();
    }
    QString report = QString("%1 registered from %2%3").arg(MapCountText(FAtlas->NumRegMaps() - before), Folder, cancelled ? " (cancelled)" : "");
    for (const auto& p : problems)
        report += QString::fromStdString("\n" + p.File + ": " + p.Reason);
    FFolderReport = problems.empty() && !cancelled ? QString() : report;
    statusBar()->showMessage(report.section('\n', 0, 0), 10000);
    if (!FFolderReport.isEmpty()) {
        // Not modal: the report may stay open beside the maps it lists.
        auto* box = new QMessageBox(QMessageBox::Information, "Add map folder", FFolderReport, QMessageBox::Close, this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setModal(false);
        box->show();
    }
    return problems;
}

bool TViewerWindow::OpenImage(const QString& File, QString& Error)
{
    const std::string path = fs::absolute(File.toStdString()).lexically_normal().string();
    std::string problem;
    const std::optional<TFoundGeoRef> geo = FindGeoRef(path, problem);
    std::string image = path;
#if QVGEO_WITH_GDAL
    if (geo)
        image = geo->Image;
#endif
    qv::TGeoMap& map = Map();
    try {
        map.OpenRaster(image);
    } catch (const std::exception& e) {
        Error = QString("%1 cannot be shown: %2").arg(File, QString::fromStdString(e.what()));
        return false;
    }
    if (map.MapWidth() <= 0 || map.MapHeight() <= 0) {
        Error = QString("%1 cannot be read").arg(File);
        return false;
    }
    qv::TMapCalibration& cal = map.Calibration();
    const std::string leaf = fs::path(image).filename().string();
    QString status;
#if QVGEO_WITH_GDAL
    if (geo) {
        // The picture's own georeferencing: its points and the model that fits them best, shown in the
        // editor with their residuals; saving it makes the picture a map of the atlas.
        qv::TCalibData d = geo->Import.Data;
        d.MapFName = leaf;
        d.Caption = fs::path(image).stem().string();
        cal.LoadCalibData(d, geo->Import.Model);
        map.CalcExtentsAndResolution();
        const auto& r = geo->Import.Residuals;
        status = QString("%1: georeferenced from its %2 (%3), model %4, rms %5 m")
                     .arg(File, QString::fromStdString(geo->Import.Source), QString::fromStdString(geo->Import.CRSName),
                          QString::fromUtf8(qv::CalibModelKeywords[geo->Import.Model].data(),
                                            int(qv::CalibModelKeywords[geo->Import.Model].size())))
                     .arg(r.RmsMetres, 0, 'f', 2);
    }
#endif
    if (!geo) {
        // A new calibration: no points, the simplest model (the editor's list changes it), the image's name
        // as caption until the file says otherwise.
        cal.ClearCalibData();
        cal.CalibData().MapFName = leaf;
        cal.SetMapCaption(fs::path(image).stem().string());
        cal.SetCalibModel(qv::cmEquiRect);
        status = problem.empty() ? QString("%1: click a place on the image to add a reference point").arg(File)
                                 : QString("%1: its georeferencing cannot be used (%2); click a place to add a reference point")
                                       .arg(File, QString::fromStdString(problem));
    }
    map.ZoomFitPage();
    FCalibEditor->show();
    FCalibEditor->Refresh();
    if (!geo)
        SetTool(TTool::CalibPoint);
    {
        const QSignalBlocker block(FAtlas->MapSelector());
        FAtlas->MapSelector()->setCurrentIndex(-1);
    }
    // Nothing of the user's yet: the question on closing or switching waits for the first change, and the
    // file the calibration came from is not the one the image's calibration goes to.
    FOpenedImage = map.MapImgName();
    FCalibFile.clear();
    TakeCalibrationSnapshot();
    UpdateMapInfo();
    statusBar()->showMessage(status, 10000);
    return true;
}

void TViewerWindow::AddCalibPointAt(qv::TPoint P)
{
    FCalibEditor->show();
    if (!FCalibEditor->ReadyForPoints())
        return;
    if (Map().Calibration().CalibModel() == qv::cmUTM) {
        TUTMPlace place;
        if (AskUTMPlace && AskUTMPlace(P.X, P.Y, place))
            FCalibEditor->AddUTMPoint(P.X, P.Y, place.Northing, place.Easting, place.Zone, place.Hemisphere);
        return;
    }
    double lat = 0, lon = 0;
    if (AskPlace && AskPlace(P.X, P.Y, lat, lon))
        FCalibEditor->AddPoint(P.X, P.Y, lat, lon);
}

void TViewerWindow::CalibrationSaved(const QString& File)
{
    const QString path = Absolute(File);
    if (!FAtlas->RegisterMap(path.toStdString())) {
        statusBar()->showMessage(QString("Saved %1, but the atlas cannot take it").arg(File), 10000);
        return;
    }
    Remember(kMapsKey, path);
    // From now on the image is the atlas's map of that file: the list names it and atlas zooms weigh it
    // against the others. Loading it back keeps the view where the user left it.
    const std::string key = qv::LowerCase(path.toStdString());
    for (std::int32_t i = 1; i <= FAtlas->NumRegMaps(); ++i)
        if (FAtlas->GetMapDef(i).MapFName == key) {
            const double mag = Map().Magnification();
            const qv::TPoint topLeft = Map().TopLeft();
            if (FAtlas->SelectMap(i))
                FOpenedImage.clear();  // the image is the atlas's map now
            Map().SetMagnification(mag);
            Map().SetTopLeft(topLeft);
            Map().Paint();
            break;
        }
    ShowCurrentInList();
    UpdateMapInfo();
}

}  // namespace viewer
