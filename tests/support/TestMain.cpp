#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

// Names in the media tree follow local time: every test program runs in a zone with summer time.
int main(int count, char** arguments) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
