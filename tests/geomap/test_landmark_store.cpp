// The landmark store: the template, the five add forms, finding, the removal orders, growth of the
// array, the add/remove question and repaint requests, the highlight, assigning and moving.
#include <qvgeo/geomap/landmark_store.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace qv;

namespace {

// A store holding landmarks whose Tag is their original number 1..n, on a diagonal (i, i), class from
// the list (cycled) or 0.
TLandMarkStore MakeStore(int n, const std::vector<std::uint8_t>& classes = {})
{
    TLandMarkStore store;
    for (int i = 1; i <= n; ++i) {
        const std::uint8_t cls = classes.empty() ? 0 : classes[static_cast<std::size_t>(i - 1) % classes.size()];
        store.AddLandMark(i, i, 0, lmCross, cls, "", 0, i, 0, 0, 7, false, 0, 10);
    }
    return store;
}

std::vector<int> Tags(const TLandMarkStore& store)
{
    std::vector<int> tags;
    for (const auto& lm : store.LandMarks())
        tags.push_back(lm.Tag);
    return tags;
}

using Asked = std::vector<std::pair<TLandMarkAction, int>>;  // action, Tag

// Counts the hook calls of a store and vetoes the Tags listed.
struct Recorder {
    int repaints = 0;
    Asked asked;
    std::vector<int> veto;

    void Attach(TLandMarkStore& store)
    {
        store.SetChangeListener([this](unsigned) { ++repaints; });
        store.LandMarkActionHook = [this](bool& allowed, TLandMarkAction action, const TLandMark& lm) {
            EXPECT_TRUE(allowed);
            asked.emplace_back(action, lm.Tag);
            allowed = std::find(veto.begin(), veto.end(), lm.Tag) == veto.end();
        };
    }
};

using Removal = std::function<int(TLandMarkStore&)>;
Removal ByIndex(int i) { return [=](auto& s) { return s.RemoveLandMark(i); }; }
Removal LastOne() { return [](auto& s) { return s.RemoveLastLandMark(); }; }
Removal AllOfClass(std::uint8_t c) { return [=](auto& s) { return s.RemoveAllLandMarks(c); }; }
Removal NearestTo(double lat, double lon, int c) { return [=](auto& s) { return s.RemoveLandMark(lat, lon, c); }; }
Removal Within(double lat, double lon, int c, double d)
{
    return [=](auto& s) { return s.RemoveLandMark(lat, lon, c, d); };
}

}  // namespace

// The landmark template's defaults are pinned by the exact writer output in the file tests.
TEST(LandMarkStore, AddFormsTakeTheRestFromTheTemplate)
{
    TLandMarkStore store;
    TLandMark tmpl = DefaultLandMarkRecord();
    tmpl.ClassFlag = 9, tmpl.Tag = 77, tmpl.Identifier = "tmpl", tmpl.Time = 5;
    tmpl.Caption.Text = "template caption", tmpl.Caption.Size = 11, tmpl.Caption.FGColor = 0x123456;
    tmpl.Caption.dx = 3, tmpl.SymbolProps.Kind = lmCircle, tmpl.SymbolProps.Size = 4;
    store.SetDefaultLandMark(tmpl);

    ASSERT_EQ(store.AddLandMark(48.2, 16.3, 170), 1);
    ASSERT_EQ(store.AddLandMark(1, 2, 3, "ident", 44000.5), 2);
    ASSERT_EQ(store.AddLandMark(4, 5, 6, "caption", 14, 0x00FF00u), 3);
    ASSERT_EQ(store.AddLandMark(7, 8, 9, "both", 44001.25, "cap4", 15, 0x0000FFu), 4);
    ASSERT_EQ(store.AddLandMark(10, 11, 12, lmArrowTo, 200, "sym", 44002, -5, 0xAAu, 0xBBu, 21, true, 270, 33), 5);

    const auto at = [&](double lat, double lon, double alt) {
        TLandMark lm = tmpl;
        lm.Latitude = lat, lm.Longitude = lon, lm.Altitude = alt;
        return lm;
    };
    TLandMark e[] = {at(48.2, 16.3, 170), at(1, 2, 3), at(4, 5, 6), at(7, 8, 9), at(10, 11, 12)};
    e[1].Identifier = "ident", e[1].Time = 44000.5;
    e[2].Caption.Text = "caption", e[2].Caption.Size = 14, e[2].Caption.FGColor = 0x00FF00u;
    e[3].Identifier = "both", e[3].Time = 44001.25;
    e[3].Caption.Text = "cap4", e[3].Caption.Size = 15, e[3].Caption.FGColor = 0x0000FFu;
    // The symbol form leaves the caption, text included, as the template's.
    e[4].SymbolProps = {lmArrowTo, 21, 0xAA, 0xBB, true, 270, 33};
    e[4].ClassFlag = 200, e[4].Identifier = "sym", e[4].Time = 44002, e[4].Tag = -5;
    for (int i = 1; i <= 5; ++i)
        EXPECT_EQ(store.GetLandMarkData(i), e[i - 1]) << "landmark " << i;
}

// Every removal but the rectangle on MakeStore(n, classes); class 1 is hidden throughout, since hidden
// classes are skipped only when drawing.
TEST(LandMarkStore, RemovalsAndTheOrderLeft)
{
    struct Case {
        int n;
        std::vector<std::uint8_t> classes;
        Removal remove;
        std::vector<int> left;  // the Tags left, in their new order
    };
    const std::vector<std::uint8_t> c4 = {0, 0, 0, 1, 0};
    const Case cases[] = {
        // One by number: the last landmark takes its number; out-of-range numbers are ignored.
        {5, {}, ByIndex(2), {1, 5, 3, 4}}, {5, {}, ByIndex(5), {1, 2, 3, 4}}, {3, {}, ByIndex(0), {1, 2, 3}},
        {3, {}, ByIndex(4), {1, 2, 3}}, {0, {}, ByIndex(1), {}}, {3, {}, LastOne(), {1, 2}}, {0, {}, LastOne(), {}},
        // Many at once: the lowest hole takes the highest survivor, and so on inwards.
        {6, {0, 1, 1, 0, 0, 0}, AllOfClass(1), {1, 6, 5, 4}}, {6, {1, 0, 0, 0, 0, 1}, AllOfClass(1), {5, 2, 3, 4}},
        {5, {0, 1, 1, 1, 1}, AllOfClass(1), {1}}, {4, {0, 0, 0, 0}, AllOfClass(1), {1, 2, 3, 4}},
        {4, {1, 1, 1, 1}, AllOfClass(1), {}}, {7, {1, 0, 1, 0, 1, 0, 0}, AllOfClass(1), {7, 2, 6, 4}},
        // The nearest of the class; a class outside -1..255 means all.
        {4, {0, 1}, NearestTo(2.9, 2.9, 1), {1, 4, 3}},
        {4, {0, 1}, NearestTo(0, 0, 5), {1, 2, 3, 4}},
        {4, {0, 1}, NearestTo(0, 0, 999), {4, 2, 3}},
        // Strictly nearer than the distance from (3, 3), 2.83, 1.41, 0, 1.41, 2.83 degrees away.
        {5, c4, Within(3, 3, -1, 2.0), {1, 5}}, {5, c4, Within(3, 3, -1, 0.0), {1, 2, 3, 4, 5}},  // 0 is not nearer than 0
        {5, c4, Within(3, 3, -1, -2.0), {1, 5}},          // the distance is squared
        {5, c4, Within(3, 3, 1, 2.0), {1, 2, 3, 5}},
        {5, c4, Within(1, 3, -1, 2.0), {1, 5, 3, 4}},  // 1 and 3 are exactly 2 away and stay
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        TLandMarkStore store = MakeStore(c.n, c.classes);
        store.SetClassVisibility(1, false);
        EXPECT_EQ(c.remove(store), c.n - static_cast<int>(c.left.size())) << "case " << i;
        EXPECT_EQ(Tags(store), c.left) << "case " << i;
    }
}

// Grows by 1000 at a time, never shrinks while landmarks remain, and returns to 1000 at a count of 0 by
// any removal.
TEST(LandMarkStore, ArrayGrowsByThousandsAndResetsWhenEmpty)
{
    TLandMarkStore store = MakeStore(1000);
    EXPECT_EQ(store.LandMarkCapacity(), 1000);
    for (int i = 0; i <= 1000; ++i)
        store.AddLandMark(0, 0, 0);
    EXPECT_EQ(store.LandMarkCapacity(), 3000);
    while (store.NumLandMarks() > 1)
        store.RemoveLastLandMark();
    EXPECT_EQ(store.LandMarkCapacity(), 3000);
    store.RemoveLandMark(1);
    EXPECT_EQ(store.LandMarkCapacity(), 1000);
    TLandMarkStore s = MakeStore(1500);
    s.RemoveAllLandMarks(std::uint8_t{0});
    EXPECT_EQ(std::pair(s.NumLandMarks(), s.LandMarkCapacity()), std::pair(0, 1000));
}

TEST(LandMarkStore, FindNearestTiesAndClasses)
{
    TLandMarkStore store;
    store.AddLandMark(0, 1, 0, lmCross, 3, "", 0, 1, 0, 0, 7, false, 0, 10);   // 1
    store.AddLandMark(0, -1, 0, lmCross, 4, "", 0, 2, 0, 0, 7, false, 0, 10);  // 2, same distance from (0,0)
    store.AddLandMark(5, 5, 0, lmCross, 7, "", 0, 3, 0, 0, 7, false, 0, 10);   // 3
    store.SetClassVisibility(7, false);
    struct Case {
        double lat, lon;
        int cls, expected;
    };
    const Case cases[] = {
        {0, 0, -1, 1},   // tie between 1 and 2: the lower number
        {0, 0, 4, 2},    // only class 4
        {0, 0, 7, 3},    // hidden, still found
        {0, 0, 8, 0},    // no landmark of the class
        {0, 0, 300, 1},  // out of range: all classes
        {0, -0.9, 256, 2}, {2e5, 0, -1, 0},  // d^2 >= 1e10 is never found
    };
    for (const auto& c : cases)
        EXPECT_EQ(store.FindLandMark(c.lat, c.lon, c.cls), c.expected) << c.lat << "," << c.lon << " class " << c.cls;
}

TEST(LandMarkStore, RemoveByRectangleIsStrict)
{
    TLandMarkStore store;
    const double pts[][2] = {{5, 5}, {10, 5}, {5, 0}, {0, 5}, {5, 10}, {9.99, 0.01}, {11, 5}, {5, -1}};
    for (int i = 0; i < 8; ++i)
        store.AddLandMark(pts[i][0], pts[i][1], 0, lmCross, 0, "", 0, i + 1, 0, 0, 7, false, 0, 10);
    // Left/Right are longitudes 0..10, Top/Bottom latitudes 10..0.
    EXPECT_EQ(store.RemoveLandMark(TRectDouble{0, 10, 10, 0}, -1), 2);
    EXPECT_EQ(Tags(store), (std::vector<int>{8, 2, 3, 4, 5, 7}));
    // A rectangle given upside down (Top south of Bottom) holds nothing.
    EXPECT_EQ(store.RemoveLandMark(TRectDouble{-20, -20, 20, 20}, -1), 0);
    EXPECT_EQ(store.RemoveLandMark(TRectDouble{-20, 20, 20, -20}, 3), 0);
}

TEST(LandMarkStore, VetoesAndRepaints)
{
    TLandMarkStore store = MakeStore(6, {0, 0, 0, 0, 0, 1});
    Recorder rec;
    rec.veto = {2, 4, 7};
    rec.Attach(store);
    // A vetoed add neither adds nor repaints.
    EXPECT_EQ(store.AddLandMark(7, 7, 0, lmCross, 0, "", 0, 7, 0, 0, 7, false, 0, 10), 0);
    EXPECT_EQ(rec.repaints, 0);
    EXPECT_EQ(rec.asked, (Asked{{lmaAdd, 7}}));

    // Asked once for each landmark of class 0, in number order; a veto skips that one landmark.
    rec.asked.clear();
    EXPECT_EQ(store.RemoveAllLandMarks(std::uint8_t{0}), 3);
    EXPECT_EQ(rec.asked, (Asked{{lmaRemove, 1}, {lmaRemove, 2}, {lmaRemove, 3}, {lmaRemove, 4}, {lmaRemove, 5}}));
    EXPECT_EQ(Tags(store), (std::vector<int>{6, 2, 4}));
    EXPECT_EQ(rec.repaints, 1);

    // A vetoed single removal leaves the list alone.
    rec.asked.clear();
    rec.veto = {6};
    EXPECT_EQ(store.RemoveLandMark(1), 0);
    EXPECT_EQ(store.RemoveLastLandMark(), 1);
    EXPECT_EQ(Tags(store), (std::vector<int>{6, 2}));
    EXPECT_EQ(rec.asked, (Asked{{lmaRemove, 6}, {lmaRemove, 4}}));

    // Removing everything does not ask; an allowed add repaints.
    rec.asked.clear();
    store.RemoveAllLandMarks();
    EXPECT_TRUE(rec.asked.empty());
    const int before = rec.repaints;
    EXPECT_EQ(store.AddLandMark(1, 0, 0), 1);
    EXPECT_EQ(rec.repaints, before + 1);
}

TEST(LandMarkStore, HookSeesTheRecordAndCannotChangeTheList)
{
    TLandMarkStore store = MakeStore(3);
    int calls = 0;
    store.LandMarkActionHook = [&](bool&, TLandMarkAction, const TLandMark& lm) {
        ++calls;
        EXPECT_EQ(store.GetLandMarkData(lm.Tag).Tag, lm.Tag);
        // Changes from inside the question are refused.
        EXPECT_EQ(store.AddLandMark(0, 0, 0), 0);
        EXPECT_EQ(store.RemoveLandMark(1), 0);
        store.RemoveAllLandMarks();
        std::istringstream file("<gmlandmarks sig=\"Quorvanta\" id=\"a\">\n<landmark lat=\"1\" />\n");
        EXPECT_FALSE(store.ReadLandMarksFromOpenXMLFile(file, ""));
    };
    EXPECT_EQ(store.RemoveAllLandMarks(std::uint8_t{0}), 3);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(store.NumLandMarks(), 0);

    // A throwing hook leaves the store usable and unchanged.
    TLandMarkStore other = MakeStore(2);
    other.LandMarkActionHook = [](bool&, TLandMarkAction, const TLandMark&) { throw std::runtime_error("no"); };
    EXPECT_THROW(other.RemoveLandMark(1), std::runtime_error);
    other.LandMarkActionHook = nullptr;
    EXPECT_EQ(other.RemoveLandMark(1), 1);
    EXPECT_EQ(Tags(other), (std::vector<int>{2}));
}

TEST(LandMarkStore, GetAndSetDataAndShortStringsAreCut)
{
    TLandMarkStore store = MakeStore(2);
    for (int i : {0, 3, 999})  // 999: inside the array, beyond the count
        EXPECT_EQ(store.GetLandMarkData(i), store.DefaultLandMark()) << i;

    Recorder rec;
    rec.Attach(store);
    const std::string ident(16, 'i'), caption(81, 'c');  // one byte over
    TLandMark lm = store.GetLandMarkData(2);
    lm.Identifier = ident;
    lm.Caption.Text = caption;
    store.SetLandMarkData(3, lm);
    store.SetLandMarkData(0, lm);
    EXPECT_EQ(rec.repaints, 0);
    store.SetLandMarkData(2, lm);
    EXPECT_EQ(rec.repaints, 1);
    EXPECT_EQ(store.GetLandMarkData(2).Identifier, std::string(15, 'i'));
    EXPECT_EQ(store.GetLandMarkData(2).Caption.Text, std::string(80, 'c'));
    store.SetDefaultLandMark(lm);
    EXPECT_EQ(store.DefaultLandMark().Identifier.size(), 15u);
    // "Wien-Mitte Straße" is 18 bytes; byte 15 is the second byte of "ß", which is dropped whole.
    store.AddLandMark(0, 0, 0, "Wien-Mitte Stra\xC3\x9F" "e", 0);
    EXPECT_EQ(store.GetLandMarkData(3).Identifier, "Wien-Mitte Stra");
    EXPECT_EQ(CutShortString("\xE2\x82\xAC\xE2\x82\xAC", 5), "\xE2\x82\xAC");
}

TEST(LandMarkStore, HighlightAndVisibility)
{
    TLandMarkStore store = MakeStore(3);
    EXPECT_EQ(std::tuple(store.HighLM(), store.HighLMColFG(), store.HighLMColBG(), store.HighLMTrans()),
              std::tuple(0, 0xFF0000u, 0x00FFFFu, false));
    Recorder rec;
    rec.Attach(store);
    struct Step {
        int index, expectedHigh, expectedRepaints;
    };
    const Step steps[] = {
        {2, 2, 1}, {2, 2, 1},              // unchanged: no repaint
        {3, 3, 2}, {0, 0, 3}, {4, 0, 3},   // out of range with nothing highlighted: nothing happens
        {1, 1, 4}, {-1, 0, 5},             // out of range clears the highlight
    };
    for (const auto& s : steps) {
        store.SetHighLM(s.index);
        EXPECT_EQ(store.HighLM(), s.expectedHigh) << "SetHighLM(" << s.index << ")";
        EXPECT_EQ(rec.repaints, s.expectedRepaints) << "SetHighLM(" << s.index << ")";
    }
    store.SetHighLM(3);
    store.RemoveAllLandMarks();
    EXPECT_EQ(store.HighLM(), 3);  // removals keep it

    const int before = rec.repaints;
    store.SetHighLightProperties(0x010203, 0x040506, true);
    EXPECT_EQ(std::tuple(store.HighLMColFG(), store.HighLMColBG(), store.HighLMTrans()), std::tuple(0x010203u, 0x040506u, true));
    store.SetClassVisibility(255, false);
    EXPECT_FALSE(store.GetClassVisibility(255));
    EXPECT_TRUE(store.GetClassVisibility(254));
    EXPECT_EQ(rec.repaints, before + 2);
}

TEST(LandMarkStore, AssignCopiesListAndSettingsButNotHooks)
{
    TLandMarkStore source = MakeStore(1500, {1, 2});
    source.SetClassVisibility(2, false);
    source.SetHighLM(7);
    source.SetHighLightProperties(1, 2, true);
    TLandMark tmpl = DefaultLandMarkRecord();
    tmpl.Caption.Text = "t";
    source.SetDefaultLandMark(tmpl);
    source.RemoveAllLandMarks(std::uint8_t{2});  // 750 left, the array stays 2000 long

    TLandMarkStore dest;
    int repaints = 0;
    dest.SetChangeListener([&](unsigned) { ++repaints; });
    dest.AssignLandMarks(source);
    EXPECT_EQ(dest.NumLandMarks(), 750);
    EXPECT_EQ(dest.LandMarkCapacity(), 1000);
    EXPECT_TRUE(std::equal(dest.LandMarks().begin(), dest.LandMarks().end(), source.LandMarks().begin()));
    EXPECT_EQ(std::tuple(dest.GetClassVisibility(2), dest.HighLM(), dest.HighLMColBG(), dest.DefaultLandMark().Caption.Text),
              std::tuple(false, 7, 2u, "t"));
    EXPECT_EQ(repaints, 0);
}

TEST(LandMarkStore, MovedFromStoreIsEmptyAndUsable)
{
    TLandMarkStore source = MakeStore(1200);
    int repaints = 0;
    source.SetChangeListener([&](unsigned) { ++repaints; });
    TLandMarkStore moved(std::move(source));
    // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is part of the interface
    EXPECT_EQ(std::tuple(source.NumLandMarks(), source.LandMarkCapacity(), source.LandMarks().empty(),
                         source.HasChangeListener()),
              std::tuple(0, 1000, true, false));
    EXPECT_EQ(source.AddLandMark(1, 1, 1), 1);
    moved.AddLandMark(0, 0, 0);
    EXPECT_EQ(repaints, 1);
    source = std::move(moved);
    EXPECT_EQ(std::pair(source.NumLandMarks(), moved.NumLandMarks()), std::pair(1201, 0));  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(Tags(source).front(), 1);
}
