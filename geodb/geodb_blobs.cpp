// TGeoDB BLOBs: binary objects stored in ".xelgdd" as a 1024-byte TMetaInfo followed by their bytes;
// the record's BlobOffset points at the meta data and its Size counts the bytes after it.
#include <qvgeo/geodb/geodb.h>

#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <istream>
#include <limits>
#include <ostream>

namespace qv {

namespace {
constexpr std::int64_t MaxOffset = std::numeric_limits<std::int32_t>::max();
}  // namespace

// ---- BLOBs ----------------------------------------------------------------------------------------------

int TGeoDB::AddBLOBBytes(TgdbData& Data, std::span<const std::uint8_t> Bytes, const TMetaInfo& MetaInfo)
{
    if (Bytes.size() > static_cast<std::size_t>(MaxOffset - gdbSystemDataSize - gdbMetaInfoSize))
        Raise("AddData", "the BLOB is too large.");
    TgdbData d = Data;
    if (d.Name.size() > static_cast<std::size_t>(gdbNameLen))
        d.Name.resize(gdbNameLen);
    d.ItemKind = gitBLOB;
    d.Closed = false;
    d.SetSize(static_cast<std::int32_t>(Bytes.size()));
    std::vector<std::uint8_t> payload(gdbMetaInfoSize + Bytes.size());
    EncodeMetaInfo(MetaInfo, std::span<std::uint8_t, gdbMetaInfoSize>(payload.data(), gdbMetaInfoSize));
    std::copy(Bytes.begin(), Bytes.end(), payload.begin() + gdbMetaInfoSize);
    const int recNo = AppendItem("AddData", d, payload);
    Data = d;
    return recNo;
}

int TGeoDB::AddBLOB(TgdbData& Data, const std::string& FileName)
{
    TMetaInfo meta;
    meta.FilePath = FileName.substr(0, 127);
    return AddBLOB(Data, FileName, meta);
}

int TGeoDB::AddBLOB(TgdbData& Data, const std::string& FileName, const TMetaInfo& MetaInfo)
{
    std::vector<std::uint8_t> bytes;
    try {
        TBinFile f;
        f.OpenOrThrow(FileName, TBinFile::omRead);
        const std::int64_t size = f.Size();
        if (size > MaxOffset)
            throw TFileError("too large");
        bytes.resize(static_cast<std::size_t>(size));
        f.ReadAt(0, bytes);
        f.Close();
    } catch (const TFileError&) {
        Raise("AddBLOB", "invalid filename.");
    }
    return AddBLOBBytes(Data, bytes, MetaInfo);
}

int TGeoDB::AddBLOB(TgdbData& Data, std::span<const std::uint8_t> Buffer)
{
    return AddBLOBBytes(Data, Buffer, TMetaInfo{});
}

int TGeoDB::AddBLOB(TgdbData& Data, std::span<const std::uint8_t> Buffer, const TMetaInfo& MetaInfo)
{
    return AddBLOBBytes(Data, Buffer, MetaInfo);
}

int TGeoDB::AddBLOB(TgdbData& Data, std::istream& Stream, const TMetaInfo& MetaInfo)
{
    std::vector<std::uint8_t> bytes;
    char buf[65536];
    while (Stream.read(buf, sizeof buf) || Stream.gcount() > 0) {
        bytes.insert(bytes.end(), buf, buf + Stream.gcount());
        if (bytes.size() > static_cast<std::size_t>(MaxOffset))
            Raise("AddData", "the BLOB is too large.");
    }
    return AddBLOBBytes(Data, bytes, MetaInfo);
}

const TgdbData& TGeoDB::BlobRecord(std::string_view Op, int RecNo, TMetaInfo& MetaInfo, bool Writing)
{
    FlushPending();
    const int r = CheckRecNo(Op, RecNo);
    const TgdbData& rec = FData[static_cast<std::size_t>(r)];
    if (rec.ItemKind != gitBLOB || rec.BlobOffset < 0 || rec.Size() < 0)
        Raise(Op, "item " + std::to_string(RecNo) + " is not a BLOB.");
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omRead);
        if (rec.BlobOffset < gdbSystemDataSize ||
            static_cast<std::int64_t>(rec.BlobOffset) + gdbMetaInfoSize + rec.Size() > f.Size())
            Raise(Op, "the item's data lies outside the data file.");
        std::array<std::uint8_t, gdbMetaInfoSize> buf{};
        f.ReadAt(rec.BlobOffset, buf);
        f.Close();
        MetaInfo = DecodeMetaInfo(buf);
    } catch (const TFileError&) {
        if (Writing)
            RaiseWriteFailed();
        RaiseCannotOpen(Op);
    }
    return rec;
}

std::vector<std::uint8_t> TGeoDB::ReadBlobBytes(std::string_view Op, const TgdbData& Rec) const
{
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(Rec.Size()));
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omRead);
        f.ReadAt(static_cast<std::int64_t>(Rec.BlobOffset) + gdbMetaInfoSize, bytes);
        f.Close();
    } catch (const TFileError&) {
        RaiseCannotOpen(Op);
    }
    return bytes;
}

void TGeoDB::RetrieveBLOB(int RecNo, const std::string& FileName, TMetaInfo& MetaInfo)
{
    if (FileName.empty())
        Raise("RetrieveBLOB", "invalid filename.");
    const TgdbData& rec = BlobRecord("RetrieveBLOB", RecNo, MetaInfo);
    const std::vector<std::uint8_t> bytes = ReadBlobBytes("RetrieveBLOB", rec);
    try {
        ReplaceFileAtomically(FileName, [&](TChunkWriter& w) { w.Put(bytes); }, /*Sync=*/false);
    } catch (const TFileError&) {
        Raise("RetrieveBLOB", "invalid filename.");
    }
}

std::int32_t TGeoDB::RetrieveBLOB(int RecNo, std::span<std::uint8_t> Buffer, TMetaInfo& MetaInfo)
{
    const TgdbData& rec = BlobRecord("RetrieveBLOB", RecNo, MetaInfo);
    if (static_cast<std::size_t>(rec.Size()) > Buffer.size())
        Raise("RetrieveBLOB", "BLOB to be retrieved is larger than SizeOfBlobData.");
    try {
        TBinFile f;
        f.OpenOrThrow(FBlobFName, TBinFile::omRead);
        f.ReadAt(static_cast<std::int64_t>(rec.BlobOffset) + gdbMetaInfoSize,
                 Buffer.first(static_cast<std::size_t>(rec.Size())));
        f.Close();
    } catch (const TFileError&) {
        RaiseCannotOpen("RetrieveBLOB");
    }
    return rec.Size();
}

void TGeoDB::RetrieveBLOB(int RecNo, std::ostream& Stream, TMetaInfo& MetaInfo)
{
    const TgdbData& rec = BlobRecord("RetrieveBLOB", RecNo, MetaInfo);
    const std::vector<std::uint8_t> bytes = ReadBlobBytes("RetrieveBLOB", rec);
    Stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!Stream)
        Raise("RetrieveBLOB", "cannot write to the stream.");
}

TMetaInfo TGeoDB::GetMetaInfo(int RecNo)
{
    TMetaInfo meta;
    BlobRecord("GetMetaInfo", RecNo, meta);
    return meta;
}

void TGeoDB::UpdateMetaInfo(int RecNo, const TMetaInfo& MetaInfo)
{
    FlushPending();
    CheckWritable("UpdateMetaInfo");
    TMetaInfo old;
    const TgdbData rec = BlobRecord("UpdateMetaInfo", RecNo, old, /*Writing=*/true);
    // The new meta data goes behind a fresh copy of the bytes, so the record is switched only once both
    // are on disk.
    const std::vector<std::uint8_t> bytes = ReadBlobBytes("AddData", rec);
    TgdbData d = rec;
    try {
        TBinFile dd;
        dd.OpenOrThrow(FBlobFName, TBinFile::omReadWrite);
        const std::int64_t off = dd.Size();
        if (off + gdbMetaInfoSize + static_cast<std::int64_t>(bytes.size()) > MaxOffset)
            Raise("UpdateMetaInfo", "the data file would exceed 2 GiB.");
        std::vector<std::uint8_t> payload(gdbMetaInfoSize + bytes.size());
        EncodeMetaInfo(MetaInfo, std::span<std::uint8_t, gdbMetaInfoSize>(payload.data(), gdbMetaInfoSize));
        std::copy(bytes.begin(), bytes.end(), payload.begin() + gdbMetaInfoSize);
        dd.WriteAt(off, payload);
        dd.Close();
        d.BlobOffset = static_cast<std::int32_t>(off);
        OverwriteRecord(RecNo - 1, d);
    } catch (const TFileError&) {
        RaiseWriteFailed();
    }
    FData[static_cast<std::size_t>(RecNo - 1)] = d;
}

}  // namespace qv
