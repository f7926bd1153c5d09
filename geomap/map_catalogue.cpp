// TMapCatalogue: registration of calibration files and the choice of a map by place and resolution.
#include <qvgeo/geomap/map_catalogue.h>

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/support/text.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <utility>

namespace qv {

std::int32_t TMapCatalogue::Register(const std::string& MapFName, std::string* Reason)
{
    const auto fail = [Reason](std::string Text) {
        if (Reason)
            *Reason = std::move(Text);
        return 0;
    };
    TCalibData cal;
    TCalibModel model = cmUndefined;
    try {
        // Told apart from a file without a calibration: the file variant of the reader says false for both.
        if (!std::ifstream(MapFName))
            return fail("cannot be opened");
        if (!ParseCalibData(MapFName, "", cal, model))
            return fail("holds no calibration");
    } catch (const std::exception& e) {
        return fail(e.what());
    }
    std::int32_t slot = Find(MapFName);
    if (slot == 0) {
        if (FCount >= MaxAtlasMaps)
            return fail("the atlas holds " + std::to_string(MaxAtlasMaps) + " maps already");
        slot = ++FCount;
    }
    TMapDefinition& d = FMaps[slot - 1];
    d.MapFName = LowerCase(MapFName);
    d.Caption = cal.Caption;
    d.Resolution = cal.Resolution;
    d.Corners = cal.Corners;
    FOpenNames[slot - 1] = MapFName;
    return slot;
}

bool TMapCatalogue::Unregister(std::int32_t Index)
{
    if (Index < 1 || Index > FCount)
        return false;
    for (std::int32_t i = Index; i < FCount; ++i) {
        FMaps[i - 1] = FMaps[i];
        FOpenNames[i - 1] = FOpenNames[i];
    }
    --FCount;
    return true;
}

std::vector<TAtlasFileProblem> TMapCatalogue::RegisterFolder(const std::string& Folder,
                                                             const std::function<bool(std::int32_t, std::int32_t)>& Progress,
                                                             const std::function<void(std::int32_t)>& Registered)
{
    namespace fs = std::filesystem;
    std::vector<TAtlasFileProblem> problems;
    std::vector<fs::path> files;
    std::error_code ec;
    fs::directory_iterator it(Folder, ec);
    if (ec) {
        problems.push_back({Folder, "cannot list the folder: " + ec.message()});
        return problems;
    }
    for (const fs::directory_entry& e : it) {
        std::error_code fe;
        if (e.is_regular_file(fe) && LowerCase(e.path().extension().string()) == ".xml")
            files.push_back(e.path());
    }
    std::sort(files.begin(), files.end(), [](const fs::path& A, const fs::path& B) {
        return LowerCase(A.filename().string()) < LowerCase(B.filename().string());
    });
    const auto total = static_cast<std::int32_t>(files.size());
    for (std::int32_t i = 0; i < total; ++i) {
        if (Progress && !Progress(i, total))
            return problems;
        const std::string name = files[std::size_t(i)].string();
        std::string reason;
        if (const std::int32_t slot = Register(name, &reason); slot != 0) {
            if (Registered)
                Registered(slot);
        } else {
            problems.push_back({name, reason});
        }
    }
    if (Progress)
        Progress(total, total);
    return problems;
}

const TMapDefinition& TMapCatalogue::Definition(std::int32_t Index) const
{
    static const TMapDefinition empty;
    return Index >= 1 && Index <= MaxAtlasMaps ? FMaps[Index - 1] : empty;
}

std::string TMapCatalogue::FileName(std::int32_t Index) const
{
    return Index >= 1 && Index <= MaxAtlasMaps ? FOpenNames[Index - 1] : std::string();
}

std::string TMapCatalogue::ListLine(std::int32_t Index) const
{
    if (Index < 1 || Index > FCount)
        return {};
    const TMapDefinition& d = FMaps[Index - 1];
    return d.Caption.empty() ? d.MapFName : d.Caption;
}

std::int32_t TMapCatalogue::Find(const std::string& MapFName) const
{
    const std::string key = LowerCase(MapFName);
    for (std::int32_t i = 1; i <= FCount; ++i)
        if (FMaps[i - 1].MapFName == key)
            return i;
    return 0;
}

bool TMapCatalogue::HoldsCalibration(std::int32_t Index) const
{
    if (Index < 1 || Index > FCount)
        return false;
    TCalibData cal;
    TCalibModel model = cmUndefined;
    return ParseCalibData(FOpenNames[Index - 1], "", cal, model);
}

std::int32_t TMapCatalogue::ChooseFiner(double Lat, double Long, double CurrentResolution, double MinResDiff) const
{
    const double minStep = MinResDiff / 100.0;
    double best = 0.0;
    std::int32_t chosen = 0;
    for (std::int32_t i = 1; i <= FCount; ++i) {
        const TMapDefinition& d = FMaps[i - 1];
        // Strict comparisons throughout: the lowest number wins among equal resolutions. The relative step
        // is formed as written: a current resolution of 0 gives -inf or NaN, which never qualifies.
        if (PositionInMap(Lat, Long, d.Corners) && (CurrentResolution - d.Resolution) / CurrentResolution > minStep &&
            d.Resolution > best) {
            best = d.Resolution;
            chosen = i;
        }
    }
    return chosen;
}

std::int32_t TMapCatalogue::ChooseCoarser(double Lat, double Long, double CurrentResolution) const
{
    // The search starts from 1e10: maps of that resolution or coarser are never taken.
    double best = 1e10;
    std::int32_t chosen = 0;
    for (std::int32_t i = 1; i <= FCount; ++i) {
        const TMapDefinition& d = FMaps[i - 1];
        if (PositionInMap(Lat, Long, d.Corners) && d.Resolution > CurrentResolution && d.Resolution < best) {
            best = d.Resolution;
            chosen = i;
        }
    }
    return chosen;
}

std::int32_t TMapCatalogue::ChooseBest(double Lat, double Long, double Resolution) const
{
    // The coarsest map at most Resolution (a map of unknown resolution, 0, never qualifies); failing that,
    // the zoom-out choice from Resolution.
    std::int32_t chosen = 0;
    double best = 0.0;
    for (std::int32_t i = 1; i <= FCount; ++i) {
        const TMapDefinition& d = FMaps[i - 1];
        if (PositionInMap(Lat, Long, d.Corners) && d.Resolution <= Resolution && d.Resolution > best) {
            best = d.Resolution;
            chosen = i;
        }
    }
    return chosen != 0 ? chosen : ChooseCoarser(Lat, Long, Resolution);
}

}  // namespace qv
