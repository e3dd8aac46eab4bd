#include "archiving/RangeStream.h"

namespace qvArchiving {

RangeStream::RangeStream(const std::string& file, std::int64_t offset)
    : Aws::IOStream(nullptr), buffer(file, offset) {
  init(&buffer);
  if (!buffer.IsOpen()) setstate(std::ios::badbit);
}

RangeStream::Buffer::Buffer(const std::string& file, std::int64_t offset) : begin(offset) {
  const std::ofstream made(file, std::ios::binary | std::ios::app);
  target.open(file, std::ios::in | std::ios::out | std::ios::binary);
}

std::streambuf::int_type RangeStream::Buffer::overflow(int_type letter) {
  if (!traits_type::eq_int_type(letter, traits_type::eof())) {
    held.push_back(traits_type::to_char_type(letter));
  }
  return traits_type::not_eof(letter);
}

std::streamsize RangeStream::Buffer::xsputn(const char* bytes, std::streamsize count) {
  held.append(bytes, static_cast<std::size_t>(count));
  return count;
}

int RangeStream::Buffer::sync() {
  if (!held.empty()) {
    target.seekp(begin);
    target.write(held.data(), static_cast<std::streamsize>(held.size()));
    begin += static_cast<std::int64_t>(held.size());
    held.clear();
  }
  return target.flush() ? 0 : -1;
}

std::streambuf::pos_type RangeStream::Buffer::seekoff(off_type offset, std::ios::seekdir from,
                                                      std::ios::openmode which) {
  if (from != std::ios::cur) return seekpos(from == std::ios::beg ? offset : off_type(-1), which);
  const off_type here = begin + static_cast<off_type>(held.size());
  return offset == 0 ? pos_type(here) : seekpos(here + offset, which);
}

std::streambuf::pos_type RangeStream::Buffer::seekpos(pos_type place, std::ios::openmode which) {
  const off_type at = place;
  if (at < 0 || (which & std::ios::out) == 0 || sync() != 0) return pos_type(off_type(-1));
  begin = at;
  return place;
}

}  // namespace qvArchiving
