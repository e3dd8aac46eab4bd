#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "search/SearchResult.h"

namespace qvsvr::kelvo {

// The result document of a search, built from records in the order of their inputs. Written as text
// at once: a tree of it would take many times the room.
class ResultDocument {
 public:
  // `records` is about how many will be added.
  ResultDocument(const SearchRequest& request, std::size_t records);

  void Add(RequestKey input, const ResultKey& key, const ResultValues& values);
  // Ends the document, which takes nothing more.
  [[nodiscard]] std::string Finish();

 private:
  // Opens the elements that lead to an input, as far as they aren't open.
  void OpenInput(RequestKey input);
  void OpenMedia(bool audio);
  void CloseContext();

  void Open(const char* name);
  void OpenNumbered(const char* name, std::uint32_t number);
  // Of the element that was opened last.
  void Attribute(const char* name, std::int32_t value);
  void Close();

  const bool listing;
  std::string text;
  std::vector<const char*> elements;  // open ones
  bool inStartTag = false;
  std::optional<RequestKey> current;
  bool inAudio = false;  // of the context of `current`; its Video comes first
};

}  // namespace qvsvr::kelvo
