// A JPEG served as a huge scan (every JPEG is one here: the size limit is set to 0): the levels reduced by
// 8 and more from the 1/8 decode at open, the others from a tiled copy in the cache folder made at the
// first read that needs one, reused by later opens, never left half-written.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <gdal_priv.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

class HugeJpeg : public ::testing::Test {
protected:
    void SetUp() override
    {
        Dir = fs::temp_directory_path() / ("qvgeo-huge-jpeg-" + std::to_string(::getpid()));
        fs::remove_all(Dir);
        fs::create_directories(Dir);
        // 4200 x 1100: levels by 2, 4, 8 and 16 (263 x 69), the last one at least 256 pixels long.
        qv::TBitmap b(4200, 1100);
        for (int y = 0; y < 1100; ++y)
            for (int x = 0; x < 4200; ++x)
                b.ScanLine(y)[x] = 0xFF000000u | std::uint32_t(x / 17 % 256) << 16 | std::uint32_t(y / 5 % 256) << 8 |
                                   std::uint32_t(128 + 100 * std::sin(x * 0.01 + y * 0.02));
        File = (Dir / "scan.jpg").string();
        qv::SaveJPEG(b, File, 90);
        ASSERT_TRUE(qv::LoadJPEG(Full, File));
        ASSERT_TRUE(qv::LoadJPEG(Eighth, File, {}, 8));
    }
    void TearDown() override { fs::remove_all(Dir); }

    qv::TRasterOpenOptions Options(std::int64_t* Calls = nullptr, bool Cancel = false)
    {
        qv::TRasterOpenOptions o;
        o.CacheFolder = (Dir / "cache").string();
        o.LargePixels = 0;
        o.Progress = [Calls, Cancel](std::int64_t Done, std::int64_t Total) {
            EXPECT_LE(Done, Total);
            if (Calls)
                ++*Calls;
            return !Cancel;
        };
        return o;
    }

    std::size_t CacheFiles() const
    {
        std::size_t n = 0;
        if (fs::exists(Dir / "cache"))
            for ([[maybe_unused]] const auto& e : fs::directory_iterator(Dir / "cache"))
                ++n;
        return n;
    }

    fs::path Dir;
    std::string File;
    qv::TBitmap Full, Eighth;
};

// Largest and mean channel difference between Window of Got and the same place of Want.
std::pair<int, double> Difference(const qv::TBitmap& Got, const qv::TBitmap& Want, int Left, int Top)
{
    int worst = 0;
    double sum = 0;
    for (int y = 0; y < Got.Height(); ++y)
        for (int x = 0; x < Got.Width(); ++x)
            for (int s = 0; s < 24; s += 8) {
                const int d = std::abs(int(Got.ScanLine(y)[x] >> s & 255) - int(Want.ScanLine(Top + y)[Left + x] >> s & 255));
                worst = std::max(worst, d);
                sum += d;
            }
    return {worst, sum / (3.0 * Got.Width() * Got.Height())};
}

}  // namespace

TEST_F(HugeJpeg, OpenGivesTheEighthAtOnceAndTheTiledCopyTheRest)
{
    std::int64_t calls = 0;
    const auto source = qv::OpenRasterSource(File, Options(&calls));
    EXPECT_GT(calls, 0);  // the 1/8 decode reports its rows
    EXPECT_EQ(source->FormatName(), "JPEG");
    ASSERT_EQ(source->LevelCount(), 5);
    const int widths[5] = {4200, 2100, 1050, 525, 263}, heights[5] = {1100, 550, 275, 138, 69};
    for (int l = 0; l < 5; ++l) {
        EXPECT_EQ(source->LevelSize(l).cx, widths[l]);
        EXPECT_EQ(source->LevelSize(l).cy, heights[l]);
    }
    // Level 3 is the scaled decode itself, and reading it writes nothing.
    const qv::TBitmap eighth = qv::ReadWholeLevel(*source, 3);
    EXPECT_EQ(Difference(eighth, Eighth, 0, 0).first, 0);
    // Level 4 halves it: each pixel the rounded mean of a 2 x 2 block, of the 1 x 2 blocks at the odd
    // right edge (525 columns).
    const qv::TBitmap sixteenth = qv::ReadWholeLevel(*source, 4);
    for (int y = 0; y < 69; ++y)
        for (int x = 0; x < 263; ++x)
            for (int s = 0; s < 24; s += 8) {
                int sum = 0, n = 0;
                for (int dy = 0; dy < 2; ++dy)
                    for (int dx = 0; dx < 2 && 2 * x + dx < 525; ++dx, ++n)
                        sum += int(Eighth.ScanLine(2 * y + dy)[2 * x + dx] >> s & 255);
                ASSERT_EQ(int(sixteenth.ScanLine(y)[x] >> s & 255), (sum + n / 2) / n) << x << "," << y;
            }
    EXPECT_EQ(CacheFiles(), 0u);

    // The first full-resolution read makes the tiled copy. Its tiles are the decoded picture coded again
    // at quality 90: a second generation of JPEG loss, a few levels on average and tens at most. The
    // picture's last 4 columns and rows share their 16-pixel coding blocks with the padding of the
    // partial edge tiles and ring more (up to about 80 levels at the corner): only their mean counts.
    calls = 0;
    const qv::TBitmap window = source->ReadWindow(0, {3600, 700, 4300, 1200});  // past the right and bottom
    EXPECT_GT(calls, 0);
    EXPECT_EQ(CacheFiles(), 1u);
    ASSERT_EQ(window.Width(), 700);
    const qv::TBitmap inside(window.Image().copy(0, 0, 596, 396));
    EXPECT_LE(Difference(inside, Full, 3600, 700).first, 40);
    const qv::TBitmap all(window.Image().copy(0, 0, 600, 400));
    EXPECT_LE(Difference(all, Full, 3600, 700).second, 2.0);
    EXPECT_EQ(window.ScanLine(450)[650], 0xFFFFFFFFu);  // beyond the picture: white
    EXPECT_EQ(window.ScanLine(10)[650], 0xFFFFFFFFu);
}

TEST_F(HugeJpeg, LaterOpensUseTheTiledCopyWithoutDecodingAgain)
{
    {
        const auto first = qv::OpenRasterSource(File, Options());
        (void)first->ReadWindow(1, {0, 0, 10, 10});
    }
    std::int64_t calls = 0;
    const auto source = qv::OpenRasterSource(File, Options(&calls));
    const qv::TBitmap level1 = source->ReadWindow(1, {100, 100, 400, 300});
    const qv::TBitmap level3 = qv::ReadWholeLevel(*source, 3);
    EXPECT_EQ(calls, 0);
    // Level 1 against the full decode reduced by StretchRect's averaging; level 3 against the 1/8 decode.
    qv::TBitmap half(2100, 550);
    half.StretchRect({0, 0, 2100, 550}, Full, {0, 0, 4200, 1100}, qv::smHalftone);
    EXPECT_LE(Difference(level1, half, 100, 100).second, 2.5);
    EXPECT_LE(Difference(level3, Eighth, 0, 0).second, 2.5);
}

TEST_F(HugeJpeg, TwoSourcesOfOneFileMakeOneCopy)
{
    std::int64_t calls = 0;
    const auto first = qv::OpenRasterSource(File, Options());
    const auto second = qv::OpenRasterSource(File, Options(&calls));
    (void)first->ReadWindow(0, {0, 0, 10, 10});
    calls = 0;
    (void)second->ReadWindow(0, {0, 0, 10, 10});
    EXPECT_EQ(calls, 0);  // found the first one's copy
}

TEST_F(HugeJpeg, CancelledCopyLeavesNothingAndCanBeMadeLater)
{
    const auto cancelling = qv::OpenRasterSource(File, Options(nullptr, false));
    qv::TRasterOpenOptions cancel = Options(nullptr, true);
    // The open itself cancels in the 1/8 decode.
    try {
        qv::OpenRasterSource(File, cancel);
        ADD_FAILURE() << "not cancelled";
    } catch (const qv::EXELImageError& e) {
        EXPECT_EQ(std::string(e.what()), "\"" + File + "\": cancelled");
    }
    // A source opened without cancelling whose copy is then cancelled, while copying the tiles (the
    // first 750 of 1000) and while reducing them.
    for (const std::int64_t at : {100, 800}) {
        SCOPED_TRACE(at);
        bool open = true;
        qv::TRasterOpenOptions late = Options();
        late.Progress = [&open, at](std::int64_t Done, std::int64_t) { return open || Done < at; };
        const auto source = qv::OpenRasterSource(File, late);
        open = false;
        try {
            (void)source->ReadWindow(0, {0, 0, 10, 10});
            ADD_FAILURE() << "not cancelled";
        } catch (const qv::EXELImageError& e) {
            EXPECT_EQ(std::string(e.what()), "\"" + File + "\": cancelled");
        }
        EXPECT_EQ(CacheFiles(), 0u);
        open = true;
        EXPECT_EQ(source->ReadWindow(0, {0, 0, 10, 10}).Width(), 10);
        EXPECT_EQ(CacheFiles(), 1u);
        fs::remove_all(Dir / "cache");
    }
    (void)cancelling;
}

TEST_F(HugeJpeg, WithoutSideFilesFullResolutionComesFromTheFileItself)
{
    qv::TRasterOpenOptions off = Options();
    off.BuildOverviews = false;
    const auto source = qv::OpenRasterSource(File, off);
    ASSERT_EQ(source->LevelCount(), 5);
    const qv::TBitmap window = source->ReadWindow(0, {1000, 500, 1300, 700});
    // The same decoder with the same settings: the same pixels, give or take a rounding.
    EXPECT_LE(Difference(window, Full, 1000, 500).first, 1);
    EXPECT_EQ(CacheFiles(), 0u);
}

// Grey and CMYK scans (libjpeg's scaled decode cannot turn CMYK into RGB; GDAL's can) through every
// level: one flat colour, so that JPEG loss stays within a level or two of it.
TEST_F(HugeJpeg, GreyAndCmykScans)
{
    qv::GdalSession();
    const struct {
        const char* Leaf;
        std::vector<int> Values;  // one per band
        std::uint32_t Want;
    } cases[] = {
        {"grey.jpg", {77}, 0xFF4D4D4Du},
        // Adobe's inverted inks, as GDAL reads them: red = C K / 255 and so on.
        {"cmyk.jpg", {250, 100, 160, 200}, 0xFFC44E7Du},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Leaf);
        const int bands = static_cast<int>(c.Values.size());
        GDALDataset* mem = GetGDALDriverManager()->GetDriverByName("MEM")->Create("", 2100, 1100, bands, GDT_Byte, nullptr);
        for (int b = 0; b < bands; ++b)
            mem->GetRasterBand(b + 1)->Fill(c.Values[std::size_t(b)]);
        const std::string name = (Dir / c.Leaf).string();
        GDALClose(GetGDALDriverManager()->GetDriverByName("JPEG")->CreateCopy(name.c_str(), mem, FALSE, nullptr, nullptr, nullptr));
        GDALClose(mem);
        const auto source = qv::OpenRasterSource(name, Options());
        ASSERT_EQ(source->LevelCount(), 4);
        for (const int level : {3, 0, 1}) {
            const std::uint32_t got = source->ReadWindow(level, {100, 100, 101, 101}).ScanLine(0)[0];
            for (int s = 0; s < 24; s += 8)
                EXPECT_NEAR(int(got >> s & 255), int(c.Want >> s & 255), 2) << "level " << level << std::hex << " " << got;
        }
    }
}

// Resident memory stays bounded while huge pictures are read: GDAL's block cache, 5% of the machine's
// memory by default, is held to 256 MB unless the user chose its size.
TEST(GdalBlockCache, HeldTo256MegabytesUnlessChosen)
{
    if (std::getenv("GDAL_CACHEMAX"))
        GTEST_SKIP() << "GDAL_CACHEMAX is set";
    qv::GdalSession();
    EXPECT_LE(GDALGetCacheMax64(), GIntBig(256) << 20);
}
