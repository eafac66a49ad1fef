// The stream seam: thin wrappers over stdio that let tests force the failure
// of any open, read, write, seek or close made by the library.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "frame/frame_internal.h"

namespace kt::io {
namespace {

using testing::Fault;

// The stream on which a read or write failure was injected: its error
// indicator is reported as set until it is closed, as stdio would.
std::FILE* g_failed_stream = nullptr;

bool Inject(Fault fault, std::FILE* stream) {
  if (!frame::ShouldFail(fault)) return false;
  if (stream != nullptr) g_failed_stream = stream;
  errno = EIO;
  return true;
}

}  // namespace

std::FILE* Open(const char* path, const char* mode) noexcept {
  if (Inject(Fault::kOpen, nullptr)) return nullptr;
  return std::fopen(path, mode);
}

int Close(std::FILE* stream) noexcept {
  if (stream == g_failed_stream) g_failed_stream = nullptr;
  const bool fail = Inject(Fault::kClose, nullptr);
  const int result = std::fclose(stream);
  return fail ? EOF : result;
}

std::size_t Read(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) noexcept {
  if (Inject(Fault::kRead, stream)) return 0;
  return std::fread(buffer, size, count, stream);
}

std::size_t Write(const void* buffer, std::size_t size, std::size_t count,
                  std::FILE* stream) noexcept {
  if (Inject(Fault::kWrite, stream)) return 0;
  return std::fwrite(buffer, size, count, stream);
}

// A 32-bit build without _FILE_OFFSET_BITS=64 would cut positions here.
static_assert(sizeof(off_t) >= sizeof(Offset), "64-bit file offsets");

int Seek(std::FILE* stream, Offset offset, int origin) noexcept {
  if (Inject(Fault::kSeek, nullptr)) return -1;
  return fseeko(stream, static_cast<off_t>(offset), origin);
}

Offset Tell(std::FILE* stream) noexcept {
  if (Inject(Fault::kSeek, nullptr)) return -1;
  return ftello(stream);
}

int GetChar(std::FILE* stream) noexcept {
  if (Inject(Fault::kRead, stream)) return EOF;
  return std::fgetc(stream);
}

int PutChar(int c, std::FILE* stream) noexcept {
  if (Inject(Fault::kWrite, stream)) return EOF;
  return std::fputc(c, stream);
}

int Printf(std::FILE* stream, const char* format, ...) noexcept {
  if (Inject(Fault::kWrite, stream)) return -1;
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

int Sync(std::FILE* stream) noexcept {
  if (Inject(Fault::kWrite, stream)) return -1;
  if (std::fflush(stream) != 0) return -1;
  return ::fsync(::fileno(stream));
}

int OpenForReading(const char* path) noexcept {
  if (Inject(Fault::kOpen, nullptr)) return -1;
  int descriptor;
  do {
    descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

int DescriptorSize(int descriptor, std::uint64_t* size) noexcept {
  if (Inject(Fault::kSeek, nullptr)) return -1;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return -1;
  *size = status.st_size < 0 ? 0 : static_cast<std::uint64_t>(status.st_size);
  return 0;
}

long ReadDescriptor(int descriptor, void* buffer, std::size_t count) noexcept {
  if (Inject(Fault::kRead, nullptr)) return -1;
  ssize_t got;
  do {
    got = ::read(descriptor, buffer, count);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

int CloseDescriptor(int descriptor) noexcept {
  const bool fail = Inject(Fault::kClose, nullptr);
  const int result = ::close(descriptor);
  return fail ? -1 : result;
}

int Rename(const char* from, const char* to) noexcept {
  if (frame::ShouldFail(Fault::kRename)) {
    errno = EXDEV;
    return -1;
  }
  return std::rename(from, to);
}

int Unlink(const char* path) noexcept { return ::unlink(path); }

}  // namespace kt::io
