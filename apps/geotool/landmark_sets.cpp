#include "landmark_sets.h"

#include "line_io.h"

#include <qvgeo/geomap/file_family.h>

#include <cmath>
#include <fstream>
#include <stdexcept>

namespace geotool {

qv::TLandMarkStore ReadLandMarkSet(const std::string& file, const std::string& id)
{
    std::ifstream in = OpenInput(file);
    qv::TLandMarkStore store;
    if (!store.ReadLandMarksFromOpenXMLFile(in, id))
        throw std::runtime_error(id.empty() ? "no landmark set in \"" + file + "\""
                                            : "no landmark set with id \"" + id + "\" in \"" + file + "\"");
    return store;
}

std::string LandMarkFileLoss(const qv::TLandMark& lm)
{
    std::string loss;
    auto note = [&](const std::string& what) { loss += (loss.empty() ? "" : "; ") + what; };
    if (qv::FamilyAttributeText(qv::CutShortString(lm.Identifier, qv::LMIdentifierCapacity)) != lm.Identifier)
        note("identifier stored as \"" +
             qv::FamilyAttributeText(qv::CutShortString(lm.Identifier, qv::LMIdentifierCapacity)) + "\"");
    if (qv::FamilyAttributeText(qv::CutShortString(lm.Caption.Text, qv::LMTextCapacity)) != lm.Caption.Text)
        note("caption_text stored as \"" +
             qv::FamilyAttributeText(qv::CutShortString(lm.Caption.Text, qv::LMTextCapacity)) + "\"");
    if (qv::FamilyAttributeText(lm.Caption.FontName) != lm.Caption.FontName)
        note("caption_font stored as \"" + qv::FamilyAttributeText(lm.Caption.FontName) + "\"");
    if (lm.SymbolProps.Kind == qv::lmPlus || lm.SymbolProps.Kind == qv::lmUserDef)
        note("symbol_kind reads back as cross");
    if (!std::isfinite(lm.Latitude) || !std::isfinite(lm.Longitude) || !std::isfinite(lm.Altitude))
        note("a coordinate is not finite");
    return loss;
}

}  // namespace geotool
