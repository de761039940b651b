// A stream that is closed wherever its scope ends: a refused allocation ends it early.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
  void operator()(FILE *file) const { (void)fclose(file); } /* for streams that are read */
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;
