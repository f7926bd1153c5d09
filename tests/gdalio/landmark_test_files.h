// Helpers of the landmark exchange tests: a scratch folder per test, small text files, and running the
// GDAL command-line tools as peers.
#pragma once

#include <qvgeo/geomap/landmark_types.h>

#include <gtest/gtest.h>

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
        FDir = fs::temp_directory_path() /
               ("qvgeo-lmx-" + std::string(info->test_suite_name()) + "-" + info->name() + "-" +
                std::to_string(static_cast<long>(::getpid())));
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

}  // namespace lmtest
