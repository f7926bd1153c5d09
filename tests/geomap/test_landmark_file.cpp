// The landmark file: exact writer output, field-by-field round trips, the reader's rules (sets by id,
// absent attributes, keywords, font styles, growth) and hostile input.
#include "error_text.h"
#include <qvgeo/geomap/file_family.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/geomap/landmark_store.h>

#include <qvgeo/support/date_time.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>

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

TEST(LandMarkFile, AttributeDecoding)
{
    using L = const TLandMark&;
    constexpr std::int32_t imin = std::numeric_limits<std::int32_t>::min(), imax = -(imin + 1);
    constexpr double dmax = std::numeric_limits<double>::max();
    const std::pair<const char*, std::function<bool(L)>> cases[] = {
        {R"(capfst="x1y1z")", [](L l) { return l.Caption.FontStyles.Bits == 0b1010; }},
        {R"(lat="48,5" long="-1.5E2" alti="2e-3")",
         [](L l) { return l.Latitude == 48.5 && l.Longitude == -150 && l.Altitude == 0.002; }},
        {"LAT=\"1\"\tLong=\"2\" ClAsS = \"7\"",  // names in any case, blanks around '=' and a tab between
         [](L l) { return l.Latitude == 1 && l.Longitude == 2 && l.ClassFlag == 7; }},
        {R"(class="-1")", [](L l) { return l.ClassFlag == 255; }},  // the low byte
        // A flag is set when its text contains "true" in any case.
        {R"(transp="isTrue" captransp="FALSE")",
         [](L l) { return l.SymbolProps.Transparent && !l.Caption.Transparent; }},
        {R"(element="plus")", [](L l) { return l.SymbolProps.Kind == lmCross; }},  // an unknown keyword
        {R"(colorfg="ff00AB" colorbg="zz")",
         [](L l) { return l.SymbolProps.FGColor == 0xFF00ABu && l.SymbolProps.BGColor == 0; }},
        {R"(date="20241332000000")", [](L l) { return l.Time == 0; }},
        // Texts are kept as read, blanks included; the other values are trimmed before decoding.
        {R"(id="  abcdefghijklmnopqrstuvwxyz  " captext=" a " capfnm="b ")",
         [](L l) { return l.Identifier == "  abcdefghijklm" && l.Caption.Text == " a " && l.Caption.FontName == "b "; }},
        {R"(colorfg=" ff " date=" 20240229235959 " element=" Spade " capfst=" 01" class=" 5 ")",
         [](L l) {
             return l.SymbolProps.FGColor == 0xFFu && l.Time == Date(2024, 2, 29, 23, 59, 59) &&
                    l.SymbolProps.Kind == lmSpade && l.Caption.FontStyles.Bits == 0b0010 && l.ClassFlag == 5;
         }},
        {R"(captext="a id="x"" id="real")", [](L l) { return l.Identifier == "real"; }},
        {R"(caphal="3" capval="-1")",
         [](L l) { return l.Caption.HAlignment == haCenter && l.Caption.VAlignment == vaTop; }},
        {R"(size="99999999999" dir="-99999999999" usertag="12abc" capsize="2147483648" capdir="-2147483649")",
         [](L l) {
             return l.SymbolProps.Size == imax && l.SymbolProps.Direction == imin && l.Tag == 12 &&
                    l.Caption.Size == imax && l.Caption.Direction == imin;
         }},
        {R"(lat="1e999" long="-1e99999999999999" alti="1e-999")",
         [](L l) { return l.Latitude == dmax && l.Longitude == -dmax && l.Altitude == 0; }},
        {R"(lat=48.2 long="16")", [](L l) { return l.Latitude == 0 && l.Longitude == 16; }},  // no quotes
        {R"(captext="unterminated)", [](L l) { return l.Caption.Text.empty(); }},
    };
    for (const auto& [attrs, check] : cases) {
        TLandMarkStore store;
        ASSERT_TRUE(Read(store, Set("a", std::string("<landmark ") + attrs + " />\n"), "a")) << attrs;
        ASSERT_EQ(store.NumLandMarks(), 1) << attrs;
        EXPECT_TRUE(check(store.GetLandMarkData(1))) << attrs;
    }
}

TEST(LandMarkFile, SetsAreChosenByIdWithoutRegardToCase)
{
    const std::string two = "<?xml version=\"1.0\"?>\n<!-- two sets -->\n" +
                            Set("x", "<landmark lat=\"1\" />\n<landmark lat=\"2\" />\n") +
                            Set("y", "<landmark lat=\"3\" />\n");
    const std::string one = "<landmark lat=\"1\"/>\n";
    struct Case {
        std::string file;
        const char* id;
        bool found;
        std::vector<double> lats;  // 9: the landmark the store held before
    };
    const Case cases[] = {
        {two, "Y", true, {3}},
        // The closing tag does not end the loop: the first set takes the later sets' landmarks too.
        {two, "", true, {1, 2, 3}}, {two, "X", true, {1, 2, 3}}, {two, "z", false, {9}},
        // The header's id is trimmed, the requested one only lower-cased; a header split over two lines and
        // the other family's header do not count.
        {"<gmlandmarks sig=\"Quorvanta\" id=\" A \">\n" + one, "a", true, {1}},
        {"<gmlandmarks id=\"a\"\nsig=\"Quorvanta\">\n" + one, "a", false, {9}},
        {"<lmsymbols sig=\"Quorvanta\" id=\"a\">\n", "a", false, {9}},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        store.AddLandMark(9, 0, 0);
        EXPECT_EQ(Read(store, c.file, c.id), c.found) << c.file << " id " << c.id;
        std::vector<double> lats;
        for (const auto& lm : store.LandMarks())
            lats.push_back(lm.Latitude);
        EXPECT_EQ(lats, c.lats) << c.file << " id " << c.id;
    }
}

// Reading replaces the list without asking, skips other tags, stops at "</geomap>" and repaints once.
TEST(LandMarkFile, ReadReplacesSkipsOtherTagsAndStopsAtGeoMapEnd)
{
    const std::string body = "<calline type=\"x\">\n[1,2]\n</calline>\n<landmark lat=\"1\" />\n<symbol name=\"s\" />\n"
                             "<unknown a=\"b\"/>\n<landmark lat=\"2\"/>\n</geomap>\n<landmark lat=\"3\" />\n";
    TLandMarkStore store;
    for (int i = 0; i < 5; ++i)
        store.AddLandMark(i, i, i);
    int repaints = 0, asked = 0;
    store.SetChangeListener([&](unsigned) { ++repaints; });
    store.LandMarkActionHook = [&](bool&, TLandMarkAction, const TLandMark&) { ++asked; };
    ASSERT_TRUE(Read(store, Set("a", body), "a"));
    EXPECT_EQ(std::tuple(store.NumLandMarks(), store.GetLandMarkData(2).Latitude, repaints, asked), std::tuple(2, 2.0, 1, 0));
}

// The reader's growth: room for 1000, then count + 1000 at the 1001st; adding on top keeps working.
TEST(LandMarkFile, FifteenHundredLandmarksLoadInFull)
{
    std::string body;
    for (int i = 1; i <= 1500; ++i)
        body += "<landmark usertag=\"" + std::to_string(i) + "\" />\n";
    TLandMarkStore store;
    ASSERT_TRUE(Read(store, Set("big", body), "big"));
    EXPECT_EQ(std::pair(store.NumLandMarks(), store.LandMarkCapacity()), std::pair(1500, 2001));
    EXPECT_EQ(store.GetLandMarkData(1500).Tag, 1500);
    EXPECT_EQ(store.AddLandMark(0, 0, 0), 1501);
}

TEST(LandMarkFile, HostileInputNeverCrashes)
{
    const std::string header = "<gmlandmarks sig=\"Quorvanta\" id=\"h\">\n";
    const std::string longText(1 << 20, 'A');
    const std::pair<std::string, int> cases[] = {  // body, landmarks read
        {"<landmark lat=\"1\"", 0},                                     // truncated tag
        {"<landmark lat=\"1\" />\n<landmark lat=\"2", 1},                 // truncated after one
        {"<landmark captext=\"" + longText + "\" id=\"" + longText + "\" />\n", 1},
        {"<landmark " + longText + " />\n", 1},
        {"<<<<>>>>< landmark/>\n<landmark/>\n", 1},
        {std::string("<landmark lat=\"1\0\" />\n", 22), 1},
        {"<landmark lat='1\" long=\"2' />\n", 1},
        {"<landmark =\"x\" ==== '' \" id=\"a\" />\n", 1},
        {std::string(100000, '<'), 0},
    };
    for (const auto& [body, count] : cases) {
        TLandMarkStore store;
        ASSERT_TRUE(Read(store, header + body, "h"));
        EXPECT_EQ(store.NumLandMarks(), count) << body.substr(0, 60);
        for (const auto& lm : store.LandMarks()) {
            EXPECT_LE(lm.Identifier.size(), 15u);
            EXPECT_LE(lm.Caption.Text.size(), 80u);
        }
    }
    // A very long line without any header.
    TLandMarkStore store;
    EXPECT_FALSE(Read(store, longText + longText, ""));
}

TEST(LandMarkFile, TextsRoundTripAsFarAsTheFormatCarriesThem)
{
    const std::pair<std::string, std::string> cases[] = {  // written, read back
        {"  padded  ", "  padded  "}, {"\tlead", "\tlead"}, {"a > b", "a _ b"}, {"\r\n", "  "},
        {"say \"hi\"", "say \"hi\""}, {"it's", "it's"}, {"both ' and \"", "both ' and '"},
    };
    for (const auto& [written, readBack] : cases) {
        EXPECT_EQ(FamilyAttributeText(written), readBack);
        TLandMarkStore store;
        store.AddLandMark(0, 0, 0, written, 0, written, 8, 0);
        TLandMark lm = store.GetLandMarkData(1);
        lm.Caption.FontName = written;
        store.SetLandMarkData(1, lm);
        const std::string text = Write(store, true, "t");
        const char quote = readBack.find('"') == std::string::npos ? '"' : '\'';
        EXPECT_NE(text.find(std::string(" captext=") + quote + readBack + quote + " "), std::string::npos) << text;
        TLandMarkStore back;
        ASSERT_TRUE(Read(back, text, "t"));
        ASSERT_EQ(back.NumLandMarks(), 1) << written;
        EXPECT_EQ(back.GetLandMarkData(1).Identifier, CutShortString(readBack, 15)) << written;
        EXPECT_EQ(back.GetLandMarkData(1).Caption.Text, readBack) << written;
        EXPECT_EQ(back.GetLandMarkData(1).SymbolProps.Size, 7) << written;  // the rest of the tag survived
    }
}

// Non-finite positions, an unknown element and a time beyond the year 9999; the generated file below
// covers every element and the years 1 to 9999.
TEST(LandMarkFile, KindsPositionsAndTimesTheFormatCannotCarry)
{
    TLandMarkStore store;
    const double inf = std::numeric_limits<double>::infinity(), big = std::numeric_limits<double>::max();
    store.AddLandMark(inf, std::nan(""), -inf, static_cast<TLandMarkElement>(42), 0, "", 4e6, 0, 0, 0, 7, false, 0, 10);
    TLandMarkStore back;
    ASSERT_TRUE(Read(back, Write(store, false, ""), ""));
    ASSERT_EQ(back.NumLandMarks(), 1);
    const TLandMark a = back.GetLandMarkData(1);
    EXPECT_EQ(std::tuple(a.Latitude, a.Longitude, a.Altitude, a.Time, a.SymbolProps.Kind),
              std::tuple(big, 0.0, -big, 0.0, lmCross));
}

namespace {

// A reproducible mix of every field: full-precision and tiny positions, extreme integers and colours,
// every element (lmPlus and lmUserDef included), quotes of either kind in the texts, dates from the
// year 1 to 9999 and none.
std::vector<TLandMark> Generated(int n)
{
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state] {  // splitmix64
        std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    };
    auto unit = [&] { return static_cast<double>(next() >> 11) * 0x1.0p-53; };
    auto text = [&](std::size_t maxLen) {
        static constexpr std::string_view sets[] = {"abcXYZ019 ,.-&<\"", "defUVW278 ;:_#[]'"};
        const std::string_view set = sets[next() % 2];
        std::string s;
        for (std::size_t len = next() % (maxLen + 1); s.size() < len;)
            s += next() % 16 ? std::string(1, set[next() % set.size()]) : "\xC3\xA4";  // an umlaut now and then
        s = CutShortString(s, maxLen);
        while (!s.empty() && (s.front() == ' ' || s.back() == ' '))  // no blanks at the ends
            s.erase(s.front() == ' ' ? 0 : s.size() - 1, 1);
        return s;
    };
    std::vector<TLandMark> out(static_cast<std::size_t>(n));
    for (TLandMark& lm : out) {
        lm.Latitude = -90 + 180 * unit();
        lm.Longitude = next() % 4 ? -180 + 360 * unit() : std::ldexp(unit(), -40);
        lm.Altitude = next() % 2 ? std::round(unit() * 4000) - 400 : (unit() - 0.5) * 1e9;
        lm.ClassFlag = static_cast<std::uint8_t>(next());
        lm.Tag = static_cast<std::int32_t>(next());
        lm.SymbolProps = {static_cast<TLandMarkElement>(next() % NumLandMarkElements),
                          static_cast<std::int32_t>(next()), static_cast<TColor>(next()), static_cast<TColor>(next()),
                          next() % 2 == 0, static_cast<std::int32_t>(next() % 721) - 360,
                          static_cast<std::int32_t>(next() % 100000)};
        lm.Caption = {text(LMTextCapacity), static_cast<std::int32_t>(next() % 72), next() % 2 ? "Arial" : "DejaVu Sans",
                      {static_cast<std::uint8_t>(next() % 16)}, static_cast<TColor>(next()), static_cast<TColor>(next()),
                      next() % 2 == 0, static_cast<std::int32_t>(next() % 201) - 100,
                      static_cast<std::int32_t>(next() % 201) - 100, static_cast<std::int32_t>(next() % 360),
                      static_cast<THorzAlignment>(next() % 3), static_cast<TVerticalAlignment>(next() % 3)};
        lm.Identifier = text(LMIdentifierCapacity);
        lm.Time = next() % 8 ? -693593.0 + std::floor(unit() * 3652059.0 * 86400) / 86400 : 0.0;
    }
    return out;
}

std::uint64_t Fnv1a(std::string_view Bytes, std::uint64_t h = 0xCBF29CE484222325ull)
{
    for (unsigned char c : Bytes)
        h = (h ^ c) * 0x100000001B3ull;
    return h;
}

template <class T>
std::uint64_t Fnv1aOf(const T& Value, std::uint64_t h)
{
    return Fnv1a(std::string_view(reinterpret_cast<const char*>(&Value), sizeof Value), h);
}

}  // namespace

// The writer's bytes and the reader's values for 1000 generated landmarks, through a file, pinned by
// checksums taken before the reader and writer were tuned for speed: any change of a digit, a quote or a
// field shows. Windows line ends and a byte order mark read alike.
TEST(LandMarkFile, GeneratedFileKeepsItsBytesAndValues)
{
    const auto dir = std::filesystem::temp_directory_path() /
                     ("qvgeo_lmfile_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    std::filesystem::create_directories(dir);
    const std::string name = (dir / "marks.xml").string();
    const auto marks = Generated(1000);
    TLandMarkStore store;
    store.SetComponentName("GeoMap1");
    for (const auto& lm : marks) {
        store.AddLandMark(0, 0, 0);
        store.SetLandMarkData(store.NumLandMarks(), lm);
    }
    store.SaveLandmarks(name, "golden");
    std::ifstream file(name, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(Fnv1a(text), 11205287926127951418ull);

    TLandMarkStore back;
    ASSERT_TRUE(back.LoadLandMarks(name, "GOLDEN"));
    ASSERT_EQ(back.NumLandMarks(), 1000);
    // Every value but the time (kept to the second) and the two shapes without a keyword comes back as
    // written; the times read are pinned by their checksum.
    std::uint64_t h = 0xCBF29CE484222325ull;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        TLandMark got = back.GetLandMarkData(static_cast<int>(i + 1));
        h = Fnv1aOf(got.Time, h);
        EXPECT_NEAR(got.Time, marks[i].Time, 0.5 / 86400) << i;
        got.Time = marks[i].Time;
        if (marks[i].SymbolProps.Kind == lmPlus || marks[i].SymbolProps.Kind == lmUserDef)
            got.SymbolProps.Kind = marks[i].SymbolProps.Kind;
        ASSERT_EQ(got, marks[i]) << i;
    }
    EXPECT_EQ(h, 6744485784329597789ull);

    std::string windows = "\xEF\xBB\xBF" + text;
    for (std::size_t at = windows.find('\n'); at != std::string::npos; at = windows.find('\n', at + 2))
        windows.insert(at, "\r");
    TLandMarkStore again;
    ASSERT_TRUE(Read(again, windows, "Golden"));
    EXPECT_TRUE(std::ranges::equal(again.LandMarks(), back.LandMarks()));

    EXPECT_FALSE(back.LoadLandMarks((dir / "missing.xml").string(), ""));
    EXPECT_EQ(back.NumLandMarks(), 1000);
    const std::string bad = (dir / "no" / "such" / "dir.xml").string();
    EXPECT_EQ(ErrorOf([&] { store.SaveLandmarks(bad, "x"); }), "Component \"GeoMap1\": cannot write file \"" + bad + "\"");
    std::filesystem::remove_all(dir);
}
