#include <qvgeo/support/text.h>

#include <charconv>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace qv {

namespace {

template <class List>
int StringIxImpl(std::string_view Str, const List& list, int High)
{
    const int last = std::min<int>(High, static_cast<int>(list.size()) - 1);
    for (int i = 0; i <= last; ++i)
        if (std::string_view(list[static_cast<std::size_t>(i)]) == Str)
            return i + 1;
    return 0;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsSeparator(char c) { return c == '/' || c == '\\' || c == ':'; }

}  // namespace

int StringIx(std::string_view Str, std::span<const std::string_view> List, int High)
{
    return StringIxImpl(Str, List, High);
}

int StringIx(std::string_view Str, std::span<const std::string> List, int High)
{
    return StringIxImpl(Str, List, High);
}

std::uint32_t ScanHex(std::string_view Text, int& Pos)
{
    std::uint32_t value = 0;
    if (Pos < 1)
        return 0;
    std::size_t i = static_cast<std::size_t>(Pos - 1);
    while (i < Text.size()) {
        const char c = Text[i];
        std::uint32_t digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<std::uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<std::uint32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = static_cast<std::uint32_t>(c - 'A' + 10);
        else
            break;
        value = (value << 4) | digit;  // unsigned: a ninth digit shifts the top one out
        ++i;
    }
    Pos = static_cast<int>(i + 1);
    return value;
}

std::string Hex(std::uint64_t Value, int Digits)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    if (Digits < 0)
        Digits = 0;
    std::string out(static_cast<std::size_t>(Digits), '0');
    for (int i = Digits - 1; i >= 0 && Value != 0; --i) {
        out[static_cast<std::size_t>(i)] = digits[Value & 0xF];
        Value >>= 4;
    }
    return out;
}

std::string BoolToStr(bool Value, int Style)
{
    switch (Style) {
    case 1: return Value ? "T" : "F";
    case 2: return Value ? ".T." : ".F.";
    case 3: return Value ? "1" : "0";
    case 4: return Value ? "-1" : "0";
    case 5: return Value ? "FF" : "00";
    case 6: return Value ? "YES" : "NO";
    case 7: return Value ? "GOOD" : "BAD";
    default: return Value ? "TRUE" : "FALSE";
    }
}

std::string StripPath(std::string_view FName)
{
    std::size_t start = 0;
    for (std::size_t i = 0; i < FName.size(); ++i)
        if (IsSeparator(FName[i]))
            start = i + 1;
    return std::string(FName.substr(start));
}

std::string StripExtension(std::string_view FName)
{
    for (std::size_t i = FName.size(); i-- > 0;) {
        if (IsSeparator(FName[i]))
            break;
        if (FName[i] == '.')
            return std::string(FName.substr(0, i));
    }
    return std::string(FName);
}

std::string ReduceStringToFN83CompliantChars(std::string_view S)
{
    static constexpr std::string_view extra = "!#$%&'()-@^_`{}~";
    std::string out;
    out.reserve(S.size());
    for (const char c : S) {
        const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (alnum || extra.find(c) != std::string_view::npos)
            out.push_back(c);
    }
    return out;
}

void WriteLnStream(std::ostream& Stream, std::string_view Line)
{
    Stream.write(Line.data(), static_cast<std::streamsize>(Line.size()));
    Stream.put('\n');
}

std::string LowerCase(std::string_view S)
{
    std::string out(S);
    for (char& c : out)
        c = Lower(c);
    return out;
}

std::string UpperCase(std::string_view S)
{
    std::string out(S);
    for (char& c : out)
        c = Upper(c);
    return out;
}

bool SameText(std::string_view A, std::string_view B)
{
    if (A.size() != B.size())
        return false;
    for (std::size_t i = 0; i < A.size(); ++i)
        if (Lower(A[i]) != Lower(B[i]))
            return false;
    return true;
}

std::string ShortestText(double Value)
{
    char buf[32];  // the longest shortest form of a double is 24 characters
    const auto r = std::to_chars(buf, buf + sizeof buf, Value);
    return std::string(buf, r.ptr);
}

std::string DegreeToStr(double Value, TDegreeFormat Format, int Decimals)
{
    if (std::isnan(Value))
        return "nan";
    if (std::isinf(Value))
        return Value < 0 ? "-inf" : "inf";
    Decimals = std::clamp(Decimals, 0, 12);
    const bool negative = std::signbit(Value) && Value != 0.0;
    double a = std::fabs(Value);
    char buf[96];

    // Round once, in units of the last component, then split; this is what keeps "60" out of the
    // minutes and seconds fields.
    const double scale = std::pow(10.0, Decimals);
    switch (Format) {
    case dfDegMin: {
        const double units = std::nearbyint(a * 60.0 * scale);  // in 1/scale minutes
        const double deg = std::floor(units / (60.0 * scale));
        const double min = (units - deg * 60.0 * scale) / scale;
        std::snprintf(buf, sizeof buf, "%s%.0f\xC2\xB0%0*.*f'", negative ? "-" : "", deg,
                      Decimals > 0 ? Decimals + 3 : 2, Decimals, min);
        break;
    }
    case dfDegMinSec: {
        const double units = std::nearbyint(a * 3600.0 * scale);  // in 1/scale seconds
        const double deg = std::floor(units / (3600.0 * scale));
        const double rest = units - deg * 3600.0 * scale;
        const double min = std::floor(rest / (60.0 * scale));
        const double sec = (rest - min * 60.0 * scale) / scale;
        std::snprintf(buf, sizeof buf, "%s%.0f\xC2\xB0%02.0f'%0*.*f\"", negative ? "-" : "", deg, min,
                      Decimals > 0 ? Decimals + 3 : 2, Decimals, sec);
        break;
    }
    case dfDecimalPlain:
    case dfDecimal:
    default:
        std::snprintf(buf, sizeof buf, "%s%.*f%s", negative ? "-" : "", Decimals, a,
                      Format == dfDecimalPlain ? "" : "\xC2\xB0");
        break;
    }
    std::string out(buf);
    // A value that rounds to zero carries no sign.
    if (negative && out.find_first_of("123456789") == std::string::npos)
        out.erase(0, 1);
    return out;
}

}  // namespace qv
