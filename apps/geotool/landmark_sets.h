// Landmark sets as geotool's landmark commands read and write them: one set of a landmark file, and
// what the landmark file cannot keep of a landmark.
#pragma once

#include <qvgeo/geomap/landmark_store.h>

#include <string>

namespace geotool {

// The set ID (the first when ID is empty) of the landmark file FILE; std::runtime_error when the file
// holds no such set or cannot be opened.
qv::TLandMarkStore ReadLandMarkSet(const std::string& file, const std::string& id);

// What the landmark file will not keep of a landmark, for a warning ("; "-separated); empty when nothing.
std::string LandMarkFileLoss(const qv::TLandMark& lm);

}  // namespace geotool
