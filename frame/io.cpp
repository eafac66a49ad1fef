// The stream seam: thin wrappers over stdio that let tests force the failure
// of any open, read, write, seek or close made by the library, and that count
// the streams and descriptors left open.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

#include "frame/frame_internal.h"

namespace kt::io {
namespace {

using testing::Fault;

// The stream on which a read or write failure was injected: its error
// indicator is reported as set until it is closed, as stdio would.
std::FILE* g_failed_stream = nullptr;

// Streams and descriptors opened here and not yet closed. Atomic: every
// open and close of every thread counts here, armed or not.
std::atomic<int> g_open_handles{0};

bool Inject(Fault fault, std::FILE* stream, const Site& site) {
  if (!frame::ShouldFail(fault, site)) return false;
  if (stream != nullptr) g_failed_stream = stream;
  errno = EIO;
  return true;
}

}  // namespace

std::FILE* Open(const char* path, const char* mode, Site site) noexcept {
  if (Inject(Fault::kOpen, nullptr, site)) return nullptr;
  std::FILE* stream = std::fopen(path, mode);
  if (stream != nullptr) g_open_handles.fetch_add(1, std::memory_order_relaxed);
  return stream;
}

int Close(std::FILE* stream, Site site) noexcept {
  if (stream == g_failed_stream) g_failed_stream = nullptr;
  const bool fail = Inject(Fault::kClose, nullptr, site);
  g_open_handles.fetch_sub(1, std::memory_order_relaxed);
  const int result = std::fclose(stream);
  return fail ? EOF : result;
}

std::size_t Read(void* buffer, std::size_t size, std::size_t count, std::FILE* stream,
                 Site site) noexcept {
  if (Inject(Fault::kRead, stream, site)) return 0;
  return std::fread(buffer, size, count, stream);
}

std::size_t Write(const void* buffer, std::size_t size, std::size_t count, std::FILE* stream,
                  Site site) noexcept {
  if (Inject(Fault::kWrite, stream, site)) return 0;
  return std::fwrite(buffer, size, count, stream);
}

// A 32-bit build without _FILE_OFFSET_BITS=64 would cut positions here.
static_assert(sizeof(off_t) >= sizeof(Offset), "64-bit file offsets");

int Seek(std::FILE* stream, Offset offset, int origin, Site site) noexcept {
  if (Inject(Fault::kSeek, nullptr, site)) return -1;
  return fseeko(stream, static_cast<off_t>(offset), origin);
}

Offset Tell(std::FILE* stream, Site site) noexcept {
  if (Inject(Fault::kSeek, nullptr, site)) return -1;
  return ftello(stream);
}

int GetChar(std::FILE* stream, Site site) noexcept {
  if (Inject(Fault::kRead, stream, site)) return EOF;
  return std::fgetc(stream);
}

int PutChar(int c, std::FILE* stream, Site site) noexcept {
  if (Inject(Fault::kWrite, stream, site)) return EOF;
  return std::fputc(c, stream);
}

int PrintAt(const Site& site, std::FILE* stream, const char* format, ...) noexcept {
  if (Inject(Fault::kWrite, stream, site)) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int result = std::vfprintf(stream, format, arguments);
  va_end(arguments);
  return result;
}

bool Error(std::FILE* stream) noexcept {
  return std::ferror(stream) != 0 || (stream != nullptr && stream == g_failed_stream);
}

bool EndOfFile(std::FILE* stream) noexcept { return std::feof(stream) != 0; }

int Sync(std::FILE* stream, Site site) noexcept {
  if (Inject(Fault::kWrite, stream, site)) return -1;
  if (std::fflush(stream) != 0) return -1;
  return ::fsync(::fileno(stream));
}

int OpenForReading(const char* path, Site site) noexcept {
  if (Inject(Fault::kOpen, nullptr, site)) return -1;
  int descriptor;
  do {
    descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor >= 0) g_open_handles.fetch_add(1, std::memory_order_relaxed);
  return descriptor;
}

int DescriptorSize(int descriptor, std::uint64_t* size, Site site) noexcept {
  if (Inject(Fault::kSeek, nullptr, site)) return -1;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return -1;
  *size = status.st_size < 0 ? 0 : static_cast<std::uint64_t>(status.st_size);
  return 0;
}

int StreamFileSize(std::FILE* stream, std::uint64_t* size, Site site) noexcept {
  if (Inject(Fault::kSeek, nullptr, site)) return -1;
  struct stat status {};
  if (::fstat(::fileno(stream), &status) != 0) return -1;
  if (!S_ISREG(status.st_mode)) return 1;
  *size = status.st_size < 0 ? 0 : static_cast<std::uint64_t>(status.st_size);
  return 0;
}

long ReadDescriptor(int descriptor, void* buffer, std::size_t count, Site site) noexcept {
  if (Inject(Fault::kRead, nullptr, site)) return -1;
  ssize_t got;
  do {
    got = ::read(descriptor, buffer, count);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

int CloseDescriptor(int descriptor, Site site) noexcept {
  const bool fail = Inject(Fault::kClose, nullptr, site);
  g_open_handles.fetch_sub(1, std::memory_order_relaxed);
  const int result = ::close(descriptor);
  return fail ? -1 : result;
}

int Rename(const char* from, const char* to, Site site) noexcept {
  if (frame::ShouldFail(Fault::kRename, site)) {
    errno = EXDEV;
    return -1;
  }
  return std::rename(from, to);
}

int Unlink(const char* path, Site site) noexcept {
  if (Inject(Fault::kUnlink, nullptr, site)) return -1;
  return ::unlink(path);
}

void ResetSeam() noexcept { g_failed_stream = nullptr; }

}  // namespace kt::io

namespace kt::testing {

int OpenHandles() { return io::g_open_handles.load(std::memory_order_relaxed); }

}  // namespace kt::testing
