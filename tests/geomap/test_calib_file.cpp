// The calibration file: byte-exact output, read-back equality, the readers' documented quirks and hostile
// input (which must give a clear error or a documented fallback, never a crash or an overrun).
#include "error_text.h"
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace qv {
namespace {

// The example calibration: a UTM map of Vienna with two quads.
TCalibData ViennaData()
{
    TCalibData d{.MapFName = "c:\\maps\\vienna.bmp", .Caption = "Vienna",
                 .Corners = {TCoords{48.3, 16.2}, TCoords{48.1, 16.2}, TCoords{48.1, 16.5}, TCoords{48.3, 16.5}},
                 .Resolution = 12.5, .NumCalQuads = 2, .UTMZone = 33};  // northern, WGS 84
    d.CalQuads[0] = TCalQuad{5340000.0, 600000.0, 10, 20};
    d.CalQuads[1] = TCalQuad{5330000.0, 610000.0, 810, 820};
    return d;
}

const char* const kViennaFile =
    "<?xml version=\"1.0\"?>\n\n<!-- TGeoMap Calibration / Quorvanta -->\n"
    "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"1\" model=\"utm\" map=\"c:\\maps\\vienna.bmp\" caption=\"Vienna\">\n"
    "<corners>\n[48.30000,16.20000] [48.10000,16.20000] [48.10000,16.50000] [48.30000,16.50000] \n</corners>\n"
    "<resolution>12.500</resolution>\n<utmzone>33</utmzone>\n<utmsouth>FALSE</utmsouth>\n"
    "<ellipsoid>gelWGS84</ellipsoid>\n<calquads npoints=\"2\">\n"
    "[5340000.00000,600000.00000,10,20] [5330000.00000,610000.00000,810,820] \n</calquads>\n</geomap>\n";

std::string Written(const TCalibData& d, TCalibModel m, bool header = true, std::string_view id = "1")
{
    std::ostringstream s;
    WriteRawCalDataToOpenXMLFile(s, header, id, d, m);
    return s.str();
}

bool Parse(const std::string& text, std::string_view id, TCalibData& d, TCalibModel& m)
{
    std::istringstream in(text);
    return ParseCalibData(in, id, d, m);
}

TMapCalibration NamedMap()
{
    TMapCalibration cal;
    cal.SetComponentName("GeoMap1");
    return cal;
}

bool Load(TMapCalibration& cal, const std::string& text, std::string_view id)
{
    std::istringstream in(text);
    return cal.LoadCalDataFromXML(in, id);
}

std::string Repeat(const std::string& s, int n)
{
    std::string r;
    for (int i = 0; i < n; ++i)
        r += s;
    return r;
}

const std::string kHead = "<geomap sig=\"Quorvanta\" id=\"1\">\n";

TEST(CalibFile, WriterOutput)
{
    EXPECT_EQ(Written(ViennaData(), cmUTM), kViennaFile);
    // Without the header the file starts with the empty line.
    EXPECT_EQ(Written(ViennaData(), cmUTM, false), std::string(kViennaFile).substr(22));
    TCalibData d = ViennaData();
    d.Resolution = 0.0;
    d.UTMZone = 60;
    d.NumCalQuads = 0;
    d.Ellipsoid = gelBess41;
    const std::string s = Written(d, cmEquiRect);
    for (const char* absent : {"<resolution>", "<utmzone>", "<calquads"})
        EXPECT_EQ(s.find(absent), std::string::npos) << absent;
    d.Ellipsoid = static_cast<TGeoEllipsoid>(200);
    EXPECT_EQ(ErrorOf([&] { Written(d, cmEquiRect); }), "WriteRawCalDataToOpenXMLFile: invalid ellipsoid ordinal 200");
    // Graticule lines are written with their points; a negative zero corner is written as zero.
    d = TCalibData{};
    d.NumCalLines = 2;
    d.CalLines[0] = TCalibLine{gtlParallel, 48.5, 3, {TPoint{1, 2}, TPoint{3, 4}, TPoint{-5, 6}}};
    d.CalLines[1] = TCalibLine{gtlMeridian, 16.0, 1, {TPoint{7, 8}}};
    d.Corners[gcoTopLeft] = TCoords{-0.000001, -0.5};
    const std::string lines = Written(d, cmParabolicIp);
    EXPECT_NE(lines.find("[0.00000,-0.50000] [0.00000,0.00000] "), std::string::npos);
    EXPECT_NE(lines.find("<calline type=\"parallel\" value=\"48.5\" npoints=\"3\">\n[1,2] [3,4] [-5,6] \n</calline>\n"
                     "<calline type=\"meridian\" value=\"16\" npoints=\"1\">\n[7,8] \n</calline>\n</geomap>\n"),
              std::string::npos)
        << lines;
}

TEST(CalibFile, NumberFormatsAndTheLocalesSeparator)
{
    struct Case { double v; const char *f5, *g; };
    const Case cases[] = {
        {48.208333, "48.20833", "48.208333"}, {-0.5, "-0.50000", "-0.5"}, {-2e-7, "0.00000", "-2E-7"},
        {1e20, "100000000000000000000.00000", "1E20"}, {123456789.123456789, "123456789.12346", "123456789.123457"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FormatF5(c.v), c.f5) << c.v;
        EXPECT_EQ(FormatG(c.v), c.g) << c.v;
    }
    EXPECT_EQ(FormatF3(0.0005), "0.001");  // 0.0005 is stored just above one half of the last digit
    // FormatG follows the locale's decimal separator.
    const std::string old = std::setlocale(LC_NUMERIC, nullptr);
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8") && !std::setlocale(LC_NUMERIC, "de_DE"))
        GTEST_SKIP() << "no comma locale installed";
    const std::string g = FormatG(16.5);
    std::setlocale(LC_NUMERIC, old.c_str());
    EXPECT_EQ(g, "16,5");
}

TEST(CalibFile, CommaDecimalsAndExponentsAreReadWhereAllowed)
{
    const std::string text =
        "<geomap sig=\"Quorvanta\" id=\"x\" model=\"parabolicip\">\n"
        "<corners>\n[48,5;16.25] [4.8E1,1,6e1] [-1.5e+1,2] \n</corners>\n"
        "<resolution>1,25E1</resolution>\n"
        "<calline type=\"Parallel\" value=\"16,5\" npoints=\"3\">\n[1,2] [ 3, -4] [+5,6]\n</calline>\n"
        "<calquads npoints=\"2\">\n[48,5,16.5,1,2] [1.5E2,2.5,3,4]\n</calquads>\n"
        "</geomap>\n";
    TCalibData d;
    TCalibModel m = cmUndefined;
    ASSERT_TRUE(Parse(text, "", d, m));
    EXPECT_EQ(m, cmParabolicIp);
    EXPECT_EQ(d.Corners[0].Latit, 48.0);  // the item is split at its first comma
    EXPECT_EQ(d.Corners[1], (TCoords{48.0, 16.0}));  // "1,6e1": a comma decimal with an exponent
    EXPECT_EQ(d.Corners[2].Latit, -15.0);
    EXPECT_EQ(d.Resolution, 12.5);
    ASSERT_EQ(d.NumCalLines, 1);
    EXPECT_EQ(d.CalLines[0], (TCalibLine{gtlParallel, 16.5, 3, {TPoint{1, 2}, TPoint{3, -4}, TPoint{5, 6}}}));
    // Quads accept neither commas nor exponents in their latitude and longitude.
    ASSERT_EQ(d.NumCalQuads, 2);
    EXPECT_EQ(d.CalQuads[0], (TCalQuad{48.0, 5.0, 16, 1}));
    EXPECT_EQ(d.CalQuads[1], (TCalQuad{1.5, 2.5, 3, 4}));
}

TEST(CalibFile, ParseReadsBackWhatWasWrittenForEveryModelAndLineEnd)
{
    TCalibData d = ViennaData();
    d.NumCalLines = 3;
    d.CalLines[0] = TCalibLine{gtlParallel, 48.125, 3, {TPoint{1, 2}, TPoint{3, 4}, TPoint{5, 6}}};
    d.CalLines[1] = TCalibLine{gtlMeridian, -16.75, 1, {TPoint{7, 8}}};
    d.CalLines[2] = TCalibLine{gtlMeridian, 17.0, 2, {TPoint{9, 10}, TPoint{11, 12}}};  // the map reader drops it
    d.UTMSouth = true;
    d.Ellipsoid = gelNahrwan29;
    d.Caption = "  Wien Süd & <Umgebung>\t";  // written as it is: no escaping, blanks kept
    for (int m = 0; m < NumCalibModels; ++m)
        for (bool crlf : {false, true}) {
            SCOPED_TRACE(testing::Message() << m << (crlf ? " CRLF" : ""));
            const std::string text = Written(d, static_cast<TCalibModel>(m), true, " Map-7 ");
            std::string read = text;
            for (std::size_t i = 0; crlf && (i = read.find('\n', i)) != std::string::npos; i += 2)
                read.insert(i, 1, '\r');
            TCalibData back;
            TCalibModel model = cmUndefined;
            EXPECT_FALSE(Parse(read, " map-7 ", back, model));  // the header's id is trimmed, the requested one not
            ASSERT_TRUE(Parse(read, "MAP-7", back, model));
            EXPECT_EQ(model, static_cast<TCalibModel>(m));
            EXPECT_EQ(back, d);
        }
}

TEST(CalibFile, MapReaderQuirks)
{
    TCalibData d = ViennaData();
    d.MapFName = "Maps/Vienna.BMP";
    d.Caption = " Wien MITTE ";
    d.NumCalLines = 1;
    d.CalLines[0] = TCalibLine{gtlParallel, 48.0, 2, {TPoint{1, 2}, TPoint{3, 4}}};
    const std::string text = Written(d, cmParabolicIp);

    TMapCalibration cal = NamedMap();
    cal.SetCalibModel(cmEquiRect);
    // Only the model keywords of the five fitted models select a model here: parabolicip gives cmUndefined.
    // The result is RecalcGratMat's: false without two fitted lines of each kind. An owner reads in two
    // steps and loads the image the record names (requested) between them.
    std::istringstream in(text);
    const TMapCalibration::TReadResult read = cal.ReadCalibrationRecord(in, "");
    const std::string requested = cal.CalibData().MapFName;
    cal.FinishReading();
    EXPECT_TRUE(read.Found);
    EXPECT_FALSE(read.GratOK);
    EXPECT_EQ(cal.CalibModel(), cmUndefined);
    EXPECT_EQ(requested, "maps/vienna.bmp");
    EXPECT_EQ(cal.CalibData().Caption, " Wien MITTE ");
    EXPECT_EQ(cal.CalibData().NumCalLines, 0);  // npoints="2": dropped here, kept by ParseCalibData
    EXPECT_EQ(cal.CalibData().Corners, d.Corners);  // corners and resolution as read, not recomputed
}

TEST(CalibFile, HeaderRecognitionAndWhatAHeaderClears)
{
    const std::string body = "<corners>\n[1,2] [3,4] [5,6] [7,8] \n</corners>\n</geomap>\n";
    struct Case { const char* header; bool found; };
    const Case cases[] = {
        {"<GEOMAP SIG=\"QUORVANTA\" id=\"1\">\n", true},
        {"  <geomap id=\"1\" note=\"quorvanta\">\n", true},      // the signature may stand anywhere
        {"<geomap sig=\"Quorvanta\"\n id=\"1\">\n", false},      // split over two lines
        {"<!-- quorvanta --> <geomaps id=\"1\">\n", true},        // a plain text test, not a parser
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.header);
        TCalibData d;
        TCalibModel m = cmUndefined;
        EXPECT_EQ(Parse(std::string(c.header) + body, "1", d, m), c.found);
        if (c.found) {
            EXPECT_EQ(m, cmBiquadraticPn);  // no model attribute
            EXPECT_EQ(d.Corners[3], (TCoords{7, 8}));
        }
    }
    // A matching header clears only the line count of the record.
    TCalibData d = ViennaData();
    d.NumCalLines = 5;
    TCalibModel m = cmUndefined;
    ASSERT_TRUE(Parse("<geomap quorvanta model=\"nonsense\">\n<resolution>3</resolution></geomap>", "", d, m));
    EXPECT_EQ(m, cmUndefined);  // an unknown keyword
    TCalibData expect = ViennaData();
    expect.MapFName = expect.Caption = "";  // attributes of the header: absent gives empty
    expect.Resolution = 3.0;
    EXPECT_EQ(d, expect);
}

TEST(CalibFile, StreamWriterDifferences)
{
    TMapCalibration cal = NamedMap();
    cal.SetCalibModel(cmEquiRect);
    cal.SetUTMZone(33);
    cal.CalibData().Caption = "C";
    std::ostringstream s;
    cal.SaveCalDataAsXML(s, "id1");
    EXPECT_EQ(s.str(),
              "<?xml version=\"1.0\"?>\n\n<!-- TGeoMap Calibration / Quorvanta -->\n"
              "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"id1\" model=\"equirect\" map=\"\" caption=\"C\">\n"
              "<corners>\n[0.00000,0.00000] [0.00000,0.00000] [0.00000,0.00000] [0.00000,0.00000] \n</corners>\n"
              "<resolution>0.000</resolution>\n"
              "<calquads npoints=\"0\">\n\n</calquads>\n"
              "</geomap>\n");
}

TEST(CalibFile, FileWriterAndLoaderRoundTripAndWriteFailures)
{
    const auto dir = std::filesystem::temp_directory_path() / "qvgeo_calib_file_test";
    std::filesystem::create_directories(dir);
    const std::string fname = (dir / "round.xml").string();
    TMapCalibration cal = NamedMap();
    cal.SetImageSize(600, 400);
    cal.SetCalibModel(cmMillerCylindrical);
    cal.AddCalibPoint(40.0, 10.0, 0, 400);
    cal.AddCalibPoint(50.0, 10.0, 0, 0);
    cal.AddCalibPoint(45.0, 20.0, 600, 200);
    cal.SaveCalDataAsXML(fname, "m");

    TMapCalibration back = NamedMap();
    back.SetImageSize(600, 400);
    EXPECT_FALSE(back.LoadCalDataFromXML(fname, "M"));
    EXPECT_EQ(back.CalibModel(), cmMillerCylindrical);
    EXPECT_EQ(back.MillercylPar(), cal.MillercylPar());
    EXPECT_FALSE(back.LoadCalDataFromXML((dir / "missing.xml").string(), ""));
    const std::string bad = (dir / "no" / "such" / "dir.xml").string();
    EXPECT_EQ(ErrorOf([&] { cal.SaveCalDataAsXML(bad, "m"); }), "Component \"GeoMap1\": cannot create file \"" + bad + "\"");
    std::filesystem::remove_all(dir);
    std::ostream broken(nullptr);  // no buffer: every write fails
    EXPECT_EQ(ErrorOf([&] { WriteRawCalDataToOpenXMLFile(broken, true, "1", ViennaData(), cmUTM); }),
              "WriteRawCalDataToOpenXMLFile: the calibration could not be written");
    EXPECT_EQ(ErrorOf([&] { cal.SaveCalDataAsXML(broken, "1"); }),
              "Component \"GeoMap1\": the calibration could not be written to the stream");
}

TEST(CalibFile, TheBundledSampleLoadsWithItsImage)
{
    const std::string dir = std::string(QVGEO_SOURCE_DIR) + "/data/samples/";
    struct Case { const char* id; TCalibModel parsed, mapModel; int lines, quads; };
    const Case cases[] = {{"utm", cmUTM, cmUTM, 0, 6}, {"geo", cmEquiRect, cmEquiRect, 0, 6},
                          {"grat", cmParabolicIp, cmUndefined, 8, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        TCalibData d;
        TCalibModel m = cmUndefined;
        ASSERT_TRUE(ParseCalibData(dir + "calib-vienna.xml", c.id, d, m));
        EXPECT_EQ(m, c.parsed);
        EXPECT_EQ(std::pair(d.NumCalLines, d.NumCalQuads), std::pair(c.lines, c.quads));
        // An object without an owner loads the named image relative to the working directory; an owner
        // that resolves names beside the calibration file gets the sheet and pushes its size.
        TMapCalibration cal = NamedMap();
        std::int32_t w = 0, h = 0;
        std::ifstream file(dir + "calib-vienna.xml", std::ios::binary);
        const TMapCalibration::TReadResult read = cal.ReadCalibrationRecord(file, c.id);
        ASSERT_TRUE(ReadImageSize(dir + cal.CalibData().MapFName, w, h));
        cal.SetImageSize(w, h);
        cal.FinishReading();
        EXPECT_EQ(read.GratOK, c.lines > 0);
        EXPECT_EQ(cal.CalibModel(), c.mapModel);
        cal.ImageSize(w, h);
        EXPECT_EQ(std::pair(w, h), std::pair(800, 600));
    }
    // Without an owner the object reads the size from the image's header itself.
    TMapCalibration own = NamedMap();
    own.SetMapImgName(dir + "calib-vienna.bmp");
    std::int32_t w = 0, h = 0;
    own.ImageSize(w, h);
    EXPECT_EQ(std::pair(w, h), std::pair(800, 600));
    EXPECT_EQ(own.ImageName(), dir + "calib-vienna.bmp");
    own.SetMapImgName(dir + "no-such-image.bmp");
    own.ImageSize(w, h);
    EXPECT_EQ(std::pair(w, h), std::pair(0, 0));
    EXPECT_EQ(own.ImageName(), "");
    // The image beside its calibration: the leaf of any named path, the file's own case when the reader
    // lower-cased it, the exact-case path when nothing matches.
    const std::string cal = dir + "calib-vienna.xml";
    for (const auto& [named, found] : {std::pair("c:\\scans\\calib-vienna.bmp", "calib-vienna.bmp"),
                                       std::pair("CALIB-Vienna.BMP", "calib-vienna.bmp"), std::pair("none.bmp", "none.bmp")})
        EXPECT_EQ(FindImageBeside(cal, named), dir + found) << named;
}

TEST(CalibFile, BadContentAndExceededLimitsRaiseTheDocumentedMessages)
{
    const std::string count = "specified number of calibration points and actual number does not match";
    const std::string line3 = "<calline type=\"meridian\" value=\"1\" npoints=\"3\">\n[1,2] [3,4] [5,6]\n</calline>\n";
    const std::pair<std::string, std::string> cases[] = {
        {"<calline type=\"Diagonal\" value=\"1\" npoints=\"0\">\n</calline>",
         "invalid type of graticule line: type=\"Diagonal"},
        {"<calline type=\"meridian\" value=\"1\" npoints=\"3\">\n[1,2] [3,4]\n</calline>", count},
        {"<calquads npoints=\"1\">\n[1,2,3,4] [5,6,7,8]\n</calquads>", count},
        {"<calquads npoints=\"-1\">\n</calquads>", count},
        {"<calquads npoints=\"2\">\n[1,2,3,4] [5,6,7,8\n</calquads>", count},  // a missing bracket
        {"<ellipsoid>gelWGS85</ellipsoid>", "unknown ellipsoid identifier \"gelWGS85\""},
        {Repeat(line3, 26), "more than 25 graticule lines"},
        {"<calline type=\"meridian\" value=\"1\" npoints=\"11\">\n" + Repeat("[1,2] ", 11) + "\n</calline>\n",
         "more than 10 points on a graticule line"},
        {"<calquads npoints=\"201\">\n" + Repeat("[1.0,2.0,3,4] ", 201) + "\n</calquads>\n",
         "more than 200 calibration quads"},
    };
    for (const auto& [body, msg] : cases) {
        SCOPED_TRACE(body.substr(0, 60));
        const std::string text = kHead + body + "\n</geomap>\n";
        TMapCalibration cal = NamedMap();
        EXPECT_EQ(ErrorOf([&] { Load(cal, text, ""); }), "Component \"GeoMap1\": " + msg);
        TCalibData d;
        TCalibModel m;
        EXPECT_EQ(ErrorOf([&] { Parse(text, "", d, m); }), "ParseCalibData: " + msg);
    }
    // Exactly at the limits everything loads; corner items beyond the fourth are ignored.
    TCalibData d;
    TCalibModel m;
    ASSERT_TRUE(Parse(kHead + Repeat(line3, 25) + "<calquads npoints=\"200\">\n" + Repeat("[1.0,2.0,3,4] ", 200) +
                          "\n</calquads>\n<corners>" + Repeat("[9,9] ", 100) + "</corners></geomap>\n",
                      "", d, m));
    EXPECT_EQ(d.NumCalLines, 25);
    EXPECT_EQ(d.NumCalQuads, 200);
    EXPECT_EQ(d.CalQuads[199], (TCalQuad{1, 2, 3, 4}));
    EXPECT_EQ(d.Corners[3], (TCoords{9, 9}));
}

TEST(CalibFile, HostileInputEndsCleanly)
{
    std::string garbage;
    for (int i = 0; i < 20000; ++i)
        garbage.push_back(static_cast<char>((i * 7919 + 13) % 256));
    const std::string inputs[] = {
        "",
        kHead,                                                  // truncated after the header
        kHead + "<corners>\n[1,2] [3",                          // truncated inside a list
        garbage + "\n" + kHead + garbage,
        kHead + "<corners>" + std::string(1 << 20, '[') + "</corners></geomap>",   // a very long line
        kHead + "<resolution>" + std::string(100000, '9') + "E99999999</resolution></geomap>",
        kHead + "<utmzone>99999999999999</utmzone><utmsouth>TRUE</utmsouth></geomap>",
        "<geomap quorvanta id=\"" + std::string(100000, 'x'),
        kHead + "<calquads npoints=\"1\">[" + std::string(200000, ',') + "]</calquads></geomap>",
    };
    for (const std::string& in : inputs) {
        TMapCalibration cal = NamedMap();
        cal.SetImageSize(100, 100);
        ErrorOf([&] {
            Load(cal, in, "");
            cal.SetCalibModel(cmUTM);  // whatever was read must survive a refit
        });
        TCalibData d;
        TCalibModel m;
        ErrorOf([&] { Parse(in, "", d, m); });
        EXPECT_LE(d.NumCalQuads, MaxCalQuads);
        EXPECT_LE(cal.CalibData().NumCalLines, MaxCalLines);
    }
    // Huge numbers are clamped to the double range.
    TCalibData d;
    TCalibModel m;
    ASSERT_TRUE(Parse(inputs[5], "", d, m));
    EXPECT_EQ(d.Resolution, uc_MaxDouble);
}

}  // namespace
}  // namespace qv

