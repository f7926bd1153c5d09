// The table of 231 countries and territories (codes, centre, capital and its position and altitude) and
// lookups by code and name.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qv {

struct TCountryData {
    std::string_view Name;       // English name, up to 40 characters; a few rows join two names by ';'
    std::string_view Fips10;     // FIPS 10-4 code, 2 lower-case letters
    std::string_view ISO3166_2;  // ISO 3166-1 alpha-2, lower case
    std::string_view ISO3166_3;  // ISO 3166-1 alpha-3, lower case
    double CLat;                 // centre of the country, degrees, north positive
    double CLong;                // degrees, east positive
    std::string_view Capital;    // up to 31 characters; empty for Antarctica
    double CapLat;               // degrees
    double CapLong;              // degrees
    std::int32_t CapAlt;         // metres; 0 for capitals on a sea shore
};

inline constexpr int NumCountries = 231;

// Sorted by Name in ascending character order, indexed from 0.
extern const std::array<TCountryData, NumCountries> CountryData;

// Which field FindCountry compares. The code kinds overlap between standards ("au" is Austria in FIPS
// 10-4 and Australia in ISO 3166-1), so the caller says which one is meant.
enum TCountryKey : std::uint8_t { ckName, ckFips10, ckISO3166_2, ckISO3166_3 };

// Index (0 to 230) of the first row whose field equals Text, ignoring ASCII case and blanks at both
// ends; −1 if there is none. For ckName each of the names joined by ';' counts on its own as well
// ("Myanmar" finds "Burma;Myanmar").
int FindCountry(std::string_view Text, TCountryKey Key);

}  // namespace qv
