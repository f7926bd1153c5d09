// Helpers of the database tests: a scratch directory per test, whole-file reading and writing, and
// little-endian byte builders for hand-made files.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>
#include <unistd.h>

namespace qvtest {

using Bytes = std::vector<std::uint8_t>;

class ScratchDir {
public:
    ScratchDir()
    {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        FPath = std::filesystem::temp_directory_path() /
                ("qvgeo_geodb_" + std::string(info->test_suite_name()) + "_" + info->name() + "_" +
                 std::to_string(::getpid()) + "_" + std::to_string(Counter()++));
        std::filesystem::remove_all(FPath);
        std::filesystem::create_directories(FPath);
    }
    ~ScratchDir() { std::filesystem::remove_all(FPath); }
    std::string operator/(const std::string& name) const { return (FPath / name).string(); }
    const std::filesystem::path& Path() const { return FPath; }

private:
    static int& Counter()
    {
        static int n = 0;
        return n;
    }
    std::filesystem::path FPath;
};

inline Bytes ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline void Le32(Bytes& b, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
inline void LeI32(Bytes& b, std::int32_t v) { Le32(b, static_cast<std::uint32_t>(v)); }
inline void LeF32(Bytes& b, float v) { Le32(b, std::bit_cast<std::uint32_t>(v)); }
inline void LeF64(Bytes& b, double v)
{
    const auto u = std::bit_cast<std::uint64_t>(v);
    for (int i = 0; i < 8; ++i)
        b.push_back(static_cast<std::uint8_t>(u >> (8 * i)));
}
inline void ShortStr(Bytes& b, const std::string& s, std::size_t capacity)
{
    b.push_back(static_cast<std::uint8_t>(s.size()));
    b.insert(b.end(), s.begin(), s.end());
    b.insert(b.end(), capacity - s.size(), 0);
}
inline void Zeros(Bytes& b, std::size_t n) { b.insert(b.end(), n, 0); }

// A 120-byte table record built field by field at the offsets of the file format.
struct RecFields {
    std::int32_t id = 0;
    std::string name;
    float alt = 0;
    std::uint8_t cls = 0;
    std::int32_t tag = 0;
    std::int32_t blobOffset = -1;
    double date = 0;
    std::int32_t state = 0;
    float latLow = 0, latHigh = 0, longLow = 0, longHigh = 0;
    std::uint8_t kind = 0;
    std::int32_t numPoints = 0;
    bool closed = false;
};

inline Bytes RecordBytes(const RecFields& r)
{
    Bytes b;
    LeI32(b, r.id);
    ShortStr(b, r.name, 59);
    LeF32(b, r.alt);
    b.push_back(r.cls);
    Zeros(b, 3);
    LeI32(b, r.tag);
    LeI32(b, r.blobOffset);
    LeF64(b, r.date);
    LeI32(b, r.state);
    LeF32(b, r.latLow);
    LeF32(b, r.latHigh);
    LeF32(b, r.longLow);
    LeF32(b, r.longHigh);
    b.push_back(r.kind);
    Zeros(b, 3);
    LeI32(b, r.numPoints);
    b.push_back(r.closed ? 1 : 0);
    Zeros(b, 3);
    return b;
}

inline Bytes HeaderBytes(std::int32_t highest, std::int32_t version, const std::string& descr, std::int32_t rev)
{
    Bytes b;
    LeI32(b, highest);
    LeI32(b, version);
    ShortStr(b, descr, 63);
    LeI32(b, rev);
    Zeros(b, 184);
    return b;
}

inline Bytes IxBytes(const std::vector<std::pair<float, std::int32_t>>& entries)
{
    Bytes b;
    for (const auto& [k, i] : entries) {
        LeF32(b, k);
        LeI32(b, i);
    }
    return b;
}

inline Bytes IdIxBytes(const std::vector<std::pair<std::int32_t, std::int32_t>>& entries)
{
    Bytes b;
    for (const auto& [k, i] : entries) {
        LeI32(b, k);
        LeI32(b, i);
    }
    return b;
}

}  // namespace qvtest

#include "geodb/geodb.h"
#include "geodb/indexes.h"

namespace qvtest {

// Index invariants of an open database: one entry per record in every index, every record entered
// once, keys equal to the record's fields, keys in order, and the identifier search finding each record.
inline void ExpectIndexesConsistent(const qv::TGeoDB& db)
{
    const int n = db.NumEntries();
    const auto& ids = db.IxItemIDArray();
    ASSERT_EQ(static_cast<int>(ids.size()), n);
    std::vector<int> seen(static_cast<std::size_t>(n), 0);
    for (int i = 0; i < n; ++i) {
        const auto& e = ids[static_cast<std::size_t>(i)];
        ASSERT_TRUE(e.index >= 0 && e.index < n);
        ++seen[static_cast<std::size_t>(e.index)];
        EXPECT_EQ(e.ItemID, db.GetSumdata(e.index + 1).ItemId);
        if (i > 0) {
            EXPECT_LE(ids[static_cast<std::size_t>(i - 1)].ItemID, e.ItemID);
        }
    }
    for (int s : seen)
        ASSERT_EQ(s, 1);
    for (int k = 1; k <= 4; ++k) {
        const auto& ix = db.IxLLArray(k);
        ASSERT_EQ(static_cast<int>(ix.size()), n);
        std::fill(seen.begin(), seen.end(), 0);
        for (int i = 0; i < n; ++i) {
            const auto& e = ix[static_cast<std::size_t>(i)];
            ASSERT_TRUE(e.index >= 0 && e.index < n);
            ++seen[static_cast<std::size_t>(e.index)];
            const qv::TgdbData d = db.GetSumdata(e.index + 1);
            const float key = k == 1 ? d.LatLow : k == 2 ? d.LatHigh : k == 3 ? d.LongLow : d.LongHigh;
            EXPECT_EQ(std::bit_cast<std::uint32_t>(e.LLValue), std::bit_cast<std::uint32_t>(key));
            if (i > 0) {
                EXPECT_FALSE(qv::LLKeyLess(e.LLValue, ix[static_cast<std::size_t>(i - 1)].LLValue));
            }
        }
        for (int s : seen)
            ASSERT_EQ(s, 1);
    }
    for (int r = 1; r <= n; ++r)
        EXPECT_EQ(db.GetSumdata(db.SearchForItemID(db.GetSumdata(r).ItemId)).ItemId, db.GetSumdata(r).ItemId);
}

}  // namespace qvtest
