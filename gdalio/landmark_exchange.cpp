// Landmarks through OGR. The attribute names are those of geotool's own GeoJSON, so that a file written
// here reads in any program that reads that, and back.
#include <qvgeo/gdalio/landmark_exchange.h>

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/landmark_attributes.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/geomap/symbol_repository.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>

namespace qv {

using namespace lmx;

namespace {

// ------------------------------------------------------------------------------------------------
// Formats and drivers

struct TFormatInfo {
    std::string_view Name;
    std::string_view Title;
    std::array<const char*, 3> Drivers;  // null-terminated, in order of preference
};

const TFormatInfo& InfoOf(TLandMarkFileFormat Format)
{
    static const std::array<TFormatInfo, 4> infos = {{
        {"gpx", "GPX", {"GPX", nullptr, nullptr}},
        {"kml", "KML", {"LIBKML", "KML", nullptr}},
        {"gpkg", "GeoPackage", {"GPKG", nullptr, nullptr}},
        {"geojson", "GeoJSON", {"GeoJSON", nullptr, nullptr}},
    }};
    return infos[static_cast<std::size_t>(Format) < infos.size() ? Format : 0];
}

[[noreturn]] void Fail(std::string_view Function, const std::string& Text)
{
    throw EXELGeoMapError(std::string(Function) + ": " + Text);
}

// ------------------------------------------------------------------------------------------------
// Reading a layer

struct TCoordTransformDeleter {
    void operator()(OGRCoordinateTransformation* T) const { OGRCoordinateTransformation::DestroyCT(T); }
};
using TCoordTransformPtr = std::unique_ptr<OGRCoordinateTransformation, TCoordTransformDeleter>;

const OGRSpatialReference& Wgs84()
{
    static const OGRSpatialReference srs = [] {
        OGRSpatialReference s;
        s.SetWellKnownGeogCS("WGS84");
        s.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);  // x = longitude, y = latitude
        return s;
    }();
    return srs;
}

// Null when the layer is in WGS 84 longitude/latitude already (or says nothing of its system).
TCoordTransformPtr TransformOf(OGRLayer& Layer)
{
    const OGRSpatialReference* srs = Layer.GetSpatialRef();
    if (!srs)
        return nullptr;
    const char* sameOptions[] = {"CRITERION=EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS", nullptr};
    // The layer's data must have longitude first too (x pointing east): WGS 84 with latitude first
    // still needs the swap, which the transformation does.
    const std::vector<int>& axes = srs->GetDataAxisToSRSAxisMapping();
    OGRAxisOrientation first = OAO_Other;
    if (!axes.empty() && axes[0] > 0)
        srs->GetAxis(nullptr, axes[0] - 1, &first);
    if (first == OAO_East && srs->IsSame(&Wgs84(), sameOptions))
        return nullptr;
    TCoordTransformPtr ct(OGRCreateCoordinateTransformation(srs, &Wgs84()));
    if (!ct) {
        char* wkt = nullptr;
        srs->exportToWkt(&wkt);
        const std::string name = srs->GetName() ? srs->GetName() : (wkt ? wkt : "?");
        CPLFree(wkt);
        Fail("ImportLandMarks", "layer " + Quoted(Layer.GetName()) + ": its coordinate system " + Quoted(name) +
                                    " cannot be transformed to WGS 84");
    }
    return ct;
}

void ReadLayer(OGRLayer& Layer, const TLandMarkImportOptions& Options, TLandMarkImportReport& Report,
               std::vector<TLandMark>& Out)
{
    const std::string layerName = Layer.GetName();
    Report.LayersRead.push_back(layerName);
    const TCoordTransformPtr ct = TransformOf(Layer);
    TFeatureReader reader(*Layer.GetLayerDefn(), Options.Symbols, Report);
    std::map<std::string, std::int64_t> otherGeometries;

    TGdalErrorTrap trap;  // a failure in the middle of the file (broken XML) ends the import
    Layer.ResetReading();
    std::int64_t number = 0;
    for (OGRFeatureUniquePtr f(Layer.GetNextFeature()); f; f.reset(Layer.GetNextFeature())) {
        ++number;
        if (++Report.Features > Options.MaxLandMarks)
            Fail("ImportLandMarks", "more than " + std::to_string(Options.MaxLandMarks) + " features");
        const std::string where = "layer " + layerName + ", feature " + std::to_string(number);
        const OGRGeometry* g = f->GetGeometryRef();
        if (!g || wkbFlatten(g->getGeometryType()) != wkbPoint || g->IsEmpty()) {
            ++Report.NotPoints;
            ++otherGeometries[g ? (g->IsEmpty() ? std::string("empty ") : std::string()) +
                                      LowerCase(g->getGeometryName())
                                : std::string("no geometry")];
            continue;
        }
        const auto* p = g->toPoint();
        double x = p->getX(), y = p->getY(), z = p->Is3D() ? p->getZ() : 0.0;
        if (ct && !ct->Transform(1, &x, &y, &z)) {
            ++Report.Invalid;
            Note(Report.Messages, &Report.MessagesLeftOut,
                 where + ": the point cannot be transformed to WGS 84; not imported");
            continue;
        }
        const bool latOk = std::isfinite(y) && std::fabs(y) <= 90.0;
        const bool longOk = std::isfinite(x) && std::fabs(x) <= 360.0;
        if (!latOk || !longOk) {
            ++Report.Invalid;
            Note(Report.Messages, &Report.MessagesLeftOut,
                 where + ": " + (latOk ? "longitude " + ShortestText(x) : "latitude " + ShortestText(y)) +
                     " is out of range; not imported");
            continue;
        }
        if (ct)
            ++Report.Transformed;
        TLandMark lm = Options.Template;
        CutLandMarkStrings(lm);
        lm.Latitude = y;
        lm.Longitude = x;
        double alt = 0;
        if (p->Is3D())
            lm.Altitude = z;
        else if (reader.Elevation(*f, alt))
            lm.Altitude = alt;
        if (!std::isfinite(lm.Altitude)) {
            Note(Report.Messages, &Report.MessagesLeftOut, where + ": elevation is not finite; 0 is taken");
            lm.Altitude = 0;
        }
        reader.Fill(*f, where, lm);
        Out.push_back(std::move(lm));
        ++Report.Imported;
    }
    if (!trap.LastError().empty())
        Fail("ImportLandMarks", "layer " + Quoted(layerName) + ": " + trap.LastError());
    for (const auto& [kind, count] : otherGeometries)
        Note(Report.Messages, &Report.MessagesLeftOut,
             "layer " + layerName + ": " + std::to_string(count) + " feature(s) with " +
                 (kind == "no geometry" ? kind : "geometry " + kind) + " skipped (only points become landmarks)");
}

// ------------------------------------------------------------------------------------------------
// Writing

struct TGdalDatasetCloser {
    void operator()(GDALDataset* D) const { GDALClose(D); }
};
using TDatasetPtr = std::unique_ptr<GDALDataset, TGdalDatasetCloser>;

// Index of a field in the layer, created (with Type) when the layer does not have it yet (a GPX layer has
// its native fields from the start).
int FieldIndex(OGRLayer& Layer, const char* Name, OGRFieldType Type, OGRFieldSubType Sub = OFSTNone)
{
    int ix = Layer.GetLayerDefn()->GetFieldIndex(Name);
    if (ix >= 0)
        return ix;
    OGRFieldDefn def(Name, Type);
    def.SetSubType(Sub);
    if (Layer.CreateField(&def) != OGRERR_NONE)
        return -1;
    return Layer.GetLayerDefn()->GetFieldIndex(Name);
}

std::string StylesText(TFontStyles Styles)
{
    std::string s;
    for (std::size_t i = 0; i < StyleNames.size(); ++i)
        if (Styles.Contains(static_cast<TFontStyle>(i)))
            s += (s.empty() ? "" : ",") + std::string(StyleNames[i]);
    return s;
}

}  // namespace

// ------------------------------------------------------------------------------------------------

bool LandMarkFormatFromName(std::string_view Name, TLandMarkFileFormat& Format)
{
    Name = Trim(Name);
    for (int f = lffGPX; f <= lffGeoJSON; ++f) {
        const TFormatInfo& info = InfoOf(static_cast<TLandMarkFileFormat>(f));
        bool match = SameText(Name, info.Name);
        for (const char* d : info.Drivers)
            match = match || (d && SameText(Name, d));
        if (match || (f == lffGPKG && SameText(Name, "geopackage"))) {
            Format = static_cast<TLandMarkFileFormat>(f);
            return true;
        }
    }
    return false;
}

bool LandMarkFormatFromFileName(std::string_view FileName, TLandMarkFileFormat& Format)
{
    const std::string ext = LowerCase(std::filesystem::path(std::string(FileName)).extension().string());
    if (ext == ".json") {
        Format = lffGeoJSON;
        return true;
    }
    return ext.size() > 1 && ext != ".libkml" && LandMarkFormatFromName(std::string_view(ext).substr(1), Format);
}

std::string_view LandMarkFormatName(TLandMarkFileFormat Format) { return InfoOf(Format).Name; }

std::string LandMarkColorText(TColor Color) { return Hex(Color, 8); }

bool ParseLandMarkColor(std::string_view Text, TColor& Color)
{
    Text = Trim(Text);
    const bool css = !Text.empty() && Text.front() == '#';
    std::uint64_t v = 0;
    if (css) {
        const std::string_view d = Text.substr(1);
        const auto [end, ec] = std::from_chars(d.data(), d.data() + d.size(), v, 16);
        if (d.size() != 6 || ec != std::errc() || end != d.data() + d.size())
            return false;
        // #RRGGBB: red comes first in the text but belongs in the low byte.
        Color = static_cast<TColor>(((v >> 16) & 0xFFu) | (v & 0xFF00u) | ((v & 0xFFu) << 16));
        return true;
    }
    // Up to eight hexadecimal digits, 00BBGGRR, as the landmark file and geotool's GeoJSON write them.
    const auto [end, ec] = std::from_chars(Text.data(), Text.data() + Text.size(), v, 16);
    if (Text.empty() || Text.size() > 8 || ec != std::errc() || end != Text.data() + Text.size())
        return false;
    Color = static_cast<TColor>(v);
    return true;
}

std::vector<TLandMark> ImportLandMarks(const std::string& FileName, const TLandMarkImportOptions& Options,
                                       TLandMarkImportReport& Report)
{
    Report = {};
    GdalSession();  // before the driver manager is asked for the drivers below
    std::optional<TLandMarkFileFormat> format = Options.Format;
    if (TLandMarkFileFormat byName{}; !format && LandMarkFormatFromFileName(FileName, byName))
        format = byName;
    std::vector<const char*> drivers;
    for (int f = lffGPX; f <= lffGeoJSON; ++f)
        if (!format || *format == f)
            for (const char* d : InfoOf(static_cast<TLandMarkFileFormat>(f)).Drivers)
                if (d && GetGDALDriverManager()->GetDriverByName(d))
                    drivers.push_back(d);
    const std::string what = format ? std::string(InfoOf(*format).Title) + " file" : "GPX, KML, GeoPackage or GeoJSON file";

    if (drivers.empty())
        Fail("ImportLandMarks", "this GDAL cannot read " + what + "s");
    drivers.push_back(nullptr);

    TGdalErrorTrap trap;
    // Only files (and GDAL's virtual paths): a KML driver would read a folder as a layer set.
    if (FileName.rfind("/vsi", 0) != 0 && !std::filesystem::is_regular_file(FileName))
        Fail("ImportLandMarks", Quoted(FileName) + " is not a file");
    TDatasetPtr ds(GDALDataset::Open(FileName.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers.data()));
    if (!ds)
        Fail("ImportLandMarks", Quoted(FileName) + " cannot be read as a " + what + ": " +
                                    trap.Message("not recognised"));
    const bool gpx = SameText(ds->GetDriverName(), "GPX");

    std::vector<OGRLayer*> layers;
    if (!Options.Layer.empty()) {
        OGRLayer* l = ds->GetLayerByName(Options.Layer.c_str());
        if (!l) {
            std::string names;
            for (OGRLayer* x : ds->GetLayers())
                names += (names.empty() ? "" : ", ") + std::string(x->GetName());
            Fail("ImportLandMarks", Quoted(FileName) + " has no layer " + Quoted(Options.Layer) +
                                        (names.empty() ? std::string(" (it has no layers)") : "; its layers: " + names));
        }
        layers.push_back(l);
    } else {
        for (OGRLayer* l : ds->GetLayers()) {
            if (gpx && !SameText(l->GetName(), "waypoints")) {
                const GIntBig n = wkbFlatten(l->GetGeomType()) == wkbPoint ? l->GetFeatureCount(TRUE) : 0;
                if (n > 0)
                    Note(Report.Messages, &Report.MessagesLeftOut,
                         "layer " + std::string(l->GetName()) + ": " + std::to_string(n) +
                             " point(s) not imported (only waypoints are, unless this layer is asked for)");
                continue;
            }
            layers.push_back(l);
        }
    }
    // Refuse a huge file before reading it where the driver knows its count cheaply.
    std::int64_t known = 0;
    for (OGRLayer* l : layers)
        known += std::max<GIntBig>(0, l->GetFeatureCount(FALSE));
    if (known > Options.MaxLandMarks)
        Fail("ImportLandMarks", Quoted(FileName) + " holds " + std::to_string(known) + " features, more than " +
                                    std::to_string(Options.MaxLandMarks));

    std::vector<TLandMark> out;
    for (OGRLayer* l : layers)
        ReadLayer(*l, Options, Report, out);
    return out;
}

TLandMarkExportReport ExportLandMarks(std::span<const TLandMark> LandMarks, const std::string& FileName,
                                      TLandMarkFileFormat Format, const TLandMarkExportOptions& Options)
{
    static constexpr const char* fn = "ExportLandMarks";
    TLandMarkExportReport report;
    TGdalErrorTrap trap;
    const TFormatInfo& info = InfoOf(Format);
    GDALDriver* driver = nullptr;
    for (const char* d : info.Drivers)
        if (d && !driver)
            driver = GetGDALDriverManager()->GetDriverByName(d);
    if (!driver)
        Fail(fn, "this GDAL has no driver for " + std::string(info.Title));
    const bool gpx = Format == lffGPX;
    const bool libkml = SameText(driver->GetDescription(), "LIBKML");
    const bool kml = Format == lffKML;

    // The file is made under a name beside the target with the same extension (drivers look at it:
    // a KML driver writes a folder for a name without one) and renamed when complete. The name is one
    // that no file has, so that no other file of the user's is touched.
    const std::filesystem::path target(FileName);
    std::filesystem::path temp = target;
    std::error_code ec;
    for (int n = 0; n == 0 || std::filesystem::exists(temp, ec); ++n)
        temp.replace_filename(target.stem().string() + ".partial" + (n ? "-" + std::to_string(n) : "") +
                              target.extension().string());
    struct TTempGuard {
        std::filesystem::path Path;
        bool Keep = false;
        ~TTempGuard()
        {
            std::error_code e;
            if (!Keep)
                std::filesystem::remove(Path, e);
        }
    } guard{temp};

    const char* gpxOptions[] = {"GPX_USE_EXTENSIONS=YES", nullptr};
    TDatasetPtr ds(driver->Create(temp.string().c_str(), 0, 0, 0, GDT_Unknown, gpx ? gpxOptions : nullptr));
    if (!ds)
        Fail(fn, "cannot create " + Quoted(FileName) + ": " + trap.Message("the driver refused"));
    OGRSpatialReference srs = Wgs84();
    const std::string layerName = gpx ? "waypoints" : Options.Layer.empty() ? "landmarks" : Options.Layer;
    // GeoJSON: every digit of a double, so that positions come back unchanged.
    const char* jsonOptions[] = {"SIGNIFICANT_FIGURES=17", nullptr};
    OGRLayer* layer = ds->CreateLayer(layerName.c_str(), &srs, gpx ? wkbPoint : wkbPoint25D,
                                      Format == lffGeoJSON ? const_cast<char**>(jsonOptions) : nullptr);
    if (!layer)
        Fail(fn, "cannot create layer " + Quoted(layerName) + " in " + Quoted(FileName) + ": " +
                     trap.Message("the driver refused"));

    // Native fields first, so that they are the format's own elements.
    const int nameIx = FieldIndex(*layer, "name", OFTString);
    const int timeIx = FieldIndex(*layer, libkml ? "timestamp" : "time", OFTDateTime);
    const int eleIx = gpx ? FieldIndex(*layer, "ele", OFTReal) : -1;
    const int symIx = gpx ? FieldIndex(*layer, "sym", OFTString) : kml ? -1 : FieldIndex(*layer, "symbol", OFTString);
    const int modeIx = libkml ? FieldIndex(*layer, "altitudeMode", OFTString) : -1;
    const int captionIx = (Format == lffGPKG || Format == lffGeoJSON) ? FieldIndex(*layer, "caption_text", OFTString)
                                                                      : -1;
    std::array<int, NumAttrs> ix{};
    ix.fill(-1);
    for (TAttr a : OwnAttrs) {
        OGRFieldType type = OFTInteger;
        OGRFieldSubType sub = OFSTNone;
        switch (a) {
        case atIdentifier: case atSymbolKind: case atSymbolFG: case atSymbolBG: case atCaptionFont:
        case atCaptionFG: case atCaptionBG: case atCaptionHAlign: case atCaptionVAlign:
            type = OFTString;
            break;
        case atCaptionStyles:
            type = Format == lffGeoJSON ? OFTStringList : OFTString;
            break;
        case atSymbolTransparent: case atCaptionTransparent:
            sub = OFSTBoolean;
            break;
        default:
            break;
        }
        ix[a] = FieldIndex(*layer, AttrNames[a], type, sub);
    }
    for (int i : {nameIx, timeIx})
        if (i < 0)
            Fail(fn, "cannot create the fields of " + Quoted(FileName) + ": " + trap.Message("the driver refused"));
    for (TAttr a : OwnAttrs)
        if (ix[a] < 0)
            Fail(fn, "cannot create field " + std::string(AttrNames[a]) + " in " + Quoted(FileName) + ": " +
                         trap.Message("the driver refused"));

    std::int64_t number = 0;
    for (const TLandMark& lm : LandMarks) {
        ++number;
        if (!std::isfinite(lm.Latitude) || !std::isfinite(lm.Longitude) || std::fabs(lm.Latitude) > 90.0) {
            ++report.Invalid;
            Note(report.Messages, nullptr,
                 "landmark " + std::to_string(number) + ": position " + ShortestText(lm.Latitude) + ", " +
                     ShortestText(lm.Longitude) + " is not valid; not written");
            continue;
        }
        double alt = lm.Altitude;
        if (!std::isfinite(alt)) {
            ++report.AltitudesLeftOut;
            Note(report.Messages, nullptr, "landmark " + std::to_string(number) + ": altitude not finite; 0 written");
            alt = 0;
        }
        OGRFeatureUniquePtr f(OGRFeature::CreateFeature(layer->GetLayerDefn()));
        OGRPoint pt = gpx ? OGRPoint(lm.Longitude, lm.Latitude) : OGRPoint(lm.Longitude, lm.Latitude, alt);
        f->SetGeometry(&pt);
        // Altitude 0 is the template's "unknown": a GPX device would show 0 m for an ele, and a KML viewer
        // would bury an absolute 0 under the terrain; such points get no ele and stay on the ground.
        if (eleIx >= 0 && alt != 0)
            f->SetField(eleIx, alt);
        if (modeIx >= 0 && alt != 0)
            f->SetField(modeIx, "absolute");
        // Texts the writers would garble. The KML writer puts any text with markup characters in a
        // CDATA section without splitting a "]]>" inside it, which ends the section early and breaks the
        // file. In GPX, our attributes are extension elements, which the writer copies unescaped when
        // they parse as XML ("<b>x</b>" would become elements of the waypoint) and the reader types by
        // their values (a column of digits comes back as integers: "007" as 7, colour 00008000 as 8000
        // decimal); such a text is written behind an apostrophe (GpxExtensionText), which the reader
        // takes off again. Line breaks in extension texts are lost by the GPX reader.
        auto text = [&](int Ix, const std::string& Value, const char* What, bool Extension) {
            std::string v = Value;
            std::string change;
            if (kml) {
                for (std::size_t at = v.find("]]>"); at != std::string::npos; at = v.find("]]>", at + 4))
                    v.insert(at + 2, " ");
                if (v != Value)
                    change = "\"]]>\" written as \"]] >\"";
            } else if (gpx && Extension) {
                v = GpxExtensionText(v);
                if (Value.find_first_of("\r\n") != std::string::npos)
                    change = "has line breaks, which a GPX reader drops";
            }
            if (!change.empty()) {
                ++report.TextsChanged;
                Note(report.Messages, nullptr, "landmark " + std::to_string(number) + ": " + What + " " + change);
            }
            f->SetField(Ix, v.c_str());
        };
        text(nameIx, lm.Caption.Text, "name", false);
        if (captionIx >= 0)
            f->SetField(captionIx, lm.Caption.Text.c_str());
        TOgrTime t{};
        if (TimeToOgr(lm.Time, t)) {
            f->SetField(timeIx, t.Year, t.Month, t.Day, t.Hour, t.Minute, t.Second, 100);
        } else if (lm.Time != 0.0) {
            ++report.TimesLeftOut;
            Note(report.Messages, nullptr,
                 "landmark " + std::to_string(number) + ": time " + ShortestText(lm.Time) +
                     " days is outside the years 1..9999; written without a time");
        }
        const std::string symbol = SymbolNameOf(lm.SymbolProps, Options.Symbols);
        if (symIx >= 0)
            f->SetField(symIx, symbol.c_str());
        if (kml)
            f->SetStyleString(("@" + symbol).c_str());

        const auto& sp = lm.SymbolProps;
        const auto& cap = lm.Caption;
        f->SetField(ix[atClass], lm.ClassFlag);
        f->SetField(ix[atTag], lm.Tag);
        text(ix[atIdentifier], lm.Identifier, "identifier", true);
        text(ix[atSymbolKind], std::string(LandMarkElementKeyword(sp.Kind)), "symbol_kind", true);
        f->SetField(ix[atSymbolSize], sp.Size);
        text(ix[atSymbolFG], LandMarkColorText(sp.FGColor), "symbol_fgcolor", true);
        text(ix[atSymbolBG], LandMarkColorText(sp.BGColor), "symbol_bgcolor", true);
        f->SetField(ix[atSymbolTransparent], sp.Transparent ? 1 : 0);
        f->SetField(ix[atSymbolDirection], sp.Direction);
        f->SetField(ix[atSymbolLength], sp.Length);
        f->SetField(ix[atCaptionSize], cap.Size);
        text(ix[atCaptionFont], cap.FontName, "caption_font", true);
        if (Format == lffGeoJSON) {
            std::vector<std::string> names;
            for (std::size_t i = 0; i < StyleNames.size(); ++i)
                if (cap.FontStyles.Contains(static_cast<TFontStyle>(i)))
                    names.emplace_back(StyleNames[i]);
            std::vector<const char*> list;
            for (const auto& n : names)
                list.push_back(n.c_str());
            list.push_back(nullptr);
            f->SetField(ix[atCaptionStyles], list.data());
        } else {
            text(ix[atCaptionStyles], StylesText(cap.FontStyles), "caption_styles", true);
        }
        text(ix[atCaptionFG], LandMarkColorText(cap.FGColor), "caption_fgcolor", true);
        text(ix[atCaptionBG], LandMarkColorText(cap.BGColor), "caption_bgcolor", true);
        f->SetField(ix[atCaptionTransparent], cap.Transparent ? 1 : 0);
        f->SetField(ix[atCaptionDx], cap.dx);
        f->SetField(ix[atCaptionDy], cap.dy);
        f->SetField(ix[atCaptionDirection], cap.Direction);
        text(ix[atCaptionHAlign], std::string(HAlignNames[cap.HAlignment < NumHorzAlignments ? cap.HAlignment : haCenter]),
             "caption_halign", true);
        text(ix[atCaptionVAlign], std::string(VAlignNames[cap.VAlignment < NumVerticalAlignments ? cap.VAlignment : vaTop]),
             "caption_valign", true);
        if (layer->CreateFeature(f.get()) != OGRERR_NONE)
            Fail(fn, "cannot write landmark " + std::to_string(number) + " to " + Quoted(FileName) + ": " +
                         trap.Message("the driver refused"));
        ++report.Written;
    }
    // XML drivers write at closing: only then is the file complete.
    ds.reset();
    if (!trap.LastError().empty())
        Fail(fn, "cannot write " + Quoted(FileName) + ": " + trap.LastError());
    std::filesystem::rename(temp, target, ec);
    if (ec)
        Fail(fn, "cannot write " + Quoted(FileName) + ": " + ec.message());
    guard.Keep = true;
    return report;
}

}  // namespace qv
