// The GeoJSON importer of geotool: any text is either refused as a whole (bad JSON, nesting deeper than
// GeoJSON needs) or imported feature by feature, skipping what it cannot use, into a fresh database.
#include <qvgeo/fuzz/harness.h>

#include "geojson_import.h"

#include <qvgeo/geodb/geodb.h>
#include <qvgeo/support/errors.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace qvfuzz {

void GeoJSON(TBytes Data)
{
    const std::string_view text(reinterpret_cast<const char*>(Data.data()), Data.size());
    std::unique_ptr<geotool::TGeoJSONDocument> doc;
    try {
        doc = std::make_unique<geotool::TGeoJSONDocument>(text);
    } catch (const std::runtime_error&) {
        return;  // refused as a whole, with a message: the documented outcome for bad JSON
    }
    const std::string base = (ScratchDir() / "geojson").string();
    for (const char* ext : {".xelgds", ".xelgdd", ".xelgi0", ".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4"})
        std::remove((base + ext).c_str());
    qv::TGeoDB db("Fuzz");
    db.SetGDBName(base);
    // Every change the report counts is one item more or less: added items are new, replaced ones keep
    // their place, removed ones go.
    for (const bool replace : {false, true, true}) {
        const int before = db.NumEntries();
        const geotool::TGeoJSONImportReport r = doc->ImportInto(db, {replace});
        if (db.NumEntries() != before + r.Added - r.Removed || r.Added < 0 || r.Removed < 0 || r.Skipped < 0) {
            std::fprintf(stderr, "qvgeo fuzz: import report disagrees with the database\n");
            std::abort();
        }
    }
    db.SetGDBName("");
}

}  // namespace qvfuzz
