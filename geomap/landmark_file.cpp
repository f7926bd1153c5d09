#include <qvgeo/geomap/landmark_file.h>

#include <qvgeo/geomap/file_family.h>
#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/tag_reader.h>
#include <qvgeo/support/text.h>

#include <array>
#include <charconv>
#include <system_error>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <istream>
#include <limits>
#include <memory>
#include <new>
#include <ostream>

namespace qv {

namespace {

constexpr std::string_view DatePicture = "yyyymmddHHMMSS";

// Keywords the reader knows, in the order of their shapes below.
constexpr std::array<std::string_view, 8> ElementKeywords = {"cross",   "square",  "triangle", "circle",
                                                             "arrowfrom", "arrowto", "crossbox", "spade"};
constexpr std::array<TLandMarkElement, 8> ElementKinds = {lmCross,     lmSquare,  lmTriangle, lmCircle,
                                                          lmArrowFrom, lmArrowTo, lmCrossBox, lmSpade};

// The attributes of a landmark tag, in the order the writer puts them.
enum TLMAttr : std::uint8_t {
    laLat, laLong, laAlti, laClass, laUserTag, laColorFG, laColorBG, laSize, laTransp, laDir, laLeng,
    laElement, laId, laDate, laCapText, laCapSize, laCapFnm, laCapFGCol, laCapBGCol, laCapTransp, laCapDir,
    laCapDx, laCapDy, laCapHAl, laCapVAl, laCapFst, laCount
};
constexpr std::array<std::string_view, laCount> AttrNames = {
    "lat",    "long",     "alti",     "class",    "usertag",   "colorfg", "colorbg", "size",   "transp",
    "dir",    "leng",     "element",  "id",       "date",      "captext", "capsize", "capfnm", "capfgcol",
    "capbgcol", "captransp", "capdir", "capdx",   "capdy",     "caphal",  "capval",  "capfst"};

// Days since 1899-12-30 of 0001-01-01 00:00:00 and of 10000-01-01 00:00:00 less half a second: the
// range in which "yyyy" stays four digits after rounding to the second.
constexpr double FirstWritableDate = -693593.0;
constexpr double EndWritableDate = 2958466.0 - 0.5 / 86400.0;

// True when Value contains "true" in any case.
bool ContainsTrue(std::string_view Value)
{
    if (Value == "TRUE" || Value == "FALSE")  // what the writer puts
        return Value[0] == 'T';
    for (std::size_t i = 0; i + 4 <= Value.size(); ++i)
        if (SameText(Value.substr(i, 4), "true"))
            return true;
    return false;
}

// StrToNumber(Value, nsAnyReal). The writer's own forms ("-48.20833", "1e-07", "2.5e+20") go straight
// to from_chars, which rounds the same decimal value the same way; anything else, and any result out of
// range, takes the number scanner with its comma, blank, exponent-limit and clamping rules.
double RealValue(std::string_view Value)
{
    auto digits = [&Value](std::size_t i) {
        while (i < Value.size() && Value[i] >= '0' && Value[i] <= '9')
            ++i;
        return i;
    };
    std::size_t i = !Value.empty() && Value[0] == '-' ? 1 : 0;
    std::size_t j = digits(i);
    bool plain = j > i;
    if (plain && j < Value.size() && Value[j] == '.') {
        const std::size_t k = digits(j + 1);
        plain = k > j + 1;
        j = k;
    }
    if (plain && j < Value.size() && (Value[j] == 'e' || Value[j] == 'E')) {
        std::size_t k = j + 1;
        if (k < Value.size() && (Value[k] == '-' || Value[k] == '+'))
            ++k;
        j = digits(k);
        plain = j > k && j - k <= 3;
    }
    if (plain && j == Value.size()) {
        double v = 0.0;
        const auto res = std::from_chars(Value.data(), Value.data() + Value.size(), v);
        if (res.ec == std::errc() && res.ptr == Value.data() + Value.size())
            return v;
    }
    return StrToNumber(Value, nsAnyReal);
}

// ScanHex from the first character; the writer's eight digits are decoded here directly.
std::uint32_t HexValue(std::string_view Value)
{
    if (Value.size() == 8) {
        std::uint32_t v = 0;
        std::size_t k = 0;
        for (; k < 8; ++k) {
            const char c = Value[k];
            std::uint32_t d;
            if (c >= '0' && c <= '9')
                d = static_cast<std::uint32_t>(c - '0');
            else if (c >= 'A' && c <= 'F')
                d = static_cast<std::uint32_t>(c - 'A' + 10);
            else
                break;
            v = v << 4 | d;
        }
        if (k == 8)
            return v;
    }
    int pos = 1;
    return ScanHex(Value, pos);
}

// StrToInteger; up to nine digits with an optional "-" are decoded here directly (no clamping needed).
std::int32_t IntValue(std::string_view Value)
{
    const std::size_t first = !Value.empty() && Value[0] == '-' ? 1 : 0;
    if (Value.size() > first && Value.size() - first <= 9) {
        std::int32_t v = 0;
        std::size_t k = first;
        for (; k < Value.size() && Value[k] >= '0' && Value[k] <= '9'; ++k)
            v = v * 10 + (Value[k] - '0');
        if (k == Value.size())
            return first ? -v : v;
    }
    return StrToInteger(Value);
}

// ScanDateTime over DatePicture, with the common case of fourteen digits decoded directly.
double DateValue(std::string_view Value)
{
    if (Value.size() >= 14) {
        int d[14];
        std::size_t k = 0;
        for (; k < 14 && Value[k] >= '0' && Value[k] <= '9'; ++k)
            d[k] = Value[k] - '0';
        if (k == 14) {
            auto two = [&d](int i) { return d[i] * 10 + d[i + 1]; };
            double t = 0.0;
            return TryEncodeDateTime(two(0) * 100 + two(2), two(4), two(6), two(8), two(10), two(12), t) ? t : 0.0;
        }
    }
    int pos = 1;
    return ScanDateTime(Value, DatePicture, lanEnglish, pos);
}

// The writer works on a character buffer: every piece below writes at p and returns the end.

template <std::size_t N>
char* PutLit(char* p, const char (&Text)[N])
{
    std::memcpy(p, Text, N - 1);
    return p + N - 1;
}

char* Put(char* p, std::string_view Text)
{
    std::memcpy(p, Text.data(), Text.size());
    return p + Text.size();
}

char* PutInt(char* p, std::int64_t Value) { return std::to_chars(p, p + 24, Value).ptr; }

// Shortest text that the number scanner reads back as the same double. Infinities are written as the
// largest double (the scanner's clamp would give that anyway), NaN as 0.
char* PutReal(char* p, double Value)
{
    if (std::isnan(Value))
        Value = 0;
    else if (std::isinf(Value))
        Value = Value > 0 ? std::numeric_limits<double>::max() : -std::numeric_limits<double>::max();
    return std::to_chars(p, p + 32, Value).ptr;
}

// Eight upper-case hexadecimal digits, as Hex(Value, 8).
char* PutHex8(char* p, std::uint32_t Value)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    for (int i = 7; i >= 0; --i, Value >>= 4)
        p[i] = digits[Value & 0xFu];
    return p + 8;
}

char* PutTwo(char* p, int Value)
{
    p[0] = static_cast<char>('0' + Value / 10);
    p[1] = static_cast<char>('0' + Value % 10);
    return p + 2;
}

// The time as "yyyymmddHHMMSS"; outside the years 1 to 9999 the epoch, which reads back as no date.
char* PutDate(char* p, double Time)
{
    if (!(Time >= FirstWritableDate && Time < EndWritableDate))
        Time = 0.0;
    int y, mo, d, h, mi, sec;
    DecodeDateTime(Time, y, mo, d, h, mi, sec);
    p = PutTwo(PutTwo(p, y / 100), y % 100);
    return PutTwo(PutTwo(PutTwo(PutTwo(PutTwo(p, mo), d), h), mi), sec);
}

// Room a landmark's tag line needs at most: the fixed text with the longest numbers, and its texts.
std::size_t TagBound(const TLandMark& LandMark)
{
    return 768 + LandMark.Identifier.size() + LandMark.Caption.Text.size() + LandMark.Caption.FontName.size();
}

// The landmark's tag line at p, without line end.
char* PutLandMarkTag(char* p, const TLandMark& LandMark)
{
    const TSymbolProperties& sp = LandMark.SymbolProps;
    const TLMTextProperties& cap = LandMark.Caption;
    p = PutLit(p, "<landmark lat=\"");
    p = PutReal(p, LandMark.Latitude);
    p = PutLit(p, "\" long=\"");
    p = PutReal(p, LandMark.Longitude);
    p = PutLit(p, "\" alti=\"");
    p = PutReal(p, LandMark.Altitude);
    p = PutLit(p, "\" class=\"");
    p = PutInt(p, LandMark.ClassFlag);
    p = PutLit(p, "\" usertag=\"");
    p = PutInt(p, LandMark.Tag);
    p = PutLit(p, "\" colorfg=\"");
    p = PutHex8(p, sp.FGColor);
    p = PutLit(p, "\" colorbg=\"");
    p = PutHex8(p, sp.BGColor);
    p = PutLit(p, "\" size=\"");
    p = PutInt(p, sp.Size);
    p = sp.Transparent ? PutLit(p, "\" transp=\"TRUE") : PutLit(p, "\" transp=\"FALSE");
    p = PutLit(p, "\" dir=\"");
    p = PutInt(p, sp.Direction);
    p = PutLit(p, "\" leng=\"");
    p = PutInt(p, sp.Length);
    p = PutLit(p, "\" element=\"");
    p = Put(p, LandMarkElementKeyword(sp.Kind));
    *p++ = '"';
    p = PutTextAttribute(p, "id", LandMark.Identifier);
    p = PutLit(p, " date=\"");
    p = PutDate(p, LandMark.Time);
    *p++ = '"';
    p = PutTextAttribute(p, "captext", cap.Text);
    p = PutLit(p, " capsize=\"");
    p = PutInt(p, cap.Size);
    *p++ = '"';
    p = PutTextAttribute(p, "capfnm", cap.FontName);
    p = PutLit(p, " capfgcol=\"");
    p = PutHex8(p, cap.FGColor);
    p = PutLit(p, "\" capbgcol=\"");
    p = PutHex8(p, cap.BGColor);
    p = cap.Transparent ? PutLit(p, "\" captransp=\"TRUE") : PutLit(p, "\" captransp=\"FALSE");
    p = PutLit(p, "\" capdir=\"");
    p = PutInt(p, cap.Direction);
    p = PutLit(p, "\" capdx=\"");
    p = PutInt(p, cap.dx);
    p = PutLit(p, "\" capdy=\"");
    p = PutInt(p, cap.dy);
    p = PutLit(p, "\" caphal=\"");
    p = PutInt(p, cap.HAlignment);
    p = PutLit(p, "\" capval=\"");
    p = PutInt(p, cap.VAlignment);
    p = PutLit(p, "\" capfst=\"");
    for (int i = 0; i < 4; ++i)
        *p++ = cap.FontStyles.Contains(static_cast<TFontStyle>(i)) ? '1' : '0';
    return PutLit(p, "\" />");
}

// Lines collected in a large block and handed to the stream a block at a time.
class TBlockWriter {
public:
    explicit TBlockWriter(std::ostream& F) : FOut(F) {}
    ~TBlockWriter() = default;
    TBlockWriter(const TBlockWriter&) = delete;
    TBlockWriter& operator=(const TBlockWriter&) = delete;

    // A place for at least Size bytes.
    char* Room(std::size_t Size)
    {
        if (FUsed + Size > FSize) {
            Flush();
            if (Size > FSize) {
                FSize = std::max(Size, Block);
                FBuf = std::make_unique_for_overwrite<char[]>(FSize);
            }
        }
        return FBuf.get() + FUsed;
    }
    void Used(const char* End) { FUsed = static_cast<std::size_t>(End - FBuf.get()); }
    void Line(std::string_view Text)
    {
        char* p = Put(Room(Text.size() + 1), Text);
        *p++ = '\n';
        Used(p);
    }
    void Flush()
    {
        if (FUsed > 0 && FOut)
            FOut.write(FBuf.get(), static_cast<std::streamsize>(FUsed));
        FUsed = 0;
    }

private:
    static constexpr std::size_t Block = 256 * 1024;
    std::ostream& FOut;
    std::size_t FSize = Block;
    std::size_t FUsed = 0;
    std::unique_ptr<char[]> FBuf = std::make_unique_for_overwrite<char[]>(Block);
};

// No writer's landmark line is shorter than that of a landmark with every field zero or empty, so the
// bytes left in a file bound the landmarks it can hold: allocating that once spares the copies of a
// growing list. Only the allocation changes; the length still follows the steps of the reader. Streams
// that cannot tell their size are left alone.
void ReserveForRestOf(std::istream& F, std::vector<TLandMark>& List)
{
    static const std::size_t shortestLine = LandMarkToTag(TLandMark{}).size() + 1;
    constexpr std::size_t most = std::size_t{1} << 20;  // beyond this, growing costs little in proportion
    if (!F.good())
        return;
    const std::streampos here = F.tellg();
    if (here == std::streampos(-1))
        return;
    F.seekg(0, std::ios::end);
    const std::streampos last = F.tellg();
    F.clear();
    F.seekg(here);
    if (last == std::streampos(-1) || !F)
        return;
    const auto room = std::min(static_cast<std::size_t>(std::max<std::streamoff>(last - here, 0)) / shortestLine, most);
    if (room > List.size()) {
        try {
            List.reserve(room);
        } catch (const std::bad_alloc&) {  // then the list grows as it goes
        } catch (const std::length_error&) {
        }
    }
}

}  // namespace

std::string_view LandMarkElementKeyword(TLandMarkElement Kind)
{
    switch (Kind) {
    case lmPlus: return "plus";
    case lmUserDef: return "userdef";
    default: break;
    }
    for (std::size_t i = 0; i < ElementKinds.size(); ++i)
        if (ElementKinds[i] == Kind)
            return ElementKeywords[i];
    return "cross";
}

TLandMarkElement ParseLandMarkElement(std::string_view Keyword)
{
    for (std::size_t i = 0; i < ElementKeywords.size(); ++i)
        if (Keyword.size() == ElementKeywords[i].size() && SameText(Keyword, ElementKeywords[i]))
            return ElementKinds[i];
    return lmCross;
}

std::string FontStylesToStr(TFontStyles Styles)
{
    std::string s(4, '0');
    for (int i = 0; i < 4; ++i)
        if (Styles.Contains(static_cast<TFontStyle>(i)))
            s[static_cast<std::size_t>(i)] = '1';
    return s;
}

TFontStyles StrToFontStyles(std::string_view Text)
{
    TFontStyles styles;
    for (std::size_t i = 0; i < 4 && i < Text.size(); ++i)
        if (Text[i] == '1')
            styles.Include(static_cast<TFontStyle>(i));
    return styles;
}

std::string LandMarkToTag(const TLandMark& LandMark)
{
    std::string line(TagBound(LandMark), '\0');
    line.resize(static_cast<std::size_t>(PutLandMarkTag(line.data(), LandMark) - line.data()));
    return line;
}

void LandMarkFromAttributes(std::string_view Attr, TLandMark& LandMark)
{
    std::array<std::string_view, laCount> v;
    SplitTagAttributes(Attr, AttrNames, v);
    // Texts are kept as read; numbers, colours, keywords and flags are read without the blanks a hand
    // edit may leave around them.
    for (std::size_t k = 0; k < v.size(); ++k)
        if (k != laId && k != laCapText && k != laCapFnm)
            v[k] = Trim(v[k]);
    TSymbolProperties& sp = LandMark.SymbolProps;
    TLMTextProperties& cap = LandMark.Caption;
    LandMark.Latitude = RealValue(v[laLat]);
    LandMark.Longitude = RealValue(v[laLong]);
    LandMark.Altitude = RealValue(v[laAlti]);
    LandMark.ClassFlag = static_cast<std::uint8_t>(static_cast<std::uint32_t>(IntValue(v[laClass])) & 0xFFu);
    LandMark.Tag = IntValue(v[laUserTag]);
    sp.FGColor = HexValue(v[laColorFG]);
    sp.BGColor = HexValue(v[laColorBG]);
    sp.Size = IntValue(v[laSize]);
    sp.Transparent = ContainsTrue(v[laTransp]);
    sp.Direction = IntValue(v[laDir]);
    sp.Length = IntValue(v[laLeng]);
    sp.Kind = ParseLandMarkElement(v[laElement]);
    LandMark.Identifier = CutShortString(v[laId], LMIdentifierCapacity);
    LandMark.Time = DateValue(v[laDate]);
    cap.Text = CutShortString(v[laCapText], LMTextCapacity);
    cap.Size = IntValue(v[laCapSize]);
    cap.FontName.assign(v[laCapFnm]);
    cap.FGColor = HexValue(v[laCapFGCol]);
    cap.BGColor = HexValue(v[laCapBGCol]);
    cap.Transparent = ContainsTrue(v[laCapTransp]);
    cap.Direction = IntValue(v[laCapDir]);
    cap.dx = IntValue(v[laCapDx]);
    cap.dy = IntValue(v[laCapDy]);
    const std::int32_t hal = IntValue(v[laCapHAl]);
    cap.HAlignment = (hal >= 0 && hal < NumHorzAlignments) ? static_cast<THorzAlignment>(hal) : haCenter;
    const std::int32_t val = IntValue(v[laCapVAl]);
    cap.VAlignment = (val >= 0 && val < NumVerticalAlignments) ? static_cast<TVerticalAlignment>(val) : vaTop;
    cap.FontStyles = StrToFontStyles(v[laCapFst]);
}

// ---------------------------------------------------------------------------------------------------
// The set-level reader and writer of TLandMarkStore.

bool TLandMarkStore::ReadLandMarksFromOpenXMLFile(std::istream& F, std::string_view Id)
{
    if (FInAction > 0)
        return false;
    if (!SeekFamilyHeader(F, XMLTagNames[xtGMLandmarks], Id))
        return false;

    constexpr std::size_t step = 1000;
    try {
        std::vector<TLandMark>(step).swap(FLandMarks);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
    FNumLandMarks = 0;
    ReserveForRestOf(F, FLandMarks);

    TTagScanner tags(F);
    std::string_view attr;
    for (;;) {
        const int tag = tags.Next(XMLTagNames, XMLTagHigh, attr);
        if (tag == xtGeoMapEnd || tag == xtInvalidTag)
            break;
        if (tag != xtLandmark)
            continue;
        // The reader's own growth rule: at counts 1001, 2001, ... the room becomes count + 1000.
        const auto count = static_cast<std::size_t>(FNumLandMarks) + 1;
        if (count > step && count % step == 1)
            ResizeArray(count + step);
        // Straight into the slot: every field is overwritten, so nothing of an earlier landmark stays.
        LandMarkFromAttributes(attr, FLandMarks[count - 1]);
        FNumLandMarks = static_cast<std::int32_t>(count);
    }
    tags.Finish();
    Changed(lcList);
    return true;
}

bool TLandMarkStore::LoadLandMarks(const std::string& FName, std::string_view Id)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    return ReadLandMarksFromOpenXMLFile(f, Id);
}

void TLandMarkStore::WriteLandMarksToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id) const
{
    TBlockWriter out(F);
    if (WithHeader)
        out.Line("<?xml version=\"1.0\"?>");
    out.Line("");
    out.Line("<!-- TGeoMap Landmarks / Quorvanta -->");
    std::string header = "<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\"";
    AppendTextAttribute(header, "id", Id);
    header += '>';
    out.Line(header);
    for (const TLandMark& lm : LandMarks()) {
        char* p = PutLandMarkTag(out.Room(TagBound(lm) + 1), lm);
        *p++ = '\n';
        out.Used(p);
    }
    out.Line("</gmlandmarks>");
    out.Flush();
}

void TLandMarkStore::SaveLandmarks(const std::string& FName, std::string_view Id) const
{
    std::ofstream f(FName, std::ios::binary | std::ios::trunc);
    if (f)
        WriteLandMarksToOpenXMLFile(f, true, Id);
    if (f)
        f.flush();
    if (!f)
        throw EXELGeoMapError(ComponentMessage(FComponentName, "cannot write file \"" + FName + "\""));
}

}  // namespace qv
