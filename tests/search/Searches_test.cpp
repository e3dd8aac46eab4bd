// Searches as conversations: what was recorded, what is asked, and what the client hears. They
// stand in searches.txt, which says how it is read.
#include <sstream>

#include "host/Xml.h"
#include "search/SearchRequest.h"
#include "tests/search/SearchFixture.h"
#include "tests/support/Conversation.h"

namespace qvsvr::kelvo {
namespace {

using testsupport::Conversation;
using testsupport::Step;

std::vector<Conversation> ReadConversations() {
  return testsupport::ReadConversations(KELVO_SEARCHES);
}

class Searches : public SearchTest, public testing::WithParamInterface<Conversation> {
 protected:
  void Do(const Step& step) {
    std::istringstream words(step.text);
    if (step.command == "write") {
      WriteShots(words);
    } else if (step.command == "damage") {
      std::string which;
      std::ptrdiff_t at = 0;
      words >> which >> at;
      const std::string name =
          latest.substr(tree.Root().size() + 1) + (which == "index" ? "i" : "");
      std::string content = tree.Read(name);
      (at < 0 ? content.end() : content.begin())[at] = '_';
      tree.Write(name, content);
    } else if (step.command == "vanish") {
      answer = [path = latest](std::size_t, char kind) {
        if (kind == 'R') boost::filesystem::remove(path);
        return 0u;
      };
    } else if (step.command == "parse") {
      EXPECT_EQ(Parsed(step.text), step.expected);
    } else {
      const bool given = step.command == "given";
      host.ForgetTraffic();
      const std::size_t before = bundle.files.Calls(qv::kelvo::FileCall::Open);
      Run(given ? Times(step.text) : Asked(words));
      EXPECT_EQ(
          Seen(bundle.files.Calls(qv::kelvo::FileCall::Open) - before, step.command == "document"),
          step.expected);
    }
  }

  static std::string Times(const std::string& text) {
    const std::size_t star = text.find('*');
    const bool once = star == std::string::npos;
    return Repeat(once ? 1 : std::stoi(text.substr(star + 1)), text.substr(0, star));
  }
  void WriteShots(std::istringstream& words) {
    char volume = 0, mark = 0;
    StreamID id = 0;
    words >> volume >> std::hex >> id;
    std::vector<Shot> shots;
    for (std::string word, types; words >> word;) {
      std::uint16_t stream = 0;
      std::int64_t begin = 0, apart = 0;
      std::istringstream(word) >> stream >> mark >> begin >> apart >> mark >> types;
      const auto more = Shots(kStart + begin, apart, Times(types), stream);
      shots.insert(shots.end(), more.begin(), more.end());
    }
    latest = Write(shots, id, static_cast<std::size_t>(volume - 'a'));
  }
  static std::string Asked(std::istringstream& words) {
    int type = 0, resolution = 0;
    std::int64_t begin = 0, end = 0;
    words >> type >> begin >> end >> resolution;
    std::vector<hostkit::SearchInput> inputs;
    for (std::string word; words >> word;) {
      std::istringstream parts(word);
      char mark = 0;
      auto& input = inputs.emplace_back();
      parts >> mark >> input.number;
      input.audio = mark == 'a';
      for (std::int64_t value = 0; parts >> mark >> value;) {
        if (mark == '/') input.device = static_cast<int>(value);
        if (mark == ':') input.context = static_cast<int>(value);
        if (mark == '~') input.provider = static_cast<std::uint32_t>(value);
        if (mark == '@') input.moments.push_back(kSecond0 + value);
      }
    }
    return Request(type, kSecond0 + begin, kSecond0 + end, resolution, inputs);
  }
  static std::string Parsed(const std::string& text) {
    XmlDocument document;
    EXPECT_TRUE(document.ParseText(text));
    const SearchRequest request = ParseSearchRequest(document);
    std::ostringstream out;
    out << "type " << request.type << ' ' << request.start << ".." << request.end << " resolution "
        << request.resolution << " keys" << std::hex;
    for (const RequestKey& key : request.keys) out << ' ' << key;
    return out.str() + '\n';
  }

  std::string Seen(std::size_t opened, bool document) {
    std::ostringstream out;
    std::string order = Order();
    const auto both = [](char a, char b) { return a == 'F' && b == 'F'; };
    order.erase(std::unique(order.begin(), order.end(), both), order.end());
    out << (order.empty() ? "-" : order) << " opened " << opened << " played "
        << host.CountLines(0, "SEARCH: Start playback");
    for (const auto& [id, wholly] : files.lastFilter) out << " archive " << id << ' ' << wholly;
    out << '\n';
    if (document) {
      for (const char c : ResultText()) out << c << (c == '>' ? "\n" : "");
    } else if (!ResultText().empty()) {
      const auto results = hostkit::ParseResults(ResultText());
      TellFrames(out << "thumbnail " << results.thumbnail);
      out << '\n';
      for (const auto& row : results.rows) {
        out << (row.input.audio ? 'a' : 'v') << row.input.number << ' ' << row.start - kSecond0
            << ".." << (row.end == -1 ? "none" : std::to_string(row.end - kSecond0)) << " frames "
            << row.count << '\n';
      }
    }
    for (const FakeHost::LogLine& line : host.Lines()) {
      if (line.level < 50) continue;
      const std::size_t path = std::min(line.text.find(tree.Root()), line.text.size());
      out << line.text.substr(0, path)
          << line.text.substr(std::min(line.text.find(' ', path), line.text.size())) << '\n';
    }
    return out.str();
  }
  // Those of one source that are equally far apart in one.
  void TellFrames(std::ostream& out) const {
    std::vector<std::pair<std::uint32_t, std::int64_t>> frames;
    for (const Event& event : events) {
      if (event.kind != 'F') continue;
      frames.emplace_back(event.request.Source, std::stoll(event.payload) - kStart);
    }
    for (std::size_t i = 0, next = 0; i < frames.size(); i = next) {
      const auto& [source, first] = frames[i];
      std::int64_t apart = 0;
      for (next = i + 1; next < frames.size() && frames[next].first == source; ++next) {
        const std::int64_t step = frames[next].second - frames[next - 1].second;
        if (next > i + 1 && step != apart) break;
        apart = step;
      }
      out << ' ' << std::hex << source << std::dec << '@' << first;
      if (next > i + 1) out << '+' << apart << '*' << next - i;
    }
  }

  std::string latest;
};

TEST_P(Searches, TellTheClientWhatWasAskedFor) {
  ASSERT_FALSE(GetParam().steps.empty());
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE("searches.txt:" + std::to_string(step.line));
    Do(step);
  }
}

INSTANTIATE_TEST_SUITE_P(Text, Searches, testing::ValuesIn(ReadConversations()),
                         [](const auto& made) { return made.param.name; });

}  // namespace
}  // namespace qvsvr::kelvo
