// Landmarks in and out of the vector formats other programs read and write, through OGR: GPX waypoints,
// KML placemarks, GeoPackage and GeoJSON point layers. No GDAL type appears here, so an application can
// use it without GDAL's headers.
//
// What a landmark becomes in each format (the same attribute names as `geotool landmarks --to-geojson`):
//
//   landmark field        GPX                 KML                  GeoPackage / GeoJSON
//   Latitude, Longitude   lat, lon            coordinates          point (WGS 84)
//   Altitude              ele                 coordinates (Z), altitudeMode "absolute"   point Z
//                         (altitude 0, the template's "unknown": no ele, and KML's default clamping to
//                         the ground)
//   Caption.Text          name                name                 name (and caption_text)
//   Time                  time                TimeStamp            time (a date-time field)
//   symbol (see below)    sym                 styleUrl "#NAME"     symbol
//   every other field     extension elements  ExtendedData         attributes
//   (class, tag, identifier, symbol_kind, symbol_size, symbol_fgcolor, symbol_bgcolor,
//    symbol_transparent, symbol_direction, symbol_length, caption_size, caption_font, caption_styles,
//    caption_fgcolor, caption_bgcolor, caption_transparent, caption_dx, caption_dy, caption_direction,
//    caption_halign, caption_valign)
//
// So every format keeps every field, within these limits: times to the millisecond, in UTC, within the
// years 1..9999, and Time 0 (the epoch, "no time") is written as no time at all; GPX and KML keep
// positions to 15 significant digits (GeoPackage and GeoJSON keep the double). The XML formats bend a
// few texts: KML writes "]]>" as "]] >" and reads its ExtendedData texts (identifier, font name) without
// blanks at their ends, and an empty text in KML reads back as the template's; a GPX reader drops line
// breaks from extension texts. A GPX extension text that begins with an apostrophe or '<', or that reads
// as a number, is written behind an apostrophe, which reading takes off (GPX readers type extension
// columns by their values: "007" would come back as 7, colour 00008000 as 8000). Colours are written as
// 8 hexadecimal digits 00BBGGRR (red in the low byte), and read from that, from "#RRGGBB" or from an
// integer field.
//
// Symbol names. A symbol is written under the name of the first entry of the symbol catalogue given
// (TSymbolRepository) whose appearance equals the landmark's, else under the kind's name from
// LMTypeNames ("Cross", "Square", ...). Reading a symbol name (GPX sym, KML styleUrl without its "#",
// a "symbol" or "sym" attribute): a catalogue entry of that name (compared without regard to case) gives
// the whole appearance and, when its category is 0..255, the class; else a kind name of LMTypeNames or a
// landmark-file keyword ("cross", "arrowto", ...) gives the kind; else the template's symbol stays and the
// name is reported as unknown. Attributes of our own (symbol_kind, class, ...) then override the result.
#pragma once

#include <qvgeo/geomap/landmark_types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

class TSymbolRepository;

enum TLandMarkFileFormat : std::uint8_t { lffGPX, lffKML, lffGPKG, lffGeoJSON };

// "gpx", "kml", "gpkg", "geojson" and OGR's driver names ("GPX", "KML", "LIBKML", "GPKG", "GeoJSON"),
// without regard to case. False when the name is none of them.
bool LandMarkFormatFromName(std::string_view Name, TLandMarkFileFormat& Format);
// By the file name's extension: .gpx, .kml, .gpkg, .geojson or .json (without regard to case).
bool LandMarkFormatFromFileName(std::string_view FileName, TLandMarkFileFormat& Format);
// "gpx", "kml", "gpkg", "geojson".
std::string_view LandMarkFormatName(TLandMarkFileFormat Format);

struct TLandMarkImportOptions {
    // The format to read; without one the file name's extension decides, and when that says nothing
    // OGR tries the four formats on the file's content.
    std::optional<TLandMarkFileFormat> Format;
    // The layer to read. Empty: every layer, except that a GPX file gives its waypoints only (its route
    // and track points are a route or track, not landmarks; name "route_points" or "track_points" to take
    // them).
    std::string Layer;
    // Fields that a feature does not give come from here.
    TLandMark Template = DefaultLandMarkRecord();
    // Named symbols to look symbol names up in; none when null.
    const TSymbolRepository* Symbols = nullptr;
    // A file whose layers read hold more features than this is refused; nothing is imported.
    std::int64_t MaxLandMarks = 10'000'000;
};

struct TLandMarkImportReport {
    std::int64_t Features = 0;       // features in the layers read
    std::int64_t Imported = 0;       // landmarks made
    std::int64_t NotPoints = 0;      // skipped: a geometry other than a point, or none
    std::int64_t Invalid = 0;        // skipped: latitude or longitude not finite, |lat| > 90 or |long| > 360
    std::int64_t Transformed = 0;    // positions transformed from another coordinate system to WGS 84
    std::int64_t NamesCut = 0;       // names longer than the caption's 80 bytes, cut (never inside a character)
    std::int64_t IdentifiersCut = 0; // identifiers longer than 15 bytes, cut
    std::int64_t UnknownSymbols = 0; // symbol names neither in the catalogue nor a kind name
    std::int64_t BadAttributes = 0;  // attribute values that could not be read; the template's value is kept
    std::vector<std::string> LayersRead;
    // One line per problem or notice ("layer waypoints, feature 3: latitude 91 is out of range"), the
    // first MaxMessages of them.
    std::vector<std::string> Messages;
    std::int64_t MessagesLeftOut = 0;
    static constexpr std::size_t MaxMessages = 100;
};

// Reads the point features of a vector file as landmarks, positions in WGS 84 degrees (other coordinate
// systems are transformed; a layer without one is taken as WGS 84 longitude/latitude). Invalid and
// non-point features are counted in Report and skipped; the rest are returned in the file's order.
// Raises EXELGeoMapError "ImportLandMarks: <why>" when the file cannot be opened as a vector file of the
// format, the layer does not exist, GDAL fails while reading (broken XML...), a coordinate system cannot
// be transformed, or the layers read hold more than Options.MaxLandMarks features.
std::vector<TLandMark> ImportLandMarks(const std::string& FileName, const TLandMarkImportOptions& Options,
                                       TLandMarkImportReport& Report);

struct TLandMarkExportOptions {
    // Layer name; empty gives "landmarks". GPX has no named layers: its landmarks are always waypoints.
    std::string Layer;
    // Named symbols for the symbol names written; none when null.
    const TSymbolRepository* Symbols = nullptr;
};

struct TLandMarkExportReport {
    std::int64_t Written = 0;
    std::int64_t Invalid = 0;       // not written: latitude or longitude not finite, or |lat| > 90
    std::int64_t TimesLeftOut = 0;  // written without a time: outside the years 1..9999 or not finite
    std::int64_t AltitudesLeftOut = 0;  // written with altitude 0: not finite
    // Texts the format cannot carry as they are: in KML a "]]>" is written as "]] >"; in GPX line breaks
    // in extension texts (identifier, font name) do not read back.
    std::int64_t TextsChanged = 0;
    std::vector<std::string> Messages;  // the first TLandMarkImportReport::MaxMessages
};

// Writes the landmarks to FileName in Format, replacing the file. The file is written under a temporary
// name beside it and renamed at the end, so a failure leaves an earlier file as it was. Raises
// EXELGeoMapError "ExportLandMarks: <why>" when the file cannot be written.
TLandMarkExportReport ExportLandMarks(std::span<const TLandMark> LandMarks, const std::string& FileName,
                                      TLandMarkFileFormat Format, const TLandMarkExportOptions& Options = {});

// The attribute text of a colour: 8 hexadecimal digits 00BBGGRR. Reading takes 1 to 8 hexadecimal
// digits or "#RRGGBB" (blanks around them allowed); false for anything else.
std::string LandMarkColorText(TColor Color);
bool ParseLandMarkColor(std::string_view Text, TColor& Color);

}  // namespace qv
