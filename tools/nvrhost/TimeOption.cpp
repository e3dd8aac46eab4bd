#include "nvrhost/TimeOption.h"

#include <ctime>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace nvrhost {

std::int64_t ParseTime(const std::string& option, const std::string& text) {
  const std::runtime_error wrong(option +
                                 " wants a time like \"2026-03-29 01:55:00\" (with a Z "
                                 "behind it for UTC) or @SECONDS, and got \"" +
                                 text + "\"");
  std::int64_t seconds = 0;
  if (!text.empty() && text.front() == '@') {
    std::istringstream stream(text.substr(1));
    if (!(stream >> seconds) || !stream.eof()) throw wrong;
  } else {
    std::string plain = text;
    const bool utc = !plain.empty() && plain.back() == 'Z';
    if (utc) plain.pop_back();
    if (plain.size() > 10 && plain[10] == 'T') plain[10] = ' ';
    std::tm time{};
    std::istringstream stream(plain);
    stream >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
    if (stream.fail() || stream.peek() != std::istringstream::traits_type::eof()) throw wrong;
    time.tm_isdst = -1;
    seconds = utc ? timegm(&time) : mktime(&time);
  }
  if (seconds < kEarliestTime || seconds > kLatestTime) {
    throw std::runtime_error(option + " must lie between the years 2000 and 2106");
  }
  return seconds;
}

}  // namespace nvrhost
