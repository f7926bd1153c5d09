// TMapCatalogue without any GUI: which map a zoom or a wanted resolution takes (steps, ties, edges, bad
// resolutions), registration by file name without case, the 200-map limit, removal and its slots, and
// folder registration with its reports and progress.
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/map_catalogue.h>
#include <qvgeo/support/text.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <unistd.h>

namespace qv {
namespace {

namespace fs = std::filesystem;

const fs::path kDir = fs::temp_directory_path() / ("qvgeo_map_catalogue_" + std::to_string(::getpid()));
constexpr double kLat = 48.2, kLon = 16.4;

// A calibration file Dir/Name holding only what the catalogue reads: caption, corners of the rectangle,
// resolution.
std::string WriteMap(const std::string& Name, const std::string& Caption, double LatMin, double LongMin, double LatMax,
                     double LongMax, double Resolution)
{
    TCalibData d;
    d.MapFName = "x.bmp";
    d.Caption = Caption;
    d.Corners = {TCoords{LatMax, LongMin}, TCoords{LatMin, LongMin}, TCoords{LatMin, LongMax}, TCoords{LatMax, LongMax}};
    d.Resolution = Resolution;
    fs::create_directories(kDir);
    const fs::path p = kDir / Name;
    std::ofstream out(p, std::ios::trunc);
    WriteRawCalDataToOpenXMLFile(out, true, "m", d, cmEquiRect);
    return p.string();
}

class Catalogue : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // 1 at 100, 2 at 50, 3 at 45, 4 at 10 metres per pixel around (kLat, kLon); 5 elsewhere at 20.
        M = {WriteMap("Austria.xml", "Austria", 46, 13, 50, 19, 100), WriteMap("Lower.xml", "Lower", 47.5, 15.5, 48.8, 17.2, 50),
             WriteMap("Vienna.xml", "Vienna", 48.0, 16.0, 48.5, 16.8, 45), WriteMap("Centre.xml", "Centre", 48.1, 16.3, 48.3, 16.5, 10),
             WriteMap("Elsewhere.xml", "", 10, 10, 11, 11, 20)};
    }
    static void TearDownTestSuite() { fs::remove_all(kDir); }
    void RegisterFive()
    {
        for (std::size_t i = 0; i < M.size(); ++i)
            ASSERT_EQ(c.Register(M[i]), static_cast<std::int32_t>(i + 1));
    }
    static inline std::vector<std::string> M;
    TMapCatalogue c;
};

TEST_F(Catalogue, ZoomChoices)
{
    EXPECT_EQ(c.ChooseFiner(kLat, kLon, 100) + c.ChooseCoarser(kLat, kLon, 10) + c.ChooseBest(kLat, kLon, 50), 0);
    RegisterFive();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case { bool Finer; double Lat, Long, Res, MinResDiff; int Map; };
    const Case cases[] = {
        {true, kLat, kLon, 100, 10, 2},   // the smallest step in: 50
        {true, kLat, kLon, 50, 10, 4},    // 45 is exactly 10 % finer, not more
        {true, kLat, kLon, 50, 9.9, 3},   // ... but more than 9.9 %
        {true, kLat, kLon, 1000, 95, 3},  // 45 is 95.5 % finer than 1000
        {true, kLat, kLon, 1000, 96, 4},  // only 10 is more than 96 % finer
        {true, kLat, kLon, 1000, 0, 1},   // any step counts
        {true, kLat, kLon, 10, 10, 0},    // nothing finer than the finest
        {true, kLat, kLon, 0, 10, 0},     // no current resolution: -inf and NaN steps never qualify
        {true, kLat, kLon, nan, 10, 0},
        {true, 48.3, kLon, 50, 10, 0},    // on map 4's top edge: outside it
        {true, 48.29, kLon, 50, 10, 4},
        {true, 10.5, 10.5, 100, 10, 5},   // elsewhere: the one map there
        {true, 20.0, kLon, 100, 10, 0},   // no map covers the place
        {false, kLat, kLon, 10, 10, 3},   // the smallest step out: 45
        {false, kLat, kLon, 45, 10, 2},   // however little coarser
        {false, kLat, kLon, 49.999, 10, 2},
        {false, kLat, kLon, 50, 10, 1},   // equal is no step
        {false, kLat, kLon, 100, 10, 0},
        {false, kLat, kLon, nan, 10, 0},
        {false, 48.35, kLon, 0, 10, 3},   // outside map 4, inside 1, 2, 3
    };
    for (const Case& k : cases)
        EXPECT_EQ(k.Finer ? c.ChooseFiner(k.Lat, k.Long, k.Res, k.MinResDiff) : c.ChooseCoarser(k.Lat, k.Long, k.Res), k.Map)
            << (k.Finer ? "finer " : "coarser ") << k.Lat << " " << k.Res << " " << k.MinResDiff;
    EXPECT_EQ(c.ChooseFiner(kLat, kLon, 50), 4);  // MinResDiff 10 unless told

    // The wanted resolution: the coarsest at most it, else the finest coarser one.
    const std::pair<double, int> best[] = {{47, 3}, {45, 3}, {50, 2}, {49.99, 3}, {5, 4}, {1000, 1}, {0, 4}};
    for (auto [res, map] : best)
        EXPECT_EQ(c.ChooseBest(kLat, kLon, res), map) << res;
    EXPECT_EQ(c.ChooseBest(-40, kLon, 50), 0);
}

TEST_F(Catalogue, TiesGoToTheLowerNumber)
{
    RegisterFive();
    // Copies of maps 2 and 3 as 6 and 7: same resolutions, same places.
    fs::copy_file(M[1], kDir / "lower2.xml", fs::copy_options::overwrite_existing);
    fs::copy_file(M[2], kDir / "vienna2.xml", fs::copy_options::overwrite_existing);
    ASSERT_EQ(c.Register((kDir / "lower2.xml").string()), 6);
    ASSERT_EQ(c.Register((kDir / "vienna2.xml").string()), 7);
    EXPECT_EQ(c.ChooseFiner(kLat, kLon, 100), 2);
    EXPECT_EQ(c.ChooseCoarser(kLat, kLon, 10), 3);
    EXPECT_EQ(c.ChooseBest(kLat, kLon, 46), 3);
    // With the originals gone the copies (now 4 and 5) are chosen.
    c.Unregister(3);
    c.Unregister(2);
    EXPECT_EQ(c.ChooseFiner(kLat, kLon, 100), 4);
    EXPECT_EQ(c.ChooseCoarser(kLat, kLon, 10), 5);
}

TEST_F(Catalogue, RegistrationByNameWithoutCase)
{
    RegisterFive();
    EXPECT_EQ(c.Count(), 5);
    const TMapDefinition d = c.GetMapDef(2);
    EXPECT_EQ(d.MapFName, LowerCase(M[1]));
    EXPECT_EQ(d.Caption, "Lower");
    EXPECT_EQ(d.Resolution, 50.0);
    const TCornerArray corners = {TCoords{48.8, 15.5}, TCoords{47.5, 15.5}, TCoords{47.5, 17.2}, TCoords{48.8, 17.2}};
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(d.Corners[k].Latit == corners[k].Latit && d.Corners[k].Longit == corners[k].Longit) << k;
    EXPECT_EQ(c.FileName(2), M[1]);
    EXPECT_EQ(c.ListLine(2), "Lower");
    EXPECT_EQ(c.ListLine(5), LowerCase(M[4]));  // no caption: the file name
    EXPECT_EQ(c.ListLine(6) + c.ListLine(0), "");

    // The same file by another spelling updates map 1 (the file now has another caption and resolution).
    WriteMap("AUSTRIA.XML", "Austria again", 46, 13, 50, 19, 120);
    fs::copy_file(kDir / "AUSTRIA.XML", M[0], fs::copy_options::overwrite_existing);
    const std::string upper = (kDir / "AUSTRIA.XML").string();
    EXPECT_EQ(c.Find(upper), 1);
    EXPECT_EQ(c.Register(upper), 1);
    EXPECT_EQ(c.Count(), 5);
    EXPECT_EQ(c.GetMapDef(1).Caption + " " + c.GetMapDef(1).MapFName, "Austria again " + LowerCase(M[0]));
    EXPECT_EQ(c.FileName(1), upper);  // opened by the name last registered
    EXPECT_EQ(c.ChooseCoarser(kLat, kLon, 100), 1);
    fs::remove(kDir / "AUSTRIA.XML");
    WriteMap("Austria.xml", "Austria", 46, 13, 50, 19, 100);

    // Refusals: nothing changes, and the reason is told.
    std::ofstream(kDir / "notes.xml") << "<?xml version=\"1.0\"?>\n<notes>nothing here</notes>\n";
    std::ofstream(kDir / "bad.xml") << "<?xml version=\"1.0\"?>\n<geomap sig=\"Quorvanta\" id=\"x\">\n"
                                       "<calline type=\"diagonal\" value=\"1\" npoints=\"1\">\n[1,2]\n</calline>\n";
    const std::pair<fs::path, std::string> refused[] = {
        {kDir / "none.xml", "cannot be opened"},
        {kDir / "notes.xml", "holds no calibration"},
        {kDir / "bad.xml", "ParseCalibData: invalid type of graticule line: type=\"diagonal"}};
    for (const auto& [file, reason] : refused) {
        std::string why = "(unchanged)";
        EXPECT_EQ(c.Register(file.string(), &why), 0) << file;
        EXPECT_EQ(why.substr(0, reason.size()), reason) << file;
        EXPECT_EQ(c.Register(file.string()), 0) << file;  // without a place for the reason
    }
    EXPECT_EQ(c.Count(), 5);
    EXPECT_EQ(c.Find((kDir / "notes.xml").string()) + c.Find(""), 0);
}

TEST_F(Catalogue, TwoHundredMapsAtMost)
{
    for (int i = 1; i <= MaxAtlasMaps; ++i) {
        const fs::path p = kDir / ("m" + std::to_string(i) + ".xml");
        fs::copy_file(M[4], p, fs::copy_options::overwrite_existing);
        ASSERT_EQ(c.Register(p.string()), i);
    }
    std::string why;
    EXPECT_EQ(c.Register(M[0], &why), 0);
    EXPECT_EQ(why, "the atlas holds 200 maps already");
    EXPECT_EQ(c.Register((kDir / "m7.xml").string(), &why), 7);  // an update still fits
    EXPECT_EQ(c.Count(), MaxAtlasMaps);
    EXPECT_EQ(c.GetMapDef(200).MapFName, LowerCase((kDir / "m200.xml").string()));
    EXPECT_EQ(c.ChooseCoarser(10.5, 10.5, 10), 1);  // two hundred ties
}

TEST_F(Catalogue, RemovalAndSlots)
{
    RegisterFive();
    const std::string last = c.GetMapDef(5).MapFName, lastFile = c.FileName(5);
    for (int bad : {0, 6, -1, 201})
        EXPECT_FALSE(c.Unregister(bad)) << bad;
    EXPECT_EQ(c.Count(), 5);
    EXPECT_TRUE(c.Unregister(2));
    EXPECT_EQ(c.Count(), 4);
    const std::string order = c.ListLine(1) + "," + c.ListLine(2) + "," + c.ListLine(3) + "," + c.ListLine(4);
    EXPECT_EQ(order, "Austria,Vienna,Centre," + last);
    // The former last slot keeps its copy; the slots never used are empty; outside the capacity, empty.
    EXPECT_EQ(c.GetMapDef(5).MapFName, last);
    EXPECT_EQ(c.FileName(5), lastFile);
    EXPECT_EQ(c.GetMapDef(6).MapFName + c.FileName(200), "");
    for (int i : {0, 201, -5}) {
        const TMapDefinition d = c.GetMapDef(i);
        EXPECT_EQ(d.MapFName + d.Caption + c.FileName(i), "") << i;
        EXPECT_EQ(d.Resolution, 0.0) << i;
    }
    // The slot above Count takes no part in choices.
    EXPECT_EQ(c.ChooseCoarser(10.5, 10.5, 1), 4);
    EXPECT_TRUE(c.Unregister(4));
    EXPECT_EQ(c.ChooseCoarser(10.5, 10.5, 1), 0);

    // HoldsCalibration reads the file again.
    EXPECT_TRUE(c.HoldsCalibration(1));
    EXPECT_FALSE(c.HoldsCalibration(4));  // above Count
    const fs::path copy = kDir / "gone.xml";
    fs::copy_file(M[3], copy, fs::copy_options::overwrite_existing);
    const std::int32_t n = c.Register(copy.string());
    ASSERT_EQ(n, 4);
    fs::remove(copy);
    EXPECT_FALSE(c.HoldsCalibration(n));
}

TEST_F(Catalogue, FolderInNameOrderWithReports)
{
    const fs::path dir = kDir / "folder";
    fs::create_directories(dir);
    fs::copy_file(M[1], dir / "B.XML", fs::copy_options::overwrite_existing);
    fs::copy_file(M[0], dir / "a.xml", fs::copy_options::overwrite_existing);
    fs::copy_file(M[3], dir / "d.Xml", fs::copy_options::overwrite_existing);
    std::ofstream(dir / "c.xml") << "<?xml version=\"1.0\"?>\n<notes>nothing here</notes>\n";
    std::ofstream(dir / "e.txt") << "not looked at";
    fs::create_directories(dir / "sub.xml");  // a folder is no file

    std::string log;
    const auto progress = [&](std::int32_t Done, std::int32_t Total) {
        log += "p" + std::to_string(Done) + "/" + std::to_string(Total) + " ";
        return true;
    };
    const auto registered = [&](std::int32_t Index) { log += "r" + std::to_string(Index) + " "; };
    const std::vector<TAtlasFileProblem> expected = {{(dir / "c.xml").string(), "holds no calibration"}};
    EXPECT_EQ(c.RegisterFolder(dir.string(), progress, registered), expected);
    EXPECT_EQ(log, "p0/4 r1 p1/4 r2 p2/4 p3/4 r3 p4/4 ");
    EXPECT_EQ(c.ListLine(1) + c.ListLine(2) + c.ListLine(3), "AustriaLowerCentre");
    EXPECT_EQ(c.FileName(2), (dir / "B.XML").string());

    // Again, stopped before the third file: the first two are updates, nothing after them is looked at.
    log.clear();
    const auto stop = [&](std::int32_t Done, std::int32_t Total) { return progress(Done, Total) && Done < 2; };
    EXPECT_TRUE(c.RegisterFolder(dir.string(), stop, registered).empty());
    EXPECT_EQ(log, "p0/4 r1 p1/4 r2 p2/4 ");
    EXPECT_EQ(c.Count(), 3);

    const auto missing = c.RegisterFolder((kDir / "none").string());
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(missing[0].File, (kDir / "none").string());
    EXPECT_EQ(missing[0].Reason.substr(0, 23), "cannot list the folder:");
}

}  // namespace
}  // namespace qv
