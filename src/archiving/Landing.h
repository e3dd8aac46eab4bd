#pragma once

#include <aws/core/utils/memory/stl/AWSStreamFwd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/MediaFile.h"

namespace qvArchiving {

// Where one download comes down: into a file beside its own, which takes its place, or is copied to
// its place in it, once all has come. What a transfer leaves that breaks off never shows. Always
// held by a shared pointer, since the library's streams keep it. Any thread.
class Landing : public std::enable_shared_from_this<Landing> {
 public:
  struct Place {
    std::string file;  // the local copy
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;  // with offset 0: 0 for the whole file
  };
  // `makeRoom` is called when the disk is full, before the only second attempt; it may be empty.
  Landing(qv::kelvo::MediaFiles& mediaFiles, Place target, std::function<void()> makeRoom);
  // Removes what hasn't settled.
  ~Landing();
  Landing(const Landing&) = delete;
  Landing& operator=(const Landing&) = delete;

  // A stream that takes what comes from the beginning, in place of what came before; for the
  // library, which frees it. It writes when it is flushed, once a range or once for each part of a
  // large one.
  [[nodiscard]] Aws::IOStream* NewStream();

  // Puts in its place what came. In an existing file a range is written from its end to its
  // beginning, page by page: where a frame's beginning can be read, the rest is there. False, with
  // the local copy as good as before, when that fails.
  [[nodiscard]] bool Settle();

 private:
  class Buffer;
  class Stream;

  [[nodiscard]] bool IsWhole() const { return place.offset == 0 && place.bytes == 0; }
  bool Begin();
  bool Write(std::uint64_t at, std::string_view bytes);
  [[nodiscard]] bool MoveIntoPlace();
  [[nodiscard]] bool CopyIntoPlace();
  [[nodiscard]] bool WriteFully(qv::kelvo::MediaFile& file, std::uint64_t at,
                                qv::kelvo::ConstBytes bytes);

  qv::kelvo::MediaFiles& files;
  const Place place;
  const std::string beside;
  const std::function<void()> whenFull;
  std::mutex lock;
  std::unique_ptr<qv::kelvo::MediaFile> aside;  // null before the first byte and after the end
};

}  // namespace qvArchiving
