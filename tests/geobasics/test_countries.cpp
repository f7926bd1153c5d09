// The country table: documented rows, order, code invariants, published codes, and the lookups.
#include <qvgeo/geobasics/countries.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>

namespace {

using namespace qv;

constexpr double Deg = 3.141592653589793 / 180.0;

bool LowerLetters(std::string_view s, size_t length)
{
    for (char c : s)
        if (c < 'a' || c > 'z')
            return false;
    return s.size() == length;
}

TEST(CountryData, OrderAndRowInvariants)
{
    ASSERT_EQ(CountryData.size(), 231u);
    for (int i = 0; i < NumCountries; ++i) {
        const TCountryData& c = CountryData[i];
        EXPECT_TRUE(i == 0 || CountryData[i - 1].Name < c.Name) << i;  // strictly ascending, no duplicates
        EXPECT_LE(c.Name.size(), 40u) << i;
        EXPECT_LE(c.Capital.size(), 31u) << i;
        EXPECT_TRUE(LowerLetters(c.Fips10, 2) && LowerLetters(c.ISO3166_2, 2) && LowerLetters(c.ISO3166_3, 3)) << i;
        EXPECT_TRUE(c.CLat >= -90.0 && c.CLat <= 90.0 && c.CLong >= -180.0 && c.CLong <= 180.0) << i;
        EXPECT_TRUE(c.CapLat >= -90.0 && c.CapLat <= 90.0 && c.CapLong >= -180.0 && c.CapLong <= 180.0) << i;
        EXPECT_TRUE(c.CapAlt >= 0 && c.CapAlt < 4000) << i;  // La Paz, the highest capital, is at 3640-4000 m
        EXPECT_EQ(c.Capital.empty(), c.Name == "Antarctica") << i;
        // A swapped sign or latitude/longitude exchange would put a capital on another continent. The
        // largest centre-to-capital distances (Russia, Canada, United States, French Polynesia) stay below
        // about 45° of arc.
        const double dlon = std::fabs(c.CapLong - c.CLong);
        const double arc = std::hypot(c.CapLat - c.CLat, std::min(dlon, 360.0 - dlon) * std::cos(c.CLat * Deg));
        EXPECT_LT(arc, 45.0) << c.Name;
    }
}

TEST(CountryData, DocumentedRows)
{
    using Row = std::tuple<std::string_view, std::string_view, std::string_view, std::string_view, double, double,
                           std::string_view, double, double, int>;
    const std::pair<int, Row> rows[] = {
        {0, {"Afghanistan", "af", "af", "afg", 33.0, 65.0, "Kabul", 34.5309, 69.1368, 1807}},
        {7, {"Antarctica", "ay", "aq", "ata", -90.0, 0.0, "", -90.0, 0.0, 0}},
        {33, {"Burma;Myanmar", "bm", "mm", "mmr", 22.0, 98.0, "Rangoon", 19.7361, 96.2089, 77}},
        {230, {"Zimbabwe", "zi", "zw", "zwe", -20.0, 30.0, "Harare", -17.8292, 31.054, 1480}},
    };
    for (const auto& [i, row] : rows) {
        const TCountryData& c = CountryData[i];
        EXPECT_EQ(Row(c.Name, c.Fips10, c.ISO3166_2, c.ISO3166_3, c.CLat, c.CLong, c.Capital, c.CapLat, c.CapLong,
                      c.CapAlt),
                  row)
            << i;
    }
}

TEST(CountryData, PublishedCodes)
{
    // FIPS 10-4 / ISO 3166-1 codes and capitals of other rows, including pairs where the standards disagree.
    const std::string_view codes[][5] = {
        {"Austria", "au", "at", "aut", "Vienna"},          {"Australia", "as", "au", "aus", "Canberra"},
        {"Germany", "gm", "de", "deu", "Berlin"},          {"United Kingdom", "uk", "gb", "gbr", "London"},
        {"South Africa", "sf", "za", "zaf", "Pretoria"},   {"Zambia", "za", "zm", "zmb", "Lusaka"},
        {"Serbia and Montenegro", "yi", "cs", "scg", "Belgrade"}, {"Western Sahara", "wi", "eh", "esh", "El-Aaiun"},
    };
    for (const auto& c : codes) {
        const int i = FindCountry(c[0], ckName);
        ASSERT_GE(i, 0) << c[0];
        const TCountryData& r = CountryData[i];
        EXPECT_EQ(std::tie(r.Name, r.Fips10, r.ISO3166_2, r.ISO3166_3, r.Capital),
                  std::tie(c[0], c[1], c[2], c[3], c[4]));
    }
}

TEST(CountryLookup, CaseBlanksJoinedNamesAndOverlappingCodes)
{
    const std::tuple<const char*, TCountryKey, int> lookups[] = {
        {"MM", ckISO3166_2, 33},          {"Myanmar", ckName, 33},      {"burma", ckName, 33},
        {" malvinas ", ckName, 69},       {"falkland islands", ckName, 69}, {"Timor Lestre", ckName, 61},
        {"ZIMBABWE", ckName, 230},        {"au", ckFips10, 13},         {"au", ckISO3166_2, 12},
        {"xx", ckFips10, -1},             {"", ckName, -1},             {"Burm", ckName, -1},
        {"mm", ckFips10, -1},             {"afg", ckISO3166_2, -1},
    };
    for (const auto& [text, key, index] : lookups)
        EXPECT_EQ(FindCountry(text, key), index) << '"' << text << "\" " << int(key);
}

// Each code identifies one row within its own standard: a duplicate would find the earlier row instead.
TEST(CountryLookup, EveryRowFindsItself)
{
    for (int i = 0; i < NumCountries; ++i) {
        const TCountryData& c = CountryData[i];
        EXPECT_EQ(FindCountry(c.Name, ckName), i);
        EXPECT_EQ(FindCountry(c.Fips10, ckFips10), i);
        EXPECT_EQ(FindCountry(c.ISO3166_2, ckISO3166_2), i);
        EXPECT_EQ(FindCountry(c.ISO3166_3, ckISO3166_3), i);
    }
}

}  // namespace
