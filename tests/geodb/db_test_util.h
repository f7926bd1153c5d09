// Helpers of the database tests: a scratch directory per test, whole-file reading and writing,
// little-endian byte builders for hand-made files, and the index invariants of an open database.
#pragma once

#include <qvgeo/geodb/geodb.h>
#include <qvgeo/geodb/indexes.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>
#include <unistd.h>

// Expects `statement` to throw EXELGeoDBError with exactly `message`.
#define EXPECT_DB_ERROR(statement, message)                                 \
    do {                                                                    \
        try {                                                               \
            statement;                                                      \
            ADD_FAILURE() << "no error from: " #statement;                  \
        } catch (const qv::EXELGeoDBError& e) {                             \
            EXPECT_STREQ(e.what(), message);                                \
        }                                                                   \
    } while (0)

namespace qvtest {

using Bytes = std::vector<std::uint8_t>;

// The seven files of a set, in the order table, data, identifier index, four corner indexes.
inline constexpr const char* SetExts[] = {".xelgds", ".xelgdd", ".xelgi0", ".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4"};

class ScratchDir {
public:
    ScratchDir()
    {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        FPath = Root() /
                ("qvgeo_geodb_" + std::string(info->test_suite_name()) + "_" + info->name() + "_" +
                 std::to_string(::getpid()) + "_" + std::to_string(counter++));
        std::filesystem::remove_all(FPath);
        std::filesystem::create_directories(FPath);
    }
    ~ScratchDir() { std::filesystem::remove_all(FPath); }
    std::string operator/(const std::string& name) const { return (FPath / name).string(); }
    const std::filesystem::path& Path() const { return FPath; }

private:
    // Memory-backed when the system has it and TMPDIR does not say otherwise: the database syncs its
    // files, and a sync to a disk costs milliseconds, thousands of times over in the fault tests.
    static std::filesystem::path Root()
    {
        std::error_code ec;
        if (!std::getenv("TMPDIR") && std::filesystem::is_directory("/dev/shm", ec) && ::access("/dev/shm", W_OK) == 0)
            return "/dev/shm";
        return std::filesystem::temp_directory_path();
    }
    inline static int counter = 0;
    std::filesystem::path FPath;
};

// A scratch directory and a database object for a test working on one set. Members are destroyed in
// reverse order, so the database is closed (and flushed) before its directory is removed.
class DbTest : public testing::Test {
protected:
    ScratchDir dir;
    qv::TGeoDB db;
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

// Appends each value little-endian in its own width (int32 and float: 4 bytes, double: 8).
template <class... T>
void Le(Bytes& b, T... values)
{
    auto one = [&b](auto v) {
        using U = std::conditional_t<sizeof(v) == 8, std::uint64_t, std::uint32_t>;
        const auto u = std::bit_cast<U>(v);
        for (std::size_t i = 0; i < sizeof(u); ++i)
            b.push_back(static_cast<std::uint8_t>(u >> (8 * i)));
    };
    (one(values), ...);
}
inline void ShortStr(Bytes& b, const std::string& s, std::size_t capacity)
{
    b.push_back(static_cast<std::uint8_t>(s.size()));
    b.insert(b.end(), s.begin(), s.end());
    b.insert(b.end(), capacity - s.size(), 0);
}
inline void PaddedByte(Bytes& b, std::uint8_t v) { b.insert(b.end(), {v, 0, 0, 0}); }

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
    Le(b, r.id);
    ShortStr(b, r.name, 59);
    Le(b, r.alt);
    PaddedByte(b, r.cls);
    Le(b, r.tag, r.blobOffset, r.date, r.state, r.latLow, r.latHigh, r.longLow, r.longHigh);
    PaddedByte(b, r.kind);
    Le(b, r.numPoints);
    PaddedByte(b, r.closed ? 1 : 0);
    return b;
}

inline Bytes HeaderBytes(std::int32_t highest, std::int32_t version, const std::string& descr, std::int32_t rev)
{
    Bytes b;
    Le(b, highest, version);
    ShortStr(b, descr, 63);
    Le(b, rev);
    b.insert(b.end(), 184, 0);
    return b;
}

// An index file: 8-byte entries of key (float corner or int32 identifier) and 0-based record number.
template <class K>
Bytes IxBytes(const std::vector<std::pair<K, std::int32_t>>& entries)
{
    Bytes b;
    for (const auto& [k, i] : entries)
        Le(b, k, i);
    return b;
}

// A damage to the set with this base name: the 32-bit little-endian value at the offset of one file.
inline std::function<void(const std::string& base)> Patch(const char* ext, std::size_t offset, std::uint32_t value)
{
    return [=](const std::string& base) {
        Bytes b = ReadAll(base + ext);
        for (std::size_t i = 0; i < 4; ++i)
            b.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
        WriteAll(base + ext, b);
    };
}

// Index invariants of an open database: every index holds each record exactly once under the record's own
// key (bit for bit), keys in order, and the identifier search finds each record.
inline void ExpectIndexesConsistent(const qv::TGeoDB& db)
{
    using Entry = std::pair<std::int32_t, std::uint32_t>;  // 0-based record number, key bits
    const int n = db.NumEntries();
    for (int k = 0; k <= 4; ++k) {  // 0: identifiers; 1..4: LatLow, LatHigh, LongLow, LongHigh
        std::vector<Entry> got, want;
        if (k == 0) {
            for (const auto& e : db.IxItemIDArray())
                got.emplace_back(e.index, std::bit_cast<std::uint32_t>(e.ItemID));
        } else {
            for (const auto& e : db.IxLLArray(k))
                got.emplace_back(e.index, std::bit_cast<std::uint32_t>(e.LLValue));
        }
        const auto less = [k](const Entry& a, const Entry& b) {
            return k == 0 ? std::bit_cast<std::int32_t>(a.second) < std::bit_cast<std::int32_t>(b.second)
                          : qv::LLKeyLess(std::bit_cast<float>(a.second), std::bit_cast<float>(b.second));
        };
        EXPECT_TRUE(std::is_sorted(got.begin(), got.end(), less)) << "index " << k << " out of order";
        for (int r = 0; r < n; ++r) {
            const qv::TgdbData d = db.GetSumdata(r + 1);
            const float corners[] = {d.LatLow, d.LatHigh, d.LongLow, d.LongHigh};
            want.emplace_back(r, k == 0 ? std::bit_cast<std::uint32_t>(d.ItemId)
                                        : std::bit_cast<std::uint32_t>(corners[k - 1]));
        }
        std::sort(got.begin(), got.end());
        ASSERT_EQ(got, want) << "index " << k << " must hold every record once, under its own key";
    }
    for (int r = 1; r <= n; ++r)
        EXPECT_EQ(db.GetSumdata(db.SearchForItemID(db.GetSumdata(r).ItemId)).ItemId, db.GetSumdata(r).ItemId);
}

// The records meeting the rectangle (edges included) by scanning every record: the oracle of the searches.
inline std::vector<int> BruteForce(const qv::TGeoDB& db, double latLo, double lonLo, double latHi, double lonHi,
                                   qv::TgdbItem kind = qv::gitUndefined)
{
    std::vector<int> out;
    for (int r = 1; r <= db.NumEntries(); ++r) {
        const qv::TgdbData d = db.GetSumdata(r);
        if (d.LatLow <= latHi && d.LatHigh >= latLo && d.LongLow <= lonHi && d.LongHigh >= lonLo &&
            (kind == qv::gitUndefined || d.ItemKind == kind))
            out.push_back(r);
    }
    return out;
}

// Progress callbacks: at least one report, never going back, ending at 100 %.
inline void ExpectProgress(const std::vector<double>& seen)
{
    ASSERT_FALSE(seen.empty());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 100);
}

}  // namespace qvtest
