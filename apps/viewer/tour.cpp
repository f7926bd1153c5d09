// The tour: the viewer's window rendered offscreen at a few places, each saved as a PNG.
#include "viewer_window.h"

#include <QCoreApplication>
#include <QImage>
#include <QPixmap>

#include <filesystem>

namespace viewer {

std::vector<std::string> RenderTour(const TAtlasFiles& Files, const std::string& OutDir)
{
    namespace fs = std::filesystem;
    fs::create_directories(OutDir);
    TViewerWindow w(Files);
    w.resize(1000, 720);
    w.show();
    std::vector<std::string> written;
    qv::TGeoMap& map = w.Map();
    // Select a map, centre a place at a magnification, show the status for the view's centre, save.
    const auto shot = [&](const char* name, const char* mapLeaf, double lat, double lon, double mag) {
        w.Atlas().SelectMap(w.MapNumber(mapLeaf));
        if (mag > 0) {
            map.SetMagnification(mag);
            map.BringLocationToCenter(lat, lon);
        } else {
            map.ZoomFitPage();
        }
        w.UpdateMapInfo();
        w.UpdatePointer(map.width() / 2, map.height() / 2);
        map.Paint();
        QCoreApplication::processEvents();
        const std::string file = (fs::path(OutDir) / name).string();
        if (w.grab().toImage().save(QString::fromStdString(file)))
            written.push_back(file);
    };
    shot("tour-1-world.png", "world.xml", 20, 10, 0);
    shot("tour-2-austria.png", "austria.xml", 47.7, 13.3, 0);
    shot("tour-3-vienna-region.png", "vienna-region.xml", 48.2, 16.33, 3.0);
    map.SetShowGraticule(qv::sgUTMGrid);
    map.SetUTMGridDist(1000);
    shot("tour-4-utm-grid.png", "calib-vienna.xml", 48.2, 16.37, 1.0);
    return written;
}

}  // namespace viewer
