#pragma once

#include <cstdlib>
#include <ctime>

namespace qv::kelvo {

// Another time zone than that of all tests, for as long as it lives. Not for Windows.
class Zone {
 public:
  explicit Zone(const char* name) { Set(name); }
  ~Zone() { Set("Europe/Berlin"); }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

 private:
  static void Set(const char* name) {
    setenv("TZ", name, 1);
    tzset();
  }
};

}  // namespace qv::kelvo
