#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/PSReader.h"
#include "platform/Platform.h"
#include "storage/Bookmarks.h"
#include "storage/RetentionRules.h"
#include "tree/RecordPath.h"

namespace qvsvr::kelvo {

enum class Removable { Yes = 0, Bookmarked = 1, Retained = 2 };

struct Verdict {
  Removable removable = Removable::Yes;
  // When the mere passing of time may change it, seconds since 1970; kNoTime for never.
  std::int64_t until = qv::kelvo::kNoTime;
  // False when the file couldn't be judged for a reason that passes, and is spared meanwhile.
  bool judged = true;
};

// What is remembered of the heads of one hour directory's files, so that each is read once. Only of
// files that are final, by their names' own numbers: 24 bytes for a file.
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
  qv::kelvo::PathTime time;

  [[nodiscard]] std::string Path() const { return directory + std::string(name); }
};

// Judges whether room may be made by a recording: bookmarks protect it, then the global rule if it
// is one that keeps, else the rule of its camera, which only the file's head can tell. In the hour
// that comes twice a recording is protected when it is by either of its times.
//
// In doubt it stays: a head that the system won't give us now (descriptors, memory, access) keeps
// the recording for the moment, without being remembered. A head that is there and makes no sense
// frees it. Verdicts say until when they hold, so that the catalogue need not ask again for each
// file; Revision tells when they don't for another reason than time. Reads rules and bookmarks
// where CFileSystem keeps them; worker thread only.
class Protection {
 public:
  // Borrows all for its life.
  Protection(const RetentionRules& rules, const BookmarkTable& bookmarks,
             qv::kelvo::Platform& platform);

  // Verdict over a path below a volume's root.
  [[nodiscard]] Removable CheckRemovable(const std::string& path, const std::string& root);

  // The same for a file of a walk; `notes` are those of its directory.
  [[nodiscard]] Verdict Check(const RecordingEntry& file, HeadNotes& notes);

  // How many heads were read so far.
  [[nodiscard]] std::uint64_t HeadsRead() const { return headsRead; }

  // Changes when verdicts may have changed by anything but time.
  [[nodiscard]] std::uint64_t Revision();

  // A recording of this age isn't being written any more.
  static constexpr std::int64_t kFinalAge = 900;

 private:
  [[nodiscard]] Verdict RetainedUntil(std::int64_t until) const;
  // Whether any input of the device of `id` has a rule.
  [[nodiscard]] bool HasRule(qv::kelvo::StreamID id) const;
  // Nothing when the system refused to read it.
  [[nodiscard]] std::optional<HeadNotes::Note> ReadHead(const RecordingEntry& file);
  [[nodiscard]] std::int64_t NowSeconds() const { return system.clock.NowMs() / 1000; }

  const RetentionRules& retention;
  const BookmarkTable& bookmarkTable;
  qv::kelvo::Platform& system;
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
