// Harnesses of the database: fuzz bytes become one or more files of a valid seven-file set, which is
// then opened, queried, repaired, queried again and compacted, the way a user meets a damaged set.
#include <qvgeo/fuzz/harness.h>

#include <qvgeo/geodb/geodb.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace qvfuzz {

namespace {

using TFile = std::vector<std::uint8_t>;
constexpr std::array<const char*, 7> Exts = {".xelgds", ".xelgdd", ".xelgi0", ".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4"};

[[noreturn]] void Violated(const char* What)
{
    std::fprintf(stderr, "qvgeo fuzz: %s\n", What);
    std::abort();
}

TFile ReadAll(const std::string& Path)
{
    std::ifstream in(Path, std::ios::binary);
    return TFile(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& Path, std::span<const std::uint8_t> Bytes)
{
    std::ofstream out(Path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(Bytes.data()), static_cast<std::streamsize>(Bytes.size()));
}

// The valid set every case starts from, made once per process: every item kind, a BLOB, a replaced and a
// deleted item (so that the data file holds garbage), written in two sessions.
const std::array<TFile, 7>& ValidSet()
{
    static const std::array<TFile, 7> files = [] {
        const std::string base = (ScratchDir() / "valid").string();
        WriteValidDatabaseSet(base);
        std::array<TFile, 7> f;
        for (std::size_t k = 0; k < Exts.size(); ++k)
            f[k] = ReadAll(base + Exts[k]);
        return f;
    }();
    return files;
}

void Query(qv::TGeoDB& Db)
{
    std::ostringstream sink;
    const int n = Db.NumEntries();
    for (int i = 1; i <= std::min(n, 64); ++i) {
        const qv::TgdbData d = Db.GetSumdata(i);
        Db.SearchForItemID(d.ItemId);
        Db.ExtractLocation(i);
        try {
            if (d.ItemKind == qv::gitBLOB) {
                qv::TMetaInfo meta;
                Db.RetrieveBLOB(i, sink, meta);
            } else {
                Db.RetrievePolygon(i);
            }
        } catch (const qv::EXELError&) {
        }
    }
    for (int i : {0, 1, n / 2, n, n + 1}) {
        Db.GetIxItemID(i);
        Db.GetIxLatLow(i);
        Db.GetIxLatHigh(i);
        Db.GetIxLongLow(i);
        Db.GetIxLongHigh(i);
    }
    Db.GetClosestItemIDIx(3);
    Db.GetClosestLatLowIx(48.0);
    Db.GetClosestLongHighIx(16.0);
    Db.SearchData(-90, -180, 90, 180);
    Db.SearchData(47.5, 15.5, 48.5, 16.5);
    Db.SearchData(47.5, 15.5, 48.5, 16.5, qv::gitTown);
    Db.GarbageBytes();
    Db.ExportDataDebug(sink);
}

// Opens the set at Base and runs the whole life of a damaged set over it. Every step may refuse with a
// documented error; after a Repair that returned the set must be sound, for this object and on reopening.
void Exercise(const std::string& Base)
{
    qv::TGeoDB db("fuzz");
    try {
        db.SetGDBName(Base);
    } catch (const qv::EXELError&) {
        return;
    }
    Query(db);
    try {
        db.Repair();
        if (db.Damaged())
            Violated("a repaired set is still damaged");
    } catch (const qv::EXELError&) {
        return;
    }
    Query(db);
    try {
        db.GarbageCollection();
        db.AddTown("Melk", 48.23, 15.33, 213);
        db.DeleteData(1);
    } catch (const qv::EXELError&) {
    }
    Query(db);
    db.SetGDBName("");
    qv::TGeoDB again("fuzz");
    try {
        again.SetGDBName(Base);
    } catch (const qv::EXELError&) {
        Violated("a repaired set does not open");
    }
    if (again.Damaged())
        Violated("a repaired set opens as damaged");
}

std::string CaseBase()
{
    const std::string base = (ScratchDir() / "case").string();
    for (const char* ext : Exts) {
        std::remove((base + ext).c_str());
        std::remove((base + ext + ".tmp").c_str());
    }
    std::remove((base + ".xelgdx").c_str());
    return base;
}

// A little-endian 16-bit field, 0 past the end.
unsigned Take16(TBytes& Data)
{
    unsigned v = 0;
    for (int k = 0; k < 2; ++k) {
        if (!Data.empty()) {
            v |= static_cast<unsigned>(Data[0]) << (8 * k);
            Data = Data.subspan(1);
        }
    }
    return v;
}

unsigned Take8(TBytes& Data)
{
    if (Data.empty())
        return 0;
    const unsigned v = Data[0];
    Data = Data.subspan(1);
    return v;
}

// One fault on a file image: mode 0 replaces it by the bytes, 1 writes the bytes over it at the offset
// (growing it as needed), 2 cuts it to the offset.
void ApplyFault(TFile& File, TBytes& Data)
{
    const unsigned mode = Take8(Data) % 3;
    const std::size_t offset = Take16(Data);
    const std::size_t length = std::min<std::size_t>(Take16(Data), Data.size());
    const TBytes bytes = Data.first(length);
    Data = Data.subspan(length);
    switch (mode) {
    case 0:
        File.assign(bytes.begin(), bytes.end());
        break;
    case 1:
        if (File.size() < offset + length)
            File.resize(offset + length);
        std::copy(bytes.begin(), bytes.end(), File.begin() + static_cast<std::ptrdiff_t>(offset));
        break;
    default:
        if (offset < File.size())
            File.resize(offset);
        break;
    }
}

}  // namespace

void WriteValidDatabaseSet(const std::string& Base)
{
    {
        qv::TGeoDB db("seed");
        db.SetGDBName(Base);
        db.SetDescription("fuzz seed");
        const std::vector<qv::TSCoords> border = {{47.0f, 9.5f}, {49.0f, 9.5f}, {49.0f, 17.2f}, {47.0f, 17.2f}};
        const std::vector<qv::TSCoords> river = {{48.1f, 16.2f}, {48.2f, 16.4f}, {48.3f, 16.9f}};
        db.AddBorder("Austria", border);
        db.AddTown("Krems", 48.41, 15.6, 203);
        db.AddCity("Wien", 48.21, 16.37, 171);
        db.AddLake("Neusiedler See", std::vector<qv::TSCoords>{{47.7f, 16.7f}, {47.9f, 16.8f}, {47.8f, 16.9f}});
        db.AddRiver("Donau", river);
        db.AddRoad("A1", river);
        db.AddRoute("Wachau", std::vector<qv::TSCoords>{{48.4f, 15.4f}, {48.35f, 15.6f}});
        qv::TgdbData blob;
        blob.Name = "note";
        blob.LatLow = blob.LatHigh = 48.2f;
        blob.LongLow = blob.LongHigh = 16.3f;
        const std::vector<std::uint8_t> bytes = {'q', 'v', 0, 1, 2, 3, 255};
        qv::TMetaInfo meta;
        meta.Caption = "fuzz";
        db.AddBLOB(blob, bytes, meta);
    }
    qv::TGeoDB db("seed");
    db.SetGDBName(Base);
    db.ReplaceRiver(5, "Donau", std::vector<qv::TSCoords>{{48.1f, 16.2f}, {48.25f, 16.5f}});
    db.DeleteData(2);
    db.SetRevision(3);
}

void DatabaseFile(int FileNo, TBytes Data)
{
    const auto& valid = ValidSet();
    const std::string base = CaseBase();
    for (std::size_t k = 0; k < Exts.size(); ++k)
        WriteAll(base + Exts[k], static_cast<int>(k) == FileNo ? Data : TBytes(valid[k]));
    Exercise(base);
}

void DatabaseXelgds(TBytes Data) { DatabaseFile(0, Data); }
void DatabaseXelgdd(TBytes Data) { DatabaseFile(1, Data); }
void DatabaseXelgi0(TBytes Data) { DatabaseFile(2, Data); }
void DatabaseXelgi1(TBytes Data) { DatabaseFile(3, Data); }
void DatabaseXelgi2(TBytes Data) { DatabaseFile(4, Data); }
void DatabaseXelgi3(TBytes Data) { DatabaseFile(5, Data); }
void DatabaseXelgi4(TBytes Data) { DatabaseFile(6, Data); }

// Layout: file A (byte, mod 7), file B (byte, mod 7), deleted file (byte, mod 8; 7: none), flags
// (bit 0: leave the compaction marker, bit 1: leave a temporary file of every file with its valid
// content, bit 2: cut file A's temporary file in half), then the faults on A and on B, each a mode
// byte, a 16-bit offset, a 16-bit length and that many bytes (see ApplyFault).
void DatabaseDamage(TBytes Data)
{
    std::array<TFile, 7> files = ValidSet();
    const unsigned a = Take8(Data) % 7, b = Take8(Data) % 7, gone = Take8(Data) % 8, flags = Take8(Data);
    ApplyFault(files[a], Data);
    ApplyFault(files[b], Data);
    const std::string base = CaseBase();
    for (std::size_t k = 0; k < Exts.size(); ++k) {
        if (k != gone)
            WriteAll(base + Exts[k], files[k]);
        if (flags & 2u) {
            const TFile& t = ValidSet()[k];
            WriteAll(base + Exts[k] + ".tmp",
                     TBytes(t).first(k == a && (flags & 4u) ? t.size() / 2 : t.size()));
        }
    }
    if (flags & 1u)
        WriteAll(base + ".xelgdx", {});
    Exercise(base);
}

}  // namespace qvfuzz
