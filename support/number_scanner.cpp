#include <qvgeo/support/number_scanner.h>

#include <qvgeo/support/math_services.h>

#include <charconv>
#include <cstdlib>
#include <string>
#include <system_error>

namespace qv {

namespace {

constexpr long ExponentLimit = 4201;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::size_t StartIndex(int Pos) { return Pos < 1 ? 0 : static_cast<std::size_t>(Pos - 1); }

// Skips leading blanks and an optional sign from index i; returns the index after them.
std::size_t SkipBlanksAndSign(std::string_view Text, std::size_t i, bool& negative)
{
    const std::size_t n = Text.size();
    while (i < n && IsBlank(Text[i]))
        ++i;
    negative = false;
    if (i < n && (Text[i] == '+' || Text[i] == '-')) {
        negative = Text[i] == '-';
        ++i;
    }
    return i;
}

}  // namespace

double ScanNumber(std::string_view Text, int& Pos, unsigned Syntax)
{
    std::size_t i = StartIndex(Pos);
    const std::size_t n = Text.size();
    if (i > n)
        return 0.0;
    bool negative = false;
    i = SkipBlanksAndSign(Text, i, negative);
    const std::size_t afterSign = i;

    const std::size_t intStart = i;
    while (i < n && IsDigit(Text[i]))
        ++i;
    const std::string_view intDigits = Text.substr(intStart, i - intStart);

    std::string_view fracDigits;
    if (i < n && (Text[i] == '.' || (Text[i] == ',' && (Syntax & nsCommaAllowed)))) {
        const std::size_t fracStart = i + 1;
        std::size_t j = fracStart;
        while (j < n && IsDigit(Text[j]))
            ++j;
        if (!intDigits.empty() || j > fracStart) {
            fracDigits = Text.substr(fracStart, j - fracStart);
            i = j;
        }
    }
    if (intDigits.empty() && fracDigits.empty()) {
        Pos = static_cast<int>(afterSign + 1);
        return 0.0;
    }

    long exponent = 0;
    if ((Syntax & nsExponentAllowed) && i < n && (Text[i] == 'e' || Text[i] == 'E')) {
        std::size_t j = i + 1;
        bool expNegative = false;
        if (j < n && (Text[j] == '+' || Text[j] == '-')) {
            expNegative = Text[j] == '-';
            ++j;
        }
        if (j < n && IsDigit(Text[j])) {
            for (; j < n && IsDigit(Text[j]); ++j)
                if (exponent < ExponentLimit)
                    exponent = exponent * 10 + (Text[j] - '0');
            if (expNegative)
                exponent = -exponent;
            i = j;
        }
    }
    Pos = static_cast<int>(i + 1);

    // Decimal exponent of the first significant digit, to tell overflow from underflow; all zeros: 0.
    long lead = 0;
    bool significant = false;
    for (std::size_t k = 0; k < intDigits.size() && !significant; ++k)
        if (intDigits[k] != '0') {
            lead = static_cast<long>(intDigits.size() - k - 1);
            significant = true;
        }
    for (std::size_t k = 0; k < fracDigits.size() && !significant; ++k)
        if (fracDigits[k] != '0') {
            lead = -static_cast<long>(k + 1);
            significant = true;
        }
    if (!significant)
        return negative ? -0.0 : 0.0;

    std::string text;
    text.reserve(intDigits.size() + fracDigits.size() + 12);
    text.append(intDigits.empty() ? std::string_view("0") : intDigits);
    if (!fracDigits.empty()) {
        text.push_back('.');
        text.append(fracDigits);
    }
    text.push_back('e');
    text.append(std::to_string(exponent));

    double value = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    (void)end;
    if (ec == std::errc::result_out_of_range)
        value = (lead + exponent > 0) ? uc_MaxDouble : 0.0;
    return negative ? -value : value;
}

std::int32_t ScanInteger(std::string_view Text, int& Pos)
{
    std::size_t i = StartIndex(Pos);
    const std::size_t n = Text.size();
    if (i > n)
        return 0;
    bool negative = false;
    i = SkipBlanksAndSign(Text, i, negative);
    constexpr long long limit = 2147483648LL;  // magnitude of INT32_MIN
    long long magnitude = 0;
    for (; i < n && IsDigit(Text[i]); ++i)
        if (magnitude <= limit)
            magnitude = magnitude * 10 + (Text[i] - '0');
    Pos = static_cast<int>(i + 1);
    if (negative)
        return static_cast<std::int32_t>(magnitude > limit ? -limit : -magnitude);
    return static_cast<std::int32_t>(magnitude > limit - 1 ? limit - 1 : magnitude);
}

double StrToNumber(std::string_view Text, unsigned Syntax)
{
    int pos = 1;
    return ScanNumber(Text, pos, Syntax);
}

std::int32_t StrToInteger(std::string_view Text)
{
    int pos = 1;
    return ScanInteger(Text, pos);
}

}  // namespace qv
