// TMapCatalogue: an atlas's registered maps (up to 200 calibration files, each naming a raster image) and
// the choice among them for a place and a resolution, without any GUI. TGeoAtlas keeps one and shows
// the map it chooses; a program without widgets (a batch tool, a server) can ask the same questions.
//
// Units: resolutions in metres per map pixel (larger is coarser); positions in degrees; MinResDiff in
// percent. Maps are numbered from 1; 0 means none.
//
// File names: a map is identified by its calibration file name in lower case (registering "Wien.xml" and
// "wien.xml" gives one entry, and TMapDefinition.MapFName holds the lower-case form), but the file is
// opened by the name it was registered with (FileName), so that it opens on a case-sensitive file system.
//
// Choices compare strictly, so among maps of equal resolution the lowest number wins. Positions on a
// map's edge are outside it (PositionInMap).
#pragma once

#include <qvgeo/geomap/calib_types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qv {

// One registered map.
struct TMapDefinition {
    std::string MapFName;  // full path of the calibration file, lower case
    std::string Caption;
    double Resolution = 0.0;  // metres per pixel; larger is coarser
    TCornerArray Corners{};   // TCorners order: top-left, bottom-left, bottom-right, top-right
};

inline constexpr std::int32_t MaxAtlasMaps = 200;

// A calibration file RegisterFolder could not register, and why.
struct TAtlasFileProblem {
    std::string File;    // the path as found in the folder
    std::string Reason;  // one line of text
    friend bool operator==(const TAtlasFileProblem&, const TAtlasFileProblem&) = default;
};

class TMapCatalogue {
public:
    // Parses the calibration file (ParseCalibData, its first calibration) and adds it, or updates the
    // entry of the same lower-case name. Returns the map's number, 0 when nothing changed; Reason (when
    // given) then says why: "cannot be opened", "holds no calibration", the reader's error text, or
    // "the atlas holds 200 maps already" (only a new file is refused when full; an update still fits).
    // Never raises.
    std::int32_t Register(const std::string& MapFName, std::string* Reason = nullptr);
    // Removes map Index; the following maps move down one number. The former last slot keeps its copy
    // (GetMapDef above Count shows what a slot last held). False, nothing changed, outside 1..Count.
    bool Unregister(std::int32_t Index);
    // Registers every "*.xml" file of Folder (not its subfolders) in name order, compared without case.
    // Returns one entry for each file not registered; a folder that cannot be listed gives one entry
    // naming the folder. Progress, when set, is called before each file with the files done so far and
    // their number, and once more with both equal at the end; false stops there (the files not reached
    // are neither registered nor reported). Registered, when set, is called after each file taken with
    // its map number.
    std::vector<TAtlasFileProblem> RegisterFolder(const std::string& Folder,
                                                  const std::function<bool(std::int32_t Done, std::int32_t Total)>& Progress = {},
                                                  const std::function<void(std::int32_t Index)>& Registered = {});

    std::int32_t Count() const { return FCount; }
    // Slot Index (1..200, against the capacity, not Count: a slot above Count holds what it last held,
    // empty if never used); an empty definition outside. Definition refers to the slot itself (valid until
    // the next registration or removal), GetMapDef copies it.
    const TMapDefinition& Definition(std::int32_t Index) const;
    TMapDefinition GetMapDef(std::int32_t Index) const { return Definition(Index); }
    // The calibration file of slot Index as registered, its case kept; slots as for Definition, empty
    // outside 1..200.
    std::string FileName(std::int32_t Index) const;
    // The text a list of the maps shows for map Index: its caption, or MapFName when the caption is
    // empty; empty outside 1..Count.
    std::string ListLine(std::int32_t Index) const;
    // The number of the map registered under MapFName (compared without case); 0 when there is none.
    std::int32_t Find(const std::string& MapFName) const;
    // Whether map Index's file still holds a calibration (read again now); false outside 1..Count. The
    // reader's errors raise EXELGeoMapError, as ParseCalibData does.
    bool HoldsCalibration(std::int32_t Index) const;

    // ---- the choice of a map at (Lat, Long) ----
    // A zoom in from CurrentResolution: the coarsest map finer than it by more than MinResDiff percent
    // (relative to CurrentResolution), i.e. the smallest step in. 0 when there is none; a
    // CurrentResolution of 0 or NaN never finds one.
    std::int32_t ChooseFiner(double Lat, double Long, double CurrentResolution, double MinResDiff = 10.0) const;
    // A zoom out: the finest map coarser than CurrentResolution, however little. 0 when there is none.
    std::int32_t ChooseCoarser(double Lat, double Long, double CurrentResolution) const;
    // The map for a wanted resolution: the coarsest map whose resolution is at most Resolution, or, when
    // every map there is coarser, the finest of them. 0 when no map covers the place.
    std::int32_t ChooseBest(double Lat, double Long, double Resolution) const;

private:
    std::int32_t FCount = 0;
    std::array<TMapDefinition, MaxAtlasMaps> FMaps{};
    // The names the maps were registered with (case kept), slot for slot beside FMaps.
    std::array<std::string, MaxAtlasMaps> FOpenNames{};
};

}  // namespace qv
