// Harnesses of the text readers: calibration, landmark and symbol files, the tag reader, the number
// scanner and the image header probe.
#include <qvgeo/fuzz/harness.h>

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/geomap/symbol_repository.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/tag_reader.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace qvfuzz {

namespace {

std::string AsText(TBytes Data) { return std::string(reinterpret_cast<const char*>(Data.data()), Data.size()); }

// A property the reader documents was broken: stop here so that libFuzzer keeps the input.
[[noreturn]] void Violated(const char* What)
{
    std::fprintf(stderr, "qvgeo fuzz: %s\n", What);
    std::abort();
}

// Converts a few pixels and positions and writes the calibration back: the fitted state of a hostile
// file must be usable without undefined behaviour (integer conversions of huge or NaN values above all).
void Exercise(qv::TMapCalibration& Cal)
{
    constexpr std::int32_t big = std::numeric_limits<std::int32_t>::max();
    const std::array<qv::TPoint, 5> pixels{{{0, 0}, {100, 100}, {-7, 5000}, {big, -big}, {-big - 1, big}}};
    for (const qv::TPoint p : pixels) {
        bool valid = false;
        const double lat = Cal.CalcLatitude(p, valid);
        const double lon = Cal.CalcLongitude(p, valid);
        std::int32_t x = 0, y = 0;
        Cal.CalcPixelCoords(lat, lon, x, y);
        Cal.CalcPixelCoordsUTM(lat * 1e5, lon * 1e4, x, y);
        Cal.CalcUTMyFromNorthingX(lat * 1e5, p.X);
        Cal.CalcUTMxFromEastingY(lon * 1e4, p.Y);
        Cal.IsPositionWithinMap(lat, lon);
    }
    for (const auto& c : Cal.CalibData().Corners) {
        std::int32_t x = 0, y = 0;
        Cal.CalcPixelCoords(c.Latit, c.Longit, x, y);
    }
    double qx = 0, qy = 0;
    Cal.CalibQuality(qx, qy);
    Cal.CalcExtentsAndResolution();
    std::ostringstream out;
    Cal.WriteCalDataToOpenXMLFile(out, true, "x");
    // What the writer produced must read back through the record reader.
    std::istringstream back(out.str());
    qv::TCalibData d;
    qv::TCalibModel m = qv::cmUndefined;
    if (!qv::ParseCalibData(back, "x", d, m))
        Violated("a written calibration does not read back");
}

}  // namespace

void Calibration(TBytes Data)
{
    const std::string text = AsText(Data);
    {
        qv::TMapCalibration cal;
        // The image named by the file is not looked up here (CalibrationImage does that): the reader's
        // two steps without the image between them.
        std::istringstream in(text);
        try {
            const qv::TMapCalibration::TReadResult read = cal.ReadCalibrationRecord(in, "");
            if (read.Found)
                cal.FinishReading();
            if (read.GratOK || cal.CalibModel() != qv::cmUndefined)
                Exercise(cal);
        } catch (const qv::EXELError&) {
        }
    }
    {
        std::istringstream in(text);
        qv::TCalibData d;
        qv::TCalibModel m = qv::cmUndefined;
        try {
            if (qv::ParseCalibData(in, "", d, m)) {
                qv::TMapCalibration cal;
                cal.LoadCalibData(d, m);
                Exercise(cal);
            }
        } catch (const qv::EXELError&) {
        }
    }
}

const std::filesystem::path& ScratchDir()
{
    static const std::filesystem::path dir = [] {
        // Memory-backed when there is one: the database writes sync every file they replace, which on a
        // disk costs milliseconds per case.
        std::error_code ec;
        const std::filesystem::path root =
            std::filesystem::is_directory("/dev/shm", ec) && ::access("/dev/shm", W_OK) == 0
                ? std::filesystem::path("/dev/shm")
                : std::filesystem::temp_directory_path();
        auto p = root / ("qvgeo-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(p);
        static std::filesystem::path removeAtExit;
        removeAtExit = p;
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(removeAtExit, ec);
        });
        return p;
    }();
    return dir;
}

void CalibrationImage(TBytes Data)
{
    if (Data.empty())
        return;
    const std::string image = (ScratchDir() / "map.img").string();
    const std::string name = [&]() -> std::string {
        switch (Data[0] % 4) {
        case 0: return image;
        case 1: return ScratchDir().string();          // a directory
        case 2: return image + ".missing";             // no such file
        default: return "";                            // no image
        }
    }();
    {
        std::ofstream f(image, std::ios::binary | std::ios::trunc);
        f.write(reinterpret_cast<const char*>(Data.data() + 1), static_cast<std::streamsize>(Data.size() - 1));
    }
    std::istringstream in(
        "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"geo\" model=\"equirect\" map=\"" + name +
        "\" caption=\"c\">\n<calquads npoints=\"3\">\n[48.2,16.3,100,100] [48.1,16.4,700,100] "
        "[48.1,16.3,100,500]\n</calquads>\n</geomap>\n");
    qv::TMapCalibration cal;
    cal.SetImageSize(17, 19);  // a left-over size, kept when the header cannot be read
    try {
        cal.ReadCalDataFromOpenXMLFile(in, "");
    } catch (const qv::EXELError&) {
        return;
    }
    std::int32_t w = -1, h = -1;
    cal.ImageSize(w, h);
    std::int32_t hw = 0, hh = 0;
    const bool header = qv::ReadImageSize(image, hw, hh);
    // The header's size; the left-over one when the header cannot be read or no image is named; none
    // when the name is not a regular file.
    const int variant = Data[0] % 4;
    const bool expected = variant == 0 ? (header ? (w == hw && h == hh) : (w == 17 && h == 19))
                          : variant == 3 ? (w == 17 && h == 19)
                                         : (w == 0 && h == 0);
    if (!expected)
        Violated("image size after reading a calibration");
    Exercise(cal);
}

void Landmarks(TBytes Data)
{
    qv::TLandMarkStore store;
    std::istringstream in(AsText(Data));
    try {
        if (!store.ReadLandMarksFromOpenXMLFile(in, ""))
            return;
        std::ostringstream out;
        store.WriteLandMarksToOpenXMLFile(out, true, "x");
        qv::TLandMarkStore back;
        std::istringstream again(out.str());
        if (!back.ReadLandMarksFromOpenXMLFile(again, "x") || back.NumLandMarks() != store.NumLandMarks())
            Violated("written landmarks do not read back in the same number");
    } catch (const qv::EXELError&) {
    }
}

void Symbols(TBytes Data)
{
    qv::TSymbolRepository repo;
    std::istringstream in(AsText(Data));
    try {
        if (!repo.ReadFromOpenXMLFile(in, ""))
            return;
        std::ostringstream out;
        repo.StoreOnStream(out, "x");
        qv::TSymbolRepository back;
        std::istringstream again(out.str());
        if (!back.ReadFromOpenXMLFile(again, "x"))
            Violated("a written symbol catalogue does not read back");
    } catch (const qv::EXELError&) {
    }
}

void ImageHeader(TBytes Data)
{
    std::int32_t w = -3, h = -3;
    qv::TImageFileKind kind = qv::ifkUnknown;
    if (qv::ReadImageSize(Data, w, h, &kind)) {
        if (w <= 0 || h <= 0 || kind == qv::ifkUnknown)
            Violated("image header accepted with a size that is not positive or an unknown kind");
    } else if (w != -3 || h != -3) {
        Violated("refused image header changed the size");
    }
}

void TagReader(TBytes Data)
{
    const std::string text = AsText(Data);
    std::istringstream in(text);
    std::string attr, content;
    static constexpr std::array<std::string_view, 7> names = {"lat", "long", "id", "caption", "map", "model", "npoints"};
    std::array<std::string_view, names.size()> values;
    // Every call consumes at least one character, so the loop ends; the bound is a guard, not a limit.
    for (std::size_t n = 0; n <= text.size() + 1; ++n) {
        const int t = qv::ReadNextTagInStream(in, qv::XMLTagNames, qv::XMLTagHigh, attr, content);
        if (t < 0 || t > qv::XMLTagHigh)
            Violated("tag index outside the list");
        if (t == qv::XMLTagHigh)
            return;
        qv::SplitTagAttributes(attr, names, values);
        for (const std::string_view v : values)
            if (v.data() != nullptr && (v.data() < attr.data() || v.data() + v.size() > attr.data() + attr.size()))
                Violated("attribute value outside the attribute text");
        qv::TagAttribute(content, "id");
    }
    Violated("tag reader does not reach the end of the input");
}

namespace {

// The number the scanner read from Text[Start, End), checked against strtod where the text is a plain
// decimal that strtod reads the same way (point separator, short exponent, result a normal double or 0).
void CheckAgainstStrtod(std::string_view Text, std::size_t Start, std::size_t End, unsigned Syntax, double Value)
{
    std::string s(Text.substr(Start, End - Start));
    const std::size_t first = s.find_first_not_of(" \t");
    if (first == std::string::npos)
        return;
    s.erase(0, first);
    if ((Syntax & qv::nsCommaAllowed) != 0)
        for (char& c : s)
            if (c == ',')
                c = '.';
    const std::size_t e = s.find_first_of("eE");
    if (s.size() > 300 || (e != std::string::npos && s.size() - e > 5))
        return;
    char* end = nullptr;
    const double r = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size())
        return;  // no digits at all: the scanner's 0 is not strtod's business
    if (std::isinf(r)) {
        if (std::fabs(Value) != qv::uc_MaxDouble || std::signbit(Value) != std::signbit(r))
            Violated("number beyond the double range not clamped");
    } else if (r == 0 || std::fabs(r) >= std::numeric_limits<double>::min()) {
        if (Value != r)
            Violated("number scanner disagrees with strtod");
    }
}

}  // namespace

void NumberScanner(TBytes Data)
{
    if (Data.empty())
        return;
    const unsigned syntax = Data[0] & 3u;
    const std::string text = AsText(Data.subspan(1));
    const std::string_view view(text);
    for (int pos = 1; pos <= static_cast<int>(view.size());) {
        const int start = pos;
        const double v = qv::ScanNumber(view, pos, syntax);
        if (pos < start || pos > static_cast<int>(view.size()) + 1)
            Violated("scanner position outside the text");
        if (std::isnan(v) || std::isinf(v))
            Violated("scanner returned a value that is not finite");
        CheckAgainstStrtod(view, static_cast<std::size_t>(start - 1), static_cast<std::size_t>(pos - 1), syntax, v);
        int ipos = start;
        qv::ScanInteger(view, ipos);
        if (ipos < start || ipos > static_cast<int>(view.size()) + 1)
            Violated("integer scanner position outside the text");
        pos = pos > start ? pos : start + 1;
    }
    qv::StrToNumber(view, syntax);
    qv::StrToInteger(view);
}

}  // namespace qvfuzz
