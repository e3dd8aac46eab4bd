#pragma once

#include <optional>
#include <string>

#include <tinyxml.h>

#include "search/SearchResult.h"

namespace qvsvr::kelvo {

// The result document of a search, built from records in the order of their inputs.
class ResultDocument {
 public:
  explicit ResultDocument(const SearchRequest& request);

  void Add(RequestKey input, const ResultKey& key, const ResultValues& values);
  [[nodiscard]] std::string Print() const;

 private:
  // Opens the elements that lead to an input, as far as they aren't open.
  void OpenInput(RequestKey input);

  const bool listing;
  TiXmlDocument document;
  TiXmlElement* root = nullptr;
  // The elements that are open; all belong to `document`.
  TiXmlElement* provider = nullptr;
  TiXmlElement* device = nullptr;
  TiXmlElement* video = nullptr;
  TiXmlElement* audio = nullptr;
  TiXmlElement* open = nullptr;  // the Input
  std::optional<RequestKey> current;
};

}  // namespace qvsvr::kelvo
