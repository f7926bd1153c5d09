// ShortestText: the shortest decimal text that reads back as the same double, which messages and the
// exchange formats quote.
#include <qvgeo/support/text.h>

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>
#include <cstring>

TEST(ShortestText, ReferenceTexts)
{
    const struct {
        double value;
        const char* text;
    } cases[] = {{0.1, "0.1"},
                 {179.99999999999997, "179.99999999999997"},
                 {84.0000001, "84.0000001"},
                 {1e30, "1e+30"},
                 {-0.0, "-0"},
                 {5e-324, "5e-324"},
                 {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
                 {std::numeric_limits<double>::infinity(), "inf"},
                 {-std::numeric_limits<double>::infinity(), "-inf"}};
    for (const auto& c : cases)
        EXPECT_EQ(qv::ShortestText(c.value), c.text);
    EXPECT_EQ(qv::ShortestText(std::nan("")), "nan");
}

TEST(ShortestText, EveryDoubleReadsBack)
{
    std::mt19937_64 rng(7);
    for (int i = 0; i < 100000; ++i) {
        double v = 0;
        const std::uint64_t bits = rng();
        std::memcpy(&v, &bits, sizeof v);
        if (!std::isfinite(v))
            continue;
        const std::string t = qv::ShortestText(v);
        double back = 0;
        std::from_chars(t.data(), t.data() + t.size(), back);
        ASSERT_EQ(std::memcmp(&back, &v, sizeof v), 0) << t;
    }
}
