// Country lookups.
#include <qvgeo/geobasics/countries.h>

#include <qvgeo/support/text.h>

namespace qv {

namespace {

bool NameMatches(std::string_view Name, std::string_view Text)
{
    if (SameText(Name, Text))
        return true;
    // "Burma;Myanmar", "Falkland Islands; Malvinas": each alternative on its own.
    for (std::size_t start = 0;;) {
        const std::size_t semi = Name.find(';', start);
        const std::string_view part = Trim(Name.substr(start, semi == std::string_view::npos ? semi : semi - start));
        if (SameText(part, Text))
            return true;
        if (semi == std::string_view::npos)
            return false;
        start = semi + 1;
    }
}

}  // namespace

int FindCountry(std::string_view Text, TCountryKey Key)
{
    const std::string_view text = Trim(Text);
    if (text.empty())
        return -1;
    for (int i = 0; i < NumCountries; ++i) {
        const TCountryData& c = CountryData[i];
        bool hit = false;
        switch (Key) {
        case ckName: hit = NameMatches(c.Name, text); break;
        case ckFips10: hit = SameText(c.Fips10, text); break;
        case ckISO3166_2: hit = SameText(c.ISO3166_2, text); break;
        case ckISO3166_3: hit = SameText(c.ISO3166_3, text); break;
        }
        if (hit)
            return i;
    }
    return -1;
}

}  // namespace qv
