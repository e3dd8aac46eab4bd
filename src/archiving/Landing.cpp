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
constexpr char kLeftover[] = ".part";
constexpr std::uint64_t kPage = 4096;  // the system writes as much in one piece
constexpr std::uint64_t kChunk = 1u << 20;

bool IsDiskFull(int error) {
  const boost::system::error_code code(error, boost::system::system_category());
  return code == boost::system::errc::no_space_on_device;
}

std::string NameBeside(const std::string& file) {
  return file + fs::unique_path(".%%%%%%%%").string() + kLeftover;
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
    if (held.empty()) held.reserve(std::min(landing->place.bytes, kHeld));
    held.append(bytes, static_cast<std::size_t>(count));
    return count;
  }
  int sync() override {
    const std::size_t size = held.size();
    if (!landing->Take(begin, std::exchange(held, {}))) return -1;
    begin += size;
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

Landing::Landing(qv::kelvo::MediaFiles& mediaFiles, Place target, std::function<void()> makeRoom,
                 std::shared_ptr<Kept> keptBytes)
    : files(mediaFiles),
      place(std::move(target)),
      beside(NameBeside(place.file)),
      whenFull(std::move(makeRoom)),
      allKept(std::move(keptBytes)) {}

bool Landing::IsLeftover(const fs::path& file) {
  return file.extension() == kLeftover;
}

Landing::~Landing() {
  Forget();
  if (aside == nullptr) return;
  aside.reset();
  boost::system::error_code ignored;
  fs::remove(beside, ignored);
}

Aws::IOStream* Landing::NewStream() {
  Begin();
  return Aws::New<Stream>(kTag, shared_from_this());
}

void Landing::Begin() {
  const std::lock_guard guard(lock);
  open = true;
  held.clear();
  if (aside != nullptr && aside->SetSize(0) != 0) open = false;
}

bool Landing::Take(std::uint64_t at, std::string&& bytes) {
  const std::lock_guard guard(lock);
  if (!open) return false;
  if (place.bytes != 0 && at + bytes.size() > place.bytes) return false;  // more than was asked for
  if (aside == nullptr && at == held.size() && at + bytes.size() <= kHeld) {
    if (held.empty()) {
      held = std::move(bytes);
    } else {
      held += bytes;
    }
    return true;
  }
  return MoveAside() && WriteFully(*aside, at, std::as_bytes(std::span(bytes)));
}

bool Landing::MoveAside() {
  if (aside == nullptr && files.Open(beside, OpenMode::CreateOrTruncate, aside) != 0) return false;
  const std::string bytes = std::exchange(held, {});
  return WriteFully(*aside, 0, std::as_bytes(std::span(bytes)));
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
  if (!std::exchange(open, false)) return false;
  // A range never takes the place of a file: others may have come into it meanwhile.
  const bool settled = IsWhole() ? MoveAside() && MoveIntoPlace() : CopyIntoPlace();
  if (settled && !IsWhole()) Keep();
  held = {};
  boost::system::error_code ignored;
  if (std::exchange(aside, nullptr) != nullptr) fs::remove(beside, ignored);
  return settled;
}

void Landing::Keep() {
  const std::uint64_t size = held.size();
  if (allKept->fetch_add(size) + size <= kMaxKept) {
    kept = std::exchange(held, {});
  } else {
    *allKept -= size;
  }
}

ConstBytes Landing::Content() {
  const std::lock_guard guard(lock);
  return std::as_bytes(std::span(kept));
}

void Landing::Forget() {
  const std::lock_guard guard(lock);
  *allKept -= kept.size();
  kept = {};
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
  std::unique_ptr<MediaFile> file;
  if (files.Open(place.file, OpenMode::CreateOrKeep, file) != 0) return false;
  if (aside == nullptr) {
    return WriteFromEnd(*file, place.offset, std::as_bytes(std::span(held))) && file->Close() == 0;
  }
  std::uint64_t left = 0;
  if (aside->Size(left) != 0) return false;
  std::vector<std::byte> bytes(std::min(left, kChunk));
  while (left != 0) {
    const std::uint64_t begin = left <= kChunk ? 0 : left - kChunk;
    const std::span<std::byte> chunk(bytes.data(), left - begin);
    if (aside->ReadAt(begin, chunk).bytes != chunk.size()) return false;
    if (!WriteFromEnd(*file, place.offset + begin, chunk)) return false;
    left = begin;
  }
  return file->Close() == 0;
}

bool Landing::WriteFromEnd(MediaFile& file, std::uint64_t at, ConstBytes bytes) {
  while (!bytes.empty()) {
    const std::uint64_t page = std::max((at + bytes.size() - 1) / kPage * kPage, at);
    if (!WriteFully(file, page, bytes.subspan(page - at))) return false;
    bytes = bytes.first(page - at);
  }
  return true;
}

}  // namespace qvArchiving
