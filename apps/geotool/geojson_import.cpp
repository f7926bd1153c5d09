// GeoJSON import. Parsed values are only ever bound by reference: copying a JSON value recurses once per
// level of nesting, and the depth limit at parse time is what keeps hostile input from the stack.
#include "geojson_import.h"

#include <qvgeo/support/date_time.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <unordered_map>

namespace geotool {

namespace {

using nlohmann::json;

constexpr const char* DatePicture = "yyyy-mm-ddTHH:MM:SS";

struct TooDeep {};

// A JSON number that a float32 field can hold.
bool ToFloat(const json& v, float& out)
{
    if (!v.is_number())
        return false;
    const double d = v.get<double>();
    if (!std::isfinite(d) || std::fabs(d) > std::numeric_limits<float>::max())
        return false;
    out = static_cast<float>(d);
    return true;
}

// The first bytes of Name that fit the 59-byte field without splitting a UTF-8 sequence.
std::string FitName(const std::string& name)
{
    if (name.size() <= static_cast<std::size_t>(qv::gdbNameLen))
        return name;
    std::size_t n = qv::gdbNameLen;
    while (n > 0 && (static_cast<unsigned char>(name[n]) & 0xC0) == 0x80)
        --n;
    return name.substr(0, n);
}

const json* Member(const json& object, const char* name)
{
    if (!object.is_object())
        return nullptr;
    const auto it = object.find(name);
    return it == object.end() ? nullptr : &*it;
}

std::string TextMember(const json& object, const char* name)
{
    const json* v = Member(object, name);
    return v && v->is_string() ? v->get<std::string>() : std::string();
}

bool ToLatLong(const json& lon, const json& lat, qv::TSCoords& p)
{
    if (!lon.is_number() || !lat.is_number())
        return false;
    const double x = lon.get<double>(), y = lat.get<double>();
    if (!std::isfinite(x) || !std::isfinite(y) || std::fabs(y) > 90 || std::fabs(x) > 180)
        return false;
    p = qv::TSCoords{static_cast<float>(y), static_cast<float>(x)};
    return true;
}

bool ToPoint(const json& c, qv::TSCoords& p)
{
    return c.is_array() && c.size() >= 2 && ToLatLong(c[0], c[1], p);
}

bool ToLine(const json& c, qv::TgdbPolygon& pts)
{
    if (!c.is_array() || c.empty())
        return false;
    pts.clear();
    for (const auto& p : c) {
        qv::TSCoords s;
        if (!ToPoint(p, s))
            return false;
        pts.push_back(s);
    }
    return true;
}

struct TItem {
    qv::TgdbData Data;
    qv::TgdbPolygon Points;
};

class TImporter {
public:
    explicit TImporter(TGeoJSONImportReport& report) : FReport(report) {}
    void Feature(const json& f);
    void Geometry(const json& geom, const json& props, const json* bbox);
    std::vector<TItem> Items;

private:
    void Warn(const std::string& text) { FReport.Warnings.push_back({FReport.Features, text}); }
    void Skip(const std::string& text)
    {
        Warn(text + "; skipped");
        ++FReport.Skipped;
    }
    bool Basics(const json& props, qv::TgdbData& d, bool& kindGiven, bool& altGiven);
    TGeoJSONImportReport& FReport;
};

bool TImporter::Basics(const json& props, qv::TgdbData& d, bool& kindGiven, bool& altGiven)
{
    kindGiven = altGiven = false;
    if (const json* k = Member(props, "kind"); k && k->is_string()) {
        qv::TgdbItem kind = qv::gitUndefined;
        if (!qv::GdbItemFromName(k->get<std::string>(), kind) || kind == qv::gitBLOB) {
            Skip("kind \"" + k->get<std::string>() + "\" cannot be imported");
            return false;
        }
        d.ItemKind = kind;
        kindGiven = true;
    }
    d.Name = FitName(TextMember(props, "name"));
    if (const json* a = Member(props, "altitude"); a && a->is_number()) {
        if (ToFloat(*a, d.Altitude))
            altGiven = true;
        else
            Warn("altitude out of range; not kept");
    }
    if (const json* c = Member(props, "class"); c && c->is_number_integer())
        d.ClassFlag = static_cast<std::uint8_t>(std::clamp<long long>(c->get<long long>(), 0, 255));
    if (const json* t = Member(props, "tag"); t && t->is_number_integer())
        d.Tag = static_cast<std::int32_t>(std::clamp<long long>(
            t->get<long long>(), std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
    d.Date = 0;
    if (const json* t = Member(props, "date"); t && t->is_string()) {
        int pos = 1;
        d.Date = qv::ScanDateTime(t->get<std::string>(), DatePicture, qv::lanEnglish, pos);
    }
    if (d.Date == 0)
        d.Date = 25569.0 + static_cast<double>(std::time(nullptr)) / 86400.0;
    return true;
}

void TImporter::Feature(const json& f)
{
    ++FReport.Features;
    if (!f.is_object()) {
        Skip("not an object");
        return;
    }
    static const json noProps = json::object();
    const json* props = Member(f, "properties");
    const json* geom = Member(f, "geometry");
    Geometry(geom ? *geom : json(), props && props->is_object() ? *props : noProps, Member(f, "bbox"));
}

void TImporter::Geometry(const json& geom, const json& props, const json* bbox)
{
    qv::TgdbData d;
    bool kindGiven = false, altGiven = false;
    if (!Basics(props, d, kindGiven, altGiven))
        return;
    const auto kindOr = [&](qv::TgdbItem fallback) {
        if (!kindGiven)
            d.ItemKind = fallback;
    };
    const auto add = [&](const qv::TgdbPolygon& pts) { Items.push_back({d, pts}); };

    if (geom.is_null()) {
        // An item without points, placed by its bounding box [west, south, east, north].
        qv::TSCoords sw, ne;
        if (bbox && bbox->is_array() && bbox->size() == 4 && ToLatLong((*bbox)[0], (*bbox)[1], sw) &&
            ToLatLong((*bbox)[2], (*bbox)[3], ne)) {
            kindOr(qv::gitTown);
            d.LatLow = sw.Latit, d.LongLow = sw.Longit, d.LatHigh = ne.Latit, d.LongHigh = ne.Longit;
            add({});
        } else {
            Skip("no geometry");
        }
        return;
    }
    static const json none;
    const std::string type = TextMember(geom, "type");
    const json* found = Member(geom, "coordinates");
    const json& coords = found ? *found : none;
    qv::TgdbPolygon pts;
    bool ok = true;
    const auto addPolygon = [&](const json& rings) {
        if (!rings.is_array() || rings.empty() || !ToLine(rings[0], pts) || pts.size() < 2) {
            ok = false;
            return;
        }
        if (rings.size() > 1)
            Warn("polygon holes are not kept");
        // The ring's closing point repeats its first; Closed says the same thing.
        if (pts.size() > 1 && pts.front().Latit == pts.back().Latit && pts.front().Longit == pts.back().Longit)
            pts.pop_back();
        kindOr(qv::gitBorder);
        d.Closed = true;
        add(pts);
    };
    if (type == "Point") {
        qv::TSCoords p;
        if ((ok = ToPoint(coords, p))) {
            if (!altGiven && coords.size() >= 3 && coords[2].is_number() && !ToFloat(coords[2], d.Altitude))
                Warn("altitude out of range; not kept");
            kindOr(qv::gitTown);
            add({p});
        }
    } else if (type == "MultiPoint") {
        ok = ToLine(coords, pts);
        kindOr(qv::gitTown);
        for (std::size_t i = 0; ok && i < pts.size(); ++i)
            add({pts[i]});
    } else if (type == "LineString") {
        if ((ok = ToLine(coords, pts))) {
            kindOr(qv::gitRoad);
            add(pts);
        }
    } else if (type == "MultiLineString") {
        ok = coords.is_array();
        kindOr(qv::gitRoad);
        for (std::size_t i = 0; ok && i < coords.size(); ++i)
            if ((ok = ToLine(coords[i], pts)))
                add(pts);
    } else if (type == "Polygon") {
        addPolygon(coords);
    } else if (type == "MultiPolygon") {
        ok = coords.is_array();
        for (std::size_t i = 0; ok && i < coords.size(); ++i)
            addPolygon(coords[i]);
    } else {
        Skip("geometry type \"" + type + "\" is not supported");
        return;
    }
    if (!ok)
        Skip("bad coordinates (longitude, latitude within range expected)");
}

// Items of the database keyed by kind and name (unnamed items are never matched).
std::string Key(const qv::TgdbData& d) { return static_cast<char>(d.ItemKind) + d.Name; }

}  // namespace

json ParseGeoJSONText(std::string_view Text)
{
    const json::parser_callback_t limit = [](int depth, json::parse_event_t event, json&) {
        if (depth >= GeoJSONMaxDepth &&
            (event == json::parse_event_t::object_start || event == json::parse_event_t::array_start))
            throw TooDeep{};
        return true;
    };
    try {
        return json::parse(Text.begin(), Text.end(), limit);
    } catch (const TooDeep&) {
        throw std::runtime_error("nested deeper than " + std::to_string(GeoJSONMaxDepth) +
                                 " levels, which no GeoJSON needs");
    } catch (const json::exception& e) {
        throw std::runtime_error(std::string("not valid JSON: ") + e.what());
    }
}

TGeoJSONDocument::TGeoJSONDocument(std::string_view Text) : FDoc(std::make_unique<json>(ParseGeoJSONText(Text)))
{
    if (TextMember(*FDoc, "type").empty())
        throw std::runtime_error("not GeoJSON (no \"type\")");
    if (TextMember(*FDoc, "type") == "FeatureCollection") {
        const json* features = Member(*FDoc, "features");
        if (!features || !features->is_array())
            throw std::runtime_error("a FeatureCollection without a \"features\" list");
    }
}

TGeoJSONDocument::~TGeoJSONDocument() = default;

TGeoJSONImportReport TGeoJSONDocument::ImportInto(qv::TGeoDB& DB, const TGeoJSONImportOptions& Options) const
{
    TGeoJSONImportReport report;
    TImporter im(report);
    const json& doc = *FDoc;
    const std::string type = TextMember(doc, "type");
    if (type == "FeatureCollection") {
        for (const auto& f : *Member(doc, "features"))
            im.Feature(f);
    } else if (type == "Feature") {
        im.Feature(doc);
    } else {
        ++report.Features;
        static const json noProps = json::object();
        im.Geometry(doc, noProps, Member(doc, "bbox"));
    }

    // With Replace, the items of a name and kind that the import brings take the places of the database's
    // items of that name and kind, one for one in table order (keeping their identifiers); what the
    // database has beyond that is removed, so a repeated import leaves the database as the first did.
    const bool lazy = DB.LazyWrite();
    DB.SetLazyWrite(true);
    std::vector<const TItem*> toAdd;
    std::unordered_map<std::string, std::vector<std::int32_t>> existing;
    if (Options.Replace) {
        for (int r = 1; r <= DB.NumEntries(); ++r) {
            const qv::TgdbData d = DB.GetSumdata(r);
            if (!d.Name.empty())
                existing[Key(d)].push_back(d.ItemId);
        }
    }
    std::unordered_map<std::string, std::size_t> used;
    for (const TItem& item : im.Items) {
        const auto it = item.Data.Name.empty() ? existing.end() : existing.find(Key(item.Data));
        std::size_t& n = used[it == existing.end() ? std::string() : it->first];
        if (it == existing.end() || n == it->second.size()) {
            toAdd.push_back(&item);
            continue;
        }
        qv::TgdbData d = item.Data;
        DB.ReplaceData(DB.SearchForItemID(it->second[n++]), d, item.Points);
        ++report.Replaced;
    }
    std::vector<int> surplus;
    for (const auto& [key, ids] : existing)
        if (const auto u = used.find(key); u != used.end())
            for (std::size_t i = u->second; i < ids.size(); ++i)
                surplus.push_back(DB.SearchForItemID(ids[i]));
    if (!surplus.empty()) {
        DB.DeleteData(surplus);
        report.Removed = static_cast<long>(surplus.size());
    }

    DB.BeginUpdate();
    for (const TItem* item : toAdd) {
        qv::TgdbData d = item->Data;
        DB.AddData(d, item->Points);
        ++report.Added;
    }
    DB.EndUpdate();
    DB.SetLazyWrite(lazy);
    return report;
}

TGeoJSONImportReport ImportGeoJSON(std::string_view Text, qv::TGeoDB& DB, const TGeoJSONImportOptions& Options)
{
    return TGeoJSONDocument(Text).ImportInto(DB, Options);
}

}  // namespace geotool
