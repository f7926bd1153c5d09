// TGeoDB: opening, creating and closing the file set, LazyWrite and index writing, the header with its
// description and revision, and the index accessors and searches. Editing lives in geodb_items.cpp,
// checking, repair and compaction in geodb_repair.cpp.
#include <qvgeo/geodb/geodb.h>

#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/geodb/indexes.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#include <algorithm>

namespace qv {

namespace {
constexpr std::size_t ReadChunkRecords = 8192;
}  // namespace

TGeoDB::TGeoDB(std::string Name) : FName(std::move(Name)) {}

TGeoDB::~TGeoDB()
{
    try {
        FlushPending();
    } catch (...) {
        // A destructor cannot report; the set stays as it was before the bracket.
    }
    FNumEntries = 0;
    if (FLazyWrite && FOpen && !Damaged()) {
        for (int k = 0; k <= 4; ++k) {
            try {
                FNumEntries = static_cast<int>(FData.size());
                SaveIndex(k);
            } catch (...) {
                // Stale index files are detected and rebuilt in memory the next time the set opens.
            }
        }
        FNumEntries = 0;
    }
}

void TGeoDB::Raise(std::string_view Op, std::string_view Text) const
{
    std::string t(Op);
    t += ": ";
    t += Text;
    throw EXELGeoDBError(ComponentMessage(FName, t));
}

void TGeoDB::RaiseCannotOpen(std::string_view Op) const { Raise(Op, "cannot open database."); }

void TGeoDB::RaiseWriteFailed() const { RaiseCannotOpen("AddData"); }

void TGeoDB::CheckWritable(std::string_view Op) const
{
    if (!FOpen || FBlobFName.empty() || FDataFName.empty())
        RaiseWriteFailed();
    if (Damaged())
        Raise(Op, "the database is damaged; repair it before changing it.");
}

int TGeoDB::CheckRecNo(std::string_view Op, int RecNo) const
{
    if (RecNo < 1 || RecNo > FNumEntries)
        Raise(Op, "record number " + std::to_string(RecNo) + " is not in 1.." + std::to_string(FNumEntries) +
                      ".");
    return RecNo - 1;
}

void TGeoDB::Progress(double Percent)
{
    if (OnPercentDone)
        OnPercentDone(*this, Percent);
}

const std::string& TGeoDB::IndexFileName(int IndexNo) const
{
    return FIxFName[static_cast<std::size_t>(std::clamp(IndexNo, 0, 4))];
}

// ---- opening and closing --------------------------------------------------------------------------------

void TGeoDB::SetGDBName(const std::string& Name)
{
    if (Name.empty()) {
        CloseSet();
        return;
    }
    // Collected bulk additions belong to the set that is open now.
    FlushPending();
    OpenSet(Name);
}

void TGeoDB::ResetSystemData()
{
    FSysData = TgdbSystemData{};
}

namespace {

// Opens Path read-only, creating it empty when it does not exist. An existing file that cannot be read
// is an error: creating would mean truncating it.
TBinFile OpenOrCreate(const std::string& Path, bool& Created)
{
    TBinFile f;
    Created = false;
    if (f.Open(Path, TBinFile::omRead))
        return f;
    if (!f.Open(Path, TBinFile::omCreateNew))
        throw TFileError("cannot open or create \"" + Path + "\"");
    Created = true;
    return f;
}

}  // namespace

void TGeoDB::OpenSet(const std::string& Name)
{
    FOpen = false;
    FDamage.clear();
    FHasPending = false;
    FUpdateDepth = 0;
    FDBName = Name;
    const std::string base = StripExtension(Name);
    try {
        for (int k = 1; k <= 4; ++k) {
            FIxFName[static_cast<std::size_t>(k)] = base + ".xelgi" + std::to_string(k);
            LoadIndexFile(k);
        }
        FIxFName[0] = base + ".xelgi0";
        LoadIndexFile(0);
        FDataFName = base + ".xelgds";
        LoadTable();
        FBlobFName = base + ".xelgdd";
        LoadHeader();
    } catch (const TFileError& e) {
        Raise("SetGDBName", e.what());
    }
    FIxSorted = FIxItemID.size();
    CheckSet();
    FOpen = true;
    Progress(100);
}

void TGeoDB::LoadIndexFile(int IndexNo)
{
    const std::string& path = FIxFName[static_cast<std::size_t>(IndexNo)];
    bool created = false;
    TBinFile f = OpenOrCreate(path, created);
    // A partial entry at the end is not counted (the entry count is the size divided by 8); the next
    // rewrite of the index drops it.
    const std::int64_t size = f.Size();
    const std::size_t count = static_cast<std::size_t>(size / gdbIxRecSize);
    std::vector<std::uint8_t> buf;
    if (IndexNo == 0)
        FIxItemID.assign(count, TIxItemIDRec{});
    else
        FIxLL[static_cast<std::size_t>(IndexNo - 1)].assign(count, TIxLLRec{});
    for (std::size_t done = 0; done < count;) {
        const std::size_t n = std::min(ReadChunkRecords * 16, count - done);
        buf.resize(n * gdbIxRecSize);
        f.ReadAt(static_cast<std::int64_t>(done) * gdbIxRecSize, buf);
        for (std::size_t i = 0; i < n; ++i) {
            const std::span<const std::uint8_t, gdbIxRecSize> rec(buf.data() + i * gdbIxRecSize, gdbIxRecSize);
            if (IndexNo == 0)
                FIxItemID[done + i] = DecodeIxItemIDRec(rec);
            else
                FIxLL[static_cast<std::size_t>(IndexNo - 1)][done + i] = DecodeIxLLRec(rec);
        }
        done += n;
    }
    f.Close();
}

void TGeoDB::LoadTable()
{
    bool created = false;
    TBinFile f = OpenOrCreate(FDataFName, created);
    if (created)
        ResetSystemData();
    // A partial record at the end (an append that did not complete) is not an item: NumEntries counts
    // the whole records, and the next addition writes over the partial one.
    const std::int64_t size = f.Size();
    const std::size_t count = static_cast<std::size_t>(size / gdbDataSize);
    FNumEntries = static_cast<int>(count);
    FData.assign(count, TgdbData{});
    std::vector<std::uint8_t> buf;
    double nextReport = 0;
    for (std::size_t done = 0; done < count;) {
        const std::size_t n = std::min(ReadChunkRecords, count - done);
        buf.resize(n * gdbDataSize);
        f.ReadAt(static_cast<std::int64_t>(done) * gdbDataSize, buf);
        for (std::size_t i = 0; i < n; ++i)
            FData[done + i] =
                DecodeGdbData(std::span<const std::uint8_t, gdbDataSize>(buf.data() + i * gdbDataSize, gdbDataSize));
        done += n;
        const double pct = 100.0 * static_cast<double>(done) / static_cast<double>(count);
        if (pct >= nextReport && pct < 100) {
            Progress(pct);
            nextReport = pct + 1;
        }
    }
    f.Close();
}

void TGeoDB::LoadHeader()
{
    bool created = false;
    TBinFile f = OpenOrCreate(FBlobFName, created);
    std::array<std::uint8_t, gdbSystemDataSize> hdr{};
    if (created) {
        f.Close();
        // The new file is empty, so writing its header cannot spoil anything.
        f.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
        EncodeSystemData(FSysData, hdr);
        f.WriteAt(0, hdr);
        f.Close();
        return;
    }
    const std::int64_t size = f.Size();
    if (size < gdbSystemDataSize) {
        FDamage.push_back("\"" + FBlobFName + "\" is " + std::to_string(size) + " bytes, shorter than its " +
                          std::to_string(gdbSystemDataSize) + "-byte header");
        ResetSystemData();
        f.Close();
        return;
    }
    f.ReadAt(0, hdr);
    FSysData = DecodeSystemData(hdr);
    f.Close();
    if (const std::string why = SystemDataProblem(hdr); !why.empty())
        FDamage.push_back("the header of \"" + FBlobFName + "\" is not valid (" + why +
                          "); Repair replaces it and keeps only the data that checks out");
}

void TGeoDB::CloseSet()
{
    // The set is closed in any case; a failure is reported afterwards.
    bool failed = false;
    try {
        FlushPending();
    } catch (const std::exception&) {
        failed = true;
    }
    if (FLazyWrite) {
        for (int k = 0; k <= 4; ++k) {
            if (FOpen && !Damaged()) {
                try {
                    SaveIndex(k);
                } catch (const std::exception&) {
                    failed = true;
                }
            }
            FIxFName[static_cast<std::size_t>(k)].clear();
        }
    }
    FLazyWrite = false;
    ResetSystemData();
    FDataFName.clear();
    FBlobFName.clear();
    FDBName.clear();
    FNumEntries = 0;
    FData.clear();
    FIxItemID.clear();
    for (auto& ix : FIxLL)
        ix.clear();
    FIxSorted = 0;
    FDamage.clear();
    FOpen = false;
    FMaxLatExtent = FMaxLongExtent = 0;
    FWide.clear();
    DropSearchTree();
    if (failed)
        RaiseWriteFailed();
}

// ---- index files -----------------------------------------------------------------------------------

void TGeoDB::SetLazyWrite(bool Value)
{
    const bool was = FLazyWrite;
    FLazyWrite = Value;
    if (was && !Value && FOpen && !Damaged()) {
        FlushPending();
        SaveAllIndexes();
    }
}

void TGeoDB::WriteIndexTemp(int IndexNo)
{
    SettleIndexes();
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(FNumEntries), FIxItemID.size());
    WriteTempFile(FIxFName[static_cast<std::size_t>(IndexNo)], [&](TChunkWriter& w) {
        for (std::size_t i = 0; i < n; ++i) {
            std::span<std::uint8_t, gdbIxRecSize> out(w.Reserve(gdbIxRecSize), gdbIxRecSize);
            if (IndexNo == 0)
                EncodeIxItemIDRec(FIxItemID[i], out);
            else
                EncodeIxLLRec(FIxLL[static_cast<std::size_t>(IndexNo - 1)][i], out);
        }
    }, /*Sync=*/false);  // indexes are checked on every opening and can be rebuilt from the table
}

void TGeoDB::SaveIndex(int IndexNo)
{
    // After a close without LazyWrite the index names survive (a kept quirk); writing then would empty
    // the files of a set that is no longer open.
    if (!FOpen || IndexNo < 0 || IndexNo > 4 || FIxFName[static_cast<std::size_t>(IndexNo)].empty())
        return;
    WriteIndexTemp(IndexNo);
    try {
        RenameTempOver(FIxFName[static_cast<std::size_t>(IndexNo)]);
    } catch (const TFileError&) {
        RemoveFileQuietly(TempNameFor(FIxFName[static_cast<std::size_t>(IndexNo)]));
        throw;
    }
}

void TGeoDB::SaveAllIndexes()
{
    try {
        for (int k = 0; k <= 4; ++k)
            SaveIndex(k);
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
}

// ---- header ---------------------------------------------------------------------------------------------

void TGeoDB::WriteHeader(std::string_view Op)
{
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
        std::array<std::uint8_t, gdbSystemDataSize> hdr{};
        EncodeSystemData(FSysData, hdr);
        f.WriteAt(0, hdr);
        f.Close();
    } catch (const TFileError&) {
        RaiseCannotOpen(Op);
    }
}

void TGeoDB::SetDescription(std::string_view Text)
{
    if (FBlobFName.empty())
        return;
    FSysData.Description = std::string(Text.substr(0, 60));
    if (Damaged())
        Raise("SetDescription", "the database is damaged; repair it before changing it.");
    WriteHeader("SetDescription");
}

void TGeoDB::SetRevision(std::int32_t Rev)
{
    if (FBlobFName.empty())
        return;
    FSysData.Revision = Rev;
    if (Damaged())
        Raise("SetRevision", "the database is damaged; repair it before changing it.");
    WriteHeader("SetRevision");
}

void TGeoDB::ReadSystemInformation()
{
    if (FBlobFName.empty())
        return;
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omRead);
        std::array<std::uint8_t, gdbSystemDataSize> hdr{};
        f.ReadAt(0, hdr);
        f.Close();
        const std::int32_t highest = std::max(FSysData.HighestID, FPendingHighestID);
        FSysData = DecodeSystemData(hdr);
        // Identifiers issued in a bulk bracket but not yet written stay reserved.
        if (FHasPending)
            FSysData.HighestID = std::max(FSysData.HighestID, highest);
    } catch (const TFileError&) {
        RaiseCannotOpen("ReadSystemInformation");
    }
}

// ---- accessors and searches ---------------------------------------------------------------------------

void TGeoDB::SettleIndexes() const
{
    if (FIxSorted.load(std::memory_order_acquire) >= FIxItemID.size())
        return;
    const std::lock_guard lock(FLazyLock);
    const std::size_t sorted = FIxSorted.load(std::memory_order_relaxed);
    if (sorted >= FIxItemID.size())
        return;  // another thread settled them while this one waited
    MergeTailItemID(FIxItemID, sorted);
    for (auto& ix : FIxLL)
        MergeTailLL(ix, sorted);
    FIxSorted.store(FIxItemID.size(), std::memory_order_release);
}

namespace {
template <class Entry>
Entry ClampedEntry(const std::vector<Entry>& Ix, int NumEntries, int i)
{
    const int n = std::min(NumEntries, static_cast<int>(Ix.size()));
    if (n < 1)
        return Entry{};
    Entry e = Ix[static_cast<std::size_t>(std::clamp(i, 1, n) - 1)];
    e.index += 1;
    return e;
}
}  // namespace

TIxItemIDRec TGeoDB::GetIxItemID(int i) const
{
    SettleIndexes();
    return ClampedEntry(FIxItemID, FNumEntries, i);
}
TIxLLRec TGeoDB::GetIxLatLow(int i) const
{
    SettleIndexes();
    return ClampedEntry(FIxLL[0], FNumEntries, i);
}
TIxLLRec TGeoDB::GetIxLatHigh(int i) const
{
    SettleIndexes();
    return ClampedEntry(FIxLL[1], FNumEntries, i);
}
TIxLLRec TGeoDB::GetIxLongLow(int i) const
{
    SettleIndexes();
    return ClampedEntry(FIxLL[2], FNumEntries, i);
}
TIxLLRec TGeoDB::GetIxLongHigh(int i) const
{
    SettleIndexes();
    return ClampedEntry(FIxLL[3], FNumEntries, i);
}

TgdbData TGeoDB::GetSumdata(int i) const
{
    const int n = std::min(FNumEntries, static_cast<int>(FData.size()));
    if (n < 1)
        return TgdbData{};
    return FData[static_cast<std::size_t>(std::clamp(i, 1, n) - 1)];
}

std::int32_t TGeoDB::GetClosestItemIDIx(std::int32_t Id) const
{
    SettleIndexes();
    return ClosestItemIDPos(FIxItemID, FNumEntries - 1, Id) + 1;
}
std::int32_t TGeoDB::GetClosestLatLowIx(double Value) const
{
    SettleIndexes();
    return ClosestLLPos(FIxLL[0], FNumEntries - 1, Value) + 1;
}
std::int32_t TGeoDB::GetClosestLatHighIx(double Value) const
{
    SettleIndexes();
    return ClosestLLPos(FIxLL[1], FNumEntries - 1, Value) + 1;
}
std::int32_t TGeoDB::GetClosestLongLowIx(double Value) const
{
    SettleIndexes();
    return ClosestLLPos(FIxLL[2], FNumEntries - 1, Value) + 1;
}
std::int32_t TGeoDB::GetClosestLongHighIx(double Value) const
{
    SettleIndexes();
    return ClosestLLPos(FIxLL[3], FNumEntries - 1, Value) + 1;
}

std::int32_t TGeoDB::SearchForItemID(std::int32_t Id) const
{
    SettleIndexes();
    const int n = std::min(FNumEntries, static_cast<int>(FIxItemID.size()));
    if (n < 1)
        return 0;
    const int pos = ClosestItemIDPos(FIxItemID, n - 1, Id);
    if (pos >= n || FIxItemID[static_cast<std::size_t>(pos)].ItemID != Id)
        return 0;
    return FIxItemID[static_cast<std::size_t>(pos)].index + 1;
}

const TIxItemIDRecArray& TGeoDB::IxItemIDArray() const
{
    SettleIndexes();
    return FIxItemID;
}

const TIxLLRecArray& TGeoDB::IxLLArray(int IndexNo) const
{
    SettleIndexes();
    return FIxLL[static_cast<std::size_t>(std::clamp(IndexNo, 1, 4) - 1)];
}

// ---- index maintenance ----------------------------------------------------------------------------------

void TGeoDB::InsertIntoIndex(int RecNo, const TgdbData& Data)
{
    // No settling here: the caller has lengthened the arrays, and the free last slot must stay last.
    const std::int32_t r = RecNo - 1;
    SortIxItemIDInto(FIxItemID, TIxItemIDRec{Data.ItemId, r});
    for (int k = 1; k <= 4; ++k)
        SortIxInto(FIxLL[static_cast<std::size_t>(k - 1)], TIxLLRec{IndexKeyOf(Data, k), r});
    FIxSorted = FIxItemID.size();
}

namespace {
template <class Entry>
void RemoveEntryOf(std::vector<Entry>& Ix, int NumEntries, std::int32_t r)
{
    const std::size_t n = std::min(static_cast<std::size_t>(std::max(NumEntries, 0)), Ix.size());
    for (std::size_t i = 0; i < n; ++i)
        if (Ix[i].index == r) {
            std::move(Ix.begin() + static_cast<std::ptrdiff_t>(i) + 1, Ix.begin() + static_cast<std::ptrdiff_t>(n),
                      Ix.begin() + static_cast<std::ptrdiff_t>(i));
            return;
        }
}
}  // namespace

void TGeoDB::RemoveIndexEntries(int RecNo)
{
    const std::int32_t r = RecNo - 1;
    RemoveEntryOf(FIxItemID, FNumEntries, r);
    for (auto& ix : FIxLL)
        RemoveEntryOf(ix, FNumEntries, r);
}

}  // namespace qv
