// GeoJSON into a geographic database: what `geotool db import` does, callable on a text in memory.
#pragma once

#include <qvgeo/geodb/geodb.h>

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace geotool {

inline constexpr int GeoJSONMaxDepth = 64;

// Parses JSON nested at most GeoJSONMaxDepth levels; throws std::runtime_error otherwise.
nlohmann::json ParseGeoJSONText(std::string_view Text);

struct TGeoJSONImportOptions {
    bool Replace = false;
};

struct TGeoJSONWarning {
    long Feature;
    std::string Text;
};

struct TGeoJSONImportReport {
    long Features = 0;
    long Added = 0;
    long Replaced = 0;
    long Removed = 0;
    long Skipped = 0;
    std::vector<TGeoJSONWarning> Warnings;
};

class TGeoJSONDocument {
public:
    explicit TGeoJSONDocument(std::string_view Text);
    ~TGeoJSONDocument();
    TGeoJSONDocument(const TGeoJSONDocument&) = delete;
    TGeoJSONDocument& operator=(const TGeoJSONDocument&) = delete;

    TGeoJSONImportReport ImportInto(qv::TGeoDB& DB, const TGeoJSONImportOptions& Options) const;

private:
    std::unique_ptr<nlohmann::json> FDoc;
};

TGeoJSONImportReport ImportGeoJSON(std::string_view Text, qv::TGeoDB& DB, const TGeoJSONImportOptions& Options);

}  // namespace geotool
