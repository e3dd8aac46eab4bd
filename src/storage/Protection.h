#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "media/PSReader.h"
#include "platform/Platform.h"
#include "storage/Bookmarks.h"
#include "storage/RecordingTree.h"
#include "storage/RetentionRules.h"

namespace qvsvr::kelvo {

enum class Removable { Yes = 0, Bookmarked = 1, Retained = 2 };

struct Verdict {
  Removable removable = Removable::Yes;
  // When the mere passing of time may change it, seconds since 1970; kNoTime for never.
  std::int64_t until = kNoTime;
};

// What is remembered of the heads of one hour directory's files, so that each is read once.
class HeadNotes {
 public:
  struct Note {
    std::uint64_t key = 0;      // name's number, duplicate suffix and id
    std::int64_t lastTime = 0;  // of the first stream, seconds
    bool ofChannels = false;    // an encoder's or channel's file with frames in its first stream
    std::uint8_t channel = 0;   // of the first stream
  };

  [[nodiscard]] const Note* Find(std::uint64_t key) const;
  void Add(const Note& note);

 private:
  std::vector<Note> notes;  // ascending
};

// One recording as the walk meets it. Borrows all.
struct RecordingEntry {
  const std::string& directory;  // with a separator at its end
  std::string_view name;
  std::int64_t time = 0;  // as PathToTime has it

  [[nodiscard]] std::string Path() const { return directory + std::string(name); }
};

// Judges whether room may be made by a recording. Worker thread only.
class Protection {
 public:
  // Borrows all for its life.
  Protection(const RetentionRules& rules, const BookmarkTable& bookmarks,
             qv::kelvo::Platform& platform, const std::size_t& volumeDepth);

  // Verdict over a path.
  [[nodiscard]] Removable CheckRemovable(const std::string& path);

  // The same for a file of a walk. `near` are the bookmarks of its hour; `notes` are those of its
  // directory.
  [[nodiscard]] Verdict Check(const RecordingEntry& file,
                              const std::vector<const BookmarkRecord*>& near, HeadNotes& notes);

  [[nodiscard]] std::vector<const BookmarkRecord*> Near(std::int64_t hour) const {
    return BookmarksNear(bookmarkTable.bookmarks, hour);
  }

  // How many heads were read so far.
  [[nodiscard]] std::uint64_t HeadsRead() const { return headsRead; }

  // Changes when verdicts may have changed by anything but time.
  [[nodiscard]] std::uint64_t Revision();

  // A recording of this age isn't being written any more.
  static constexpr std::int64_t kFinalAge = 900;

 private:
  // Whether any input of the device of `id` has a rule.
  [[nodiscard]] bool HasRule(qv::kelvo::StreamID id) const;
  [[nodiscard]] HeadNotes::Note ReadHead(const RecordingEntry& file);
  [[nodiscard]] std::int64_t NowSeconds() const { return system.clock.NowMs() / 1000; }

  const RetentionRules& retention;
  const BookmarkTable& bookmarkTable;
  qv::kelvo::Platform& system;
  const std::size_t& depth;
  qv::kelvo::PSReader reader;

  // What the last revision was given for.
  struct Basis {
    std::int32_t expirationDays = 0;
    std::map<qv::kelvo::StreamID, std::int32_t> cameraExpiration;
    std::uint64_t retentionRevision = 0;
    std::uint64_t bookmarkRevision = 0;
  };
  Basis basis;
  std::uint64_t revision = 1;
  std::uint64_t headsRead = 0;
};

}  // namespace qvsvr::kelvo
