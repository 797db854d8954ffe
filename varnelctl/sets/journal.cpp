#include "varnelctl/sets/journal.h"

#include <algorithm>
#include <system_error>

#include "platform/vss.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/report/header.h"
#include "varnelctl/sets/journal_document.h"
#include "varnelctl/sets/private_files.h"

namespace varnelctl {
namespace {

constexpr char kExtension[] = ".json";
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

std::string Shown(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return Printable(varnel::Utf8ToWideLossy({reinterpret_cast<const char*>(text.data()), text.size()}));
}

// "20261120T185244.123Z-4711": sorts by time.
std::string NameOf(const JournalEntry& entry) {
  std::string name = entry.start;
  std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
  return name + "-" + std::to_string(entry.process.id);
}

// Only this process makes names of this kind with its number.
std::filesystem::path FreeFile(const std::filesystem::path& folder, const JournalEntry& entry) {
  const std::string name = NameOf(entry);
  std::filesystem::path file = folder / (name + kExtension);
  for (int n = 2; std::filesystem::exists(file); ++n) file = folder / (name + "-" + std::to_string(n) + kExtension);
  return file;
}

// A process may write once more and end before it is asked for: its last word is what stands there afterwards.
JournalEntry ReadEntry(const std::filesystem::path& file, const std::string& host) {
  for (std::optional<ProcessIdentity> ended;;) {
    JournalEntry entry = ParseJournalEntry(ReadPrivateFile(file, kLargestFile));
    if (entry.host != host) {
      throw std::runtime_error("it is of the host \"" + entry.host + "\", and this one is \"" + host + "\"");
    }
    entry.file = file;
    entry.isRunning = IsRunning(entry.process);
    if (entry.isRunning || entry.process == ended) return entry;
    ended = entry.process;
  }
}

// Another process may have taken it away since the folder was read.
bool IsMissingFile(const std::exception& error) {
  const auto* const system = dynamic_cast<const std::system_error*>(&error);
  return system != nullptr && system->code() == std::errc::no_such_file_or_directory;
}

std::vector<std::filesystem::path> FilesIn(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  if (error == std::errc::no_such_file_or_directory) return files;
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (entry->path().extension() == kExtension) files.push_back(entry->path());
  }
  if (error) throw JournalError("the journal " + Shown(folder) + " cannot be read: " + OneLine(error.message()));
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

bool JournalEntry::IsTransportable() const {
  return (context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0;
}

bool JournalEntry::IsPersistent() const {
  return (context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) != 0 || IsTransportable();
}

bool JournalEntry::IsOver() const {
  return end == JournalEnd::Nothing || end == JournalEnd::Released || end == JournalEnd::Deleted;
}

bool JournalEntry::IsLeftover() const {
  return !end || end == JournalEnd::ToBeEnded;
}

Journal::Content Journal::Read() const {
  Content content;
  const std::string host = ComputerName().value_or("");
  for (const std::filesystem::path& file : FilesIn(folder_)) {
    try {
      content.entries.push_back(ReadEntry(file, host));
    } catch (const std::exception& error) {
      if (IsMissingFile(error)) continue;
      content.faults.push_back({file, OneLine(error.what())});
    }
  }
  return content;
}

void Journal::Write(JournalEntry& entry) const {
  try {
    if (entry.file.empty()) {
      MakePrivateFolder(folder_);
      entry.file = FreeFile(folder_, entry);
    }
    ReplaceDurably(entry.file, FormatJournalEntry(entry));
  } catch (const std::system_error& error) {
    const std::string place = Shown(entry.file.empty() ? folder_ : entry.file);
    throw JournalError("the journal " + place + " cannot be written: " + OneLine(error.what()) +
                       "; make room or access for it, or name another folder with --journal");
  }
}

void Journal::Remove(const JournalEntry& entry) const {
  std::error_code error;
  std::filesystem::remove(entry.file, error);
  if (error) {
    throw JournalError("the journal's " + Shown(entry.file) + " cannot be removed: " + OneLine(error.message()));
  }
}

Journal::Content Journal::Tidy() const {
  Content content = Read();
  std::erase_if(content.entries, [](const JournalEntry& entry) {
    if (!entry.IsOver() || entry.isRunning) return false;
    std::error_code ignored;
    std::filesystem::remove(entry.file, ignored);
    return true;
  });
  return content;
}

}  // namespace varnelctl
