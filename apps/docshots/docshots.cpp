// Renders the atlas widget for the README: three generated maps of nested rectangles plus the bundled
// Vienna scan, registered from one folder, the Austria map shown with the outlines of the others.
//   qvgeo-docshots SAMPLES_DIR OUT.png
#include <qvgeo/geoatlas/geo_atlas.h>
#include <qvgeo/mapview/empty_map.h>

#include <QApplication>
#include <QImage>
#include <QPixmap>

#include <cstdio>
#include <filesystem>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: qvgeo-docshots SAMPLES_DIR OUT.png\n");
        return 2;
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("qvgeo-docshots-" + std::to_string(QCoreApplication::applicationPid()));
    fs::create_directories(dir);
    try {
        const struct {
            const char* name;
            double latMin, lonMin, latMax, lonMax, grat;
        } maps[] = {{"austria", 46.3, 9.4, 49.1, 17.2, 1.0},
                    {"lower-austria", 47.4, 14.4, 49.1, 17.2, 0.5},
                    {"vienna-region", 47.9, 15.9, 48.5, 16.8, 0.1}};
        for (const auto& m : maps) {
            qv::TEmptyMapRequest r;
            r.LatMin = m.latMin, r.LongMin = m.lonMin, r.LatMax = m.latMax, r.LongMax = m.lonMax;
            r.LatGratDist = r.LongGratDist = m.grat;
            r.Width = 900, r.Height = 700;
            qv::WriteEmptyMapFiles((dir / m.name).string(), r, ".bmp");  // the view loads BMP and JPEG
        }
        for (const char* f : {"calib-vienna.xml", "calib-vienna.bmp"})
            fs::copy_file(fs::path(argv[1]) / f, dir / f, fs::copy_options::overwrite_existing);

        qv::TGeoAtlas atlas;
        atlas.resize(640, 480);
        for (const auto& problem : atlas.RegisterFolder(dir.string()))
            std::fprintf(stderr, "not registered: %s: %s\n", problem.File.c_str(), problem.Reason.c_str());
        atlas.show();
        atlas.SelectMap(1);  // folder order: austria.xml first; the other maps show as outlines on it
        atlas.MapView().ZoomFitPage();
        QCoreApplication::processEvents();
        const bool ok = atlas.grab().toImage().save(QString::fromLocal8Bit(argv[2]));
        fs::remove_all(dir);
        return ok ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qvgeo-docshots: %s\n", e.what());
        fs::remove_all(dir);
        return 1;
    }
}
