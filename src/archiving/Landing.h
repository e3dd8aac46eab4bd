#pragma once

#include <aws/core/utils/memory/stl/AWSStreamFwd.h>

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/MediaFile.h"

namespace qvArchiving {

// Where one download comes down: into memory or, if it is large, a file beside its own, until all
// has come. Only then does it take its place, so that under its own name a file is whole or not
// there, and what a transfer leaves that breaks off never shows. A whole file takes its place by
// one rename. A range is written from its end to its beginning, in pages, which the system writes
// in one piece: a frame whose beginning can be read is whole, for who reads meanwhile and after the
// death of the process. In larger pieces that wouldn't hold, and cost the write a fifth less.
//
// A range that has settled stays in memory, too, until its result is released, as far as the
// target's bound allows: whoever waited for it is going to read it.
//
// Its result owns it, with the library's streams; hence always held by a shared pointer. Any
// thread.
class Landing : public std::enable_shared_from_this<Landing> {
 public:
  struct Place {
    std::string file;  // the local copy
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;  // with offset 0: 0 for the whole file
  };
  // Whether the file is what a landing leaves whose process died.
  [[nodiscard]] static bool IsLeftover(const boost::filesystem::path& file);

  // Bytes that the landings of one target keep in memory behind their end, together.
  using Kept = std::atomic<std::uint64_t>;
  static constexpr std::uint64_t kMaxKept = 64u << 20;

  // `makeRoom` is called when the disk is full, before the only second attempt; it may be empty.
  Landing(qv::kelvo::MediaFiles& mediaFiles, Place target, std::function<void()> makeRoom,
          std::shared_ptr<Kept> keptBytes);
  // Removes what hasn't settled.
  ~Landing();
  Landing(const Landing&) = delete;
  Landing& operator=(const Landing&) = delete;

  // What is held in memory at most, besides what the library hasn't flushed yet.
  static constexpr std::uint64_t kHeld = 5u << 20;

  // A stream that takes what comes from the beginning, in place of what came before; for the
  // library, which frees it. Bytes count once it is flushed.
  [[nodiscard]] Aws::IOStream* NewStream();

  // Puts in its place what came. False, with the local copy as good as before, when that fails.
  [[nodiscard]] bool Settle();

  // The bytes of a range that has settled, so that they needn't be read again: until Forget. Empty
  // where they weren't kept.
  [[nodiscard]] qv::kelvo::ConstBytes Content();
  void Forget();

 private:
  class Buffer;
  class Stream;

  [[nodiscard]] bool IsWhole() const { return place.offset == 0 && place.bytes == 0; }
  void Begin();
  void Keep();
  bool Take(std::uint64_t at, std::string&& bytes);
  [[nodiscard]] bool MoveAside();
  [[nodiscard]] bool MoveIntoPlace();
  [[nodiscard]] bool CopyIntoPlace();
  [[nodiscard]] bool WriteFromEnd(qv::kelvo::MediaFile& file, std::uint64_t at,
                                  qv::kelvo::ConstBytes bytes);
  [[nodiscard]] bool WriteFully(qv::kelvo::MediaFile& file, std::uint64_t at,
                                qv::kelvo::ConstBytes bytes);

  qv::kelvo::MediaFiles& files;
  const Place place;
  const std::string beside;
  const std::function<void()> whenFull;
  const std::shared_ptr<Kept> allKept;
  std::mutex lock;
  bool open = false;                            // from the first stream to the end
  std::string held;                             // what came, unless it is aside
  std::string kept;                             // what settled
  std::unique_ptr<qv::kelvo::MediaFile> aside;  // may be null
};

}  // namespace qvArchiving
