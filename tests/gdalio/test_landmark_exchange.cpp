// Landmarks out to GPX, KML, GeoPackage and GeoJSON and back: every field each format holds survives,
// with awkward texts, the poles and the date line, elevations and times; symbol names both ways.
#include "landmark_test_files.h"

#include <qvgeo/gdalio/landmark_exchange.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/geomap/symbol_repository.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>
#include <qvgeo/support/date_time.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using namespace qv;
using lmtest::Date;
using lmtest::TScratch;

// A set with every field away from its default and the texts and numbers that break careless writers.
std::vector<TLandMark> AwkwardSet()
{
    std::vector<TLandMark> set;
    auto add = [&](double lat, double lon, double alt, std::string caption, double time) {
        TLandMark lm = DefaultLandMarkRecord();
        lm.Latitude = lat;
        lm.Longitude = lon;
        lm.Altitude = alt;
        lm.Caption.Text = std::move(caption);
        lm.Time = time;
        set.push_back(lm);
        return &set.back();
    };
    add(48.20849, 16.37208, 171, "Stephansdom", Date(2024, 5, 17, 9, 30, 0));
    TLandMark* lm = add(-89.99999999999999, 179.99999999999997, -430.5, "Tom's \"Bar\" & <Grill> </name>",
                        Date(1, 1, 1, 0, 0, 0));
    lm->ClassFlag = 255;
    lm->Tag = std::numeric_limits<std::int32_t>::min();
    lm->Identifier = "ID with 15 chr";
    lm->SymbolProps = {lmArrowTo, -7, 0xFFFFFFFF, 0x80000001, true, 2147483647, -1};
    lm->Caption.Size = 0;
    lm->Caption.FontName = "Font, Name";
    lm->Caption.FontStyles = StrToFontStyles("1010");
    lm->Caption.FGColor = 0;
    lm->Caption.BGColor = 0x00ABCDEF;
    lm->Caption.Transparent = false;
    lm->Caption.dx = std::numeric_limits<std::int32_t>::min();
    lm->Caption.dy = std::numeric_limits<std::int32_t>::max();
    lm->Caption.Direction = -90;
    lm->Caption.HAlignment = haRightJustify;
    lm->Caption.VAlignment = vaCenter;
    // Exactly 80 bytes, ending in a two-byte character.
    lm = add(90, -180, 8848.86, std::string(78, 'x') + "\xC3\xA9", Date(9999, 12, 31, 23, 59, 59));
    lm->SymbolProps.Kind = lmSpade;
    lm->Caption.FontStyles = StrToFontStyles("0101");
    lm = add(-33.8688, 151.2093, 0, "Z\xC3\xBCrich \xE2\x80\x93 Stra\xC3\x9F" "e \xE6\x9D\xB1\xE4\xBA\xAC \xE2\x98\x85", 0);
    lm->SymbolProps.Kind = lmUserDef;
    lm->Identifier = "\xC3\xA4\xC3\xB6\xC3\xBC";
    lm = add(0, -0.000001, 1e-3, "", Date(1969, 7, 20, 20, 17, 40) + 0.123 / 86400.0);  // a millisecond part
    lm->SymbolProps.Kind = lmPlus;
    lm->ClassFlag = 7;
    return set;
}

struct TFormatCase {
    TLandMarkFileFormat Format;
    const char* File;
    double PositionTolerance;  // degrees
};

// GPX and KML write positions as text to 15 significant digits; GeoPackage stores the doubles, and
// GeoJSON is written with 17 digits.
const TFormatCase FormatCases[] = {
    {lffGPX, "set.gpx", 1e-12},
    {lffKML, "set.kml", 1e-12},
    {lffGPKG, "set.gpkg", 0},
    {lffGeoJSON, "set.geojson", 0},
};

void PrintTo(const TFormatCase& c, std::ostream* os) { *os << LandMarkFormatName(c.Format); }

class LandMarkRoundTrip : public ::testing::TestWithParam<TFormatCase> {};

TEST_P(LandMarkRoundTrip, EveryFieldComesBack)
{
    const TFormatCase& c = GetParam();
    TScratch dir;
    const std::vector<TLandMark> set = AwkwardSet();
    const TLandMarkExportReport out = ExportLandMarks(set, dir.Path(c.File), c.Format);
    EXPECT_EQ(out.Written, static_cast<std::int64_t>(set.size()));
    EXPECT_EQ(out.Invalid + out.TimesLeftOut + out.AltitudesLeftOut, 0);
    // Altitude 0 means unknown: no GPX ele, no absolute KML altitude (4 of the 5 have one).
    const char* marker = c.Format == lffGPX ? "<ele>" : c.Format == lffKML ? "<altitudeMode>absolute" : nullptr;
    if (marker) {
        const std::string text = lmtest::ReadAll(dir.Path(c.File));
        std::size_t n = 0;
        for (std::size_t at = text.find(marker); at != std::string::npos; at = text.find(marker, at + 1))
            ++n;
        EXPECT_EQ(n, 4u);
    }

    TLandMarkImportOptions options;
    options.Format = c.Format;
    TLandMarkImportReport report;
    const std::vector<TLandMark> back = ImportLandMarks(dir.Path(c.File), options, report);
    ASSERT_EQ(back.size(), set.size()) << LandMarkFormatName(c.Format);
    EXPECT_EQ(report.Imported, static_cast<std::int64_t>(set.size()));
    EXPECT_EQ(report.NotPoints + report.Invalid + report.BadAttributes + report.UnknownSymbols + report.NamesCut +
                  report.Transformed,
              0);
    for (const auto& m : report.Messages)
        ADD_FAILURE() << m;

    for (std::size_t i = 0; i < set.size(); ++i) {
        SCOPED_TRACE(std::string(LandMarkFormatName(c.Format)) + " landmark " + std::to_string(i + 1));
        const TLandMark& a = set[i];
        const TLandMark& b = back[i];
        EXPECT_NEAR(b.Latitude, a.Latitude, c.PositionTolerance);
        EXPECT_NEAR(b.Longitude, a.Longitude, c.PositionTolerance);
        EXPECT_NEAR(b.Altitude, a.Altitude, std::fabs(a.Altitude) * 1e-15);
        EXPECT_NEAR(b.Time, a.Time, 0.5 / 86400000.0);  // to the millisecond
        if (std::fmod(a.Time * 86400.0, 1.0) == 0) {
            EXPECT_EQ(b.Time, a.Time);  // whole seconds come back bit for bit
        }
        // Everything else exactly.
        TLandMark rest = b;
        rest.Latitude = a.Latitude;
        rest.Longitude = a.Longitude;
        rest.Altitude = a.Altitude;
        rest.Time = a.Time;
        EXPECT_EQ(rest.ClassFlag, a.ClassFlag);
        EXPECT_EQ(rest.Tag, a.Tag);
        EXPECT_EQ(rest.SymbolProps, a.SymbolProps);
        EXPECT_EQ(rest.Caption, a.Caption) << "caption [" << b.Caption.Text << "]";
        EXPECT_EQ(rest.Identifier, a.Identifier);
        EXPECT_EQ(rest, a);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, LandMarkRoundTrip, ::testing::ValuesIn(FormatCases),
                         [](const auto& info) { return std::string(LandMarkFormatName(info.param.Format)); });

TEST(LandMarkExchange, FormatNamesAndExtensions)
{
    struct {
        const char* Text;
        bool ByName;
        bool Known;
        TLandMarkFileFormat Format;
    } const cases[] = {
        {"gpx", true, true, lffGPX},         {"GPX", true, true, lffGPX},       {"LIBKML", true, true, lffKML},
        {"kml", true, true, lffKML},         {"GPKG", true, true, lffGPKG},     {"GeoPackage", true, true, lffGPKG},
        {"GeoJSON", true, true, lffGeoJSON}, {"shp", true, false, lffGPX},      {"", true, false, lffGPX},
        {"a/b.GPX", false, true, lffGPX},    {"x.kml", false, true, lffKML},    {"x.gpkg", false, true, lffGPKG},
        {"x.geojson", false, true, lffGeoJSON}, {"x.json", false, true, lffGeoJSON},
        {"x.kmz", false, false, lffGPX},     {"gpx", false, false, lffGPX},     {"dir.gpx/x", false, false, lffGPX},
        {"x.libkml", false, false, lffGPX},
    };
    for (const auto& c : cases) {
        TLandMarkFileFormat f = lffGeoJSON;
        const bool known = c.ByName ? LandMarkFormatFromName(c.Text, f) : LandMarkFormatFromFileName(c.Text, f);
        EXPECT_EQ(known, c.Known) << c.Text;
        if (known && c.Known) {
            EXPECT_EQ(f, c.Format) << c.Text;
        }
    }
}

TEST(LandMarkExchange, ColourTexts)
{
    struct {
        const char* Text;
        bool Ok;
        TColor Color;
    } const cases[] = {
        {"000080FF", true, 0x000080FF}, {"ffffffff", true, 0xFFFFFFFF}, {"#FF8000", true, 0x000080FF},
        {"#0000ff", true, 0x00FF0000},  {"255", true, 0x255},           {" 00FF0000 ", true, 0x00FF0000},
        {"FF", true, 0xFF},             {"100000000", false, 0},        {"#FF80", false, 0},
        {"red", false, 0},              {"", false, 0},                 {"-1", false, 0},
        {"0x00FF", false, 0},           {"#GG0000", false, 0},          {"#", false, 0},
    };
    for (const auto& c : cases) {
        TColor color = 12345;
        EXPECT_EQ(ParseLandMarkColor(c.Text, color), c.Ok) << c.Text;
        if (c.Ok) {
            EXPECT_EQ(color, c.Color) << c.Text;
        }
    }
    EXPECT_EQ(LandMarkColorText(0x000080FF), "000080FF");
}

// A catalogue names the symbols written and turns names read into a whole appearance and a class.
TEST(LandMarkExchange, SymbolNamesThroughTheCatalogue)
{
    TSymbolRepository symbols;
    symbols.SetNEntries(2);
    TSymbol flag = DefaultSymbolRecord();
    flag.Name = "Flag, Blue";
    flag.Properties = {lmTriangle, 9, 0x00FF0000, 0x00FFFFFF, false, 0, 0};
    flag.Category = 12;
    symbols.SetValues(1, flag);
    TSymbol odd = flag;
    odd.Name = "Big";
    odd.Category = 300;  // not a class: the class stays
    odd.Properties.Size = 30;
    symbols.SetValues(2, odd);
    symbols.SetNEntries(3);
    TSymbol top = odd;
    top.Name = "Top";
    top.Category = 255;
    symbols.SetValues(3, top);

    TScratch dir;
    std::vector<TLandMark> set(3, DefaultLandMarkRecord());
    set[0].SymbolProps = flag.Properties;
    set[0].ClassFlag = 12;
    set[1].SymbolProps = odd.Properties;
    set[2].SymbolProps.Kind = lmCircle;  // in no entry: the kind's name
    TLandMarkExportOptions out;
    out.Symbols = &symbols;
    ExportLandMarks(set, dir.Path("s.gpx"), lffGPX, out);
    const std::string text = lmtest::ReadAll(dir.Path("s.gpx"));
    EXPECT_NE(text.find("<sym>Flag, Blue</sym>"), std::string::npos) << text;
    EXPECT_NE(text.find("<sym>Big</sym>"), std::string::npos);
    EXPECT_NE(text.find("<sym>Circle</sym>"), std::string::npos);

    // A foreign GPX that carries only the names: the catalogue gives everything else.
    const std::string gpx = dir.Write("f.gpx", R"(<?xml version="1.0"?>
<gpx version="1.1" creator="test" xmlns="http://www.topografix.com/GPX/1/1">
<wpt lat="1" lon="2"><sym>flag, blue</sym></wpt>
<wpt lat="3" lon="4"><sym>Big</sym></wpt>
<wpt lat="5" lon="6"><sym>ArrowFrom</sym></wpt>
<wpt lat="7" lon="8"><sym>crossbox</sym></wpt>
<wpt lat="9" lon="10"><sym>Geocache</sym></wpt>
<wpt lat="11" lon="12"><sym>top</sym></wpt>
</gpx>
)");
    TLandMarkImportOptions in;
    in.Symbols = &symbols;
    in.Template.ClassFlag = 3;
    TLandMarkImportReport report;
    const auto back = ImportLandMarks(gpx, in, report);
    ASSERT_EQ(back.size(), 6u);
    EXPECT_EQ(back[0].SymbolProps, flag.Properties);
    EXPECT_EQ(back[0].ClassFlag, 12);
    EXPECT_EQ(back[1].SymbolProps, odd.Properties);
    EXPECT_EQ(back[1].ClassFlag, 3);
    EXPECT_EQ(back[2].SymbolProps.Kind, lmArrowFrom);
    EXPECT_EQ(back[2].SymbolProps.Size, in.Template.SymbolProps.Size);
    EXPECT_EQ(back[3].SymbolProps.Kind, lmCrossBox);
    EXPECT_EQ(back[4].SymbolProps, in.Template.SymbolProps);
    EXPECT_EQ(back[5].ClassFlag, 255);
    EXPECT_EQ(report.UnknownSymbols, 1);
    ASSERT_EQ(report.Messages.size(), 1u);
    EXPECT_NE(report.Messages[0].find("\"Geocache\""), std::string::npos) << report.Messages[0];

    // Our own attributes win over the name: the exported file reads back as it was, catalogue or not.
    TLandMarkImportReport again;
    const auto mine = ImportLandMarks(dir.Path("s.gpx"), TLandMarkImportOptions{}, again);
    ASSERT_EQ(mine.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(mine[i], set[i]) << i;
}

// Positions that no format can carry are reported, and the rest is written.
TEST(LandMarkExchange, ExportReportsWhatItLeavesOut)
{
    TScratch dir;
    std::vector<TLandMark> set(5, DefaultLandMarkRecord());
    set[1].Latitude = std::numeric_limits<double>::quiet_NaN();
    set[2].Latitude = 90.5;
    set[3].Altitude = std::numeric_limits<double>::infinity();
    set[4].Time = Date(9999, 12, 31, 0, 0, 0) + 1.0;  // the year 10000
    const TLandMarkExportReport r = ExportLandMarks(set, dir.Path("r.gpkg"), lffGPKG);
    EXPECT_EQ(r.Written, 3);
    EXPECT_EQ(r.Invalid, 2);
    EXPECT_EQ(r.AltitudesLeftOut, 1);
    EXPECT_EQ(r.TimesLeftOut, 1);
    ASSERT_EQ(r.Messages.size(), 4u);
    EXPECT_NE(r.Messages[0].find("landmark 2"), std::string::npos) << r.Messages[0];

    TLandMarkImportReport report;
    const auto back = ImportLandMarks(dir.Path("r.gpkg"), {}, report);
    ASSERT_EQ(back.size(), 3u);
    EXPECT_EQ(back[1].Altitude, 0);
    EXPECT_EQ(back[2].Time, 0);
}

// Exporting over a file replaces it, through a temporary name that no other file has.
TEST(LandMarkExchange, ExportReplacesAFile)
{
    TScratch dir;
    std::vector<TLandMark> one(1, DefaultLandMarkRecord()), two(2, DefaultLandMarkRecord());
    for (auto format : {lffGPX, lffKML, lffGPKG, lffGeoJSON}) {
        const std::string ext = "." + std::string(LandMarkFormatName(format));
        const std::string file = dir.Path("x" + ext);
        const std::string bystander = dir.Write("x.partial" + ext, "not ours");
        ExportLandMarks(two, file, format);
        ExportLandMarks(one, file, format);
        TLandMarkImportReport report;
        EXPECT_EQ(ImportLandMarks(file, {}, report).size(), 1u) << file;
        EXPECT_EQ(lmtest::ReadAll(bystander), "not ours");
        ExportLandMarks({}, file, format);  // an empty set is a file without points, not an error
        EXPECT_TRUE(ImportLandMarks(file, {}, report).empty()) << file;
        EXPECT_FALSE(lmtest::fs::exists(dir.Path("x.partial-1" + ext)));
    }
    EXPECT_THROW(ExportLandMarks(one, dir.Path("missing/dir/new.geojson"), lffGeoJSON), EXELGeoMapError);
}

}  // namespace

namespace {

// Texts that look like numbers: a GPX reader types an extension column by its values, and a column of
// digits would come back as integers ("007" as "7", colour 00008000 as 8000 decimal).
TEST(LandMarkExchange, TextsThatLookLikeNumbers)
{
    std::vector<TLandMark> set;
    const std::pair<const char*, const char*> texts[] = {{"007", "1.50"}, {"-5", "1e3"}, {"+1", "-0.25"}, {"0042", "3.0"}};
    for (const auto& [id, font] : texts) {
        TLandMark lm = DefaultLandMarkRecord();
        lm.Identifier = id;
        lm.Caption.FontName = font;
        lm.SymbolProps.FGColor = 0x00008000;  // every colour column all digits
        lm.SymbolProps.BGColor = 0x00000000;
        lm.Caption.FGColor = 0x10000000;
        lm.Caption.BGColor = 0x00000001;
        set.push_back(lm);
    }
    TScratch dir;
    for (auto format : {lffGPX, lffKML, lffGPKG, lffGeoJSON}) {
        SCOPED_TRACE(LandMarkFormatName(format));
        const std::string file = dir.Path("n." + std::string(LandMarkFormatName(format)));
        EXPECT_EQ(ExportLandMarks(set, file, format).TextsChanged, 0);
        TLandMarkImportReport report;
        const auto back = ImportLandMarks(file, {}, report);
        ASSERT_EQ(back.size(), set.size());
        for (std::size_t i = 0; i < set.size(); ++i)
            EXPECT_EQ(lmtest::LandMarkDiff(back[i], set[i]), "");
        EXPECT_EQ(report.BadAttributes, 0);
    }
}

// Texts that XML writers trip over. GeoPackage and GeoJSON keep them all; what the XML writers and
// readers do to them is pinned here, so that a change shows.
std::string Expected(TLandMarkFileFormat Format, const std::string& Text, bool Extension)
{
    std::string t = Text;
    if (Format == lffKML) {  // "]]>" cannot stand in the writer's CDATA; ExtendedData is trimmed
        for (std::size_t at = t.find("]]>"); at != std::string::npos; at = t.find("]]>", at + 4))
            t.insert(at + 2, " ");
        return Extension ? std::string(Trim(t)) : t;
    }
    if (Format == lffGPX && Extension)  // the GPX reader drops line breaks in extension texts
        std::erase(t, '\n');
    return t;
}

TEST(LandMarkExchange, TextsWithMarkup)
{
    const std::vector<std::string> texts = {"a]]>b", "<![CDATA[x]]>", "  two blanks  ", "line\nbreak", "tab\there",
                                            "&amp; &#38; &lt;", "\"'\"'", "<b>bold</b>",
                                            "'apostrophe", "  <i>x</i>"};
    std::vector<TLandMark> set;
    for (const auto& t : texts) {
        TLandMark lm = DefaultLandMarkRecord();
        lm.Caption.Text = t;
        lm.Identifier = CutShortString(t, LMIdentifierCapacity);
        lm.Caption.FontName = t;
        set.push_back(lm);
    }
    TScratch dir;
    for (auto format : {lffGPX, lffKML, lffGPKG, lffGeoJSON}) {
        SCOPED_TRACE(LandMarkFormatName(format));
        const std::string file = dir.Path("t." + std::string(LandMarkFormatName(format)));
        const TLandMarkExportReport out = ExportLandMarks(set, file, format);
        EXPECT_EQ(out.TextsChanged, format == lffGPX ? 2 : format == lffKML ? 6 : 0);
        TLandMarkImportReport report;
        const auto back = ImportLandMarks(file, {}, report);
        ASSERT_EQ(back.size(), set.size());
        for (std::size_t i = 0; i < set.size(); ++i) {
            EXPECT_EQ(back[i].Caption.Text, Expected(format, set[i].Caption.Text, false));
            EXPECT_EQ(back[i].Caption.FontName, Expected(format, set[i].Caption.FontName, true));
            EXPECT_EQ(back[i].Identifier, Expected(format, set[i].Identifier, true));
        }
    }
}

}  // namespace
