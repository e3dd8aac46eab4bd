#include "archiving/Landing.h"

#include <aws/core/utils/memory/AWSMemory.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <istream>
#include <streambuf>
#include <utility>
#include <vector>

namespace qvArchiving {

namespace fs = boost::filesystem;
using qv::kelvo::ConstBytes;
using qv::kelvo::IoResult;
using qv::kelvo::MediaFile;
using qv::kelvo::OpenMode;

namespace {

constexpr char kTag[] = "Download";
constexpr std::uint64_t kPage = 4096;  // the system writes as much in one piece
constexpr std::uint64_t kChunk = 1u << 20;

bool IsDiskFull(int error) {
  const boost::system::error_code code(error, boost::system::system_category());
  return code == boost::system::errc::no_space_on_device;
}

std::string NameBeside(const std::string& file) {
  return file + fs::unique_path(".%%%%%%%%.part").string();
}

}  // namespace

// Positions are those of the landing; what is held back begins at `begin`.
class Landing::Buffer : public std::streambuf {
 public:
  explicit Buffer(std::shared_ptr<Landing> owner) : landing(std::move(owner)) {}

 protected:
  int_type overflow(int_type letter) override {
    if (!traits_type::eq_int_type(letter, traits_type::eof())) {
      held.push_back(traits_type::to_char_type(letter));
    }
    return traits_type::not_eof(letter);
  }
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    held.append(bytes, static_cast<std::size_t>(count));
    return count;
  }
  int sync() override {
    if (!landing->Write(begin, held)) return -1;
    begin += held.size();
    held.clear();
    return 0;
  }
  pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) override {
    const auto here = static_cast<off_type>(begin + held.size());
    if (from == std::ios::cur) return offset == 0 ? pos_type(here) : seekpos(here + offset, which);
    return seekpos(from == std::ios::beg ? offset : off_type(-1), which);
  }
  pos_type seekpos(pos_type target, std::ios::openmode which) override {
    const off_type at = target;
    if (at < 0 || (which & std::ios::out) == 0 || sync() != 0) return pos_type(off_type(-1));
    begin = static_cast<std::uint64_t>(at);
    return target;
  }

 private:
  const std::shared_ptr<Landing> landing;
  std::uint64_t begin = 0;
  std::string held;
};

class Landing::Stream : public Aws::IOStream {
 public:
  explicit Stream(std::shared_ptr<Landing> owner)
      : Aws::IOStream(nullptr), buffer(std::move(owner)) {
    init(&buffer);
  }

 private:
  Buffer buffer;
};

Landing::Landing(qv::kelvo::MediaFiles& mediaFiles, Place target, std::function<void()> makeRoom)
    : files(mediaFiles),
      place(std::move(target)),
      beside(NameBeside(place.file)),
      whenFull(std::move(makeRoom)) {}

Landing::~Landing() {
  if (aside == nullptr) return;
  aside.reset();
  boost::system::error_code ignored;
  fs::remove(beside, ignored);
}

Aws::IOStream* Landing::NewStream() {
  auto* const stream = Aws::New<Stream>(kTag, shared_from_this());
  if (!Begin()) stream->setstate(std::ios::badbit);
  return stream;
}

bool Landing::Begin() {
  const std::lock_guard guard(lock);
  return files.Open(beside, OpenMode::CreateOrTruncate, aside) == 0;
}

bool Landing::Write(std::uint64_t at, std::string_view bytes) {
  const std::lock_guard guard(lock);
  if (aside == nullptr) return false;
  if (place.bytes != 0 && at + bytes.size() > place.bytes) return false;  // more than was asked for
  return WriteFully(*aside, at, std::as_bytes(std::span(bytes)));
}

bool Landing::WriteFully(MediaFile& file, std::uint64_t at, ConstBytes bytes) {
  for (bool again = false; !bytes.empty();) {
    const ConstBytes parts[] = {bytes};
    const IoResult result = file.WriteAt(at, parts);
    at += result.bytes;
    bytes = bytes.subspan(result.bytes);
    if (result.bytes != 0 && result.error == 0) continue;
    if (!IsDiskFull(result.error) || std::exchange(again, true) || !whenFull) return false;
    whenFull();
  }
  return true;
}

bool Landing::Settle() {
  const std::lock_guard guard(lock);
  if (aside == nullptr) return false;
  boost::system::error_code ignored;
  const bool moves = IsWhole() || (place.offset == 0 && !fs::exists(place.file, ignored));
  const bool settled = moves ? MoveIntoPlace() : CopyIntoPlace();
  aside.reset();
  fs::remove(beside, ignored);
  return settled;
}

bool Landing::MoveIntoPlace() {
  if (aside->Close() != 0) return false;
  boost::system::error_code failed;
  const std::uint64_t size = fs::file_size(beside, failed);
  if (failed) return false;
  fs::rename(beside, place.file, failed);
  if (!failed) return true;
  // Somebody reads the file, which some systems don't let be replaced then: it may be the same.
  boost::system::error_code unknown;
  return fs::file_size(place.file, unknown) == size && !unknown;
}

bool Landing::CopyIntoPlace() {
  std::uint64_t left = 0;
  std::unique_ptr<MediaFile> file;
  if (aside->Size(left) != 0 || files.Open(place.file, OpenMode::CreateOrKeep, file) != 0) {
    return false;
  }
  std::vector<std::byte> bytes(std::min(left, kChunk));
  while (left != 0) {
    const std::uint64_t begin = left <= kChunk ? 0 : left - kChunk;
    const std::span<std::byte> chunk(bytes.data(), left - begin);
    if (aside->ReadAt(begin, chunk).bytes != chunk.size()) return false;
    while (left > begin) {
      const std::uint64_t end = place.offset + left;
      const std::uint64_t page = std::max((end - 1) / kPage * kPage, place.offset + begin);
      const std::uint64_t from = page - place.offset;
      if (!WriteFully(*file, page, chunk.subspan(from - begin, left - from))) return false;
      left = from;
    }
  }
  return file->Close() == 0;
}

}  // namespace qvArchiving
