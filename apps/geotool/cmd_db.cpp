// geotool db ...: create, inspect, fill (GeoJSON), query, edit, export, compact and repair a geographic
// database.
#include "command.h"
#include "geojson_import.h"
#include "line_io.h"

#include <qvgeo/geodb/geodb.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>
#include <unistd.h>

namespace {

using nlohmann::json;

constexpr const char* DatePicture = "yyyy-mm-ddTHH:MM:SS";

// Shortest text that reads back as the same float: the files keep single precision, so printing the
// widened double would show digits the database never had.
std::string FloatText(float v)
{
    char buf[32];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
    return ec == std::errc() ? std::string(buf, end) : std::string("nan");
}

std::string JsonString(const std::string& s)
{
    // Names are bytes; text that is not UTF-8 is shown with replacement characters rather than refused.
    return json(s).dump(-1, ' ', false, json::error_handler_t::replace);
}

// The first file of the set (or the directory it goes into) that this process may not open as needed,
// with the system's reason; empty when nothing is found.
std::string AccessProblem(const std::string& base, bool write)
{
    const std::string b = qv::StripExtension(base);
    for (const char* ext : {".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4", ".xelgi0", ".xelgds", ".xelgdd"}) {
        const std::string file = b + ext;
        if (::access(file.c_str(), F_OK) == 0) {
            if (::access(file.c_str(), write ? R_OK | W_OK : R_OK) != 0)
                return geotool::FileError(file);
            continue;
        }
        if (errno != ENOENT)
            return geotool::FileError(file);
        std::string dir = std::filesystem::path(file).parent_path().string();
        if (dir.empty())
            dir = ".";
        if (::access(dir.c_str(), W_OK | X_OK) != 0)
            return geotool::FileError(file, "cannot create");
    }
    return {};
}

// Opens the set named base; a failure is reported with the file and the system's reason where they can be
// found out.
void OpenSet(qv::TGeoDB& db, const std::string& base, bool write)
{
    try {
        db.SetGDBName(base);
    } catch (const std::exception& e) {
        const std::string why = AccessProblem(base, write);
        throw std::runtime_error(why.empty() ? std::string(e.what()) : std::string(e.what()) + " (" + why + ")");
    }
}

// Opens an existing set; read-only commands must not create a database where there is none.
void OpenExisting(qv::TGeoDB& db, const std::string& base, bool warnIfDamaged = true)
{
    const std::string b = qv::StripExtension(base);
    if (!std::filesystem::exists(b + ".xelgds") && !std::filesystem::exists(b + ".xelgdd"))
        throw std::runtime_error("no database at \"" + b + "\" (geotool db create makes one)");
    OpenSet(db, base, false);
    if (warnIfDamaged && db.Damaged())
        std::fprintf(stderr, "geotool db: warning: the database is damaged (geotool db info shows how; "
                             "geotool db repair mends it)\n");
}

std::string OneBase(geotool::Args& args)
{
    const auto pos = args.Positional();
    if (pos.size() != 1)
        throw geotool::UsageError{"expected one argument: the database base name"};
    return pos[0];
}

int ParseId(const std::string& text)
{
    long long id = 0;
    if (!geotool::ParseInt(text, id) || id < std::numeric_limits<std::int32_t>::min() ||
        id > std::numeric_limits<std::int32_t>::max())
        throw geotool::UsageError{"not an item identifier: \"" + text + "\""};
    return static_cast<int>(id);
}

int FindItem(const qv::TGeoDB& db, int id)
{
    const int recNo = db.SearchForItemID(id);
    if (recNo == 0)
        throw std::runtime_error("no item with identifier " + std::to_string(id));
    return recNo;
}

// ---- create, info ------------------------------------------------------------------------------------

int RunCreate(geotool::Args& args)
{
    bool haveDescr = false, haveRev = false;
    const std::string descr = args.Option("--description", "", &haveDescr);
    const double rev = args.NumberOption("--revision", std::nan(""));
    haveRev = !std::isnan(rev);
    const std::string base = OneBase(args);
    const std::string b = qv::StripExtension(base);
    for (const char* ext : {".xelgds", ".xelgdd", ".xelgi0"})
        if (std::filesystem::exists(b + ext))
            throw std::runtime_error("\"" + b + ext + "\" exists already; not overwriting a database");
    qv::TGeoDB db("geotool");
    OpenSet(db, base, true);
    if (haveDescr)
        db.SetDescription(descr);
    if (haveRev) {
        if (rev != std::trunc(rev) || std::fabs(rev) > 2147483647.0)
            throw geotool::UsageError{"--revision needs a 32-bit integer"};
        db.SetRevision(static_cast<std::int32_t>(rev));
    }
    std::printf("created %s (7 files)\n", b.c_str());
    return 0;
}

int RunInfo(geotool::Args& args)
{
    const std::string base = OneBase(args);
    qv::TGeoDB db("geotool");
    OpenExisting(db, base, false);
    std::printf("database\t%s\n", qv::StripExtension(base).c_str());
    std::printf("version\t%d\n", db.GetDBVersion());
    std::printf("description\t%s\n", db.GetDescription().c_str());
    std::printf("revision\t%d\n", db.GetRevision());
    std::printf("items\t%d\n", db.NumEntries());
    std::printf("highest id\t%d\n", db.HighestID());
    std::vector<int> perKind(qv::NumGdbItems, 0);
    float latLo = 0, latHi = 0, lonLo = 0, lonHi = 0;
    for (int r = 1; r <= db.NumEntries(); ++r) {
        const qv::TgdbData d = db.GetSumdata(r);
        ++perKind[std::min<std::size_t>(d.ItemKind, qv::gitUndefined)];
        if (r == 1) {
            latLo = d.LatLow, latHi = d.LatHigh, lonLo = d.LongLow, lonHi = d.LongHigh;
        } else {
            latLo = std::min(latLo, d.LatLow), latHi = std::max(latHi, d.LatHigh);
            lonLo = std::min(lonLo, d.LongLow), lonHi = std::max(lonHi, d.LongHigh);
        }
    }
    for (int k = 0; k < qv::NumGdbItems; ++k)
        if (perKind[static_cast<std::size_t>(k)] > 0)
            std::printf("  %s\t%d\n", std::string(qv::GDB_ITEMNAMES[static_cast<std::size_t>(k)]).c_str(),
                        perKind[static_cast<std::size_t>(k)]);
    if (db.NumEntries() > 0)
        std::printf("extent\t%s .. %s, %s .. %s\n", qv::GeoLatitude(latLo, qv::dfDecimal, 4).c_str(),
                    qv::GeoLatitude(latHi, qv::dfDecimal, 4).c_str(),
                    qv::GeoLongitude(lonLo, qv::dfDecimal, 4).c_str(),
                    qv::GeoLongitude(lonHi, qv::dfDecimal, 4).c_str());
    std::printf("garbage bytes\t%lld\n", static_cast<long long>(db.GarbageBytes()));
    if (db.Damaged()) {
        std::printf("damaged\tyes\n");
        for (const auto& line : db.DamageReport())
            std::printf("  %s\n", line.c_str());
    } else {
        std::printf("damaged\tno\n");
    }
    return 0;
}

// ---- import ---------------------------------------------------------------------------------------

int RunImport(geotool::Args& args)
{
    geotool::TGeoJSONImportOptions options;
    options.Replace = args.Flag("--replace");
    const auto pos = args.Positional();
    if (pos.size() != 2)
        throw geotool::UsageError{"expected the database base name and a GeoJSON file"};
    const std::string name = pos[1] == "-" ? std::string("standard input") : "\"" + pos[1] + "\"";
    std::unique_ptr<geotool::TGeoJSONDocument> doc;
    try {
        doc = std::make_unique<geotool::TGeoJSONDocument>(geotool::ReadWholeFile(pos[1]));
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(std::string(e.what()).rfind("cannot ", 0) == 0 ? e.what() : name + ": " + e.what());
    }
    qv::TGeoDB db("geotool");
    OpenSet(db, pos[0], true);
    if (db.Damaged())
        throw std::runtime_error("the database is damaged; geotool db repair mends it first");
    // On a terminal the percentage is redrawn in place; in a log it is a line every quarter.
    const bool tty = ::isatty(::fileno(stderr)) != 0;
    const int step = tty ? 1 : 25;
    int lastShown = -1;
    db.OnPercentDone = [&](qv::TGeoDB&, double pct) {
        const int p = static_cast<int>(pct) / step * step;
        if (p != lastShown) {
            std::fprintf(stderr, tty ? "\rgeotool db import: writing %3d%%" : "geotool db import: writing %d%%\n", p);
            lastShown = p;
        }
    };
    const geotool::TGeoJSONImportReport r = doc->ImportInto(db, options);
    if (tty && lastShown >= 0)
        std::fprintf(stderr, "\n");
    for (const auto& w : r.Warnings)
        std::fprintf(stderr, "geotool db import: feature %ld: %s\n", w.Feature, w.Text.c_str());
    std::fprintf(stderr, "geotool db import: %ld features, %ld items added, %ld replaced, %ld removed, %ld skipped; "
                         "%d items in the database\n",
                 r.Features, r.Added, r.Replaced, r.Removed, r.Skipped, db.NumEntries());
    return r.Skipped > 0 ? 1 : 0;
}

// ---- query, get, delete --------------------------------------------------------------------------------

int RunQuery(geotool::Args& args)
{
    std::vector<std::string> words = args.Words();
    const auto at = std::find(words.begin(), words.end(), "--bbox");
    if (at == words.end() || words.end() - at < 5)
        throw geotool::UsageError{"--bbox LATMIN LONMIN LATMAX LONMAX is required"};
    double box[4];
    for (int i = 0; i < 4; ++i)
        if (!geotool::ParseDouble(*(at + 1 + i), box[i]))
            throw geotool::UsageError{"--bbox needs four numbers, not \"" + *(at + 1 + i) + "\""};
    words.erase(at, at + 5);
    geotool::Args rest(words);
    const std::string kindName = rest.Option("--kind", "");
    qv::TgdbItem kind = qv::gitUndefined;
    if (!kindName.empty() && !qv::GdbItemFromName(kindName, kind))
        throw geotool::UsageError{"unknown kind \"" + kindName + "\""};
    const std::string base = OneBase(rest);
    qv::TGeoDB db("geotool");
    OpenExisting(db, base);
    geotool::RecordWriter out(stdout);
    for (int r : db.SearchData(box[0], box[1], box[2], box[3], kind)) {
        const qv::TgdbData d = db.GetSumdata(r);
        out.Int(d.ItemId).Char('\t').Text(qv::GdbItemName(d.ItemKind)).Char('\t');
        out.Text(FloatText(d.LatLow)).Char('\t').Text(FloatText(d.LatHigh)).Char('\t');
        out.Text(FloatText(d.LongLow)).Char('\t').Text(FloatText(d.LongHigh)).Char('\t');
        out.Text(d.Name).EndLine();
    }
    return 0;
}

int RunGet(geotool::Args& args)
{
    const auto pos = args.Positional();
    if (pos.size() != 2)
        throw geotool::UsageError{"expected the database base name and an item identifier"};
    const int id = ParseId(pos[1]);
    qv::TGeoDB db("geotool");
    OpenExisting(db, pos[0]);
    const int r = FindItem(db, id);
    const qv::TgdbData d = db.GetSumdata(r);
    geotool::RecordWriter out(stdout);
    out.Text("id\t").Int(d.ItemId).EndLine();
    out.Text("record\t").Int(r).EndLine();
    out.Text("kind\t").Text(qv::GdbItemName(d.ItemKind)).EndLine();
    out.Text("name\t").Text(d.Name).EndLine();
    out.Text("altitude\t").Text(FloatText(d.Altitude)).EndLine();
    out.Text("class\t").Int(d.ClassFlag).EndLine();
    out.Text("tag\t").Int(d.Tag).EndLine();
    out.Text("date\t").Text(qv::FormatDateTime(d.Date, DatePicture)).EndLine();
    out.Text("state\t").Int(d.StateFlag).EndLine();
    out.Text("lat\t").Text(FloatText(d.LatLow)).Char('\t').Text(FloatText(d.LatHigh)).EndLine();
    out.Text("long\t").Text(FloatText(d.LongLow)).Char('\t').Text(FloatText(d.LongHigh)).EndLine();
    out.Text("closed\t").Text(d.Closed ? "yes" : "no").EndLine();
    if (d.ItemKind == qv::gitBLOB && d.BlobOffset >= 0) {
        const qv::TMetaInfo m = db.GetMetaInfo(r);
        out.Text("size\t").Int(d.Size()).EndLine();
        out.Text("keywords\t").Text(m.Keywords).EndLine();
        out.Text("caption\t").Text(m.Caption).EndLine();
        out.Text("file\t").Text(m.FilePath).EndLine();
        out.Text("descriptor\t").Text(m.Descriptor).EndLine();
        out.Text("comment\t").Text(m.Comment).EndLine();
        return 0;
    }
    const qv::TgdbPolygon pts = db.RetrievePolygon(r);
    out.Text("points\t").Int(static_cast<long long>(pts.size())).EndLine();
    for (const auto& p : pts)
        out.Text(FloatText(p.Latit)).Char('\t').Text(FloatText(p.Longit)).EndLine();
    return 0;
}

int RunDelete(geotool::Args& args)
{
    const auto pos = args.Positional();
    if (pos.size() < 2)
        throw geotool::UsageError{"expected the database base name and one or more item identifiers"};
    std::vector<int> ids;
    for (std::size_t i = 1; i < pos.size(); ++i)
        ids.push_back(ParseId(pos[i]));
    qv::TGeoDB db("geotool");
    OpenExisting(db, pos[0]);
    std::vector<int> recNos;
    for (int id : ids)
        recNos.push_back(FindItem(db, id));
    std::vector<std::string> names;
    for (int r : recNos)
        names.push_back(db.GetSumdata(r).Name);
    db.DeleteData(recNos);
    for (std::size_t i = 0; i < ids.size(); ++i)
        std::printf("deleted item %d (%s)\n", ids[i], names[i].c_str());
    std::printf("%d items left\n", db.NumEntries());
    return 0;
}

// ---- export, compact, repair ---------------------------------------------------------------------------

std::string Position(const qv::TSCoords& p) { return "[" + FloatText(p.Longit) + "," + FloatText(p.Latit) + "]"; }

int RunExport(geotool::Args& args)
{
    const std::string base = OneBase(args);
    qv::TGeoDB db("geotool");
    OpenExisting(db, base);
    geotool::RecordWriter out(stdout);
    out.Text("{\"type\":\"FeatureCollection\",\"features\":[");
    bool first = true;
    long blobs = 0;
    for (int r = 1; r <= db.NumEntries(); ++r) {
        const qv::TgdbData d = db.GetSumdata(r);
        if (d.ItemKind == qv::gitBLOB) {
            ++blobs;
            continue;
        }
        const qv::TgdbPolygon pts = db.RetrievePolygon(r);
        if (!first)
            out.Char(',');
        out.EndLine();
        first = false;
        out.Text("{\"type\":\"Feature\",\"properties\":{\"id\":").Int(d.ItemId);
        out.Text(",\"kind\":").Text(JsonString(std::string(qv::GdbItemName(d.ItemKind))));
        out.Text(",\"name\":").Text(JsonString(d.Name));
        out.Text(",\"altitude\":").Text(FloatText(d.Altitude));
        out.Text(",\"class\":").Int(d.ClassFlag).Text(",\"tag\":").Int(d.Tag);
        out.Text(",\"date\":\"").Text(qv::FormatDateTime(d.Date, DatePicture)).Text("\"},");
        if (pts.empty()) {
            out.Text("\"bbox\":[").Text(FloatText(d.LongLow)).Char(',').Text(FloatText(d.LatLow)).Char(',');
            out.Text(FloatText(d.LongHigh)).Char(',').Text(FloatText(d.LatHigh)).Text("],\"geometry\":null}");
            continue;
        }
        std::string coords;
        for (std::size_t i = 0; i < pts.size(); ++i)
            coords += (i ? "," : "") + Position(pts[i]);
        if (pts.size() == 1 && !d.Closed)
            out.Text("\"geometry\":{\"type\":\"Point\",\"coordinates\":").Text(Position(pts[0])).Text("}}");
        else if (d.Closed && pts.size() >= 2)
            out.Text("\"geometry\":{\"type\":\"Polygon\",\"coordinates\":[[").Text(coords).Char(',')
                .Text(Position(pts[0])).Text("]]}}");
        else
            out.Text("\"geometry\":{\"type\":\"LineString\",\"coordinates\":[").Text(coords).Text("]}}");
    }
    out.Text("\n]}\n");
    out.Flush();
    if (blobs > 0)
        std::fprintf(stderr, "geotool db export: %ld BLOB items are not exported\n", blobs);
    return 0;
}

int RunCompact(geotool::Args& args)
{
    const std::string base = OneBase(args);
    qv::TGeoDB db("geotool");
    OpenExisting(db, base);
    const std::int64_t garbage = db.GarbageBytes();
    db.GarbageCollection();
    std::printf("compacted: %lld bytes reclaimed\n", static_cast<long long>(garbage));
    return 0;
}

int RunRepair(geotool::Args& args)
{
    const std::string base = OneBase(args);
    qv::TGeoDB db("geotool");
    OpenExisting(db, base, false);
    if (!db.Damaged()) {
        std::printf("nothing to repair\n");
        return 0;
    }
    for (const auto& line : db.DamageReport())
        std::printf("found: %s\n", line.c_str());
    db.Repair();
    std::printf("repaired: %d items\n", db.NumEntries());
    return 0;
}

const char* const FilesNote =
    "BASE is the database's base path; its seven files are BASE.xelgds (items), BASE.xelgdd (header,\n"
    "points, BLOBs) and BASE.xelgi0 .. BASE.xelgi4 (indexes). An extension on BASE is ignored.";

const geotool::Registrar regCreate({"db create", "create an empty geographic database",
                                    std::string("usage: geotool db create BASE [--description TEXT] [--revision N]\n\n"
                                                "Creates the seven files of a new database; refuses to overwrite one.\n") +
                                        FilesNote,
                                    RunCreate});
const geotool::Registrar regInfo({"db info", "header, item counts, extent and health of a database",
                                  std::string("usage: geotool db info BASE\n\n"
                                              "Tab-separated lines: version, description, revision, items (and per\n"
                                              "kind), highest identifier, extent, garbage bytes, damage found.\n") +
                                      FilesNote,
                                  RunInfo});
const geotool::Registrar regImport(
    {"db import", "add the features of a GeoJSON file",
     "usage: geotool db import BASE FILE [--replace]\n\n"
     "Adds every feature of a GeoJSON FeatureCollection (or one Feature or geometry; FILE \"-\" reads\n"
     "standard input). The property \"kind\" (Border, Town, City, Lake, River, Road, Route; any case)\n"
     "chooses the item kind; otherwise points become towns, line strings roads and polygons borders.\n"
     "\"name\" becomes the name (cut to 59 bytes), \"altitude\", \"class\", \"tag\" and \"date\"\n"
     "(yyyy-mm-ddTHH:MM:SS) are taken when present. Multi-geometries give one item per part; polygon\n"
     "holes are dropped. A feature with a null geometry and a \"bbox\" becomes an item without points.\n"
     "The database is created when it does not exist. Identifiers are issued anew (\"id\" is not read).\n"
     "JSON nested deeper than 64 levels is refused whole.\n\n"
     "--replace: the file's items of a name and kind take the places of the database's items of that\n"
     "name and kind, one for one in table order and keeping their identifiers; further database items of\n"
     "that name and kind are removed, further file items added. Importing a file again with --replace\n"
     "thus leaves the database as the first import did. Unnamed items are always added.\n\n"
     "Progress and skipped features go to standard error; the exit code is 1 when a feature was skipped.",
     RunImport});
const geotool::Registrar regQuery(
    {"db query", "items whose bounding box meets a rectangle",
     "usage: geotool db query BASE --bbox LATMIN LONMIN LATMAX LONMAX [--kind KIND]\n\n"
     "One line per item whose bounding box meets the rectangle (degrees, edges included), in table order:\n"
     "identifier, kind, lat low, lat high, long low, long high, name, separated by tabs.",
     RunQuery});
const geotool::Registrar regGet({"db get", "one item: its record and its points",
                                 "usage: geotool db get BASE ID\n\n"
                                 "The item's fields as \"field<TAB>value\" lines, then its points as\n"
                                 "\"lat<TAB>long\" lines (degrees); for a BLOB its size and meta data.",
                                 RunGet});
const geotool::Registrar regDelete({"db delete", "delete items by identifier",
                                    "usage: geotool db delete BASE ID [ID...]\n\n"
                                    "Removes the items (all or none: an unknown identifier stops the command before\n"
                                    "anything is deleted); their points stay in BASE.xelgdd until geotool db compact.",
                                    RunDelete});
const geotool::Registrar regExport({"db export", "the database as GeoJSON on standard output",
                                    "usage: geotool db export BASE\n\n"
                                    "Writes a FeatureCollection that geotool db import reads back: one feature per\n"
                                    "item (BLOBs excepted) with id, kind, name, altitude, class, tag and date.",
                                    RunExport});
const geotool::Registrar regCompact({"db compact", "reclaim the space of deleted and replaced items",
                                     "usage: geotool db compact BASE\n\n"
                                     "Rewrites BASE.xelgdd with only the data that items point to.",
                                     RunCompact});
const geotool::Registrar regRepair({"db repair", "mend a damaged database",
                                    "usage: geotool db repair BASE\n\n"
                                    "Lists what is wrong, then rebuilds the indexes, drops data references that\n"
                                    "point outside BASE.xelgdd and rewrites the set. A damaged database is never\n"
                                    "written by any other command.",
                                    RunRepair});

}  // namespace
