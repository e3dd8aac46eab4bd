#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/plugin/SearchFixture.h"
#include "tests/store/ScriptedStore.h"

namespace plugintest {

// A download as the store has seen it.
struct Fetch {
  std::string name;  // of the object
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

// The plug-in with an archive: a bucket of a scripted store.
class BucketSearch : public SearchTest {
 protected:
  BucketSearch();

  using Turn = testsupport::ScriptedStore::Turn;
  using Request = testsupport::ScriptedStore::Request;

  // Moves what the drives hold to the bucket. Returns the objects' sizes by name.
  std::map<std::string, std::uint64_t> MoveToBucket();
  // Tells the plug-in of the bucket.
  void Announce(int status = 0);
  // What was downloaded since the last call.
  std::vector<Fetch> Fetches();
  // How many downloads the plug-in has begun.
  int Downloads() { return CountLog("] Download remote="); }
  // Runs the search until the host stops it at that frame.
  void SearchUntil(const std::string& request, int frame);

  const std::string cache = tree.Path("copies");  // where local copies lie
  testsupport::ScriptedStore store;
};

}  // namespace plugintest
