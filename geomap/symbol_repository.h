// TSymbolRepository: a numbered catalogue of named landmark symbols (appearance, name, category) with a
// backup for cancellable editing, and its file in the XML-like file family; TSymbol, the default
// symbol and the kind names written to files.
#pragma once

#include <qvgeo/geomap/landmark_types.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

inline constexpr std::size_t SymbolNameCapacity = 40;

struct TSymbol {
    TSymbolProperties Properties;
    std::string Name;  // at most 40 characters
    std::int32_t Category = 0;  // application-defined

    bool operator==(const TSymbol&) const = default;
};

// A black 8-pixel cross on red, direction 90, length 40, no name, category 0.
TSymbol DefaultSymbolRecord();

// Kind names as the catalogue file writes them, in TLandMarkElement order. The reader knows only the
// eight names with a shape of their own; "Plus" and "User-Defined" read back as lmCross.
inline constexpr std::array<std::string_view, NumLandMarkElements> LMTypeNames = {
    "Plus", "Square", "Triangle", "Circle", "ArrowFrom", "ArrowTo", "CrossBox", "Spade", "Cross", "User-Defined"};

// Entries are numbered 1..NumEntries(). Out-of-range numbers are ignored by the setters and give the
// default symbol from GetValues.
class TSymbolRepository {
public:
    TSymbolRepository();

    // Name used in error messages ("Component \"<name>\": ..."); the owning control passes its own.
    const std::string& ComponentName() const { return FComponentName; }
    void SetComponentName(std::string Name) { FComponentName = std::move(Name); }

    std::int32_t NumEntries() const { return FNumEntries; }
    // n >= 0: the count becomes n and the storage n entries; entries that were not there before are
    // default symbols. n < 0 is ignored.
    void SetNEntries(std::int32_t n);
    // Length of the storage array: the reader reserves 1000 and grows to count + 1000 at counts 1001,
    // 2001, ...; SetNEntries makes it exactly n.
    std::int32_t Capacity() const { return static_cast<std::int32_t>(FEntries.size()); }

    TSymbol GetValues(std::int32_t i) const;
    // The name is cut to 40 characters.
    void SetValues(std::int32_t i, const TSymbol& Symbol);
    // Every entry 1..NumEntries() becomes the default symbol; the count stays.
    void Clear();

    // Backup copies the entries and the count aside; Restore brings back the copy (an empty catalogue
    // when there was no Backup).
    void Backup();
    void Restore();
    std::int32_t NumBackupEntries() const { return FNumBackup; }

    // Takes over the count, the entries and the backup of Source (not its name). AssignTo(Dest) is
    // Dest.Assign(*this).
    void Assign(const TSymbolRepository& Source);
    void AssignTo(TSymbolRepository& Dest) const { Dest.Assign(*this); }

    // Writes the catalogue file; StoreOnFile creates or overwrites FName and raises EXELGeoMapError
    // "Component \"<name>\": cannot write file \"<FName>\"" when that fails. Texts are written as they
    // are: a name holding '"' or '>' does not read back as written.
    void StoreOnStream(std::ostream& F, std::string_view Id) const;
    void StoreOnFile(const std::string& FName, std::string_view Id) const;

    // Reads the catalogue Id (the first when Id is empty; ids compare without regard to case), replacing
    // the entries; the backup is kept. Every symbol tag from the header to the end of the input or to a
    // "</geomap>" is taken. False, with the catalogue unchanged, when no header matches.
    bool ReadFromOpenXMLFile(std::istream& F, std::string_view Id);
    // False, without an error, when the file cannot be opened.
    bool LoadFromFile(const std::string& FName, std::string_view Id);

private:
    std::string FComponentName;
    std::int32_t FNumEntries = 0;
    std::vector<TSymbol> FEntries;
    std::int32_t FNumBackup = 0;
    std::vector<TSymbol> FBackup;
};

// The symbol line of the catalogue file, without line end.
std::string SymbolToTag(const TSymbol& Symbol);
// A symbol from a symbol tag's attribute text; absent or malformed values give 0, false or an empty name.
// The name is taken as read (blanks at its ends included) and cut to 40 characters.
TSymbol SymbolFromAttributes(std::string_view Attr);

}  // namespace qv
