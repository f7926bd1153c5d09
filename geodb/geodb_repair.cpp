// TGeoDB: the checks run when a set is opened, index rebuilding, compaction of ".xelgdd" and repair.
//
// Compaction and repair must switch ".xelgdd" and ".xelgds" (and for repair the indexes) together, and
// two renames are not atomic. So every new file is first written completely beside its target, then a
// marker file (base + ".xelgdx") is created, then the files are renamed, then the marker is removed. A
// set found with the marker was interrupted between the renames: it opens as damaged, and Repair
// finishes the renames from the temporary files, which were complete before the marker existed.
#include <qvgeo/geodb/geodb.h>

#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/geodb/indexes.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <limits>

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

// Copies byte ranges of the old ".xelgdd" through a window, so that data stored in table order (the
// usual case) is read in large sequential pieces.
class TWindowReader {
public:
    explicit TWindowReader(const TBinFile& File) : FFile(File) {}
    void CopyTo(TChunkWriter& w, std::int64_t Offset, std::int64_t Length)
    {
        while (Length > 0) {
            if (Offset < FStart || Offset >= FStart + static_cast<std::int64_t>(FBuf.size())) {
                // No larger than what is left of the file: zeroing a 4 MiB window for a small set costs
                // more than the copy.
                FBuf.resize(static_cast<std::size_t>(
                    std::clamp<std::int64_t>(FFile.Size() - Offset, 1, static_cast<std::int64_t>(WindowSize))));
                FBuf.resize(FFile.ReadSomeAt(Offset, FBuf));
                FStart = Offset;
                if (FBuf.empty())
                    throw TFileError("short read in \"" + FFile.Path() + "\"");
            }
            const std::int64_t avail = FStart + static_cast<std::int64_t>(FBuf.size()) - Offset;
            const std::int64_t take = std::min(avail, Length);
            w.Put(std::span<const std::uint8_t>(FBuf.data() + (Offset - FStart), static_cast<std::size_t>(take)));
            Offset += take;
            Length -= take;
        }
    }

private:
    const TBinFile& FFile;
    std::vector<std::uint8_t> FBuf;
    std::int64_t FStart = 0;
};

}  // namespace

void TGeoDB::CheckSet()
{
    const std::int64_t ddSize = FileSizeOf(FBlobFName);
    const std::string marker = MarkerNameFor(FDataFName);
    if (FileExistsAt(marker))
        FDamage.push_back("a compaction was interrupted (\"" + marker + "\" exists); Repair completes it");

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
        SaveAllIndexes("RecalcIndexes");
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

void TGeoDB::CompactSet(std::string_view Op, bool WriteIndexes)
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
        RemoveFileQuietly(marker);
        TBinFile m;
        m.OpenOrThrow(marker, TBinFile::omCreateNew);
        m.Sync();
        m.Close();
    } catch (const TFileError&) {
        for (const auto& f : written)
            RemoveFileQuietly(TempNameFor(f));
        RemoveFileQuietly(marker);
        RaiseCannotOpen(Op);
    }
    // From here on the new files are complete: an interruption is finished by Repair.
    try {
        for (const auto& f : written)
            RenameTempOver(f);
    } catch (const TFileError&) {
        FDamage.push_back("a compaction was interrupted (\"" + marker + "\" exists); Repair completes it");
        RaiseCannotOpen(Op);
    }
    RemoveFileQuietly(marker);
    for (std::size_t i = 0; i < FData.size(); ++i)
        FData[i].BlobOffset = newOffsets[i];
    Progress(100);
}

void TGeoDB::GarbageCollection()
{
    FlushPending();
    CheckWritable("GarbageCollection");
    CompactSet("GarbageCollection", false);
}

void TGeoDB::Repair()
{
    if (FDataFName.empty() || FBlobFName.empty())
        RaiseCannotOpen("Repair");
    FlushPending();
    const std::string marker = MarkerNameFor(FDataFName);
    if (FileExistsAt(marker)) {
        try {
            for (const std::string* f : {&FBlobFName, &FDataFName, &FIxFName[0], &FIxFName[1], &FIxFName[2],
                                         &FIxFName[3], &FIxFName[4]})
                if (!f->empty() && FileExistsAt(TempNameFor(*f)))
                    RenameTempOver(*f);
        } catch (const TFileError&) {
            RaiseCannotOpen("Repair");
        }
        RemoveFileQuietly(marker);
        const bool lazy = FLazyWrite;
        OpenSet(FDBName);
        FLazyWrite = lazy;
        if (!Damaged())
            return;
    }
    if (!FOpen)
        RaiseCannotOpen("Repair");
    const std::int64_t ddSize = FileSizeOf(FBlobFName);
    for (auto& d : FData)
        if (!DataRangeOK(d, ddSize)) {
            d.BlobOffset = -1;
            d.NumPoints = 0;
        }
    for (const auto& d : FData)
        FSysData.HighestID = std::max(FSysData.HighestID, d.ItemId);
    // The in-memory indexes were checked (and rebuilt where needed) when the set was opened.
    CompactSet("Repair", true);
    FDamage.clear();
}

}  // namespace qv
