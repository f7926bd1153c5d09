// Helpers of the landmark exchange tests: a scratch folder per test, small text files, and running the
// GDAL command-line tools as peers.
#pragma once

#include <qvgeo/geomap/landmark_types.h>
#include <qvgeo/support/date_time.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

namespace lmtest {

namespace fs = std::filesystem;

class TScratch {
public:
    TScratch()
    {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string leaf = "qvgeo-lmx-" + std::string(info->test_suite_name()) + "-" + info->name() + "-" +
                           std::to_string(static_cast<long>(::getpid()));
        std::replace(leaf.begin(), leaf.end(), '/', '_');  // parameterised tests have a '/' in their names
        FDir = fs::temp_directory_path() / leaf;
        fs::remove_all(FDir);
        fs::create_directories(FDir);
    }
    ~TScratch()
    {
        std::error_code ec;
        fs::remove_all(FDir, ec);
    }
    TScratch(const TScratch&) = delete;
    TScratch& operator=(const TScratch&) = delete;

    std::string Path(const std::string& Name) const { return (FDir / Name).string(); }
    std::string Write(const std::string& Name, const std::string& Text) const
    {
        std::ofstream(Path(Name), std::ios::binary) << Text;
        return Path(Name);
    }

private:
    fs::path FDir;
};

// A date-time from its parts (days since 1899-12-30), failing the test when the parts are no date.
inline double Date(int y, int mo, int d, int h, int mi, int s)
{
    double t = 0;
    EXPECT_TRUE(qv::TryEncodeDateTime(y, mo, d, h, mi, s, t));
    return t;
}

inline std::string ReadAll(const std::string& File)
{
    std::ifstream in(File, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Runs a shell command with its standard output and error in a file; returns the exit status and puts the
// output in Out.
inline int Run(const std::string& Command, const std::string& OutFile, std::string& Out)
{
    const int rc = std::system((Command + " > '" + OutFile + "' 2>&1").c_str());
    Out = ReadAll(OutFile);
    return rc;
}

// The names of the fields in which two landmarks differ, with both values; empty when equal.
inline std::string LandMarkDiff(const qv::TLandMark& A, const qv::TLandMark& B)
{
    std::ostringstream d;
    d.precision(17);
    auto field = [&](const char* Name, const auto& X, const auto& Y) {
        if (!(X == Y))
            d << Name << ": " << X << " / " << Y << "; ";
    };
    field("Latitude", A.Latitude, B.Latitude);
    field("Longitude", A.Longitude, B.Longitude);
    field("Altitude", A.Altitude, B.Altitude);
    field("ClassFlag", int(A.ClassFlag), int(B.ClassFlag));
    field("Tag", A.Tag, B.Tag);
    field("Kind", int(A.SymbolProps.Kind), int(B.SymbolProps.Kind));
    field("Size", A.SymbolProps.Size, B.SymbolProps.Size);
    field("FGColor", A.SymbolProps.FGColor, B.SymbolProps.FGColor);
    field("BGColor", A.SymbolProps.BGColor, B.SymbolProps.BGColor);
    field("Transparent", A.SymbolProps.Transparent, B.SymbolProps.Transparent);
    field("Direction", A.SymbolProps.Direction, B.SymbolProps.Direction);
    field("Length", A.SymbolProps.Length, B.SymbolProps.Length);
    const auto &a = A.Caption, &b = B.Caption;
    field("Caption.Text", a.Text, b.Text);
    field("Caption.Size", a.Size, b.Size);
    field("Caption.FontName", a.FontName, b.FontName);
    field("Caption.FontStyles", a.FontStyles == b.FontStyles, true);
    field("Caption.FGColor", a.FGColor, b.FGColor);
    field("Caption.BGColor", a.BGColor, b.BGColor);
    field("Caption.Transparent", a.Transparent, b.Transparent);
    field("Caption.dx", a.dx, b.dx);
    field("Caption.dy", a.dy, b.dy);
    field("Caption.Direction", a.Direction, b.Direction);
    field("Caption.HAlignment", int(a.HAlignment), int(b.HAlignment));
    field("Caption.VAlignment", int(a.VAlignment), int(b.VAlignment));
    field("Identifier", A.Identifier, B.Identifier);
    field("Time", A.Time, B.Time);
    return d.str();
}

}  // namespace lmtest
