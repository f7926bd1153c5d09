// Reduced levels built on first open: into "<file>.ovr" beside a picture in a writable folder, into the
// cache folder beside a read-only one, never half-written when cancelled, reused by later opens; and the
// huge-JPEG path: levels reduced by 8 and more from the 1/8 decode at open, the others from a tiled copy
// made at the first read that needs one.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace {

// A fresh folder per test, removed afterwards (made writable again first: a test may lock it).
class RasterOverviews : public ::testing::Test {
protected:
    void SetUp() override
    {
        Dir = fs::temp_directory_path() / ("qvgeo-raster-overviews-" + std::to_string(::getpid()));
        fs::remove_all(Dir);
        fs::create_directories(Dir / "cache");
        fs::permissions(Dir, fs::perms::all);  // the unprivileged user below writes here
        fs::permissions(Dir / "cache", fs::perms::all);
    }
    void TearDown() override
    {
        std::error_code ec;
        for (const auto& e : fs::recursive_directory_iterator(Dir, ec))
            if (e.is_directory())
                fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(Dir, ec);
    }

    // Relative names of every file under Folder.
    std::set<std::string> Files(const fs::path& Folder) const
    {
        std::set<std::string> out;
        for (const auto& e : fs::recursive_directory_iterator(Folder))
            if (e.is_regular_file())
                out.insert(fs::relative(e.path(), Folder).string());
        return out;
    }

    qv::TRasterOpenOptions Options(std::vector<std::int64_t>* Calls = nullptr, std::int64_t CancelAt = -1)
    {
        qv::TRasterOpenOptions o;
        o.CacheFolder = (Dir / "cache").string();
        o.LargePixels = 0;
        o.Progress = [Calls, CancelAt](std::int64_t Done, std::int64_t Total) {
            EXPECT_LE(Done, Total);
            if (Calls)
                Calls->push_back(Done);
            return CancelAt < 0 || Done < CancelAt;
        };
        return o;
    }

    fs::path Dir;
};

// Constant on 2 x 2 blocks, so that level 1 (AVERAGE by 2) is exact: a busy one, and a smooth one for
// JPEG tiles (0 .. 178 across the picture).
int Block(int X, int Y) { return ((X / 2) * 3 + (Y / 2) * 5) & 255; }
int SmoothBlock(int X, int Y) { return (X / 2) * 90 / 550 + (Y / 2) * 90 / 300; }
using TPattern = int (*)(int, int);

// A 1100 x 600 GeoTIFF (grey, or RGB with channels P, P + 30, P + 60) without reduced levels: levels
// by 2 (550 x 300) and 4 (275 x 150) are due.
std::string WriteGrey(const fs::path& Name, int Bands = 1, TPattern P = Block)
{
    qv::GdalSession();
    CPLStringList options;
    options.SetNameValue("COMPRESS", "DEFLATE");
    GDALDataset* ds = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(Name.c_str(), 1100, 600, Bands, GDT_Byte, options.List());
    std::vector<GByte> buf(1100 * 600);
    for (int b = 0; b < Bands; ++b) {
        for (int y = 0; y < 600; ++y)
            for (int x = 0; x < 1100; ++x)
                buf[std::size_t(y) * 1100 + x] = GByte(P(x, y) + 30 * b);
        EXPECT_EQ(ds->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, 1100, 600, buf.data(), 1100, 600, GDT_Byte, 0, 0, nullptr), CE_None);
    }
    GDALClose(ds);
    return Name.string();
}

// Level 1 against the picture's 2 x 2 blocks: exact, or for RGB levels (JPEG tiles) within Tolerance.
void ExpectLevelOne(const qv::TImageSource& Source, int Tolerance = 0, TPattern P = Block)
{
    ASSERT_EQ(Source.LevelCount(), 3);
    EXPECT_EQ(Source.LevelSize(1).cx, 550);
    EXPECT_EQ(Source.LevelSize(1).cy, 300);
    EXPECT_EQ(Source.LevelSize(2).cx, 275);
    EXPECT_EQ(Source.LevelSize(2).cy, 150);
    const qv::TBitmap b = qv::ReadWholeLevel(Source, 1);
    // JPEG tiles: the last 16 columns and rows share their coding blocks with the zero padding of the
    // partial edge tiles and ring more; they are left out.
    const int edge = Tolerance ? 16 : 0;
    for (int y = 0; y < 300 - edge; ++y)
        for (int x = 0; x < 550 - edge; ++x)
            for (int c = 0; c < (Tolerance ? 3 : 1); ++c)
                ASSERT_NEAR(int(b.ScanLine(y)[x] >> (Tolerance ? 16 - 8 * c : 0) & 255),
                            P(2 * x, 2 * y) + 30 * c, Tolerance) << x << "," << y;
}

struct TClose {
    void operator()(GDALDataset* D) const { GDALClose(D); }
};
using TDataset = std::unique_ptr<GDALDataset, TClose>;

// Root may write anywhere: a read-only folder is only read-only to someone else.
struct TUnprivileged {
    bool Root = ::geteuid() == 0;
    TUnprivileged()
    {
        if (Root) {
            EXPECT_EQ(::seteuid(65534), 0);
        }
    }
    ~TUnprivileged()
    {
        if (Root)
            (void)::seteuid(0);
    }
};

}  // namespace

TEST_F(RasterOverviews, RgbLevelsAreJpegTilesCloseToTheAverages)
{
    // A smooth picture: JPEG at quality 90 with its colour halved keeps it within a few levels (4 bounds
    // the worst; a swapped channel is off by 30 or more). Places are checked exactly by the grey cases.
    const std::string pic = WriteGrey(Dir / "rgb.tif", 3, SmoothBlock);
    ExpectLevelOne(*qv::OpenRasterSource(pic, Options()), 4, SmoothBlock);
    TDataset ovr(GDALDataset::Open((pic + ".ovr").c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(ovr);
    EXPECT_STREQ(ovr->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), "YCbCr JPEG");
}

TEST_F(RasterOverviews, BuiltBesideAPictureInAWritableFolderAndFoundThereLater)
{
    const std::string pic = WriteGrey(Dir / "pic.tif");
    std::vector<std::int64_t> calls;
    ExpectLevelOne(*qv::OpenRasterSource(pic, Options(&calls)));
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), 1000);
    EXPECT_TRUE(std::is_sorted(calls.begin(), calls.end()));
    EXPECT_EQ(Files(Dir), (std::set<std::string>{"pic.tif", "pic.tif.ovr"}));
    const auto stamp = fs::last_write_time(pic + ".ovr");
    calls.clear();
    ExpectLevelOne(*qv::OpenRasterSource(pic, Options(&calls)));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(fs::last_write_time(pic + ".ovr"), stamp);
}

TEST_F(RasterOverviews, ReadOnlyFolderSendsThemToTheCacheKeyedByTheFile)
{
    fs::create_directories(Dir / "ro");
    const std::string pic = WriteGrey(Dir / "ro" / "pic.tif");
    fs::permissions(Dir / "ro", fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                    fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    std::vector<std::int64_t> calls;
    {
        TUnprivileged user;
        ExpectLevelOne(*qv::OpenRasterSource(pic, Options(&calls)));
    }
    EXPECT_FALSE(calls.empty());
    EXPECT_EQ(Files(Dir / "ro"), (std::set<std::string>{"pic.tif"}));
    const std::set<std::string> cached = Files(Dir / "cache");
    ASSERT_EQ(cached.size(), 1u);
    const std::string name = *cached.begin();
    EXPECT_EQ(name.rfind("pic.tif.", 0), 0u) << name;
    EXPECT_EQ(name.substr(name.size() - 4), ".ovr") << name;

    calls.clear();
    {
        TUnprivileged user;
        ExpectLevelOne(*qv::OpenRasterSource(pic, Options(&calls)));
    }
    EXPECT_TRUE(calls.empty());  // found in the cache

    // A changed picture is a new key: its levels are built again, the old file is not read.
    fs::last_write_time(pic, fs::last_write_time(pic) + std::chrono::seconds(5));
    {
        TUnprivileged user;
        ExpectLevelOne(*qv::OpenRasterSource(pic, Options(&calls)));
    }
    EXPECT_FALSE(calls.empty());
    EXPECT_EQ(Files(Dir / "cache").size(), 2u);
}

TEST_F(RasterOverviews, CancelLeavesNoSideFileAndAThrowingCallbackPassesThrough)
{
    fs::create_directories(Dir / "ro");
    const std::string pic = WriteGrey(Dir / "pic.tif");
    const std::string locked = WriteGrey(Dir / "ro" / "pic.tif");
    fs::permissions(Dir / "ro", fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove);
    for (const std::string& name : {pic, locked}) {
        SCOPED_TRACE(name);
        TUnprivileged user;
        try {
            qv::OpenRasterSource(name, Options(nullptr, 300));
            ADD_FAILURE() << "not cancelled";
        } catch (const qv::EXELImageError& e) {
            EXPECT_EQ(std::string(e.what()), "\"" + name + "\": cancelled");
        }
        qv::TRasterOpenOptions throwing = Options();
        throwing.Progress = [](std::int64_t, std::int64_t) -> bool { throw std::logic_error("stop"); };
        EXPECT_THROW(qv::OpenRasterSource(name, throwing), std::logic_error);
    }
    EXPECT_EQ(Files(Dir), (std::set<std::string>{"pic.tif", "ro/pic.tif"}));
    // And nothing stands in the way of the next open.
    ExpectLevelOne(*qv::OpenRasterSource(pic, Options()));
}

TEST_F(RasterOverviews, NotBuiltWhenSwitchedOffOrForASmallPicture)
{
    const std::string pic = WriteGrey(Dir / "pic.tif");
    qv::TRasterOpenOptions off = Options();
    off.BuildOverviews = false;
    EXPECT_EQ(qv::OpenRasterSource(pic, off)->LevelCount(), 1);
    qv::TRasterOpenOptions small = Options();
    small.LargePixels = 1100 * 600;  // not more than this: small
    EXPECT_EQ(qv::OpenRasterSource(pic, small)->LevelCount(), 1);
    EXPECT_EQ(Files(Dir), (std::set<std::string>{"pic.tif"}));
}

// A large PNG is one compressed stream: it gets a tiled copy in the cache folder on first open, exact
// (lossless tiles), which later opens find; nothing is written beside it.
TEST_F(RasterOverviews, LargePngReadThroughAnExactTiledCopy)
{
    const std::string tif = WriteGrey(Dir / "grey.tif");
    const std::string png = (Dir / "pic.png").string();
    {
        GDALDataset* src = GDALDataset::Open(tif.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY);
        GDALClose(GetGDALDriverManager()->GetDriverByName("PNG")->CreateCopy(png.c_str(), src, FALSE, nullptr, nullptr, nullptr));
        GDALClose(src);
        fs::remove(tif);
    }
    std::vector<std::int64_t> calls;
    {
        const auto source = qv::OpenRasterSource(png, Options(&calls));
        EXPECT_EQ(source->FormatName(), "PNG");
        ExpectLevelOne(*source);
        const qv::TBitmap b = source->ReadWindow(0, {1000, 500, 1100, 600});
        for (int y = 0; y < 100; ++y)
            for (int x = 0; x < 100; ++x)
                ASSERT_EQ(b.ScanLine(y)[x] & 255, std::uint32_t(Block(1000 + x, 500 + y)));
    }
    EXPECT_FALSE(calls.empty());
    EXPECT_EQ(Files(Dir / "cache").size(), 1u);
    EXPECT_EQ(Files(Dir).count("pic.png.ovr"), 0u);
    calls.clear();
    ExpectLevelOne(*qv::OpenRasterSource(png, Options(&calls)));
    EXPECT_TRUE(calls.empty());
    try {
        fs::remove_all(Dir / "cache");
        qv::OpenRasterSource(png, Options(nullptr, 500));
        ADD_FAILURE() << "not cancelled";
    } catch (const qv::EXELImageError& e) {
        EXPECT_EQ(std::string(e.what()), "\"" + png + "\": cancelled");
    }
    EXPECT_EQ(Files(Dir / "cache").size(), 0u);
}

// No folder to write to at all: the picture is still read, at its own size only (the JPEG scan decodes
// its full-resolution windows from the file itself).
TEST_F(RasterOverviews, NowhereToWriteStillReads)
{
    fs::create_directories(Dir / "ro");
    const std::string pic = WriteGrey(Dir / "ro" / "pic.tif");
    qv::TBitmap scan(2100, 1100);
    scan.Fill(0x336699);
    const std::string jpg = (Dir / "ro" / "scan.jpg").string();
    qv::SaveJPEG(scan, jpg, 90);
    qv::TRasterOpenOptions options = Options();
    options.CacheFolder = (Dir / "ro" / "cache").string();
    fs::create_directories(options.CacheFolder);
    for (const fs::path& d : {Dir / "ro", Dir / "ro" / "cache"})
        fs::permissions(d, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write, fs::perm_options::remove);
    TUnprivileged user;
    const auto grey = qv::OpenRasterSource(pic, options);
    EXPECT_EQ(grey->LevelCount(), 1);
    EXPECT_EQ(grey->ReadWindow(0, {1098, 598, 1100, 600}).ScanLine(1)[1] & 255, std::uint32_t(Block(1099, 599)));
    const auto jpeg = qv::OpenRasterSource(jpg, options);
    ASSERT_EQ(jpeg->LevelCount(), 4);
    const std::uint32_t p = jpeg->ReadWindow(0, {2000, 1000, 2001, 1001}).ScanLine(0)[0];
    EXPECT_NEAR(int(p >> 16 & 255), 0x99, 2);  // TColor 0x336699: red 0x99, green 0x66, blue 0x33
    EXPECT_NEAR(int(p & 255), 0x33, 2);
    EXPECT_EQ(Files(Dir / "ro"), (std::set<std::string>{"pic.tif", "scan.jpg"}));
}
