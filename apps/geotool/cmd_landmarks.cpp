// geotool landmarks / symbols: list landmark files and symbol catalogues, and convert landmarks to and
// from GeoJSON.
#include "command.h"
#include "geojson_import.h"
#include "landmark_sets.h"
#include "line_io.h"

#include <qvgeo/geomap/file_family.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/symbol_repository.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/text.h>

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <limits>
#include <optional>
#include <string>

namespace {

using nlohmann::json;

constexpr std::string_view IsoPicture = "yyyy-mm-ddTHH:MM:SS";
// The dates that "yyyy" renders with four digits (0001-01-01 up to the end of 9999), in days.
constexpr double FirstIsoDate = -693593.0;
constexpr double EndIsoDate = 2958466.0 - 0.5 / 86400.0;

constexpr std::string_view HAlignNames[] = {"left", "right", "center"};
constexpr std::string_view VAlignNames[] = {"top", "bottom", "center"};
constexpr std::string_view StyleNames[] = {"bold", "italic", "underline", "strikeout"};

void Shortest(geotool::RecordWriter& out, double v)
{
    out.Text(geotool::ShortestText(v));
}

// A text field of a tab-separated line: tabs and line breaks would split the record, so they become blanks.
void Field(geotool::RecordWriter& out, std::string_view text)
{
    for (char c : text)
        out.Char(c == '\t' || c == '\n' || c == '\r' ? ' ' : c);
}

std::string TimeText(double days)
{
    if (days >= FirstIsoDate && days < EndIsoDate)
        return qv::FormatDateTime(days, IsoPicture);
    return geotool::ShortestText(days);
}

void ListLandMarks(const qv::TLandMarkStore& store)
{
    geotool::RecordWriter out(stdout);
    int number = 0;
    for (const qv::TLandMark& lm : store.LandMarks()) {
        const auto& sp = lm.SymbolProps;
        const auto& cap = lm.Caption;
        out.Int(++number).Char('\t');
        Shortest(out, lm.Latitude);
        out.Char('\t');
        Shortest(out, lm.Longitude);
        out.Char('\t');
        Shortest(out, lm.Altitude);
        out.Char('\t').Int(lm.ClassFlag).Char('\t').Int(lm.Tag).Char('\t');
        out.Text(sp.Kind < qv::NumLandMarkElements ? qv::LMTypeNames[sp.Kind] : "?").Char('\t');
        out.Int(sp.Size).Char('\t').Text(qv::Hex(sp.FGColor, 8)).Char('\t').Text(qv::Hex(sp.BGColor, 8)).Char('\t');
        out.Text(qv::BoolToStr(sp.Transparent)).Char('\t').Int(sp.Direction).Char('\t').Int(sp.Length).Char('\t');
        Field(out, cap.Text);
        out.Char('\t').Int(cap.Size).Char('\t');
        Field(out, cap.FontName);
        out.Char('\t').Text(qv::FontStylesToStr(cap.FontStyles)).Char('\t');
        out.Text(qv::Hex(cap.FGColor, 8)).Char('\t').Text(qv::Hex(cap.BGColor, 8)).Char('\t');
        out.Text(qv::BoolToStr(cap.Transparent)).Char('\t').Int(cap.dx).Char('\t').Int(cap.dy).Char('\t');
        out.Int(cap.Direction).Char('\t');
        out.Text(cap.HAlignment < qv::NumHorzAlignments ? HAlignNames[cap.HAlignment] : "?").Char('\t');
        out.Text(cap.VAlignment < qv::NumVerticalAlignments ? VAlignNames[cap.VAlignment] : "?").Char('\t');
        Field(out, lm.Identifier);
        out.Char('\t').Text(TimeText(lm.Time)).EndLine();
    }
}

// ---------------------------------------------------------------------------------------------------
// GeoJSON

json FeatureOf(const qv::TLandMark& lm)
{
    const auto& sp = lm.SymbolProps;
    const auto& cap = lm.Caption;
    json styles = json::array();
    for (int s = 0; s < 4; ++s)
        if (cap.FontStyles.Contains(static_cast<qv::TFontStyle>(s)))
            styles.push_back(StyleNames[s]);
    json props = {
        {"class", lm.ClassFlag},
        {"tag", lm.Tag},
        {"symbol_kind", qv::LandMarkElementKeyword(sp.Kind)},
        {"symbol_size", sp.Size},
        {"symbol_fgcolor", qv::Hex(sp.FGColor, 8)},
        {"symbol_bgcolor", qv::Hex(sp.BGColor, 8)},
        {"symbol_transparent", sp.Transparent},
        {"symbol_direction", sp.Direction},
        {"symbol_length", sp.Length},
        {"caption_text", cap.Text},
        {"caption_size", cap.Size},
        {"caption_font", cap.FontName},
        {"caption_styles", styles},
        {"caption_fgcolor", qv::Hex(cap.FGColor, 8)},
        {"caption_bgcolor", qv::Hex(cap.BGColor, 8)},
        {"caption_transparent", cap.Transparent},
        {"caption_dx", cap.dx},
        {"caption_dy", cap.dy},
        {"caption_direction", cap.Direction},
        {"caption_halign", cap.HAlignment < qv::NumHorzAlignments ? HAlignNames[cap.HAlignment] : "center"},
        {"caption_valign", cap.VAlignment < qv::NumVerticalAlignments ? VAlignNames[cap.VAlignment] : "top"},
        {"identifier", lm.Identifier},
    };
    if (lm.Time >= FirstIsoDate && lm.Time < EndIsoDate)
        props["time"] = qv::FormatDateTime(lm.Time, IsoPicture);
    else
        props["time"] = lm.Time;
    json coords = json::array({lm.Longitude, lm.Latitude, lm.Altitude});
    return json{{"type", "Feature"}, {"geometry", {{"type", "Point"}, {"coordinates", coords}}}, {"properties", props}};
}

void WriteGeoJSON(const qv::TLandMarkStore& store)
{
    // One feature a line: large collections stay readable and diff well.
    geotool::RecordWriter out(stdout);
    out.Text("{\"type\":\"FeatureCollection\",\"features\":[");
    bool first = true;
    for (const qv::TLandMark& lm : store.LandMarks()) {
        if (!first)
            out.Char(',');
        out.EndLine();
        first = false;
        out.Text(FeatureOf(lm).dump(-1, ' ', false, json::error_handler_t::replace));
    }
    out.EndLine().Text("]}").EndLine();
    out.Flush();
}

// A property conversion failure, reported with the feature's number.
struct PropertyError {
    std::string message;
};

const json* Prop(const json& props, const char* name)
{
    const auto it = props.find(name);
    return (it == props.end() || it->is_null()) ? nullptr : &*it;
}

std::int64_t IntProp(const json& props, const char* name, std::int64_t fallback, std::int64_t lo, std::int64_t hi)
{
    const json* v = Prop(props, name);
    if (!v)
        return fallback;
    double d;
    if (v->is_number_integer() || v->is_number_unsigned())
        d = v->get<double>();
    else if (v->is_number_float() && std::floor(v->get<double>()) == v->get<double>())
        d = v->get<double>();
    else
        throw PropertyError{std::string(name) + ": expected an integer"};
    if (d < static_cast<double>(lo) || d > static_cast<double>(hi))
        throw PropertyError{std::string(name) + ": " + v->dump() + " is out of range " + std::to_string(lo) + ".." +
                            std::to_string(hi)};
    if (v->is_number_integer())
        return v->get<std::int64_t>();
    return static_cast<std::int64_t>(d);
}

bool BoolProp(const json& props, const char* name, bool fallback)
{
    const json* v = Prop(props, name);
    if (!v)
        return fallback;
    if (!v->is_boolean())
        throw PropertyError{std::string(name) + ": expected true or false"};
    return v->get<bool>();
}

std::string TextProp(const json& props, const char* name, const std::string& fallback)
{
    const json* v = Prop(props, name);
    if (!v)
        return fallback;
    if (!v->is_string())
        throw PropertyError{std::string(name) + ": expected a text"};
    return v->get<std::string>();
}

// A colour as the 8-digit TColor value ("00BBGGRR", red in the low byte), as "#RRGGBB", or as a number.
qv::TColor ColorProp(const json& props, const char* name, qv::TColor fallback)
{
    const json* v = Prop(props, name);
    if (!v)
        return fallback;
    if (v->is_number())
        return static_cast<qv::TColor>(IntProp(props, name, 0, 0, 0xFFFFFFFFll));
    if (!v->is_string())
        throw PropertyError{std::string(name) + ": expected a colour"};
    const std::string s = v->get<std::string>();
    const bool css = !s.empty() && s[0] == '#';
    const std::string digits = css ? s.substr(1) : s;
    std::uint32_t value = 0;
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.empty() || digits.size() > 8 || ec != std::errc() || end != digits.data() + digits.size() ||
        (css && digits.size() != 6))
        throw PropertyError{std::string(name) + ": \"" + s + "\" is not a colour (00BBGGRR or #RRGGBB)"};
    if (css)  // #RRGGBB: red comes first in the text but belongs in the low byte
        value = ((value >> 16) & 0xFFu) | (value & 0xFF00u) | ((value & 0xFFu) << 16);
    return value;
}

template <std::size_t N>
std::uint8_t NameProp(const json& props, const char* name, std::uint8_t fallback, const std::string_view (&names)[N])
{
    const json* v = Prop(props, name);
    if (!v)
        return fallback;
    if (v->is_string()) {
        const std::string s = qv::LowerCase(v->get<std::string>());
        for (std::size_t i = 0; i < N; ++i)
            if (s == names[i])
                return static_cast<std::uint8_t>(i);
    }
    std::string allowed;
    for (std::size_t i = 0; i < N; ++i)
        allowed += (i ? ", " : "") + std::string(names[i]);
    throw PropertyError{std::string(name) + ": expected one of " + allowed};
}

qv::TLandMark LandMarkOf(const json& feature)
{
    if (!feature.is_object() || feature.value("type", json()) != "Feature")
        throw PropertyError{"not a Feature"};
    const json& geom = feature.contains("geometry") ? feature["geometry"] : json();
    if (!geom.is_object() || geom.value("type", json()) != "Point")
        throw PropertyError{"geometry: only Point features become landmarks"};
    const json& coords = geom.contains("coordinates") ? geom["coordinates"] : json();
    if (!coords.is_array() || coords.size() < 2 || coords.size() > 3)
        throw PropertyError{"coordinates: expected [longitude, latitude] or [longitude, latitude, altitude]"};
    for (const auto& c : coords)
        if (!c.is_number())
            throw PropertyError{"coordinates: expected numbers"};

    static const json noProps = json::object();
    const json& props = feature.contains("properties") && feature["properties"].is_object() ? feature["properties"]
                                                                                            : noProps;
    const qv::TLandMark d = qv::DefaultLandMarkRecord();
    constexpr std::int64_t i32lo = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t i32hi = std::numeric_limits<std::int32_t>::max();
    qv::TLandMark lm;
    lm.Longitude = coords[0].get<double>();
    lm.Latitude = coords[1].get<double>();
    lm.Altitude = coords.size() > 2 ? coords[2].get<double>() : 0.0;
    lm.ClassFlag = static_cast<std::uint8_t>(IntProp(props, "class", d.ClassFlag, 0, 255));
    lm.Tag = static_cast<std::int32_t>(IntProp(props, "tag", d.Tag, i32lo, i32hi));

    auto& sp = lm.SymbolProps;
    sp.Kind = d.SymbolProps.Kind;
    if (const json* k = Prop(props, "symbol_kind")) {
        bool known = false;
        if (k->is_string())
            for (int i = 0; i < qv::NumLandMarkElements && !known; ++i)
                if (qv::LowerCase(k->get<std::string>()) == qv::LandMarkElementKeyword(static_cast<qv::TLandMarkElement>(i))) {
                    sp.Kind = static_cast<qv::TLandMarkElement>(i);
                    known = true;
                }
        if (!known)
            throw PropertyError{"symbol_kind: expected plus, square, triangle, circle, arrowfrom, arrowto, crossbox, "
                                "spade, cross or userdef"};
    }
    sp.Size = static_cast<std::int32_t>(IntProp(props, "symbol_size", d.SymbolProps.Size, i32lo, i32hi));
    sp.FGColor = ColorProp(props, "symbol_fgcolor", d.SymbolProps.FGColor);
    sp.BGColor = ColorProp(props, "symbol_bgcolor", d.SymbolProps.BGColor);
    sp.Transparent = BoolProp(props, "symbol_transparent", d.SymbolProps.Transparent);
    sp.Direction = static_cast<std::int32_t>(IntProp(props, "symbol_direction", d.SymbolProps.Direction, i32lo, i32hi));
    sp.Length = static_cast<std::int32_t>(IntProp(props, "symbol_length", d.SymbolProps.Length, i32lo, i32hi));

    auto& cap = lm.Caption;
    cap.Text = TextProp(props, "caption_text", d.Caption.Text);
    cap.Size = static_cast<std::int32_t>(IntProp(props, "caption_size", d.Caption.Size, i32lo, i32hi));
    cap.FontName = TextProp(props, "caption_font", d.Caption.FontName);
    cap.FontStyles = d.Caption.FontStyles;
    if (const json* st = Prop(props, "caption_styles")) {
        if (!st->is_array())
            throw PropertyError{"caption_styles: expected a list such as [\"bold\", \"italic\"]"};
        json one = json::object();
        for (const auto& s : *st) {
            one["s"] = s;
            cap.FontStyles.Include(static_cast<qv::TFontStyle>(NameProp(one, "s", 0, StyleNames)));
        }
    }
    cap.FGColor = ColorProp(props, "caption_fgcolor", d.Caption.FGColor);
    cap.BGColor = ColorProp(props, "caption_bgcolor", d.Caption.BGColor);
    cap.Transparent = BoolProp(props, "caption_transparent", d.Caption.Transparent);
    cap.dx = static_cast<std::int32_t>(IntProp(props, "caption_dx", d.Caption.dx, i32lo, i32hi));
    cap.dy = static_cast<std::int32_t>(IntProp(props, "caption_dy", d.Caption.dy, i32lo, i32hi));
    cap.Direction = static_cast<std::int32_t>(IntProp(props, "caption_direction", d.Caption.Direction, i32lo, i32hi));
    cap.HAlignment = static_cast<qv::THorzAlignment>(NameProp(props, "caption_halign", d.Caption.HAlignment, HAlignNames));
    cap.VAlignment =
        static_cast<qv::TVerticalAlignment>(NameProp(props, "caption_valign", d.Caption.VAlignment, VAlignNames));
    lm.Identifier = TextProp(props, "identifier", d.Identifier);

    lm.Time = d.Time;
    if (const json* t = Prop(props, "time")) {
        if (t->is_number()) {
            lm.Time = t->get<double>();
        } else if (t->is_string()) {
            std::string s = t->get<std::string>();
            if (s.size() == 20 && s.back() == 'Z')
                s.pop_back();
            if (s.size() == 19 && s[10] == ' ')
                s[10] = 'T';
            int pos = 1;
            lm.Time = qv::ScanDateTime(s, IsoPicture, qv::lanEnglish, pos);
            if (pos != static_cast<int>(s.size()) + 1)
                throw PropertyError{"time: \"" + t->get<std::string>() + "\" is not a date yyyy-mm-ddTHH:MM:SS"};
        } else {
            throw PropertyError{"time: expected yyyy-mm-ddTHH:MM:SS or days since 1899-12-30"};
        }
    }
    return lm;
}

int FromGeoJSON(const std::string& file, const std::string& id)
{
    const std::string text = geotool::ReadWholeFile(file);
    json doc;
    try {
        doc = geotool::ParseGeoJSONText(text);
    } catch (const std::runtime_error& e) {
        throw std::runtime_error("\"" + file + "\": " + e.what());
    }
    const json* features = nullptr;
    json single = json::array();
    if (doc.is_object() && doc.value("type", json()) == "FeatureCollection" && doc.contains("features") &&
        doc["features"].is_array()) {
        features = &doc["features"];
    } else if (doc.is_object() && doc.value("type", json()) == "Feature") {
        single.push_back(doc);
        features = &single;
    } else {
        throw std::runtime_error("\"" + file + "\" holds neither a GeoJSON FeatureCollection nor a Feature");
    }

    qv::TLandMarkStore store;
    int bad = 0;
    long number = 0;
    for (const json& f : *features) {
        ++number;
        try {
            const qv::TLandMark lm = LandMarkOf(f);
            const std::string loss = geotool::LandMarkFileLoss(lm);
            if (!loss.empty())
                std::fprintf(stderr, "geotool landmarks: feature %ld: %s\n", number, loss.c_str());
            store.AddLandMark(lm.Latitude, lm.Longitude, lm.Altitude);
            store.SetLandMarkData(store.NumLandMarks(), lm);
        } catch (const PropertyError& e) {
            std::fprintf(stderr, "geotool landmarks: feature %ld skipped: %s\n", number, e.message.c_str());
            ++bad;
        }
    }
    store.WriteLandMarksToOpenXMLFile(std::cout, true, id);
    geotool::CheckStandardOutput(std::cout);
    return bad == 0 ? 0 : 1;
}

int RunLandMarks(geotool::Args& args)
{
    const std::string id = args.Option("--id", "");
    bool fromGeo = false;
    const std::string geoFile = args.Option("--from-geojson", "", &fromGeo);
    const bool toGeo = args.Flag("--to-geojson");
    const auto pos = args.Positional();
    if (fromGeo) {
        if (toGeo || !pos.empty())
            throw geotool::UsageError{"--from-geojson takes no landmark file and no --to-geojson"};
        return FromGeoJSON(geoFile, id);
    }
    if (pos.size() != 1)
        throw geotool::UsageError{"expected one landmark file"};
    const qv::TLandMarkStore store = geotool::ReadLandMarkSet(pos[0], id);
    if (toGeo)
        WriteGeoJSON(store);
    else
        ListLandMarks(store);
    return 0;
}

int RunSymbols(geotool::Args& args)
{
    const std::string id = args.Option("--id", "");
    const auto pos = args.Positional();
    if (pos.size() != 1)
        throw geotool::UsageError{"expected one symbol catalogue file"};
    std::ifstream in = geotool::OpenInput(pos[0]);
    qv::TSymbolRepository repo;
    if (!repo.ReadFromOpenXMLFile(in, id))
        throw std::runtime_error(id.empty() ? "no symbol catalogue in \"" + pos[0] + "\""
                                            : "no symbol catalogue with id \"" + id + "\" in \"" + pos[0] + "\"");
    geotool::RecordWriter out(stdout);
    for (int i = 1; i <= repo.NumEntries(); ++i) {
        const qv::TSymbol s = repo.GetValues(i);
        const auto& p = s.Properties;
        out.Int(i).Char('\t');
        out.Text(p.Kind < qv::NumLandMarkElements ? qv::LMTypeNames[p.Kind] : "?").Char('\t');
        out.Int(p.Size).Char('\t').Text(qv::Hex(p.FGColor, 8)).Char('\t').Text(qv::Hex(p.BGColor, 8)).Char('\t');
        out.Text(qv::BoolToStr(p.Transparent)).Char('\t').Int(p.Direction).Char('\t').Int(p.Length).Char('\t');
        Field(out, s.Name);
        out.Char('\t').Int(s.Category).EndLine();
    }
    return 0;
}

const geotool::Registrar regLandmarks(
    {"landmarks", "list a landmark file, or convert landmarks to and from GeoJSON",
     "usage: geotool landmarks FILE [--id ID]\n"
     "       geotool landmarks FILE [--id ID] --to-geojson\n"
     "       geotool landmarks --from-geojson FILE.geojson [--id ID]\n\n"
     "Reads the landmark set ID (the first set when --id is not given; ids compare without regard to\n"
     "case) from the landmark file FILE. Note that a set runs to the end of the file: asking for the\n"
     "first set of a file with several gives the landmarks of the later sets as well.\n\n"
     "Listing: one line per landmark, fields separated by a tab:\n"
     "  number, latitude (deg), longitude (deg), altitude (m), class, tag,\n"
     "  symbol: kind, size (px), line colour, fill colour, transparent, direction (deg), length (px),\n"
     "  caption: text, size (pt), font, styles (bold/italic/underline/strike-out as 0/1), text colour,\n"
     "           background colour, transparent, dx (px), dy (px), direction, horizontal alignment\n"
     "           (left/right/center), vertical alignment (top/bottom/center),\n"
     "  identifier, time (yyyy-mm-ddTHH:MM:SS).\n"
     "Colours are 8 hexadecimal digits 00BBGGRR (red in the low byte). Tabs and line breaks inside texts\n"
     "are shown as blanks.\n\n"
     "--to-geojson writes a GeoJSON FeatureCollection of Points ([longitude, latitude, altitude]) whose\n"
     "properties carry every field: class, tag, symbol_kind (plus, square, triangle, circle, arrowfrom,\n"
     "arrowto, crossbox, spade, cross, userdef), symbol_size, symbol_fgcolor, symbol_bgcolor,\n"
     "symbol_transparent, symbol_direction, symbol_length, caption_text, caption_size, caption_font,\n"
     "caption_styles (a list of bold, italic, underline, strikeout), caption_fgcolor, caption_bgcolor,\n"
     "caption_transparent, caption_dx, caption_dy, caption_direction, caption_halign, caption_valign,\n"
     "identifier, time.\n\n"
     "--from-geojson reads such a file (\"-\" for standard input) and writes a landmark file with set id\n"
     "ID to standard output. Only Point features become landmarks; missing properties take the default\n"
     "landmark's values; colours may also be given as \"#RRGGBB\" and times as days since 1899-12-30.\n"
     "A feature with a bad property is reported on standard error and skipped (exit code 1); what the\n"
     "landmark file cannot keep (identifiers beyond 15 and captions beyond 80 characters, '>' and line\n"
     "breaks in texts, the kinds plus and userdef) is reported as a warning.",
     RunLandMarks});

const geotool::Registrar regSymbols(
    {"symbols", "list a symbol catalogue file",
     "usage: geotool symbols FILE [--id ID]\n\n"
     "Reads the symbol catalogue ID (the first when --id is not given) from FILE and prints one line per\n"
     "symbol, fields separated by a tab: number, kind (Plus, Square, Triangle, Circle, ArrowFrom, ArrowTo,\n"
     "CrossBox, Spade, Cross, User-Defined), size (px), line colour, fill colour (00BBGGRR), transparent,\n"
     "direction (deg), length (px), name, category.",
     RunSymbols});

}  // namespace
