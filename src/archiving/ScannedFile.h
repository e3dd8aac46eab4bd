#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <set>
#include <string>

namespace qvArchiving {

// One file of a listing or of the cache.
struct ScannedFile {
  boost::filesystem::path path;
  std::string name;  // last component of the path
  std::uint64_t size = 0;
  bool byName = false;        // how this record is sorted: by name, else by `modified`
  std::int64_t modified = 0;  // seconds since 1970; 0: not asked for
};

// The record that goes in decides the order; records of one set agree on it.
struct ScannedFileOrder {
  bool operator()(const ScannedFile& a, const ScannedFile& b) const {
    return a.byName ? a.name < b.name : a.modified < b.modified;
  }
};

// Equal keys stay beside one another.
using ScannedFileSet = std::multiset<ScannedFile, ScannedFileOrder>;

}  // namespace qvArchiving
