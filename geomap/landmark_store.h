// TLandMarkStore: the landmark list of a map, without any widget. Adding, finding, removing, reading and
// replacing landmarks, class visibility, the highlighted landmark, and the landmark file reader and
// writer (implemented in landmark_file.cpp). The map control that owns it asks nothing of it but registers
// a listener of its one "changed" notice (bits TLandMarkChange) and answers the add/remove question
// (LandMarkActionHook); without them the store works on its own.
#pragma once

#include <qvgeo/geomap/change_notice.h>
#include <qvgeo/geomap/landmark_types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// What a change notice of the store says changed. Operations that end in a documented repaint notify
// even when a veto left the list as it was.
enum TLandMarkChange : unsigned {
    lcList = 1u << 0,        // landmarks added, removed, replaced or read
    lcHighlight = 1u << 1,   // the highlighted landmark or its colours
    lcVisibility = 1u << 2,  // class visibility
};

// Landmarks are numbered 1..NumLandMarks(); 0 means "none". Removing one landmark moves the last one into
// its number (one copy instead of shifting the list), so numbers are not stable across removals.
//
// Storage is an array whose length is a whole multiple of 1000: it starts at 1000, grows by 1000 when
// the count passes a multiple of 1000, returns to 1000 when the count drops to 0, and never shrinks
// otherwise. When it cannot grow, EXELGeoMapError "Component \"<name>\": insufficient memory" is raised
// and the store is left as it was.
//
// Class arguments of type int32 select one class 0..255; -1 (and any value outside -1..255) selects all.
// Distances are plain differences of degrees: d^2 = dLat^2 + dLong^2, no great-circle distance and no
// allowance for the convergence of meridians.
//
// While LandMarkActionHook runs, the store refuses changes to its list (adds and removals are ignored and
// report 0), so a handler can inspect the store but cannot pull the list from under the running operation.
class TLandMarkStore {
public:
    // A question to the owner, not a pull of its state: called with Allowed = true before each add
    // (lmaAdd) and each individual remove (lmaRemove) except RemoveAllLandMarks(); setting Allowed to false
    // vetoes that one landmark. LandMarkData is a copy of the record as it stands before the call.
    std::function<void(bool& Allowed, TLandMarkAction Action, const TLandMark& LandMarkData)>
        LandMarkActionHook;
    // The owner's listener of change notices, raised once per operation that changes what the landmarks
    // look like on a map (one listener; an empty one removes it).
    void SetChangeListener(TChangeNotice::TListener Listener) { FNotice.SetListener(std::move(Listener)); }
    bool HasChangeListener() const { return FNotice.HasListener(); }

    TLandMarkStore();
    // A copy would carry the question and listener bound to the original's owner; AssignLandMarks copies
    // the data alone.
    TLandMarkStore(const TLandMarkStore&) = delete;
    TLandMarkStore& operator=(const TLandMarkStore&) = delete;
    // Moving takes the list, the settings, the question and the listener; the source is left as a new,
    // empty store.
    TLandMarkStore(TLandMarkStore&& Other);
    TLandMarkStore& operator=(TLandMarkStore&& Other);

    // Name used in error messages ("Component \"<name>\": ..."); the owning control passes its own.
    const std::string& ComponentName() const { return FComponentName; }
    void SetComponentName(std::string Name) { FComponentName = std::move(Name); }

    std::int32_t NumLandMarks() const { return FNumLandMarks; }
    // Changes with every change notice (and with a move): caches of what the landmarks look like compare
    // it. Unique across stores of the process, so a different store never repeats a value.
    std::uint64_t Revision() const { return FRevision; }
    // Length of the storage array (see above); the count never exceeds it.
    std::int32_t LandMarkCapacity() const { return static_cast<std::int32_t>(FLandMarks.size()); }
    // Landmarks 1..NumLandMarks() as elements 0..NumLandMarks()-1, for drawing and export. Invalidated by
    // any change of the list.
    std::span<const TLandMark> LandMarks() const
    {
        return std::span<const TLandMark>(FLandMarks.data(), static_cast<std::size_t>(FNumLandMarks));
    }

    // The template from which added landmarks take the fields an AddLandMark form does not set. Its
    // identifier and caption text are cut to their capacities on setting.
    const TLandMark& DefaultLandMark() const { return FDefaultLM; }
    void SetDefaultLandMark(const TLandMark& LandMark);

    // The five ways of adding. Each builds a landmark from its arguments and the template, asks
    // LandMarkActionHook (lmaAdd), and when allowed appends it and repaints. Identifiers are cut to 15
    // characters, caption texts to 80. Result: the new landmark's number, or 0 when vetoed.
    // Positions: latitude and longitude in degrees, altitude in metres; Time in days since 1899-12-30.
    std::int32_t AddLandMark(double Lat, double Long, double Alt);
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Ident, double Time);
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Caption, std::int32_t Size,
                             TColor Color);
    std::int32_t AddLandMark(double Lat, double Long, double Alt, std::string_view Ident, double Time,
                             std::string_view Caption, std::int32_t Size, TColor Color);
    // Symbol-only form; the caption comes entirely from the template. Note the order: Tag before the
    // colours, Size after them.
    std::int32_t AddLandMark(double Lat, double Long, double Alt, TLandMarkElement Kind, std::uint8_t ClassFlag,
                             std::string_view Ident, double Time, std::int32_t Tag, TColor FGColor,
                             TColor BGColor, std::int32_t Size, bool Transparent, std::int32_t Direction,
                             std::int32_t Length);

    // Number of the nearest landmark of the class (ties: the lower number); 0 when there is none. A
    // landmark 1e5 degrees or farther away (d^2 >= 1e10) is never found.
    std::int32_t FindLandMark(double Lat, double Long, std::int32_t Class) const;

    // Removals. Each result is the number of landmarks removed. Every candidate is put to
    // LandMarkActionHook (lmaRemove) first; a veto skips that one landmark only.
    // The nearest landmark of the class.
    std::int32_t RemoveLandMark(double Lat, double Long, std::int32_t Class);
    // Every landmark of the class with d^2 < Distance^2 (degrees); one exactly Distance away stays.
    std::int32_t RemoveLandMark(double Lat, double Long, std::int32_t Class, double Distance);
    // Every landmark of the class strictly inside the rectangle (Left < Longitude < Right and
    // Bottom < Latitude < Top); one on an edge stays.
    std::int32_t RemoveLandMark(const TRectDouble& Rect, std::int32_t Class);
    // Landmark number Index; the last landmark takes its number. Out-of-range indices are ignored.
    std::int32_t RemoveLandMark(std::int32_t Index);
    // The landmark with the highest number.
    std::int32_t RemoveLastLandMark();
    // Every landmark of the class (a single class: there is no "all" value of a byte).
    std::int32_t RemoveAllLandMarks(std::uint8_t Class);
    // Everything at once, without asking LandMarkActionHook.
    void RemoveAllLandMarks();

    // A copy of landmark Index; for an index outside 1..NumLandMarks() the template DefaultLandMark().
    TLandMark GetLandMarkData(std::int32_t Index) const;
    // Replaces landmark Index (strings cut to capacity) and repaints; ignored outside 1..NumLandMarks().
    void SetLandMarkData(std::int32_t Index, const TLandMark& Data);

    // Hidden classes are skipped when drawing but take part in finding and removing. All visible at first.
    bool GetClassVisibility(std::uint8_t Class) const { return FLMClassVisible[Class]; }
    void SetClassVisibility(std::uint8_t Class, bool Visible);

    // The highlighted landmark, 0 for none. SetHighLM with an index outside 0..NumLandMarks() clears the
    // highlight. Removing landmarks does not clear it, so it may name a landmark that has moved or gone.
    std::int32_t HighLM() const { return FHighLM; }
    void SetHighLM(std::int32_t Index);
    TColor HighLMColFG() const { return FHighLMColFG; }
    TColor HighLMColBG() const { return FHighLMColBG; }
    bool HighLMTrans() const { return FHighLMTrans; }
    void SetHighLightProperties(TColor FG, TColor BG, bool Transparent);

    // Copies the landmarks, the template, class visibility and the highlight from Source (the map's
    // Assign); the array is sized to the count rounded up to a multiple of 1000. The question, the listener
    // and the component name are not copied. Does not notify: the owner's Assign repaints once at its end.
    void AssignLandMarks(const TLandMarkStore& Source);

    // Landmark files (XML-like, one or several sets told apart by id; ids compare case-insensitively).
    // Reading replaces the list with the set Id (the first set when Id is empty) and returns true; when
    // no set matches it returns false and leaves the store unchanged. The reader takes every landmark tag
    // from the matching header to the end of the input or to a "</geomap>", later sets included.
    // Reading does not ask LandMarkActionHook; it repaints once at the end.
    bool ReadLandMarksFromOpenXMLFile(std::istream& F, std::string_view Id);
    // false, without an error, when the file cannot be opened.
    bool LoadLandMarks(const std::string& FName, std::string_view Id);
    // Writes one set: the XML declaration (only WithHeader), an empty line, a comment, the header with
    // Id, one line per landmark, the closing tag. Every field reads back unchanged, except: the kinds
    // lmPlus and lmUserDef, which read back as lmCross; Time, which is kept to the second within the
    // years 1..9999 (outside them it is written as 0); non-finite positions, which read back as 0 or
    // +/- the largest double; and texts, from which the file format cannot carry leading or trailing
    // blanks, line breaks, '>' characters, or a mix of both quote characters (see LandMarkFileText).
    void WriteLandMarksToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id) const;
    // Creates or overwrites the file and writes the set with the header line. Raises EXELGeoMapError
    // "Component \"<name>\": cannot write file \"<FName>\"" when the file cannot be written.
    void SaveLandmarks(const std::string& FName, std::string_view Id) const;

private:
    void SwapWith(TLandMarkStore& Other) noexcept;
    bool Ask(TLandMarkAction Action, const TLandMark& LandMark);
    void Changed(unsigned What)
    {
        FRevision = NextRevision();
        FNotice.Changed(What);
    }
    static std::uint64_t NextRevision();
    std::int32_t Append(const TLandMark& LandMark);  // after the question; returns the new number
    TLandMark TemplateAt(double Lat, double Long, double Alt) const;  // the template at a position
    std::int32_t Offer(const TLandMark& LandMark);  // asks, then appends; 0 when refused or re-entered
    void ResetArray();                               // back to 1000 elements
    void ResizeArray(std::size_t Length);            // raises "insufficient memory" on failure
    std::int32_t RemoveIndexAllowed(std::int32_t Index);
    template <class Match>
    std::int32_t RemoveMany(Match&& Matches);
    static std::int32_t NormalClass(std::int32_t Class) { return (Class < -1 || Class > 255) ? -1 : Class; }

    std::string FComponentName;
    std::int32_t FNumLandMarks = 0;
    std::vector<TLandMark> FLandMarks;
    TLandMark FDefaultLM;
    std::array<bool, 256> FLMClassVisible;
    std::int32_t FHighLM = 0;
    TColor FHighLMColFG = 0xFF0000;  // blue
    TColor FHighLMColBG = 0x00FFFF;  // yellow
    bool FHighLMTrans = false;
    int FInAction = 0;  // > 0 while LandMarkActionHook runs
    TChangeNotice FNotice;
    std::uint64_t FRevision = NextRevision();
};

}  // namespace qv
