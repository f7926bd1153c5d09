// geotool landmarks import / export: landmark files to and from GPX, KML, GeoPackage and GeoJSON through
// the library's OGR layer (only in builds with GDAL).
#if QVGEO_WITH_GDAL  // defined by the widget library when it has the GDAL layer

#include "command.h"
#include "landmark_sets.h"
#include "line_io.h"

#include <qvgeo/gdalio/landmark_exchange.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/symbol_repository.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const char* ImportName = "landmarks import";
constexpr const char* ExportName = "landmarks export";

void Warn(const char* command, const std::string& text)
{
    std::fprintf(stderr, "geotool %s: %s\n", command, text.c_str());
}

// The format named by --format (taken from Args first, before the positional words are read), else by
// FILE's extension; for import, none (OGR tries the four).
struct FormatChoice {
    bool Given = false;
    std::string Name;
};

FormatChoice TakeFormatOption(geotool::Args& args)
{
    FormatChoice c;
    c.Name = args.Option("--format", "", &c.Given);
    return c;
}

std::optional<qv::TLandMarkFileFormat> FormatOf(const FormatChoice& choice, const std::string& file)
{
    qv::TLandMarkFileFormat format{};
    if (choice.Given) {
        if (!qv::LandMarkFormatFromName(choice.Name, format))
            throw geotool::UsageError{"unknown format \"" + choice.Name + "\" (gpx, kml, gpkg or geojson)"};
        return format;
    }
    if (qv::LandMarkFormatFromFileName(file, format))
        return format;
    return std::nullopt;
}

// --symbols CATALOGUE [--symbols-id ID]: the named symbols, or null without the option.
std::unique_ptr<qv::TSymbolRepository> SymbolsOption(geotool::Args& args)
{
    bool given = false;
    const std::string file = args.Option("--symbols", "", &given);
    const std::string id = args.Option("--symbols-id", "");
    if (!given)
        return nullptr;
    std::ifstream in = geotool::OpenInput(file);
    auto repo = std::make_unique<qv::TSymbolRepository>();
    if (!repo->ReadFromOpenXMLFile(in, id))
        throw std::runtime_error(id.empty() ? "no symbol catalogue in \"" + file + "\""
                                            : "no symbol catalogue with id \"" + id + "\" in \"" + file + "\"");
    return repo;
}

int RunImport(geotool::Args& args)
{
    const std::string id = args.Option("--id", "");
    qv::TLandMarkImportOptions options;
    options.Layer = args.Option("--layer", "");
    bool toFile = false;
    const std::string out = args.Option("--out", "", &toFile);
    const auto symbols = SymbolsOption(args);
    options.Symbols = symbols.get();
    const FormatChoice format = TakeFormatOption(args);
    const auto pos = args.Positional();
    if (pos.size() != 1)
        throw geotool::UsageError{"expected one GPX, KML, GeoPackage or GeoJSON file"};
    options.Format = FormatOf(format, pos[0]);

    qv::TLandMarkImportReport report;
    const std::vector<qv::TLandMark> lms = qv::ImportLandMarks(pos[0], options, report);
    for (const auto& m : report.Messages)
        Warn(ImportName, m);
    if (report.MessagesLeftOut > 0)
        Warn(ImportName, std::to_string(report.MessagesLeftOut) + " more message(s) left out");

    qv::TLandMarkStore store;
    std::size_t number = 0;
    for (const qv::TLandMark& lm : lms) {
        ++number;
        const std::string loss = geotool::LandMarkFileLoss(lm);
        if (!loss.empty())
            Warn(ImportName, "landmark " + std::to_string(number) + ": " + loss);
        store.AddLandMark(lm.Latitude, lm.Longitude, lm.Altitude);
        store.SetLandMarkData(store.NumLandMarks(), lm);
    }
    std::string summary = std::to_string(report.Imported) + " landmark(s) from " + std::to_string(report.Features) +
                          " feature(s)";
    if (report.NotPoints)
        summary += ", " + std::to_string(report.NotPoints) + " not points";
    if (report.Invalid)
        summary += ", " + std::to_string(report.Invalid) + " with invalid coordinates";
    if (report.Transformed)
        summary += ", " + std::to_string(report.Transformed) + " transformed to WGS 84";
    Warn(ImportName, summary);

    if (toFile) {
        store.SaveLandmarks(out, id);
    } else {
        store.WriteLandMarksToOpenXMLFile(std::cout, true, id);
        geotool::CheckStandardOutput(std::cout);
    }
    return report.Invalid == 0 && report.BadAttributes == 0 ? 0 : 1;
}

int RunExport(geotool::Args& args)
{
    const std::string id = args.Option("--id", "");
    qv::TLandMarkExportOptions options;
    options.Layer = args.Option("--layer", "");
    const std::string out = args.RequiredOption("--out");
    const auto symbols = SymbolsOption(args);
    options.Symbols = symbols.get();
    const auto format = FormatOf(TakeFormatOption(args), out);
    const auto pos = args.Positional();
    if (pos.size() != 1)
        throw geotool::UsageError{"expected one landmark file"};
    if (!format)
        throw geotool::UsageError{"give --format: the extension of \"" + out + "\" names no format"};

    const qv::TLandMarkStore store = geotool::ReadLandMarkSet(pos[0], id);
    const qv::TLandMarkExportReport report = qv::ExportLandMarks(store.LandMarks(), out, *format, options);
    for (const auto& m : report.Messages)
        Warn(ExportName, m);
    Warn(ExportName, std::to_string(report.Written) + " landmark(s) written to \"" + out + "\"");
    return report.Invalid == 0 ? 0 : 1;
}

const geotool::Registrar regImport(
    {ImportName, "read the points of a GPX, KML, GeoPackage or GeoJSON file as landmarks",
     "usage: geotool landmarks import FILE [--format gpx|kml|gpkg|geojson] [--layer LAYER]\n"
     "                                [--out LMFILE] [--id ID] [--symbols CATALOGUE [--symbols-id ID]]\n\n"
     "Reads the point features of FILE (the format from --format, else from the extension .gpx, .kml,\n"
     ".gpkg, .geojson or .json, else from the content) and writes them as a landmark file with set id ID\n"
     "to LMFILE, or to standard output. Every layer is read, except that a GPX file gives its waypoints\n"
     "only; --layer reads one layer (route_points or track_points of a GPX, for instance). Positions in\n"
     "another coordinate system are transformed to WGS 84.\n\n"
     "Mapping: name -> caption text (cut to 80 bytes, never inside a character, with a warning);\n"
     "elevation (GPX ele, the point's Z) -> altitude (m); time (GPX time, KML TimeStamp, a date-time or\n"
     "days since 1899-12-30) -> time, in UTC; symbol (GPX sym, KML styleUrl, a symbol attribute) -> the\n"
     "entry of that name in CATALOGUE (its appearance, and its category as the class when 0..255), else a\n"
     "kind name (Plus, Square, Triangle, Circle, ArrowFrom, ArrowTo, CrossBox, Spade, Cross), else the\n"
     "default symbol with a warning. The attributes that `landmarks --to-geojson` writes (class, tag,\n"
     "identifier, symbol_*, caption_*; GPX extensions and KML ExtendedData included) set their fields and\n"
     "win over the symbol name; what a feature does not give takes the default landmark's value.\n\n"
     "Reported on standard error: features that are not points (skipped), invalid coordinates (latitude\n"
     "beyond +/-90, longitude beyond +/-360, not a number: skipped), attribute values that cannot be read\n"
     "(the default kept), and what the landmark file cannot keep. Exit code 1 when a feature was skipped\n"
     "for its coordinates or a value could not be read; a file that cannot be read is an error.",
     RunImport});

const geotool::Registrar regExport(
    {ExportName, "write a landmark set as GPX, KML, GeoPackage or GeoJSON",
     "usage: geotool landmarks export LMFILE [--id ID] [--format gpx|kml|gpkg|geojson] --out FILE\n"
     "                                [--layer LAYER] [--symbols CATALOGUE [--symbols-id ID]]\n\n"
     "Writes the landmark set ID (the first set when --id is not given) of the landmark file LMFILE to\n"
     "FILE (replaced when complete), in the format of --format or of FILE's extension: GPX waypoints,\n"
     "KML placemarks, or a GeoPackage or GeoJSON point layer (named LAYER, default \"landmarks\"), all in\n"
     "WGS 84. The caption text becomes the name, the altitude the elevation (GPX ele, the point's Z), the\n"
     "time the GPX time, the KML TimeStamp or a date-time attribute (UTC, to the millisecond; a landmark\n"
     "whose time is 0 has none), the symbol the GPX sym, the KML styleUrl or a symbol attribute (the name\n"
     "of the CATALOGUE entry with the same appearance, else the kind's name). Every other field goes into\n"
     "attributes named as `landmarks --to-geojson` names its properties (GPX extensions, KML ExtendedData),\n"
     "so that `landmarks import` reads the file back to the same landmarks: positions to 15 significant\n"
     "digits in GPX and KML, exactly in GeoPackage and GeoJSON.\n\n"
     "Landmarks without a valid position (latitude beyond +/-90 or not a number) are not written and give\n"
     "exit code 1; a time outside the years 1..9999 is left out, and texts the format cannot carry as they\n"
     "are, with a warning.",
     RunExport});

}  // namespace

#endif
