// TGeoDB items: adding (one by one or in a bulk bracket), replacing, updating and deleting items,
// polygons, locations and the rectangle search. BLOBs are in geodb_blobs.cpp.
//
// Write order of an addition: the points or BLOB bytes are appended to ".xelgdd" first, then the header
// (HighestID), then the record that points to the appended bytes, then the indexes. A failure at any step
// leaves a set that opens: at worst unreferenced bytes at the end of ".xelgdd", or index files that the
// next opening finds out of step.
#include <qvgeo/geodb/geodb.h>

#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/geodb/indexes.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>

namespace qv {

namespace {

constexpr std::int64_t MaxOffset = std::numeric_limits<std::int32_t>::max();

// Extent of an interval in degrees, rounded up a little so that it never under-estimates what the
// float corners span; NaN corners give 0 (such items never meet a rectangle anyway).
double ExtentOf(float Low, float High)
{
    const double e = static_cast<double>(High) - static_cast<double>(Low);
    if (!(e > 0))
        return 0;
    return e * (1 + 1e-12) + 1e-12;
}

// Days since 1899-12-30 of the present moment (UTC).
double NowAsDateTime()
{
    using namespace std::chrono;
    const double secs = duration<double>(system_clock::now().time_since_epoch()).count();
    return 25569.0 + secs / 86400.0;  // 25569 = days from 1899-12-30 to 1970-01-01
}

std::vector<std::uint8_t> EncodePoints(std::span<const TSCoords> Points)
{
    std::vector<std::uint8_t> out(Points.size() * gdbSCoordsSize);
    for (std::size_t i = 0; i < Points.size(); ++i)
        EncodeSCoords(Points[i], std::span<std::uint8_t, gdbSCoordsSize>(out.data() + i * gdbSCoordsSize,
                                                                          gdbSCoordsSize));
    return out;
}

void WriteRecordInto(TChunkWriter& w, const TgdbData& d)
{
    EncodeGdbData(d, std::span<std::uint8_t, gdbDataSize>(w.Reserve(gdbDataSize), gdbDataSize));
}

}  // namespace

namespace {
// Half a degree: wider than a town or a lake, narrower than most country borders.
constexpr double gdbWideExtent = 0.5;

bool IsWide(const TgdbData& d)
{
    return ExtentOf(d.LatLow, d.LatHigh) > gdbWideExtent || ExtentOf(d.LongLow, d.LongHigh) > gdbWideExtent;
}
}  // namespace

void TGeoDB::NoteExtent(int RecNo0, const TgdbData& d)
{
    DropSearchTree();
    if (IsWide(d)) {
        FWide.insert(std::lower_bound(FWide.begin(), FWide.end(), RecNo0), RecNo0);
        return;
    }
    FMaxLatExtent = std::max(FMaxLatExtent, ExtentOf(d.LatLow, d.LatHigh));
    FMaxLongExtent = std::max(FMaxLongExtent, ExtentOf(d.LongLow, d.LongHigh));
}

void TGeoDB::ForgetExtent(int RecNo0, bool Deleted)
{
    DropSearchTree();
    const auto at = std::lower_bound(FWide.begin(), FWide.end(), RecNo0);
    auto next = at;
    if (at != FWide.end() && *at == RecNo0)
        next = FWide.erase(at);
    if (Deleted)
        for (auto it = next; it != FWide.end(); ++it)
            --*it;
}

void TGeoDB::RecalcExtents()
{
    DropSearchTree();
    FMaxLatExtent = FMaxLongExtent = 0;
    FWide.clear();
    for (std::size_t i = 0; i < FData.size(); ++i)
        NoteExtent(static_cast<int>(i), FData[i]);
}

void TGeoDB::WriteRecordAt(int RecNo0, const TgdbData& Data)
{
    TBinFile f;
    f.OpenOrThrow(FDataFName, TBinFile::omReadWrite);
    std::array<std::uint8_t, gdbDataSize> rec{};
    EncodeGdbData(Data, rec);
    f.WriteAt(static_cast<std::int64_t>(RecNo0) * gdbDataSize, rec);
    f.Close();
}

void TGeoDB::OverwriteRecord(int RecNo0, const TgdbData& Data)
{
    try {
        WriteRecordAt(RecNo0, Data);
    } catch (const TFileError&) {
        // A failing write may have changed part of the record: put the old one back. If even that
        // fails, the record on disk may be torn, and the set is damaged until Repair has checked it.
        try {
            WriteRecordAt(RecNo0, FData[static_cast<std::size_t>(RecNo0)]);
        } catch (const TFileError&) {
            FDamage.push_back("record " + std::to_string(RecNo0 + 1) + " may be half written");
        }
        throw;
    }
}

TgdbData TGeoDB::PrepareItem(std::string_view Op, const TgdbData& Data, std::span<const TSCoords> Points,
                             std::vector<std::uint8_t>& Payload) const
{
    TgdbData d = Data;
    if (d.Name.size() > static_cast<std::size_t>(gdbNameLen))
        d.Name.resize(gdbNameLen);
    if (Points.size() > static_cast<std::size_t>((MaxOffset - gdbSystemDataSize) / gdbSCoordsSize))
        Raise(Op, "too many points.");
    for (const auto& p : Points)
        if (!std::isfinite(p.Latit) || !std::isfinite(p.Longit))
            Raise(Op, "invalid coordinates.");
    if (!Points.empty()) {
        d.LatLow = d.LatHigh = Points[0].Latit;
        d.LongLow = d.LongHigh = Points[0].Longit;
        for (const auto& p : Points) {
            d.LatLow = std::min(d.LatLow, p.Latit);
            d.LatHigh = std::max(d.LatHigh, p.Latit);
            d.LongLow = std::min(d.LongLow, p.Longit);
            d.LongHigh = std::max(d.LongHigh, p.Longit);
        }
    }
    d.NumPoints = static_cast<std::int32_t>(Points.size());
    d.BlobOffset = -1;
    Payload = EncodePoints(Points);
    return d;
}

int TGeoDB::AppendItem(std::string_view Op, TgdbData& Data, std::span<const std::uint8_t> Payload)
{
    CheckWritable(Op);
    if (FSysData.HighestID == std::numeric_limits<std::int32_t>::max())
        Raise(Op, "no item identifier is left.");
    TgdbData d = Data;
    if (FUpdateDepth > 0) {
        if (!FHasPending) {
            FPendingBlobStart = FileSizeOf(FBlobFName);
            if (FPendingBlobStart < gdbSystemDataSize)
                RaiseWriteFailed();
            FPendingFrom = FNumEntries;
            FPendingHighestID = FSysData.HighestID;
            FPendingBlob.clear();
            FHasPending = true;
        }
        const std::int64_t off = FPendingBlobStart + static_cast<std::int64_t>(FPendingBlob.size());
        if (off + static_cast<std::int64_t>(Payload.size()) > MaxOffset)
            Raise(Op, "the data file would exceed 2 GiB.");
        d.BlobOffset = Payload.empty() ? -1 : static_cast<std::int32_t>(off);
        d.ItemId = ++FSysData.HighestID;
        FPendingBlob.insert(FPendingBlob.end(), Payload.begin(), Payload.end());
        FData.push_back(d);
        ++FNumEntries;
        const auto r = static_cast<std::int32_t>(FNumEntries - 1);
        FIxItemID.push_back(TIxItemIDRec{d.ItemId, r});
        for (int k = 1; k <= 4; ++k)
            FIxLL[static_cast<std::size_t>(k - 1)].push_back(TIxLLRec{IndexKeyOf(d, k), r});
    } else {
        d.ItemId = FSysData.HighestID + 1;
        try {
            TBinFile dd;
            dd.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
            const std::int64_t off = dd.Size();
            if (off < gdbSystemDataSize)
                throw TFileError("header missing");
            if (off + static_cast<std::int64_t>(Payload.size()) > MaxOffset)
                Raise(Op, "the data file would exceed 2 GiB.");
            if (!Payload.empty()) {
                dd.WriteAt(off, Payload);
                d.BlobOffset = static_cast<std::int32_t>(off);
            } else {
                d.BlobOffset = -1;
            }
            TgdbSystemData sys = FSysData;
            sys.HighestID = d.ItemId;
            std::array<std::uint8_t, gdbSystemDataSize> hdr{};
            EncodeSystemData(sys, hdr);
            dd.WriteAt(0, hdr);
            dd.Close();
            WriteRecordAt(FNumEntries, d);
        } catch (const TFileError&) {
            RaiseWriteFailed();
        }
        FSysData.HighestID = d.ItemId;
        FData.push_back(d);
        ++FNumEntries;
        SettleIndexes();
        FIxItemID.emplace_back();
        for (auto& ix : FIxLL)
            ix.emplace_back();
        InsertIntoIndex(FNumEntries, d);
        if (!FLazyWrite)
            SaveAllIndexes();
    }
    NoteExtent(FNumEntries - 1, d);
    Data = d;
    return FNumEntries;
}

int TGeoDB::AddData(TgdbData& Data, std::span<const TSCoords> Points)
{
    std::vector<std::uint8_t> payload;
    TgdbData d = PrepareItem("AddData", Data, Points, payload);
    const int recNo = AppendItem("AddData", d, payload);
    Data = d;
    return recNo;
}

int TGeoDB::AddTyped(TgdbItem Kind, bool Closed, std::string_view Name, std::span<const TSCoords> Points)
{
    TgdbData d;
    d.Name = std::string(Name);
    d.ItemKind = Kind;
    d.Closed = Closed;
    d.Date = NowAsDateTime();
    return AddData(d, Points);
}

int TGeoDB::AddBorder(std::string_view Name, std::span<const TSCoords> Points)
{
    return AddTyped(gitBorder, true, Name, Points);
}
int TGeoDB::AddLake(std::string_view Name, std::span<const TSCoords> Points)
{
    return AddTyped(gitLake, true, Name, Points);
}
int TGeoDB::AddRiver(std::string_view Name, std::span<const TSCoords> Points)
{
    return AddTyped(gitRiver, false, Name, Points);
}
int TGeoDB::AddRoad(std::string_view Name, std::span<const TSCoords> Points)
{
    return AddTyped(gitRoad, false, Name, Points);
}
int TGeoDB::AddRoute(std::string_view Name, std::span<const TSCoords> Points)
{
    return AddTyped(gitRoute, false, Name, Points);
}

int TGeoDB::AddPoint(TgdbItem Kind, std::string_view Name, double Latit, double Longit, double Altitude)
{
    const TSCoords p{static_cast<float>(Latit), static_cast<float>(Longit)};
    TgdbData d;
    d.Name = std::string(Name);
    d.ItemKind = Kind;
    d.Altitude = static_cast<float>(Altitude);
    d.Date = NowAsDateTime();
    return AddData(d, std::span<const TSCoords>(&p, 1));
}

int TGeoDB::AddTown(std::string_view Name, double Latit, double Longit, double Altitude)
{
    return AddPoint(gitTown, Name, Latit, Longit, Altitude);
}

int TGeoDB::AddCity(std::string_view Name, double Latit, double Longit, double Altitude)
{
    return AddPoint(gitCity, Name, Latit, Longit, Altitude);
}

// ---- replacing, updating, deleting ------------------------------------------------------------------

void TGeoDB::ReplaceItem(std::string_view Op, int RecNo, TgdbData& Data, std::span<const TSCoords> Points)
{
    FlushPending();
    CheckWritable(Op);
    const int r = CheckRecNo(Op, RecNo);
    std::vector<std::uint8_t> payload;
    TgdbData d = PrepareItem(Op, Data, Points, payload);
    d.ItemId = FData[static_cast<std::size_t>(r)].ItemId;
    try {
        if (!payload.empty()) {
            TBinFile dd;
            dd.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
            const std::int64_t off = dd.Size();
            if (off < gdbSystemDataSize)
                throw TFileError("header missing");
            if (off + static_cast<std::int64_t>(payload.size()) > MaxOffset)
                Raise(Op, "the data file would exceed 2 GiB.");
            dd.WriteAt(off, payload);
            dd.Close();
            d.BlobOffset = static_cast<std::int32_t>(off);
        }
        OverwriteRecord(r, d);
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
    FData[static_cast<std::size_t>(r)] = d;
    SettleIndexes();
    RemoveIndexEntries(RecNo);
    InsertIntoIndex(RecNo, d);
    ForgetExtent(r, false);
    NoteExtent(r, d);
    if (!FLazyWrite)
        SaveAllIndexes();
    Data = d;
}

void TGeoDB::ReplaceData(int RecNo, TgdbData& Data, std::span<const TSCoords> Points)
{
    ReplaceItem("ReplaceData", RecNo, Data, Points);
}

void TGeoDB::ReplaceTyped(int RecNo, TgdbItem Kind, bool Closed, std::string_view Name,
                          std::span<const TSCoords> Points)
{
    TgdbData d = GetSumdata(RecNo);
    d.Name = std::string(Name);
    d.ItemKind = Kind;
    d.Closed = Closed;
    d.Date = NowAsDateTime();
    ReplaceItem("ReplaceData", RecNo, d, Points);
}

void TGeoDB::ReplaceBorder(int RecNo, std::string_view Name, std::span<const TSCoords> Points)
{
    ReplaceTyped(RecNo, gitBorder, true, Name, Points);
}
void TGeoDB::ReplaceLake(int RecNo, std::string_view Name, std::span<const TSCoords> Points)
{
    ReplaceTyped(RecNo, gitLake, true, Name, Points);
}
void TGeoDB::ReplaceRiver(int RecNo, std::string_view Name, std::span<const TSCoords> Points)
{
    ReplaceTyped(RecNo, gitRiver, false, Name, Points);
}
void TGeoDB::ReplaceRoad(int RecNo, std::string_view Name, std::span<const TSCoords> Points)
{
    ReplaceTyped(RecNo, gitRoad, false, Name, Points);
}
void TGeoDB::ReplaceRoute(int RecNo, std::string_view Name, std::span<const TSCoords> Points)
{
    ReplaceTyped(RecNo, gitRoute, false, Name, Points);
}

void TGeoDB::ReplacePoint(int RecNo, TgdbItem Kind, std::string_view Name, double Latit, double Longit,
                          double Altitude)
{
    const TSCoords p{static_cast<float>(Latit), static_cast<float>(Longit)};
    TgdbData d = GetSumdata(RecNo);
    d.Name = std::string(Name);
    d.ItemKind = Kind;
    d.Closed = false;
    d.Altitude = static_cast<float>(Altitude);
    d.Date = NowAsDateTime();
    ReplaceItem("ReplaceData", RecNo, d, std::span<const TSCoords>(&p, 1));
}

void TGeoDB::ReplaceTown(int RecNo, std::string_view Name, double Latit, double Longit, double Altitude)
{
    ReplacePoint(RecNo, gitTown, Name, Latit, Longit, Altitude);
}

void TGeoDB::ReplaceCity(int RecNo, std::string_view Name, double Latit, double Longit, double Altitude)
{
    ReplacePoint(RecNo, gitCity, Name, Latit, Longit, Altitude);
}

void TGeoDB::UpdateBasicData(int RecNo, const TgdbData& Data)
{
    FlushPending();
    CheckWritable("UpdateBasicData");
    const int r = CheckRecNo("UpdateBasicData", RecNo);
    TgdbData d = FData[static_cast<std::size_t>(r)];
    d.Name = Data.Name.substr(0, gdbNameLen);
    d.Altitude = Data.Altitude;
    d.ClassFlag = Data.ClassFlag;
    d.Tag = Data.Tag;
    d.Date = Data.Date;
    d.StateFlag = Data.StateFlag;
    try {
        OverwriteRecord(r, d);
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
    FData[static_cast<std::size_t>(r)] = d;
}

void TGeoDB::DeleteData(int RecNo)
{
    FlushPending();
    CheckWritable("DeleteData");
    const int r = CheckRecNo("DeleteData", RecNo);
    try {
        ReplaceFileAtomically(FDataFName, [&](TChunkWriter& w) {
            for (int i = 0; i < FNumEntries; ++i)
                if (i != r)
                    WriteRecordInto(w, FData[static_cast<std::size_t>(i)]);
        });
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
    SettleIndexes();
    RemoveIndexEntries(RecNo);
    FData.erase(FData.begin() + r);
    --FNumEntries;
    const auto n = static_cast<std::size_t>(FNumEntries);
    FIxItemID.resize(n);
    for (auto& e : FIxItemID)
        if (e.index > r)
            --e.index;
    for (auto& ix : FIxLL) {
        ix.resize(n);
        for (auto& e : ix)
            if (e.index > r)
                --e.index;
    }
    FIxSorted = n;
    ForgetExtent(r, true);
    if (!FLazyWrite)
        SaveAllIndexes();
}

void TGeoDB::DeleteData(std::span<const int> RecNos)
{
    FlushPending();
    CheckWritable("DeleteData");
    std::vector<std::int32_t> newIndex(static_cast<std::size_t>(FNumEntries), 0);
    for (int recNo : RecNos)
        newIndex[static_cast<std::size_t>(CheckRecNo("DeleteData", recNo))] = -1;
    std::int32_t kept = 0;
    for (auto& n : newIndex)
        if (n == 0)
            n = kept++;
    if (kept == FNumEntries)
        return;
    try {
        ReplaceFileAtomically(FDataFName, [&](TChunkWriter& w) {
            for (int i = 0; i < FNumEntries; ++i)
                if (newIndex[static_cast<std::size_t>(i)] >= 0)
                    WriteRecordInto(w, FData[static_cast<std::size_t>(i)]);
        });
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
    SettleIndexes();
    std::size_t to = 0;
    for (std::size_t i = 0; i < FData.size(); ++i)
        if (newIndex[i] >= 0) {
            if (to != i)  // a self-move would empty the name
                FData[to] = std::move(FData[i]);
            ++to;
        }
    FData.resize(to);
    // Dropping entries keeps the others in order; only their record numbers change.
    const auto renumber = [&](auto& ix) {
        std::erase_if(ix, [&](const auto& e) { return newIndex[static_cast<std::size_t>(e.index)] < 0; });
        for (auto& e : ix)
            e.index = newIndex[static_cast<std::size_t>(e.index)];
    };
    renumber(FIxItemID);
    for (auto& ix : FIxLL)
        renumber(ix);
    FNumEntries = kept;
    FIxSorted = FIxItemID.size();
    RecalcExtents();
    if (!FLazyWrite)
        SaveAllIndexes();
}

// ---- polygons, locations ------------------------------------------------------------------------------

TgdbPolygon TGeoDB::RetrievePolygon(int RecNo)
{
    FlushPending();
    const int r = CheckRecNo("RetrievePolygon", RecNo);
    const TgdbData& rec = FData[static_cast<std::size_t>(r)];
    if (rec.BlobOffset < 0 || rec.ItemKind == gitBLOB || rec.NumPoints <= 0)
        return {};
    // The range is checked before anything is allocated: a damaged count must not ask for gigabytes.
    const std::int64_t length = static_cast<std::int64_t>(rec.NumPoints) * gdbSCoordsSize;
    std::vector<std::uint8_t> bytes;
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omRead);
        if (rec.BlobOffset < gdbSystemDataSize || static_cast<std::int64_t>(rec.BlobOffset) + length > f.Size())
            Raise("RetrievePolygon", "the item's points lie outside the data file.");
        bytes.resize(static_cast<std::size_t>(length));
        f.ReadAt(rec.BlobOffset, bytes);
        f.Close();
    } catch (const TFileError&) {
        RaiseCannotOpen("RetrievePolygon");
    }
    TgdbPolygon poly(static_cast<std::size_t>(rec.NumPoints));
    for (std::size_t i = 0; i < poly.size(); ++i)
        poly[i] = DecodeSCoords(
            std::span<const std::uint8_t, gdbSCoordsSize>(bytes.data() + i * gdbSCoordsSize, gdbSCoordsSize));
    return poly;
}

TPositionData TGeoDB::ExtractLocation(int RecNo) const
{
    const int r = CheckRecNo("ExtractLocation", RecNo);
    const TgdbData& d = FData[static_cast<std::size_t>(r)];
    // Halves first, so that the sum of two large corners cannot overflow.
    return TPositionData{static_cast<double>(d.LatLow) / 2 + static_cast<double>(d.LatHigh) / 2,
                         static_cast<double>(d.LongLow) / 2 + static_cast<double>(d.LongHigh) / 2,
                         static_cast<double>(d.Altitude)};
}

// ---- rectangle search -------------------------------------------------------------------------------------

namespace {

// Positions [first, last) of the entries whose keys lie in [Lo, Hi] (doubles; keys widened).
std::pair<std::size_t, std::size_t> KeyRange(const TIxLLRecArray& Ix, std::size_t N, double Lo, double Hi)
{
    const auto begin = Ix.begin();
    const auto end = Ix.begin() + static_cast<std::ptrdiff_t>(N);
    // Both predicates are false for NaN keys, which sort last, so each partitions the array.
    const auto first = std::partition_point(begin, end, [&](const TIxLLRec& e) {
        return static_cast<double>(e.LLValue) < Lo;
    });
    const auto last = std::partition_point(first, end, [&](const TIxLLRec& e) {
        return static_cast<double>(e.LLValue) <= Hi;
    });
    return {static_cast<std::size_t>(first - begin), static_cast<std::size_t>(last - begin)};
}

double Widen(double v, double delta, int dir)
{
    const double w = v + dir * delta;
    return w + dir * (std::fabs(w) * 1e-12 + 1e-12);
}

}  // namespace

std::vector<int> TGeoDB::SearchData(double LatLow, double LongLow, double LatHigh, double LongHigh) const
{
    return SearchData(LatLow, LongLow, LatHigh, LongHigh, gitUndefined);
}

void TGeoDB::DropSearchTree() const
{
    FTree.reset();
    FScanDebt = 0;
}

std::vector<int> TGeoDB::SearchData(double LatLow, double LongLow, double LatHigh, double LongHigh,
                                    TgdbItem Kind) const
{
    std::vector<int> found;
    SettleIndexes();
    const std::size_t n = std::min(static_cast<std::size_t>(std::max(FNumEntries, 0)), FIxItemID.size());
    // An inverted (or NaN) rectangle is no rectangle: it meets nothing, not even an item spanning it.
    if (n == 0 || !(LatLow <= LatHigh && LongLow <= LongHigh))
        return found;
    // Building costs about this many band candidates per item (a few sorts of the table).
    constexpr double TreeCostPerItem = 8;
    std::shared_ptr<const TBoxTree> tree;
    {
        const std::lock_guard lock(FLazyLock);
        if (FTree && FTree->TableSize() != FData.size())
            DropSearchTree();
        if (!FTree && FScanDebt >= TreeCostPerItem * static_cast<double>(FData.size())) {
            auto built = std::make_shared<TBoxTree>();
            built->Build(FData);
            FTree = std::move(built);
        }
        tree = FTree;
    }
    if (tree) {
        tree->Search(LatLow, LongLow, LatHigh, LongHigh, Kind, found);
        std::sort(found.begin(), found.end());
        return found;
    }
    const auto meets = [&](const TgdbData& d) {
        return static_cast<double>(d.LatLow) <= LatHigh && static_cast<double>(d.LatHigh) >= LatLow &&
               static_cast<double>(d.LongLow) <= LongHigh && static_cast<double>(d.LongHigh) >= LongLow &&
               (Kind == gitUndefined || d.ItemKind == Kind);
    };
    for (const std::int32_t r : FWide)
        if (static_cast<std::size_t>(r) < FData.size() && meets(FData[static_cast<std::size_t>(r)]))
            found.push_back(r + 1);
    // An item meets the rectangle when its low corners are not above the rectangle's high edges and its
    // high corners not below the low edges. Each index gives the candidates whose key lies in a band that
    // every narrow item's key must lie in (the rectangle widened by the largest extent of a narrow item);
    // the narrowest band is scanned and its narrow candidates tested in full.
    const std::array<std::pair<std::size_t, std::size_t>, 4> ranges = {
        KeyRange(FIxLL[0], n, Widen(LatLow, FMaxLatExtent, -1), LatHigh),
        KeyRange(FIxLL[1], n, LatLow, Widen(LatHigh, FMaxLatExtent, +1)),
        KeyRange(FIxLL[2], n, Widen(LongLow, FMaxLongExtent, -1), LongHigh),
        KeyRange(FIxLL[3], n, LongLow, Widen(LongHigh, FMaxLongExtent, +1)),
    };
    std::size_t best = 0;
    for (std::size_t k = 1; k < 4; ++k)
        if (ranges[k].second - ranges[k].first < ranges[best].second - ranges[best].first)
            best = k;
    const TIxLLRecArray& ix = FIxLL[best];
    const std::size_t last = ranges[best].second;
    // The binary searches and the wide items count too, so that empty bands still lead to a tree.
    {
        const std::lock_guard lock(FLazyLock);
        FScanDebt += static_cast<double>(last - ranges[best].first + FWide.size()) +
                     4 * std::log2(static_cast<double>(n) + 1);
    }
    for (std::size_t i = ranges[best].first; i < last; ++i) {
#if defined(__GNUC__)
        // The records of a band lie scattered over the table; asking for a few ahead overlaps the misses.
        if (i + 8 < last) {
            const auto ahead = static_cast<std::size_t>(ix[i + 8].index);
            if (ahead < FData.size())
                __builtin_prefetch(&FData[ahead].LatLow);
        }
#endif
        const std::int32_t r = ix[i].index;
        if (r < 0 || static_cast<std::size_t>(r) >= FData.size())
            continue;
        const TgdbData& d = FData[static_cast<std::size_t>(r)];
        if (meets(d) && !IsWide(d))
            found.push_back(r + 1);
    }
    std::sort(found.begin(), found.end());
    return found;
}

// ---- bulk bracket -------------------------------------------------------------------------------------

void TGeoDB::BeginUpdate() { ++FUpdateDepth; }

void TGeoDB::EndUpdate()
{
    if (FUpdateDepth == 0)
        return;
    if (--FUpdateDepth == 0)
        FlushPending();
}

void TGeoDB::FlushPending()
{
    if (!FHasPending)
        return;
    FHasPending = false;
    const int from = FPendingFrom;
    const int count = FNumEntries - from;
    try {
        TBinFile dd;
        dd.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
        dd.WriteAt(FPendingBlobStart, FPendingBlob);
        std::array<std::uint8_t, gdbSystemDataSize> hdr{};
        EncodeSystemData(FSysData, hdr);
        dd.WriteAt(0, hdr);
        dd.Close();
        TBinFile ds;
        ds.OpenOrThrow(FDataFName, TBinFile::omReadWrite);
        TChunkWriter w(ds, static_cast<std::int64_t>(from) * gdbDataSize);
        double nextReport = 0;
        for (int i = from; i < FNumEntries; ++i) {
            WriteRecordInto(w, FData[static_cast<std::size_t>(i)]);
            const double pct = 100.0 * (i - from + 1) / count;
            if (pct >= nextReport && pct < 100) {
                Progress(pct);
                nextReport = pct + 1;
            }
        }
        w.Flush();
        ds.Close();
    } catch (const TFileError&) {
        // Back to the state before the bracket; the record file is cut back so that the set opens clean.
        FData.resize(static_cast<std::size_t>(from));
        FNumEntries = from;
        FSysData.HighestID = FPendingHighestID;
        const auto stale = [from](const auto& e) { return e.index >= from; };
        std::erase_if(FIxItemID, stale);
        for (auto& ix : FIxLL)
            std::erase_if(ix, stale);
        FIxSorted = FIxItemID.size();
        FPendingBlob.clear();
        TBinFile ds;
        if (ds.Open(FDataFName, TBinFile::omReadWrite)) {
            try {
                if (ds.Size() > static_cast<std::int64_t>(from) * gdbDataSize)
                    ds.Truncate(static_cast<std::int64_t>(from) * gdbDataSize);
                ds.Close();
            } catch (const TFileError&) {
                // Extra records beyond the indexes are reported by the next opening.
            }
        }
        RecalcExtents();
        RaiseWriteFailed();
    }
    FPendingBlob.clear();
    FPendingBlob.shrink_to_fit();
    SettleIndexes();
    if (!FLazyWrite)
        SaveAllIndexes();
    Progress(100);
}

}  // namespace qv
