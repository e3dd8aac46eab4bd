#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {

// Pictures side by side in rows, each with a line of text, as one PNG. Throws std::runtime_error.
class ContactSheet {
 public:
  ContactSheet(std::size_t columns, std::size_t rows, int cellWidth, int cellHeight);
  // `picture` null makes an empty cell.
  void Set(std::size_t column, std::size_t row, const AVFrame* picture, const std::string& text);
  void Save(const std::string& path) const;

 private:
  const std::size_t columns, rows;
  const int cellWidth, cellHeight;
  FramePtr sheet;
};

}  // namespace nvrhost
