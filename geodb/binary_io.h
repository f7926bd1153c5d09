// Binary file access for the database files: positioned reads and writes on a file descriptor, creation
// that never truncates an existing file, buffered sequential writing, and whole-file replacement through
// a temporary file and a rename. Failures throw TFileError with a technical text (path and system
// reason); TGeoDB turns them into its own component messages.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace qv {

class TFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Size of a file in bytes, or -1 when it does not exist or cannot be examined.
std::int64_t FileSizeOf(const std::string& Path) noexcept;
bool FileExistsAt(const std::string& Path) noexcept;

class TBinFile {
public:
    enum TOpenMode : std::uint8_t {
        omRead,       // existing file, read only
        omReadWrite,  // existing file, read and write, never truncated
        omCreateNew,  // a new file; fails if one exists already (so nothing is ever truncated)
    };

    TBinFile() = default;
    TBinFile(const TBinFile&) = delete;
    TBinFile& operator=(const TBinFile&) = delete;
    TBinFile(TBinFile&& Other) noexcept;
    TBinFile& operator=(TBinFile&& Other) noexcept;
    ~TBinFile();

    // False (and the file stays closed) when the file cannot be opened in this mode.
    bool Open(const std::string& Path, TOpenMode Mode) noexcept;
    void OpenOrThrow(const std::string& Path, TOpenMode Mode);
    bool IsOpen() const noexcept { return FFd >= 0; }
    const std::string& Path() const noexcept { return FPath; }

    std::int64_t Size() const;
    // Reads exactly Buf.size() bytes at Offset; throws on a short read.
    void ReadAt(std::int64_t Offset, std::span<std::uint8_t> Buf) const;
    // Reads up to Buf.size() bytes at Offset; returns how many were there.
    std::size_t ReadSomeAt(std::int64_t Offset, std::span<std::uint8_t> Buf) const;
    void WriteAt(std::int64_t Offset, std::span<const std::uint8_t> Buf);
    void Truncate(std::int64_t Size);
    void Sync();
    // Closes and reports a failing close (a delayed write error) as TFileError.
    void Close();

private:
    [[noreturn]] void Fail(const char* What) const;
    int FFd = -1;
    std::string FPath;
};

// Collects bytes and writes them to a file in large sequential pieces, starting at a given offset.
class TChunkWriter {
public:
    TChunkWriter(TBinFile& File, std::int64_t Offset);
    void Put(std::span<const std::uint8_t> Bytes);
    // A slot of N bytes to fill in place (N at most the chunk size).
    std::uint8_t* Reserve(std::size_t N);
    void Flush();
    std::int64_t Position() const noexcept { return FOffset + static_cast<std::int64_t>(FBuf.size()); }

private:
    TBinFile& FFile;
    std::int64_t FOffset;
    std::vector<std::uint8_t> FBuf;
};

// The name of the temporary file through which Path is replaced.
std::string TempNameFor(const std::string& Path);

// Writes a new file beside Path (TempNameFor(Path)), optionally syncs it, and renames it over Path, so
// that after a crash of the program Path holds either its old or its complete new contents. Sync also
// covers a power loss, at the price of a disk flush (milliseconds); it is skipped for files that can be
// rebuilt, such as the indexes. Write receives the new file, positioned at offset 0. On failure the
// temporary file is removed and the error rethrown.
void ReplaceFileAtomically(const std::string& Path, const std::function<void(TChunkWriter&)>& Write,
                           bool Sync = true);
// Writes the complete temporary file only, leaving the rename to the caller (several files that must be
// switched together).
void WriteTempFile(const std::string& Path, const std::function<void(TChunkWriter&)>& Write, bool Sync = true);
// Renames the temporary file over Path; on failure the temporary file stays (a compaction that is
// half switched needs it to finish).
void RenameTempOver(const std::string& Path);
void RemoveFileQuietly(const std::string& Path) noexcept;
// Removes Path; true when it is gone (also when it never existed).
bool RemoveFile(const std::string& Path) noexcept;

// Fault injection for tests. SetIoFaultAfter(N) makes the N-th file-changing step from now fail as a
// full disk would: opening or creating a file for writing, a write (which first writes half of its
// bytes), truncation, sync, rename or removal (a failed quiet removal leaves the file). Later steps run
// normally again. N = 0 switches it off, which is the default; then each step costs one relaxed atomic
// load. Process-wide: tests that use it must not run file operations on other threads meanwhile.
void SetIoFaultAfter(std::int64_t N) noexcept;
// True when the fault armed by the last SetIoFaultAfter has happened.
bool IoFaultHappened() noexcept;

}  // namespace qv
