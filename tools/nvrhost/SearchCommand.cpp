#include "nvrhost/SearchCommand.h"

#include <algorithm>
#include <stdexcept>

#include "nvrhost/Footage.h"

namespace nvrhost {

void AddListOptions(CLI::App& command, ListOptions& options) {
  AddSearchOptions(command, options.search);
  OptionGroup group(command, "List");
  group.AddNumber("--resolution", options.resolution, 0, 2'000'000'000, "S",
                  "join what begins within so many seconds; 0 joins nothing");
  group.AddNumber("--width", options.columns, 10, 1000, "N", "columns of the timeline");
  command.add_flag("--json", options.json, "for scripts, instead of table and timeline")
      ->group("List");
}

int List(const ListOptions& options, const std::string& programPath) {
  Console console;
  SearchSession session(options.search, programPath, console);
  const auto cameras = ChooseCameras(session.What(), options.search.cameras);
  auto range = RangeOf(options.search, session.What());
  hostkit::SearchRequest request;
  request.start = range.from;
  request.end = range.to;
  request.resolution = options.resolution;
  request.inputs = InputsOf(cameras);
  const auto outcome = session.Ask(request, {});
  if (!outcome.answered || !outcome.ended) throw std::runtime_error("the search wasn't answered");

  const auto stretches = StretchesOf(outcome.results, cameras);
  if (options.json) {
    PrintJson(stretches, cameras);
    return stretches.empty() ? 1 : 0;
  }
  if (stretches.empty()) {
    console.Line("no footage in that range");
    return 1;
  }
  PrintStretches(stretches, cameras);
  // An open end is where the footage is.
  const auto first = std::min_element(stretches.begin(), stretches.end(),
                                      [](auto& a, auto& b) { return a.start < b.start; });
  const auto last = std::max_element(stretches.begin(), stretches.end(),
                                     [](auto& a, auto& b) { return a.end < b.end; });
  if (options.search.from.empty()) range.from = first->start;
  if (options.search.to.empty()) range.to = last->end;
  PrintTimeline(stretches, cameras, range.from, range.to,
                static_cast<std::size_t>(options.columns));
  return 0;
}

}  // namespace nvrhost
