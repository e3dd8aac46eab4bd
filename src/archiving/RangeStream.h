#pragma once

#include <aws/core/utils/memory/stl/AWSStreamFwd.h>

#include <cstdint>
#include <fstream>
#include <istream>
#include <streambuf>
#include <string>

namespace qvArchiving {

// Writes a stretch of a local file, which is made if it isn't there; what it holds elsewhere stays.
// Positions are those of the file. Bytes are held back until a flush writes them in one piece, so
// that who reads the file meanwhile doesn't find half a frame, and a transfer that is cut leaves
// none. The library flushes once a range, or once for each part of a large one.
class RangeStream : public Aws::IOStream {
 public:
  RangeStream(const std::string& file, std::int64_t offset);

 private:
  class Buffer : public std::streambuf {
   public:
    Buffer(const std::string& file, std::int64_t offset);
    [[nodiscard]] bool IsOpen() const { return target.is_open(); }

   protected:
    int_type overflow(int_type letter) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    int sync() override;
    pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) override;
    pos_type seekpos(pos_type place, std::ios::openmode which) override;

   private:
    std::fstream target;
    std::int64_t begin;  // of what is held back
    std::string held;
  };
  Buffer buffer;
};

}  // namespace qvArchiving
