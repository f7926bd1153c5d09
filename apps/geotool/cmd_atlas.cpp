// geotool atlas choose: which of a set of calibrated maps an atlas shows for a place and a resolution,
// without a window (the map catalogue the atlas control uses).
#include "command.h"
#include "line_io.h"

#include <qvgeo/geomap/map_catalogue.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using geotool::UsageError;

double Number(const std::string& text, const char* what)
{
    double v = 0;
    if (!geotool::ParseDouble(text, v) || !std::isfinite(v))
        throw UsageError{std::string(what) + " wants a number, not \"" + text + "\""};
    return v;
}

int RunChoose(geotool::Args& args)
{
    const bool finer = args.Flag("--finer"), coarser = args.Flag("--coarser");
    bool stepGiven = false;
    const std::string stepText = args.Option("--min-step", "10", &stepGiven);
    const std::vector<std::string> pos = args.Positional();
    if (finer && coarser)
        throw UsageError{"--finer and --coarser exclude each other"};
    if (stepGiven && !finer)
        throw UsageError{"--min-step belongs to --finer"};
    if (pos.size() < 4)
        throw UsageError{"LAT LON RES and at least one calibration file or folder are needed"};
    const double lat = Number(pos[0], "LAT"), lon = Number(pos[1], "LON"), res = Number(pos[2], "RES");
    const double step = Number(stepText, "--min-step");
    if (lat < -90 || lat > 90 || lon < -180 || lon > 180)
        throw UsageError{"LAT wants -90..90 and LON -180..180 degrees"};

    // What cannot be registered is told on stderr; the choice is made among the rest.
    qv::TMapCatalogue maps;
    for (std::size_t i = 3; i < pos.size(); ++i) {
        std::error_code ec;
        if (std::filesystem::is_directory(pos[i], ec)) {
            for (const qv::TAtlasFileProblem& p : maps.RegisterFolder(pos[i]))
                std::fprintf(stderr, "geotool: %s: %s\n", p.File.c_str(), p.Reason.c_str());
            continue;
        }
        std::string reason;
        if (maps.Register(pos[i], &reason) == 0)
            std::fprintf(stderr, "geotool: %s: %s\n", pos[i].c_str(), reason.c_str());
    }
    const std::int32_t chosen = finer     ? maps.ChooseFiner(lat, lon, res, step)
                                : coarser ? maps.ChooseCoarser(lat, lon, res)
                                          : maps.ChooseBest(lat, lon, res);
    if (chosen == 0) {
        std::fprintf(stderr, "geotool: none of the %d maps fits\n", static_cast<int>(maps.Count()));
        return 1;
    }
    const qv::TMapDefinition d = maps.GetMapDef(chosen);
    geotool::RecordWriter out(stdout);
    out.Int(chosen).Char('\t').Fixed(d.Resolution, 3).Char('\t').Text(d.Caption).Char('\t').Text(maps.FileName(chosen));
    out.EndLine();
    return 0;
}

const geotool::Registrar regChoose(
    {"atlas choose", "choose among calibrated maps the one an atlas shows for a place and resolution",
     "usage: geotool atlas choose LAT LON RES FILE|FOLDER... [--finer [--min-step PCT] | --coarser]\n\n"
     "Registers the calibration files named (a folder: its *.xml files in name order; at most 200 maps, a\n"
     "file named twice, in any letter case, counts once) and prints the map the atlas takes at LAT LON\n"
     "(degrees) for a resolution RES (metres per pixel):\n"
     "  default    the coarsest map whose resolution is at most RES, else the finest coarser one\n"
     "  --finer    a zoom in from RES: the coarsest map finer than RES by more than PCT percent (10)\n"
     "  --coarser  a zoom out from RES: the finest map coarser than RES\n"
     "Only maps whose corners enclose the place count; on ties the file registered first wins. Output:\n"
     "map number, resolution, caption and file, separated by tabs. Files that cannot be registered are\n"
     "reported on stderr. Exit code 1 when no map fits.",
     RunChoose});

}  // namespace
