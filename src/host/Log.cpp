#include "host/Log.h"

#include <array>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace qvsvr::kelvo {

namespace {

std::atomic<KelvoHostFunction> hostFunction{nullptr};

constexpr std::size_t kLineBuffer = 512;  // the cut line, with its terminator

KelvoHostRequest LogRequest(std::uint32_t subCode) {
  KelvoHostRequest request{};
  request.Size = sizeof(request);
  request.Version = 1;
  request.Source = KELVO_MODULE_ID;
  request.Class = KELVO_CLASS_LOG;
  request.SubCode = subCode;
  return request;
}

KelvoHostReply EmptyReply() {
  return {sizeof(KelvoHostReply), 1, 0};
}

// No threshold is the largest number, which would hide everything.
bool Passes(int level, std::uint32_t threshold) {
  return threshold == KELVO_LOG_NO_THRESHOLD || static_cast<std::int32_t>(threshold) <= level;
}

void SendLine(KelvoHostFunction host, int level, const char* text, int length) {
  KelvoHostRequest request = LogRequest(KELVO_SUB_LOG_LINE);
  request.Length = static_cast<std::uint32_t>(length) + 1;
  request.Payload = text;
  request.u.Log.Level = static_cast<std::uint32_t>(level);
  KelvoHostReply reply = EmptyReply();
  host(&request, &reply);
}

}  // namespace

void SetHostFunction(KelvoHostFunction function) {
  hostFunction = function;
}

KelvoHostFunction HostFunction() {
  return hostFunction;
}

std::uint32_t QueryLogLevel() {
  const KelvoHostFunction host = HostFunction();
  if (host == nullptr) return 0;
  const KelvoHostRequest request = LogRequest(KELVO_SUB_LOG_LEVEL);
  KelvoHostReply reply = EmptyReply();
  host(&request, &reply);
  return reply.Status;
}

bool LogLevelEnabled(int level) {
  return HostFunction() != nullptr && Passes(level, QueryLogLevel());
}

void LogPrintf(int level, const char* format, ...) {
  const KelvoHostFunction host = HostFunction();
  if (host == nullptr || !Passes(level, QueryLogLevel())) return;

  std::array<char, kLineBuffer> line;
  va_list arguments;
  va_start(arguments, format);
  const int needed = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  if (needed < 1) return;  // an empty text, or one that can't be formatted
  if (needed < static_cast<int>(kLineBuffer)) {
    SendLine(host, level, line.data(), needed);
    return;
  }
  if (level != LogTrace) {
    SendLine(host, level, line.data(), kLineBuffer - 1);
    return;
  }

  std::vector<char> longLine(static_cast<std::size_t>(needed) + 1);
  va_start(arguments, format);
  const int length = std::vsnprintf(longLine.data(), longLine.size(), format, arguments);
  va_end(arguments);
  if (length >= 1) SendLine(host, level, longLine.data(), length);
}

CountText::CountText(std::uint64_t value) : start(sizeof(text) - 1) {
  text[start] = '\0';
  int digits = 0;
  do {
    if (digits > 0 && digits % 3 == 0) text[--start] = ',';
    text[--start] = static_cast<char>('0' + value % 10);
    value /= 10;
    ++digits;
  } while (value != 0);
}

std::string FormatFixed(double value, int digits) {
  std::array<char, 400> text;  // the largest value has 309 digits ahead of the point
  const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, digits);
  return {text.begin(), end.ptr};
}

}  // namespace qvsvr::kelvo
