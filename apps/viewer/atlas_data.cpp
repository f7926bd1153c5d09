#include "atlas_data.h"

#include "../geotool/geojson_import.h"

#include <qvgeo/geodb/geodb.h>
#include <qvgeo/mapview/empty_map.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace viewer {
namespace fs = std::filesystem;

namespace {

// Bumped whenever the atlas's maps change, so that an old data folder is rebuilt.
constexpr const char* kLayoutStamp = "qvgeo-viewer atlas 3";

// A generated map's calibration file names no resolution (the atlas orders its maps by it) and carries the
// generator's caption; both are put in. Metres per pixel along the middle parallel, spherical earth of
// mean radius: the atlas only compares maps by it, and the status bar shows it to three digits.
void FinishCalibration(const fs::path& Xml, const std::string& Caption, const qv::TEmptyMapRequest& R);

std::string ReadText(const fs::path& P)
{
    std::ifstream in(P, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + P.string());
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void FinishCalibration(const fs::path& Xml, const std::string& Caption, const qv::TEmptyMapRequest& R)
{
    constexpr double kPi = 3.14159265358979323846, kMetresPerDegree = 6371008.8 * kPi / 180.0;
    const double midLat = (R.LatMin + R.LatMax) / 2 * kPi / 180;
    const double res = (R.LongMax - R.LongMin) * kMetresPerDegree * std::cos(midLat) / (R.Width - 2 * qv::EmptyMapMargin);
    std::string text = ReadText(Xml);
    const std::string from = "caption=\"" + std::string(qv::EmptyMapCaption) + "\"";
    const auto c = text.find(from);
    const auto e = text.find("</corners>");
    if (c == std::string::npos || e == std::string::npos)
        throw std::runtime_error("unexpected calibration layout in " + Xml.string());
    char line[64];
    std::snprintf(line, sizeof line, "\n<resolution>%.3f</resolution>", res);
    text.insert(e + std::strlen("</corners>"), line);
    text.replace(c, from.size(), "caption=\"" + Caption + "\"");
    std::ofstream out(Xml, std::ios::binary | std::ios::trunc);
    if (!(out << text))
        throw std::runtime_error("cannot write " + Xml.string());
}

}  // namespace

TAtlasFiles PrepareBundledAtlas(const std::string& DataDir, const std::string& SamplesDir)
{
    const fs::path root(DataDir), samples(SamplesDir);
    TAtlasFiles files{(root / "maps").string(), (root / "db" / "austria").string(),
                      (root / "landmarks-vienna.xml").string(), (samples / "symbols-basic.xml").string()};
    const fs::path stamp = root / "atlas.stamp";
    {
        std::ifstream in(stamp);
        std::string line;
        if (in && std::getline(in, line) && line == kLayoutStamp)
            return files;
    }
    fs::remove_all(root / "maps");
    fs::remove_all(root / "db");
    fs::create_directories(root / "maps");
    fs::create_directories(root / "db");

    // Regional maps, nested, coarse to fine; the database is drawn on them at run time.
    const struct {
        const char* name;
        const char* caption;
        double latMin, lonMin, latMax, lonMax, grat;
    } regions[] = {{"austria", "Austria", 46.3, 9.4, 49.1, 17.2, 1.0},
                   {"lower-austria", "Lower Austria", 47.4, 14.4, 49.1, 17.2, 0.5},
                   {"vienna-region", "Vienna region", 47.9, 15.9, 48.5, 16.8, 0.1}};
    for (const auto& r : regions) {
        qv::TEmptyMapRequest q;
        q.LatMin = r.latMin, q.LongMin = r.lonMin, q.LatMax = r.latMax, q.LongMax = r.lonMax;
        q.LatGratDist = q.LongGratDist = r.grat;
        q.Width = 900, q.Height = 700;
        FinishCalibration(qv::WriteEmptyMapFiles((root / "maps" / r.name).string(), q, ".bmp").CalibFile,
                          r.caption, q);
    }
    // World: NASA's picture of the earth at a quarter degree a pixel, and the Vienna scan.
    for (const char* f : {"world.xml", "world.jpg", "calib-vienna.xml", "calib-vienna.bmp"})
        fs::copy_file(samples / f, root / "maps" / f, fs::copy_options::overwrite_existing);
    fs::copy_file(samples / "landmarks-vienna.xml", files.LandmarkFile, fs::copy_options::overwrite_existing);

    {
        qv::TGeoDB db("viewer");
        db.SetGDBName(files.DBName);
        geotool::ImportGeoJSON(ReadText(samples / "db-austria.geojson"), db, {});
    }
    std::ofstream(stamp) << kLayoutStamp << '\n';
    return files;
}

std::string FindSamplesDir(const std::string& ProgramDir)
{
    if (const char* env = std::getenv("QVGEO_SAMPLES"); env && *env)
        return env;
    const fs::path installed = fs::path(ProgramDir) / ".." / "share" / "qvgeo" / "samples";
    if (fs::exists(installed / "calib-vienna.xml"))
        return installed.lexically_normal().string();
    return QVGEO_SOURCE_SAMPLES;
}

}  // namespace viewer
