// Where calls of the library wait for a mutex, as its reports of long waits name the place.
#ifndef TEV_TESTS_PLATFORM_WAITINGPLACES_H
#define TEV_TESTS_PLATFORM_WAITINGPLACES_H

#include "tests/platform/Elsewhere.h"

#include <set>
#include <sstream>
#include <unistd.h>
#include <vector>

/// Makes each call on a thread of its own, lets go after the first reports, 20 seconds later, and returns "file line
/// function" of all of them.
inline std::set<std::string> waitingPlaces(const std::vector<std::function<void()>>& calls,
                                           const std::function<void()>& letGo) {
  testing::internal::CaptureStdout();
  std::vector<std::thread> threads;
  std::atomic<size_t> reported{0};
  for (const auto& call : calls)
    threads.emplace_back([&] {
      call();
      const std::string tid = std::to_string(static_cast<int>(krThreadIdSelf()));
      reported += unlink(("/var/log/mutexExcessiveWaitTid" + tid + ".log").c_str()) == 0;
    });
  krThreadSuspend(28'000); // time enough for a busy machine, and too little for a second report
  letGo();
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(reported == calls.size() || access("/var/log", W_OK) != 0);
  std::istringstream report(testing::internal::GetCapturedStdout());
  std::set<std::string> places;
  for (std::string text; std::getline(report, text);) {
    char file[64], function[256];
    int line = 0;
    const size_t at = text.find("(20s)") < text.find("File[") ? text.find("File[") : 0;
    if (sscanf(text.c_str() + at, "File[%63[^]]], Line[%d], Func[%255[^]]], Desc[]", file, &line, function) == 3)
      places.insert(std::string(file) + ' ' + std::to_string(line) + ' ' + function);
  }
  return places;
}

#endif
