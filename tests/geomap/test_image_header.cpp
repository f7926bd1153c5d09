// Image sizes from BMP and JPEG headers, including truncated and hostile headers.
#include <qvgeo/geomap/image_header.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

namespace qv {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Result = std::tuple<bool, std::int32_t, std::int32_t, TImageFileKind>;

// A 12-byte core header stores 16-bit sizes at 18 and 20, the larger ones 32-bit sizes at 18 and 22.
Bytes Bmp(std::uint32_t dibSize, std::int32_t w, std::int32_t h)
{
    Bytes b(42, 0);
    const auto put = [&b](int at, std::uint32_t v, int len) {
        for (int i = 0; i < len; ++i)
            b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    };
    const int n = dibSize == 12 ? 2 : 4;
    put(0, 'B' | 'M' << 8, 2);
    put(14, dibSize, 4);
    put(18, static_cast<std::uint32_t>(w), n);
    put(18 + n, static_cast<std::uint32_t>(h), n);
    return b;
}

// SOI, an APP0 segment, a 4-byte quantisation table segment, optional fill bytes, a frame header of the
// given marker, then a scan.
Bytes Jpeg(std::uint8_t sof, int w, int h, int fill = 0)
{
    Bytes b = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0,
               0xFF, 0xDB, 0x00, 0x04, 0x00, 0x00};
    b.reserve(b.size() + static_cast<std::size_t>(fill) + 23);
    b.resize(b.size() + static_cast<std::size_t>(fill), 0xFF);
    b.insert(b.end(), {0xFF, sof, 0x00, 0x11, 0x08, static_cast<std::uint8_t>(h >> 8), static_cast<std::uint8_t>(h),
                       static_cast<std::uint8_t>(w >> 8), static_cast<std::uint8_t>(w), 3, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                       0xFF, 0xDA, 0x00, 0x02});
    return b;
}

// Starts from 77 x 88 so that a failure can be seen to leave the size alone.
template <class Source>
Result Read(const Source& src)
{
    std::int32_t w = 77, h = 88;
    TImageFileKind kind = ifkUnknown;
    const bool ok = ReadImageSize(src, w, h, &kind);
    return {ok, w, h, kind};
}

TEST(ImageHeader, ReadsValidHeaders)
{
    const std::pair<Bytes, Result> cases[] = {
        {Bmp(40, 800, -600), {true, 800, 600, ifkBMP}}, {Bmp(124, 1, 3000000), {true, 1, 3000000, ifkBMP}},
        {Bmp(12, 65535, 2), {true, 65535, 2, ifkBMP}},   {Jpeg(0xC2, 3, 65535), {true, 3, 65535, ifkJPEG}},
        {Jpeg(0xC1, 640, 480, 5), {true, 640, 480, ifkJPEG}},
    };
    for (const auto& [bytes, expect] : cases)
        EXPECT_EQ(Read(bytes), expect);
}

TEST(ImageHeader, RejectsMalformedHeadersLeavingTheSize)
{
    Bytes truncatedJpeg = Jpeg(0xC0, 10, 10), badLength = truncatedJpeg, allFill(100000, 0xFF);
    truncatedJpeg.resize(26);
    badLength[5] = 1;  // a segment length below 2
    allFill[1] = 0xD8;
    const Bytes cases[] = {
        {'B', 'M'}, Bmp(40, 0, 10), Bmp(40, 5, 0), Bmp(41 + 2000, 5, 5), Bmp(13, 5, 5),
        Jpeg(0xC0, 0, 10), Jpeg(0xC0, 10, 0), truncatedJpeg, badLength, allFill,
        {0xFF, 0xD8, 0xFF, 0xDA, 0x00, 0x02},  // a scan before any frame header
        {0xFF, 0xD8, 0x12, 0x34},              // not at a marker
        {'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0},
        Jpeg(0xC4, 10, 10),  // a Huffman table, not a frame header: skipped like any segment
    };
    for (const Bytes& b : cases) {
        const auto [ok, w, h, kind] = Read(b);
        EXPECT_EQ(std::tuple(ok, w, h), std::tuple(false, 77, 88));
    }
}

TEST(ImageHeader, ReadsFilesByContent)
{
    const auto dir = std::filesystem::temp_directory_path() / "qvgeo_image_header_test";
    std::filesystem::create_directories(dir);
    const Bytes jpg = Jpeg(0xC0, 321, 123);
    const auto path = (dir / "a.picture").string();
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(jpg.data()), static_cast<std::streamsize>(jpg.size()));
    EXPECT_EQ(Read(path), Result(true, 321, 123, ifkJPEG));  // whatever the extension
    EXPECT_EQ(Read((dir / "missing.bmp").string()), Result(false, 77, 88, ifkUnknown));
    std::filesystem::remove_all(dir);
    EXPECT_EQ(Read(std::string(QVGEO_SOURCE_DIR) + "/data/samples/calib-vienna.bmp"), Result(true, 800, 600, ifkBMP));
}

}  // namespace
}  // namespace qv
