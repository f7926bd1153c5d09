// Pictures that carry their own georeferencing (a GeoTIFF's geotransform or control points, a world file
// or ".points" list beside the picture, a ".map" calibration naming it): found, imported into a
// calibration, and — for the atlas, which registers calibration files — written as a calibration file
// into the viewer's cache folder, never into the user's folder.
#include "map_files.h"

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/support/text.h>

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/georef_import.h>
#endif

#include <QCryptographicHash>
#include <QStandardPaths>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace viewer {

namespace fs = std::filesystem;

bool IsPictureName(const std::string& Path)
{
    static const char* const known[] = {".bmp", ".jpg", ".jpeg", ".png", ".tif", ".tiff", ".jp2", ".j2k",
                                        ".webp", ".gif", ".map", ".img", ".vrt"};
    const std::string ext = qv::LowerCase(fs::path(Path).extension().string());
    for (const char* k : known)
        if (ext == k)
            return true;
    return false;
}

std::optional<TFoundGeoRef> FindGeoRef(const std::string& Path, std::string& Problem)
{
    Problem.clear();
#if !QVGEO_WITH_GDAL
    (void)Path;
    return std::nullopt;
#else
    const std::string ext = qv::LowerCase(fs::path(Path).extension().string());
    std::error_code ec;
    try {
        TFoundGeoRef found;
        if (ext == ".map") {
            found.Import = qv::ImportGeoRef(Path, qv::grfMapFile);
        } else if (ext == ".points") {
            found.Import = qv::ImportGeoRef(Path, qv::grfPoints);
        } else if (fs::is_regular_file(Path + ".points", ec)) {
            // A control-point list made for this picture says more than a geotransform it may also have.
            qv::TGeoRefOptions o;
            o.Image = Path;
            found.Import = qv::ImportGeoRef(Path + ".points", qv::grfPoints, o);
        } else if (qv::HasGeoRef(Path)) {
            found.Import = qv::ImportGeoRef(Path, qv::grfRaster);
        } else {
            return std::nullopt;
        }
        found.Image = fs::absolute(found.Import.Data.MapFName).lexically_normal().string();
        return found;
    } catch (const std::exception& e) {
        Problem = e.what();
        return std::nullopt;
    }
#endif
}

std::string CacheCalibrationOf(const TFoundGeoRef& Found, const std::string& CacheDir)
{
#if !QVGEO_WITH_GDAL
    (void)Found;
    (void)CacheDir;
    throw std::runtime_error("this build reads no georeferencing (built without GDAL)");
#else
    // One folder per picture, named by a hash of its absolute path: the calibration names its image by a
    // bare name, which readers look for beside the calibration, so a link to the picture sits there.
    const QByteArray key = QCryptographicHash::hash(QByteArray::fromStdString(Found.Image), QCryptographicHash::Sha1).toHex();
    const fs::path dir = fs::path(CacheDir) / key.left(16).toStdString();
    fs::create_directories(dir);
    // (The calibration reader lowers the letters of the name; readers find the link whatever its case.)
    const std::string leaf = fs::path(Found.Image).filename().string();
    const fs::path link = dir / leaf;
    std::error_code ec;
    fs::remove(link, ec);
    fs::create_symlink(Found.Image, link);

    qv::TCalibData d = Found.Import.Data;
    d.MapFName = leaf;
    if (d.Caption.empty())
        d.Caption = fs::path(Found.Image).stem().string();
    qv::TMapCalibration cal;
    cal.SetComponentName("viewer");
    cal.SetImageSize(Found.Import.Width, Found.Import.Height);
    cal.LoadCalibData(d, Found.Import.Model);
    cal.CalcExtentsAndResolution();
    std::ostringstream text;
    qv::WriteRawCalDataToOpenXMLFile(text, true, "1", cal.CalibData(), Found.Import.Model);
    const fs::path xml = dir / (fs::path(leaf).stem().string() + ".xml");
    std::ofstream out(xml, std::ios::binary | std::ios::trunc);
    out << text.str();
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + xml.string());
    return xml.string();
#endif
}

std::string ViewerCacheDir()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    return (fs::path(base.isEmpty() ? fs::temp_directory_path().string() : base.toStdString()) / "georeferenced").string();
}

}  // namespace viewer
