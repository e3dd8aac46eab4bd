#include "tests/archiving/TargetFixture.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem.hpp>
#include <iomanip>
#include <sstream>

namespace qvArchiving {

namespace fs = boost::filesystem;
using testsupport::Conversation;
using testsupport::Step;

ScannerProperties Target::Properties(const ScannerProperties& more) const {
  ScannerProperties properties = more;
  properties.insert({{"Type", "5"},
                     {"FullName", bucket + ".s3.us-east-1.amazonaws.com"},
                     {"FullyMountedPath", tree.Root()},
                     {"UserName", access},
                     {"Password", secret}});
  return properties;
}

std::shared_ptr<IScanner> Target::Open(const ScannerProperties& more,
                                       const ScannerCallback& callback) {
  return CreateScanner(Properties(more), callback, bundle.platform);
}

TransferStatus Target::Finish(const std::shared_ptr<IResult>& result) {
  if (result == nullptr) {
    ADD_FAILURE() << "not started";
    return TransferStatus::FAILED;
  }
  result->Wait();
  return result->GetStatus();
}

void Target::Hold(const Conversation& conversation) {
  for (const Step& step : conversation.steps) {
    std::string seen = Ask(step);
    for (const auto& line : host.Lines()) {
      EXPECT_EQ(line.text.find(secret), std::string::npos);
      if (line.level < 75) continue;
      std::string text = line.text;
      const std::size_t reason = text.find(" error: ") + 8;
      if (reason > 8 && text.at(reason) != ' ') {  // the rest are a store's own words
        if (!error.empty()) boost::replace_all(seen, std::string(": ").append(error), "");
        text.resize(std::min(text.size(), text.find(' ', reason)));
      }
      seen += '\n' + text.substr(text.starts_with('[') ? text.find("] ") + 2 : 0);
    }
    host.ForgetTraffic();
    seen = qv::kelvo::Slashed(seen) + '\n';
    boost::replace_all(seen, qv::kelvo::Slashed(tree.Root()), "$");
    EXPECT_EQ(seen, step.expected.empty() ? "yes\n" : step.expected) << "line " << step.line;
  }
}

std::string Target::Ask(const Step& step) try {
  Words words;
  std::istringstream text(step.text);
  for (std::string word; text >> std::quoted(word, '"', '\0');) {
    boost::replace_all(word, "$", tree.Root());
    words.push_back(word);
  }
  error.clear();
  return Do(step.command, words);
} catch (const fs::filesystem_error&) {
  return "thrown";
} catch (const std::exception& reason) {
  return std::string("thrown: ") + reason.what();
} catch (const char* reason) {
  return std::string("thrown: ") + reason;
}

std::string Target::Told(bool well) const {
  std::string text = well ? "yes" : "no";
  return error.empty() ? text : text.append(": ").append(error);
}

std::string Target::At(const Words& words, std::size_t n) const {
  return n >= words.size() || words[n] == "." ? tree.Root() : Path(words[n]);
}

ScannerProperties Target::Given(const Words& words) const {
  ScannerProperties properties = Properties();
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals != std::string::npos) properties[word.substr(0, equals)] = word.substr(equals + 1);
  }
  std::erase_if(properties, [](const auto& property) { return property.second == "-"; });
  return properties;
}

std::string Target::Do(const std::string& command, const Words& words) {
  const std::string path = At(words, 0);
  std::uint64_t size = 0;
  if (command == "target") {
    scanner = CreateScanner(Given(words), {}, bundle.platform);
    return "yes";
  }
  if (command == "same") return Told(scanner->IsSameTarget(Given(words)));
  if (command == "within") return Told(scanner->IsWithinMount(words.at(0)));
  if (command == "years") {
    std::set<int> years;
    std::string seen = Told(scanner->GetYears(path, years, error));
    for (const int year : years) seen += ' ' + std::to_string(year);
    return seen;
  }
  if (command == "list") return List(path, words.size() > 1);
  if (command == "kind") {
    if (scanner->TestDirectory(path)) return "directory";
    return scanner->TestFile(path) ? "file" : "nothing";
  }
  if (command == "size") {
    const bool known = scanner->GetFileSize(path, size, error);
    return known ? std::to_string(size) : Told(false);
  }
  if (command == "space") {
    TargetSpace space;
    if (!scanner->GetDiskSpace(path, space, error)) return Told(false);
    EXPECT_EQ(space.free, space.available);
    return std::to_string(space.capacity) + " less " + std::to_string(space.capacity - space.free);
  }
  if (command == "fetch") {
    std::map<std::string, std::string> names;
    for (const std::string& name : words) names[std::to_string(names.size())] = name;
    names.erase("0");  // the directory
    std::uint32_t count = 0;
    const bool well =
        scanner->DownloadDirectory(path, Path("fetched/deep"), count, size, names, error);
    std::string seen = std::to_string(static_cast<int>(count)) + ", " + std::to_string(size) +
                       " bytes, " + Told(well);
    for (const std::string& name : qv::kelvo::FilesBelow(Path("fetched"), "")) {
      seen += '\n' + name + ' ' + tree.Read("fetched/" + name);
    }
    return seen;
  }
  return Change(command, words);
}

std::string Target::Change(const std::string& command, const Words& words) {
  const std::string path = At(words, 0);
  if (command == "put") {
    tree.Write(words.at(0), words.at(1));
    const auto upload = scanner->Upload(path, path, {});
    if (upload == nullptr) return "yes";
    const bool well = Finish(upload) == TransferStatus::COMPLETED;
    fs::remove(path);
    return well ? "yes" : upload->GetStatusName(upload->GetStatus());
  }
  if (command == "get") {
    fs::remove(path);
    const auto download = scanner->Download(path, path, 0, 0);
    const bool well = Finish(download) == TransferStatus::COMPLETED;
    return well ? tree.Read(words.at(0)) : download->GetStatusName(download->GetStatus());
  }
  if (command == "touch") {
    fs::last_write_time(path, std::stoll(words.at(1)));
    return "yes";
  }
  if (command == "make") {
    const std::string seen = Told(scanner->CreateDirectories(path, error));
    return seen.substr(0, seen.find(" ("));  // the system's words
  }
  if (command == "delete") return Told(scanner->DeleteDirectory(path, error, false));
  if (command == "purge") return Told(scanner->DeleteDirectory(path, error, true));
  if (command == "remove") return Told(scanner->RemoveFile(path, error));
  if (command == "rename") return Told(scanner->RenameFile(path, At(words, 1), error));
  ADD_FAILURE() << "what is " << command;
  return {};
}

std::string Target::List(const std::string& directory, bool withTimes) {
  std::uint32_t count = 0;
  std::uint64_t bytes = 1;
  ScannedFileSet files;
  error = " of old";
  if (!scanner->QueryDirectory(directory, count, bytes, &files, withTimes, error)) {
    return Told(false);
  }
  std::string seen = count == kNoSuchDirectory ? "no such directory" : std::to_string(count);
  seen += ", " + std::to_string(bytes) + " bytes" + error;
  for (const ScannedFile& file : files) {
    seen += '\n' + (withTimes ? file.path.string() : file.name) + ' ' + std::to_string(file.size) +
            ' ' + std::to_string(file.modified);
  }
  return seen;
}

}  // namespace qvArchiving
