// Files that lie: cut short, claiming more pixels than they hold, or not pictures at all. Each raises
// EXELImageError naming the file, at the open or at the first read, and nothing crashes or hangs.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

const fs::path& Folder()
{
    static const struct TFolder {
        fs::path Path = fs::temp_directory_path() / ("qvgeo-raster-hostile-" + std::to_string(::getpid()));
        TFolder() { fs::create_directories(Path); }
        ~TFolder()
        {
            std::error_code ec;
            fs::remove_all(Path, ec);
        }
    } folder;
    return folder.Path;
}

std::string WriteBytes(const std::string& Leaf, const std::string& Bytes)
{
    const std::string name = (Folder() / Leaf).string();
    std::ofstream(name, std::ios::binary) << Bytes;
    return name;
}

// A W x H RGB picture written by GDAL's Driver, then cut to Keep of its bytes.
std::string Truncated(const std::string& Leaf, const char* Driver, int W, int H, double Keep,
                      const std::vector<const char*>& Options = {})
{
    qv::GdalSession();
    GDALDataset* mem = GetGDALDriverManager()->GetDriverByName("MEM")->Create("", W, H, 3, GDT_Byte, nullptr);
    std::vector<GByte> buf(std::size_t(W) * H * 3);
    for (std::size_t i = 0; i < buf.size(); ++i)
        buf[i] = GByte(i * 7 % 251);
    EXPECT_EQ(mem->RasterIO(GF_Write, 0, 0, W, H, buf.data(), W, H, GDT_Byte, 3, nullptr, 0, 0, 0, nullptr), CE_None);
    CPLStringList options;
    for (const char* o : Options)
        options.AddString(o);
    const std::string name = (Folder() / Leaf).string();
    GDALClose(GetGDALDriverManager()->GetDriverByName(Driver)->CreateCopy(name.c_str(), mem, FALSE, options.List(), nullptr, nullptr));
    GDALClose(mem);
    fs::resize_file(name, static_cast<std::uintmax_t>(static_cast<double>(fs::file_size(name)) * Keep));
    return name;
}

// A little-endian TIFF header and IFD for a W x H grey picture in one uncompressed strip that holds 16
// bytes, followed by those 16 bytes.
std::string LyingTiff(std::uint32_t W, std::uint32_t H)
{
    std::string t("II*\0\x08\0\0\0", 8);
    auto put16 = [&t](std::uint16_t v) { t.append(reinterpret_cast<const char*>(&v), 2); };
    auto put32 = [&t](std::uint32_t v) { t.append(reinterpret_cast<const char*>(&v), 4); };
    auto entry = [&](std::uint16_t Tag, std::uint16_t Type, std::uint32_t Value) {
        put16(Tag), put16(Type), put32(1);
        if (Type == 3)
            put16(static_cast<std::uint16_t>(Value)), put16(0);
        else
            put32(Value);
    };
    put16(9);
    const std::uint32_t data = 8 + 2 + 9 * 12 + 4;
    entry(256, 4, W);
    entry(257, 4, H);
    entry(258, 3, 8);
    entry(259, 3, 1);
    entry(262, 3, 1);
    entry(273, 4, data);
    entry(277, 3, 1);
    entry(278, 4, H);
    entry(279, 4, 16);
    put32(0);
    t.append(16, '\x55');
    return t;
}

// Opening File and reading the corners of its first and last levels must raise EXELImageError naming it.
void ExpectRefused(const std::string& File, const qv::TRasterOpenOptions& Options = {})
{
    SCOPED_TRACE(File);
    try {
        const auto source = qv::OpenRasterSource(File, Options);
        for (const int level : {source->LevelCount() - 1, 0}) {
            const qv::TSize s = source->LevelSize(level);
            (void)source->ReadWindow(level, {0, 0, std::min(s.cx, 64), std::min(s.cy, 64)});
            (void)source->ReadWindow(level, {s.cx - 1, s.cy - 1, s.cx, s.cy});
        }
        ADD_FAILURE() << "read without complaint";
    } catch (const qv::EXELImageError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("\"" + File + "\": ", 0), 0u) << e.what();
    }
}

qv::TRasterOpenOptions InTheTestFolder(bool Build = true, std::int64_t LargePixels = std::int64_t(4096) * 4096)
{
    qv::TRasterOpenOptions o;
    o.CacheFolder = (Folder() / "cache").string();
    o.BuildOverviews = Build;
    o.LargePixels = LargePixels;
    return o;
}

}  // namespace

TEST(RasterHostile, TruncatedFiles)
{
    ExpectRefused(Truncated("cut.tif", "GTiff", 300, 200, 0.5));
    ExpectRefused(Truncated("cut-deflate.tif", "GTiff", 300, 200, 0.6, {"COMPRESS=DEFLATE", "TILED=YES"}));
    ExpectRefused(Truncated("cut.png", "PNG", 300, 200, 0.5));
    ExpectRefused(Truncated("cut.jpg", "JPEG", 300, 200, 0.5));
    // The same JPEG served as a huge scan: its 1/8 decode fails at the open.
    ExpectRefused(Truncated("cut-scan.jpg", "JPEG", 2100, 1100, 0.5), InTheTestFolder(true, 0));
}

// What is written to the process's standard error while it lives (GDAL prints its warnings there unless
// a handler keeps them).
class TStderrCapture {
public:
    TStderrCapture() : FName((Folder() / "stderr.txt").string())
    {
        std::fflush(stderr);
        FSaved = ::dup(2);
        FILE* f = std::fopen(FName.c_str(), "w");
        ::dup2(::fileno(f), 2);
        std::fclose(f);
    }
    ~TStderrCapture() { Restore(); }
    std::string Text()
    {
        Restore();
        std::ifstream in(FName);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

private:
    void Restore()
    {
        if (FSaved < 0)
            return;
        std::fflush(stderr);
        ::dup2(FSaved, 2);
        ::close(FSaved);
        FSaved = -1;
    }
    std::string FName;
    int FSaved = -1;
};

TEST(RasterHostile, TiffClaimingTenGigapixels)
{
    const std::string file = WriteBytes("huge-claim.tif", LyingTiff(100000, 100000));
    TStderrCapture terminal;
    // Refused before reduced levels are built from it: no progress is shown for it.
    qv::TRasterOpenOptions options = InTheTestFolder();
    bool progressed = false;
    options.Progress = [&progressed](std::int64_t, std::int64_t) { return progressed = true; };
    ExpectRefused(file, options);
    EXPECT_FALSE(progressed);
    ExpectRefused(file, InTheTestFolder(false));  // refused at the read of its far corner
    EXPECT_FALSE(fs::exists(file + ".ovr"));
    // Asked for all of it at once: a bitmap of 40 GB cannot be had, and that is said, not crashed on
    // (here and around a picture that is all there).
    const auto source = qv::OpenRasterSource(file, InTheTestFolder(false));
    EXPECT_THROW((void)qv::ReadWholeLevel(*source), qv::EXELImageError);
    const auto small = qv::OpenRasterSource(Truncated("whole.tif", "GTiff", 30, 20, 1.0));
    EXPECT_THROW((void)small->ReadWindow(0, {-100000, -100000, 100000, 100000}), qv::EXELImageError);
    EXPECT_EQ(terminal.Text(), "");  // libtiff's complaints went to the exception, not the terminal
}

TEST(RasterHostile, NotPicturesAtAll)
{
    ExpectRefused(WriteBytes("text.png", "this is not a picture\n"));
    ExpectRefused(WriteBytes("empty.tif", ""));
    ExpectRefused(WriteBytes("header-only.jpg", std::string("\xFF\xD8\xFF\xE0", 4)));
    ExpectRefused((Folder() / "missing.webp").string());
}
