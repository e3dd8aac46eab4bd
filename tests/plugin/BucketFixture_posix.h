#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archiving/IScanner.h"
#include "tests/plugin/SearchFixture.h"

namespace plugintest {

// A download as the server has seen it.
struct Fetch {
  std::string name;  // of the object
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

// The plug-in with an archive: a fresh bucket of the S3 server.
class BucketSearch : public SearchTest {
 protected:
  void SetUp() override;

  // Moves what the drives hold to the bucket. Returns the objects' sizes by name.
  std::map<std::string, std::uint64_t> MoveToBucket();
  // Tells the plug-in of the bucket.
  void Announce(int status = 0);
  // Stores a local file under that name.
  void Put(const std::string& localFile, const std::string& relative);
  // What was downloaded since the last call, in the order of the server's log. Each range must have
  // been answered in full.
  std::vector<Fetch> Fetches();
  // How many downloads the plug-in has begun.
  int Downloads() { return CountLog("] Download remote="); }
  // Runs the search until the host stops it at that frame.
  void SearchUntil(const std::string& request, int frame);

  const std::string cache = tree.Path("copies");  // where local copies lie

 private:
  // The lines of the server's log, all requests that were answered by now among them.
  std::vector<std::string> ServerLog();

  std::string bucket;
  std::shared_ptr<qvArchiving::IScanner> scanner;
  std::streamoff logBegin = 0;
  std::size_t seen = 0;  // lines
  int markers = 0;
};

}  // namespace plugintest
