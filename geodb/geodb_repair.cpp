// TGeoDB: the checks run when a set is opened, index rebuilding, compaction of ".xelgdd" and repair.
//
// Compaction and repair must switch ".xelgdd" and ".xelgds" (and for repair the indexes) together, and
// two renames are not atomic. So every new file is first written completely beside its target, then a
// marker file (base + ".xelgdx") is created, then the files are renamed, then the marker is removed. A
// set found with the marker was interrupted between the renames: it opens as damaged, and Repair
// finishes the renames from the temporary files, which were complete before the marker existed.
//
// Repair trusts nothing it cannot check: a table record must look like one this format's writers
// produce, polygon points must lie inside their item's bounding box, a BLOB's meta data must have valid
// lengths, and no two items may claim the same bytes. An unreadable header is replaced by a new one. The
// indexes are rebuilt from the records that are kept.
#include <qvgeo/geodb/geodb.h>

#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/geodb/indexes.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_set>

namespace qv {

namespace {

constexpr std::int64_t MaxOffset = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t WindowSize = 4 << 20;

// Byte length in ".xelgdd" of what a record points to (0 when it points to nothing).
std::int64_t DataLength(const TgdbData& d)
{
    if (d.BlobOffset < 0)
        return 0;
    if (d.ItemKind == gitBLOB)
        return gdbMetaInfoSize + static_cast<std::int64_t>(d.Size());
    return static_cast<std::int64_t>(d.NumPoints) * gdbSCoordsSize;
}

bool DataRangeOK(const TgdbData& d, std::int64_t FileSize)
{
    if (d.BlobOffset < 0)
        return true;
    if (d.BlobOffset < gdbSystemDataSize || d.NumPoints < 0)
        return false;
    return static_cast<std::int64_t>(d.BlobOffset) + DataLength(d) <= FileSize;
}

std::string MarkerNameFor(const std::string& DataFName)
{
    // DataFName is base + ".xelgds".
    return DataFName.substr(0, DataFName.size() - 7) + ".xelgdx";
}

// Reads byte ranges of a file through a window, so that data stored in file order (the usual case) is
// read in large sequential pieces.
class TWindowReader {
public:
    explicit TWindowReader(const TBinFile& File) : FFile(File) {}
    // Length bytes at Offset (Length at most the window size); throws when the file ends before.
    const std::uint8_t* At(std::int64_t Offset, std::size_t Length)
    {
        if (Offset < FStart || Offset + static_cast<std::int64_t>(Length) > FStart + static_cast<std::int64_t>(FBuf.size())) {
            // No larger than what is left of the file: zeroing a whole window for a small set costs more
            // than the copy.
            FBuf.resize(static_cast<std::size_t>(std::clamp<std::int64_t>(
                FFile.Size() - Offset, static_cast<std::int64_t>(Length), static_cast<std::int64_t>(WindowSize))));
            FBuf.resize(FFile.ReadSomeAt(Offset, FBuf));
            FStart = Offset;
            if (FBuf.size() < Length)
                throw TFileError("short read in \"" + FFile.Path() + "\"");
        }
        return FBuf.data() + (Offset - FStart);
    }
    void CopyTo(TChunkWriter& w, std::int64_t Offset, std::int64_t Length)
    {
        while (Length > 0) {
            const auto take = static_cast<std::size_t>(std::min<std::int64_t>(Length, WindowSize / 2));
            w.Put(std::span<const std::uint8_t>(At(Offset, take), take));
            Offset += static_cast<std::int64_t>(take);
            Length -= static_cast<std::int64_t>(take);
        }
    }

private:
    const TBinFile& FFile;
    std::vector<std::uint8_t> FBuf;
    std::int64_t FStart = 0;
};

const char* const InterruptedNote = "a compaction was interrupted (\"";

}  // namespace

void TGeoDB::CheckSet()
{
    const std::int64_t ddSize = FileSizeOf(FBlobFName);
    const std::string marker = MarkerNameFor(FDataFName);
    if (FileExistsAt(marker))
        FDamage.push_back(InterruptedNote + marker + "\" exists); Repair completes it");

    for (int k = 0; k <= 4; ++k) {
        const std::string why = k == 0 ? CheckIndexItemID(FData, FIxItemID)
                                       : CheckIndexLL(FData, k, FIxLL[static_cast<std::size_t>(k - 1)]);
        if (why.empty())
            continue;
        FDamage.push_back("index file \"" + FIxFName[static_cast<std::size_t>(k)] + "\" " + why +
                          "; it is rebuilt in memory");
        if (k == 0)
            BuildIndexItemID(FData, FIxItemID);
        else
            BuildIndexLL(FData, k, FIxLL[static_cast<std::size_t>(k - 1)]);
    }
    FIxSorted = FIxItemID.size();

    int bad = 0;
    std::int32_t maxId = std::numeric_limits<std::int32_t>::min();
    int maxIdRec = 0;
    for (std::size_t i = 0; i < FData.size(); ++i) {
        const TgdbData& d = FData[i];
        if (!DataRangeOK(d, ddSize)) {
            if (bad < 5)
                FDamage.push_back("record " + std::to_string(i + 1) + " points to bytes " +
                                  std::to_string(d.BlobOffset) + ".." +
                                  std::to_string(d.BlobOffset + DataLength(d)) + " outside \"" + FBlobFName +
                                  "\" (" + std::to_string(ddSize) + " bytes)");
            ++bad;
        }
        if (d.ItemId > maxId) {
            maxId = d.ItemId;
            maxIdRec = static_cast<int>(i) + 1;
        }
    }
    if (bad > 5)
        FDamage.push_back(std::to_string(bad - 5) + " more records point outside \"" + FBlobFName + "\"");
    if (!FData.empty() && maxId > FSysData.HighestID)
        FDamage.push_back("HighestID " + std::to_string(FSysData.HighestID) + " is below the identifier " +
                          std::to_string(maxId) + " of record " + std::to_string(maxIdRec));
    RecalcExtents();
}

void TGeoDB::RecalcIndexes()
{
    FlushPending();
    CheckWritable("RecalcIndexes");
    BuildIndexItemID(FData, FIxItemID);
    Progress(20);
    for (int k = 1; k <= 4; ++k) {
        BuildIndexLL(FData, k, FIxLL[static_cast<std::size_t>(k - 1)]);
        Progress(20.0 * (k + 1));
    }
    FIxSorted = FIxItemID.size();
    RecalcExtents();
    if (!FLazyWrite)
        SaveAllIndexes();
}

std::int64_t TGeoDB::GarbageBytes() const
{
    const std::int64_t ddSize = FileSizeOf(FBlobFName);
    if (ddSize < gdbSystemDataSize)
        return 0;
    std::int64_t used = 0;
    for (const auto& d : FData)
        if (DataRangeOK(d, ddSize))
            used += DataLength(d);
    return std::max<std::int64_t>(0, ddSize - gdbSystemDataSize - used);
}

void TGeoDB::CompactSet(bool WriteIndexes)
{
    SettleIndexes();
    const std::string marker = MarkerNameFor(FDataFName);
    std::vector<std::int32_t> newOffsets(FData.size(), -1);
    std::vector<std::string> written;
    try {
        TBinFile old;
        const bool haveOld = old.Open(FBlobFName, TBinFile::omRead);
        WriteTempFile(FBlobFName, [&](TChunkWriter& w) {
            EncodeSystemData(FSysData, std::span<std::uint8_t, gdbSystemDataSize>(w.Reserve(gdbSystemDataSize),
                                                                                  gdbSystemDataSize));
            TWindowReader reader(old);
            double nextReport = 0;
            for (std::size_t i = 0; i < FData.size(); ++i) {
                const TgdbData& d = FData[i];
                const std::int64_t len = DataLength(d);
                if (d.BlobOffset >= 0) {
                    if (w.Position() + len > MaxOffset)
                        throw TFileError("data file would exceed 2 GiB");
                    newOffsets[i] = static_cast<std::int32_t>(w.Position());
                    if (len > 0) {
                        if (!haveOld)
                            throw TFileError("cannot open \"" + FBlobFName + "\"");
                        reader.CopyTo(w, d.BlobOffset, len);
                    }
                }
                const double pct = 80.0 * static_cast<double>(i + 1) / static_cast<double>(FData.size());
                if (pct >= nextReport) {
                    Progress(pct);
                    nextReport = pct + 1;
                }
            }
        });
        written.push_back(FBlobFName);
        old.Close();
        WriteTempFile(FDataFName, [&](TChunkWriter& w) {
            for (std::size_t i = 0; i < FData.size(); ++i) {
                TgdbData d = FData[i];
                d.BlobOffset = newOffsets[i];
                EncodeGdbData(d, std::span<std::uint8_t, gdbDataSize>(w.Reserve(gdbDataSize), gdbDataSize));
            }
        });
        written.push_back(FDataFName);
        if (WriteIndexes)
            for (int k = 0; k <= 4; ++k) {
                WriteIndexTemp(k);
                written.push_back(FIxFName[static_cast<std::size_t>(k)]);
            }
        // An old marker would make Repair rename files that are not complete yet.
        if (!RemoveFile(marker))
            throw TFileError("cannot remove \"" + marker + "\"");
        TBinFile m;
        m.OpenOrThrow(marker, TBinFile::omCreateNew);
        m.Sync();
        m.Close();
    } catch (const TFileError&) {
        for (const auto& f : written)
            RemoveFileQuietly(TempNameFor(f));
        RemoveFileQuietly(marker);
        RaiseWriteFailed();
    }
    // From here on the new files are complete: an interruption is finished by Repair. Until the marker
    // is gone the set counts as damaged, so that nothing else writes to it meanwhile.
    try {
        for (const auto& f : written)
            RenameTempOver(f);
    } catch (const TFileError&) {
        FDamage.push_back(InterruptedNote + marker + "\" exists); Repair completes it");
        RaiseWriteFailed();
    }
    for (std::size_t i = 0; i < FData.size(); ++i)
        FData[i].BlobOffset = newOffsets[i];
    if (!RemoveFile(marker)) {
        FDamage.push_back(InterruptedNote + marker + "\" exists); Repair completes it");
        RaiseWriteFailed();
    }
    Progress(100);
}

void TGeoDB::GarbageCollection()
{
    FlushPending();
    CheckWritable("GarbageCollection");
    CompactSet(false);
}

void TGeoDB::SalvageForRepair()
{
    TBinFile ds, dd;
    ds.OpenOrThrow(FDataFName, TBinFile::omRead);
    const std::int64_t count = ds.Size() / gdbDataSize;
    const std::int64_t ddSize = dd.Open(FBlobFName, TBinFile::omRead) ? dd.Size() : -1;
    std::array<std::uint8_t, gdbSystemDataSize> hdr{};
    if (ddSize >= gdbSystemDataSize)
        dd.ReadAt(0, hdr);
    if (ddSize < gdbSystemDataSize || !SystemDataProblem(hdr).empty())
        FSysData = TgdbSystemData{};

    TWindowReader table(ds), data(dd);
    // Whether what a record points to is there and looks like what the record says it is.
    const auto dataChecksOut = [&](const TgdbData& d) {
        if (!DataRangeOK(d, ddSize))
            return false;
        if (d.ItemKind == gitBLOB)
            return d.Size() >= 0 &&
                   MetaInfoPlausible(std::span<const std::uint8_t, gdbMetaInfoSize>(data.At(d.BlobOffset, gdbMetaInfoSize),
                                                                                    gdbMetaInfoSize));
        if (d.NumPoints < 1)
            return false;
        for (std::int64_t j = 0; j < d.NumPoints; ++j) {
            const TSCoords p = DecodeSCoords(std::span<const std::uint8_t, gdbSCoordsSize>(
                data.At(d.BlobOffset + j * gdbSCoordsSize, gdbSCoordsSize), gdbSCoordsSize));
            // Comparisons with NaN are false, so a NaN point or corner fails here as well.
            if (!(p.Latit >= d.LatLow && p.Latit <= d.LatHigh && p.Longit >= d.LongLow && p.Longit <= d.LongHigh))
                return false;
        }
        return true;
    };

    std::vector<TgdbData> kept;
    std::unordered_set<std::int32_t> ids;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::span<const std::uint8_t, gdbDataSize> raw(table.At(i * gdbDataSize, gdbDataSize), gdbDataSize);
        if (!GdbDataPlausible(raw))
            continue;
        TgdbData d = DecodeGdbData(raw);
        if (!ids.insert(d.ItemId).second)
            continue;
        if (d.BlobOffset >= 0 && !dataChecksOut(d)) {
            if (d.ItemKind == gitBLOB)
                continue;  // a BLOB record without its bytes holds nothing worth keeping
            d.BlobOffset = -1;  // the item stays, as a place without points
            d.NumPoints = 0;
        }
        kept.push_back(std::move(d));
    }

    // Every writer appends each item's data at the end of the file, so two items never share bytes.
    // Where they would, the item whose data starts later (or, at the same offset, comes later in the
    // table) loses it.
    std::vector<std::size_t> byOffset;
    for (std::size_t i = 0; i < kept.size(); ++i)
        if (kept[i].BlobOffset >= 0 && DataLength(kept[i]) > 0)
            byOffset.push_back(i);
    std::stable_sort(byOffset.begin(), byOffset.end(),
              [&](std::size_t a, std::size_t b) { return kept[a].BlobOffset < kept[b].BlobOffset; });
    std::int64_t end = 0;
    std::vector<bool> drop(kept.size(), false);
    for (const std::size_t i : byOffset) {
        TgdbData& d = kept[i];
        if (d.BlobOffset < end) {
            if (d.ItemKind == gitBLOB)
                drop[i] = true;
            d.BlobOffset = -1;
            d.NumPoints = 0;
            continue;
        }
        end = d.BlobOffset + DataLength(d);
    }
    std::size_t to = 0;
    for (std::size_t i = 0; i < kept.size(); ++i)
        if (!drop[i]) {
            if (to != i)  // a self-move would empty the name
                kept[to] = std::move(kept[i]);
            ++to;
        }
    kept.resize(to);

    for (const auto& d : kept)
        FSysData.HighestID = std::max(FSysData.HighestID, d.ItemId);
    FData = std::move(kept);
    FNumEntries = static_cast<int>(FData.size());
    BuildIndexItemID(FData, FIxItemID);
    for (int k = 1; k <= 4; ++k)
        BuildIndexLL(FData, k, FIxLL[static_cast<std::size_t>(k - 1)]);
    FIxSorted = FIxItemID.size();
    RecalcExtents();
}

void TGeoDB::Repair()
{
    if (FDataFName.empty() || FBlobFName.empty())
        RaiseWriteFailed();
    FlushPending();
    const std::string marker = MarkerNameFor(FDataFName);
    if (FileExistsAt(marker)) {
        try {
            for (const std::string* f : {&FBlobFName, &FDataFName, &FIxFName[0], &FIxFName[1], &FIxFName[2],
                                         &FIxFName[3], &FIxFName[4]})
                if (!f->empty() && FileExistsAt(TempNameFor(*f)))
                    RenameTempOver(*f);
        } catch (const TFileError&) {
            RaiseWriteFailed();
        }
        if (!RemoveFile(marker))
            RaiseWriteFailed();
        const bool lazy = FLazyWrite;
        OpenSet(FDBName);
        FLazyWrite = lazy;
    }
    if (!FOpen)
        RaiseWriteFailed();
    try {
        try {
            SalvageForRepair();
        } catch (const TFileError&) {
            RaiseWriteFailed();
        }
        CompactSet(true);
    } catch (const EXELGeoDBError&) {
        // The table in memory may now differ from the one on disk: no writing until a repair completes.
        FDamage.push_back("a repair did not complete; Repair again");
        throw;
    }
    FDamage.clear();
}

}  // namespace qv
