// The attributes of a landmark in an OGR feature: their names, the date-time and symbol-name conversions,
// and the reader that fills a landmark from a feature. Private to gdalio/landmark_exchange.cpp.
#pragma once

#include <qvgeo/gdalio/landmark_exchange.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class OGRFeature;
class OGRFeatureDefn;

namespace qv::lmx {

inline constexpr std::array<std::string_view, 3> HAlignNames = {"left", "right", "center"};
inline constexpr std::array<std::string_view, 3> VAlignNames = {"top", "bottom", "center"};
inline constexpr std::array<std::string_view, 4> StyleNames = {"bold", "italic", "underline", "strikeout"};


// The attributes a feature may carry for a landmark. Several names can mean one thing (a GPX file's
// "time", a KML file's "timestamp"); the first one a layer has is taken.
enum TAttr : int {
    atName, atCaptionText, atTime, atTimeStamp, atBegin, atEle, atSym, atSymbol,
    atClass, atTag, atIdentifier,
    atSymbolKind, atSymbolSize, atSymbolFG, atSymbolBG, atSymbolTransparent, atSymbolDirection, atSymbolLength,
    atCaptionSize, atCaptionFont, atCaptionStyles, atCaptionFG, atCaptionBG, atCaptionTransparent,
    atCaptionDx, atCaptionDy, atCaptionDirection, atCaptionHAlign, atCaptionVAlign,
    NumAttrs
};
inline constexpr std::array<const char*, NumAttrs> AttrNames = {
    "name", "caption_text", "time", "timestamp", "begin", "ele", "sym", "symbol",
    "class", "tag", "identifier",
    "symbol_kind", "symbol_size", "symbol_fgcolor", "symbol_bgcolor", "symbol_transparent", "symbol_direction",
    "symbol_length",
    "caption_size", "caption_font", "caption_styles", "caption_fgcolor", "caption_bgcolor", "caption_transparent",
    "caption_dx", "caption_dy", "caption_direction", "caption_halign", "caption_valign",
};
// The attributes written beside the native ones, in this order.
inline constexpr std::array<TAttr, 21> OwnAttrs = {
    atClass, atTag, atIdentifier,
    atSymbolKind, atSymbolSize, atSymbolFG, atSymbolBG, atSymbolTransparent, atSymbolDirection, atSymbolLength,
    atCaptionSize, atCaptionFont, atCaptionStyles, atCaptionFG, atCaptionBG, atCaptionTransparent,
    atCaptionDx, atCaptionDy, atCaptionDirection, atCaptionHAlign, atCaptionVAlign,
};

inline constexpr double MsPerDay = 86400000.0;

// Adds Text to Messages while there is room (TLandMarkImportReport::MaxMessages), else counts it in
// LeftOut when given.
void Note(std::vector<std::string>& Messages, std::int64_t* LeftOut, std::string Text);
std::string Quoted(std::string_view S);

struct TOgrTime {
    int Year, Month, Day, Hour, Minute;
    float Second;
};

// Days since 1899-12-30 to OGR's broken-down date-time, to the millisecond. False for the epoch itself (a
// landmark without a time), for non-finite values and outside the years 1..9999 that the formats'
// date texts hold.
bool TimeToOgr(double Time, TOgrTime& Out);
// TZFlag as OGR keeps it: 0 unknown, 1 local time, 100 UTC, 100 + n an offset of n quarter hours.
// Times with an offset are brought to UTC; unknown and local times are taken as they stand. False for
// an impossible date.
bool TimeFromOgr(int Year, int Month, int Day, int Hour, int Minute, float Second, int TZFlag, double& Time);

// A text as a GPX extension element carries it: behind an apostrophe when it begins with one, begins
// with '<' (the writer would copy it as markup) or reads as a number (the reader would type the column
// as numbers); otherwise as it is. The reader of a GPX extension takes one leading apostrophe off.
std::string GpxExtensionText(const std::string& Text);

// The name a symbol is written under (see landmark_exchange.h).
std::string SymbolNameOf(const TSymbolProperties& Props, const TSymbolRepository* Symbols);
// Applies a symbol name to the landmark; false when the name is not known.
bool ApplySymbolName(std::string_view Name, const TSymbolRepository* Symbols, TLandMark& LM);

// Fills landmarks from the features of one layer. Problems go to Report; a value that cannot be read
// leaves the landmark's value (the template's) as it was.
class TFeatureReader {
public:
    TFeatureReader(OGRFeatureDefn& Defn, const TSymbolRepository* Symbols, TLandMarkImportReport& Report);
    ~TFeatureReader();
    TFeatureReader(const TFeatureReader&) = delete;
    TFeatureReader& operator=(const TFeatureReader&) = delete;

    // Everything but the position. Where names the feature for messages.
    void Fill(OGRFeature& F, const std::string& Where, TLandMark& LM);
    // The GPX elevation field, for points without a Z.
    bool Elevation(OGRFeature& F, double& Alt) const;

private:
    class TImpl;
    std::unique_ptr<TImpl> FImpl;
};

}  // namespace qv::lmx
