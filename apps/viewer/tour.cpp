// The tour: the viewer's window rendered offscreen at a few places, each saved as a PNG.
#include "viewer_window.h"

#include <QCoreApplication>
#include <QImage>
#include <QPixmap>

#include <filesystem>

namespace viewer {

std::vector<std::string> RenderTour(const TAtlasFiles& Files, const std::string& OutDir, bool Readable)
{
    namespace fs = std::filesystem;
    fs::create_directories(OutDir);
    TViewerWindow w(Files);
    w.resize(1000, 720);
    w.show();
    w.SetReadableMap(Readable);
    std::vector<std::string> written;
    qv::TGeoMap& map = w.Map();
    // Select a map, centre a place at a magnification (0: the whole map), show the status for the
    // view's centre, save.
    const auto select = [&](const char* mapLeaf, double lat, double lon, double mag) {
        w.Atlas().SelectMap(w.MapNumber(mapLeaf));
        if (mag > 0) {
            map.SetMagnification(mag);
            map.BringLocationToCenter(lat, lon);
        } else {
            map.ZoomFitPage();
        }
    };
    const auto save = [&](const char* name) {
        w.UpdateMapInfo();
        w.UpdatePointer(map.width() / 2, map.height() / 2);
        map.Paint();
        QCoreApplication::processEvents();
        const std::string file = (fs::path(OutDir) / name).string();
        if (w.grab().toImage().save(QString::fromStdString(file)))
            written.push_back(file);
    };
    select("world.xml", 20, 10, 0);
    save("tour-1-world.png");
    select("austria.xml", 47.7, 13.3, 0);
    save("tour-2-austria.png");
    select("vienna-region.xml", 48.2, 16.33, 3.0);
    save("tour-3-vienna-region.png");
    map.SetShowGraticule(qv::sgUTMGrid);
    map.SetUTMGridDist(1000);
    select("calib-vienna.xml", 48.2, 16.37, 1.0);
    save("tour-4-utm-grid.png");

    // A calibration made by hand on the Vienna region map: seven pixels with their true places (from
    // the generated map's own fit), but the place of point 5 typed 0.02 degrees (2.2 km) too far north.
    map.SetShowGraticule(qv::sgLines);
    select("vienna-region.xml", 48.2, 16.35, 0);
    const std::pair<int, int> pixels[] = {{90, 80}, {800, 100}, {450, 340}, {110, 610}, {560, 560}, {790, 620}, {300, 230}};
    std::vector<qv::TCoords> places;
    for (const auto& [x, y] : pixels) {
        bool v1 = false, v2 = false;
        places.push_back({map.CalcLatitude(x, y, v1), map.CalcLongitude(x, y, v2)});
    }
    places[4].Latit += 0.02;
    TCalibEditor& editor = w.CalibEditor();
    editor.show();
    editor.ClearPoints();
    editor.SetModel(qv::cmEquiRect);
    for (std::size_t i = 0; i < places.size(); ++i)
        editor.AddPoint(pixels[i].first, pixels[i].second, places[i].Latit, places[i].Longit);
    map.ZoomFitPage();
    save("tour-5-calibration.png");
    // Europe's capitals on the world map at x5.6, where Rome, the Vatican and their neighbours crowd.
    editor.hide();
    select("world.xml", 44.0, 12.5, 5.6);
    save("tour-6-europe.png");
    return written;
}

}  // namespace viewer
