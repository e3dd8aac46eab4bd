// Search requests, and the result document of what they ask for.

#include <cstdlib>

#include "fuzz/Memory.h"
#include "host/Xml.h"
#include "search/SearchResult.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qvsvr::kelvo;
  XmlDocument document;
  if (!document.ParseText({reinterpret_cast<const char*>(data), size})) return 0;
  const SearchRequest request = ParseSearchRequest(document);
  SearchResults results(request);
  for (const RequestKey key : request.keys) {
    qv::kelvo::CFileInfo info;
    info.id = qv::kelvo::MakeStreamID(qv::kelvo::KeyContext(key), qv::kelvo::KeyProvider(key),
                                      qv::kelvo::KeyDevice(key), 0xFF);
    const unsigned stream = qv::kelvo::IsAudioKey(key) ? 16 : 0;
    info.streamRows[stream].channel = static_cast<std::uint8_t>(key & 31u);
    results.AddRun(info, {static_cast<std::uint8_t>(stream), 0, 5, 6}, request.start,
                   request.resolution);
  }
  XmlDocument answer;
  if (!answer.ParseText(results.Document(request))) std::abort();
  return 0;
}
