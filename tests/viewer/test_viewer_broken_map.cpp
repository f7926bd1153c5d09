// The viewer switching to a map whose image file is broken: the loading dialog goes away, the window says
// why, and the map shown before stays.
#include "viewer_window.h"

#include <QCoreApplication>
#include <QProgressDialog>
#include <QStatusBar>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;
using viewer::TViewerWindow;

namespace {

TEST(ViewerBrokenMap, ErrorShowsAndTheLoadEnds)
{
    const fs::path dir = fs::temp_directory_path() / ("qvgeo-viewer-broken-" + std::to_string(QCoreApplication::applicationPid()));
    const viewer::TAtlasFiles files = viewer::PrepareBundledAtlas((dir / "data").string(), QVGEO_SOURCE_DIR "/data/samples");
    // The Vienna calibration, naming a text file as its image.
    std::ifstream in(QVGEO_SOURCE_DIR "/data/samples/calib-vienna.xml", std::ios::binary);
    std::string xml{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    for (std::size_t at; (at = xml.find("map=\"calib-vienna.bmp\"")) != std::string::npos;)
        xml.replace(at, 22, "map=\"broken.jpg\"");
    fs::create_directories(dir / "broken");
    std::ofstream(dir / "broken" / "broken.xml", std::ios::binary) << xml;
    std::ofstream(dir / "broken" / "broken.jpg") << "a note saved under the wrong name\n";
    {
        TViewerWindow w(files);
        w.resize(1000, 720);
        w.show();
        QCoreApplication::processEvents();
        ASSERT_TRUE(w.Atlas().RegisterMap((dir / "broken" / "broken.xml").string()));
        const std::int32_t before = w.Atlas().CurrentMap();
        const std::string name = w.Map().MapImgName();
        EXPECT_FALSE(w.Atlas().SelectMap(w.Atlas().NumRegMaps()));
        QCoreApplication::processEvents();
        EXPECT_TRUE(w.findChildren<QProgressDialog*>().isEmpty());
        const std::string shown = w.statusBar()->currentMessage().toStdString();
        EXPECT_NE(shown.find("broken.jpg\": not a JPEG file"), std::string::npos) << shown;
        EXPECT_EQ(w.Atlas().CurrentMap(), before);
        EXPECT_EQ(w.Map().MapImgName(), name);
    }
    fs::remove_all(dir);
}

}  // namespace
