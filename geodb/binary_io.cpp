// POSIX file descriptors rather than iostreams: the database needs positioned reads and writes, creation
// with O_EXCL (an existing file must never be truncated by an "open or create"), fsync before a rename,
// and error texts with the system's reason.
#include <qvgeo/geodb/binary_io.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {
constexpr std::size_t ChunkSize = 1 << 20;

std::string Reason() { return std::strerror(errno); }

std::atomic<std::int64_t> gFaultCountdown{0};
std::atomic<bool> gFaultHappened{false};

// True (with errno set) when this file-changing step is the one chosen to fail.
bool InjectedFault() noexcept
{
    const std::int64_t n = gFaultCountdown.load(std::memory_order_relaxed);
    if (n <= 0)
        return false;
    gFaultCountdown.store(n - 1, std::memory_order_relaxed);
    if (n != 1)
        return false;
    gFaultHappened.store(true, std::memory_order_relaxed);
    errno = ENOSPC;
    return true;
}
}  // namespace

void SetIoFaultAfter(std::int64_t N) noexcept
{
    gFaultHappened.store(false, std::memory_order_relaxed);
    gFaultCountdown.store(std::max<std::int64_t>(N, 0), std::memory_order_relaxed);
}

bool IoFaultHappened() noexcept { return gFaultHappened.load(std::memory_order_relaxed); }

std::int64_t FileSizeOf(const std::string& Path) noexcept
{
    struct stat st {};
    if (::stat(Path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return -1;
    return static_cast<std::int64_t>(st.st_size);
}

bool FileExistsAt(const std::string& Path) noexcept
{
    struct stat st {};
    return ::stat(Path.c_str(), &st) == 0;
}

TBinFile::TBinFile(TBinFile&& Other) noexcept : FFd(Other.FFd), FPath(std::move(Other.FPath))
{
    Other.FFd = -1;
}

TBinFile& TBinFile::operator=(TBinFile&& Other) noexcept
{
    if (this != &Other) {
        if (FFd >= 0)
            ::close(FFd);
        FFd = Other.FFd;
        FPath = std::move(Other.FPath);
        Other.FFd = -1;
    }
    return *this;
}

TBinFile::~TBinFile()
{
    if (FFd >= 0)
        ::close(FFd);
}

bool TBinFile::Open(const std::string& Path, TOpenMode Mode) noexcept
{
    if (FFd >= 0) {
        ::close(FFd);
        FFd = -1;
    }
    int flags = O_CLOEXEC;
    switch (Mode) {
    case omRead: flags |= O_RDONLY; break;
    case omReadWrite: flags |= O_RDWR; break;
    case omCreateNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
    }
    if (Path.empty() || (Mode != omRead && InjectedFault()))
        return false;
    int fd = -1;
    do
        fd = ::open(Path.c_str(), flags, 0666);
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return false;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        // A directory or a device under a database name is not a database file.
        ::close(fd);
        errno = EISDIR;
        return false;
    }
    FFd = fd;
    FPath = Path;
    return true;
}

void TBinFile::OpenOrThrow(const std::string& Path, TOpenMode Mode)
{
    if (!Open(Path, Mode))
        throw TFileError("cannot open \"" + Path + "\": " + Reason());
}

void TBinFile::Fail(const char* What) const
{
    throw TFileError(std::string(What) + " \"" + FPath + "\": " + Reason());
}

std::int64_t TBinFile::Size() const
{
    struct stat st {};
    if (FFd < 0 || ::fstat(FFd, &st) != 0)
        Fail("cannot examine");
    return static_cast<std::int64_t>(st.st_size);
}

std::size_t TBinFile::ReadSomeAt(std::int64_t Offset, std::span<std::uint8_t> Buf) const
{
    if (Offset < 0)
        throw TFileError("negative offset in \"" + FPath + "\"");
    std::size_t done = 0;
    while (done < Buf.size()) {
        const ssize_t n = ::pread(FFd, Buf.data() + done, Buf.size() - done,
                                  static_cast<off_t>(Offset + static_cast<std::int64_t>(done)));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            Fail("cannot read");
        }
        if (n == 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

void TBinFile::ReadAt(std::int64_t Offset, std::span<std::uint8_t> Buf) const
{
    if (ReadSomeAt(Offset, Buf) != Buf.size())
        throw TFileError("short read in \"" + FPath + "\" at offset " + std::to_string(Offset));
}

void TBinFile::WriteAt(std::int64_t Offset, std::span<const std::uint8_t> Buf)
{
    if (Offset < 0)
        throw TFileError("negative offset in \"" + FPath + "\"");
    if (InjectedFault()) {
        const int err = errno;
        const std::size_t half = Buf.size() / 2;
        if (half > 0 && ::pwrite(FFd, Buf.data(), half, static_cast<off_t>(Offset)) < 0) {
            // The fault reported below stands for this one as well.
        }
        errno = err;
        Fail("cannot write");
    }
    std::size_t done = 0;
    while (done < Buf.size()) {
        const ssize_t n = ::pwrite(FFd, Buf.data() + done, Buf.size() - done,
                                   static_cast<off_t>(Offset + static_cast<std::int64_t>(done)));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            Fail("cannot write");
        }
        done += static_cast<std::size_t>(n);
    }
}

void TBinFile::Truncate(std::int64_t Size)
{
    if (InjectedFault() || ::ftruncate(FFd, static_cast<off_t>(Size)) != 0)
        Fail("cannot truncate");
}

void TBinFile::Sync()
{
    if (InjectedFault() || ::fsync(FFd) != 0)
        Fail("cannot sync");
}

void TBinFile::Close()
{
    if (FFd < 0)
        return;
    const int fd = FFd;
    FFd = -1;
    if (::close(fd) != 0 && errno != EINTR)
        Fail("cannot close");
}

TChunkWriter::TChunkWriter(TBinFile& File, std::int64_t Offset) : FFile(File), FOffset(Offset)
{
    // The buffer grows as needed up to ChunkSize: most files written (indexes, the header) are small,
    // and reserving a whole chunk per writer made each small rewrite allocate and clear a megabyte.
}

void TChunkWriter::Put(std::span<const std::uint8_t> Bytes)
{
    while (!Bytes.empty()) {
        const std::size_t room = ChunkSize - FBuf.size();
        const std::size_t n = std::min(room, Bytes.size());
        FBuf.insert(FBuf.end(), Bytes.begin(), Bytes.begin() + static_cast<std::ptrdiff_t>(n));
        Bytes = Bytes.subspan(n);
        if (FBuf.size() == ChunkSize)
            Flush();
    }
}

std::uint8_t* TChunkWriter::Reserve(std::size_t N)
{
    if (FBuf.size() + N > ChunkSize)
        Flush();
    const std::size_t at = FBuf.size();
    FBuf.resize(at + N);
    return FBuf.data() + at;
}

void TChunkWriter::Flush()
{
    if (FBuf.empty())
        return;
    FFile.WriteAt(FOffset, FBuf);
    FOffset += static_cast<std::int64_t>(FBuf.size());
    FBuf.clear();
}

std::string TempNameFor(const std::string& Path) { return Path + ".tmp"; }

void RemoveFileQuietly(const std::string& Path) noexcept { (void)RemoveFile(Path); }

bool RemoveFile(const std::string& Path) noexcept
{
    if (InjectedFault())
        return false;
    return ::unlink(Path.c_str()) == 0 || errno == ENOENT;
}

void WriteTempFile(const std::string& Path, const std::function<void(TChunkWriter&)>& Write, bool Sync)
{
    const std::string tmp = TempNameFor(Path);
    // A temporary file left by an earlier failure is ours to overwrite.
    RemoveFileQuietly(tmp);
    TBinFile f;
    f.OpenOrThrow(tmp, TBinFile::omCreateNew);
    try {
        TChunkWriter w(f, 0);
        Write(w);
        w.Flush();
        if (Sync)
            f.Sync();
        f.Close();
    } catch (...) {
        RemoveFileQuietly(tmp);
        throw;
    }
}

void RenameTempOver(const std::string& Path)
{
    const std::string tmp = TempNameFor(Path);
    if (InjectedFault() || std::rename(tmp.c_str(), Path.c_str()) != 0) {
        const std::string why = Reason();
        throw TFileError("cannot rename \"" + tmp + "\" to \"" + Path + "\": " + why);
    }
}

void ReplaceFileAtomically(const std::string& Path, const std::function<void(TChunkWriter&)>& Write, bool Sync)
{
    WriteTempFile(Path, Write, Sync);
    try {
        RenameTempOver(Path);
    } catch (const TFileError&) {
        RemoveFileQuietly(TempNameFor(Path));
        throw;
    }
}

}  // namespace qv
