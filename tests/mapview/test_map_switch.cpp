// A TGeoMap switched to an image or calibration it cannot show stays exactly as it was.
#include <qvgeo/mapview/geo_map.h>

#include "calibrated_map_files.h"

#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

const fs::path kDir = fs::temp_directory_path() / ("qvgeo_map_switch_" + std::to_string(::getpid()));

std::string In(const std::string& Name) { return (kDir / Name).string(); }

// A calibrated empty map of the rectangle; the calibration names ImageRef (a bare file name beside it).
std::string MakeCalibration(const std::string& Base, double LatMin, double LongMin, double LatMax, double LongMax,
                            const std::string& ImageRef, int W = 300, int H = 200)
{
    return qvtest::WriteCalibratedMap(kDir, Base, LatMin, LongMin, LatMax, LongMax, W, H, 0, ImageRef);
}

void WriteBytes(const std::string& File, const std::string& Bytes)
{
    std::ofstream(File, std::ios::binary | std::ios::trunc) << Bytes;
}

std::string ReadBytes(const std::string& File)
{
    std::ifstream f(File, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

// Everything a switch may change, as the application sees it, but the picture (GrafBmp): a refused
// over-size picture loaded by name stays in it.
auto Look(const TGeoMap& M)
{
    const TCalibData& d = M.CalibData();
    return std::tuple(M.MapImgName(), M.MapWidth(), M.MapHeight(), M.TopLeft(), M.Magnification(), d.Caption, d.MapFName,
                      d.Resolution, d.NumCalQuads, M.CalibModel(), d.Corners[2].Latit, d.Corners[2].Longit,
                      M.AuxBmp().Image().copy());
}

class MapSwitch : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        fs::create_directories(kDir);
        StartCal = MakeCalibration("start", 46, 13, 50, 19, "");
        WriteBytes(In("text.jpg"), "this is a calibration note, not a picture\n");
        SaveJPEG(TBitmap(300, 200), In("whole.jpg"), 80);
        const std::string jpeg = ReadBytes(In("whole.jpg"));
        WriteBytes(In("truncated.jpg"), jpeg.substr(0, jpeg.size() / 2));
        WriteBytes(In("empty.jpg"), "");
        WriteBytes(In("empty.bmp"), "");
        SaveBMP(TBitmap(2001, 1500), In("big.bmp"));
        SaveJPEG(TBitmap(2001, 1500), In("big.jpg"), 50);
        SaveJPEG(TBitmap(600, 1200), In("tall.jpg"), 80);
    }
    static void TearDownTestSuite() { fs::remove_all(kDir); }

    void SetUp() override
    {
        m.SetName("Map1");
        m.resize(200, 150);
        // A map calibrated by points alone: the reader's result (the graticule-line fit) is false.
        m.LoadCalDataFromXML(StartCal, "");
        ASSERT_EQ(std::tuple(m.MapWidth(), m.MapCaption()), std::tuple(300, std::string("start")));
        m.SetMagnification(0.75);
        m.SetTopLeft({20, 10});
        m.OnDataLoading = [this](TGeoMap& Map, TProgressStage Stage, std::int32_t Percent) {
            Stages.push_back(Stage);
            if (Stage == pgRunning && Percent >= CancelAt)
                Map.CancelLoading();
        };
    }

    static inline std::string StartCal;
    TGeoMap m;
    std::vector<TProgressStage> Stages;
    int CancelAt = 1000;
};

struct TBadImage {
    const char* File;
    const char* Message;  // after "Component \"Map1\": "; empty: a cancelled load, no error
    bool Starts;          // whether a load starts (and so must end) in a map switch, which reads the header first
};

const TBadImage kBadImages[] = {
    {"text.jpg", "Cannot load map image \"{}\": not a JPEG file", true},
    {"truncated.jpg", "Cannot load map image \"{}\": corrupt JPEG data", true},
    {"empty.jpg", "Cannot load map image \"{}\": not a JPEG file", true},
    {"empty.bmp", "Cannot load map image \"{}\": not a BMP file", true},
    {"big.bmp", "Cannot use map image, maximum of 3000000 pixels exceeded (size of map is 2001 x 1500)", false},
    {"big.jpg", "Cannot use map image, maximum of 3000000 pixels exceeded (size of map is 2001 x 1500)", false},
    {"tall.jpg", "", true},
};

std::string Expected(const TBadImage& C, const std::string& Path)
{
    std::string text = C.Message;
    const std::size_t at = text.find("{}");
    if (at != std::string::npos)
        text.replace(at, 2, Path);
    return "Component \"Map1\": " + text;
}

// The error message begins with the expected text (the decoder adds its own detail to corrupt data).
void CheckOutcome(const TBadImage& C, const std::string& Path, const std::function<bool()>& Switch)
{
    if (*C.Message == 0) {
        EXPECT_FALSE(Switch()) << C.File;
        return;
    }
    try {
        Switch();
        ADD_FAILURE() << C.File << ": no error";
    } catch (const EXELGeoMapError& e) {
        const std::string want = Expected(C, Path);
        EXPECT_EQ(std::string(e.what()).substr(0, want.size()), want) << C.File;
    }
}

void CheckStages(const std::vector<TProgressStage>& Stages, bool Starts, const std::string& Case)
{
    if (!Starts) {
        EXPECT_TRUE(Stages.empty()) << Case;
        return;
    }
    ASSERT_GE(Stages.size(), 2u) << Case;
    EXPECT_EQ(Stages.front(), pgStarting) << Case;
    EXPECT_EQ(Stages.back(), pgEnding) << Case;
    EXPECT_EQ(std::count(Stages.begin(), Stages.end(), pgEnding), 1) << Case;
}

TEST_F(MapSwitch, BadImageByNameLeavesTheMapAsItWas)
{
    for (const TBadImage& c : kBadImages) {
        const bool overSize = !c.Starts;
        CancelAt = overSize ? 1000 : 40;  // an over-size picture is decoded whole before it is refused
        const auto before = Look(m);
        const QImage picture = m.GrafBmp().Image().copy();
        Stages.clear();
        CheckOutcome(c, In(c.File), [&] {
            m.SetMapImgName(In(c.File));
            return false;
        });
        // Loaded by name outside a map switch, every picture is decoded; one refused for its size then
        // stays in GrafBmp.
        CheckStages(Stages, true, c.File);
        EXPECT_EQ(Look(m), before) << c.File;
        EXPECT_TRUE(overSize ? m.GrafBmp().Width() == 2001 : m.GrafBmp().Image() == picture) << c.File;
    }
    // So does a picture handed over in memory; the view keeps its name, size and screen image.
    const auto before = Look(m);
    EXPECT_THROW(m.SetMapBitMap(TBitmap(2001, 1500)), EXELGeoMapError);
    EXPECT_EQ(Look(m), before);
    EXPECT_EQ(m.GrafBmp().Width(), 2001);
}

TEST_F(MapSwitch, BadImageOfACalibrationLeavesMapAndCalibrationAsTheyWere)
{
    CancelAt = 40;
    for (const TBadImage& c : kBadImages) {
        // Another place, another caption and size: any of it taken would show.
        const std::string cal = MakeCalibration(std::string("to_") + c.File, 10, 20, 12, 23, c.File, 400, 100);
        const auto before = Look(m);
        const QImage picture = m.GrafBmp().Image().copy();
        Stages.clear();
        CheckOutcome(c, In(c.File), [&] { return m.LoadCalDataFromXML(cal, ""); });
        CheckStages(Stages, c.Starts, c.File);
        EXPECT_EQ(Look(m), before) << c.File;
        EXPECT_TRUE(m.GrafBmp().Image() == picture) << c.File;
    }
    // The map still switches to a good one afterwards.
    const std::string good = MakeCalibration("good", 10, 20, 12, 23, "", 400, 100);
    m.LoadCalDataFromXML(good, "");
    EXPECT_EQ(std::tuple(m.MapWidth(), m.MapHeight(), m.MapCaption()), std::tuple(400, 100, std::string("good")));
}

// A reader error after the calibration header (an unknown ellipsoid) also puts the calibration back.
TEST_F(MapSwitch, MalformedCalibrationIsUndone)
{
    const std::string cal = In("malformed.xml");
    std::string text = ReadBytes(MakeCalibration("malformed", 10, 20, 12, 23, "", 400, 100));
    const std::size_t at = text.find("<ellipsoid>");
    ASSERT_NE(at, std::string::npos);
    text.insert(at + 11, "XX");
    WriteBytes(cal, text);
    const auto before = Look(m);
    const QImage picture = m.GrafBmp().Image().copy();
    EXPECT_THROW(m.LoadCalDataFromXML(cal, ""), EXELGeoMapError);
    EXPECT_EQ(Look(m), before);
    EXPECT_TRUE(m.GrafBmp().Image() == picture);
}

// The reader lower-cases the image name; on a case-sensitive file system the map still finds the file
// beside its calibration, as the atlas does, and a name that matches nothing empties the map as before.
TEST_F(MapSwitch, ImageNamedWithCapitalsIsFoundBesideItsCalibration)
{
    struct Case {
        const char* OnDisk;
        const char* Named;
        std::int32_t W;  // 0: not found
    };
    for (const Case& c : {Case{"Sheet.BMP", "Sheet.BMP", 300}, Case{"UPPER.BMP", "upper.bmp", 300},
                          Case{"lower.bmp", "LOWER.BMP", 300}, Case{"other.bmp", "Missing.BMP", 0}}) {
        SaveBMP(TBitmap(300, 120), In(c.OnDisk));
        const std::string cal = MakeCalibration(std::string("case_") + c.OnDisk, 10, 20, 12, 23, c.Named, 300, 120);
        m.LoadCalDataFromXML(cal, "");
        EXPECT_EQ(m.MapWidth(), c.W) << c.Named;
        EXPECT_EQ(m.MapImgName().empty(), c.W == 0) << c.Named;
    }
}

}  // namespace
