// The country table: documented rows, order, code invariants, published codes, and the lookups.
#include "geobasics/countries.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

namespace {

using namespace qv;

bool LowerLetters(std::string_view s)
{
    for (char c : s)
        if (c < 'a' || c > 'z')
            return false;
    return true;
}

TEST(CountryData, SizeOrderAndEnds)
{
    ASSERT_EQ(CountryData.size(), 231u);
    EXPECT_EQ(CountryData[0].Name, "Afghanistan");
    EXPECT_EQ(CountryData[230].Name, "Zimbabwe");
    for (int i = 1; i < NumCountries; ++i)
        EXPECT_LT(CountryData[i - 1].Name, CountryData[i].Name) << i;  // strictly ascending, no duplicates
}

TEST(CountryData, FieldInvariants)
{
    std::set<std::string_view> fips, iso2, iso3;
    for (int i = 0; i < NumCountries; ++i) {
        const TCountryData& c = CountryData[i];
        EXPECT_LE(c.Name.size(), 40u) << i;
        EXPECT_LE(c.Capital.size(), 31u) << i;
        EXPECT_TRUE(c.Fips10.size() == 2 && LowerLetters(c.Fips10)) << i;
        EXPECT_TRUE(c.ISO3166_2.size() == 2 && LowerLetters(c.ISO3166_2)) << i;
        EXPECT_TRUE(c.ISO3166_3.size() == 3 && LowerLetters(c.ISO3166_3)) << i;
        // Each code identifies one row within its own standard.
        EXPECT_TRUE(fips.insert(c.Fips10).second) << c.Fips10;
        EXPECT_TRUE(iso2.insert(c.ISO3166_2).second) << c.ISO3166_2;
        EXPECT_TRUE(iso3.insert(c.ISO3166_3).second) << c.ISO3166_3;
        EXPECT_TRUE(c.CLat >= -90.0 && c.CLat <= 90.0 && c.CLong >= -180.0 && c.CLong <= 180.0) << i;
        EXPECT_TRUE(c.CapLat >= -90.0 && c.CapLat <= 90.0 && c.CapLong >= -180.0 && c.CapLong <= 180.0) << i;
        EXPECT_TRUE(c.CapAlt >= 0 && c.CapAlt < 4000) << i;  // La Paz, the highest capital, is at 3640-4000 m
        EXPECT_EQ(c.Capital.empty(), c.Name == "Antarctica") << i;
    }
}

struct Row {
    int index;
    const char *name, *fips, *iso2, *iso3;
    double clat, clong;
    const char* capital;
    double caplat, caplong;
    int capalt;
};

// The documented rows, exactly.
const Row DocumentedRows[] = {
    {0, "Afghanistan", "af", "af", "afg", 33.0, 65.0, "Kabul", 34.5309, 69.1368, 1807},
    {2, "Algeria", "ag", "dz", "dza", 28.0, 3.0, "Algiers", 36.7658, 3.0319, 0},
    {7, "Antarctica", "ay", "aq", "ata", -90.0, 0.0, "", -90.0, 0.0, 0},
    {33, "Burma;Myanmar", "bm", "mm", "mmr", 22.0, 98.0, "Rangoon", 19.7361, 96.2089, 77},
    {153, "Nigeria", "ni", "ng", "nga", 10.0, 8.0, "Abuja", 9.0833, 7.5333, 777},
    {215, "Ukraine", "up", "ua", "ukr", 49.0, 32.0, "Kiev", 50.4482, 30.5021, 168},
    {230, "Zimbabwe", "zi", "zw", "zwe", -20.0, 30.0, "Harare", -17.8292, 31.054, 1480},
};

class DocumentedCountry : public ::testing::TestWithParam<Row> {};

TEST_P(DocumentedCountry, Exact)
{
    const Row& r = GetParam();
    const TCountryData& c = CountryData[r.index];
    EXPECT_EQ(c.Name, r.name);
    EXPECT_EQ(c.Fips10, r.fips);
    EXPECT_EQ(c.ISO3166_2, r.iso2);
    EXPECT_EQ(c.ISO3166_3, r.iso3);
    EXPECT_EQ(c.CLat, r.clat);
    EXPECT_EQ(c.CLong, r.clong);
    EXPECT_EQ(c.Capital, r.capital);
    EXPECT_EQ(c.CapLat, r.caplat);
    EXPECT_EQ(c.CapLong, r.caplong);
    EXPECT_EQ(c.CapAlt, r.capalt);
}

INSTANTIATE_TEST_SUITE_P(Rows, DocumentedCountry, ::testing::ValuesIn(DocumentedRows));

// Published FIPS 10-4 / ISO 3166-1 codes and capitals of other rows, including the pairs where the two
// standards disagree.
struct Codes {
    const char *name, *fips, *iso2, *iso3, *capital;
};

const Codes PublishedCodes[] = {
    {"Austria", "au", "at", "aut", "Vienna"},          {"Australia", "as", "au", "aus", "Canberra"},
    {"Germany", "gm", "de", "deu", "Berlin"},          {"Switzerland", "sz", "ch", "che", "Bern"},
    {"United Kingdom", "uk", "gb", "gbr", "London"},   {"Spain", "sp", "es", "esp", "Madrid"},
    {"China", "ch", "cn", "chn", "Beijing"},           {"Japan", "ja", "jp", "jpn", "Tokyo"},
    {"Denmark", "da", "dk", "dnk", "Copenhagen"},      {"Iraq", "iz", "iq", "irq", "Baghdad"},
    {"South Africa", "sf", "za", "zaf", "Pretoria"},   {"Zambia", "za", "zm", "zmb", "Lusaka"},
    {"Korea, South", "ks", "kr", "kor", "Seoul"},      {"Serbia and Montenegro", "yi", "cs", "scg", "Belgrade"},
    {"Svalbard", "sv", "sj", "sjm", "Longyearbyen"},   {"Western Sahara", "wi", "eh", "esh", "El-Aaiun"},
};

TEST(CountryData, PublishedCodes)
{
    for (const Codes& c : PublishedCodes) {
        const int i = FindCountry(c.name, ckName);
        ASSERT_GE(i, 0) << c.name;
        EXPECT_EQ(CountryData[i].Fips10, c.fips) << c.name;
        EXPECT_EQ(CountryData[i].ISO3166_2, c.iso2) << c.name;
        EXPECT_EQ(CountryData[i].ISO3166_3, c.iso3) << c.name;
        EXPECT_EQ(CountryData[i].Capital, c.capital) << c.name;
    }
}

TEST(CountryData, CapitalPositionsAreNearTheCountry)
{
    // A swapped sign or latitude/longitude exchange would put a capital on another continent. The
    // largest centre-to-capital distances (Russia, Canada, United States, French Polynesia) stay below
    // about 45° of arc.
    for (const TCountryData& c : CountryData) {
        double dlon = std::fabs(c.CapLong - c.CLong);
        if (dlon > 180.0)
            dlon = 360.0 - dlon;
        const double d = std::hypot(c.CapLat - c.CLat, dlon * std::cos(c.CLat * 3.141592653589793 / 180.0));
        EXPECT_LT(d, 45.0) << c.Name;
    }
}

struct Lookup {
    const char* text;
    TCountryKey key;
    int index;
};

const Lookup Lookups[] = {
    {"mm", ckISO3166_2, 33},           {"MM", ckISO3166_2, 33},       {"bm", ckFips10, 33},
    {"mmr", ckISO3166_3, 33},          {"Myanmar", ckName, 33},       {"burma", ckName, 33},
    {"Burma;Myanmar", ckName, 33},     {" malvinas ", ckName, 69},    {"falkland islands", ckName, 69},
    {"Timor Lestre", ckName, 61},      {"ZIMBABWE", ckName, 230},     {"au", ckFips10, 13},
    {"au", ckISO3166_2, 12},           {"aut", ckISO3166_3, 13},      {"ag", ckFips10, 2},
    {"ag", ckISO3166_2, 8},            {"xx", ckFips10, -1},          {"", ckName, -1},
    {"Burm", ckName, -1},              {"mm", ckFips10, -1},          {"afg", ckISO3166_2, -1},
};

class CountryLookup : public ::testing::TestWithParam<Lookup> {};

TEST_P(CountryLookup, Finds)
{
    const Lookup& l = GetParam();
    EXPECT_EQ(FindCountry(l.text, l.key), l.index) << l.text;
}

INSTANTIATE_TEST_SUITE_P(Table, CountryLookup, ::testing::ValuesIn(Lookups));

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
