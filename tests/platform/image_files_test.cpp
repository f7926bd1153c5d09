// Image files: round trips through the library's own writers, the progress callback, and hostile input
// (truncated and corrupted JPEGs, text files with image names) that must raise a clear error.
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <tuple>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using namespace qv;
namespace fs = std::filesystem;

namespace {

class ImageFiles : public ::testing::Test {
protected:
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_images_" + std::to_string(::getpid()));
    void SetUp() override { fs::create_directories(Dir); }
    void TearDown() override { fs::remove_all(Dir); }
    std::string File(const char* Name) const { return (Dir / Name).string(); }

    static TBitmap Picture(std::int32_t W, std::int32_t H)
    {
        TBitmap b(W, H);
        for (std::int32_t y = 0; y < H; ++y)
            for (std::int32_t x = 0; x < W; ++x)
                b.SetPixel(x, y, static_cast<TColor>((x * 255 / W) | (y * 255 / H) << 8 | ((x + y) % 64 * 4) << 16));
        return b;
    }
    static std::vector<char> Bytes(const std::string& F)
    {
        std::ifstream in(F, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void Write(const std::string& F, const std::vector<char>& B)
    {
        std::ofstream(F, std::ios::binary).write(B.data(), static_cast<std::streamsize>(B.size()));
    }
    static std::string ErrorOf(const std::function<void()>& Load)
    {
        try {
            Load();
        } catch (const EXELImageError& e) {
            return e.what();
        }
        return "";
    }
};

}  // namespace

TEST_F(ImageFiles, BmpAndPngRoundTripExactly)
{
    const TBitmap pic = Picture(37, 21);
    for (const char* name : {"a.bmp", "a.png"}) {
        SaveImageFile(pic, File(name));
        TBitmap back;
        ASSERT_TRUE(LoadImageFile(back, File(name)));
        EXPECT_EQ(back.Image(), pic.Image()) << name;
    }
    EXPECT_EQ(ImageFormatOfContent(File("a.bmp")), ifBMP);
    EXPECT_EQ(ImageFormatOfContent(File("a.png")), ifPNG);
}

TEST_F(ImageFiles, JpegRoundTripKeepsSizeAndColoursScaledDecodeDividesIt)
{
    const TBitmap pic = Picture(65, 49);
    SaveJPEG(pic, File("a.jpg"), 95);
    EXPECT_EQ(ImageFormatOfContent(File("a.jpg")), ifJPEG);
    TBitmap back;
    ASSERT_TRUE(LoadJPEG(back, File("a.jpg")));
    ASSERT_EQ(back.Width(), 65);
    ASSERT_EQ(back.Height(), 49);
    double err = 0;
    for (std::int32_t y = 0; y < 49; ++y)
        for (std::int32_t x = 0; x < 65; ++x)
            for (int shift : {0, 8, 16})
                err += std::abs(int(back.Pixel(x, y) >> shift & 0xff) - int(pic.Pixel(x, y) >> shift & 0xff));
    EXPECT_LT(err / (65 * 49 * 3), 3.0);
    EXPECT_EQ(back.ScanLine(10)[10] >> 24, 0xffu);  // opaque RGB32 words
    for (auto [denom, w, h] : {std::tuple{2, 33, 25}, {8, 9, 7}, {3, 65, 49}}) {
        ASSERT_TRUE(LoadJPEG(back, File("a.jpg"), {}, denom));
        EXPECT_EQ(TSize({back.Width(), back.Height()}), TSize({w, h})) << denom;
    }
}

TEST_F(ImageFiles, ProgressCountsRowsAndCanCancel)
{
    SaveJPEG(Picture(40, 100), File("p.jpg"));
    std::vector<std::int32_t> done;
    TBitmap b;
    ASSERT_TRUE(LoadJPEG(b, File("p.jpg"), [&](std::int32_t d, std::int32_t t) {
        EXPECT_EQ(t, 100);
        done.push_back(d);
        return true;
    }));
    ASSERT_GE(done.size(), 2u);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_EQ(done.back(), 100);
    EXPECT_FALSE(LoadJPEG(b, File("p.jpg"), [](std::int32_t, std::int32_t) { return false; }));
    EXPECT_TRUE(b.Empty());
    // An exception from the callback passes through, and the decoder is released (checked under ASan).
    EXPECT_THROW(LoadJPEG(b, File("p.jpg"), [](std::int32_t, std::int32_t) -> bool { throw std::logic_error("stop"); }),
                 std::logic_error);
}

TEST_F(ImageFiles, BadFilesRaiseAnErrorNamingTheFile)
{
    SaveJPEG(Picture(64, 64), File("good.jpg"));
    const std::vector<char> good = Bytes(File("good.jpg"));
    Write(File("cut.jpg"), std::vector<char>(good.begin(), good.begin() + static_cast<long>(good.size() / 2)));
    for (const char* name : {"text.jpg", "text.bmp", "text.dat"})
        Write(File(name), {'h', 'e', 'l', 'l', 'o', '\n'});
    TBitmap b;
    struct Case { std::function<void()> Load; std::string Message; };
    const Case cases[] = {
        {[&] { LoadJPEG(b, File("cut.jpg")); }, "\"" + File("cut.jpg") + "\": corrupt JPEG data: "},
        {[&] { LoadJPEG(b, File("text.jpg")); }, "\"" + File("text.jpg") + "\": not a JPEG file"},
        {[&] { LoadImageFile(b, File("text.jpg")); }, "\"" + File("text.jpg") + "\": not a JPEG file"},
        {[&] { LoadBMP(b, File("text.bmp")); }, "\"" + File("text.bmp") + "\": not a BMP file"},
        {[&] { LoadJPEG(b, File("good.bmp")); }, "\"" + File("good.bmp") + "\": cannot open: "},
        {[&] { LoadImageFile(b, File("text.dat")); }, "\"" + File("text.dat") + "\": not an image file (BMP, JPEG or PNG)"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ErrorOf(c.Load).substr(0, c.Message.size()), c.Message);
    // Damage anywhere in the file: an error or an image of the right size, never a crash.
    for (std::size_t at = 2; at < good.size(); at += 97) {
        std::vector<char> bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x5A);
        Write(File("bad.jpg"), bad);
        if (ErrorOf([&] { LoadJPEG(b, File("bad.jpg")); }).empty()) {
            EXPECT_EQ(b.Width(), 64) << at;
        }
    }
}
