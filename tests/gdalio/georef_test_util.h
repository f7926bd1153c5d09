// Helpers of the georeferencing import tests: a scratch folder, rasters written by GDAL, and the
// largest distance between a calibration's places and GDAL's transformation of the same pixels.
#pragma once

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/georef_import.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <gdal.h>
#include <gdal_alg.h>
#include <ogr_spatialref.h>

#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace qv::georeftest {

class TTempDir {
public:
    TTempDir()
    {
        static std::atomic<int> counter{0};
        FPath = std::filesystem::temp_directory_path() /
                ("qvgeo-georef-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::create_directories(FPath);
    }
    ~TTempDir()
    {
        std::error_code ec;
        std::filesystem::remove_all(FPath, ec);
    }
    TTempDir(const TTempDir&) = delete;
    TTempDir& operator=(const TTempDir&) = delete;
    std::string File(const std::string& Name) const { return (FPath / Name).string(); }

private:
    std::filesystem::path FPath;
};

inline void WriteText(const std::string& FName, const std::string& Text)
{
    std::ofstream out(FName, std::ios::binary | std::ios::trunc);
    out << Text;
}

// A one-band GeoTIFF of W x H with an optional coordinate system, geotransform and control points.
inline void MakeRaster(const std::string& FName, int W, int H, const char* SRS, const std::array<double, 6>* GT,
                       const std::vector<TGroundControlPoint>& GCPs)
{
    GdalSession();
    GDALDatasetH ds = GDALCreate(GDALGetDriverByName("GTiff"), FName.c_str(), W, H, 1, GDT_Byte, nullptr);
    ASSERT_NE(ds, nullptr) << FName;
    OGRSpatialReference srs;
    if (SRS) {
        ASSERT_EQ(srs.SetFromUserInput(SRS), OGRERR_NONE) << SRS;
        srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    }
    if (GT) {
        std::array<double, 6> gt = *GT;
        GDALSetGeoTransform(ds, gt.data());
        if (SRS)
            GDALSetSpatialRef(ds, OGRSpatialReference::ToHandle(&srs));
    }
    if (!GCPs.empty()) {
        std::vector<GDAL_GCP> g(GCPs.size());
        GDALInitGCPs(static_cast<int>(g.size()), g.data());
        for (std::size_t i = 0; i < g.size(); ++i) {
            g[i].dfGCPPixel = GCPs[i].Pixel;
            g[i].dfGCPLine = GCPs[i].Line;
            g[i].dfGCPX = GCPs[i].X;
            g[i].dfGCPY = GCPs[i].Y;
        }
        GDALSetGCPs2(ds, static_cast<int>(g.size()), g.data(), SRS ? OGRSpatialReference::ToHandle(&srs) : nullptr);
        GDALDeinitGCPs(static_cast<int>(g.size()), g.data());
    }
    GDALClose(ds);
}

// The largest distance in metres, over Pixels, between the imported calibration's place of a pixel and
// GDAL's place of that pixel's centre in FName, in the geographic CRS Compare. GcpOrder > 0 fixes the
// order of GDAL's polynomial through control points.
inline double WorstDistanceToGDAL(const std::string& FName, const TGeoRefImport& R, const std::vector<TPoint>& Pixels,
                                  const char* Compare, int GcpOrder = 0)
{
    TMapCalibration cal;
    cal.SetImageSize(R.Width, R.Height);
    cal.LoadCalibData(R.Data, R.Model);
    GDALDatasetH ds = GDALOpen(FName.c_str(), GA_ReadOnly);
    EXPECT_NE(ds, nullptr) << FName;
    if (!ds)
        return 1e30;
    OGRSpatialReference dst;
    dst.SetFromUserInput(Compare);
    char* wkt = nullptr;
    dst.exportToWkt(&wkt);
    const std::string dstOption = std::string("DST_SRS=") + wkt;
    CPLFree(wkt);
    const std::string order = "MAX_GCP_ORDER=" + std::to_string(GcpOrder);
    std::vector<const char*> options = {dstOption.c_str()};
    if (GcpOrder > 0)
        options.push_back(order.c_str());
    options.push_back(nullptr);
    void* t = GDALCreateGenImgProjTransformer2(ds, nullptr, const_cast<char**>(options.data()));
    EXPECT_NE(t, nullptr);
    double worst = t ? 0.0 : 1e30;
    for (const TPoint p : Pixels) {
        if (!t)
            break;
        double x = p.X + 0.5, y = p.Y + 0.5, z = 0;
        int ok = 0;
        GDALGenImgProjTransform(t, FALSE, 1, &x, &y, &z, &ok);
        TCoords c;
        EXPECT_TRUE(ok && cal.CalcPosition(p, c)) << p.X << "," << p.Y;
        const double d = NearbyDistance(c.Latit, c.Longit, y, x, R.Data.Ellipsoid);
        worst = d > worst ? d : worst;
    }
    if (t)
        GDALDestroyGenImgProjTransformer(t);
    GDALClose(ds);
    return worst;
}

inline void ExpectImportError(const std::string& FName, TGeoRefFormat Format, const TGeoRefOptions& O,
                              const std::string& Part)
{
    try {
        ImportGeoRef(FName, Format, O);
        ADD_FAILURE() << FName << ": accepted, expected an error with \"" << Part << "\"";
    } catch (const EXELGeoMapError& e) {
        const std::string what = e.what();
        EXPECT_EQ(what.rfind("georeference import: ", 0), 0u) << what;
        EXPECT_NE(what.find(Part), std::string::npos) << what;
    }
}

}  // namespace qv::georeftest
