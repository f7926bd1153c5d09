// The landmark file: exact writer output, field-by-field round trips, the reader's rules (sets by id,
// absent attributes, keywords, font styles, growth) and hostile input.
#include "geomap/file_family.h"
#include "geomap/landmark_file.h"
#include "geomap/landmark_store.h"

#include "support/date_time.h"
#include "support/errors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

using namespace qv;

namespace {

std::string Write(const TLandMarkStore& store, bool withHeader, std::string_view id)
{
    std::ostringstream out;
    store.WriteLandMarksToOpenXMLFile(out, withHeader, id);
    return out.str();
}

bool Read(TLandMarkStore& store, const std::string& text, std::string_view id)
{
    std::istringstream in(text);
    return store.ReadLandMarksFromOpenXMLFile(in, id);
}

std::string Set(std::string_view id, std::string_view body)
{
    return "<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\" id=\"" + std::string(id) + "\">\n" + std::string(body) +
           "</gmlandmarks>\n";
}

double Date(int y, int mo, int d, int h, int mi, int s)
{
    double t = 0;
    EXPECT_TRUE(TryEncodeDateTime(y, mo, d, h, mi, s, t));
    return t;
}

// Landmarks that together use every field with values that are easy to get wrong.
std::vector<TLandMark> Varied()
{
    std::vector<TLandMark> out;
    const TLandMarkElement kinds[] = {lmSquare, lmTriangle, lmCircle, lmArrowFrom, lmArrowTo, lmCrossBox, lmSpade, lmCross};
    for (int i = 0; i < 24; ++i) {
        TLandMark lm;
        lm.Latitude = -89.999999999 + i * 7.123456789012345;
        lm.Longitude = 179.99999999999997 - i * 15.1;
        lm.Altitude = i % 3 == 0 ? -432.1 : 1e-7 * i;
        lm.ClassFlag = static_cast<std::uint8_t>(i * 37);
        lm.Tag = i % 2 ? std::numeric_limits<std::int32_t>::min() + i : std::numeric_limits<std::int32_t>::max() - i;
        lm.SymbolProps.Kind = kinds[i % 8];
        lm.SymbolProps.Size = i - 5;
        lm.SymbolProps.FGColor = 0xFFFFFFFFu - static_cast<std::uint32_t>(i);
        lm.SymbolProps.BGColor = static_cast<std::uint32_t>(i) * 0x01020304u;
        lm.SymbolProps.Transparent = i % 2 == 0;
        lm.SymbolProps.Direction = -360 + 30 * i;
        lm.SymbolProps.Length = 1000 * i;
        lm.Caption.Text = i % 4 == 0 ? "" : "Caption " + std::to_string(i) + (i % 3 ? " with 'quotes'" : " \"quoted\"");
        lm.Caption.Size = 6 + i;
        lm.Caption.FontName = i % 2 ? "Arial" : "DejaVu Sans Mono";
        lm.Caption.FontStyles.Bits = static_cast<std::uint8_t>(i % 16);
        lm.Caption.FGColor = 0x00ABCDEFu ^ static_cast<std::uint32_t>(i);
        lm.Caption.BGColor = 0x80000000u | static_cast<std::uint32_t>(i);
        lm.Caption.Transparent = i % 3 == 0;
        lm.Caption.dx = -i;
        lm.Caption.dy = i * 2;
        lm.Caption.Direction = 45 * (i % 8);
        lm.Caption.HAlignment = static_cast<THorzAlignment>(i % 3);
        lm.Caption.VAlignment = static_cast<TVerticalAlignment>((i / 3) % 3);
        lm.Identifier = i % 5 == 0 ? "" : "ID-" + std::to_string(i * 1234567);
        lm.Time = i % 6 == 0 ? 0.0 : Date(1800 + i * 10, 1 + i % 12, 1 + i, i % 24, (i * 7) % 60, (i * 13) % 60);
        out.push_back(lm);
    }
    return out;
}

}  // namespace

TEST(LandMarkFile, WriterOutputIsExact)
{
    TLandMarkStore store;
    store.AddLandMark(48.20833, 16.37, 171.5, "Stephansdom", Date(2024, 5, 17, 9, 30, 5), "Dom", 10, 0x0000FF);
    TLandMark lm = store.GetLandMarkData(1);
    lm.Caption.FontStyles.Include(fsItalic);
    lm.Caption.FontStyles.Include(fsStrikeOut);
    lm.ClassFlag = 3;
    lm.Tag = -12;
    store.SetLandMarkData(1, lm);
    const std::string expected =
        "<?xml version=\"1.0\"?>\n"
        "\n"
        "<!-- TGeoMap Landmarks / Quorvanta -->\n"
        "<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\" id=\"Vienna\">\n"
        "<landmark lat=\"48.20833\" long=\"16.37\" alti=\"171.5\" class=\"3\" usertag=\"-12\" colorfg=\"00FF0000\" "
        "colorbg=\"00FFFFFF\" size=\"7\" transp=\"FALSE\" dir=\"0\" leng=\"10\" element=\"cross\" id=\"Stephansdom\" "
        "date=\"20240517093005\" captext=\"Dom\" capsize=\"10\" capfnm=\"MS Sans Serif\" capfgcol=\"000000FF\" "
        "capbgcol=\"00FFFFFF\" captransp=\"TRUE\" capdir=\"0\" capdx=\"0\" capdy=\"8\" caphal=\"2\" capval=\"0\" "
        "capfst=\"0101\" />\n"
        "</gmlandmarks>\n";
    EXPECT_EQ(Write(store, true, "Vienna"), expected);
    EXPECT_EQ(Write(store, false, "Vienna"), expected.substr(expected.find('\n') + 1));
}

TEST(LandMarkFile, EveryFieldRoundTrips)
{
    TLandMarkStore store;
    const auto varied = Varied();
    for (const auto& lm : varied) {
        store.AddLandMark(0, 0, 0);
        store.SetLandMarkData(store.NumLandMarks(), lm);
    }
    const std::string text = Write(store, true, "all");
    TLandMarkStore back;
    ASSERT_TRUE(Read(back, text, "ALL"));
    ASSERT_EQ(back.NumLandMarks(), static_cast<int>(varied.size()));
    for (std::size_t i = 0; i < varied.size(); ++i) {
        TLandMark got = back.GetLandMarkData(static_cast<int>(i + 1));
        // Time is kept to the second: compare it through its parts.
        EXPECT_NEAR(got.Time, varied[i].Time, 0.5 / 86400) << "landmark " << i + 1;
        got.Time = varied[i].Time;
        EXPECT_EQ(got, varied[i]) << "landmark " << i + 1;
    }
    // Writing what was read gives the same text again.
    EXPECT_EQ(Write(back, true, "all"), text);
}

TEST(LandMarkFile, PlusAndUserDefReadBackAsCross)
{
    TLandMarkStore store;
    const TLandMarkElement kinds[] = {lmPlus, lmUserDef, static_cast<TLandMarkElement>(42)};
    for (auto k : kinds)
        store.AddLandMark(1, 2, 3, k, 0, "", 0, 0, 0, 0, 7, false, 0, 10);
    TLandMarkStore back;
    ASSERT_TRUE(Read(back, Write(store, false, ""), ""));
    ASSERT_EQ(back.NumLandMarks(), 3);
    for (int i = 1; i <= 3; ++i)
        EXPECT_EQ(back.GetLandMarkData(i).SymbolProps.Kind, lmCross);
}

TEST(LandMarkFile, AttributeDecoding)
{
    struct Case {
        const char* attrs;
        std::function<bool(const TLandMark&)> check;
        const char* what;
    };
    const Case cases[] = {
        {R"(capfst="0101")", [](const TLandMark& l) { return l.Caption.FontStyles.Bits == 0b1010; }, "italic+strike"},
        {R"(capfst="1")", [](const TLandMark& l) { return l.Caption.FontStyles.Bits == 0b0001; }, "short capfst"},
        {R"(capfst="x1y1z")", [](const TLandMark& l) { return l.Caption.FontStyles.Bits == 0b1010; }, "not 1"},
        {R"(lat="48,5" long="-1.5E2" alti="2e-3")",
         [](const TLandMark& l) { return l.Latitude == 48.5 && l.Longitude == -150 && l.Altitude == 0.002; }, "numbers"},
        {R"(LAT="1" Long="2" ClAsS="7")",
         [](const TLandMark& l) { return l.Latitude == 1 && l.Longitude == 2 && l.ClassFlag == 7; }, "name case"},
        {R"(class="300")", [](const TLandMark& l) { return l.ClassFlag == 44; }, "class low byte"},
        {R"(class="-1")", [](const TLandMark& l) { return l.ClassFlag == 255; }, "class -1"},
        {R"(transp="istrue!" captransp="FALSE")",
         [](const TLandMark& l) { return l.SymbolProps.Transparent && !l.Caption.Transparent; }, "contains true"},
        {R"(transp="T")", [](const TLandMark& l) { return !l.SymbolProps.Transparent; }, "T is not true"},
        {R"(element="ArrowFrom")", [](const TLandMark& l) { return l.SymbolProps.Kind == lmArrowFrom; }, "keyword case"},
        {R"(element="plus")", [](const TLandMark& l) { return l.SymbolProps.Kind == lmCross; }, "unknown keyword"},
        {R"(element="")", [](const TLandMark& l) { return l.SymbolProps.Kind == lmCross; }, "empty keyword"},
        {R"(colorfg="ff00AB" colorbg="zz")",
         [](const TLandMark& l) { return l.SymbolProps.FGColor == 0xFF00ABu && l.SymbolProps.BGColor == 0; }, "hex"},
        {R"(date="20240229235959")",
         [](const TLandMark& l) { return std::abs(l.Time - Date(2024, 2, 29, 23, 59, 59)) < 1e-9; }, "date"},
        {R"(date="2024-02-29")", [](const TLandMark& l) { return l.Time == 0; }, "bad date"},
        {R"(date="20241332000000")", [](const TLandMark& l) { return l.Time == 0; }, "invalid date"},
        {R"(id="  abcdefghijklmnopqrstuvwxyz  ")",
         [](const TLandMark& l) { return l.Identifier == "abcdefghijklmno"; }, "id trimmed and cut"},
        {R"(captext='He said "hi"')", [](const TLandMark& l) { return l.Caption.Text == "He said \"hi\""; }, "quotes"},
        {R"(captext="a id="x"" id="real")", [](const TLandMark& l) { return l.Identifier == "real"; }, "id in value"},
        {R"(caphal="1" capval="2")",
         [](const TLandMark& l) { return l.Caption.HAlignment == haRightJustify && l.Caption.VAlignment == vaCenter; },
         "alignments"},
        {R"(caphal="7" capval="-1")",
         [](const TLandMark& l) { return l.Caption.HAlignment == haCenter && l.Caption.VAlignment == vaTop; },
         "alignment out of range"},
        {R"(size="99999999999" dir="-99999999999" usertag="12abc")",
         [](const TLandMark& l) {
             return l.SymbolProps.Size == std::numeric_limits<std::int32_t>::max() &&
                    l.SymbolProps.Direction == std::numeric_limits<std::int32_t>::min() && l.Tag == 12;
         },
         "integer clamp"},
        {R"(lat="1e999" long="-1e99999999999999" alti="1e-999")",
         [](const TLandMark& l) {
             return l.Latitude == std::numeric_limits<double>::max() &&
                    l.Longitude == -std::numeric_limits<double>::max() && l.Altitude == 0;
         },
         "real clamp"},
        {R"(lat=48.2 long="16")", [](const TLandMark& l) { return l.Latitude == 0 && l.Longitude == 16; }, "no quotes"},
        {R"(lat="48.2 long="16")", [](const TLandMark& l) { return l.Latitude == 48.2 && l.Longitude == 0; },
         "unbalanced quotes"},
        {R"(captext="unterminated)", [](const TLandMark& l) { return l.Caption.Text.empty(); }, "unterminated"},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        ASSERT_TRUE(Read(store, Set("a", std::string("<landmark ") + c.attrs + " />\n"), "a")) << c.what;
        ASSERT_EQ(store.NumLandMarks(), 1) << c.what;
        EXPECT_TRUE(c.check(store.GetLandMarkData(1))) << c.what << ": " << c.attrs;
    }
}

TEST(LandMarkFile, AbsentAttributesGiveZeroNotThePreviousValues)
{
    TLandMarkStore store;
    const std::string body =
        "<landmark lat=\"1\" captext=\"first\" capfnm=\"Arial\" id=\"one\" size=\"9\" element=\"spade\" capdy=\"4\" />\n"
        "<landmark lat=\"2\" />\n";
    ASSERT_TRUE(Read(store, Set("s", body), ""));
    ASSERT_EQ(store.NumLandMarks(), 2);
    TLandMark expected;  // every field zero or empty...
    expected.Latitude = 2;
    expected.SymbolProps.Kind = lmCross;  // ...the element keyword "" reads as cross
    EXPECT_EQ(store.GetLandMarkData(2), expected);
    EXPECT_EQ(store.GetLandMarkData(1).Caption.Text, "first");
}

TEST(LandMarkFile, SetsAreChosenByIdWithoutRegardToCase)
{
    const std::string file = "<?xml version=\"1.0\"?>\n<!-- two sets -->\n" +
                             Set("x", "<landmark lat=\"1\" />\n<landmark lat=\"2\" />\n") +
                             Set("y", "<landmark lat=\"3\" />\n");
    struct Case {
        const char* id;
        bool found;
        std::vector<double> lats;
    };
    const Case cases[] = {
        {"Y", true, {3}},
        {"y", true, {3}},
        // The closing tag does not end the loop: the first set takes the later sets' landmarks too.
        {"", true, {1, 2, 3}},
        {"X", true, {1, 2, 3}},
        {"z", false, {9}},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        store.AddLandMark(9, 0, 0);
        EXPECT_EQ(Read(store, file, c.id), c.found) << c.id;
        std::vector<double> lats;
        for (const auto& lm : store.LandMarks())
            lats.push_back(lm.Latitude);
        EXPECT_EQ(lats, c.lats) << c.id;
    }
}

TEST(LandMarkFile, ReaderStopsAtGeoMapEndAndSkipsOtherTags)
{
    const std::string body = "<calline type=\"x\">\n[1,2]\n</calline>\n<landmark lat=\"1\" />\n<symbol name=\"s\" />\n"
                             "<unknown a=\"b\"/>\n<landmark lat=\"2\"/>\n</geomap>\n<landmark lat=\"3\" />\n";
    TLandMarkStore store;
    ASSERT_TRUE(Read(store, Set("a", body), "a"));
    EXPECT_EQ(store.NumLandMarks(), 2);
    EXPECT_EQ(store.GetLandMarkData(2).Latitude, 2.0);
}

TEST(LandMarkFile, HeaderRecognition)
{
    struct Case {
        std::string text;
        bool found;
    };
    const Case cases[] = {
        {"<GMLANDMARKS SIG=\"QUORVANTA\" ID=\"A\">\n<landmark lat=\"1\"/>\n", true},
        {"<gmlandmarks id=\"a\">\n<landmark lat=\"1\"/>\n", false},                 // no signature
        {"<gmlandmarks id=\"a\"\nsig=\"Quorvanta\">\n<landmark lat=\"1\"/>\n", false},  // split over two lines
        {"<lmsymbols sig=\"Quorvanta\" id=\"a\">\n", false},
        {"", false},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        EXPECT_EQ(Read(store, c.text, "a"), c.found) << c.text;
    }
}

TEST(LandMarkFile, FifteenHundredLandmarksLoadInFull)
{
    std::string body;
    for (int i = 1; i <= 1500; ++i)
        body += "<landmark lat=\"" + std::to_string(i) + "\" usertag=\"" + std::to_string(i) + "\" />\n";
    TLandMarkStore store;
    ASSERT_TRUE(Read(store, Set("big", body), "big"));
    ASSERT_EQ(store.NumLandMarks(), 1500);
    // The reader's growth: room for 1000, then count + 1000 at the 1001st.
    EXPECT_EQ(store.LandMarkCapacity(), 2001);
    for (int i = 1; i <= 1500; ++i)
        ASSERT_EQ(store.GetLandMarkData(i).Tag, i);
    // Adding on top keeps working and the rule of the store takes over.
    store.AddLandMark(0, 0, 0);
    EXPECT_EQ(store.NumLandMarks(), 1501);
}

TEST(LandMarkFile, ReadReplacesAndRepaintsOnce)
{
    TLandMarkStore store;
    for (int i = 0; i < 5; ++i)
        store.AddLandMark(i, i, i);
    int repaints = 0, asked = 0;
    store.RepaintHook = [&] { ++repaints; };
    store.LandMarkActionHook = [&](bool&, TLandMarkAction, const TLandMark&) { ++asked; };
    ASSERT_TRUE(Read(store, Set("a", "<landmark lat=\"7\" />\n"), ""));
    EXPECT_EQ(store.NumLandMarks(), 1);
    EXPECT_EQ(repaints, 1);
    EXPECT_EQ(asked, 0);
}

TEST(LandMarkFile, HostileInputNeverCrashes)
{
    const std::string header = "<gmlandmarks sig=\"Quorvanta\" id=\"h\">\n";
    const std::string longText(1 << 20, 'A');
    struct Case {
        std::string body;
        int count;
    };
    const Case cases[] = {
        {"<landmark lat=\"1\"", 0},                                     // truncated tag
        {"<landmark lat=\"1\" />\n<landmark lat=\"2", 1},                 // truncated after one
        {"<landmark captext=\"" + longText + "\" id=\"" + longText + "\" />\n", 1},
        {"<landmark lat=\"" + std::string(5000, '9') + "\" />\n", 1},
        {"<landmark " + longText + " />\n", 1},
        {"<<<<>>>>< landmark/>\n<landmark/>\n", 1},
        {std::string("<landmark lat=\"1\0\" />\n", 22), 1},
        {"<landmark lat=\"\xff\xfe\" captext=\"\x01\x02\" />\n", 1},
        {"<landmark lat='1\" long=\"2' />\n", 1},
        {"</gmlandmarks></gmlandmarks><landmark/>", 1},
        {std::string(100000, '<'), 0},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        ASSERT_TRUE(Read(store, header + c.body, "h"));
        EXPECT_EQ(store.NumLandMarks(), c.count) << c.body.substr(0, 60);
        for (const auto& lm : store.LandMarks()) {
            EXPECT_LE(lm.Identifier.size(), 15u);
            EXPECT_LE(lm.Caption.Text.size(), 80u);
        }
    }
    // A very long line without any header.
    TLandMarkStore store;
    EXPECT_FALSE(Read(store, longText + longText, ""));
}

TEST(LandMarkFile, TextsTheFormatCannotCarry)
{
    struct Case {
        std::string written, readBack;
    };
    const Case cases[] = {
        {"plain", "plain"},
        {"  padded  ", "padded"},
        {"a > b", "a _ b"},
        {"two\nlines", "two lines"},
        {"say \"hi\"", "say \"hi\""},
        {"it's", "it's"},
        {"both ' and \"", "both ' and '"},
        {"<tag>", "<tag_"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FamilyAttributeText(c.written), c.readBack);
        TLandMarkStore store;
        store.AddLandMark(0, 0, 0, c.written, 0, c.written, 8, 0);
        TLandMark lm = store.GetLandMarkData(1);
        lm.Caption.FontName = c.written;
        store.SetLandMarkData(1, lm);
        TLandMarkStore back;
        ASSERT_TRUE(Read(back, Write(store, true, "t"), "t"));
        ASSERT_EQ(back.NumLandMarks(), 1) << c.written;
        EXPECT_EQ(back.GetLandMarkData(1).Identifier, CutShortString(c.readBack, 15)) << c.written;
        EXPECT_EQ(back.GetLandMarkData(1).Caption.Text, c.readBack) << c.written;
        EXPECT_EQ(back.GetLandMarkData(1).Caption.FontName, c.readBack) << c.written;
        EXPECT_EQ(back.GetLandMarkData(1).SymbolProps.Size, 7) << c.written;  // the rest of the tag survived
    }
}

TEST(LandMarkFile, NonFiniteAndOutOfRangeValues)
{
    TLandMarkStore store;
    store.AddLandMark(std::numeric_limits<double>::infinity(), std::nan(""), -std::numeric_limits<double>::infinity(),
                      "t", 4e6);
    store.AddLandMark(0, 0, 0, "early", Date(1, 1, 1, 0, 0, 0));
    store.AddLandMark(0, 0, 0, "late", Date(9999, 12, 31, 23, 59, 59));
    TLandMarkStore back;
    ASSERT_TRUE(Read(back, Write(store, false, ""), ""));
    const TLandMark a = back.GetLandMarkData(1);
    EXPECT_EQ(a.Latitude, std::numeric_limits<double>::max());
    EXPECT_EQ(a.Longitude, 0.0);
    EXPECT_EQ(a.Altitude, -std::numeric_limits<double>::max());
    EXPECT_EQ(a.Time, 0.0);
    EXPECT_EQ(back.GetLandMarkData(2).Time, store.GetLandMarkData(2).Time);
    EXPECT_EQ(back.GetLandMarkData(3).Time, store.GetLandMarkData(3).Time);
}

TEST(LandMarkFile, FilesOnDisk)
{
    const auto dir = std::filesystem::temp_directory_path() / ("qvgeo_lmfile_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    std::filesystem::create_directories(dir);
    const std::string name = (dir / "marks.xml").string();
    TLandMarkStore store;
    store.SetComponentName("GeoMap1");
    store.AddLandMark(47.5, 13.25, 800, "Hallstatt", 0, "Hallstatt", 9, 0x00AA00);
    store.SaveLandmarks(name, "alps");
    TLandMarkStore back;
    EXPECT_TRUE(back.LoadLandMarks(name, "ALPS"));
    EXPECT_EQ(back.GetLandMarkData(1), store.GetLandMarkData(1));
    EXPECT_FALSE(back.LoadLandMarks((dir / "missing.xml").string(), ""));
    EXPECT_EQ(back.NumLandMarks(), 1);

    const std::string bad = (dir / "no" / "such" / "dir.xml").string();
    try {
        store.SaveLandmarks(bad, "x");
        ADD_FAILURE() << "no error for an unwritable file";
    } catch (const EXELGeoMapError& e) {
        EXPECT_EQ(std::string(e.what()), "Component \"GeoMap1\": cannot write file \"" + bad + "\"");
    }
    std::filesystem::remove_all(dir);
}

TEST(FileFamily, SplitTagAttributes)
{
    static constexpr std::string_view names[] = {"id", "name", "size"};
    struct Case {
        std::string_view attr;
        std::string_view id, name, size;
    };
    const Case cases[] = {
        {R"(id="a" name="b" size="3")", "a", "b", "3"},
        {R"(size="3" NAME='b c' Id="a")", "a", "b c", "3"},
        {R"(id = "  spaced  "  name=	"tab")", "spaced", "tab", ""},
        {R"(myid="no" id="yes")", "yes", "", ""},
        {R"(id="first" id="second")", "first", "", ""},
        {R"(name="x id=&quot;y&quot;" id="z")", "z", "x id=&quot;y&quot;", ""},
        {R"(name="has id='q' inside")", "", "has id='q' inside", ""},
        {R"(bare words id="a" more)", "a", "", ""},
        {R"(id=unquoted name="n")", "", "n", ""},
        {R"(id="open)", "", "", ""},
        {R"(name="n" id="open)", "", "n", ""},
        {"", "", "", ""},
        {"=\"x\" ==== '' \"", "", "", ""},
    };
    for (const auto& c : cases) {
        std::string_view v[3];
        SplitTagAttributes(c.attr, names, v);
        EXPECT_EQ(v[0], c.id) << c.attr;
        EXPECT_EQ(v[1], c.name) << c.attr;
        EXPECT_EQ(v[2], c.size) << c.attr;
    }
}

TEST(FileFamily, SeekHeaderLeavesTheStreamAfterIt)
{
    std::istringstream in("<gmlandmarks sig=\"Quorvanta\" id=\"a\">\nline a\n"
                          "<!-- <gmlandmarks Quorvanta id=\"b\"> -->\nline b\n");
    EXPECT_TRUE(SeekFamilyHeader(in, "gmlandmarks", " B "));
    std::string next;
    std::getline(in, next);
    EXPECT_EQ(next, "line b");
    EXPECT_FALSE(SeekFamilyHeader(in, "gmlandmarks", ""));
}

TEST(LandMarkFile, WindowsLineEndsAndByteOrderMark)
{
    TLandMarkStore store;
    store.AddLandMark(48.5, 16.25, 200, "CRLF", 0, "caption", 9, 0x00FF00);
    std::string text = "\xEF\xBB\xBF" + Write(store, true, "w");
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2))
        text.insert(at, "\r");
    TLandMarkStore back;
    ASSERT_TRUE(Read(back, text, "W"));
    ASSERT_EQ(back.NumLandMarks(), 1);
    EXPECT_EQ(back.GetLandMarkData(1), store.GetLandMarkData(1));
}
