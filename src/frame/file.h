// Files read through libfcgi's stdio calls, closed on every path.
#pragma once

#include <fcgi_stdio.h>

#include <cstdio>
#include <memory>

namespace psia {

struct FileCloser {
  void operator()(FCGI_FILE* file) const { FCGI_fclose(file); }
};
using File = std::unique_ptr<FCGI_FILE, FileCloser>;

/// Opens the file `path` as fopen(3) does; null when that fails.
[[nodiscard]] inline File open_file(const char* path, const char* mode) {
  return File(FCGI_fopen(path, mode));
}

/// The size in bytes, negative when there is none to tell (a directory, say). Reading goes on from the start.
[[nodiscard]] inline int file_size(const File& file) {
  if (FCGI_fseek(file.get(), 0, SEEK_END) != 0) return -1;
  const int size = FCGI_ftell(file.get());
  FCGI_rewind(file.get());
  return size;
}

}  // namespace psia
