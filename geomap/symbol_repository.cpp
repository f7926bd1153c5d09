#include <qvgeo/geomap/symbol_repository.h>

#include <qvgeo/geomap/file_family.h>
#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/tag_reader.h>
#include <qvgeo/support/text.h>

#include <algorithm>
#include <fstream>
#include <istream>
#include <new>
#include <ostream>
#include <stdexcept>

namespace qv {

namespace {

constexpr std::size_t GrowthStep = 1000;

enum TSymAttr : std::uint8_t { saCategory, saName, saColorFG, saColorBG, saSize, saDir, saLeng, saTransp,
                               saElement, saCount };
constexpr std::array<std::string_view, saCount> SymAttrNames = {"category", "name", "colorfg", "colorbg",
                                                                "size",     "dir",  "leng",    "transp",
                                                                "element"};

std::uint32_t HexValue(std::string_view Value)
{
    int pos = 1;
    return ScanHex(Value, pos);
}

}  // namespace

TSymbol DefaultSymbolRecord()
{
    TSymbol s;
    s.Properties.Kind = lmCross;
    s.Properties.Size = 8;
    s.Properties.FGColor = 0;
    s.Properties.BGColor = 255;
    s.Properties.Transparent = false;
    s.Properties.Direction = 90;
    s.Properties.Length = 40;
    return s;
}

TSymbolRepository::TSymbolRepository() : FEntries(GrowthStep, DefaultSymbolRecord()) {}

void TSymbolRepository::SetNEntries(std::int32_t n)
{
    if (n < 0)
        return;
    try {
        FEntries.resize(static_cast<std::size_t>(n), DefaultSymbolRecord());
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    } catch (const std::length_error&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
    // Entries between the old count and the old storage length may hold stale symbols; they become
    // defaults as soon as they are counted.
    for (std::int32_t i = FNumEntries; i < n; ++i)
        FEntries[static_cast<std::size_t>(i)] = DefaultSymbolRecord();
    FNumEntries = n;
}

TSymbol TSymbolRepository::GetValues(std::int32_t i) const
{
    if (i < 1 || i > FNumEntries)
        return DefaultSymbolRecord();
    return FEntries[static_cast<std::size_t>(i - 1)];
}

void TSymbolRepository::SetValues(std::int32_t i, const TSymbol& Symbol)
{
    if (i < 1 || i > FNumEntries)
        return;
    TSymbol& e = FEntries[static_cast<std::size_t>(i - 1)];
    e = Symbol;
    if (e.Name.size() > SymbolNameCapacity)
        e.Name = CutShortString(e.Name, SymbolNameCapacity);
}

void TSymbolRepository::Clear()
{
    for (std::int32_t i = 0; i < FNumEntries; ++i)
        FEntries[static_cast<std::size_t>(i)] = DefaultSymbolRecord();
}

void TSymbolRepository::Backup()
{
    FBackup.assign(FEntries.begin(), FEntries.begin() + FNumEntries);
    FNumBackup = FNumEntries;
}

void TSymbolRepository::Restore()
{
    FEntries.assign(FBackup.begin(), FBackup.begin() + FNumBackup);
    FNumEntries = FNumBackup;
}

void TSymbolRepository::Assign(const TSymbolRepository& Source)
{
    if (&Source == this)
        return;
    FNumEntries = Source.FNumEntries;
    FEntries = Source.FEntries;
    FNumBackup = Source.FNumBackup;
    FBackup = Source.FBackup;
}

std::string SymbolToTag(const TSymbol& Symbol)
{
    const TSymbolProperties& p = Symbol.Properties;
    const std::string_view kind =
        (p.Kind < NumLandMarkElements) ? LMTypeNames[p.Kind] : LMTypeNames[lmCross];
    std::string line;
    line.reserve(200);
    line += "<symbol element=\"";
    line += kind;
    line += "\" name=\"";
    line += Symbol.Name;
    line += "\" category=\"";
    line += std::to_string(Symbol.Category);
    line += "\" colorfg=\"";
    line += Hex(p.FGColor, 8);
    line += "\" colorbg=\"";
    line += Hex(p.BGColor, 8);
    line += "\" size=\"";
    line += std::to_string(p.Size);
    line += "\" transp=\"";
    line += BoolToStr(p.Transparent, 0);
    line += "\" dir=\"";
    line += std::to_string(p.Direction);
    line += "\" leng=\"";
    line += std::to_string(p.Length);
    line += "\" />";
    return line;
}

TSymbol SymbolFromAttributes(std::string_view Attr)
{
    std::array<std::string_view, saCount> v;
    SplitTagAttributes(Attr, SymAttrNames, v);
    // The name is kept as read; the other values are read without blanks around them.
    for (std::size_t k = 0; k < v.size(); ++k)
        if (k != saName)
            v[k] = Trim(v[k]);
    TSymbol s = DefaultSymbolRecord();
    // Every attribute is read, present or not: an absent one gives what an empty text gives.
    s.Category = StrToInteger(v[saCategory]);
    s.Name = CutShortString(v[saName], SymbolNameCapacity);
    s.Properties.FGColor = HexValue(v[saColorFG]);
    s.Properties.BGColor = HexValue(v[saColorBG]);
    s.Properties.Size = StrToInteger(v[saSize]);
    s.Properties.Direction = StrToInteger(v[saDir]);
    s.Properties.Length = StrToInteger(v[saLeng]);
    s.Properties.Transparent = LowerCase(v[saTransp]).find("true") != std::string::npos;
    s.Properties.Kind = ParseLandMarkElement(v[saElement]);
    return s;
}

void TSymbolRepository::StoreOnStream(std::ostream& F, std::string_view Id) const
{
    WriteLnStream(F, "<?xml version=\"1.0\"?>");
    WriteLnStream(F, "");
    WriteLnStream(F, "<!-- TGeoMap Landmark Repository / Quorvanta -->");
    WriteLnStream(F, "<lmsymbols sig=\"Quorvanta\" vers=\"1.0\" id=\"" + std::string(Id) + "\">");
    for (std::int32_t i = 0; i < FNumEntries; ++i)
        WriteLnStream(F, SymbolToTag(FEntries[static_cast<std::size_t>(i)]));
    WriteLnStream(F, "</lmsymbols>");
}

void TSymbolRepository::StoreOnFile(const std::string& FName, std::string_view Id) const
{
    std::ofstream f(FName, std::ios::binary | std::ios::trunc);
    if (f)
        StoreOnStream(f, Id);
    if (f)
        f.flush();
    if (!f)
        throw EXELGeoMapError(ComponentMessage(FComponentName, "cannot write file \"" + FName + "\""));
}

bool TSymbolRepository::ReadFromOpenXMLFile(std::istream& F, std::string_view Id)
{
    if (!SeekFamilyHeader(F, XMLTagNames[xtLMSymbols], Id))
        return false;
    try {
        std::vector<TSymbol>(GrowthStep, DefaultSymbolRecord()).swap(FEntries);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
    FNumEntries = 0;
    TTagScanner tags(F);
    std::string_view attr;
    for (;;) {
        const int tag = tags.Next(XMLTagNames, XMLTagHigh, attr);
        if (tag == xtGeoMapEnd || tag == xtInvalidTag)
            break;
        if (tag != xtSymbol)
            continue;
        const auto count = static_cast<std::size_t>(FNumEntries) + 1;
        if (count > GrowthStep && count % GrowthStep == 1) {
            try {
                // Geometric allocation under the stepped length: no copy of the whole list every 1000.
                if (count + GrowthStep > FEntries.capacity())
                    FEntries.reserve(std::max(count + GrowthStep, 2 * FEntries.capacity()));
                FEntries.resize(count + GrowthStep, DefaultSymbolRecord());
            } catch (const std::bad_alloc&) {
                throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
            } catch (const std::length_error&) {
                throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
            }
        }
        FEntries[count - 1] = SymbolFromAttributes(attr);
        FNumEntries = static_cast<std::int32_t>(count);
    }
    tags.Finish();
    return true;
}

bool TSymbolRepository::LoadFromFile(const std::string& FName, std::string_view Id)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    return ReadFromOpenXMLFile(f, Id);
}

}  // namespace qv
