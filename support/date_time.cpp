#include <qvgeo/support/date_time.h>

#include <qvgeo/support/text.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace qv {

namespace {

// Days from 1970-01-01 to a proleptic Gregorian date, by 400-year eras so negative years work too.
long long DaysFromCivil(long long y, int m, int d)
{
    y -= m <= 2 ? 1 : 0;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const long long yoe = y - era * 400;                                   // [0, 399]
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;  // [0, 365]
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;           // [0, 146096]
    return era * 146097 + doe - 719468;
}

void CivilFromDays(long long z, long long& y, int& m, int& d)
{
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2 ? 1 : 0);
}

const long long EpochOffset = DaysFromCivil(1899, 12, 30);

bool IsLeap(long long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(long long y, int m)
{
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return (m == 2 && IsLeap(y)) ? 29 : days[m - 1];
}

constexpr std::array<std::array<std::string_view, 12>, 2> MonthNames = {{
    {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"},
    {"jan", "feb", "mär", "apr", "mai", "jun", "jul", "aug", "sep", "okt", "nov", "dez"},
}};

bool StartsWith(std::string_view s, std::size_t at, std::string_view token)
{
    return s.substr(at, token.size()) == token;
}

}  // namespace

bool TryEncodeDateTime(int Year, int Month, int Day, int Hour, int Min, int Sec, double& DateTime)
{
    if (Month < 1 || Month > 12 || Day < 1 || Day > DaysInMonth(Year, Month) || Hour < 0 || Hour > 23 ||
        Min < 0 || Min > 59 || Sec < 0 || Sec > 59)
        return false;
    const long long days = DaysFromCivil(Year, Month, Day) - EpochOffset;
    DateTime = static_cast<double>(days) + (Hour * 3600.0 + Min * 60.0 + Sec) / 86400.0;
    return true;
}

void DecodeDateTime(double DateTime, int& Year, int& Month, int& Day, int& Hour, int& Min, int& Sec)
{
    // Far beyond any calendar use, but keeps the conversion to whole seconds (and the year) in range.
    constexpr double limitDays = 5e11;
    if (!std::isfinite(DateTime))
        DateTime = 0.0;
    DateTime = std::clamp(DateTime, -limitDays, limitDays);
    const long long seconds = static_cast<long long>(std::nearbyint(DateTime * 86400.0));
    long long days = seconds / 86400;
    long long rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    long long y;
    CivilFromDays(days + EpochOffset, y, Month, Day);
    Year = static_cast<int>(y);
    Hour = static_cast<int>(rest / 3600);
    Min = static_cast<int>(rest / 60 % 60);
    Sec = static_cast<int>(rest % 60);
}

double ScanDateTime(std::string_view Text, std::string_view Format, TLanguage Language, int& Pos)
{
    std::size_t t = Pos < 1 ? 0 : static_cast<std::size_t>(Pos - 1);
    int year = 1899, month = 12, day = 30, hour = 0, min = 0, sec = 0;
    auto digits = [&](std::size_t count, int& out) {
        int v = 0;
        for (std::size_t k = 0; k < count; ++k, ++t) {
            if (t >= Text.size() || Text[t] < '0' || Text[t] > '9')
                return false;
            v = v * 10 + (Text[t] - '0');
        }
        out = v;
        return true;
    };
    auto fail = [&] {
        Pos = static_cast<int>(t + 1);
        return 0.0;
    };
    std::size_t f = 0;
    while (f < Format.size()) {
        bool ok = true;
        if (StartsWith(Format, f, "yyyy")) {
            ok = digits(4, year);
            f += 4;
        } else if (StartsWith(Format, f, "yy")) {
            ok = digits(2, year);
            year += year < 50 ? 2000 : 1900;
            f += 2;
        } else if (StartsWith(Format, f, "mmm")) {
            const std::string lower = LowerCase(Text.substr(t));
            ok = false;
            const auto& names = MonthNames[Language == lanGerman ? 1 : 0];
            for (int i = 0; i < 12 && !ok; ++i)
                if (StartsWith(lower, 0, names[static_cast<std::size_t>(i)])) {
                    month = i + 1;
                    t += names[static_cast<std::size_t>(i)].size();
                    ok = true;
                }
            f += 3;
        } else if (StartsWith(Format, f, "mm")) {
            ok = digits(2, month);
            f += 2;
        } else if (StartsWith(Format, f, "dd")) {
            ok = digits(2, day);
            f += 2;
        } else if (StartsWith(Format, f, "HH")) {
            ok = digits(2, hour);
            f += 2;
        } else if (StartsWith(Format, f, "MM")) {
            ok = digits(2, min);
            f += 2;
        } else if (StartsWith(Format, f, "SS")) {
            ok = digits(2, sec);
            f += 2;
        } else {
            ok = t < Text.size() && Text[t] == Format[f];
            if (ok)
                ++t;
            ++f;
        }
        if (!ok)
            return fail();
    }
    double result = 0.0;
    if (!TryEncodeDateTime(year, month, day, hour, min, sec, result))
        return fail();
    Pos = static_cast<int>(t + 1);
    return result;
}

std::string FormatDateTime(double DateTime, std::string_view Format, TLanguage Language)
{
    int year, month, day, hour, min, sec;
    DecodeDateTime(DateTime, year, month, day, hour, min, sec);
    std::string out;
    char buf[16];
    auto two = [&](int v) {
        std::snprintf(buf, sizeof buf, "%02d", v);
        out += buf;
    };
    std::size_t f = 0;
    while (f < Format.size()) {
        if (StartsWith(Format, f, "yyyy")) {
            std::snprintf(buf, sizeof buf, "%04d", year);
            out += buf;
            f += 4;
        } else if (StartsWith(Format, f, "yy")) {
            two(((year % 100) + 100) % 100);
            f += 2;
        } else if (StartsWith(Format, f, "mmm")) {
            std::string name(MonthNames[Language == lanGerman ? 1 : 0][static_cast<std::size_t>(month - 1)]);
            name[0] = static_cast<char>(name[0] - 'a' + 'A');
            out += name;
            f += 3;
        } else if (StartsWith(Format, f, "mm")) {
            two(month);
            f += 2;
        } else if (StartsWith(Format, f, "dd")) {
            two(day);
            f += 2;
        } else if (StartsWith(Format, f, "HH")) {
            two(hour);
            f += 2;
        } else if (StartsWith(Format, f, "MM")) {
            two(min);
            f += 2;
        } else if (StartsWith(Format, f, "SS")) {
            two(sec);
            f += 2;
        } else {
            out += Format[f];
            ++f;
        }
    }
    return out;
}

}  // namespace qv
