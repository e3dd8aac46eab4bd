#pragma once

#include "nvrhost/SearchSession.h"

namespace nvrhost {

struct ThumbsOptions {
  SearchOptions search;
  std::string output = "contact.png";
  std::vector<std::string> moments;
  int columns = 6;
  int cellWidth = 256;
};
void AddThumbsOptions(CLI::App& command, ThumbsOptions& options);

struct ThumbsTotals {
  std::size_t cells = 0, filled = 0;
};
// Makes a contact sheet: a row for each camera, a column for each moment. Throws
// std::runtime_error.
ThumbsTotals MakeThumbs(ThumbsOptions options, const std::string& programPath);

// As the process's exit code: 0, or 1 when no cell has a picture.
int Thumbs(const ThumbsOptions& options, const std::string& programPath);

}  // namespace nvrhost
