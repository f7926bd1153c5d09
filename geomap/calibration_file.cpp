// Calibration file writers and readers: the raw writer, the map-level writers (file and stream variants),
// the map reader and ParseCalibData, which share one line/tag scanner and differ only where documented.
#include <qvgeo/geomap/calibration_file.h>

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/tag_reader.h>
#include <qvgeo/support/text.h>

#include <charconv>
#include <filesystem>
#include <cstdio>
#include <fstream>
#include <functional>
#include <istream>
#include <ostream>
#include <vector>

namespace qv {

// ---- number formats -----------------------------------------------------------------------------------

namespace {

std::string FormatFixed(double Value, int Decimals)
{
    char buf[400];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, Value, std::chars_format::fixed, Decimals);
    if (ec != std::errc())
        return "0";
    std::string s(buf, end);
    // A negative value that rounds to zero is written without its sign.
    if (s[0] == '-' && s.find_first_not_of("-0.") == std::string::npos)
        s.erase(0, 1);
    return s;
}

}  // namespace

std::string FormatF5(double Value)
{
    return FormatFixed(Value, 5);
}

std::string FormatF3(double Value)
{
    return FormatFixed(Value, 3);
}

std::string FormatG(double Value)
{
    char buf[64];
    // %G follows the locale's decimal separator, which is what this format is meant to do.
    std::snprintf(buf, sizeof buf, "%.15G", Value);
    std::string s(buf);
    const auto e = s.find('E');
    if (e != std::string::npos) {
        std::string exp = s.substr(e + 1);
        std::string sign;
        if (!exp.empty() && (exp[0] == '+' || exp[0] == '-')) {
            if (exp[0] == '-')
                sign = "-";
            exp.erase(0, 1);
        }
        const auto nz = exp.find_first_not_of('0');
        exp = nz == std::string::npos ? "0" : exp.substr(nz);
        s = s.substr(0, e + 1) + sign + exp;
    }
    return s;
}

// ---- writers ------------------------------------------------------------------------------------------

namespace {

constexpr std::string_view kXMLHeader = "<?xml version=\"1.0\"?>";
constexpr std::string_view kComment = "<!-- TGeoMap Calibration / Quorvanta -->";

std::string_view ModelKeyword(TCalibModel Model)
{
    return Model < NumCalibModels ? CalibModelKeywords[Model] : CalibModelKeywords[cmUndefined];
}

std::string GeoMapLine(std::string_view Id, const TCalibData& D, TCalibModel Model)
{
    std::string s = "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"";
    s += Id;
    s += "\" model=\"";
    s += ModelKeyword(Model);
    s += "\" map=\"";
    s += D.MapFName;
    s += "\" caption=\"";
    s += D.Caption;
    s += "\">";
    return s;
}

std::string CornersLine(const TCalibData& D)
{
    std::string s;
    for (const TCoords& c : D.Corners)
        s += "[" + FormatF5(c.Latit) + "," + FormatF5(c.Longit) + "] ";
    return s;
}

void WriteCalLines(std::ostream& F, const TCalibData& D)
{
    const int nl = ValidCalLines(D);
    for (int i = 0; i < nl; ++i) {
        const TCalibLine& line = D.CalLines[i];
        const int np = ValidLinePoints(line);
        F << "<calline type=\"" << (line.LineType == gtlParallel ? "parallel" : "meridian") << "\" value=\""
          << FormatG(line.LineValue) << "\" npoints=\"" << np << "\">\n";
        std::string items;
        for (int p = 0; p < np; ++p)
            items += "[" + std::to_string(line.CalPoints[p].X) + "," + std::to_string(line.CalPoints[p].Y) + "] ";
        F << items << "\n</calline>\n";
    }
}

void WriteCalQuads(std::ostream& F, const TCalibData& D)
{
    const int nq = ValidCalQuads(D);
    F << "<calquads npoints=\"" << nq << "\">\n";
    std::string items;
    for (int q = 0; q < nq; ++q) {
        const TCalQuad& c = D.CalQuads[q];
        items += "[" + FormatF5(c.Latitude) + "," + FormatF5(c.Longitude) + "," + std::to_string(c.MapX) + "," +
                 std::to_string(c.MapY) + "] ";
    }
    F << items << "\n</calquads>\n";
}

}  // namespace

void WriteRawCalDataToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id, const TCalibData& CalData,
                                  TCalibModel Model)
{
    if (static_cast<int>(CalData.Ellipsoid) >= NumGeoEllipsoids)
        throw EXELGeoMapError("WriteRawCalDataToOpenXMLFile: invalid ellipsoid ordinal " +
                              std::to_string(static_cast<int>(CalData.Ellipsoid)));
    if (WithHeader)
        F << kXMLHeader << '\n';
    F << '\n' << kComment << '\n';
    F << GeoMapLine(Id, CalData, Model) << '\n';
    F << "<corners>\n" << CornersLine(CalData) << "\n</corners>\n";
    if (CalData.Resolution > 0)
        F << "<resolution>" << FormatF3(CalData.Resolution) << "</resolution>\n";
    // Zone 60 is not written, although the zone property accepts it.
    if (CalData.UTMZone >= 1 && CalData.UTMZone <= 59) {
        F << "<utmzone>" << CalData.UTMZone << "</utmzone>\n";
        F << "<utmsouth>" << BoolToStr(CalData.UTMSouth, 0) << "</utmsouth>\n";
    }
    F << "<ellipsoid>" << GeoEllipsoidId[CalData.Ellipsoid] << "</ellipsoid>\n";
    WriteCalLines(F, CalData);
    if (ValidCalQuads(CalData) > 0)
        WriteCalQuads(F, CalData);
    F << "</geomap>\n";
    if (!F)
        throw EXELGeoMapError("WriteRawCalDataToOpenXMLFile: the calibration could not be written");
}

void TMapCalibration::WriteCalDataToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id)
{
    CalcExtentsAndResolution();
    FCalibData.MapFName = ImageName();
    WriteRawCalDataToOpenXMLFile(F, WithHeader, Id, FCalibData, CalibModel());
}

void TMapCalibration::SaveCalDataAsXML(const std::string& FName, std::string_view Id)
{
    std::ofstream f(FName, std::ios::binary | std::ios::trunc);
    if (!f)
        RaiseComponentError("cannot create file \"" + FName + "\"");
    WriteCalDataToOpenXMLFile(f, true, Id);
    f.close();
    if (!f)
        RaiseComponentError("error writing file \"" + FName + "\"");
}

void TMapCalibration::SaveCalDataAsXML(std::ostream& Stream, std::string_view Id)
{
    CalcExtentsAndResolution();
    FCalibData.MapFName = ImageName();
    const TCalibData& d = FCalibData;
    WriteLnStream(Stream, kXMLHeader);
    WriteLnStream(Stream, "");
    WriteLnStream(Stream, kComment);
    WriteLnStream(Stream, GeoMapLine(Id, d, CalibModel()));
    WriteLnStream(Stream, "<corners>");
    WriteLnStream(Stream, CornersLine(d));
    WriteLnStream(Stream, "</corners>");
    // The stream variant always writes the resolution and the quads and never the UTM and ellipsoid
    // elements: readers of such streams get the cleared zone and WGS 84.
    WriteLnStream(Stream, "<resolution>" + FormatF3(d.Resolution) + "</resolution>");
    WriteCalLines(Stream, d);
    WriteCalQuads(Stream, d);
    WriteLnStream(Stream, "</geomap>");
    if (!Stream)
        RaiseComponentError("the calibration could not be written to the stream");
}

// ---- reader -------------------------------------------------------------------------------------------

namespace {

// What differs between the map reader and ParseCalibData.
struct TReadTarget {
    TCalibData* Data = nullptr;
    std::function<std::string(std::string_view)> Message;  // error text with the reader's prefix
    bool DropShortLines = false;
    // A header was seen: lower-cased model value (Found: attribute present) and whether it matches.
    std::function<void(const std::string& Model, bool ModelFound, bool Matches)> OnHeader;
    std::function<void()> OnMatch;  // before the tags are read
};

[[noreturn]] void Fail(const TReadTarget& T, std::string_view Text)
{
    throw EXELGeoMapError(T.Message(Text));
}

// Walks the items "[...]" of a value list: from the first "[" to the first "]" after it, repeatedly.
// Calls Item with the text between the brackets; returns the number of items.
template <typename F>
long long ForEachItem(std::string_view Content, F Item)
{
    long long count = 0;
    std::size_t pos = 0;
    for (;;) {
        const auto open = Content.find('[', pos);
        if (open == std::string_view::npos)
            break;
        const auto close = Content.find(']', open + 1);
        if (close == std::string_view::npos)
            break;
        Item(count, Content.substr(open + 1, close - open - 1));
        ++count;
        pos = close + 1;
    }
    return count;
}

// Splits an item at its commas into at most Max fields (missing fields are empty).
template <std::size_t Max>
std::array<std::string_view, Max> SplitFields(std::string_view Item)
{
    std::array<std::string_view, Max> f{};
    for (std::size_t i = 0; i < Max; ++i) {
        const auto comma = Item.find(',');
        if (i + 1 == Max || comma == std::string_view::npos) {
            f[i] = Item;
            break;
        }
        f[i] = Item.substr(0, comma);
        Item.remove_prefix(comma + 1);
    }
    return f;
}

void ReadCalLine(const TReadTarget& T, const std::string& Attr, const std::string& Content)
{
    TCalibData& d = *T.Data;
    if (ValidCalLines(d) >= MaxCalLines)
        Fail(T, "more than " + std::to_string(MaxCalLines) + " graticule lines");
    TCalibLine line;
    const std::string typeText = TagAttribute(Attr, "type");
    const std::string type = LowerCase(typeText);
    if (type == "parallel")
        line.LineType = gtlParallel;
    else if (type == "meridian")
        line.LineType = gtlMeridian;
    else
        Fail(T, "invalid type of graticule line: type=\"" + typeText);
    line.LineValue = StrToNumber(TagAttribute(Attr, "value"), nsAnyReal);
    const std::int32_t npoints = StrToInteger(TagAttribute(Attr, "npoints"));
    const long long count = ForEachItem(Content, [&](long long i, std::string_view item) {
        if (i >= MaxCalLinePoints)
            return;
        const auto f = SplitFields<2>(item);
        line.CalPoints[static_cast<std::size_t>(i)] = TPoint{StrToInteger(f[0]), StrToInteger(f[1])};
    });
    if (count != npoints)
        Fail(T, "specified number of calibration points and actual number does not match");
    if (count > MaxCalLinePoints)
        Fail(T, "more than " + std::to_string(MaxCalLinePoints) + " points on a graticule line");
    line.NumPoints = npoints;
    if (T.DropShortLines && npoints < 3)
        return;
    d.CalLines[ValidCalLines(d)] = line;
    d.NumCalLines = ValidCalLines(d) + 1;
}

void ReadCalQuads(const TReadTarget& T, const std::string& Attr, const std::string& Content)
{
    TCalibData& d = *T.Data;
    const std::int32_t npoints = StrToInteger(TagAttribute(Attr, "npoints"));
    std::vector<TCalQuad> quads;
    const long long count = ForEachItem(Content, [&](long long i, std::string_view item) {
        if (i >= MaxCalQuads)
            return;
        const auto f = SplitFields<4>(item);
        quads.push_back(TCalQuad{StrToNumber(f[0], nsPointOnly), StrToNumber(f[1], nsPointOnly),
                                 StrToInteger(f[2]), StrToInteger(f[3])});
    });
    if (count != npoints)
        Fail(T, "specified number of calibration points and actual number does not match");
    if (count > MaxCalQuads)
        Fail(T, "more than " + std::to_string(MaxCalQuads) + " calibration quads");
    for (std::size_t i = 0; i < quads.size(); ++i)
        d.CalQuads[i] = quads[i];
    d.NumCalQuads = npoints;
}

void ReadTags(std::istream& F, const TReadTarget& T)
{
    TCalibData& d = *T.Data;
    std::string attr, content;
    for (;;) {
        const int tag = ReadNextTagInStream(F, XMLTagNames, XMLTagHigh, attr, content);
        if (tag == xtGeoMapEnd || tag == xtInvalidTag)
            return;
        switch (tag) {
        case xtCorners:
            // Items beyond the fourth are ignored.
            ForEachItem(content, [&](long long i, std::string_view item) {
                if (i >= 4)
                    return;
                const auto f = SplitFields<2>(item);
                d.Corners[static_cast<std::size_t>(i)] = TCoords{StrToNumber(f[0], nsAnyReal), StrToNumber(f[1], nsAnyReal)};
            });
            break;
        case xtResolution:
            d.Resolution = StrToNumber(content, nsAnyReal);
            break;
        case xtUTMZone:
            d.UTMZone = StrToInteger(content);
            break;
        case xtUTMSouth:
            d.UTMSouth = LowerCase(Trim(content)) == "true";
            break;
        case xtEllipsoid: {
            const std::string id(Trim(content));
            const int ix = StringIx(id, std::span<const std::string_view>(GeoEllipsoidId), NumGeoEllipsoids - 1);
            if (ix < 1)
                Fail(T, "unknown ellipsoid identifier \"" + id + "\"");
            d.Ellipsoid = static_cast<TGeoEllipsoid>(ix - 1);
            break;
        }
        case xtCalLine:
            ReadCalLine(T, attr, content);
            break;
        case xtCalQuads:
            ReadCalQuads(T, attr, content);
            break;
        default:
            break;  // landmark and symbol tags, nested or unknown elements
        }
    }
}

// Scans lines for calibration headers; applies each header's attributes; reads the tags of the first
// matching one. True when a header matched.
bool ReadCalibration(std::istream& F, std::string_view Id, const TReadTarget& T)
{
    const std::string id = LowerCase(Id);
    std::string line;
    while (std::getline(F, line)) {
        const std::string lower = LowerCase(line);
        if (lower.find("<geomap") == std::string::npos || lower.find("quorvanta") == std::string::npos)
            continue;
        const bool matches = id.empty() || TagAttribute(lower, "id") == id;
        bool modelFound = false;
        const std::string model = TagAttribute(lower, "model", &modelFound);
        T.OnHeader(model, modelFound, matches);
        // The image name arrives lower-cased; the caption is kept as read, case and blanks alike.
        T.Data->MapFName = TagAttribute(lower, "map");
        T.Data->Caption = TagAttributeAsRead(line, "caption");
        if (matches) {
            T.OnMatch();
            ReadTags(F, T);
            return true;
        }
    }
    return false;
}

}  // namespace

TMapCalibration::TReadResult TMapCalibration::ReadCalibrationRecord(std::istream& F, std::string_view Id)
{
    TChangeNotice::TBatch batch(FNotice);
    TReadTarget t;
    t.Data = &FCalibData;
    t.Message = [this](std::string_view Text) { return ComponentMessage(FComponentName, Text); };
    t.DropShortLines = true;
    t.OnHeader = [this](const std::string& Model, bool, bool) {
        // Only these keywords select a model here; "parabolicip" among others leaves cmUndefined.
        TCalibModel m = cmUndefined;
        if (Model == "equirect")
            m = cmEquiRect;
        else if (Model == "biquadraticpn")
            m = cmBiquadraticPn;
        else if (Model == "utm")
            m = cmUTM;
        else if (Model == "conicconformal")
            m = cmConicConformal;
        else if (Model == "millercylindrical")
            m = cmMillerCylindrical;
        ReplaceFit([m](TCalibFit& f) { f.SetModel(m); });
        Changed(ccModel | ccCaption | ccPoints);  // model, caption and image name of the header
    };
    t.OnMatch = [this] { ClearCalibData(); };
    TReadResult r;
    r.Found = ReadCalibration(F, Id, t);
    if (r.Found)
        r.GratOK = RecalcGratMat();
    return r;
}

void TMapCalibration::FinishReading()
{
    TChangeNotice::TBatch batch(FNotice);
    RunModelFit();
    Changed(ccPoints);
}

bool TMapCalibration::ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id)
{
    TChangeNotice::TBatch batch(FNotice);
    const TReadResult r = ReadCalibrationRecord(F, Id);
    if (!r.Found)
        return false;
    if (!FCalibData.MapFName.empty())
        SetMapImgName(FCalibData.MapFName);
    FinishReading();
    return r.GratOK;
}

bool TMapCalibration::LoadCalDataFromXML(const std::string& FName, std::string_view Id)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    return ReadCalDataFromOpenXMLFile(f, Id);
}

void TMapCalibration::SetCalDatName(const std::string& FName)
{
    TChangeNotice::TBatch batch(FNotice);
    std::ifstream probe(FName, std::ios::binary);
    if (probe) {
        probe.close();
        FEdit.CalDatName = FName;
        LoadCalDataFromXML(FName, "");
    } else {
        SetMapImgName(std::string());
    }
    Changed(ccPoints);
}

bool ParseCalibData(std::istream& Stream, std::string_view Id, TCalibData& CalData, TCalibModel& Model)
{
    TReadTarget t;
    t.Data = &CalData;
    t.Message = [](std::string_view Text) { return "ParseCalibData: " + std::string(Text); };
    t.DropShortLines = false;
    t.OnHeader = [&Model](const std::string& ModelText, bool ModelFound, bool Matches) {
        if (!Matches)
            return;
        Model = cmBiquadraticPn;
        if (ModelFound) {
            const int ix = StringIx(ModelText, std::span<const std::string_view>(CalibModelKeywords), NumCalibModels - 1);
            Model = ix >= 1 ? static_cast<TCalibModel>(ix - 1) : cmUndefined;
        }
    };
    t.OnMatch = [&CalData] { CalData.NumCalLines = 0; };
    return ReadCalibration(Stream, Id, t);
}

bool ParseCalibData(const std::string& FName, std::string_view Id, TCalibData& CalData, TCalibModel& Model)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    return ParseCalibData(f, Id, CalData, Model);
}

std::string FindImageBeside(const std::string& CalFile, const std::string& ImageName)
{
    namespace fs = std::filesystem;
    const fs::path dir = fs::path(CalFile).parent_path();
    const std::string leaf = StripPath(ImageName);
    std::error_code ec;
    if (fs::is_regular_file(dir / leaf, ec))
        return (dir / leaf).string();
    for (fs::directory_iterator it(dir.empty() ? fs::path(".") : dir, ec), end; !ec && it != end; it.increment(ec))
        if (SameText(it->path().filename().string(), leaf) && fs::is_regular_file(it->path(), ec))
            return (dir / it->path().filename()).string();
    return (dir / leaf).string();
}

}  // namespace qv
