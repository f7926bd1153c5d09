// Fuzz harnesses: one function per reader, each feeding arbitrary bytes to it the way a file would
// reach it. A harness returns normally when the reader accepted the input or refused it with one of
// the library's documented errors (EXELError and its subclasses); anything else escapes or trips a
// sanitizer. The same functions drive the libFuzzer targets (fuzz_main.cpp) and the reproducer test
// (reproducers_test.cpp), so a crash file replays identically in both.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace qvfuzz {

using TBytes = std::span<const std::uint8_t>;

// A directory of this process for the files the harnesses write, removed at exit. Its path is lower
// case, since the calibration reader lower-cases the image name it reads.
const std::filesystem::path& ScratchDir();

// Calibration text through both readers: TMapCalibration (which also fits and converts a few pixels)
// and ParseCalibData.
void Calibration(TBytes Data);
// A fixed calibration that names an image file; the bytes become that file (first byte: which of
// the name variants the header uses), so the reader's header probe runs on them.
void CalibrationImage(TBytes Data);
void Landmarks(TBytes Data);
void Symbols(TBytes Data);
void ImageHeader(TBytes Data);
void TagReader(TBytes Data);
void NumberScanner(TBytes Data);

// The bytes replace file FileNo (0 ".xelgds", 1 ".xelgdd", 2..6 ".xelgi0".."xelgi4") of a valid set
// made by the harness; the set is then opened, queried, repaired, queried again and compacted.
void DatabaseFile(int FileNo, TBytes Data);
// Writes the valid set the database harnesses start from (also the seed of their corpora).
void WriteValidDatabaseSet(const std::string& Base);
void DatabaseXelgds(TBytes Data);
void DatabaseXelgdd(TBytes Data);
void DatabaseXelgi0(TBytes Data);
void DatabaseXelgi1(TBytes Data);
void DatabaseXelgi2(TBytes Data);
void DatabaseXelgi3(TBytes Data);
void DatabaseXelgi4(TBytes Data);
// Several faults at once on a valid set: two files damaged (replaced, patched or cut), one deleted,
// a compaction marker left with or without temporary files. Layout: see harness_database.cpp.
void DatabaseDamage(TBytes Data);

// The graticule calibration (FitGraticule, ScaleGratGrid) over a grid and values decoded from the bytes.
void GraticuleFit(TBytes Data);

// geotool's GeoJSON import (only where nlohmann-json is installed: QVGEO_FUZZ_HAVE_GEOJSON).
void GeoJSON(TBytes Data);

}  // namespace qvfuzz
