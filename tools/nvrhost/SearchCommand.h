#pragma once

#include "nvrhost/SearchSession.h"

namespace nvrhost {

struct ListOptions {
  SearchOptions search;
  int resolution = 0;
  int columns = 72;
  bool json = false;
};
void AddListOptions(CLI::App& command, ListOptions& options);

// Lists the footage of a range as a table and a timeline, or as JSON. Returns the process's exit
// code: 0, or 1 when there is none. Throws std::runtime_error.
int List(const ListOptions& options, const std::string& programPath);

}  // namespace nvrhost
