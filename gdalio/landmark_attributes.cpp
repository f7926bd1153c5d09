#include <qvgeo/gdalio/landmark_attributes.h>

#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/geomap/symbol_repository.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/text.h>

#include <cpl_string.h>
#include <ogrsf_frmts.h>

#include <charconv>
#include <cmath>
#include <limits>

namespace qv::lmx {

void Note(std::vector<std::string>& Messages, std::int64_t* LeftOut, std::string Text)
{
    if (Messages.size() < TLandMarkImportReport::MaxMessages)
        Messages.push_back(std::move(Text));
    else if (LeftOut)
        ++*LeftOut;
}

std::string Quoted(std::string_view S) { return "\"" + std::string(S) + "\""; }

// ------------------------------------------------------------------------------------------------
// Times: days since 1899-12-30 <-> OGR's broken-down date-time, to the millisecond, UTC.

bool TimeToOgr(double Time, TOgrTime& Out)
{
    static const auto bounds = [] {
        std::array<double, 2> b{};
        TryEncodeDateTime(1, 1, 1, 0, 0, 0, b[0]);
        TryEncodeDateTime(9999, 12, 31, 0, 0, 0, b[1]);
        b[1] += 1.0;
        return b;
    }();
    if (Time == 0.0 || !std::isfinite(Time))
        return false;
    const double ms = std::nearbyint(Time * MsPerDay);
    if (ms < bounds[0] * MsPerDay || ms >= bounds[1] * MsPerDay)
        return false;
    const auto total = static_cast<long long>(ms);
    const long long perDay = 86'400'000;
    long long days = total / perDay;
    long long rest = total % perDay;
    if (rest < 0) {
        rest += perDay;
        --days;
    }
    int h = 0, mi = 0, s = 0;
    DecodeDateTime(static_cast<double>(days), Out.Year, Out.Month, Out.Day, h, mi, s);
    Out.Hour = static_cast<int>(rest / 3'600'000);
    Out.Minute = static_cast<int>(rest / 60'000 % 60);
    Out.Second = static_cast<float>(static_cast<double>(rest % 60'000) / 1000.0);
    return true;
}

bool TimeFromOgr(int Year, int Month, int Day, int Hour, int Minute, float Second, int TZFlag, double& Time)
{
    double day = 0;
    if (!TryEncodeDateTime(Year, Month, Day, 0, 0, 0, day) || Hour < 0 || Hour > 23 || Minute < 0 || Minute > 59 ||
        !(Second >= 0.0f && Second < 61.0f))
        return false;
    // Whole milliseconds since the day's midnight, moved to UTC, then split into whole days and the rest:
    // day + rest / MsPerDay is, for whole seconds, bit for bit what the landmark file's date reader
    // computes, so such times survive every round trip unchanged.
    const long long perDay = 86'400'000;
    long long ms = (Hour * 3600LL + Minute * 60LL) * 1000 + std::llround(static_cast<double>(Second) * 1000.0);
    if (TZFlag > 1 && TZFlag != 100)
        ms -= (TZFlag - 100) * 15LL * 60'000;
    long long days = ms / perDay;
    long long rest = ms % perDay;
    if (rest < 0) {
        rest += perDay;
        --days;
    }
    Time = (day + static_cast<double>(days)) + static_cast<double>(rest) / MsPerDay;
    return true;
}

std::string GpxExtensionText(const std::string& Text)
{
    const std::string_view t = Trim(Text);
    // As the GPX reader decides a column is numeric: a sign and digits, or what GDAL takes for a number.
    const bool integer = !t.empty() && t.find_first_not_of("+-0123456789") == std::string_view::npos;
    const bool number = CPLGetValueType(Text.c_str()) != CPL_VALUE_STRING;
    if (integer || number || t.substr(0, 1) == "<" || Text.substr(0, 1) == "'")
        return "'" + Text;
    return Text;
}

// ------------------------------------------------------------------------------------------------
// Symbols

std::string SymbolNameOf(const TSymbolProperties& Props, const TSymbolRepository* Symbols)
{
    if (Symbols)
        for (std::int32_t i = 1; i <= Symbols->NumEntries(); ++i) {
            const TSymbol s = Symbols->GetValues(i);
            if (s.Properties == Props && !Trim(s.Name).empty())
                return s.Name;
        }
    return std::string(Props.Kind < NumLandMarkElements ? LMTypeNames[Props.Kind] : LMTypeNames[lmCross]);
}

bool ApplySymbolName(std::string_view Name, const TSymbolRepository* Symbols, TLandMark& LM)
{
    Name = Trim(Name);
    if (Symbols)
        for (std::int32_t i = 1; i <= Symbols->NumEntries(); ++i) {
            const TSymbol s = Symbols->GetValues(i);
            if (SameText(Trim(s.Name), Name)) {
                LM.SymbolProps = s.Properties;
                if (s.Category >= 0 && s.Category <= 255)
                    LM.ClassFlag = static_cast<std::uint8_t>(s.Category);
                return true;
            }
        }
    for (int k = 0; k < NumLandMarkElements; ++k) {
        const auto kind = static_cast<TLandMarkElement>(k);
        if (SameText(Name, LMTypeNames[static_cast<std::size_t>(k)]) || SameText(Name, LandMarkElementKeyword(kind))) {
            LM.SymbolProps.Kind = kind;
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------------------------------------
// Reading attributes

class TFeatureReader::TImpl {
public:
    TImpl(OGRFeatureDefn& Defn, const TSymbolRepository* Symbols, TLandMarkImportReport& Report)
        : FSymbols(Symbols), FReport(Report)
    {
        for (int a = 0; a < NumAttrs; ++a) {
            const std::string name = AttrNames[static_cast<std::size_t>(a)];
            int ix = Defn.GetFieldIndex(name.c_str());  // without regard to case
            if (ix < 0) {                               // GPX extension elements: ogr_NAME
                ix = Defn.GetFieldIndex(("ogr_" + name).c_str());
                FExtension[static_cast<std::size_t>(a)] = ix >= 0;
            }
            FIx[static_cast<std::size_t>(a)] = ix;
        }
    }

    // Everything but the position. Where names the feature for messages.
    void Fill(OGRFeature& F, const std::string& Where, TLandMark& LM)
    {
        FFeature = &F;
        FWhere = &Where;
        std::string text;
        if (Text(atName, text) || Text(atCaptionText, text))
            LM.Caption.Text = Cut(text, LMTextCapacity, "name", FReport.NamesCut);

        std::string symbol;
        bool hasSymbol = Text(atSym, symbol) || Text(atSymbol, symbol);
        if (!hasSymbol && F.GetStyleString()) {  // KML: styleUrl "#NAME" reads as the style string "@NAME"
            const std::string_view style = F.GetStyleString();
            if (!style.empty() && style.front() == '@') {
                symbol = style.substr(style.find_last_of("#@") + 1);
                hasSymbol = true;
            }
        }
        if (hasSymbol && !Trim(symbol).empty() && !ApplySymbolName(symbol, FSymbols, LM)) {
            ++FReport.UnknownSymbols;
            Note(FReport.Messages, &FReport.MessagesLeftOut,
                 Where + ": symbol " + Quoted(symbol) + " is not known; the template's symbol is used");
        }

        Time(LM.Time);
        std::int64_t v = 0;
        if (Int(atClass, 0, 255, v))
            LM.ClassFlag = static_cast<std::uint8_t>(v);
        Int32(atTag, LM.Tag);
        if (Text(atIdentifier, text))
            LM.Identifier = Cut(text, LMIdentifierCapacity, "identifier", FReport.IdentifiersCut);

        auto& sp = LM.SymbolProps;
        if (Text(atSymbolKind, text)) {
            bool known = false;
            for (int k = 0; k < NumLandMarkElements && !known; ++k)
                if (SameText(Trim(text), LandMarkElementKeyword(static_cast<TLandMarkElement>(k)))) {
                    sp.Kind = static_cast<TLandMarkElement>(k);
                    known = true;
                }
            if (!known)
                Bad(atSymbolKind, "is not a symbol kind");
        }
        Int32(atSymbolSize, sp.Size);
        Color(atSymbolFG, sp.FGColor);
        Color(atSymbolBG, sp.BGColor);
        Bool(atSymbolTransparent, sp.Transparent);
        Int32(atSymbolDirection, sp.Direction);
        Int32(atSymbolLength, sp.Length);

        auto& cap = LM.Caption;
        Int32(atCaptionSize, cap.Size);
        if (Text(atCaptionFont, text))
            cap.FontName = text;
        Styles(cap.FontStyles);
        Color(atCaptionFG, cap.FGColor);
        Color(atCaptionBG, cap.BGColor);
        Bool(atCaptionTransparent, cap.Transparent);
        Int32(atCaptionDx, cap.dx);
        Int32(atCaptionDy, cap.dy);
        Int32(atCaptionDirection, cap.Direction);
        if (std::size_t i = 0; Name(atCaptionHAlign, HAlignNames, i))
            cap.HAlignment = static_cast<THorzAlignment>(i);
        if (std::size_t i = 0; Name(atCaptionVAlign, VAlignNames, i))
            cap.VAlignment = static_cast<TVerticalAlignment>(i);
    }

    // The GPX elevation field, for points without a Z.
    bool Elevation(OGRFeature& F, double& Alt) const
    {
        const int ix = FIx[atEle];
        if (ix < 0 || !F.IsFieldSetAndNotNull(ix))
            return false;
        Alt = F.GetFieldAsDouble(ix);
        return true;
    }

private:
    int Ix(TAttr A) const
    {
        const int ix = FIx[static_cast<std::size_t>(A)];
        return ix >= 0 && FFeature->IsFieldSetAndNotNull(ix) ? ix : -1;
    }
    OGRFieldType Type(int Ix) const { return FFeature->GetFieldDefnRef(Ix)->GetType(); }
    // The field's text, without the apostrophe a GPX extension text may carry (GpxExtensionText).
    std::string Str(TAttr A, int Ix) const
    {
        std::string s = FFeature->GetFieldAsString(Ix);
        if (FExtension[static_cast<std::size_t>(A)] && !s.empty() && s.front() == '\'')
            s.erase(0, 1);
        return s;
    }

    void Bad(TAttr A, const std::string& Why)
    {
        ++FReport.BadAttributes;
        const int ix = FIx[static_cast<std::size_t>(A)];
        Note(FReport.Messages, &FReport.MessagesLeftOut,
             *FWhere + ": " + AttrNames[static_cast<std::size_t>(A)] + " " +
                 Quoted(FFeature->GetFieldAsString(ix)) + " " + Why + "; the template's value is kept");
    }

    std::string Cut(const std::string& S, std::size_t Capacity, const char* What, std::int64_t& Count)
    {
        if (S.size() <= Capacity)
            return S;
        ++Count;
        std::string cut = CutShortString(S, Capacity);
        Note(FReport.Messages, &FReport.MessagesLeftOut,
             *FWhere + ": " + What + " cut to " + std::to_string(Capacity) + " bytes: " + Quoted(cut));
        return cut;
    }

    bool Text(TAttr A, std::string& Out)
    {
        const int ix = Ix(A);
        if (ix < 0)
            return false;
        Out = Str(A, ix);
        return true;
    }

    bool Int(TAttr A, std::int64_t Lo, std::int64_t Hi, std::int64_t& Out)
    {
        const int ix = Ix(A);
        if (ix < 0)
            return false;
        std::int64_t v = 0;
        bool ok = true;
        switch (Type(ix)) {
        case OFTInteger:
        case OFTInteger64:
            v = FFeature->GetFieldAsInteger64(ix);
            break;
        case OFTReal: {
            const double d = FFeature->GetFieldAsDouble(ix);
            ok = std::floor(d) == d && std::fabs(d) < 9e18;
            v = ok ? static_cast<std::int64_t>(d) : 0;
            break;
        }
        default: {
            const std::string text = Str(A, ix);
            const std::string_view s = Trim(text);
            const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
            ok = !s.empty() && ec == std::errc() && end == s.data() + s.size();
        }
        }
        if (!ok || v < Lo || v > Hi) {
            Bad(A, ok ? "is out of range " + std::to_string(Lo) + ".." + std::to_string(Hi) : "is not an integer");
            return false;
        }
        Out = v;
        return true;
    }

    void Int32(TAttr A, std::int32_t& Out)
    {
        std::int64_t v = 0;
        if (Int(A, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max(), v))
            Out = static_cast<std::int32_t>(v);
    }

    void Bool(TAttr A, bool& Out)
    {
        const int ix = Ix(A);
        if (ix < 0)
            return;
        if (Type(ix) == OFTInteger || Type(ix) == OFTInteger64) {
            const auto v = FFeature->GetFieldAsInteger64(ix);
            if (v == 0 || v == 1) {
                Out = v == 1;
                return;
            }
        } else {
            const std::string s = LowerCase(Trim(Str(A, ix)));
            if (s == "true" || s == "1" || s == "yes") {
                Out = true;
                return;
            }
            if (s == "false" || s == "0" || s == "no") {
                Out = false;
                return;
            }
        }
        Bad(A, "is not true or false");
    }

    void Color(TAttr A, TColor& Out)
    {
        const int ix = Ix(A);
        if (ix < 0)
            return;
        TColor c = 0;
        if ((Type(ix) == OFTInteger || Type(ix) == OFTInteger64)) {
            const auto v = FFeature->GetFieldAsInteger64(ix);
            if (v >= 0 && v <= 0xFFFFFFFFll) {
                Out = static_cast<TColor>(v);
                return;
            }
        } else if (ParseLandMarkColor(Str(A, ix), c)) {
            Out = c;
            return;
        }
        Bad(A, "is not a colour (00BBGGRR or #RRGGBB)");
    }

    template <std::size_t N>
    bool Name(TAttr A, const std::array<std::string_view, N>& Names, std::size_t& Out)
    {
        std::string s;
        if (!Text(A, s))
            return false;
        for (std::size_t i = 0; i < N; ++i)
            if (SameText(Trim(s), Names[i])) {
                Out = i;
                return true;
            }
        Bad(A, "is not one of " + [&] {
            std::string all;
            for (std::size_t i = 0; i < N; ++i)
                all += (i ? ", " : "") + std::string(Names[i]);
            return all;
        }());
        return false;
    }

    // A list of style names ("bold", "italic", ...), as a string list or as a text in which they stand
    // apart by any other characters ('["bold","italic"]', "bold, italic"); or four "0"/"1" characters as
    // the landmark file writes them.
    void Styles(TFontStyles& Out)
    {
        const int ix = Ix(atCaptionStyles);
        if (ix < 0)
            return;
        std::vector<std::string> words;
        if (Type(ix) == OFTStringList) {
            for (char** p = FFeature->GetFieldAsStringList(ix); p && *p; ++p)
                words.emplace_back(*p);
        } else {
            const std::string s = Str(atCaptionStyles, ix);
            if (s.size() == 4 && s.find_first_not_of("01") == std::string::npos) {
                Out = StrToFontStyles(s);
                return;
            }
            std::string word;
            for (char c : s + " ") {
                if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
                    word += c;
                } else if (!word.empty()) {
                    words.push_back(std::move(word));
                    word.clear();
                }
            }
        }
        TFontStyles styles;
        for (const auto& w : words) {
            std::size_t i = 0;
            while (i < StyleNames.size() && !SameText(w, StyleNames[i]))
                ++i;
            if (i == StyleNames.size()) {
                Bad(atCaptionStyles, "holds " + Quoted(w) + ", not one of bold, italic, underline, strikeout");
                return;
            }
            styles.Include(static_cast<TFontStyle>(i));
        }
        Out = styles;
    }

    void Time(double& Out)
    {
        for (TAttr a : {atTime, atTimeStamp, atBegin}) {
            const int ix = Ix(a);
            if (ix < 0)
                continue;
            const OGRFieldType t = Type(ix);
            if (t == OFTReal || t == OFTInteger || t == OFTInteger64) {  // days since 1899-12-30
                const double days = FFeature->GetFieldAsDouble(ix);
                if (std::isfinite(days))
                    Out = days;
                else
                    Bad(a, "is not a date and time");
                return;
            }
            int y = 0, mo = 0, d = 0, h = 0, mi = 0, tz = 0;
            float s = 0;
            bool ok = false;
            if (t == OFTDateTime || t == OFTDate) {
                ok = FFeature->GetFieldAsDateTime(ix, &y, &mo, &d, &h, &mi, &s, &tz) != 0;
            } else {
                // A text field: a date-time, or a number of days (a column that mixes both is a text).
                const std::string raw = Str(a, ix);
                const std::string_view text = Trim(raw);
                double days = 0;
                const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), days);
                if (!text.empty() && ec == std::errc() && end == text.data() + text.size() && std::isfinite(days)) {
                    Out = days;
                    return;
                }
                OGRField f;
                ok = OGRParseDate(raw.c_str(), &f, 0) != 0;
                if (ok) {
                    y = f.Date.Year;
                    mo = f.Date.Month;
                    d = f.Date.Day;
                    h = f.Date.Hour;
                    mi = f.Date.Minute;
                    s = f.Date.Second;
                    tz = f.Date.TZFlag;
                }
            }
            double value = 0;
            if (ok && TimeFromOgr(y, mo, d, h, mi, s, tz, value))
                Out = value;
            else
                Bad(a, "is not a date and time");
            return;
        }
    }

    const TSymbolRepository* FSymbols;
    TLandMarkImportReport& FReport;
    std::array<int, NumAttrs> FIx{};
    std::array<bool, NumAttrs> FExtension{};  // found as a GPX extension element (see GpxExtensionText)
    OGRFeature* FFeature = nullptr;
    const std::string* FWhere = nullptr;
};

TFeatureReader::TFeatureReader(OGRFeatureDefn& Defn, const TSymbolRepository* Symbols, TLandMarkImportReport& Report)
    : FImpl(std::make_unique<TImpl>(Defn, Symbols, Report))
{
}

TFeatureReader::~TFeatureReader() = default;

void TFeatureReader::Fill(OGRFeature& F, const std::string& Where, TLandMark& LM) { FImpl->Fill(F, Where, LM); }

bool TFeatureReader::Elevation(OGRFeature& F, double& Alt) const { return FImpl->Elevation(F, Alt); }

}  // namespace qv::lmx
