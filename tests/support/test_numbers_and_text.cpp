// The number scanner, hexadecimal colours, keyword lookup, booleans, file names, angles and dates.
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/text.h>

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>

namespace qv {
namespace {

TEST(NumberScanner, ValueAndPosition)
{
    const struct {
        const char* text;
        int start;
        unsigned syntax;
        double value;
        int pos;  // 1-based position after the scan
    } cases[] = {
        {"48.20833", 1, nsAnyReal, 48.20833, 9},
        {"  -0.5]", 1, nsAnyReal, -0.5, 7},
        {".5", 1, nsAnyReal, 0.5, 3},
        {"1.2.3", 1, nsAnyReal, 1.2, 4},
        // the comma is a decimal separator only where allowed
        {"16,5", 1, nsAnyReal, 16.5, 5},
        {"16,5", 1, nsPointOnly, 16.0, 3},
        {"48.5,16.2", 1, nsAnyReal, 48.5, 5},  // one separator only: the comma ends it
        // exponents where allowed; an exponent letter without digits is not part of the number
        {"1.5e3x", 1, nsAnyReal, 1500.0, 6},
        {"1.5e3", 1, nsPointOnly, 1.5, 4},
        {"1e", 1, nsAnyReal, 1.0, 2},
        {"1e+]", 1, nsAnyReal, 1.0, 2},
        // not a number: 0, position after blanks and sign
        {"abc", 1, nsAnyReal, 0.0, 1},
        {"  -x", 1, nsAnyReal, 0.0, 4},
        {".", 1, nsAnyReal, 0.0, 1},
        // huge and tiny: clamped to the double range, all exponent digits consumed
        {"1e400", 1, nsAnyReal, uc_MaxDouble, 6},
        {"1e99999999999999999999", 1, nsAnyReal, uc_MaxDouble, 23},
        {"0.001e-99999", 1, nsAnyReal, 0.0, 13},
        {"1e308", 1, nsAnyReal, 1e308, 6},
        // correctly rounded, however many digits
        {"0.1", 1, nsAnyReal, 0.1, 4},
        {"123456789012345678901234567890", 1, nsAnyReal, 1.2345678901234568e29, 31},
        // scanning a list item by item from a position
        {"[48.5,16]", 7, nsPointOnly, 16.0, 9},
        {"12", 3, nsAnyReal, 0.0, 3},
        {"12", 10, nsAnyReal, 0.0, 10},  // a start beyond the text leaves the position
    };
    for (const auto& c : cases) {
        int pos = c.start;
        EXPECT_EQ(ScanNumber(c.text, pos, c.syntax), c.value) << '"' << c.text << '"';
        EXPECT_EQ(pos, c.pos) << '"' << c.text << '"';
    }
}

TEST(IntegerScanner, FormsAndClamps)
{
    struct C {
        const char* text;
        std::int32_t value;
        int pos;
    };
    for (const C c : {C{"  -42,", -42, 6}, C{"+810]", 810, 5}, C{"2147483647", 2147483647, 11},
                      C{"2147483648", 2147483647, 11}, C{"-2147483648", INT32_MIN, 12},
                      C{"-99999999999999999999", INT32_MIN, 22}, C{"x", 0, 1}, C{"12.5", 12, 3}}) {
        int pos = 1;
        EXPECT_EQ(ScanInteger(c.text, pos), c.value) << c.text;
        EXPECT_EQ(pos, c.pos) << c.text;
    }
    EXPECT_EQ(StrToInteger(" 33 "), 33);
    EXPECT_EQ(StrToNumber(" 12,5"), 12.5);
}

TEST(Hex, RoundTripsColoursAndAdvances)
{
    EXPECT_EQ(Hex(0xABCu, 2), "BC");  // exactly the digits asked for
    for (const std::uint32_t v : {0u, 0xFFFFFFFFu, 0x12345678u, 0x00C0FFEEu}) {
        const std::string text = "colorfg=" + Hex(v, 8) + ";";
        int pos = 9;
        EXPECT_EQ(ScanHex(text, pos), v);
        EXPECT_EQ(pos, 17);
    }
    int pos = 1;
    EXPECT_EQ(ScanHex("ff00Gz", pos), 0xFF00u);
    EXPECT_EQ(pos, 5);
    pos = 1;
    EXPECT_EQ(ScanHex("123456789", pos), 0x23456789u);  // a ninth digit keeps the low 32 bits
}

TEST(StringIx, FindsFirstMatchOneBased)
{
    constexpr std::array<std::string_view, 4> list = {"cross", "square", "cross", "circle"};
    EXPECT_EQ(StringIx("cross", list, 3), 1);
    EXPECT_EQ(StringIx("circle", list, 3), 4);
    EXPECT_EQ(StringIx("circle", list, 2), 0);   // beyond High
    EXPECT_EQ(StringIx("Cross", list, 3), 0);    // exact spelling
    EXPECT_EQ(StringIx("circle", list, 99), 4);  // High past the list is clamped
    EXPECT_EQ(StringIx("", list, 3), 0);
}

TEST(BoolToStr, AllStyles)
{
    const std::array<std::pair<const char*, const char*>, 9> styles = {
        {{"TRUE", "FALSE"}, {"T", "F"}, {".T.", ".F."}, {"1", "0"}, {"-1", "0"}, {"FF", "00"}, {"YES", "NO"},
         {"GOOD", "BAD"}, {"TRUE", "FALSE"}}};
    for (int s = 0; s < 9; ++s) {
        EXPECT_EQ(BoolToStr(true, s), styles[static_cast<std::size_t>(s)].first) << s;
        EXPECT_EQ(BoolToStr(false, s), styles[static_cast<std::size_t>(s)].second) << s;
    }
    EXPECT_EQ(BoolToStr(true, -3), "TRUE");
}

TEST(FileNames, PathAndExtension)
{
    struct C {
        const char* in;
        const char* noPath;
        const char* noExt;
    };
    for (const C c : {C{"c:\\maps\\vienna.bmp", "vienna.bmp", "c:\\maps\\vienna"},
                      C{"/data/maps/wien.v2.jpg", "wien.v2.jpg", "/data/maps/wien.v2"},
                      C{"dir.d/name", "name", "dir.d/name"},  // a dot in a directory is no extension
                      C{"c:file.xml", "file.xml", "c:file"},
                      C{"trailing/", "", "trailing/"},
                      C{".hidden", ".hidden", ""}}) {
        EXPECT_EQ(StripPath(c.in), c.noPath) << c.in;
        EXPECT_EQ(StripExtension(c.in), c.noExt) << c.in;
    }
}

TEST(FileNames, ShortNameCharacters)
{
    EXPECT_EQ(ReduceStringToFN83CompliantChars("Wien 1:50.000 (Nord)/Blatt*3?"), "Wien150000(Nord)Blatt3");
    EXPECT_EQ(ReduceStringToFN83CompliantChars("a-b_c~d!e#f$g%h&i'j@k^l`m{n}o"), "a-b_c~d!e#f$g%h&i'j@k^l`m{n}o");
    EXPECT_EQ(ReduceStringToFN83CompliantChars("M\xC3\xBCnchen"), "Mnchen");  // non-ASCII bytes go
}

TEST(TextCase, TrimAndSameText)
{
    EXPECT_EQ(Trim(" \t a b \r\n"), "a b");  // CR of files written elsewhere goes too
    EXPECT_EQ(Trim("   "), "");
    EXPECT_TRUE(SameText("GelWGS84", "gelwgs84"));
    EXPECT_FALSE(SameText("abc", "abcd"));
}

TEST(DegreeText, Renders)
{
    const struct {
        double value;
        TDegreeFormat format;
        int decimals;
        const char* text;
    } cases[] = {
        {48.2083333333, dfDecimal, 5, "48.20833\xC2\xB0"},
        {48.2083333333, dfDegMin, 3, "48\xC2\xB0" "12.500'"},
        {48.2083333333, dfDegMinSec, 1, "48\xC2\xB0" "12'30.0\""},
        {16.0, dfDegMinSec, 0, "16\xC2\xB0" "00'00\""},
        {16.2125, dfDegMinSec, 0, "16\xC2\xB0" "12'45\""},  // seconds past the half minute
        // rounding carries into minutes and degrees instead of printing 60
        {47.99999999, dfDegMinSec, 1, "48\xC2\xB0" "00'00.0\""},
        {47.99999999, dfDegMin, 2, "48\xC2\xB0" "00.00'"},
        {-0.5, dfDegMin, 0, "-0\xC2\xB0" "30'"},
        {-0.0000001, dfDecimal, 3, "0.000\xC2\xB0"},  // no "-0.000"
        {-16.5, dfDecimalPlain, 2, "-16.50"},
        {179.999999, dfDecimal, 20, "179.999999000000\xC2\xB0"},  // decimals clamped
        {std::numeric_limits<double>::quiet_NaN(), dfDecimal, 2, "nan"},
        {-std::numeric_limits<double>::infinity(), dfDegMin, 2, "-inf"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DegreeToStr(c.value, c.format, c.decimals), c.text) << c.value << " " << c.format;
}

TEST(Dates, EpochAndKnownSerials)
{
    struct C {
        int y, mo, d, h;
        bool ok;
        double serial;
    };
    for (const C c : {C{1899, 12, 30, 0, true, 0.0}, C{1900, 1, 1, 0, true, 2.0}, C{2000, 1, 1, 12, true, 36526.5},
                      C{1800, 1, 1, 0, true, -36522.0}, C{2000, 2, 29, 0, true, 36585.0}, C{2023, 2, 29, 0, false, 0},
                      C{1900, 2, 29, 0, false, 0},  // 1900 was no leap year
                      C{2024, 13, 1, 0, false, 0}, C{2024, 1, 1, 24, false, 0}}) {
        double d = -1;
        EXPECT_EQ(TryEncodeDateTime(c.y, c.mo, c.d, c.h, 0, 0, d), c.ok) << c.y << "-" << c.mo << "-" << c.d;
        EXPECT_TRUE(!c.ok || d == c.serial) << c.y << "-" << c.mo << "-" << c.d << ": " << d;
    }
}

TEST(Dates, ScanAndFormatRoundTrip)
{
    const char* picture = "yyyymmddHHMMSS";
    int pos = 1;
    const double d = ScanDateTime("20240229123456", picture, lanEnglish, pos);
    EXPECT_EQ(pos, 15);
    int y, mo, da, h, mi, s;
    DecodeDateTime(d, y, mo, da, h, mi, s);
    EXPECT_EQ((std::array{y, mo, da, h, mi, s}), (std::array{2024, 2, 29, 12, 34, 56}));
    EXPECT_EQ(FormatDateTime(d, picture), "20240229123456");
    for (const double serial : {0.0, 1.25, 45000.999988425926, -700.5, 2958465.0})
        EXPECT_EQ(FormatDateTime(ScanDateTime(FormatDateTime(serial, picture), picture, lanEnglish, pos = 1),
                                 picture),
                  FormatDateTime(serial, picture));
}

TEST(Dates, ExtremeSerialsStayInRange)
{
    int y, mo, d, h, mi, s;
    for (const double serial : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN(),
                                std::numeric_limits<double>::infinity()}) {
        DecodeDateTime(serial, y, mo, d, h, mi, s);  // must not overflow (checked under UBSan)
        EXPECT_TRUE(mo >= 1 && mo <= 12) << serial;
    }
    DecodeDateTime(std::numeric_limits<double>::quiet_NaN(), y, mo, d, h, mi, s);
    EXPECT_EQ(y, 1899);
}

TEST(Dates, BadTextStopsWhereItFails)
{
    int pos = 1;
    EXPECT_EQ(ScanDateTime("2024x2291234", "yyyymmddHHMMSS", lanEnglish, pos), 0.0);
    EXPECT_EQ(pos, 5);
    pos = 1;
    EXPECT_EQ(ScanDateTime("20230229000000", "yyyymmddHHMMSS", lanEnglish, pos), 0.0);  // no such day
    pos = 1;
    EXPECT_EQ(ScanDateTime("2024", "yyyymmddHHMMSS", lanEnglish, pos), 0.0);
    EXPECT_EQ(pos, 5);
    pos = 3;
    const double d = ScanDateTime("at12-Mar-2021", "dd-mmm-yyyy", lanEnglish, pos);
    EXPECT_EQ(FormatDateTime(d, "yyyy-mm-dd"), "2021-03-12");
    EXPECT_EQ(FormatDateTime(d, "dd mmm yyyy", lanGerman), "12 M\xC3\xA4r 2021");
}

}  // namespace
}  // namespace qv
