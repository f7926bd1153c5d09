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
#include <cmath>
#include <fstream>
#include <istream>
#include <limits>
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

bool ContainsTrue(std::string_view Value) { return LowerCase(Value).find("true") != std::string::npos; }

std::uint32_t HexValue(std::string_view Value)
{
    int pos = 1;
    return ScanHex(Value, pos);
}

void AppendRaw(std::string& Line, std::string_view Name, std::string_view Value)
{
    Line += ' ';
    Line += Name;
    Line += "=\"";
    Line += Value;
    Line += '"';
}

void AppendInt(std::string& Line, std::string_view Name, std::int64_t Value)
{
    char buf[24];
    const auto res = std::to_chars(buf, buf + sizeof buf, Value);
    AppendRaw(Line, Name, std::string_view(buf, static_cast<std::size_t>(res.ptr - buf)));
}

// Shortest text that the number scanner reads back as the same double. Infinities are written as the
// largest double (the scanner's clamp would give that anyway), NaN as 0.
void AppendReal(std::string& Line, std::string_view Name, double Value)
{
    if (std::isnan(Value))
        Value = 0;
    else if (std::isinf(Value))
        Value = Value > 0 ? std::numeric_limits<double>::max() : -std::numeric_limits<double>::max();
    char buf[32];
    const auto res = std::to_chars(buf, buf + sizeof buf, Value);
    AppendRaw(Line, Name, std::string_view(buf, static_cast<std::size_t>(res.ptr - buf)));
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
    const int ix = StringIx(Keyword, ElementKeywords, static_cast<int>(ElementKeywords.size()) - 1);
    return ix == 0 ? lmCross : ElementKinds[static_cast<std::size_t>(ix - 1)];
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
    const TSymbolProperties& sp = LandMark.SymbolProps;
    const TLMTextProperties& cap = LandMark.Caption;
    std::string line;
    line.reserve(512);
    line += "<landmark";
    AppendReal(line, "lat", LandMark.Latitude);
    AppendReal(line, "long", LandMark.Longitude);
    AppendReal(line, "alti", LandMark.Altitude);
    AppendInt(line, "class", LandMark.ClassFlag);
    AppendInt(line, "usertag", LandMark.Tag);
    AppendRaw(line, "colorfg", Hex(sp.FGColor, 8));
    AppendRaw(line, "colorbg", Hex(sp.BGColor, 8));
    AppendInt(line, "size", sp.Size);
    AppendRaw(line, "transp", BoolToStr(sp.Transparent, 0));
    AppendInt(line, "dir", sp.Direction);
    AppendInt(line, "leng", sp.Length);
    AppendRaw(line, "element", LandMarkElementKeyword(sp.Kind));
    AppendTextAttribute(line, "id", LandMark.Identifier);
    const double time =
        (LandMark.Time >= FirstWritableDate && LandMark.Time < EndWritableDate) ? LandMark.Time : 0.0;
    AppendRaw(line, "date", FormatDateTime(time, DatePicture, lanEnglish));
    AppendTextAttribute(line, "captext", cap.Text);
    AppendInt(line, "capsize", cap.Size);
    AppendTextAttribute(line, "capfnm", cap.FontName);
    AppendRaw(line, "capfgcol", Hex(cap.FGColor, 8));
    AppendRaw(line, "capbgcol", Hex(cap.BGColor, 8));
    AppendRaw(line, "captransp", BoolToStr(cap.Transparent, 0));
    AppendInt(line, "capdir", cap.Direction);
    AppendInt(line, "capdx", cap.dx);
    AppendInt(line, "capdy", cap.dy);
    AppendInt(line, "caphal", cap.HAlignment);
    AppendInt(line, "capval", cap.VAlignment);
    AppendRaw(line, "capfst", FontStylesToStr(cap.FontStyles));
    line += " />";
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
    LandMark.Latitude = StrToNumber(v[laLat], nsAnyReal);
    LandMark.Longitude = StrToNumber(v[laLong], nsAnyReal);
    LandMark.Altitude = StrToNumber(v[laAlti], nsAnyReal);
    LandMark.ClassFlag = static_cast<std::uint8_t>(static_cast<std::uint32_t>(StrToInteger(v[laClass])) & 0xFFu);
    LandMark.Tag = StrToInteger(v[laUserTag]);
    sp.FGColor = HexValue(v[laColorFG]);
    sp.BGColor = HexValue(v[laColorBG]);
    sp.Size = StrToInteger(v[laSize]);
    sp.Transparent = ContainsTrue(v[laTransp]);
    sp.Direction = StrToInteger(v[laDir]);
    sp.Length = StrToInteger(v[laLeng]);
    sp.Kind = ParseLandMarkElement(LowerCase(v[laElement]));
    LandMark.Identifier = CutShortString(v[laId], LMIdentifierCapacity);
    int pos = 1;
    LandMark.Time = ScanDateTime(v[laDate], DatePicture, lanEnglish, pos);
    cap.Text = CutShortString(v[laCapText], LMTextCapacity);
    cap.Size = StrToInteger(v[laCapSize]);
    cap.FontName = std::string(v[laCapFnm]);
    cap.FGColor = HexValue(v[laCapFGCol]);
    cap.BGColor = HexValue(v[laCapBGCol]);
    cap.Transparent = ContainsTrue(v[laCapTransp]);
    cap.Direction = StrToInteger(v[laCapDir]);
    cap.dx = StrToInteger(v[laCapDx]);
    cap.dy = StrToInteger(v[laCapDy]);
    const std::int32_t hal = StrToInteger(v[laCapHAl]);
    cap.HAlignment = (hal >= 0 && hal < NumHorzAlignments) ? static_cast<THorzAlignment>(hal) : haCenter;
    const std::int32_t val = StrToInteger(v[laCapVAl]);
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

    std::string attr, content;
    TLandMark record;
    for (;;) {
        const int tag = ReadNextTagInStream(F, XMLTagNames, XMLTagHigh, attr, content);
        if (tag == xtGeoMapEnd || tag == xtInvalidTag)
            break;
        if (tag != xtLandmark)
            continue;
        LandMarkFromAttributes(attr, record);
        // The reader's own growth rule: at counts 1001, 2001, ... the room becomes count + 1000.
        const auto count = static_cast<std::size_t>(FNumLandMarks) + 1;
        if (count > step && count % step == 1) {
            ResizeArray(count + step);
        }
        FLandMarks[count - 1] = record;
        FNumLandMarks = static_cast<std::int32_t>(count);
    }
    Repaint();
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
    if (WithHeader)
        WriteLnStream(F, "<?xml version=\"1.0\"?>");
    WriteLnStream(F, "");
    WriteLnStream(F, "<!-- TGeoMap Landmarks / Quorvanta -->");
    std::string header = "<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\"";
    AppendTextAttribute(header, "id", Id);
    header += '>';
    WriteLnStream(F, header);
    for (const TLandMark& lm : LandMarks())
        WriteLnStream(F, LandMarkToTag(lm));
    WriteLnStream(F, "</gmlandmarks>");
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
