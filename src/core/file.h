// Files of the C library, closed on every path. libfcgi's own file functions would only call these.
#pragma once

#include <cstdio>
#include <limits>
#include <memory>

namespace psia {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opens the file `path` as fopen(3) does; null when that fails.
[[nodiscard]] inline File open_file(const char* path, const char* mode) {
  return File(std::fopen(path, mode));
}

/// The size in bytes. Negative for a directory and for a file of 2 GiB or more. The next read starts at the
/// beginning of the file.
[[nodiscard]] inline int file_size(const File& file) {
  if (std::fseek(file.get(), 0, SEEK_END) != 0) return -1;
  const long size = std::ftell(file.get());
  std::rewind(file.get());
  return size > std::numeric_limits<int>::max() ? -1 : static_cast<int>(size);
}

}  // namespace psia
